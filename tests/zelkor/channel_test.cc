#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/zelkor/zelkor.h"

using namespace zelkor;

namespace {

// Listeners record what reached them in a shared trace; their instance data says how to react.
struct Listener {
  int32_t id;
  int32_t action;  // what to do on 'note'
  Object* other;
};
enum : int32_t { kNothing, kDisposeOther, kDisposeSelf, kLeave, kJoinOther, kRebroadcast };

ClassRec* gL;
std::vector<std::string>* gTrace;
constexpr Word kChan = toWord(fc("chan"));

Word lNote(Object* self, const Msg& m) {
  auto* d = instanceData<Listener>(self, gL);
  gTrace->push_back(std::to_string(d->id) + ":" + std::to_string(m.w[0]));
  switch (d->action) {
    case kDisposeOther:
      if (d->other) send(d->other, kDspo);
      d->other = nullptr;
      break;
    case kDisposeSelf:
      send(self, kDspo);
      break;
    case kLeave:
      send(self, kpoRm, kChan);
      break;
    case kJoinOther:
      send(d->other, kpoAd, kChan);
      break;
    case kRebroadcast:
      d->action = kNothing;
      TransBlock(kChan, fc("note"), m.w[0] + 1);
      break;
  }
  return 0;
}

Object* make(int32_t id, int32_t action = kNothing, Object* other = nullptr) {
  if (!gL) {
    gL = makeSubclass(rootClass(), fc("tstL"), sizeof(Listener));
    Defn(gL, fc("note"), lNote);
  }
  Object* o = asObject(send(gL->classObject, kNew_));
  *instanceData<Listener>(o, gL) = {id, action, other};
  return o;
}

struct ChannelTest : ::testing::Test {
  std::vector<std::string> trace;
  void SetUp() override { gTrace = &trace; }
  std::string joined() {
    std::string s;
    for (auto& t : trace) s += t + " ";
    return s;
  }
};

}  // namespace

TEST_F(ChannelTest, BroadcastReachesMembersInJoinOrderOnce) {
  Object* a = make(1);
  Object* b = make(2);
  send(b, kpoAd, kChan);
  send(a, kpoAd, kChan);
  send(a, kpoAd, kChan);  // joining twice is joining once
  TransBlock(kChan, fc("note"), 5);
  EXPECT_EQ(joined(), "2:5 1:5 ");
  // An object can be a channel too.
  send(a, kpoAd, objWord(b));
  TransBlock(objWord(b), fc("note"), 6);
  EXPECT_EQ(joined(), "2:5 1:5 1:6 ");
  // A notice its members do not answer reaches nobody and counts no unanswered send.
  uint64_t misses = unansweredCount();
  TransBlock(kChan, fc("zzzz"), 7);
  EXPECT_EQ(unansweredCount(), misses);
  EXPECT_EQ(joined(), "2:5 1:5 1:6 ");
  send(a, kDspo);
  send(b, kDspo);
  EXPECT_TRUE(channelMembers(kChan).empty());
  EXPECT_TRUE(channelMembers(objWord(b)).empty());
  // A channel that emptied and is joined again is a new channel, and reaches only its member.
  Object* c = make(3);
  send(c, kpoAd, kChan);
  TransBlock(kChan, fc("note"), 8);
  EXPECT_EQ(joined(), "2:5 1:5 1:6 3:8 ");
  send(c, kDspo);
}

TEST_F(ChannelTest, ListenersMayDisposeLeaveJoinAndRebroadcastDuringABroadcast) {
  Object* late = make(9);
  Object* victim = make(3);
  Object* a = make(1, kDisposeOther, victim);  // disposes 3 before its turn
  Object* b = make(2, kDisposeSelf);
  Object* c = make(4, kJoinOther, late);  // 9 joins: not reached by this broadcast
  Object* d = make(5, kLeave);
  Object* e = make(6, kRebroadcast);  // a nested broadcast reaches the members still joined
  for (Object* o : {a, b, victim, c, d, e}) send(o, kpoAd, kChan);
  TransBlock(kChan, fc("note"), 1);
  EXPECT_EQ(joined(), "1:1 2:1 4:1 5:1 6:1 1:2 4:2 6:2 9:2 ");
  auto members = channelMembers(kChan);
  ASSERT_EQ(members.size(), 4u);
  EXPECT_EQ(members[0], a);
  EXPECT_EQ(members[3], late);
  trace.clear();
  TransBlock(kChan, fc("note"), 3);
  EXPECT_EQ(joined(), "1:3 4:3 6:3 9:3 ");
  for (Object* o : {a, c, d, e, late}) send(o, kDspo);
  EXPECT_TRUE(channelMembers(kChan).empty());
}

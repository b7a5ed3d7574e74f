#include <gtest/gtest.h>

#include "platform/zelkor/zelkor.h"

using namespace zelkor;

namespace {

// A three-level chain A <- B <- C, each class adding a counter of its own.
struct Data {
  int32_t calls;
  int32_t last;
};
ClassRec *gA, *gB, *gC;

Word aName(Object*, const Msg&) { return 'A'; }
Word bName(Object* self, const Msg& m) { return 'B' * 1000 + ClassData::pass(gB, self, m.sel); }
Word cName(Object* self, const Msg& m) { return 'C' * 1000000 + passMsg(gC, self, m); }
Word aSum(Object*, const Msg& m) {
  Word s = 0;
  for (Word w : m.w) s += w;
  return s;
}
Word bCount(Object* self, const Msg& m) {
  auto* d = instanceData<Data>(self, gB);
  d->calls++;
  d->last = i32(m.w[0]);
  return d->calls;
}

void buildChain() {
  if (gA) return;
  gA = makeSubclass(rootClass(), fc("tstA"), sizeof(Data));
  gB = makeSubclass(gA, fc("tstB"), sizeof(Data));
  gC = makeSubclass(gB, fc("tstC"), sizeof(Data));
  Defn(gA, fc("name"), aName);
  Defn(gB, fc("name"), bName);
  Defn(gC, fc("name"), cName);
  Defn(gA, fc("sum "), aSum);
  Defn(gB, fc("cnt "), bCount);
}

}  // namespace

TEST(Dispatch, SubclassHandlersOverrideAndPassReachesEachSuperclass) {
  buildChain();
  Object* c = asObject(send(gC->classObject, kNew_));
  Object* a = asObject(send(gA->classObject, kNew_));
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(send(c, fc("name")), 'C' * 1000000 + 'B' * 1000 + 'A');
  EXPECT_EQ(send(a, fc("name")), 'A');
  // Inherited handlers answer for subclasses; words beyond those sent read 0.
  EXPECT_EQ(send(c, fc("sum "), 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12), 78);
  EXPECT_EQ(send(c, fc("sum "), 5), 5);
  // Unknown selectors and null receivers answer 0; LkUp tells them apart.
  uint64_t misses = unansweredCount();
  EXPECT_EQ(send(c, fc("zzzz"), 1), 0);
  EXPECT_EQ(unansweredCount(), misses + 1);
  EXPECT_EQ(lastUnanswered().sel, fc("zzzz"));
  EXPECT_EQ(lastUnanswered().cls, gC->sig);
  EXPECT_EQ(send(static_cast<Object*>(nullptr), fc("name")), 0);
  EXPECT_NE(send(c, kLkUp, fc("cnt ")), 0);
  EXPECT_EQ(send(a, kLkUp, fc("cnt ")), 0);
  EXPECT_EQ(send(c, kLkUp, fc("zzzz")), 0);
  send(c, kDspo);
  send(a, kDspo);
}

TEST(Dispatch, LaterDefinitionsReachSubclassesThatInheritedThem) {
  buildChain();
  Object* c = asObject(send(gC->classObject, kNew_));
  EXPECT_EQ(send(c, fc("late")), 0);
  Defn(gA, fc("late"), [](Object*, const Msg&) -> Word { return 7; });
  EXPECT_EQ(send(c, fc("late")), 7);
  // A subclass's own definition is not overwritten by its superclass redefining the selector.
  Defn(gB, fc("late"), [](Object*, const Msg&) -> Word { return 8; });
  Defn(gA, fc("late"), [](Object*, const Msg&) -> Word { return 9; });
  EXPECT_EQ(send(c, fc("late")), 8);
  // Defn as a message to the class object.
  send(gC->classObject, kDefn, fc("late"),
       reinterpret_cast<Word>(+[](Object*, const Msg&) -> Word { return 10; }));
  EXPECT_EQ(send(c, fc("late")), 10);
  send(c, kDspo);
}

TEST(Objects, EachClassReachesItsOwnSegmentThroughItsRecord) {
  buildChain();
  Object* c = asObject(send(gC->classObject, kNew_));
  // Segments are disjoint, ordered root first, each preceded by its flag word.
  EXPECT_LT(gA->offset + sizeof(Data), gB->offset);
  EXPECT_LT(gB->offset + sizeof(Data), gC->offset);
  EXPECT_LE(gC->offset + sizeof(Data), gC->objectSize);
  EXPECT_EQ(ModuleData::sigClass(c, fc("tstB")), gB);
  EXPECT_EQ(ModuleData::sigClass(c, fc("@roo")), rootClass());
  EXPECT_EQ(ModuleData::sigClass(c, fc("nope")), nullptr);
  EXPECT_EQ(send(c, fc("cnt "), 41), 1);
  EXPECT_EQ(send(c, fc("cnt "), 42), 2);
  EXPECT_EQ(instanceData<Data>(c, gB)->last, 42);
  EXPECT_EQ(instanceData<Data>(c, gA)->calls, 0);
  EXPECT_EQ(instanceData<Data>(c, gC)->calls, 0);
  EXPECT_EQ(segmentFlags(c, gB), 0u);
  EXPECT_TRUE(isLiveObject(objWord(c)));
  send(c, kDspo);
  EXPECT_FALSE(isLiveObject(objWord(c)));
}

TEST(Objects, ClassObjectsAnswerClassSelectorsAndNwMFRemembersTheStore) {
  buildChain();
  EXPECT_EQ(ZelkorLookup(fc("tstB")), objWord(gB->classObject));
  EXPECT_EQ(ZelkorLookup(fc("nope")), 0);
  EXPECT_EQ(classOf(gB->classObject), gB);
  Object* o = asObject(send(gB->classObject, kNwMF, 1234));
  EXPECT_EQ(o->h.home, 1234);
  EXPECT_EQ(o->h.cls, gB);
  EXPECT_NE(send(gB->classObject, kLkUp, kNew_), 0);
  // A signature can name one class only.
  EXPECT_EQ(send(gA->classObject, kSubC, fc("tstB"), 1, 8), 0);
  Word d = send(gA->classObject, kSubC, fc("tstD"), 1, 8);
  ASSERT_NE(d, 0);
  EXPECT_EQ(classOf(asObject(d))->super, gA);
  send(o, kDspo);
}

TEST(Log, PlaceholdersFormatTheSystemsWords) {
  LogCapture cap;
  DebugLogf(515, "zoveCheckDL: DL %~d uType '%Y' bad", 7, fc("ro\x01t"));
  DebugLogf(516, "zoveInstall: wrong version, wanted 0x%08x, found 0x%08x", 5, -2);
  DebugLogf(519, "zoveGCCheck: periodic GC, %E", -802);
  DebugLogf(1, "%s %c %u %d %q 100%%", "txt", 'x', -1, -3);
  auto lines = cap.take();
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0].level, 515);
  EXPECT_EQ(lines[0].text, "zoveCheckDL: DL 7 uType 'ro\\x01t' bad");
  EXPECT_EQ(lines[1].text, "zoveInstall: wrong version, wanted 0x00000005, found 0xfffffffe");
  EXPECT_EQ(lines[2].text, "zoveGCCheck: periodic GC, -802");
  EXPECT_EQ(lines[3].text, "txt x 4294967295 -3 %q<?> 100%");
  EXPECT_EQ(cap.size(), 0u);
}

#include <functional>

#include "tests/store/store_fixture.h"

namespace zt {
namespace {

using Collect = StoreTest;

TEST_F(Collect, ChainsMayReachDepth500ButNotOneMore) {
  auto chain = [&](int n) {
    int32_t prev = 1;
    for (int i = 0; i < n; ++i) {
      int32_t dl = dn();
      S(s, kTSHS, prev, fc(i == 0 ? "chn0" : "next"), dl);
      prev = dl;
    }
    return prev;
  };
  int32_t last = chain(500);
  LogCapture cap;
  EXPECT_EQ(S(s, kTSGC), 0);
  EXPECT_TRUE(live(last));
  EXPECT_EQ(cap.size(), 0u);

  S(s, kTSUk, 1, fc("chn0"));
  last = chain(501);
  cap.take();
  EXPECT_EQ(S(s, kTSGC), kFaulted);
  EXPECT_EQ(lines(cap), std::vector<std::string>{"515 zoveDoMark: DL " + std::to_string(last) +
                                                 ", too deep, depth > 500"});
  EXPECT_EQ(S(s, kTSEC), kTooDeep);
  EXPECT_TRUE(live(last));
}

TEST_F(Collect, WeakReferencesAndListEntriesToFreedDLsArePruned) {
  int32_t holder = dn(), only = dn(), shared = dn(), removed = dn(), weakMember = dn();
  S(s, kTSAS, 1, fc("hold"), holder);
  S(s, kTSHS, holder, fc("weak"), only);
  poke(holder, fc("weak"), only, kWeakHandle);
  S(s, kTSHS, holder, fc("wk2 "), shared);
  poke(holder, fc("wk2 "), shared, kWeakHandle);
  S(s, kTSHS, holder, fc("strg"), shared);
  S(s, kTSLA, holder, fc("list"), removed);
  S(s, kTSLA, holder, fc("list"), shared);
  S(s, kTSLA, holder, fc("wlst"), weakMember);
  S(s, kTSLA, holder, fc("wlst"), shared);
  int32_t wlist = rawItem(s, holder, 4).ref;  // after list, strg, weak and wk2
  poke(holder, fc("wlst"), wlist, kWeakList);
  // A DL removed outright, as an owner's removal would.
  sp->LmRemove(removed);

  EXPECT_EQ(S(s, kTSGC), 0);
  EXPECT_FALSE(live(only));
  EXPECT_FALSE(live(weakMember));
  EXPECT_TRUE(live(shared));
  int32_t target;
  EXPECT_EQ(S(s, kTSHG, holder, fc("weak"), &target), kNoItem);
  EXPECT_EQ(S(s, kTSLC, holder, fc("list")), 1);
  EXPECT_EQ(S(s, kTSLE, holder, fc("list"), 0), shared);
  EXPECT_TRUE(live(wlist));
  EXPECT_EQ(sp->LmSize(wlist), 4);
  EXPECT_EQ(*reinterpret_cast<int32_t*>(sp->LmGet(wlist)), shared);
  DLView v;
  dlOpen(sp, holder, &v);
  EXPECT_GE(dlFind(v, fc("wk2 ")), 0);
  expectSound(s);
}

TEST_F(Collect, OwnerWordsOfFreedModulesAreCleared) {
  int32_t mod = i32(S(s, kTSNM, fc("PRO1"), 0));
  int32_t obj = i32(S(s, kTSDN, fc("data"), 0, mod));
  S(s, kTSAS, 1, fc("objt"), obj);
  S(s, kTSLD, 1, fc("mods"), mod);
  EXPECT_EQ(S(s, kTSGC), 0);
  EXPECT_FALSE(live(mod));
  EXPECT_EQ(S(s, kTSCS, obj), 0);
}

TEST_F(Collect, UnknownKindsFailTheCollectionWithTheirLine) {
  // (ref, kind) written under a linked DL's item; 0 for ref means the DL itself.
  struct Case {
    int32_t ref;
    uint32_t kind;
    int32_t fault;
    std::string line;
  } cases[] = {{0, 0x900, kBadRefType, ", item value 0x00000900 bad"},
               {int32_t(0xFFFF8300), 0, kBadValueType, ", item refnum 0xffff8300 bad"}};
  for (const Case& c : cases) {
    renew();
    int32_t dl = dn();
    S(s, kTSAS, 1, fc("link"), dl);
    S(s, kTSVS, dl, fc("bad "), 0);
    poke(dl, fc("bad "), c.ref ? c.ref : dl, c.kind);
    LogCapture cap;
    EXPECT_EQ(S(s, kTSGC), kFaulted);
    EXPECT_EQ(S(s, kTSEC), c.fault);
    EXPECT_EQ(lines(cap),
              std::vector<std::string>{"515 zoveDoMark: DL " + std::to_string(dl) + c.line});
  }
}

TEST_F(Collect, CheckPassesASoundStoreAndTellsControllers) {
  std::vector<std::string> trace;
  Object* l = newListener(&trace);
  ASSERT_EQ(S(s, kTSIn, kChannel, 1), 0);
  int32_t dl = dn();
  S(s, kTSAS, 1, fc("link"), dl);
  S(s, kTSBW, dl, fc("blob"), "xy", 2);
  trace.clear();
  EXPECT_EQ(S(s, kTSCk), 1);
  EXPECT_EQ(trace, std::vector<std::string>{"XTSH"});
  EXPECT_EQ(S(s, kHChg), 0);
  S(l, kDspo);
}

// Each finding of the DL check, with its exact line; the two record findings only log.
TEST_F(Collect, TheDLCheckReportsEachFindingExactly) {
  int32_t dl = dn();
  S(s, kTSAS, 1, fc("link"), dl);
  std::string n = std::to_string(dl);
  struct Case {
    std::function<void()> damage;
    std::string line;
  };
  auto head = [&] { return reinterpret_cast<DLHead*>(sp->LmGet(dl)); };
  std::vector<Case> cases = {
      {[&] { head()->uType = 0x74611F61; }, "zoveCheckDL: DL " + n + " uType 'ta\\x1Fa' bad"},
      {[&] { head()->count = 3; }, "zoveCheckDL: DL " + n + " appears too small"},
      {[&] {  // long enough, but the items would lie unaligned
         S(s, kTSVS, dl, fc("valx"), 1);
         S(s, kTSVS, dl, fc("valy"), 1);
         head()->dataSize = 3;
         head()->count = 1;
       },
       "zoveCheckDL: DL " + n + " appears too small"},
      {[&] {
         S(s, kTSVS, dl, fc("keyx"), 1);
         poke(dl, fc("keyx"), int32_t(kImmediate), 1);
         DLView v;
         dlOpen(sp, dl, &v);
         v.items[0].key = 0x6B657980;
       },
       "zoveCheckDL: DL " + n + " key 'key\\x80' bad"},
      {[&] {
         S(s, kTSVS, dl, fc("refx"), 1);
         poke(dl, fc("refx"), 1, 0x9FF);
       },
       "zoveCheckDL: DL " + n + " item 'refx' bad refnum type 0x00000900"},
      {[&] {
         S(s, kTSVS, dl, fc("valx"), 1);
         poke(dl, fc("valx"), -5, 0);
       },
       "zoveCheckDL: DL " + n + " item 'valx' bad value type 0xffffff00"},
  };
  for (auto& c : cases) {
    renew();
    dl = dn();
    S(s, kTSAS, 1, fc("link"), dl);
    c.damage();
    LogCapture cap;
    fundra::AssertCapture asserts;
    EXPECT_EQ(S(s, kTSCk), kFaulted) << c.line;
    std::vector<std::string> logged = lines(cap);
    std::erase_if(logged, [](const std::string& l) { return l.starts_with("1 assertion"); });
    EXPECT_EQ(logged, std::vector<std::string>{"515 " + c.line});
    EXPECT_EQ(asserts.size(), 1u) << c.line;
    EXPECT_EQ(S(s, kTSEC), kFaulted);
  }

  // The check runs inside writers while the level is raised (during HChg and TSCk); a vhandle
  // item in a store without a file is logged, not failed.
  renew();
  dl = dn();
  S(s, kTSAS, 1, fc("link"), dl);
  S(s, kTSVS, dl, fc("recx"), 1);
  poke(dl, fc("recx"), int32_t(kVHandle), 42);
  LogCapture cap;
  EXPECT_EQ(S(s, kTSCk), 1);
  EXPECT_EQ(lines(cap), std::vector<std::string>{"515 zoveCheckDL: DL " + std::to_string(dl) +
                                                 " item 'recx' no file for chunk 42"});
}

}  // namespace
}  // namespace zt

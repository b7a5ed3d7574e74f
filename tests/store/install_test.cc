#include <cstdio>
#include <functional>

#include "platform/fundra/tstring.h"
#include "tests/store/store_fixture.h"

namespace zt {
namespace {

TEST(StoreLife, NewStoreHoldsRootAndEmptyModsListAndHasCountedOneChange) {
  Object* s = newStore(4);
  fundra::ElementSpace* sp = spaceOf(s);
  EXPECT_EQ(sp->LmLiveCount(), 2);
  EXPECT_EQ(sp->LmSize(1), 40);
  const uint8_t* root = sp->LmGet(1);
  EXPECT_EQ(std::memcmp(root, "toor", 4), 0);
  int16_t version;
  std::memcpy(&version, root + 20, 2);
  EXPECT_EQ(version, 4);
  EXPECT_EQ(S(s, kTSDT, 1), toWord(fc("root")));
  EXPECT_EQ(S(s, kTSSD, 1), 8);
  Item mods = rawItem(s, 1, 0);
  EXPECT_EQ(mods.key, fc("mods"));
  EXPECT_EQ(mods.kind, kList);
  EXPECT_EQ(sp->LmSize(mods.ref), 0);
  expectSound(s);

  // The 100th counted change collects: with one counted already, 98 more DLs do not.
  LogCapture cap;
  for (int i = 0; i < 98; ++i) S(s, kTSDN, fc("test"), 0, 0);
  EXPECT_EQ(cap.size(), 0u);
  S(s, kTSDN, fc("test"), 0, 0);
  EXPECT_EQ(lines(cap), std::vector<std::string>{"519 zoveGCCheck: periodic GC, 0"});
  S(s, kDspo);
}

TEST(StoreInstall, AnnouncesEachModuleThenTheRestAndRefusesASecondInstall) {
  std::vector<std::string> trace;
  Object* l = newListener(&trace);
  Object* s = newStore(1);
  Word pro = S(s, kTSNM, fc("PRO1"), 8);
  Word opt = S(s, kTSNM, fc("OPTS"), 0);
  EXPECT_EQ(S(s, kTSTS, pro), 1);
  EXPECT_EQ(S(s, kTSSD, pro), 8);
  EXPECT_EQ(S(s, kTSLC, 1, fc("mods")), 2);
  EXPECT_EQ(S(s, kTSIn, kChannel, 1), 0);
  std::vector<std::string> expected = {"XTSL PRO1 " + std::to_string(pro),
                                       "XTSL OPTS " + std::to_string(opt), "XTSD", "XTSI"};
  EXPECT_EQ(trace, expected);
  bool registered = false;
  for (auto& h : storefile::registeredHandles())
    registered |= h.object == objWord(s) && h.cls == kZoveSig;
  EXPECT_TRUE(registered);

  EXPECT_EQ(S(s, kTSIn, kChannel, 1), kInstalled);
  EXPECT_EQ(trace, expected);
  S(s, kDspo);
  EXPECT_EQ(trace.back(), "XTSC");
  S(l, kDspo);
}

TEST(StoreInstall, WrongVersionFaultsTheStoreWithTheStoredVersion) {
  Object* s = newStore(4);
  LogCapture cap;
  EXPECT_EQ(S(s, kTSIn, kChannel, 5), kWrongVersion);
  EXPECT_EQ(lines(cap), std::vector<std::string>{
                            "516 zoveInstall: wrong version, wanted 0x00000005, found 0x00000004"});
  EXPECT_EQ(S(s, kTSEC), 4);
  EXPECT_EQ(S(s, kHChg), kFaulted);
  S(s, kDspo);

  // The version word can be rewritten, and the install then passes.
  s = newStore(4);
  EXPECT_EQ(S(s, kTSVU, 0x10007), 0);
  EXPECT_EQ(S(s, kTSIn, kChannel, 7), 0);
  S(s, kDspo);
}

TEST(StoreInstall, MissingOrShortRootFailsInstall) {
  Object* s = newStore(1);
  spaceOf(s)->LmSetAssert(1, 39);
  LogCapture cap;
  EXPECT_EQ(S(s, kTSIn, kChannel, 1), kFaulted);
  EXPECT_EQ(lines(cap), std::vector<std::string>{"515 zoveInstall: no root or root too small"});
  EXPECT_NE(S(s, kTSEC), 0);
  S(s, kDspo);

  s = newStore(1);
  spaceOf(s)->LmRemove(1);
  EXPECT_EQ(S(s, kTSIn, kChannel, 1), kFaulted);
  EXPECT_EQ(S(s, kTSEC), fundra::kLmNotLive);
  // A new install attempt assigns the fault code afresh.
  spaceOf(s)->LmSetAssert(1, 39);
  EXPECT_EQ(S(s, kTSIn, kChannel, 1), kFaulted);
  EXPECT_EQ(S(s, kTSEC), kFaulted);
  S(s, kDspo);

  fundra::AssertCapture asserts;
  s = newStore(1);
  EXPECT_EQ(S(s, kTSIn, 0, 1), kNoSpace);
  EXPECT_EQ(asserts.size(), 1u);
  S(s, kDspo);
}

TEST(StoreFault, FaultCodeIsStickyAndRefusesStructuralWorkOnly) {
  Object* s = newStore(1);
  EXPECT_EQ(S(s, kTSDS, -5), -5);
  EXPECT_EQ(S(s, kTSDS, -7), -5);
  EXPECT_EQ(S(s, kTSEC), -5);
  EXPECT_EQ(S(s, kTSGC), kFaulted);
  EXPECT_EQ(S(s, kTSCk), kFaulted);
  EXPECT_EQ(S(s, kHChg), kFaulted);
  int32_t keep[] = {0};
  EXPECT_EQ(S(s, kTSPk, keep), kFaulted);
  Word dl = S(s, kTSDN, fc("data"), 0, 0);
  EXPECT_GT(dl, 1);
  S(s, kTSVS, dl, fc("valu"), 3);
  int32_t v = 0;
  EXPECT_EQ(S(s, kTSVG, dl, fc("valu"), &v), 0);
  EXPECT_EQ(v, 3);
  S(s, kDspo);
}

TEST(StoreClose, BusyControllerKeepsTheStoreOpenWithItsReason) {
  std::vector<std::string> trace;
  Object* busy = newListener(&trace, 1);
  Object* s = newStore(1);
  ASSERT_EQ(S(s, kTSIn, kChannel, 1), 0);
  char reason[16] = "x";
  EXPECT_EQ(S(s, kTSCl, reason), kRefused);
  EXPECT_STREQ(reason, "busy");
  EXPECT_EQ(S(s, kTSIn, kChannel, 1), kInstalled);

  S(busy, kDspo);
  trace.clear();
  Object* idle = newListener(&trace);
  EXPECT_EQ(S(s, kTSCl, reason), 0);
  EXPECT_EQ(reason[0], 0);
  EXPECT_EQ(trace, (std::vector<std::string>{"XTSU", "XTSC"}));
  EXPECT_FALSE(isLiveObject(objWord(s)));
  for (auto& h : storefile::registeredHandles()) EXPECT_NE(h.object, objWord(s));
  S(idle, kDspo);
}

TEST(StorePack, PackKeepsListedModulesAndCollectsWhatOnlyTheOthersReached) {
  std::vector<std::string> trace;
  Object* l = newListener(&trace);
  Object* s = newStore(1);
  Word pro = S(s, kTSNM, fc("PRO1"), 0);
  Word opt = S(s, kTSNM, fc("OPTS"), 0);
  Word pro2 = S(s, kTSNM, fc("PRO1"), 4);
  Word data = S(s, kTSDN, fc("data"), 0, 0);
  S(s, kTSHS, opt, fc("kept"), data);
  Word mine = S(s, kTSDN, fc("data"), 0, 0);
  S(s, kTSAS, pro, fc("part"), mine);
  ASSERT_EQ(S(s, kTSIn, kChannel, 1), 0);
  trace.clear();

  int32_t keep[] = {int32_t(fc("PRO1")), 0};
  EXPECT_EQ(S(s, kTSPk, keep), 0);
  EXPECT_EQ(trace, std::vector<std::string>{"XTSS 1"});
  EXPECT_EQ(S(s, kTSLC, 1, fc("mods")), 2);
  EXPECT_EQ(S(s, kTSLE, 1, fc("mods"), 0), pro);
  EXPECT_EQ(S(s, kTSLE, 1, fc("mods"), 1), pro2);
  fundra::ElementSpace* sp = spaceOf(s);
  EXPECT_NE(sp->LmTest(int32_t(opt)), 0);
  EXPECT_NE(sp->LmTest(int32_t(data)), 0);
  EXPECT_EQ(sp->LmTest(int32_t(mine)), 0);
  expectSound(s);
  S(s, kDspo);
  S(l, kDspo);
}

}  // namespace
}  // namespace zt

namespace zt {
namespace {

// The store saved through its base and installed again from the file keeps its modules and data.
TEST(StoreFile, ASavedStoreInstallsAgainWithItsModulesAndData) {
  std::string path = ::testing::TempDir() + "zove_store_file_test.zst";
  std::remove(path.c_str());
  Object* s = newStore(3);
  ASSERT_EQ(storefile::vhdCreateFile(objWord(s), path), 0);
  ASSERT_EQ(S(s, kTSIn, kChannel, 3), 0);
  Word pro = S(s, kTSNM, fc("PRO1"), 4);
  Word obj = S(s, kTSDN, fc("data"), 0, pro);
  S(s, kTSLA, pro, fc("objs"), obj);
  fundra::TString name("Saved");
  S(s, kTSSs, obj, fc("Name"), &name);
  Word junk = S(s, kTSDN, fc("junk"), 0, 0);
  S(s, kTSDU, junk);
  EXPECT_EQ(S(s, kHChg), 0);
  S(s, kDspo);

  std::vector<std::string> trace;
  Object* l = newListener(&trace);
  s = asObject(send(ZelkorLookup(kZoveSig), kNew_));
  S(s, kSetu);
  ASSERT_EQ(storefile::vhdOpenFile(objWord(s), path, storefile::VhdOpenMode::kReadWrite), 0);
  ASSERT_EQ(S(s, kTSIn, kChannel, 3), 0);
  EXPECT_EQ(trace.front(), "XTSL PRO1 " + std::to_string(pro));
  EXPECT_EQ(S(s, kTSLE, pro, fc("objs"), 0), obj);
  fundra::TString back;
  EXPECT_EQ(S(s, kTSSg, obj, fc("Name"), &back), 0);
  EXPECT_EQ(back, "Saved");
  EXPECT_EQ(S(s, kTSCS, obj), toWord(fc("PRO1")));
  EXPECT_NE(spaceOf(s)->LmTest(int32_t(junk)), 0);  // collected before the save
  EXPECT_EQ(S(s, kTSCk), 1);

  // Values rewritten in place, each saved alone (a save writes only what the space recorded as
  // touched), read back by a reader of the file: an item overwritten, a string and a blob
  // rewritten at the same length, the data area.
  S(s, kTSVS, obj, fc("Valu"), 1);
  S(s, kTSBW, obj, fc("Blob"), "abcd", 4);
  EXPECT_EQ(S(s, kHChg), 0);
  fundra::TString same("Saves");
  uint32_t data = 0x01020304;
  const std::vector<std::function<void()>> edits = {
      [&] { S(s, kTSVS, obj, fc("Valu"), 2); },
      [&] { S(s, kTSSs, obj, fc("Name"), &same); },
      [&] { S(s, kTSBW, obj, fc("Blob"), "wxyz", 4); },
      [&] { S(s, kTSWD, pro, &data, 4); },
  };
  for (size_t e = 0; e < edits.size(); ++e) {
    SCOPED_TRACE("edit " + std::to_string(e));
    edits[e]();
    ASSERT_EQ(S(s, kHChg), 0);
    Object* r = asObject(send(ZelkorLookup(kZoveSig), kNew_));
    S(r, kSetu);
    ASSERT_EQ(storefile::vhdOpenFile(objWord(r), path, storefile::VhdOpenMode::kReadOnly), 0);
    ASSERT_EQ(S(r, kTSIn, toWord(fc("rChn")), 3), 0);
    int32_t value = 0;
    S(r, kTSVG, obj, fc("Valu"), &value);
    EXPECT_EQ(value, 2);
    fundra::TString name;
    S(r, kTSSg, obj, fc("Name"), &name);
    EXPECT_EQ(name, e >= 1 ? "Saves" : "Saved");
    char blob[4] = {};
    S(r, kTSBR, obj, fc("Blob"), blob, 4);
    EXPECT_EQ(std::string(blob, 4), e >= 2 ? "wxyz" : "abcd");
    uint32_t read = 0;
    S(r, kTSRD, pro, &read, 4);
    EXPECT_EQ(read, e >= 3 ? data : 0u);
    S(r, kDspo);
  }
  S(s, kDspo);
  S(l, kDspo);
  std::remove(path.c_str());
}

}  // namespace
}  // namespace zt

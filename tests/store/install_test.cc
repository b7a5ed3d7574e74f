#include <cstdio>

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
  EXPECT_EQ(S(s, fc("TSDT"), 1), toWord(fc("root")));
  EXPECT_EQ(S(s, fc("TSSD"), 1), 8);
  Item mods = rawItem(s, 1, 0);
  EXPECT_EQ(mods.key, fc("mods"));
  EXPECT_EQ(mods.kind, kList);
  EXPECT_EQ(sp->LmSize(mods.ref), 0);
  expectSound(s);

  // The 100th counted change collects: with one counted already, 98 more DLs do not.
  LogCapture cap;
  for (int i = 0; i < 98; ++i) S(s, fc("TSDN"), fc("test"), 0, 0);
  EXPECT_EQ(cap.size(), 0u);
  S(s, fc("TSDN"), fc("test"), 0, 0);
  EXPECT_EQ(lines(cap), std::vector<std::string>{"519 zoveGCCheck: periodic GC, 0"});
  S(s, fc("Dspo"));
}

TEST(StoreInstall, AnnouncesEachModuleThenTheRestAndRefusesASecondInstall) {
  std::vector<std::string> trace;
  Object* l = newListener(&trace);
  Object* s = newStore(1);
  Word pro = S(s, fc("TSNM"), fc("PRO1"), 8);
  Word opt = S(s, fc("TSNM"), fc("OPTS"), 0);
  EXPECT_EQ(S(s, fc("TSTS"), pro), 1);
  EXPECT_EQ(S(s, fc("TSSD"), pro), 8);
  EXPECT_EQ(S(s, fc("TSLC"), 1, fc("mods")), 2);
  EXPECT_EQ(S(s, fc("TSIn"), kChannel, 1), 0);
  std::vector<std::string> expected = {"XTSL PRO1 " + std::to_string(pro),
                                       "XTSL OPTS " + std::to_string(opt), "XTSD", "XTSI"};
  EXPECT_EQ(trace, expected);
  bool registered = false;
  for (auto& h : registeredHandles()) registered |= h.object == objWord(s) && h.cls == kZoveSig;
  EXPECT_TRUE(registered);

  EXPECT_EQ(S(s, fc("TSIn"), kChannel, 1), kInstalled);
  EXPECT_EQ(trace, expected);
  S(s, fc("Dspo"));
  EXPECT_EQ(trace.back(), "XTSC");
  S(l, fc("Dspo"));
}

TEST(StoreInstall, WrongVersionFaultsTheStoreWithTheStoredVersion) {
  Object* s = newStore(4);
  LogCapture cap;
  EXPECT_EQ(S(s, fc("TSIn"), kChannel, 5), kWrongVersion);
  EXPECT_EQ(lines(cap), std::vector<std::string>{
                            "516 zoveInstall: wrong version, wanted 0x00000005, found 0x00000004"});
  EXPECT_EQ(S(s, fc("TSEC")), 4);
  EXPECT_EQ(S(s, fc("HChg")), kFaulted);
  S(s, fc("Dspo"));

  // The version word can be rewritten, and the install then passes.
  s = newStore(4);
  EXPECT_EQ(S(s, fc("TSVU"), 0x10007), 0);
  EXPECT_EQ(S(s, fc("TSIn"), kChannel, 7), 0);
  S(s, fc("Dspo"));
}

TEST(StoreInstall, MissingOrShortRootFailsInstall) {
  Object* s = newStore(1);
  spaceOf(s)->LmSetAssert(1, 39);
  LogCapture cap;
  EXPECT_EQ(S(s, fc("TSIn"), kChannel, 1), kFaulted);
  EXPECT_EQ(lines(cap), std::vector<std::string>{"515 zoveInstall: no root or root too small"});
  EXPECT_NE(S(s, fc("TSEC")), 0);
  S(s, fc("Dspo"));

  s = newStore(1);
  spaceOf(s)->LmRemove(1);
  EXPECT_EQ(S(s, fc("TSIn"), kChannel, 1), kFaulted);
  EXPECT_EQ(S(s, fc("TSEC")), fundra::kLmNotLive);
  // A new install attempt assigns the fault code afresh.
  spaceOf(s)->LmSetAssert(1, 39);
  EXPECT_EQ(S(s, fc("TSIn"), kChannel, 1), kFaulted);
  EXPECT_EQ(S(s, fc("TSEC")), kFaulted);
  S(s, fc("Dspo"));

  fundra::AssertCapture asserts;
  s = newStore(1);
  EXPECT_EQ(S(s, fc("TSIn"), 0, 1), kNoSpace);
  EXPECT_EQ(asserts.size(), 1u);
  S(s, fc("Dspo"));
}

TEST(StoreFault, FaultCodeIsStickyAndRefusesStructuralWorkOnly) {
  Object* s = newStore(1);
  EXPECT_EQ(S(s, fc("TSDS"), -5), -5);
  EXPECT_EQ(S(s, fc("TSDS"), -7), -5);
  EXPECT_EQ(S(s, fc("TSEC")), -5);
  EXPECT_EQ(S(s, fc("TSGC")), kFaulted);
  EXPECT_EQ(S(s, fc("TSCk")), kFaulted);
  EXPECT_EQ(S(s, fc("HChg")), kFaulted);
  int32_t keep[] = {0};
  EXPECT_EQ(S(s, fc("TSPk"), keep), kFaulted);
  Word dl = S(s, fc("TSDN"), fc("data"), 0, 0);
  EXPECT_GT(dl, 1);
  S(s, fc("TSVS"), dl, fc("valu"), 3);
  int32_t v = 0;
  EXPECT_EQ(S(s, fc("TSVG"), dl, fc("valu"), &v), 0);
  EXPECT_EQ(v, 3);
  S(s, fc("Dspo"));
}

TEST(StoreClose, BusyControllerKeepsTheStoreOpenWithItsReason) {
  std::vector<std::string> trace;
  Object* busy = newListener(&trace, 1);
  Object* s = newStore(1);
  ASSERT_EQ(S(s, fc("TSIn"), kChannel, 1), 0);
  char reason[16] = "x";
  EXPECT_EQ(S(s, fc("TSCl"), reason), kRefused);
  EXPECT_STREQ(reason, "busy");
  EXPECT_EQ(S(s, fc("TSIn"), kChannel, 1), kInstalled);

  S(busy, fc("Dspo"));
  trace.clear();
  Object* idle = newListener(&trace);
  EXPECT_EQ(S(s, fc("TSCl"), reason), 0);
  EXPECT_EQ(reason[0], 0);
  EXPECT_EQ(trace, (std::vector<std::string>{"XTSU", "XTSC"}));
  EXPECT_FALSE(isLiveObject(objWord(s)));
  for (auto& h : registeredHandles()) EXPECT_NE(h.object, objWord(s));
  S(idle, fc("Dspo"));
}

TEST(StorePack, PackKeepsListedModulesAndCollectsWhatOnlyTheOthersReached) {
  std::vector<std::string> trace;
  Object* l = newListener(&trace);
  Object* s = newStore(1);
  Word pro = S(s, fc("TSNM"), fc("PRO1"), 0);
  Word opt = S(s, fc("TSNM"), fc("OPTS"), 0);
  Word pro2 = S(s, fc("TSNM"), fc("PRO1"), 4);
  Word data = S(s, fc("TSDN"), fc("data"), 0, 0);
  S(s, fc("TSHS"), opt, fc("kept"), data);
  Word mine = S(s, fc("TSDN"), fc("data"), 0, 0);
  S(s, fc("TSAS"), pro, fc("part"), mine);
  ASSERT_EQ(S(s, fc("TSIn"), kChannel, 1), 0);
  trace.clear();

  int32_t keep[] = {int32_t(fc("PRO1")), 0};
  EXPECT_EQ(S(s, fc("TSPk"), keep), 0);
  EXPECT_EQ(trace, std::vector<std::string>{"XTSS 1"});
  EXPECT_EQ(S(s, fc("TSLC"), 1, fc("mods")), 2);
  EXPECT_EQ(S(s, fc("TSLE"), 1, fc("mods"), 0), pro);
  EXPECT_EQ(S(s, fc("TSLE"), 1, fc("mods"), 1), pro2);
  fundra::ElementSpace* sp = spaceOf(s);
  EXPECT_NE(sp->LmTest(int32_t(opt)), 0);
  EXPECT_NE(sp->LmTest(int32_t(data)), 0);
  EXPECT_EQ(sp->LmTest(int32_t(mine)), 0);
  expectSound(s);
  S(s, fc("Dspo"));
  S(l, fc("Dspo"));
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
  ASSERT_EQ(vhdCreateFile(objWord(s), path), 0);
  ASSERT_EQ(S(s, fc("TSIn"), kChannel, 3), 0);
  Word pro = S(s, fc("TSNM"), fc("PRO1"), 4);
  Word obj = S(s, fc("TSDN"), fc("data"), 0, pro);
  S(s, fc("TSLA"), pro, fc("objs"), obj);
  fundra::TString name("Saved");
  S(s, fc("TSSs"), obj, fc("Name"), &name);
  Word junk = S(s, fc("TSDN"), fc("junk"), 0, 0);
  S(s, fc("TSDU"), junk);
  EXPECT_EQ(S(s, fc("HChg")), 0);
  S(s, fc("Dspo"));

  std::vector<std::string> trace;
  Object* l = newListener(&trace);
  s = asObject(send(ZelkorLookup(kZoveSig), fc("New ")));
  S(s, fc("Setu"));
  ASSERT_EQ(vhdOpenFile(objWord(s), path, VhdOpenMode::kReadWrite), 0);
  ASSERT_EQ(S(s, fc("TSIn"), kChannel, 3), 0);
  EXPECT_EQ(trace.front(), "XTSL PRO1 " + std::to_string(pro));
  EXPECT_EQ(S(s, fc("TSLE"), pro, fc("objs"), 0), obj);
  fundra::TString back;
  EXPECT_EQ(S(s, fc("TSSg"), obj, fc("Name"), &back), 0);
  EXPECT_EQ(back, "Saved");
  EXPECT_EQ(S(s, fc("TSCS"), obj), toWord(fc("PRO1")));
  EXPECT_NE(spaceOf(s)->LmTest(int32_t(junk)), 0);  // collected before the save
  EXPECT_EQ(S(s, fc("TSCk")), 1);
  S(s, fc("Dspo"));
  S(l, fc("Dspo"));
  std::remove(path.c_str());
}

}  // namespace
}  // namespace zt

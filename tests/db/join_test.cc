// Joining a store: a database object binds to its module DL (an existing one or a new one),
// registers as its signature's controller, hears the store's notices, and goes with its store.
// (The modeler's forwarding and the property type's names are driven through the shell:
// tests/shell/db.lua.)
#include "tests/db/db_fixture.h"

namespace zt {
namespace {

using DbJoin = DbTest;

TEST_F(DbJoin, ANewModuleGetsItsDLMadeAndTheDatabaseRegistered) {
  Object* db = newDb(store);
  ASSERT_TRUE(db);
  EXPECT_EQ(db->h.home, objWord(store)) << "made with NwMF (store)";
  int32_t module = i32(S(db, kSdRR));
  EXPECT_GT(module, 1);
  EXPECT_EQ(S(store, kTSDM, kTestSig), module);
  EXPECT_EQ(S(store, kTSDT, module), toWord(kTestSig));
  EXPECT_EQ(S(store, kTSSD, module), kTestDataSize);
  EXPECT_EQ(S(store, kTSGM, kTestSig), objWord(db));
  EXPECT_EQ(S(db, kSdMS), toWord(kTestSig));
  EXPECT_EQ(S(db, kPGTy), objWord(store));
  // No XTSL (no module DL yet); SdNw posts TSTM last, so the database, on the store's channel
  // by then, hears XTSI.
  EXPECT_EQ(recorder().take(), (std::vector<std::string>{"XTSD", "XTSI"}));

  // XTSD again: it has its DL, so it answers it and makes nothing.
  int32_t modules = i32(S(store, kTSLC, 1, kModsKey));
  EXPECT_EQ(S(db, kXTSD, store), module);
  EXPECT_EQ(S(store, kTSLC, 1, kModsKey), modules);
}

TEST_F(DbJoin, AnExistingModuleDLIsBoundThroughXTSLAndNotMadeAgain) {
  int32_t module = i32(S(store, kTSNM, kTestSig, kTestDataSize));
  Object* db = newDb(store);
  EXPECT_EQ(recorder().take(),
            (std::vector<std::string>{"XTSL TST1 " + std::to_string(module), "XTSD", "XTSI"}));
  EXPECT_EQ(S(db, kSdRR), module);
  EXPECT_EQ(S(store, kTSLC, 1, kModsKey), 1);
  EXPECT_EQ(S(store, kTSGM, kTestSig), objWord(db));

  // Notices for another signature or another store are answered and change nothing: XTSL with
  // that signature, XTSC (a store going) with that store.
  Object* other = newBareStore();
  EXPECT_EQ(S(db, kXTSL, other, fc("OPTS"), 99), toWord(fc("OPTS")));
  EXPECT_EQ(S(db, kSdRR), module);
  EXPECT_EQ(S(db, kPGTy), objWord(store));
  EXPECT_EQ(S(db, kXTSC, other), objWord(other));
  S(other, kDspo);
  EXPECT_TRUE(isLiveObject(objWord(db)));
}

TEST_F(DbJoin, ADatabaseSetUpBeforeInstallJoinsThroughTheInstallNotices) {
  Object* bare = newBareStore();
  int32_t module = i32(S(bare, kTSNM, kTestSig, kTestDataSize));
  Object* db = asObject(S(objWord(recordingClass()->classObject), kNew_));
  EXPECT_EQ(S(db, kSetu, bare), kNoSpace) << "TSAM's answer: the store is not installed";
  EXPECT_EQ(S(db, kSdRR), 0);
  EXPECT_EQ(S(bare, kTSIn, bare, 1), 0);
  EXPECT_EQ(S(db, kSdRR), module);
  EXPECT_EQ(S(bare, kTSGM, kTestSig), objWord(db));
  EXPECT_EQ(recorder().take(),
            (std::vector<std::string>{"XTSL TST1 " + std::to_string(module), "XTSD", "XTSI"}));
  S(bare, kDspo);
  EXPECT_FALSE(isLiveObject(objWord(db))) << "went with its store";
}

TEST_F(DbJoin, TIniIsSdNwWithTheStoreAlone) {
  Object* db = asObject(S(objWord(recordingClass()->classObject), kTIni, store));
  ASSERT_TRUE(db);
  EXPECT_EQ(db->h.cls, recordingClass());
  EXPECT_EQ(S(store, kTSGM, kTestSig), objWord(db));
  // The class-side selectors are the class object's, not an instance's.
  EXPECT_EQ(S(db, kLkUp, kSdNw), 0);
  EXPECT_NE(S(objWord(findClass(kDbSig)->classObject), kLkUp, kTIni), 0);
}

TEST_F(DbJoin, SetupRefusedTwiceAndWithoutAStore) {
  Object* db = newDb(store);
  int32_t module = i32(S(db, kSdRR));
  fundra::AssertCapture cap;
  EXPECT_EQ(S(db, kSetu, store, fc("OPTS"), 0), kRefused);
  EXPECT_EQ(sources(cap), std::vector<std::string>{"db"});
  EXPECT_EQ(S(db, kSdMS), toWord(kTestSig));
  EXPECT_EQ(S(db, kSdRR), module);
  EXPECT_EQ(S(store, kTSGM, fc("OPTS")), 0);

  Object* lone = asObject(S(objWord(findClass(kDbSig)->classObject), kNew_));
  EXPECT_EQ(S(lone, kSetu, 0, kTestSig, 0), kNoSpace);
  EXPECT_EQ(sources(cap), std::vector<std::string>{"db"});
  EXPECT_EQ(S(lone, kPInB, 5), 0);
  EXPECT_EQ(S(lone, kDspo), 0);
  EXPECT_TRUE(cap.take().empty());
}

}  // namespace
}  // namespace zt

// Opening DLs into instances: one instance per open DL whatever the number of openings, disposed
// of by the last closing; failures and misuse leave nothing behind.
#include "tests/db/db_fixture.h"

namespace zt {
namespace {

using DbOpen = DbTest;

TEST_F(DbOpen, OpeningsAreCountedAndTheLastClosingDisposesOfTheOneInstance) {
  Object* db = newDb(store);
  recorder().take();
  const int32_t dl = 7;
  Word first = -1, second = -1;
  EXPECT_EQ(S(db, kPInO, dl, &first, 41, 2, 3, 4, 5, 6, 7, 8, 9, 50), 0);
  ASSERT_NE(first, 0);
  EXPECT_EQ(asObject(first)->h.cls->sig, kInsSig) << "the default instance";
  EXPECT_EQ(S(db, kPInO, dl, &second), 0);
  EXPECT_EQ(second, first);
  // PmIM had the DL, a record and the further words (the first and the last shown).
  EXPECT_EQ(recorder().take(), std::vector<std::string>{"PmIM 7 41 50"});
  EXPECT_EQ(recorder().lastMade->instance, first);
  EXPECT_EQ(recorder().lastMade->openCount, 2);
  EXPECT_EQ(S(db, kPInG, dl), first);
  EXPECT_EQ(S(db, kPInB, dl), 1);
  EXPECT_EQ(S(store, kTSTB, dl), kRefused) << "the store hears the DL is held (XTTB)";

  EXPECT_EQ(S(db, kPInC, dl), 0);
  EXPECT_TRUE(recorder().take().empty());
  EXPECT_EQ(S(db, kPInG, dl), first);
  EXPECT_EQ(S(db, kPInC, dl), 0);
  EXPECT_EQ(recorder().take(), std::vector<std::string>{"PmID 7"});
  EXPECT_FALSE(isLiveObject(first)) << "disposed of";
  EXPECT_EQ(S(db, kPInG, dl), 0);
  EXPECT_EQ(S(db, kPInB, dl), 0) << "the block state went with the instance";
  EXPECT_EQ(S(store, kTSTB, dl), 0);

  // Each DL has its own instance, also DLs whose numbers share the database's hint of a state
  // entered lately (1 and 17): 17 takes over the state 1 left, and 1 opened again gets another.
  Word a = 0, b = 0, c = 0;
  S(db, kPInO, 1, &a);
  S(db, kPInC, 1);
  S(db, kPInO, 17, &b);
  S(db, kPInO, 1, &c);
  EXPECT_NE(b, c);
  EXPECT_EQ(S(db, kPInG, 17), b);
  EXPECT_EQ(S(db, kPInG, 1), c);
  S(db, kPInC, 17);
  EXPECT_EQ(S(db, kPInB, 17), 0);
  EXPECT_EQ(S(db, kPInG, 1), c);
  S(db, kPInO, 17, &b);
  S(db, kPInC, 1);
  S(db, kPInC, 17);
  EXPECT_EQ(S(db, kPInB, 1) + S(db, kPInB, 17), 0);
}

TEST_F(DbOpen, AFailedMakeLeavesNoTrace) {
  Object* db = newDb(store);
  recorder().failMake = -5;
  Word result = 123;
  EXPECT_EQ(S(db, kPInO, 9, &result), -5);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(S(db, kPInB, 9), 0);
  EXPECT_EQ(S(db, kPInG, 9), 0);
  EXPECT_EQ(S(store, kTSTB, 9), 0);
  recorder().failMake = 0;
  EXPECT_EQ(S(db, kPInO, 9, &result), 0);
  EXPECT_NE(result, 0);
  EXPECT_EQ(S(db, kPInC, 9), 0);
  EXPECT_EQ(recorder().take(),
            (std::vector<std::string>{"XTSD", "XTSI", "PmIM 9 0 0", "PmIM 9 0 0", "PmID 9"}));
}

TEST_F(DbOpen, PmISStoresACopyOfTheEightWordsOfAnOpenRecord) {
  Object* db = newDb(store);
  Word ins = 0;
  S(db, kPInO, 12, &ins);
  InstanceRecord* held = recorder().lastMade;
  InstanceRecord next{};
  next.instance = ins;
  next.openCount = 1;
  for (int i = 0; i < 6; ++i) next.own[i] = 100 + i;
  EXPECT_EQ(S(db, kPmIS, 12, &next), 0);
  EXPECT_EQ(held->own[5], 105) << "the existing record block, reused";
  next.own[0] = -1;
  EXPECT_EQ(held->own[0], 100) << "a copy, not the caller's words";

  // A record that counts no opening is refused: nothing would ever free it.
  fundra::AssertCapture cap;
  next.openCount = 0;
  EXPECT_EQ(S(db, kPmIS, 13, &next), 0);
  EXPECT_EQ(sources(cap), std::vector<std::string>{"db"});
  EXPECT_EQ(S(db, kPInB, 13), 0);

  // A DL that no PInO opened can be given a record; closing it disposes of the instance then.
  next.openCount = 1;
  next.instance = S(ZelkorLookup(kInsSig), kNew_);
  EXPECT_EQ(S(db, kPmIS, 14, &next), 0);
  EXPECT_EQ(S(db, kPInG, 14), next.instance);
  S(db, kPInC, 14);
  EXPECT_FALSE(isLiveObject(next.instance));
  EXPECT_EQ(S(db, kPInB, 14), 0);
  S(db, kPInC, 12);
}

TEST_F(DbOpen, MisuseIsAssertedAndLeavesNothingBehind) {
  Object* db = newDb(store);
  fundra::AssertCapture cap;
  // Closing a DL that is not open.
  EXPECT_EQ(S(db, kPInC, 21), 0);
  EXPECT_EQ(sources(cap), std::vector<std::string>{"db"});
  EXPECT_EQ(S(db, kPInB, 21), 0) << "the block state made for the attempt is gone";
  Word ins = 0;
  S(db, kPInO, 21, &ins);
  S(db, kPInC, 21);
  EXPECT_EQ(S(db, kPInC, 21), 0);
  EXPECT_EQ(sources(cap), std::vector<std::string>{"db"}) << "one closing too many";

  // Disposing of a database with DLs open: asserted, and each instance is disposed of.
  Word a = 0, b = 0;
  S(db, kPInO, 30, &a);
  S(db, kPInO, 31, &b);
  S(db, kPInO, 31, &b);
  recorder().take();
  S(db, kDspo);
  EXPECT_EQ(sources(cap), std::vector<std::string>{"db"});
  EXPECT_EQ(recorder().take(), (std::vector<std::string>{"PmID 30", "PmID 31"}));
  EXPECT_FALSE(isLiveObject(a));
  EXPECT_FALSE(isLiveObject(b));

  // A null record handed to the default PmIM, PmID or PmIS.
  Object* other = newDb(newInstalledStore());
  Object* otherStore = asObject(S(other, kPGTy));
  EXPECT_EQ(S(other, kPmIM, 5, nullptr), kRefused);
  EXPECT_EQ(S(other, kPmID, 5, nullptr), 0);
  EXPECT_EQ(S(other, kPmIS, 5, nullptr), 0);
  EXPECT_EQ(sources(cap), (std::vector<std::string>{"db", "db", "db"}));
  S(otherStore, kDspo);
}

TEST_F(DbOpen, ADatabaseNeverSetUpRefusesToOpen) {
  Object* db = asObject(S(objWord(findClass(kDbSig)->classObject), kNew_));
  fundra::AssertCapture cap;
  Word ins = 5;
  EXPECT_EQ(S(db, kPInO, 1, &ins), kRefused);
  EXPECT_EQ(ins, 5);
  EXPECT_EQ(S(db, kPInC, 1), 0);
  EXPECT_EQ(S(db, kPInG, 1), 0);
  EXPECT_EQ(sources(cap), (std::vector<std::string>{"db", "db", "db"}));
  S(db, kDspo);
}

}  // namespace
}  // namespace zt

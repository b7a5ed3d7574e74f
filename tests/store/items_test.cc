#include "tests/store/store_fixture.h"

namespace zt {
namespace {

using Items = StoreTest;

TEST_F(Items, NewDLRoundsItsDataAreaAndStartsKeptAndZeroed) {
  int32_t dl = dn(fc("Test"), 5);
  EXPECT_EQ(sp->LmSize(dl), 28);
  EXPECT_EQ(S(s, fc("TSSD"), dl), 8);
  EXPECT_EQ(S(s, fc("TSDT"), dl), toWord(fc("Test")));
  EXPECT_EQ(S(s, fc("TSCt"), dl), 0);
  const auto* data = asPtr<const uint8_t>(S(s, fc("TSDP"), dl));
  EXPECT_EQ(data, sp->LmGet(dl) + 20);
  EXPECT_EQ(data[0] | data[7], 0);
  const auto* head = reinterpret_cast<const DLHead*>(sp->LmGet(dl));
  EXPECT_EQ(head->flags, kKeptFlag);
  expectSound(s);

  // The data area is read and written whole; a length that does not round to it asserts.
  uint8_t in[8] = {1, 2, 3, 4, 5, 6, 7, 8}, out[8] = {};
  S(s, fc("TSWD"), dl, in, 7);
  S(s, fc("TSRD"), dl, out, 8);
  EXPECT_EQ(std::memcmp(out, in, 7), 0);
  EXPECT_EQ(out[7], 0);
  fundra::AssertCapture asserts;
  S(s, fc("TSRD"), dl, out, 4);
  S(s, fc("TSWD"), dl, in, 9);
  EXPECT_EQ(asserts.size(), 2u);
}

TEST_F(Items, ItemsStayInAscendingKeyOrder) {
  int32_t dl = dn();
  S(s, fc("TSVS"), dl, fc("mods"), 1);
  S(s, fc("TSVS"), dl, fc("Pare"), 2);
  S(s, fc("TSVS"), dl, fc("Name"), 3);
  EXPECT_EQ(S(s, fc("TSCt"), dl), 3);
  EXPECT_EQ(S(s, fc("TSEn"), dl, 0), toWord(fc("Name")));
  EXPECT_EQ(S(s, fc("TSEn"), dl, 1), toWord(fc("Pare")));
  EXPECT_EQ(S(s, fc("TSEn"), dl, 2), toWord(fc("mods")));
  EXPECT_EQ(S(s, fc("TSEn"), dl, 3), 0);
  EXPECT_EQ(S(s, fc("TSEn"), dl, -1), 0);
  EXPECT_EQ(sp->LmSize(dl), 20 + 3 * 12);
  // Overwriting keeps the item where it is.
  S(s, fc("TSVS"), dl, fc("Pare"), 9);
  EXPECT_EQ(S(s, fc("TSCt"), dl), 3);
  EXPECT_EQ(rawItem(s, dl, 1).kind, 9u);
  expectSound(s);
}

TEST_F(Items, OwnedReferentsGoWithTheirItemAndReferencesOwnNothing) {
  int32_t dl = dn(), target = dn();
  S(s, fc("TSAS"), 1, fc("keep"), dl);
  S(s, fc("TSBW"), dl, fc("blob"), "abcd", 4);
  int32_t blob = rawItem(s, dl, 0).ref;
  S(s, fc("TSHS"), dl, fc("blob"), target);
  EXPECT_FALSE(live(blob));
  EXPECT_TRUE(live(target));

  S(s, fc("TSBW"), dl, fc("blob"), "wxyz", 4);
  EXPECT_TRUE(live(target));
  S(s, fc("TSLN"), dl, fc("list"));
  int32_t list = rawItem(s, dl, 1).ref;
  blob = rawItem(s, dl, 0).ref;
  EXPECT_NE(S(s, fc("TSUk"), dl, fc("list")), kNoItem);
  EXPECT_FALSE(live(list));
  S(s, fc("TSUk"), dl, fc("blob"));
  EXPECT_FALSE(live(blob));
  EXPECT_EQ(S(s, fc("TSCt"), dl), 0);
  EXPECT_EQ(sp->LmSize(dl), 20);
  expectSound(s);
}

TEST_F(Items, RemovingAMissingKeyChangesNothingNotEvenTheChangeCount) {
  int32_t dl = dn();
  S(s, fc("TSAS"), 1, fc("keep"), dl);
  S(s, fc("TSVS"), dl, fc("valu"), 1);
  // Two counted changes so far (the new store's list and TSDN): 97 removals of a missing key
  // and one real removal later, the 100th change is still ahead.
  LogCapture cap;
  for (int i = 0; i < 97; ++i) EXPECT_EQ(S(s, fc("TSUk"), dl, fc("none")), kNoItem);
  S(s, fc("TSUk"), dl, fc("valu"));
  EXPECT_EQ(cap.size(), 0u);
  EXPECT_EQ(S(s, fc("TSCt"), dl), 0);
}

TEST_F(Items, ThePeriodicCollectionFreesAReleasedUnlinkedDL) {
  int32_t dl = dn(), kept = dn();
  S(s, fc("TSDU"), dl);
  EXPECT_TRUE(live(dl));
  LogCapture cap;
  // Rewriting a list counts a change and allocates nothing, so no number is reused meanwhile.
  while (cap.size() == 0) S(s, fc("TSLN"), kept, fc("list"));
  EXPECT_EQ(lines(cap), std::vector<std::string>{"519 zoveGCCheck: periodic GC, 0"});
  EXPECT_FALSE(live(dl));
  EXPECT_TRUE(live(kept));
}

TEST_F(Items, LookUpClimbsTheParentHandles) {
  int32_t top = dn(), mid = dn(), leaf = dn();
  S(s, fc("TSVS"), top, fc("Colr"), 5);
  S(s, fc("TSHS"), mid, fc("Pare"), top);
  S(s, fc("TSHS"), leaf, fc("Pare"), mid);
  EXPECT_EQ(S(s, fc("TSLU"), leaf, fc("Colr")), top);
  EXPECT_EQ(S(s, fc("TSLU"), leaf, fc("Pare")), leaf);
  EXPECT_EQ(S(s, fc("TSLU"), leaf, fc("none")), 0);
  // A parent under a part link is no parent; a loop of parents ends.
  S(s, fc("TSAS"), mid, fc("Pare"), top);
  EXPECT_EQ(S(s, fc("TSLU"), leaf, fc("Colr")), 0);
  S(s, fc("TSHS"), top, fc("Pare"), leaf);
  S(s, fc("TSHS"), mid, fc("Pare"), top);
  EXPECT_EQ(S(s, fc("TSLU"), leaf, fc("zzzz")), 0);
}

TEST_F(Items, FlagsKeepListAndOwnerAnswerAsSet) {
  Word mod = S(s, fc("TSNM"), fc("PRO1"), 0);
  Word dl = S(s, fc("TSDN"), fc("data"), 0, mod);
  EXPECT_EQ(S(s, fc("TSCS"), dl), toWord(fc("PRO1")));
  EXPECT_EQ(S(s, fc("TSCS"), mod), 0);
  EXPECT_EQ(S(s, fc("TSCM"), dl), 0);
  EXPECT_EQ(S(s, fc("TSND"), fc("Anyx"), dl, 1, 2), 0);

  EXPECT_EQ(S(s, fc("TSTS"), dl), 0);
  S(s, fc("TSSS"), dl);
  EXPECT_EQ(S(s, fc("TSTS"), dl), 1);
  S(s, fc("TSSI"), dl, 1);
  EXPECT_EQ(S(s, fc("TSTI"), dl), 1);
  S(s, fc("TSSI"), dl, 0);
  EXPECT_EQ(S(s, fc("TSTI"), dl), 0);
  EXPECT_EQ(S(s, fc("TSTS"), dl), 1);

  // Keep and release are idempotent and keep the flag and the list in step.
  S(s, fc("TSDK"), dl);
  S(s, fc("TSDK"), dl);
  expectSound(s);
  S(s, fc("TSDU"), dl);
  S(s, fc("TSDU"), dl);
  expectSound(s);
  EXPECT_EQ(S(s, fc("TSGC")), 0);
  EXPECT_FALSE(live(dl));
}

TEST_F(Items, SwapExchangesContentsAndTheKeepListFollows) {
  std::vector<std::string> trace;
  Object* l = newListener(&trace);
  ASSERT_EQ(S(s, fc("TSIn"), kChannel, 1), 0);
  int32_t a = dn(fc("aaaa")), b = dn(fc("bbbb"));
  S(s, fc("TSAS"), 1, fc("link"), a);  // a is released and linked, b stays kept
  S(s, fc("TSSw"), a, b);
  EXPECT_EQ(trace.back(), "XTSW " + std::to_string(a) + " " + std::to_string(b));
  EXPECT_EQ(S(s, fc("TSDT"), a), toWord(fc("bbbb")));
  expectSound(s);
  // The link still names a, which now holds the kept contents; b holds the unlinked ones.
  EXPECT_EQ(S(s, fc("TSGC")), 0);
  EXPECT_EQ(sp->LmTest(a), 0);
  EXPECT_NE(sp->LmTest(b), 0);

  // TSTB: a listener that has the DL open refuses.
  EXPECT_EQ(S(s, fc("TSTB"), a), 0);
  EXPECT_EQ(trace.back(), "XTTB " + std::to_string(a));
  Object* busy = newListener(&trace, 1);
  EXPECT_EQ(S(s, fc("TSTB"), a), kRefused);
  S(busy, fc("Dspo"));
  S(l, fc("Dspo"));
}

TEST_F(Items, BadDLNumbersAnswerCodesAndAssertWithoutTouchingMemory) {
  int32_t dl = dn();
  S(s, fc("TSBW"), dl, fc("blob"), "ab", 2);
  int32_t blob = rawItem(s, dl, 0).ref;
  fundra::AssertCapture asserts;
  EXPECT_EQ(S(s, fc("TSVS"), 999, fc("valu"), 1), fundra::kLmNotLive);
  EXPECT_EQ(S(s, fc("TSVS"), blob, fc("valu"), 1), kWrongKind);
  EXPECT_EQ(S(s, fc("TSUk"), -3, fc("valu")), fundra::kLmBadNumber);
  EXPECT_EQ(S(s, fc("TSCt"), blob), 0);
  EXPECT_EQ(S(s, fc("TSDT"), 999), 0);
  EXPECT_EQ(S(s, fc("TSDP"), blob), 0);
  // A handle to something that is not a DL would break the next collection: it is refused.
  EXPECT_EQ(S(s, fc("TSHS"), dl, fc("hand"), blob), kWrongKind);
  EXPECT_EQ(S(s, fc("TSHS"), dl, fc("hand"), 999), fundra::kLmNotLive);
  EXPECT_EQ(S(s, fc("TSCt"), dl), 1);
  EXPECT_EQ(asserts.size(), 8u);
  // Keys and uTypes outside 32..126 would fail the DL check at the next save: refused.
  EXPECT_EQ(S(s, fc("TSVS"), dl, 0x6B657980, 1), kWrongKind);
  EXPECT_EQ(S(s, fc("TSBW"), dl, 0x0A0A0A0A, "ab", 2), kWrongKind);
  EXPECT_EQ(S(s, fc("TSDN"), 0x20202000, 0, 0), kWrongKind);
  EXPECT_EQ(S(s, fc("TSCt"), dl), 1);
  EXPECT_EQ(asserts.size(), 11u);
  expectSound(s);
}

}  // namespace
}  // namespace zt

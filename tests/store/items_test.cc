#include <cstring>

#include "tests/store/store_fixture.h"

namespace zt {
namespace {

using Items = StoreTest;

TEST_F(Items, NewDLRoundsItsDataAreaAndStartsKeptAndZeroed) {
  int32_t dl = dn(fc("Test"), 5);
  EXPECT_EQ(sp->LmSize(dl), 28);
  EXPECT_EQ(S(s, kTSSD, dl), 8);
  EXPECT_EQ(S(s, kTSDT, dl), toWord(fc("Test")));
  EXPECT_EQ(S(s, kTSCt, dl), 0);
  const auto* data = asPtr<const uint8_t>(S(s, kTSDP, dl));
  EXPECT_EQ(data, sp->LmGet(dl) + 20);
  EXPECT_EQ(data[0] | data[7], 0);
  const auto* head = reinterpret_cast<const DLHead*>(sp->LmGet(dl));
  EXPECT_EQ(head->flags, kKeptFlag);
  expectSound(s);

  // The data area is read and written whole; a length that does not round to it asserts.
  uint8_t in[8] = {1, 2, 3, 4, 5, 6, 7, 8}, out[8] = {};
  S(s, kTSWD, dl, in, 7);
  S(s, kTSRD, dl, out, 8);
  EXPECT_EQ(std::memcmp(out, in, 7), 0);
  EXPECT_EQ(out[7], 0);
  fundra::AssertCapture asserts;
  S(s, kTSRD, dl, out, 4);
  S(s, kTSWD, dl, in, 9);
  EXPECT_EQ(asserts.size(), 2u);
}

TEST_F(Items, ItemsStayInAscendingKeyOrder) {
  int32_t dl = dn();
  S(s, kTSVS, dl, fc("mods"), 1);
  S(s, kTSVS, dl, fc("Pare"), 2);
  S(s, kTSVS, dl, fc("Name"), 3);
  EXPECT_EQ(S(s, kTSCt, dl), 3);
  EXPECT_EQ(S(s, kTSEn, dl, 0), toWord(fc("Name")));
  EXPECT_EQ(S(s, kTSEn, dl, 1), toWord(fc("Pare")));
  EXPECT_EQ(S(s, kTSEn, dl, 2), toWord(fc("mods")));
  EXPECT_EQ(S(s, kTSEn, dl, 3), 0);
  EXPECT_EQ(S(s, kTSEn, dl, -1), 0);
  EXPECT_EQ(sp->LmSize(dl), 20 + 3 * 12);
  // Overwriting keeps the item where it is.
  S(s, kTSVS, dl, fc("Pare"), 9);
  EXPECT_EQ(S(s, kTSCt, dl), 3);
  EXPECT_EQ(rawItem(s, dl, 1).kind, 9u);
  expectSound(s);
}

TEST_F(Items, OwnedReferentsGoWithTheirItemAndReferencesOwnNothing) {
  int32_t dl = dn(), target = dn();
  S(s, kTSAS, 1, fc("keep"), dl);
  S(s, kTSBW, dl, fc("blob"), "abcd", 4);
  int32_t blob = rawItem(s, dl, 0).ref;
  S(s, kTSHS, dl, fc("blob"), target);
  EXPECT_FALSE(live(blob));
  EXPECT_TRUE(live(target));

  S(s, kTSBW, dl, fc("blob"), "wxyz", 4);
  EXPECT_TRUE(live(target));
  S(s, kTSLN, dl, fc("list"));
  int32_t list = rawItem(s, dl, 1).ref;
  blob = rawItem(s, dl, 0).ref;
  EXPECT_NE(S(s, kTSUk, dl, fc("list")), kNoItem);
  EXPECT_FALSE(live(list));
  S(s, kTSUk, dl, fc("blob"));
  EXPECT_FALSE(live(blob));
  EXPECT_EQ(S(s, kTSCt, dl), 0);
  EXPECT_EQ(sp->LmSize(dl), 20);
  expectSound(s);
}

// A damaged item whose owned element is not live, at a number far past the table: writing it
// gives the item a new element instead of growing the table to that number.
TEST_F(Items, WritingABlobWhoseElementIsGoneMakesANewOne) {
  int32_t dl = dn();
  S(s, kTSAS, 1, fc("keep"), dl);
  S(s, kTSBW, dl, fc("blob"), "abcd", 4);
  poke(dl, fc("blob"), 1 << 30, kBlob);
  const int32_t count = sp->LmCount();
  S(s, kTSBW, dl, fc("blob"), "wxyz", 4);
  EXPECT_LE(sp->LmCount(), count + 1);
  int32_t blob = rawItem(s, dl, 0).ref;
  EXPECT_TRUE(live(blob));
  EXPECT_EQ(std::memcmp(sp->LmGet(blob), "wxyz", 4), 0);
}

// A damaged item that owns a DL as its blob: replacing the item would free the DL under the
// handles that name it, so the invariants report the blob as a DL.
TEST_F(Items, TheInvariantsReportAnOwnedElementThatIsReachedAsADL) {
  int32_t dl = dn(), target = dn();
  S(s, kTSAS, 1, fc("keep"), dl);
  S(s, kTSHS, 1, fc("targ"), target);
  S(s, kTSBW, dl, fc("blob"), "abcd", 4);
  expectSound(s);
  int32_t blob = rawItem(s, dl, 0).ref;
  poke(dl, fc("blob"), target, kBlob);
  EXPECT_EQ(zoveCheckStore(s),
            std::vector<std::string>{"S3: element " + std::to_string(target) + " is owned by DL " +
                                     std::to_string(dl) + " and reached as a DL"});
  poke(dl, fc("blob"), blob, kBlob);
  expectSound(s);
}

TEST_F(Items, RemovingAMissingKeyChangesNothingNotEvenTheChangeCount) {
  int32_t dl = dn();
  S(s, kTSAS, 1, fc("keep"), dl);
  S(s, kTSVS, dl, fc("valu"), 1);
  // Two counted changes so far (the new store's list and TSDN): 97 removals of a missing key
  // and one real removal later, the 100th change is still ahead.
  LogCapture cap;
  for (int i = 0; i < 97; ++i) EXPECT_EQ(S(s, kTSUk, dl, fc("none")), kNoItem);
  S(s, kTSUk, dl, fc("valu"));
  EXPECT_EQ(cap.size(), 0u);
  EXPECT_EQ(S(s, kTSCt, dl), 0);
}

TEST_F(Items, ThePeriodicCollectionFreesAReleasedUnlinkedDL) {
  int32_t dl = dn(), kept = dn();
  S(s, kTSDU, dl);
  EXPECT_TRUE(live(dl));
  LogCapture cap;
  // Rewriting a list counts a change and allocates nothing, so no number is reused meanwhile.
  while (cap.size() == 0) S(s, kTSLN, kept, fc("list"));
  EXPECT_EQ(lines(cap), std::vector<std::string>{"519 zoveGCCheck: periodic GC, 0"});
  EXPECT_FALSE(live(dl));
  EXPECT_TRUE(live(kept));
}

TEST_F(Items, LookUpClimbsTheParentHandles) {
  int32_t top = dn(), mid = dn(), leaf = dn();
  S(s, kTSVS, top, fc("Colr"), 5);
  S(s, kTSHS, mid, fc("Pare"), top);
  S(s, kTSHS, leaf, fc("Pare"), mid);
  EXPECT_EQ(S(s, kTSLU, leaf, fc("Colr")), top);
  EXPECT_EQ(S(s, kTSLU, leaf, fc("Pare")), leaf);
  EXPECT_EQ(S(s, kTSLU, leaf, fc("none")), 0);
  // A parent under a part link is no parent; a loop of parents ends.
  S(s, kTSAS, mid, fc("Pare"), top);
  EXPECT_EQ(S(s, kTSLU, leaf, fc("Colr")), 0);
  S(s, kTSHS, top, fc("Pare"), leaf);
  S(s, kTSHS, mid, fc("Pare"), top);
  EXPECT_EQ(S(s, kTSLU, leaf, fc("zzzz")), 0);
}

TEST_F(Items, FlagsKeepListAndOwnerAnswerAsSet) {
  Word mod = S(s, kTSNM, fc("PRO1"), 0);
  Word dl = S(s, kTSDN, fc("data"), 0, mod);
  EXPECT_EQ(S(s, kTSCS, dl), toWord(fc("PRO1")));
  EXPECT_EQ(S(s, kTSCS, mod), 0);
  EXPECT_EQ(S(s, kTSCM, dl), 0);
  EXPECT_EQ(S(s, kTSND, fc("Anyx"), dl, 1, 2), 0);

  EXPECT_EQ(S(s, kTSTS, dl), 0);
  S(s, kTSSS, dl);
  EXPECT_EQ(S(s, kTSTS, dl), 1);
  S(s, kTSSI, dl, 1);
  EXPECT_EQ(S(s, kTSTI, dl), 1);
  S(s, kTSSI, dl, 0);
  EXPECT_EQ(S(s, kTSTI, dl), 0);
  EXPECT_EQ(S(s, kTSTS, dl), 1);

  // Keep and release are idempotent and keep the flag and the list in step.
  S(s, kTSDK, dl);
  S(s, kTSDK, dl);
  expectSound(s);
  S(s, kTSDU, dl);
  S(s, kTSDU, dl);
  expectSound(s);
  EXPECT_EQ(S(s, kTSGC), 0);
  EXPECT_FALSE(live(dl));

  // A kept flag saved in an earlier session comes without the keep list, which is not saved:
  // keeping such a DL puts it on the list, so it outlives being unlinked.
  int32_t old = dn();
  S(s, kTSHS, 1, fc("link"), old);
  DLView v;
  ASSERT_EQ(dlOpen(sp, old, &v), 0);
  v.head->flags |= kKeptFlag;
  S(s, kTSDK, old);
  S(s, kTSUk, 1, fc("link"));
  EXPECT_EQ(S(s, kTSGC), 0);
  EXPECT_TRUE(live(old));
  expectSound(s);
}

TEST_F(Items, SwapExchangesContentsAndTheKeepListFollows) {
  std::vector<std::string> trace;
  Object* l = newListener(&trace);
  ASSERT_EQ(S(s, kTSIn, kChannel, 1), 0);
  int32_t a = dn(fc("aaaa")), b = dn(fc("bbbb"));
  S(s, kTSAS, 1, fc("link"), a);  // a is released and linked, b stays kept
  S(s, kTSSw, a, b);
  EXPECT_EQ(trace.back(), "XTSW " + std::to_string(a) + " " + std::to_string(b));
  EXPECT_EQ(S(s, kTSDT, a), toWord(fc("bbbb")));
  expectSound(s);
  // The link still names a, which now holds the kept contents; b holds the unlinked ones.
  EXPECT_EQ(S(s, kTSGC), 0);
  EXPECT_EQ(sp->LmTest(a), 0);
  EXPECT_NE(sp->LmTest(b), 0);

  // TSTB: a listener that has the DL open refuses.
  EXPECT_EQ(S(s, kTSTB, a), 0);
  EXPECT_EQ(trace.back(), "XTTB " + std::to_string(a));
  Object* busy = newListener(&trace, 1);
  EXPECT_EQ(S(s, kTSTB, a), kRefused);
  S(busy, kDspo);
  S(l, kDspo);
}

TEST_F(Items, BadDLNumbersAnswerCodesAndAssertWithoutTouchingMemory) {
  int32_t dl = dn();
  S(s, kTSBW, dl, fc("blob"), "ab", 2);
  int32_t blob = rawItem(s, dl, 0).ref;
  fundra::AssertCapture asserts;
  EXPECT_EQ(S(s, kTSVS, 999, fc("valu"), 1), fundra::kLmNotLive);
  EXPECT_EQ(S(s, kTSVS, blob, fc("valu"), 1), kWrongKind);
  EXPECT_EQ(S(s, kTSUk, -3, fc("valu")), fundra::kLmBadNumber);
  EXPECT_EQ(S(s, kTSCt, blob), 0);
  EXPECT_EQ(S(s, kTSDT, 999), 0);
  EXPECT_EQ(S(s, kTSDP, blob), 0);
  EXPECT_EQ(S(s, kTSCt, dl), 1);
  EXPECT_EQ(asserts.size(), 6u);
  expectSound(s);
}

TEST_F(Items, SlipsTheCheckWouldRejectAreAssertedStoredAndFaultTheNextSave) {
  ASSERT_EQ(S(s, kTSIn, kChannel, 1), 0);
  fundra::AssertCapture asserts;
  LogCapture log;
  // A key and a uType outside 32..126, handles to a blob and to nothing, a blob item naming
  // nothing: each asserts once and is stored as asked.
  int32_t dl = dn();
  S(s, kTSHS, 1, fc("link"), dl);
  EXPECT_EQ(S(s, kTSVS, dl, 0x6B657980, 5), toWord(int32_t(kImmediate)));
  int32_t odd = i32(S(s, kTSDN, 0x20202000, 0, 0));
  EXPECT_GT(odd, 0);
  EXPECT_EQ(S(s, kTSDT, odd), toWord(0x20202000u));
  S(s, kTSBW, dl, fc("blob"), "ab", 2);
  int32_t blob = rawItem(s, dl, 0).ref;  // 'blob' sorts before the odd key
  ASSERT_EQ(rawItem(s, dl, 0).key, fc("blob"));
  EXPECT_EQ(S(s, kTSHS, dl, fc("hand"), blob), toWord(blob));
  EXPECT_EQ(S(s, kTSAS, dl, fc("part"), 999), toWord(999));
  S(s, kTSLN, dl, fc("list"));
  poke(dl, fc("list"), 998, kList);
  EXPECT_EQ(asserts.size(), 4u);
  EXPECT_EQ(S(s, kTSCt, dl), 5);
  // The save's collection, with the check level raised, finds the first of them and faults the
  // store; nothing is saved.
  EXPECT_EQ(S(s, kHChg), kFaulted);
  EXPECT_EQ(S(s, kTSEC), kFaulted);
  bool named = false;
  for (const std::string& line : lines(log))
    named = named || line.find("zoveCheckDL: DL " + std::to_string(dl)) != std::string::npos;
  EXPECT_TRUE(named) << ::testing::PrintToString(lines(log));
  renew();
}

TEST_F(Items, ASwapOfANumberThatNamesNothingAssertsAfterTheKeepListWasExchanged) {
  int32_t kept = dn();
  fundra::AssertCapture asserts;
  S(s, kTSSw, kept, 999);
  EXPECT_EQ(asserts.size(), 1u);
  EXPECT_TRUE(live(kept));
  // The keep list now names 999, as the exchange asked; the next collection cannot mark it.
  EXPECT_EQ(S(s, kTSGC), kFaulted);
  renew();
}

}  // namespace
}  // namespace zt

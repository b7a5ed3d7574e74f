// Element space: numbering, sizes, swap, the lock, and answers for numbers that name nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "platform/fundra/debug.h"
#include "platform/fundra/space.h"

namespace fundra {
namespace {

void Fill(ElementSpace& s, int32_t n, uint8_t byte) {
  std::memset(s.LmGet(n), byte, size_t(s.LmSize(n)));
}

TEST(ElementSpace, NumbersStartAtOneAndFreedNumbersAreReusedLowestFirst) {
  ElementSpace s(1024, 0);
  EXPECT_EQ(s.LmCount(), 0);
  for (int32_t want = 1; want <= 5; ++want) EXPECT_EQ(s.LmAddAssert(8), want);
  EXPECT_EQ(s.LmRemove(4), 0);
  EXPECT_EQ(s.LmRemove(2), 0);
  EXPECT_EQ(s.LmCount(), 5);
  EXPECT_EQ(s.LmAddAssert(8), 2);
  EXPECT_EQ(s.LmAddAssert(8), 4);
  EXPECT_EQ(s.LmAddAssert(8), 6);
  // Removing the top numbers lowers the count; the next number follows the highest live one.
  EXPECT_EQ(s.LmRemove(6), 0);
  EXPECT_EQ(s.LmRemove(5), 0);
  EXPECT_EQ(s.LmCount(), 4);
  EXPECT_EQ(s.LmAddAssert(8), 5);
  // Setting a number beyond the top creates it; the gap below is free and reused first.
  EXPECT_EQ(s.LmSetAssert(9, 4), 0);
  EXPECT_EQ(s.LmCount(), 9);
  EXPECT_EQ(s.LmTest(7), kLmNotLive);
  EXPECT_EQ(s.LmAddAssert(0), 6);
  // A free number set directly is live and is not handed out again.
  EXPECT_EQ(s.LmSetAssert(7, 4), 0);
  EXPECT_EQ(s.LmAddAssert(0), 8);
  EXPECT_EQ(s.LmLiveCount(), 9);
  EXPECT_TRUE(s.LmCheck().empty()) << s.LmDump();
  // Far apart numbers, freed highest first, still come back lowest first.
  for (int32_t want = 10; want <= 300; ++want) EXPECT_EQ(s.LmAddAssert(8), want);
  EXPECT_EQ(s.LmRemove(250), 0);
  EXPECT_EQ(s.LmRemove(70), 0);
  EXPECT_EQ(s.LmAddAssert(8), 70);
  EXPECT_EQ(s.LmRemove(20), 0);
  EXPECT_EQ(s.LmAddAssert(8), 20);
  EXPECT_EQ(s.LmAddAssert(8), 250);
  EXPECT_EQ(s.LmAddAssert(8), 301);
  EXPECT_TRUE(s.LmCheck().empty()) << s.LmDump();
}

TEST(ElementSpace, EveryOperationOnANumberThatNamesNothingAnswersACode) {
  ElementSpace s(16, 0);
  int32_t n = s.LmAddAssert(12);
  ASSERT_EQ(s.LmRemove(n), 0);
  for (int32_t bad : {0, -1, n, 77, kLmMaxNumber + 1, INT32_MIN}) {
    SCOPED_TRACE(bad);
    EXPECT_LT(s.LmTest(bad), 0);
    EXPECT_LT(s.LmSize(bad), 0);
    EXPECT_EQ(s.LmGet(bad), nullptr);
    EXPECT_LT(s.LmMark(bad), 0);
    EXPECT_LT(s.LmMarked(bad), 0);
    EXPECT_LT(s.LmRemove(bad), 0);
    EXPECT_LT(s.LmDupeAssert(bad), 0);
    EXPECT_LT(s.LmSwap(bad, bad), 0);
    EXPECT_EQ(s.LmSumOf(bad), 0u);
    s.LmPrefetch(bad, true);
  }
  EXPECT_EQ(s.LmTest(0), kLmBadNumber);
  EXPECT_EQ(s.LmTest(n), kLmNotLive);
  EXPECT_EQ(s.LmSetAssert(0, 4), kLmBadNumber);
  EXPECT_EQ(s.LmSetAssert(kLmMaxNumber + 1, 4), kLmBadNumber);
  EXPECT_EQ(s.LmSetAssert(3, -1), kLmBadSize);
  EXPECT_EQ(s.LmAddAssert(-5), kLmBadSize);
  EXPECT_EQ(s.LmAddAssert(kLmMaxSize + 1), kLmBadSize);
  EXPECT_EQ(s.LmLiveCount(), 0);
  EXPECT_TRUE(s.LmCheck().empty()) << s.LmDump();
}

TEST(ElementSpace, ResizeKeepsBytesAndZeroFillsGrowthAcrossEveryKindOfBlock) {
  ElementSpace s(1024, kLmScrub);
  int32_t n = s.LmAddAssert(0);
  ASSERT_NE(s.LmGet(n), nullptr);  // a live element of 0 bytes still has an address
  // 0 -> small -> same block -> shrink -> large -> shrink into small range -> 0 -> small.
  for (int32_t size : {5, 8, 3, 600, 4000, 100, 0, 40}) {
    SCOPED_TRACE(size);
    int32_t old = s.LmSize(n);
    std::vector<uint8_t> before(s.LmGet(n), s.LmGet(n) + old);
    ASSERT_EQ(s.LmSetAssert(n, size), 0);
    ASSERT_EQ(s.LmSize(n), size);
    const uint8_t* at = s.LmGet(n);
    for (int32_t i = 0; i < size; ++i)
      ASSERT_EQ(at[i], i < old ? before[size_t(i)] : 0) << "byte " << i;
    Fill(s, n, uint8_t(0x40 + size % 64));
    ASSERT_TRUE(s.LmCheck().empty()) << s.LmDump();
  }
  // Adding with a source inside the space copies it, and a duplicate is an independent copy.
  int32_t a = s.LmAddAssert(40, s.LmGet(n));
  int32_t d = s.LmDupeAssert(a);
  EXPECT_EQ(std::memcmp(s.LmGet(d), s.LmGet(n), 40), 0);
  Fill(s, d, 1);
  EXPECT_EQ(s.LmGet(a)[0], s.LmGet(n)[0]);
  EXPECT_EQ(s.LmLiveBytes(), 120);
}

TEST(ElementSpace, AddManyNumbersAndPlacesElementsAsARunOfSingleAddsWould) {
  ElementSpace s(16, 0);
  // Free numbers and free blocks of several sizes, some numbers made live while free.
  for (int32_t i = 0; i < 300; ++i) s.LmAddAssert(i % 7 * 12 + (i % 11 == 0 ? 700 : 0));
  for (int32_t n = 3; n <= 300; n += 3) ASSERT_EQ(s.LmRemove(n), 0);
  ASSERT_EQ(s.LmSetAssert(9, 8), 0);
  ASSERT_EQ(s.LmRemove(299), 0);
  std::vector<int32_t> sizes;
  for (int32_t i = 0; i < 150; ++i) sizes.push_back(i % 5 == 0 ? 0 : i % 9 == 0 ? 600 : i % 13 * 8);
  std::vector<int32_t> numbers(sizes.size());
  std::vector<uint8_t*> at(sizes.size());
  ASSERT_EQ(s.LmAddMany(int32_t(sizes.size()), sizes.data(), numbers.data(), at.data()), 0);
  for (size_t i = 0; i < sizes.size(); ++i) {
    EXPECT_EQ(s.LmGet(numbers[i]), at[i]);
    EXPECT_EQ(s.LmSize(numbers[i]), sizes[i]);
    std::memset(at[i], int(i), size_t(sizes[i]));
  }
  EXPECT_TRUE(s.LmCheck().empty()) << s.LmDump();
  // Removing them last first gives every block and number back in the order it was taken, so
  // single adds must take the same ones.
  for (size_t i = sizes.size(); i-- > 0;) ASSERT_EQ(s.LmRemove(numbers[i]), 0);
  for (size_t i = 0; i < sizes.size(); ++i) {
    ASSERT_EQ(s.LmAddAssert(sizes[i]), numbers[i]) << "element " << i;
    if (sizes[i] > 0 && sizes[i] <= kLmSmallMax) {
      EXPECT_EQ(s.LmGet(numbers[i]), at[i]);
    }
  }
  // A bad size anywhere refuses the whole batch.
  int32_t count = s.LmLiveCount();
  sizes = {8, -1};
  EXPECT_EQ(s.LmAddMany(2, sizes.data(), numbers.data(), at.data()), kLmBadSize);
  EXPECT_EQ(s.LmLiveCount(), count);
  EXPECT_TRUE(s.LmCheck().empty()) << s.LmDump();
}

TEST(ElementSpace, AtItsCeilingEveryWayToMakeOrGrowAnElementAnswersTheLimitItMet) {
  ElementSpace s(16, 0);
  ASSERT_EQ(s.LmSetCeiling(10, 0), 0);
  for (int32_t i = 1; i <= 10; ++i) ASSERT_EQ(s.LmAddAssert(8), i);
  EXPECT_EQ(s.LmAddAssert(8), kLmNoNumber);
  EXPECT_EQ(s.LmSetAssert(11, 8), kLmNoNumber);
  EXPECT_EQ(s.LmDupeAssert(3), kLmNoNumber);
  std::vector<int32_t> sizes = {8, 8}, numbers(2);
  std::vector<uint8_t*> at(2);
  EXPECT_EQ(s.LmAddMany(2, sizes.data(), numbers.data(), at.data()), kLmNoNumber);
  // A freed number is taken again; the refused calls made nothing.
  ASSERT_EQ(s.LmRemove(4), 0);
  EXPECT_EQ(s.LmAddMany(1, sizes.data(), numbers.data(), at.data()), 0);
  EXPECT_EQ(numbers[0], 4);
  EXPECT_EQ(s.LmLiveCount(), 10);
  // A load past the ceiling is a load fault like any number out of range.
  ElementSpace l(16, 0);
  l.LmSetCeiling(10, 0);
  EXPECT_EQ(l.LmLoad(11, "abcd", 4), kLmNoNumber);
  EXPECT_EQ(l.LmLoadFaults().size(), 1u);

  // The heap's ceiling: a new chunk or large block past it is refused as the system's would be.
  ElementSpace h(16, 0);
  ASSERT_EQ(h.LmSetCeiling(kLmMaxNumber, 64 << 10), 0);
  int32_t made = 0;
  while (h.LmAddAssert(64) > 0) ++made;
  EXPECT_GT(made, 100);
  EXPECT_LE(h.LmHeapBytes(), 64 << 10);
  EXPECT_EQ(h.LmAddAssert(64), kLmNoMemory);
  EXPECT_EQ(h.LmAddAssert(100000), kLmNoMemory);
  EXPECT_EQ(h.LmSetAssert(1, 60000), kLmNoMemory);
  EXPECT_EQ(h.LmSize(1), 64);
  EXPECT_TRUE(s.LmCheck().empty()) << s.LmDump();
  EXPECT_TRUE(h.LmCheck().empty()) << h.LmDump();
  EXPECT_EQ(h.LmValid(), 0);
}

TEST(ElementSpace, TheCollectorsRecordNamesWhatWasTouchedAndCountsWhatWasFreedSinceItsReset) {
  ElementSpace s(16, 0);
  for (int i = 0; i < 10; ++i) s.LmAddAssert(16);
  s.LmSinceReset();
  std::vector<int32_t> seen;
  ASSERT_TRUE(s.LmSinceTouched(&seen));
  EXPECT_TRUE(seen.empty());
  s.LmTouch(3);
  s.LmSetAssert(5, 40);
  int32_t added = s.LmAddAssert(8);
  ASSERT_TRUE(s.LmSinceTouched(&seen));
  std::sort(seen.begin(), seen.end());
  EXPECT_EQ(seen, (std::vector<int32_t>{3, 5, added}));
  EXPECT_EQ(s.LmSinceFreed(), 0);
  // A hand-over clears its own record, not the collector's.
  s.LmChanges();
  s.LmHandedOver();
  ASSERT_TRUE(s.LmSinceTouched(&seen));
  EXPECT_EQ(seen.size(), 3u);
  s.LmRemove(2);
  s.LmSwap(6, 7);
  s.LmUnmark();
  s.LmMark(1);
  EXPECT_EQ(s.LmCollect(), 9);
  EXPECT_EQ(s.LmSinceFreed(), 1 + 1 + 9);
  s.LmSinceReset();
  EXPECT_EQ(s.LmSinceFreed(), 0);
  ASSERT_TRUE(s.LmSinceTouched(&seen));
  EXPECT_TRUE(seen.empty());
  // Past a 16th of the numbers (at least 4096) the record stops listing them.
  for (int i = 0; i < 4000; ++i) s.LmAddAssert(8);
  EXPECT_TRUE(s.LmSinceTouched(&seen));
  EXPECT_EQ(seen.size(), 4000u);
  for (int i = 0; i < 100; ++i) s.LmAddAssert(8);
  EXPECT_FALSE(s.LmSinceTouched(&seen));
}

TEST(ElementSpace, ValidLooksAgainAtWhatChangedAndFollowsTheTotals) {
  ElementSpace s(16, 0);
  for (int i = 0; i < 5000; ++i) s.LmAddAssert(i % 7 == 0 ? 700 : 8 + i % 50);
  EXPECT_EQ(s.LmValid(), 0);
  // Every way a slot changes, then the quick test, which must agree with the full check.
  for (int round = 0; round < 50; ++round) {
    int32_t base = 1 + round * 90;
    s.LmSetAssert(base, 0);
    s.LmSetAssert(base + 1, 900);
    s.LmSetAssert(base + 2, 3);
    s.LmRemove(base + 3);
    s.LmSwap(base + 4, base + 5);
    s.LmAddAssert(17);
    int32_t d = s.LmDupeAssert(base + 6);
    s.LmSetAssert(d, 64);
    s.LmSetAssert(s.LmCount() + 3, 12);
    s.LmRemove(s.LmCount());
    ASSERT_EQ(s.LmValid(), 0) << round;
    ASSERT_TRUE(s.LmCheck().empty()) << round;
  }
  s.LmUnmark();
  for (int32_t n = 1; n <= s.LmCount(); n += 2) s.LmMark(n);
  s.LmCollect();
  EXPECT_EQ(s.LmValid(), 0);
  EXPECT_EQ(s.LmCompress(), 0);
  EXPECT_EQ(s.LmValid(), 0);
}

TEST(ElementSpace, SwapExchangesContentsWhileNumbersAndMarksStay) {
  ElementSpace s(1024, 0);
  int32_t a = s.LmAddAssert(4), b = s.LmAddAssert(900);
  Fill(s, a, 0xAA);
  Fill(s, b, 0xBB);
  s.LmUnmark();
  s.LmMark(a);
  EXPECT_EQ(s.LmSwap(a, b), 0);
  EXPECT_EQ(s.LmSize(a), 900);
  EXPECT_EQ(s.LmSize(b), 4);
  EXPECT_EQ(s.LmGet(a)[899], 0xBB);
  EXPECT_EQ(s.LmGet(b)[0], 0xAA);
  EXPECT_EQ(s.LmMarked(a), 1);
  EXPECT_EQ(s.LmMarked(b), 0);
  EXPECT_EQ(s.LmSwap(a, a), 0);
  // The large block went with its contents, so removing a frees it.
  EXPECT_EQ(s.LmRemove(a), 0);
  EXPECT_TRUE(s.LmCheck().empty()) << s.LmDump();
}

TEST(ElementSpace, WhileLockedMovesAreRefusedAndReportedButNothingElseIs) {
  ElementSpace s(1024, 0);
  int32_t a = s.LmAddAssert(16), b = s.LmAddAssert(16), empty = s.LmAddAssert(0);
  Fill(s, a, 7);
  AssertCapture reports;
  ASSERT_EQ(s.LmLock(), 0);
  ASSERT_EQ(s.LmLock(), 0);
  uint8_t* at = s.LmGet(a);
  EXPECT_EQ(s.LmSetAssert(a, 64), kLmLocked);
  EXPECT_EQ(s.LmSwap(a, b), kLmLocked);
  EXPECT_EQ(s.LmCompress(), kLmLocked);
  EXPECT_EQ(reports.take().size(), 3u);
  // Growing inside the block, shrinking, adding, removing and collecting move nothing.
  EXPECT_EQ(s.LmSetAssert(a, 12), 0);
  EXPECT_EQ(s.LmSetAssert(a, 16), 0);
  EXPECT_EQ(s.LmSetAssert(empty, 32), 0);
  EXPECT_GT(s.LmAddAssert(4000), 0);
  EXPECT_EQ(s.LmRemove(b), 0);
  s.LmUnmark();
  s.LmMark(a);
  EXPECT_EQ(s.LmCollect(), 2);
  EXPECT_EQ(s.LmGet(a), at);
  EXPECT_EQ(at[0], 7);
  EXPECT_EQ(at[12], 0);
  EXPECT_TRUE(reports.take().empty());
  EXPECT_EQ(s.LmUnlock(), 0);
  EXPECT_EQ(s.LmLockDepth(), 1);
  EXPECT_EQ(s.LmUnlock(), 0);
  EXPECT_EQ(s.LmUnlock(), kLmNotLocked);
  EXPECT_EQ(reports.size(), 1u);
  EXPECT_EQ(s.LmSetAssert(a, 64), 0);
  EXPECT_TRUE(s.LmCheck().empty()) << s.LmDump();
}

TEST(ElementSpace, DumpShowsTotalsAndElements) {
  ElementSpace s(1024, 0);
  int32_t n = s.LmAddAssert(3, "abc");
  s.LmUnmark();
  s.LmMark(n);
  std::string dump = s.LmDump();
  EXPECT_NE(dump.find("1 live, highest 1, 3 live bytes"), std::string::npos) << dump;
  EXPECT_NE(dump.find("3 bytes marked  61 62 63"), std::string::npos) << dump;
}

}  // namespace
}  // namespace fundra

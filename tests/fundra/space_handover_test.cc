// Element space hand-over: changes since the last hand-over, and rebuilding from saved pairs,
// sound or damaged.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <vector>

#include "platform/fundra/space.h"

namespace fundra {
namespace {

using Ints = std::vector<int32_t>;

// What a persistence layer keeps: the pairs with their sums, and the seal.
struct Saved {
  struct Pair {
    std::vector<uint8_t> bytes;
    uint64_t sum;
  };
  std::map<int32_t, Pair> pairs;
  int32_t live = 0;
  uint64_t spaceSum = 0;

  void Take(ElementSpace& s) {
    LmDelta d = s.LmChanges();
    for (int32_t n : d.removed) pairs.erase(n);
    for (const Ints* list : {&d.added, &d.changed})
      for (int32_t n : *list)
        pairs[n] = {std::vector<uint8_t>(s.LmGet(n), s.LmGet(n) + s.LmSize(n)), s.LmSumOf(n)};
    live = s.LmLiveCount();
    spaceSum = s.LmSpaceSum();
    s.LmHandedOver();
  }
  void Load(ElementSpace& s) const {
    for (const auto& [n, p] : pairs) s.LmLoad(n, p.bytes.data(), int32_t(p.bytes.size()), p.sum);
    s.LmLoadSeal(live, spaceSum);
  }
};

TEST(ElementSpaceHandOver, ChangesNameAddedChangedAndRemovedElementsSinceTheLastHandOver) {
  ElementSpace s(1024, 0);
  int32_t a = s.LmAddAssert(8), b = s.LmAddAssert(8), c = s.LmAddAssert(8);
  LmDelta d = s.LmChanges();
  EXPECT_EQ(d.added, (Ints{a, b, c}));
  s.LmHandedOver();
  d = s.LmChanges();
  EXPECT_TRUE(d.added.empty() && d.changed.empty() && d.removed.empty());
  // A touched write through an address, a resize, a swap of different contents, a removal, an
  // addition.
  s.LmGet(a)[3] = 9;
  s.LmTouch(a);
  s.LmRemove(c);
  int32_t e = s.LmAddAssert(20);
  s.LmSetAssert(7, 4);
  d = s.LmChanges();
  // c's number was reused by e: for the persistence layer that number changed.
  EXPECT_EQ(e, c);
  EXPECT_EQ(d.changed, (Ints{a, e}));
  EXPECT_EQ(d.added, (Ints{7}));
  EXPECT_EQ(d.removed, Ints{});
  s.LmHandedOver();
  s.LmRemove(7);
  s.LmSwap(a, b);
  d = s.LmChanges();
  EXPECT_EQ(d.changed, (Ints{a, b}));
  EXPECT_EQ(d.removed, (Ints{7}));
  // Rewriting the same bytes is not a change; compress moves bytes but changes nothing.
  s.LmHandedOver();
  s.LmGet(e)[0] = 0;
  s.LmTouch(e);
  s.LmCompress();
  d = s.LmChanges();
  EXPECT_TRUE(d.added.empty() && d.changed.empty() && d.removed.empty());
}

TEST(ElementSpaceHandOver, SumsTellApartShortElementsThatDifferOnlyInSizeOrTail) {
  // Every element of 0 to 24 bytes, zero but for a last word of 0, 1, its size or 0xFF: two
  // different byte strings must not share a sum, or a save would miss the change between them.
  std::map<uint64_t, std::vector<uint8_t>> seen;
  for (int32_t size = 0; size <= 24; ++size)
    for (uint8_t last : {uint8_t(0), uint8_t(1), uint8_t(size), uint8_t(0xFF)}) {
      std::vector<uint8_t> b(size_t(size), 0);
      if (size > 0) b.back() = last;
      if (size % 8) b[size_t(size / 8 * 8)] = last;
      auto [it, fresh] = seen.emplace(ElementSpace::LmSum(b.data(), size), b);
      EXPECT_TRUE(fresh || it->second == b) << size << " bytes ending in " << int(last);
    }
}

TEST(ElementSpaceHandOver, AnAddressHeldAcrossAHandOverWhileLockedStaysCovered) {
  ElementSpace s(1024, 0);
  int32_t a = s.LmAddAssert(8), b = s.LmAddAssert(8);
  s.LmHandedOver();
  s.LmLock();
  uint8_t* at = s.LmGet(a);
  s.LmTouch(a);
  s.LmChanges();
  s.LmHandedOver();
  at[0] = 7;  // after the save, through the address taken before it
  s.LmUnlock();
  EXPECT_EQ(s.LmChanges().changed, Ints{a});
  s.LmHandedOver();
  // Unlocked, the record starts afresh: only what is touched again is compared.
  s.LmGet(b)[0] = 1;
  s.LmTouch(b);
  EXPECT_EQ(s.LmChanges().changed, Ints{b});
}

#ifdef ZOVE_CHECKED
TEST(ElementSpaceHandOverDeathTest, ACheckedBuildStopsOnAWriteNobodyTouched) {
  ElementSpace s(1024, 0);
  int32_t a = s.LmAddAssert(8);
  s.LmHandedOver();
  s.LmGet(a)[0] = 1;
  EXPECT_DEATH(s.LmChanges(), "changed and nobody touched it");
  // Elements loaded or handed over without their sums are audited too.
  ElementSpace r(1024, 0);
  r.LmLoad(1, "abcdefgh", 8);
  int32_t added = r.LmAddAssert(8);
  r.LmHandedOver();
  r.LmGet(added)[0] = 1;
  EXPECT_DEATH(r.LmChanges(), "element 2 changed and nobody touched it");
  r.LmTouch(added);
  r.LmGet(1)[0] = 1;
  EXPECT_DEATH(r.LmChanges(), "element 1 changed and nobody touched it");
}
#endif

TEST(ElementSpaceHandOver, AnElementHandedOverWithoutItsSumCountsAsChangedAtItsNextTouchOnly) {
  ElementSpace r(1024, 0);
  r.LmLoad(1, "abcdefgh", 8);
  r.LmLoad(2, "ijklmnop", 8, ElementSpace::LmSum("ijklmnop", 8));
  int32_t added = r.LmAddAssert(8);
  EXPECT_EQ(r.LmChanges().added, Ints{added});
  r.LmHandedOver();
  for (int32_t n : {1, 2, added}) r.LmTouch(n);
  // Only the element loaded with its sum can be compared by content yet.
  EXPECT_EQ(r.LmChanges().changed, (Ints{1, added}));
  r.LmHandedOver();
  for (int32_t n : {1, 2, added}) r.LmTouch(n);
  EXPECT_TRUE(r.LmChanges().changed.empty());
  r.LmGet(1)[7] = 'x';
  r.LmTouch(1);
  EXPECT_EQ(r.LmChanges().changed, Ints{1});
}

TEST(ElementSpaceHandOver, ASpaceRebuiltFromItsSavedPairsIsSoundEqualAndHasNothingToHandOver) {
  ElementSpace s(1024, 0);
  for (int i = 0; i < 300; ++i) {
    int32_t n = s.LmAddAssert(i % 50 == 0 ? 1000 : i % 40);
    if (s.LmSize(n) > 0) s.LmGet(n)[0] = uint8_t(i);
  }
  Saved saved;
  saved.Take(s);
  for (int32_t n = 3; n < 300; n += 7) s.LmRemove(n);
  s.LmGet(1)[0] = 0x55;
  s.LmTouch(1);
  saved.Take(s);

  ElementSpace r(1024, 0);
  saved.Load(r);
  EXPECT_EQ(r.LmValid(), 0) << r.LmCheck().front();
  EXPECT_EQ(r.LmRepair(), 0);
  EXPECT_EQ(r.LmSpaceSum(), s.LmSpaceSum());
  EXPECT_EQ(r.LmCount(), s.LmCount());
  EXPECT_EQ(r.LmTest(3), kLmNotLive);
  LmDelta d = r.LmChanges();
  EXPECT_TRUE(d.added.empty() && d.changed.empty() && d.removed.empty());
  EXPECT_EQ(r.LmAddAssert(4), 3);  // gaps in the loaded numbers are free numbers
}

TEST(ElementSpaceHandOver, ALoadIntoReservedRoomIsTheSameAsOneWithout) {
  ElementSpace s(1024, 0);
  for (int i = 0; i < 500; ++i)
    std::memset(s.LmGet(s.LmAddAssert(i % 70 + (i == 9 ? 600 : 0))), i, size_t(i % 70));
  s.LmRemove(17);
  Saved saved;
  saved.Take(s);

  ElementSpace r(1024, 0);
  ASSERT_EQ(r.LmReserve(500, s.LmLiveBytes()), 0);
  saved.Load(r);
  EXPECT_EQ(r.LmValid(), 0) << r.LmCheck().front();
  EXPECT_EQ(r.LmSpaceSum(), s.LmSpaceSum());
  EXPECT_EQ(r.LmCount(), s.LmCount());
  // What the reserve left over serves later additions; a second reserve keeps the elements.
  EXPECT_EQ(r.LmAddAssert(24), 17);
  EXPECT_EQ(r.LmReserve(10, 1 << 20), 0);
  EXPECT_EQ(r.LmSize(r.LmAddAssert(40)), 40);
  EXPECT_EQ(r.LmSumOf(9), s.LmSumOf(9));
  EXPECT_EQ(r.LmValid(), 0) << r.LmCheck().front();
}

TEST(ElementSpaceHandOver, DamagedPairsAreReportedByValidAndNotRepaired) {
  ElementSpace s(1024, 0);
  for (int i = 1; i <= 20; ++i) std::memset(s.LmGet(s.LmAddAssert(16)), i, 16);
  Saved good;
  good.Take(s);

  auto loadFails = [](const Saved& saved, const char* what) {
    ElementSpace r(1024, 0);
    saved.Load(r);
    EXPECT_EQ(r.LmValid(), kLmDamaged) << what;
    EXPECT_EQ(r.LmRepair(), kLmDamaged) << what;
    std::vector<std::string> faults = r.LmCheck();
    ASSERT_FALSE(faults.empty()) << what;
    EXPECT_EQ(faults.front().rfind("invariant 9:", 0), 0u) << faults.front();
  };
  Saved flipped = good;
  flipped.pairs[5].bytes[3] ^= 0x10;
  loadFails(flipped, "a flipped byte");
  Saved truncated = good;
  truncated.pairs[20].bytes.resize(9);
  loadFails(truncated, "a truncated element");
  Saved missing = good;
  missing.pairs.erase(11);
  loadFails(missing, "a missing element");
  Saved extra = good;
  extra.pairs[40] = extra.pairs[2];
  loadFails(extra, "an element too many");
  Saved bad = good;
  bad.pairs[INT32_MAX] = bad.pairs[1];
  loadFails(bad, "a number out of range");

  ElementSpace r(1024, 0);
  EXPECT_EQ(r.LmLoad(1, "abcd", 4), 0);
  EXPECT_EQ(r.LmLoad(1, "abcd", 4), kLmTaken);
  EXPECT_EQ(r.LmLoad(2, nullptr, 4), kLmBadSize);
  EXPECT_EQ(r.LmLoad(3, "abcd", 4, 12345), kLmDamaged);
  EXPECT_EQ(r.LmLoadFaults().size(), 3u);
}

}  // namespace
}  // namespace fundra

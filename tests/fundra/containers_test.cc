// TDict, RNList, TMemory and the byte helpers, persist headers, resource words, Debug.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/fundra/debug.h"
#include "platform/fundra/dict.h"
#include "platform/fundra/memory.h"
#include "platform/fundra/persist.h"
#include "platform/fundra/rnlist.h"
#include "platform/zelkor/log.h"

namespace fundra {
namespace {

TEST(TDict, LookupGivesZeroWhenAbsentAndSetReplaces) {
  TDict d(0, 0);
  EXPECT_EQ(d.Lookup(42), 0);
  EXPECT_EQ(d.Set(42, 7), 0);
  EXPECT_EQ(d.Set(42, 8), 7);
  EXPECT_EQ(d.Lookup(42), 8);
  EXPECT_EQ(d.Set(-3, 0), 0);
  EXPECT_EQ(d.Lookup(-3), 0);
  EXPECT_TRUE(d.Has(-3));
  EXPECT_EQ(d.Remove(-3), 1);
  EXPECT_EQ(d.Remove(-3), 0);
  EXPECT_EQ(d.Count(), 1);
  // Many keys, removed and re-added, through every rehash and compaction.
  for (Word k = 0; k < 5000; ++k) d.Set(k * 977, k);
  for (Word k = 0; k < 5000; k += 2) d.Remove(k * 977);
  for (Word k = 0; k < 5000; ++k) ASSERT_EQ(d.Lookup(k * 977), k % 2 ? k : 0) << k;
  EXPECT_EQ(d.Count(), 2500 + (42 % 977 != 0));
  EXPECT_TRUE(d.Check().empty());
}

TEST(TDict, IterationRunsInInsertionOrderAndSurvivesChangesOnTheWay) {
  TDict d;
  for (Word k : {30, 10, 20, 40}) d.Set(k, k + 1);
  Word key, value;
  std::vector<Word> seen;
  {
    TDictIter it(d);
    while (it.Next(&key, &value)) {
      seen.push_back(key);
      EXPECT_EQ(value, key + 1);
      if (key == 30) d.Remove(20);   // not visited any more
      if (key == 40) d.Set(50, 51);  // visited by this walk
      for (Word k = 100; k < 200 && key == 10; ++k) d.Set(k, 0), d.Remove(k);
    }
  }
  EXPECT_EQ(seen, (std::vector<Word>{30, 10, 40, 50}));
  ASSERT_TRUE(d.First(&key, &value));
  EXPECT_EQ(key, 30);
  d.Remove(30);
  ASSERT_TRUE(d.First(&key, &value));
  EXPECT_EQ(key, 10);
  d.Clear();
  EXPECT_FALSE(d.First(&key, &value));
  EXPECT_TRUE(d.Check().empty());
}

TEST(RNList, FindEnumAndDelFollowTheirEdgeRules) {
  RNList l;
  EXPECT_EQ(l.Find(5), -1);
  EXPECT_EQ(l.Enum(0), 0);
  for (int32_t v : {0, 5, 0, 7, 5, 0}) l.Add(v);
  EXPECT_EQ(l.Find(5), 1);
  EXPECT_EQ(l.Find(9), -1);
  EXPECT_EQ(l.Enum(3), 7);
  EXPECT_EQ(l.Enum(6), 0);
  EXPECT_EQ(l.Enum(-1), 0);
  EXPECT_EQ(l.Del(0), 3);
  EXPECT_EQ(l.Dump(), "[5 7 5]");
  EXPECT_EQ(l.Insert(1, 9), 1);
  EXPECT_EQ(l.Insert(5, 1), -1);
  EXPECT_EQ(l.Set(3, 6), 0);
  EXPECT_EQ(l.Set(4, 6), -1);
  EXPECT_EQ(l.DelAt(0), 0);
  EXPECT_EQ(l.Dump(), "[9 7 6]");
  EXPECT_EQ(l.Del(4), 0);
  EXPECT_EQ(l.Count(), 3);
}

TEST(TMemory, SetSizeKeepsBytesFillsGrowthAndCopiesAreIndependent) {
  TMemory m;
  EXPECT_EQ(m.GetSize(), 0);
  EXPECT_EQ(m.SetSize(4, -1), 0);
  std::memcpy(m.MemPtr(), "abcd", 4);
  EXPECT_EQ(m.SetSize(6, 'x'), 0);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(m.MemPtr()), 6), "abcdxx");
  EXPECT_EQ(m.SetSize(2, -1), 0);
  EXPECT_EQ(m.SetSize(3, -1), 0);
  EXPECT_EQ(m.MemPtr()[2], 0);
  EXPECT_EQ(m.SetSize(-1, -1), kMemBadSize);
  EXPECT_EQ(m.GetSize(), 3);
  TMemory copy(m);
  copy.MemPtr()[0] = 'z';
  EXPECT_EQ(m.MemPtr()[0], 'a');
  TMemory assigned;
  assigned = copy;
  TMemory& same = assigned;  // self-assignment keeps the bytes
  assigned = same;
  EXPECT_EQ(assigned.GetSize(), 3);
  EXPECT_EQ(assigned.MemPtr()[0], 'z');
  TMemory moved(std::move(assigned));
  EXPECT_EQ(moved.MemPtr()[1], 'b');
}

TEST(MemoryHelpers, BlocksKnowTheirSizeAndMovesMayOverlap) {
  void* p = MemAlloc(10);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(MemSize(p), 10);
  EXPECT_EQ(static_cast<uint8_t*>(p)[9], 0);
  MemFree(p);
  MemFree(nullptr);
  EXPECT_EQ(MemAlloc(-1), nullptr);
  void* empty = MemAlloc(0);
  EXPECT_EQ(MemSize(empty), 0);
  MemFree(empty);

  char b[] = "abcdefgh";
  BlockMove(b, b + 2, 5);  // source, destination
  EXPECT_STREQ(b, "ababcdeh");
  BlockMove(b + 2, b, 5);
  EXPECT_STREQ(b, "abcdedeh");
  EXPECT_EQ(EqualBlock("abc", "abd", 2), 1);
  EXPECT_EQ(EqualBlock("abc", "abd", 3), 0);
  EXPECT_EQ(EqualBlock("x", "y", 0), 1);
  ZeroFill(b, 3);
  EXPECT_EQ(b[2], 0);
  EXPECT_EQ(b[3], 'd');
}

int32_t ByHigh(void* context, const void* a, const void* b) {
  ++*static_cast<int*>(context);
  int32_t x, y;
  std::memcpy(&x, a, 4);
  std::memcpy(&y, b, 4);
  return (x >> 8) - (y >> 8);
}

TEST(MemoryHelpers, SortIsStableAndPassesItsContext) {
  std::vector<int32_t> v;
  for (int32_t i = 0; i < 300; ++i) v.push_back(((i * 37) % 11) << 8 | (i & 0xFF));
  std::vector<int32_t> want = v;
  std::stable_sort(want.begin(), want.end(),
                   [](int32_t a, int32_t b) { return (a >> 8) < (b >> 8); });
  int calls = 0;
  Sort(v.data(), int32_t(v.size()), 4, &calls, ByHigh);
  EXPECT_EQ(v, want);
  EXPECT_GT(calls, 0);
  Sort(v.data(), 0, 4, &calls, ByHigh);
}

TEST(PersistHeader, InitWritesTagAndVersionsLittleEndianAndCheckMatchesThem) {
  uint8_t h[8];
  _initpersist(h, 0x50726f2e, 256, 256);  // "Pro."
  const uint8_t want[8] = {0x2e, 0x6f, 0x72, 0x50, 0x00, 0x01, 0x00, 0x01};
  EXPECT_EQ(std::memcmp(h, want, 8), 0);
  EXPECT_EQ(_checkpersist(h, 0x50726f2e, 256, 256), 0);
  EXPECT_EQ(_checkpersist(h, 0x52554e2e, 256, 256), kPersistBadTag);
  EXPECT_EQ(_checkpersist(h, 0x50726f2e, 257, 256), kPersistBadVersion);
  h[7] = 2;
  EXPECT_EQ(_checkpersist(h, 0x50726f2e, 256, 256), kPersistBadVersion);
}

TEST(ResourceWords, SwapTurnsBigEndianResourceWordsIntoHostOrder) {
  const uint8_t resource[4] = {0xFF, 0xFF, 0xFF, 0xFE};  // -2, big-endian
  int32_t raw;
  std::memcpy(&raw, resource, 4);
  EXPECT_EQ(SwapSint32(raw), -2);
  uint32_t uraw;
  std::memcpy(&uraw, "\x12\x34\x56\x78", 4);
  EXPECT_EQ(SwapUint32(uraw), 0x12345678u);
  EXPECT_EQ(SwapUint32(SwapUint32(uraw)), uraw);
}

TEST(Debug, ReportsGoToTheLogAndToEveryCaptureAndExecutionContinues) {
  zelkor::LogCapture log;
  AssertCapture outer;
  {
    AssertCapture inner;
    Debug("zove", 12);
    EXPECT_EQ(inner.take(), std::vector<std::string>{"zove:12"});
  }
  EXPECT_FALSE(Check(false, "db", 3));
  EXPECT_TRUE(Check(true, "db", 4));
  EXPECT_EQ(outer.take(), (std::vector<std::string>{"zove:12", "db:3"}));
  EXPECT_TRUE(log.contains("assertion failed: zove:12"));
}

}  // namespace
}  // namespace fundra

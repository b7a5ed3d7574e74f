// Element space: marks, collection, compression and heap use.
#include <gtest/gtest.h>

#include <cstring>

#include "platform/fundra/space.h"

namespace fundra {
namespace {

TEST(ElementSpaceMarks, MarkAnswersNewlyThenAlreadyAndUnmarkClearsAll) {
  ElementSpace s(1024, 0);
  int32_t a = s.LmAddAssert(4), b = s.LmAddAssert(4);
  EXPECT_EQ(s.LmMark(a), 1);
  EXPECT_EQ(s.LmMark(a), 0);
  EXPECT_EQ(s.LmMarked(b), 0);
  EXPECT_EQ(s.LmUnmark(), 0);
  EXPECT_EQ(s.LmMarked(a), 0);
  EXPECT_EQ(s.LmMark(a), 1);
  // A freed and reused number comes back unmarked.
  s.LmMark(b);
  s.LmRemove(b);
  EXPECT_EQ(s.LmAddAssert(4), b);
  EXPECT_EQ(s.LmMarked(b), 0);
  // Unmarking many times over never lets an old mark count as a new one.
  for (int round = 0; round < 600; ++round) {
    s.LmUnmark();
    ASSERT_EQ(s.LmMarked(a), 0) << round;
    ASSERT_EQ(s.LmMark(round % 2 ? a : b), 1) << round;
  }
}

TEST(ElementSpaceMarks, CollectFreesUnmarkedElementsOnlyAndTheirNumbersComeBack) {
  ElementSpace s(1024, kLmScrub);
  std::vector<int32_t> n;
  for (int i = 0; i < 200; ++i) n.push_back(s.LmAddAssert(i % 3 == 0 ? 700 : 8 + i % 50));
  s.LmUnmark();
  for (int i = 0; i < 200; i += 2) s.LmMark(n[size_t(i)]);
  for (int i = 0; i < 200; i += 2) std::memset(s.LmGet(n[size_t(i)]), i & 0xFF, 8);
  EXPECT_EQ(s.LmCollect(), 100);
  EXPECT_EQ(s.LmCollect(), 0);
  for (int i = 0; i < 200; ++i) {
    EXPECT_EQ(s.LmTest(n[size_t(i)]) == 0, i % 2 == 0) << i;
    if (i % 2 == 0) {
      EXPECT_EQ(s.LmGet(n[size_t(i)])[7], i & 0xFF);
    }
  }
  EXPECT_EQ(s.LmCount(), 199);  // 200 was unmarked, so the table shrank
  EXPECT_EQ(s.LmAddAssert(4), 2);
  EXPECT_TRUE(s.LmCheck().empty()) << s.LmDump();
  EXPECT_EQ(s.LmValid(), 0);
}

TEST(ElementSpaceMarks, CompressPacksLiveBytesAndKeepsEveryElementIntact) {
  ElementSpace s(1024, 0);
  std::vector<int32_t> n;
  for (int i = 0; i < 5000; ++i) {
    int32_t size = i % 97 == 0 ? 2000 : 4 + i % 120;
    n.push_back(s.LmAddAssert(size));
    std::memset(s.LmGet(n.back()), i & 0xFF, size_t(size));
  }
  // Churn: remove half, shrink a large one into the small range, grow some small ones.
  for (int i = 0; i < 5000; i += 2) s.LmRemove(n[size_t(i)]);
  s.LmSetAssert(n[97], 10);
  for (int i = 1; i < 5000; i += 10) s.LmSetAssert(n[size_t(i)], 300);
  int64_t before = s.LmHeapBytes();
  ASSERT_EQ(s.LmCompress(), 0);
  EXPECT_LT(s.LmHeapBytes(), before);
  EXPECT_LE(s.LmHeapBytes(), s.LmLiveBytes() * 5 / 4) << s.LmDump(0);
  for (int i = 1; i < 5000; i += 2) {
    const uint8_t* at = s.LmGet(n[size_t(i)]);
    ASSERT_NE(at, nullptr);
    EXPECT_EQ(at[0], i & 0xFF) << i;
  }
  EXPECT_TRUE(s.LmCheck().empty()) << s.LmDump(0);
  // The space keeps working after compress.
  EXPECT_GT(s.LmAddAssert(48), 0);
  EXPECT_EQ(s.LmSetAssert(n[1], 16), 0);
  EXPECT_TRUE(s.LmCheck().empty()) << s.LmDump(0);
  EXPECT_EQ(s.LmValid(), 0);
}

}  // namespace
}  // namespace fundra

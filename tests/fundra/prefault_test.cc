// Prefault: faulting memory in ahead of its writer never changes what the writer wrote.
#include "platform/fundra/prefault.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "platform/fundra/huge_alloc.h"

namespace {

using fundra::MemRegion;
using fundra::Prefault;

uint8_t patternAt(size_t i) { return uint8_t(i * 131 + (i >> 12)); }

TEST(Prefault, FollowsItsWriterAndLeavesEveryWrittenByteAlone) {
  const size_t bytes = 3 * Prefault::kLead + 12345;
  auto* a = static_cast<uint8_t*>(fundra::HugeAlloc(bytes));
  auto* b = static_cast<uint8_t*>(std::malloc(bytes / 3));
  ASSERT_TRUE(a && b);
  {
    // Regions that start mid-page, as a table's spare capacity does.
    MemRegion regions[] = {{a + 100, a + bytes}, {b + 7, b + bytes / 3}};
    Prefault prefault(regions, 2);
    for (size_t at = 100; at < bytes; at += 65536) {
      size_t end = std::min(bytes, at + 65536);
      for (size_t i = at; i < end; ++i) a[i] = patternAt(i);
      prefault.Reached(0, a + end);
      if (at < bytes / 3) {
        std::memset(b + 7, 0xB5, std::min(end, bytes / 3) - 7);
        prefault.Reached(1, b + std::min(end, bytes / 3));
      }
    }
  }
  for (size_t i = 100; i < bytes; ++i) ASSERT_EQ(a[i], patternAt(i)) << i;
  for (size_t i = 7; i < bytes / 3; ++i) ASSERT_EQ(b[i], 0xB5) << i;
  std::free(a);
  std::free(b);
}

TEST(Prefault, AWriterThatMovedEndsTheWorkOnItsRegion) {
  const size_t bytes = 8 * Prefault::kLead;
  auto* a = static_cast<uint8_t*>(fundra::HugeAlloc(bytes));
  ASSERT_NE(a, nullptr);
  MemRegion region{a, a + bytes / 2};
  Prefault prefault(&region, 1);
  prefault.Reached(0, a + bytes / 2 + 4096);  // the writer is past the region: it moved
  // Given time, the thread does no more than the first lead it was asked for at the start.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_LE(prefault.Populated(), Prefault::kLead);
  std::free(a);
}

TEST(Prefault, EmptyAndOversizedRequestsAreHarmless) {
  uint8_t small[64] = {};
  MemRegion regions[6] = {};
  for (auto& r : regions) r = {small + 10, small + 10};
  Prefault prefault(regions, 6);  // more regions than it takes; none holds a whole page
  prefault.Reached(5, small);
  prefault.Reached(0, small + 64);
  EXPECT_EQ(prefault.Populated(), 0u);
}

}  // namespace

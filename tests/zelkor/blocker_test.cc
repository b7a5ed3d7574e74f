#include "platform/zelkor/blocker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace zelkor;

TEST(Blocker, EntryIsExclusiveAcrossThreadsAndNestsWithinOne) {
  TBlockState state;
  EXPECT_EQ(state.Usage(), 0);
  TBlocker none;
  EXPECT_EQ(none.Enter(), kBlockerNoState);

  TBlocker mine(&state);
  EXPECT_EQ(mine.Exit(), kBlockerNotHeld);
  EXPECT_EQ(mine.Enter(), 0);
  EXPECT_EQ(mine.Enter(), 0);  // the holder may enter again
  EXPECT_TRUE(state.Entered());
  EXPECT_EQ(state.Usage(), 2);

  std::thread trier([&] {
    TBlocker b(&state);
    EXPECT_EQ(b.TryEnter(), kBlockerBusy);  // held by another: nothing changes
  });
  trier.join();
  EXPECT_EQ(state.Usage(), 2);
  EXPECT_EQ(mine.TryEnter(), 0);  // the holder nests without waiting
  EXPECT_EQ(mine.Exit(), 0);
  EXPECT_EQ(none.TryEnter(), kBlockerNoState);

  std::atomic<bool> otherIn{false};
  std::thread other([&] {
    TBlocker b;
    b.Set(&state);
    EXPECT_FALSE(state.Entered());
    EXPECT_EQ(b.Exit(), kBlockerNotHeld);  // not this thread's
    EXPECT_EQ(b.Enter(), 0);
    otherIn = true;
    EXPECT_EQ(b.Exit(), 0);
  });
  // The other thread waits (it shows in Usage) until both levels are left.
  while (state.Usage() < 3) std::this_thread::yield();
  EXPECT_FALSE(otherIn);
  EXPECT_EQ(mine.Exit(), 0);
  EXPECT_FALSE(otherIn);
  EXPECT_EQ(mine.Exit(), 0);
  other.join();
  EXPECT_TRUE(otherIn);
  EXPECT_EQ(state.Usage(), 0);
  EXPECT_EQ(mine.TryEnter(), 0);  // free again: taken without waiting
  EXPECT_TRUE(state.Entered());
  EXPECT_EQ(mine.Exit(), 0);
  EXPECT_EQ(state.Usage(), 0);
}

TEST(Blocker, ManyThreadsNeverHoldTheStateTogether) {
  TBlockState state;
  int inside = 0, maxInside = 0, total = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      TBlocker b(&state);
      for (int i = 0; i < 2000; ++i) {
        b.Enter();
        ++inside;
        maxInside = std::max(maxInside, inside);
        ++total;
        --inside;
        b.Exit();
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(maxInside, 1);
  EXPECT_EQ(total, 8000);
  EXPECT_EQ(state.Usage(), 0);
}

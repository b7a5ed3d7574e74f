// Work done a few steps ahead, on a thread of its own.
//
// A big load reads rows while it places the rows before; a big save encodes segments while it
// writes the ones before. An Ahead<Item> calls `make` on a thread of its own to fill a ring of
// kSlots items in order and hands them to its user in that order; `make` answers false when
// there is nothing more. Without a thread (none wanted, one processor, none could start) Next
// makes each item itself. Either way the user sees the same items in the same order, so what a
// load or a save reports does not depend on the thread.
//
// The user waits by spinning, yielding now and then: items pass every few microseconds, far
// too often to wake a sleeping thread each time. The making side, when it is a full ring ahead,
// naps. `make` must touch nothing the user changes meanwhile.
#pragma once

#ifdef __linux__
#include <sched.h>
#endif

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

namespace storefile {

// Whether this process may run on more than one processor: two threads that wait for each other
// by spinning need two.
inline bool SeveralProcessors() {
#ifdef __linux__
  cpu_set_t set;
  if (sched_getaffinity(0, sizeof set, &set) == 0) return CPU_COUNT(&set) > 1;
#endif
  return std::thread::hardware_concurrency() > 1;
}

// One turn of a wait: a pause, and every 64th turn a yield, so that the other threads run.
inline void SpinTurn(unsigned* turns) {
  if (++*turns % 64 == 0) {
    std::this_thread::yield();
  } else {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
  }
}

// A turn of the making side's wait for room. It is ahead, so after a short spin it sleeps in
// short naps instead of holding a core for the whole load or save: the ring holds far more
// than a nap's worth of items.
inline void NapTurn(unsigned* turns) {
  if (*turns < 256)
    SpinTurn(turns);
  else
    std::this_thread::sleep_for(std::chrono::microseconds(20));
}

template <class Item>
class Ahead {
 public:
  static constexpr size_t kSlots = 64;

  Ahead(std::function<bool(Item*)> make, bool threaded) : make_(std::move(make)) {
    if (!threaded || !SeveralProcessors()) return;
    try {
      slots_.resize(kSlots);
      thread_ = std::thread([this] { Run(); });
    } catch (const std::exception&) {
      slots_.clear();  // items are made where they are taken
    }
  }
  ~Ahead() {
    if (!thread_.joinable()) return;
    stop_.store(true, std::memory_order_relaxed);
    thread_.join();
  }
  Ahead(const Ahead&) = delete;
  Ahead& operator=(const Ahead&) = delete;

  // The next item, the user's until the next call; null at the end.
  Item* Next() {
    if (!thread_.joinable()) return make_(&only_) ? &only_ : nullptr;
    if (holding_) {
      released_.store(taken_, std::memory_order_release);
      holding_ = false;
    }
    unsigned turns = 0;
    while (taken_ == made_.load(std::memory_order_acquire)) {
      // The end is marked after the last item, so an item made before it is seen first.
      if (ended_.load(std::memory_order_acquire) && taken_ == made_.load(std::memory_order_acquire))
        return nullptr;
      SpinTurn(&turns);
    }
    holding_ = true;
    return &slots_[taken_++ % kSlots];
  }

 private:
  void Run() {
    for (uint64_t n = 0;; ++n) {
      unsigned turns = 0;
      while (n - released_.load(std::memory_order_acquire) >= kSlots) {  // the ring is full
        if (stop_.load(std::memory_order_relaxed)) return;
        NapTurn(&turns);
      }
      if (stop_.load(std::memory_order_relaxed)) return;
      if (!make_(&slots_[n % kSlots])) {
        ended_.store(true, std::memory_order_release);
        return;
      }
      made_.store(n + 1, std::memory_order_release);
    }
  }

  std::function<bool(Item*)> make_;
  Item only_{};           // the single slot without a thread
  uint64_t taken_ = 0;    // items given to the user (the user's)
  bool holding_ = false;  // the user holds slot (taken_ - 1)
  std::vector<Item> slots_;
  alignas(64) std::atomic<uint64_t> made_{0};      // items in the ring so far
  alignas(64) std::atomic<uint64_t> released_{0};  // items the user is done with
  std::atomic<bool> ended_{false};                 // made_ is final
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace storefile

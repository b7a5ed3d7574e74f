#include "platform/fundra/prefault.h"

#include <sys/mman.h>

#include <algorithm>
#include <system_error>

namespace fundra {

namespace {

constexpr uintptr_t kPage = 4096;

bool Supported() {
#ifdef MADV_POPULATE_WRITE
  return std::thread::hardware_concurrency() > 1;
#else
  return false;
#endif
}

}  // namespace

Prefault::Prefault(const MemRegion* regions, size_t count) {
  if (!Supported()) return;
  for (size_t i = 0; i < count && count_ < kMaxRegions; ++i) {
    // The partial page at a region's start may hold other data: populating it would be
    // harmless, but the writer reaches it first anyway.
    uintptr_t begin = (reinterpret_cast<uintptr_t>(regions[i].begin) + kPage - 1) & ~(kPage - 1);
    uintptr_t end = reinterpret_cast<uintptr_t>(regions[i].end);
    base_[count_] = reinterpret_cast<uint8_t*>(begin);
    length_[count_] = end > begin ? end - begin : 0;
    asked_[count_] = std::min(length_[count_], kLead);
    want_[count_].store(asked_[count_], std::memory_order_relaxed);
    ++count_;
  }
  try {
    thread_ = std::thread([this] { Run(); });
  } catch (const std::system_error&) {
    // Without a thread the writer faults its pages in itself, as it would anyway.
  }
}

Prefault::~Prefault() {
  if (!thread_.joinable()) return;
  stop_.store(true, std::memory_order_relaxed);
  generation_.fetch_add(1, std::memory_order_release);
  generation_.notify_one();
  thread_.join();
}

void Prefault::Reached(size_t i, const uint8_t* at) {
  if (i >= count_ || !thread_.joinable()) return;
  // Compared as addresses: after a move, `at` lies in another allocation.
  uintptr_t base = reinterpret_cast<uintptr_t>(base_[i]), to = reinterpret_cast<uintptr_t>(at);
  if (to < base) return;  // still inside the region's first page
  size_t done = to - base;
  if (done > length_[i]) {
    if (asked_[i] != 0) Ask(i, 0);  // moved elsewhere: nothing more to do here
    return;
  }
  // Requests go in whole steps, so the thread is woken once per step, not per write.
  size_t want = std::min(length_[i], (done + kLead + kStep - 1) / kStep * kStep);
  if (want > asked_[i]) Ask(i, want);
}

void Prefault::Ask(size_t i, size_t bytes) {
  asked_[i] = bytes;
  want_[i].store(bytes, std::memory_order_relaxed);
  generation_.fetch_add(1, std::memory_order_release);
  generation_.notify_one();
}

void Prefault::Run() {
  std::array<size_t, kMaxRegions> done{};
  for (;;) {
    uint32_t seen = generation_.load(std::memory_order_acquire);
    if (stop_.load(std::memory_order_relaxed)) return;
    for (size_t i = 0; i < count_; ++i) {
      size_t want = want_[i].load(std::memory_order_relaxed);
      while (done[i] < want && !stop_.load(std::memory_order_relaxed)) {
        size_t step = std::min(kStep, want - done[i]);
#ifdef MADV_POPULATE_WRITE
        if (madvise(base_[i] + done[i], step, MADV_POPULATE_WRITE) != 0) {
          done[i] = length_[i];  // not ours any more, or the kernel declines: leave it
          break;
        }
#endif
        done[i] += step;
        populated_.fetch_add(step, std::memory_order_relaxed);
      }
    }
    generation_.wait(seen, std::memory_order_acquire);
  }
}

}  // namespace fundra

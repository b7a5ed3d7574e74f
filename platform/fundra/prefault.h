// Faulting in fresh memory ahead of its writer, on another core.
//
// A file load fills tens of megabytes of fresh memory, and the kernel clears each page at its
// first write: on the loading thread that was about a third of a load. A Prefault asks the
// kernel (MADV_POPULATE_WRITE) to fault in each region a little ahead of where its writer has
// got to, from a thread of its own, so that the clearing runs beside the load.
//
// It only ever asks the kernel: it never reads or writes the memory, and populating a page
// leaves its contents alone. So a region the writer frees or outgrows meanwhile costs a failed
// or wasted call, nothing else. Nothing runs on one core or where the kernel lacks the call.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>

namespace fundra {

struct MemRegion {
  uint8_t* begin;
  uint8_t* end;
};

class Prefault {
 public:
  static constexpr size_t kMaxRegions = 4;
  static constexpr size_t kStep = size_t(2) << 20;  // a huge page; the unit of each call
  static constexpr size_t kLead = size_t(8) << 20;  // how far ahead of the writer it works

  // Starts faulting in the first kLead bytes of each region (at most kMaxRegions are used).
  Prefault(const MemRegion* regions, size_t count);
  ~Prefault();  // stops and waits for the thread
  Prefault(const Prefault&) = delete;
  Prefault& operator=(const Prefault&) = delete;

  // The writer has written region i up to `at`. A position outside the region (it was moved)
  // ends the work on that region.
  void Reached(size_t i, const uint8_t* at);
  bool Running() const { return thread_.joinable(); }
  // Bytes the thread has faulted in so far (for tests).
  size_t Populated() const { return populated_.load(std::memory_order_relaxed); }

 private:
  void Ask(size_t i, size_t bytes);
  void Run();

  size_t count_ = 0;
  std::array<uint8_t*, kMaxRegions> base_{};  // each region's first whole page
  std::array<size_t, kMaxRegions> length_{};  // bytes from base_ to the region's end
  std::array<size_t, kMaxRegions> asked_{};   // the writer's copy of want_
  std::array<std::atomic<size_t>, kMaxRegions> want_{};
  std::atomic<uint32_t> generation_{0};  // bumped at every new request, and to stop
  std::atomic<bool> stop_{false};
  std::atomic<size_t> populated_{0};
  std::thread thread_;
};

}  // namespace fundra

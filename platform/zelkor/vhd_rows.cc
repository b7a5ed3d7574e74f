#include "platform/zelkor/vhd_rows.h"

#include <system_error>

namespace zelkor::storefile {

namespace {

// One turn of a wait: a pause, and every 64th turn a yield, so that a waiting thread lets the
// load's other helpers run.
void Spin(unsigned* turns) {
  if (++*turns % 64 == 0) {
    std::this_thread::yield();
  } else {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
  }
}

}  // namespace

SegmentRows::SegmentRows(sqlite3_stmt* st, bool ahead) : st_(st) {
  if (!ahead || std::thread::hardware_concurrency() < 2) return;
  try {
    slots_.resize(kSlots);
    thread_ = std::thread([this] { Run(); });
  } catch (const std::exception&) {
    slots_.clear();  // rows come straight from the statement
  }
}

SegmentRows::~SegmentRows() {
  if (!thread_.joinable()) return;
  stop_.store(true, std::memory_order_relaxed);
  thread_.join();
}

bool SegmentRows::Next(int64_t* id, const uint8_t** body, size_t* size) {
  if (!thread_.joinable()) {
    rc_ = sqlite3_step(st_);
    if (rc_ != SQLITE_ROW) return false;
    *id = sqlite3_column_int64(st_, 0);
    *body = static_cast<const uint8_t*>(sqlite3_column_blob(st_, 1));
    *size = *body ? size_t(sqlite3_column_bytes(st_, 1)) : 0;
    return true;
  }
  if (holding_) {
    released_.store(taken_, std::memory_order_release);
    holding_ = false;
  }
  unsigned turns = 0;
  while (taken_ == read_.load(std::memory_order_acquire)) {
    // The end is marked after the last row, so a row read before it is seen first.
    if (ended_.load(std::memory_order_acquire) && taken_ == read_.load(std::memory_order_acquire)) {
      rc_ = endRc_.load(std::memory_order_relaxed);
      return false;
    }
    Spin(&turns);
  }
  const Slot& s = slots_[taken_ % kSlots];
  ++taken_;
  holding_ = true;
  rc_ = SQLITE_ROW;
  *id = s.id;
  *body = s.null ? nullptr : s.bytes.data();
  *size = s.null ? 0 : s.bytes.size();
  return true;
}

void SegmentRows::Run() {
  for (uint64_t n = 0;; ++n) {
    unsigned turns = 0;
    while (n - released_.load(std::memory_order_acquire) >= kSlots) {  // the ring is full
      if (stop_.load(std::memory_order_relaxed)) return;
      Spin(&turns);
    }
    if (stop_.load(std::memory_order_relaxed)) return;
    int rc = sqlite3_step(st_);
    if (rc != SQLITE_ROW) {
      endRc_.store(rc, std::memory_order_relaxed);
      ended_.store(true, std::memory_order_release);
      return;
    }
    Slot& s = slots_[n % kSlots];
    s.id = sqlite3_column_int64(st_, 0);
    const auto* body = static_cast<const uint8_t*>(sqlite3_column_blob(st_, 1));
    s.null = body == nullptr;
    if (body) {
      try {
        s.bytes.assign(body, body + sqlite3_column_bytes(st_, 1));
      } catch (const std::bad_alloc&) {
        endRc_.store(SQLITE_NOMEM, std::memory_order_relaxed);
        ended_.store(true, std::memory_order_release);
        return;
      }
    }
    read_.store(n + 1, std::memory_order_release);
  }
}

}  // namespace zelkor::storefile

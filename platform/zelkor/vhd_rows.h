// The segment rows of a load, read one ahead of the loader on a thread of their own.
//
// Stepping SQLite (which copies each row's blob out of its page) is about half of a big load's
// time, and placing the elements the other half. A SegmentRows given `ahead` steps the statement
// on its own thread and copies each row into a ring, so the loader checks and places one row
// while the next ones are read; without it, rows come straight from the statement. Either way
// the loader sees the same rows in the same order, then the step's last answer, so what it
// reports of a damaged or unreadable file is the same.
//
// Both sides wait by spinning (yielding now and then): a row passes every couple of
// microseconds, far too often to wake a sleeping thread each time.
#pragma once

#include <sqlite3.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <vector>

namespace zelkor::storefile {

class SegmentRows {
 public:
  static constexpr size_t kSlots = 64;

  // st: a prepared "SELECT id, body" over the segment rows, finalized by the caller after this
  // object is gone. ahead: read on a thread (ignored on one core or when no thread can start).
  SegmentRows(sqlite3_stmt* st, bool ahead);
  ~SegmentRows();  // stops the thread, which steps no further, and waits for it
  SegmentRows(const SegmentRows&) = delete;
  SegmentRows& operator=(const SegmentRows&) = delete;

  // The next row; its body (null for a null or empty blob) holds until the next call. False at
  // the end, when rc() is the last step's answer (SQLITE_DONE or an error).
  bool Next(int64_t* id, const uint8_t** body, size_t* size);
  int rc() const { return rc_; }

 private:
  struct Slot {
    int64_t id = 0;
    bool null = true;
    std::vector<uint8_t> bytes;
  };
  void Run();

  sqlite3_stmt* st_;
  int rc_ = SQLITE_OK;
  uint64_t taken_ = 0;    // rows the loader has been given (the loader's)
  bool holding_ = false;  // the loader holds slot (taken_ - 1)
  std::vector<Slot> slots_;
  alignas(64) std::atomic<uint64_t> read_{0};      // rows in the ring so far
  alignas(64) std::atomic<uint64_t> released_{0};  // rows the loader is done with
  std::atomic<bool> ended_{false};                 // read_ is final; endRc_ holds the answer
  std::atomic<int> endRc_{SQLITE_DONE};
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace zelkor::storefile

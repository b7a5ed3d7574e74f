// The segment rows of a load, read ahead of the loader on a thread of their own.
//
// Stepping SQLite (which copies each row's blob out of its page) is about half of a big load's
// time, and placing the elements the other half. A SegmentRows given `ahead` steps the statement
// on its own thread and copies each row into a ring (Ahead), so the loader checks and places one
// row while the next ones are read. Either way the loader sees the same rows in the same order,
// then the step's last answer, so what it reports of a damaged or unreadable file is the same.
#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/storefile/ahead.h"
#include "platform/storefile/names.h"

namespace storefile {

class SegmentRows {
 public:
  // st: a prepared "SELECT id, body" over the segment rows, finalized by the caller after this
  // object is gone. ahead: read on a thread (ignored on one core or when no thread can start).
  SegmentRows(sqlite3_stmt* st, bool ahead);

  // The next row; its body (null for a null or empty blob) holds until the next call. False at
  // the end, when rc() is the last step's answer (SQLITE_DONE or an error); rc() is not to be
  // read before (the reading thread may be writing it).
  bool Next(int64_t* id, const uint8_t** body, size_t* size);
  int rc() const { return rc_; }

 private:
  struct Row {
    int64_t id = 0;
    bool null = true;
    std::vector<uint8_t> bytes;
  };
  bool Read(Row* row);  // on the reading thread

  sqlite3_stmt* st_;
  int rc_ = SQLITE_OK;  // written by Read, read by the loader once Next answered false
  Ahead<Row> rows_;     // last: its thread stops before the members above go
};

}  // namespace storefile

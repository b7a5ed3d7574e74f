// The fault seam of the store file: every file operation SQLite makes on a store file goes
// through a thin layer over the system's own file layer, which counts them and can make one fail.
//
// Counted calls: read (a mapped read counts as one), write, truncate, sync and size query (of the
// database and of its journal). A test runs a scenario once to learn how many calls it makes, then
// runs it again with failAt = 1, 2, ... so that every call of the scenario fails once. Not
// thread-safe: one test drives it at a time.
#pragma once

#include <cstdint>

namespace storefile {

enum class IoFaultKind {
  kIoError,  // the call fails as a device error would
  kDiskFull  // writes fail as on a full disk (the other calls as device errors)
};

struct IoFaults {
  // Makes the n-th counted call from now fail (n >= 1); with `sticky` every call from the n-th
  // on fails. n = 0 turns failing off. Resets the count.
  static void failAt(int64_t n, IoFaultKind kind = IoFaultKind::kIoError, bool sticky = false);
  // Counted calls since the last failAt.
  static int64_t calls();
  // Calls that were made to fail since the last failAt.
  static int64_t failed();
  // Bytes written (by writes that were let through) since the last failAt.
  static int64_t bytesWritten();
};

// The name under which the layer is registered with SQLite (registered on first use).
const char* storeVfsName();

// sqlite3_file_control opcode: writes 1 to the int argument when a reader's database file was
// read through a hot journal since it was opened (journal_view.h), else 0.
constexpr int kFileControlViewed = 0x5A4F0001;

}  // namespace storefile

// The last save as a reader finds it beside a hot journal, without writing a byte.
//
// A writer killed in the middle of a save leaves the database file partly rewritten and the
// rollback journal hot: it holds the original of every page the save changed and the file's size
// before it. A writer that opens the file next rolls the journal back. A reader may not write
// (read-only files, a reader's promise to change nothing), so it reads through the journal
// instead: a page the journal holds is read from there, any other from the file, and the file
// ends where it ended before the save. That is the page image the rollback will write.
//
// The journal is read exactly as a rollback reads it (a big-endian layout, one header per sector
// at the start of each part, each record a page number, the page and a checksum):
//
//   header:  offset width field
//            0      8     magic      d9 d5 05 f9 20 a1 63 d7
//            8      4     records    in this part; 0xffffffff: as many as the journal holds
//            12     4     sum seed   added to every record's checksum in this part
//            16     4     pages      the file's size in pages before the save (first header)
//            20     4     sector     the header's size; parts start at multiples of it
//            24     4     page size  (first header)
//   record:  4 page number, page size bytes of the page, 4 checksum = seed + every 200th byte
//            of the page from the end (offsets page size - 200, - 400, ... above 0)
//
// Reading stops at a header without the magic, a page number of 0 or of the lock page, a
// checksum that differs, or the journal's end; a page past the old size is skipped. A journal
// whose first byte is 0 is not hot (a commit clears the header); one a writer holds its reserved
// lock for is that writer's, mid-save, and not hot either.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <unordered_map>

namespace storefile {

// The fault seam's counter (vfs.cc): answers the code a counted call must fail with, or
// SQLITE_OK. The view's reads of the journal are counted like every other file call.
int countedCall(int ioerr, bool isWrite);

class JournalView {
 public:
  // Looks at the journal `journalName` of the database `db` (the system layer's file, with at
  // least a shared lock held). Answers SQLITE_OK with *out null when the journal is not hot, with
  // a view when it is, or the code of a read that failed.
  static int open(sqlite3_vfs* vfs, const char* journalName, sqlite3_file* db, JournalView** out);
  ~JournalView();
  JournalView(const JournalView&) = delete;
  JournalView& operator=(const JournalView&) = delete;

  // A read of the database as the rollback would leave it; SQLITE_IOERR_SHORT_READ (with the
  // rest zeroed) past its end.
  int read(sqlite3_file* db, void* p, int n, sqlite3_int64 at);
  int fileSize(sqlite3_file* db, sqlite3_int64* size) const;

 private:
  JournalView() = default;
  int parse(sqlite3_file* db, sqlite3_int64 journalBytes);

  sqlite3_file* journal_ = nullptr;  // opened read-only through the system's layer
  int64_t pageSize_ = 0;
  int64_t dbBytes_ = -1;  // the size before the save; -1 when no header could be read
  std::unordered_map<uint32_t, int64_t> originals_;  // page number -> its bytes in the journal
};

}  // namespace storefile

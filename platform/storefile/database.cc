// The store file's database (see database.h for durability and locking).
#include "platform/storefile/database.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <optional>
#include <set>
#include <utility>

#include "platform/storefile/rows.h"
#include "platform/storefile/vfs.h"
#include "platform/storefile/vhd.h"
#include "platform/zelkor/log.h"

namespace storefile {

using namespace zelkor;

namespace {

// Segments average a few kilobytes: pages of 16 KiB hold several without overflow chains, and a
// save of a few changed elements journals and rewrites few pages.
constexpr int kPageSize = 16384;
constexpr int kBusyMs = 2000;
// Smaller loads and saves do their work on one thread: a second costs more than it would save.
size_t gParallelFrom = size_t(32) << 20;
// Between saves the journal keeps at most this many bytes; a save that grew it past them trims it
// after its commit.
int64_t gJournalLimit = int64_t(4) << 20;

// Files this process has open for writing, by device and inode. A second writer in the same
// process must be refused before it opens a descriptor of its own: closing any descriptor of a
// file drops every POSIX lock the process holds on it, SQLite's included.
std::mutex gWritersMu;
std::set<std::pair<uint64_t, uint64_t>> gWriters;

bool claimWriter(uint64_t dev, uint64_t ino) {
  std::lock_guard<std::mutex> lock(gWritersMu);
  return gWriters.insert({dev, ino}).second;
}
void dropWriter(uint64_t dev, uint64_t ino) {
  std::lock_guard<std::mutex> lock(gWritersMu);
  gWriters.erase({dev, ino});
}

int32_t codeOf(int rc) {
  switch (rc & 0xFF) {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
      return 0;
    case SQLITE_NOTADB:
      return kVhdNotStoreFile;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return kVhdBusy;
    case SQLITE_READONLY:
      return kVhdReadOnly;
    case SQLITE_IOERR:
    case SQLITE_FULL:
    case SQLITE_CANTOPEN:
    case SQLITE_NOMEM:
    case SQLITE_PROTOCOL:
      return kVhdIoError;
    default:  // CORRUPT, and the schema errors a damaged file produces
      return kVhdDamaged;
  }
}

}  // namespace

int32_t StoreDb::fail(int rc, const char* routine) {
  int32_t code = codeOf(rc);
  if (!code) code = kVhdDamaged;
  // A journal left hot by a crash that this user cannot read (a reader) or write (a writer):
  // the last save is there, but only a user who may write the journal can roll it back.
  std::string journal = path_ + "-journal";
  if ((rc == SQLITE_READONLY_ROLLBACK || (rc & 0xFF) == SQLITE_CANTOPEN) &&
      ::access(journal.c_str(), F_OK) == 0 &&
      ::access(journal.c_str(), readOnly_ ? R_OK : R_OK | W_OK) != 0) {
    DebugLogf(kVhdLogLevel,
              "%s: %s: a save was interrupted, and this user may not %s its journal %s (%s); a "
              "user who may write the journal rolls it back by opening the file for writing "
              "once: zove recover %s",
              routine, path_.c_str(), readOnly_ ? "read" : "write", journal.c_str(),
              strerror(errno), path_.c_str());
    return kVhdReadOnly;
  }
  DebugLogf(kVhdLogLevel, "%s: %s: %s (%d)", routine, path_.c_str(),
            db_ ? sqlite3_errmsg(db_) : sqlite3_errstr(rc), rc);
  return code;
}

int32_t StoreDb::exec(const char* sql, const char* routine) {
  int rc = sqlite3_exec(db_, sql, nullptr, nullptr, nullptr);
  return rc == SQLITE_OK ? 0 : fail(rc, routine);
}

sqlite3_stmt* StoreDb::prepare(sqlite3_stmt** slot, const char* sql) {
  if (!*slot &&
      sqlite3_prepare_v3(db_, sql, -1, SQLITE_PREPARE_PERSISTENT, slot, nullptr) != SQLITE_OK)
    *slot = nullptr;
  return *slot;
}

int32_t StoreDb::lockForWriting(int fd) {
  struct stat st;
  if (fstat(fd, &st) != 0) {
    DebugLogf(kVhdLogLevel, "vhdLock: %s: %s", path_.c_str(), strerror(errno));
    ::close(fd);
    return kVhdIoError;
  }
  if (!claimWriter(uint64_t(st.st_dev), uint64_t(st.st_ino))) {
    DebugLogf(kVhdLogLevel, "vhdLock: %s: open for writing in this process already", path_.c_str());
    ::close(fd);
    return kVhdBusy;
  }
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    int e = errno;
    dropWriter(uint64_t(st.st_dev), uint64_t(st.st_ino));
    ::close(fd);
    DebugLogf(kVhdLogLevel, "vhdLock: %s: %s", path_.c_str(),
              e == EWOULDBLOCK ? "another writer has the file open" : strerror(e));
    return e == EWOULDBLOCK ? kVhdBusy : kVhdIoError;
  }
  lockFd_ = fd;
  dev_ = uint64_t(st.st_dev);
  ino_ = uint64_t(st.st_ino);
  return 0;
}

void StoreDb::releaseLock() {
  if (lockFd_ < 0) return;
  dropWriter(dev_, ino_);
  ::close(lockFd_);  // also drops the flock
  lockFd_ = -1;
}

int32_t StoreDb::openDatabase(bool creating) {
  int flags = readOnly_ ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE;
  int rc = sqlite3_open_v2(path_.c_str(), &db_, flags, storeVfsName());
  if (rc != SQLITE_OK) return fail(rc, "vhdOpen");
  sqlite3_extended_result_codes(db_, 1);
  sqlite3_busy_timeout(db_, kBusyMs);
  // A reader maps the file: the load takes the rows straight from the page cache instead of
  // copying every page out first. The writer keeps plain reads (SQLite never writes through the
  // map anyway, and a map would have to follow every growth of the file).
  if (readOnly_) return exec("PRAGMA query_only=1; PRAGMA mmap_size=1099511627776;", "vhdOpen");
  if (creating) {
    // A file under construction has no name yet (see create): nothing to roll back to, so no
    // journal, and one sync when the first save commits. Without a journal, SQLite writes pages
    // out as its cache fills, so a small cache serves the whole first save with the same
    // buffers instead of taking fresh memory for every page of it.
    std::string pragmas = "PRAGMA page_size=" + std::to_string(kPageSize) +
                          "; PRAGMA journal_mode=OFF; PRAGMA synchronous=FULL;"
                          " PRAGMA cache_size=-8192; PRAGMA temp_store=MEMORY;";
    return exec(pragmas.c_str(), "vhdCreate");
  }
  std::string pragmas =
      "PRAGMA journal_mode=PERSIST; PRAGMA journal_size_limit=" + std::to_string(gJournalLimit) +
      "; PRAGMA synchronous=EXTRA; PRAGMA cache_size=-32768;"
      " PRAGMA temp_store=MEMORY;";
  return exec(pragmas.c_str(), "vhdOpen");
}

int32_t StoreDb::open(const std::string& path, bool readOnly) {
  close();
  path_ = path;
  readOnly_ = readOnly;
  struct stat st;
  const char* why = ::stat(path.c_str(), &st) != 0 ? strerror(errno)
                    : S_ISDIR(st.st_mode)          ? "a folder, not a store file"
                    : !S_ISREG(st.st_mode)         ? "not a regular file"
                                                   : nullptr;
  if (why) {
    DebugLogf(kVhdLogLevel, "vhdOpen: %s: %s", path.c_str(), why);
    return kVhdNoFile;
  }
  if (!readOnly) {
    // The same check lockForWriting makes, before a descriptor exists (see gWriters).
    {
      std::lock_guard<std::mutex> lock(gWritersMu);
      if (gWriters.count({uint64_t(st.st_dev), uint64_t(st.st_ino)})) {
        DebugLogf(kVhdLogLevel, "vhdLock: %s: open for writing in this process already",
                  path.c_str());
        return kVhdBusy;
      }
    }
    int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) {
      DebugLogf(kVhdLogLevel, "vhdOpen: %s: %s", path.c_str(), strerror(errno));
      return errno == EACCES ? kVhdReadOnly : kVhdIoError;
    }
    if (int32_t r = lockForWriting(fd)) return r;
  }
  int32_t r = openDatabase(false);
  if (!r) r = readHead(&head_, "vhdOpen");
  if (r) close();
  return r;
}

int32_t StoreDb::readHead(Head* out, const char* routine) {
  sqlite3_stmt* st = nullptr;
  int rc = sqlite3_prepare_v2(db_, "PRAGMA application_id", -1, &st, nullptr);
  if (rc == SQLITE_OK) rc = sqlite3_step(st);
  int32_t appId = rc == SQLITE_ROW ? sqlite3_column_int(st, 0) : 0;
  sqlite3_finalize(st);
  if (rc != SQLITE_ROW) return fail(rc, routine);
  if (appId != kApplicationId) {
    DebugLogf(kVhdLogLevel, "%s: %s: not a store file", routine, path_.c_str());
    return kVhdNotStoreFile;
  }
  rc = sqlite3_prepare_v2(db_, "SELECT k, body FROM head", -1, &st, nullptr);
  if (rc != SQLITE_OK) return fail(rc, routine);
  int rows = 0;
  int32_t r = 0;
  std::string why;
  while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
    ++rows;
    const auto* body = static_cast<const uint8_t*>(sqlite3_column_blob(st, 1));
    size_t size = size_t(sqlite3_column_bytes(st, 1));
    if (sqlite3_column_int64(st, 0) != 1 || !body) {
      r = kVhdDamaged;
      why = "stray head row";
    } else if (!r) {
      r = decodeHead(body, size, out, &why);
    }
  }
  sqlite3_finalize(st);
  if (rc != SQLITE_DONE) return fail(rc, routine);
  if (!r && rows != 1) {
    r = kVhdDamaged;
    why = "no store head";
  }
  if (r) DebugLogf(kVhdLogLevel, "%s: %s: %s", routine, path_.c_str(), why.c_str());
  return r;
}

void StoreDb::closeDatabase() {
  for (sqlite3_stmt** s : {&putSeg_, &delSeg_, &putRec_, &delRec_, &getRec_, &putHead_}) {
    sqlite3_finalize(*s);
    *s = nullptr;
  }
  if (db_) sqlite3_close_v2(db_);
  db_ = nullptr;
}

void StoreDb::close() {
  closeDatabase();
  if (!finalPath_.empty()) {
    ::unlink(path_.c_str());  // a file that never got its name
    finalPath_.clear();
  }
  releaseLock();
}

void StoreDb::setParallelFrom(size_t bytes) { gParallelFrom = bytes; }
size_t StoreDb::parallelFrom() { return gParallelFrom; }
void StoreDb::setJournalLimit(int64_t bytes) { gJournalLimit = bytes; }

int32_t StoreDb::load(fundra::ElementSpace* space, std::vector<uint64_t>* segChecks,
                      const std::function<void(int64_t, int32_t, uint64_t)>& record) {
  if (int32_t r = exec("BEGIN;", "vhdLoad")) return r;
  int32_t r = readHead(&head_, "vhdLoad");
  sqlite3_stmt* st = nullptr;
  std::string why;
  int rc = SQLITE_DONE;
  if (!r) {
    // Room for every element in one go spares the space its table regrowth and a chunk
    // allocation every few thousand elements. The file's size bounds both (an element takes
    // at least its 8-byte entry), so a damaged head cannot make it reserve more. Only a hint.
    struct stat file;
    int64_t fileBytes = 0;
    if (::stat(path_.c_str(), &file) == 0) {
      fileBytes = int64_t(file.st_size);
      space->LmReserve(int32_t(std::min<int64_t>(head_.liveCount, fileBytes / 8)), fileBytes);
    }
    // A big load reads its rows on another core while it places the ones before.
    bool parallel = fileBytes >= int64_t(gParallelFrom);
    rc = sqlite3_prepare_v2(db_, "SELECT id, body FROM seg", -1, &st, nullptr);
    int32_t segments = 0, elements = 0;
    uint64_t digest = 0;
    SegmentParts seg;
    std::optional<SegmentRows> rows;
    if (rc == SQLITE_OK) rows.emplace(st, parallel);
    int64_t id;
    const uint8_t* body;
    size_t size;
    while (rows && rows->Next(&id, &body, &size)) {
      if ((r = checkSegment(id, body, size, &seg, &why)) != 0) break;
      int32_t refused = 0;
      if (space->LmLoadMany(seg.parts, seg.count, seg.bytes, &refused) != 0) {
        why = "segment " + std::to_string(id) + ": element " +
              std::to_string(seg.parts[refused].number) + " refused by the space";
        r = kVhdDamaged;
        break;
      }
      if (size_t(id) >= segChecks->size()) segChecks->resize(size_t(id) + 1, 0);
      (*segChecks)[size_t(id)] = seg.check;
      ++segments;
      elements += seg.count;
      digest += segmentDigest(id, seg.check);
    }
    // The last step's answer once the rows ran out; after a fault the reader is stopped unread.
    if (rows && !r) rc = rows->rc();
    rows.reset();  // the reading thread steps no further
    sqlite3_finalize(st);
    if (!r && rc != SQLITE_DONE) r = fail(rc, "vhdLoad");
    if (!r && (segments != head_.segmentCount || elements != head_.liveCount ||
               digest != head_.segmentDigest)) {
      r = kVhdDamaged;
      why = "segments differ from the head's counts or digest";
    }
  }
  if (!r) {
    int32_t count = 0;
    uint64_t digest = 0;
    rc = sqlite3_prepare_v2(db_, "SELECT key, size, sum, body FROM rec", -1, &st, nullptr);
    while (rc == SQLITE_OK || rc == SQLITE_ROW) {
      rc = sqlite3_step(st);
      if (rc != SQLITE_ROW) break;
      int64_t key = sqlite3_column_int64(st, 0);
      int64_t size = sqlite3_column_int64(st, 1);
      auto sum = uint64_t(sqlite3_column_int64(st, 2));
      const void* body = sqlite3_column_blob(st, 3);
      int64_t bytes = sqlite3_column_bytes(st, 3);
      if (size != bytes || checksum(body, size_t(bytes)) != sum) {
        r = kVhdDamaged;
        why = "record " + recordName(key) + ": checksum differs";
        break;
      }
      ++count;
      digest += recordDigest(key, size, sum);
      record(key, int32_t(size), sum);
    }
    sqlite3_finalize(st);
    if (!r && rc != SQLITE_DONE) r = fail(rc, "vhdLoad");
    if (!r && (count != head_.recordCount || digest != head_.recordDigest)) {
      r = kVhdDamaged;
      why = "records differ from the head's count or digest";
    }
  }
  if (r && !why.empty()) DebugLogf(kVhdLogLevel, "vhdLoad: %s: %s", path_.c_str(), why.c_str());
  sqlite3_exec(db_, "COMMIT;", nullptr, nullptr, nullptr);  // ends the read; nothing was written
  // The load ran every page through the page cache; a save needs only the pages it changes, which
  // the system's cache still holds. Keeping them would hold up to the cache's size (32 MiB for a
  // writer) beside the space for as long as the file is open; the heap gives back what the cache
  // and the load's rows held.
  sqlite3_db_release_memory(db_);
  malloc_trim(0);
  int viewed = 0;
  if (!r && readOnly_ &&
      sqlite3_file_control(db_, "main", kFileControlViewed, &viewed) == SQLITE_OK && viewed)
    DebugLogf(kVhdLogLevel,
              "vhdLoad: %s: a save was interrupted; read the last save through its journal, "
              "which the next writer rolls back",
              path_.c_str());
  return r;
}

int32_t StoreDb::readRecord(int64_t key, int32_t size, uint64_t sum, fundra::TMemory* out) {
  sqlite3_stmt* st = prepare(&getRec_, "SELECT size, sum, body FROM rec WHERE key = ?");
  if (!st) return fail(sqlite3_errcode(db_), "vhdReadRecord");
  sqlite3_bind_int64(st, 1, key);
  int rc = sqlite3_step(st);
  int32_t r = 0;
  const char* why = nullptr;
  if (rc == SQLITE_ROW) {
    const void* body = sqlite3_column_blob(st, 2);
    int32_t bytes = sqlite3_column_bytes(st, 2);
    uint64_t rowSum = uint64_t(sqlite3_column_int64(st, 1));
    if (sqlite3_column_int64(st, 0) != bytes || checksum(body, size_t(bytes)) != rowSum) {
      why = "checksum differs";
      r = kVhdDamaged;
    } else if (bytes != size || rowSum != sum) {
      r = kVhdStale;
    } else if ((r = out->SetSize(bytes)) == 0 && bytes) {
      std::memcpy(out->MemPtr(), body, size_t(bytes));
    }
  } else if (rc == SQLITE_DONE) {
    r = kVhdStale;
  } else {
    r = fail(rc, "vhdReadRecord");
  }
  sqlite3_reset(st);
  if (r == kVhdStale && !readOnly_) {
    why = rc == SQLITE_ROW ? "differs from the one saved" : "missing from the file";
    r = kVhdDamaged;
  } else if (r == kVhdStale) {
    why = "the file was saved by a writer since this reader loaded it";
  }
  if (why)
    DebugLogf(kVhdLogLevel, "vhdReadRecord: %s: record %s: %s", path_.c_str(),
              recordName(key).c_str(), why);
  return r;
}

int32_t StoreDb::begin() {
  if (readOnly_) return kVhdReadOnly;
  // The journal goes by the path: a writer whose file was moved or deleted would write it
  // beside whatever file has the path now (the file layer checks again as it opens the journal).
  // SQLite's own full name of the file: the one its journal's name is made from.
  const char* name = sqlite3_db_filename(db_, "main");
  struct stat st;
  if (!name || ::stat(name, &st) != 0 || uint64_t(st.st_dev) != dev_ ||
      uint64_t(st.st_ino) != ino_) {
    DebugLogf(kVhdLogLevel,
              "vhdSave: %s: the file was moved, replaced or deleted since it was opened; nothing "
              "is saved, so that no other file's journal is written",
              path_.c_str());
    return kVhdNoFile;
  }
  return exec("BEGIN IMMEDIATE;", "vhdSave");
}

int32_t StoreDb::putSegment(int32_t s, const std::vector<uint8_t>& body) {
  sqlite3_stmt* st = body.empty() ? prepare(&delSeg_, "DELETE FROM seg WHERE id = ?")
                                  : prepare(&putSeg_, "INSERT OR REPLACE INTO seg VALUES (?, ?)");
  if (!st) return fail(sqlite3_errcode(db_), "vhdSave");
  sqlite3_bind_int64(st, 1, s);
  if (!body.empty()) sqlite3_bind_blob(st, 2, body.data(), int(body.size()), SQLITE_STATIC);
  int rc = sqlite3_step(st);
  sqlite3_reset(st);
  if (rc != SQLITE_DONE) return fail(rc, "vhdSave");
  if (!finalPath_.empty()) unflushed_.fetch_add(int64_t(body.size()), std::memory_order_relaxed);
  return 0;
}

// A new file's first save spills its pages to the file as SQLite's cache fills (see
// openDatabase). Asking the kernel to start writing them out now, a few megabytes at a time, lets
// the disk work while the save goes on, so the closing sync has little left to wait for. Only a
// hint: it changes nothing that is written, and its failure is no failure of the save. The
// request can block while the disk is busy, so a save with a second thread makes it there.
void StoreDb::writeBehind() {
#ifdef __linux__
  int64_t put = unflushed_.load(std::memory_order_relaxed);
  if (finalPath_.empty() || lockFd_ < 0 || put < kFlushEvery) return;
  unflushed_.fetch_sub(put, std::memory_order_relaxed);
  sync_file_range(lockFd_, 0, 0, SYNC_FILE_RANGE_WRITE);
#endif
}

int32_t StoreDb::putRecord(int64_t key, const uint8_t* bytes, int32_t size, uint64_t sum) {
  sqlite3_stmt* st = prepare(&putRec_, "INSERT OR REPLACE INTO rec VALUES (?, ?, ?, ?)");
  if (!st) return fail(sqlite3_errcode(db_), "vhdSave");
  static const uint8_t kNone = 0;
  sqlite3_bind_int64(st, 1, key);
  sqlite3_bind_int64(st, 2, size);
  sqlite3_bind_int64(st, 3, int64_t(sum));
  sqlite3_bind_blob(st, 4, size ? bytes : &kNone, size, SQLITE_STATIC);
  int rc = sqlite3_step(st);
  sqlite3_reset(st);
  return rc == SQLITE_DONE ? 0 : fail(rc, "vhdSave");
}

int32_t StoreDb::deleteRecord(int64_t key) {
  sqlite3_stmt* st = prepare(&delRec_, "DELETE FROM rec WHERE key = ?");
  if (!st) return fail(sqlite3_errcode(db_), "vhdSave");
  sqlite3_bind_int64(st, 1, key);
  int rc = sqlite3_step(st);
  sqlite3_reset(st);
  return rc == SQLITE_DONE ? 0 : fail(rc, "vhdSave");
}

int32_t StoreDb::commit(const Head& head) {
  sqlite3_stmt* st = prepare(&putHead_, "INSERT OR REPLACE INTO head VALUES (1, ?)");
  if (!st) return fail(sqlite3_errcode(db_), "vhdSave");
  std::vector<uint8_t> body = encodeHead(head);
  sqlite3_bind_blob(st, 1, body.data(), int(body.size()), SQLITE_STATIC);
  int rc = sqlite3_step(st);
  sqlite3_reset(st);
  int32_t r = rc == SQLITE_DONE ? 0 : fail(rc, "vhdSave");
  if (!r) r = exec("COMMIT;", "vhdSave");
  if (r) {
    rollback();
    return r;
  }
  head_ = head;
  return 0;
}

void StoreDb::rollback() {
  // After some I/O errors SQLite has rolled back already; only an open transaction is ended.
  if (db_ && !sqlite3_get_autocommit(db_))
    sqlite3_exec(db_, "ROLLBACK;", nullptr, nullptr, nullptr);
}

int32_t StoreDb::headOnDisk(Head* out) {
  rollback();
  return readHead(out, "vhdSave");
}

int32_t StoreDb::recordIndex(const std::function<void(int64_t, int32_t, uint64_t)>& row) {
  sqlite3_stmt* st = nullptr;
  int rc = sqlite3_prepare_v2(db_, "SELECT key, size, sum FROM rec", -1, &st, nullptr);
  while (rc == SQLITE_OK || rc == SQLITE_ROW) {
    rc = sqlite3_step(st);
    if (rc == SQLITE_ROW)
      row(sqlite3_column_int64(st, 0), int32_t(sqlite3_column_int64(st, 1)),
          uint64_t(sqlite3_column_int64(st, 2)));
  }
  sqlite3_finalize(st);
  return rc == SQLITE_DONE ? 0 : fail(rc, "vhdRecords");
}

int32_t StoreDb::segmentIds(std::vector<int32_t>* out) {
  sqlite3_stmt* st = nullptr;
  int rc = sqlite3_prepare_v2(db_, "SELECT id FROM seg", -1, &st, nullptr);
  while (rc == SQLITE_OK || rc == SQLITE_ROW) {
    rc = sqlite3_step(st);
    if (rc == SQLITE_ROW) out->push_back(int32_t(sqlite3_column_int64(st, 0)));
  }
  sqlite3_finalize(st);
  return rc == SQLITE_DONE ? 0 : fail(rc, "vhdSave");
}

int32_t StoreDb::quickCheck(std::string* why) {
  sqlite3_stmt* st = nullptr;
  int rc = sqlite3_prepare_v2(db_, "PRAGMA quick_check", -1, &st, nullptr);
  std::string found;
  while (rc == SQLITE_OK || rc == SQLITE_ROW) {
    rc = sqlite3_step(st);
    if (rc != SQLITE_ROW) break;
    const char* line = reinterpret_cast<const char*>(sqlite3_column_text(st, 0));
    std::string s = line ? line : "";
    if (s != "ok") found += (found.empty() ? "" : "; ") + s;
  }
  sqlite3_finalize(st);
  if (rc != SQLITE_DONE) return fail(rc, "vhdCheck");
  if (found.empty()) return 0;
  *why = found;
  return kVhdDamaged;
}

}  // namespace storefile

// The store file as a database: opening, the writer lock, loading and the save transaction.
//
// Durability: the database keeps a rollback journal (journal_mode PERSIST: a save commits by
// clearing its header) with synchronous EXTRA, so a save that answered 0 survives a crash of the
// process and a power cut, and a save that was interrupted or failed leaves the file as of the
// save before (the next writer rolls the journal back; see vfs.cc for a failing last sync).
//
// Locking: a read-write StoreDb holds an exclusive flock on the database file for as long as it
// is open, so a second writer (in another process or, through the table of files this process
// has open for writing, in this one) is refused with kVhdBusy. Readers take no lock of their
// own; SQLite's shared lock keeps a save from landing halfway through their load.
#pragma once

#include <sqlite3.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/fundra/memory.h"
#include "platform/fundra/space.h"
#include "platform/storefile/format.h"
#include "platform/storefile/names.h"

namespace storefile {

class StoreDb {
 public:
  static constexpr int32_t kApplicationId = 0x5A4F5645;  // "ZOVE" in the database header

  StoreDb() = default;
  ~StoreDb() { close(); }
  StoreDb(const StoreDb&) = delete;
  StoreDb& operator=(const StoreDb&) = delete;

  // Makes a new, empty store file (head only) under a temporary name beside path and opens it
  // for writing; kVhdNoFile when the path exists. The first save then writes it without a
  // journal, and publish() gives it its name: a file at path is always complete.
  int32_t create(const std::string& path, int32_t version);
  // Syncs the new file, links it to its path (kVhdNoFile if the path appeared meanwhile), syncs
  // the folder and reopens it for saves with a journal. Nothing to do for an opened file.
  int32_t publish();
  // Opens an existing store file and reads its head.
  int32_t open(const std::string& path, bool readOnly);
  // Closes the database and releases the lock; a file never published is removed.
  void close();

  bool isOpen() const { return db_ != nullptr; }
  bool readOnly() const { return readOnly_; }
  const std::string& path() const { return path_; }
  const Head& head() const { return head_; }

  // Loads every segment into the (empty) space, noting each segment's check in segChecks (by
  // id; 0 where there is no row), then reads every record row, checking its bytes, and hands
  // (key, size, sum) to `record`. Counts and digests are held against the head. One read
  // transaction, so space and records are of the same save. Answers 0, kVhdDamaged or
  // kVhdIoError.
  int32_t load(fundra::ElementSpace* space, std::vector<uint64_t>* segChecks,
               const std::function<void(int64_t key, int32_t size, uint64_t sum)>& record);
  // Loads of files, and saves of segments, of at least this many bytes use a second thread:
  // a load reads its rows on it, a save encodes its segments on it (32 MiB unless set). Tests
  // set 0 to take that path always.
  static void setParallelFrom(size_t bytes);
  static size_t parallelFrom();
  // The size a journal is trimmed to after a save that grew it past it (4 MiB unless set; files
  // opened from then on). Tests set a small one so that small saves trim too.
  static void setJournalLimit(int64_t bytes);
  // Reads one record's bytes into out, checking them against their sum and against the size and
  // sum the last load or save left for it. A row that differs from those (or is gone) is a
  // damaged file for the writer; for a reader it means a writer saved since the reader loaded,
  // kVhdStale.
  int32_t readRecord(int64_t key, int32_t size, uint64_t sum, fundra::TMemory* out);

  // The save transaction: begin, put and delete rows, then commit (or rollback on failure).
  // The head given to commit is written last; after a failed commit the file and head() are as
  // before begin.
  int32_t begin();
  int32_t putSegment(int32_t s, const std::vector<uint8_t>& body);  // empty body: delete the row
  // While a new file's first save goes on, the saver calls this now and then, from any thread:
  // every few megabytes put, it asks the kernel to start writing the file's pages out.
  void writeBehind();
  int32_t putRecord(int64_t key, const uint8_t* bytes, int32_t size, uint64_t sum);
  int32_t deleteRecord(int64_t key);
  int32_t commit(const Head& head);
  void rollback();
  // After a failed save: ends what is left of its transaction and reads the head the file holds
  // now (a journal the failure left hot is rolled back first, as by any writer). A call after
  // the commit point can fail, so the file may hold the save that failed. Answers 0 or a code.
  int32_t headOnDisk(Head* out);
  // Takes `h` for the head of the last save, once the file was found to hold it.
  void adoptHead(const Head& h) { head_ = h; }
  // Every record row's key, size and sum, without reading the bodies.
  int32_t recordIndex(const std::function<void(int64_t key, int32_t size, uint64_t sum)>& row);

  // Segment ids that have a row (for a full save, which must also drop rows of a former space).
  int32_t segmentIds(std::vector<int32_t>* out);
  // SQLite's own structure check; answers 0 or kVhdDamaged with the findings in *why.
  int32_t quickCheck(std::string* why);

 private:
  int32_t openDatabase(bool creating);
  int32_t journalFree(int* lockFd);  // creation.cc
  void closeDatabase();
  int32_t lockForWriting(int fd);
  int32_t readHead(Head* out, const char* routine);
  int32_t fail(int rc, const char* routine);  // logs the SQLite error, answers our code
  int32_t exec(const char* sql, const char* routine);
  sqlite3_stmt* prepare(sqlite3_stmt** slot, const char* sql);
  void releaseLock();

  sqlite3* db_ = nullptr;
  std::string path_;
  std::string finalPath_;  // while a new file has a temporary name: the name it will get
  bool readOnly_ = false;
  int lockFd_ = -1;
  static constexpr int64_t kFlushEvery = int64_t(8) << 20;
  std::atomic<int64_t> unflushed_{0};  // segment bytes put since the last write-out request
  uint64_t dev_ = 0, ino_ = 0;
  Head head_;
  sqlite3_stmt* putSeg_ = nullptr;
  sqlite3_stmt* delSeg_ = nullptr;
  sqlite3_stmt* putRec_ = nullptr;
  sqlite3_stmt* delRec_ = nullptr;
  sqlite3_stmt* getRec_ = nullptr;
  sqlite3_stmt* putHead_ = nullptr;
};

}  // namespace storefile

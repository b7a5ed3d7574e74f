// A pass-through SQLite file layer with a failure switch (see vfs.h).
//
// The layer wraps the default one: its file object is the default file object followed by a
// pointer to it, and every method forwards. Reads, writes, truncations, syncs and size queries
// are counted, because those are the calls whose failure a store must survive (a rollback
// journal is trimmed after the commit with a size query and a truncation).
#include "platform/storefile/vfs.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>

#include "platform/storefile/journal_view.h"

namespace storefile {

namespace {

struct FaultState {
  std::atomic<int64_t> calls{0};
  std::atomic<int64_t> failed{0};
  std::atomic<int64_t> written{0};
  int64_t failAt = 0;
  bool sticky = false;
  IoFaultKind kind = IoFaultKind::kIoError;
};

FaultState& faults() {
  static FaultState s;
  return s;
}

// Answers the code the counted call must fail with, or SQLITE_OK to let it through.
int fault(int ioerr, bool isWrite) {
  FaultState& f = faults();
  int64_t n = ++f.calls;
  if (!f.failAt || n < f.failAt || (!f.sticky && n != f.failAt)) return SQLITE_OK;
  ++f.failed;
  return isWrite && f.kind == IoFaultKind::kDiskFull ? SQLITE_FULL : ioerr;
}

// A rollback journal is written as many small appends (a page number, a page, a checksum, for
// every page a save changes), and a big save writes the database's pages one after another. The
// layer gathers writes that follow each other and passes them on in writes of 64 KiB before
// anything else touches the file: a sync, a read, a truncation, a size query, a write elsewhere,
// an unlock, a close. The system takes large writes at far less cost per byte than page-sized
// ones. Nothing a sync makes durable changes: a process killed with writes still gathered is a
// process killed before it made them, and SQLite touches the database file only after it has
// synced the journal.
constexpr int kGatherBuffer = 1 << 20;
constexpr int kMostPerWrite = 64 << 10;

// A persistent rollback journal commits a save by zeroing its header: from that write on the
// journal is no longer hot, and the database file holds the new save. SQLite then syncs the
// journal; if that sync fails, the save answers a failure, so the layer writes the header back,
// and the journal is hot again: the next writer rolls the file back to the save before, as for
// any failed save. The layer follows the header's bytes through every write for that.
constexpr int kJournalHeader = 28;

struct ShimFile {
  sqlite3_file base;  // methods = &kShimMethods
  sqlite3_file* real;
  // A reader's database: while it holds its shared lock beside a hot journal, it reads the last
  // save through the journal (journal_view.h) and tells SQLite the journal is not hot.
  const char* journalName;  // null for any other file
  JournalView* view;
  bool viewed;  // a view was taken since the file was opened
  // A writer's database: its path and what file it named at the open. A writer's journal: a
  // descriptor holding a shared lock on it while it is open (creation.cc), or -1.
  const char* dbName;
  uint64_t dev, ino;
  int journalLock;
  uint8_t* pending;  // gathered writes (null for files read only)
  sqlite3_int64 pendingAt;
  int pendingBytes;
  bool journal;
  bool headerZeroed;               // the last write of the header zeroed it
  uint8_t header[kJournalHeader];  // the header as last written with content
};

sqlite3_vfs* gReal = nullptr;
sqlite3_vfs gShim;

sqlite3_file* real(sqlite3_file* f) { return reinterpret_cast<ShimFile*>(f)->real; }

// Passes the gathered writes on; answers the write's code.
int flush(sqlite3_file* f) {
  auto* shim = reinterpret_cast<ShimFile*>(f);
  if (shim->pendingBytes == 0) return SQLITE_OK;
  int n = shim->pendingBytes;
  shim->pendingBytes = 0;
  // The system's layer takes at most 128 KiB a write (SQLite never writes more than a page).
  for (int done = 0; done < n; done += kMostPerWrite) {
    int part = n - done < kMostPerWrite ? n - done : kMostPerWrite;
    if (int r =
            real(f)->pMethods->xWrite(real(f), shim->pending + done, part, shim->pendingAt + done))
      return r;
  }
  return SQLITE_OK;
}

int shimClose(sqlite3_file* f) {
  delete reinterpret_cast<ShimFile*>(f)->view;
  if (reinterpret_cast<ShimFile*>(f)->journalLock >= 0)
    ::close(reinterpret_cast<ShimFile*>(f)->journalLock);
  int r = real(f)->pMethods ? flush(f) : SQLITE_OK;
  int c = real(f)->pMethods ? real(f)->pMethods->xClose(real(f)) : SQLITE_OK;
  sqlite3_free(real(f));
  sqlite3_free(reinterpret_cast<ShimFile*>(f)->pending);
  return r != SQLITE_OK ? r : c;
}
int shimRead(sqlite3_file* f, void* p, int n, sqlite3_int64 at) {
  if (int r = fault(SQLITE_IOERR_READ, false)) return r;
  if (int r = flush(f)) return r;
  if (JournalView* view = reinterpret_cast<ShimFile*>(f)->view)
    return view->read(real(f), p, n, at);
  return real(f)->pMethods->xRead(real(f), p, n, at);
}
// Follows the journal header through a write that was let through.
void followHeader(ShimFile* shim, const uint8_t* p, int n, sqlite3_int64 at) {
  if (!shim->journal || at >= kJournalHeader) return;
  static const uint8_t kZeros[kJournalHeader] = {};
  if (at == 0 && n == kJournalHeader && std::memcmp(p, kZeros, kJournalHeader) == 0) {
    shim->headerZeroed = true;
    return;
  }
  shim->headerZeroed = false;
  int from = int(at), to = std::min<sqlite3_int64>(at + n, kJournalHeader);
  std::memcpy(shim->header + from, p, size_t(to - from));
}

int shimWrite(sqlite3_file* f, const void* p, int n, sqlite3_int64 at) {
  if (int r = fault(SQLITE_IOERR_WRITE, true)) return r;
  faults().written += n;
  auto* shim = reinterpret_cast<ShimFile*>(f);
  followHeader(shim, static_cast<const uint8_t*>(p), n, at);
  if (shim->pending && n <= kGatherBuffer) {
    if (shim->pendingBytes > 0 &&
        (at != shim->pendingAt + shim->pendingBytes || shim->pendingBytes + n > kGatherBuffer)) {
      if (int r = flush(f)) return r;
    }
    if (shim->pendingBytes == 0) shim->pendingAt = at;
    std::memcpy(shim->pending + shim->pendingBytes, p, size_t(n));
    shim->pendingBytes += n;
    return SQLITE_OK;
  }
  if (int r = flush(f)) return r;
  return real(f)->pMethods->xWrite(real(f), p, n, at);
}
int shimTruncate(sqlite3_file* f, sqlite3_int64 size) {
  if (int r = fault(SQLITE_IOERR_TRUNCATE, false)) return r;
  if (int r = flush(f)) return r;
  return real(f)->pMethods->xTruncate(real(f), size);
}
int shimSync(sqlite3_file* f, int flags) {
  int r = fault(SQLITE_IOERR_FSYNC, false);
  if (!r) r = flush(f);
  if (!r) r = real(f)->pMethods->xSync(real(f), flags);
  auto* shim = reinterpret_cast<ShimFile*>(f);
  if (r && shim->headerZeroed) {
    // The commit's sync failed: make the journal hot again (see kJournalHeader), after the
    // zeroing write if it is still gathered.
    flush(f);
    real(f)->pMethods->xWrite(real(f), shim->header, kJournalHeader, 0);
  }
  // Once the cleared header is on the disk the save is durable: a later failing sync of the
  // journal must not bring the old pages back.
  shim->headerZeroed = false;
  return r;
}
int shimFileSize(sqlite3_file* f, sqlite3_int64* size) {
  if (int r = fault(SQLITE_IOERR_FSTAT, false)) return r;
  if (int r = flush(f)) return r;
  if (JournalView* view = reinterpret_cast<ShimFile*>(f)->view)
    return view->fileSize(real(f), size);
  return real(f)->pMethods->xFileSize(real(f), size);
}
// A reader's shared lock starts a read transaction: that is when SQLite looks for a hot journal,
// and when the view through one is taken. While the lock is held, no writer can roll the journal
// back nor start a save of its own (either needs the file to itself).
int shimLock(sqlite3_file* f, int l) {
  int r = real(f)->pMethods->xLock(real(f), l);
  auto* shim = reinterpret_cast<ShimFile*>(f);
  if (r || l != SQLITE_LOCK_SHARED || !shim->journalName || shim->view) return r;
  r = JournalView::open(gReal, shim->journalName, real(f), &shim->view);
  if (r) {
    real(f)->pMethods->xUnlock(real(f), SQLITE_LOCK_NONE);
    return r;
  }
  shim->viewed = shim->viewed || shim->view;
  return SQLITE_OK;
}
int shimUnlock(sqlite3_file* f, int l) {
  auto* shim = reinterpret_cast<ShimFile*>(f);
  if (l == SQLITE_LOCK_NONE) {
    delete shim->view;
    shim->view = nullptr;
  }
  if (int r = flush(f)) return r;
  return real(f)->pMethods->xUnlock(real(f), l);
}
int shimCheckReserved(sqlite3_file* f, int* out) {
  // Through a view the journal is read, not rolled back: to SQLite it belongs to a writer.
  if (reinterpret_cast<ShimFile*>(f)->view) {
    *out = 1;
    return SQLITE_OK;
  }
  return real(f)->pMethods->xCheckReservedLock(real(f), out);
}
int shimFileControl(sqlite3_file* f, int op, void* arg) {
  if (op == kFileControlViewed) {
    *static_cast<int*>(arg) = reinterpret_cast<ShimFile*>(f)->viewed;
    return SQLITE_OK;
  }
  if (int r = flush(f)) return r;
  return real(f)->pMethods->xFileControl(real(f), op, arg);
}
int shimSectorSize(sqlite3_file* f) { return real(f)->pMethods->xSectorSize(real(f)); }
int shimDeviceCharacteristics(sqlite3_file* f) {
  return real(f)->pMethods->xDeviceCharacteristics(real(f));
}

// A mapped read counts as a read: a test can fail it like any other. Shared memory is never
// offered (the store file uses a rollback journal).
int shimFetch(sqlite3_file* f, sqlite3_int64 at, int n, void** p) {
  *p = nullptr;
  if (int r = fault(SQLITE_IOERR_READ, false)) return r;
  if (reinterpret_cast<ShimFile*>(f)->view) return SQLITE_OK;  // pages come through xRead
  const sqlite3_io_methods* m = real(f)->pMethods;
  return m->iVersion >= 3 && m->xFetch ? m->xFetch(real(f), at, n, p) : SQLITE_OK;
}
int shimUnfetch(sqlite3_file* f, sqlite3_int64 at, void* p) {
  const sqlite3_io_methods* m = real(f)->pMethods;
  return m->iVersion >= 3 && m->xUnfetch ? m->xUnfetch(real(f), at, p) : SQLITE_OK;
}

const sqlite3_io_methods kShimMethods = {
    .iVersion = 3,
    .xClose = shimClose,
    .xRead = shimRead,
    .xWrite = shimWrite,
    .xTruncate = shimTruncate,
    .xSync = shimSync,
    .xFileSize = shimFileSize,
    .xLock = shimLock,
    .xUnlock = shimUnlock,
    .xCheckReservedLock = shimCheckReserved,
    .xFileControl = shimFileControl,
    .xSectorSize = shimSectorSize,
    .xDeviceCharacteristics = shimDeviceCharacteristics,
    .xShmMap = nullptr,
    .xShmLock = nullptr,
    .xShmBarrier = nullptr,
    .xShmUnmap = nullptr,
    .xFetch = shimFetch,
    .xUnfetch = shimUnfetch,
};

// A writer's journal goes by its database's path: it is opened only while that path still names
// the file the writer opened, and it is locked (shared) while open, so that a new file made at
// the path neither takes it for its own nor removes it under a save.
bool journalBesideItsFile(sqlite3_filename name) {
  auto* db = reinterpret_cast<ShimFile*>(sqlite3_database_file_object(name));
  if (!db || db->base.pMethods != &kShimMethods || !db->dbName) return true;
  struct stat st;
  return ::stat(db->dbName, &st) == 0 && uint64_t(st.st_dev) == db->dev &&
         uint64_t(st.st_ino) == db->ino;
}

int shimOpen(sqlite3_vfs*, sqlite3_filename name, sqlite3_file* f, int flags, int* outFlags) {
  auto* shim = reinterpret_cast<ShimFile*>(f);
  shim->base.pMethods = nullptr;
  shim->pending = nullptr;
  shim->pendingBytes = 0;
  shim->view = nullptr;
  shim->viewed = false;
  shim->journalName = (flags & SQLITE_OPEN_MAIN_DB) && (flags & SQLITE_OPEN_READONLY)
                          ? sqlite3_filename_journal(name)
                          : nullptr;
  shim->dbName = nullptr;
  shim->journalLock = -1;
  shim->journal = (flags & SQLITE_OPEN_MAIN_JOURNAL) != 0;
  bool writersJournal = shim->journal && (flags & SQLITE_OPEN_READWRITE);
  if (writersJournal && !journalBesideItsFile(name)) return SQLITE_CANTOPEN;
  shim->headerZeroed = false;
  std::memset(shim->header, 0, sizeof shim->header);
  shim->real = static_cast<sqlite3_file*>(sqlite3_malloc(gReal->szOsFile));
  if (!shim->real) return SQLITE_NOMEM;
  shim->real->pMethods = nullptr;
  int r = gReal->xOpen(gReal, name, shim->real, flags, outFlags);
  if (r == SQLITE_OK && writersJournal) {
    shim->journalLock = ::open(name, O_RDONLY | O_CLOEXEC);
    if (shim->journalLock >= 0 && ::flock(shim->journalLock, LOCK_SH | LOCK_NB) != 0) {
      ::close(shim->journalLock);  // a new file at the path is removing it
      shim->journalLock = -1;
      r = SQLITE_CANTOPEN;
    }
  }
  if (r != SQLITE_OK) {
    if (shim->real->pMethods) shim->real->pMethods->xClose(shim->real);
    sqlite3_free(shim->real);
    return r;
  }
  struct stat st;
  if ((flags & SQLITE_OPEN_MAIN_DB) && (flags & SQLITE_OPEN_READWRITE) && name &&
      ::stat(name, &st) == 0) {
    shim->dbName = name;
    shim->dev = uint64_t(st.st_dev);
    shim->ino = uint64_t(st.st_ino);
  }
  // Without the memory the file is simply written as SQLite writes it.
  if ((flags & (SQLITE_OPEN_MAIN_JOURNAL | SQLITE_OPEN_MAIN_DB)) && (flags & SQLITE_OPEN_READWRITE))
    shim->pending = static_cast<uint8_t*>(sqlite3_malloc(kGatherBuffer));
  shim->base.pMethods = &kShimMethods;
  return SQLITE_OK;
}

int shimDelete(sqlite3_vfs*, const char* name, int syncDir) {
  return gReal->xDelete(gReal, name, syncDir);
}
int shimAccess(sqlite3_vfs*, const char* name, int flags, int* out) {
  return gReal->xAccess(gReal, name, flags, out);
}
int shimFullPathname(sqlite3_vfs*, const char* name, int n, char* out) {
  return gReal->xFullPathname(gReal, name, n, out);
}
void* shimDlOpen(sqlite3_vfs*, const char* name) { return gReal->xDlOpen(gReal, name); }
void shimDlError(sqlite3_vfs*, int n, char* out) { gReal->xDlError(gReal, n, out); }
void (*shimDlSym(sqlite3_vfs*, void* lib, const char* sym))(void) {
  return gReal->xDlSym(gReal, lib, sym);
}
void shimDlClose(sqlite3_vfs*, void* lib) { gReal->xDlClose(gReal, lib); }
int shimRandomness(sqlite3_vfs*, int n, char* out) { return gReal->xRandomness(gReal, n, out); }
int shimSleep(sqlite3_vfs*, int us) { return gReal->xSleep(gReal, us); }
int shimCurrentTime(sqlite3_vfs*, double* t) { return gReal->xCurrentTime(gReal, t); }
int shimGetLastError(sqlite3_vfs*, int n, char* out) {
  return gReal->xGetLastError ? gReal->xGetLastError(gReal, n, out) : 0;
}
int shimCurrentTimeInt64(sqlite3_vfs*, sqlite3_int64* t) {
  return gReal->xCurrentTimeInt64(gReal, t);
}

}  // namespace

int countedCall(int ioerr, bool isWrite) { return fault(ioerr, isWrite); }

void IoFaults::failAt(int64_t n, IoFaultKind kind, bool sticky) {
  FaultState& f = faults();
  f.failAt = n;
  f.kind = kind;
  f.sticky = sticky;
  f.calls = 0;
  f.failed = 0;
  f.written = 0;
}

int64_t IoFaults::calls() { return faults().calls; }
int64_t IoFaults::failed() { return faults().failed; }
int64_t IoFaults::bytesWritten() { return faults().written; }

const char* storeVfsName() {
  static std::once_flag once;
  std::call_once(once, [] {
    gReal = sqlite3_vfs_find(nullptr);
    gShim = sqlite3_vfs{};
    gShim.iVersion = 2;
    gShim.szOsFile = int(sizeof(ShimFile));
    gShim.mxPathname = gReal->mxPathname;
    gShim.zName = "zove-store";
    gShim.xOpen = shimOpen;
    gShim.xDelete = shimDelete;
    gShim.xAccess = shimAccess;
    gShim.xFullPathname = shimFullPathname;
    gShim.xDlOpen = shimDlOpen;
    gShim.xDlError = shimDlError;
    gShim.xDlSym = shimDlSym;
    gShim.xDlClose = shimDlClose;
    gShim.xRandomness = shimRandomness;
    gShim.xSleep = shimSleep;
    gShim.xCurrentTime = shimCurrentTime;
    gShim.xGetLastError = shimGetLastError;
    gShim.xCurrentTimeInt64 = shimCurrentTimeInt64;
    sqlite3_vfs_register(&gShim, 0);
  });
  return "zove-store";
}

}  // namespace storefile

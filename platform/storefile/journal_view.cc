// Reading a hot journal as its rollback would (see journal_view.h).
#include "platform/storefile/journal_view.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace storefile {

namespace {

constexpr uint8_t kMagic[8] = {0xd9, 0xd5, 0x05, 0xf9, 0x20, 0xa1, 0x63, 0xd7};
constexpr int kHeaderBytes = 28;
constexpr int64_t kLockByte = 0x40000000;  // the page holding it is never a database page

uint32_t bigEndian(const uint8_t* p) {
  return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

bool powerOfTwoIn(uint32_t v, uint32_t low, uint32_t high) {
  return v >= low && v <= high && (v & (v - 1)) == 0;
}

// A counted read of the journal or the file.
int readCounted(sqlite3_file* f, void* p, int n, sqlite3_int64 at) {
  if (int r = countedCall(SQLITE_IOERR_READ, false)) return r;
  return f->pMethods->xRead(f, p, n, at);
}

}  // namespace

int JournalView::open(sqlite3_vfs* vfs, const char* journalName, sqlite3_file* db,
                      JournalView** out) {
  *out = nullptr;
  int exists = 0;
  if (int r = vfs->xAccess(vfs, journalName, SQLITE_ACCESS_EXISTS, &exists); r || !exists) return r;
  int reserved = 0;
  if (int r = db->pMethods->xCheckReservedLock(db, &reserved); r || reserved) return r;
  auto* view = new JournalView;
  view->journal_ = static_cast<sqlite3_file*>(sqlite3_malloc(vfs->szOsFile));
  if (!view->journal_) {
    delete view;
    return SQLITE_NOMEM;
  }
  view->journal_->pMethods = nullptr;
  int flags = SQLITE_OPEN_READONLY | SQLITE_OPEN_MAIN_JOURNAL;
  // A journal this user cannot open is left to SQLite, which reports it.
  if (vfs->xOpen(vfs, journalName, view->journal_, flags, &flags) != SQLITE_OK) {
    delete view;
    return SQLITE_OK;
  }
  sqlite3_int64 bytes = 0;
  int r = countedCall(SQLITE_IOERR_FSTAT, false);
  if (!r) r = view->journal_->pMethods->xFileSize(view->journal_, &bytes);
  uint8_t first = 0;
  if (!r && bytes > 0) r = readCounted(view->journal_, &first, 1, 0);
  if (!r && first != 0) r = view->parse(db, bytes);
  if (r || first == 0) {
    delete view;
    return r;
  }
  *out = view;
  return SQLITE_OK;
}

JournalView::~JournalView() {
  if (journal_ && journal_->pMethods) journal_->pMethods->xClose(journal_);
  sqlite3_free(journal_);
}

int JournalView::parse(sqlite3_file* db, sqlite3_int64 journalBytes) {
  uint8_t head[kHeaderBytes];
  if (journalBytes < kHeaderBytes) return SQLITE_OK;  // no header: nothing to roll back
  if (int r = readCounted(journal_, head, kHeaderBytes, 0)) return r;
  uint32_t sector = bigEndian(head + 20), pageSize = bigEndian(head + 24);
  if (pageSize == 0) {  // journals of old writers: the file's own page size
    uint8_t field[2];
    if (int r = readCounted(db, field, 2, 16)) return r;
    pageSize = field[0] << 8 | field[1];
    if (pageSize == 1) pageSize = 65536;
  }
  if (std::memcmp(head, kMagic, 8) != 0 || !powerOfTwoIn(sector, 32, 65536) ||
      !powerOfTwoIn(pageSize, 512, 65536))
    return SQLITE_OK;
  pageSize_ = pageSize;
  uint32_t oldPages = bigEndian(head + 16);
  dbBytes_ = int64_t(oldPages) * pageSize_;
  const uint32_t lockPage = uint32_t(kLockByte / pageSize_ + 1);
  const int64_t recordBytes = pageSize_ + 8;
  std::vector<uint8_t> page(size_t(pageSize_) + 8);
  int64_t at = 0;  // the header being read
  for (bool firstPart = true;; firstPart = false) {
    if (!firstPart) {
      at = (at + sector - 1) / sector * sector;
      if (at + sector > journalBytes) return SQLITE_OK;
      if (int r = readCounted(journal_, head, kHeaderBytes, at)) return r;
      if (std::memcmp(head, kMagic, 8) != 0) return SQLITE_OK;
    }
    uint32_t records = bigEndian(head + 8), seed = bigEndian(head + 12);
    at += sector;
    if (records == 0xffffffffu) records = uint32_t((journalBytes - at) / recordBytes);
    for (uint32_t i = 0; i < records; ++i, at += recordBytes) {
      if (at + recordBytes > journalBytes) return SQLITE_OK;  // cut short: nothing more
      if (int r = readCounted(journal_, page.data(), int(recordBytes), at)) return r;
      uint32_t number = bigEndian(page.data());
      if (number == 0 || number == lockPage) return SQLITE_OK;
      if (number > oldPages) continue;
      uint32_t sum = seed;
      for (int64_t k = pageSize_ - 200; k > 0; k -= 200) sum += page[size_t(4 + k)];
      if (sum != bigEndian(page.data() + 4 + pageSize_)) return SQLITE_OK;
      originals_[number] = at + 4;
    }
  }
}

int JournalView::read(sqlite3_file* db, void* p, int n, sqlite3_int64 at) {
  auto* out = static_cast<uint8_t*>(p);
  bool shortRead = false;
  while (n > 0) {
    int part = n;
    const int64_t* original = nullptr;
    if (pageSize_ > 0) {
      int64_t inPage = at % pageSize_;
      part = int(std::min<int64_t>(n, pageSize_ - inPage));
      auto o = originals_.find(uint32_t(at / pageSize_ + 1));
      if (o != originals_.end()) original = &o->second;
    }
    if (dbBytes_ >= 0 && at + part > dbBytes_) {
      // Past the old end: the rollback cuts the file there.
      int64_t keep = std::max<int64_t>(0, dbBytes_ - at);
      std::memset(out + keep, 0, size_t(part - keep));
      shortRead = true;
      part = int(keep);
      if (part == 0) break;
    }
    int r = original ? readCounted(journal_, out, part, *original + at % pageSize_)
                     : db->pMethods->xRead(db, out, part, at);
    if (r == SQLITE_IOERR_SHORT_READ) {
      shortRead = true;
    } else if (r) {
      return r;
    }
    out += part;
    at += part;
    n -= part;
  }
  if (n > 0) std::memset(out, 0, size_t(n));
  return shortRead ? SQLITE_IOERR_SHORT_READ : SQLITE_OK;
}

int JournalView::fileSize(sqlite3_file* db, sqlite3_int64* size) const {
  if (dbBytes_ >= 0) {
    *size = dbBytes_;
    return SQLITE_OK;
  }
  return db->pMethods->xFileSize(db, size);
}

}  // namespace storefile

// Making a new store file: under a temporary name, without a journal, named only once whole.
//
// The temporary name is `<path>.new-` and six random letters or digits: a name from the process id
// would, after a crash, block the path for the next process that got the same id. Temporary
// files that a crash left behind are removed by the next creation at the same path: a creator
// holds the writer lock on its file until it is named, so an unlocked one that has not been
// written for a minute has no creator any more.
//
// A journal at the path when the file is named belongs to a file that was there before. One that
// a live writer of that file has open (its save is under way: the file layer holds a shared lock
// on a writer's journal for as long as it is open) makes the creation wait for that writer:
// -1114. Any other is removed, so that the first writer does not roll another store's pages into
// this one. Such a writer cannot start another save afterwards: a save first checks that its path
// still names its file.
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>

#include "platform/storefile/database.h"
#include "platform/storefile/vhd.h"
#include "platform/zelkor/log.h"

namespace storefile {

using namespace zelkor;

namespace {

const char* const kSchema =
    "CREATE TABLE head (k INTEGER PRIMARY KEY, body BLOB NOT NULL);"
    "CREATE TABLE seg (id INTEGER PRIMARY KEY, body BLOB NOT NULL);"
    "CREATE TABLE rec (key INTEGER PRIMARY KEY, size INTEGER NOT NULL, sum INTEGER NOT NULL,"
    " body BLOB NOT NULL);";

constexpr time_t kStaleAfterSeconds = 60;

std::string folderOf(const std::string& path) {
  size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

// Removes the temporary files of earlier creations at path whose creator is gone.
void removeStaleTemporaries(const std::string& path) {
  std::string folder = folderOf(path);
  std::string prefix = path.substr(path.find_last_of('/') + 1) + ".new-";
  DIR* dir = ::opendir(folder.c_str());
  if (!dir) return;
  time_t now = ::time(nullptr);
  while (const dirent* e = ::readdir(dir)) {
    if (std::strncmp(e->d_name, prefix.c_str(), prefix.size()) != 0) continue;
    std::string name = (folder == "." ? "" : folder) + e->d_name;
    int fd = ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) continue;
    struct stat st;
    if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && now - st.st_mtime > kStaleAfterSeconds &&
        ::flock(fd, LOCK_EX | LOCK_NB) == 0)
      ::unlink(name.c_str());
    ::close(fd);  // drops the lock taken for the test
  }
  ::closedir(dir);
}

}  // namespace

int32_t StoreDb::create(const std::string& path, int32_t version) {
  close();
  readOnly_ = false;
  struct stat st;
  if (::stat(path.c_str(), &st) == 0) {
    DebugLogf(kVhdLogLevel, "vhdCreate: %s: the file exists", path.c_str());
    return kVhdNoFile;
  }
  removeStaleTemporaries(path);
  int fd = -1;
  std::random_device random;
  for (int attempt = 0; fd < 0 && attempt < 100; ++attempt) {
    static const char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    path_ = path + ".new-";
    for (int i = 0; i < 6; ++i) path_ += kLetters[random() % 36];
    fd = ::open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0 && errno != EEXIST) break;
  }
  if (fd < 0) {
    int e = errno;
    DebugLogf(kVhdLogLevel, "vhdCreate: %s: can't make a file in its folder: %s", path.c_str(),
              strerror(e));
    return e == ENOENT || e == ENOTDIR ? kVhdNoFile : e == EACCES ? kVhdReadOnly : kVhdIoError;
  }
  finalPath_ = path;
  if (int32_t r = lockForWriting(fd)) {
    close();
    return r;
  }
  Head h;
  h.version = version;
  std::vector<uint8_t> body = encodeHead(h);
  int32_t r = openDatabase(true);
  if (!r) {
    std::string setup = "PRAGMA application_id=" + std::to_string(kApplicationId) +
                        "; PRAGMA user_version=" + std::to_string(kFormat) + "; BEGIN;" + kSchema;
    r = exec(setup.c_str(), "vhdCreate");
  }
  sqlite3_stmt* stmt = nullptr;
  if (!r && !prepare(&stmt, "INSERT INTO head VALUES (1, ?)"))
    r = fail(sqlite3_errcode(db_), "vhdCreate");
  if (!r) {
    sqlite3_bind_blob(stmt, 1, body.data(), int(body.size()), SQLITE_STATIC);
    int rc = sqlite3_step(stmt);
    if (rc != SQLITE_DONE) r = fail(rc, "vhdCreate");
  }
  sqlite3_finalize(stmt);
  if (!r) r = exec("COMMIT;", "vhdCreate");
  if (r) {
    close();
    return r;
  }
  head_ = h;
  return 0;
}

// The journal at the final path, if any, locked against its writers: answers 0 with *lockFd the
// locked descriptor (-1 when there is no journal), or kVhdBusy when a writer has it open.
int32_t StoreDb::journalFree(int* lockFd) {
  std::string journal = finalPath_ + "-journal";
  *lockFd = ::open(journal.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (*lockFd < 0) return 0;
  if (::flock(*lockFd, LOCK_EX | LOCK_NB) == 0) return 0;
  ::close(*lockFd);
  *lockFd = -1;
  DebugLogf(kVhdLogLevel,
            "vhdCreate: %s: the journal %s is open in a save of a file that was at this path; "
            "try again once that writer has finished",
            finalPath_.c_str(), journal.c_str());
  return kVhdBusy;
}

int32_t StoreDb::publish() {
  if (finalPath_.empty()) return 0;
  closeDatabase();
  int journalLock = -1;
  int32_t r = journalFree(&journalLock);
  // link refuses to replace a file that appeared meanwhile; the lock and the inode stay.
  if (!r && ::link(path_.c_str(), finalPath_.c_str()) != 0) {
    int e = errno;
    DebugLogf(kVhdLogLevel, "vhdCreate: %s: %s", finalPath_.c_str(), strerror(e));
    r = e == EEXIST ? kVhdNoFile : kVhdIoError;
  }
  if (r) {
    if (journalLock >= 0) ::close(journalLock);
    close();
    return r;
  }
  ::unlink(path_.c_str());
  path_ = finalPath_;
  finalPath_.clear();
  // A journal left at this path belongs to no database now (the link found none): were it hot,
  // the first writer would roll another store's pages into this one.
  if (journalLock >= 0) {
    ::unlink((path_ + "-journal").c_str());
    ::close(journalLock);
  }
  int dir = ::open(folderOf(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir < 0 || ::fsync(dir) != 0) r = kVhdIoError;
  if (dir >= 0) ::close(dir);
  if (r) DebugLogf(kVhdLogLevel, "vhdCreate: %s: can't sync its folder", path_.c_str());
  if (!r) r = openDatabase(false);
  if (!r) r = readHead(&head_, "vhdCreate");
  if (r) {
    // A creation that answers a code leaves no file, even a complete one: the caller may try
    // again at the same path.
    ::unlink(path_.c_str());
    close();
  }
  return r;
}

}  // namespace storefile

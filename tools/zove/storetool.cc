#include "tools/zove/storetool.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <deque>

#include "platform/storefile/vhd.h"
#include "platform/zelkor/codes.h"
#include "platform/zelkor/zelkor.h"
#include "zove/dl.h"

namespace zove::cli {

using zelkor::fc;

StoreFile::~StoreFile() {
  if (store_ && zelkor::isLiveObject(store_)) zelkor::send(store_, kDspo);
}

void StoreFile::fail(const std::string& what) const {
  endProgress();
  std::fprintf(stderr, "zove %s: %s: %s\n", command_, path_.c_str(), what.c_str());
}

bool StoreFile::open(bool writable) {
  Word cls = zelkor::ZelkorLookup(kZoveSig);
  if (!cls) {
    fail("the module has no store class '@zov'");
    return false;
  }
  store_ = zelkor::send(cls, zelkor::kNew_);
  zelkor::send(store_, kSetu);
  int32_t rc = storefile::vhdOpenFile(
      store_, path_,
      writable ? storefile::VhdOpenMode::kReadWrite : storefile::VhdOpenMode::kReadOnly);
  if (rc == 0) rc = zelkor::i32(zelkor::send(store_, storefile::kHGtH, &space_));
  if (rc == 0 && !space_) rc = storefile::kVhdNoValue;
  if (rc != 0) {
    // The system's own reason, where it has one, says more than the code.
    std::string problem =
        rc == storefile::kVhdNoFile || rc == storefile::kVhdReadOnly || rc == storefile::kVhdIoError
            ? pathProblem(path_, writable ? PathUse::kWrite : PathUse::kRead)
            : "";
    fail(problem.empty() ? zelkor::codeText(rc) : problem);
    printLog(stderr, takeLog());
    return false;
  }
  return true;
}

bool StoreFile::storedVersion(int32_t* version) const {
  DLView root;
  if (!space_ || dlOpen(space_, kRootDL, &root) != 0 || root.head->dataSize < kRootDataBytes)
    return false;
  int16_t v;
  std::memcpy(&v, root.base + kVersionOffset, 2);
  *version = v;
  return true;
}

bool StoreFile::install(int32_t version) {
  if (version == kStoredVersion && !storedVersion(&version)) version = 0;
  int32_t rc = zelkor::i32(zelkor::send(store_, kTSIn, kToolChannel, version));
  if (rc != 0) {
    fail("install refused, " + zelkor::codeText(rc) + "; the log said:");
    printLog(stderr, takeLog());
    return false;
  }
  return true;
}

Word StoreFile::recordFile() const { return zelkor::send(store_, storefile::kHGtF); }

std::string pathProblem(const std::string& path, PathUse use) {
  size_t slash = path.find_last_of('/');
  std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) {
    int e = errno;
    struct stat dir;
    if (e == ENOENT && ::stat(folder.c_str(), &dir) != 0) return "no such folder: " + folder;
    if (e == ENOENT && !S_ISDIR(dir.st_mode)) return folder + " is not a folder";
    if (e == ENOTDIR) return "a part of the path is not a folder";
    if (e == EACCES) return "permission denied: this user may not look into a folder of the path";
    if (e != ENOENT) return std::strerror(e);
    if (use != PathUse::kNew) return "no such file";
    if (::access(folder.c_str(), W_OK | X_OK) != 0)
      return "permission denied: this user may not make files in " + folder;
    return "";
  }
  if (use == PathUse::kNew) return S_ISDIR(st.st_mode) ? "is a folder" : "exists already";
  if (S_ISDIR(st.st_mode)) return "is a folder, not a file";
  if (!S_ISREG(st.st_mode)) return "is not a regular file (a device, a pipe or a socket)";
  if (::access(path.c_str(), use == PathUse::kWrite ? R_OK | W_OK : R_OK) != 0)
    return use == PathUse::kWrite ? "permission denied: this user may not write it"
                                  : "permission denied: this user may not read it";
  return "";
}

void printLog(FILE* out, const std::vector<zelkor::LogEntry>& lines) {
  for (const zelkor::LogEntry& e : lines) std::fprintf(out, "  %d %s\n", e.level, e.text.c_str());
}

bool parseInt(const char* text, int32_t* out) {
  if (!text || !*text) return false;
  char* end = nullptr;
  long long v = std::strtoll(text, &end, 0);
  if (*end || v < INT32_MIN || v > int64_t(UINT32_MAX)) return false;
  *out = int32_t(v);
  return true;
}

std::string fourccName(uint32_t code) {
  if (isPrintableCode(code)) return std::string("'").append(zelkor::fcString(code)).append("'");
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%08x", code);
  return buf;
}

std::string kindName(uint32_t type) {
  if (const char* name = itemTypeName(type)) return name;
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%08x", type);
  return buf;
}

std::string jsonString(std::string_view text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += char(c);
    } else if (c < 0x20) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", c);
      out += buf;
    } else {
      out += char(c);
    }
  }
  return out + "\"";
}

namespace {
Progress* gDrawing = nullptr;  // the progress that may have a line on the terminal
}  // namespace

Progress::Progress(const char* what, bool alongOutput)
    : what_(what), tty_(isatty(2) && (alongOutput || !isatty(1))) {
  if (tty_) gDrawing = this;
}

Progress::~Progress() { done(); }

void Progress::done() {
  if (drawn_) {
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
  }
  drawn_ = false;
  tty_ = false;
  if (gDrawing == this) gDrawing = nullptr;
}

void endProgress() {
  if (gDrawing) gDrawing->done();
}

void Progress::phase(const char* what) {
  what_ = what;
  lastDraw_ = 0;
  step(0, 0);
}

void Progress::step(int64_t done, int64_t total) {
  if (!tty_) return;
  int64_t now = std::chrono::duration_cast<std::chrono::milliseconds>(
                    std::chrono::steady_clock::now().time_since_epoch())
                    .count();
  if (drawn_ && now - lastDraw_ < 100 && done != total) return;
  lastDraw_ = now;
  drawn_ = true;
  if (total > 0)
    std::fprintf(stderr, "\r\033[K%s: %lld/%lld", what_, (long long)done, (long long)total);
  else
    std::fprintf(stderr, "\r\033[K%s...", what_);
  std::fflush(stderr);
}

}  // namespace zove::cli

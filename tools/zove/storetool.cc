#include "tools/zove/storetool.h"

#include <unistd.h>

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
    fail(zelkor::codeText(rc));
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
    fail("install refused (" + std::to_string(rc) + "); the log said:");
    printLog(stderr, takeLog());
    return false;
  }
  return true;
}

Word StoreFile::recordFile() const { return zelkor::send(store_, storefile::kHGtF); }

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

Progress::Progress(const char* what, bool alongOutput)
    : what_(what), tty_(isatty(2) && (alongOutput || !isatty(1))) {}

Progress::~Progress() {
  if (drawn_) std::fprintf(stderr, "\r\033[K");
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

// What the store subcommands share: opening a store file into a store object, installing it,
// reading its raw DLs, reporting the log, and progress on a terminal.
//
// The subcommands speak to the store with selectors, as any host does. To show a file as it lies
// (dump, graph, stat) they also read the element space the value-handle base hands out (HGtH)
// through the DL layout of include/zove/dl.h, and never write it.
#pragma once

#include <climits>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "platform/fundra/space.h"
#include "platform/zelkor/log.h"
#include "platform/zelkor/word.h"

namespace zove::cli {

using zelkor::Word;

// The channel the tools install stores on: no controller listens there.
constexpr zelkor::FourCC kToolChannel = zelkor::fc("zcli");

// A store object bound to one file, disposed of when this goes out of scope (unsaved changes are
// dropped: a command saves with HChg first when it means to).
class StoreFile {
 public:
  StoreFile(const char* command, std::string path) : command_(command), path_(std::move(path)) {}
  ~StoreFile();
  StoreFile(const StoreFile&) = delete;
  StoreFile& operator=(const StoreFile&) = delete;

  // Binds a new store to the file and loads its element space. Prints the reason and answers
  // false when the file is missing, not a store file, damaged or locked.
  bool open(bool writable);
  // Installs the store with the version (kStoredVersion: the one its root holds). Prints the
  // log lines and answers false when the install is refused.
  static constexpr int32_t kStoredVersion = INT32_MIN;
  bool install(int32_t version = kStoredVersion);

  Word store() const { return store_; }
  fundra::ElementSpace* space() const { return space_; }
  const std::string& path() const { return path_; }
  // The version in the root DL, or false when the root cannot be read.
  bool storedVersion(int32_t* version) const;
  // The record file object (0 when the store has none).
  Word recordFile() const;
  // Prints "zove COMMAND: PATH: what" on stderr.
  void fail(const std::string& what) const;
  // The lines logged since open (or the last call), for commands that report them.
  std::vector<zelkor::LogEntry> takeLog() { return log_.take(); }

 private:
  const char* command_;
  std::string path_;
  Word store_ = 0;
  fundra::ElementSpace* space_ = nullptr;
  zelkor::LogCapture log_;
};

// Prints log lines, each as "  LEVEL text".
void printLog(FILE* out, const std::vector<zelkor::LogEntry>& lines);

// What a command needs a path to be.
enum class PathUse {
  kRead,   // a file to read
  kWrite,  // a file to read and write in place (a store opened for writing)
  kNew,    // a file to make: it must not exist, and its folder must take it
};
// Why the path cannot serve, in words: "no such file", "no such folder: DIR", "is a folder, not
// a file", "is not a regular file", "permission denied: ...", "exists already"; "" when nothing
// the system can tell stands in the way.
std::string pathProblem(const std::string& path, PathUse use);

// Parses a whole decimal (or 0x hexadecimal) 32-bit integer.
bool parseInt(const char* text, int32_t* out);

// 'abcd' when the four bytes are printable, else 0x%08x.
std::string fourccName(uint32_t code);
// "blob", "handle", "part link", "list", "weak list", "weak handle", "immediate", "vhandle", or
// the type in hexadecimal.
std::string kindName(uint32_t type);
// The text as a JSON string: quotes and backslashes escaped, control bytes as \u00XX, other
// bytes as they are.
std::string jsonString(std::string_view text);

// Progress of a long operation, shown on stderr only when it is a terminal: "what: done/total",
// redrawn at most ten times a second and erased when the operation ends. A command that prints
// as it goes passes alongOutput = false: its progress shows only while stdout goes elsewhere.
// Anything a command prints comes after done() (a failure printed through StoreFile::fail ends
// the progress itself), so no result is glued to a progress line.
class Progress {
 public:
  explicit Progress(const char* what, bool alongOutput = true);
  ~Progress();
  void step(int64_t done, int64_t total);
  void phase(const char* what);
  // Erases the line and draws no more.
  void done();

 private:
  const char* what_;
  bool tty_;
  int64_t lastDraw_ = 0;
  bool drawn_ = false;
};
// Ends the progress being drawn, if any (before a message is printed).
void endProgress();

}  // namespace zove::cli

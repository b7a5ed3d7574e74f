// zove export FILE DL OUT and zove import FILE DL IN: a DL's structure as an exchange stream
// (TSEx/TSIm), written to or read from a file of its own.
//
// Neither destroys what it is given. Export refuses to write over the store file or one of its
// side files, and over any file unless forced; it writes a temporary file beside OUT and renames
// it, so OUT is either as it was or the whole stream. Import checks what IN is before it reads,
// reads the stream's header first, and reads no more than the file (or, from a pipe, the
// records' byte counts) holds.

#include "zove/exchange.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "platform/fundra/memory.h"
#include "platform/fundra/persist.h"
#include "platform/zelkor/codes.h"
#include "platform/zelkor/zelkor.h"
#include "tools/zove/commands.h"
#include "tools/zove/storetool.h"
#include "zove/dl.h"
#include "zove/store.h"

namespace zove::cli {

namespace {

using zelkor::fc;

bool parseDL(const char* command, const char* text, int32_t* dl) {
  if (parseInt(text, dl) && *dl > 0) return true;
  std::fprintf(stderr, "zove %s: '%s' is not a DL number\n", command, text);
  return false;
}

// The DL must be a DL of the store: TSDT answers its uType, which is never 0 for a DL.
bool isDL(StoreFile& f, int32_t dl) {
  if (f.space()->LmTest(dl) == 0 && zelkor::send(f.store(), kTSDT, dl) != 0) return true;
  f.fail("DL " + std::to_string(dl) + " is not a DL of this store");
  return false;
}

// Whether out is the store file or one the store file keeps beside it (its journal, a
// temporary file of its creation), by name or as another link to the same file.
bool isStoreSideFile(const std::string& store, const std::string& out) {
  namespace fs = std::filesystem;
  std::error_code ec;
  fs::path a = fs::weakly_canonical(store, ec), b = fs::weakly_canonical(out, ec);
  std::string s = a.string(), o = b.string();
  for (const char* side : {"", "-journal", "-wal", "-shm"})
    if (o == s + side) return true;
  if (o.rfind(s + ".new-", 0) == 0) return true;
  struct stat so, st;
  if (::stat(out.c_str(), &so) != 0) return false;
  for (const char* side : {"", "-journal"})
    if (::stat((store + side).c_str(), &st) == 0 && st.st_dev == so.st_dev &&
        st.st_ino == so.st_ino)
      return true;
  return false;
}

// Writes the bytes to a new file beside path, syncs it and renames it over path. Answers "" or
// what went wrong; a failure leaves path as it was and no temporary file.
std::string writeWhole(const std::string& path, const uint8_t* bytes, size_t size) {
  std::random_device random;
  std::string temp;
  int fd = -1;
  for (int attempt = 0; fd < 0 && attempt < 100; ++attempt) {
    temp = path + ".tmp-" + std::to_string(random() % 1000000);
    fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0 && errno != EEXIST) break;
  }
  if (fd < 0) return std::string("can't make a file beside it: ") + std::strerror(errno);
  std::string why;
  for (size_t done = 0; why.empty() && done < size;) {
    ssize_t n = ::write(fd, bytes + done, size - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) why = std::string("can't write: ") + std::strerror(n < 0 ? errno : ENOSPC);
    if (n > 0) done += size_t(n);
  }
  if (why.empty() && ::fsync(fd) != 0) why = std::string("can't sync: ") + std::strerror(errno);
  if (::close(fd) != 0 && why.empty()) why = std::string("can't write: ") + std::strerror(errno);
  if (why.empty() && ::rename(temp.c_str(), path.c_str()) != 0)
    why = std::string("can't rename the new file to it: ") + std::strerror(errno);
  if (!why.empty()) ::unlink(temp.c_str());
  return why;
}

// Reads an exchange stream from path into stream, header first. Answers "" or why not.
std::string readStream(const std::string& path, fundra::TMemory* stream) {
  struct stat st;
  bool pipe = ::stat(path.c_str(), &st) == 0 && S_ISFIFO(st.st_mode);
  if (!pipe) {
    std::string problem = pathProblem(path, PathUse::kRead);
    if (!problem.empty()) return problem;
  }
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::strerror(errno);
  auto readFully = [fd](uint8_t* to, size_t n) {
    size_t done = 0;
    while (done < n) {
      ssize_t r = ::read(fd, to + done, n - done);
      if (r < 0 && errno == EINTR) continue;
      if (r <= 0) break;
      done += size_t(r);
    }
    return done;
  };
  std::vector<uint8_t> bytes(static_cast<size_t>(fundra::kPersistBytes));
  std::string why;
  if (readFully(bytes.data(), bytes.size()) != bytes.size()) {
    why = "too short for the header of an exchange stream";
  } else if (int32_t r = fundra::_checkpersist(bytes.data(), kExchangeTag, kExchangeVersion,
                                               kExchangeVersion)) {
    why = "not an exchange stream: " + zelkor::codeText(r);
  } else if (!pipe) {
    // The file says how much there is: no more is read, whatever it turns out to hold.
    if (st.st_size > INT32_MAX) {
      why = "too large for an exchange stream";
    } else {
      bytes.resize(size_t(st.st_size));
      if (readFully(bytes.data() + fundra::kPersistBytes, bytes.size() - fundra::kPersistBytes) !=
          bytes.size() - fundra::kPersistBytes)
        why = "shorter than its size said while it was read";
    }
  } else {
    // From a pipe, record by record: each byte count says how much follows.
    uint8_t count[4];
    size_t got;
    while (why.empty() && (got = readFully(count, 4)) == 4) {
      uint32_t n;
      std::memcpy(&n, count, 4);
      if (n > uint32_t(INT32_MAX) - bytes.size() - 4) {
        why = "a record's byte count (" + std::to_string(n) + ") makes it too large";
        break;
      }
      size_t at = bytes.size();
      bytes.resize(at + 4 + n);
      std::memcpy(bytes.data() + at, count, 4);
      if (readFully(bytes.data() + at + 4, n) != n) bytes.resize(at + 4);  // the import says so
    }
  }
  ::close(fd);
  if (why.empty() && stream->SetSize(int32_t(bytes.size())) != 0) why = "no memory for it";
  if (why.empty()) std::memcpy(stream->MemPtr(), bytes.data(), bytes.size());
  return why;
}

}  // namespace

int cmdExport(int argc, char** argv) {
  std::vector<const char*> args;
  bool force = false;
  for (int i = 0; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--force"))
      force = true;
    else
      args.push_back(argv[i]);
  }
  int32_t dl = 0;
  if (args.size() != 3) {
    std::fprintf(stderr, "usage: zove export FILE DL OUT [--force]\n");
    return 2;
  }
  if (!parseDL("export", args[1], &dl)) return 2;
  const std::string out = args[2];
  if (isStoreSideFile(args[0], out)) {
    std::fprintf(stderr,
                 "zove export: %s is the store file or one it keeps beside it; give another "
                 "file\n",
                 out.c_str());
    return 1;
  }
  std::string problem = pathProblem(out, PathUse::kNew);
  if (problem == "exists already" && force) problem = pathProblem(out, PathUse::kWrite);
  if (problem == "exists already") problem += "; --force replaces it";
  if (!problem.empty()) {
    std::fprintf(stderr, "zove export: %s: %s\n", out.c_str(), problem.c_str());
    return 1;
  }
  StoreFile f("export", args[0]);
  if (!f.open(false) || !f.install() || !isDL(f, dl)) return 1;
  // A stream carries parts of objects: the objects themselves stay where they are shared.
  if (zelkor::send(f.store(), kTSTS, dl) == 1) {
    f.fail("DL " + std::to_string(dl) + " is a shared DL (a stored object); export a DL it holds");
    return 1;
  }
  fundra::TMemory stream;
  int32_t rc = zelkor::i32(zelkor::send(f.store(), kTSEx, dl, &stream));
  if (rc != 0) {
    f.fail("exporting DL " + std::to_string(dl) + " failed, " + zelkor::codeText(rc));
    printLog(stderr, f.takeLog());
    return 1;
  }
  problem = writeWhole(out, stream.MemPtr(), size_t(stream.GetSize()));
  if (!problem.empty()) {
    std::fprintf(stderr, "zove export: %s: %s\n", out.c_str(), problem.c_str());
    return 1;
  }
  std::printf("exported DL %d of %s: %d bytes to %s\n", dl, f.path().c_str(), stream.GetSize(),
              out.c_str());
  return 0;
}

int cmdImport(int argc, char** argv) {
  int32_t dl = 0;
  if (argc != 3) {
    std::fprintf(stderr, "usage: zove import FILE DL IN\n");
    return 2;
  }
  if (!parseDL("import", argv[1], &dl)) return 2;
  fundra::TMemory stream;
  std::string problem = readStream(argv[2], &stream);
  if (!problem.empty()) {
    std::fprintf(stderr, "zove import: %s: %s\n", argv[2], problem.c_str());
    return 1;
  }

  StoreFile f("import", argv[0]);
  if (!f.open(true) || !f.install() || !isDL(f, dl)) return 1;
  if (dl == 1) {
    f.fail("importing over DL 1 would replace the root");
    return 1;
  }
  std::vector<int32_t> reachable = reachableDLs(f.space(), {kRootDL}, Edges::kAll);
  if (std::find(reachable.begin(), reachable.end(), dl) == reachable.end()) {
    f.fail("DL " + std::to_string(dl) +
           " is not reachable from DL 1: what is imported there would be collected at the save");
    return 1;
  }
  int32_t rc = zelkor::i32(zelkor::send(f.store(), kTSIm, dl, &stream));
  if (rc != 0) {
    f.fail("importing " + std::string(argv[2]) + " failed, " + zelkor::codeText(rc));
    printLog(stderr, f.takeLog());
    return 1;
  }
  rc = zelkor::i32(zelkor::send(f.store(), kHChg));
  if (rc != 0) {
    f.fail("saving failed, " + zelkor::codeText(rc));
    printLog(stderr, f.takeLog());
    return 1;
  }
  std::printf("imported %s into DL %d of %s (%d elements now); saved\n", argv[2], dl,
              f.path().c_str(), f.space()->LmLiveCount());
  return 0;
}

}  // namespace zove::cli

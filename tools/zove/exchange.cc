// zove export FILE DL OUT and zove import FILE DL IN: a DL's structure as an exchange stream
// (TSEx/TSIm), written to or read from a file of its own.
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/fundra/memory.h"
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

}  // namespace

int cmdExport(int argc, char** argv) {
  int32_t dl = 0;
  if (argc != 3) {
    std::fprintf(stderr, "usage: zove export FILE DL OUT\n");
    return 2;
  }
  if (!parseDL("export", argv[1], &dl)) return 2;
  StoreFile f("export", argv[0]);
  if (!f.open(false) || !f.install() || !isDL(f, dl)) return 1;
  // A stream carries parts of objects: the objects themselves stay where they are shared.
  if (zelkor::send(f.store(), kTSTS, dl) == 1) {
    f.fail("DL " + std::to_string(dl) + " is a shared DL (a stored object); export a DL it holds");
    return 1;
  }
  fundra::TMemory stream;
  int32_t rc = zelkor::i32(zelkor::send(f.store(), kTSEx, dl, &stream));
  if (rc != 0) {
    f.fail("exporting DL " + std::to_string(dl) + " failed (" + std::to_string(rc) + ")");
    printLog(stderr, f.takeLog());
    return 1;
  }
  std::ofstream out(argv[2], std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(stream.MemPtr()), stream.GetSize());
  out.close();
  if (!out) {
    std::fprintf(stderr, "zove export: can't write %s\n", argv[2]);
    return 1;
  }
  std::printf("exported DL %d of %s: %d bytes to %s\n", dl, f.path().c_str(), stream.GetSize(),
              argv[2]);
  return 0;
}

int cmdImport(int argc, char** argv) {
  int32_t dl = 0;
  if (argc != 3) {
    std::fprintf(stderr, "usage: zove import FILE DL IN\n");
    return 2;
  }
  if (!parseDL("import", argv[1], &dl)) return 2;
  std::ifstream in(argv[2], std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "zove import: can't read %s\n", argv[2]);
    return 1;
  }
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  fundra::TMemory stream;
  if (bytes.size() > size_t(INT32_MAX) || stream.SetSize(int32_t(bytes.size())) != 0) {
    std::fprintf(stderr, "zove import: %s is too large\n", argv[2]);
    return 1;
  }
  if (!bytes.empty()) std::memcpy(stream.MemPtr(), bytes.data(), bytes.size());

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
    f.fail("importing " + std::string(argv[2]) + " failed (" + std::to_string(rc) + ")");
    printLog(stderr, f.takeLog());
    return 1;
  }
  rc = zelkor::i32(zelkor::send(f.store(), kHChg));
  if (rc != 0) {
    f.fail("saving failed (" + std::to_string(rc) + ")");
    printLog(stderr, f.takeLog());
    return 1;
  }
  std::printf("imported %s into DL %d of %s (%d elements now); saved\n", argv[2], dl,
              f.path().c_str(), f.space()->LmLiveCount());
  return 0;
}

}  // namespace zove::cli

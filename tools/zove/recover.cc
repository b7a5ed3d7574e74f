// zove recover FILE: opens the file for writing once. A writer that finds the journal of a save a
// crash interrupted rolls it back, so this is all that recovery takes; the load then checks the
// whole file.
#include <cstdio>
#include <fstream>
#include <string>

#include "tools/zove/commands.h"
#include "tools/zove/storetool.h"

namespace zove::cli {

namespace {

// A journal is hot while its header is set; a finished save clears it.
bool journalIsHot(const std::string& path) {
  std::ifstream in(path + "-journal", std::ios::binary);
  char header[28] = {};
  in.read(header, sizeof header);
  for (std::streamsize i = 0; i < in.gcount(); ++i)
    if (header[i]) return true;
  return false;
}

}  // namespace

int cmdRecover(int argc, char** argv) {
  if (argc != 1) {
    std::fprintf(stderr, "usage: zove recover FILE\n");
    return 2;
  }
  bool interrupted = journalIsHot(argv[0]);
  StoreFile f("recover", argv[0]);
  if (!f.open(true)) return 1;
  std::printf(
      "%s: %s; the file holds its last save whole (%d elements)\n", f.path().c_str(),
      interrupted ? "rolled back the save a crash had interrupted" : "no save was interrupted",
      f.space()->LmLiveCount());
  return 0;
}

}  // namespace zove::cli

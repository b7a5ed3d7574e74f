// zove check FILE: installs the store read-only and runs its integrity check.
#include <cstdio>
#include <cstring>

#include "platform/fundra/debug.h"
#include "platform/zelkor/codes.h"
#include "platform/zelkor/zelkor.h"
#include "tools/zove/commands.h"
#include "tools/zove/storetool.h"
#include "zove/store.h"

namespace zove::cli {

int cmdCheck(int argc, char** argv) {
  const char* path = nullptr;
  int32_t version = StoreFile::kStoredVersion;
  for (int i = 0; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--expect-version")) {
      if (i + 1 >= argc || !parseInt(argv[i + 1], &version)) {
        std::fprintf(stderr, "zove check: --expect-version needs a number\n");
        return 2;
      }
      ++i;
    } else if (!path && argv[i][0] != '-') {
      path = argv[i];
    } else {
      std::fprintf(stderr, "usage: zove check FILE [--expect-version N]\n");
      return 2;
    }
  }
  if (!path) {
    std::fprintf(stderr, "usage: zove check FILE [--expect-version N]\n");
    return 2;
  }
  fundra::AssertCapture asserts;
  StoreFile f("check", path);
  Progress progress("loading");
  progress.phase("loading");
  if (!f.open(false)) return 1;
  progress.phase("installing");
  if (!f.install(version)) {
    std::printf("%s: not sound: the store cannot be installed\n", path);
    return 1;
  }
  progress.phase("checking every DL reachable from the root");
  int32_t rc = zelkor::i32(zelkor::send(f.store(), kTSCk));
  progress.done();
  std::vector<zelkor::LogEntry> lines = f.takeLog();
  std::vector<std::string> reports = asserts.take();
  if (!lines.empty()) {
    std::printf("the log reported:\n");
    printLog(stdout, lines);
  }
  if (!reports.empty()) {
    std::printf("assertions reported:");
    for (const std::string& r : reports) std::printf(" %s", r.c_str());
    std::printf("\n");
  }
  if (rc == 1) {
    std::printf("%s: sound (%d elements checked)\n", path, f.space()->LmLiveCount());
    return 0;
  }
  std::printf("%s: not sound (the check answered %s)\n", path,
              rc == 0 ? "0" : zelkor::codeText(rc).c_str());
  return 1;
}

}  // namespace zove::cli

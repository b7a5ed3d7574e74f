// zove gc FILE: collects what nothing reaches and saves the file.
#include <cstdio>

#include "platform/storefile/recfile.h"
#include "platform/zelkor/codes.h"
#include "platform/zelkor/zelkor.h"
#include "tools/zove/commands.h"
#include "tools/zove/storetool.h"
#include "zove/store.h"

namespace zove::cli {

int cmdGc(int argc, char** argv) {
  if (argc != 1) {
    std::fprintf(stderr, "usage: zove gc FILE\n");
    return 2;
  }
  StoreFile f("gc", argv[0]);
  Progress progress("loading");
  progress.phase("loading");
  if (!f.open(true)) return 1;
  progress.phase("installing");
  if (!f.install()) return 1;
  int32_t count = f.space()->LmLiveCount();
  int64_t bytes = f.space()->LmLiveBytes();
  Word records = f.recordFile();
  int32_t recordCount = zelkor::i32(zelkor::send(records, storefile::kHCId, kRecordType));
  // HChg collects, compacts and saves in one step, as every host's save does.
  progress.phase("collecting and saving");
  int32_t rc = zelkor::i32(zelkor::send(f.store(), kHChg));
  progress.done();
  if (rc != 0) {
    f.fail("collecting and saving failed, " + zelkor::codeText(rc) + "; the log said:");
    printLog(stderr, f.takeLog());
    return 1;
  }
  int32_t recordsAfter = zelkor::i32(zelkor::send(records, storefile::kHCId, kRecordType));
  std::printf("%s: freed %d of %d elements (%lld of %lld bytes) and %d of %d records; saved\n",
              f.path().c_str(), count - f.space()->LmLiveCount(), count,
              (long long)(bytes - f.space()->LmLiveBytes()), (long long)bytes,
              recordCount - recordsAfter, recordCount);
  return 0;
}

}  // namespace zove::cli

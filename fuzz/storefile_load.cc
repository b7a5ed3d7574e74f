// Feeds any bytes to the store file loader as a file: it must refuse them or load them and then
// answer its integrity test and every record read, never crash.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "platform/fundra/memory.h"
#include "platform/fundra/space.h"
#include "platform/storefile/database.h"
#include "platform/storefile/recfile.h"
#include "platform/storefile/vhd.h"
#include "platform/zelkor/log.h"
#include "platform/zelkor/zelkor.h"

using namespace zelkor;
using namespace storefile;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = "/tmp/zove-fuzz-store-" + std::to_string(getpid()) + ".zst";
  static bool booted = (ZelkorBoot(), setLogSink([](int, std::string_view) {}), true);
  (void)booted;
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);

  // Inputs of odd length load with their rows read ahead on a thread, the path of big files.
  storefile::StoreDb::setParallelFrom(size % 2 ? 0 : size_t(32) << 20);
  Word h = send(ZelkorLookup(kVhdSig), kNew_);
  send(h, kSetu);
  fundra::ElementSpace* space = nullptr;
  if (vhdOpenFile(h, path, VhdOpenMode::kReadOnly) == 0 && send(h, kHGtH, &space) == 0 && space) {
    send(h, kHTsv);  // may find damage in pages the load did not need
    Word file = send(h, kHGtF);
    int32_t n = i32(send(file, kHCId, fc("TVhd")));
    for (int32_t i = 1; i <= n; ++i) {
      fundra::TMemory* mem = nullptr;
      if (send(file, kHRed, fc("TVhd"), send(file, kHEId, fc("TVhd"), i), &mem, 0) == 0) {
        send(file, kHDet, mem);
        delete mem;
      }
    }
  }
  send(h, kDspo);
  unlink(path.c_str());
  return 0;
}

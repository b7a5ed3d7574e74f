// Feeds any bytes as the rollback journal beside a store file that a save left half written: a
// read-only open must read through it or refuse it, then answer its integrity test and every
// record read, and change neither file, never crash.
//
// The store file is made once: a first save, then a second save stopped at the sync that would
// commit it, so the file holds the second save's pages and the genuine journal holds the first's.
// ZOVE_JOURNAL_SEED=PATH writes that genuine journal to PATH (how fuzz/corpus/journal was seeded).
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <random>

#include "platform/storefile/vfs.h"
#include "tests/storefile/support.h"

using namespace storetest;
using namespace storefile;
using zelkor::i32;

namespace {

// The file and its journal, removed when the process ends.
struct Scratch {
  std::string path = "/tmp/zove-fuzz-journal-" + std::to_string(getpid()) + ".zst";
  ~Scratch() {
    std::filesystem::remove(path);
    std::filesystem::remove(path + "-journal");
  }
};

const std::string& base() {
  static const Scratch scratch;
  return scratch.path;
}

// The half-saved file's bytes, made once; its genuine journal goes to ZOVE_JOURNAL_SEED if set.
const std::vector<uint8_t>& halfSavedFile() {
  static const std::vector<uint8_t> bytes = [] {
    zelkor::ZelkorBoot();
    zelkor::setLogSink([](int, std::string_view) {});
    const std::string& path = base();
    std::filesystem::remove(path);
    std::filesystem::remove(path + "-journal");
    Word h = newHandle();
    send(h, kHNew, 0, 3);
    Model model;
    std::mt19937 rng(5);
    for (int32_t n = 1; n <= 200; ++n) put(spaceOf(h), &model, n, randomBytes(rng, 120));
    vhdCreateFile(h, path);
    writeRecord(send(h, kHGtF), randomBytes(rng, 3000));
    send(h, kHChg);
    // Count the second save's calls on a run that succeeds, then stop it at the sync of its
    // commit (two calls before its end) and at every call after.
    for (int32_t n = 1; n <= 200; n += 7) put(spaceOf(h), &model, n, randomBytes(rng, 300));
    std::filesystem::copy_file(path, path + ".count");
    int32_t code = 0;
    Word probe = openStore(path + ".count", VhdOpenMode::kReadWrite, &code);
    for (int32_t n = 1; n <= 200; n += 7) put(spaceOf(probe), &model, n, randomBytes(rng, 300));
    IoFaults::failAt(0);
    send(probe, kHChg);
    int64_t calls = IoFaults::calls();
    send(probe, kDspo);
    std::filesystem::remove(path + ".count");
    std::filesystem::remove(path + ".count-journal");
    IoFaults::failAt(calls - 1, IoFaultKind::kIoError, true);
    send(h, kHChg);
    IoFaults::failAt(0);
    send(h, kDspo);
    if (const char* seed = std::getenv("ZOVE_JOURNAL_SEED"))
      writeBytes(seed, readBytes(path + "-journal"));
    return readBytes(path);
  }();
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<uint8_t>& file = halfSavedFile();
  const std::string& path = base();
  writeBytes(path, file);
  writeBytes(path + "-journal", std::vector<uint8_t>(data, data + size));
  int32_t code = 0;
  if (Word h = openStore(path, VhdOpenMode::kReadOnly, &code)) {
    send(h, kHTsv);
    recordsOf(h);
    send(h, kDspo);
  }
  if (readBytes(path) != file ||
      readBytes(path + "-journal") != std::vector<uint8_t>(data, data + size))
    std::abort();  // a reader wrote
  return 0;
}

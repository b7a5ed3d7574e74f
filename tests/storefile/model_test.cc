// The store file next to a plain model: random element and record changes, saves, closes without
// saving and reopens; after every reopen the file's content equals the model's last saved state.
// ZOVE_STOREFILE_SEED replays one seed.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/storefile/support.h"

using namespace storetest;
using namespace zelkor;
using namespace storefile;

namespace {

using Records = std::map<int32_t, std::vector<uint8_t>>;

struct Run {
  std::string path;
  Word h = 0;
  Model live, saved;
  Records liveRecords, savedRecords;
  std::vector<std::string> steps;  // what was done, for the failure message

  std::string trace() const {
    std::string t;
    for (const std::string& s : steps) t += s + "\n";
    return t;
  }
};

void reopen(Run* run) {
  int32_t code = 0;
  run->h = openStore(run->path, VhdOpenMode::kReadWrite, &code);
  ASSERT_EQ(code, 0);
  run->live = run->saved;
  run->liveRecords = run->savedRecords;
}

void runSeed(uint32_t seed, const std::string& path) {
  std::mt19937 rng(seed);
  Run run;
  run.path = path;
  run.h = newHandle();
  send(run.h, kHNew, 0, 1);
  ASSERT_EQ(vhdCreateFile(run.h, path), 0);
  for (int step = 0; step < 250; ++step) {
    fundra::ElementSpace* s = spaceOf(run.h);
    Word file = send(run.h, kHGtF);
    uint32_t op = rng() % 100;
    if (op < 45) {
      // Elements cluster so that segments fill, empty and refill.
      auto n = int32_t(1 + rng() % (rng() % 4 ? 200 : 3000));
      put(s, &run.live, n, randomBytes(rng, rng() % 10 ? 90 : 1200));
      run.steps.push_back("put " + std::to_string(n));
    } else if (op < 60) {
      auto n = int32_t(1 + rng() % 200);
      s->LmRemove(n);
      run.live.erase(n);
      run.steps.push_back("remove " + std::to_string(n));
    } else if (op < 70) {
      std::vector<uint8_t> bytes = randomBytes(rng, 3000);
      int32_t id = writeRecord(file, bytes);
      ASSERT_GT(id, 0);
      run.liveRecords[id] = bytes;
      run.steps.push_back("record " + std::to_string(id));
    } else if (op < 76 && !run.liveRecords.empty()) {
      auto it = run.liveRecords.begin();
      std::advance(it, rng() % run.liveRecords.size());
      ASSERT_EQ(send(file, kHRmv, kTVhd, it->first), 0);
      run.steps.push_back("unrecord " + std::to_string(it->first));
      run.liveRecords.erase(it);
    } else if (op < 92) {
      ASSERT_EQ(send(run.h, kHChg), 0) << run.trace();
      run.saved = run.live;
      run.savedRecords = run.liveRecords;
      run.steps.push_back("save");
    } else {
      bool save = op < 96;
      if (save) {
        ASSERT_EQ(send(run.h, kHChg), 0) << run.trace();
        run.saved = run.live;
        run.savedRecords = run.liveRecords;
      }
      send(run.h, kDspo);
      run.steps.push_back(save ? "save, close, reopen" : "close without saving, reopen");
      reopen(&run);
      ASSERT_NE(run.h, 0);
      ASSERT_EQ(modelOf(*spaceOf(run.h)), run.saved)
          << "seed " << seed << ", step " << step << ":\n"
          << run.trace();
      ASSERT_EQ(recordsOf(run.h), run.savedRecords) << "seed " << seed << ", step " << step << ":\n"
                                                    << run.trace();
      ASSERT_EQ(send(run.h, kHTsv), 0) << "seed " << seed << "\n" << vhdDescribe(run.h);
    }
  }
  send(run.h, kDspo);
}

}  // namespace

TEST(StoreFileModel, ReopenedFilesAlwaysHoldTheModelsLastSavedState) {
  ScratchDir dir;
  if (const char* env = std::getenv("ZOVE_STOREFILE_SEED")) {
    runSeed(uint32_t(std::strtoul(env, nullptr, 10)), dir.file("seed.zst"));
    return;
  }
  for (uint32_t seed = 1; seed <= 6; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    runSeed(seed, dir.file("m" + std::to_string(seed) + ".zst"));
    if (HasFatalFailure()) return;
  }
}

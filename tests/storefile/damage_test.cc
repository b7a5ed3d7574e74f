// Damaged files: a flipped byte or a cut-off end either hits space the file does not use (and
// the store opens with exactly the saved content) or is refused with a code and a log line.
#include <gtest/gtest.h>

#include <cstdint>

#include "platform/storefile/database.h"
#include "tests/storefile/support.h"

using namespace storetest;
using namespace zelkor;
using namespace storefile;

namespace {

struct Content {
  Model elements;
  std::map<int32_t, std::vector<uint8_t>> records;
  bool operator==(const Content&) const = default;
};

Content saveSample(const std::string& path) {
  Content c;
  Word h = newHandle();
  send(h, kHNew, 0, 2);
  fundra::ElementSpace* s = spaceOf(h);
  std::mt19937 rng(21);
  for (int32_t n = 1; n <= 300; ++n) put(s, &c.elements, n, randomBytes(rng, n % 40 ? 100 : 1500));
  EXPECT_EQ(vhdCreateFile(h, path), 0);
  for (int i = 0; i < 4; ++i) writeRecord(send(h, kHGtF), randomBytes(rng, 2500));
  // A second save leaves freed pages and old cells behind, as a used file has.
  for (int32_t n = 100; n <= 160; ++n) put(s, &c.elements, n, randomBytes(rng, 60));
  EXPECT_EQ(send(h, kHChg), 0);
  c.records = recordsOf(h);
  send(h, kDspo);
  return c;
}

// Opens, loads and reads every record; answers the code of the first refusal, or 0.
int32_t openAll(const std::string& path, Content* out) {
  int32_t code = 0;
  Word h = openStore(path, VhdOpenMode::kReadOnly, &code);
  if (!h) return code;
  out->elements = modelOf(*spaceOf(h));
  out->records = recordsOf(h, &code);
  send(h, kDspo);
  return code;
}

}  // namespace

TEST(StoreFileDamage, AFlippedByteOrACutEndIsRefusedUnlessItHitUnusedSpace) {
  ScratchDir dir;
  std::string path = dir.file("good.zst"), work = dir.file("bad.zst");
  Content saved = saveSample(path);
  std::vector<uint8_t> good = readBytes(path);
  ASSERT_GT(good.size(), 16384u);
  std::mt19937 rng(22);
  int unharmed = 0, refused = 0;
  auto attempt = [&](const std::vector<uint8_t>& bytes, const std::string& what) {
    writeBytes(work, bytes);
    zelkor::LogCapture log;
    Content found;
    int32_t code = openAll(work, &found);
    if (code == 0) {
      EXPECT_TRUE(found == saved) << what << ": opened with other content";
      ++unharmed;
    } else {
      EXPECT_LT(code, 0) << what;
      EXPECT_GT(log.size(), 0u) << what << ": refused without saying why";
      ++refused;
    }
  };
  for (int i = 0; i < 600; ++i) {
    std::vector<uint8_t> bytes = good;
    size_t at = rng() % bytes.size();
    bytes[at] ^= uint8_t(1 + rng() % 255);
    attempt(bytes, "byte " + std::to_string(at));
  }
  // Flips in the pages that hold the head, segments and records: every one must be caught or
  // harmless, and most must be caught.
  int refusedBefore = refused;
  for (size_t at = 0; at < 200; ++at) {
    std::vector<uint8_t> bytes = good;
    bytes[at] ^= 0x40;
    attempt(bytes, "header byte " + std::to_string(at));
  }
  EXPECT_GT(refused - refusedBefore, 20);
  for (size_t cut : {size_t(0), size_t(100), size_t(16384), good.size() / 2, good.size() - 16384,
                     good.size() - 1}) {
    attempt(std::vector<uint8_t>(good.begin(), good.begin() + long(cut)),
            "cut at " + std::to_string(cut));
  }
  for (int i = 0; i < 40; ++i) {
    size_t cut = rng() % good.size();
    attempt(std::vector<uint8_t>(good.begin(), good.begin() + long(cut)),
            "cut at " + std::to_string(cut));
  }
  std::printf("%d damaged files opened unharmed, %d refused\n", unharmed, refused);
  EXPECT_GT(refused, 50);
}

TEST(StoreFileDamage, ReadingRowsAheadChangesNoAnswerAndNoLogLine) {
  // A big file's rows are read on a thread of their own while the loader places the rows before;
  // here every file takes that path once, and must give what the loader stepping its own rows
  // gives: the same code, the same log lines, the same content.
  ScratchDir dir;
  std::string path = dir.file("good.zst"), work = dir.file("bad.zst");
  saveSample(path);
  std::vector<uint8_t> good = readBytes(path);
  std::mt19937 rng(23);
  int refused = 0;
  auto both = [&](const std::vector<uint8_t>& bytes, const std::string& what) {
    writeBytes(work, bytes);
    int32_t code[2];
    Content found[2];
    std::vector<std::string> lines[2];
    for (int ahead = 0; ahead < 2; ++ahead) {
      storefile::StoreDb::setParallelFrom(ahead ? 0 : SIZE_MAX);
      zelkor::LogCapture log;
      code[ahead] = openAll(work, &found[ahead]);
      for (const LogEntry& e : log.take()) lines[ahead].push_back(e.text);
    }
    EXPECT_EQ(code[0], code[1]) << what;
    EXPECT_EQ(lines[0], lines[1]) << what;
    EXPECT_TRUE(found[0] == found[1]) << what;
    refused += code[0] != 0;
  };
  both(good, "the saved file");
  for (int i = 0; i < 300; ++i) {
    std::vector<uint8_t> bytes = good;
    size_t at = rng() % bytes.size();
    bytes[at] ^= uint8_t(1 + rng() % 255);
    both(bytes, "byte " + std::to_string(at));
  }
  for (int i = 0; i < 30; ++i) {
    size_t cut = rng() % good.size();
    both(std::vector<uint8_t>(good.begin(), good.begin() + long(cut)),
         "cut at " + std::to_string(cut));
  }
  storefile::StoreDb::setParallelFrom(size_t(32) << 20);
  EXPECT_GT(refused, 30);
}

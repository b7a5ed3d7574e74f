// The store file: round trips, what a save writes, when records become visible, writers,
// readers and files that are not store files.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "platform/storefile/vfs.h"
#include "tests/storefile/support.h"

using namespace storetest;
using namespace zelkor;
using namespace storefile;

namespace {

// A handle with a new space of `count` random elements, bound to a new file at path.
Word createStore(const std::string& path, Model* model, int count, uint32_t seed) {
  Word h = newHandle();
  EXPECT_EQ(send(h, kHNew, 0, 7), 0);
  fundra::ElementSpace* s = spaceOf(h);
  std::mt19937 rng(seed);
  for (int32_t n = 1; n <= count; ++n) put(s, model, n, randomBytes(rng, n % 50 == 0 ? 3000 : 200));
  EXPECT_EQ(vhdCreateFile(h, path), 0);
  return h;
}

}  // namespace

TEST(StoreFile, ReopensWithExactlyTheSavedElementsAndRecordsAfterEverySave) {
  ScratchDir dir;
  std::string path = dir.file("a.zst");
  Model model;
  Word h = createStore(path, &model, 700, 1);
  fundra::ElementSpace* s = spaceOf(h);
  std::map<int32_t, std::vector<uint8_t>> records;
  std::mt19937 rng(2);
  for (int round = 0; round < 4; ++round) {
    // Change some, grow some, remove some (a whole segment too), add past the end.
    for (int i = 0; i < 60; ++i) put(s, &model, int32_t(1 + rng() % 700), randomBytes(rng, 400));
    for (int32_t n = 64 * (round + 2); n < 64 * (round + 3); ++n)
      if (model.erase(n)) s->LmRemove(n);
    put(s, &model, 900 + round, randomBytes(rng, 40));
    Word file = send(h, kHGtF);
    int32_t id = writeRecord(file, randomBytes(rng, 5000));
    ASSERT_GT(id, 0);
    records[id] = recordsOf(h)[id];
    if (round > 0) {
      int32_t gone = records.begin()->first;
      EXPECT_EQ(send(file, kHRmv, kTVhd, gone), 0);
      records.erase(gone);
    }
    ASSERT_EQ(send(h, kHChg), 0);
    EXPECT_EQ(send(h, kHTsv), 0);

    int32_t code = 0;
    Word reader = openStore(path, VhdOpenMode::kReadOnly, &code);
    ASSERT_EQ(code, 0) << "round " << round;
    EXPECT_EQ(modelOf(*spaceOf(reader)), model) << "round " << round;
    EXPECT_EQ(recordsOf(reader), records) << "round " << round;
    EXPECT_EQ(send(reader, kHTsv), 0);
    send(reader, kDspo);
  }
  // Another space given to the bound handle (HNew) replaces the saved one whole at the next save.
  auto* other = new fundra::ElementSpace(1024, 0);
  model.clear();
  for (int32_t n : {3, 70, 71, 200}) put(other, &model, n, randomBytes(rng, 90));
  ASSERT_EQ(send(h, kHNew, other, 7), 0);
  ASSERT_EQ(send(h, kHChg), 0);
  send(h, kDspo);

  // A writer opening the file later sees the same, and its first save without changes is empty.
  int32_t code = 0;
  Word again = openStore(path, VhdOpenMode::kReadWrite, &code);
  ASSERT_EQ(code, 0);
  EXPECT_EQ(modelOf(*spaceOf(again)), model);
  std::vector<uint8_t> before = readBytes(path);
  EXPECT_EQ(send(again, kHChg), 0);
  EXPECT_EQ(readBytes(path), before);
  send(again, kDspo);
}

TEST(StoreFile, ABigStoreLoadsWithItsRowsReadAheadOnAnotherThread) {
  // Big enough for the load to read its rows on a thread of their own.
  ScratchDir dir;
  std::string path = dir.file("big.zst");
  Model model;
  Word h = newHandle();
  ASSERT_EQ(send(h, kHNew, 0, 7), 0);
  fundra::ElementSpace* s = spaceOf(h);
  for (int32_t n = 1; n <= 80000; ++n)
    put(s, &model, n, std::vector<uint8_t>(size_t(400 + n % 97), uint8_t(n * 7)));
  ASSERT_EQ(vhdCreateFile(h, path), 0);
  send(h, kDspo);
  for (auto mode : {VhdOpenMode::kReadOnly, VhdOpenMode::kReadWrite}) {
    int32_t code = 0;
    Word again = openStore(path, mode, &code);
    ASSERT_EQ(code, 0);
    EXPECT_EQ(modelOf(*spaceOf(again)), model);
    EXPECT_EQ(send(again, kHTsv), 0);
    send(again, kDspo);
  }
}

TEST(StoreFile, ASaveAfterAFewChangesTouchesFarLessThanTheFirstSave) {
  ScratchDir dir;
  Model model;
  storefile::IoFaults::failAt(0);
  Word h = createStore(dir.file("b.zst"), &model, 20000, 3);
  int64_t full = storefile::IoFaults::bytesWritten();
  fundra::ElementSpace* s = spaceOf(h);
  std::vector<uint8_t> changed(40, 0xAB);
  storefile::IoFaults::failAt(0);
  put(s, &model, 12345, changed);
  ASSERT_EQ(send(h, kHChg), 0);
  int64_t small = storefile::IoFaults::bytesWritten();
  EXPECT_GT(full, 10 * small) << "full " << full << ", one change " << small;
  send(h, kDspo);
}

TEST(StoreFile, RecordsAndElementsReachTheFileOnlyWithTheSave) {
  ScratchDir dir;
  std::string path = dir.file("c.zst");
  Model model;
  Word h = createStore(path, &model, 10, 4);
  Word file = send(h, kHGtF);
  ASSERT_NE(file, 0);
  int32_t kept = writeRecord(file, {1, 2, 3});
  ASSERT_EQ(send(h, kHChg), 0);

  int32_t fresh = writeRecord(file, {4, 5});
  ASSERT_EQ(send(file, kHRmv, kTVhd, kept), 0);
  put(spaceOf(h), &model, 11, {9, 9, 9});
  EXPECT_EQ(send(file, kHSiz, kTVhd, fresh), 2);  // the writer sees its own changes
  EXPECT_EQ(send(file, kHSiz, kTVhd, kept), kVhdNoRecord);
  EXPECT_NE(vhdDescribe(h).find("held for the next save: 1 records written, 1 removed"),
            std::string::npos)
      << vhdDescribe(h);

  int32_t code = 0;
  Word reader = openStore(path, VhdOpenMode::kReadOnly, &code);
  ASSERT_EQ(code, 0);
  EXPECT_EQ(spaceOf(reader)->LmTest(11), fundra::kLmNotLive);
  Word rf = send(reader, kHGtF);
  EXPECT_EQ(send(rf, kHSiz, kTVhd, kept), 3);
  EXPECT_EQ(send(rf, kHSiz, kTVhd, fresh), kVhdNoRecord);
  send(reader, kDspo);

  // Disposing without a save drops what was not saved.
  send(h, kDspo);
  reader = openStore(path, VhdOpenMode::kReadWrite, &code);
  ASSERT_EQ(code, 0);
  rf = send(reader, kHGtF);
  EXPECT_EQ(send(rf, kHSiz, kTVhd, kept), 3);
  EXPECT_EQ(send(rf, kHSiz, kTVhd, fresh), kVhdNoRecord);
  // Ids handed out and dropped are not handed out again once a save has passed them.
  int32_t next = writeRecord(rf, {7});
  EXPECT_GT(next, kept);
  ASSERT_EQ(send(reader, kHChg), 0);
  EXPECT_EQ(send(rf, kHRmv, kTVhd, next), 0);
  ASSERT_EQ(send(reader, kHChg), 0);
  EXPECT_GT(writeRecord(rf, {8}), next);
  send(reader, kDspo);
}

TEST(StoreFile, AReaderReadsTheRecordsOfTheSaveItLoadedOrIsToldItsViewWentStale) {
  ScratchDir dir;
  std::string path = dir.file("stale.zst");
  Model model;
  Word h = createStore(path, &model, 10, 8);
  Word file = send(h, kHGtF);
  int32_t same = writeRecord(file, {1, 2, 3});
  int32_t changed = writeRecord(file, {4, 5, 6, 7});
  int32_t removed = writeRecord(file, {8});
  ASSERT_EQ(send(h, kHChg), 0);

  int32_t code = 0;
  Word reader = openStore(path, VhdOpenMode::kReadOnly, &code);
  ASSERT_EQ(code, 0);
  Word rf = send(reader, kHGtF);
  // The writer rewrites one record, removes another and saves.
  fundra::TMemory* mem = nullptr;
  ASSERT_EQ(send(file, kHRed, kTVhd, changed, &mem, 0), 0);
  mem->SetSize(9, 0x55);
  ASSERT_EQ(send(file, kHWrt, mem), 0);
  send(file, kHDet, mem);
  delete mem;
  ASSERT_EQ(send(file, kHRmv, kTVhd, removed), 0);
  ASSERT_EQ(send(h, kHChg), 0);

  zelkor::LogCapture log;
  // What did not change since the reader's load is read as it was loaded.
  ASSERT_EQ(send(rf, kHRed, kTVhd, same, &mem, 0), 0);
  EXPECT_EQ(std::vector<uint8_t>(mem->MemPtr(), mem->MemPtr() + mem->GetSize()),
            (std::vector<uint8_t>{1, 2, 3}));
  send(rf, kHDet, mem);
  delete mem;
  // Sizes are those of the loaded save; reading what changed since says the view is stale.
  EXPECT_EQ(send(rf, kHSiz, kTVhd, changed), 4);
  EXPECT_EQ(send(rf, kHRed, kTVhd, changed, &mem, 0), kVhdStale);
  EXPECT_EQ(mem, nullptr);
  EXPECT_EQ(send(rf, kHRed, kTVhd, removed, &mem, 0), kVhdStale);
  EXPECT_EQ(send(reader, kHTsv), kVhdStale);
  std::string lines;
  for (const LogEntry& e : log.take()) lines += e.text + "\n";
  EXPECT_NE(lines.find("record TVhd/" + std::to_string(changed) + ": the file was saved"),
            std::string::npos)
      << lines;
  EXPECT_EQ(lines.find("damaged"), std::string::npos) << lines;
  send(reader, kDspo);

  // The writer's own check holds the file's rows against what it saved.
  EXPECT_EQ(send(h, kHTsv), 0);
  send(h, kDspo);
}

TEST(StoreFile, RecordFileAnswersItsProtocol) {
  ScratchDir dir;
  Model model;
  Word h = createStore(dir.file("d.zst"), &model, 1, 5);
  Word file = send(h, kHGtF);
  EXPECT_EQ(send(file, kHUId, kTVhd, 1000), 1000);
  EXPECT_EQ(send(file, kHUId, kTVhd, 1000), 1001);
  EXPECT_EQ(send(file, kHUId, kTVhd, 5000), 5000);

  fundra::TMemory a(3), stray(1);
  EXPECT_EQ(send(file, kHCrt, &a, kTVhd, 7), 0);
  EXPECT_EQ(send(file, kHCrt, &stray, kTVhd, 7), kVhdExists);
  EXPECT_EQ(send(file, kHCrt, nullptr, kTVhd, 8), kVhdBadArgument);
  EXPECT_EQ(send(file, kHSiz, kTVhd, 7), 0);  // created empty until written
  EXPECT_EQ(send(file, kHCmp, &a), 0);
  EXPECT_EQ(send(file, kHSiz, kTVhd, 7), 3);
  EXPECT_EQ(send(file, kHWrt, &stray), kVhdNotAttached);
  EXPECT_EQ(send(file, kHDet, &a), 0);
  EXPECT_EQ(send(file, kHDet, &a), kVhdNotAttached);
  EXPECT_EQ(send(file, kHWrt, &a), kVhdNotAttached);

  // A record of another type is counted apart; ids enumerate ascending.
  EXPECT_EQ(send(file, kHCrt, &stray, fc("Othr"), 2), 0);
  fundra::TMemory b(1);
  EXPECT_EQ(send(file, kHCrt, &b, kTVhd, 3), 0);
  EXPECT_EQ(send(file, kHCId, kTVhd), 2);
  EXPECT_EQ(send(file, kHEId, kTVhd, 1), 3);
  EXPECT_EQ(send(file, kHEId, kTVhd, 2), 7);
  EXPECT_EQ(send(file, kHEId, kTVhd, 3), 0);
  EXPECT_EQ(send(file, kHCId, fc("Othr")), 1);

  // Removing detaches, and the ids asked for again leave the record out; reading hands out an
  // attached copy the caller owns.
  EXPECT_EQ(send(file, kHRmv, kTVhd, 3), 0);
  EXPECT_EQ(send(file, kHCId, kTVhd), 1);
  EXPECT_EQ(send(file, kHEId, kTVhd, 1), 7);
  EXPECT_EQ(send(file, kHEId, kTVhd, 2), 0);
  EXPECT_EQ(send(file, kHWrt, &b), kVhdNotAttached);
  EXPECT_EQ(send(file, kHRmv, kTVhd, 3), kVhdNoRecord);
  fundra::TMemory* read = nullptr;
  EXPECT_EQ(send(file, kHRed, kTVhd, 3, &read, 0), kVhdNoRecord);
  EXPECT_EQ(read, nullptr);
  ASSERT_EQ(send(file, kHRed, kTVhd, 7, &read, 0), 0);
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(read->GetSize(), 3);
  read->SetSize(5, 0x11);
  EXPECT_EQ(send(file, kHWrt, read), 0);  // still attached: writes go to record 7
  EXPECT_EQ(send(file, kHDet, read), 0);
  delete read;
  EXPECT_EQ(send(file, kHSiz, kTVhd, 7), 5);
  EXPECT_EQ(send(file, kHDet, &stray), 0);
  EXPECT_EQ(send(h, kHChg), 0);
  EXPECT_EQ(send(h, kHTsv), 0);
  send(h, kDspo);
}

TEST(StoreFile, ASecondWriterIsRefusedInThisProcessAndAnotherWhileReadersAreNot) {
  ScratchDir dir;
  std::string path = dir.file("e.zst");
  Model model;
  Word h = createStore(path, &model, 5, 6);

  Word second = newHandle();
  EXPECT_EQ(vhdOpenFile(second, path, VhdOpenMode::kReadWrite), kVhdBusy);
  EXPECT_EQ(vhdFilePath(second), "");
  pid_t child = fork();
  if (child == 0) {
    Word other = newHandle();
    _exit(vhdOpenFile(other, path, VhdOpenMode::kReadWrite) == kVhdBusy ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the other process got in";

  // The writer still works after the refusals (its locks were not disturbed).
  put(spaceOf(h), &model, 6, {1});
  EXPECT_EQ(send(h, kHChg), 0);
  int32_t code = 0;
  Word reader = openStore(path, VhdOpenMode::kReadOnly, &code);
  EXPECT_EQ(code, 0);
  ASSERT_NE(reader, 0);
  EXPECT_EQ(modelOf(*spaceOf(reader)), model);
  send(reader, kDspo);

  // Once the writer has gone, the next one gets in.
  EXPECT_EQ(vhdCloseFile(h), 0);
  EXPECT_EQ(vhdOpenFile(second, path, VhdOpenMode::kReadWrite), 0);
  EXPECT_EQ(vhdFilePath(second), path);
  send(second, kDspo);
  send(h, kDspo);
}

TEST(StoreFile, ReadOnlyOpeningChangesNoByteOfTheFile) {
  ScratchDir dir;
  std::string path = dir.file("f.zst");
  Model model;
  Word h = createStore(path, &model, 300, 7);
  writeRecord(send(h, kHGtF), {1, 2, 3, 4});
  ASSERT_EQ(send(h, kHChg), 0);
  send(h, kDspo);
  std::vector<uint8_t> before = readBytes(path);
  // The writer keeps its journal, its header cleared, for the saves to come.
  std::vector<uint8_t> journal = readBytes(path + "-journal");
  ASSERT_GE(journal.size(), 28u);
  EXPECT_EQ(std::vector<uint8_t>(journal.begin(), journal.begin() + 28), std::vector<uint8_t>(28));
  struct stat st0;
  stat(path.c_str(), &st0);

  int32_t code = 0;
  Word r = openStore(path, VhdOpenMode::kReadOnly, &code);
  ASSERT_EQ(code, 0);
  fundra::ElementSpace* s = spaceOf(r);
  s->LmSetAssert(1, 5);
  s->LmRemove(2);
  Word file = send(r, kHGtF);
  fundra::TMemory mem(2);
  EXPECT_EQ(send(file, kHCrt, &mem, kTVhd, 9000), kVhdReadOnly);
  EXPECT_EQ(send(file, kHRmv, kTVhd, 1000), kVhdReadOnly);
  EXPECT_EQ(recordsOf(r).size(), 1u);
  EXPECT_EQ(send(r, kHChg), kVhdReadOnly);
  EXPECT_EQ(send(r, kHTsv), 0);
  send(r, kDspo);

  struct stat st1;
  stat(path.c_str(), &st1);
  EXPECT_EQ(readBytes(path), before);
  EXPECT_EQ(st1.st_mtim.tv_sec, st0.st_mtim.tv_sec);
  EXPECT_EQ(st1.st_mtim.tv_nsec, st0.st_mtim.tv_nsec);
  EXPECT_EQ(readBytes(path + "-journal"), journal);
}

TEST(StoreFile, BindingRefusesWhatItCannotDo) {
  ScratchDir dir;
  std::string path = dir.file("g.zst");
  Word h = newHandle();
  EXPECT_EQ(vhdCreateFile(h, path), kVhdNoValue);  // no space to write
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_EQ(vhdOpenFile(h, dir.file("none.zst"), VhdOpenMode::kReadOnly), kVhdNoFile);
  send(h, kHNew, 0, 1);
  EXPECT_EQ(vhdOpenFile(h, path, VhdOpenMode::kReadOnly), kVhdBound);  // holds a value
  EXPECT_EQ(vhdCreateFile(h, path), 0);
  EXPECT_EQ(vhdCreateFile(h, dir.file("h.zst")), kVhdBound);
  Word other = newHandle();
  send(other, kHNew, 0, 1);
  EXPECT_EQ(vhdCreateFile(other, path), kVhdNoFile);  // exists
  Word notVhd = send(ZelkorLookup(kRootSig), kNew_);
  EXPECT_EQ(vhdOpenFile(notVhd, path, VhdOpenMode::kReadOnly), kVhdNotVhd);
  send(notVhd, kDspo);
  send(other, kDspo);
  send(h, kDspo);
}

TEST(StoreFile, FilesThatAreNotStoreFilesAreRefused) {
  ScratchDir dir;
  auto refused = [](const std::string& path) {
    int32_t code = 0;
    Word h = openStore(path, VhdOpenMode::kReadOnly, &code);
    if (h) send(h, kDspo);
    return code;
  };
  writeBytes(dir.file("empty"), {});
  EXPECT_EQ(refused(dir.file("empty")), kVhdNotStoreFile);
  std::vector<uint8_t> text(5000, 'x');
  writeBytes(dir.file("text"), text);
  EXPECT_EQ(refused(dir.file("text")), kVhdNotStoreFile);
  // A database of somebody else's.
  sqlite3* db = nullptr;
  sqlite3_open(dir.file("other.db").c_str(), &db);
  sqlite3_exec(db, "CREATE TABLE t (x); INSERT INTO t VALUES (1);", nullptr, nullptr, nullptr);
  sqlite3_close(db);
  EXPECT_EQ(refused(dir.file("other.db")), kVhdNotStoreFile);

  // A store file whose segment row was damaged opens, and its load is refused: HGtH answers
  // the code and leaves no space in its out argument.
  Model model;
  Word h = createStore(dir.file("damaged.zst"), &model, 20, 9);
  send(h, kDspo);
  sqlite3_open(dir.file("damaged.zst").c_str(), &db);
  sqlite3_exec(db, "UPDATE seg SET body = zeroblob(40) WHERE id = 0;", nullptr, nullptr, nullptr);
  sqlite3_close(db);
  Word reader = newHandle();
  ASSERT_EQ(vhdOpenFile(reader, dir.file("damaged.zst"), VhdOpenMode::kReadOnly), 0);
  auto* space = reinterpret_cast<fundra::ElementSpace*>(&model);  // any pointer but null
  zelkor::LogCapture quiet;
  EXPECT_EQ(send(reader, kHGtH, &space), kVhdDamaged);
  EXPECT_EQ(space, nullptr);
  send(reader, kDspo);
}

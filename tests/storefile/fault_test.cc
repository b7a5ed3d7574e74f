// Failing file operations: every read, write, truncation and sync of a save or an open is made
// to fail in turn, and the file must always hold exactly one of the saved states.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <chrono>
#include <cstdint>
#include <filesystem>

#include "platform/storefile/database.h"
#include "platform/storefile/vfs.h"
#include "tests/storefile/support.h"

using namespace storetest;
using namespace zelkor;
using namespace storefile;
using storefile::IoFaultKind;
using storefile::IoFaults;
using storefile::StoreDb;

namespace {

struct Saved {
  Model elements;
  std::map<int32_t, std::vector<uint8_t>> records;
};

// Makes the first saved state: 400 elements over several segments and three records.
Saved makeFirstFile(const std::string& path) {
  Saved a;
  Word h = newHandle();
  send(h, kHNew, 0, 3);
  fundra::ElementSpace* s = spaceOf(h);
  std::mt19937 rng(11);
  for (int32_t n = 1; n <= 400; ++n) put(s, &a.elements, n, randomBytes(rng, 120));
  EXPECT_EQ(vhdCreateFile(h, path), 0);
  Word file = send(h, kHGtF);
  for (int i = 0; i < 3; ++i) writeRecord(file, randomBytes(rng, 3000));
  EXPECT_EQ(send(h, kHChg), 0);
  a.records = recordsOf(h);
  send(h, kDspo);
  return a;
}

// Changes elements, removes a segment's worth, adds past the end, and changes the records, marking
// the value changed as a store does; answers the id of the record it wrote.
int32_t changeToSecond(Word h, Saved* b) {
  fundra::ElementSpace* s = spaceOf(h);
  std::mt19937 rng(12);
  for (int i = 0; i < 30; ++i)
    put(s, &b->elements, int32_t(1 + rng() % 400), randomBytes(rng, 300));
  for (int32_t n = 128; n < 192; ++n) {
    s->LmRemove(n);
    b->elements.erase(n);
  }
  put(s, &b->elements, 450, randomBytes(rng, 50));
  Word file = send(h, kHGtF);
  send(file, kHRmv, kTVhd, b->records.begin()->first);
  int32_t id = writeRecord(file, randomBytes(rng, 2000));
  b->records = recordsOf(h);
  send(h, kHSCh, 1);
  return id;
}

// What a read-only open of the file finds; an empty state when it is refused.
Saved readBack(const std::string& path, int32_t* code) {
  Saved out;
  Word r = openStore(path, VhdOpenMode::kReadOnly, code);
  if (!r) return out;
  out.elements = modelOf(*spaceOf(r));
  out.records = recordsOf(r, code);
  send(r, kDspo);
  return out;
}

// Removes a store file and its journal, so that the next run at the path starts as the first.
void removeStore(const std::string& path) {
  std::filesystem::remove(path);
  std::filesystem::remove(path + "-journal");
}

// Makes a save of the store at path fail at the sync that would make its commit durable, and at
// every call after it: the file keeps the new pages and its journal stays hot, as a writer killed
// there would leave them. The same save on a copy counts the calls first. Answers the journal.
std::vector<uint8_t> leaveHotJournal(const std::string& path) {
  std::filesystem::copy_file(path, path + ".copy");
  int32_t code = 0;
  Saved second;
  Word probe = openStore(path + ".copy", VhdOpenMode::kReadWrite, &code);
  changeToSecond(probe, &second);
  IoFaults::failAt(0);
  EXPECT_EQ(send(probe, kHChg), 0);
  int64_t calls = IoFaults::calls();
  send(probe, kDspo);
  removeStore(path + ".copy");
  Word h = openStore(path, VhdOpenMode::kReadWrite, &code);
  EXPECT_EQ(code, 0);
  changeToSecond(h, &second);
  zelkor::LogCapture quiet;
  // The last calls: clearing the journal's header, syncing it, the trim's size query.
  IoFaults::failAt(calls - 1, IoFaultKind::kIoError, true);
  EXPECT_NE(send(h, kHChg), 0);
  std::vector<uint8_t> journal = readBytes(path + "-journal");
  EXPECT_GE(journal.size(), 28u);
  EXPECT_NE(std::vector<uint8_t>(journal.begin(), journal.begin() + 28), std::vector<uint8_t>(28))
      << "the journal is not hot";
  send(h, kDspo);
  IoFaults::failAt(0);
  return journal;
}

bool operator==(const Saved& a, const Saved& b) {
  return a.elements == b.elements && a.records == b.records;
}

}  // namespace

TEST(StoreFileFaults, EveryFailingCallOfASaveAnswersWhatTheFileHoldsAndTheNextSaveSucceeds) {
  // A small journal limit makes every save trim its journal after the commit, as the big saves
  // do: the calls after the commit point are failed too.
  StoreDb::setJournalLimit(16 << 10);
  // Once on one thread, once with the save's segments encoded on a second (the path of big
  // saves) and the opens' rows read on one.
  for (size_t from : {SIZE_MAX, size_t(0)}) {
    SCOPED_TRACE(from ? "one thread" : "two threads");
    StoreDb::setParallelFrom(from);
    ScratchDir dir;
    std::string original = dir.file("a.zst"), path = dir.file("work.zst");
    Saved first = makeFirstFile(original);
    Saved second;
    int64_t calls = 0;
    {  // One run without faults to count the save's calls.
      std::filesystem::copy_file(original, path);
      int32_t code = 0;
      Word h = openStore(path, VhdOpenMode::kReadWrite, &code);
      ASSERT_EQ(code, 0);
      second = first;
      changeToSecond(h, &second);
      IoFaults::failAt(0);
      ASSERT_EQ(send(h, kHChg), 0);
      calls = IoFaults::calls();
      EXPECT_EQ(send(h, kHSCh, 0), 0);  // a save clears the changed flag
      send(h, kDspo);
      EXPECT_TRUE(readBack(path, &code) == second);
      removeStore(path);
    }
    ASSERT_GT(calls, 5);
    zelkor::LogCapture quiet;
    for (IoFaultKind kind : {IoFaultKind::kIoError, IoFaultKind::kDiskFull}) {
      bool sticky = kind == IoFaultKind::kDiskFull;
      for (int64_t n = 1; n <= calls; ++n) {
        SCOPED_TRACE("failing call " + std::to_string(n) + (sticky ? " and all after it" : ""));
        std::filesystem::copy_file(original, path);
        int32_t code = 0;
        Word h = openStore(path, VhdOpenMode::kReadWrite, &code);
        ASSERT_EQ(code, 0);
        Saved expect = first;
        int32_t fresh = changeToSecond(h, &expect);
        IoFaults::failAt(n, kind, sticky);
        Word r = send(h, kHChg);
        IoFaults::failAt(0);
        // A reader sees the save the answer speaks of. Only while every call failed could the
        // writer not learn whether its commit reached the file; then either save may be there.
        Saved found = readBack(path, &code);
        ASSERT_EQ(code, 0);
        if (r == 0) {
          EXPECT_TRUE(found == expect);  // the failure hit a call SQLite could do without
          EXPECT_EQ(send(h, kHSCh, 0), 0);
        } else {
          if (!sticky || !(found == expect)) {
            EXPECT_TRUE(found == first) << "the save answered " << r;
          }
          EXPECT_EQ(send(h, kHSCh, 1), 1) << "a failed save cleared the changed flag";
        }
        if (r == 0 || n % 2) {
          // The next save writes what is held, also after a record made since the last save
          // that answered 0 was removed again.
          send(send(h, kHGtF), kHRmv, kTVhd, fresh);
          expect.records.erase(fresh);
          EXPECT_EQ(send(h, kHChg), 0);
          EXPECT_TRUE(readBack(path, &code) == expect);
          EXPECT_EQ(code, 0);
          EXPECT_EQ(send(h, kHTsv), 0);
          send(h, kDspo);
        } else {
          // The writer gives up; the next writer finds the file as a reader did.
          send(h, kDspo);
          Word w = openStore(path, VhdOpenMode::kReadWrite, &code);
          ASSERT_EQ(code, 0);
          EXPECT_EQ(modelOf(*spaceOf(w)), found.elements);
          EXPECT_EQ(recordsOf(w), found.records);
          send(w, kDspo);
        }
        removeStore(path);
      }
    }
  }
  StoreDb::setParallelFrom(size_t(32) << 20);
  StoreDb::setJournalLimit(int64_t(4) << 20);
}

TEST(StoreFileFaults, EveryFailingCallOfAnOpenRefusesOrLoadsTheSavedState) {
  ScratchDir dir;
  std::string path = dir.file("a.zst"), hot = dir.file("hot.zst");
  Saved first = makeFirstFile(path);
  std::filesystem::copy_file(path, hot);
  std::vector<uint8_t> journal = leaveHotJournal(hot);
  std::vector<uint8_t> hotFile = readBytes(hot);
  // A file as saved, and one whose last save is read through the hot journal beside it.
  for (const std::string& file : {path, hot}) {
    SCOPED_TRACE(file);
    // Every call is failed twice: with the loader stepping its rows, and with them read ahead
    // on a thread (the path of big files), which must make the same calls and say the same.
    const size_t modes[] = {SIZE_MAX, 0};
    int64_t calls = 0;
    for (size_t from : modes) {
      StoreDb::setParallelFrom(from);
      IoFaults::failAt(0);
      int32_t code = 0;
      ASSERT_TRUE(readBack(file, &code) == first);
      ASSERT_TRUE(calls == 0 || calls == IoFaults::calls());
      calls = IoFaults::calls();
    }
    ASSERT_GT(calls, 3);
    for (int64_t n = 1; n <= calls; ++n) {
      SCOPED_TRACE("failing call " + std::to_string(n));
      int32_t code[2];
      std::vector<std::string> lines[2];
      for (int ahead = 0; ahead < 2; ++ahead) {
        StoreDb::setParallelFrom(modes[ahead]);
        zelkor::LogCapture log;
        IoFaults::failAt(n);
        Saved found = readBack(file, &code[ahead]);
        IoFaults::failAt(0);
        for (const LogEntry& e : log.take()) lines[ahead].push_back(e.text);
        if (code[ahead] == 0)
          EXPECT_TRUE(found == first);
        else
          EXPECT_LT(code[ahead], 0);
      }
      EXPECT_EQ(code[0], code[1]);
      EXPECT_EQ(lines[0], lines[1]);
    }
  }
  StoreDb::setParallelFrom(size_t(32) << 20);
  int32_t code = 0;
  EXPECT_TRUE(readBack(path, &code) == first);
  // The readers changed nothing: the next writer rolls the journal back.
  EXPECT_EQ(readBytes(hot), hotFile);
  EXPECT_EQ(readBytes(hot + "-journal"), journal);
  Word w = openStore(hot, VhdOpenMode::kReadWrite, &code);
  ASSERT_EQ(code, 0);
  EXPECT_EQ(modelOf(*spaceOf(w)), first.elements);
  send(w, kDspo);
}

TEST(StoreFileFaults, ACreationThatFailsLeavesNoFileBehind) {
  ScratchDir dir;
  std::string path = dir.file("new.zst");
  auto create = [&](Saved* made) {
    Word h = newHandle();
    send(h, kHNew, 0, 3);
    std::mt19937 rng(31);
    for (int32_t n = 1; n <= 300; ++n) put(spaceOf(h), &made->elements, n, randomBytes(rng, 200));
    int32_t r = vhdCreateFile(h, path);
    send(h, kDspo);
    return r;
  };
  Saved made;
  IoFaults::failAt(0);
  ASSERT_EQ(create(&made), 0);
  int64_t calls = IoFaults::calls();
  std::filesystem::remove(path);
  zelkor::LogCapture quiet;
  for (int64_t n = 1; n <= calls; ++n) {
    SCOPED_TRACE("failing call " + std::to_string(n));
    IoFaults::failAt(n);
    Saved expect;
    int32_t r = create(&expect);
    IoFaults::failAt(0);
    if (r == 0) {
      int32_t code = 0;
      EXPECT_TRUE(readBack(path, &code) == expect);
      EXPECT_EQ(code, 0);
    } else {
      EXPECT_FALSE(std::filesystem::exists(path));
    }
    std::filesystem::remove(path);
    EXPECT_TRUE(std::filesystem::is_empty(dir.file(""))) << "a half-made file was left";
  }
}

TEST(StoreFileFaults, AJournalLeftAtAPathIsNotTakenForANewStoreMadeThere) {
  ScratchDir dir;
  std::string old = dir.file("old.zst"), path = dir.file("new.zst");
  makeFirstFile(old);
  writeBytes(path + "-journal", leaveHotJournal(old));

  Saved made;
  Word n = newHandle();
  send(n, kHNew, 0, 3);
  std::mt19937 rng(41);
  for (int32_t e = 1; e <= 200; ++e) put(spaceOf(n), &made.elements, e, randomBytes(rng, 90));
  ASSERT_EQ(vhdCreateFile(n, path), 0);
  send(n, kDspo);
  int32_t code = 0;
  Word w = openStore(path, VhdOpenMode::kReadWrite, &code);
  ASSERT_EQ(code, 0);
  EXPECT_EQ(modelOf(*spaceOf(w)), made.elements);
  EXPECT_EQ(send(w, kHTsv), 0);
  send(w, kDspo);
}

TEST(StoreFileFaults, ANewStoreLeavesTheJournalOfALiveSaveAndTheTemporariesOfLiveCreations) {
  ScratchDir dir;
  std::string path = dir.file("x.zst");
  auto makeStore = [&](uint32_t seed, Model* made) {
    Word n = newHandle();
    send(n, kHNew, 0, 3);
    std::mt19937 rng(seed);
    for (int32_t e = 1; e <= 50; ++e) put(spaceOf(n), made, e, randomBytes(rng, 90));
    int32_t r = vhdCreateFile(n, path);
    send(n, kDspo);
    return r;
  };
  // A crashed creation's temporary file and a live creator's (its lock held), both old.
  std::string stale = path + ".new-" + std::to_string(getpid()), live = path + ".new-live00";
  writeBytes(stale, {1});
  writeBytes(live, {2});
  int liveLock = open(live.c_str(), O_RDONLY);
  ASSERT_EQ(flock(liveLock, LOCK_EX), 0);
  for (const std::string& f : {stale, live})
    std::filesystem::last_write_time(
        f, std::filesystem::file_time_type::clock::now() - std::chrono::minutes(5));
  Model first;
  ASSERT_EQ(makeStore(1, &first), 0);
  EXPECT_FALSE(std::filesystem::exists(stale));
  EXPECT_TRUE(std::filesystem::exists(live));
  close(liveLock);

  // A writer saves once (its journal stays), then its file is deleted and a new one made there.
  int32_t code = 0;
  Word w = openStore(path, VhdOpenMode::kReadWrite, &code);
  ASSERT_EQ(code, 0);
  put(spaceOf(w), &first, 60, {7});
  ASSERT_EQ(send(w, kHChg), 0);
  std::filesystem::remove(path);
  // While the journal is open in a save (its lock held), no new store is made at the path.
  int journalLock = open((path + "-journal").c_str(), O_RDONLY);
  ASSERT_EQ(flock(journalLock, LOCK_SH), 0);
  zelkor::LogCapture log;
  Model second;
  EXPECT_EQ(makeStore(2, &second), kVhdBusy);
  EXPECT_FALSE(std::filesystem::exists(path));
  close(journalLock);
  second.clear();
  ASSERT_EQ(makeStore(2, &second), 0);
  // The writer of the deleted file saves nothing more: its journal would lie beside the new one.
  put(spaceOf(w), &first, 61, {8});
  EXPECT_EQ(send(w, kHChg), kVhdNoFile);
  EXPECT_FALSE(std::filesystem::exists(path + "-journal"));
  send(w, kDspo);
  Word again = openStore(path, VhdOpenMode::kReadWrite, &code);
  ASSERT_EQ(code, 0);
  EXPECT_EQ(modelOf(*spaceOf(again)), second);
  send(again, kDspo);
}

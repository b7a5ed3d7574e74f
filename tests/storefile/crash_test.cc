// Crash safety: a writer process changes and saves a store in a loop and is killed (SIGKILL) at
// random moments; after every kill the file opens and holds exactly one of the saved states, never
// one older than the last save the writer saw complete. A read-only open comes first, while the
// journal of a save the kill interrupted still waits for a writer: it must read the same save
// and leave the file and the journal as they were.
//
// ZOVE_CRASH_KILLS sets the number of kills (default 200).
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "tests/storefile/support.h"

using namespace storetest;
using namespace zelkor;
using namespace storefile;

namespace {

// One generation's changes, a function of the generation and of the state before it only, so
// the writer and the test's own reference store make the same ones. Element 1 holds the
// generation.
void advance(Word h, int32_t gen) {
  fundra::ElementSpace* s = spaceOf(h);
  std::mt19937 rng(uint32_t(gen) * 2654435761u);
  for (int i = 0; i < 12; ++i) {
    int32_t n = int32_t(2 + rng() % 400);
    std::vector<uint8_t> b = randomBytes(rng, rng() % 8 == 0 ? 2000 : 150);
    if (rng() % 5 == 0) {
      s->LmRemove(n);
      continue;
    }
    s->LmSetAssert(n, int32_t(b.size()));
    if (!b.empty()) std::copy(b.begin(), b.end(), s->LmGet(n));
  }
  Word file = send(h, kHGtF);
  if (gen % 3 == 0) writeRecord(file, randomBytes(rng, 4000));
  int32_t count = i32(send(file, kHCId, kTVhd));
  if (gen % 4 == 0 && count > 3)
    send(file, kHRmv, kTVhd, send(file, kHEId, kTVhd, 1 + int32_t(rng() % uint32_t(count))));
  s->LmSetAssert(1, 4);
  std::memcpy(s->LmGet(1), &gen, 4);
}

int32_t generationOf(Word h) {
  int32_t gen = 0;
  std::memcpy(&gen, spaceOf(h)->LmGet(1), 4);
  return gen;
}

// Messages from the writer: {0, gen} before a save of gen, {1, gen} after it returned 0.
struct Note {
  int32_t done;
  int32_t gen;
};

[[noreturn]] void writerLoop(const std::string& path, int fd) {
  int32_t code = 0;
  Word h = openStore(path, VhdOpenMode::kReadWrite, &code);
  if (!h) _exit(3);
  for (int32_t gen = generationOf(h) + 1;; ++gen) {
    advance(h, gen);
    Note start{0, gen};
    if (write(fd, &start, sizeof start) != sizeof start) _exit(4);
    if (send(h, kHChg) != 0) _exit(5);
    Note done{1, gen};
    if (write(fd, &done, sizeof done) != sizeof done) _exit(4);
  }
}

}  // namespace

TEST(StoreFileCrash, AKilledWriterLeavesExactlyOneOfTheSavedStates) {
  int kills = 200;
  if (const char* env = std::getenv("ZOVE_CRASH_KILLS")) kills = std::max(1, std::atoi(env));
  ScratchDir dir;
  std::string path = dir.file("crash.zst");
  // The test's reference: the same generations, made in this process.
  Word ref = newHandle();
  send(ref, kHNew, 0, 1);
  spaceOf(ref)->LmSetAssert(1, 4);
  ASSERT_EQ(vhdCreateFile(ref, dir.file("reference.zst")), 0);
  {
    Word h = newHandle();
    send(h, kHNew, 0, 1);
    spaceOf(h)->LmSetAssert(1, 4);
    ASSERT_EQ(vhdCreateFile(h, path), 0);
    send(h, kDspo);
  }
  std::mt19937 rng(99);
  int32_t refGen = 0, lastDone = 0, recovered = 0, midSave = 0;
  for (int k = 0; k < kills; ++k) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    pid_t child = fork();
    if (child == 0) {
      close(fds[0]);
      writerLoop(path, fds[1]);
    }
    close(fds[1]);
    std::this_thread::sleep_for(std::chrono::microseconds(2000 + rng() % 50000));
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the writer stopped by itself, status " << status;
    int32_t lastStarted = lastDone;
    Note note;
    while (read(fds[0], &note, sizeof note) == sizeof note) {
      (note.done ? lastDone : lastStarted) = note.gen;
    }
    close(fds[0]);

    // A save was under way when its journal's header is set (a finished save clears it).
    std::vector<uint8_t> journal = readBytes(path + "-journal");
    if (std::any_of(journal.begin(), journal.begin() + std::min<size_t>(journal.size(), 28),
                    [](uint8_t b) { return b != 0; }))
      ++midSave;
    int32_t code = 0;
    std::vector<uint8_t> fileBefore = readBytes(path);
    Word reader = openStore(path, VhdOpenMode::kReadOnly, &code);
    ASSERT_EQ(code, 0) << "a read-only open after kill " << k;
    int32_t readerGen = generationOf(reader);
    Model readerModel = modelOf(*spaceOf(reader));
    auto readerRecords = recordsOf(reader);
    EXPECT_EQ(send(reader, kHTsv), 0) << "kill " << k;
    send(reader, kDspo);
    ASSERT_EQ(readBytes(path), fileBefore) << "the reader changed the file, kill " << k;
    ASSERT_EQ(readBytes(path + "-journal"), journal) << "the reader changed the journal";

    Word h = openStore(path, VhdOpenMode::kReadWrite, &code);
    ASSERT_EQ(code, 0) << "kill " << k;
    int32_t gen = generationOf(h);
    ASSERT_EQ(readerGen, gen) << "the reader saw another save, kill " << k;
    ASSERT_EQ(readerModel, modelOf(*spaceOf(h))) << "kill " << k;
    ASSERT_EQ(readerRecords, recordsOf(h)) << "kill " << k;
    ASSERT_GE(gen, lastDone) << "a completed save was lost, kill " << k;
    ASSERT_LE(gen, std::max(lastStarted, lastDone)) << "kill " << k;
    ASSERT_GE(gen, refGen) << "the file went back, kill " << k;
    while (refGen < gen) {
      advance(ref, ++refGen);
      ASSERT_EQ(send(ref, kHChg), 0);
    }
    ASSERT_EQ(modelOf(*spaceOf(h)), modelOf(*spaceOf(ref)))
        << "kill " << k << ", generation " << gen;
    ASSERT_EQ(recordsOf(h), recordsOf(ref)) << "kill " << k << ", generation " << gen;
    EXPECT_EQ(send(h, kHTsv), 0);
    if (gen > lastDone) ++recovered;  // the kill came after the commit, before the note
    lastDone = gen;
    send(h, kDspo);
  }
  send(ref, kDspo);
  EXPECT_GT(refGen, kills / 2) << "the writer hardly ever saved";
  if (kills >= 100) {
    EXPECT_GT(midSave, 0) << "no kill landed inside a save";
  }
  std::printf("%d kills, %d inside a save, %d generations saved, %d commits before their note\n",
              kills, midSave, refGen, recovered);
}

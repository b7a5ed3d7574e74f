// Store file speed, each figure beside a reference measured in the same run:
//   full save of 1M DLs            vs  write + fsync of the same bytes to a plain file
//   save after 100 changed DLs     vs  the full save of the same store, and the least I/O an
//                                      in-place save of 100 pages must do (see pageFloor)
//   open (load, sums, seal)        vs  reading the same bytes from a plain file
// Counters: MB/s of the store file, MB/s of the reference, and `share` = store / reference
// (for the save after changes: its time as a share of the full save's time). The bytes are the
// elements' bytes, so the file's own overhead (entries, sums, SQLite's pages and their slack)
// counts against the store. `file_share` is the same share with the reference moving as many
// bytes as the store file holds (`file_MB`), which leaves that overhead out. The open also
// shows the read into memory fresh from the system (fresh_ref_MB/s), which pays the page faults
// that any loader's memory costs.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/fundra/space.h"
#include "platform/storefile/vhd.h"
#include "platform/zelkor/zelkor.h"

using namespace zelkor;
using namespace storefile;

namespace {

constexpr int32_t kDLs = 1000000;
using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point t) {
  return std::chrono::duration<double>(Clock::now() - t).count();
}

std::string benchDir() {
  static std::string dir = [] {
    std::string d = (std::filesystem::current_path() / "storefile-bench.tmp").string();
    std::filesystem::remove_all(d);
    std::filesystem::create_directories(d);
    return d;
  }();
  return dir;
}

// A space of DL-like elements: a 20-byte header, a data area and a few 12-byte items, 20 to 100
// bytes in all.
fundra::ElementSpace* makeSpace(int32_t count) {
  auto* s = new fundra::ElementSpace(1024, 0);
  std::mt19937 rng(7);
  for (int32_t n = 1; n <= count; ++n) {
    int32_t items = int32_t(rng() % 6), data = 4 * int32_t(rng() % 6);
    int32_t size = 20 + data + 12 * items;
    s->LmSetAssert(n, size);
    uint8_t* at = s->LmGet(n);
    for (int32_t i = 0; i < size; ++i) at[i] = uint8_t(rng());
  }
  return s;
}

Word newHandle() {
  ZelkorBoot();
  Word h = send(ZelkorLookup(kVhdSig), kNew_);
  send(h, kSetu);
  return h;
}

// Writes bytes to a fresh plain file and fsyncs it: the reference of a save.
double writeAndSync(const std::string& path, int64_t bytes) {
  std::vector<uint8_t> buf(1 << 20, 0x5A);
  auto t = Clock::now();
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  for (int64_t left = bytes; left > 0; left -= int64_t(buf.size()))
    if (::write(fd, buf.data(), size_t(std::min<int64_t>(left, int64_t(buf.size())))) < 0) break;
  ::fsync(fd);
  ::close(fd);
  double s = secondsSince(t);
  ::unlink(path.c_str());
  return s;
}

// Reads bytes from a plain file already in the page cache: the reference of an open. Into a
// buffer already touched (the share's reference), and, for a second figure, into memory fresh
// from the system, as a loader that allocates what it reads into must use.
struct ReadTimes {
  double warm = 0, fresh = 0;
};

double readInto(const std::string& path, uint8_t* into, size_t bytes) {
  auto t = Clock::now();
  int fd = ::open(path.c_str(), O_RDONLY);
  size_t got = 0;
  while (got < bytes) {
    ssize_t r = ::read(fd, into + got, bytes - got);
    if (r <= 0) break;
    got += size_t(r);
  }
  ::close(fd);
  double s = secondsSince(t);
  benchmark::DoNotOptimize(into);
  return s;
}

ReadTimes readPlain(const std::string& path, int64_t bytes) {
  {
    std::vector<uint8_t> buf(size_t(bytes), 0x5A);
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (::write(fd, buf.data(), buf.size()) < 0) return {};
    ::close(fd);
  }
  std::vector<uint8_t> into(static_cast<size_t>(bytes));
  readInto(path, into.data(), into.size());  // warm the cache
  ReadTimes t;
  t.warm = readInto(path, into.data(), into.size());
  std::unique_ptr<uint8_t[]> fresh(new uint8_t[size_t(bytes)]);
  t.fresh = readInto(path, fresh.get(), size_t(bytes));
  ::unlink(path.c_str());
  return t;
}

void report(benchmark::State& state, int64_t bytes, double seconds, double refSeconds) {
  state.counters["MB/s"] = double(bytes) / seconds / 1e6;
  state.counters["ref_MB/s"] = double(bytes) / refSeconds / 1e6;
  state.counters["share"] = refSeconds / seconds;
}

// The saved store the later benchmarks use, and the time its full save took.
std::string gSaved;
double gFullSave = 0;
int gRound = 0;  // file names stay unique across repetitions

void BM_FullSave(benchmark::State& state) {
  double total = 0, refTotal = 0;
  int64_t bytes = 0;
  double fileRefTotal = 0;
  int64_t fileBytes = 0;
  for (auto _ : state) {
    fundra::ElementSpace* space = makeSpace(kDLs);
    bytes = space->LmLiveBytes();
    Word h = newHandle();
    send(h, kHNew, space, 1);
    std::string path = benchDir() + "/full" + std::to_string(gRound++) + ".zst";
    auto t = Clock::now();
    if (vhdCreateFile(h, path) != 0) state.SkipWithError("create failed");
    double s = secondsSince(t);
    state.SetIterationTime(s);
    total += s;
    refTotal += writeAndSync(benchDir() + "/plain", bytes);
    fileBytes = int64_t(std::filesystem::file_size(path));
    fileRefTotal += writeAndSync(benchDir() + "/plain", fileBytes);
    send(h, kDspo);
    if (gSaved.empty())
      gSaved = path;
    else
      std::filesystem::remove(path);
  }
  gFullSave = total / double(state.iterations());
  report(state, bytes, total / double(state.iterations()), refTotal / double(state.iterations()));
  state.counters["file_MB"] = double(fileBytes) / 1e6;
  state.counters["file_share"] = fileRefTotal / total;
}
BENCHMARK(BM_FullSave)->UseManualTime()->Iterations(2)->Unit(benchmark::kMillisecond);

// The I/O any save that rewrites 100 scattered pages of a file in place behind a rollback
// journal must do, on a plain file as big as the store file: the pages' old contents appended to
// a new file and synced, then 100 pages at random places rewritten and synced.
double pageFloor(int64_t fileBytes, int rounds) {
  constexpr int kPage = 16384, kPages = 100;
  const std::string plain = benchDir() + "/plain", journal = benchDir() + "/plain-journal";
  std::vector<uint8_t> buf(size_t(kPage) * kPages, 0x5A);
  int fd = ::open(plain.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
  for (int64_t at = 0; at < fileBytes; at += int64_t(buf.size()))
    if (::pwrite(fd, buf.data(), buf.size(), at) < 0) break;
  ::fsync(fd);
  std::mt19937 rng(9);
  double total = 0;
  for (int r = 0; r < rounds; ++r) {
    std::vector<int64_t> pages;
    for (int i = 0; i < kPages; ++i) pages.push_back(int64_t(rng() % uint32_t(fileBytes / kPage)));
    std::sort(pages.begin(), pages.end());
    auto t = Clock::now();
    int j = ::open(journal.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (::write(j, buf.data(), buf.size()) < 0) break;
    ::fdatasync(j);
    ::close(j);
    for (int64_t p : pages)
      if (::pwrite(fd, buf.data(), kPage, p * kPage) < 0) break;
    ::fdatasync(fd);
    total += secondsSince(t);
    ::unlink(journal.c_str());
  }
  ::close(fd);
  ::unlink(plain.c_str());
  return total / rounds;
}

void BM_SaveAfter100Changes(benchmark::State& state) {
  Word h = newHandle();
  fundra::ElementSpace* space = nullptr;
  if (vhdOpenFile(h, gSaved, VhdOpenMode::kReadWrite) != 0 || send(h, kHGtH, &space) != 0) {
    state.SkipWithError("open failed");
    return;
  }
  std::mt19937 rng(8);
  double total = 0;
  for (auto _ : state) {
    for (int i = 0; i < 100; ++i) {
      int32_t n = int32_t(1 + rng() % uint32_t(kDLs));
      space->LmGet(n)[0] ^= 0xFF;
      space->LmTouch(n);
    }
    auto t = Clock::now();
    if (send(h, kHChg) != 0) state.SkipWithError("save failed");
    double s = secondsSince(t);
    state.SetIterationTime(s);
    total += s;
  }
  double mean = total / double(state.iterations());
  double floor = pageFloor(int64_t(std::filesystem::file_size(gSaved)), 10);
  state.counters["full_save_ms"] = gFullSave * 1e3;
  state.counters["share_of_full"] = mean / gFullSave;
  state.counters["floor_ms"] = floor * 1e3;
  state.counters["floor_share_of_full"] = floor / gFullSave;
  send(h, kDspo);
}
BENCHMARK(BM_SaveAfter100Changes)->UseManualTime()->Iterations(10)->Unit(benchmark::kMillisecond);

void BM_Open(benchmark::State& state) {
  double total = 0, refTotal = 0, freshTotal = 0, fileRefTotal = 0;
  int64_t bytes = 0;
  const int64_t fileBytes = int64_t(std::filesystem::file_size(gSaved));
  for (auto _ : state) {
    Word h = newHandle();
    fundra::ElementSpace* space = nullptr;
    auto t = Clock::now();
    if (vhdOpenFile(h, gSaved, VhdOpenMode::kReadOnly) != 0 || send(h, kHGtH, &space) != 0)
      state.SkipWithError("open failed");
    double s = secondsSince(t);
    state.SetIterationTime(s);
    total += s;
    bytes = space ? space->LmLiveBytes() : 1;
    ReadTimes ref = readPlain(benchDir() + "/plain", bytes);
    refTotal += ref.warm;
    freshTotal += ref.fresh;
    fileRefTotal += readPlain(benchDir() + "/plain", fileBytes).warm;
    send(h, kDspo);
  }
  report(state, bytes, total / double(state.iterations()), refTotal / double(state.iterations()));
  state.counters["fresh_ref_MB/s"] = double(bytes) * double(state.iterations()) / freshTotal / 1e6;
  state.counters["file_MB"] = double(fileBytes) / 1e6;
  state.counters["file_share"] = fileRefTotal / total;
}
BENCHMARK(BM_Open)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::filesystem::remove_all(benchDir());
  return 0;
}

// The element space beside plain references, each measured in the same run.
//
// Graph: 1M elements shaped like DLs (a 20-byte header, then 2 to 4 twelve-byte items whose
// first word is the number of another element). Element 1 is the root; every element is
// reachable through a binary tree laid over a random permutation of the numbers, and the
// remaining items point anywhere, so graph neighbours are not memory neighbours.
//
//   BM_MarkReference          depth-first walk with an explicit stack over the same records in
//                             a std::vector of fixed 68-byte records indexed by number, and a
//                             byte per number for "visited"
//   BM_MarkSpace              the same walk through LmMark / LmGet / LmSize, as the store marks
//   BM_MarkSpacePrefetch      a walk that queues numbers, prefetches the slot of the number 16
//                             places ahead and the bytes of the one 4 places ahead
//   BM_MarkReferencePrefetch  the reference with the same queue and prefetching
//   BM_CollectSpace / BM_CollectReference   free 10% unmarked elements of 1M; the reference
//                             scans a mark byte per block and frees the unmarked malloc blocks
//   BM_CompressSpace / BM_CompressReference compress after a collect of every fifth element (a
//                             tenth freed leaves less slack than LmCompress packs for); the
//                             reference memcpys
//                             the live bytes into one block. Counter heap/live: the space's heap
//                             bytes after compress over the live bytes; table/live: the number
//                             table over the live bytes
//   BM_CreateSpace / BM_CreateMalloc        1M elements of 32 bytes into a new space, and 1M
//                             malloc(32) + memset; BM_CreateSpaceRefill: into a space whose
//                             earlier 1M elements were collected (warm memory, as malloc's is)
//   BM_ChangesSpace / BM_ChangesReference   LmChanges over 1M touched elements with nothing
//                             changed (the worst case: a save after every element was touched),
//                             and a plain read of every element's bytes (a sum)
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <random>
#include <vector>

#include "platform/fundra/space.h"

using namespace fundra;

namespace {

constexpr int32_t kN = 1 << 20;
constexpr int32_t kHeader = 20;
constexpr int32_t kItem = 12;
constexpr int32_t kMaxRecord = kHeader + 4 * kItem;

struct Graph {
  std::vector<std::vector<uint8_t>> records;  // by number; records[0] unused
};

const Graph& TheGraph() {
  static const Graph g = [] {
    Graph g;
    std::mt19937 rng(12345);
    std::vector<int32_t> perm(kN);
    std::iota(perm.begin(), perm.end(), 1);
    std::shuffle(perm.begin() + 1, perm.end(), rng);  // perm[0] stays 1: the root
    g.records.resize(kN + 1);
    for (int32_t i = 0; i < kN; ++i) {
      int32_t items = 2 + int32_t(rng() % 3);
      std::vector<uint8_t>& r = g.records[size_t(perm[size_t(i)])];
      r.assign(size_t(kHeader + items * kItem), 0);
      uint32_t count = uint32_t(items);
      std::memcpy(&r[16], &count, 4);
      for (int32_t k = 0; k < items; ++k) {
        int64_t child = k < 2 ? 2 * int64_t(i) + 1 + k : -1;
        int32_t ref = child >= 0 && child < kN ? perm[size_t(child)] : 1 + int32_t(rng() % kN);
        uint32_t kind = 0x200;
        std::memcpy(&r[size_t(kHeader + k * kItem)], &ref, 4);
        std::memcpy(&r[size_t(kHeader + k * kItem + 4)], &kind, 4);
      }
    }
    return g;
  }();
  return g;
}

ElementSpace& GraphSpace() {
  static ElementSpace* s = [] {
    auto* s = new ElementSpace(1024, 0);
    const Graph& g = TheGraph();
    for (int32_t n = 1; n <= kN; ++n)
      s->LmAddAssert(int32_t(g.records[size_t(n)].size()), g.records[size_t(n)].data());
    return s;
  }();
  return *s;
}

struct FlatRecord {
  uint8_t bytes[kMaxRecord];
};

const std::vector<FlatRecord>& FlatGraph() {
  static const std::vector<FlatRecord> flat = [] {
    const Graph& g = TheGraph();
    std::vector<FlatRecord> f(kN + 1);
    for (int32_t n = 1; n <= kN; ++n)
      std::memcpy(f[size_t(n)].bytes, g.records[size_t(n)].data(), g.records[size_t(n)].size());
    return f;
  }();
  return flat;
}

int32_t ItemCount(const uint8_t* dl) {
  int32_t c;
  std::memcpy(&c, dl + 16, 4);
  return c;
}

int32_t ItemRef(const uint8_t* dl, int32_t k) {
  int32_t r;
  std::memcpy(&r, dl + kHeader + k * kItem, 4);
  return r;
}

void BM_MarkReference(benchmark::State& state) {
  const std::vector<FlatRecord>& f = FlatGraph();
  std::vector<uint8_t> visited(kN + 1);
  std::vector<int32_t> stack;
  stack.reserve(kN);
  int64_t marked = 0;
  for (auto _ : state) {
    std::fill(visited.begin(), visited.end(), 0);
    marked = 0;
    stack.push_back(1);
    visited[1] = 1;
    while (!stack.empty()) {
      int32_t n = stack.back();
      stack.pop_back();
      ++marked;
      const uint8_t* dl = f[size_t(n)].bytes;
      for (int32_t k = 0, c = ItemCount(dl); k < c; ++k) {
        int32_t ref = ItemRef(dl, k);
        if (ref > 0 && ref <= kN && !visited[size_t(ref)]) {
          visited[size_t(ref)] = 1;
          stack.push_back(ref);
        }
      }
    }
  }
  if (marked != kN) state.SkipWithError("the reference missed elements");
  state.SetItemsProcessed(state.iterations() * kN);
}

void BM_MarkSpace(benchmark::State& state) {
  ElementSpace& s = GraphSpace();
  std::vector<int32_t> stack;
  stack.reserve(kN);
  int64_t marked = 0;
  for (auto _ : state) {
    s.LmUnmark();
    marked = 0;
    stack.push_back(1);
    s.LmMark(1);
    while (!stack.empty()) {
      int32_t n = stack.back();
      stack.pop_back();
      ++marked;
      const uint8_t* dl = s.LmGet(n);
      int32_t size = s.LmSize(n);
      for (int32_t k = 0, c = ItemCount(dl); k < c && kHeader + (k + 1) * kItem <= size; ++k) {
        int32_t ref = ItemRef(dl, k);
        if (s.LmMark(ref) > 0) stack.push_back(ref);
      }
    }
  }
  if (marked != kN) state.SkipWithError("the space walk missed elements");
  state.SetItemsProcessed(state.iterations() * kN);
}

// Numbers are queued unmarked and marked when taken, so a number's slot and bytes can be fetched
// while the numbers ahead of it are worked on. Order does not matter to a full mark.
void BM_MarkSpacePrefetch(benchmark::State& state) {
  ElementSpace& s = GraphSpace();
  std::vector<int32_t> queue;
  queue.reserve(size_t(kN) * 4);
  int64_t marked = 0;
  for (auto _ : state) {
    s.LmUnmark();
    marked = 0;
    queue.clear();
    queue.push_back(1);
    for (size_t h = 0; h < queue.size(); ++h) {
      if (h + 16 < queue.size()) s.LmPrefetch(queue[h + 16], false);
      if (h + 4 < queue.size()) s.LmPrefetch(queue[h + 4], true);
      int32_t n = queue[h];
      if (s.LmMark(n) <= 0) continue;
      ++marked;
      const uint8_t* dl = s.LmGet(n);
      int32_t size = s.LmSize(n);
      for (int32_t k = 0, c = ItemCount(dl); k < c && kHeader + (k + 1) * kItem <= size; ++k)
        queue.push_back(ItemRef(dl, k));
    }
  }
  if (marked != kN) state.SkipWithError("the prefetching walk missed elements");
  state.SetItemsProcessed(state.iterations() * kN);
}

void BM_MarkReferencePrefetch(benchmark::State& state) {
  const std::vector<FlatRecord>& f = FlatGraph();
  std::vector<uint8_t> visited(kN + 1);
  std::vector<int32_t> queue;
  queue.reserve(size_t(kN) * 4);
  int64_t marked = 0;
  for (auto _ : state) {
    std::fill(visited.begin(), visited.end(), 0);
    marked = 0;
    queue.clear();
    queue.push_back(1);
    for (size_t h = 0; h < queue.size(); ++h) {
      if (h + 16 < queue.size()) __builtin_prefetch(&visited[size_t(queue[h + 16])]);
      if (h + 4 < queue.size()) __builtin_prefetch(f[size_t(queue[h + 4])].bytes);
      int32_t n = queue[h];
      if (n <= 0 || n > kN || visited[size_t(n)]) continue;
      visited[size_t(n)] = 1;
      ++marked;
      const uint8_t* dl = f[size_t(n)].bytes;
      for (int32_t k = 0, c = ItemCount(dl); k < c; ++k) queue.push_back(ItemRef(dl, k));
    }
  }
  if (marked != kN) state.SkipWithError("the prefetching reference missed elements");
  state.SetItemsProcessed(state.iterations() * kN);
}

// A fresh space of the graph's records with one element in `every` (by a fixed random choice)
// left unmarked.
ElementSpace* GarbageSpace(uint32_t every = 10) {
  const Graph& g = TheGraph();
  auto* s = new ElementSpace(1024, 0);
  for (int32_t n = 1; n <= kN; ++n)
    s->LmAddAssert(int32_t(g.records[size_t(n)].size()), g.records[size_t(n)].data());
  s->LmUnmark();
  std::mt19937 rng(7);
  for (int32_t n = 1; n <= kN; ++n)
    if (rng() % every != 0) s->LmMark(n);
  s->LmMark(kN);
  return s;
}

void BM_CollectSpace(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    ElementSpace* s = GarbageSpace();
    state.ResumeTiming();
    benchmark::DoNotOptimize(s->LmCollect());
    state.PauseTiming();
    delete s;
    state.ResumeTiming();
  }
}

void BM_CollectReference(benchmark::State& state) {
  const Graph& g = TheGraph();
  for (auto _ : state) {
    state.PauseTiming();
    std::vector<void*> blocks(kN + 1);
    std::vector<uint8_t> marks(kN + 1);
    std::mt19937 rng(7);
    for (int32_t n = 1; n <= kN; ++n) {
      blocks[size_t(n)] = std::malloc(g.records[size_t(n)].size());
      std::memcpy(blocks[size_t(n)], g.records[size_t(n)].data(), g.records[size_t(n)].size());
      marks[size_t(n)] = rng() % 10 != 0;
    }
    state.ResumeTiming();
    for (int32_t n = 1; n <= kN; ++n)
      if (!marks[size_t(n)]) {
        std::free(blocks[size_t(n)]);
        blocks[size_t(n)] = nullptr;
      }
    state.PauseTiming();
    for (void* b : blocks) std::free(b);
    state.ResumeTiming();
  }
}

void BM_CompressSpace(benchmark::State& state) {
  double heap = 0, table = 0;
  for (auto _ : state) {
    state.PauseTiming();
    ElementSpace* s = GarbageSpace(5);
    s->LmCollect();
    state.ResumeTiming();
    benchmark::DoNotOptimize(s->LmCompress());
    state.PauseTiming();
    heap = double(s->LmHeapBytes()) / double(s->LmLiveBytes());
    table = double(s->LmTableBytes()) / double(s->LmLiveBytes());
    delete s;
    state.ResumeTiming();
  }
  state.counters["heap/live"] = heap;
  state.counters["table/live"] = table;
}

void BM_CompressReference(benchmark::State& state) {
  ElementSpace* s = GarbageSpace(5);
  s->LmCollect();
  std::vector<const uint8_t*> from;
  std::vector<int32_t> sizes;
  size_t total = 0;
  for (int32_t n = s->LmNext(0); n; n = s->LmNext(n)) {
    from.push_back(s->LmGet(n));
    sizes.push_back(s->LmSize(n));
    total += size_t(s->LmSize(n));
  }
  std::vector<uint8_t> to(total);
  for (auto _ : state) {
    size_t off = 0;
    for (size_t i = 0; i < from.size(); ++i) {
      std::memcpy(to.data() + off, from[i], size_t(sizes[i]));
      off += size_t(sizes[i]);
    }
    benchmark::ClobberMemory();
  }
  delete s;
}

void BM_CreateSpace(benchmark::State& state) {
  for (auto _ : state) {
    auto* s = new ElementSpace(1024, 0);
    for (int32_t i = 0; i < kN; ++i) benchmark::DoNotOptimize(s->LmAddAssert(32));
    state.PauseTiming();
    delete s;
    state.ResumeTiming();
  }
  state.counters["per_element"] = benchmark::Counter(
      double(kN), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// The same into a space whose earlier 1M elements were collected: blocks come from the free
// lists and the table's memory is warm, as malloc's are in BM_CreateMalloc after its first round.
void BM_CreateSpaceRefill(benchmark::State& state) {
  ElementSpace s(1024, 0);
  for (auto _ : state) {
    for (int32_t i = 0; i < kN; ++i) benchmark::DoNotOptimize(s.LmAddAssert(32));
    state.PauseTiming();
    s.LmUnmark();
    s.LmCollect();
    state.ResumeTiming();
  }
  state.counters["per_element"] = benchmark::Counter(
      double(kN), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_CreateMalloc(benchmark::State& state) {
  std::vector<void*> blocks(kN);
  for (auto _ : state) {
    for (int32_t i = 0; i < kN; ++i) {
      blocks[size_t(i)] = std::malloc(32);
      std::memset(blocks[size_t(i)], 0, 32);
    }
    benchmark::DoNotOptimize(blocks.data());
    state.PauseTiming();
    for (void* b : blocks) std::free(b);
    state.ResumeTiming();
  }
  state.counters["per_element"] = benchmark::Counter(
      double(kN), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_ChangesSpace(benchmark::State& state) {
  ElementSpace& s = GraphSpace();
  s.LmHandedOver();
  for (auto _ : state) {
    state.PauseTiming();
    for (int32_t n = 1; n <= kN; ++n) s.LmTouch(n);
    state.ResumeTiming();
    LmDelta d = s.LmChanges();
    if (!d.changed.empty()) state.SkipWithError("nothing should have changed");
    state.PauseTiming();
    s.LmHandedOver();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kN);
}

void BM_ChangesReference(benchmark::State& state) {
  ElementSpace& s = GraphSpace();
  for (auto _ : state) {
    uint64_t sum = 0;
    for (int32_t n = 1; n <= kN; ++n) {
      const uint8_t* at = s.LmGet(n);
      for (int32_t i = 0, size = s.LmSize(n); i + 8 <= size; i += 8) {
        uint64_t w;
        std::memcpy(&w, at + i, 8);
        sum += w;
      }
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kN);
}

}  // namespace

BENCHMARK(BM_MarkReference)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MarkSpace)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MarkReferencePrefetch)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MarkSpacePrefetch)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CollectReference)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_CollectSpace)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_CompressReference)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CompressSpace)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_CreateMalloc)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CreateSpace)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CreateSpaceRefill)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ChangesReference)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ChangesSpace)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();

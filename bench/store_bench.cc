// The store engine beside plain references, each measured in the same run.
//
//   BM_ValueGet / BM_ValueSet   TSVG / TSVS through a send, on a DL of 8 immediate items, keys
//                               taken in turn
//   BM_KeySearchReference       a linear search of the same 8 keys in a plain array, from the
//                               last to the first, returning the value
//   BM_Collect/N                TSGC of a store of N reachable DLs (counter ns/DL)
//   BM_SpaceValidFirst/N        the first LmValid of a space, a pass over its table (counter
//                               ns/DL)
//   BM_SpaceValidAfter100/N     LmValid after 100 DLs grew, the slots it looks at again (TSGC
//                               runs it twice) (counter ns/DL)
//   BM_MarkReference/N          depth-first walk with an explicit stack over the same graph held
//                               as fixed records in a std::vector, a byte per number for
//                               "visited" (counter ns/DL)
//   BM_Grow                     a store grown from nothing to 100k reachable DLs through TSDN and
//                               TSAS, periodic collections included (counters ns/change and
//                               total seconds)
//   BM_GrowReference            the same tree built as records in a std::vector
//
// Graph of the collection benchmarks: DL 1 is the root; DL k (k >= 2) hangs under a binary tree
// laid over a random permutation of the numbers, so graph neighbours are not memory neighbours.
// Each DL holds a `Pare` handle to its parent, handles `c0  ` and `c1  ` to its children and an
// immediate value, as stored objects do (depth about log2 N, far below the marking limit).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include "platform/fundra/space.h"
#include "platform/zelkor/zelkor.h"
#include "zove/dl.h"
#include "zove/store.h"

using namespace zove;
using zelkor::fc;
using zelkor::Object;
using zelkor::send;
using zelkor::Word;

// The module's identity symbol: naming it keeps the module linked, so its classes register.
extern "C" const char* zoveModuleName();

namespace {

void boot() {
  // The periodic collections log a line each; a benchmark is not the place to read them.
  static bool done = (zoveModuleName(), zelkor::setLogSink([](int, std::string_view) {}),
                      zelkor::ZelkorBoot(), true);
  (void)done;
}

Object* newStore(fundra::ElementSpace* space) {
  boot();
  Object* s = zelkor::asObject(send(zelkor::ZelkorLookup(kZoveSig), zelkor::kNew_));
  send(s, kSetu);
  if (!s) std::abort();
  send(s, kHNew, space, 1);
  return s;
}

// --- Item access -----------------------------------------------------------------------------

constexpr FourCC kKeys[8] = {fc("Colr"), fc("Date"), fc("Flag"), fc("Name"),
                             fc("Pare"), fc("Size"), fc("Type"), fc("Wide")};

void BM_ValueGet(benchmark::State& state) {
  Object* s = newStore(nullptr);
  Word dl = send(s, kTSDN, fc("data"), 0, 0);
  for (int i = 0; i < 8; ++i) send(s, kTSVS, dl, kKeys[i], i);
  int32_t v = 0, i = 0;
  for (auto _ : state) {
    send(s, kTSVG, dl, kKeys[i], &v);
    benchmark::DoNotOptimize(v);
    i = (i + 1) & 7;
  }
  send(s, kDspo);
}

void BM_ValueSet(benchmark::State& state) {
  Object* s = newStore(nullptr);
  Word dl = send(s, kTSDN, fc("data"), 0, 0);
  for (int i = 0; i < 8; ++i) send(s, kTSVS, dl, kKeys[i], i);
  int32_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(send(s, kTSVS, dl, kKeys[i], i));
    i = (i + 1) & 7;
  }
  send(s, kDspo);
}

void BM_KeySearchReference(benchmark::State& state) {
  struct KV {
    uint32_t key;
    int32_t value;
  };
  KV items[8];
  for (int i = 0; i < 8; ++i) items[i] = {kKeys[i], i};
  benchmark::DoNotOptimize(items);
  int32_t i = 0;
  for (auto _ : state) {
    uint32_t key = kKeys[i];
    benchmark::DoNotOptimize(key);
    int32_t v = -1;
    for (int k = 7; k >= 0; --k)
      if (items[k].key == key) {
        v = items[k].value;
        break;
      }
    benchmark::DoNotOptimize(v);
    i = (i + 1) & 7;
  }
}

// --- Collection ------------------------------------------------------------------------------

struct Graph {
  int32_t n;
  std::vector<int32_t> parent, child0, child1;  // by DL number; 0 for none
};

const Graph& TheGraph(int32_t n) {
  static std::vector<std::unique_ptr<Graph>> graphs;
  for (auto& g : graphs)
    if (g->n == n) return *g;
  auto g = std::make_unique<Graph>();
  g->n = n;
  std::mt19937 rng(12345);
  std::vector<int32_t> perm(static_cast<size_t>(n));
  std::iota(perm.begin(), perm.end(), 1);
  std::shuffle(perm.begin() + 1, perm.end(), rng);  // perm[0] stays 1: the root
  g->parent.assign(size_t(n) + 2, 0);
  g->child0.assign(size_t(n) + 2, 0);
  g->child1.assign(size_t(n) + 2, 0);
  for (int32_t i = 1; i < n; ++i) {
    int32_t dl = perm[size_t(i)], up = perm[size_t((i - 1) / 2)];
    g->parent[size_t(dl)] = up;
    ((i - 1) % 2 == 0 ? g->child0 : g->child1)[size_t(up)] = dl;
  }
  graphs.push_back(std::move(g));
  return *graphs.back();
}

void putItem(uint8_t* at, int32_t ref, uint32_t kind, uint32_t key) {
  Item it{ref, kind, key};
  std::memcpy(at, &it, sizeof it);
}

// The graph as DLs in a new element space: DL 1 the root (with its `mods` list as element n+1).
fundra::ElementSpace* GraphSpace(const Graph& g) {
  auto* s = new fundra::ElementSpace(1024, 0);
  uint8_t buf[20 + 8 + 5 * 12];
  for (int32_t dl = 1; dl <= g.n; ++dl) {
    std::memset(buf, 0, sizeof buf);
    auto* h = reinterpret_cast<DLHead*>(buf);
    bool root = dl == 1;
    h->uType = root ? kRootType : fc("data");
    h->dataSize = root ? 8 : 0;
    uint8_t* item = buf + 20 + h->dataSize;
    auto add = [&](int32_t ref, uint32_t kind, uint32_t key) {
      putItem(item, ref, kind, key);
      item += 12;
      ++h->count;
    };
    if (g.parent[size_t(dl)]) add(g.parent[size_t(dl)], kHandle, kPareKey);
    if (g.child0[size_t(dl)]) add(g.child0[size_t(dl)], kHandle, fc("c0  "));
    if (g.child1[size_t(dl)]) add(g.child1[size_t(dl)], kHandle, fc("c1  "));
    if (root) add(g.n + 1, kList, kModsKey);
    if (!root) add(int32_t(kImmediate), uint32_t(dl), fc("valu"));
    s->LmAddAssert(int32_t(item - buf), buf);
  }
  s->LmAddAssert(0);  // the empty `mods` list
  return s;
}

void BM_Collect(benchmark::State& state) {
  const Graph& g = TheGraph(int32_t(state.range(0)));
  Object* s = newStore(GraphSpace(g));
  for (auto _ : state) benchmark::DoNotOptimize(send(s, kTSGC));
  fundra::ElementSpace* sp = nullptr;
  send(s, storefile::kHGtH, &sp);
  if (sp->LmLiveCount() != g.n + 1) state.SkipWithError("the collection lost DLs");
  state.counters["ns/DL"] = benchmark::Counter(
      double(g.n), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  send(s, kDspo);
}

// The space's validity check on the same store, which TSGC runs before and after freeing: the
// part of a collection that is not the store's own walk.
void BM_SpaceValidFirst(benchmark::State& state) {
  const Graph& g = TheGraph(int32_t(state.range(0)));
  for (auto _ : state) {
    state.PauseTiming();
    fundra::ElementSpace* s = GraphSpace(g);
    state.ResumeTiming();
    benchmark::DoNotOptimize(s->LmValid());
    state.PauseTiming();
    delete s;
    state.ResumeTiming();
  }
  state.counters["ns/DL"] = benchmark::Counter(
      double(g.n), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_SpaceValidAfter100(benchmark::State& state) {
  const Graph& g = TheGraph(int32_t(state.range(0)));
  fundra::ElementSpace* s = GraphSpace(g);
  s->LmValid();
  std::mt19937 rng(3);
  for (auto _ : state) {
    state.PauseTiming();
    for (int k = 0; k < 100; ++k) {
      int32_t dl = 2 + int32_t(rng() % uint32_t(g.n - 1));
      s->LmSetAssert(dl, s->LmSize(dl) + 4);
    }
    state.ResumeTiming();
    benchmark::DoNotOptimize(s->LmValid());
  }
  state.counters["ns/DL"] = benchmark::Counter(
      double(g.n), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  delete s;
}

void BM_MarkReference(benchmark::State& state) {
  const Graph& g = TheGraph(int32_t(state.range(0)));
  constexpr int32_t kRecord = 20 + 4 * 12;
  struct Flat {
    uint8_t bytes[kRecord];
  };
  std::vector<Flat> flat(size_t(g.n) + 1);
  {
    fundra::ElementSpace* s = GraphSpace(g);
    for (int32_t dl = 1; dl <= g.n; ++dl)
      std::memcpy(flat[size_t(dl)].bytes, s->LmGet(dl),
                  size_t(std::clamp(s->LmSize(dl), 0, kRecord)));
    delete s;
  }
  std::vector<uint8_t> visited(size_t(g.n) + 2);
  std::vector<int32_t> stack;
  stack.reserve(size_t(g.n));
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
      const uint8_t* dl = flat[size_t(n)].bytes;
      int32_t count, data;
      std::memcpy(&count, dl + 16, 4);
      std::memcpy(&data, dl + 12, 4);
      for (int32_t k = 0; k < count; ++k) {
        int32_t ref;
        std::memcpy(&ref, dl + 20 + data + 12 * k, 4);
        if (ref > 0 && ref <= g.n && !visited[size_t(ref)]) {
          visited[size_t(ref)] = 1;
          stack.push_back(ref);
        }
      }
    }
  }
  if (marked != g.n) state.SkipWithError("the reference missed DLs");
  state.counters["ns/DL"] = benchmark::Counter(
      double(g.n), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// --- Growth ----------------------------------------------------------------------------------

constexpr int32_t kGrowTo = 100000;

void BM_Grow(benchmark::State& state) {
  for (auto _ : state) {
    Object* s = newStore(nullptr);
    std::vector<int32_t> made{1};
    made.reserve(kGrowTo + 1);
    for (int32_t i = 1; i <= kGrowTo; ++i) {
      int32_t dl = zelkor::i32(send(s, kTSDN, fc("data"), 0, 0));
      int32_t up = made[size_t((i - 1) / 2)];
      send(s, kTSAS, up, (i - 1) % 2 == 0 ? fc("c0  ") : fc("c1  "), dl);
      send(s, kTSVS, dl, fc("valu"), i);
      made.push_back(dl);
    }
    state.PauseTiming();
    send(s, kDspo);
    state.ResumeTiming();
  }
  // One counted change per DL (TSDN): the 0 -> 100k store counted 100k changes.
  state.counters["ns/change"] = benchmark::Counter(
      double(kGrowTo), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_GrowReference(benchmark::State& state) {
  struct Rec {
    uint32_t type;
    int32_t child[2];
    int32_t value;
  };
  for (auto _ : state) {
    std::vector<Rec> recs(1);
    for (int32_t i = 1; i <= kGrowTo; ++i) {
      recs.push_back(Rec{fc("data"), {0, 0}, i});
      recs[size_t((i - 1) / 2)].child[(i - 1) % 2] = i;
    }
    benchmark::DoNotOptimize(recs.data());
  }
  state.counters["ns/change"] = benchmark::Counter(
      double(kGrowTo), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

}  // namespace

BENCHMARK(BM_ValueGet);
BENCHMARK(BM_ValueSet);
BENCHMARK(BM_KeySearchReference);
BENCHMARK(BM_Collect)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SpaceValidFirst)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
BENCHMARK(BM_SpaceValidAfter100)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MarkReference)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Grow)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_GrowReference)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();

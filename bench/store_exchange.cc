// TSEx and TSIm of a stored structure of 10001 DLs in MB/s, beside memcpy of the same stream
// bytes; TSDD and TSDC of the same structure in ns per DL, beside memcpy's ns per DL.
//
// The structure is what a module's data looks like: a kept top DL listing 1000 objects; each
// object has a data area, a name blob, an immediate value and a list of 9 parts; each part has
// a data word, an immediate value, a blob and a handle back to its object.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/fundra/memory.h"
#include "platform/fundra/persist.h"
#include "platform/fundra/space.h"
#include "platform/zelkor/zelkor.h"
#include "store/zove_class.h"
#include "zove/store.h"

// The module's identity symbol: referring to it keeps the module linked (its classes register
// from static initializers, which nothing else here would call for).
extern "C" const char* zoveModuleName();

namespace {

using zelkor::fc;
using zelkor::i32;
using zelkor::Object;
using zelkor::send;

constexpr int kObjects = 1000;
constexpr int kParts = 9;
constexpr int kDLs = 1 + kObjects * (1 + kParts);

struct Fixture {
  Object* store;
  int32_t top;
  fundra::TMemory stream;

  Fixture() {
    benchmark::DoNotOptimize(zoveModuleName());
    zelkor::ZelkorBoot();
    store = zelkor::asObject(send(zelkor::ZelkorLookup(zove::kZoveSig), kNew_));
    send(store, kSetu);
    send(store, kHNew, 0, 1);
    top = i32(send(store, kTSDN, fc("top "), 0, 0));
    for (int o = 0; o < kObjects; ++o) {
      int32_t obj = i32(send(store, kTSDN, fc("obj "), 8, 0));
      send(store, kTSLA, top, fc("Objs"), obj);
      send(store, kTSBW, obj, fc("Name"), "an object name!", 16);
      send(store, kTSVS, obj, fc("Valu"), o);
      for (int p = 0; p < kParts; ++p) {
        int32_t part = i32(send(store, kTSDN, fc("part"), 4, 0));
        send(store, kTSLA, obj, fc("Subs"), part);
        send(store, kTSVS, part, fc("Valu"), p);
        send(store, kTSBW, part, fc("Blob"), "8 bytes", 8);
        send(store, kTSHS, part, fc("Back"), obj);
      }
    }
    if (send(store, kTSEx, top, &stream) != 0 || stream.GetSize() == 0) {
      std::fprintf(stderr, "bench_exchange: the structure could not be built\n");
      std::exit(1);
    }
  }
};

Fixture& fixture() {
  static Fixture f;
  return f;
}

void perDL(benchmark::State& state) {
  state.counters["per_DL"] =
      benchmark::Counter(double(kDLs) * double(state.iterations()),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_MemcpyStream(benchmark::State& state) {
  Fixture& f = fixture();
  std::vector<uint8_t> dst(size_t(f.stream.GetSize()));
  for (auto _ : state) {
    std::memcpy(dst.data(), f.stream.MemPtr(), dst.size());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * f.stream.GetSize());
  perDL(state);
}

void BM_Export(benchmark::State& state) {
  Fixture& f = fixture();
  fundra::TMemory out;
  for (auto _ : state) benchmark::DoNotOptimize(send(f.store, kTSEx, f.top, &out));
  state.SetBytesProcessed(int64_t(state.iterations()) * f.stream.GetSize());
  perDL(state);
}

// The floor under TSEx in the space: every live element (the structure and the store's few own)
// copied into a stream with its byte count, in number order, without walking a DL's items or
// looking a DL up. Runs before the import benchmarks add elements.
void BM_ExportFloor(benchmark::State& state) {
  Fixture& f = fixture();
  const fundra::ElementSpace* space = zove::zoveData(f.store)->space;
  std::vector<uint8_t> out(size_t(space->LmLiveBytes() + 4 * int64_t(space->LmLiveCount())));
  for (auto _ : state) {
    uint8_t* to = out.data();
    for (int32_t n = 1; n <= space->LmCount(); ++n) {
      int32_t size = space->LmSize(n);
      if (size < 0) continue;
      std::memcpy(to, &size, 4);
      std::memcpy(to + 4, space->LmGet(n), size_t(size));
      to += 4 + size;
    }
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * f.stream.GetSize());
  perDL(state);
}

void BM_Import(benchmark::State& state) {
  Fixture& f = fixture();
  int32_t target = i32(send(f.store, kTSDN, fc("tgt "), 0, 0));
  int n = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(send(f.store, kTSIm, target, &f.stream));
    if (++n % 8 == 0) {  // the replaced structures are garbage: collect now and then
      state.PauseTiming();
      send(f.store, kTSGC);
      state.ResumeTiming();
    }
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * f.stream.GetSize());
  perDL(state);
  send(f.store, kTSDU, target);
  send(f.store, kTSGC);
}

// The floor under TSIm in the space: make the stream's elements in one call and copy each record's
// bytes in, without reading a DL's items or turning an index into a number; collected as often.
void BM_ImportFloor(benchmark::State& state) {
  Fixture& f = fixture();
  fundra::ElementSpace* space = zove::zoveData(f.store)->space;
  std::vector<int32_t> sizes, numbers;
  std::vector<const uint8_t*> from;
  std::vector<uint8_t*> to;
  const uint8_t* end = f.stream.MemPtr() + f.stream.GetSize();
  for (const uint8_t* p = f.stream.MemPtr() + fundra::kPersistBytes; p < end;) {
    int32_t n;
    std::memcpy(&n, p, 4);
    sizes.push_back(n);
    from.push_back(p + 4);
    p += 4 + n;
  }
  numbers.resize(sizes.size());
  to.resize(sizes.size());
  int n = 0;
  for (auto _ : state) {
    space->LmAddMany(int32_t(sizes.size()), sizes.data(), numbers.data(), to.data());
    for (size_t i = 0; i < sizes.size(); ++i) std::memcpy(to[i], from[i], size_t(sizes[i]));
    benchmark::ClobberMemory();
    if (++n % 8 == 0) {  // nothing refers to them: each collection frees them all
      state.PauseTiming();
      send(f.store, kTSGC);
      state.ResumeTiming();
    }
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * f.stream.GetSize());
  perDL(state);
  send(f.store, kTSGC);
}

void BM_Duplicate(benchmark::State& state) {
  Fixture& f = fixture();
  for (auto _ : state) {
    int32_t copy = i32(send(f.store, kTSDD, f.top));
    state.PauseTiming();
    send(f.store, kTSDU, copy);
    send(f.store, kTSGC);
    state.ResumeTiming();
  }
  perDL(state);
}

void BM_Compare(benchmark::State& state) {
  Fixture& f = fixture();
  int32_t copy = i32(send(f.store, kTSDD, f.top));
  for (auto _ : state) benchmark::DoNotOptimize(send(f.store, kTSDC, f.top, copy));
  if (send(f.store, kTSDC, f.top, copy) != 0) state.SkipWithError("copies differ");
  perDL(state);
  send(f.store, kTSDU, copy);
  send(f.store, kTSGC);
}

BENCHMARK(BM_MemcpyStream)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Export)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ExportFloor)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Import)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ImportFloor)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Duplicate)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Compare)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();

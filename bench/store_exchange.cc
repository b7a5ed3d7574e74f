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

  // The store's element space, as its value-handle base hands it out.
  fundra::ElementSpace* space() const {
    fundra::ElementSpace* sp = nullptr;
    send(store, storefile::kHGtH, &sp);
    return sp;
  }

  Fixture() {
    benchmark::DoNotOptimize(zoveModuleName());
    zelkor::ZelkorBoot();
    store = zelkor::asObject(send(zelkor::ZelkorLookup(zove::kZoveSig), zelkor::kNew_));
    send(store, zelkor::kSetu);
    send(store, storefile::kHNew, 0, 1);
    top = i32(send(store, zove::kTSDN, fc("top "), 0, 0));
    for (int o = 0; o < kObjects; ++o) {
      int32_t obj = i32(send(store, zove::kTSDN, fc("obj "), 8, 0));
      send(store, zove::kTSLA, top, fc("Objs"), obj);
      send(store, zove::kTSBW, obj, fc("Name"), "an object name!", 16);
      send(store, zove::kTSVS, obj, fc("Valu"), o);
      for (int p = 0; p < kParts; ++p) {
        int32_t part = i32(send(store, zove::kTSDN, fc("part"), 4, 0));
        send(store, zove::kTSLA, obj, fc("Subs"), part);
        send(store, zove::kTSVS, part, fc("Valu"), p);
        send(store, zove::kTSBW, part, fc("Blob"), "8 bytes", 8);
        send(store, zove::kTSHS, part, fc("Back"), obj);
      }
    }
    if (send(store, zove::kTSEx, top, &stream) != 0 || stream.GetSize() == 0) {
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
  for (auto _ : state) benchmark::DoNotOptimize(send(f.store, zove::kTSEx, f.top, &out));
  state.SetBytesProcessed(int64_t(state.iterations()) * f.stream.GetSize());
  perDL(state);
}

// The floor under TSEx in the space: every live element (the structure and the store's few own)
// copied into a stream with its byte count, in number order, without walking a DL's items or
// looking a DL up. Runs before the import benchmarks add elements.
void BM_ExportFloor(benchmark::State& state) {
  Fixture& f = fixture();
  const fundra::ElementSpace* space = f.space();
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
  int32_t target = i32(send(f.store, zove::kTSDN, fc("tgt "), 0, 0));
  int n = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(send(f.store, zove::kTSIm, target, &f.stream));
    if (++n % 8 == 0) {  // the replaced structures are garbage: collect now and then
      state.PauseTiming();
      send(f.store, zove::kTSGC);
      state.ResumeTiming();
    }
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * f.stream.GetSize());
  perDL(state);
  send(f.store, zove::kTSDU, target);
  send(f.store, zove::kTSGC);
}

// The floor under TSIm in the space: make the stream's elements in one call and copy each record's
// bytes in, without reading a DL's items or turning an index into a number; collected as often.
void BM_ImportFloor(benchmark::State& state) {
  Fixture& f = fixture();
  fundra::ElementSpace* space = f.space();
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
      send(f.store, zove::kTSGC);
      state.ResumeTiming();
    }
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * f.stream.GetSize());
  perDL(state);
  send(f.store, zove::kTSGC);
}

void BM_Duplicate(benchmark::State& state) {
  Fixture& f = fixture();
  for (auto _ : state) {
    int32_t copy = i32(send(f.store, zove::kTSDD, f.top));
    state.PauseTiming();
    send(f.store, zove::kTSDU, copy);
    send(f.store, zove::kTSGC);
    state.ResumeTiming();
  }
  perDL(state);
}

void BM_Compare(benchmark::State& state) {
  Fixture& f = fixture();
  int32_t copy = i32(send(f.store, zove::kTSDD, f.top));
  for (auto _ : state) benchmark::DoNotOptimize(send(f.store, zove::kTSDC, f.top, copy));
  if (send(f.store, zove::kTSDC, f.top, copy) != 0) state.SkipWithError("copies differ");
  perDL(state);
  send(f.store, zove::kTSDU, copy);
  send(f.store, zove::kTSGC);
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

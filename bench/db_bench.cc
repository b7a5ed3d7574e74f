// Opening and closing DLs through a database object, beside references measured in the same run.
//
//   BM_OpenCloseOpenDL        PInO + PInC of a DL that is open already (a second opening, the
//                             common case), ns per pair
//   BM_DictReference          one TDict Lookup and one Set + Remove pair, on a dictionary of the
//                             same few entries the database holds
//   BM_OpenCloseNewInstance   PInO + PInC of a closed DL: the instance is made (PmIM, New  and
//                             Setu of an `@Ins`) and disposed of (PmID, Dspo), ns per pair
//   BM_NewDisposeReference    New  + Dspo of an `@Ins`, sent as PmIM and PmID send them
//
// The database has eight other DLs open, so its dictionaries are not trivially small.
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "platform/fundra/dict.h"
#include "platform/zelkor/zelkor.h"
#include "zove/db.h"
#include "zove/store.h"

using namespace zove;
using zelkor::fc;
using zelkor::Object;
using zelkor::send;
using zelkor::Word;

// The module's identity symbol: naming it keeps the module linked, so its classes register.
extern "C" const char* zoveModuleName();

namespace {

constexpr int32_t kOtherDLs = 8;

// An installed store (its channel being itself) and a database object of module BNCH on it, with
// DLs 100..107 open.
struct Setup {
  Word store = 0;
  Word db = 0;
  Setup() {
    static bool booted = (zoveModuleName(), zelkor::setLogSink([](int, std::string_view) {}),
                          zelkor::ZelkorBoot(), true);
    (void)booted;
    store = send(zelkor::ZelkorLookup(kZoveSig), kNew_);
    send(store, kSetu);
    if (send(store, kHNew, 0, 1) != 0 || send(store, kTSIn, store, 1) != 0) std::abort();
    db = send(zelkor::ZelkorLookup(kDbSig), kNew_);
    if (send(db, kSetu, store, fc("BNCH"), 0) != 0) std::abort();
    Word ins = 0;
    for (int32_t i = 0; i < kOtherDLs; ++i) send(db, kPInO, 100 + i, &ins);
  }
  ~Setup() {
    for (int32_t i = 0; i < kOtherDLs; ++i) send(db, kPInC, 100 + i);
    send(store, kDspo);  // disposes of the database too (XTSC)
  }
};

void BM_OpenCloseOpenDL(benchmark::State& state) {
  Setup s;
  Word ins = 0;
  send(s.db, kPInO, 5, &ins);
  for (auto _ : state) {
    send(s.db, kPInO, 5, &ins);
    send(s.db, kPInC, 5);
    benchmark::DoNotOptimize(ins);
  }
  send(s.db, kPInC, 5);
}
BENCHMARK(BM_OpenCloseOpenDL);

void BM_DictReference(benchmark::State& state) {
  fundra::TDict dict(0, 0);
  for (int32_t i = 0; i < kOtherDLs + 1; ++i) dict.Set(100 + i, 1000 + i);
  Word found = 0;
  for (auto _ : state) {
    found += dict.Lookup(104);
    dict.Set(5, found);
    dict.Remove(5);
    benchmark::DoNotOptimize(found);
  }
}
BENCHMARK(BM_DictReference);

void BM_OpenCloseNewInstance(benchmark::State& state) {
  Setup s;
  Word ins = 0;
  for (auto _ : state) {
    send(s.db, kPInO, 5, &ins);
    send(s.db, kPInC, 5);
    benchmark::DoNotOptimize(ins);
  }
}
BENCHMARK(BM_OpenCloseNewInstance);

void BM_NewDisposeReference(benchmark::State& state) {
  Setup s;
  Word cls = zelkor::ZelkorLookup(kInsSig);
  for (auto _ : state) {
    Word ins = send(cls, kNew_);
    send(ins, kSetu);
    benchmark::DoNotOptimize(ins);
    send(ins, kDspo);
  }
}
BENCHMARK(BM_NewDisposeReference);

}  // namespace

BENCHMARK_MAIN();

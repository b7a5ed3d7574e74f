// The provider manager beside references measured in the same run.
//
//   BM_ShowHide/W           every parent shown (PmSh under the root), each of its children shown
//                           under it (PmSh), then every parent hidden with its subtree (PmHd):
//                           1k parents of 100 children, the records made beforehand; ns per
//                           provider. W = 1: a tree watch listens to the events.
//   BM_ShowHalf             the shows of BM_ShowHide alone (the hides run untimed)
//   BM_ShowHideReference    as many TSVG + TSVS pairs on the store, on DLs of a few items
//   BM_GetAbilities         PGAb of a provider seen before, ns per call
//   BM_GetHandleReference   one TSHG of an item among a few, ns per call
//   BM_Attach               XTSD of a manager whose tree holds the same 101k providers, all of
//                           them shown again (untimed) before each attachment: the walk that
//                           marks them as not shown; ns per provider
//   BM_CollectReference     TSGC of the same store, ns per provider
//
// The providers are owned by a test module whose controller answers PGAb with a constant.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <vector>

#include "platform/fundra/rnlist.h"
#include "platform/zelkor/zelkor.h"
#include "zove/db.h"
#include "zove/providers.h"
#include "zove/store.h"

using namespace zove;
using zelkor::fc;
using zelkor::Object;
using zelkor::send;
using zelkor::Word;

// The module's identity symbol: naming it keeps the module linked, so its classes register.
extern "C" const char* zoveModuleName();

namespace {

constexpr int32_t kParents = 1000;
constexpr int32_t kChildren = 100;
constexpr int32_t kProviders = kParents * (kChildren + 1);

zelkor::ClassRec* gBenchController = nullptr;

Word benchSetup(Object* self, const zelkor::Msg& m) {
  return zelkor::ClassData::pass(gBenchController, self, kSetu, m.w[0], fc("BNCH"), 0);
}
Word benchAbilities(Object*, const zelkor::Msg&) { return 0x100; }

// An installed store with a manager and a controller for module BNCH, and the tree: 1k parents
// under the root, 100 children each, placed and hidden. Made once (periodic collections make
// building it take seconds).
struct Tree {
  Word store = 0, manager = 0;
  std::vector<int32_t> parents;
  std::vector<std::vector<int32_t>> children;
  Tree() {
    zoveModuleName();
    zelkor::setLogSink([](int, std::string_view) {});
    zelkor::ZelkorBoot();
    gBenchController = zelkor::makeSubclass(zelkor::findClass(kDmodSig), fc("bCTL"), 0);
    zelkor::Defn(gBenchController, kSetu, benchSetup);
    zelkor::Defn(gBenchController, kPGAb, benchAbilities);
    store = send(zelkor::ZelkorLookup(kZoveSig), kNew_);
    send(store, kSetu);
    if (send(store, kHNew, 0, 1) != 0 || send(store, kTSIn, store, 1) != 0) std::abort();
    Word ctl = send(zelkor::objWord(gBenchController->classObject), kSdNw, store);
    manager = send(zelkor::ZelkorLookup(kProSig), kSdNw, store);
    int32_t module = zelkor::i32(send(ctl, kSdRR));
    auto make = [&] {
      int32_t dl = zelkor::i32(send(store, kTSDN, fc("Note"), 0, module));
      send(store, kTSSS, dl);
      return dl;
    };
    children.resize(kParents);
    for (int32_t i = 0; i < kParents; ++i) {
      parents.push_back(make());
      send(manager, kPmSh, 0, parents.back());
      fundra::RNList list;
      for (int32_t k = 0; k < kChildren; ++k) {
        children[size_t(i)].push_back(make());
        list.Add(children[size_t(i)].back());
      }
      send(manager, kPmLS, parents.back(), &list);
      send(manager, kPmHd, parents.back());
    }
  }
  void showAll() const {
    for (size_t i = 0; i < parents.size(); ++i) {
      send(manager, kPmSh, 0, parents[i]);
      for (int32_t c : children[i]) send(manager, kPmSh, parents[i], c);
    }
  }
  void hideAll() const {
    for (int32_t p : parents) send(manager, kPmHd, p);
  }
};

const Tree& TheTree() {
  static Tree* t = new Tree;
  return *t;
}

void perProvider(benchmark::State& state, double providers) {
  state.counters["ns/provider"] = benchmark::Counter(
      providers, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_ShowHide(benchmark::State& state) {
  const Tree& t = TheTree();
  Word watch = 0;
  if (state.range(0)) {
    watch = send(zelkor::ZelkorLookup(kTreeWatchSig), kNew_);
    send(watch, kSetu, t.manager);
  }
  for (auto _ : state) {
    t.showAll();
    t.hideAll();
  }
  if (watch && (send(watch, kPwRp, nullptr) != 0 || send(watch, kPwAg, nullptr) != 0))
    state.SkipWithError("the watch disagrees");
  send(watch, kDspo);
  perProvider(state, kProviders);
}
BENCHMARK(BM_ShowHide)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_ShowHalf(benchmark::State& state) {
  const Tree& t = TheTree();
  for (auto _ : state) {
    t.showAll();
    state.PauseTiming();
    t.hideAll();
    state.ResumeTiming();
  }
  perProvider(state, kProviders);
}
BENCHMARK(BM_ShowHalf)->Unit(benchmark::kMillisecond);

void BM_ShowHideReference(benchmark::State& state) {
  const Tree& t = TheTree();
  int32_t v = 0;
  for (auto _ : state) {
    for (int32_t i = 0; i < kParents; ++i)
      for (int32_t k = 0; k <= kChildren; ++k) {
        int32_t dl = k == kChildren ? t.parents[size_t(i)] : t.children[size_t(i)][size_t(k)];
        send(t.store, kTSVG, dl, fc("Bnch"), &v);
        send(t.store, kTSVS, dl, fc("Bnch"), v + 1);
      }
  }
  perProvider(state, kProviders);
}
BENCHMARK(BM_ShowHideReference)->Unit(benchmark::kMillisecond);

void BM_GetAbilities(benchmark::State& state) {
  const Tree& t = TheTree();
  int32_t p = t.children[7][7];
  for (auto _ : state) benchmark::DoNotOptimize(send(t.manager, kPGAb, p));
}
BENCHMARK(BM_GetAbilities);

void BM_GetHandleReference(benchmark::State& state) {
  const Tree& t = TheTree();
  int32_t p = t.children[7][7], status = 0;
  for (auto _ : state) {
    send(t.store, kTSHG, p, kPspKey, &status);
    benchmark::DoNotOptimize(status);
  }
}
BENCHMARK(BM_GetHandleReference);

void BM_Attach(benchmark::State& state) {
  const Tree& t = TheTree();
  for (auto _ : state) {
    state.PauseTiming();
    t.showAll();
    state.ResumeTiming();
    benchmark::DoNotOptimize(send(t.manager, kXTSD, t.store));
  }
  perProvider(state, kProviders);
}
BENCHMARK(BM_Attach)->Unit(benchmark::kMillisecond);

void BM_CollectReference(benchmark::State& state) {
  const Tree& t = TheTree();
  for (auto _ : state) benchmark::DoNotOptimize(send(t.store, kTSGC));
  perProvider(state, kProviders);
}
BENCHMARK(BM_CollectReference)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

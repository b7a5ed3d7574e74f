// The provider manager beside references measured in the same run.
//
//   BM_ShowHide/W           every parent shown (PmSh under the root), each of its children shown
//                           under it (PmSh), then every parent hidden with its subtree (PmHd):
//                           1k parents of 100 children, the records made beforehand; ns per
//                           provider. W = 1: a tree watch listens to the events.
//   BM_ShowHalf             the shows of BM_ShowHide alone (the hides run untimed)
//   BM_ShowHideReference    as many TSVG + TSVS pairs on the store, on DLs of a few items
//   BM_ShowHideFloor        the work a show and a hide of the same tree cannot do without, done
//                           directly, without the manager, as one plain loop per parent:
//                             the element space asked for (HGtH) once per provider shown and once
//                             per parent hidden, as each of the manager's calls must;
//                             show of each provider: its DL opened for `_psp`, its status DL for
//                             the record, `_ppa` and `_pl#`; its controller asked (TSCM) and sent
//                             PGAb, the invisible flag read from the open DL; the parent's DL and
//                             status DL opened (depth, `_pst`, `_ppa`), and for a child the root's
//                             as well (the grandparent's `_pst`); the record written (TSWD);
//                             PoXA, and for a child PoXP, broadcast on the manager;
//                           hide of each parent: its DL and status DL opened, the record written
//                           (TSWD), PoXD; its `_pl#` and `_pk#` read; each child's DL and status
//                           DL opened (`_psp`, `_ppa` checked against the parent, record, `_pk#`,
//                           `_pl#`), its record written (TSWD), PoXD; the root's `_pst` read, PoXP.
//                           Left out: the PmSh and PmHd sends that reach the manager (one per
//                           provider shown, one per parent hidden), a second reading of a record
//                           after the controller was asked, the sets that keep walks from looping,
//                           the stack of waiting shows, and every check for a case the tree does
//                           not hold (a parent not shown, a missing record, a leftover entry,
//                           links). Sort marks are read, never written (none is set).
//   BM_GetAbilities         PGAb of a provider seen before, ns per call
//   BM_GetHandleReference   one TSHG of an item among a few, ns per call
//   BM_Attach               XTSD of a manager whose tree holds the same 101k providers, all of
//                           them shown again (untimed) before each attachment: the walk that
//                           marks them as not shown; ns per provider
//   BM_CollectReference     TSGC of the same store, ns per provider
//   BM_SortedFirst          PoEL of a parent's 10k shown children in sort mode 1, its `_pk#`
//                           shuffled and its sort mark cleared (untimed) before each call, so that
//                           each call sorts; ns per child
//   BM_SortedAgain          the same PoEL again and again: the mark says sorted, nothing is
//                           sorted and no sort name asked for
//   BM_SortedAgainFloor     what that PoEL cannot do without, done directly: the element space
//                           asked for (HGtH); the parent's DL and status DL opened (record, `_pst`,
//                           `_pk#`); then for each child in the list's (name) order its DL opened
//                           for `_psp` and its status DL for the record and `_ppa`, checked as
//                           the enumeration does (placed under the parent, shown; no filter) and
//                           appended to the list's memory; the PoEL send itself is left out
//   BM_SortReference        std::sort of the same 10k sort names, shuffled (untimed) before each
//                           round, with the same comparison (TString::Compare, option 0)
//   BM_Descendants          PoDL of the 101k providers, all shown, no sort; ns per provider
//   BM_WalkReference        the element-space benchmark's plain walk (depth first, an explicit
//                           stack, a byte per number for visited) over 101k records of 20 to 68
//                           bytes in a std::vector, laid over a random permutation; ns per record
//
// The providers are owned by a test module whose controller answers PGAb with a constant.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "platform/fundra/memory.h"
#include "platform/fundra/rnlist.h"
#include "platform/fundra/tstring.h"
#include "platform/storefile/vhd.h"
#include "platform/zelkor/zelkor.h"
#include "zove/db.h"
#include "zove/dl.h"
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

// The sort names of the sort benchmark's children, by DL number.
std::vector<fundra::TString>& SortNames() {
  static std::vector<fundra::TString> names;
  return names;
}
Word benchSortName(Object*, const zelkor::Msg& m) {
  auto* s = zelkor::asPtr<fundra::TString>(m.w[1]);
  size_t dl = size_t(m.w[0]);
  if (s) *s = dl < SortNames().size() ? SortNames()[dl] : fundra::TString();
  return 0;
}

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
    zelkor::Defn(gBenchController, kPGSN, benchSortName);
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

// --- The floor: what a show and a hide must read, write and announce -----------------------

const fundra::ElementSpace* SpaceOf(Word store) {
  fundra::ElementSpace* s = nullptr;
  send(store, storefile::kHGtH, &s);
  return s;
}

const Item* ItemIn(const DLView& v, FourCC key) {
  int32_t i = dlFind(v, key);
  return i < 0 ? nullptr : &v.item(i);
}
int32_t HandleIn(const DLView& v, FourCC key) {
  const Item* it = ItemIn(v, key);
  return it && it->ref >= 1 && typeOf(it->kind) == kHandle ? it->ref : 0;
}
int32_t ValueIn(const DLView& v, FourCC key) {
  const Item* it = ItemIn(v, key);
  return it && typeOf(uint32_t(it->ref)) == kImmediate ? int32_t(it->kind) : 0;
}
bool HasListIn(const DLView& v, FourCC key) {
  const Item* it = ItemIn(v, key);
  return it && it->ref >= 1 && typeOf(it->kind) == kList;
}

// A provider's DL and its status DL, opened: false when either does not open as a DL.
struct Opened {
  DLView dl, status;
  int32_t statusDL = 0;
  StatusRecord record{};
};
bool OpenProvider(const fundra::ElementSpace* s, int32_t p, Opened* o) {
  if (dlOpen(s, p, &o->dl) != 0) return false;
  o->statusDL = HandleIn(o->dl, kPspKey);
  if (dlOpen(s, o->statusDL, &o->status) != 0 || o->status.head->dataSize != kStatusBytes)
    return false;
  std::memcpy(&o->record, o->status.data, kStatusBytes);
  return true;
}

struct Floor {
  const Tree& t;
  int32_t root = 0;
  Word manager;
  explicit Floor(const Tree& tree) : t(tree), manager(tree.manager) {
    Opened o;
    if (!OpenProvider(SpaceOf(t.store), t.parents[0], &o)) std::abort();
    root = HandleIn(o.status, kPpaKey);
  }
  bool show(int32_t parent, int32_t p) const {
    const fundra::ElementSpace* s = SpaceOf(t.store);
    Opened o, q;
    if (!OpenProvider(s, p, &o) || o.record.depth >= 0) return false;
    int32_t placed = HandleIn(o.status, kPpaKey);
    bool links = HasListIn(o.status, kPlKey);
    uint32_t f = uint32_t(send(send(t.store, kTSCM, p), kPGAb, p));
    if (o.dl.head->flags & kInvisibleFlag)
      f |= kAbInvisible;
    else
      f &= ~uint32_t(kAbInvisible);
    int32_t under = parent ? parent : root;
    if (!OpenProvider(s, under, &q) || placed != under) return false;
    int32_t depth = parent ? q.record.depth + 1 : 1;
    benchmark::DoNotOptimize(ValueIn(q.status, kPstKey));
    int32_t gp = HandleIn(q.status, kPpaKey);
    if (parent) {
      Opened g;
      if (!OpenProvider(s, gp, &g)) return false;
      benchmark::DoNotOptimize(ValueIn(g.status, kPstKey));
    }
    StatusRecord r = o.record;
    r.depth = depth;
    r.abilities = f;
    send(t.store, kTSWD, o.statusDL, &r, kStatusBytes);
    zelkor::TransBlock(manager, kPoXA, zelkor::asObject(manager), parent, p);
    if (parent) zelkor::TransBlock(manager, kPoXP, zelkor::asObject(manager), 0, parent);
    return !links;
  }
  bool hide(int32_t p) const {
    const fundra::ElementSpace* s = SpaceOf(t.store);
    Opened o;
    if (!OpenProvider(s, p, &o) || o.record.depth < 0) return false;
    StatusRecord r = o.record;
    r.depth = -1;
    int32_t children = 0;
    bool ok = !HasListIn(o.status, kPlKey);
    if (const Item* it = ItemIn(o.status, kPkKey)) children = it->ref;
    send(t.store, kTSWD, o.statusDL, &r, kStatusBytes);
    zelkor::TransBlock(manager, kPoXD, zelkor::asObject(manager), 0, p);
    ListView list;
    if (children <= 0 || listOpen(s, children, &list) != 0) return false;
    for (int32_t i = 0; i < list.count; ++i) {
      int32_t c = list.at[i];
      Opened k;
      if (!OpenProvider(s, c, &k) || HandleIn(k.status, kPpaKey) != p) return false;
      ok &= !HasListIn(k.status, kPkKey) && !HasListIn(k.status, kPlKey);
      StatusRecord kr = k.record;
      kr.depth = -1;
      send(t.store, kTSWD, k.statusDL, &kr, kStatusBytes);
      zelkor::TransBlock(manager, kPoXD, zelkor::asObject(manager), p, c);
    }
    Opened g;
    if (!OpenProvider(s, root, &g)) return false;
    benchmark::DoNotOptimize(ValueIn(g.status, kPstKey));
    zelkor::TransBlock(manager, kPoXP, zelkor::asObject(manager), 0, 0);
    return ok;
  }
};

void BM_ShowHideFloor(benchmark::State& state) {
  const Tree& t = TheTree();
  Floor floor(t);
  bool ok = true;
  for (auto _ : state) {
    for (size_t i = 0; i < t.parents.size(); ++i) {
      ok &= floor.show(0, t.parents[i]);
      for (int32_t c : t.children[i]) ok &= floor.show(t.parents[i], c);
    }
    for (int32_t p : t.parents) ok &= floor.hide(p);
  }
  if (!ok) state.SkipWithError("the tree is not as the floor expects");
  perProvider(state, kProviders);
}
BENCHMARK(BM_ShowHideFloor)->Unit(benchmark::kMillisecond);

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

// --- Order: a parent of 10k children sorted by name --------------------------------------------

constexpr int32_t kSorted = 10000;

// A name like people give: a word, a number (the comparison takes digit runs by value) and case.
fundra::TString RandomName(std::mt19937& rng) {
  static const char* words[] = {"copy", "Report", "éclair", "Plan", "notes", "Budget", "zebra"};
  std::string s = words[rng() % 7];
  s += " " + std::to_string(rng() % 5000) + (rng() % 2 ? " draft" : " Final");
  return fundra::TString(s);
}

struct SortTree {
  int32_t parent = 0;
  std::vector<int32_t> children;
  std::vector<fundra::TString> names;
  SortTree() {
    const Tree& t = TheTree();
    Word ctl = send(t.store, kTSGM, fc("BNCH"));
    int32_t module = zelkor::i32(send(ctl, kSdRR));
    auto make = [&] {
      int32_t dl = zelkor::i32(send(t.store, kTSDN, fc("Note"), 0, module));
      send(t.store, kTSSS, dl);
      return dl;
    };
    parent = make();
    send(t.manager, kPmSh, 0, parent);
    std::mt19937 rng(7);
    fundra::RNList list;
    for (int32_t i = 0; i < kSorted; ++i) {
      children.push_back(make());
      list.Add(children.back());
      if (SortNames().size() <= size_t(children.back())) SortNames().resize(children.back() + 1);
      SortNames()[size_t(children.back())] = RandomName(rng);
      names.push_back(SortNames()[size_t(children.back())]);
    }
    send(t.manager, kPmLS, parent, &list);
  }
  // The children in a new random order, and no sort mark.
  void shuffle(std::mt19937& rng) const {
    const Tree& t = TheTree();
    std::vector<int32_t> order = children;
    std::shuffle(order.begin(), order.end(), rng);
    fundra::TMemory mem;
    mem.SetSize(int32_t(order.size() * 4));
    std::memcpy(mem.MemPtr(), order.data(), order.size() * 4);
    int32_t status = 0;
    send(t.store, kTSHG, parent, kPspKey, &status);
    send(t.store, kTSLf, status, kPkKey, &mem);
    send(t.store, kTSVS, status, kPstKey, 0);
  }
};

const SortTree& TheSortTree() {
  static SortTree* t = new SortTree;
  return *t;
}

void BM_SortedFirst(benchmark::State& state) {
  const Tree& t = TheTree();
  const SortTree& s = TheSortTree();
  std::mt19937 rng(11);
  fundra::RNList out;
  for (auto _ : state) {
    state.PauseTiming();
    s.shuffle(rng);
    state.ResumeTiming();
    send(t.manager, kPoEL, s.parent, &out, 0, 0, 1);
  }
  if (out.Count() != kSorted) state.SkipWithError("not every child was listed");
  state.counters["ns/child"] = benchmark::Counter(
      kSorted, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_SortedFirst)->Unit(benchmark::kMillisecond);

void BM_SortedAgain(benchmark::State& state) {
  const Tree& t = TheTree();
  const SortTree& s = TheSortTree();
  fundra::RNList out;
  send(t.manager, kPoEL, s.parent, &out, 0, 0, 1);
  for (auto _ : state) send(t.manager, kPoEL, s.parent, &out, 0, 0, 1);
  state.counters["ns/child"] = benchmark::Counter(
      kSorted, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_SortedAgain)->Unit(benchmark::kMicrosecond);

void BM_SortedAgainFloor(benchmark::State& state) {
  const Tree& t = TheTree();
  const SortTree& s = TheSortTree();
  fundra::RNList out;
  send(t.manager, kPoEL, s.parent, &out, 0, 0, 1);  // sorted, as BM_SortedAgain finds it
  for (auto _ : state) {
    const fundra::ElementSpace* space = SpaceOf(t.store);
    Opened parent;
    ListView list;
    const Item* kids = nullptr;
    if (!OpenProvider(space, s.parent, &parent) || (parent.record.abilities & kAbKeepOrder) ||
        ValueIn(parent.status, kPstKey) != 1 || !(kids = ItemIn(parent.status, kPkKey)) ||
        listOpen(space, kids->ref, &list) != 0) {
      state.SkipWithError("the parent is not as the floor expects");
      break;
    }
    fundra::TMemory& mem = out.Memory();
    int32_t count = 0, spare = 0;
    for (int32_t i = 0; i < list.count; ++i) {
      int32_t c = list.at[i];
      Opened k;
      if (!OpenProvider(space, c, &k) || HandleIn(k.status, kPpaKey) != s.parent ||
          k.record.depth < 0)
        continue;
      if (spare == 0) {
        mem.SetSize((count + 128) * 4, fundra::kMemNoFill);
        spare = 127;
      } else {
        --spare;
      }
      std::memcpy(mem.MemPtr() + size_t(count) * 4, &c, 4);
      ++count;
    }
    mem.SetSize(count * 4);
  }
  if (out.Count() != kSorted) state.SkipWithError("not every child was listed");
  state.counters["ns/child"] = benchmark::Counter(
      kSorted, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_SortedAgainFloor)->Unit(benchmark::kMicrosecond);

void BM_SortReference(benchmark::State& state) {
  const SortTree& s = TheSortTree();
  std::mt19937 rng(11);
  std::vector<fundra::TString> names;
  for (auto _ : state) {
    state.PauseTiming();
    names = s.names;
    std::shuffle(names.begin(), names.end(), rng);
    state.ResumeTiming();
    std::sort(names.begin(), names.end(), [](const fundra::TString& a, const fundra::TString& b) {
      return fundra::TString::Compare(a, b, 0) < 0;
    });
  }
  state.counters["ns/child"] = benchmark::Counter(
      kSorted, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_SortReference)->Unit(benchmark::kMillisecond);

// --- Descendants ---------------------------------------------------------------------------

void BM_Descendants(benchmark::State& state) {
  const Tree& t = TheTree();
  t.showAll();
  fundra::RNList out;
  for (auto _ : state) send(t.manager, kPoDL, 0, &out, 0, 0, 0);
  if (out.Count() < kProviders) state.SkipWithError("not every provider was listed");
  t.hideAll();
  perProvider(state, kProviders);
}
BENCHMARK(BM_Descendants)->Unit(benchmark::kMillisecond);

void BM_WalkReference(benchmark::State& state) {
  constexpr int32_t kHeader = 20, kItem = 12, kMaxRecord = kHeader + 4 * kItem;
  struct Record {
    uint8_t bytes[kMaxRecord];
  };
  const int32_t n = kProviders;
  std::vector<Record> records(size_t(n) + 1);
  std::mt19937 rng(12345);
  std::vector<int32_t> perm(static_cast<size_t>(n));
  std::iota(perm.begin(), perm.end(), 1);
  std::shuffle(perm.begin() + 1, perm.end(), rng);
  for (int32_t i = 0; i < n; ++i) {
    uint8_t* r = records[size_t(perm[size_t(i)])].bytes;
    int32_t items = 2 + int32_t(rng() % 3);
    std::memcpy(r + 16, &items, 4);
    for (int32_t k = 0; k < items; ++k) {
      int64_t child = k < 2 ? 2 * int64_t(i) + 1 + k : -1;
      int32_t ref = child >= 0 && child < n ? perm[size_t(child)] : 1 + int32_t(rng() % n);
      std::memcpy(r + kHeader + k * kItem, &ref, 4);
    }
  }
  std::vector<uint8_t> visited(size_t(n) + 1);
  std::vector<int32_t> stack;
  int64_t walked = 0;
  for (auto _ : state) {
    std::fill(visited.begin(), visited.end(), 0);
    walked = 0;
    stack.push_back(1);
    visited[1] = 1;
    while (!stack.empty()) {
      int32_t at = stack.back();
      stack.pop_back();
      ++walked;
      const uint8_t* r = records[size_t(at)].bytes;
      int32_t count;
      std::memcpy(&count, r + 16, 4);
      for (int32_t k = 0; k < count; ++k) {
        int32_t ref;
        std::memcpy(&ref, r + kHeader + k * kItem, 4);
        if (ref > 0 && ref <= n && !visited[size_t(ref)]) {
          visited[size_t(ref)] = 1;
          stack.push_back(ref);
        }
      }
    }
  }
  if (walked != n) state.SkipWithError("the walk missed records");
  perProvider(state, n);
}
BENCHMARK(BM_WalkReference)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

// The provider companions beside references measured in the same run.
//
//   BM_Propose                   PcNC (folder type, no name) among 1,000 folders named "New
//   folder",
//                                "New folder 1" ... "New folder 999": the proposal ("New folder
//                                1000", the 1,001st candidate), the prompt and a dialog that
//                                cancels at once; µs per proposal
//   BM_ProposeReferenceSearch    the proposal's search done directly, over the same names in
//   memory:
//                                each candidate compared with the names in order until one is
//                                equal (501,500 TString comparisons)
//   BM_ProposeReferenceCandidates  one TString comparison per candidate (1,001), each with a name
//                                of its own length
//   BM_Forget                    PFog of a hidden container that 10k providers reference (each
//                                placed under it, `_ppa`, and listed by its module): the hide that
//                                finds nothing shown and the cut of every reference; ns per
//                                reference
//   BM_ForgetReferenceCollect    TSGC of the same store, per the same 10k
//
// The providers of the forget are owned by a test module (BNCH) whose controller answers PGAb
// with a constant and lists them under `Nts#` in its module DL.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "platform/fundra/dialogs.h"
#include "platform/fundra/kstrings.h"
#include "platform/fundra/rnlist.h"
#include "platform/fundra/tstring.h"
#include "platform/zelkor/zelkor.h"
#include "zove/db.h"
#include "zove/procon.h"
#include "zove/providers.h"
#include "zove/store.h"

using namespace zove;
using fundra::TString;
using zelkor::fc;
using zelkor::i32;
using zelkor::Object;
using zelkor::send;
using zelkor::Word;

// The module's identity symbol: naming it keeps the module linked, so its classes register.
extern "C" const char* zoveModuleName();

namespace {

constexpr int32_t kFolders = 1000;
constexpr int32_t kReferences = 10000;
constexpr FourCC kFolder = fc("Fldr");
constexpr uint16_t kFolderTable = 18150;

zelkor::ClassRec* gBenchController = nullptr;

Word benchSetup(Object* self, const zelkor::Msg& m) {
  return zelkor::ClassData::pass(gBenchController, self, kSetu, m.w[0], fc("BNCH"), 0);
}
Word benchAbilities(Object*, const zelkor::Msg&) { return 0x100; }

// A user who cancels every query at once and reads no alert.
struct Cancel : fundra::DialogHost {
  int32_t Query(const fundra::QueryRequest&, TString*) override { return fundra::kDialogCancelled; }
  int32_t Alert(uint32_t, const TString&) override { return fundra::kDialogConfirmed; }
};

// An installed store with a manager, the folder type and its 1,000 folders, and a module BNCH
// whose 10k notes the forget places under a container. Made once.
struct Bench {
  Word store = 0, manager = 0;
  int32_t module = 0;
  fundra::RNList notes;
  Cancel user;
  Bench() {
    zoveModuleName();
    zelkor::setLogSink([](int, std::string_view) {});
    zelkor::ZelkorBoot();
    fundra::DefineKString(18100, kNCPt, "Name of the new %s:");
    fundra::DefineKString(18100, kDCNm, "New %s");
    fundra::DefineKString(18100, kDCNN, "New %s %~d");
    fundra::DefineKString(kFolderTable, kCoTN, "folder");
    fundra::SetDialogHost(&user);
    gBenchController = zelkor::makeSubclass(zelkor::findClass(kDmodSig), fc("bCTL"), 0);
    zelkor::Defn(gBenchController, kSetu, benchSetup);
    zelkor::Defn(gBenchController, kPGAb, benchAbilities);
    store = send(zelkor::ZelkorLookup(kZoveSig), kNew_);
    send(store, kSetu);
    if (send(store, kHNew, 0, 1) != 0 || send(store, kTSIn, store, 1) != 0) std::abort();
    Word ctl = send(zelkor::objWord(gBenchController->classObject), kSdNw, store);
    manager = send(zelkor::ZelkorLookup(kProSig), kSdNw, store);
    module = i32(send(ctl, kSdRR));
    if (i32(send(manager, kPcCT, kFolder, kFolderTable, 0x2)) <= 0) std::abort();
    for (int32_t n = 0; n < kFolders; ++n) {
      TString name(n == 0 ? std::string("New folder") : "New folder " + std::to_string(n));
      if (i32(send(manager, kPcNC, kFolder, &name)) <= 0) std::abort();
    }
    for (int32_t i = 0; i < kReferences; ++i) {
      int32_t dl = i32(send(store, kTSDN, fc("Note"), 0, module));
      send(store, kTSSS, dl);
      send(store, kTSLA, module, fc("Nts#"), dl);
      notes.Add(dl);
    }
  }
  // A new container, shown, with the 10k notes placed under it, then hidden with them.
  int32_t containerOfAll() {
    TString name("All");
    int32_t c = i32(send(manager, kPcNC, kFolder, &name));
    send(manager, kPmSh, 0, c);
    send(manager, kPmLS, c, &notes);
    send(manager, kPmHd, c);
    return c;
  }
};

Bench& TheBench() {
  static Bench* b = new Bench;
  return *b;
}

// The names and the candidates as the references compare them.
std::vector<TString> folderNames() {
  std::vector<TString> names;
  for (int32_t n = 0; n < kFolders; ++n)
    names.emplace_back(n == 0 ? std::string("New folder") : "New folder " + std::to_string(n));
  return names;
}

void BM_Propose(benchmark::State& state) {
  Bench& b = TheBench();
  for (auto _ : state)
    if (send(b.manager, kPcNC, kFolder, 0) != 0) state.SkipWithError("a container was made");
}
BENCHMARK(BM_Propose)->Unit(benchmark::kMicrosecond);

void BM_ProposeReferenceSearch(benchmark::State& state) {
  std::vector<TString> names = folderNames();
  std::vector<TString> candidates = names;
  candidates.emplace_back("New folder 1000");
  int64_t comparisons = 0;
  for (auto _ : state) {
    comparisons = 0;
    for (const TString& c : candidates) {
      bool taken = false;
      for (const TString& n : names) {
        ++comparisons;
        if (c == n) {
          taken = true;
          break;
        }
      }
      benchmark::DoNotOptimize(taken);
      if (!taken) break;
    }
  }
  state.counters["comparisons"] = double(comparisons);
}
BENCHMARK(BM_ProposeReferenceSearch)->Unit(benchmark::kMicrosecond);

void BM_ProposeReferenceCandidates(benchmark::State& state) {
  std::vector<TString> names = folderNames();
  std::vector<TString> candidates = folderNames();
  names.emplace_back("New folder 999");
  candidates.emplace_back("New folder 1000");
  for (auto _ : state)
    for (size_t i = 0; i < names.size(); ++i) benchmark::DoNotOptimize(candidates[i] == names[i]);
}
BENCHMARK(BM_ProposeReferenceCandidates)->Unit(benchmark::kMicrosecond);

void perReference(benchmark::State& state) {
  state.counters["ns/reference"] = benchmark::Counter(
      kReferences, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_Forget(benchmark::State& state) {
  Bench& b = TheBench();
  for (auto _ : state) {
    state.PauseTiming();
    int32_t c = b.containerOfAll();
    state.ResumeTiming();
    if (send(b.manager, kPFog, c, 0) != 0) state.SkipWithError("not forgotten");
  }
  perReference(state);
}
BENCHMARK(BM_Forget)->Unit(benchmark::kMillisecond);

void BM_ForgetReferenceCollect(benchmark::State& state) {
  Bench& b = TheBench();
  int32_t c = b.containerOfAll();
  for (auto _ : state) benchmark::DoNotOptimize(send(b.store, kTSGC));
  send(b.manager, kPFog, c, 0);
  perReference(state);
}
BENCHMARK(BM_ForgetReferenceCollect)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

// Stores of 100k, 1M and 10M DLs as a user grows, saves and opens them, each figure beside a
// reference measured in the same run (`make bench-scale`; it runs for a quarter of an hour at
// 10M).
//
// The store: a binary tree of N `Node` DLs hanging from DL 1's item `Tree`. Each node has a
// `Name` string ("Node 0000042", a blob of 20 bytes), a `Pare` handle to its parent, handles
// `c0  ` and `c1  ` to the children it has and two immediate values: a DL of 80 bytes on
// average and its blob, two elements and 100 bytes per node.
//
// Per size it measures:
//   build, selectors   TSDN, TSSs, TSVS, TSVS, TSHS (Pare), TSHS (parent's child) per node,
//                      periodic collections included           beside one TSIm of the same tree
//   TSGC               the full collection of the built store
//   HChg, first        100 TSVS on random nodes, then HChg, first save after an open
//   HChg, steady       the same, later saves                    both beside TSGC of that store
//   HChg, no change    HChg right after a save
//   save alone         the floor of HChg beyond its collection: the same 100 changes saved by a
//                      plain value handle of the same file (the base alone, no collection)
//   TSCk               once, the store's whole check (the walk, the space's and the file's)
//   open + TSIn        in a fresh process, the file just written  beside SQLite's reopen + read
//   peak RSS           of the first save after an open, in a fresh process, beside the live
//                      element bytes
// and SQLite storing the same nodes one row each (synchronous FULL): the write of all rows in one
// transaction, the reopen and read of every row into memory in a fresh process, and an update of
// 100 rows committed.
//
//   scale_store [--sizes=100000,1000000,10000000] [--dir=DIR] [--skip-selectors=N] [--keep]
// --skip-selectors=N leaves out the selector build of sizes from N on (it took hours before
// growth was linear); --keep leaves the files in DIR. The program calls itself with
// --open-store/--read-sqlite for the fresh-process figures.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "platform/fundra/memory.h"
#include "platform/fundra/space.h"
#include "platform/fundra/tstring.h"
#include "platform/storefile/vhd.h"
#include "platform/zelkor/zelkor.h"
#include "zove/dl.h"
#include "zove/store.h"

extern "C" const char* zoveModuleName();

namespace {

using namespace zove;
using zelkor::i32;
using zelkor::Object;
using zelkor::send;
using zelkor::Word;
using Clock = std::chrono::steady_clock;

constexpr FourCC kNode = fc("Node");
constexpr FourCC kTree = fc("Tree");
constexpr FourCC kC0 = fc("c0  ");
constexpr FourCC kC1 = fc("c1  ");
constexpr FourCC kValA = fc("valA");
constexpr FourCC kValB = fc("valB");
constexpr Word kChannel = zelkor::toWord(fc("scal"));

double since(Clock::time_point t) {
  return std::chrono::duration<double>(Clock::now() - t).count();
}

// --- Process memory ------------------------------------------------------------------------------

int64_t statusKB(const char* field) {
  std::ifstream in("/proc/self/status");
  std::string line;
  size_t n = std::strlen(field);
  while (std::getline(in, line))
    if (line.compare(0, n, field) == 0) return std::atoll(line.c_str() + n + 1);
  return -1;
}
double rssMB() { return double(statusKB("VmRSS")) / 1024; }
double peakMB() { return double(statusKB("VmHWM")) / 1024; }
// From here on VmHWM counts from the current RSS.
void resetPeak() { std::ofstream("/proc/self/clear_refs") << "5"; }

// --- The store -----------------------------------------------------------------------------------

void boot() {
  static bool done = (zoveModuleName(), zelkor::setLogSink([](int, std::string_view) {}),
                      zelkor::ZelkorBoot(), true);
  (void)done;
}

Object* makeStore() {
  boot();
  Object* s = zelkor::asObject(send(zelkor::ZelkorLookup(kZoveSig), zelkor::kNew_));
  if (!s) std::abort();
  send(s, kSetu);
  return s;
}

Object* newStore() {
  Object* s = makeStore();
  send(s, kHNew, 0, 1);
  return s;
}

fundra::ElementSpace* spaceOf(Object* s) {
  fundra::ElementSpace* sp = nullptr;
  send(s, storefile::kHGtH, &sp);
  return sp;
}

std::string nodeName(int32_t i) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "Node %07d", i);
  return buf;
}

// Grows the tree one selector at a time, as a user's code would; answers the top node.
int32_t buildBySelectors(Object* s, int32_t n) {
  std::vector<int32_t> dl(size_t(n), 0);
  for (int32_t i = 0; i < n; ++i) {
    int32_t d = i32(send(s, kTSDN, kNode, 0, 0));
    if (d < 1) {
      std::fprintf(stderr, "TSDN answered %d at node %d\n", d, i);
      std::exit(1);
    }
    dl[size_t(i)] = d;
    fundra::TString name(nodeName(i));
    send(s, kTSSs, d, kNameKey, &name);
    send(s, kTSVS, d, kValA, i);
    send(s, kTSVS, d, kValB, ~i);
    if (i == 0) {
      send(s, kTSHS, kRootDL, kTree, d);
    } else {
      int32_t up = dl[size_t((i - 1) / 2)];
      send(s, kTSHS, d, kPareKey, up);
      send(s, kTSHS, up, i % 2 ? kC0 : kC1, d);
    }
  }
  return dl[0];
}

void putItem(uint8_t* at, int32_t ref, uint32_t kind, uint32_t key) {
  Item it{ref, kind, key};
  std::memcpy(at, &it, sizeof it);
}

// The same tree written straight into a new element space (root 1, `mods` 2, node i at 3 + 2i,
// its name at 4 + 2i), for the stream that TSIm reads.
fundra::ElementSpace* rawTree(int32_t n) {
  auto* s = new fundra::ElementSpace(1024, 0);
  uint8_t root[kRootBytes + 12] = {};
  auto* h = reinterpret_cast<DLHead*>(root);
  h->uType = kRootType;
  h->dataSize = kRootDataBytes;
  h->count = 2;
  int16_t version = 1;
  std::memcpy(root + kVersionOffset, &version, 2);
  putItem(root + 28, 3, kHandle, kTree);
  putItem(root + 40, 2, kList, kModsKey);
  s->LmSetAssert(1, sizeof root);
  std::memcpy(s->LmGet(1), root, sizeof root);
  s->LmSetAssert(2, 0);
  for (int32_t i = 0; i < n; ++i) {
    int32_t me = 3 + 2 * i;
    uint8_t buf[kHeadBytes + 6 * kItemBytes] = {};
    auto* head = reinterpret_cast<DLHead*>(buf);
    head->uType = kNode;
    uint8_t* item = buf + kHeadBytes;
    auto add = [&](int32_t ref, uint32_t kind, uint32_t key) {
      putItem(item, ref, kind, key);
      item += kItemBytes;
      ++head->count;
    };
    add(me + 1, kBlob, kNameKey);
    if (i > 0) add(3 + 2 * ((i - 1) / 2), kHandle, kPareKey);
    if (2 * i + 1 < n) add(3 + 2 * (2 * i + 1), kHandle, kC0);
    if (2 * i + 2 < n) add(3 + 2 * (2 * i + 2), kHandle, kC1);
    add(int32_t(kImmediate), uint32_t(i), kValA);
    add(int32_t(kImmediate), ~uint32_t(i), kValB);
    int32_t size = int32_t(item - buf);
    s->LmSetAssert(me, size);
    std::memcpy(s->LmGet(me), buf, size_t(size));
    fundra::TString name(nodeName(i));
    s->LmSetAssert(me + 1, name.StoreSize());
    name.Export(s->LmGet(me + 1), name.StoreSize(), 0);
  }
  return s;
}

Object* openStore(const std::string& path) {
  Object* s = makeStore();
  int32_t r = storefile::vhdOpenFile(zelkor::objWord(s), path, storefile::VhdOpenMode::kReadWrite);
  if (r == 0) r = i32(send(s, kTSIn, kChannel, 1));
  if (r != 0) {
    std::fprintf(stderr, "open of %s answered %d\n", path.c_str(), r);
    std::exit(1);
  }
  return s;
}

// --- SQLite, the same nodes one row each --------------------------------------------------------

void sqlOk(int rc, sqlite3* db, const char* what) {
  if (rc == SQLITE_OK || rc == SQLITE_DONE || rc == SQLITE_ROW) return;
  std::fprintf(stderr, "sqlite %s: %s\n", what, sqlite3_errmsg(db));
  std::exit(1);
}

sqlite3* sqlOpen(const std::string& path) {
  sqlite3* db = nullptr;
  sqlOk(sqlite3_open(path.c_str(), &db), db, "open");
  sqlOk(sqlite3_exec(db, "PRAGMA synchronous=FULL", nullptr, nullptr, nullptr), db, "pragma");
  return db;
}

void sqlWrite(const std::string& path, int32_t n) {
  std::filesystem::remove(path);
  sqlite3* db = sqlOpen(path);
  sqlOk(sqlite3_exec(db,
                     "CREATE TABLE node(id INTEGER PRIMARY KEY, name TEXT, parent INTEGER, "
                     "c0 INTEGER, c1 INTEGER, a INTEGER, b INTEGER); BEGIN",
                     nullptr, nullptr, nullptr),
        db, "create");
  sqlite3_stmt* put = nullptr;
  sqlOk(sqlite3_prepare_v2(db, "INSERT INTO node VALUES (?,?,?,?,?,?,?)", -1, &put, nullptr), db,
        "prepare");
  for (int32_t i = 0; i < n; ++i) {
    std::string name = nodeName(i);
    sqlite3_bind_int(put, 1, i + 1);
    sqlite3_bind_text(put, 2, name.data(), int(name.size()), SQLITE_TRANSIENT);
    if (i > 0)
      sqlite3_bind_int(put, 3, (i - 1) / 2 + 1);
    else
      sqlite3_bind_null(put, 3);
    for (int c = 0; c < 2; ++c) {
      if (2 * i + 1 + c < n)
        sqlite3_bind_int(put, 4 + c, 2 * i + 2 + c);
      else
        sqlite3_bind_null(put, 4 + c);
    }
    sqlite3_bind_int(put, 6, i);
    sqlite3_bind_int(put, 7, ~i);
    sqlOk(sqlite3_step(put), db, "insert");
    sqlite3_reset(put);
  }
  sqlite3_finalize(put);
  sqlOk(sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr), db, "commit");
  sqlite3_close(db);
}

// A node as a reader keeps it: the name in place, no allocation per row.
struct Row {
  int32_t id, parent, c0, c1, a, b;
  char name[16];
};

size_t sqlReadAll(const std::string& path) {
  sqlite3* db = sqlOpen(path);
  sqlite3_stmt* get = nullptr;
  sqlOk(
      sqlite3_prepare_v2(db, "SELECT id, name, parent, c0, c1, a, b FROM node", -1, &get, nullptr),
      db, "prepare");
  std::vector<Row> rows;
  while (sqlite3_step(get) == SQLITE_ROW) {
    Row r;
    r.id = sqlite3_column_int(get, 0);
    std::memset(r.name, 0, sizeof r.name);
    std::memcpy(r.name, sqlite3_column_text(get, 1),
                std::min<size_t>(sizeof r.name - 1, size_t(sqlite3_column_bytes(get, 1))));
    r.parent = sqlite3_column_int(get, 2);
    r.c0 = sqlite3_column_int(get, 3);
    r.c1 = sqlite3_column_int(get, 4);
    r.a = sqlite3_column_int(get, 5);
    r.b = sqlite3_column_int(get, 6);
    rows.push_back(r);
  }
  sqlite3_finalize(get);
  sqlite3_close(db);
  return rows.size();
}

void sqlUpdate(const std::string& path, int32_t n, std::mt19937* rng) {
  sqlite3* db = sqlOpen(path);
  sqlite3_stmt* upd = nullptr;
  sqlOk(sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr), db, "begin");
  sqlOk(sqlite3_prepare_v2(db, "UPDATE node SET a = ? WHERE id = ?", -1, &upd, nullptr), db,
        "prepare");
  for (int k = 0; k < 100; ++k) {
    sqlite3_bind_int(upd, 1, int(rng->operator()()));
    sqlite3_bind_int(upd, 2, int(1 + (*rng)() % uint32_t(n)));
    sqlOk(sqlite3_step(upd), db, "update");
    sqlite3_reset(upd);
  }
  sqlite3_finalize(upd);
  sqlOk(sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr), db, "commit");
  sqlite3_close(db);
}

// --- Fresh processes
// -------------------------------------------------------------------------------

// Runs this program with `args` and answers the numbers it prints.
std::vector<double> child(const std::string& args) {
  std::string cmd = "/proc/" + std::to_string(getpid()) + "/exe " + args;
  FILE* p = popen(cmd.c_str(), "r");
  std::vector<double> out;
  double x;
  while (p && std::fscanf(p, "%lf", &x) == 1) out.push_back(x);
  if (!p || out.empty()) std::fprintf(stderr, "%s failed\n", cmd.c_str());
  if (p) pclose(p);
  out.resize(4, -1);
  return out;
}

// 100 TSVS on random nodes, found by trying random numbers (no list of them in memory, which
// would count in the process's peak).
void changeSome(Object* s, std::mt19937* rng) {
  fundra::ElementSpace* sp = spaceOf(s);
  for (int k = 0; k < 100;) {
    int32_t n = 1 + int32_t((*rng)() % uint32_t(sp->LmCount()));
    DLView v;
    if (dlOpen(sp, n, &v) != 0 || v.head->uType != kNode) continue;
    send(s, kTSVS, n, kValA, int32_t((*rng)()));
    ++k;
  }
}

// Prints what the parent reads: the seconds taken and the peak MB; for a save also the RSS before
// it and the live element bytes in MB.
int childMain(const std::string& mode, const std::string& path) {
  auto t = Clock::now();
  if (mode == "--open-store") {
    Object* s = openStore(path);
    double secs = since(t);
    benchmark::DoNotOptimize(s);
    std::printf("%.6f %.1f\n", secs, peakMB());
  } else if (mode == "--first-save") {
    Object* s = openStore(path);
    std::mt19937 rng{7};
    changeSome(s, &rng);
    double before = rssMB();
    resetPeak();
    t = Clock::now();
    Word r = send(s, kHChg);
    double secs = since(t);
    if (r != 0) return 1;
    std::printf("%.6f %.1f %.1f %.1f\n", secs, peakMB(), before,
                double(spaceOf(s)->LmLiveBytes()) / (1 << 20));
  } else {
    size_t rows = sqlReadAll(path);
    double secs = since(t);
    benchmark::DoNotOptimize(rows);
    std::printf("%.6f %.1f\n", secs, peakMB());
  }
  return 0;
}

// --- The run
// -----------------------------------------------------------------------------------------

// Samples of one figure at one size.
struct Samples {
  std::vector<double> v;
  void add(double x) { v.push_back(x); }
  double lo() const { return v.empty() ? 0 : *std::min_element(v.begin(), v.end()); }
  double hi() const { return v.empty() ? 0 : *std::max_element(v.begin(), v.end()); }
  double median() const {
    if (v.empty()) return 0;
    std::vector<double> s = v;
    std::sort(s.begin(), s.end());
    return s[s.size() / 2];
  }
};

std::map<int32_t, std::map<std::string, Samples>> gFigures;
std::string gDir;
int32_t gSkipSelectorsFrom = INT32_MAX;

std::string storePath(int32_t n) { return gDir + "/store-" + std::to_string(n) + ".zst"; }
std::string sqlPath(int32_t n) { return gDir + "/sqlite-" + std::to_string(n) + ".db"; }

// Each phase runs once per size; the store it leaves is the next phase's.
struct SizeState {
  Object* store = nullptr;
  fundra::TMemory stream;
};
std::map<int32_t, SizeState> gState;

void record(benchmark::State& st, int32_t n, const char* name, double secs) {
  gFigures[n][name].add(secs);
  st.SetIterationTime(secs);
}

void phaseImport(benchmark::State& st, int32_t n) {
  SizeState& z = gState[n];
  {
    Object* raw = makeStore();
    send(raw, kHNew, rawTree(n), 1);
    if (send(raw, kTSEx, 3, &z.stream) != 0) std::abort();
    send(raw, kDspo);
  }
  for (auto _ : st) {
    if (z.store) send(z.store, kDspo);
    z.store = newStore();
    int32_t top = i32(send(z.store, kTSDN, kNode, 0, 0));
    send(z.store, kTSHS, kRootDL, kTree, top);
    auto t = Clock::now();
    Word r = send(z.store, kTSIm, top, &z.stream);
    record(st, n, "import", since(t));
    if (r != 0) st.SkipWithError("TSIm failed");
  }
  z.stream.SetSize(0);
  gFigures[n]["live MB"].add(double(spaceOf(z.store)->LmLiveBytes()) / (1 << 20));
}

void phaseSelectors(benchmark::State& st, int32_t n) {
  for (auto _ : st) {
    if (n >= gSkipSelectorsFrom) {
      st.SkipWithError("left out (--skip-selectors)");
      break;
    }
    Object* s = newStore();
    auto t = Clock::now();
    buildBySelectors(s, n);
    record(st, n, "selectors", since(t));
    if (spaceOf(s)->LmLiveCount() != spaceOf(gState[n].store)->LmLiveCount())
      st.SkipWithError("the selector build holds other elements than the import");
    send(s, kDspo);
  }
}

void phaseCollect(benchmark::State& st, int32_t n) {
  for (auto _ : st) {
    auto t = Clock::now();
    Word r = send(gState[n].store, kTSGC);
    record(st, n, "TSGC built", since(t));
    if (r != 0) st.SkipWithError("TSGC failed");
  }
}

void phaseCreate(benchmark::State& st, int32_t n) {
  for (auto _ : st) {
    std::filesystem::remove(storePath(n));
    std::filesystem::remove(storePath(n) + "-journal");
    auto t = Clock::now();
    int32_t r = storefile::vhdCreateFile(zelkor::objWord(gState[n].store), storePath(n));
    record(st, n, "full save", since(t));
    if (r != 0) st.SkipWithError("vhdCreateFile failed");
    send(gState[n].store, kDspo);
    gState[n].store = nullptr;
  }
}

// A save after 100 changes, the first after an open, in a fresh process.
void phaseFirstSave(benchmark::State& st, int32_t n) {
  for (auto _ : st) {
    std::vector<double> f = child("--first-save " + storePath(n));
    record(st, n, "HChg first", f[0]);
    gFigures[n]["save peak MB"].add(f[1]);
    gFigures[n]["save RSS before MB"].add(f[2]);
    if (f[0] < 0) st.SkipWithError("the save failed");
  }
  gState[n].store = openStore(storePath(n));
}

void phaseStore(benchmark::State& st, int32_t n) {
  Object* s = gState[n].store;
  std::mt19937 rng(uint32_t(n) + 1);
  for (auto _ : st) {
    auto t = Clock::now();
    Word r = send(s, kTSGC);
    double gc = since(t);
    changeSome(s, &rng);
    t = Clock::now();
    r |= send(s, kHChg);
    double steady = since(t);
    t = Clock::now();
    r |= send(s, kHChg);
    double none = since(t);
    record(st, n, "HChg steady", steady);
    gFigures[n]["TSGC"].add(gc);
    gFigures[n]["HChg none"].add(none);
    if (r != 0) st.SkipWithError("a collection or save failed");
  }
  // The whole check once: the marking walk with every DL's check, and the base's exhaustive
  // check of the space and the file.
  auto t = Clock::now();
  Word ok = send(s, kTSCk);
  gFigures[n]["TSCk"].add(since(t));
  if (ok != 1) st.SkipWithError("TSCk found the store unsound");
}

// The floor of a save after 100 changes: the same file saved by a plain value handle, 100 elements
// changed in place, no collection.
void phaseSaveAlone(benchmark::State& st, int32_t n) {
  if (gState[n].store) send(gState[n].store, kDspo);
  gState[n].store = nullptr;
  boot();
  Word h = send(zelkor::ZelkorLookup(zelkor::kVhdSig), zelkor::kNew_);
  send(h, kSetu);
  fundra::ElementSpace* sp = nullptr;
  if (storefile::vhdOpenFile(h, storePath(n), storefile::VhdOpenMode::kReadWrite) != 0 ||
      send(h, storefile::kHGtH, &sp) != 0 || !sp) {
    st.SkipWithError("the plain open failed");
    return;
  }
  std::mt19937 rng(uint32_t(n) + 3);
  for (auto _ : st) {
    for (int k = 0; k < 100;) {
      int32_t e = 1 + int32_t(rng() % uint32_t(sp->LmCount()));
      if (sp->LmSize(e) < 4) continue;
      sp->LmGet(e)[0] ^= 1;
      sp->LmTouch(e);
      ++k;
    }
    auto t = Clock::now();
    Word r = send(h, kHChg);
    record(st, n, "save alone", since(t));
    if (r != 0) st.SkipWithError("the plain save failed");
  }
  send(h, kDspo);
}

void phaseOpen(benchmark::State& st, int32_t n) {
  if (gState[n].store) send(gState[n].store, kDspo);
  gState[n].store = nullptr;
  for (auto _ : st) {
    std::vector<double> f = child("--open-store " + storePath(n));
    record(st, n, "open", f[0]);
    gFigures[n]["open peak MB"].add(f[1]);
  }
  gFigures[n]["file MB"].add(double(std::filesystem::file_size(storePath(n))) / (1 << 20));
}

void phaseSqlite(benchmark::State& st, int32_t n) {
  std::mt19937 rng(uint32_t(n) + 2);
  for (auto _ : st) {
    auto t = Clock::now();
    sqlWrite(sqlPath(n), n);
    double write = since(t);
    std::vector<double> f = child("--read-sqlite " + sqlPath(n));
    double read = f[0], peak = f[1];
    t = Clock::now();
    sqlUpdate(sqlPath(n), n, &rng);
    record(st, n, "sqlite update", since(t));
    gFigures[n]["sqlite write"].add(write);
    gFigures[n]["sqlite read"].add(read);
    gFigures[n]["sqlite read peak MB"].add(peak);
  }
  gFigures[n]["sqlite file MB"].add(double(std::filesystem::file_size(sqlPath(n))) / (1 << 20));
}

// "a-b" of a figure's samples in the unit (scale), or its one value.
std::string range(const Samples& s, double scale, const char* fmt = "%.3g") {
  char a[32], b[32];
  std::snprintf(a, sizeof a, fmt, s.lo() * scale);
  std::snprintf(b, sizeof b, fmt, s.hi() * scale);
  return s.v.size() < 2 || std::string(a) == b ? a : std::string(a) + "-" + b;
}

std::string ratio(const Samples& x, const Samples& ref) {
  if (x.v.empty() || ref.v.empty() || ref.median() == 0) return "-";
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.2f", x.median() / ref.median());
  return buf;
}

void printTable() {
  std::printf("\nMedians' ratios; ranges over the samples. Times in s unless marked.\n");
  std::printf("%-34s", "figure");
  for (auto& [n, f] : gFigures) std::printf(" | %-24d", n);
  std::printf("\n");
  auto line = [](const char* label, auto cell) {
    std::printf("%-34s", label);
    for (auto& [n, f] : gFigures) std::printf(" | %-24s", cell(f).c_str());
    std::printf("\n");
  };
  auto with = [&](const char* label, const char* fig, const char* ref, double scale,
                  const char* fmt, const char* per) {
    line(label, [=](std::map<std::string, Samples>& f) {
      if (!f.count(fig)) return std::string("-");
      return range(f[fig], scale, fmt) + (ref ? " (" + ratio(f[fig], f[ref]) + per + ")" : "");
    });
  };
  with("build, selectors (x TSIm)", "selectors", "import", 1, "%.3g", "x");
  with("build, TSIm", "import", nullptr, 1, "%.3g", "");
  with("TSGC of the built store, ms", "TSGC built", nullptr, 1e3, "%.3g", "");
  with("TSGC of the opened store, ms", "TSGC", nullptr, 1e3, "%.3g", "");
  with("HChg, 100 changes, first (x TSGC)", "HChg first", "TSGC", 1e3, "%.3g", "x");
  with("HChg, 100 changes, steady (x TSGC)", "HChg steady", "TSGC", 1e3, "%.3g", "x");
  with("HChg, no change (x TSGC)", "HChg none", "TSGC", 1e3, "%.3g", "x");
  with("the save alone, no collection, ms", "save alone", nullptr, 1e3, "%.3g", "");
  line("floor of HChg: TSGC + the save alone", [](std::map<std::string, Samples>& f) {
    if (!f.count("save alone") || !f.count("TSGC")) return std::string("-");
    char buf[48];
    std::snprintf(buf, sizeof buf, "%.2fx TSGC",
                  (f["TSGC"].median() + f["save alone"].median()) / f["TSGC"].median());
    return std::string(buf);
  });
  with("TSCk (whole check, file included)", "TSCk", nullptr, 1, "%.3g", "");
  with("full save (vhdCreateFile)", "full save", nullptr, 1, "%.3g", "");
  with("open + TSIn, fresh (x SQLite read)", "open", "sqlite read", 1, "%.3g", "x");
  with("SQLite: write all, one commit", "sqlite write", nullptr, 1, "%.3g", "");
  with("SQLite: reopen + read all, fresh", "sqlite read", nullptr, 1, "%.3g", "");
  with("SQLite: update 100 + commit, ms", "sqlite update", nullptr, 1e3, "%.3g", "");
  with("live element bytes, MB", "live MB", nullptr, 1, "%.4g", "");
  with("RSS before the first save, MB", "save RSS before MB", "live MB", 1, "%.4g", "x live");
  with("peak RSS in the first save, MB", "save peak MB", "live MB", 1, "%.4g", "x live");
  with("peak RSS of open + TSIn, MB", "open peak MB", "live MB", 1, "%.4g", "x live");
  with("peak RSS of SQLite's read, MB", "sqlite read peak MB", nullptr, 1, "%.4g", "");
  with("file, MB (SQLite's)", "file MB", "sqlite file MB", 1, "%.4g", "x");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::string(argv[1]).rfind("--", 0) == 0 &&
      std::string(argv[1]).find('=') == std::string::npos)
    return childMain(argv[1], argv[2]);
  std::vector<int32_t> sizes = {100000, 1000000, 10000000};
  gDir = (std::filesystem::current_path() / "scale-bench.tmp").string();
  std::vector<char*> rest = {argv[0]};
  bool keep = false;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a.rfind("--sizes=", 0) == 0) {
      sizes.clear();
      for (size_t p = 8; p < a.size();) {
        size_t q = a.find(',', p);
        sizes.push_back(std::atoi(a.substr(p, q - p).c_str()));
        p = q == std::string::npos ? a.size() : q + 1;
      }
    } else if (a.rfind("--dir=", 0) == 0) {
      gDir = a.substr(6);
    } else if (a == "--keep") {
      keep = true;
    } else if (a.rfind("--skip-selectors=", 0) == 0) {
      gSkipSelectorsFrom = std::atoi(a.c_str() + 17);
    } else {
      rest.push_back(argv[i]);
    }
  }
  std::filesystem::create_directories(gDir);
  struct Phase {
    const char* name;
    void (*run)(benchmark::State&, int32_t);
    int reps;
  };
  const Phase phases[] = {{"import", phaseImport, 3},        {"selectors", phaseSelectors, 1},
                          {"collect", phaseCollect, 3},      {"create", phaseCreate, 1},
                          {"first_save", phaseFirstSave, 3}, {"store", phaseStore, 5},
                          {"save_alone", phaseSaveAlone, 5}, {"open", phaseOpen, 3},
                          {"sqlite", phaseSqlite, 3}};
  for (int32_t n : sizes)
    for (const Phase& p : phases)
      benchmark::RegisterBenchmark((std::string(p.name) + "/" + std::to_string(n)).c_str(),
                                   [run = p.run, n](benchmark::State& st) { run(st, n); })
          ->Iterations(p.reps)
          ->UseManualTime()
          ->Unit(benchmark::kMillisecond);
  int rc = int(rest.size());
  benchmark::Initialize(&rc, rest.data());
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  printTable();
  if (!keep) std::filesystem::remove_all(gDir);
  return 0;
}

// The store next to a plain reachability model: random sequences of item, list, handle, part-link,
// weak-handle, weak-list, keep and release operations, with collections (explicit and periodic),
// compared after every step. After every step, too, a copy kept only from the space's hand-over
// changes (what a save writes) must equal the space: a write the store did not record as a touch
// would be lost by the next save. A failure names the seed and the first step that differs, which
// is the shortest failing prefix of that sequence.
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "tests/store/store_fixture.h"

namespace zt {
namespace {

struct MItem {
  uint32_t type = 0;
  int32_t ref = 0;    // handle, part link, weak handle target
  int32_t value = 0;  // immediate value
  std::vector<int32_t> list;
  std::string bytes;
  int32_t elem = 0;  // the owned element's number (blob, list, weak list)
};
struct MDL {
  std::map<uint32_t, MItem> items;
  bool kept = false;
};

class Model {
 public:
  std::map<int32_t, MDL> dls;

  bool alive(int32_t n) const { return dls.count(n) != 0; }
  // Whether a number names any live element: a weak reference left dangling in a DL that only
  // the keep list holds is not pruned, and its number may come back as a DL or an owned element.
  bool numberLive(int32_t n) const {
    if (alive(n)) return true;
    for (auto& [dl, d] : dls)
      for (auto& [k, it] : d.items)
        if (it.elem == n) return true;
    return false;
  }

  std::set<int32_t> reachable(bool fromKept) const {
    std::set<int32_t> seen;
    std::vector<int32_t> todo{1};
    if (fromKept)
      for (auto& [n, d] : dls)
        if (d.kept) todo.push_back(n);
    while (!todo.empty()) {
      int32_t n = todo.back();
      todo.pop_back();
      if (!alive(n) || !seen.insert(n).second) continue;
      for (auto& [k, it] : dls.at(n).items) {
        if (it.type == kHandle || it.type == kPartLink) todo.push_back(it.ref);
        if (it.type == kList) todo.insert(todo.end(), it.list.begin(), it.list.end());
      }
    }
    return seen;
  }

  void collect() {
    std::set<int32_t> live = reachable(true);
    std::erase_if(dls, [&](auto& e) { return !live.count(e.first); });
    std::set<int32_t> seen;
    prune(1, seen);
  }

  // Owned elements: blobs, lists and weak lists of every DL.
  int32_t owned() const {
    int32_t n = 0;
    for (auto& [dl, d] : dls)
      for (auto& [k, it] : d.items)
        n += it.type == kBlob || it.type == kList || it.type == kWeakList;
    return n;
  }

 private:
  void prune(int32_t n, std::set<int32_t>& seen) {
    if (!alive(n) || !seen.insert(n).second) return;
    auto& items = dls.at(n).items;
    for (auto i = items.begin(); i != items.end();) {
      MItem& it = i->second;
      if (it.type == kList || it.type == kWeakList) {
        std::erase_if(it.list, [&](int32_t e) { return !numberLive(e); });
        for (int32_t e : std::vector<int32_t>(it.list)) prune(e, seen);
      } else if (it.type == kHandle || it.type == kPartLink) {
        prune(it.ref, seen);
      } else if (it.type == kWeakHandle && !numberLive(it.ref)) {
        i = items.erase(i);
        continue;
      }
      ++i;
    }
  }
};

constexpr FourCC kKeys[] = {fc("k0  "), fc("k1  "), fc("k2  "), fc("k3  "), fc("k4  "), fc("k5  ")};

class ModelRun {
 public:
  explicit ModelRun(uint32_t seed) : rng_(seed), s_(newStore(1)), sp_(spaceOf(s_)) {
    model_.dls[1].items[kModsKey].type = kList;
  }
  ~ModelRun() { S(s_, kDspo); }

  // Applies one random operation to both; answers the operation as text.
  std::string step() {
    int32_t dl = anyDL();
    FourCC key = kKeys[pick(6)];
    MDL* d = &model_.dls[dl];
    std::ostringstream op;
    LogCapture cap;
    switch (pick(13)) {
      case 0:
      case 1: {
        int32_t n = i32(S(s_, kTSDN, fc("test"), 0, 0));
        op << "TSDN -> " << n;
        if (cap.contains("zoveGCCheck")) model_.collect();
        model_.dls[n].kept = true;
        return op.str();
      }
      case 2: {
        int32_t v = int32_t(rng_());
        S(s_, kTSVS, dl, key, v);
        d->items[key] = MItem{kImmediate, 0, v, {}, {}};
        op << "TSVS " << dl << " " << fcString(key) << " " << v;
        break;
      }
      case 3:
      case 4:
      case 5: {
        static const uint32_t types[] = {kHandle, kPartLink, kWeakHandle};
        uint32_t type = types[pick(3)];
        int32_t t = anyDL();
        S(s_, type == kPartLink ? kTSAS : kTSHS, dl, key, t);
        if (type == kWeakHandle) setKind(dl, key, t, kWeakHandle);
        model_.dls[t].kept = false;
        model_.dls[dl].items[key] = MItem{type, t, 0, {}, {}};
        op << (type == kHandle     ? "handle "
               : type == kPartLink ? "part "
                                   : "weak ")
           << dl << " " << fcString(key) << " -> " << t;
        break;
      }
      case 6: {
        std::string bytes(size_t(pick(9)), char('a' + pick(26)));
        S(s_, kTSBW, dl, key, bytes.data(), int32_t(bytes.size()));
        d->items[key] = MItem{kBlob, 0, 0, {}, bytes};
        op << "TSBW " << dl << " " << fcString(key) << " '" << bytes << "'";
        break;
      }
      case 7:
      case 8: {
        auto it = d->items.find(key);
        if (it != d->items.end() && it->second.type != kList) return "skip";
        // A member that is neither kept nor reachable may be collected by the list's creation.
        std::set<int32_t> safe = model_.reachable(true);
        int32_t m = anyDL();
        if (it == d->items.end() && !safe.count(m)) return "skip";
        S(s_, kTSLA, dl, key, m);
        d->items[key].type = kList;
        d->items[key].list.push_back(m);
        model_.dls[m].kept = false;
        op << "TSLA " << dl << " " << fcString(key) << " " << m;
        break;
      }
      case 9: {
        auto it = d->items.find(key);
        if (it == d->items.end() || it->second.type != kList || it->second.list.empty())
          return "skip";
        int32_t m = it->second.list[size_t(pick(int32_t(it->second.list.size())))];
        S(s_, kTSLD, dl, key, m);
        std::erase(it->second.list, m);
        op << "TSLD " << dl << " " << fcString(key) << " " << m;
        break;
      }
      case 10: {
        Word r = S(s_, kTSUk, dl, key);
        EXPECT_EQ(r == kNoItem, !d->items.count(key));
        d->items.erase(key);
        op << "TSUk " << dl << " " << fcString(key);
        break;
      }
      case 11: {
        // A weak list: written whole as a list, then marked weak as an older writer would.
        std::vector<int32_t> members;
        for (int i = pick(4); i > 0; --i) members.push_back(anyDL());
        fundra::TMemory mem(int32_t(members.size() * 4));
        if (!members.empty()) std::memcpy(mem.MemPtr(), members.data(), members.size() * 4);
        S(s_, kTSLf, dl, key, &mem);
        for (int32_t m : members) model_.dls[m].kept = false;
        if (cap.contains("zoveGCCheck")) {
          // The list was stored before the count: collect in the model after the effect.
          model_.dls[dl].items[key] = MItem{kList, 0, 0, members, {}, rawRef(dl, key)};
          model_.collect();
          cap.take();
        }
        if (!model_.alive(dl)) return "weak list into a collected DL";
        setKind(dl, key, rawRef(dl, key), kWeakList);
        model_.dls[dl].items[key] = MItem{kWeakList, 0, 0, members, {}};
        op << "weak list " << dl << " " << fcString(key) << " of " << members.size();
        break;
      }
      case 12: {
        int r = pick(3);
        if (r == 0) {
          S(s_, kTSDU, dl);
          d->kept = false;
          op << "TSDU " << dl;
        } else if (r == 1) {
          S(s_, kTSDK, dl);
          d->kept = true;
          op << "TSDK " << dl;
        } else {
          EXPECT_EQ(S(s_, kTSGC), 0);
          model_.collect();
          return "TSGC";
        }
        break;
      }
    }
    if (cap.contains("zoveGCCheck")) {
      model_.collect();
      op << " (periodic collection)";
    }
    if (model_.alive(dl) && model_.dls[dl].items.count(key)) {
      MItem& it = model_.dls[dl].items[key];
      if (it.type == kBlob || it.type == kList || it.type == kWeakList) it.elem = rawRef(dl, key);
    }
    return op.str();
  }

  // Every difference between the store and the model; empty when they agree. The invariant
  // checker walks the whole store, so it runs only when asked.
  std::string compare(bool invariants) {
    std::ostringstream out;
    if (sp_->LmLiveCount() != int32_t(model_.dls.size()) + model_.owned())
      out << "live elements " << sp_->LmLiveCount() << ", model " << model_.dls.size() << " DLs + "
          << model_.owned() << " owned\n";
    for (auto& [n, d] : model_.dls) {
      DLView v;
      if (dlOpen(sp_, n, &v) != 0) {
        out << "DL " << n << " missing\n";
        continue;
      }
      if (bool(v.head->flags & kKeptFlag) != d.kept) out << "DL " << n << " kept flag differs\n";
      if (v.count() != int32_t(d.items.size())) {
        out << "DL " << n << " has " << v.count() << " items, model " << d.items.size() << "\n";
        continue;
      }
      int32_t i = 0;
      for (auto& [key, m] : d.items) {
        const Item it = v.items[i++];
        if (it.key != key || itemType(it) != m.type) {
          out << "DL " << n << " item " << i - 1 << " differs in key or kind\n";
          continue;
        }
        bool same = true;
        if (m.type == kImmediate) same = int32_t(it.kind) == m.value;
        if (m.type == kHandle || m.type == kPartLink || m.type == kWeakHandle)
          same = it.ref == m.ref;
        if (m.type == kBlob)
          same = sp_->LmSize(it.ref) == int32_t(m.bytes.size()) &&
                 std::memcmp(sp_->LmGet(it.ref), m.bytes.data(), m.bytes.size()) == 0;
        if (m.type == kList || m.type == kWeakList) {
          ListView l;
          same = listOpen(sp_, it.ref, &l) == 0 &&
                 std::vector<int32_t>(l.at, l.at + l.count) == m.list;
        }
        if (!same) out << "DL " << n << " item '" << fcString(key) << "' differs\n";
      }
    }
    if (invariants)
      for (auto& v : zoveCheckStore(s_)) out << v << "\n";
    return out.str();
  }

  Object* store() { return s_; }
  void collect() {
    EXPECT_EQ(S(s_, kTSGC), 0);
    model_.collect();
  }

  // Brings the saved copy up to date from the space's changes, then compares it with the space.
  std::string handOver() {
    fundra::LmDelta delta = sp_->LmChanges();
    for (int32_t n : delta.removed) saved_.erase(n);
    for (const auto* list : {&delta.added, &delta.changed})
      for (int32_t n : *list) saved_[n] = bytesOf(n);
    sp_->LmHandedOver();
    std::ostringstream out;
    size_t live = 0;
    for (int32_t n = sp_->LmNext(0); n; n = sp_->LmNext(n), ++live)
      if (auto it = saved_.find(n); it == saved_.end() || it->second != bytesOf(n))
        out << "element " << n << " differs from what the saves took\n";
    if (live != saved_.size()) out << "the saves kept " << saved_.size() << " elements\n";
    return out.str();
  }

 private:
  int32_t pick(int32_t n) { return int32_t(rng_() % uint32_t(n)); }
  int32_t anyDL() {
    auto it = model_.dls.begin();
    std::advance(it, pick(int32_t(model_.dls.size())));
    return it->first;
  }
  int32_t rawRef(int32_t dl, FourCC key) {
    DLView v;
    dlOpen(sp_, dl, &v);
    return v.items[dlFind(v, key)].ref;
  }
  void setKind(int32_t dl, FourCC key, int32_t ref, uint32_t kind) {
    DLView v;
    dlOpen(sp_, dl, &v);
    Item& it = v.items[dlFind(v, key)];
    it.ref = ref;
    it.kind = kind;
    sp_->LmTouch(dl);
  }

  std::string bytesOf(int32_t n) const {
    return std::string(reinterpret_cast<const char*>(sp_->LmGet(n)), size_t(sp_->LmSize(n)));
  }

  std::mt19937 rng_;
  Object* s_;
  fundra::ElementSpace* sp_;
  Model model_;
  std::map<int32_t, std::string> saved_;
};

TEST(StoreModel, RandomSequencesKeepExactlyWhatTheModelReaches) {
  const char* env = std::getenv("ZOVE_MODEL_SEED");
  uint32_t first = env ? uint32_t(std::strtoul(env, nullptr, 10)) : 1;
  uint32_t count = env ? 1 : 3000;
  for (uint32_t seed = first; seed < first + count; ++seed) {
    ModelRun run(seed);
    std::vector<std::string> ops;
    std::string diff;
    for (int step = 0; step < 80 && diff.empty(); ++step) {
      ops.push_back(run.step());
      diff = run.compare(step % 8 == 7);
      if (diff.empty()) diff = run.handOver();
    }
    if (diff.empty()) {
      run.collect();
      ops.push_back("TSGC");
      EXPECT_EQ(S(run.store(), kTSCk), 1);
      diff = run.compare(true);
    }
    if (!diff.empty()) {
      std::string seq;
      for (size_t i = 0; i < ops.size(); ++i) seq += std::to_string(i) + ": " + ops[i] + "\n";
      FAIL() << "seed " << seed << " (rerun with ZOVE_MODEL_SEED=" << seed << "), first differing"
             << " step " << ops.size() - 1 << ":\n"
             << diff << "operations:\n"
             << seq << zoveDumpStore(run.store());
    }
  }
}

}  // namespace
}  // namespace zt

// The periodic collection's short way next to the full collection, on random sequences of
// writes. Two stores with record files take the same seeded steps; in one the periodic
// collections may take the short way, in the other they walk everything. After every step both
// must have answered the same, logged the same lines and hold the same fault code; after every
// periodic collection and every 64 steps, every element's bytes and every record must agree too.
// The steps grow trees with parent handles (the shape the short way follows), link shared DLs
// from several places, unlink (items removed and overwritten, list entries deleted, lists
// rewritten and sorted), keep and release DLs (kept DLs with trees of their own, released into
// the tree or left to the collector), make and overwrite records, swap and duplicate DLs, grow
// chains across the depth limit, and (in every other seed) damage items behind the store's back.
// A failure names the seed and the first step that differs, the shortest failing prefix of its
// sequence; ZOVE_SINCE_SEED=n runs one seed alone.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>

#include "platform/fundra/tstring.h"
#include "store/collect_state.h"
#include "store/zove_class.h"
#include "tests/store/store_fixture.h"

namespace zt {
namespace {

constexpr FourCC kKeys[] = {fc("aaaa"), fc("bbbb"), fc("cccc"), fc("kids"), fc("Name")};

struct Twin {
  Object* store;
  bool shortWay;
};

// One step, the same for both stores; answers what the selectors answered, folded into a word.
class Steps {
 public:
  Steps(uint32_t seed, bool hurt) : rng_(seed), hurt_(hurt), deep_(seed % 3 == 0) {}

  // Steps come in blocks: 600 of growth (what the short way follows: new DLs, values, records,
  // keeps and releases, chains, items rewritten behind the store's back), then everything.
  std::string next(int index) {
    step_ = pick(100);
    growth_ = index % 750 < 600;
    if (growth_ && ((step_ >= 46 && step_ < 56) || (step_ >= 66 && step_ < 76))) step_ = 92;
    a_ = pick(1 << 20);
    b_ = pick(1 << 20);
    c_ = pick(1 << 20);
    return name();
  }

  // Runs the step on store s, whose DLs so far are `dls` (the same numbers in both stores).
  Word run(Object* s, std::vector<int32_t>* dls, std::vector<int32_t>* chain) {
    auto any = [&](int32_t r) { return (*dls)[size_t(r) % dls->size()]; };
    auto key = [&](int32_t r) { return kKeys[r % 5]; };
    // A key no item of the DL has yet, most likely: growth adds items rather than replacing them.
    auto fresh = [&](char first, int32_t r) {
      const char* digits = "abcdefghijklmnopqrstuvwxyz0123456789";
      return FourCC(uint8_t(first)) << 24 | FourCC(uint8_t(digits[r % 36])) << 16 |
             FourCC(uint8_t(digits[r / 36 % 36])) << 8 | FourCC(uint8_t(digits[r / 1296 % 36]));
    };
    // Now and then, outside growth, a key that may hold something else already.
    auto some = [&](char first, int32_t r) { return growth_ || r % 8 ? fresh(first, r) : key(r); };
    fundra::ElementSpace* sp = spaceOf(s);
    Word w = 0;
    if (step_ < 22) {  // a child with a parent handle, hung by a handle, part link or list entry
      int32_t up = any(a_);
      int32_t d = i32(S(s, kTSDN, fc("node"), (b_ % 3) * 4, 0));
      dls->push_back(d);
      int how = c_ % 3;
      w = how == 0   ? S(s, kTSHS, up, fresh('h', b_), d)
          : how == 1 ? S(s, kTSAS, up, fresh('p', b_), d)
                     : S(s, kTSLA, up, fc("kids"), d);
      w ^= S(s, kTSHS, d, kPareKey, up);
    } else if (step_ < 27) {  // a DL left on the keep list, maybe to grow a tree of its own
      dls->push_back(i32(S(s, kTSDN, fc("kept"), 0, 0)));
      w = Word(dls->back());
    } else if (step_ < 35) {
      fundra::TString name("name " + std::to_string(a_));
      w = S(s, kTSSs, any(b_), kNameKey, &name);
    } else if (step_ < 40) {
      w = S(s, kTSBW, any(a_), some('b', b_), "blob bytes", 1 + c_ % 10);
    } else if (step_ < 46) {
      w = S(s, kTSVS, any(a_), some('v', b_), c_);
    } else if (step_ < 50) {  // a shared DL: a second handle or entry to a DL that has a place
      w = c_ % 2 ? S(s, kTSHS, any(a_), key(c_), any(b_)) : S(s, kTSLA, any(a_), key(c_), any(b_));
    } else if (step_ < 53) {
      w = S(s, kTSLD, any(a_), key(b_), any(c_));
    } else if (step_ < 56) {
      w = S(s, kTSUk, any(a_), key(b_));
    } else if (step_ < 60) {
      w = S(s, kTSDU, any(a_));
    } else if (step_ < 62) {
      w = S(s, kTSDK, any(a_));
    } else if (step_ < 66) {  // a record, new or over another
      fundra::TMemory mem(4 + c_ % 8);
      w = S(s, kTSRW, any(a_), some('r', b_), &mem, 0);
    } else if (step_ < 68) {
      w = S(s, kTSSw, any(a_), any(b_));
    } else if (step_ < 70) {
      w = S(s, kTSDD, any(a_));
      if (i32(w) > 0) dls->push_back(i32(w));
    } else if (step_ < 72) {
      w = S(s, kTSLS, any(a_), fc("kids"), nullptr, &byNumber);
    } else if (step_ < 74) {
      int32_t block[3] = {any(a_), any(b_), any(c_)};
      fundra::TMemory mem(12);
      std::memcpy(mem.MemPtr(), block, 12);
      w = S(s, kTSLf, any(a_ + 1), fc("kids"), &mem);
    } else if (step_ < 76) {
      w = S(s, kTSGC);
    } else if (step_ < 82 && deep_) {  // a chain from DL 1's list, past the depth limit in time
      int32_t d = i32(S(s, kTSDN, fc("chan"), 0, 0));
      dls->push_back(d);
      w = chain->empty() ? S(s, kTSLA, 1, fc("chan"), d) : S(s, kTSHS, chain->back(), kKeys[0], d);
      chain->push_back(d);
      if (a_ % 8 == 0)
        for (int i = 0; i < 40; ++i) {
          int32_t e = i32(S(s, kTSDN, fc("chan"), 0, 0));
          w ^= S(s, kTSHS, chain->back(), kKeys[0], e);
          chain->push_back(e);
        }
    } else if (step_ < 90 && (!growth_ || a_ % 4 == 0)) {  // weak kinds behind the store's back
      DLView v;
      int32_t dl = any(a_);
      if (dlOpen(sp, dl, &v) == 0 && v.head->count > 0) {
        Item& it = v.items[b_ % v.head->count];
        if (it.ref > 0 && typeOf(it.kind) == kHandle && c_ % 2) it.kind = kWeakHandle;
        if (it.ref > 0 && typeOf(it.kind) == kList && c_ % 2 == 0) it.kind = kWeakList;
        sp->LmTouch(dl);
      }
    } else if (step_ < 92 && hurt_ && a_ % 10 == 0) {  // damage behind the store's back
      DLView v;
      int32_t dl = any(a_);
      if (dlOpen(sp, dl, &v) == 0 && v.head->count > 0) {
        Item& it = v.items[b_ % v.head->count];
        switch (c_ % 5) {
          case 0:
            it.ref = sp->LmCount() + 1 + c_ % 3, it.kind = kHandle;
            break;
          case 1:
            if (it.ref > 0) it.kind = 0x300;
            break;
          case 2:
            it.ref = any(c_), it.kind = kBlob;
            break;
          case 3:
            it.ref = -7;
            break;
          default:
            v.head->owner = sp->LmCount() + 5;
            break;
        }
        sp->LmTouch(dl);
      }
    } else {  // a child of a recent DL, as a tree grows at its edge
      int32_t up = (*dls)[dls->size() - 1 - size_t(a_) % std::min<size_t>(dls->size(), 8)];
      int32_t d = i32(S(s, kTSDN, fc("leaf"), 0, 0));
      dls->push_back(d);
      w = S(s, kTSHS, d, kPareKey, up) ^ S(s, kTSHS, up, fresh('l', b_), d);
    }
    return w;
  }

 private:
  static int32_t byNumber(void*, const void* a, const void* b) {
    int32_t x, y;
    std::memcpy(&x, a, 4);
    std::memcpy(&y, b, 4);
    return x < y ? 1 : x > y ? -1 : 0;
  }
  int32_t pick(int32_t n) { return int32_t(rng_() % uint32_t(n)); }
  std::string name() const {
    return "step " + std::to_string(step_) + " (" + std::to_string(a_) + ", " + std::to_string(b_) +
           ", " + std::to_string(c_) + ")";
  }

  std::mt19937 rng_;
  bool hurt_, deep_, growth_ = false;
  int32_t step_ = 0, a_ = 0, b_ = 0, c_ = 0;
};

bool ours(uint32_t uType) {
  for (FourCC t : {kRootType, fc("node"), fc("kept"), fc("chan"), fc("leaf")})
    if (uType == t) return true;
  return false;
}

// Every element as "n:bytes", and every record as "chunk:bytes".
std::vector<std::string> content(Object* s) {
  std::vector<std::string> out;
  fundra::ElementSpace* sp = spaceOf(s);
  for (int32_t n = sp->LmNext(0); n; n = sp->LmNext(n))
    out.push_back(std::to_string(n) + ":" +
                  std::string(reinterpret_cast<const char*>(sp->LmGet(n)), size_t(sp->LmSize(n))));
  for (auto& [chunk, bytes] : recordFile(s)->chunks)
    out.push_back("record " + std::to_string(chunk) + ":" +
                  std::string(bytes.begin(), bytes.end()));
  return out;
}

std::string diff(Object* a, Object* b) {
  std::vector<std::string> x = content(a), y = content(b);
  std::string out;
  CollectState* st = zoveData(a)->collect;
  for (auto& e : x)
    if (std::find(y.begin(), y.end(), e) == y.end()) {
      int n = std::atoi(e.c_str());
      out += "\nonly in short: " + e.substr(0, e.find(':')) +
             (st && size_t(n) < st->info.size()
                  ? " kind " + std::to_string(st->kind(n)) + " parent " +
                        std::to_string(st->parent[n]) + " depth " + std::to_string(st->depth(n))
                  : std::string());
    }
  for (auto& e : y)
    if (std::find(x.begin(), x.end(), e) == x.end())
      out += "\nonly in full: " + e.substr(0, e.find(':'));
  return out;
}

Object* twinStore() {
  Object* s = newStoreWithFile(1);
  EXPECT_EQ(S(s, kTSIn, kChannel, 1), 0);
  return s;
}

// Runs one seed; answers "" or what differed first.
std::string runSeed(uint32_t seed, int steps, int64_t* periodic, int64_t* shortWays) {
  bool hurt = seed % 2 == 0;
  Twin twins[2] = {{twinStore(), true}, {twinStore(), false}};
  std::vector<int32_t> dls[2] = {{1}, {1}};
  std::vector<int32_t> chains[2];
  Steps steps0(seed, hurt), steps1(seed, hurt);
  std::string failure;
  for (int step = 0; step < steps && failure.empty(); ++step) {
    std::string what = steps0.next(step);
    steps1.next(step);
    Word answer[2], fault[2];
    std::vector<std::string> log[2];
    int64_t before = zoveShortWays();
    for (int t = 0; t < 2; ++t) {
      zoveSetShortWay(twins[t].shortWay);
      LogCapture cap;
      answer[t] = (t == 0 ? steps0 : steps1).run(twins[t].store, &dls[t], &chains[t]);
      fault[t] = S(twins[t].store, kTSEC);
      log[t] = lines(cap);
    }
    zoveSetShortWay(true);
    *shortWays += zoveShortWays() - before;
    // The steps pick among the DLs that are still there, so that most stay sound for long.
    for (int t = 0; t < 2; ++t) {
      fundra::ElementSpace* sp = spaceOf(twins[t].store);
      std::erase_if(dls[t], [&](int32_t n) {
        DLView v;
        return dlOpen(sp, n, &v) != 0 || !ours(v.head->uType);
      });
      std::erase_if(chains[t], [&](int32_t n) { return sp->LmTest(n) != 0; });
    }
    bool collected = false;
    for (const std::string& line : log[1])
      collected |= line.find("periodic GC") != std::string::npos;
    *periodic += collected && fault[1] == 0;
    std::string at = "seed " + std::to_string(seed) + ", step " + std::to_string(step) + " " + what;
    if (answer[0] != answer[1])
      failure = at + ": answers " + std::to_string(answer[0]) + " / " + std::to_string(answer[1]) +
                "\nlogs " + ::testing::PrintToString(log[0]) + " / " +
                ::testing::PrintToString(log[1]) + diff(twins[0].store, twins[1].store);
    else if (fault[0] != fault[1])
      failure = at + ": fault codes " + std::to_string(fault[0]) + " / " + std::to_string(fault[1]);
    else if (log[0] != log[1])
      failure = at + ": log " + ::testing::PrintToString(log[0]) + " / " +
                ::testing::PrintToString(log[1]);
    else if ((collected || step % 64 == 0) && content(twins[0].store) != content(twins[1].store))
      failure =
          at + ": the stores' elements or records differ" + diff(twins[0].store, twins[1].store);
  }
  for (Twin& t : twins) S(t.store, kDspo);
  return failure;
}

TEST(PeriodicCollection, TheShortWayFreesLogsAndFaultsExactlyAsTheFullWalkDoes) {
  uint32_t first = 1, last = 40;
  if (const char* one = std::getenv("ZOVE_SINCE_SEED")) first = last = uint32_t(std::atoi(one));
  int64_t periodic = 0, shortWays = 0;
  for (uint32_t seed = first; seed <= last; ++seed) {
    std::string failure = runSeed(seed, 1500, &periodic, &shortWays);
    ASSERT_TRUE(failure.empty()) << failure;
  }
  // The sequences must have taken the short way often, and not always.
  if (first != last) {
    EXPECT_GT(shortWays, periodic / 4) << shortWays << " of " << periodic;
    RecordProperty("short_ways", std::to_string(shortWays) + " of " + std::to_string(periodic));
    EXPECT_LT(shortWays, periodic) << shortWays << " of " << periodic;
  }
}

}  // namespace
}  // namespace zt

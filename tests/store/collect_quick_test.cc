// Collections with the quick mark next to collections by the depth-first walks alone, on random
// stores: sound ones, damaged ones, ones with chains around the depth limit, and trees; each seed
// once by TSGC and once inside HChg, at the raised check level where the walks run the DL check.
// Two stores are built from the same seed; the collection must answer the same, log the same
// lines, leave the same fault code and leave every element with the same bytes. A failure names
// the seed.
#include "store/collect_quick.h"

#include <random>

#include "tests/store/store_fixture.h"

namespace zt {
namespace {

constexpr FourCC kKeys[] = {fc("aaaa"), fc("bbbb"), fc("cccc"), fc("dddd"), fc("eeee")};

// Builds the same store for the same seed. `hurt` damages it now and then.
void build(Object* s, uint32_t seed, bool hurt) {
  fundra::ElementSpace* sp = spaceOf(s);
  std::mt19937 rng(seed);
  auto pick = [&](int n) { return int32_t(rng() % uint32_t(n)); };
  std::vector<int32_t> dls{1};
  for (int i = 0, n = 20 + pick(300); i < n; ++i)
    dls.push_back(i32(S(s, kTSDN, fc("data"), pick(3) * 4, 0)));
  auto any = [&] { return dls[size_t(pick(int(dls.size())))]; };
  for (int32_t dl : dls) {
    for (int k = 0, items = pick(5); k < items; ++k) {
      FourCC key = kKeys[pick(5)];
      switch (pick(7)) {
        case 0:
          S(s, kTSHS, dl, key, any());
          break;
        case 1:
          S(s, kTSAS, dl, key, any());
          break;
        case 2:
          S(s, kTSLA, dl, key, any());
          break;
        case 3:
          S(s, kTSVS, dl, key, pick(1000));
          break;
        case 4:
          S(s, kTSBW, dl, key, "blob", 4);
          break;
        case 5:
          S(s, kTSDK, dl);
          break;
        default:
          break;
      }
    }
  }
  // Roots for a good part of the DLs, and now and then a chain around the depth limit whose
  // members all hang in one list too, so that the chain is deep but every member is near. Its
  // links start as immediate values and become handles without counting a change, so that no
  // periodic collection meets the chain before the one under test.
  for (int i = 0; i < 6; ++i) S(s, kTSLA, 1, fc("root"), any());
  std::vector<int32_t> chain;
  if (pick(3) == 0) {
    for (int i = 0, n = 490 + pick(20); i < n; ++i) {
      chain.push_back(i32(S(s, kTSDN, fc("chan"), 0, 0)));
      S(s, kTSLA, 1, fc("chan"), chain.back());
      S(s, kTSVS, chain.back(), fc("next"), 0);
    }
  }
  for (size_t i = 0; i + 1 < chain.size(); ++i) {
    DLView v;
    dlOpen(sp, chain[i], &v);
    v.items[dlFind(v, fc("next"))] = Item{chain[i + 1], kHandle, fc("next")};
    sp->LmTouch(chain[i]);
  }
  // Items rewritten behind the store's back: weak kinds (sound), and with `hurt` references to
  // nothing, owned elements reached as DLs and kinds no store writes.
  for (int i = 0, n = pick(8); i < n; ++i) {
    int32_t dl = any();
    DLView v;
    if (dlOpen(sp, dl, &v) != 0 || v.head->count == 0) continue;
    Item& it = v.items[pick(v.head->count)];
    if (it.ref <= 0) continue;
    uint32_t type = typeOf(it.kind);
    if (type == kHandle) it.kind = kWeakHandle;
    if (type == kList) it.kind = kWeakList;
    if (!hurt) continue;
    switch (pick(7)) {
      case 0:
        it.ref = sp->LmCount() + 1 + pick(3);
        break;
      case 1:
        it.kind = 0x300;
        break;
      case 2:
        it.ref = any(), it.kind = kBlob;
        break;
      case 3:
        it.ref = -7;
        break;
      case 4:
        it.key = 0x7F616161;  // a key the DL check rejects; the walk alone does not mind
        break;
      case 5:
        v.head->uType = 0x01616161;
        break;
      default:
        v.head->owner = sp->LmCount() + 5;
        break;
    }
    sp->LmTouch(dl);
  }
}

// A tree as a provider tree holds one: children hang from their parent by a handle or a list
// entry and hold a handle back to it, so that every edge is a tree edge or leads back up; now
// and then a spine of 495 to 505 levels. Nothing is left on the keep list.
void buildTree(Object* s, uint32_t seed) {
  std::mt19937 rng(seed);
  auto pick = [&](int n) { return int32_t(rng() % uint32_t(n)); };
  std::vector<int32_t> dls{1};
  auto hang = [&](int32_t parent) {
    int32_t child = i32(S(s, kTSDN, fc("node"), 0, 0));
    if (pick(2) == 0)
      S(s, kTSHS, parent, kKeys[pick(5)], child);
    else
      S(s, kTSLA, parent, fc("kids"), child);
    if (parent != 1) S(s, kTSHS, child, fc("pare"), parent);
    dls.push_back(child);
    return child;
  };
  for (int i = 0, n = 20 + pick(300); i < n; ++i) hang(dls[size_t(pick(int(dls.size())))]);
  if (pick(3) == 0) {  // a cross edge somewhere
    int32_t a = dls[size_t(pick(int(dls.size())))], b = dls[size_t(pick(int(dls.size())))];
    S(s, kTSHS, a, fc("xref"), b);
  }
  if (pick(2) == 0) return;
  int32_t end = 1;
  for (int32_t i = 0, n = 488 + pick(18); i < n; ++i) end = hang(end);
  if (pick(2) == 0) {
    // A cross edge from the spine's end to a side chain that hangs from DL 1 under a key the
    // walk takes last: the walk reaches the chain through the spine, far deeper than its level.
    int32_t side = i32(S(s, kTSDN, fc("side"), 0, 0));
    S(s, kTSHS, 1, fc("zzzz"), side);
    for (int i = 0; i < 12; ++i) side = hang(side);
    S(s, kTSHS, end, fc("xref"), dls[dls.size() - 12]);
  }
}

struct Outcome {
  Word answer, fault;
  std::vector<std::string> log;
  std::vector<std::string> elements;  // "n:bytes" for every live number
};

// One collection of the seed's store: TSGC, or (raised) the collection inside HChg, at a raised
// check level, where the walks run the DL check on every DL they reach.
Outcome collect(uint32_t seed, bool hurt, bool quick, bool raised) {
  Object* s = newStore(1);
  if (seed % 3 == 0)
    buildTree(s, seed);
  else
    build(s, seed, hurt);
  zoveSetQuickMark(quick);
  LogCapture cap;
  Outcome o;
  o.answer = S(s, raised ? kHChg : kTSGC);
  zoveSetQuickMark(true);
  o.fault = S(s, kTSEC);
  o.log = lines(cap);
  fundra::ElementSpace* sp = spaceOf(s);
  for (int32_t n = sp->LmNext(0); n; n = sp->LmNext(n))
    o.elements.push_back(
        std::to_string(n) + ":" +
        std::string(reinterpret_cast<const char*>(sp->LmGet(n)), size_t(sp->LmSize(n))));
  S(s, kDspo);
  return o;
}

TEST(QuickMark, CollectsExactlyAsTheWalksDo) {
  int faulted = 0, deep = 0;
  for (uint32_t run = 1; run <= 240; ++run) {
    uint32_t seed = (run + 1) / 2;
    bool hurt = seed % 2 == 0, raised = run % 2 == 0;
    Outcome quick = collect(seed, hurt, true, raised), walks = collect(seed, hurt, false, raised);
    ASSERT_EQ(quick.answer, walks.answer) << "seed " << seed << (raised ? " (raised)" : "");
    ASSERT_EQ(quick.fault, walks.fault) << "seed " << seed << (raised ? " (raised)" : "");
    ASSERT_EQ(quick.log, walks.log) << "seed " << seed << (raised ? " (raised)" : "");
    ASSERT_EQ(quick.elements.size(), walks.elements.size())
        << "seed " << seed << (raised ? " (raised)" : "");
    for (size_t i = 0; i < quick.elements.size(); ++i)
      ASSERT_EQ(quick.elements[i], walks.elements[i])
          << "seed " << seed << (raised ? " (raised)" : "");
    faulted += walks.answer != 0;
    deep += walks.fault == kTooDeep;
  }
  // The seeds reach both outcomes, including walks that go too deep through a shallow store
  // and through a tree, and checks that find a bad key or uType.
  EXPECT_GT(faulted, 20);
  EXPECT_GT(deep, 12);
  EXPECT_LT(faulted, 200);
}

}  // namespace
}  // namespace zt

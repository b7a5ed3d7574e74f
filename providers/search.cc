// Expansion, ancestry and relations: PoEp (a selection expanded through groups), PoFT (the first
// shown descendant of a uType), PoGP and PoMP (parents), PGtD and PGID (depth and steps), PTIn
// and PUBy (is one inside the other, directly or through links).
#include <algorithm>
#include <unordered_map>

#include "platform/fundra/rnlist.h"
#include "providers/enumerate.h"

namespace zove {

using zelkor::i32;
using zelkor::u32;

namespace {

uint32_t abilitiesOf(const Pro& m, int32_t p) {
  StatusRecord r;
  readRecord(m, statusOf(m, p), &r);
  return r.abilities;
}

// Expands the list into out: each provider resolved; shown ones that match, and groups that do
// not (whose shown members are expanded in turn, with the group bit asked for), appended once.
// A chain that does not resolve ends the scan of its own list with kLinkUnresolved; the scans
// of the lists around it go on. The groups are opened on a stack of their own.
int32_t expand(const Pro& m, const fundra::RNList& input, fundra::RNList* out, uint32_t mask,
               uint32_t value) {
  struct Frame {
    fundra::RNList list;
    int32_t next = 0;
  };
  std::vector<Frame> stack;
  stack.push_back({input});
  Seen appended;
  int32_t result = 0;
  while (!stack.empty()) {
    Frame& f = stack.back();
    if (f.next == f.list.Count()) {
      stack.pop_back();
      continue;
    }
    int32_t r;
    if (!resolve(m, f.list.Get(f.next++), 0, &r)) {
      result = kLinkUnresolved;
      stack.pop_back();
      continue;
    }
    if (!isShown(m, r)) continue;
    uint32_t f0 = abilitiesOf(m, r);
    bool match = matchesFilter(f0, mask, value);
    if ((!(f0 & kAbGroup) && !match) || !appended.insert(r)) continue;
    out->Add(r);
    if (!match) {
      Frame members;
      enumerate(m, r, &members.list, mask & ~uint32_t(kAbGroup), value | kAbGroup, 0, false);
      stack.push_back(std::move(members));
    }
  }
  return result;
}

}  // namespace

// PoEp (RNList* input, RNList* output, mask, value): the selection expanded through groups, then
// what is not shown dropped (PmLC) and, with a filter, what does not match it.
Word proExpand(Object* self, const Msg& msg) {
  Pro m(self);
  const auto* input = zelkor::asPtr<const fundra::RNList>(msg.w[0]);
  auto* out = zelkor::asPtr<fundra::RNList>(msg.w[1]);
  if (!out) return 0;
  uint32_t mask = u32(msg.w[2]), value = u32(msg.w[3]);
  out->Memory().SetSize(0);
  int32_t r = input ? expand(m, *input, out, mask, value) : 0;
  if (r != 0) {
    out->Memory().SetSize(0);
    return r;
  }
  m.toSelf(kPmLC, out);
  if (mask != 0 || value != 0) {
    for (int32_t i = 0, n = out->Count(); i < n; ++i)
      if (!matchesFilter(abilitiesOf(m, out->Get(i)), mask, value)) out->Set(i, 0);
    out->Del(0);
  }
  return 0;
}

// PoFT (p or 0, uType): the first shown descendant of that uType in the walk of the subtree.
Word proFindType(Object* self, const Msg& msg) {
  Pro m(self);
  FourCC type = u32(msg.w[1]);
  for (const Visit& v : subtree(m, i32(msg.w[0])))
    if (depthOf(m, v.provider) >= 0 && u32(m.toStore(kTSDT, v.provider)) == type) return v.provider;
  return 0;
}

// PoGP (p): the recorded parent; 0 for the root, a top-level provider and an unplaced one.
Word proGetParent(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t p = i32(msg.w[0]);
  return m.isRoot(p) ? 0 : m.rep(parentOf(m, p));
}

// PoMP (p, mask, value): the nearest ancestor below the root that matches the filter, or -1.
Word proFindAncestor(Object* self, const Msg& msg) {
  Pro m(self);
  if (m.isRoot(i32(msg.w[0]))) return -1;
  for (int32_t a : ancestors(m, i32(msg.w[0])))
    if (matchesFilter(abilitiesOf(m, a), u32(msg.w[1]), u32(msg.w[2]))) return a;
  return -1;
}

// PGtD (p or 0): the depth in p's record; -1 without one.
Word proGetDepth(Object* self, const Msg& msg) { return depthOf(Pro(self), i32(msg.w[0])); }

// PGID (p, a or 0): PoGP steps from p up to a.
Word proGetSteps(Object* self, const Msg& msg) {
  return stepsUp(Pro(self), i32(msg.w[0]), i32(msg.w[1]));
}

// PTIn (a, b): 1 when one of them is the other or above it.
Word proTstInside(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t a = i32(msg.w[0]), b = i32(msg.w[1]);
  return stepsUp(m, a, b) >= 0 || stepsUp(m, b, a) >= 0 ? 1 : 0;
}

namespace {

// Each level of the search is a frame of the C++ stack, so the levels are bounded: a limit
// above this searches as deep as this.
constexpr int32_t kReachLevels = 4096;

// The pairs (a, r) searched so far, each with the largest limit it was searched with. A search
// that found nothing finds nothing again within a limit no larger, so it is not repeated: lists
// that hold a provider twice, or that loop back up the tree, would otherwise make the search
// branch at every level of the limit.
using Searched = std::unordered_map<uint64_t, int32_t>;

int32_t reached(const Pro& m, int32_t a, int32_t b, int32_t limit, Searched& searched) {
  if (a == 0 || b == 0 || !statusOf(m, a)) return 0;
  int32_t r;
  if (!resolve(m, b, 0, &r)) return 0;
  if (a == r) return r;
  int32_t n = limit - 1;
  if (n < 1) return 0;
  int32_t& most = searched[uint64_t(uint32_t(a)) << 32 | uint32_t(r)];
  if (most >= limit) return 0;
  most = limit;
  for (int32_t ch : listAll(m, statusOf(m, r), kPkKey))
    if (reached(m, a, ch, n, searched) != 0) return r;
  for (int32_t d : listAll(m, statusOf(m, a), kPkKey))
    if (reached(m, d, r, n, searched) != 0) return r;
  return 0;
}

}  // namespace

// PUBy (a, b, depth limit or 0): b, resolved, when some provider of a's subtree is reached from
// it by resolving links and descending into children within the limit (30 for 0); else 0.
Word proTstReached(Object* self, const Msg& msg) {
  int32_t limit = i32(msg.w[2]);
  if (limit == 0) limit = 30;
  Searched searched;
  return reached(Pro(self), i32(msg.w[0]), i32(msg.w[1]), std::min(limit, kReachLevels), searched);
}

}  // namespace zove

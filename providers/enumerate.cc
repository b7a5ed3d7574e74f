// Enumeration, search and order: PoEL/PoDL fill a list with the shown children or descendants
// that match a filter, PoEF/PoDF find a provider's position among them, each visited parent's
// `_pk#` sorted first when a sort mode is asked for; PoGI, PoIA, PoLA read children by position,
// PoGX and PoSX a provider's index among its siblings.
//
// Sorting: a parent is sorted only when its `_pst` differs from the mode asked for, and never
// when it keeps its children's order (0x20000000). Children with 0x1 come first; the others
// follow by sort name (PGSN sent to the manager, so each controller answers), compared with the
// foundation's TString::Compare, option 0. Each child's sort name and abilities are asked for
// once per sort, before the store sorts the list, so a sort costs one PGSN per child and the
// comparisons read names already fetched.
#include "providers/enumerate.h"

#include <cstring>
#include <unordered_map>

#include "platform/fundra/memory.h"
#include "platform/fundra/rnlist.h"
#include "platform/fundra/tstring.h"

namespace zove {

using zelkor::i32;
using zelkor::u32;

bool matchesFilter(uint32_t f, uint32_t mask, uint32_t value) {
  if (mask == 0 && value == 0) return true;
  if ((f & mask) != 0 && (f & mask) == (value & mask)) return true;
  return (f & value & ~mask) != 0;
}

namespace {

struct SortKey {
  bool first;
  fundra::TString name;
};

// The comparison the store's sort calls with the manager as context.
int32_t compareProviders(void* context, const void* a, const void* b) {
  auto* keys = static_cast<std::unordered_map<int32_t, SortKey>*>(
      proData(static_cast<Object*>(context))->sortKeys);
  int32_t pa, pb;
  std::memcpy(&pa, a, 4);
  std::memcpy(&pb, b, 4);
  const SortKey& ka = (*keys)[pa];
  const SortKey& kb = (*keys)[pb];
  if (ka.first != kb.first) return ka.first ? -1 : 1;
  return fundra::TString::Compare(ka.name, kb.name, 0);
}

}  // namespace

void sortChildren(const Pro& m, int32_t parent, int32_t mode) {
  if (mode == 0) return;
  int32_t status = statusOf(m, parent);
  StatusRecord r;
  if (!readRecord(m, status, &r) || (r.abilities & kAbKeepOrder)) return;
  if (getValue(m, status, kPstKey) == mode) return;
  m.d->sortMode = mode;
  std::unordered_map<int32_t, SortKey> keys;
  for (int32_t child : listAll(m, status, kPkKey)) {
    if (keys.count(child)) continue;
    SortKey& k = keys[child];
    StatusRecord cr;
    readRecord(m, statusOf(m, child), &cr);
    k.first = (cr.abilities & kAbFirst) != 0;
    m.toSelf(kPGSN, child, &k.name, mode);
  }
  m.d->sortKeys = &keys;
  m.toStore(kTSLS, status, kPkKey, m.self, reinterpret_cast<Word>(&compareProviders));
  m.d->sortKeys = nullptr;
  m.toStore(kTSVS, statusOf(m, parent), kPstKey, mode);
}

namespace {

// Visits p's children (with descend, each followed by its own descendants, shown or not), each
// visited parent sorted first; `take` receives every shown child that matches the manager's
// filter (filterMask, filterValue) and answers false to end the walk. A template, so that the
// few instructions of each caller's `take` are part of the loop.
template <class Take>
void walkChildren(const Pro& m, int32_t p, bool descend, int32_t mode, Take&& take) {
  p = m.orRoot(p);
  Seen seen{p};
  struct Frame {
    int32_t parent;
    std::vector<int32_t> children;
    size_t next = 0;
  };
  std::vector<Frame> stack;
  auto open = [&](int32_t parent) {
    sortChildren(m, parent, mode);
    stack.push_back({parent, listAll(m, statusOf(m, parent), kPkKey)});
  };
  open(p);
  while (!stack.empty()) {
    Frame& f = stack.back();
    if (f.next == f.children.size()) {
      stack.pop_back();
      continue;
    }
    int32_t child = f.children[f.next++];
    StatusRecord r;
    int32_t placedUnder;
    readPlacement(m, statusOf(m, child), &r, &placedUnder);
    if (placedUnder != f.parent) continue;  // a leftover (pro_class.h)
    if (r.depth >= 0 && matchesFilter(r.abilities, m.d->filterMask, m.d->filterValue) &&
        !take(child))
      return;
    if (descend && child > 0 && seen.insert(child)) open(child);
  }
}

}  // namespace

void enumerate(const Pro& m, int32_t p, fundra::RNList* list, uint32_t mask, uint32_t value,
               int32_t mode, bool descend) {
  ProData* d = m.d;
  d->outputList = list;
  d->filterMask = mask;
  d->filterValue = value;
  d->count = d->spare = 0;
  walkChildren(m, p, descend, mode, [&](int32_t child) {
    fundra::TMemory& mem = d->outputList->Memory();
    if (d->spare == 0) {
      mem.SetSize((d->count + 128) * 4, fundra::kMemNoFill);
      d->spare = 127;
    } else {
      --d->spare;
    }
    std::memcpy(mem.MemPtr() + size_t(d->count) * 4, &child, 4);
    ++d->count;
    return true;
  });
  d->outputList->Memory().SetSize(d->count * 4);
  d->outputList = nullptr;
}

namespace {

Word enumerateCall(Object* self, const Msg& msg, bool descend) {
  Pro m(self);
  auto* list = zelkor::asPtr<fundra::RNList>(msg.w[1]);
  if (!list) return 0;
  enumerate(m, i32(msg.w[0]), list, u32(msg.w[2]), u32(msg.w[3]), i32(msg.w[4]), descend);
  return 0;
}

Word findCall(Object* self, const Msg& msg, bool descend) {
  Pro m(self);
  ProData* d = m.d;
  d->searchTarget = i32(msg.w[1]);
  d->filterMask = u32(msg.w[2]);
  d->filterValue = u32(msg.w[3]);
  d->count = 0;
  walkChildren(m, i32(msg.w[0]), descend, i32(msg.w[4]), [&](int32_t child) {
    ++d->count;
    return child != d->searchTarget;
  });
  return d->count - 1;
}

}  // namespace

// PoEL, PoDL (p or 0, RNList*, mask, value, sort mode): the list becomes p's shown children (or
// descendants, each followed by its own) that match the filter, in child order.
Word proEnumChildren(Object* self, const Msg& msg) { return enumerateCall(self, msg, false); }
Word proEnumDescendants(Object* self, const Msg& msg) { return enumerateCall(self, msg, true); }

// PoEF, PoDF (p or 0, target, mask, value, sort mode): the target's position among what PoEL or
// PoDL would list; when it is not there, the number listed minus 1.
Word proFindChild(Object* self, const Msg& msg) { return findCall(self, msg, false); }
Word proFindDescendant(Object* self, const Msg& msg) { return findCall(self, msg, true); }

// PoGI (p or 0, index): the index-th shown child, counting shown children only; 0 past them.
Word proGetShownChild(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t index = i32(msg.w[1]);
  if (index < 0) return 0;
  int32_t p = m.orRoot(i32(msg.w[0]));
  for (int32_t child : listAll(m, statusOf(m, p), kPkKey)) {
    int32_t status = statusOf(m, child);
    StatusRecord r;
    if (getHandle(m, status, kPpaKey) != p || !readRecord(m, status, &r) || r.depth < 0) continue;
    if (index-- == 0) return child;
  }
  return 0;
}

// PoIA (p or 0, index): the index-th element of p's `_pk#`, shown or not; 0 past the end.
Word proGetChild(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t status = statusOf(m, i32(msg.w[0]));
  return status ? listElem(m, status, kPkKey, i32(msg.w[1])) : 0;
}

// PoLA (p or 0, TMemory*): p's whole `_pk#` (TSLt); kNoItem when p has no status record.
Word proGetChildren(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t status = statusOf(m, i32(msg.w[0]));
  if (!status) {
    if (auto* mem = zelkor::asPtr<fundra::TMemory>(msg.w[1])) mem->SetSize(0);
    return kNoItem;
  }
  return m.toStore(kTSLt, status, kPkKey, msg.w[1]);
}

// PoGX (p): p's index in its parent's `_pk#`, or kNoItem.
Word proGetIndex(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t p = i32(msg.w[0]);
  int32_t status = statusOf(m, m.orRoot(i32(m.toSelf(kPoGP, p))));
  return status ? m.toStore(kTSLF, status, kPkKey, p) : Word(kNoItem);
}

// PoSX (p, index): p moves to the index among its siblings (the end when beyond); PoXM. The
// parent's sort mark stays, so the hand-made order lasts until something changes the children.
Word proSetIndex(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t p = i32(msg.w[0]);
  int32_t index = i32(msg.w[1]);
  int32_t parent = m.orRoot(i32(m.toSelf(kPoGP, p)));
  int32_t status = statusOf(m, parent);
  int32_t at = status ? i32(m.toStore(kTSLF, status, kPkKey, p)) : -1;
  if (at < 0) return kProviderMisplaced;
  if (at == index) return 0;
  m.toStore(kTSLD, status, kPkKey, p);
  m.toStore(kTSLI, status, kPkKey, p, index);
  event(m, kPoXM, m.rep(parent), p);
  return 0;
}

}  // namespace zove

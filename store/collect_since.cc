// The periodic collection's short way: what changed since the last collection, not the store.
//
// After a collection that kept its state (collect_state.h), and with nothing taken out of the
// graph since, every element that was live then is still reached, by the same walk at the same
// depth: only elements made since can be garbage, and only edges written since can change what
// the walks do. Those edges lie in the DLs touched since (a list touched counts for its holder).
// So the short way walks depth first, in item order as the marking walk does, from each touched
// DL the last walk placed ("a region"), entering only what was made since (and the trees of kept
// DLs released since, which must be placed again); then from each new DL of the keep list. What
// it enters gets its parent and depth, exactly as the marking walk would give them, provided
//   - no region enters what another region entered (their order in the walk is not known),
//   - every edge to a DL placed by the last walk leads to a DL the walk has been to by then: an
//     edge of the last walk's tree, an ancestor of the edge's DL (the walk holds it on its way
//     down), or from a walk of the keep list into the tree of DL 1 (whose walk came first).
// Anything else, and anything the walks would report (an item of no known kind, a reference to
// nothing, an element both owned and followed or held twice, a DL at level kMaxDepth with an
// edge, an element that cannot be a DL entered as one), makes it give up before it changes
// anything; the walks then run and report exactly what they always do. What it did not enter
// and no DL holds is freed; the DLs of DL 1's tree that name something freed or dead are pruned;
// the records made since that no item names are removed.
#include <algorithm>
#include <new>

#include "store/collect_state.h"
#include "store/engine.h"

namespace zove {

namespace {

using Kind = CollectState::Kind;
// The state's bits for a collection's own use.
constexpr uint16_t kSeen = 1 << 11;      // entered as a DL by this collection
constexpr uint16_t kClaimed = 1 << 12;   // held as an owned element by a DL it entered or scanned
constexpr uint16_t kUnplaced = 1 << 13;  // in the tree of a released kept DL, to be placed again
constexpr uint16_t kCurrent = 1 << 14;   // entered by the region being walked; after the walks:
                                         // to be freed
constexpr uint16_t kGarbage = kCurrent;
constexpr uint16_t kCounted = 1 << 15;  // still held by the DL written since that holds it
// How far up the tree an edge may lead and still be known as an edge back to an ancestor.
constexpr int32_t kAncestorSteps = 8;

}  // namespace

void SinceCollection::flag(CollectState* st, int32_t n, uint16_t bit) {
  if (!(st->info[size_t(n)] & ~CollectState::kKeepMask)) flagged_.push_back(n);
  st->info[size_t(n)] |= bit;
}

// Marks the tree the walk from kept DL `root` made, to be placed again. Each of its DLs must still
// hold everything it held (as a region's start must): a DL the tree lost would stay placed.
bool SinceCollection::placeTree(ZoveData*, CollectState* st, int32_t root) {
  std::vector<int32_t> todo{root};
  flag(st, root, kUnplaced);
  unplaced_.push_back(root);
  int32_t stillHeld = 0;
  auto child = [&](int32_t x, int32_t y) {
    if (y <= 0 || size_t(y) >= st->info.size() || st->parent[size_t(y)] != x) return;
    Kind k = st->kind(size_t(y));
    if (k == CollectState::kKeptTree && !(st->info[size_t(y)] & kUnplaced)) {
      flag(st, y, kUnplaced);
      unplaced_.push_back(y);
      todo.push_back(y);
      ++stillHeld;
    } else if (k == CollectState::kOwned && !(st->info[size_t(y)] & kCounted)) {
      flag(st, y, kCounted);
      ++stillHeld;
    }
  };
  while (!todo.empty()) {
    int32_t x = todo.back();
    todo.pop_back();
    DLView v;
    if (dlOpen(space_, x, &v) != 0) return false;
    stillHeld = 0;
    for (int32_t i = 0; i < v.head->count; ++i) {
      const Item it = v.items[i];
      if (it.ref <= 0) continue;
      uint32_t type = typeOf(it.kind);
      if (type != kWeakHandle) child(x, it.ref);
      if (type == kList) {
        ListView l;
        if (listOpen(space_, it.ref, &l) != 0) return false;
        for (int32_t k = 0; k < l.count; ++k) child(x, l.at[k]);
      }
    }
    if (st->holds[size_t(x)] == CollectState::kManyHolds || stillHeld != st->holds[size_t(x)])
      return false;
  }
  return true;
}

// Whether the marking walk, following an edge from `from`, finds `to` (placed by the last walk)
// marked already.
bool SinceCollection::reachedBefore(CollectState* st, int32_t from, int32_t to) const {
  if (st->parent[size_t(to)] == from && !(st->info[size_t(from)] & (kSeen | kUnplaced)))
    return true;  // the last walk's own edge, from a DL that kept its place
  Kind k = st->kind(size_t(to));
  if (regionKind_ == CollectState::kKeptTree && k == CollectState::kRootTree) return true;
  if (k != regionKind_) return false;
  int32_t depthTo = st->depth(size_t(to));
  for (int32_t cur = from, steps = 0; steps <= kAncestorSteps; ++steps) {
    if (cur == to) return true;
    if (cur == 0 || st->depth(size_t(cur)) <= depthTo) return false;
    cur = st->parent[size_t(cur)];
  }
  return false;
}

// DL `holder` holds element e (blob, list, weak list). False where the walk would report, or
// where a second holder makes what is freed depend on the order.
bool SinceCollection::own(CollectState* st, int32_t holder, int32_t e) {
  if (e <= 0 || space_->LmTest(e) != 0 || size_t(e) >= st->info.size()) return false;
  uint16_t info = st->info[size_t(e)];
  Kind k = st->kind(size_t(e));
  if ((info & (kSeen | kUnplaced)) || k == CollectState::kRootTree || k == CollectState::kKeptTree)
    return false;
  if (info & kClaimed) return st->parent[size_t(e)] == holder;
  if (k == CollectState::kOwned && st->parent[size_t(e)] != holder) return false;
  flag(st, e, kClaimed);
  // A holder entered now counts its elements afresh; one placed before counted the old ones.
  if (k == CollectState::kGone) {
    flag(st, e, kCounted);  // a new hold, not one of the old ones
    st->set(size_t(e), holder, 0, CollectState::kOwned);
    st->hold(holder);
  } else if (st->info[size_t(holder)] & kSeen) {
    st->hold(holder);
  }
  return true;
}

// The walk follows an edge from DL `from` to `to` (a list entry when `entry`, which names a live
// element). False where the walk would report, or where the short way cannot tell the order.
bool SinceCollection::visit(ZoveData*, CollectState* st, int32_t from, int32_t to, bool entry) {
  if (st->depth(size_t(from)) >= kMaxDepth) return false;  // too deep: the walk reports it
  if (!entry && (to <= 0 || space_->LmTest(to) != 0)) return false;
  if (size_t(to) >= st->info.size()) return false;
  uint16_t info = st->info[size_t(to)];
  if (info & kSeen) return (info & kCurrent) != 0;
  if (info & kClaimed) return false;
  Kind k = st->kind(size_t(to));
  if (k == CollectState::kOwned) return false;
  if (k != CollectState::kGone && !(info & kUnplaced)) return reachedBefore(st, from, to);
  DLView v;
  if (dlOpen(space_, to, &v) != 0) return false;
  // A DL of the keep list entered from another kept DL's walk: which walk comes first is the
  // keep list's order, which the short way does not follow.
  if (regionKind_ == CollectState::kKeptTree && (v.head->flags & kKeptFlag)) return false;
  flag(st, to, kSeen | kCurrent);
  st->set(size_t(to), from, st->depth(size_t(from)) + 1, regionKind_);
  st->holds[size_t(to)] = 0;
  st->hold(from);
  scanned_.push_back(to);
  stack_.push_back(Frame{to, 0, -1});
  return true;
}

// Walks depth first from `start`: a DL placed by the last walk, or a new DL of the keep list.
bool SinceCollection::region(ZoveData* d, CollectState* st, int32_t start, Kind kind) {
  regionKind_ = kind;
  size_t firstScanned = scanned_.size();
  stack_.clear();
  const bool placed =
      st->kind(size_t(start)) != CollectState::kGone && !(st->info[size_t(start)] & kUnplaced);
  if (!placed) {
    DLView v;
    if (dlOpen(space_, start, &v) != 0) return false;
    flag(st, start, kSeen | kCurrent);
    st->set(size_t(start), 0, 0, kind);
    st->holds[size_t(start)] = 0;
  }
  // A DL placed before must still hold every DL and element it held then (a write may have
  // taken one out behind the store's back): counted as its items are read.
  const int32_t held = st->holds[size_t(start)];
  int32_t stillHeld = 0;
  auto count = [&](int32_t y) {
    if (!placed || stack_.size() != 1 || y <= 0 || size_t(y) >= st->info.size()) return;
    uint16_t info = st->info[size_t(y)];
    if (st->parent[size_t(y)] == start && st->kind(size_t(y)) != CollectState::kGone &&
        !(info & (kSeen | kUnplaced | kCounted))) {
      flag(st, y, kCounted);
      ++stillHeld;
    }
  };
  scanned_.push_back(start);
  stack_.push_back(Frame{start, 0, -1});
  while (!stack_.empty()) {
    // stack_ has room for every level, so a frame stays where it is while frames are pushed.
    Frame& f = stack_.back();
    DLView v;
    dlOpen(space_, f.dl, &v);  // nothing moves while the short way plans
    if (f.item == v.head->count) {
      if (placed && stack_.size() == 1 && (held == CollectState::kManyHolds || stillHeld != held))
        return false;
      stack_.pop_back();
      continue;
    }
    const Item it = v.items[f.item];
    // Owner words and weak references into a kept DL's tree: pruning would look at them if that
    // tree were freed.
    auto intoKept = [&](int32_t n) {
      if (n > 0) weakRefs_.push_back(n);
    };
    if (f.item == 0 && f.entry < 0) intoKept(v.head->owner);
    if (f.entry >= 0) {
      ListView l;
      listOpen(space_, it.ref, &l);
      if (f.entry == l.count) {
        f.entry = -1;
        ++f.item;
        continue;
      }
      int32_t to = l.at[f.entry++];
      if (to <= 0 || space_->LmTest(to) != 0) {
        // Skipped by the walk; pruning removes it from DL 1's tree, not from a kept DL's.
        deadKeptEntry_ |= kind == CollectState::kKeptTree;
        continue;
      }
      count(to);
      if (!visit(d, st, f.dl, to, true)) return false;
      continue;
    }
    if (it.ref <= 0) {
      uint32_t type = typeOf(it.ref);
      if (type == kVHandle)
        struck_.push_back(int32_t(it.kind));
      else if (type != kImmediate)
        return false;
      ++f.item;
      continue;
    }
    uint32_t type = typeOf(it.kind);
    if (type != kWeakHandle) count(it.ref);
    if (type == kHandle || type == kPartLink) {
      ++f.item;
      if (!visit(d, st, f.dl, it.ref, false)) return false;
    } else if (type == kBlob || type == kWeakList) {
      if (!own(st, f.dl, it.ref)) return false;
      if (type == kWeakList) {
        weakSeen_ = true;
        ListView l;
        listOpen(space_, it.ref, &l);
        for (int32_t k = 0; k < l.count; ++k) intoKept(l.at[k]);
      }
      ++f.item;
    } else if (type == kList) {
      if (!own(st, f.dl, it.ref)) return false;
      f.entry = 0;
    } else if (type == kWeakHandle) {
      intoKept(it.ref);
      ++f.item;
    } else {
      return false;
    }
  }
  for (size_t i = firstScanned; i < scanned_.size(); ++i)
    st->info[size_t(scanned_[i])] &= uint16_t(~kCurrent);
  return true;
}

// Whether pruning would change DL `dl`: an owner word, weak handle or list entry naming an
// element that is gone or about to be freed.
bool SinceCollection::mayPrune(ZoveData*, CollectState* st, int32_t dl) const {
  auto dead = [&](int32_t n) {
    return n <= 0 || space_->LmTest(n) != 0 ||
           (size_t(n) < st->info.size() && (st->info[size_t(n)] & kGarbage));
  };
  DLView v;
  if (dlOpen(space_, dl, &v) != 0) return false;
  if (v.head->owner != 0 && dead(v.head->owner)) return true;
  for (int32_t i = 0; i < v.head->count; ++i) {
    const Item it = v.items[i];
    if (it.ref <= 0) continue;
    uint32_t type = typeOf(it.kind);
    if (type == kWeakHandle && dead(it.ref)) return true;
    ListView l;
    if (isListType(type) && listOpen(space_, it.ref, &l) == 0)
      for (int32_t k = 0; k < l.count; ++k)
        if (dead(l.at[k])) return true;
  }
  return false;
}

bool SinceCollection::plan(ZoveData* d, CollectState* st) {
  space_ = d->space;
  fundra::ElementSpace* s = space_;
  flagged_.clear();
  touched_.clear();
  made_.clear();
  unplaced_.clear();
  scanned_.clear();
  garbage_.clear();
  struck_.clear();
  weakRefs_.clear();
  deadKeptEntry_ = false;
  weakSeen_ = false;
  weakIntoKeptSeen_ = false;
  bool ok = false;
  try {
    stack_.reserve(kMaxDepth + 2);
    ok = [&] {
      if (!st->valid || st->unlinked || s->LmSinceFreed() != 0) return false;
      if (!s->LmSinceTouched(&touched_)) return false;
      if (d->file && zelkor::i32(zelkor::send(d->file, kHCId, kRecordType)) !=
                         st->records + int32_t(st->madeRecords.size()))
        return false;
      if (!st->released.empty() && st->crossKept) return false;
      size_t numbers = size_t(s->LmCount()) + 1;
      if (st->info.size() < numbers) {
        st->parent.resize(numbers, 0);
        st->info.resize(numbers, 0);
        st->holds.resize(numbers, 0);
      }
      for (int32_t r : st->released) {
        if ((st->info[size_t(r)] & kUnplaced) || s->LmTest(r) != 0 ||
            st->kind(size_t(r)) != CollectState::kKeptTree || st->parent[size_t(r)] != 0)
          continue;
        if (!placeTree(d, st, r)) return false;
      }
      // The DLs written since (a touched owned element stands for its holder) and what was made.
      std::vector<int32_t> sources;
      for (int32_t n : touched_) {
        if (s->LmTest(n) != 0) continue;
        Kind k = st->kind(size_t(n));
        if (k == CollectState::kGone) {
          made_.push_back(n);
        } else if (!(st->info[size_t(n)] & kUnplaced)) {
          int32_t dl = k == CollectState::kOwned ? st->parent[size_t(n)] : n;
          if (!(st->info[size_t(dl)] & kUnplaced)) sources.push_back(dl);
        }
      }
      std::sort(sources.begin(), sources.end());
      sources.erase(std::unique(sources.begin(), sources.end()), sources.end());
      // DL 1's walk comes before the keep list's.
      for (Kind kind : {CollectState::kRootTree, CollectState::kKeptTree})
        for (int32_t x : sources)
          if (st->kind(size_t(x)) == kind && !region(d, st, x, kind)) return false;
      for (int32_t i = 0; i < d->keep.Count(); ++i) {
        int32_t k = d->keep.Get(i);
        if (k <= 0 || size_t(k) >= st->info.size() || s->LmTest(k) != 0 ||
            st->kind(size_t(k)) == CollectState::kOwned)
          return false;
        uint16_t info = st->info[size_t(k)];
        if (info & kSeen) {
          if (st->kind(size_t(k)) != CollectState::kRootTree) return false;
          continue;
        }
        if ((st->kind(size_t(k)) == CollectState::kGone || (info & kUnplaced)) &&
            !region(d, st, k, CollectState::kKeptTree))
          return false;
      }
      // Unreached: elements made since that no DL holds, and the released trees' DLs with the
      // elements they alone hold.
      for (int32_t n : made_)
        if (!(st->info[size_t(n)] & (kSeen | kClaimed))) garbage_.push_back(n);
      // Now that every DL has its place: which of the names seen lead into a kept DL's tree.
      for (int32_t n : weakRefs_)
        weakIntoKeptSeen_ |=
            size_t(n) < st->info.size() && st->kind(size_t(n)) == CollectState::kKeptTree;
      for (int32_t g : unplaced_) {
        if (st->info[size_t(g)] & kSeen) continue;
        // Pruning would find what names the freed tree; the short way does not look for it.
        if (st->weakIntoKept || weakIntoKeptSeen_) return false;
        garbage_.push_back(g);
        DLView v;
        if (dlOpen(s, g, &v) != 0) return false;
        for (int32_t i = 0; i < v.head->count; ++i) {
          const Item it = v.items[i];
          // A record named by a DL the last walk placed may be named elsewhere too.
          if (it.ref <= 0 && typeOf(it.ref) == kVHandle) return false;
          if (!ownsReferent(it) || size_t(it.ref) >= st->info.size()) continue;
          if (st->kind(size_t(it.ref)) == CollectState::kOwned && st->parent[size_t(it.ref)] == g &&
              !(st->info[size_t(it.ref)] & kClaimed))
            garbage_.push_back(it.ref);
        }
      }
      for (int32_t g : garbage_) flag(st, g, kGarbage);
      // Pruning runs from DL 1 and reaches through weak lists too, so with weak lists about a
      // DL of a kept DL's tree may be pruned as well: the short way does not follow that.
      if (st->weakLists || weakSeen_)
        for (int32_t dl : scanned_)
          if (st->kind(size_t(dl)) == CollectState::kKeptTree && mayPrune(d, st, dl)) return false;
      return true;
    }();
  } catch (const std::bad_alloc&) {
    ok = false;
  }
  if (!ok) {
    // The walks run instead; the full collection makes the state afresh.
    st->valid = false;
    for (int32_t n : flagged_)
      if (size_t(n) < st->info.size()) st->info[size_t(n)] &= CollectState::kKeepMask;
  }
  return ok;
}

void SinceCollection::free(ZoveData* d) {
  std::sort(garbage_.begin(), garbage_.end());
  garbage_.erase(std::unique(garbage_.begin(), garbage_.end()), garbage_.end());
  for (size_t i = garbage_.size(); i-- > 0;) d->space->LmRemove(garbage_[i]);
}

void SinceCollection::finish(ZoveData* d, CollectState* st) {
  fundra::ElementSpace* s = d->space;
  // Pruning runs from DL 1: of the DLs entered or written, those in DL 1's tree (what is in it
  // and was not written names nothing that was freed now or is gone).
  std::sort(scanned_.begin(), scanned_.end());
  scanned_.erase(std::unique(scanned_.begin(), scanned_.end()), scanned_.end());
  for (int32_t dl : scanned_)
    if (st->kind(size_t(dl)) == CollectState::kRootTree) zovePruneOne(s, dl);
  // Records made since that no item of an entered or written DL names; in the order the full
  // collection removes them (the record file's, by id as an unsigned number).
  std::sort(struck_.begin(), struck_.end());
  std::vector<int32_t> drop;
  for (int32_t chunk : st->madeRecords)
    if (!std::binary_search(struck_.begin(), struck_.end(), chunk)) drop.push_back(chunk);
  std::sort(drop.begin(), drop.end(),
            [](int32_t a, int32_t b) { return uint32_t(a) < uint32_t(b); });
  for (int32_t chunk : drop) zelkor::send(d->file, kHRmv, kRecordType, chunk);
  st->records += int32_t(st->madeRecords.size() - drop.size());
  // The state as a full collection would leave it (a region that would have crossed from one
  // kept DL's tree into another's gave up).
  st->weakLists |= weakSeen_;
  st->weakIntoKept |= weakIntoKeptSeen_;
  for (int32_t g : garbage_) {
    st->set(size_t(g), 0, 0, CollectState::kGone);
    st->holds[size_t(g)] = 0;
  }
  for (int32_t n : flagged_) st->info[size_t(n)] &= CollectState::kKeepMask;
  if (deadKeptEntry_) st->valid = false;
  st->settled();
  s->LmSinceReset();
}

}  // namespace zove

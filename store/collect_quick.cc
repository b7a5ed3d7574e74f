#include "store/collect_quick.h"

#include <new>

#include "zove/dl.h"

namespace zove {

namespace {

// How far ahead of the DL being scanned the queue's slots and bytes are fetched.
constexpr size_t kSlotsAhead = 32;
constexpr size_t kBytesAhead = 12;
// How far up the queue's tree an edge may lead and still be known as an edge back.
constexpr int32_t kAncestorSteps = 4;

bool quickMarkOn = true;

}  // namespace

void zoveSetQuickMark(bool on) { quickMarkOn = on; }
bool zoveQuickMarkOn() { return quickMarkOn; }

// An edge from DL `from` to a DL already queued: the queue's tree stays the walk's tree only if
// the edge leads back to an ancestor (a few levels up at most).
inline void QuickMark::edgeBack(int32_t from, int32_t n) {
  for (int32_t up = from, i = 0; tree_ && i < kAncestorSteps && up;
       ++i, up = st_->parent[size_t(up)])
    if (up == n) return;
  tree_ = false;
}

// A DL reached through an edge from `from`, or as a root (from 0). False when the walk would
// fail on it.
inline bool QuickMark::queueDL(fundra::ElementSpace* s, int32_t n, int32_t from) {
  if (!inRange(n)) return false;
  if (dls_.has(size_t(n))) {
    if (tree_) edgeBack(from, n);
    return true;
  }
  if (owned_.has(size_t(n)) || s->LmMark(n) <= 0) return false;
  dls_.set(size_t(n));
  // The queue's level; the replay gives the walk's depth where the two differ.
  st_->set(size_t(n), from, from ? scanDepth_ + 1 : 0, CollectState::kRootTree);
  st_->hold(from);
  queue_.push_back(n);
  return true;
}

// A list entry: followed when it names a live element, skipped (and left to pruning) when not.
inline bool QuickMark::queueEntry(fundra::ElementSpace* s, int32_t n, int32_t from) {
  if (!inRange(n)) {
    deadEntry_ = true;
    return true;
  }
  if (!dls_.has(size_t(n))) {
    if (owned_.has(size_t(n))) return false;
    int32_t r = s->LmMark(n);  // reads a mark byte, where a liveness test would read the slot
    if (r < 0) {
      deadEntry_ = true;
      return true;
    }
    if (r == 0) return false;
    dls_.set(size_t(n));
    st_->set(size_t(n), from, scanDepth_ + 1, CollectState::kRootTree);
    st_->hold(from);
    queue_.push_back(n);
  } else if (tree_) {
    edgeBack(from, n);
  }
  followed_ = true;
  if (recording_) edges_.push_back(n);
  return true;
}

// An owned element (blob, list, weak list). A second holder is no finding, as in the walk.
inline bool QuickMark::own(fundra::ElementSpace* s, int32_t n, int32_t holder) {
  if (!inRange(n)) return false;
  if (owned_.has(size_t(n))) {
    secondHolder_ |= st_->parent[size_t(n)] != holder;
    return true;
  }
  if (dls_.has(size_t(n)) || s->LmMark(n) <= 0) return false;
  owned_.set(size_t(n));
  st_->set(size_t(n), holder, 0, CollectState::kOwned);
  st_->hold(holder);
  return true;
}

// Reads DL `dl`'s items as the walk does, queueing what it follows and recording its edges.
bool QuickMark::scan(ZoveData* d, int32_t dl) {
  fundra::ElementSpace* s = d->space;
  DLView v;
  if (dlOpen(s, dl, &v) != 0) return false;
  // At a raised check level: anything the DL check would log (the element's size and the items'
  // kinds are tested below as the walk tests them).
  if (checking_ && !isPrintableCode(v.head->uType)) return false;
  const size_t start = edges_.size() + 1;
  if (recording_) {
    first_[size_t(dl)] = uint32_t(edges_.size());
    edges_.push_back(0);
  }
  if (v.head->owner != 0) weak_.push_back(v.head->owner);
  for (int32_t i = 0, count = v.head->count; i < count; ++i) {
    const Item it = v.items[i];
    if (checking_ && !isPrintableCode(it.key)) return false;
    if (it.ref <= 0) {
      uint32_t type = typeOf(it.ref);
      if (type == kVHandle) {
        if (checking_ && (!d->file || zelkor::i32(zelkor::send(d->file, kHSiz, kRecordType,
                                                               int32_t(it.kind))) < 0))
          return false;
        if (d->liveRecords) d->liveRecords->Remove(zelkor::toWord(it.kind));
      } else if (type != kImmediate) {
        return false;
      }
      continue;
    }
    uint32_t type = typeOf(it.kind);
    if (type == kHandle || type == kPartLink) {
      followed_ = true;
      if (recording_) edges_.push_back(it.ref);
      if (!queueDL(s, it.ref, dl)) return false;
    } else if (type == kBlob) {
      if (!own(s, it.ref, dl)) return false;
    } else if (type == kList || type == kWeakList) {
      if (!own(s, it.ref, dl)) return false;
      st_->weakLists |= type == kWeakList;
      const auto* elems = reinterpret_cast<const int32_t*>(s->LmGet(it.ref));
      const int32_t n = s->LmSize(it.ref) / 4;
      for (int32_t j = 0; j < n; ++j) {
        const int32_t e = elems[j];
        if (type == kWeakList) {
          weak_.push_back(e);
        } else if (!queueEntry(s, e, dl)) {
          return false;
        }
      }
    } else if (type == kWeakHandle) {
      weak_.push_back(it.ref);
    } else {
      return false;
    }
  }
  if (recording_) edges_[start - 1] = int32_t(edges_.size() - start);
  return true;
}

// The depth-first walk from `root` over the edge table: false when it would follow an edge from
// a DL at level kMaxDepth. A DL already replayed ends an edge, as a mark does. Each DL it enters
// gets its parent and depth in the walk.
bool QuickMark::replay(int32_t root, CollectState::Kind kind) {
  struct Frame {
    uint32_t next, end;
    int32_t dl;
  };
  if (replayed_.has(size_t(root))) return true;
  // The tree a walk from the keep list made, found by going up from one of its DLs.
  auto rootOf = [&](int32_t n) {
    for (int32_t i = 0; i <= kMaxDepth && st_->parent[size_t(n)] != 0; ++i)
      n = st_->parent[size_t(n)];
    return n;
  };
  Frame stack[kMaxDepth + 1];
  int32_t top = 0;
  auto enter = [&](int32_t n, int32_t at) {
    replayed_.set(size_t(n));
    // The queue counted its own tree's edges; the walk's tree replaces them.
    st_->unhold(st_->parent[size_t(n)]);
    st_->set(size_t(n), at > 0 ? stack[at - 1].dl : 0, at, kind);
    st_->hold(st_->parent[size_t(n)]);
    uint32_t f = first_[size_t(n)];
    stack[at] = Frame{f + 1, f + 1 + uint32_t(edges_[f]), n};
  };
  enter(root, 0);
  while (top >= 0) {
    Frame& f = stack[top];
    if (f.next == f.end) {
      --top;
      continue;
    }
    if (top == kMaxDepth) return false;
    const int32_t n = edges_[f.next++];
    if (!replayed_.has(size_t(n)))
      enter(n, ++top);
    else if (kind == CollectState::kKeptTree && !crossKept_ &&
             st_->kind(size_t(n)) == CollectState::kKeptTree && rootOf(n) != root)
      crossKept_ = true;
  }
  return true;
}

bool QuickMark::run(ZoveData* d, CollectState* st) {
  st_ = st ? st : &thin_;
  checking_ = d->checkLevel != 0;
  // The edge table costs 4 bytes a number and 4 an edge, and only the replay reads it: it is kept
  // from the start when the keep list makes a replay certain, else the queue runs without it and
  // runs again, keeping it, once the queue's tree turns out not to be the walk's.
  recording_ = d->keep.Count() > 0;
  for (;;) {
    Pass r = pass(d);
    if (r == Pass::kGiveUp) return false;
    if (r == Pass::kTree) return settle(d);
    if (recording_) break;
    recording_ = true;
    d->space->LmUnmark();
  }
  if (!replay(kRootDL, CollectState::kRootTree)) return false;
  for (int32_t i = 0; i < d->keep.Count(); ++i)
    if (!replay(d->keep.Get(i), CollectState::kKeptTree)) return false;
  return settle(d);
}

// One run of the queue from DL 1 and the keep list.
QuickMark::Pass QuickMark::pass(ZoveData* d) {
  fundra::ElementSpace* s = d->space;
  st_->valid = false;
  queue_.clear();
  edges_.clear();
  weak_.clear();
  deadEntry_ = secondHolder_ = crossKept_ = false;
  try {
    last_ = s->LmCount();
    if (!st_->reset(size_t(last_) + 1, st_ != &thin_)) return Pass::kGiveUp;
    dls_.reset(size_t(last_) + 1);
    owned_.reset(size_t(last_) + 1);
    replayed_.reset(size_t(last_) + 1);
    if (recording_) {
      first_.resize(size_t(last_) + 1);
      edges_.reserve(size_t(s->LmLiveCount()) * 4);
    }
    queue_.reserve(size_t(s->LmLiveCount()));
    if (!queueDL(s, kRootDL, 0)) return Pass::kGiveUp;
    // Walks from several roots share their marks: the queue's tree says nothing about them.
    tree_ = d->keep.Count() == 0;
    for (int32_t i = 0; i < d->keep.Count(); ++i)
      if (!queueDL(s, d->keep.Get(i), 0)) return Pass::kGiveUp;
    // The queue holds DL 1's level, then each next level: `level` is the level of DL h.
    int32_t level = 0, deepest = 0;
    for (size_t h = 0, levelEnd = queue_.size(); h < queue_.size(); ++h) {
      if (h == levelEnd) {
        ++level;
        levelEnd = queue_.size();
      }
      if (h + kSlotsAhead < queue_.size()) s->LmPrefetch(queue_[h + kSlotsAhead], false);
      if (h + kBytesAhead < queue_.size()) s->LmPrefetch(queue_[h + kBytesAhead], true);
      followed_ = false;
      scanDepth_ = level;
      if (!scan(d, queue_[h])) return Pass::kGiveUp;
      if (followed_) deepest = level;
      if (!recording_ && (!tree_ || deepest >= kMaxDepth)) return Pass::kReplay;
    }
    // Every edge that is not the queue's tree edge leads back to an ancestor: the walk from DL 1
    // follows the same tree, each DL at its level, so only a DL with an edge at the last level
    // can fail it.
    return tree_ && deepest < kMaxDepth ? Pass::kTree : Pass::kReplay;
  } catch (const std::bad_alloc&) {
    return Pass::kGiveUp;
  }
}

// The run succeeded: whether its state may serve the next periodic collection (collect_state.h,
// S2 and S3).
bool QuickMark::settle(ZoveData* d) {
  st_->valid = !secondHolder_ && !(deadEntry_ && d->keep.Count() > 0);
  st_->crossKept = crossKept_;
  for (int32_t n : weak_)
    if (inRange(n) && dls_.has(size_t(n)) && st_->kind(size_t(n)) == CollectState::kKeptTree)
      st_->weakIntoKept = true;
  return true;
}

bool QuickMark::pruneMayChange() const {
  if (deadEntry_) return true;
  // After the collection an element lives exactly when it was marked.
  for (int32_t n : weak_)
    if (!inRange(n) || !dls_.has(size_t(n))) return true;
  return false;
}

}  // namespace zove

// Garbage collection: mark from DL 1 and the keep list, free what is unmarked, prune weak
// references and list entries that now point nowhere, and drop records no item names.
//
// Marking is one recursive pass that allocates nothing (the live-records dictionary is made
// before it). A collection first tries the quick mark (collect_quick.h), which sets the same
// marks in an order memory keeps up with and gives the walks the word whenever they would report
// something. Edges followed: handles, part links and the elements of lists; blobs, lists and
// weak lists are owned elements, marked so that they survive but not walked (a weak list's
// elements are not marked); weak handles are neither marked nor followed. The root of a walk is
// level 0; a walk may reach level kMaxDepth and fails one level deeper. Its cost is memory
// latency: each DL is a slot read and then a bytes read, so the walk asks for referents' slots on
// entering a DL and for a referent's bytes one referent ahead.
//
// Pruning reaches each DL once, like marking, but from a queue instead of depth first: what it
// changes (a dead owner word cleared, dead weak handles and list entries removed) depends only on
// which elements are live, so the order is free, and a queue lets it fetch DLs well ahead. The
// queue holds a word per live element at most and is made per collection; without it, pruning
// recurses instead.
//
// Choices where a damaged store leaves room:
//  - An owned element already marked has a second holder (a sound store never has one). The
//    walk goes on with the DL's next item, so everything reachable stays marked.
//  - A list element that names no live element is skipped: pruning removes it right after.
#include <algorithm>
#include <new>
#include <vector>

#include "platform/fundra/debug.h"
#include "store/collect_quick.h"
#include "store/collect_state.h"
#include "store/engine.h"

namespace zove {

using zelkor::DebugLogf;
using zelkor::fc;
using zelkor::send;

Word zoveGCCheck(Object* self) {
  ZoveData* d = zoveData(self);
  if (++d->changeCount < kCollectEvery) return d->changeCount;
  d->changeCount = 0;
  // The periodic collection may take the short way (collect_since.cc); a TSGC sent by anyone
  // else walks everything.
  CollectState* st = zoveCollectState(d);
  if (st) st->periodic = true;
  Word r = send(self, kTSGC);
  if (st) st->periodic = false;
  DebugLogf(kLogPeriodic, "zoveGCCheck: periodic GC, %E", r);
  return d->changeCount;
}

namespace {

// What a marking walk needs at every DL, looked up once per walk.
struct MarkWalk {
  Object* self;
  fundra::ElementSpace* space;
  fundra::TDict* liveRecords;  // null outside a collection
  bool checking;               // the check level is raised
  int32_t mode;
};

int32_t markDL(const MarkWalk& w, int32_t dl, int32_t depth);

// Follows an edge (or starts a walk) to DL `dl` at `depth`: the depth rule, the mark, then the
// DL's items. A DL already marked ends the edge.
inline int32_t follow(const MarkWalk& w, int32_t dl, int32_t depth) {
  if (depth > kMaxDepth) {
    DebugLogf(kLogFault, "zoveDoMark: DL %~d, too deep, depth > %~d", dl, kMaxDepth);
    return kTooDeep;
  }
  int32_t r = w.space->LmMark(dl);
  if (r == 0) return 0;
  if (r < 0) {
    DebugLogf(kLogFault, "zoveDoMark: DL %~d, LmMark/1 failed, %E", dl, r);
    return r;
  }
  return markDL(w, dl, depth);
}

// Marks an owned element (blob, list, weak list) in mode 0; logs and answers a failure.
inline int32_t markOwned(const MarkWalk& w, int32_t dl, int32_t ref, const char* failure) {
  if (w.mode != 0) return 0;
  int32_t r = w.space->LmMark(ref);
  if (r >= 0) return 0;
  DebugLogf(kLogFault, failure, dl, r);
  return r;
}

// The items of DL `dl`, just marked, from the first to the last.
int32_t markDL(const MarkWalk& w, int32_t dl, int32_t depth) {
  fundra::ElementSpace* s = w.space;
  DLView v;
  if (w.checking || dlOpen(s, dl, &v) != 0) {
    // An element that cannot be a DL is reported by the check as what it is.
    int32_t r = zoveCheckDL(w.self, dl);
    if (r != 0) return r;
    dlOpen(s, dl, &v);
  }
  // Nothing below allocates or moves an element, so the view stays valid.
  const Item* items = v.items;
  const int32_t count = v.head->count;
  // The walk is bound by memory latency: start fetching the slot of every referent now; the
  // bytes of a referent are asked for one referent ahead, once its slot has had time to come.
  for (int32_t i = 0; i < count; ++i)
    if (items[i].ref > 0) s->LmPrefetch(items[i].ref, false);
  int32_t ahead = 0;  // the next item whose referent's bytes are still to be fetched
  for (int32_t i = 0; i < count; ++i) {
    const Item it = items[i];
    if (it.ref <= 0) {
      uint32_t type = typeOf(it.ref);
      if (type == kVHandle) {
        if (w.liveRecords) w.liveRecords->Remove(zelkor::toWord(it.kind));
      } else if (type != kImmediate) {
        DebugLogf(kLogFault, "zoveDoMark: DL %~d, item refnum 0x%08x bad", dl, it.ref);
        return kBadValueType;
      }
      continue;
    }
    for (ahead = std::max(ahead, i + 1); ahead < count && items[ahead].ref <= 0; ++ahead) {
    }
    if (ahead < count) s->LmPrefetch(items[ahead++].ref, true);
    uint32_t type = typeOf(it.kind);
    int32_t r = 0;
    if (type == kHandle || type == kPartLink) {
      r = follow(w, it.ref, depth + 1);
    } else if (type == kBlob) {
      r = markOwned(w, dl, it.ref, "zoveDoMark: DL %~d, LmMark/2 failed, %E");
    } else if (type == kList || type == kWeakList) {
      r = markOwned(w, dl, it.ref, "zoveDoMark: DL %~d, LmMark/3 failed, %E");
      if (r != 0) return r;
      int32_t size = s->LmSize(it.ref);
      if (size < 0) {
        DebugLogf(kLogFault, "zoveDoMark: DL %~d, LmSize failed, %E", dl, size);
        return size;
      }
      if (type == kWeakList) continue;
      const auto* elems = reinterpret_cast<const int32_t*>(s->LmGet(it.ref));
      for (int32_t j = 0, n = size / 4; j < n && r == 0; ++j)
        if (s->LmTest(elems[j]) == 0) r = follow(w, elems[j], depth + 1);
    } else if (type != kWeakHandle) {
      DebugLogf(kLogFault, "zoveDoMark: DL %~d, item value 0x%08x bad", dl, it.kind);
      return kBadRefType;
    }
    if (r != 0) return r;
  }
  return 0;
}

}  // namespace

int32_t zoveDoMark(Object* self, int32_t dl, int32_t depth, int32_t mode) {
  ZoveData* d = zoveData(self);
  const MarkWalk w{self, d->space, d->liveRecords, d->checkLevel != 0, mode};
  return follow(w, dl, depth);
}

namespace {

// Prunes DL `dl`, already marked, and hands each live DL it leads to (handles, part links, list
// and weak-list entries) to `reach`. Pruning only shrinks elements, and shrinking never moves
// one, so the view stays valid. Answers whether it changed the DL or one of its lists.
template <class Reach>
bool pruneDL(fundra::ElementSpace* s, int32_t dl, Reach&& reach) {
  DLView v;
  if (dlOpen(s, dl, &v) != 0) return false;
  bool changed = false;
  if (v.head->owner != 0 && s->LmTest(v.head->owner) != 0) {
    v.head->owner = 0;
    s->LmTouch(dl);
    changed = true;
  }
  for (int32_t i = v.head->count - 1; i >= 0; --i) {
    const Item it = v.items[i];
    if (it.ref <= 0) continue;
    uint32_t type = typeOf(it.kind);
    if (isListType(type)) {
      int32_t size = s->LmSize(it.ref);
      if (size < 0) continue;
      // Entries are kept in order; the ones naming nothing are squeezed out.
      auto* elems = reinterpret_cast<int32_t*>(s->LmGet(it.ref));
      int32_t n = size / 4, kept = 0;
      for (int32_t j = 0; j < n; ++j) {
        if (s->LmTest(elems[j]) != 0) continue;
        elems[kept++] = elems[j];
      }
      if (kept < n) {
        s->LmSetAssert(it.ref, kept * 4);
        changed = true;
      }
      for (int32_t j = kept - 1; j >= 0; --j) reach(elems[j]);
    } else if (type == kWeakHandle) {
      if (s->LmTest(it.ref) == 0) continue;
      int32_t count = v.head->count - 1;
      for (int32_t k = i; k < count; ++k) v.items[k] = v.items[k + 1];
      v.head->count = count;
      s->LmSetAssert(dl, kHeadBytes + v.head->dataSize + kItemBytes * count);
      changed = true;
    } else if (type == kHandle || type == kPartLink) {
      reach(it.ref);
    }
  }
  return changed;
}

// The same pruning one DL at a time, for when the queue cannot be had.
bool pruneDeep(fundra::ElementSpace* s, int32_t dl) {
  bool changed = false;
  changed |= pruneDL(s, dl, [&](int32_t n) {
    if (s->LmMark(n) > 0) changed |= pruneDeep(s, n);
  });
  return changed;
}

// Answers whether pruning changed anything. Each DL enters the queue once, when it is marked,
// so the queue never holds more numbers than there are live elements.
bool prune(fundra::ElementSpace* s) {
  if (s->LmMark(kRootDL) <= 0) return false;
  std::vector<int32_t> queue;
  try {
    queue.reserve(size_t(s->LmLiveCount()));
  } catch (const std::bad_alloc&) {
    return pruneDeep(s, kRootDL);
  }
  auto reach = [&](int32_t n) {
    if (s->LmMark(n) > 0) queue.push_back(n);
  };
  bool changed = false;
  queue.push_back(kRootDL);
  // A DL's slot is fetched 32 turns ahead and its bytes 12 turns ahead.
  for (size_t h = 0; h < queue.size(); ++h) {
    if (h + 32 < queue.size()) s->LmPrefetch(queue[h + 32], false);
    if (h + 12 < queue.size()) s->LmPrefetch(queue[h + 12], true);
    changed |= pruneDL(s, queue[h], reach);
  }
  return changed;
}

// A fresh live-records dictionary holding every chunk the record file has; answers how many.
int32_t setLiveRecords(ZoveData* d) {
  delete d->liveRecords;
  d->liveRecords = new fundra::TDict(0, 0);
  if (!d->file) return 0;
  int32_t n = zelkor::i32(send(d->file, kHCId, kRecordType));
  for (int32_t i = 1; i <= n; ++i) d->liveRecords->Set(send(d->file, kHEId, kRecordType, i), 1);
  return n;
}

}  // namespace

bool zovePruneOne(fundra::ElementSpace* s, int32_t dl) {
  return pruneDL(s, dl, [](int32_t) {});
}

// TSGC: 0, or kFaulted with the failure left in the fault code.
Word zoveCollect(Object* self, const Msg&) {
  ZoveData* d = zoveData(self);
  if (d->fault != 0) return kFaulted;
  if (!d->space) return kNoSpace;
  fundra::ElementSpace* s = d->space;
  d->fault = s->LmValid();
  if (d->fault != 0) {
    DebugLogf(kLogFault, "zoveCollect: LmValid/1 failed, code %~d", d->fault);
    return kFaulted;
  }
  CollectState* st = zoveCollectState(d);
  SinceCollection since;
  if (st && st->periodic && d->checkLevel == 0 && zoveQuickMarkOn() && zoveShortWayOn() &&
      since.plan(d, st)) {
    zoveCountShortWay();
    since.free(d);
    d->fault = s->LmValid();
    if (d->fault != 0) {
      DebugLogf(kLogFault, "zoveCollect: LmValid/2 failed, code %~d", d->fault);
      return kFaulted;
    }
    since.finish(d, st);
    return 0;
  }
  int32_t records = setLiveRecords(d);
  s->LmUnmark();
  // The quick mark sets the same marks as the walks below; where it gives up, the walks run and
  // report what they find (at a raised check level, each DL's check in walk order). It makes the
  // state afresh for the periodic collection, or refreshes the one it has; a collection that is
  // not periodic in a store that never collected periodically keeps none (8 bytes per number that
  // only the short way reads).
  if (st && !st->periodic && st->info.empty()) st = nullptr;
  QuickMark quick;
  const bool quickDone = zoveQuickMarkOn() && quick.run(d, st);
  if (!quickDone) {
    if (st) st->valid = false;
    s->LmUnmark();
    records = setLiveRecords(d);
    d->fault = zoveDoMark(self, kRootDL, 0, 0);
    for (int32_t i = 0; d->fault == 0 && i < d->keep.Count(); ++i)
      d->fault = zoveDoMark(self, d->keep.Get(i), 0, 0);
  }
  if (d->fault == 0) {
    s->LmCollect();
    d->fault = s->LmValid();
    if (d->fault != 0) DebugLogf(kLogFault, "zoveCollect: LmValid/2 failed, code %~d", d->fault);
  }
  if (d->fault == 0) {
    // Pruning that would find nothing dead is skipped; it changes nothing but the marks, which
    // every walk clears before it starts.
    if (!quickDone || quick.pruneMayChange()) {
      s->LmUnmark();
      prune(s);
    }
    zelkor::Word chunk, one;
    fundra::TDictIter it(*d->liveRecords);
    while (it.Next(&chunk, &one)) {
      send(d->file, kHRmv, kRecordType, chunk);
      --records;
    }
  }
  delete d->liveRecords;
  d->liveRecords = nullptr;
  if (st) {
    st->records = records;
    st->settled();
    if (d->fault != 0) st->valid = false;
  }
  s->LmSinceReset();
  return d->fault != 0 ? kFaulted : 0;
}

}  // namespace zove

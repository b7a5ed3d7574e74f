// Garbage collection: mark from DL 1 and the keep list, free what is unmarked, prune weak
// references and list entries that now point nowhere, and drop records no item names.
//
// Marking is one recursive pass that allocates nothing (the live-records dictionary is made
// before it). Edges followed: handles, part links and the elements of lists; blobs, lists and
// weak lists are owned elements, marked so that they survive but not walked (a weak list's
// elements are not marked); weak handles are neither marked nor followed. The root of a walk is
// level 0; a walk may reach level kMaxDepth and fails one level deeper.
//
// Choices where a damaged store leaves room:
//  - An owned element already marked has a second holder (a sound store never has one). The
//    walk goes on with the DL's next item, so everything reachable stays marked.
//  - A list element that names no live element is skipped: pruning removes it right after.
#include "platform/fundra/debug.h"
#include "store/engine.h"

namespace zove {

using zelkor::DebugLogf;
using zelkor::fc;
using zelkor::send;

Word zoveGCCheck(Object* self) {
  ZoveData* d = zoveData(self);
  if (++d->changeCount < kCollectEvery) return d->changeCount;
  d->changeCount = 0;
  Word r = send(self, fc("TSGC"));
  DebugLogf(kLogPeriodic, "zoveGCCheck: periodic GC, %E", r);
  return d->changeCount;
}

namespace {

// Marks an owned element (blob, list, weak list) in mode 0; logs and answers a failure.
int32_t markOwned(fundra::ElementSpace* s, int32_t dl, int32_t ref, int32_t mode,
                  const char* failure) {
  if (mode != 0) return 0;
  int32_t r = s->LmMark(ref);
  if (r < 0) DebugLogf(kLogFault, failure, dl, r);
  return r < 0 ? r : 0;
}

}  // namespace

int32_t zoveDoMark(Object* self, int32_t dl, int32_t depth, int32_t mode) {
  ZoveData* d = zoveData(self);
  fundra::ElementSpace* s = d->space;
  if (depth > kMaxDepth) {
    DebugLogf(kLogFault, "zoveDoMark: DL %~d, too deep, depth > %~d", dl, kMaxDepth);
    return kTooDeep;
  }
  int32_t r = s->LmMark(dl);
  if (r == 0) return 0;
  if (r < 0) {
    DebugLogf(kLogFault, "zoveDoMark: DL %~d, LmMark/1 failed, %E", dl, r);
    return r;
  }
  DLView v;
  if (d->checkLevel != 0 || dlOpen(s, dl, &v) != 0) {
    // An element that cannot be a DL is reported by the check as what it is.
    r = zoveCheckDL(self, dl);
    if (r != 0) return r;
    dlOpen(s, dl, &v);
  }
  // Nothing below allocates or moves an element, so the view stays valid.
  const int32_t count = v.head->count;
  // The walk is bound by memory latency: start fetching the slots of every referent now, and
  // the bytes of the next one while the walk is inside the current one.
  for (int32_t i = 0; i < count; ++i)
    if (v.items[i].ref > 0) s->LmPrefetch(v.items[i].ref, false);
  for (int32_t i = 0; i < count; ++i)
    if (v.items[i].ref > 0) s->LmPrefetch(v.items[i].ref, true);
  for (int32_t i = 0; i < count; ++i) {
    const Item& it = v.items[i];
    if (it.ref > 0) {
      uint32_t type = it.kind & ~0xFFu;
      if (type == kHandle || type == kPartLink) {
        r = zoveDoMark(self, it.ref, depth + 1, mode);
        if (r != 0) return r;
      } else if (type == kBlob) {
        r = markOwned(s, dl, it.ref, mode, "zoveDoMark: DL %~d, LmMark/2 failed, %E");
        if (r != 0) return r;
      } else if (type == kList || type == kWeakList) {
        r = markOwned(s, dl, it.ref, mode, "zoveDoMark: DL %~d, LmMark/3 failed, %E");
        if (r != 0) return r;
        int32_t size = s->LmSize(it.ref);
        if (size < 0) {
          DebugLogf(kLogFault, "zoveDoMark: DL %~d, LmSize failed, %E", dl, size);
          return size;
        }
        if (type == kWeakList) continue;
        const auto* elems = reinterpret_cast<const int32_t*>(s->LmGet(it.ref));
        for (int32_t j = 0, n = size / 4; j < n; ++j) {
          if (s->LmTest(elems[j]) != 0) continue;
          r = zoveDoMark(self, elems[j], depth + 1, mode);
          if (r != 0) return r;
        }
      } else if (type != kWeakHandle) {
        DebugLogf(kLogFault, "zoveDoMark: DL %~d, item value 0x%08x bad", dl, it.kind);
        return kBadRefType;
      }
    } else {
      uint32_t type = uint32_t(it.ref) & ~0xFFu;
      if (type == kVHandle) {
        if (d->liveRecords) d->liveRecords->Remove(zelkor::toWord(it.kind));
      } else if (type != kImmediate) {
        DebugLogf(kLogFault, "zoveDoMark: DL %~d, item refnum 0x%08x bad", dl, it.ref);
        return kBadValueType;
      }
    }
  }
  return 0;
}

namespace {

// Pruning from DL 1 after a collection: drops list entries and weak handles whose target is
// gone and clears owner words that name a freed module DL. Answers whether it changed anything.
bool prune(fundra::ElementSpace* s, int32_t dl) {
  if (s->LmMark(dl) <= 0) return false;
  DLView v;
  if (dlOpen(s, dl, &v) != 0) return false;
  for (int32_t i = 0; i < v.head->count; ++i)
    if (v.items[i].ref > 0) s->LmPrefetch(v.items[i].ref, false);
  bool changed = false;
  if (v.head->owner != 0 && s->LmTest(v.head->owner) != 0) {
    v.head->owner = 0;
    changed = true;
  }
  for (int32_t i = v.head->count - 1; i >= 0; --i) {
    Item it = v.items[i];
    if (it.ref <= 0) continue;
    uint32_t type = it.kind & ~0xFFu;
    if (isListType(type)) {
      int32_t size = s->LmSize(it.ref);
      if (size < 0) continue;
      int32_t n = size / 4;
      for (int32_t j = n - 1; j >= 0; --j) {
        auto* elems = reinterpret_cast<int32_t*>(s->LmGet(it.ref));
        if (s->LmTest(elems[j]) == 0) {
          changed |= prune(s, elems[j]);
          continue;
        }
        for (int32_t k = j; k < n - 1; ++k) elems[k] = elems[k + 1];
        --n;
        s->LmSetAssert(it.ref, n * 4);  // shrinking never moves
        changed = true;
      }
    } else if (type == kWeakHandle) {
      if (s->LmTest(it.ref) == 0) continue;
      int32_t count = v.head->count - 1;
      for (int32_t k = i; k < count; ++k) v.items[k] = v.items[k + 1];
      v.head->count = count;
      s->LmSetAssert(dl, kHeadBytes + v.head->dataSize + kItemBytes * count);
      changed = true;
    } else if (type == kHandle || type == kPartLink) {
      if (i > 0 && v.items[i - 1].ref > 0) s->LmPrefetch(v.items[i - 1].ref, true);
      changed |= prune(s, it.ref);
    }
    // Pruning shrinks elements only, and shrinking never moves one; the view is re-read after a
    // change for the item count.
    if (changed) dlOpen(s, dl, &v);
  }
  return changed;
}

}  // namespace

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
  d->liveRecords = new fundra::TDict(0, 0);
  if (d->file) {
    int32_t n = zelkor::i32(send(d->file, fc("HCId"), kRecordType));
    for (int32_t i = 1; i <= n; ++i)
      d->liveRecords->Set(send(d->file, fc("HEId"), kRecordType, i), 1);
  }
  s->LmUnmark();
  d->fault = zoveDoMark(self, kRootDL, 0, 0);
  for (int32_t i = 0; d->fault == 0 && i < d->keep.Count(); ++i)
    d->fault = zoveDoMark(self, d->keep.Get(i), 0, 0);
  if (d->fault == 0) {
    s->LmCollect();
    d->fault = s->LmValid();
    if (d->fault != 0) DebugLogf(kLogFault, "zoveCollect: LmValid/2 failed, code %~d", d->fault);
  }
  if (d->fault == 0) {
    s->LmUnmark();
    prune(s, kRootDL);
    zelkor::Word chunk, one;
    fundra::TDictIter it(*d->liveRecords);
    while (it.Next(&chunk, &one)) send(d->file, fc("HRmv"), kRecordType, chunk);
  }
  delete d->liveRecords;
  d->liveRecords = nullptr;
  return d->fault != 0 ? kFaulted : 0;
}

}  // namespace zove

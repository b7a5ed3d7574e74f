// Items: the one writer and the one remover behind every typed selector, with the ownership
// rules of each kind, and the selectors that read a DL's items by position or key.
//
// Ownership: an item owns its referent only for blobs, lists and weak lists; that element is
// removed the moment the item is overwritten or removed. Handles, part links and weak handles
// own nothing; storing one takes its target off the keep list. Immediate values and vhandle
// items have no referent in the space (a record goes at the next collection).
#include <cstring>

#include "store/collect_state.h"
#include "store/engine.h"

namespace zove {

using zelkor::i32;

int32_t zoveFindItem(Object* self, int32_t dl, uint32_t key, Item* out) {
  DLView v;
  int32_t r = zoveOpenDL(self, dl, &v);
  if (r != 0) return r;
  int32_t i = dlFind(v, key);
  if (i < 0) return kNoItem;
  *out = v.items[i];
  return i;
}

Word zoveStoreItem(Object* self, int32_t dl, uint32_t key, int32_t ref, uint32_t kind) {
  ZoveData* d = zoveData(self);
  zoveCheckIfRaised(self, dl);
  // A key the DL check rejects, a reference to something that is not a DL, an owned referent
  // that does not exist: a caller's slips, each asserted and then stored as asked. The next
  // collection or check finds them and faults the store; nothing here reads or writes outside
  // an element.
  if (!isPrintableCode(key)) zoveAssert();
  if (ref > 0) {
    uint32_t type = typeOf(kind);
    if (type == kHandle || type == kPartLink || type == kWeakHandle)
      zoveRelease(self, ref);  // asserts for a target that is not a DL
    else if (!d->space || d->space->LmTest(ref) != 0)
      zoveAssert();
  }
  DLView v;
  int32_t r = zoveEditDL(self, dl, &v);
  if (r != 0) return r;
  int32_t i = dlFind(v, key);
  if (i >= 0) {
    Item& it = v.items[i];
    // Whatever the old item led the collector to (an edge, an owned element, a record) it may
    // lead to no more.
    bool named = it.ref > 0 ? typeOf(it.kind) != kWeakHandle : typeOf(it.ref) == kVHandle;
    bool same = it.ref == ref && (it.ref > 0 ? typeOf(it.kind) == typeOf(kind) : it.kind == kind);
    if (named && !same) zoveUnlinked(self);
    // A damaged item's owned element may not be live: there is nothing to free then.
    int32_t old = ownsReferent(it) && it.ref != ref && d->space->LmTest(it.ref) == 0 ? it.ref : 0;
    it.kind = kind;
    it.ref = ref;
    return old ? d->space->LmRemove(old) : ref;
  }
  r = d->space->LmSetAssert(dl, v.size + kItemBytes);
  if (r != 0) return zoveNoRoom(self, "zoveStoreItem", r, int64_t(v.size) + kItemBytes);
  dlOpen(d->space, dl, &v);
  int32_t at = dlInsertPosition(v, key);
  int32_t count = v.head->count;
  std::memmove(&v.items[at + 1], &v.items[at], size_t(count - at) * kItemBytes);
  v.items[at] = Item{ref, kind, key};
  v.head->count = count + 1;
  return ref;
}

Word zoveRemoveItem(Object* self, int32_t dl, uint32_t key) {
  ZoveData* d = zoveData(self);
  zoveCheckIfRaised(self, dl);
  DLView v;
  int32_t r = zoveEditDL(self, dl, &v);
  if (r != 0) return r;
  int32_t i = dlFind(v, key);
  if (i < 0) return kNoItem;
  if (v.items[i].ref > 0 || typeOf(v.items[i].ref) == kVHandle) zoveUnlinked(self);
  int32_t old = ownsReferent(v.items[i]) ? v.items[i].ref : 0;
  int32_t count = v.head->count - 1;
  std::memmove(&v.items[i], &v.items[i + 1], size_t(count - i) * kItemBytes);
  v.head->count = count;
  d->space->LmSetAssert(dl, kHeadBytes + v.head->dataSize + kItemBytes * count);
  Word result = old ? d->space->LmRemove(old) : 0;
  zoveGCCheck(self);
  return result;
}

Word zoveGetCount(Object* self, const Msg& m) {
  DLView v;
  if (zoveOpenDL(self, i32(m.w[0]), &v) != 0) return 0;
  return v.head->count;
}

// TSEn (DL, index): the key of item number index, 0 outside the items.
Word zoveGetKey(Object* self, const Msg& m) {
  DLView v;
  if (zoveOpenDL(self, i32(m.w[0]), &v) != 0) return 0;
  int32_t index = i32(m.w[1]);
  if (index < 0 || index >= v.head->count) return 0;
  return zelkor::toWord(v.items[index].key);
}

Word zoveUnkey(Object* self, const Msg& m) {
  return zoveRemoveItem(self, i32(m.w[0]), zelkor::u32(m.w[1]));
}

// TSLU (DL, key): the nearest DL up the `Pare` handles that has the key, 0 when none does.
// A chain that loops is cut after as many steps as the space has numbers.
Word zoveLookUp(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  int32_t dl = i32(m.w[0]);
  uint32_t key = zelkor::u32(m.w[1]);
  for (int32_t steps = 0; dl > 0 && d->space && steps <= d->space->LmCount(); ++steps) {
    DLView v;
    if (zoveOpenDL(self, dl, &v) != 0) return 0;
    if (dlFind(v, key) >= 0) return dl;
    int32_t p = dlFind(v, kPareKey);
    dl = p >= 0 && v.items[p].ref > 0 && typeOf(v.items[p].kind) == kHandle ? v.items[p].ref : 0;
  }
  return 0;
}

}  // namespace zove

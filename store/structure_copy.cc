// Duplicate (TSDD): a deep copy of a stored object's structure.
//
// Copy (DL, top) answers the DL's copy: a shared DL below the top is itself (objects are
// shared, not copied); a DL copied before answers that copy; else a byte copy whose part links
// and list elements are copied in turn (items from the last to the first, list elements from the
// last), whose blobs and lists are copied bytes, and whose handles, weak handles, weak-list
// elements and values stay as they were. The fix-up then walks from the new top through
// handles, part links, weak handles and lists, rewriting every handle to a copied DL as a handle
// to its copy, without entering shared DLs.
//
// The copy walk keeps an explicit stack. A copy's number is known the moment its bytes are
// duplicated, so it is written into the parent's item at once and the new DL's items are copied
// before the parent's next item: the elements are made in the same order as the recursive walk
// makes them, so the copies get the same numbers.
#include <vector>

#include "store/collect_state.h"
#include "store/engine.h"
#include "store/registry.h"
#include "store/structure_map.h"

namespace zove {

using zelkor::DebugLogf;

namespace {

class Copier {
 public:
  Copier(fundra::ElementSpace* space) : space_(space), map_(*space) {}
  bool ok() const { return map_.ok(); }
  int32_t run(int32_t top);
  const DLMap& map() const { return map_; }

 private:
  // Built in place: a pushed temporary was copied whole through the stack, stalling each push.
  struct Frame {
    Frame(int32_t src, int32_t dst, int32_t item) : src(src), dst(dst), item(item) {}
    int32_t src, dst;   // the DL being copied and its copy
    int32_t item;       // the item being copied, counting down
    int32_t list = 0;   // the copied list whose elements are being copied, or 0
    int32_t elem = -1;  // the element being copied, counting down
  };

  int32_t copyDL(int32_t dl, bool top);
  int32_t step();
  Item* items(int32_t dl) {
    auto* head = reinterpret_cast<DLHead*>(space_->LmGet(dl));
    return reinterpret_cast<Item*>(space_->LmGet(dl) + kHeadBytes + head->dataSize);
  }

  fundra::ElementSpace* space_;
  DLMap map_;  // source DL -> its copy
  std::vector<Frame> stack_;
};

// Steps 1 to 3 of the copy: answers the copy (or the DL itself when shared), pushing a frame
// for a new copy's items; a code when the DL cannot be copied.
int32_t Copier::copyDL(int32_t dl, bool top) {
  DLView v;
  if (int32_t r = dlOpen(space_, dl, &v); r != 0) return r;
  if (!top && (v.head->flags & kSharedFlag)) return dl;
  if (int32_t have = map_.get(dl); have > 0) return have;
  int32_t copy = space_->LmDupeAssert(dl);
  if (copy < 0) return copy;
  // The kept flag stays with the keep list's own entry; the copy is kept (or not) on its own.
  reinterpret_cast<DLHead*>(space_->LmGet(copy))->flags &= uint16_t(~kKeptFlag);
  map_.set(dl, copy);
  stack_.emplace_back(dl, copy, v.head->count - 1);
  return copy;
}

int32_t Copier::step() {
  Frame& f = stack_.back();
  if (f.list > 0) {
    if (f.elem < 0) {
      f.list = 0;
      --f.item;
      return 0;
    }
    int32_t at = f.elem--;
    int32_t list = f.list;
    int32_t e = copyDL(reinterpret_cast<int32_t*>(space_->LmGet(list))[at], false);
    if (e < 0) return e;
    reinterpret_cast<int32_t*>(space_->LmGet(list))[at] = e;
    return 0;
  }
  if (f.item < 0) {
    stack_.pop_back();
    return 0;
  }
  int32_t src = f.src, dst = f.dst, i = f.item;
  Item it = items(src)[i];
  uint32_t type = itemType(it);
  if (it.ref <= 0) {
    if (type != kImmediate && type != kVHandle) {
      DebugLogf(kLogFault, "zoveDoDupe: DL %~d, item refnum 0x%08x bad", src, it.ref);
      return kBadValueType;
    }
    --f.item;
    return 0;
  }
  switch (type) {
    case kPartLink: {
      --f.item;
      int32_t r = copyDL(it.ref, false);
      if (r < 0) return r;
      items(dst)[i].ref = r;
      return 0;
    }
    case kHandle:
    case kWeakHandle:
      --f.item;
      return 0;
    case kBlob:
    case kList:
    case kWeakList: {
      int32_t r = space_->LmDupeAssert(it.ref);
      if (r < 0) return r;
      items(dst)[i].ref = r;
      int32_t size = space_->LmSize(r);
      if (type == kList && size >= 0) {
        f.list = r;
        f.elem = size / 4 - 1;
      } else {
        --f.item;
      }
      return 0;
    }
    default:
      DebugLogf(kLogFault, "zoveDoDupe: DL %~d, item value 0x%08x bad", src, it.kind);
      return kBadRefType;
  }
}

int32_t Copier::run(int32_t top) {
  int32_t r = copyDL(top, true);
  while (r > 0 && !stack_.empty())
    if (int32_t s = step(); s < 0) r = s;
  return r;
}

// Rewrites handles to copied DLs as handles to their copies, in every unshared DL reachable
// from dl through handles, part links, weak handles and lists. Each DL is visited once (marks),
// so the order of the visits does not change what is rewritten.
void fixUp(fundra::ElementSpace* space, const DLMap& map, int32_t dl) {
  std::vector<int32_t> todo{dl};
  while (!todo.empty()) {
    int32_t n = todo.back();
    todo.pop_back();
    DLView v;
    if (space->LmMark(n) <= 0 || dlOpen(space, n, &v) != 0 || (v.head->flags & kSharedFlag))
      continue;
    for (int32_t i = v.head->count - 1; i >= 0; --i) {
      Item& it = v.items[i];
      if (it.ref <= 0) continue;
      uint32_t type = typeOf(it.kind);
      if (type == kHandle) {
        if (int32_t copy = map.get(it.ref); copy > 0) {
          it.ref = copy;
          space->LmTouch(n);
        }
        todo.push_back(it.ref);
      } else if (type == kList) {
        ListView l;
        if (listOpen(space, it.ref, &l) != 0) continue;
        for (int32_t k = l.count - 1; k >= 0; --k) {
          if (int32_t copy = map.get(l.at[k]); copy > 0) {
            l.at[k] = copy;
            space->LmTouch(it.ref);
          }
          todo.push_back(l.at[k]);
        }
      } else if (type == kPartLink || type == kWeakHandle) {
        todo.push_back(it.ref);
      }
    }
  }
}

}  // namespace

// TSDD (DL): the new DL, kept, or a code (a partial copy is left to the collector).
Word zoveDoDupe(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  int32_t dl = zelkor::i32(m.w[0]);
  if (!d->space) return kNoSpace;
  zoveCheckIfRaised(self, dl);
  Copier copier(d->space);
  if (!copier.ok()) return fundra::kLmNoMemory;
  zoveUnlinked(self);  // the rewrite of handles to copies may reach DLs that were there before
  int32_t copy = copier.run(dl);
  if (copy < 0) zoveNoRoom(self, "zoveDoDupe", copy, d->space->LmSize(dl));
  if (copy > 0) {
    reinterpret_cast<DLHead*>(d->space->LmGet(copy))->flags &= uint16_t(~kSharedFlag);
    d->space->LmUnmark();
    fixUp(d->space, copier.map(), copy);
    zoveKeep(self, copy);
  }
  return copy;
}

}  // namespace zove

// Cutting (TSDR, TSTK): every reference to a DL, or every item with a key, cut out of the part
// of the store reachable from DL 1.
//
// A round unlinks from DL 1 with a target and a key. Unlink (DL) visits each DL once (marks) and
// walks its items from the last: list and weak-list elements naming the target are removed from
// the list, other elements lead on; a handle, part link or weak handle that names the target or
// carries the key is hit: a hit handle or weak handle is removed from the DL, while a hit part
// link means the DL is part of what is cut, so the DL is queued as a later round's target and
// its walk ends; any other such reference leads on. Any other item carrying the key is removed.
// Removed blob and list items leave their elements to the next collection.
//
// Rounds run until the queue (the store's scratch map, oldest first) is empty. A round whose
// target comes up again while the store has not changed since that target's last round would
// only queue what that round queued: it is skipped, so a ring of part links cannot keep the
// rounds going for ever.
#include <cstring>
#include <vector>

#include "store/collect_state.h"
#include "store/engine.h"
#include "store/registry.h"

namespace zove {

namespace {

struct Frame {
  int32_t dl;
  int32_t item;  // counting down
  int32_t list;  // the list being walked for that item, or 0
  int32_t elem;  // its element being walked, counting down
};

class Cutter {
 public:
  Cutter(fundra::ElementSpace* space, fundra::TDict* queue) : space_(space), queue_(queue) {}
  void run(int32_t target, uint32_t key);

 private:
  void unlink(int32_t target, uint32_t key);
  void enter(int32_t dl) {
    DLView v;
    if (space_->LmMark(dl) <= 0 || dlOpen(space_, dl, &v) != 0) return;
    stack_.push_back(Frame{dl, v.head->count - 1, 0, -1});
  }
  void removeItem(int32_t dl, int32_t i);
  void removeElem(int32_t list, int32_t k);

  fundra::ElementSpace* space_;
  fundra::TDict* queue_;
  std::vector<Frame> stack_;
  int64_t changes_ = 0;
};

// Removes item i of the DL without touching its referent, shrinking the element.
void Cutter::removeItem(int32_t dl, int32_t i) {
  DLView v;
  dlOpen(space_, dl, &v);
  int32_t count = v.head->count - 1;
  std::memmove(&v.items[i], &v.items[i + 1], size_t(count - i) * kItemBytes);
  v.head->count = count;
  space_->LmSetAssert(dl, kHeadBytes + v.head->dataSize + kItemBytes * count);
  ++changes_;
}

void Cutter::removeElem(int32_t list, int32_t k) {
  ListView l;
  listOpen(space_, list, &l);
  std::memmove(&l.at[k], &l.at[k + 1], size_t(l.count - 1 - k) * 4);
  space_->LmSetAssert(list, (l.count - 1) * 4);
  ++changes_;
}

void Cutter::unlink(int32_t target, uint32_t key) {
  enter(kRootDL);
  while (!stack_.empty()) {
    Frame& f = stack_.back();
    int32_t dl = f.dl;
    if (f.list > 0) {
      if (f.elem < 0) {
        f.list = 0;
        --f.item;
        continue;
      }
      int32_t list = f.list, k = f.elem--;
      ListView l;
      if (listOpen(space_, list, &l) != 0 || k >= l.count) continue;
      if (l.at[k] == target)
        removeElem(list, k);
      else
        enter(l.at[k]);
      continue;
    }
    if (f.item < 0) {
      stack_.pop_back();
      continue;
    }
    int32_t i = f.item--;
    DLView v;
    // Only damage changes a DL under its walk (a list or blob item whose element is a DL the
    // walk is in): what is no DL any more, or holds fewer items, ends its walk.
    if (dlOpen(space_, dl, &v) != 0 || i >= v.head->count) {
      stack_.pop_back();
      continue;
    }
    Item it = v.items[i];
    if (it.ref <= 0) continue;
    uint32_t type = typeOf(it.kind);
    if (isListType(type)) {
      ListView l;
      if (listOpen(space_, it.ref, &l) != 0) continue;
      ++f.item;  // the item is done once its elements are
      f.list = it.ref;
      f.elem = l.count - 1;
    } else if (type == kHandle || type == kPartLink || type == kWeakHandle) {
      if (it.ref != target && it.key != key) {
        enter(it.ref);
      } else if (type == kPartLink) {
        queue_->Set(dl, 1);
        stack_.pop_back();
      } else {
        removeItem(dl, i);
      }
    } else if (it.key == key) {
      removeItem(dl, i);
    }
  }
}

void Cutter::run(int32_t target, uint32_t key) {
  fundra::TDict lastRound;  // target -> changes_ + 1 when its last round began
  while (true) {
    if (lastRound.Lookup(target) != changes_ + 1) {
      lastRound.Set(target, changes_ + 1);
      space_->LmUnmark();
      unlink(target, key);
    }
    Word next, one;
    if (!queue_->First(&next, &one)) return;
    queue_->Remove(next);
    target = zelkor::i32(next);
  }
}

void cut(Object* self, int32_t target, uint32_t key) {
  ZoveData* d = zoveData(self);
  if (!d->space) return;
  zoveUnlinked(self);
  fundra::TDict queue;
  d->scratch = &queue;
  Cutter(d->space, &queue).run(target, key);
  d->scratch = nullptr;
}

}  // namespace

// TSDR (target).
Word zoveDelRefs(Object* self, const Msg& m) {
  cut(self, zelkor::i32(m.w[0]), 0);
  return 0;
}

// TSTK (key).
Word zoveDelKey(Object* self, const Msg& m) {
  cut(self, 0, zelkor::u32(m.w[0]));
  return 0;
}

}  // namespace zove

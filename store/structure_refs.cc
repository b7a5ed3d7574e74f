// Inside test (TSTW) and referrer count (TSFR): two marking walks over a structure.
//
// Within (DL, target, top): below the top, reaching the target answers 1; a DL marked before
// answers 0, as does a shared DL below the top (another object). Then the items from the last:
// handles and part links lead on, list elements lead on from the first, a weak list's elements
// and any other reference only count when they name the target.
//
// Refer (DL) answers how many references to the target lie inside the DL's structure: over the
// items from the last, a reference naming the target counts 1, part links lead on, list elements
// count 1 when they name the target and lead on otherwise. A shared, visible DL that holds any
// (and, when a key is given, has an item with that key) is a referring object: it is counted and
// the first one noted. A shared DL answers 0 to its holder: references stop at an object.
//
// Both keep an explicit stack and visit DLs in the order of the recursive definitions, which
// matters here: the marks decide which holder counts a DL reached twice.
#include <vector>

#include "store/engine.h"
#include "store/registry.h"

namespace zove {

namespace {

struct Frame {
  int32_t dl;
  int32_t item;  // counting down
  int32_t list;  // the list being walked for that item, or 0
  int32_t elem;  // its next element, counting up
  int32_t n;     // refer: references counted so far
  bool keyed;    // refer: the key was seen (or no key was given)
};

bool shared(const DLView& v) { return v.head->flags & kSharedFlag; }

// Steps 1 to 3 of within for a DL below the top: 1 on the target, else pushes a frame when the
// DL is new and not an object of its own.
int32_t withinEnter(fundra::ElementSpace* space, std::vector<Frame>& stack, int32_t dl,
                    int32_t target, bool top) {
  if (!top && dl == target) return 1;
  DLView v;
  if (space->LmMark(dl) <= 0 || dlOpen(space, dl, &v) != 0) return 0;
  if (!top && shared(v)) return 0;
  stack.push_back(Frame{dl, v.head->count - 1, 0, 0, 0, false});
  return 0;
}

int32_t within(fundra::ElementSpace* space, int32_t from, int32_t target) {
  std::vector<Frame> stack;
  if (withinEnter(space, stack, from, target, true)) return 1;
  while (!stack.empty()) {
    Frame& f = stack.back();
    if (f.list > 0) {
      ListView l;
      if (listOpen(space, f.list, &l) != 0 || f.elem >= l.count) {
        f.list = 0;
        --f.item;
        continue;
      }
      if (withinEnter(space, stack, l.at[f.elem++], target, false)) return 1;
      continue;
    }
    if (f.item < 0) {
      stack.pop_back();
      continue;
    }
    DLView v;
    dlOpen(space, f.dl, &v);
    Item it = v.items[f.item];
    if (it.ref <= 0) {
      --f.item;
      continue;
    }
    uint32_t type = typeOf(it.kind);
    if (type == kList) {
      f.list = it.ref;
      f.elem = 0;
      continue;
    }
    --f.item;
    if (type == kHandle || type == kPartLink) {
      if (withinEnter(space, stack, it.ref, target, false)) return 1;
    } else if (type == kWeakList) {
      ListView l;
      if (listOpen(space, it.ref, &l) == 0)
        for (int32_t k = 0; k < l.count; ++k)
          if (l.at[k] == target) return 1;
    } else if (it.ref == target) {
      return 1;
    }
  }
  return 0;
}

class Referrers {
 public:
  Referrers(fundra::ElementSpace* space, int32_t target, uint32_t key)
      : space_(space), target_(target), key_(key) {}
  int32_t run();
  int32_t first() const { return first_; }

 private:
  // Adds refer (dl) to the frame on top, or pushes a frame for dl's items.
  void enter(int32_t dl) {
    DLView v;
    if (space_->LmMark(dl) <= 0 || dlOpen(space_, dl, &v) != 0) return;
    stack_.push_back(Frame{dl, v.head->count - 1, 0, 0, 0, key_ == 0});
  }
  void finish();

  fundra::ElementSpace* space_;
  int32_t target_;
  uint32_t key_;
  std::vector<Frame> stack_;
  int32_t count_ = 0;
  int32_t first_ = 0;
};

// Step 4 and 5 of refer for the frame on top: counts the DL as a referring object if it is one
// and hands its count to its holder.
void Referrers::finish() {
  Frame f = stack_.back();
  stack_.pop_back();
  DLView v;
  dlOpen(space_, f.dl, &v);
  if (f.n != 0 && f.keyed && shared(v) && !(v.head->flags & kInvisibleFlag)) {
    ++count_;
    if (first_ == 0) first_ = f.dl;
  }
  if (!stack_.empty() && !shared(v)) stack_.back().n += f.n;
}

int32_t Referrers::run() {
  enter(kRootDL);
  while (!stack_.empty()) {
    Frame& f = stack_.back();
    if (f.list > 0) {
      ListView l;
      if (listOpen(space_, f.list, &l) != 0 || f.elem >= l.count) {
        f.list = 0;
        --f.item;
        continue;
      }
      int32_t e = l.at[f.elem++];
      if (e == target_)
        ++f.n;
      else
        enter(e);
      continue;
    }
    if (f.item < 0) {
      finish();
      continue;
    }
    DLView v;
    dlOpen(space_, f.dl, &v);
    Item it = v.items[f.item];
    if (key_ != 0 && it.key == key_) f.keyed = true;
    if (it.ref <= 0) {
      --f.item;
      continue;
    }
    uint32_t type = typeOf(it.kind);
    if (it.ref == target_) {
      ++f.n;
    } else if (type == kList) {
      f.list = it.ref;  // the item is done once its elements are
      f.elem = 0;
      continue;
    }
    --f.item;
    if (it.ref != target_ && type == kPartLink) enter(it.ref);
  }
  return count_;
}

}  // namespace

// TSTW (from, target): 1 when the target lies inside from's structure.
Word zoveTstWithin(Object* self, const Msg& m) {
  fundra::ElementSpace* space = zoveData(self)->space;
  if (!space) return 0;
  space->LmUnmark();
  space->LmLock();
  int32_t r = within(space, zelkor::i32(m.w[0]), zelkor::i32(m.w[1]));
  space->LmUnlock();
  return r;
}

// TSFR (target, key or 0, pointer to the first referrer): the number of referring objects.
Word zoveFindRefs(Object* self, const Msg& m) {
  fundra::ElementSpace* space = zoveData(self)->space;
  auto* first = zelkor::asPtr<int32_t>(m.w[2]);
  if (first) *first = 0;
  if (!space) return 0;
  space->LmUnmark();
  Referrers refs(space, zelkor::i32(m.w[0]), zelkor::u32(m.w[1]));
  int32_t count = refs.run();
  if (first) *first = refs.first();
  return count;
}

}  // namespace zove

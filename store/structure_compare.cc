// Compare (TSDC): 0 when two structures are equal, else the number of a DL where they differ.
//
// Compare (a, b, top): equal numbers, or a pair met before, are equal (the pair is then entered,
// so cycles end); below the top a shared DL on either side is an object of its own and differs;
// then the headers and data areas, then the items pairwise from the last: keys and whole kind
// words; handles and part links compare their targets in turn; blobs and weak lists compare
// bytes; lists compare their elements pairwise from the first in turn; other references and
// values compare their ref words.
//
// The walk keeps an explicit stack in the order the recursive definition visits pairs; any
// difference ends the whole comparison, so the first difference found is the answer.
#include <vector>

#include "platform/fundra/memory.h"
#include "store/engine.h"
#include "store/registry.h"
#include "store/structure_map.h"

namespace zove {

namespace {

class Comparer {
 public:
  explicit Comparer(const fundra::ElementSpace& space) : space_(space), map_(space) {}
  bool ok() const { return map_.ok(); }
  int32_t run(int32_t a, int32_t b);

 private:
  struct Frame {
    int32_t a, b;
    int32_t item;    // the item pair being compared, counting down
    int32_t la, lb;  // the lists whose elements are being compared, or 0
    int32_t elem, count;
  };

  int32_t enter(int32_t a, int32_t b, bool top);
  int32_t step();

  const fundra::ElementSpace& space_;
  DLMap map_;  // a -> the b it is being compared with
  std::vector<Frame> stack_;
};

// Steps 1 to 3 for a pair: 0 when equal so far (pushing a frame for the items), else a.
int32_t Comparer::enter(int32_t a, int32_t b, bool top) {
  if (a == b || (map_.get(a) == b && b != 0)) return 0;
  map_.set(a, b);
  DLView va, vb;
  if (dlOpen(&space_, a, &va) != 0 || dlOpen(&space_, b, &vb) != 0) return a;
  if (!top && ((va.head->flags | vb.head->flags) & kSharedFlag)) return a;
  if (va.head->uType != vb.head->uType || va.head->dataSize != vb.head->dataSize ||
      va.head->count != vb.head->count || !fundra::EqualBlock(va.data, vb.data, va.head->dataSize))
    return a;
  stack_.push_back(Frame{a, b, va.head->count - 1, 0, 0, 0, 0});
  return 0;
}

int32_t Comparer::step() {
  Frame& f = stack_.back();
  int32_t a = f.a;
  if (f.la > 0) {
    if (f.elem >= f.count) {
      f.la = 0;
      --f.item;
      return 0;
    }
    int32_t k = f.elem++;
    return enter(reinterpret_cast<const int32_t*>(space_.LmGet(f.la))[k],
                 reinterpret_cast<const int32_t*>(space_.LmGet(f.lb))[k], false);
  }
  if (f.item < 0) {
    stack_.pop_back();
    return 0;
  }
  DLView va, vb;
  dlOpen(&space_, f.a, &va);
  dlOpen(&space_, f.b, &vb);
  const Item& ia = va.items[f.item];
  const Item& ib = vb.items[f.item];
  --f.item;
  if (ia.key != ib.key || ia.kind != ib.kind) return a;
  if (ia.ref <= 0 || ib.ref <= 0) return ia.ref == ib.ref ? 0 : a;
  uint32_t type = typeOf(ia.kind);
  if (type == kHandle || type == kPartLink) return enter(ia.ref, ib.ref, false);
  if (type == kBlob || isListType(type)) {
    int32_t sa = space_.LmSize(ia.ref), sb = space_.LmSize(ib.ref);
    if (sa < 0 || sb < 0) {
      zoveAssert();
      return ia.ref;
    }
    if (sa != sb) return ia.ref;
    if (type == kList) {
      ++f.item;  // the item is done once its elements are
      f.la = ia.ref;
      f.lb = ib.ref;
      f.elem = 0;
      f.count = sa / 4;
      return 0;
    }
    return fundra::EqualBlock(space_.LmGet(ia.ref), space_.LmGet(ib.ref), sa) ? 0 : ia.ref;
  }
  return ia.ref == ib.ref ? 0 : a;
}

int32_t Comparer::run(int32_t a, int32_t b) {
  int32_t r = enter(a, b, true);
  while (r == 0 && !stack_.empty()) r = step();
  return r;
}

}  // namespace

// TSDC (a, b).
Word zoveDoCompare(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  if (!d->space) return kNoSpace;
  Comparer comparer(*d->space);
  if (!comparer.ok()) return fundra::kLmNoMemory;
  return comparer.run(zelkor::i32(m.w[0]), zelkor::i32(m.w[1]));
}

}  // namespace zove

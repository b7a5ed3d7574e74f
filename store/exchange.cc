// Writing the exchange stream (layout in store/exchange.h) and the TSEx/TSIm handlers.
//
// The walk is depth first with an explicit stack, so a chain of any length is written without
// deep recursion. A DL's index is known as soon as its record is appended, so the parent's
// reference is written then, and the DL's own items are walked before the parent's next item:
// the same records, in the same order, as the recursive walk.
#include "store/exchange.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

#include "platform/fundra/debug.h"
#include "platform/fundra/persist.h"
#include "store/collect_state.h"
#include "store/engine.h"
#include "store/exchange_bytes.h"
#include "store/registry.h"
#include "store/structure_map.h"

namespace zove {

namespace {

class Exporter {
 public:
  Exporter(const fundra::ElementSpace& space, fundra::TMemory* out)
      : space_(space), out_(out), index_(space) {}

  int32_t run(int32_t top);

 private:
  // A DL whose items are being walked. Items and list elements are read from the elements in the
  // space, which the walk never writes; their records are written at offsets into the stream,
  // which moves as it grows. Reading back a word just copied into the stream waited for the copy.
  struct Frame {
    const uint8_t* item;     // the item being walked
    const uint8_t* end;      // past the DL's last item
    const uint8_t* list;     // the next element of the list being walked for the item, or null
    const uint8_t* listEnd;  // past the list's last element
    int32_t out;             // offset of the item's copy in the stream
    int32_t listOut;         // offset of the next element's copy
  };

  int32_t grow(int64_t end);
  Frame* deeper();

  const fundra::ElementSpace& space_;
  fundra::TMemory* out_;
  DLMap index_;  // DL -> the index of its record
  std::vector<Frame> stack_;
};

// Makes room for a record ending at `end`: the stream grows to used + record + 4096 bytes, so
// that small records do not each resize it. A TMemory holds at most 2 GiB (its size is a 32-bit
// count): a stream that would pass that is refused as too big, not as memory the system lacks.
int32_t Exporter::grow(int64_t end) {
  if (end > INT32_MAX - 4096) return fundra::kMemBadSize;
  // The walk writes every byte up to its cursor, and the slack is cut off at the end.
  return out_->SetSize(int32_t(end) + 4096, fundra::kMemNoFill);
}

// Doubles the frames' room (at least 16); answers their new address.
Exporter::Frame* Exporter::deeper() {
  stack_.resize(std::max<size_t>(16, 2 * stack_.size()));
  return stack_.data();
}

// The walk keeps the stream's address and its cursor in locals, so they stay in registers across
// the byte copies; the DLs being walked keep their frames in place, one above the other.
int32_t Exporter::run(int32_t top) {
  if (!index_.ok()) return fundra::kMemNoMemory;
  if (int32_t r = out_->SetSize(fundra::kPersistBytes); r != 0) return r;
  fundra::_initpersist(out_->MemPtr(), kExchangeTag, kExchangeVersion, kExchangeVersion);
  // Exporting a stored object of its own (shared) is a caller's mistake; it is written anyway.
  DLView v;
  if (dlOpen(&space_, top, &v) == 0 && (v.head->flags & kSharedFlag))
    fundra::Debug("zove", __LINE__);

  const fundra::ElementSpace& space = space_;
  uint8_t* base = out_->MemPtr();
  int32_t used = fundra::kPersistBytes, room = out_->GetSize();
  int32_t next = 1;  // the next record's index
  int32_t r = 0;

  // Appends a record; answers the offset of its bytes, or a code.
  auto append = [&](const uint8_t* bytes, int32_t n) __attribute__((always_inline))->int32_t {
    int64_t end = int64_t(used) + 4 + n;
    if (end > room) {
      if (int32_t g = grow(end); g != 0) return g;
      base = out_->MemPtr();
      room = out_->GetSize();
    }
    setStreamWord(base + used, n);
    copyRecord(base + used + 4, bytes, n);
    int32_t offset = used + 4;
    used = int32_t(end);
    return offset;
  };

  // Appends element n's bytes as a record and answers its offset, or a code: the space's for a
  // number that names nothing, kWrongKind for a size that is not a multiple of `unit`. The
  // element's bytes and size go to *bytes and *size.
  auto appendElement = [&](int32_t n, int32_t unit, const uint8_t** bytes, int32_t* size)
                           __attribute__((always_inline))
                               ->int32_t {
    *size = space.LmSize(n);
    if (*size < 0) return *size;
    if (*size % unit != 0) return kWrongKind;
    *bytes = space.LmGet(n);
    return append(*bytes, *size);
  };

  // The frames of the DLs being walked, in stack_, which only grows (by a call of its own); f is
  // the innermost and `last` the highest there is room for, so entering and leaving a DL moves a
  // pointer. Below the top DL's frame lies a sentinel without items: the walk ends at it.
  Frame* frames = deeper();
  Frame* last = frames + stack_.size() - 1;
  Frame* f = frames;
  *f = Frame{nullptr, nullptr, nullptr, nullptr, 0, 0};
  // The index of DL n into *index. A DL without a record yet gets one, and its items are walked
  // next, in a frame above the current one.
  auto refer = [&](int32_t n, int32_t * index) __attribute__((always_inline))->int32_t {
    if (int32_t have = index_.get(n); have > 0) {
      *index = have;
      return 0;
    }
    DLView dl;
    if (int32_t e = dlOpen(&space, n, &dl); e != 0) return e;
    int32_t o = append(dl.base, dl.size);
    if (o < 0) return o;
    static_assert(offsetof(DLHead, owner) == 8);
    setStreamWord(base + o + 8, 0);
    index_.set(n, next);
    *index = next++;
    if (f == last) {
      size_t depth = size_t(f - frames);
      frames = deeper();
      last = frames + stack_.size() - 1;
      f = frames + depth;
    }
    ++f;
    const auto* items = reinterpret_cast<const uint8_t*>(dl.items);
    *f = Frame{items,   items + kItemBytes * dl.count(), nullptr,
               nullptr, o + int32_t(items - dl.base),    0};
    return 0;
  };

  int32_t index;
  r = refer(top, &index);
  while (r == 0) {
    if (f->list) {
      if (f->list == f->listEnd) {
        f->list = nullptr;
        f->item += kItemBytes;
        f->out += kItemBytes;
        continue;
      }
      int32_t at = f->listOut;
      int32_t e = int32_t(streamWord(f->list));
      f->list += 4;
      f->listOut += 4;
      if ((r = refer(e, &index)) == 0) setStreamWord(base + at, index);
      continue;
    }
    const uint8_t* item = f->item;
    if (item == f->end) {
      if (f == frames) break;
      --f;
      continue;
    }
    static_assert(offsetof(Item, ref) == 0 && offsetof(Item, kind) == 4);
    const int32_t at = f->out;
    const int32_t ref = int32_t(streamWord(item));
    if (ref <= 0) {
      if (typeOf(ref) != kImmediate) {
        fundra::Debug("zove", __LINE__);
        r = kBadValueType;
        break;
      }
      f->item = item + kItemBytes;
      f->out = at + kItemBytes;
      continue;
    }
    uint32_t type = typeOf(streamWord(item + 4));
    // A blob's or list's record follows the DL's, straight from its element.
    const uint8_t* bytes;
    int32_t size;
    if (type == kBlob) {
      int32_t o = appendElement(ref, 1, &bytes, &size);
      if (o < 0) {
        r = o;
        break;
      }
      setStreamWord(base + at, next++);
      f->item = item + kItemBytes;
      f->out = at + kItemBytes;
      continue;
    }
    if (isListType(type)) {
      int32_t o = appendElement(ref, 4, &bytes, &size);
      if (o < 0) {
        r = o;
        break;
      }
      f->list = bytes;
      f->listEnd = bytes + size;
      f->listOut = o;
      continue;
    }
    if (type != kHandle && type != kPartLink && type != kWeakHandle) {
      fundra::Debug("zove", __LINE__);
      r = kBadRefType;
      break;
    }
    f->item = item + kItemBytes;
    f->out = at + kItemBytes;
    if ((r = refer(ref, &index)) == 0) setStreamWord(base + at, index);
  }
  out_->SetSize(r == 0 ? used : 0);
  return r;
}

}  // namespace

int32_t exchangeExport(const fundra::ElementSpace& space, int32_t dl, fundra::TMemory* out) {
  return Exporter(space, out).run(dl);
}

// TSEx (DL, memory).
Word zoveExport(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  auto* memory = zelkor::asPtr<fundra::TMemory>(m.w[1]);
  if (!d->space || !memory) {
    zoveAssert();
    return d->space ? kWrongKind : kNoSpace;
  }
  int32_t dl = zelkor::i32(m.w[0]);
  int32_t r = exchangeExport(*d->space, dl, memory);
  if (r == fundra::kMemBadSize)
    zelkor::DebugLogf(
        kLogFault, "zoveExport: DL %~d: the stream would pass 2 GiB, the most a TMemory holds, %E",
        dl, r);
  else if (r == fundra::kMemNoMemory)
    zelkor::DebugLogf(kLogFault,
                      "zoveExport: DL %~d: the system's memory ran out for the stream, %E", dl, r);
  return r;
}

// TSIm (DL, memory).
Word zoveImport(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  auto* memory = zelkor::asPtr<fundra::TMemory>(m.w[1]);
  int32_t dl = zelkor::i32(m.w[0]);
  DLView v;
  if (!memory) {
    zoveAssert();
    return kWrongKind;
  }
  if (int32_t r = zoveOpenDL(self, dl, &v); r != 0) return r;
  std::string why;
  zoveUnlinked(self);  // the DL's items are replaced
  int32_t r = exchangeImport(d->space, dl, memory->MemPtr(), memory->GetSize(), &why);
  if (r == kBadStream)
    zelkor::DebugLogf(kLogFault, "zoveImport: DL %~d: stream refused %s", dl, why.c_str());
  else if (r < 0)
    zoveNoRoom(self, "zoveImport", r, memory->GetSize());
  return r;
}

}  // namespace zove

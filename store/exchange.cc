// Writing the exchange stream (layout in store/exchange.h) and the TSEx/TSIm handlers.
//
// The walk is depth first with an explicit stack, so a chain of any length is written without
// deep recursion. A DL's index is known as soon as its record is appended, so the parent's
// reference is written then, and the DL's own items are walked before the parent's next item:
// the same records, in the same order, as the recursive walk.
#include "store/exchange.h"

#include <cstddef>
#include <cstring>
#include <vector>

#include "platform/fundra/debug.h"
#include "platform/fundra/persist.h"
#include "store/engine.h"
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
  // A DL record whose items are being walked. Offsets into the stream, which moves as it grows.
  // Built in place (emplace_back): a pushed temporary was copied whole through the stack, a
  // stalled load on every push.
  struct Frame {
    explicit Frame(int32_t record) : dl(record) {}
    int32_t dl;         // offset of the DL record's bytes
    int32_t item = 0;   // the item being walked
    int32_t list = -1;  // offset of the list record being walked for that item, or -1
    int32_t elem = 0;   // the next element of that list
  };

  int32_t append(const uint8_t* bytes, int32_t n);
  int32_t appendDL(int32_t dl, int32_t* offset);
  int32_t step();
  uint8_t* at(int32_t offset) { return out_->MemPtr() + offset; }
  // Records follow each other without padding, so stream words are read and written unaligned.
  int32_t word(int32_t offset) {
    int32_t w;
    std::memcpy(&w, at(offset), 4);
    return w;
  }
  void setWord(int32_t offset, int32_t w) { std::memcpy(at(offset), &w, 4); }
  // Offset of the item being walked in a DL record.
  int32_t itemOffset(const Frame& f) {
    return f.dl + kHeadBytes + word(f.dl + offsetof(DLHead, dataSize)) + kItemBytes * f.item;
  }

  const fundra::ElementSpace& space_;
  fundra::TMemory* out_;
  DLMap index_;  // DL -> the index of its record
  std::vector<Frame> stack_;
  int32_t used_ = fundra::kPersistBytes;
  int32_t nextIndex_ = 1;
};

// Appends a record and answers the offset of its bytes, or a code. When the record does not fit,
// the stream grows to used + record + 4096 bytes, so that small records do not each resize it.
int32_t Exporter::append(const uint8_t* bytes, int32_t n) {
  int64_t end = int64_t(used_) + 4 + n;
  if (end > INT32_MAX - 4096) return fundra::kMemNoMemory;
  if (end > out_->GetSize()) {
    if (int32_t r = out_->SetSize(int32_t(end) + 4096); r != 0) return r;
  }
  std::memcpy(at(used_), &n, 4);
  if (n > 0) std::memcpy(at(used_ + 4), bytes, size_t(n));
  int32_t offset = used_ + 4;
  used_ = int32_t(end);
  return offset;
}

// The index of dl. A DL without a record yet gets one: *offset is then its bytes' offset (else
// -1), and the caller walks its items next.
int32_t Exporter::appendDL(int32_t dl, int32_t* offset) {
  *offset = -1;
  if (int32_t have = index_.get(dl); have > 0) return have;
  DLView v;
  if (int32_t r = dlOpen(&space_, dl, &v); r != 0) return r;
  int32_t o = append(v.base, v.size);
  if (o < 0) return o;
  setWord(o + offsetof(DLHead, owner), 0);
  index_.set(dl, nextIndex_);
  *offset = o;
  return nextIndex_++;
}

// Walks the innermost DL record's items (and list elements) until a DL not written before
// needs its own items walked first, or the record is done.
int32_t Exporter::step() {
  Frame& f = stack_.back();
  int32_t child = -1;
  while (child < 0) {
    if (f.list >= 0) {
      if (f.elem >= word(f.list - 4) / 4) {
        f.list = -1;
        ++f.item;
        continue;
      }
      int32_t index = appendDL(word(f.list + 4 * f.elem), &child);
      if (index < 0) return index;
      setWord(f.list + 4 * f.elem, index);
      ++f.elem;
      continue;
    }
    if (f.item >= word(f.dl + offsetof(DLHead, count))) {
      stack_.pop_back();
      return 0;
    }
    // The item's words are read one by one: an Item copied out whole went through the stack,
    // and reading its kind back from the wider store stalled.
    static_assert(offsetof(Item, ref) == 0 && offsetof(Item, kind) == 4);
    const int32_t item = itemOffset(f);
    const int32_t ref = word(item);
    if (ref <= 0) {
      if ((uint32_t(ref) & ~0xFFu) != kImmediate) {
        fundra::Debug("zove", __LINE__);
        return kBadValueType;
      }
      ++f.item;
      continue;
    }
    uint32_t type = uint32_t(word(item + 4)) & ~0xFFu;
    if (type == kBlob || isListType(type)) {
      int32_t size = space_.LmSize(ref);
      if (size < 0) return size;
      if (type != kBlob && size % 4 != 0) return kWrongKind;
      int32_t o = append(space_.LmGet(ref), size);
      if (o < 0) return o;
      if (type == kBlob) {
        setWord(item, nextIndex_++);
        ++f.item;
      } else {
        f.list = o;
        f.elem = 0;
      }
      continue;
    }
    if (type != kHandle && type != kPartLink && type != kWeakHandle) {
      fundra::Debug("zove", __LINE__);
      return kBadRefType;
    }
    int32_t index = appendDL(ref, &child);
    if (index < 0) return index;
    setWord(item, index);
    ++f.item;
  }
  stack_.emplace_back(child);
  return 0;
}

int32_t Exporter::run(int32_t top) {
  if (!index_.ok()) return fundra::kMemNoMemory;
  if (int32_t r = out_->SetSize(fundra::kPersistBytes); r != 0) return r;
  fundra::_initpersist(out_->MemPtr(), kExchangeTag, kExchangeVersion, kExchangeVersion);
  DLView v;
  // Exporting a stored object of its own (shared) is a caller's mistake; it is written anyway.
  if (dlOpen(&space_, top, &v) == 0 && (v.head->flags & kSharedFlag))
    fundra::Debug("zove", __LINE__);
  int32_t offset;
  int32_t r = appendDL(top, &offset);
  if (r > 0) {
    r = 0;
    stack_.emplace_back(offset);
    while (!stack_.empty() && r == 0) r = step();
  }
  out_->SetSize(r == 0 ? used_ : 0);
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
  return exchangeExport(*d->space, zelkor::i32(m.w[0]), memory);
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
  return exchangeImport(d->space, dl, memory->MemPtr(), memory->GetSize());
}

}  // namespace zove

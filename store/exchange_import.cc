// Reading the exchange stream (layout in store/exchange.h) into a DL.
//
// Two passes, so that a stream that is refused changes nothing:
//   1. Parse: walk the records in the order the exporter wrote them (an explicit stack, so a
//      chain of any length is read without deep recursion), check every count, kind and index
//      against the bytes that are there, and note for each record what it is and who names it.
//   2. Build: make one element per record after the first, in stream order; if one cannot be
//      made, remove those made and answer the code. Only then is the target rewritten, and the
//      references are turned from indices into element numbers.
// The target stands for index 1, so an item that referred to the exported DL itself refers to
// the target after the import.
#include <cstring>
#include <vector>

#include "platform/fundra/persist.h"
#include "store/dl.h"
#include "store/exchange.h"

namespace zove {

namespace {

enum class RecKind : uint8_t { kDL, kBlob, kList };

struct Rec {
  int32_t offset;  // of the record's bytes in the stream
  int32_t size;
  RecKind kind;
  int32_t parent;  // blob and list records: the DL record whose item names them
  int32_t item;    // ... and that item's position
};

class Parser {
 public:
  Parser(const uint8_t* bytes, int32_t size) : bytes_(bytes), end_(size) {}

  // Answers 0 with recs() and byIndex() filled, or kBadStream.
  int32_t run();
  const std::vector<Rec>& recs() const { return recs_; }
  const std::vector<int32_t>& byIndex() const { return byIndex_; }

 private:
  struct Frame {
    int32_t rec;   // the DL record whose items are read
    int32_t item;  // the item being read
    int32_t list;  // the list record being read for that item, or -1
    int32_t elem;  // the next element of that list
  };

  bool next(RecKind kind, int32_t parent, int32_t item);
  bool nextDL();
  bool resolve(int32_t index, bool* pushed);
  bool step();
  // Records follow each other without padding: stream bytes are copied out, never cast.
  DLHead head(int32_t rec) const {
    DLHead h;
    std::memcpy(&h, bytes_ + recs_[size_t(rec)].offset, sizeof h);
    return h;
  }
  Item itemAt(int32_t rec, int32_t i) const {
    Item it;
    std::memcpy(&it,
                bytes_ + recs_[size_t(rec)].offset + kHeadBytes + head(rec).dataSize +
                    int64_t(kItemBytes) * i,
                sizeof it);
    return it;
  }

  const uint8_t* bytes_;
  int32_t end_;
  int32_t pos_ = fundra::kPersistBytes;
  std::vector<Rec> recs_;
  std::vector<int32_t> byIndex_{-1};  // index -> record position; index 0 is never used
  std::vector<Frame> stack_;
};

// Takes the next record; false when its count reaches past the end.
bool Parser::next(RecKind kind, int32_t parent, int32_t item) {
  if (end_ - pos_ < 4) return false;
  uint32_t n;
  std::memcpy(&n, bytes_ + pos_, 4);
  if (n > uint32_t(end_ - pos_ - 4)) return false;
  recs_.push_back(Rec{pos_ + 4, int32_t(n), kind, parent, item});
  pos_ += 4 + int32_t(n);
  if (kind != RecKind::kList) byIndex_.push_back(int32_t(recs_.size()) - 1);
  return true;
}

// Takes the next record as a DL record and checks it is one this store could have written.
bool Parser::nextDL() {
  if (!next(RecKind::kDL, -1, -1)) return false;
  const Rec& r = recs_.back();
  if (r.size < kHeadBytes) return false;
  DLHead h = head(int32_t(recs_.size()) - 1);
  if (!isPrintableCode(h.uType) || (h.flags & ~(kSharedFlag | kInvisibleFlag | kKeptFlag)) ||
      h.reserved != 0 || h.owner != 0 || h.dataSize < 0 || h.dataSize % 4 != 0 || h.count < 0 ||
      int64_t(kHeadBytes) + h.dataSize + int64_t(kItemBytes) * h.count > r.size)
    return false;
  int32_t rec = int32_t(recs_.size()) - 1;
  for (int32_t i = 0; i < h.count; ++i) {
    Item it = itemAt(rec, i);
    if (!isPrintableCode(it.key)) return false;
    if (i > 0 && int32_t(itemAt(rec, i - 1).key) >= int32_t(it.key)) return false;
    if (it.ref > 0 ? !isKnownRefType(it.kind & ~0xFFu) : (uint32_t(it.ref) & ~0xFFu) != kImmediate)
      return false;
  }
  return true;
}

// A reference to a DL by index: one read already, or the next record. *pushed tells whether the
// next record was taken (its items are read next).
bool Parser::resolve(int32_t index, bool* pushed) {
  *pushed = false;
  int32_t known = int32_t(byIndex_.size());
  if (index < 1 || index > known) return false;
  if (index < known) return recs_[size_t(byIndex_[size_t(index)])].kind == RecKind::kDL;
  if (!nextDL()) return false;
  *pushed = true;
  return true;
}

// Reads the innermost DL record's items (and list elements) until a reference takes the next
// record as a DL whose items are read first, or the record is done.
bool Parser::step() {
  Frame& f = stack_.back();
  bool pushed = false;
  while (!pushed) {
    if (f.list >= 0) {
      const Rec& list = recs_[size_t(f.list)];
      if (f.elem >= list.size / 4) {
        f.list = -1;
        ++f.item;
        continue;
      }
      int32_t e;
      std::memcpy(&e, bytes_ + list.offset + 4 * f.elem, 4);
      ++f.elem;
      if (!resolve(e, &pushed)) return false;
      continue;
    }
    if (f.item >= head(f.rec).count) {
      stack_.pop_back();
      return true;
    }
    Item it = itemAt(f.rec, f.item);
    uint32_t type = it.kind & ~0xFFu;
    if (it.ref <= 0) {
      ++f.item;
    } else if (type == kBlob) {
      if (it.ref != int32_t(byIndex_.size()) || !next(RecKind::kBlob, f.rec, f.item)) return false;
      ++f.item;
    } else if (isListType(type)) {
      if (!next(RecKind::kList, f.rec, f.item) || recs_.back().size % 4 != 0) return false;
      f.list = int32_t(recs_.size()) - 1;
      f.elem = 0;
    } else {
      ++f.item;
      if (!resolve(it.ref, &pushed)) return false;
    }
  }
  stack_.push_back(Frame{int32_t(recs_.size()) - 1, 0, -1, 0});
  return true;
}

int32_t Parser::run() {
  recs_.reserve(size_t(end_ / 64));  // a guess at the record count: a DL with two items is 48
  byIndex_.reserve(size_t(end_ / 64));
  if (!nextDL()) return kBadStream;
  stack_.push_back(Frame{0, 0, -1, 0});
  while (!stack_.empty())
    if (!step()) return kBadStream;
  return pos_ == end_ ? 0 : kBadStream;
}

// Turns the parsed records into elements; see the pass description at the top.
int32_t build(fundra::ElementSpace* space, int32_t target, const uint8_t* bytes, const Parser& p) {
  const std::vector<Rec>& recs = p.recs();
  const std::vector<int32_t>& byIndex = p.byIndex();
  std::vector<int32_t> number(recs.size());
  number[0] = target;
  for (size_t i = 1; i < recs.size(); ++i) {
    int32_t n = space->LmAddAssert(recs[i].size, bytes + recs[i].offset);
    if (n < 1) {
      for (size_t j = 1; j < i; ++j) space->LmRemove(number[j]);
      return n < 0 ? n : fundra::kLmNoMemory;
    }
    number[i] = n;
  }
  uint16_t targetKept = reinterpret_cast<DLHead*>(space->LmGet(target))->flags & kKeptFlag;
  if (int32_t r = space->LmSetAssert(target, recs[0].size); r != 0) {
    for (size_t j = 1; j < recs.size(); ++j) space->LmRemove(number[j]);
    return r;
  }
  std::memcpy(space->LmGet(target), bytes + recs[0].offset, size_t(recs[0].size));

  auto dlOf = [&](int32_t index) { return number[size_t(byIndex[size_t(index)])]; };
  for (size_t i = 0; i < recs.size(); ++i) {
    uint8_t* at = space->LmGet(number[i]);
    if (recs[i].kind == RecKind::kDL) {
      auto* head = reinterpret_cast<DLHead*>(at);
      head->flags = uint16_t((head->flags & ~kKeptFlag) | (i == 0 ? targetKept : 0));
      auto* items = reinterpret_cast<Item*>(at + kHeadBytes + head->dataSize);
      for (int32_t k = 0; k < head->count; ++k) {
        uint32_t type = items[k].kind & ~0xFFu;
        if (items[k].ref > 0 && (type == kHandle || type == kPartLink || type == kWeakHandle))
          items[k].ref = dlOf(items[k].ref);
      }
      continue;
    }
    uint8_t* parent = space->LmGet(number[size_t(recs[i].parent)]);
    auto* head = reinterpret_cast<DLHead*>(parent);
    reinterpret_cast<Item*>(parent + kHeadBytes + head->dataSize)[recs[i].item].ref = number[i];
    if (recs[i].kind == RecKind::kList) {
      auto* elems = reinterpret_cast<int32_t*>(at);
      for (int32_t k = 0; k < recs[i].size / 4; ++k) elems[k] = dlOf(elems[k]);
    }
  }
  return 0;
}

}  // namespace

int32_t exchangeImport(fundra::ElementSpace* space, int32_t dl, const uint8_t* bytes,
                       int32_t size) {
  DLView v;
  if (int32_t r = dlOpen(space, dl, &v); r != 0) return r;
  if (size < fundra::kPersistBytes) return -1;
  if (int32_t r = fundra::_checkpersist(bytes, kExchangeTag, kExchangeVersion, kExchangeVersion);
      r != 0)
    return r;
  Parser parser(bytes, size);
  if (int32_t r = parser.run(); r != 0) return r;
  return build(space, dl, bytes, parser);
}

}  // namespace zove

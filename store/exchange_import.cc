// Reading the exchange stream (layout in store/exchange.h) into a DL.
//
// Two passes, so that a stream that is refused changes nothing:
//   1. Parse: walk the records in the order the exporter wrote them (an explicit stack, so a
//      chain of any length is read without deep recursion), check every count, kind and index
//      against the bytes that are there, and note each record's kind and, for a list, the item
//      that names it. Records follow each other, so their places need no note.
//   2. Build: make one element per record after the first, in stream order; if one cannot be
//      made, remove those made and answer the code. Only then is the target rewritten, and the
//      references are turned from indices into element numbers.
// The target stands for index 1, so an item that referred to the exported DL itself refers to
// the target after the import.
#include <climits>
#include <cstring>
#include <vector>

#include "platform/fundra/persist.h"
#include "store/dl.h"
#include "store/exchange.h"

namespace zove {

namespace {

enum class RecKind : uint8_t { kDL, kBlob, kList };

// The item that names a list record.
struct ListRec {
  int32_t parent;  // the DL record's position in the stream
  int32_t item;    // the item's position in that DL
};

class Parser {
 public:
  Parser(const uint8_t* bytes, int32_t size) : bytes_(bytes), end_(size) {}

  // Answers 0 with kinds(), lists() and indices() filled, or kBadStream.
  int32_t run();
  // Every record's kind, in stream order.
  const std::vector<RecKind>& kinds() const { return kinds_; }
  // The list records, in stream order.
  const std::vector<ListRec>& lists() const { return lists_; }
  // The DL and blob records, which take the indices 1 and up.
  int32_t indices() const { return int32_t(isDL_.size()) - 1; }

 private:
  // A DL record whose items are read. Records follow each other without padding: stream words
  // are copied out, never cast.
  struct Frame {
    const uint8_t* items;  // the record's first item
    int32_t rec;
    int32_t count;        // its items
    int32_t item;         // the item being read
    int32_t key;          // the key of the item before it
    const uint8_t* list;  // the list record being read for that item, or null
    int32_t elems;        // that list's elements
    int32_t elem;         // the next one to read
  };

  const uint8_t* next(RecKind kind, int32_t* size);
  bool nextDL();
  bool resolve(int32_t index, bool* pushed);
  bool step();

  const uint8_t* bytes_;
  int32_t end_;
  int32_t pos_ = fundra::kPersistBytes;
  std::vector<RecKind> kinds_;
  std::vector<ListRec> lists_;
  std::vector<uint8_t> isDL_{0};  // per index: 1 when it names a DL; index 0 is never used
  std::vector<Frame> stack_;
};

// Takes the next record: answers its bytes and sets *size, or null when its count reaches past
// the end.
const uint8_t* Parser::next(RecKind kind, int32_t* size) {
  if (end_ - pos_ < 4) return nullptr;
  uint32_t n;
  std::memcpy(&n, bytes_ + pos_, 4);
  if (n > uint32_t(end_ - pos_ - 4)) return nullptr;
  const uint8_t* at = bytes_ + pos_ + 4;
  pos_ += 4 + int32_t(n);
  kinds_.push_back(kind);
  if (kind != RecKind::kList) isDL_.push_back(kind == RecKind::kDL);
  *size = int32_t(n);
  return at;
}

// Takes the next record as a DL record, checks its header is one this store could have written
// and pushes its frame: its items are checked and read next.
bool Parser::nextDL() {
  int32_t size;
  const uint8_t* at = next(RecKind::kDL, &size);
  if (!at || size < kHeadBytes) return false;
  DLHead h;
  std::memcpy(&h, at, sizeof h);
  if (!isPrintableCode(h.uType) || (h.flags & ~(kSharedFlag | kInvisibleFlag | kKeptFlag)) ||
      h.reserved != 0 || h.owner != 0 || h.dataSize < 0 || h.dataSize % 4 != 0 || h.count < 0 ||
      int64_t(kHeadBytes) + h.dataSize + int64_t(kItemBytes) * h.count > size)
    return false;
  // A printable key is above INT32_MIN, so the first key passes the order test.
  stack_.push_back(Frame{at + kHeadBytes + h.dataSize, int32_t(kinds_.size()) - 1, h.count, 0,
                         INT32_MIN, nullptr, 0, 0});
  return true;
}

// A reference to a DL by index: one read already, or the next record. *pushed tells whether the
// next record was taken (its frame is pushed).
bool Parser::resolve(int32_t index, bool* pushed) {
  *pushed = false;
  int32_t known = int32_t(isDL_.size());
  if (index < 1 || index > known) return false;
  if (index < known) return isDL_[size_t(index)];
  if (!nextDL()) return false;
  *pushed = true;
  return true;
}

// Reads the innermost DL record's items (and list elements) until a reference takes the next
// record as a DL whose items are read first, or the record is done. A push may move the stack,
// so f is not touched once pushed.
bool Parser::step() {
  Frame& f = stack_.back();
  bool pushed = false;
  while (!pushed) {
    if (f.list) {
      if (f.elem >= f.elems) {
        f.list = nullptr;
        ++f.item;
        continue;
      }
      int32_t e;
      std::memcpy(&e, f.list + 4 * f.elem, 4);
      ++f.elem;
      if (!resolve(e, &pushed)) return false;
      continue;
    }
    if (f.item >= f.count) {
      stack_.pop_back();
      return true;
    }
    Item it;
    std::memcpy(&it, f.items + kItemBytes * f.item, sizeof it);
    if (!isPrintableCode(it.key) || f.key >= int32_t(it.key)) return false;
    f.key = int32_t(it.key);
    uint32_t type = it.kind & ~0xFFu;
    int32_t size;
    if (it.ref <= 0) {
      if ((uint32_t(it.ref) & ~0xFFu) != kImmediate) return false;
      ++f.item;
    } else if (!isKnownRefType(type)) {
      return false;
    } else if (type == kBlob) {
      if (it.ref != int32_t(isDL_.size()) || !next(RecKind::kBlob, &size)) return false;
      ++f.item;
    } else if (isListType(type)) {
      f.list = next(RecKind::kList, &size);
      if (!f.list || size % 4 != 0) return false;
      lists_.push_back(ListRec{f.rec, f.item});
      f.elems = size / 4;
      f.elem = 0;
    } else {
      ++f.item;
      if (!resolve(it.ref, &pushed)) return false;
    }
  }
  return true;
}

int32_t Parser::run() {
  // A guess at the record count that spares most regrowth: a part DL, its blob and their counts
  // take about 36 bytes each.
  kinds_.reserve(size_t(end_ / 32));
  isDL_.reserve(size_t(end_ / 32));
  if (!nextDL()) return kBadStream;
  while (!stack_.empty())
    if (!step()) return kBadStream;
  return pos_ == end_ ? 0 : kBadStream;
}

// Turns the parsed records into elements; see the pass description at the top.
int32_t build(fundra::ElementSpace* space, int32_t target, const uint8_t* bytes, const Parser& p) {
  const std::vector<RecKind>& kinds = p.kinds();
  std::vector<int32_t> number(kinds.size());
  // Adding never moves an element, so each new element's address holds until the rewrite.
  std::vector<uint8_t*> at(kinds.size());
  std::vector<int32_t> dlNumber;  // index -> element number
  dlNumber.reserve(size_t(p.indices()) + 1);
  dlNumber.push_back(0);
  dlNumber.push_back(target);
  number[0] = target;
  int32_t topSize;
  std::memcpy(&topSize, bytes + fundra::kPersistBytes, 4);
  const uint8_t* top = bytes + fundra::kPersistBytes + 4;
  const uint8_t* rec = top + topSize;
  for (size_t i = 1; i < kinds.size(); ++i) {
    int32_t size;
    std::memcpy(&size, rec, 4);
    int32_t n = space->LmAddAssert(size, rec + 4);
    if (n < 1) {
      for (size_t j = 1; j < i; ++j) space->LmRemove(number[j]);
      return n < 0 ? n : fundra::kLmNoMemory;
    }
    number[i] = n;
    at[i] = space->LmGet(n);
    if (kinds[i] != RecKind::kList) dlNumber.push_back(n);
    rec += 4 + size;
  }
  uint16_t targetKept = reinterpret_cast<DLHead*>(space->LmGet(target))->flags & kKeptFlag;
  if (int32_t r = space->LmSetAssert(target, topSize); r != 0) {
    for (size_t j = 1; j < kinds.size(); ++j) space->LmRemove(number[j]);
    return r;
  }
  at[0] = space->LmGet(target);
  std::memcpy(at[0], top, size_t(topSize));

  // A blob item's ref is its record's index, like a handle's; a list item's is set by its list.
  auto list = p.lists().begin();
  for (size_t i = 0; i < kinds.size(); ++i) {
    if (kinds[i] == RecKind::kDL) {
      auto* head = reinterpret_cast<DLHead*>(at[i]);
      head->flags = uint16_t((head->flags & ~kKeptFlag) | (i == 0 ? targetKept : 0));
      auto* items = reinterpret_cast<Item*>(at[i] + kHeadBytes + head->dataSize);
      for (int32_t k = 0; k < head->count; ++k)
        if (items[k].ref > 0 && !isListType(items[k].kind & ~0xFFu))
          items[k].ref = dlNumber[size_t(items[k].ref)];
    } else if (kinds[i] == RecKind::kList) {
      uint8_t* parent = at[size_t(list->parent)];
      auto* head = reinterpret_cast<DLHead*>(parent);
      reinterpret_cast<Item*>(parent + kHeadBytes + head->dataSize)[list->item].ref = number[i];
      auto* elems = reinterpret_cast<int32_t*>(at[i]);
      int32_t count = space->LmSize(number[i]) / 4;
      for (int32_t k = 0; k < count; ++k) elems[k] = dlNumber[size_t(elems[k])];
      ++list;
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

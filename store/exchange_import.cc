// Reading the exchange stream (layout in store/exchange.h) into a DL.
//
// Two passes, so that a stream that is refused changes nothing:
//   1. Parse: walk the records in the order the exporter wrote them (an explicit stack, so a
//      chain of any length is read without deep recursion), check every count, kind and index
//      against the bytes that are there, and note each record's kind and, for a list, the item
//      that names it. Records follow each other, so their places need no note.
//   2. Build: make the elements for every record after the first in one call, numbered in
//      stream order; if they cannot be made, none is and the code is answered. Only then is the
//      target rewritten; then each record is copied in with its indices turned into numbers.
// The target stands for index 1, so an item that referred to the exported DL itself refers to
// the target after the import.
#include <climits>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "platform/fundra/persist.h"
#include "store/exchange.h"
#include "store/exchange_bytes.h"
#include "zove/dl.h"

namespace zove {

namespace {

enum class RecKind : uint8_t { kDL, kBlob, kList };

// Scratch arrays that every run writes before it reads: resizing them leaves new entries
// uninitialised rather than clearing a few hundred kilobytes per import.
template <typename T>
struct NoClear : std::allocator<T> {
  template <typename U>
  struct rebind {
    using other = NoClear<U>;
  };
  template <typename U>
  void construct(U* p) noexcept {
    ::new (static_cast<void*>(p)) U;
  }
  template <typename U, typename... Args>
  void construct(U* p, Args&&... args) {
    ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
  }
};
template <typename T>
using Scratch = std::vector<T, NoClear<T>>;

// The item that names a list record.
struct ListRec {
  int32_t parent;  // the DL record's position in the stream
  int32_t item;    // the item's position in that DL
};

class Parser {
 public:
  Parser(const uint8_t* bytes, int32_t size) : bytes_(bytes), end_(size) {}

  // Answers 0 with kinds(), sizes(), lists() and indices() filled, or kBadStream with what was
  // wrong in why() and its byte in at().
  int32_t run();
  const char* why() const { return why_; }
  int32_t at() const { return at_; }
  // Every record's kind and byte count, in stream order.
  const Scratch<RecKind>& kinds() const { return kinds_; }
  const Scratch<int32_t>& sizes() const { return sizes_; }
  // The list records, in stream order.
  const std::vector<ListRec>& lists() const { return lists_; }
  // The DL and blob records, which take the indices 1 and up.
  int32_t indices() const { return indices_; }

 private:
  // A DL record whose items are still to be read, saved while a record it refers to is read.
  struct Frame {
    const uint8_t* items;  // the record's first item
    const uint8_t* list;   // the list record being read for the current item, or null
    int32_t rec;
    int32_t count;  // its items
    int32_t item;   // the item being read
    int32_t key;    // the key of the item before it
    int32_t elems;  // the list's elements
    int32_t elem;   // the next one to read
  };

  bool walk();
  // Notes what was wrong, and where; answers false. Off the path of sound streams.
  __attribute__((cold, noinline)) bool refuse(const char* why, const uint8_t* at) {
    why_ = why;
    at_ = int32_t(at - bytes_);
    return false;
  }
  bool refuseHeader(const uint8_t* at);

  const char* why_ = nullptr;
  int32_t at_ = 0;
  const uint8_t* bytes_;
  int32_t end_;
  int32_t pos_ = fundra::kPersistBytes;
  int32_t indices_ = 0;
  Scratch<RecKind> kinds_;
  Scratch<int32_t> sizes_;
  std::vector<ListRec> lists_;
  Scratch<RecKind> indexKinds_;  // per index: DL or blob; index 0 is never used
  std::vector<Frame> stack_;
};

// Reads the records in the exporter's order: a DL's items (and list elements) in order, a
// reference to the record not read yet reading it as a DL first. The current DL's state and the
// output cursors are locals, so they stay in registers; only outer DLs go to the stack.
bool Parser::walk() {
  size_t cap = kinds_.size(), records = 0;
  RecKind* kinds = kinds_.data();
  int32_t* sizes = sizes_.data();
  RecKind* indexKinds = indexKinds_.data();
  uint32_t known = 1;  // the next index
  int32_t pos = pos_;
  const uint8_t* bytes = bytes_;

  // Takes the next record: answers its bytes and sets size, or null when its count reaches past
  // the end. Stream words are copied out, never cast: records follow each other unpadded.
  auto take = [&](RecKind kind, int32_t * size) __attribute__((always_inline))->const uint8_t* {
    if (end_ - pos < 4) {
      refuse("the stream ends inside a record's byte count", bytes + pos);
      return nullptr;
    }
    uint32_t n = streamWord(bytes + pos);
    if (n > uint32_t(end_ - pos - 4)) {
      refuse("a record's byte count reaches past the end of the stream", bytes + pos);
      return nullptr;
    }
    const uint8_t* at = bytes + pos + 4;
    pos += 4 + int32_t(n);
    if (records == cap) {
      cap *= 2;
      kinds_.resize(cap);
      sizes_.resize(cap);
      indexKinds_.resize(cap + 1);
      kinds = kinds_.data();
      sizes = sizes_.data();
      indexKinds = indexKinds_.data();
    }
    kinds[records] = kind;
    sizes[records++] = int32_t(n);
    if (kind != RecKind::kList) indexKinds[known++] = kind;
    *size = int32_t(n);
    return at;
  };

  Frame f{};
  // Takes the next record as a DL record, checks its header is one this store could have
  // written and makes it the current DL.
  auto openDL = [&]() __attribute__((always_inline))->bool {
    int32_t size;
    const uint8_t* at = take(RecKind::kDL, &size);
    if (!at) return false;
    if (size < kHeadBytes) return refuse("a DL record shorter than a DL header", at);
    static_assert(offsetof(DLHead, flags) == 4 && offsetof(DLHead, reserved) == 6 &&
                  offsetof(DLHead, owner) == 8 && offsetof(DLHead, dataSize) == 12 &&
                  offsetof(DLHead, count) == 16);
    // flags (the low half) and reserved share the second word: only allowed flag bits may be set.
    uint32_t flagsWord = streamWord(at + 4);
    int32_t dataSize = int32_t(streamWord(at + 12)), count = int32_t(streamWord(at + 16));
    if (!isPrintableCode(streamWord(at)) ||
        (flagsWord & ~uint32_t(kSharedFlag | kInvisibleFlag | kKeptFlag)) ||
        streamWord(at + 8) != 0 || dataSize < 0 || dataSize % 4 != 0 || count < 0 ||
        int64_t(kHeadBytes) + dataSize + int64_t(kItemBytes) * count > size)
      return refuseHeader(at);
    // A printable key is above INT32_MIN, so the first key passes the order test.
    f = Frame{at + kHeadBytes + dataSize, nullptr, int32_t(records) - 1, count, 0, INT32_MIN, 0, 0};
    return true;
  };
  // A reference to a DL by index: one read already, or the next record.
  auto refer = [&](int32_t index, const uint8_t* from) __attribute__((always_inline))->bool {
    if (uint32_t(index) - 1 < known - 1)
      return indexKinds[index] == RecKind::kDL || refuse("a reference names a blob record", from);
    if (uint32_t(index) != known)
      return refuse("a reference names no record read before and not the next one", from);
    stack_.push_back(f);
    return openDL();
  };

  bool ok = openDL();
  while (ok) {
    if (f.list) {
      if (f.elem == f.elems) {
        f.list = nullptr;
        ++f.item;
        continue;
      }
      int32_t e = int32_t(streamWord(f.list + 4 * f.elem));
      ++f.elem;
      ok = refer(e, f.list + 4 * (f.elem - 1));
      continue;
    }
    if (f.item == f.count) {
      if (stack_.empty()) break;
      f = stack_.back();
      stack_.pop_back();
      continue;
    }
    static_assert(offsetof(Item, kind) == 4 && offsetof(Item, key) == 8);
    const uint8_t* item = f.items + kItemBytes * f.item;
    int32_t ref = int32_t(streamWord(item));
    uint32_t key = streamWord(item + 8);
    if (!isPrintableCode(key)) return refuse("a key outside 32..126", item + 8);
    if (f.key >= int32_t(key))
      return refuse("a key that repeats the one before or sorts before it", item + 8);
    f.key = int32_t(key);
    uint32_t type = typeOf(streamWord(item + 4));
    int32_t size = 0;
    if (ref <= 0) {
      ok = typeOf(ref) == kImmediate ||
           refuse("an item of a value type other than an immediate value", item);
      ++f.item;
    } else if (type == kBlob) {
      ok = (uint32_t(ref) == known ||
            refuse("a blob item whose index is not the next record's", item)) &&
           take(RecKind::kBlob, &size);
      ++f.item;
    } else if (isListType(type)) {
      f.list = take(RecKind::kList, &size);
      ok = f.list && (size % 4 == 0 || refuse("a list record that is not whole words", f.list));
      lists_.push_back(ListRec{f.rec, f.item});
      f.elems = size / 4;
      f.elem = 0;
    } else {
      ++f.item;
      ok = (isKnownRefType(type) || refuse("an item of a kind the store does not know", item)) &&
           refer(ref, item);
    }
  }
  kinds_.resize(records);
  sizes_.resize(records);
  indices_ = int32_t(known) - 1;
  pos_ = pos;
  return ok;
}

int32_t Parser::run() {
  // A guess at the record count that spares most regrowth: a part DL, its blob and their counts
  // take about 36 bytes each.
  size_t guess = size_t(end_ / 32) + 1;
  kinds_.resize(guess);
  sizes_.resize(guess);
  indexKinds_.resize(guess + 1);
  if (!walk()) return kBadStream;
  if (pos_ != end_) return refuse("bytes after the last record", bytes_ + pos_), kBadStream;
  return 0;
}

// Which of the header's tests failed, for the refusal.
bool Parser::refuseHeader(const uint8_t* at) {
  uint32_t flagsWord = streamWord(at + 4);
  int32_t dataSize = int32_t(streamWord(at + 12)), count = int32_t(streamWord(at + 16));
  if (!isPrintableCode(streamWord(at))) return refuse("a uType outside 32..126", at);
  if (flagsWord & ~uint32_t(kSharedFlag | kInvisibleFlag | kKeptFlag))
    return refuse("flag or reserved bits set that no DL has", at + 4);
  if (streamWord(at + 8) != 0) return refuse("an owner word that is not 0", at + 8);
  if (dataSize < 0 || dataSize % 4 != 0)
    return refuse("a data size that is not a whole number of words", at + 12);
  if (count < 0) return refuse("a negative item count", at + 16);
  return refuse("a DL record too short for its data area and items", at + 16);
}

// Turns the parsed records into elements; see the pass description at the top.
int32_t build(fundra::ElementSpace* space, int32_t target, const uint8_t* bytes, const Parser& p) {
  const Scratch<RecKind>& kinds = p.kinds();
  const Scratch<int32_t>& sizes = p.sizes();
  size_t records = kinds.size();
  Scratch<int32_t> number(records);
  // Adding never moves an element, so each new element's address holds until the rewrite.
  Scratch<uint8_t*> at(records);
  number[0] = target;
  if (int32_t r = space->LmAddMany(int32_t(records - 1), sizes.data() + 1, number.data() + 1,
                                   at.data() + 1);
      r != 0)
    return r;
  uint16_t targetKept = reinterpret_cast<DLHead*>(space->LmGet(target))->flags & kKeptFlag;
  if (int32_t r = space->LmSetAssert(target, sizes[0]); r != 0) {
    for (size_t j = 1; j < records; ++j) space->LmRemove(number[j]);
    return r;
  }
  at[0] = space->LmGet(target);
  std::vector<int32_t> dlNumber;  // index -> element number
  dlNumber.reserve(size_t(p.indices()) + 1);
  dlNumber.push_back(0);
  for (size_t i = 0; i < records; ++i)
    if (kinds[i] != RecKind::kList) dlNumber.push_back(number[i]);

  // Each record is copied and its references turned into numbers while its bytes are at hand.
  // A blob item's ref is its record's index, like a handle's; a list item's is set by its list,
  // which comes after the DL.
  const uint8_t* rec = bytes + fundra::kPersistBytes;
  auto list = p.lists().begin();
  for (size_t i = 0; i < records; ++i) {
    rec += 4;
    copyRecord(at[i], rec, sizes[i]);
    rec += sizes[i];
    if (kinds[i] == RecKind::kDL) {
      auto* head = reinterpret_cast<DLHead*>(at[i]);
      head->flags = uint16_t((head->flags & ~kKeptFlag) | (i == 0 ? targetKept : 0));
      auto* items = reinterpret_cast<Item*>(at[i] + kHeadBytes + head->dataSize);
      for (int32_t k = 0; k < head->count; ++k)
        if (items[k].ref > 0 && !isListType(typeOf(items[k].kind)))
          items[k].ref = dlNumber[size_t(items[k].ref)];
    } else if (kinds[i] == RecKind::kList) {
      uint8_t* parent = at[size_t(list->parent)];
      auto* head = reinterpret_cast<DLHead*>(parent);
      reinterpret_cast<Item*>(parent + kHeadBytes + head->dataSize)[list->item].ref = number[i];
      auto* elems = reinterpret_cast<int32_t*>(at[i]);
      for (int32_t k = 0; k < sizes[i] / 4; ++k) elems[k] = dlNumber[size_t(elems[k])];
      ++list;
    }
  }
  return 0;
}

}  // namespace

int32_t exchangeImport(fundra::ElementSpace* space, int32_t dl, const uint8_t* bytes, int32_t size,
                       std::string* why) {
  DLView v;
  if (int32_t r = dlOpen(space, dl, &v); r != 0) return r;
  if (size < fundra::kPersistBytes) return -1;
  if (int32_t r = fundra::_checkpersist(bytes, kExchangeTag, kExchangeVersion, kExchangeVersion);
      r != 0)
    return r;
  Parser parser(bytes, size);
  if (int32_t r = parser.run(); r != 0) {
    if (why) *why = "at byte " + std::to_string(parser.at()) + ": " + parser.why();
    return r;
  }
  return build(space, dl, bytes, parser);
}

}  // namespace zove

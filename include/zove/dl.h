// The DL record and its items, as they lie in an element of the element space.
//
// Every DL is one element; its DL number is the element's number (DL 1 is the root). Bytes are
// little-endian, every word 32-bit:
//
//   offset        width       field       meaning
//   0             4           uType       FourCC type of the DL; each byte 32..126
//   4             2           flags       bit 1 kSharedFlag, bit 2 kInvisibleFlag, bit 4 kKeptFlag;
//                                         other bits 0
//   6             2           reserved    0
//   8             4           owner       DL number of the owning module DL, or 0
//   12            4           data size   bytes in the data area, a multiple of 4
//   16            4           item count  number of items
//   20            data size   data area   the DL's fixed data (TSRD/TSWD)
//   20 + data     12 x count  items       ascending key order (keys compared as signed 32-bit)
//
// The element may be longer than 20 + data size + 12 x count; it may not be shorter. An element
// whose data size is no multiple of 4 is no DL (dlOpen answers kWrongKind). Each item:
//
//   offset  width  field          meaning
//   0       4      ref            > 0: a refnum (the DL or element the item refers to);
//                                 <= 0: a value-type marker (kImmediate, kVHandle)
//   4       4      kind or value  refnum: the refnum type in bits 8..31 (bits 0..7 ignored);
//                                 immediate: the 32-bit value; vhandle: the record's chunk
//   8       4      key            FourCC; each byte 32..126
//
// Refnum types (the kind word with its low byte cleared): kBlob 0x100, kHandle 0x200, kPartLink
// 0x400, kList 0x700, kWeakList 0x800, kWeakHandle 0xB00. Value types (the ref word with its low
// byte cleared): kImmediate 0xFFFF8100, kVHandle 0xFFFF8200 (zove/store.h).
//
// The root (DL 1) has uType `root` (the bytes "toor" in the element), owner 0, data size 8
// holding the signed 16-bit store version at offset 20 (6 reserved bytes after it), and one item
// `mods`: a list of the module DLs. It is 40 bytes (kRootBytes).
//
// Blobs and lists are bare elements without this header: a blob holds exactly its bytes, a list
// an array of 32-bit DL numbers.
//
// These helpers only read and lay out bytes; they never log or assert, and never read outside an
// element, so any code that holds the element space (collection, the structure walks, the checks,
// tools) can use them.
#pragma once

#include <cstdint>
#include <deque>
#include <unordered_set>
#include <utility>
#include <vector>

#include "platform/fundra/space.h"
#include "zove/store.h"

namespace zove {

struct DLHead {
  uint32_t uType;
  uint16_t flags;
  uint16_t reserved;
  int32_t owner;
  int32_t dataSize;
  int32_t count;
};
static_assert(sizeof(DLHead) == 20);

struct Item {
  int32_t ref;
  uint32_t kind;
  uint32_t key;
};
static_assert(sizeof(Item) == 12);

constexpr int32_t kHeadBytes = 20;
constexpr int32_t kItemBytes = 12;
constexpr int32_t kRootDL = 1;
constexpr int32_t kRootDataBytes = 8;
constexpr int32_t kRootBytes = kHeadBytes + kRootDataBytes + kItemBytes;  // 40
constexpr int32_t kVersionOffset = 20;

// The type a kind word (refnum items) or a ref word (value items) names: its low byte is ignored.
constexpr uint32_t typeOf(uint32_t word) { return word & ~0xFFu; }
// The refnum type of a refnum item, or the value type of any other item.
inline uint32_t itemType(const Item& it) { return it.ref > 0 ? typeOf(it.kind) : typeOf(it.ref); }
inline bool isRefnum(const Item& it) { return it.ref > 0; }
// Kinds whose referent the item owns: removed with the item.
inline bool ownsReferent(const Item& it) {
  uint32_t t = typeOf(it.kind);
  return it.ref > 0 && (t == kBlob || t == kList || t == kWeakList);
}
inline bool isListType(uint32_t t) { return t == kList || t == kWeakList; }
inline bool isKnownRefType(uint32_t t) {
  return t == kBlob || t == kHandle || t == kPartLink || t == kList || t == kWeakList ||
         t == kWeakHandle;
}

// A person's name for an item type (itemType), or null for a type the store does not know.
inline const char* itemTypeName(uint32_t t) {
  switch (t) {
    case kBlob:
      return "blob";
    case kHandle:
      return "handle";
    case kPartLink:
      return "part link";
    case kList:
      return "list";
    case kWeakList:
      return "weak list";
    case kWeakHandle:
      return "weak handle";
    case kImmediate:
      return "immediate";
    case kVHandle:
      return "vhandle";
    default:
      return nullptr;
  }
}

// Each of the four bytes lies in 32..126. All four at once: a byte below 32 borrows into its
// top bit in code - 0x20...; one above 126 has its top bit set in code or in code + 0x01....
inline bool isPrintableCode(uint32_t code) {
  uint32_t below = (code - 0x20202020u) & ~code;
  uint32_t above = (code + 0x01010101u) | code;
  return ((below | above) & 0x80808080u) == 0;
}

// A DL's parts at one moment. Valid until the element space next moves the element (anything
// that grows an element, LmSwap, LmCompress).
struct DLView {
  uint8_t* base = nullptr;
  DLHead* head = nullptr;
  uint8_t* data = nullptr;
  Item* items = nullptr;
  int32_t size = 0;  // element size

  int32_t count() const { return head->count; }
  Item& item(int32_t i) const { return items[i]; }
  // The bytes the header says the DL needs.
  int64_t needed() const {
    return int64_t(kHeadBytes) + head->dataSize + int64_t(kItemBytes) * head->count;
  }
};

// Opens DL n: answers 0 and fills the view, the element space's code when n names no element,
// or kWrongKind when the element is too short for its own header (a blob or list passed where a
// DL is expected, or a damaged DL). The view never reaches outside the element.
inline int32_t dlOpen(const fundra::ElementSpace* space, int32_t n, DLView* v) {
  int32_t size = space->LmSize(n);
  if (size < 0) return size;
  if (size < kHeadBytes) return kWrongKind;
  uint8_t* base = space->LmGet(n);
  auto* head = reinterpret_cast<DLHead*>(base);
  // A data size that is no multiple of 4 (never made by a writer, only by damage) would leave
  // the items unaligned; such an element is no DL, as one too short for its header is none.
  if (head->dataSize < 0 || head->dataSize % 4 != 0 || head->count < 0 ||
      int64_t(kHeadBytes) + head->dataSize + int64_t(kItemBytes) * head->count > size)
    return kWrongKind;
  v->base = base;
  v->head = head;
  v->data = base + kHeadBytes;
  v->items = reinterpret_cast<Item*>(base + kHeadBytes + head->dataSize);
  v->size = size;
  return 0;
}

// The index of the item with the key, searching from the last item to the first; -1 if none.
inline int32_t dlFind(const DLView& v, uint32_t key) {
  for (int32_t i = v.head->count - 1; i >= 0; --i)
    if (v.items[i].key == key) return i;
  return -1;
}

// Where a new item with the key goes: before the first item whose key is greater, keys compared
// as signed 32-bit numbers.
inline int32_t dlInsertPosition(const DLView& v, uint32_t key) {
  int32_t i = 0;
  while (i < v.head->count && int32_t(v.items[i].key) <= int32_t(key)) ++i;
  return i;
}

// A list or blob element: its words (a list's DL numbers) and how many.
struct ListView {
  int32_t* at = nullptr;
  int32_t count = 0;
};
// Opens a list element: 0, or the element space's code.
inline int32_t listOpen(const fundra::ElementSpace* space, int32_t n, ListView* v) {
  int32_t size = space->LmSize(n);
  if (size < 0) return size;
  v->at = reinterpret_cast<int32_t*>(space->LmGet(n));
  v->count = size / 4;
  return 0;
}

// Which items a walk follows from a DL. kOwning: the edges that keep a DL alive (handles, part
// links, list members), as the collector follows them. kAll: weak handles and weak list members
// too, to show everything a DL names.
enum class Edges { kOwning, kAll };

// DLs reachable from the starts, breadth first, each once, in the order reached. Numbers that name
// no live element, or an element that is not a DL, are listed (a dump says they are gone) but not
// followed. With maxDepth >= 0 nothing beyond that depth is followed; depthOut receives each
// listed DL's depth.
inline std::vector<int32_t> reachableDLs(const fundra::ElementSpace* space,
                                         const std::vector<int32_t>& starts, Edges edges,
                                         int32_t maxDepth = -1,
                                         std::vector<int32_t>* depthOut = nullptr) {
  std::vector<int32_t> order, depths;
  std::vector<uint8_t> seen(size_t(space->LmCount()) + 1, 0);
  std::unordered_set<int32_t> seenBeyond;  // numbers above the highest, in a damaged space
  std::deque<std::pair<int32_t, int32_t>> todo;
  auto visit = [&](int32_t dl, int32_t depth) {
    if (dl <= 0) return;
    if (size_t(dl) < seen.size() ? std::exchange(seen[size_t(dl)], 1)
                                 : !seenBeyond.insert(dl).second)
      return;
    order.push_back(dl);
    depths.push_back(depth);
    todo.emplace_back(dl, depth);
  };
  for (int32_t s : starts) visit(s, 0);
  while (!todo.empty()) {
    auto [dl, depth] = todo.front();
    todo.pop_front();
    DLView v;
    if ((maxDepth >= 0 && depth >= maxDepth) || dlOpen(space, dl, &v) != 0) continue;
    for (int32_t i = 0; i < v.count(); ++i) {
      const Item& it = v.item(i);
      uint32_t t = itemType(it);
      ListView l;
      if (t == kHandle || t == kPartLink || (edges == Edges::kAll && t == kWeakHandle)) {
        visit(it.ref, depth + 1);
      } else if ((t == kList || (edges == Edges::kAll && t == kWeakList)) &&
                 listOpen(space, it.ref, &l) == 0) {
        for (int32_t k = 0; k < l.count; ++k) visit(l.at[k], depth + 1);
      }
    }
  }
  if (depthOut) *depthOut = std::move(depths);
  return order;
}

}  // namespace zove

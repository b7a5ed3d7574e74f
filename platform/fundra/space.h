// The element space: numbered byte elements in one heap, with marks for a collector.
//
// Numbers start at 1. A number names a live element or nothing; every operation on a number that
// names nothing answers a negative code (an address query answers nullptr) and touches no memory
// outside the space. Freed numbers are reused, lowest first.
//
// Layout (see docs/foundation.md):
//   number table  one 16-byte Slot per number 0..LmCount (slot 0 unused): address, size, flags;
//                 beside it one mark byte per number.
//   free numbers  one bit per number 0..LmCount, set for a free number, and the index of the
//                 lowest 64-bit word that may hold a set bit.
//   arenas        elements up to kLmSmallMax bytes live in chunks (4 KiB growing to 8 MiB), each
//                 in a block of its size rounded up to 8; freed blocks go to a free list per size.
//   large blocks  bigger elements get one heap block each (a 16-byte prefix holds its capacity).
//   zero size     a live element of 0 bytes points at a shared empty block.
// LmCompress copies every small element, in number order, into one fresh chunk of exactly their
// bytes (each rounded to 8) and frees the old chunks; it also trims large blocks to their size.
//
// Moves and the lock. An address from LmGet stays valid until the element moves. What moves:
// growing an element past its block (LmSetAssert), LmSwap (the two addresses change owners) and
// LmCompress. What never moves anything else: adding, duplicating, loading, shrinking, removing
// and collecting. While the space is locked (LmLock, counted) an operation that would move an
// element is refused with kLmLocked and reported through Debug: holding addresses across a move
// is a programming error, and the refusal leaves every element as it was.
//
// Invariants (LmCheck lists every violation):
//   1. Slot 0 is never live; LmCount is the highest live number (0 when empty), and the table
//      has no slot above it.
//   2. There is one mark byte per slot; it is 0 exactly when the slot is free. A free slot has
//      no address, size 0 and no large-block flag.
//   3. A live slot of size 0 points at the empty block. A live small slot (no large-block flag)
//      has a size of at most kLmSmallMax and lies wholly inside one chunk at an 8-aligned
//      offset. A live large slot's block holds at least its size.
//   4. No two live elements share a byte, and no free-list block shares a byte with a live one.
//   5. Every free number not above LmCount has its free bit set, in a word not below the
//      lowest-word index; no bit above LmCount is set.
//   6. Every free-list block lies inside a chunk at an 8-aligned offset.
//   7. The lock depth is not negative.
//   8. The live count and live bytes agree with the table.
//   9. No fault was recorded while loading (see the hand-over section).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/fundra/huge_alloc.h"
#include "platform/fundra/prefetch.h"

namespace fundra {

// Codes. Every failure is below 0; these are the only negative answers of the space.
constexpr int32_t kLmBadNumber = -620;  // 0, negative, or above the largest number there can be
constexpr int32_t kLmNotLive = -621;    // the number names no live element
constexpr int32_t kLmBadSize = -622;    // size below 0 or above kLmMaxSize
constexpr int32_t kLmLocked = -623;     // refused: the operation would move an element
constexpr int32_t kLmNotLocked = -624;  // LmUnlock without a matching LmLock
constexpr int32_t kLmNoMemory = -625;   // the heap could not supply the bytes
constexpr int32_t kLmDamaged = -626;    // LmValid/LmRepair: the space is not sound
constexpr int32_t kLmTaken = -627;      // LmLoad: the number is already live
constexpr int32_t kLmNoNumber = -628;   // every number the space may give is taken

// Numbers are 1..kLmMaxNumber. The limit is the number table's: its size (LmCount + 1) is a
// 32-bit count, and the hand-over writes a removed number as its negative. The table costs 17
// bytes per number and the records beside it 3 bits (docs/foundation.md), so memory runs out
// long before the numbers do; LmSetCeiling sets a lower limit of numbers or heap bytes.
constexpr int32_t kLmMaxNumber = INT32_MAX - 1;
constexpr int32_t kLmMaxSize = 1 << 30;  // bytes per element
constexpr int32_t kLmSmallMax = 512;     // larger elements get a block of their own

// LmSetParms flags.
constexpr int32_t kLmScrub = 1;  // freed and cut-off bytes are overwritten with 0xDB

// What changed since the last hand-over, numbers ascending. A persistence layer that keeps sums
// beside the bytes takes them from LmSumOf and gives them back to LmLoad.
struct LmDelta {
  std::vector<int32_t> added;    // live now, not handed over
  std::vector<int32_t> changed;  // handed over, live, bytes differ
  std::vector<int32_t> removed;  // handed over, no longer live
};

// One element of a run handed to LmLoadMany.
struct LmPart {
  int32_t number;
  int32_t size;
};

class ElementSpace {
 public:
  // tableStep: numbers the table grows by at a time (at least 1). flags: kLmScrub or 0.
  ElementSpace(int32_t tableStep, int32_t flags);
  ~ElementSpace();
  ElementSpace(const ElementSpace&) = delete;
  ElementSpace& operator=(const ElementSpace&) = delete;

  // Changes the parameters of the constructor; answers 0.
  int32_t LmSetParms(int32_t tableStep, int32_t flags);
  // Limits the space to `numbers` numbers (at most kLmMaxNumber) and `heapBytes` bytes of heap
  // (LmHeapBytes; 0 for no limit of its own): past them new elements and growth are refused with
  // kLmNoNumber and kLmNoMemory, as when the table or the system's memory runs out. For hosts
  // that cap a store, and for tests of what every writer does at a limit. Answers 0.
  int32_t LmSetCeiling(int32_t numbers, int64_t heapBytes);
  int32_t LmMaxNumber() const { return maxNumber_; }
  int64_t LmMaxHeap() const { return maxHeap_; }

  // --- Elements ----------------------------------------------------------------------------
  // Creates element n, or resizes it, to size bytes; bytes up to the old size keep their value,
  // new bytes are 0. Answers 0 or a code (kLmLocked when growth would move it while locked).
  int32_t LmSetAssert(int32_t n, int32_t size);
  // A new element of size bytes, copied from source (which may lie inside this space) or 0-filled
  // when source is null. Answers its number or a code.
  int32_t LmAddAssert(int32_t size, const void* source = nullptr);
  // count new elements of sizes[i] bytes, numbered and placed as count LmAddAssert calls in a
  // row would place them. Answers 0 with numbers[i] and at[i] set, or a code with no element
  // made. Their bytes are unspecified (checked builds fill them with 0xDB): the caller writes
  // every byte before its next call on the space. For a caller that copies bytes in: one call
  // instead of count, and the addresses come before any copy.
  int32_t LmAddMany(int32_t count, const int32_t* sizes, int32_t* numbers, uint8_t** at);
  // A new element holding a copy of element n's bytes. Answers its number or a code.
  int32_t LmDupeAssert(int32_t n);
  // Frees element n; its number becomes free. Answers 0 or a code.
  int32_t LmRemove(int32_t n);
  // Exchanges the contents of a and b; the numbers stay. Answers 0 or a code.
  int32_t LmSwap(int32_t a, int32_t b);

  // The address of element n, or nullptr. Valid until the element moves.
  inline uint8_t* LmGet(int32_t n) const;
  // The size of element n or a code.
  inline int32_t LmSize(int32_t n) const;
  // 0 when n names a live element, else a code.
  inline int32_t LmTest(int32_t n) const;
  // The highest live number; 0 when the space is empty.
  int32_t LmCount() const { return int32_t(slots_.size()) - 1; }
  // The next live number above `after`, or 0 when there is none: for (n = LmNext(0); n; ...).
  int32_t LmNext(int32_t after) const;

  // --- Marks -------------------------------------------------------------------------------
  // Marks element n: above 0 when newly marked, 0 when it already was, a code otherwise.
  inline int32_t LmMark(int32_t n);
  // 1 when n is live and marked, 0 when live and not marked, else a code.
  inline int32_t LmMarked(int32_t n) const;
  // Clears every mark (constant time). Answers 0.
  int32_t LmUnmark();
  // Frees every live element that is not marked; answers how many it freed.
  int32_t LmCollect();
  // Hints that element n is about to be visited: fetches its slot, or with `bytes` the first one
  // or two cache lines of its bytes (the slot must then be in cache already to help). Never
  // faults, whatever n is.
  inline void LmPrefetch(int32_t n, bool bytes) const;

  // --- Heap ----------------------------------------------------------------------------------
  // Packs every small element into fresh chunks in number order, when freed blocks have grown to
  // an eighth of the chunks (or a large block holds more than its element): a heap with less
  // slack is left as it is, so that a compress costs in proportion to what was freed. Answers 0,
  // kLmLocked or kLmNoMemory.
  int32_t LmCompress();
  // Pins every element until the matching LmUnlock. Both answer 0 (LmUnlock: kLmNotLocked
  // when the space is not locked, reported through Debug).
  int32_t LmLock();
  int32_t LmUnlock();
  int32_t LmLockDepth() const { return lockDepth_; }

  // --- Soundness -----------------------------------------------------------------------------
  // The quick test a collector runs around every collection: kLmDamaged when a load fault was
  // recorded or the number table disagrees with itself or the totals (invariants 1, 2, 7, 8, 9
  // and the sizes and kinds of 3), else 0. The first call passes over the whole table; later
  // ones look again only at the slots changed since the last call that found the space sound
  // (each change notes the slot as it was, so the totals follow too), so a collection after a
  // few changes pays for those. No heap read; where blocks lie (3, 4, 6) and the free-number bits
  // (5) are LmCheck's. Never damaged where LmCheck finds nothing.
  int32_t LmValid() const;
  // Rebuilds what bookkeeping can be rebuilt (free-number bits, free lists, table end, marks);
  // answers 0 when every invariant then holds (LmCheck finds nothing), else kLmDamaged.
  int32_t LmRepair();
  // Every invariant violation, one line each, naming the invariant's number. Linear in the
  // elements: blocks are laid on a bitmap of their chunks rather than sorted.
  std::vector<std::string> LmCheck() const;
  // A readable picture: totals, then up to `limit` elements with size, mark and first bytes.
  std::string LmDump(int32_t limit = 64) const;

  // --- Totals --------------------------------------------------------------------------------
  int32_t LmLiveCount() const { return live_; }
  int64_t LmLiveBytes() const { return liveBytes_; }
  // Bytes held for elements: chunks in use plus large blocks (not the number table).
  int64_t LmHeapBytes() const;
  // Bytes of the number table and free-number bits.
  int64_t LmTableBytes() const;

  // --- Hand-over to a persistence layer --------------------------------------------------------
  // The space keeps a record of the numbers touched since the last hand-over: every number its
  // own operations create, resize, remove, swap or collect, and every number a caller names with
  // LmTouch after writing through its address. A write through an address that is not followed
  // by LmTouch before the next LmChanges is lost to the persistence layer. While the space is
  // locked at a hand-over the record is kept, so addresses held across a save stay covered.
  //
  // Saving: LmChanges() tells which touched numbers differ from the last hand-over (by content:
  // rewriting the same bytes is no change); save those, then LmHandedOver() without changing the
  // space in between. A new space has handed over nothing. An element is summed only when it is
  // compared: one handed over as added, or loaded without its sum, counts as changed at its
  // next touch, which takes its sum; from then on it is compared by content.
  LmDelta LmChanges();
  void LmHandedOver();
  // Element n's bytes were (or may have been) written through its address. Cheap: two bit tests.
  inline void LmTouch(int32_t n);

  // --- The collector's record ----------------------------------------------------------------
  // Beside the hand-over's record the space keeps one for a collector: the numbers touched (by
  // the space's own operations or LmTouch, as above) since LmSinceReset, and how many elements
  // were freed (LmRemove, LmCollect) or swapped since. A collector that knew the space at the
  // reset looks at those alone.
  void LmSinceReset();
  // The numbers touched since the reset (unordered, each once), or false when more were touched
  // than the record lists (a 16th of the numbers, at least 4096) or its memory ran out.
  bool LmSinceTouched(std::vector<int32_t>* out) const;
  int64_t LmSinceFreed() const { return sinceFreed_; }
  // A 64-bit sum of bytes, and of element n's bytes (0 when n is not live).
  static uint64_t LmSum(const void* bytes, int32_t size);
  uint64_t LmSumOf(int32_t n) const;
  // Order-independent sum over every live element's number and bytes.
  uint64_t LmSpaceSum() const;

  // Loading into an empty space: LmLoad for each saved (number, bytes[, sum]) pair, in any order,
  // then LmLoadSeal with the live count and LmSpaceSum saved with them. LmLoad answers 0 or a
  // code; a refused pair, a sum that does not match, or a seal that does not match is recorded
  // as a load fault, which LmValid reports (invariant 9) and LmRepair cannot clear. The loaded
  // content counts as handed over; an element loaded without its sum is not summed (the file
  // vouches for its bytes).
  int32_t LmLoad(int32_t n, const void* bytes, int32_t size);
  int32_t LmLoad(int32_t n, const void* bytes, int32_t size, uint64_t sum);
  int32_t LmLoadSeal(int32_t liveCount, uint64_t spaceSum);
  // Loads a run of elements at once, as LmLoad would one by one: parts[i] names element i's
  // number and size, and the elements' bytes follow each other from `bytes`. Answers 0, or the
  // code of the first part refused, whose index goes to *refused (the parts before it are
  // loaded).
  int32_t LmLoadMany(const LmPart* parts, int32_t count, const uint8_t* bytes, int32_t* refused);
  // Before a load of about `numbers` numbers and `bytes` bytes of elements: grows the table once
  // and takes one chunk for the bytes, so the loads that follow neither regrow the table nor
  // allocate chunk by chunk. Only a hint: answers 0, or kLmNoMemory.
  int32_t LmReserve(int32_t numbers, int64_t bytes);
  const std::vector<std::string>& LmLoadFaults() const { return loadFaults_; }

 private:
  struct Slot {
    uint8_t* at;     // nullptr when free
    int32_t size;    // bytes; 0 when free
    uint32_t flags;  // kLargeBit: the element has a block of its own
  };
  struct Chunk {
    uint8_t* base;
    size_t bytes;
  };
  struct FreeBlock {
    FreeBlock* next;
  };
  static constexpr uint32_t kLargeBit = 1;
  static uint8_t emptyBlock_[16];  // the address of every element of 0 bytes

  // A record of touched numbers: a bit per number and, while few are set, the list of those
  // numbers. Once the list would hold more than `perWord` numbers per bit word, or `floor`, it is
  // dropped and the bits alone are kept (`dense`): the record never costs more than a bit per
  // number and a short list. When memory for the bits ran out, `all` says that any number may be
  // touched.
  struct TouchLog {
    TouchLog(size_t perWord, size_t floor) : perWord(perWord), floor(floor) {}
    std::vector<uint64_t> bits;
    std::vector<int32_t> list;
    size_t perWord, floor;
    bool dense = false;
    bool all = false;
    bool Has(size_t n) const {
      size_t w = n >> 6;
      return w < bits.size() && (bits[w] >> (n & 63) & 1);
    }
    void Add(int32_t n);
    void Clear();
  };

  int32_t Reach(int32_t n) const;  // 0, kLmBadNumber or kLmNotLive
  int32_t TakeNumbers(int32_t count, int32_t* numbers, int32_t* took);
  int32_t Grow(int32_t n);
  uint8_t* StoreSmall(int32_t size);
  int32_t ReserveChunk(int64_t bytes);
  uint8_t* Store(int32_t size, uint32_t* largeBit);
  void Release(uint8_t* at, int32_t size, uint32_t largeBit);
  void ReleaseTail(uint8_t* at, size_t bytes);
  void Free(int32_t n);
  void TrimTable();
  void RebuildFreeNumbers();
  int32_t Refuse(int line) const;
  int64_t LargeCap(const uint8_t* at) const;
  void CheckStorage(std::vector<std::string>* out) const;

  std::vector<Slot, HugeAllocator<Slot>> slots_;
  // Bit n set: number n may be free. A number made live by LmSetAssert or LmLoad keeps its bit
  // until TakeNumbers reaches it and finds it taken; no bit above LmCount is set.
  std::vector<uint64_t> freeBits_;
  size_t freeLow_ = 0;  // no word below this one holds a set bit
  // Marks apart from the slots: a walk tests far more marks than it reads elements, and a byte
  // per number stays in cache where 16-byte slots cannot. The byte also tells liveness, so
  // LmMark never reads a slot: 0 free, kUnmarked or an old epoch live, epoch_ marked.
  static constexpr uint8_t kUnmarked = 1;
  std::vector<uint8_t, HugeAllocator<uint8_t>> marks_;
  uint8_t epoch_ = 2;
  int32_t live_ = 0;
  int64_t liveBytes_ = 0;
  int32_t tableStep_;
  int32_t flags_;
  int32_t lockDepth_ = 0;
  int32_t maxNumber_ = kLmMaxNumber;  // LmSetCeiling
  int64_t maxHeap_ = 0;               // 0: no limit but the system's

  std::vector<Chunk> chunks_;  // the last one is the one bump_ allocates from
  uint8_t* bump_ = nullptr;
  uint8_t* bumpEnd_ = nullptr;
  int64_t chunkBytes_ = 0;
  std::vector<FreeBlock*> freeBlocks_;  // per size class: block bytes / 8
  int64_t largeBytes_ = 0;
  // Bytes of chunk blocks that hold live elements: the rest of the chunks is slack (free blocks
  // and the bump area), which LmCompress weighs. roomyLarge_: a large element shrank in place.
  int64_t smallUsed_ = 0;
  bool roomyLarge_ = false;
  bool HeapRoom(int64_t bytes) const { return maxHeap_ == 0 || LmHeapBytes() + bytes <= maxHeap_; }

  // What LmValid knows: after a call that found the space sound, the table's totals then and,
  // for each slot changed since, what it was before its first change (size -1: free). The slot
  // is noted before every change the space makes to it; past a few thousand notes, or an eighth
  // of the table, or after a compress or repair, the next call passes over the whole table.
  struct SlotWas {
    int32_t n;
    int32_t size;
  };
  mutable std::vector<uint64_t> validBits_;
  mutable std::vector<SlotWas> validLog_;
  mutable bool validAll_ = true;
  mutable int64_t validLive_ = 0, validBytes_ = 0;
  inline void NoteSlot(size_t n);
  void NoteSlotSlow(size_t n);
  void ForgetNotes() const;
  int32_t ValidAll() const;
  static bool SlotFinding(const Slot& s, uint8_t mark, int64_t* live, int64_t* bytes);

  // What each number was at the last hand-over: its sum in handed_ (0: not handed over), or a
  // bit in unsummed_ when it was handed over (as added, or by a load) without its sum, so that its
  // next touch counts as a change. Most elements of a large space are never touched again after
  // they are saved or loaded: they cost a bit, not a sum. The sums lie in pages of 1024 numbers
  // made when a number in them is first summed, so that the first save after a load, which sums
  // the hundred elements it changed, does not clear a table of sums for every number.
  struct SumPages {
    static constexpr int kShift = 10;
    std::vector<std::unique_ptr<uint64_t[]>> pages;
    size_t end() const { return pages.size() << kShift; }  // no sum at or above
    uint64_t Get(size_t n) const {
      size_t p = n >> kShift;
      return p < pages.size() && pages[p] ? pages[p][n & ((1u << kShift) - 1)] : 0;
    }
    void Set(size_t n, uint64_t sum);  // may throw std::bad_alloc
    void Trim(size_t numbers);         // forgets the pages past `numbers`
    size_t Bytes() const;
  };
  SumPages handed_;
  std::vector<uint64_t> unsummed_;
  uint64_t HandedOf(size_t n) const;  // a sum, kUnsummed or 0
  void SetHanded(size_t n, uint64_t kept);
  // The hand-over's record of touched numbers (all: the next hand-over compares every number),
  // listing up to a 64th of the numbers; and the collector's, listing up to a 16th (it looks at
  // each one it lists, and past that at everything).
  TouchLog touched_{1, 64};
  TouchLog since_{4, 4096};
  int64_t sinceFreed_ = 0;
  void TouchSlow(int32_t n);
  template <typename Visit>
  void ForTouched(Visit visit);
#ifdef ZOVE_CHECKED
  void AuditUntouched() const;
  void AuditSum(int32_t n, uint64_t sum);
  std::vector<uint64_t> auditSums_;  // the sums handed_ lacks, for the audit only
#endif
  // What the last LmChanges found, for LmHandedOver: added numbers (n) and removed ones (-n),
  // which keep no sum, and changed numbers with their new sums.
  std::vector<int32_t> pendingMarks_;
  std::vector<std::pair<int32_t, uint64_t>> pendingSums_;
  bool pendingValid_ = false;
  std::vector<std::string> loadFaults_;
};

// --- Inline hot paths --------------------------------------------------------------------------

inline int32_t ElementSpace::Reach(int32_t n) const {
  if (n <= 0 || n >= int32_t(slots_.size()))
    return n > 0 && n <= kLmMaxNumber ? kLmNotLive : kLmBadNumber;
  return slots_[size_t(n)].at ? 0 : kLmNotLive;
}

inline uint8_t* ElementSpace::LmGet(int32_t n) const {
  return Reach(n) == 0 ? slots_[size_t(n)].at : nullptr;
}

inline int32_t ElementSpace::LmSize(int32_t n) const {
  int32_t r = Reach(n);
  return r == 0 ? slots_[size_t(n)].size : r;
}

inline int32_t ElementSpace::LmTest(int32_t n) const { return Reach(n); }

inline void ElementSpace::LmTouch(int32_t n) {
  if (touched_.Has(size_t(uint32_t(n))) && since_.Has(size_t(uint32_t(n)))) return;
  TouchSlow(n);
}

inline void ElementSpace::NoteSlot(size_t n) {
  if (validAll_ || (n >> 6 < validBits_.size() && (validBits_[n >> 6] >> (n & 63) & 1))) return;
  NoteSlotSlow(n);
}

inline int32_t ElementSpace::LmMark(int32_t n) {
  if (n <= 0 || n >= int32_t(marks_.size())) return Reach(n);
  uint8_t& m = marks_[size_t(n)];
  if (m == 0) return kLmNotLive;
  if (m == epoch_) return 0;
  m = epoch_;
  // A caller that marks an element is about to read it: start fetching its slot now.
  Prefetch(&slots_[size_t(n)]);
  return 1;
}

inline int32_t ElementSpace::LmMarked(int32_t n) const {
  int32_t r = Reach(n);
  return r != 0 ? r : marks_[size_t(n)] == epoch_ ? 1 : 0;
}

inline void ElementSpace::LmPrefetch(int32_t n, bool bytes) const {
  if (n <= 0 || n >= int32_t(slots_.size())) return;
  const Slot* s = &slots_[size_t(n)];
  if (bytes) {
    Prefetch(s->at);
    if ((reinterpret_cast<uintptr_t>(s->at) & 63) + uint32_t(s->size) > 64) Prefetch(s->at + 64);
  } else {
    Prefetch(s);
  }
}

}  // namespace fundra

// Element space: numbers, element operations, marks and the lock. Storage lives in
// space_heap.cc, soundness in space_check.cc, the hand-over in space_handover.cc.
#include "platform/fundra/space.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

#include "platform/fundra/debug.h"

namespace fundra {

ElementSpace::ElementSpace(int32_t tableStep, int32_t flags)
    : slots_(1, Slot{nullptr, 0, 0}), tableStep_(std::max(tableStep, 1)), flags_(flags) {
  marks_.assign(1, 0);
  freeBlocks_.assign(kLmSmallMax / 8 + 1, nullptr);
}

int32_t ElementSpace::LmSetParms(int32_t tableStep, int32_t flags) {
  tableStep_ = std::max(tableStep, 1);
  flags_ = flags;
  return 0;
}

int32_t ElementSpace::LmSetCeiling(int32_t numbers, int64_t heapBytes) {
  maxNumber_ = std::clamp(numbers, 1, kLmMaxNumber);
  maxHeap_ = std::max<int64_t>(heapBytes, 0);
  return 0;
}

// A refusal is a caller's programming error (it holds addresses across a move): report it once
// here and answer the code.
int32_t ElementSpace::Refuse(int line) const {
  Debug("fundra/space", line);
  return kLmLocked;
}

// Makes slot n exist; slots added below n are free and get their free bits.
int32_t ElementSpace::Grow(int32_t n) {
  size_t old = slots_.size();
  if (size_t(n) < old) return 0;
  if (n > maxNumber_) return kLmNoNumber;
  try {
    if (size_t(n) / 64 >= freeBits_.size()) freeBits_.resize(size_t(n) / 64 + 1, 0);
    if (size_t(n) >= slots_.capacity()) {
      size_t want = std::min<size_t>(size_t(n) + size_t(tableStep_), size_t(maxNumber_) + 1);
      slots_.reserve(std::max(want, 2 * slots_.capacity()));
      marks_.reserve(slots_.capacity());
    }
    // Value-initialised slots are free ones. A fill with Slot{nullptr, 0, 0} compiled to a copy
    // through the stack that stalled every store: a third of a file load's time.
    slots_.resize(size_t(n) + 1);
    marks_.resize(size_t(n) + 1, 0);
  } catch (const std::bad_alloc&) {
    slots_.resize(old);
    marks_.resize(old);
    return kLmNoMemory;
  }
  for (size_t i = old; i < size_t(n); ++i) freeBits_[i / 64] |= uint64_t(1) << (i % 64);
  if (old < size_t(n)) freeLow_ = std::min(freeLow_, old / 64);
  return 0;
}

// Takes count numbers, each the lowest free one at its turn; answers 0, or when the table cannot
// grow far enough kLmNoNumber (the ceiling) or kLmNoMemory, with the numbers it took in *taken.
// The scan starts at the lowest word that may hold a free number, which moves up as numbers are
// taken, so filling a space takes each in constant time.
int32_t ElementSpace::TakeNumbers(int32_t count, int32_t* numbers, int32_t* took) {
  int32_t& taken = *took;
  taken = 0;
  for (; freeLow_ < freeBits_.size(); ++freeLow_) {
    uint64_t& word = freeBits_[freeLow_];
    while (word && taken < count) {
      size_t n = freeLow_ * 64 + size_t(std::countr_zero(word));
      word &= word - 1;
      if (!slots_[n].at) numbers[taken++] = int32_t(n);
    }
    if (taken == count) return 0;
  }
  // The rest lie past the top, the common case when a space is being filled.
  size_t first = slots_.size();
  size_t end = std::min(first + size_t(count - taken), size_t(maxNumber_) + 1);
  if (end > first) {
    try {
      if ((end - 1) / 64 >= freeBits_.size()) freeBits_.resize((end - 1) / 64 + 1, 0);
      if (end > slots_.capacity()) {
        size_t want = std::max(first + size_t(tableStep_), 2 * slots_.capacity());
        slots_.reserve(std::min(std::max(want, end), size_t(maxNumber_) + 1));
      }
      if (end > marks_.capacity()) marks_.reserve(slots_.capacity());
      slots_.resize(end);
      marks_.resize(end, 0);
    } catch (const std::bad_alloc&) {
      slots_.resize(first);
      marks_.resize(first);
      return kLmNoMemory;
    }
  }
  for (size_t n = first; n < end; ++n) numbers[taken++] = int32_t(n);
  return taken == count ? 0 : kLmNoNumber;
}

// Drops free slots at the top so that the last slot is live, and their free bits with them.
void ElementSpace::TrimTable() {
  size_t end = slots_.size();
  while (end > 1 && !slots_[end - 1].at) {
    --end;
    freeBits_[end / 64] &= ~(uint64_t(1) << (end % 64));
  }
  slots_.resize(end);
  marks_.resize(end);
}

void ElementSpace::RebuildFreeNumbers() {
  freeBits_.assign(slots_.size() / 64 + 1, 0);
  for (size_t n = 1; n < slots_.size(); ++n)
    if (!slots_[n].at) freeBits_[n / 64] |= uint64_t(1) << (n % 64);
  freeLow_ = 0;
}

void ElementSpace::Free(int32_t n) {
  NoteSlot(size_t(n));
  ++sinceFreed_;
  Slot& s = slots_[size_t(n)];
  Release(s.at, s.size, s.flags & kLargeBit);
  --live_;
  liveBytes_ -= s.size;
  s = Slot{nullptr, 0, 0};
  marks_[size_t(n)] = 0;
  LmTouch(n);
  freeBits_[size_t(n) / 64] |= uint64_t(1) << (n % 64);
  freeLow_ = std::min(freeLow_, size_t(n) / 64);
}

int32_t ElementSpace::LmSetAssert(int32_t n, int32_t size) {
  if (n <= 0 || n > kLmMaxNumber) return kLmBadNumber;
  if (size < 0 || size > kLmMaxSize) return kLmBadSize;
  if (size_t(n) >= slots_.size() || !slots_[size_t(n)].at) {
    if (n > maxNumber_) return kLmNoNumber;
    uint32_t large = 0;
    uint8_t* at = Store(size, &large);
    if (!at) return kLmNoMemory;
    int32_t r = Grow(n);
    if (r < 0) {
      Release(at, size, large);
      return r;
    }
    NoteSlot(size_t(n));
    std::memset(at, 0, size_t(size));
    slots_[size_t(n)] = Slot{at, size, large};
    marks_[size_t(n)] = kUnmarked;
    ++live_;
    liveBytes_ += size;
    LmTouch(n);
    return 0;
  }
  Slot& s = slots_[size_t(n)];
  int32_t old = s.size;
  // Callers size an element and then write into it: even an unchanged size counts as a touch.
  LmTouch(n);
  if (size == old) return 0;
  uint32_t large = s.flags & kLargeBit;
  int64_t room = large ? LargeCap(s.at) : (int64_t(old) + 7) & ~int64_t(7);
  if (size == 0) {
    // Zero bytes need no block; dropping it moves nothing anyone can read.
    NoteSlot(size_t(n));
    Release(s.at, old, large);
    s.at = Store(0, &large);
    s.flags = 0;
  } else if (size <= room && (large || old > 0)) {
    // The block already holds the new size: no move. A small block gives back its cut tail.
    NoteSlot(size_t(n));
    if (size > old) {
      std::memset(s.at + old, 0, size_t(size - old));
    } else {
      if (flags_ & kLmScrub) std::memset(s.at + size, 0xDB, size_t(old - size));
      size_t keep = (size_t(size) + 7) & ~size_t(7);
      if (!large) {
        ReleaseTail(s.at + keep, size_t(room) - keep);
        smallUsed_ -= room - int64_t(keep);
      } else {
        roomyLarge_ = true;
      }
    }
  } else {
    // An element of 0 bytes has nothing anyone could hold, so it may grow while locked.
    if (lockDepth_ > 0 && old > 0) return Refuse(__LINE__);
    uint32_t newLarge = 0;
    uint8_t* at = Store(size, &newLarge);
    if (!at) return kLmNoMemory;
    NoteSlot(size_t(n));
    std::memcpy(at, s.at, size_t(std::min(old, size)));
    if (size > old) std::memset(at + old, 0, size_t(size - old));
    Release(s.at, old, large);
    s.at = at;
    s.flags = newLarge;
  }
  s.size = size;
  liveBytes_ += int64_t(size) - old;
  return 0;
}

int32_t ElementSpace::LmAddAssert(int32_t size, const void* source) {
  if (size < 0 || size > kLmMaxSize) return kLmBadSize;
  uint32_t large = 0;
  uint8_t* at = Store(size, &large);
  if (!at) return kLmNoMemory;
  // Storing never moves other elements, so a source inside the space is still where it was.
  if (source)
    std::memcpy(at, source, size_t(size));
  else
    std::memset(at, 0, size_t(size));
  int32_t n, took;
  if (int32_t r = TakeNumbers(1, &n, &took); r != 0) {
    Release(at, size, large);
    return r;
  }
  NoteSlot(size_t(n));
  slots_[size_t(n)] = Slot{at, size, large};
  marks_[size_t(n)] = kUnmarked;
  ++live_;
  liveBytes_ += size;
  LmTouch(n);
  return n;
}

int32_t ElementSpace::LmAddMany(int32_t count, const int32_t* sizes, int32_t* numbers,
                                uint8_t** at) {
  // One test over the largest size, which a negative size wins as unsigned: the loop vectorises.
  uint32_t largest = 0;
  for (int32_t i = 0; i < count; ++i) largest = std::max(largest, uint32_t(sizes[i]));
  if (largest > uint32_t(kLmMaxSize)) return kLmBadSize;
  // Numbers touch only the table and blocks only the heap, so taking every number first places
  // each element where a run of single adds would.
  int32_t taken = 0, stored = 0;
  int32_t r = TakeNumbers(count, numbers, &taken);
  for (; r == 0 && stored < count; ++stored) {
    int32_t size = sizes[stored];
    uint32_t large = 0;
    uint8_t* p = nullptr;
    if (size > 0 && size <= kLmSmallMax) {
      FreeBlock*& head = freeBlocks_[(size_t(size) + 7) / 8];
      p = reinterpret_cast<uint8_t*>(head);
      if (head) {
        head = head->next;
        smallUsed_ += (int64_t(size) + 7) & ~int64_t(7);
      }
    }
    if (!p && !(p = Store(size, &large))) {
      r = kLmNoMemory;
      break;
    }
    NoteSlot(size_t(numbers[stored]));
    slots_[size_t(numbers[stored])] = Slot{p, size, large};
    at[stored] = p;
  }
  if (r != 0) {
    // Blocks go back last first, so each free list is as it was.
    while (stored > 0) {
      Slot& s = slots_[size_t(numbers[--stored])];
      Release(s.at, s.size, s.flags & kLargeBit);
      s = Slot{nullptr, 0, 0};
    }
    for (int32_t i = 0; i < taken; ++i) {
      freeBits_[size_t(numbers[i]) / 64] |= uint64_t(1) << (numbers[i] % 64);
      freeLow_ = std::min(freeLow_, size_t(numbers[i]) / 64);
    }
    TrimTable();
    return r;
  }
  for (int32_t i = 0; i < count; ++i) {
    marks_[size_t(numbers[i])] = kUnmarked;
    liveBytes_ += sizes[i];
    LmTouch(numbers[i]);
#ifdef ZOVE_CHECKED
    std::memset(at[i], 0xDB, size_t(sizes[i]));
#endif
  }
  live_ += count;
  return 0;
}

int32_t ElementSpace::LmDupeAssert(int32_t n) {
  int32_t r = Reach(n);
  if (r != 0) return r;
  return LmAddAssert(slots_[size_t(n)].size, slots_[size_t(n)].at);
}

int32_t ElementSpace::LmRemove(int32_t n) {
  int32_t r = Reach(n);
  if (r != 0) return r;
  Free(n);
  TrimTable();
  return 0;
}

int32_t ElementSpace::LmSwap(int32_t a, int32_t b) {
  int32_t r = Reach(a);
  if (r == 0) r = Reach(b);
  if (r != 0) return r;
  if (a == b) return 0;
  if (lockDepth_ > 0) return Refuse(__LINE__);
  NoteSlot(size_t(a));
  NoteSlot(size_t(b));
  ++sinceFreed_;
  // Marks stay with the numbers; the storage and its kind go with the contents.
  Slot& x = slots_[size_t(a)];
  Slot& y = slots_[size_t(b)];
  std::swap(x.at, y.at);
  std::swap(x.size, y.size);
  std::swap(x.flags, y.flags);
  LmTouch(a);
  LmTouch(b);
  return 0;
}

int32_t ElementSpace::LmNext(int32_t after) const {
  for (size_t n = size_t(std::max(after, 0)) + 1; n < slots_.size(); ++n)
    if (slots_[n].at) return int32_t(n);
  return 0;
}

int32_t ElementSpace::LmUnmark() {
  if (++epoch_ == 0) {
    // The epoch wrapped: clear every mark for real, once in 254 calls.
    for (uint8_t& m : marks_)
      if (m) m = kUnmarked;
    epoch_ = 2;
  }
  return 0;
}

int32_t ElementSpace::LmCollect() {
  int32_t freed = 0;
  // From the top down: free lists hand out the block freed last first, so the elements that
  // refill the space (numbers reused lowest first) get their blocks in rising address order.
  for (size_t n = slots_.size() - 1; n >= 1; --n) {
    Slot& s = slots_[n];
    if (!s.at || marks_[n] == epoch_) continue;
    NoteSlot(n);
    Release(s.at, s.size, s.flags & kLargeBit);
    marks_[n] = 0;
    --live_;
    liveBytes_ -= s.size;
    s = Slot{nullptr, 0, 0};
    LmTouch(int32_t(n));
    ++freed;
  }
  if (freed > 0) {
    TrimTable();
    RebuildFreeNumbers();
  }
  sinceFreed_ += freed;
  return freed;
}

int32_t ElementSpace::LmLock() {
  ++lockDepth_;
  return 0;
}

int32_t ElementSpace::LmUnlock() {
  if (lockDepth_ <= 0) {
    Debug("fundra/space", __LINE__);
    return kLmNotLocked;
  }
  --lockDepth_;
  return 0;
}

}  // namespace fundra

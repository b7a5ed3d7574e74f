// Element space storage: chunks with size-class free lists for small elements, a block of their
// own for large ones, and the compressor.
//
// A large block is laid out as
//   offset  width  field
//   0       8      capacity: bytes the element may grow to without moving
//   8       8      unused (keeps the element 16-aligned)
//   16      cap    the element's bytes (the slot's address points here)
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/fundra/space.h"

namespace fundra {

namespace {
constexpr size_t kLargePrefix = 16;
constexpr int64_t kFirstChunk = 4096;
constexpr int64_t kMaxChunk = 8 << 20;

size_t BlockBytes(int32_t size) { return (size_t(size) + 7) & ~size_t(7); }
}  // namespace

alignas(16) uint8_t ElementSpace::emptyBlock_[16];

ElementSpace::~ElementSpace() {
  for (const Slot& s : slots_)
    if (s.at && (s.flags & kLargeBit)) std::free(s.at - kLargePrefix);
  for (const Chunk& c : chunks_) std::free(c.base);
}

int64_t ElementSpace::LargeCap(const uint8_t* at) const {
  int64_t cap;
  std::memcpy(&cap, at - kLargePrefix, sizeof cap);
  return cap;
}

void ElementSpace::ReleaseTail(uint8_t* at, size_t bytes) {
  while (bytes >= 8) {
    size_t b = std::min(bytes, size_t(kLmSmallMax));
    FreeBlock* f = reinterpret_cast<FreeBlock*>(at);
    f->next = freeBlocks_[b / 8];
    freeBlocks_[b / 8] = f;
    at += b;
    bytes -= b;
  }
}

uint8_t* ElementSpace::StoreSmall(int32_t size) {
  size_t bytes = BlockBytes(size);
  FreeBlock*& head = freeBlocks_[bytes / 8];
  if (head) {
    uint8_t* at = reinterpret_cast<uint8_t*>(head);
    head = head->next;
    return at;
  }
  if (size_t(bumpEnd_ - bump_) < bytes) {
    // Chunks grow with the heap so that a small space stays small and a large one does not
    // call malloc often.
    if (ReserveChunk(std::clamp(chunkBytes_ / 4, kFirstChunk, kMaxChunk)) < 0) return nullptr;
  }
  uint8_t* at = bump_;
  bump_ += bytes;
  return at;
}

// Makes the bump area at least `bytes` long with a new chunk; the old chunk's tail becomes free
// blocks.
int32_t ElementSpace::ReserveChunk(int64_t bytes) {
  if (bytes <= bumpEnd_ - bump_) return 0;
  int64_t want = (std::max(bytes, kFirstChunk) + 7) & ~int64_t(7);
  if (!HeapRoom(want)) return kLmNoMemory;
  uint8_t* base = static_cast<uint8_t*>(HugeAlloc(size_t(want)));
  if (!base) return kLmNoMemory;
  try {
    chunks_.push_back(Chunk{base, size_t(want)});
  } catch (const std::bad_alloc&) {
    std::free(base);
    return kLmNoMemory;
  }
  if (bump_) ReleaseTail(bump_, size_t(bumpEnd_ - bump_));
  chunkBytes_ += want;
  bump_ = base;
  bumpEnd_ = base + want;
  return 0;
}

uint8_t* ElementSpace::Store(int32_t size, uint32_t* largeBit) {
  *largeBit = 0;
  if (size == 0) return emptyBlock_;
  if (size <= kLmSmallMax) {
    uint8_t* at = StoreSmall(size);
    if (at) smallUsed_ += int64_t(BlockBytes(size));
    return at;
  }
  if (!HeapRoom(int64_t(kLargePrefix) + size)) return nullptr;
  uint8_t* block = static_cast<uint8_t*>(std::malloc(kLargePrefix + size_t(size)));
  if (!block) return nullptr;
  int64_t cap = size;
  std::memcpy(block, &cap, sizeof cap);
  largeBytes_ += int64_t(kLargePrefix) + cap;
  *largeBit = kLargeBit;
  return block + kLargePrefix;
}

void ElementSpace::Release(uint8_t* at, int32_t size, uint32_t largeBit) {
  if (largeBit) {
    largeBytes_ -= int64_t(kLargePrefix) + LargeCap(at);
    std::free(at - kLargePrefix);
    return;
  }
  if (size == 0) return;
  size_t bytes = BlockBytes(size);
  if (flags_ & kLmScrub) std::memset(at, 0xDB, bytes);
  ReleaseTail(at, bytes);
  smallUsed_ -= int64_t(bytes);
}

int32_t ElementSpace::LmCompress() {
  if (lockDepth_ > 0) return Refuse(__LINE__);
  // Slack is what freeing left in the chunks; the untouched rest of the bump area is no slack
  // (it is not even resident yet). Below an eighth of the chunks, packing would copy the whole
  // heap to win back little: a save after a few changes would cost a pass over every element.
  // Waiting until an eighth is free makes each pack cost at most eight bytes copied per byte
  // freed since the last.
  int64_t slack = chunkBytes_ - smallUsed_ - (bumpEnd_ - bump_);
  if (slack * 8 < chunkBytes_ && !roomyLarge_) return 0;
  validAll_ = true;
  roomyLarge_ = false;
  // Large blocks first: trim the ones that grew roomy, and count the ones that shrank into the
  // small range with the small elements.
  size_t total = 0;
  for (Slot& s : slots_) {
    if (!s.at || s.size == 0) continue;
    if (!(s.flags & kLargeBit) || s.size <= kLmSmallMax) {
      total += BlockBytes(s.size);
    } else if (LargeCap(s.at) > s.size) {
      int64_t old = LargeCap(s.at);
      void* block = std::realloc(s.at - kLargePrefix, kLargePrefix + size_t(s.size));
      if (!block) continue;  // still sound, only roomy
      s.at = static_cast<uint8_t*>(block) + kLargePrefix;
      int64_t cap = s.size;
      std::memcpy(block, &cap, sizeof cap);
      largeBytes_ -= old - cap;
    }
  }
  uint8_t* base = nullptr;
  if (total > 0) {
    if (!HeapRoom(int64_t(total))) return kLmNoMemory;
    base = static_cast<uint8_t*>(HugeAlloc(total));
    if (!base) return kLmNoMemory;
    try {
      chunks_.reserve(chunks_.size() + 1);
    } catch (const std::bad_alloc&) {
      std::free(base);
      return kLmNoMemory;
    }
  }
  // Number order: neighbours by number become neighbours in memory.
  size_t off = 0;
  for (Slot& s : slots_) {
    if (!s.at || s.size == 0) continue;
    bool large = s.flags & kLargeBit;
    if (large && s.size > kLmSmallMax) continue;
    std::memcpy(base + off, s.at, size_t(s.size));
    if (large) Release(s.at, s.size, kLargeBit);
    s.at = base + off;
    s.flags = 0;
    off += BlockBytes(s.size);
  }
  for (const Chunk& c : chunks_) std::free(c.base);
  chunks_.clear();
  // The table's growth room goes too: a compressed space is one about to be kept, not filled.
  if (slots_.capacity() > slots_.size() + slots_.size() / 8) {
    slots_.shrink_to_fit();
    marks_.shrink_to_fit();
  }
  freeBits_.shrink_to_fit();
  std::fill(freeBlocks_.begin(), freeBlocks_.end(), nullptr);
  chunkBytes_ = int64_t(total);
  smallUsed_ = int64_t(total);
  bump_ = bumpEnd_ = nullptr;
  if (base) {
    chunks_.push_back(Chunk{base, total});
    bump_ = bumpEnd_ = base + total;
  }
  return 0;
}

int64_t ElementSpace::LmHeapBytes() const { return chunkBytes_ + largeBytes_; }

int64_t ElementSpace::LmTableBytes() const {
  return int64_t(slots_.capacity() * sizeof(Slot) + marks_.capacity() +
                 freeBits_.capacity() * sizeof(uint64_t) + handed_.Bytes() +
                 unsummed_.capacity() * sizeof(uint64_t) +
                 pendingMarks_.capacity() * sizeof(int32_t) +
                 pendingSums_.capacity() * sizeof(pendingSums_[0]) +
                 (touched_.bits.capacity() + since_.bits.capacity() + validBits_.capacity()) *
                     sizeof(uint64_t) +
                 (touched_.list.capacity() + since_.list.capacity()) * sizeof(int32_t) +
                 validLog_.capacity() * sizeof(SlotWas));
}

}  // namespace fundra

// Memory blocks and byte helpers.
//
// MemAlloc blocks carry their size in a 16-byte prefix so that MemSize can answer it; they are
// zero-filled and must be freed with MemFree. TMemory is a resizable owned byte block with value
// semantics (copy and assignment copy the bytes).
#pragma once

#include <cstddef>
#include <cstdint>

namespace fundra {

constexpr int32_t kMemNoMemory = -625;  // the heap could not supply the bytes
constexpr int32_t kMemBadSize = -622;   // a size below 0
// SetSize's fill for a caller that writes every new byte itself: they are left as they are.
constexpr int32_t kMemNoFill = -2;

// A zero-filled block of size bytes (size 0 gives a valid block), or nullptr when size is below
// 0 or the heap is exhausted.
void* MemAlloc(int32_t size);
// Frees a MemAlloc block; nullptr is ignored.
void MemFree(void* block);
// The size MemAlloc was asked for; 0 for nullptr.
int32_t MemSize(const void* block);

// Copies bytes from source to destination; the two may overlap. Note the argument order.
void BlockMove(const void* source, void* destination, int32_t bytes);
// 1 when the two ranges hold the same bytes (always for 0 bytes), else 0.
int32_t EqualBlock(const void* a, const void* b, int32_t bytes);
void ZeroFill(void* at, int32_t bytes);

// Answers below 0, 0 or above 0 as a sorts before, with or after b.
using SortCompare = int32_t (*)(void* context, const void* a, const void* b);
// Sorts count records of width bytes in place, stably, calling compare (context, a, b). Compare
// always receives addresses inside base, whose records stay where they are until the order is
// decided; only then are they rearranged.
void Sort(void* base, int32_t count, int32_t width, void* context, SortCompare compare);

class TMemory {
 public:
  TMemory() = default;
  explicit TMemory(int32_t size);
  TMemory(const TMemory& other);
  TMemory& operator=(const TMemory& other);
  TMemory(TMemory&& other) noexcept;
  TMemory& operator=(TMemory&& other) noexcept;
  ~TMemory();

  // Sets the size. Bytes up to the old size keep their value; new bytes take `fill` (a byte
  // value 0..255), 0 when fill is -1, or are left unwritten with kMemNoFill. Answers 0, kMemBadSize
  // or kMemNoMemory (the block is then unchanged).
  int32_t SetSize(int32_t size, int32_t fill = -1);
  int32_t GetSize() const { return size_; }
  // The bytes; nullptr while the size is 0 and nothing was ever held. Valid until SetSize.
  uint8_t* MemPtr() { return data_; }
  const uint8_t* MemPtr() const { return data_; }

 private:
  uint8_t* data_ = nullptr;
  int32_t size_ = 0;
  int32_t capacity_ = 0;
};

}  // namespace fundra

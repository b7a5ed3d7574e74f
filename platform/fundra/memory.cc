// Memory blocks and byte helpers.
//
// A MemAlloc block:
//   offset  width  field
//   0       8      size asked for (int64)
//   8       8      unused (keeps the caller's bytes 16-aligned)
//   16      size   the caller's bytes (the answer points here)
#include "platform/fundra/memory.h"

#include <cstdlib>
#include <cstring>
#include <vector>

namespace fundra {

namespace {
constexpr size_t kPrefix = 16;
}

void* MemAlloc(int32_t size) {
  if (size < 0) return nullptr;
  uint8_t* block = static_cast<uint8_t*>(std::calloc(1, kPrefix + size_t(size)));
  if (!block) return nullptr;
  int64_t s = size;
  std::memcpy(block, &s, sizeof s);
  return block + kPrefix;
}

void MemFree(void* block) {
  if (block) std::free(static_cast<uint8_t*>(block) - kPrefix);
}

int32_t MemSize(const void* block) {
  if (!block) return 0;
  int64_t s;
  std::memcpy(&s, static_cast<const uint8_t*>(block) - kPrefix, sizeof s);
  return int32_t(s);
}

void BlockMove(const void* source, void* destination, int32_t bytes) {
  if (bytes > 0) std::memmove(destination, source, size_t(bytes));
}

int32_t EqualBlock(const void* a, const void* b, int32_t bytes) {
  return bytes <= 0 || std::memcmp(a, b, size_t(bytes)) == 0 ? 1 : 0;
}

void ZeroFill(void* at, int32_t bytes) {
  if (bytes > 0) std::memset(at, 0, size_t(bytes));
}

namespace {

// Merge sort of record indexes: stable, and compare only ever sees whole records.
struct Sorter {
  const uint8_t* base;
  size_t width;
  void* context;
  SortCompare compare;

  int32_t Cmp(int32_t a, int32_t b) const {
    return compare(context, base + size_t(a) * width, base + size_t(b) * width);
  }
  void Run(int32_t* v, int32_t* tmp, int32_t n) const {
    if (n < 2) return;
    if (n <= 8) {
      for (int32_t i = 1; i < n; ++i) {
        int32_t x = v[i], j = i;
        for (; j > 0 && Cmp(v[j - 1], x) > 0; --j) v[j] = v[j - 1];
        v[j] = x;
      }
      return;
    }
    int32_t half = n / 2;
    Run(v, tmp, half);
    Run(v + half, tmp, n - half);
    if (Cmp(v[half - 1], v[half]) <= 0) return;
    std::memcpy(tmp, v, size_t(half) * sizeof(int32_t));
    int32_t i = 0, j = half, k = 0;
    while (i < half && j < n) v[k++] = Cmp(v[j], tmp[i]) < 0 ? v[j++] : tmp[i++];
    while (i < half) v[k++] = tmp[i++];
  }
};

}  // namespace

void Sort(void* base, int32_t count, int32_t width, void* context, SortCompare compare) {
  if (count < 2 || width <= 0) return;
  // Sort a permutation against the untouched records, then lay the records out once: compare
  // always reads the records where they are.
  std::vector<int32_t> order(static_cast<size_t>(count));
  std::vector<int32_t> tmp(static_cast<size_t>(count) / 2 + 1);
  for (int32_t i = 0; i < count; ++i) order[size_t(i)] = i;
  Sorter s{static_cast<const uint8_t*>(base), size_t(width), context, compare};
  s.Run(order.data(), tmp.data(), count);
  std::vector<uint8_t> copy(static_cast<const uint8_t*>(base),
                            static_cast<const uint8_t*>(base) + size_t(count) * size_t(width));
  uint8_t* out = static_cast<uint8_t*>(base);
  for (int32_t i = 0; i < count; ++i)
    std::memcpy(out + size_t(i) * size_t(width),
                copy.data() + size_t(order[size_t(i)]) * size_t(width), size_t(width));
}

TMemory::TMemory(int32_t size) { SetSize(size); }

TMemory::TMemory(const TMemory& other) { *this = other; }

TMemory& TMemory::operator=(const TMemory& other) {
  if (this == &other) return *this;
  if (SetSize(other.size_) == 0 && other.size_ > 0)
    std::memcpy(data_, other.data_, size_t(other.size_));
  return *this;
}

TMemory::TMemory(TMemory&& other) noexcept
    : data_(other.data_), size_(other.size_), capacity_(other.capacity_) {
  other.data_ = nullptr;
  other.size_ = other.capacity_ = 0;
}

TMemory& TMemory::operator=(TMemory&& other) noexcept {
  if (this != &other) {
    std::free(data_);
    data_ = other.data_;
    size_ = other.size_;
    capacity_ = other.capacity_;
    other.data_ = nullptr;
    other.size_ = other.capacity_ = 0;
  }
  return *this;
}

TMemory::~TMemory() { std::free(data_); }

int32_t TMemory::SetSize(int32_t size, int32_t fill) {
  if (size < 0) return kMemBadSize;
  if (size > capacity_) {
    // Growth by half again keeps appends (RNList::Add) amortised constant.
    int64_t want = std::max<int64_t>(size, int64_t(capacity_) + capacity_ / 2);
    want = std::min<int64_t>(want, INT32_MAX);
    uint8_t* grown = static_cast<uint8_t*>(std::realloc(data_, size_t(want)));
    if (!grown) return kMemNoMemory;
    data_ = grown;
    capacity_ = int32_t(want);
  }
  if (size > size_ && fill != kMemNoFill)
    std::memset(data_ + size_, fill < 0 ? 0 : fill & 0xFF, size_t(size - size_));
  size_ = size;
  return 0;
}

}  // namespace fundra

// RNList: an ordered list of 32-bit words kept in a TMemory.
//
// Indexes count from 0. Duplicates are allowed. Answers that find nothing: Find gives -1, Enum
// and Get give 0 past either end.
#pragma once

#include <cstdint>
#include <string>

#include "platform/fundra/memory.h"

namespace fundra {

class RNList {
 public:
  RNList() = default;

  int32_t Count() const { return mem_.GetSize() / 4; }
  // Appends value; answers its index, or kMemNoMemory.
  int32_t Add(int32_t value);
  // Inserts value before index (index == Count appends); answers the index or a code (-1 for an
  // index outside 0..Count).
  int32_t Insert(int32_t index, int32_t value);
  // The index of the first element equal to value, or -1.
  int32_t Find(int32_t value) const;
  // The element at index, or 0 when index is outside the list.
  int32_t Enum(int32_t index) const;
  int32_t Get(int32_t index) const { return Enum(index); }
  // Replaces the element at index; answers 0, or -1 when index is outside the list.
  int32_t Set(int32_t index, int32_t value);
  // Removes every element equal to value, keeping the order of the rest; answers how many.
  int32_t Del(int32_t value);
  // Removes the element at index; answers 0, or -1 when index is outside the list.
  int32_t DelAt(int32_t index);
  void Clear() { mem_.SetSize(0); }

  const int32_t* Data() const { return reinterpret_cast<const int32_t*>(mem_.MemPtr()); }
  // The list's bytes (4 per element), for a caller that sizes the list itself (an enumeration
  // that grows it a block of entries at a time and trims it once) or hands it on where a
  // TMemory is taken. A size that is not a multiple of 4 leaves the last bytes out of the list.
  TMemory& Memory() { return mem_; }
  const TMemory& Memory() const { return mem_; }
  std::string Dump() const;

 private:
  TMemory mem_;
};

}  // namespace fundra

#include "platform/fundra/rnlist.h"

#include <cstring>

namespace fundra {

int32_t RNList::Add(int32_t value) { return Insert(Count(), value); }

int32_t RNList::Insert(int32_t index, int32_t value) {
  int32_t n = Count();
  if (index < 0 || index > n) return -1;
  int32_t r = mem_.SetSize((n + 1) * 4);
  if (r < 0) return r;
  uint8_t* at = mem_.MemPtr() + size_t(index) * 4;
  std::memmove(at + 4, at, size_t(n - index) * 4);
  std::memcpy(at, &value, 4);
  return index;
}

int32_t RNList::Find(int32_t value) const {
  const int32_t* v = Data();
  for (int32_t i = 0, n = Count(); i < n; ++i)
    if (v[i] == value) return i;
  return -1;
}

int32_t RNList::Enum(int32_t index) const {
  return index < 0 || index >= Count() ? 0 : Data()[index];
}

int32_t RNList::Set(int32_t index, int32_t value) {
  if (index < 0 || index >= Count()) return -1;
  std::memcpy(mem_.MemPtr() + size_t(index) * 4, &value, 4);
  return 0;
}

int32_t RNList::Del(int32_t value) {
  int32_t* v = reinterpret_cast<int32_t*>(mem_.MemPtr());
  int32_t n = Count(), out = 0;
  for (int32_t i = 0; i < n; ++i)
    if (v[i] != value) v[out++] = v[i];
  mem_.SetSize(out * 4);
  return n - out;
}

int32_t RNList::DelAt(int32_t index) {
  int32_t n = Count();
  if (index < 0 || index >= n) return -1;
  uint8_t* at = mem_.MemPtr() + size_t(index) * 4;
  std::memmove(at, at + 4, size_t(n - index - 1) * 4);
  mem_.SetSize((n - 1) * 4);
  return 0;
}

std::string RNList::Dump() const {
  std::string out = "[";
  for (int32_t i = 0, n = Count(); i < n; ++i) {
    if (i) out += ' ';
    out += std::to_string(Data()[i]);
  }
  return out + "]";
}

}  // namespace fundra

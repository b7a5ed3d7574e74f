// The exchange stream's bytes, for the writer and the reader. Records follow each other without
// padding, so words are copied, never cast; and a field is read one word at a time, never as a
// struct copied out (a struct copy goes through the stack, and reading a narrow field back from
// a wide store stalls).
#pragma once

#include <cstdint>
#include <cstring>

namespace zove {

inline uint32_t streamWord(const uint8_t* p) {
  uint32_t w;
  std::memcpy(&w, p, 4);
  return w;
}

inline void setStreamWord(uint8_t* p, int32_t w) { std::memcpy(p, &w, 4); }

// Copies a record's n bytes. Most records are a few dozen bytes: two overlapping moves of a fixed
// size copy them without a call.
inline void copyRecord(uint8_t* to, const uint8_t* from, int32_t n) {
  if (n >= 32 && n <= 64) {
    std::memcpy(to, from, 32);
    std::memcpy(to + n - 32, from + n - 32, 32);
  } else if (n >= 16 && n < 32) {
    std::memcpy(to, from, 16);
    std::memcpy(to + n - 16, from + n - 16, 16);
  } else if (n >= 8 && n < 16) {
    std::memcpy(to, from, 8);
    std::memcpy(to + n - 8, from + n - 8, 8);
  } else {
    std::memcpy(to, from, size_t(n));
  }
}

}  // namespace zove

// Message words and four-character codes.
//
// A message word is pointer-wide so that objects and addresses travel in it unchanged. The
// system's 32-bit values (DL numbers, FourCCs, codes, immediate values) travel sign-extended
// from int32_t, so a word compares equal to the 32-bit value it carries once both are narrowed.
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

namespace zelkor {

using Word = intptr_t;
using FourCC = uint32_t;

// "Setu" -> 0x53657475: the first character in the most significant byte.
constexpr FourCC fc(const char (&s)[5]) {
  return FourCC(uint8_t(s[0])) << 24 | FourCC(uint8_t(s[1])) << 16 | FourCC(uint8_t(s[2])) << 8 |
         FourCC(uint8_t(s[3]));
}

// Narrows a word to the 32-bit value it carries.
constexpr int32_t i32(Word w) { return int32_t(uint32_t(uint64_t(w))); }
constexpr uint32_t u32(Word w) { return uint32_t(uint64_t(w)); }

// Widens any argument to a word: 32-bit values sign-extend, pointers keep their address.
template <class T>
constexpr Word toWord(T v) {
  if constexpr (std::is_pointer_v<T>) {
    return reinterpret_cast<Word>(v);
  } else if constexpr (std::is_same_v<T, std::nullptr_t>) {
    return 0;
  } else if constexpr (std::is_enum_v<T>) {
    return toWord(std::underlying_type_t<T>(v));
  } else if constexpr (sizeof(T) <= 4) {
    return Word(int32_t(v));
  } else {
    return Word(v);
  }
}

template <class T>
T* asPtr(Word w) {
  return reinterpret_cast<T*>(w);
}

// The four characters of a code; bytes outside 32..126 are shown as \xNN.
std::string fcString(FourCC code);

}  // namespace zelkor

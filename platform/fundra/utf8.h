// UTF-8 helpers shared by the text classes.
//
// Every text in the foundation library is well-formed UTF-8 without NUL bytes: decoding rejects
// overlong forms, surrogates and code points above U+10FFFF, and Sanitize replaces whatever it
// rejects by U+FFFD so that text from outside can always be taken in.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace fundra::utf8 {

constexpr char32_t kReplacement = 0xFFFD;

// Decodes the code point at text[at]. Answers the number of bytes it takes (1 to 4) and stores
// the code point, or answers 0 when the bytes there are not a well-formed, non-NUL sequence.
int Decode(std::string_view text, size_t at, char32_t* cp);
// Appends the UTF-8 form of cp; anything that is not a scalar value (or is NUL) gives U+FFFD.
void Append(std::string& out, char32_t cp);
// True when every byte belongs to a well-formed sequence and there is no NUL.
bool IsValid(std::string_view text);
// The text with every ill-formed byte (and NUL) replaced by U+FFFD.
std::string Sanitize(std::string_view text);
// Number of code points of valid text.
int32_t Count(std::string_view text);
// Byte offset of code point number index (or text.size() past the end) of valid text.
size_t OffsetOf(std::string_view text, int32_t index);

}  // namespace fundra::utf8

// Answer codes by name: every library registers the codes it answers, so that logs, tools and
// the shell print "-808 (kNoItem)" and a sentence rather than a bare number.
//
// Each library owns a range of numbers (docs/codes.md tables them all); a number belongs to one
// library only. Libraries register their table from a static initializer, as classes register
// their boot procedures.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zelkor {

struct CodeInfo {
  int32_t code;
  const char* name;  // the constant's name in the code, such as "kNoItem"
  const char* text;  // one sentence: what went wrong
};

// Registers a library's codes; answers 0, so that it can initialise a static.
int registerCodes(const char* library, const CodeInfo* codes, size_t count);

// The registration of a code, or null when no library registered it.
struct RegisteredCode {
  const char* library;
  CodeInfo info;
};
const RegisteredCode* findCode(int32_t code);

// "-808 (kNoItem)"; a code nobody registered, or one not below 0, is its number alone.
std::string codeName(int32_t code);
// "-808 (kNoItem): no item with the key, no such list element, no module DL"; as codeName when
// the code is not registered.
std::string codeText(int32_t code);

// Every registration, in registration order (a number registered twice appears twice: the
// tests check that none is).
std::vector<RegisteredCode> registeredCodes();

}  // namespace zelkor

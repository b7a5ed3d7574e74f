// Keyed string tables and tokens.
//
// Every user-visible word comes from here: texts by a 16-bit table number and a FourCC key, and
// short texts by token number (day and month names and the pieces the date placeholders and
// ordinals are made of). The host loads them from readable text files (app/texts/, format in
// docs/texts.md); tests may define texts directly. The tables are shared by the whole process and
// may be read from any thread; loading is meant for start-up.
//
// Token numbers:
//   1, 2     "AM", "PM"                 (the %A time placeholder)
//   8..14    Sunday .. Saturday         (token = weekday + 8, weekday as TDate::GetDOW)
//   15..26   January .. December        (the %D date placeholder)
//   29..35   Sundays .. Saturdays       (plural day names, token = weekday + 29)
//   36..39   ordinal suffixes: other, after 1, after 2, after 3 ("th", "st", "nd", "rd")
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/zelkor/word.h"

namespace fundra {

constexpr int32_t kTokenAm = 1;
constexpr int32_t kTokenPm = 2;
constexpr int32_t kTokenSunday = 8;
constexpr int32_t kTokenJanuary = 15;
constexpr int32_t kTokenSundays = 29;
constexpr int32_t kTokenOrdinalOther = 36;

// Reads texts in the file format of docs/texts.md. Lines that cannot be read are skipped and
// described in problems as "name:line: what". Answers the number of texts defined.
int32_t LoadTextSource(std::string_view source, std::string_view name,
                       std::vector<std::string>* problems = nullptr);
constexpr int32_t kTextNoSource = -1711;  // a text file or folder that cannot be opened

// The same for one file; kTextNoSource when it cannot be opened.
int32_t LoadTextFile(const std::string& path, std::vector<std::string>* problems = nullptr);
// Every "*.txt" file of the folder, in name order; kTextNoSource when the folder cannot
// be read.
int32_t LoadTextFolder(const std::string& folder, std::vector<std::string>* problems = nullptr);

void DefineKString(uint16_t table, zelkor::FourCC key, std::string_view text);
void DefineToken(int32_t token, std::string_view text);
// Forgets every text and token.
void ClearKStrings();

// True and the text when (table, key) is defined.
bool FindKString(uint16_t table, zelkor::FourCC key, std::string* text);
bool FindToken(int32_t token, std::string* text);

// The marker shown in place of a missing text: "[?18130.SmTd]", "[?token 9]".
std::string MissingKeyMarker(uint16_t table, zelkor::FourCC key);
std::string MissingTokenMarker(int32_t token);

// Every table and token, sorted, one "table key = text" line each, in the file format.
std::string DumpKStrings();

}  // namespace fundra

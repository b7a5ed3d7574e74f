// Arguments of formats and outputs of scans.
//
// A format argument is a number, a text or a date; it records which, so that a placeholder given
// the wrong kind shows a marker instead of reading a number as an address.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

namespace fundra {

class TString;
class TDate;

class FormatArg {
 public:
  enum class Kind { kNumber, kText, kChars, kDate, kNull };

  template <class T>
  requires std::is_integral_v<T> || std::is_enum_v<T> FormatArg(T v)
      : kind_(Kind::kNumber), number_(int64_t(v)) {}
  FormatArg(const TString& s) : kind_(Kind::kText), text_(&s) {}
  FormatArg(const TString* s) : kind_(s ? Kind::kText : Kind::kNull), text_(s) {}
  FormatArg(TString* s) : FormatArg(static_cast<const TString*>(s)) {}
  FormatArg(const char* s) : kind_(s ? Kind::kChars : Kind::kNull), chars_(s) {}
  FormatArg(const TDate& d) : kind_(Kind::kDate), date_(&d) {}
  FormatArg(const TDate* d) : kind_(d ? Kind::kDate : Kind::kNull), date_(d) {}
  FormatArg(TDate* d) : FormatArg(static_cast<const TDate*>(d)) {}
  FormatArg(std::nullptr_t) : kind_(Kind::kNull) {}

  Kind kind() const { return kind_; }
  int64_t number() const { return number_; }
  const TString* text() const { return text_; }
  const char* chars() const { return chars_; }
  const TDate* date() const { return date_; }

 private:
  Kind kind_;
  int64_t number_ = 0;
  const TString* text_ = nullptr;
  const char* chars_ = nullptr;
  const TDate* date_ = nullptr;
};

class ScanArg {
 public:
  enum class Kind { kText, kNumber, kCode };
  ScanArg(TString* s) : kind_(Kind::kText), text_(s) {}
  ScanArg(int32_t* n) : kind_(Kind::kNumber), number_(n) {}
  ScanArg(uint32_t* code) : kind_(Kind::kCode), code_(code) {}

  Kind kind() const { return kind_; }
  TString* text() const { return text_; }
  int32_t* number() const { return number_; }
  uint32_t* code() const { return code_; }

 private:
  Kind kind_;
  TString* text_ = nullptr;
  int32_t* number_ = nullptr;
  uint32_t* code_ = nullptr;
};

}  // namespace fundra

// TString: Unicode text, the foundation's string class.
//
// The text is held as UTF-8. Invariants (CheckText collects every violation):
//   1. the bytes are well-formed UTF-8;
//   2. there is no NUL byte (texts cross into C interfaces and file lines).
// Whatever comes in from outside (Set, Append, Import, OldImport) is made to satisfy them:
// ill-formed bytes become U+FFFD. Lengths and indexes count characters (code points).
//
// Formats (SPrintf, ParseTemplate) and scans (Scan) use the small language of format.h and
// docs/texts.md; keyed texts come from the tables of kstrings.h.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/fundra/form_codes.h"
#include "platform/fundra/format_args.h"
#include "platform/zelkor/word.h"

namespace fundra {

class TString {
 public:
  TString() = default;
  explicit TString(std::string_view utf8) { Set(utf8); }
  explicit TString(const char* utf8) { Set(utf8 ? std::string_view(utf8) : std::string_view()); }
  // The keyed text (table, key), or the marker "[?table.key]" when the tables lack it.
  TString(uint16_t table, zelkor::FourCC key);

  void Clear() { text_.clear(); }
  bool IsEmpty() const { return text_.empty(); }
  int32_t Length() const;  // characters
  int32_t ByteLength() const { return int32_t(text_.size()); }
  std::string_view View() const { return text_; }
  const char* CStr() const { return text_.c_str(); }

  TString& Set(std::string_view utf8);
  TString& Append(const TString& other);
  TString& Append(std::string_view utf8);
  TString& AppendChar(char32_t cp);
  // The first n characters (all of them when n is at least Length; none when n <= 0).
  TString Left(int32_t n) const;
  // The character at index, or 0 outside the text.
  char32_t GetAt(int32_t index) const;

  bool operator==(const TString& other) const { return text_ == other.text_; }
  bool operator==(std::string_view utf8) const { return text_ == utf8; }

  // Orders two texts as a person expects names ordered: letters before case and accents, digit
  // runs by their value ("File 9" before "File 10"). Option 0 answers 0 for texts that differ
  // only in ways the collation ignores; option 1 breaks such ties by the bytes, so that it answers
  // 0 only for equal texts. Answers -1, 0 or 1.
  static int32_t Compare(const TString& a, const TString& b, int32_t option);

  // Loads the keyed text (table, key): 1 when found, 0 when missing (the string is then empty).
  int32_t LoadKString(uint16_t table, zelkor::FourCC key);
  // The text of token n (day and month names and the like, see kstrings.h); the form is 0 (other
  // values are reserved and give the same text). A missing token gives "[?token n]".
  static TString TokenToString(int32_t token, int32_t form);
  // n with its English ordinal suffix from the tokens: 1st, 2nd, 3rd, 4th, 11th, 21st.
  static TString FormatOrdinal(int64_t n);

  // Replaces the text by the format filled with the arguments (numbers, texts, dates). The
  // format is a text, a TString, or the keyed text (table, key).
  template <class... A>
  TString& SPrintf(std::string_view format, const A&... args) {
    return Format(format, {FormatArg(args)...});
  }
  template <class... A>
  TString& SPrintf(const TString& format, const A&... args) {
    return Format(format.View(), {FormatArg(args)...});
  }
  template <class... A>
  TString& SPrintf(uint16_t table, zelkor::FourCC key, const A&... args) {
    return FormatKeyed(table, key, {FormatArg(args)...});
  }
  // The same language: templates are formats that choose among alternatives by a number.
  template <class... A>
  TString& ParseTemplate(std::string_view tmpl, const A&... args) {
    return Format(tmpl, {FormatArg(args)...});
  }
  template <class... A>
  TString& ParseTemplate(uint16_t table, zelkor::FourCC key, const A&... args) {
    return FormatKeyed(table, key, {FormatArg(args)...});
  }
  // Matches the whole text against a pattern and fills the outputs (TString*, int32_t*,
  // uint32_t* for %y). Answers the number of fields filled, or 0 when the text does not match
  // (the outputs are then untouched).
  template <class... A>
  int32_t Scan(std::string_view pattern, A*... outs) const {
    return ScanWith(pattern, {ScanArg(outs)...});
  }
  template <class... A>
  int32_t Scan(uint16_t table, zelkor::FourCC key, A*... outs) const {
    return ScanKeyed(table, key, {ScanArg(outs)...});
  }

  // The export form (codes and use: docs/formats.md), StoreSize 8 + n bytes:
  //   offset  width  field  meaning
  //   0       4      head   "TS", version 1, 0 (form_bytes.h)
  //   4       4      n      the byte length of the text, little-endian
  //   8       n      text   UTF-8, well-formed, no NUL
  // Import's size is the bytes available (negative: unknown, the form's own length is trusted);
  // it answers the bytes read. Export answers the bytes written.
  int32_t StoreSize() const { return 8 + ByteLength(); }
  int32_t Export(void* data, int64_t size, int32_t option = 0) const;
  int32_t Import(const void* data, int64_t size, int32_t option = 0);
  // The older form, which Import refuses (its first four bytes cannot be "TS", 1, 0):
  //   offset  width  field  meaning
  //   0       1      n      the length in bytes, 0 to 255
  //   1       n      text   ISO 8859-1, no NUL
  // Answers the bytes read. size bounds the read as for Import.
  int32_t OldImport(const void* data, int32_t option = 0, int64_t size = -1);
  int32_t OldStoreSize() const;  // for writers of test data; texts past 255 bytes answer -1
  int32_t OldExport(void* data, int64_t size) const;

  // Readable form for dumps and test messages: the text in quotes.
  std::string Dump() const { return "\"" + text_ + "\""; }

 private:
  TString& Format(std::string_view format, std::initializer_list<FormatArg> args);
  TString& FormatKeyed(uint16_t table, zelkor::FourCC key, std::initializer_list<FormatArg> args);
  int32_t ScanWith(std::string_view pattern, std::initializer_list<ScanArg> outs) const;
  int32_t ScanKeyed(uint16_t table, zelkor::FourCC key, std::initializer_list<ScanArg> outs) const;

  std::string text_;
};

// The violations of the invariants above, one line each; empty when sound.
std::vector<std::string> CheckText(const TString& s);

}  // namespace fundra

// Feeds arbitrary bytes to every importer of the text area, to the format language as a format,
// and to the text file reader. An importer must answer below 0 and leave its value reset, or
// answer how many bytes it read (never more than it was given) with a value that exports back to
// exactly those bytes.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "platform/fundra/kstrings.h"
#include "platform/fundra/resource.h"
#include "platform/fundra/tdate.h"
#include "platform/fundra/tstring.h"

namespace {

using namespace fundra;

void Require(bool ok) {
  if (!ok) std::abort();
}

template <class T>
void Check(const uint8_t* data, size_t size, int32_t (T::*import)(const void*, int64_t, int32_t)) {
  // A copy of exactly size bytes, so that the sanitizer sees any read past them.
  std::vector<uint8_t> bytes(data, data + size);
  T v;
  int32_t r = (v.*import)(bytes.data(), int64_t(size), 0);
  if (r < 0) {
    Require(v == T());
    return;
  }
  Require(size_t(r) <= size && r == v.StoreSize());
  std::vector<uint8_t> out(size_t(v.StoreSize()));
  Require(v.Export(out.data(), int64_t(out.size()), 0) == r);
  Require(std::memcmp(out.data(), bytes.data(), out.size()) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Check<TString>(data, size, &TString::Import);
  Check<TDate>(data, size, &TDate::Import);
  Check<TDateStep>(data, size, &TDateStep::Import);
  Check<TInterval>(data, size, &TInterval::Import);

  std::vector<uint8_t> bytes(data, data + size);
  TString old;
  int32_t r = old.OldImport(bytes.data(), 0, int64_t(size));
  Require(r < 0 ? old.IsEmpty() : size_t(r) <= size && CheckText(old).empty());

  TLocHandle loc;
  if (loc.Import(bytes.data(), int64_t(size)) < 0) Require(loc.IsEmpty());

  std::string_view text(reinterpret_cast<const char*>(data), size);
  TString s("x");
  TDate d(2026, 11, 23, 8, 30);
  s.SPrintf(text, 1, -2, TString("t"), d, "c", 0x53657475);
  Require(CheckText(s).empty());
  int32_t n = 0;
  uint32_t code = 0;
  TString base, subject(text.substr(0, 256));
  if (subject.Scan("%s copy %~d", &base, &n) == 2) Require(!base.IsEmpty());
  subject.Scan("%y", &code);

  LoadTextSource(text, "fuzz");
  ClearKStrings();
  return 0;
}

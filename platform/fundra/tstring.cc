#include "platform/fundra/tstring.h"

#include <unicode/ucol.h>

#include <memory>

#include "platform/fundra/form_bytes.h"
#include "platform/fundra/utf8.h"

namespace fundra {

namespace {
constexpr char kMagic[2] = {'T', 'S'};
constexpr int kHeadAndLength = 8;
}  // namespace

int32_t TString::Length() const { return utf8::Count(text_); }

TString& TString::Set(std::string_view utf8) {
  text_ = utf8::IsValid(utf8) ? std::string(utf8) : utf8::Sanitize(utf8);
  return *this;
}

TString& TString::Append(const TString& other) {
  text_ += other.text_;
  return *this;
}

TString& TString::Append(std::string_view utf8) {
  if (utf8::IsValid(utf8)) {
    text_ += utf8;
  } else {
    text_ += utf8::Sanitize(utf8);
  }
  return *this;
}

TString& TString::AppendChar(char32_t cp) {
  utf8::Append(text_, cp);
  return *this;
}

TString TString::Left(int32_t n) const {
  TString out;
  out.text_ = text_.substr(0, utf8::OffsetOf(text_, n));
  return out;
}

char32_t TString::GetAt(int32_t index) const {
  if (index < 0) return 0;
  size_t at = utf8::OffsetOf(text_, index);
  char32_t cp = 0;
  return utf8::Decode(text_, at, &cp) ? cp : 0;
}

// One collator per thread and option: ICU collators are cheap to keep and not meant to be shared
// between threads while in use. Root rules (no locale tailoring) keep the order the same on every
// machine; numeric ordering makes digit runs compare by value.
static UCollator* Collator() {
  struct Closer {
    void operator()(UCollator* c) const { ucol_close(c); }
  };
  thread_local std::unique_ptr<UCollator, Closer> collator = [] {
    UErrorCode err = U_ZERO_ERROR;
    UCollator* c = ucol_open("", &err);
    if (U_FAILURE(err)) return std::unique_ptr<UCollator, Closer>();
    ucol_setAttribute(c, UCOL_NUMERIC_COLLATION, UCOL_ON, &err);
    ucol_setAttribute(c, UCOL_STRENGTH, UCOL_TERTIARY, &err);
    return std::unique_ptr<UCollator, Closer>(c);
  }();
  return collator.get();
}

int32_t TString::Compare(const TString& a, const TString& b, int32_t option) {
  int32_t r = 0;
  if (UCollator* c = Collator()) {
    UErrorCode err = U_ZERO_ERROR;
    UCollationResult cr =
        ucol_strcollUTF8(c, a.text_.data(), a.ByteLength(), b.text_.data(), b.ByteLength(), &err);
    if (U_SUCCESS(err)) r = cr == UCOL_LESS ? -1 : cr == UCOL_GREATER ? 1 : 0;
  }
  if (r == 0 && option == 1) r = a.text_.compare(b.text_);
  return r < 0 ? -1 : r > 0 ? 1 : 0;
}

int32_t TString::Export(void* data, int64_t size, int32_t option) const {
  if (int32_t bad = form::CheckExport(data, size, option, StoreSize())) return bad;
  form::Writer w(data);
  w.Head(kMagic);
  w.U32(uint32_t(text_.size()));
  w.Bytes(text_.data(), text_.size());
  return StoreSize();
}

int32_t TString::Import(const void* data, int64_t size, int32_t option) {
  Clear();
  if (option != 0) return kFormBadOption;
  form::Reader r(data, size);
  if (int32_t bad = r.Head(kMagic)) return bad;
  if (!r.Has(4)) return kFormTruncated;
  uint32_t n = r.U32();
  if (n > uint32_t(INT32_MAX - kHeadAndLength)) return kFormDamaged;
  if (!r.Has(n)) return kFormTruncated;
  std::string_view bytes(reinterpret_cast<const char*>(r.Bytes(n)), n);
  if (!utf8::IsValid(bytes)) return kFormDamaged;
  text_ = bytes;
  return int32_t(r.used());
}

int32_t TString::OldImport(const void* data, int32_t option, int64_t size) {
  Clear();
  if (option != 0) return kFormBadOption;
  if (data == nullptr || size == 0) return kFormTruncated;
  const uint8_t* p = static_cast<const uint8_t*>(data);
  uint8_t n = p[0];
  if (size >= 0 && size < 1 + int64_t(n)) return kFormTruncated;
  for (int i = 1; i <= n; ++i) {
    // ISO 8859-1 maps byte b to U+00b; NUL has no place in a text.
    if (p[i] == 0) {
      Clear();
      return kFormDamaged;
    }
    utf8::Append(text_, p[i]);
  }
  return 1 + n;
}

int32_t TString::OldStoreSize() const {
  int32_t n = 0;
  char32_t cp;
  for (size_t i = 0; i < text_.size(); ++n) {
    int len = utf8::Decode(text_, i, &cp);
    if (len == 0 || cp > 0xFF) return -1;
    i += len;
  }
  return n > 255 ? -1 : 1 + n;
}

int32_t TString::OldExport(void* data, int64_t size) const {
  int32_t need = OldStoreSize();
  if (need < 0) return kFormDamaged;
  if (data == nullptr || size < need) return kFormNoRoom;
  uint8_t* p = static_cast<uint8_t*>(data);
  *p++ = uint8_t(need - 1);
  char32_t cp;
  for (size_t i = 0; i < text_.size();) {
    i += utf8::Decode(text_, i, &cp);
    *p++ = uint8_t(cp);
  }
  return need;
}

std::vector<std::string> CheckText(const TString& s) {
  std::vector<std::string> out;
  std::string bytes(s.View());
  if (bytes.find('\0') != std::string::npos) {
    out.push_back("2: the text holds a NUL byte");
    for (char& c : bytes)
      if (c == 0) c = ' ';
  }
  if (!utf8::IsValid(bytes)) out.push_back("1: the text is not well-formed UTF-8");
  return out;
}

}  // namespace fundra

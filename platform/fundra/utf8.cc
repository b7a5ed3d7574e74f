#include "platform/fundra/utf8.h"

namespace fundra::utf8 {

int Decode(std::string_view text, size_t at, char32_t* cp) {
  if (at >= text.size()) return 0;
  auto b = [&](size_t i) { return uint8_t(text[at + i]); };
  uint8_t lead = b(0);
  int len;
  char32_t v;
  if (lead < 0x80) {
    if (lead == 0) return 0;
    *cp = lead;
    return 1;
  } else if (lead >= 0xC2 && lead <= 0xDF) {
    len = 2, v = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    len = 3, v = lead & 0x0F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    len = 4, v = lead & 0x07;
  } else {
    return 0;
  }
  if (text.size() - at < size_t(len)) return 0;
  for (int i = 1; i < len; ++i) {
    if ((b(i) & 0xC0) != 0x80) return 0;
    v = v << 6 | (b(i) & 0x3F);
  }
  // Overlong forms, surrogates and values past the last plane are not text.
  if ((len == 3 && v < 0x800) || (len == 4 && (v < 0x10000 || v > 0x10FFFF)) ||
      (v >= 0xD800 && v <= 0xDFFF))
    return 0;
  *cp = v;
  return len;
}

void Append(std::string& out, char32_t cp) {
  if (cp == 0 || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) cp = kReplacement;
  if (cp < 0x80) {
    out += char(cp);
  } else if (cp < 0x800) {
    out += char(0xC0 | cp >> 6);
    out += char(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += char(0xE0 | cp >> 12);
    out += char(0x80 | (cp >> 6 & 0x3F));
    out += char(0x80 | (cp & 0x3F));
  } else {
    out += char(0xF0 | cp >> 18);
    out += char(0x80 | (cp >> 12 & 0x3F));
    out += char(0x80 | (cp >> 6 & 0x3F));
    out += char(0x80 | (cp & 0x3F));
  }
}

bool IsValid(std::string_view text) {
  char32_t cp;
  for (size_t i = 0; i < text.size();) {
    // Plain ASCII (the bulk of every format) needs no decoding, only the NUL test.
    if (uint8_t(text[i]) - 1u < 0x7Fu) {
      ++i;
      continue;
    }
    int n = Decode(text, i, &cp);
    if (n == 0) return false;
    i += n;
  }
  return true;
}

std::string Sanitize(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  char32_t cp;
  for (size_t i = 0; i < text.size();) {
    int n = Decode(text, i, &cp);
    if (n == 0) {
      Append(out, kReplacement);
      ++i;
    } else {
      out.append(text.substr(i, n));
      i += n;
    }
  }
  return out;
}

int32_t Count(std::string_view text) {
  int32_t n = 0;
  for (unsigned char c : text) n += (c & 0xC0) != 0x80;
  return n;
}

size_t OffsetOf(std::string_view text, int32_t index) {
  if (index <= 0) return 0;
  int32_t seen = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if ((uint8_t(text[i]) & 0xC0) != 0x80 && seen++ == index) return i;
  }
  return text.size();
}

}  // namespace fundra::utf8

// Scan: matching a text against a pattern of literal characters and fields (docs/texts.md).
//
//   %s   one or more characters, shortest first, backing up as the rest of the pattern needs
//   %d   %~d   a decimal 32-bit number with an optional sign
//   %y   exactly four ASCII characters, as a FourCC
//   %%   a percent sign; any other character matches itself
// The whole text must match; the outputs are written only then.
#include <string>
#include <vector>

#include "platform/fundra/debug.h"
#include "platform/fundra/kstrings.h"
#include "platform/fundra/tstring.h"
#include "platform/fundra/utf8.h"

namespace fundra {

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

struct Capture {
  std::string text;
  int64_t number = 0;
};

struct Matcher {
  std::string_view pat, text;
  std::vector<Capture> caps;
  long budget = 200000;  // bounds the backtracking of several %s in one pattern

  bool Match(size_t p, size_t t) {
    if (--budget < 0) return false;
    if (p == pat.size()) return t == text.size();
    if (pat[p] != '%' || p + 1 >= pat.size() || pat[p + 1] == '%') {
      // A literal; "%%" stands for one '%', and so does a '%' that ends the pattern.
      size_t width = pat[p] == '%' && p + 1 < pat.size() ? 2 : 1;
      return t < text.size() && text[t] == pat[p] && Match(p + width, t + 1);
    }
    size_t q = p + 1;
    if (pat[q] == '~') ++q;
    if (q >= pat.size()) return false;
    char conv = pat[q++];
    if (conv == 's') {
      // Shortest text first, a whole character at a time, at least one character.
      char32_t cp;
      for (size_t end = t; end < text.size();) {
        int n = utf8::Decode(text, end, &cp);
        if (n == 0) return false;
        end += n;
        caps.push_back({std::string(text.substr(t, end - t)), 0});
        if (Match(q, end)) return true;
        caps.pop_back();
      }
      return false;
    }
    if (conv == 'd') {
      size_t e = t;
      bool sign = e < text.size() && (text[e] == '-' || text[e] == '+');
      if (sign) ++e;
      int64_t v = 0;
      size_t digits = e;
      for (; e < text.size() && IsDigit(text[e]) && e - digits < 10; ++e)
        v = v * 10 + (text[e] - '0');
      if (e == digits) return false;
      if (text[t] == '-') v = -v;
      if (v < INT32_MIN || v > INT32_MAX) return false;
      caps.push_back({"", v});
      if (Match(q, e)) return true;
      caps.pop_back();
      return false;
    }
    if (conv == 'y') {
      if (text.size() - t < 4) return false;
      uint32_t code = 0;
      for (int k = 0; k < 4; ++k) {
        uint8_t b = uint8_t(text[t + k]);
        if (b >= 0x80) return false;
        code = code << 8 | b;
      }
      caps.push_back({"", int64_t(code)});
      if (Match(q, t + 4)) return true;
      caps.pop_back();
      return false;
    }
    return false;
  }
};

// The conversion letters of a pattern's fields, in order.
std::string Fields(std::string_view pat) {
  std::string out;
  for (size_t i = 0; i + 1 < pat.size(); ++i) {
    if (pat[i] != '%') continue;
    if (pat[i + 1] == '%') {
      ++i;
      continue;
    }
    size_t q = i + 1 + (pat[i + 1] == '~');
    if (q < pat.size()) out += pat[q];
    i = q;
  }
  return out;
}

}  // namespace

int32_t TString::ScanWith(std::string_view pattern, std::initializer_list<ScanArg> outs) const {
  std::string fields = Fields(pattern);
  bool fits = fields.size() == outs.size();
  for (size_t k = 0; fits && k < fields.size(); ++k) {
    ScanArg::Kind want = fields[k] == 's'   ? ScanArg::Kind::kText
                         : fields[k] == 'y' ? ScanArg::Kind::kCode
                                            : ScanArg::Kind::kNumber;
    fits = std::string_view("sdy").find(fields[k]) != std::string_view::npos &&
           outs.begin()[k].kind() == want;
  }
  // A pattern whose fields do not fit the outputs is the caller's mistake.
  if (!Check(fits, "format", __LINE__)) return 0;
  Matcher m{pattern, text_, {}};
  if (!m.Match(0, 0)) return 0;
  for (size_t k = 0; k < m.caps.size(); ++k) {
    const ScanArg& o = outs.begin()[k];
    if (o.kind() == ScanArg::Kind::kText) o.text()->Set(m.caps[k].text);
    if (o.kind() == ScanArg::Kind::kNumber) *o.number() = int32_t(m.caps[k].number);
    if (o.kind() == ScanArg::Kind::kCode) *o.code() = uint32_t(m.caps[k].number);
  }
  return int32_t(m.caps.size());
}

int32_t TString::ScanKeyed(uint16_t table, zelkor::FourCC key,
                           std::initializer_list<ScanArg> outs) const {
  std::string pattern;
  if (!FindKString(table, key, &pattern)) return 0;
  return ScanWith(pattern, outs);
}

}  // namespace fundra

// The format language of SPrintf and ParseTemplate (docs/texts.md).
//
//   %[n$][flags][width]conv   a placeholder: argument n (1-based), or the one after the last
//                             unnumbered placeholder; flags ~ (narrow to the 32-bit word),
//                             0 (pad with zeros), - (pad on the right)
//   conv   d signed decimal   u unsigned 32-bit   x X hexadecimal 32-bit   c character
//          s text             Y FourCC or text    E error code
//          D long date  N numeric date  T time 24 h  A time 12 h  W weekday  Z full stamp
//   %% %{ %| %}               the character itself
//   {n:a|b|c}                 alternative number (value of argument n), counted from 0
//   {n#one|other}             plural: "one" for 1; {n#zero|one|other} also picks "zero" for 0
// Whatever cannot be honoured shows a marker "[?...]" in the text; nothing is read past the
// arguments given. Only placeholders in the chosen alternative take arguments.
#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <optional>

#include "platform/fundra/kstrings.h"
#include "platform/fundra/tdate.h"
#include "platform/fundra/tstring.h"
#include "platform/fundra/utf8.h"
#include "platform/zelkor/codes.h"

namespace fundra {

namespace {

constexpr int kMaxDepth = 8;  // nested choices; deeper braces are plain text

struct Ctx {
  std::span<const FormatArg> args;
  size_t next = 0;  // the argument an unnumbered placeholder takes
  int depth = 0;
};

struct Spec {
  size_t position = 0;  // 1-based; 0 for the next argument
  bool narrow = false, zero = false, left = false;
  int width = 0;
  char conv = 0;
};

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Reads a decimal number of at most 4 digits at f[i]; answers -1 when there is none.
int ReadSmall(std::string_view f, size_t& i) {
  if (i >= f.size() || !IsDigit(f[i])) return -1;
  int v = 0;
  for (int k = 0; i < f.size() && IsDigit(f[i]); ++i, ++k)
    if (k < 4) v = v * 10 + (f[i] - '0');
  return v;
}

void Pad(std::string& out, const std::string& body, const Spec& s, bool numeric) {
  int len = utf8::Count(body);
  if (len >= s.width) {
    out += body;
  } else if (s.left) {
    out += body;
    out.append(size_t(s.width - len), ' ');
  } else if (s.zero && numeric) {
    size_t sign = !body.empty() && body[0] == '-';
    out += body.substr(0, sign);
    out.append(size_t(s.width - len), '0');
    out += body.substr(sign);
  } else {
    out.append(size_t(s.width - len), ' ');
    out += body;
  }
}

std::string Token(int32_t n) { return std::string(TString::TokenToString(n, 0).View()); }

std::string Two(int v) {
  char b[8];
  std::snprintf(b, sizeof b, "%02d", v);
  return b;
}

std::optional<std::string> DateText(char conv, const TDate& d) {
  switch (conv) {
    case 'D':
      return Token(kTokenSunday + d.GetDOW()) + " " + std::to_string(d.GetDay()) + " " +
             Token(kTokenJanuary + d.GetMonth() - 1) + " " + std::to_string(d.GetYear());
    case 'N': {
      char b[24];
      std::snprintf(b, sizeof b, "%04d-%02d-%02d", d.GetYear(), d.GetMonth(), d.GetDay());
      return b;
    }
    case 'T':
      return std::to_string(d.GetHour()) + ":" + Two(d.GetMinute());
    case 'A': {
      int h = d.GetHour() % 12;
      return std::to_string(h == 0 ? 12 : h) + ":" + Two(d.GetMinute()) + " " +
             Token(d.GetHour() < 12 ? kTokenAm : kTokenPm);
    }
    case 'W':
      return Token(kTokenSunday + d.GetDOW());
    case 'Z':
      return d.IsDefault() ? TDate(1, 1, 1).Dump() : d.Dump();
  }
  return std::nullopt;
}

// The text of one placeholder, or nothing when the argument is of the wrong kind.
std::optional<std::string> Convert(const Spec& s, const FormatArg& a) {
  using K = FormatArg::Kind;
  char buf[32];
  switch (s.conv) {
    case 'd':
    case 'E':
      if (a.kind() != K::kNumber) return std::nullopt;
      // Answer codes read the same in texts as in log lines: codeName is the one place that
      // renders them (as fcString is for FourCCs).
      if (s.conv == 'E') return zelkor::codeName(int32_t(a.number()));
      if (s.narrow) return std::to_string(int32_t(a.number()));
      return std::to_string(a.number());
    case 'u':
      if (a.kind() != K::kNumber) return std::nullopt;
      return std::to_string(uint32_t(a.number()));
    case 'x':
    case 'X':
      if (a.kind() != K::kNumber) return std::nullopt;
      {
        char* end = std::to_chars(buf, buf + sizeof buf, uint32_t(a.number()), 16).ptr;
        if (s.conv == 'X')
          std::transform(buf, end, buf, [](char ch) { return char(std::toupper(ch)); });
        return std::string(buf, end);
      }
    case 'c': {
      if (a.kind() != K::kNumber) return std::nullopt;
      std::string out;
      utf8::Append(out, char32_t(uint32_t(a.number())));
      return out;
    }
    case 's':
    case 'Y':
      if (a.kind() == K::kText) return std::string(a.text()->View());
      if (a.kind() == K::kChars) return utf8::Sanitize(a.chars());
      if (s.conv == 'Y' && a.kind() == K::kNumber) return zelkor::fcString(uint32_t(a.number()));
      return std::nullopt;
    default:
      if (a.kind() != K::kDate) return std::nullopt;
      return DateText(s.conv, *a.date());
  }
}

bool KnownConv(char c) {
  switch (c) {
    case 'd':
    case 'u':
    case 'x':
    case 'X':
    case 'c':
    case 's':
    case 'Y':
    case 'E':
    case 'D':
    case 'N':
    case 'T':
    case 'A':
    case 'W':
    case 'Z':
      return true;
  }
  return false;
}

size_t Render(std::string_view f, size_t i, bool emit, bool in_choice, Ctx& ctx, std::string& out);

// A placeholder starting at f[i] == '%'; answers the position after it.
size_t Placeholder(std::string_view f, size_t i, bool emit, Ctx& ctx, std::string& out) {
  size_t start = i++;
  if (i >= f.size()) {
    if (emit) out += "[?%]";
    return i;
  }
  char c = f[i];
  if (c == '%' || c == '{' || c == '|' || c == '}') {
    if (emit) out += c;
    return i + 1;
  }
  Spec s;
  size_t j = i;
  int n = ReadSmall(f, j);
  if (n >= 1 && j < f.size() && f[j] == '$') {
    s.position = size_t(n);
    i = j + 1;
  }
  for (; i < f.size() && (f[i] == '~' || f[i] == '0' || f[i] == '-'); ++i) {
    s.narrow |= f[i] == '~';
    s.zero |= f[i] == '0';
    s.left |= f[i] == '-';
  }
  s.width = std::max(0, std::min(ReadSmall(f, i), 256));
  if (i >= f.size() || !KnownConv(f[i])) {
    // Unknown: show what was written, up to and including the offending character.
    size_t end = std::min(f.size(), i + 1);
    if (emit) out += "[?" + utf8::Sanitize(f.substr(start, end - start)) + "]";
    return end;
  }
  s.conv = f[i++];
  if (!emit) return i;
  size_t index = s.position ? s.position - 1 : ctx.next++;
  std::optional<std::string> text;
  if (index < ctx.args.size()) text = Convert(s, ctx.args[index]);
  if (!text) {
    out += "[?" + std::string(f.substr(start, i - start)) + "]";
  } else {
    Pad(out, *text, s, std::string_view("duxXE").find(s.conv) != std::string_view::npos);
  }
  return i;
}

// A choice starting at f[i] == '{' with its argument number and kind already read up to f[body].
size_t Choice(std::string_view f, size_t body, size_t arg, char kind, bool emit, Ctx& ctx,
              std::string& out) {
  // First pass: find the alternatives without rendering them.
  ++ctx.depth;
  std::string ignored;
  int count = 0;
  size_t i = body;
  bool closed = false;
  while (true) {
    i = Render(f, i, false, true, ctx, ignored);
    ++count;
    if (i >= f.size()) break;
    if (f[i++] == '}') {
      closed = true;
      break;
    }
  }
  size_t end = i;
  if (emit) {
    int chosen = -1;
    const FormatArg* a = arg >= 1 && arg <= ctx.args.size() ? &ctx.args[arg - 1] : nullptr;
    int64_t v = a && a->kind() == FormatArg::Kind::kNumber ? a->number() : -1;
    if (a && a->kind() == FormatArg::Kind::kNumber) {
      if (kind == ':' && v >= 0 && v < count) chosen = int(v);
      if (kind == '#' && count == 2) chosen = v == 1 ? 0 : 1;
      if (kind == '#' && count == 3) chosen = v == 0 ? 0 : v == 1 ? 1 : 2;
    }
    if (!closed || chosen < 0) {
      out += "[?{" + std::to_string(arg) + kind + (a ? std::to_string(v) : std::string("-")) +
             (closed ? "}]" : "]");
    } else {
      i = body;
      for (int k = 0; k <= chosen; ++k) {
        i = Render(f, i, k == chosen, true, ctx, out);
        ++i;
      }
    }
  }
  --ctx.depth;
  return end;
}

size_t Render(std::string_view f, size_t i, bool emit, bool in_choice, Ctx& ctx, std::string& out) {
  while (i < f.size()) {
    char c = f[i];
    if (c == '%') {
      i = Placeholder(f, i, emit, ctx, out);
    } else if (in_choice && (c == '|' || c == '}')) {
      return i;
    } else if (c == '{' && ctx.depth < kMaxDepth) {
      size_t j = i + 1;
      int n = ReadSmall(f, j);
      if (n >= 0 && j < f.size() && (f[j] == ':' || f[j] == '#')) {
        i = Choice(f, j + 1, size_t(n), f[j], emit, ctx, out);
      } else {
        if (emit) out += c;
        ++i;
      }
    } else {
      // A run of plain text up to the next character with a meaning.
      size_t end = i + 1;
      while (end < f.size() && f[end] != '%' && f[end] != '{' &&
             !(in_choice && (f[end] == '|' || f[end] == '}')))
        ++end;
      if (emit) out.append(f.substr(i, end - i));
      i = end;
    }
  }
  return i;
}

}  // namespace

TString& TString::Format(std::string_view format, std::initializer_list<FormatArg> args) {
  Ctx ctx{std::span<const FormatArg>(args.begin(), args.size())};
  std::string out;
  out.reserve(format.size() + 16);
  Render(format, 0, true, false, ctx, out);
  // Every piece is well-formed except what a malformed format brings in.
  text_ = utf8::IsValid(out) ? std::move(out) : utf8::Sanitize(out);
  return *this;
}

TString& TString::FormatKeyed(uint16_t table, zelkor::FourCC key,
                              std::initializer_list<FormatArg> args) {
  std::string format;
  if (!FindKString(table, key, &format)) {
    text_ = MissingKeyMarker(table, key);
    return *this;
  }
  return Format(format, args);
}

}  // namespace fundra

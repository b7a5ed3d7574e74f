#include "platform/fundra/kstrings.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <sstream>

#include "platform/fundra/tstring.h"
#include "platform/fundra/utf8.h"

namespace fundra {

namespace {

struct Tables {
  std::shared_mutex mu;
  std::map<uint64_t, std::string> texts;  // (table << 32 | key)
  std::map<int32_t, std::string> tokens;
};

Tables& tables() {
  static Tables t;
  return t;
}

uint64_t Slot(uint16_t table, zelkor::FourCC key) { return uint64_t(table) << 32 | key; }

// Undoes the escapes \n \t \\ \" of a value.
std::string Unescape(std::string_view v) {
  std::string out;
  for (size_t i = 0; i < v.size(); ++i) {
    if (v[i] == '\\' && i + 1 < v.size()) {
      char c = v[++i];
      out += c == 'n' ? '\n' : c == 't' ? '\t' : c;
    } else {
      out += v[i];
    }
  }
  return out;
}

std::string Escape(std::string_view v) {
  std::string out;
  for (char c : v) {
    if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else {
      if (c == '\\' || c == '"') out += '\\';
      out += c;
    }
  }
  return out;
}

// The value after '=': surrounding blanks dropped, unless the value is written in quotes.
std::string Value(std::string_view v) {
  while (!v.empty() && (v.front() == ' ' || v.front() == '\t')) v.remove_prefix(1);
  while (!v.empty() && (v.back() == ' ' || v.back() == '\t' || v.back() == '\r'))
    v.remove_suffix(1);
  if (v.size() >= 2 && v.front() == '"' && v.back() == '"' && v[v.size() - 2] != '\\')
    v = v.substr(1, v.size() - 2);
  return utf8::Sanitize(Unescape(v));
}

bool ParseHex(std::string_view s, uint32_t* out) {
  if (s.size() != 10 || s[0] != '0' || (s[1] != 'x' && s[1] != 'X')) return false;
  uint32_t v = 0;
  for (char c : s.substr(2)) {
    int d = c >= '0' && c <= '9'   ? c - '0'
            : c >= 'a' && c <= 'f' ? c - 'a' + 10
            : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                   : -1;
    if (d < 0) return false;
    v = v << 4 | uint32_t(d);
  }
  *out = v;
  return true;
}

bool ParseNumber(std::string_view s, int64_t max, int64_t* out) {
  if (s.empty() || s.size() > 10) return false;
  int64_t v = 0;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
    v = v * 10 + (c - '0');
  }
  if (v > max) return false;
  *out = v;
  return true;
}

std::string_view Trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r'))
    s.remove_suffix(1);
  return s;
}

}  // namespace

int32_t LoadTextSource(std::string_view source, std::string_view name,
                       std::vector<std::string>* problems) {
  enum { kNone, kTable, kTokens } section = kNone;
  uint16_t table = 0;
  int32_t defined = 0;
  int line_no = 0;
  auto problem = [&](const std::string& what) {
    if (problems)
      problems->push_back(std::string(name) + ":" + std::to_string(line_no) + ": " + what);
  };
  Tables& t = tables();
  std::unique_lock lock(t.mu);
  while (!source.empty()) {
    ++line_no;
    size_t nl = source.find('\n');
    std::string_view line = source.substr(0, nl);
    source.remove_prefix(nl == std::string_view::npos ? source.size() : nl + 1);
    if (Trim(line).empty() || line[0] == '#') continue;
    if (line[0] == '[') {
      std::string_view head = Trim(line);
      int64_t n;
      if (head == "[tokens]") {
        section = kTokens;
      } else if (head.back() == ']' && ParseNumber(head.substr(1, head.size() - 2), 65535, &n)) {
        section = kTable;
        table = uint16_t(n);
      } else {
        section = kNone;
        problem("unknown section " + std::string(head));
      }
      continue;
    }
    size_t eq;
    std::string_view key_text;
    if (section == kTable) {
      // A key is its four characters as written, or 0x and eight hex digits.
      uint32_t key;
      if (line.size() >= 4 && line.substr(0, 2) != "0x") {
        key = zelkor::FourCC(uint8_t(line[0])) << 24 | zelkor::FourCC(uint8_t(line[1])) << 16 |
              zelkor::FourCC(uint8_t(line[2])) << 8 | zelkor::FourCC(uint8_t(line[3]));
        key_text = line.substr(4);
      } else if (line.size() >= 10 && ParseHex(line.substr(0, 10), &key)) {
        key_text = line.substr(10);
      } else {
        problem("no key");
        continue;
      }
      size_t blanks = key_text.find_first_not_of(" \t");
      if (blanks == std::string_view::npos || key_text[blanks] != '=') {
        problem("a key is four characters followed by '='");
        continue;
      }
      eq = line.size() - key_text.size() + blanks;
      auto [it, fresh] = t.texts.insert_or_assign(Slot(table, key), Value(line.substr(eq + 1)));
      if (!fresh) problem("key " + zelkor::fcString(key) + " defined again");
      ++defined;
    } else if (section == kTokens) {
      eq = line.find('=');
      int64_t n;
      if (eq == std::string_view::npos || !ParseNumber(Trim(line.substr(0, eq)), INT32_MAX, &n)) {
        problem("a token line is a number, '=' and the text");
        continue;
      }
      auto [it, fresh] = t.tokens.insert_or_assign(int32_t(n), Value(line.substr(eq + 1)));
      if (!fresh) problem("token " + std::to_string(n) + " defined again");
      ++defined;
    } else {
      problem("text outside a section");
    }
  }
  return defined;
}

int32_t LoadTextFile(const std::string& path, std::vector<std::string>* problems) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return kTextNoSource;
  std::stringstream all;
  all << in.rdbuf();
  return LoadTextSource(all.str(), std::filesystem::path(path).filename().string(), problems);
}

int32_t LoadTextFolder(const std::string& folder, std::vector<std::string>* problems) {
  std::error_code ec;
  std::vector<std::filesystem::path> files;
  for (const auto& e : std::filesystem::directory_iterator(folder, ec))
    if (e.is_regular_file() && e.path().extension() == ".txt") files.push_back(e.path());
  if (ec) return kTextNoSource;
  std::sort(files.begin(), files.end());
  int32_t total = 0;
  for (const auto& f : files) total += std::max(0, LoadTextFile(f.string(), problems));
  return total;
}

void DefineKString(uint16_t table, zelkor::FourCC key, std::string_view text) {
  Tables& t = tables();
  std::unique_lock lock(t.mu);
  t.texts[Slot(table, key)] = utf8::Sanitize(text);
}

void DefineToken(int32_t token, std::string_view text) {
  Tables& t = tables();
  std::unique_lock lock(t.mu);
  t.tokens[token] = utf8::Sanitize(text);
}

void ClearKStrings() {
  Tables& t = tables();
  std::unique_lock lock(t.mu);
  t.texts.clear();
  t.tokens.clear();
}

bool FindKString(uint16_t table, zelkor::FourCC key, std::string* text) {
  Tables& t = tables();
  std::shared_lock lock(t.mu);
  auto it = t.texts.find(Slot(table, key));
  if (it == t.texts.end()) return false;
  *text = it->second;
  return true;
}

bool FindToken(int32_t token, std::string* text) {
  Tables& t = tables();
  std::shared_lock lock(t.mu);
  auto it = t.tokens.find(token);
  if (it == t.tokens.end()) return false;
  *text = it->second;
  return true;
}

std::string MissingKeyMarker(uint16_t table, zelkor::FourCC key) {
  return "[?" + std::to_string(table) + "." + zelkor::fcString(key) + "]";
}

std::string MissingTokenMarker(int32_t token) { return "[?token " + std::to_string(token) + "]"; }

std::string DumpKStrings() {
  Tables& t = tables();
  std::shared_lock lock(t.mu);
  std::string out;
  int32_t table = -1;
  for (const auto& [slot, text] : t.texts) {
    if (int32_t(slot >> 32) != table) {
      table = int32_t(slot >> 32);
      // Appended piecewise: g++ 12 warns falsely about "[" + std::to_string(...) at -O2.
      out += '[';
      out += std::to_string(table);
      out += "]\n";
    }
    zelkor::FourCC key = zelkor::FourCC(slot);
    std::string shown = zelkor::fcString(key);
    if (shown.size() != 4 || shown[0] == '#' || shown[0] == '[' || shown.starts_with("0x")) {
      char hex[11];
      std::snprintf(hex, sizeof hex, "0x%08x", key);
      shown = hex;
    }
    out += shown + " = \"" + Escape(text) + "\"\n";
  }
  if (!t.tokens.empty()) out += "[tokens]\n";
  for (const auto& [n, text] : t.tokens) out += std::to_string(n) + " = \"" + Escape(text) + "\"\n";
  return out;
}

TString::TString(uint16_t table, zelkor::FourCC key) {
  std::string text;
  text_ = FindKString(table, key, &text) ? text : MissingKeyMarker(table, key);
}

int32_t TString::LoadKString(uint16_t table, zelkor::FourCC key) {
  std::string text;
  if (!FindKString(table, key, &text)) {
    Clear();
    return 0;
  }
  text_ = std::move(text);
  return 1;
}

TString TString::TokenToString(int32_t token, int32_t /*form: reserved, see header*/) {
  std::string text;
  TString out;
  out.text_ = FindToken(token, &text) ? text : MissingTokenMarker(token);
  return out;
}

TString TString::FormatOrdinal(int64_t n) {
  int64_t last2 = (n < 0 ? -n : n) % 100;
  int64_t last = last2 % 10;
  int32_t suffix = kTokenOrdinalOther;
  if ((last2 < 11 || last2 > 13) && last >= 1 && last <= 3) suffix += int32_t(last);
  TString out;
  out.text_ = std::to_string(n);
  out.Append(TokenToString(suffix, 0));
  return out;
}

}  // namespace fundra

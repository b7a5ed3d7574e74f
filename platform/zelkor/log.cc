#include "platform/zelkor/log.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "platform/zelkor/codes.h"

namespace zelkor {

namespace {

std::mutex gSinkMu;
LogSink gSink;

void stderrSink(int level, std::string_view line) {
  std::fprintf(stderr, "[%d] %.*s\n", level, int(line.size()), line.data());
}

}  // namespace

std::string fcString(FourCC code) {
  std::string out;
  for (int shift = 24; shift >= 0; shift -= 8) {
    unsigned char c = uint8_t(code >> shift);
    if (c >= 32 && c <= 126) {
      out += char(c);
    } else {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\x%02X", c);
      out += buf;
    }
  }
  return out;
}

LogSink setLogSink(LogSink sink) {
  std::lock_guard<std::mutex> lock(gSinkMu);
  LogSink old = std::move(gSink);
  gSink = std::move(sink);
  return old;
}

LogSink fileLogSink(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "a");
  if (!f) return {};
  std::setvbuf(f, nullptr, _IOLBF, 0);
  std::shared_ptr<std::FILE> file(f, std::fclose);
  return [file](int level, std::string_view line) {
    std::fprintf(file.get(), "[%d] %.*s\n", level, int(line.size()), line.data());
  };
}

void logLine(int level, std::string_view line) {
  LogSink sink;
  {
    std::lock_guard<std::mutex> lock(gSinkMu);
    sink = gSink;
  }
  if (sink) {
    sink(level, line);
  } else {
    stderrSink(level, line);
  }
}

std::string formatLog(const char* format, const Word* words, int count) {
  std::string out;
  int next = 0;
  auto word = [&]() -> Word { return next < count ? words[next++] : 0; };
  for (const char* p = format; *p; ++p) {
    if (*p != '%') {
      out += *p;
      continue;
    }
    const char* start = p++;
    if (*p == '%') {
      out += '%';
      continue;
    }
    if (*p == '~' && p[1] == 'd') {
      out += std::to_string(i32(word()));
      ++p;
      continue;
    }
    // printf-style flags and width before d, u, x.
    const char* spec = p;
    while (*p && std::strchr("-0+ #", *p)) ++p;
    while (*p >= '0' && *p <= '9') ++p;
    char conv = *p;
    std::string flags(spec, p);
    char buf[64];
    switch (conv) {
      case 'd':
        std::snprintf(buf, sizeof buf, ("%" + flags + "d").c_str(), i32(word()));
        out += buf;
        break;
      case 'u':
        std::snprintf(buf, sizeof buf, ("%" + flags + "u").c_str(), u32(word()));
        out += buf;
        break;
      case 'x':
      case 'X':
        std::snprintf(buf, sizeof buf, ("%" + flags + conv).c_str(), u32(word()));
        out += buf;
        break;
      case 'Y':
        out += fcString(u32(word()));
        break;
      case 'E':
        out += codeName(i32(word()));
        break;
      case 'c':
        out += char(word());
        break;
      case 's': {
        const char* s = asPtr<const char>(word());
        out += s ? s : "(null)";
        break;
      }
      default:
        out.append(start, conv ? p + 1 : p);
        out += "<?>";
        if (!conv) return out;
        break;
    }
  }
  return out;
}

LogCapture::LogCapture(bool forward) : forward_(forward) {
  previous_ = setLogSink([this](int level, std::string_view line) {
    {
      std::lock_guard<std::mutex> lock(mu_);
      lines_.push_back({level, std::string(line)});
    }
    if (forward_) {
      if (previous_) {
        previous_(level, line);
      } else {
        stderrSink(level, line);
      }
    }
  });
}

LogCapture::~LogCapture() { setLogSink(std::move(previous_)); }

std::vector<LogEntry> LogCapture::take() {
  std::lock_guard<std::mutex> lock(mu_);
  return std::exchange(lines_, {});
}

bool LogCapture::contains(std::string_view text) const {
  std::lock_guard<std::mutex> lock(mu_);
  for (const auto& l : lines_)
    if (l.text.find(text) != std::string::npos) return true;
  return false;
}

size_t LogCapture::size() const {
  std::lock_guard<std::mutex> lock(mu_);
  return lines_.size();
}

}  // namespace zelkor

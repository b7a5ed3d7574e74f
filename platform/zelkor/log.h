// The framework log.
//
// Every diagnostic of the system is one line at a numeric level, written with DebugLogf. The host
// chooses where lines go (stderr by default, a file, or a capture that tests read).
//
// Format placeholders (each consumes one word):
//   %~d  the word's 32-bit value in decimal            %d %u %x  likewise, as printf would
//   %Y   the word's 32-bit value as a FourCC            %c        one character
//   %E   an answer code, as codeName prints it: "-808 (kNoItem)", or the bare number when no
//        library registered it                        %s        a C string (char*)
//   0x%08x and other printf widths/flags on d, u, x work as in printf; %% is a percent sign.
// An unknown placeholder is copied as it stands followed by "<?>", and a missing word reads 0.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/zelkor/word.h"

namespace zelkor {

using LogSink = std::function<void(int level, std::string_view line)>;

// Replaces the sink; answers the previous one. An empty sink restores stderr.
LogSink setLogSink(LogSink sink);
// A sink that appends to the file at path (opened once, line buffered); empty on failure.
LogSink fileLogSink(const std::string& path);

std::string formatLog(const char* format, const Word* words, int count);
void logLine(int level, std::string_view line);

template <class... A>
void DebugLogf(int level, const char* format, A... args) {
  const Word words[sizeof...(A) + 1] = {toWord(args)...};
  logLine(level, formatLog(format, words, int(sizeof...(A))));
}

struct LogEntry {
  int level;
  std::string text;
};

// Captures every line logged while it lives (and still forwards them to the previous sink when
// `forward` is true). Captures nest: the innermost sees lines first.
class LogCapture {
 public:
  explicit LogCapture(bool forward = false);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<LogEntry> take();  // the lines so far, cleared
  bool contains(std::string_view text) const;
  size_t size() const;

 private:
  mutable std::mutex mu_;
  std::vector<LogEntry> lines_;
  LogSink previous_;
  bool forward_;
};

}  // namespace zelkor

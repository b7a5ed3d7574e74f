// Assertion reports.
//
// Debug(source, line) reports a failed assertion and returns: execution continues, and the caller
// answers whatever its contract says for the failed case. Every report is logged at
// kAssertLogLevel as "assertion failed: <source>:<line>" and kept for any AssertCapture alive.
#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace fundra {

constexpr int kAssertLogLevel = 1;

void Debug(const char* source, int line);

// Checks a condition; reports through Debug when it is false and answers the condition.
inline bool Check(bool ok, const char* source, int line) {
  if (!ok) Debug(source, line);
  return ok;
}

// Collects the reports made while it lives, as "source:line". Captures nest.
class AssertCapture {
 public:
  AssertCapture();
  ~AssertCapture();
  AssertCapture(const AssertCapture&) = delete;
  AssertCapture& operator=(const AssertCapture&) = delete;

  std::vector<std::string> take();  // the reports so far, cleared
  size_t size() const;

 private:
  friend void Debug(const char*, int);
  mutable std::mutex mu_;
  std::vector<std::string> reports_;
  AssertCapture* outer_;
};

}  // namespace fundra

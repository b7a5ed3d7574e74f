#include "platform/fundra/debug.h"

#include <utility>

#include "platform/zelkor/log.h"

namespace fundra {

namespace {
std::mutex gCaptureMu;
AssertCapture* gCapture = nullptr;
}  // namespace

void Debug(const char* source, int line) {
  zelkor::DebugLogf(kAssertLogLevel, "assertion failed: %s:%~d", source, line);
  std::lock_guard<std::mutex> lock(gCaptureMu);
  for (AssertCapture* c = gCapture; c; c = c->outer_) {
    std::lock_guard<std::mutex> inner(c->mu_);
    c->reports_.push_back(std::string(source) + ":" + std::to_string(line));
  }
}

AssertCapture::AssertCapture() {
  std::lock_guard<std::mutex> lock(gCaptureMu);
  outer_ = gCapture;
  gCapture = this;
}

AssertCapture::~AssertCapture() {
  std::lock_guard<std::mutex> lock(gCaptureMu);
  // Captures are scoped, so the innermost one is always the one going away.
  gCapture = outer_;
}

std::vector<std::string> AssertCapture::take() {
  std::lock_guard<std::mutex> lock(mu_);
  return std::exchange(reports_, {});
}

size_t AssertCapture::size() const {
  std::lock_guard<std::mutex> lock(mu_);
  return reports_.size();
}

}  // namespace fundra

// The main of the module's test programs: GoogleTest, plus a listener that fails any test during
// which a send reached the framework's fallback more often than the test said it would.
#include <gtest/gtest.h>

#include "platform/zelkor/dispatch.h"
#include "tests/support/sends.h"

namespace zt {

namespace {

uint64_t gExpected = 0;

class UnansweredSends : public ::testing::EmptyTestEventListener {
  void OnTestStart(const ::testing::TestInfo&) override {
    start_ = zelkor::unansweredCount();
    gExpected = 0;
  }
  void OnTestEnd(const ::testing::TestInfo&) override {
    uint64_t misses = zelkor::unansweredCount() - start_;
    if (misses == gExpected) return;
    zelkor::Unanswered last = zelkor::lastUnanswered();
    ADD_FAILURE() << misses << " send(s) reached no handler, " << gExpected
                  << " expected; the last: '" << zelkor::fcString(last.sel) << "' to an object of '"
                  << zelkor::fcString(last.cls) << "'";
  }
  uint64_t start_ = 0;
};

}  // namespace

void expectUnanswered(uint64_t sends) { gExpected += sends; }

}  // namespace zt

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  // The check runs before the printer, so that a test it fails is printed as failed.
  auto& listeners = ::testing::UnitTest::GetInstance()->listeners();
  auto* printer = listeners.Release(listeners.default_result_printer());
  listeners.Append(new zt::UnansweredSends);
  if (printer) listeners.Append(printer);
  return RUN_ALL_TESTS();
}

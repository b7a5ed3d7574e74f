// Module tests fail when a send reached no handler: the framework answers 0 for a selector that
// no class of the receiver answers, which reads as success, so a misspelt selector or a message
// sent to the wrong object would otherwise pass unnoticed. The check runs after every test of a
// program linked with tests/support/main.cc.
#pragma once

#include <cstdint>

namespace zt {

// A test that sends selectors nobody answers on purpose says how many it sends.
void expectUnanswered(uint64_t sends);

}  // namespace zt

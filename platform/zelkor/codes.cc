// The code registry: a list per process, filled by static initializers before main.
#include "platform/zelkor/codes.h"

#include <iterator>
#include <mutex>

#include "platform/zelkor/blocker.h"
#include "platform/zelkor/boot.h"
#include "platform/zelkor/host.h"

namespace zelkor {

namespace {

// Function-local so that registrations from any library's static initializers find it built.
std::vector<RegisteredCode>& registry() {
  static std::vector<RegisteredCode> r;
  return r;
}
std::mutex& registryLock() {
  static std::mutex m;
  return m;
}

}  // namespace

int registerCodes(const char* library, const CodeInfo* codes, size_t count) {
  std::lock_guard lock(registryLock());
  for (size_t i = 0; i < count; ++i) registry().push_back({library, codes[i]});
  return 0;
}

const RegisteredCode* findCode(int32_t code) {
  std::lock_guard lock(registryLock());
  for (const auto& r : registry())
    if (r.info.code == code) return &r;
  return nullptr;
}

std::string codeName(int32_t code) {
  const RegisteredCode* r = code < 0 ? findCode(code) : nullptr;
  return r ? std::to_string(code) + " (" + r->info.name + ")" : std::to_string(code);
}

std::string codeText(int32_t code) {
  const RegisteredCode* r = code < 0 ? findCode(code) : nullptr;
  return r ? codeName(code) + ": " + r->info.text : codeName(code);
}

std::vector<RegisteredCode> registeredCodes() {
  std::lock_guard lock(registryLock());
  return registry();
}

namespace {

constexpr CodeInfo kCodes[] = {
    {kBlockerNoState, "kBlockerNoState", "the blocker has no block state set"},
    {kBlockerNotHeld, "kBlockerNotHeld", "the blocker is left by a thread that does not hold it"},
    {kBlockerBusy, "kBlockerBusy", "another thread holds the block state (TryEnter)"},
    {kAlreadyBooted, "kAlreadyBooted", "the framework has booted already"},
    {kModuleNotFound, "kModuleNotFound", "the module's library cannot be found or loaded"},
    {kNotAModule, "kNotAModule", "the library is not a module (it exports no zoveModuleName)"},
};

const int gRegistered = registerCodes("zelkor", kCodes, std::size(kCodes));

}  // namespace

}  // namespace zelkor

#include <cstdio>

#include "platform/zelkor/zelkor.h"
#include "tools/zove/commands.h"

namespace zove::cli {

int cmdClasses(int, char**) {
  using namespace zelkor;
  for (const BootedClass& b : bootedClasses()) {
    const ClassRec* c = b.cls;
    std::printf("%s  superclass %s  %u instance bytes  (%s)\n", fcString(c->sig).c_str(),
                c->super ? fcString(c->super->sig).c_str() : "none", c->size, b.procedure.c_str());
    auto print = [](const char* what, const std::vector<FourCC>& sels) {
      for (size_t i = 0; i < sels.size(); ++i) {
        if (i % 12 == 0) std::printf(i ? "\n      " : "    %s:\n      ", what);
        std::printf(" %s", fcString(sels[i]).c_str());
      }
      if (!sels.empty()) std::printf("\n");
    };
    print("selectors", ownSelectors(c));
    print("class selectors", ownSelectors(c->meta));
  }
  return 0;
}

}  // namespace zove::cli

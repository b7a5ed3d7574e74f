#include "platform/zelkor/host.h"

#include <dlfcn.h>

#include "platform/zelkor/log.h"

namespace zelkor {

namespace {
Word gOptRef = 0;
Word gExpress = 0;
}  // namespace

int ZelkorLoadModule(const std::string& path) {
  void* lib = dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL);
  if (!lib) {
    DebugLogf(515, "ZelkorLoadModule: can't load %s: %s", path.c_str(), dlerror());
    return kModuleNotFound;
  }
  if (!dlsym(lib, "zoveModuleName")) {
    DebugLogf(515, "ZelkorLoadModule: %s is not a module", path.c_str());
    dlclose(lib);
    return kNotAModule;
  }
  return 0;
}

Word ProgGetOptRef(Word) { return gOptRef; }
Word MEGetExpress() { return gExpress; }
void setProgOptRef(Word dl) { gOptRef = dl; }
void setExpress(Word flag) { gExpress = flag; }

}  // namespace zelkor

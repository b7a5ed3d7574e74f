#include "platform/zelkor/codes.h"

#include <cstdio>
#include <string_view>

#include "tools/zove/commands.h"
#include "tools/zove/storetool.h"

namespace zove::cli {

int cmdCodes(int argc, char** argv) {
  std::vector<zelkor::RegisteredCode> all = zelkor::registeredCodes();
  if (argc == 0) {
    const char* library = "";
    for (const zelkor::RegisteredCode& r : all) {
      if (std::string_view(library) != r.library) {
        std::printf("%s%s\n", *library ? "\n" : "", r.library);
        library = r.library;
      }
      std::printf("  %6d  %-20s %s\n", r.info.code, r.info.name, r.info.text);
    }
    return 0;
  }
  int status = 0;
  for (int i = 0; i < argc; ++i) {
    int32_t code = 0;
    if (!parseInt(argv[i], &code)) {
      std::fprintf(stderr, "zove codes: '%s' is not a number\n", argv[i]);
      return 2;
    }
    const zelkor::RegisteredCode* r = zelkor::findCode(code);
    if (r) {
      std::printf("%s (%s)\n", zelkor::codeText(code).c_str(), r->library);
    } else {
      std::printf("%d: no library answers this code\n", code);
      status = 1;
    }
  }
  return status;
}

}  // namespace zove::cli

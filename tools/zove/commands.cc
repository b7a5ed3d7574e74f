#include "tools/zove/commands.h"

#include <cstring>

namespace zove::cli {

const std::vector<Command>& commands() {
  static const std::vector<Command> table = {
      {"classes", "list the classes that booted and their selectors", "classes",
       "Prints every class the framework booted, with its superclass, its instance bytes, the\n"
       "boot procedure that made it and the selectors it defines itself.",
       cmdClasses},
      {"demo", "a tour of what zove does (what `make run` runs)", "demo",
       "Boots the module and shows what it offers.", cmdClasses},
  };
  return table;
}

const Command* findCommand(const char* name) {
  for (const Command& c : commands())
    if (!std::strcmp(c.name, name)) return &c;
  return nullptr;
}

}  // namespace zove::cli

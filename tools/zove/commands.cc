#include "tools/zove/commands.h"

#include <cstring>

namespace zove::cli {

const std::vector<Command>& commands() {
  static const std::vector<Command> table = {
      {"classes", "list the classes that booted and their selectors", "classes",
       "Prints every class the framework booted, with its superclass, its instance bytes, the\n"
       "boot procedure that made it and the selectors it defines itself.",
       cmdClasses},
      {"shell", "run a Lua script against the module, or a prompt", "shell [-v] [SCRIPT [ARGS...]]",
       "Runs SCRIPT (Lua 5.4) with the table 'zove' that sends selectors to the module's objects\n"
       "and makes the values they take (docs/shell.md). ARGS reach the script as '...' and as\n"
       "arg[1..]. Without SCRIPT, reads statements from a prompt and prints what expressions\n"
       "give. A script that raises an error stops with its file, line and traceback, and the\n"
       "exit status is 1.\n\n"
       "  -v   also print log lines on stderr as they are written (the prompt always does)",
       cmdShell},
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

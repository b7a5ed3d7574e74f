// The zove command's subcommands: one table, one entry per subcommand.
#pragma once

#include <vector>

namespace zove::cli {

struct Command {
  const char* name;
  const char* summary;
  const char* usage;
  const char* help;
  int (*run)(int argc,
             char** argv);  // the arguments after the command's name; answers the exit status
};

const std::vector<Command>& commands();
const Command* findCommand(const char* name);

int cmdClasses(int argc, char** argv);
int cmdShell(int argc, char** argv);

}  // namespace zove::cli

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

// Exit status of every subcommand: 0 done (for check: sound), 1 failed (a missing, damaged or
// refused file; for check: not sound), 2 bad arguments.
int cmdClasses(int argc, char** argv);  // classes.cc
int cmdCodes(int argc, char** argv);    // codes.cc
int cmdShell(int argc, char** argv);    // shell.cc
int cmdStat(int argc, char** argv);     // stat.cc
int cmdCheck(int argc, char** argv);    // check.cc
int cmdDump(int argc, char** argv);     // dump.cc
int cmdGraph(int argc, char** argv);    // graph.cc
int cmdTree(int argc, char** argv);     // tree.cc
int cmdGc(int argc, char** argv);       // gc.cc
int cmdRecover(int argc, char** argv);  // recover.cc
int cmdExport(int argc, char** argv);   // exchange.cc
int cmdImport(int argc, char** argv);   // exchange.cc
int cmdDemo(int argc, char** argv);     // demo.cc

}  // namespace zove::cli

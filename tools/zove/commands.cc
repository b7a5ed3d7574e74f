#include "tools/zove/commands.h"

#include <cstring>

namespace zove::cli {

const std::vector<Command>& commands() {
  static const std::vector<Command> table = {
      {"demo", "a tour of what zove does (what `make run` runs)", "demo [FILE]",
       "Creates a store file (FILE, or /tmp/zove-demo.zove, replaced on each run), fills it with\n"
       "a small structure, collects, checks, exports and re-imports part of it, lets a module's\n"
       "controller join the store and open and close a stored object, saves, reopens, and says\n"
       "what each step did. The file stays for the other commands to look at.",
       cmdDemo},
      {"shell", "run a Lua script against the module, or a prompt", "shell [-v] [SCRIPT [ARGS...]]",
       "Runs SCRIPT (Lua 5.4) with the table 'zove' that sends selectors to the module's objects\n"
       "and makes the values they take (docs/shell.md). ARGS reach the script as '...' and as\n"
       "arg[1..]. Without SCRIPT, reads statements from a prompt and prints what expressions\n"
       "give. A script that raises an error stops with its file, line and traceback, and the\n"
       "exit status is 1.\n\n"
       "  -v   also print log lines on stderr as they are written (the prompt always does)",
       cmdShell},
      {"stat", "what a store file holds, in numbers", "stat FILE",
       "Prints the store version, the elements by kind (DLs, blobs, lists, and what DL 1 no\n"
       "longer reaches), the modules of the root's 'mods' list (signature and DL), and the\n"
       "records of the record file. Opens the file read-only.",
       cmdStat},
      {"check", "run the store's integrity check on a file", "check FILE [--expect-version N]",
       "Opens FILE read-only, installs the store with the version its root holds (or N), runs\n"
       "the integrity check (TSCk) and prints what the log and the assertions reported.\n"
       "Exit status 0 when the store is sound, 1 when it is not or cannot be installed.",
       cmdCheck},
      {"dump", "every DL of a file, readable", "dump FILE [DL...] [--json]",
       "Prints each DL's header, data area and items (key, kind, and the value or referent;\n"
       "strings and dates decoded). Without DL numbers: every DL reachable from DL 1, in\n"
       "breadth-first order. --json prints the same as one JSON object for tools.",
       cmdDump},
      {"graph", "the DL graph as Graphviz dot", "graph FILE [DL] [--depth N]",
       "Prints the DLs reachable from DL (default 1), to N references deep, as a dot graph:\n"
       "handles solid, part links bold from a diamond, list elements blue, weak references grey\n"
       "and dashed; shared DLs have a double border. Try: zove graph FILE | dot -Tsvg > g.svg",
       cmdGraph},
      {"tree", "the provider tree a file holds", "tree FILE [--json]",
       "Prints the provider tree of the file as it lies there, read from the DLs without\n"
       "attaching a manager: from the module DL PRO1 (the root), each provider in its parent's\n"
       "recorded order with its uType and abilities, its link target, the links to it, its\n"
       "required parent and its sort mark. A provider listed under a parent it is not placed\n"
       "under is marked so. Whether a provider is shown is not kept across attachments, so it\n"
       "is not shown here. --json prints the same as one JSON object for tools.",
       cmdTree},
      {"gc", "collect what nothing reaches and save", "gc FILE",
       "Installs the store, collects every DL, blob, list and record that DL 1 no longer\n"
       "reaches, compacts and saves (HChg), and says how much was freed.",
       cmdGc},
      {"recover", "roll back a save a crash interrupted", "recover FILE",
       "Opens FILE for writing once and loads it. A save that a crash interrupted left its\n"
       "journal (FILE-journal) set; the first writer to open the file rolls it back, so that\n"
       "the file holds its last save again. Readers read that save through the journal\n"
       "meanwhile; this is for a user who may write the file, when others may not.",
       cmdRecover},
      {"export", "write a DL's structure as an exchange stream", "export FILE DL OUT [--force]",
       "Writes DL and everything it refers to as an exchange stream (TSEx) to the file OUT.\n"
       "The DL may not be a shared DL (a stored object) itself. OUT may not be the store file\n"
       "or its journal; an OUT that exists is replaced only with --force. The stream is written\n"
       "to a new file beside OUT and renamed to it once whole.",
       cmdExport},
      {"import", "read an exchange stream into a DL and save", "import FILE DL IN",
       "Reads the exchange stream IN over DL (TSIm), which must be reachable from DL 1 so that\n"
       "the save keeps it, and saves the file. IN is a file (or a pipe); its header is read\n"
       "first, and no more than it holds.",
       cmdImport},
      {"classes", "list the classes that booted and their selectors", "classes",
       "Prints every class the framework booted, with its superclass, its instance bytes, the\n"
       "boot procedure that made it and the selectors it defines itself.",
       cmdClasses},
      {"codes", "list every answer code by library, name and meaning", "codes [CODE...]",
       "Prints each library's answer codes (the framework, the foundation, the store file and\n"
       "the module): number, name and what it means. With CODE arguments, only those.",
       cmdCodes},
  };
  return table;
}

const Command* findCommand(const char* name) {
  for (const Command& c : commands())
    if (!std::strcmp(c.name, name)) return &c;
  return nullptr;
}

}  // namespace zove::cli

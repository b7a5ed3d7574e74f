// zove: the host around the module. It loads the module library, boots the framework, and runs
// one subcommand.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/fundra/kstrings.h"
#include "platform/fundra/resource.h"
#include "platform/storefile/format.h"
#include "platform/zelkor/codes.h"
#include "platform/zelkor/zelkor.h"
#include "tools/zove/commands.h"

namespace {

std::string modulePath() {
  if (const char* env = std::getenv("ZOVE_MODULE")) return env;
  return std::string(ZOVE_MODULE_DIR) + "/libzove.so";
}

// The application's folder of texts and resources: $ZOVE_APP, or the source tree's app/ (an
// absolute path fixed at build time, so that it does not depend on where the command starts).
std::string appFolder() {
  if (const char* env = std::getenv("ZOVE_APP")) return env;
  return ZOVE_APP_DIR;
}

// As the application does at start: its keyed texts loaded, its resources found. A folder that
// cannot be read is said once; the commands go on (texts then show their missing-key markers).
void loadApplication() {
  std::string app = appFolder();
  std::vector<std::string> problems;
  if (fundra::LoadTextFolder(app + "/texts", &problems) < 0)
    std::fprintf(stderr, "zove: no application texts in %s/texts\n", app.c_str());
  for (const std::string& p : problems) std::fprintf(stderr, "zove: %s\n", p.c_str());
  fundra::SetResourceFolder(app + "/resources");
}

void usage(FILE* out) {
  std::fprintf(out, "usage: zove COMMAND [ARGS...]\n       zove --version\n\ncommands:\n");
  for (const zove::cli::Command& c : zove::cli::commands())
    std::fprintf(out, "  %-8s %s\n", c.name, c.summary);
  std::fprintf(out,
               "\nA store file FILE keeps its journal beside it, FILE-journal: what a save under\n"
               "way would undo. Copy, move and delete the two together. After a crash in a save\n"
               "the journal is set: readers still read the last save through it, and the next\n"
               "writer (or 'zove recover FILE') rolls it back.\n"
               "\n'zove COMMAND --help' tells more about one command.\n");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && !std::strcmp(argv[1], "--version")) {
    std::printf("zove %s (store file format %u; module %s)\n", ZOVE_VERSION, storefile::kFormat,
                modulePath().c_str());
    return 0;
  }
  if (argc < 2 || !std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h")) {
    usage(argc < 2 ? stderr : stdout);
    return argc < 2 ? 2 : 0;
  }
  const zove::cli::Command* cmd = zove::cli::findCommand(argv[1]);
  if (!cmd) {
    std::fprintf(stderr, "zove: unknown command '%s'\n", argv[1]);
    usage(stderr);
    return 2;
  }
  if (argc > 2 && (!std::strcmp(argv[2], "--help") || !std::strcmp(argv[2], "-h"))) {
    std::printf("usage: zove %s\n\n%s\n", cmd->usage, cmd->help);
    return 0;
  }
  if (int rc = zelkor::ZelkorLoadModule(modulePath())) {
    std::fprintf(stderr, "zove: can't load the module %s: %s\n", modulePath().c_str(),
                 zelkor::codeText(rc).c_str());
    return 1;
  }
  zelkor::ZelkorBoot();
  loadApplication();
  return cmd->run(argc - 2, argv + 2);
}

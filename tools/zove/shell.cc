// zove shell: runs a Lua script against the module, or reads statements from a prompt.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

#include "tools/zove/commands.h"
#include "tools/zove/lua/api.h"

namespace zove::cli {

namespace {

int traceback(lua_State* L) {
  const char* msg = lua_tostring(L, 1);
  if (!msg) msg = luaL_tolstring(L, 1, nullptr);
  luaL_traceback(L, L, msg, 1);
  return 1;
}

// Runs the function on top of the stack (with nargs arguments above it) and reports an error
// with its traceback. Answers true when it ran to the end.
bool protectedCall(lua_State* L, int nargs, int nresults) {
  int handler = lua_gettop(L) - nargs;
  lua_pushcfunction(L, traceback);
  lua_insert(L, handler);
  int rc = lua_pcall(L, nargs, nresults, handler);
  lua_remove(L, handler);
  if (rc != LUA_OK) {
    std::fprintf(stderr, "zove shell: %s\n", lua_tostring(L, -1));
    lua_pop(L, 1);
  }
  return rc == LUA_OK;
}

int runScript(lua_State* L, int argc, char** argv) {
  // arg[0] is the script, arg[1..] its arguments, as the stand-alone interpreter gives them.
  lua_createtable(L, argc, 1);
  for (int i = 0; i < argc; ++i) {
    lua_pushstring(L, argv[i]);
    lua_rawseti(L, -2, i);
  }
  lua_setglobal(L, "arg");
  if (luaL_loadfile(L, argv[0]) != LUA_OK) {
    std::fprintf(stderr, "zove shell: %s\n", lua_tostring(L, -1));
    lua_pop(L, 1);
    return 1;
  }
  for (int i = 1; i < argc; ++i) lua_pushstring(L, argv[i]);
  return protectedCall(L, argc - 1, 0) ? 0 : 1;
}

// A chunk is incomplete when the compiler stopped at the end of the input.
bool incomplete(lua_State* L) {
  const char* msg = lua_tostring(L, -1);
  size_t n = msg ? std::strlen(msg) : 0;
  return n >= 5 && !std::strcmp(msg + n - 5, "<eof>");
}

// Prints what an expression gave through Lua's own print, protected: a value's __tostring may
// raise.
void printResults(lua_State* L, int base) {
  int n = lua_gettop(L) - base;
  if (n > 0) {
    lua_getglobal(L, "print");
    lua_insert(L, base + 1);
    protectedCall(L, n, 0);
  }
  lua_settop(L, base);
}

int runPrompt(lua_State* L) {
  bool tty = isatty(0);
  if (tty) std::printf("zove shell (Lua 5.4): the table 'zove' speaks to the module; ^D leaves\n");
  std::string chunk, line;
  while (true) {
    if (tty) std::fputs(chunk.empty() ? "zove> " : "  >> ", stdout);
    std::fflush(stdout);
    if (!std::getline(std::cin, line)) break;
    chunk += line;
    chunk += '\n';
    int base = lua_gettop(L);
    // An expression prints its values; anything else runs as statements.
    std::string expr = "return " + chunk;
    if (luaL_loadbuffer(L, expr.data(), expr.size(), "=stdin") != LUA_OK) {
      lua_pop(L, 1);
      if (luaL_loadbuffer(L, chunk.data(), chunk.size(), "=stdin") != LUA_OK) {
        if (incomplete(L)) {
          lua_pop(L, 1);
          continue;
        }
        std::fprintf(stderr, "%s\n", lua_tostring(L, -1));
        lua_pop(L, 1);
        chunk.clear();
        continue;
      }
    }
    chunk.clear();
    if (protectedCall(L, 0, LUA_MULTRET)) printResults(L, base);
  }
  if (tty) std::printf("\n");
  return 0;
}

}  // namespace

int cmdShell(int argc, char** argv) {
  bool echo = false;
  while (argc > 0 && argv[0][0] == '-' && argv[0][1]) {
    if (!std::strcmp(argv[0], "-v")) {
      echo = true;
    } else if (!std::strcmp(argv[0], "--")) {
      --argc, ++argv;
      break;
    } else {
      std::fprintf(stderr, "zove shell: unknown option '%s' (see zove shell --help)\n", argv[0]);
      return 2;
    }
    --argc, ++argv;
  }
  lua_State* L = luaL_newstate();
  if (!L) {
    std::fprintf(stderr, "zove shell: no memory for the Lua state\n");
    return 1;
  }
  bool interactive = argc == 0;
  shell::openSession(L, echo || interactive);
  int rc = interactive ? runPrompt(L) : runScript(L, argc, argv);
  shell::closeSession(rc != 0);
  lua_close(L);
  return rc;
}

}  // namespace zove::cli

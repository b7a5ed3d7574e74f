// The session around a script: the table `zove`, the log and assertion captures that zove.log
// and zove.asserts read, the errors listeners leave behind, zove.expect, and the clean-up at the
// end.
#include <cstdio>
#include <memory>
#include <string>

#include "platform/fundra/debug.h"
#include "platform/zelkor/log.h"
#include "tools/zove/lua/api.h"

namespace zove::shell {

namespace {

struct Session {
  std::unique_ptr<zelkor::LogCapture> log;
  std::unique_ptr<fundra::AssertCapture> asserts;
  std::string pending;  // the first listener error not yet raised
  lua_State* active = nullptr;
};

Session& session() {
  static Session s;
  return s;
}

int luaLog(lua_State* L) {
  std::vector<zelkor::LogEntry> lines = session().log->take();
  lua_createtable(L, int(lines.size()), 0);
  for (size_t i = 0; i < lines.size(); ++i) {
    std::string line = std::to_string(lines[i].level) + " " + lines[i].text;
    lua_pushlstring(L, line.data(), line.size());
    lua_rawseti(L, -2, lua_Integer(i + 1));
  }
  return 1;
}

int luaAsserts(lua_State* L) {
  std::vector<std::string> reports = session().asserts->take();
  lua_createtable(L, int(reports.size()), 0);
  for (size_t i = 0; i < reports.size(); ++i) {
    lua_pushlstring(L, reports[i].data(), reports[i].size());
    lua_rawseti(L, -2, lua_Integer(i + 1));
  }
  return 1;
}

// Values compare as Lua's == does, except that two tables are equal when they hold equal values
// under the same keys (so lists of items compare by content).
bool same(lua_State* L, int a, int b, int depth) {
  if (lua_type(L, a) != LUA_TTABLE || lua_type(L, b) != LUA_TTABLE || depth > 20)
    return lua_compare(L, a, b, LUA_OPEQ);
  a = lua_absindex(L, a);
  b = lua_absindex(L, b);
  for (int pass = 0; pass < 2; ++pass) {
    int from = pass ? b : a, to = pass ? a : b;
    lua_pushnil(L);
    while (lua_next(L, from)) {
      lua_pushvalue(L, -2);
      lua_rawget(L, to);
      bool eq = same(L, -1, -2, depth + 1);
      lua_pop(L, 2);
      if (!eq) {
        lua_pop(L, 1);
        return false;
      }
    }
  }
  return true;
}

// Appends a readable form of a value: strings quoted, tables as {a, b} or {k = v}. (Built by
// appending: chains of string operator+ trip a false -Wrestrict warning of g++ 12 at -O2.)
void render(lua_State* L, int idx, int depth, std::string* out) {
  idx = lua_absindex(L, idx);
  switch (lua_type(L, idx)) {
    case LUA_TSTRING:
      out->append("'").append(lua_tostring(L, idx)).append("'");
      return;
    case LUA_TTABLE: {
      if (depth > 3) {
        out->append("{...}");
        return;
      }
      out->append("{");
      bool first = true;
      lua_Integer n = lua_Integer(lua_rawlen(L, idx));
      for (lua_Integer i = 1; i <= n; ++i, first = false) {
        lua_rawgeti(L, idx, i);
        if (!first) out->append(", ");
        render(L, -1, depth + 1, out);
        lua_pop(L, 1);
      }
      lua_pushnil(L);
      while (lua_next(L, idx)) {
        bool inSequence =
            lua_isinteger(L, -2) && lua_tointeger(L, -2) >= 1 && lua_tointeger(L, -2) <= n;
        if (!inSequence) {
          if (!first) out->append(", ");
          first = false;
          if (lua_type(L, -2) == LUA_TSTRING) {
            out->append(lua_tostring(L, -2));
          } else {
            out->append("[");
            render(L, -2, depth + 1, out);
            out->append("]");
          }
          out->append(" = ");
          render(L, -1, depth + 1, out);
        }
        lua_pop(L, 1);
      }
      out->append("}");
      return;
    }
    default:
      out->append(luaL_tolstring(L, idx, nullptr));
      lua_pop(L, 1);
      return;
  }
}

int luaExpect(lua_State* L) {
  luaL_checkany(L, 2);
  if (same(L, 1, 2, 0)) return 0;
  {
    std::string actual, expected;
    render(L, 1, 0, &actual);
    render(L, 2, 0, &expected);
    const char* what = luaL_optstring(L, 3, nullptr);
    luaL_where(L, 1);
    lua_pushfstring(L, "%s%sexpected %s, got %s", what ? what : "", what ? ": " : "",
                    expected.c_str(), actual.c_str());
    lua_concat(L, 2);
  }
  return lua_error(L);
}

}  // namespace

void notePending(const std::string& message) {
  if (session().pending.empty()) session().pending = message;
}

void raisePending(lua_State* L) {
  if (session().pending.empty()) return;
  lua_pushstring(L, session().pending.c_str());
  session().pending.clear();
  lua_error(L);
}

lua_State* activeState() { return session().active; }
void setActiveState(lua_State* L) { session().active = L; }

void openSession(lua_State* L, bool echoLog) {
  Session& s = session();
  s.log = std::make_unique<zelkor::LogCapture>(echoLog);
  s.asserts = std::make_unique<fundra::AssertCapture>();
  s.pending.clear();
  s.active = nullptr;

  luaL_openlibs(L);
  lua_newtable(L);
  openWords(L);
  openObjects(L);
  openListeners(L);
  openValues(L);
  openDialogs(L);
  openStores(L);
  openHost(L);
  static const luaL_Reg fns[] = {
      {"log", luaLog}, {"asserts", luaAsserts}, {"expect", luaExpect}, {}};
  luaL_setfuncs(L, fns, 0);
  lua_setglobal(L, "zove");
  openTree(L);
}

void closeSession(bool failed) {
  Session& s = session();
  disposeTracked();
  closeDialogs();
  closeHost();
  if (!s.pending.empty()) std::fprintf(stderr, "zove shell: %s\n", s.pending.c_str());
  if (failed) {
    std::vector<zelkor::LogEntry> lines = s.log->take();
    if (!lines.empty()) std::fprintf(stderr, "log lines the script had not read:\n");
    for (const zelkor::LogEntry& e : lines)
      std::fprintf(stderr, "  %d %s\n", e.level, e.text.c_str());
  }
  s.pending.clear();
  s.asserts.reset();
  s.log.reset();
}

}  // namespace zove::shell

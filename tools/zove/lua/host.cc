// What the host holds for the module: the application's keyed texts and its raw resources. The
// zove command loads the texts and points the resource folder at the application's at start
// (tools/zove/main.cc); a script may add or replace a text and hand over a resource by its bytes.
#include <cstdint>
#include <string>

#include "platform/fundra/kstrings.h"
#include "platform/fundra/resource.h"
#include "tools/zove/lua/api.h"

namespace zove::shell {

namespace {

uint16_t tableArg(lua_State* L, int idx) {
  lua_Integer table = luaL_checkinteger(L, idx);
  if (table < 0 || table > 0xFFFF) luaL_error(L, "zove.text: table %I is not 16-bit", table);
  return uint16_t(table);
}

// zove.text(table, key) -> the text, or nil when the tables lack it
// zove.text(table, key, text)   adds or replaces it
int luaText(lua_State* L) {
  uint16_t table = tableArg(L, 1);
  zelkor::FourCC key = codeArg(L, 2);
  if (!lua_isnoneornil(L, 3)) {
    size_t n = 0;
    const char* text = luaL_checklstring(L, 3, &n);
    fundra::DefineKString(table, key, std::string_view(text, n));
    return 0;
  }
  std::string text;
  if (!fundra::FindKString(table, key, &text)) return 0;
  lua_pushlstring(L, text.data(), text.size());
  return 1;
}

// zove.resource(id) -> its bytes, or nil, the code and its text
// zove.resource(id, bytes)   hands the resource over (for this session)
int luaResource(lua_State* L) {
  lua_Integer id = luaL_checkinteger(L, 1);
  if (id < 0 || id > INT32_MAX) return luaL_error(L, "zove.resource: bad id %I", id);
  if (!lua_isnoneornil(L, 2)) {
    size_t n = 0;
    const char* bytes = luaL_checklstring(L, 2, &n);
    fundra::DefineRawResource(int32_t(id), std::string_view(bytes, n));
    return 0;
  }
  int32_t rc;
  {
    fundra::TMemory m;
    rc = fundra::RMGetRawResource(&m, int32_t(id), -1);
    if (rc == 0) lua_pushlstring(L, reinterpret_cast<const char*>(m.MemPtr()), size_t(m.GetSize()));
  }
  if (rc == 0) return 1;
  lua_pushnil(L);
  lua_pushinteger(L, rc);
  lua_pushstring(L,
                 rc == fundra::kResNotFound ? "no such resource" : "the resource cannot be read");
  return 3;
}

}  // namespace

void openHost(lua_State* L) {
  static const luaL_Reg fns[] = {{"text", luaText}, {"resource", luaResource}, {}};
  luaL_setfuncs(L, fns, 0);
}

void closeHost() { fundra::ForgetRawResources(); }

}  // namespace zove::shell

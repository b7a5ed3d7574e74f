// zove.treewatch (manager): a tree watch (`@PTW`) on a provider manager, wrapped for scripts. It
// is written in Lua over zove.new and zove.string, as a script could write it; the watch itself
// is the module's.
#include "tools/zove/lua/api.h"

namespace zove::shell {

namespace {

constexpr const char* kTreeWatch = R"lua(
local zove = ...
local function lines(text)
  local out = {}
  for line in text:gmatch("[^\n]+") do out[#out + 1] = line end
  return out
end
function zove.treewatch(manager)
  local w = zove.new("@PTW")
  local answer = w:send("Setu", manager)
  if answer ~= 0 then
    w:send("Dspo")
    error("zove.treewatch: not a provider manager (" .. answer .. ")", 2)
  end
  local watch = {object = w}
  local function ask(sel)
    local s = zove.string()
    local n = w:send(sel, s)
    return s.text, n
  end
  -- The events a view could not apply since the last call, one line each.
  function watch:reports() return lines((ask("PwRp"))) end
  -- Where the mirror and the manager's tree differ (and brackets left open).
  function watch:disagreements() return lines((ask("PwAg"))) end
  -- The mirror, one provider a line, indented by depth; and how many it shows.
  function watch:dump() return ask("PwDm") end
  -- Raises an error naming what when the watch has reports or disagreements.
  function watch:check(what)
    zove.expect({self:reports(), self:disagreements()}, {{}, {}}, what or "tree watch")
  end
  function watch:close() w:send("Dspo") end
  return watch
end
)lua";

}  // namespace

void openTree(lua_State* L) {
  if (luaL_loadstring(L, kTreeWatch) != LUA_OK) lua_error(L);
  lua_getglobal(L, "zove");
  lua_call(L, 1, 0);
}

}  // namespace zove::shell

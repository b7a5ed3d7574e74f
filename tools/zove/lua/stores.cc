// Stores for scripts: zove.memstore makes a store with no file, zove.create one bound to a new
// store file, zove.open one bound to an existing file. The script installs it (TSIn) itself.
//
// A file that cannot be created or opened is an answer, not an error, as with io.open: nil, the
// code and its text, so that scripts can test refusals.
#include <cstring>
#include <string>

#include "platform/storefile/vhd.h"
#include "platform/zelkor/codes.h"
#include "platform/zelkor/zelkor.h"
#include "tools/zove/lua/api.h"
#include "zove/store.h"

namespace zove::shell {

namespace {

using zelkor::fc;

// A new `@zov` object after Setu, tracked by the session; 0 when the module has no store class.
Word newStore() {
  Word cls = zelkor::ZelkorLookup(kZoveSig);
  if (!cls) return 0;
  Word store = zelkor::send(cls, zelkor::kNew_);
  if (!store) return 0;
  trackObject(store);
  zelkor::send(store, kSetu);
  return store;
}

int luaMemstore(lua_State* L) {
  lua_Integer version = luaL_checkinteger(L, 1);
  Word store = newStore();
  if (!store) return luaL_error(L, "zove.memstore: the module has no store class '@zov'");
  Word rc = zelkor::send(store, kHNew, 0, int32_t(version));
  if (rc != 0) {
    zelkor::send(store, kDspo);
    untrackObject(store);
    return luaL_error(L, "zove.memstore: HNew answered %s",
                      zelkor::codeText(zelkor::i32(rc)).c_str());
  }
  pushObject(L, store);
  return 1;
}

// Pushes nil, the code and its text, and disposes of the store that could not be bound.
int refuse(lua_State* L, Word store, int32_t code) {
  zelkor::send(store, kDspo);
  untrackObject(store);
  lua_pushnil(L);
  lua_pushinteger(L, code);
  lua_pushstring(L, zelkor::codeText(code).c_str());
  return 3;
}

int luaCreate(lua_State* L) {
  const char* path = luaL_checkstring(L, 1);
  lua_Integer version = luaL_checkinteger(L, 2);
  Word store = newStore();
  if (!store) return luaL_error(L, "zove.create: the module has no store class '@zov'");
  int32_t rc = zelkor::i32(zelkor::send(store, kHNew, 0, int32_t(version)));
  if (rc == 0) rc = storefile::vhdCreateFile(store, path);
  if (rc != 0) return refuse(L, store, rc);
  pushObject(L, store);
  return 1;
}

int luaOpen(lua_State* L) {
  const char* path = luaL_checkstring(L, 1);
  const char* mode = luaL_optstring(L, 2, "rw");
  if (std::strcmp(mode, "r") != 0 && std::strcmp(mode, "rw") != 0)
    return luaL_error(L, "zove.open: mode '%s' is neither \"r\" nor \"rw\"", mode);
  Word store = newStore();
  if (!store) return luaL_error(L, "zove.open: the module has no store class '@zov'");
  int32_t rc = storefile::vhdOpenFile(
      store, path,
      mode[1] ? storefile::VhdOpenMode::kReadWrite : storefile::VhdOpenMode::kReadOnly);
  if (rc != 0) return refuse(L, store, rc);
  pushObject(L, store);
  return 1;
}

}  // namespace

void openStores(lua_State* L) {
  static const luaL_Reg fns[] = {
      {"memstore", luaMemstore}, {"create", luaCreate}, {"open", luaOpen}, {}};
  luaL_setfuncs(L, fns, 0);
}

}  // namespace zove::shell

// Stores for scripts: zove.memstore makes a store with no file, zove.create one bound to a new
// store file, zove.open one bound to an existing file. The script installs it (TSIn) itself.
#include "platform/zelkor/zelkor.h"
#include "store/zove.h"
#include "tools/zove/lua/api.h"

namespace zove::shell {

namespace {

using zelkor::fc;

// A new `@zov` object after Setu, tracked by the session; 0 when the module has no store class.
Word newStore() {
  Word cls = zelkor::ZelkorLookup(kZoveSig);
  if (!cls) return 0;
  Word store = zelkor::send(cls, fc("New "));
  if (!store) return 0;
  trackObject(store);
  zelkor::send(store, fc("Setu"));
  return store;
}

int luaMemstore(lua_State* L) {
  lua_Integer version = luaL_checkinteger(L, 1);
  Word store = newStore();
  if (!store) return luaL_error(L, "zove.memstore: the module has no store class '@zov'");
  Word rc = zelkor::send(store, fc("HNew"), 0, int32_t(version));
  if (rc != 0) {
    zelkor::send(store, fc("Dspo"));
    untrackObject(store);
    return luaL_error(L, "zove.memstore: HNew answered %d", int(zelkor::i32(rc)));
  }
  pushObject(L, store);
  return 1;
}

}  // namespace

void openStores(lua_State* L) {
  static const luaL_Reg fns[] = {{"memstore", luaMemstore}, {}};
  luaL_setfuncs(L, fns, 0);
}

}  // namespace zove::shell

// Listeners: objects of the shell's class `@lsn` that answer every selector by calling a Lua
// function. They join a channel to hear its notices, and can stand wherever the system expects
// an object (a controller, a responder).
//
// The class answers the root protocol (Setu, Dspo, poAd, poRm, LkUp) itself; its fallback hands
// every other message to the function as fn(selector, w1, ..., w12). A function that raises does
// not unwind through the sender: the error is kept and raised when the script's send returns.
#include <string>

#include "platform/zelkor/zelkor.h"
#include "tools/zove/lua/api.h"

namespace zove::shell {

namespace {

using zelkor::ClassRec;
using zelkor::fc;
using zelkor::Msg;
using zelkor::Object;

constexpr zelkor::FourCC kListenerSig = fc("@lsn");

struct ListenerData {
  lua_State* main;  // the session's state; null once the function is released
  int fn;           // registry reference of the function
};

ClassRec* gListenerClass = nullptr;

ListenerData* listenerData(Object* self) {
  return zelkor::instanceData<ListenerData>(self, gListenerClass);
}

int traceback(lua_State* L) {
  luaL_traceback(L, L, lua_tostring(L, 1), 1);
  return 1;
}

Word lsnAnswer(Object* self, const Msg& m) {
  ListenerData* d = listenerData(self);
  if (!d->main) return 0;
  lua_State* L = activeState() ? activeState() : d->main;
  if (!lua_checkstack(L, zelkor::kMaxWords + 4)) return 0;
  int base = lua_gettop(L);
  lua_pushcfunction(L, traceback);
  lua_rawgeti(L, LUA_REGISTRYINDEX, d->fn);
  char sel[4] = {char(m.sel >> 24), char(m.sel >> 16), char(m.sel >> 8), char(m.sel)};
  lua_pushlstring(L, sel, 4);
  for (Word w : m.w) pushWord(L, w);
  Word answer = 0;
  if (lua_pcall(L, zelkor::kMaxWords + 1, 1, base + 1) != LUA_OK) {
    notePending(std::string("listener answering '") + zelkor::fcString(m.sel) +
                "': " + (lua_tostring(L, -1) ? lua_tostring(L, -1) : "(error object)"));
  } else if (!toWord(L, -1, &answer)) {
    notePending(std::string("listener answering '") + zelkor::fcString(m.sel) + "': answered a " +
                luaL_typename(L, -1) + ", not a word");
    answer = 0;
  }
  lua_settop(L, base);
  return answer;
}

Word lsnDispose(Object* self, const Msg& m) {
  ListenerData* d = listenerData(self);
  if (d->main) luaL_unref(d->main, LUA_REGISTRYINDEX, d->fn);
  d->main = nullptr;
  return zelkor::passMsg(gListenerClass, self, m);
}

ClassRec* listenerClass() {
  if (!gListenerClass) {
    gListenerClass = zelkor::makeSubclass(zelkor::rootClass(), kListenerSig, sizeof(ListenerData));
    zelkor::DefnFallback(gListenerClass, lsnAnswer);
    zelkor::Defn(gListenerClass, zelkor::kDspo, lsnDispose);
  }
  return gListenerClass;
}

int luaListen(lua_State* L) {
  Word channel = wordArg(L, 1);
  luaL_checktype(L, 2, LUA_TFUNCTION);
  ClassRec* cls = listenerClass();
  if (!cls) return luaL_error(L, "zove.listen: the class '@lsn' is taken");
  lua_rawgeti(L, LUA_REGISTRYINDEX, LUA_RIDX_MAINTHREAD);
  lua_State* main = lua_tothread(L, -1);
  lua_pop(L, 1);
  lua_pushvalue(L, 2);
  int fn = luaL_ref(L, LUA_REGISTRYINDEX);
  Object* obj = zelkor::newObject(cls);
  *listenerData(obj) = {main, fn};
  trackObject(zelkor::objWord(obj));
  if (channel) zelkor::poAd(obj, channel);
  pushObject(L, zelkor::objWord(obj));
  return 1;
}

int luaUnlisten(lua_State* L) {
  Word w = objectArg(L, 1);
  if (!zelkor::isLiveObject(w) || zelkor::asObject(w)->h.cls != gListenerClass)
    return luaL_error(L, "zove.unlisten: not a live listener");
  zelkor::send(w, zelkor::kDspo);
  untrackObject(w);
  return 0;
}

}  // namespace

void openListeners(lua_State* L) {
  static const luaL_Reg fns[] = {{"listen", luaListen}, {"unlisten", luaUnlisten}, {}};
  luaL_setfuncs(L, fns, 0);
}

}  // namespace zove::shell

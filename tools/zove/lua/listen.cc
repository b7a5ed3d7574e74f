// Listeners: objects of the shell's class `@lsn` that answer every selector by calling a Lua
// function. They join a channel to hear its notices, and can stand wherever the system expects
// an object (a controller, a responder).
//
// The class answers the root protocol (Setu, Dspo, poAd, poRm, LkUp) itself; its fallback hands
// every other message to the function as fn(selector, w1, ..., w12). A function that raises does
// not unwind through the sender: the error is kept and raised when the script's send returns.
//
// A listener made with {answers = {...}} answers only those selectors: LkUp says so, and any
// other selector answers 0 without reaching the function, as an object that lacks the handler
// would, so that a script can stand for a controller that does not answer a selector.
#include <algorithm>
#include <string>
#include <vector>

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
  lua_State* main;                    // the session's state; null once the function is released
  int fn;                             // registry reference of the function
  std::vector<zelkor::FourCC>* only;  // the selectors it answers; null: every one
};

bool declines(const ListenerData* d, zelkor::FourCC sel) {
  return d->only && std::find(d->only->begin(), d->only->end(), sel) == d->only->end();
}

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
  if (!d->main || declines(d, m.sel)) return 0;
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

// LkUp (selector): the root protocol, and the selectors the listener answers.
Word lsnLookUp(Object* self, const Msg& m) {
  zelkor::FourCC sel = zelkor::u32(m.w[0]);
  if (declines(listenerData(self), sel))
    return zelkor::handlerOf(gListenerClass, zelkor::findSelector(sel)) ? 1 : 0;
  return zelkor::passMsg(gListenerClass, self, m);
}

Word lsnDispose(Object* self, const Msg& m) {
  ListenerData* d = listenerData(self);
  if (d->main) luaL_unref(d->main, LUA_REGISTRYINDEX, d->fn);
  d->main = nullptr;
  delete d->only;
  d->only = nullptr;
  return zelkor::passMsg(gListenerClass, self, m);
}

ClassRec* listenerClass() {
  if (!gListenerClass) {
    gListenerClass = zelkor::makeSubclass(zelkor::rootClass(), kListenerSig, sizeof(ListenerData));
    zelkor::DefnFallback(gListenerClass, lsnAnswer);
    zelkor::Defn(gListenerClass, zelkor::kDspo, lsnDispose);
    zelkor::Defn(gListenerClass, zelkor::kLkUp, lsnLookUp);
  }
  return gListenerClass;
}

// The selectors of the options' `answers` list, checked before anything is made (a bad one raises);
// null when the options give none.
std::vector<zelkor::FourCC>* answersOption(lua_State* L, int idx) {
  if (lua_isnoneornil(L, idx)) return nullptr;
  luaL_checktype(L, idx, LUA_TTABLE);
  if (lua_getfield(L, idx, "answers") == LUA_TNIL) {
    lua_pop(L, 1);
    return nullptr;
  }
  luaL_checktype(L, -1, LUA_TTABLE);
  lua_Integer n = luaL_len(L, -1);
  for (lua_Integer i = 1; i <= n; ++i) {
    lua_rawgeti(L, -1, i);
    codeArg(L, -1);
    lua_pop(L, 1);
  }
  auto* only = new std::vector<zelkor::FourCC>;
  for (lua_Integer i = 1; i <= n; ++i) {
    lua_rawgeti(L, -1, i);
    only->push_back(codeArg(L, -1));
    lua_pop(L, 1);
  }
  lua_pop(L, 1);
  return only;
}

int luaListen(lua_State* L) {
  Word channel = wordArg(L, 1);
  luaL_checktype(L, 2, LUA_TFUNCTION);
  ClassRec* cls = listenerClass();
  if (!cls) return luaL_error(L, "zove.listen: the class '@lsn' is taken");
  std::vector<zelkor::FourCC>* only = answersOption(L, 3);
  lua_rawgeti(L, LUA_REGISTRYINDEX, LUA_RIDX_MAINTHREAD);
  lua_State* main = lua_tothread(L, -1);
  lua_pop(L, 1);
  lua_pushvalue(L, 2);
  int fn = luaL_ref(L, LUA_REGISTRYINDEX);
  Object* obj = zelkor::newObject(cls);
  *listenerData(obj) = {main, fn, only};
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

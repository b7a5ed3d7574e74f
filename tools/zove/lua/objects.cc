// Objects and sends: zove.class, zove.new, obj:send, zove.id, zove.object.
//
// An object userdata holds the object's word and nothing else; two userdata for one object
// compare equal. Every send checks first that the receiver is alive, so a script that keeps an
// object past its Dspo gets an error instead of touching freed memory.
#include <algorithm>
#include <vector>

#include "platform/zelkor/zelkor.h"
#include "tools/zove/lua/api.h"

namespace zove::shell {

namespace {

using zelkor::fc;

std::vector<Word>& tracked() {
  static std::vector<Word> objects;
  return objects;
}

int objSend(lua_State* L) {
  Word self = objectArg(L, 1);
  zelkor::FourCC sel = codeArg(L, 2);
  int words = lua_gettop(L) - 2;
  if (words > zelkor::kMaxWords)
    return luaL_error(L, "send: %d words, a message carries at most %d", words, zelkor::kMaxWords);
  if (!zelkor::isLiveObject(self))
    return luaL_error(L, "send '%s': the object %p is not alive", codeText(sel).s,
                      reinterpret_cast<void*>(self));
  zelkor::Msg m = zelkor::makeMsg(sel);
  for (int i = 0; i < words; ++i) m.w[i] = wordArg(L, 3 + i);

  bool classObject = zelkor::asObject(self)->h.cls->isMeta;
  lua_State* outer = activeState();
  setActiveState(L);
  Word answer = zelkor::dispatch(zelkor::asObject(self), m);
  setActiveState(outer);

  if (classObject && (sel == zelkor::kNew_ || sel == zelkor::kNwMF) && zelkor::isLiveObject(answer))
    trackObject(answer);
  if (sel == zelkor::kDspo) untrackObject(self);
  raisePending(L);
  pushWord(L, answer);
  return 1;
}

int objEq(lua_State* L) {
  lua_pushboolean(L, objectArg(L, 1) == objectArg(L, 2));
  return 1;
}

int objToString(lua_State* L) {
  Word w = objectArg(L, 1);
  if (!zelkor::isLiveObject(w)) {
    lua_pushfstring(L, "object %p (disposed)", reinterpret_cast<void*>(w));
    return 1;
  }
  zelkor::Object* o = zelkor::asObject(w);
  bool isClass = o->h.cls->isMeta;
  zelkor::FourCC sig = isClass ? zelkor::classOf(o)->sig : o->h.cls->sig;
  lua_pushfstring(L, "%s '%s' %p", isClass ? "class" : "object", codeText(sig).s,
                  reinterpret_cast<void*>(w));
  return 1;
}

int luaClass(lua_State* L) {
  pushObject(L, zelkor::ZelkorLookup(codeArg(L, 1)));
  return 1;
}

int luaNew(lua_State* L) {
  zelkor::FourCC sig = codeArg(L, 1);
  Word cls = zelkor::ZelkorLookup(sig);
  if (!cls) return luaL_error(L, "zove.new: no class '%s'", codeText(sig).s);
  lua_State* outer = activeState();
  setActiveState(L);
  Word obj = zelkor::send(cls, zelkor::kNew_);
  setActiveState(outer);
  raisePending(L);
  if (!obj) return luaL_error(L, "zove.new: class '%s' made nothing", codeText(sig).s);
  trackObject(obj);
  pushObject(L, obj);
  return 1;
}

// An object's word; for the other userdata (cell, buffer, string, ...) the address they pass.
int luaId(lua_State* L) {
  luaL_checktype(L, 1, LUA_TUSERDATA);
  pushWord(L, wordArg(L, 1));
  return 1;
}

int luaObject(lua_State* L) {
  Word w = Word(luaL_checkinteger(L, 1));
  if (w && !zelkor::isLiveObject(w))
    return luaL_error(L, "zove.object: %p is not a live object", reinterpret_cast<void*>(w));
  pushObject(L, w);
  return 1;
}

}  // namespace

void pushObject(lua_State* L, Word obj) {
  if (!obj) {
    lua_pushnil(L);
    return;
  }
  *static_cast<Word*>(newUserdata(L, sizeof(Word), kObjectMeta)) = obj;
}

Word objectArg(lua_State* L, int idx) {
  return *static_cast<Word*>(luaL_checkudata(L, idx, kObjectMeta));
}

void trackObject(Word obj) {
  if (std::find(tracked().begin(), tracked().end(), obj) == tracked().end())
    tracked().push_back(obj);
}

void untrackObject(Word obj) {
  auto& t = tracked();
  t.erase(std::remove(t.begin(), t.end(), obj), t.end());
}

// Disposes of the objects the session made and the script left alive, newest first, so that a
// listener made after a store is gone before the store's last notices.
void disposeTracked() {
  std::vector<Word> objects;
  objects.swap(tracked());
  for (auto it = objects.rbegin(); it != objects.rend(); ++it)
    if (zelkor::isLiveObject(*it)) zelkor::send(*it, zelkor::kDspo);
}

void openObjects(lua_State* L) {
  static const luaL_Reg meta[] = {
      {"__eq", objEq}, {"__tostring", objToString}, {"send", objSend}, {}};
  luaL_newmetatable(L, kObjectMeta);
  luaL_setfuncs(L, meta, 0);
  lua_pushvalue(L, -1);
  lua_setfield(L, -2, "__index");
  lua_pop(L, 1);

  static const luaL_Reg fns[] = {
      {"class", luaClass}, {"new", luaNew}, {"id", luaId}, {"object", luaObject}, {}};
  luaL_setfuncs(L, fns, 0);
}

}  // namespace zove::shell

// Foundation values a script hands the system by address: TString, TDate, TMemory, RNList.
//
// Each userdata is the foundation object itself, built in place and destroyed when Lua collects
// it, so its address is what a handler receives. A script keeps the userdata in a variable for as
// long as the system may use the address.
#include <cstring>
#include <new>
#include <string>

#include "platform/fundra/memory.h"
#include "platform/fundra/rnlist.h"
#include "platform/fundra/tdate.h"
#include "platform/fundra/tstring.h"
#include "tools/zove/lua/api.h"

namespace zove::shell {

namespace {

constexpr int32_t kMaxBytes = 1 << 30;

template <class T>
T* make(lua_State* L, const char* meta) {
  static_assert(alignof(T) <= alignof(lua_Integer), "userdata memory is aligned for Lua's words");
  return new (newUserdata(L, sizeof(T), meta)) T();
}

template <class T>
int destroy(lua_State* L) {
  static_cast<T*>(lua_touserdata(L, 1))->~T();
  return 0;
}

// __index for kinds with fields and methods: the field reader, else the method of that name.
int indexWith(lua_State* L, const char* meta, bool (*field)(lua_State*, const char*)) {
  const char* key = luaL_checkstring(L, 2);
  if (field(L, key)) return 1;
  luaL_getmetatable(L, meta);
  lua_getfield(L, -1, key);
  return 1;
}

// --- TString: .text ------------------------------------------------------------------------------

fundra::TString* checkString(lua_State* L) {
  return static_cast<fundra::TString*>(luaL_checkudata(L, 1, kStringMeta));
}

int luaString(lua_State* L) {
  size_t n = 0;
  const char* text = luaL_optlstring(L, 1, "", &n);
  make<fundra::TString>(L, kStringMeta)->Set(std::string_view(text, n));
  return 1;
}

int stringIndex(lua_State* L) {
  fundra::TString* s = checkString(L);
  if (std::strcmp(luaL_checkstring(L, 2), "text") != 0) return 0;
  lua_pushlstring(L, s->View().data(), s->View().size());
  return 1;
}

int stringNewIndex(lua_State* L) {
  fundra::TString* s = checkString(L);
  if (std::strcmp(luaL_checkstring(L, 2), "text") != 0)
    return luaL_error(L, "a string has only the field 'text'");
  size_t n = 0;
  const char* text = luaL_checklstring(L, 3, &n);
  s->Set(std::string_view(text, n));
  return 0;
}

int stringToString(lua_State* L) {
  fundra::TString* s = checkString(L);
  lua_pushlstring(L, s->View().data(), s->View().size());
  return 1;
}

// --- TDate: get, set, .isdefault ----------------------------------------------------------------

fundra::TDate* checkDate(lua_State* L) {
  return static_cast<fundra::TDate*>(luaL_checkudata(L, 1, kDateMeta));
}

// Sets the date from the seven fields at first..first+6 (missing ones 0); a date without any field
// is the default date.
void setDate(lua_State* L, fundra::TDate* d, int first) {
  if (lua_isnoneornil(L, first)) {
    d->Reset();
    return;
  }
  int32_t f[7];
  for (int i = 0; i < 7; ++i) f[i] = int32_t(luaL_optinteger(L, first + i, 0));
  d->Set(f[0], f[1], f[2], f[3], f[4], f[5], f[6]);
}

int luaDate(lua_State* L) {
  fundra::TDate* d = make<fundra::TDate>(L, kDateMeta);
  lua_insert(L, 1);
  setDate(L, d, 2);
  lua_settop(L, 1);
  return 1;
}

int dateGet(lua_State* L) {
  fundra::TDate* d = checkDate(L);
  for (int32_t v : {d->GetYear(), d->GetMonth(), d->GetDay(), d->GetHour(), d->GetMinute(),
                    d->GetSecond(), d->GetMillisecond()})
    lua_pushinteger(L, v);
  return 7;
}

// SetToCurrent: the clock's time, or the time fixed with zove.setnow.
int dateSetCurrent(lua_State* L) {
  checkDate(L)->SetToCurrent();
  return 0;
}

int dateSet(lua_State* L) {
  setDate(L, checkDate(L), 2);
  return 0;
}

bool dateField(lua_State* L, const char* key) {
  if (std::strcmp(key, "isdefault") != 0) return false;
  lua_pushboolean(L, checkDate(L)->IsDefault());
  return true;
}

int dateIndex(lua_State* L) { return indexWith(L, kDateMeta, dateField); }

int dateToString(lua_State* L) {
  std::string s = checkDate(L)->Dump();
  lua_pushlstring(L, s.data(), s.size());
  return 1;
}

int dateEq(lua_State* L) {
  fundra::TDate* a = checkDate(L);
  auto* b = static_cast<fundra::TDate*>(luaL_checkudata(L, 2, kDateMeta));
  lua_pushboolean(L, *a == *b);
  return 1;
}

int dateLt(lua_State* L) {
  fundra::TDate* a = checkDate(L);
  auto* b = static_cast<fundra::TDate*>(luaL_checkudata(L, 2, kDateMeta));
  lua_pushboolean(L, *a < *b);
  return 1;
}

// --- TMemory: .bytes
// ------------------------------------------------------------------------------

fundra::TMemory* checkMemory(lua_State* L) {
  return static_cast<fundra::TMemory*>(luaL_checkudata(L, 1, kMemoryMeta));
}

int setMemory(lua_State* L, fundra::TMemory* mem, int idx) {
  size_t n = 0;
  const char* bytes = luaL_checklstring(L, idx, &n);
  if (n > size_t(kMaxBytes))
    return luaL_error(L, "%d bytes are too many for a memory block", int(n));
  if (mem->SetSize(int32_t(n)) != 0) return luaL_error(L, "no memory for %d bytes", int(n));
  if (n) std::memcpy(mem->MemPtr(), bytes, n);
  return 0;
}

int luaMemory(lua_State* L) {
  bool given = !lua_isnoneornil(L, 1);
  fundra::TMemory* mem = make<fundra::TMemory>(L, kMemoryMeta);
  if (given) setMemory(L, mem, 1);
  return 1;
}

int memoryIndex(lua_State* L) {
  fundra::TMemory* mem = checkMemory(L);
  if (std::strcmp(luaL_checkstring(L, 2), "bytes") != 0) return 0;
  lua_pushlstring(L, reinterpret_cast<const char*>(mem->MemPtr()), size_t(mem->GetSize()));
  return 1;
}

int memoryNewIndex(lua_State* L) {
  fundra::TMemory* mem = checkMemory(L);
  if (std::strcmp(luaL_checkstring(L, 2), "bytes") != 0)
    return luaL_error(L, "a memory has only the field 'bytes'");
  return setMemory(L, mem, 3);
}

int memoryLen(lua_State* L) {
  lua_pushinteger(L, checkMemory(L)->GetSize());
  return 1;
}

int memoryToString(lua_State* L) {
  lua_pushfstring(L, "memory(%d bytes)", int(checkMemory(L)->GetSize()));
  return 1;
}

// --- RNList: items, set
// ---------------------------------------------------------------------------

fundra::RNList* checkList(lua_State* L) {
  return static_cast<fundra::RNList*>(luaL_checkudata(L, 1, kListMeta));
}

// Replaces the list by the sequence of words in the table at idx.
int setList(lua_State* L, fundra::RNList* list, int idx) {
  luaL_checktype(L, idx, LUA_TTABLE);
  list->Clear();
  lua_Integer n = luaL_len(L, idx);
  for (lua_Integer i = 1; i <= n; ++i) {
    lua_geti(L, idx, i);
    int32_t v = zelkor::i32(wordArg(L, -1));
    lua_pop(L, 1);
    if (list->Add(v) < 0) return luaL_error(L, "no memory for the list");
  }
  return 0;
}

int luaList(lua_State* L) {
  bool given = !lua_isnoneornil(L, 1);
  fundra::RNList* list = make<fundra::RNList>(L, kListMeta);
  if (given) setList(L, list, 1);
  return 1;
}

int listItems(lua_State* L) {
  fundra::RNList* list = checkList(L);
  lua_createtable(L, list->Count(), 0);
  for (int32_t i = 0; i < list->Count(); ++i) {
    lua_pushinteger(L, list->Get(i));
    lua_rawseti(L, -2, i + 1);
  }
  return 1;
}

int listSet(lua_State* L) { return setList(L, checkList(L), 2); }

int listLen(lua_State* L) {
  lua_pushinteger(L, checkList(L)->Count());
  return 1;
}

int listToString(lua_State* L) {
  std::string s = checkList(L)->Dump();
  lua_pushlstring(L, s.data(), s.size());
  return 1;
}

bool noField(lua_State*, const char*) { return false; }
int listIndex(lua_State* L) { return indexWith(L, kListMeta, noField); }

void newMeta(lua_State* L, const char* name, const luaL_Reg* fns) {
  luaL_newmetatable(L, name);
  luaL_setfuncs(L, fns, 0);
  lua_pop(L, 1);
}

}  // namespace

void openValues(lua_State* L) {
  static const luaL_Reg stringMeta[] = {{"__index", stringIndex},
                                        {"__newindex", stringNewIndex},
                                        {"__tostring", stringToString},
                                        {"__gc", destroy<fundra::TString>},
                                        {}};
  static const luaL_Reg dateMeta[] = {
      {"__index", dateIndex}, {"__tostring", dateToString},     {"__eq", dateEq},
      {"__lt", dateLt},       {"__gc", destroy<fundra::TDate>}, {"get", dateGet},
      {"set", dateSet},       {"setcurrent", dateSetCurrent},   {}};
  static const luaL_Reg memoryMeta[] = {
      {"__index", memoryIndex},       {"__newindex", memoryNewIndex},     {"__len", memoryLen},
      {"__tostring", memoryToString}, {"__gc", destroy<fundra::TMemory>}, {}};
  static const luaL_Reg listMeta[] = {{"__index", listIndex},
                                      {"__len", listLen},
                                      {"__tostring", listToString},
                                      {"__gc", destroy<fundra::RNList>},
                                      {"items", listItems},
                                      {"set", listSet},
                                      {}};
  newMeta(L, kStringMeta, stringMeta);
  newMeta(L, kDateMeta, dateMeta);
  newMeta(L, kMemoryMeta, memoryMeta);
  newMeta(L, kListMeta, listMeta);

  static const luaL_Reg fns[] = {
      {"string", luaString}, {"date", luaDate}, {"memory", luaMemory}, {"list", luaList}, {}};
  luaL_setfuncs(L, fns, 0);
}

}  // namespace zove::shell

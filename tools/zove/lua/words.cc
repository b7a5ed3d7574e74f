// Words and raw memory: how Lua values become message words and answers become integers, the
// one-word cell, the raw byte buffer, peek/poke (32 bits) and peekw/pokew (a whole word).
#include <cstdio>
#include <cstring>
#include <string>

#include "tools/zove/lua/api.h"

namespace zove::shell {

namespace {

// A buffer userdata: its size, then the bytes at a 16-byte boundary (what its address names).
constexpr size_t kBufferHead = 16;

size_t bufferSize(void* ud) { return *static_cast<size_t*>(ud); }
uint8_t* bufferBytes(void* ud) { return static_cast<uint8_t*>(ud) + kBufferHead; }

// 32-bit values travel sign-extended, but a handler may also hand one back zero-extended (a
// FourCC or an unsigned count built as a word); both read as the same 32-bit value. A word whose
// upper half is anything else is an address.
bool isThirtyTwoBit(Word w) {
  uint32_t hi = uint32_t(uint64_t(w) >> 32);
  return hi == 0 || hi == 0xFFFFFFFFu;
}

int luaFc(lua_State* L) {
  size_t n = 0;
  const char* s = luaL_checklstring(L, 1, &n);
  if (n != 4) return luaL_error(L, "zove.fc: '%s' is not four characters", s);
  lua_pushinteger(L, lua_Integer(codeArg(L, 1)));
  return 1;
}

int luaFcstr(lua_State* L) {
  uint32_t code = uint32_t(luaL_checkinteger(L, 1));
  char s[4] = {char(code >> 24), char(code >> 16), char(code >> 8), char(code)};
  lua_pushlstring(L, s, 4);
  return 1;
}

// --- Cells -------------------------------------------------------------------------------------

int luaWord(lua_State* L) {
  Word v = lua_isnoneornil(L, 1) ? 0 : wordArg(L, 1);
  *static_cast<Word*>(newUserdata(L, sizeof(Word), kCellMeta)) = v;
  return 1;
}

Word* checkCell(lua_State* L) { return static_cast<Word*>(luaL_checkudata(L, 1, kCellMeta)); }

int cellIndex(lua_State* L) {
  Word* cell = checkCell(L);
  if (std::strcmp(luaL_checkstring(L, 2), "value") != 0) return 0;
  pushWord(L, *cell);
  return 1;
}

int cellNewIndex(lua_State* L) {
  Word* cell = checkCell(L);
  if (std::strcmp(luaL_checkstring(L, 2), "value") != 0)
    return luaL_error(L, "a word cell has only the field 'value'");
  *cell = wordArg(L, 3);
  return 0;
}

int cellToString(lua_State* L) {
  Word* cell = checkCell(L);
  lua_pushfstring(L, "word(%I)", lua_Integer(*cell));
  return 1;
}

// --- Buffers -----------------------------------------------------------------------------------

int luaBuffer(lua_State* L) {
  lua_Integer n = luaL_checkinteger(L, 1);
  size_t len = 0;
  const char* init = luaL_optlstring(L, 2, "", &len);
  if (n < 0 || n > (1 << 30)) return luaL_error(L, "zove.buffer: bad size %I", n);
  if (len > size_t(n)) return luaL_error(L, "zove.buffer: %d initial bytes for %I", int(len), n);
  void* ud = newUserdata(L, kBufferHead + size_t(n), kBufferMeta);
  *static_cast<size_t*>(ud) = size_t(n);
  std::memset(bufferBytes(ud), 0, size_t(n));
  std::memcpy(bufferBytes(ud), init, len);
  return 1;
}

// The bytes at offset off of the buffer at index 1, after checking that `width` of them lie
// inside it.
uint8_t* bufferAt(lua_State* L, size_t width) {
  void* ud = luaL_checkudata(L, 1, kBufferMeta);
  lua_Integer off = luaL_checkinteger(L, 2);
  if (off < 0 || size_t(off) + width > bufferSize(ud))
    luaL_error(L, "buffer offset %I out of range (size %d)", off, int(bufferSize(ud)));
  return bufferBytes(ud) + off;
}

template <class T>
int bufferGet(lua_State* L) {
  T v;
  std::memcpy(&v, bufferAt(L, sizeof(T)), sizeof(T));
  lua_pushinteger(L, lua_Integer(v));
  return 1;
}

int bufferSetU32(lua_State* L) {
  uint8_t* at = bufferAt(L, 4);
  uint32_t v = uint32_t(wordArg(L, 3));
  std::memcpy(at, &v, 4);
  return 0;
}

int bufferIndex(lua_State* L) {
  void* ud = luaL_checkudata(L, 1, kBufferMeta);
  const char* key = luaL_checkstring(L, 2);
  if (!std::strcmp(key, "bytes")) {
    lua_pushlstring(L, reinterpret_cast<const char*>(bufferBytes(ud)), bufferSize(ud));
    return 1;
  }
  luaL_getmetatable(L, kBufferMeta);
  lua_getfield(L, -1, key);
  return 1;
}

int bufferNewIndex(lua_State* L) {
  void* ud = luaL_checkudata(L, 1, kBufferMeta);
  if (std::strcmp(luaL_checkstring(L, 2), "bytes") != 0)
    return luaL_error(L, "a buffer has only the field 'bytes'");
  size_t len = 0;
  const char* s = luaL_checklstring(L, 3, &len);
  if (len > bufferSize(ud))
    return luaL_error(L, "%d bytes do not fit a buffer of %d", int(len), int(bufferSize(ud)));
  std::memset(bufferBytes(ud), 0, bufferSize(ud));
  std::memcpy(bufferBytes(ud), s, len);
  return 0;
}

int bufferLen(lua_State* L) {
  lua_pushinteger(L, lua_Integer(bufferSize(luaL_checkudata(L, 1, kBufferMeta))));
  return 1;
}

int bufferToString(lua_State* L) {
  void* ud = luaL_checkudata(L, 1, kBufferMeta);
  lua_pushfstring(L, "buffer(%d bytes at %p)", int(bufferSize(ud)), bufferBytes(ud));
  return 1;
}

// --- peek and poke: the system's 32-bit words at raw addresses --------------------------------

int luaPeek(lua_State* L) {
  Word addr = wordArg(L, 1);
  if (!addr) return luaL_error(L, "zove.peek: null address");
  int32_t v;
  std::memcpy(&v, reinterpret_cast<const void*>(addr), 4);
  lua_pushinteger(L, v);
  return 1;
}

int luaPoke(lua_State* L) {
  Word addr = wordArg(L, 1);
  if (!addr) return luaL_error(L, "zove.poke: null address");
  int32_t v = zelkor::i32(wordArg(L, 2));
  std::memcpy(reinterpret_cast<void*>(addr), &v, 4);
  return 0;
}

// peekw and pokew: a whole message word (pointer-wide), such as an object written into a result
// word. A word that carries a 32-bit value reads as that value, as answers do.
int luaPeekw(lua_State* L) {
  Word addr = wordArg(L, 1);
  if (!addr) return luaL_error(L, "zove.peekw: null address");
  Word v;
  std::memcpy(&v, reinterpret_cast<const void*>(addr), sizeof v);
  pushWord(L, v);
  return 1;
}

int luaPokew(lua_State* L) {
  Word addr = wordArg(L, 1);
  if (!addr) return luaL_error(L, "zove.pokew: null address");
  Word v = wordArg(L, 2);
  std::memcpy(reinterpret_cast<void*>(addr), &v, sizeof v);
  return 0;
}

}  // namespace

CodeText codeText(zelkor::FourCC code) {
  CodeText t{};
  std::string s = zelkor::fcString(code);
  std::snprintf(t.s, sizeof t.s, "%s", s.c_str());
  return t;
}

zelkor::FourCC codeArg(lua_State* L, int idx) {
  if (lua_type(L, idx) == LUA_TSTRING) {
    size_t n = 0;
    const char* s = lua_tolstring(L, idx, &n);
    if (n != 4) luaL_error(L, "'%s' is not a four-character code", s);
    return zelkor::FourCC(uint8_t(s[0])) << 24 | zelkor::FourCC(uint8_t(s[1])) << 16 |
           zelkor::FourCC(uint8_t(s[2])) << 8 | zelkor::FourCC(uint8_t(s[3]));
  }
  return zelkor::u32(Word(luaL_checkinteger(L, idx)));
}

bool toWord(lua_State* L, int idx, Word* out) {
  switch (lua_type(L, idx)) {
    case LUA_TNONE:
    case LUA_TNIL:
      *out = 0;
      return true;
    case LUA_TBOOLEAN:
      *out = lua_toboolean(L, idx) ? 1 : 0;
      return true;
    case LUA_TNUMBER: {
      int exact = 0;
      *out = Word(lua_tointegerx(L, idx, &exact));
      return exact != 0;
    }
    case LUA_TSTRING: {
      size_t n = 0;
      const char* s = lua_tolstring(L, idx, &n);
      if (n != 4) return false;
      *out = Word(int32_t(uint32_t(uint8_t(s[0])) << 24 | uint32_t(uint8_t(s[1])) << 16 |
                          uint32_t(uint8_t(s[2])) << 8 | uint32_t(uint8_t(s[3]))));
      return true;
    }
    case LUA_TUSERDATA: {
      if (void* ud = testUserdata(L, idx, kObjectMeta)) {
        *out = *static_cast<Word*>(ud);
        return true;
      }
      if (void* ud = testUserdata(L, idx, kBufferMeta)) {
        *out = reinterpret_cast<Word>(bufferBytes(ud));
        return true;
      }
      for (const char* meta : {kCellMeta, kStringMeta, kDateMeta, kMemoryMeta, kListMeta})
        if (void* ud = testUserdata(L, idx, meta)) {
          *out = reinterpret_cast<Word>(ud);
          return true;
        }
      return false;
    }
    default:
      return false;
  }
}

Word wordArg(lua_State* L, int idx) {
  Word w = 0;
  if (toWord(L, idx, &w)) return w;
  if (lua_type(L, idx) == LUA_TSTRING)
    luaL_error(L, "argument %d: '%s' is not a four-character code", idx, lua_tostring(L, idx));
  if (lua_type(L, idx) == LUA_TNUMBER)
    luaL_error(L, "argument %d: %s is not an integer", idx, lua_tostring(L, idx));
  luaL_error(L, "argument %d: a %s cannot be a message word", idx, luaL_typename(L, idx));
  return 0;
}

void pushWord(lua_State* L, Word w) {
  lua_pushinteger(L, isThirtyTwoBit(w) ? lua_Integer(zelkor::i32(w)) : lua_Integer(w));
}

void* newUserdata(lua_State* L, size_t bytes, const char* meta) {
  void* ud = lua_newuserdatauv(L, bytes, 0);
  luaL_setmetatable(L, meta);
  return ud;
}

void* testUserdata(lua_State* L, int idx, const char* meta) { return luaL_testudata(L, idx, meta); }

void openWords(lua_State* L) {
  static const luaL_Reg cellMeta[] = {
      {"__index", cellIndex}, {"__newindex", cellNewIndex}, {"__tostring", cellToString}, {}};
  luaL_newmetatable(L, kCellMeta);
  luaL_setfuncs(L, cellMeta, 0);
  lua_pop(L, 1);

  static const luaL_Reg bufferMeta[] = {
      {"__index", bufferIndex},       {"__newindex", bufferNewIndex}, {"__len", bufferLen},
      {"__tostring", bufferToString}, {"u32", bufferGet<uint32_t>},   {"setu32", bufferSetU32},
      {"i16", bufferGet<int16_t>},    {"u8", bufferGet<uint8_t>},     {}};
  luaL_newmetatable(L, kBufferMeta);
  luaL_setfuncs(L, bufferMeta, 0);
  lua_pop(L, 1);

  static const luaL_Reg fns[] = {{"fc", luaFc},         {"fcstr", luaFcstr}, {"word", luaWord},
                                 {"buffer", luaBuffer}, {"peek", luaPeek},   {"poke", luaPoke},
                                 {"peekw", luaPeekw},   {"pokew", luaPokew}, {}};
  luaL_setfuncs(L, fns, 0);
  lua_pushinteger(L, lua_Integer(sizeof(Word)));
  lua_setfield(L, -2, "wordsize");
}

}  // namespace zove::shell

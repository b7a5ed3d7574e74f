// The shell's Lua binding: the table `zove` that scripts use to speak to the module.
//
// Every value a script hands the system becomes a message word (wordArg); every answer comes
// back as an integer (pushWord). docs/shell.md is the reference for script writers.
//
// Errors and C++: the Lua library raises errors with longjmp, which skips C++ destructors. So a
// binding function raises (luaL_error, luaL_check*) only while no object with a destructor is
// alive in its frame, and every call back into Lua from a handler goes through lua_pcall.
#pragma once

#include <lua.hpp>
#include <string>

#include "platform/zelkor/word.h"

namespace zove::shell {

using zelkor::Word;

// Metatable names of the userdata kinds. Each kind passes its address as a message word.
constexpr const char* kObjectMeta = "zove.object";
constexpr const char* kCellMeta = "zove.cell";
constexpr const char* kBufferMeta = "zove.buffer";
constexpr const char* kStringMeta = "zove.string";
constexpr const char* kDateMeta = "zove.date";
constexpr const char* kMemoryMeta = "zove.memory";
constexpr const char* kListMeta = "zove.list";

// Opens the standard libraries and the table `zove` in the state (as a global), and starts the
// session's log and assertion captures; with echoLog, log lines also go on to stderr.
// closeSession, before the state is closed, disposes of what the session made and is still
// alive, reports a listener error nobody raised, and ends the captures; after a failed script it
// prints the log lines the script had not read.
void openSession(lua_State* L, bool echoLog);
void closeSession(bool failed);

// The message word for the value at idx: integers as given, a four-character string as its
// FourCC, nil/false 0, true 1, a zove userdata its address. Raises a Lua error otherwise.
Word wordArg(lua_State* L, int idx);
// The same without raising: false when the value cannot be a word.
bool toWord(lua_State* L, int idx, Word* out);
// Pushes a word as an integer: a 32-bit value (zero- or sign-extended) becomes that value
// sign-extended; anything wider (an address) stays as it is.
void pushWord(lua_State* L, Word w);
// The FourCC of a four-character string, or of an integer.
zelkor::FourCC codeArg(lua_State* L, int idx);

// The four characters of a code for error messages, as zelkor::fcString writes them, in a
// buffer that needs no destructor (so that a Lua error may follow).
struct CodeText {
  char s[20];
};
CodeText codeText(zelkor::FourCC code);

// Pushes the object as a userdata of kObjectMeta, or nil for 0.
void pushObject(lua_State* L, Word obj);
// The object word of an object userdata at idx (raises when it is not one).
Word objectArg(lua_State* L, int idx);
// Remembers an object the session made, so that closeSession disposes of it if the script
// did not.
void trackObject(Word obj);
void untrackObject(Word obj);
// Disposes of the tracked objects that are still alive, newest first.
void disposeTracked();

// A new userdata of `bytes` with the metatable `meta`.
void* newUserdata(lua_State* L, size_t bytes, const char* meta);
// The userdata at idx when it has the metatable `meta`, else null.
void* testUserdata(lua_State* L, int idx, const char* meta);

// A handler's Lua error, kept until the script's own call returns (see raisePending).
void notePending(const std::string& message);
// Raises the kept error, if any, from the binding function that made the send.
void raisePending(lua_State* L);

// The state in which listeners run their functions: the coroutine of the send that reached them.
lua_State* activeState();
void setActiveState(lua_State* L);

// Registration of each group of functions into the table on top of the stack.
void openWords(lua_State* L);        // fc, fcstr, word, buffer, peek, poke, peekw, pokew, wordsize
void openObjects(lua_State* L);      // class, new, id, object, and obj:send
void openListeners(lua_State* L);    // listen, unlisten
void openDiagnostics(lua_State* L);  // log, asserts, expect
void openValues(lua_State* L);       // string, date, memory, list
void openDialogs(lua_State* L);      // answer, queries, alerts, setnow
void closeDialogs();                 // forgets queued answers and the fixed time
void openStores(lua_State* L);       // create, open, memstore
void openHost(lua_State* L);         // text, resource
void closeHost();                    // forgets the resources the session handed over
void openTree(lua_State* L);         // treewatch (runs once the table `zove` is global)

}  // namespace zove::shell

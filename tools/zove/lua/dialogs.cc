// Dialogs and the clock, made repeatable: zove.answer queues what the next query is answered,
// zove.queries and zove.alerts read back what the system asked and showed, zove.setnow fixes the
// time that SetToCurrent gives.
//
// The session installs scripted dialogs, in the prompt too: a query nobody queued an answer for
// is cancelled, so a script never waits for a person.
#include "platform/fundra/dialogs.h"

#include <memory>

#include "platform/fundra/tdate.h"
#include "tools/zove/lua/api.h"

namespace zove::shell {

namespace {

struct Dialogs {
  std::unique_ptr<fundra::ScriptedDialogs> host;
  fundra::DialogHost* previous = nullptr;
};

Dialogs& dialogs() {
  static Dialogs d;
  return d;
}

int luaAnswer(lua_State* L) {
  lua_Integer code = luaL_checkinteger(L, 1);
  size_t n = 0;
  const char* text = luaL_optlstring(L, 2, "", &n);
  if (code == fundra::kDialogConfirmed) {
    dialogs().host->QueueAnswer(std::string_view(text, n));
  } else if (code == fundra::kDialogCancelled) {
    dialogs().host->QueueCancel();
  } else {
    return luaL_error(L, "zove.answer: %I is neither %d (confirmed) nor %d (cancelled)", code,
                      int(fundra::kDialogConfirmed), int(fundra::kDialogCancelled));
  }
  return 0;
}

void setText(lua_State* L, const char* field, const fundra::TString& s) {
  lua_pushlstring(L, s.View().data(), s.View().size());
  lua_setfield(L, -2, field);
}

int luaQueries(lua_State* L) {
  std::vector<fundra::QueryRequest> asked = dialogs().host->TakeQueries();
  lua_createtable(L, int(asked.size()), 0);
  for (size_t i = 0; i < asked.size(); ++i) {
    lua_createtable(L, 0, 4);
    setText(L, "text", asked[i].text);
    setText(L, "proposal", asked[i].proposal);
    lua_pushinteger(L, asked[i].length);
    lua_setfield(L, -2, "length");
    lua_pushinteger(L, asked[i].style);
    lua_setfield(L, -2, "style");
    lua_rawseti(L, -2, lua_Integer(i + 1));
  }
  return 1;
}

int luaAlerts(lua_State* L) {
  std::vector<fundra::TString> shown = dialogs().host->TakeAlerts();
  lua_createtable(L, int(shown.size()), 0);
  for (size_t i = 0; i < shown.size(); ++i) {
    lua_pushlstring(L, shown[i].View().data(), shown[i].View().size());
    lua_rawseti(L, -2, lua_Integer(i + 1));
  }
  return 1;
}

int luaSetNow(lua_State* L) {
  if (lua_isnoneornil(L, 1)) {
    fundra::ClearFixedNow();
    return 0;
  }
  fundra::SetFixedNow(*static_cast<fundra::TDate*>(luaL_checkudata(L, 1, kDateMeta)));
  return 0;
}

}  // namespace

void openDialogs(lua_State* L) {
  Dialogs& d = dialogs();
  d.host = std::make_unique<fundra::ScriptedDialogs>();
  d.previous = fundra::SetDialogHost(d.host.get());
  static const luaL_Reg fns[] = {{"answer", luaAnswer},
                                 {"queries", luaQueries},
                                 {"alerts", luaAlerts},
                                 {"setnow", luaSetNow},
                                 {}};
  luaL_setfuncs(L, fns, 0);
}

void closeDialogs() {
  Dialogs& d = dialogs();
  fundra::SetDialogHost(d.previous);
  d.host.reset();
  fundra::ClearFixedNow();
}

}  // namespace zove::shell

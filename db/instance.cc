// The property type `@PTY`: names any DL of a store for display, an object DL by its uType and
// number, a module DL (a controller's) by its uType. (`@Ins`, the default instance, answers only
// the root protocol; its boot is in db_class.cc.)
#include "db/db_class.h"
#include "platform/fundra/debug.h"
#include "platform/fundra/tstring.h"

namespace zove {

using zelkor::asPtr;
using zelkor::i32;
using zelkor::send;
using zelkor::u32;

namespace {

PtyData* ptyData(Object* self) { return zelkor::instanceData<PtyData>(self, gPtyClass); }

}  // namespace

// Setu (store): answers the store.
Word ptySetup(Object* self, const Msg& m) {
  ptyData(self)->store = m.w[0];
  return m.w[0];
}

// PGNm (DL, TString*): "Object <Note=57>" for a DL that has an owning module, "Controller <PRO1>"
// for one that has none (a module DL).
Word ptyGetName(Object* self, const Msg& m) {
  auto* name = asPtr<fundra::TString>(m.w[1]);
  if (!name) {
    fundra::Debug("db", __LINE__);
    return 0;
  }
  Word store = ptyData(self)->store;
  int32_t dl = i32(m.w[0]);
  if (send(store, kTSCS, dl) != 0) {
    name->SPrintf("Object <%Y=%~d>", u32(send(store, kTSDT, dl)), dl);
  } else {
    name->SPrintf("Controller <%Y>", u32(send(store, kTSDT, dl)));
  }
  return 0;
}

// PGSN (DL, TString*): the short name of every DL is a single space.
Word ptyGetShortName(Object*, const Msg& m) {
  auto* name = asPtr<fundra::TString>(m.w[1]);
  if (!name) {
    fundra::Debug("db", __LINE__);
    return 0;
  }
  name->Clear();
  name->Append(" ");
  return 0;
}

Word ptyGetAbilities(Object*, const Msg&) { return zelkor::toWord(kPropertyAbilities); }

}  // namespace zove

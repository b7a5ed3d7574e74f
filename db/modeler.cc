// The modeler `@DMD`: a database object that remembers the provider manager announcing itself and
// forwards requests about its DLs to whichever object answers for its module.
#include "db/db_class.h"

namespace zove {

using zelkor::toWord;

namespace {

DmodData* dmodData(Object* self) { return zelkor::instanceData<DmodData>(self, gDmodClass); }

}  // namespace

// Setu (store, signature, module data size): the database object does the work.
Word dmodSetup(Object* self, const Msg& m) { return zelkor::passMsg(gDmodClass, self, m); }

// PmSt (any word, provider manager): broadcast by the manager when the store is installed.
Word dmodSetProvider(Object* self, const Msg& m) {
  dmodData(self)->provider = m.w[1];
  return m.w[1];
}

// PmEd (provider manager): the manager is going; forget it only if it is the one kept.
Word dmodEndProvider(Object* self, const Msg& m) {
  DmodData* d = dmodData(self);
  if (d->provider == m.w[0]) d->provider = 0;
  return m.w[0];
}

Word dmodGetProvider(Object* self, const Msg&) { return dmodData(self)->provider; }

// PmFR (DL, selector, up to 10 words): asks the module's channel who answers for it (FdRs), then
// sends that responder the request. FdRs has room for the first six further words and the
// request for the first nine.
Word dmodForward(Object* self, const Msg& m) {
  const ClassRec* dbClass = zelkor::ModuleData::sigClass(self, kDbSig);
  const DbData* db = zelkor::instanceData<DbData>(self, dbClass);
  Word store = db->store;
  Word responder = 0, auxiliary = 0;
  Word dl = m.w[0];
  FourCC sel = zelkor::u32(m.w[1]);
  const Word* w = m.w;
  zelkor::TransBlock(toWord(db->signature), kFdRs, store, self, &responder, &auxiliary, sel, dl,
                     w[2], w[3], w[4], w[5], w[6], w[7]);
  if (!responder) return kNoResponder;
  return zelkor::send(responder, sel, store, self, dl, w[2], w[3], w[4], w[5], w[6], w[7], w[8],
                      w[9], w[10]);
}

}  // namespace zove

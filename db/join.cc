// A database object's life with its store: set-up and joining (Setu, the class-side SdNw and
// TIni), the store's notices (XTSL, XTSD, XTSC, XTTB), the accessors, and disposal.
#include <new>

#include "db/db_class.h"
#include "platform/fundra/debug.h"

namespace zove {

using zelkor::i32;
using zelkor::send;
using zelkor::toWord;
using zelkor::u32;

// Setu (store, signature, module data size): builds the members, records the three words and
// joins the store (TSAM, whose answer is Setu's), then the store's channel.
Word dbSetup(Object* self, const Msg& m) {
  DbData* d = dbData(self);
  uint32_t& flags = zelkor::segmentFlags(self, gDbClass);
  if (flags & zelkor::kBuilt) {
    // A second Setu would build the dictionaries over the open DLs' records.
    fundra::Debug("db", __LINE__);
    return kRefused;
  }
  new (&d->blockStates) fundra::TDict(0, 0);
  new (&d->instances) fundra::TDict(0, 0);
  new (&d->lock) DictLock();
  d->spare = nullptr;
  for (std::atomic<BlockSlot*>& hint : d->hints) new (&hint) std::atomic<BlockSlot*>(nullptr);
  flags |= zelkor::kBuilt;
  d->store = m.w[0];
  d->signature = u32(m.w[1]);
  d->moduleSize = i32(m.w[2]);
  if (!d->store) {
    fundra::Debug("db", __LINE__);
    return kNoSpace;
  }
  Word r = send(d->store, kTSAM, self, d->signature);
  send(self, kpoAd, d->store);
  return r;
}

// Dspo: every DL must have been closed; the members go, then the object.
Word dbDispose(Object* self, const Msg& m) {
  if (dbBuilt(self)) {
    DbData* d = dbData(self);
    // Each DL still open is closed here, its instance disposed of, so that nothing leaks.
    if (d->instances.Count() != 0) fundra::Debug("db", __LINE__);
    dbCloseAll(self);
    d->lock.~DictLock();
    d->instances.~TDict();
    d->blockStates.~TDict();
    zelkor::segmentFlags(self, gDbClass) |= zelkor::kDestroyed;
  }
  return zelkor::passMsg(gDbClass, self, m);
}

// XTSL (store, signature, module DL): install (or TSAM) names the module DL of a signature; for
// this object's own, it binds to the store and the DL and registers as the controller.
Word dbBindModule(Object* self, const Msg& m) {
  DbData* d = dbData(self);
  if (u32(m.w[1]) != d->signature) return m.w[1];
  d->store = m.w[0];
  d->moduleDL = i32(m.w[2]);
  return send(d->store, kTSRM, d->signature, self);
}

// XTSD (store): after every XTSL; a database that heard of no module DL makes one and registers.
// An answer of TSNM that is not a DL (a code) is not kept, so that a later XTSD tries again.
Word dbMakeModule(Object* self, const Msg& m) {
  DbData* d = dbData(self);
  if (d->moduleDL != 0) return d->moduleDL;
  Word store = m.w[0];
  int32_t dl = i32(send(store, kTSNM, d->signature, d->moduleSize));
  if (dl > 0) d->moduleDL = dl;
  send(store, kTSRM, d->signature, self);
  return dl;
}

// XTSC (store): the store is being disposed of; a database of that store goes with it.
Word dbStoreClosed(Object* self, const Msg& m) {
  if (m.w[0] != dbData(self)->store) return m.w[0];
  return send(self, kDspo);
}

// XTTB (store, DL, int32_t* flag): the store asks whether anyone holds the DL (TSTB).
Word dbTstBusy(Object* self, const Msg& m) {
  Word r = send(self, kPInB, m.w[1]);
  if (r != 0) {
    if (auto* flag = zelkor::asPtr<int32_t>(m.w[2])) {
      *flag = 1;
    } else {
      fundra::Debug("db", __LINE__);
    }
  }
  return r;
}

Word dbGetModuleDL(Object* self, const Msg&) { return dbData(self)->moduleDL; }
Word dbGetSignature(Object* self, const Msg&) { return toWord(dbData(self)->signature); }
Word dbGetStore(Object* self, const Msg&) { return dbData(self)->store; }

// SdNw (store, up to 10 words), sent to a class object: a database of that class joins the
// store. Setu takes the store, 0, 0 (the subclass puts its signature and size in their place)
// and then the words; a message has room for nine of them, so a tenth is not passed on.
Word dbNewForStore(Object* self, const Msg& m) {
  Word store = m.w[0];
  Word obj = send(self, kNwMF, store);
  const Word* w = m.w;
  zelkor::ModuleData::postBlock(obj, kSetu, store, 0, 0, w[1], w[2], w[3], w[4], w[5], w[6], w[7],
                                w[8], w[9]);
  zelkor::ModuleData::postBlock(store, kTSTM);
  return obj;
}

// TIni (store), sent to a class object: SdNw with the store alone.
Word dbInitForStore(Object* self, const Msg& m) { return send(self, kSdNw, m.w[0]); }

}  // namespace zove

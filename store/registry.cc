// The controllers registry and module DLs: one controller object per module signature while
// the store is open, one module DL per signature in the root's `mods` list for good. Also the
// one place that defines every selector of the registry and structure files on the class.
#include "store/registry.h"

#include "store/engine.h"

namespace zove {

using zelkor::DebugLogf;
using zelkor::fc;
using zelkor::u32;

namespace {

// Signatures are keyed as toWord widens a FourCC, whatever width the sender gave the word.
Word sigKey(Word w) { return zelkor::toWord(u32(w)); }

// The selectors that need an installed, sound store answer these before anything else.
int32_t installedOrCode(Object* self, bool needSound) {
  ZoveData* d = zoveData(self);
  if (!d->space || !d->channel) return kNoSpace;
  if (needSound && d->fault != 0) return kFaulted;
  return 0;
}

// The first module DL in `mods` whose uType is the signature, or kNoItem.
int32_t findModuleDL(Object* self, uint32_t sig) {
  ZoveData* d = zoveData(self);
  for (int32_t i = 0;; ++i) {
    int32_t dl = zoveListElem(self, kRootDL, kModsKey, i);
    if (dl == 0) return kNoItem;
    DLView v;
    if (dlOpen(d->space, dl, &v) == 0 && v.head->uType == sig) return dl;
  }
}

}  // namespace

void zoveDefineRegistryAndStructure(ClassRec* cls) {
  using zelkor::Defn;
  Defn(cls, kTSGM, zoveGetMod);
  Defn(cls, kTSRM, zoveRegMod);
  Defn(cls, kTSUM, zoveUnregMod);
  Defn(cls, kTSDM, zoveGetModDL);
  Defn(cls, kTSAM, zoveAddMod);
  Defn(cls, kTSTM, zoveTellInstalled);
  Defn(cls, kTSEX, zoveGetExtension);
  Defn(cls, kTSEx, zoveExport);
  Defn(cls, kTSIm, zoveImport);
  Defn(cls, kTSHX, zoveVHandXfer);
  Defn(cls, kTSDD, zoveDoDupe);
  Defn(cls, kTSDC, zoveDoCompare);
  Defn(cls, kTSTW, zoveTstWithin);
  Defn(cls, kTSFR, zoveFindRefs);
  Defn(cls, kTSDR, zoveDelRefs);
  Defn(cls, kTSTK, zoveDelKey);
}

// TSGM (signature): the registered controller, or 0.
Word zoveGetMod(Object* self, const Msg& m) {
  return zoveData(self)->controllers.Lookup(sigKey(m.w[0]));
}

// TSRM (signature, controller): one controller per signature; a second is refused.
Word zoveRegMod(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  Word sig = sigKey(m.w[0]);
  if (d->controllers.Lookup(sig) != 0) {
    DebugLogf(kLogFault, "zoveRegMod: already have controller for '%Y'", sig);
    return kRefused;
  }
  d->controllers.Set(sig, m.w[1]);
  return 0;
}

// TSUM (signature, controller): only the registered controller may unregister; unregistering
// a signature nobody holds is harmless.
Word zoveUnregMod(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  Word sig = sigKey(m.w[0]);
  Word have = d->controllers.Lookup(sig);
  if (have != 0 && have != m.w[1]) {
    DebugLogf(kLogFault, "zoveUnregMod: wrong controller trying to unregister '%Y'", sig);
    return kRefused;
  }
  d->controllers.Remove(sig);
  return 0;
}

// TSDM (signature): the module DL of the signature.
Word zoveGetModDL(Object* self, const Msg& m) {
  if (int32_t r = installedOrCode(self, true); r != 0) return r;
  return findModuleDL(self, u32(m.w[0]));
}

// TSAM (controller, signature): a controller that comes late (after install) is told about its
// module DL as install would have told it, and then registers itself in its answer.
Word zoveAddMod(Object* self, const Msg& m) {
  if (int32_t r = installedOrCode(self, true); r != 0) return r;
  Word ctl = m.w[0];
  uint32_t sig = u32(m.w[1]);
  if (zoveData(self)->controllers.Lookup(sigKey(sig)) != 0) {
    DebugLogf(kLogFault, "zoveAddMod: already have controller for '%Y'", sig);
    return kRefused;
  }
  int32_t dl = findModuleDL(self, sig);
  if (dl > 0) zelkor::send(ctl, kXTSL, self, sig, dl);
  zelkor::send(ctl, kXTSD, self);
  return zoveData(self)->fault != 0 ? kFaulted : 0;
}

// TSTM: tells the channel again that the store is installed.
Word zoveTellInstalled(Object* self, const Msg&) {
  if (int32_t r = installedOrCode(self, false); r != 0) return r;
  zelkor::TransBlock(zoveData(self)->channel, kXTSI, self);
  return 0;
}

}  // namespace zove

// The keyed containers `@PCO`, the base of container classes that make one container per key:
// Setu, PoCC, PoGC and the general object protocol of its containers (PGAb, PGNm, PGSN, PAbl).
// A subclass passes its own module signature and size up in Setu and adds its selectors.
//
// The store and module DL are the database part's (PGTy, SdRR), the manager the modeler part's
// (PmGP). A keyed container's record is its own data area (zove/procon.h); one that is not a
// 24-byte `PCn.` record reads as abilities 0 and no name.
#include "platform/fundra/debug.h"
#include "platform/fundra/tstring.h"
#include "providers/companions.h"
#include "zove/dl.h"

namespace zove {

using fundra::TString;
using zelkor::i32;
using zelkor::send;
using zelkor::toWord;
using zelkor::u32;

// Setu (store, signature, size): passed on unchanged; a signature of 0 is an assertion first (a
// subclass must name its module).
Word pcoSetup(Object* self, const Msg& m) {
  if (u32(m.w[1]) == 0) fundra::Debug("procon", 169);
  return zelkor::passMsg(gPcoClass, self, m);
}

// PoCC (parent or 0, key or 0, string id, abilities): the container made with the key, or a new
// one (held under the key when one is given); its header, id and abilities written on every call;
// then shown below the parent, which becomes its required parent (PmSR). Answers the container.
//
// A key that is not four printable characters cannot be held: 0, nothing made. A handle under the
// key to anything but a keyed container of the right size gives way to a new container; the DL
// it named stays wherever else the store holds it.
Word pcoMakeContainer(Object* self, const Msg& m) {
  Word store = partStore(self);
  int32_t module = partModule(self);
  FourCC key = u32(m.w[1]);
  if ((key && !isPrintableCode(key)) || module <= 0) return 0;
  int32_t c = key ? handleUnder(store, module, key) : 0;
  if (c && !writableRecord(store, c, kKeyedRecord)) c = 0;
  if (!c) {
    c = i32(send(store, kTSDN, toWord(kKeyedContainerType), kKeyedContainerBytes, module));
    if (c <= 0) return 0;
    send(store, kTSSS, c);
    if (key) send(store, kTSHS, module, key, c);
  }
  writeRecord(store, c, kKeyedRecord, i32(m.w[2]), u32(m.w[3]));
  send(send(self, kPmGP), kPmSR, m.w[0], c);
  return c;
}

// PoGC (key): the handle under the key in the module DL, or 0.
Word pcoGetContainer(Object* self, const Msg& m) {
  return handleUnder(partStore(self), partModule(self), u32(m.w[0]));
}

// PGAb (p): the abilities in p's record (offset 12).
Word pcoGetAbilities(Object* self, const Msg& m) {
  RecordFields f;
  readRecord(partStore(self), i32(m.w[0]), kKeyedRecord, &f);
  return toWord(f.abilities);
}

// PGNm (p, TString*, kind): PcN0 + kind & 0xFF of p's table loaded into the string; answers
// LoadKString's answer (0, and an empty string, when the table lacks it or p has no record).
Word pcoGetName(Object* self, const Msg& m) {
  auto* s = zelkor::asPtr<TString>(m.w[1]);
  if (!s) return 0;
  RecordFields f;
  if (!readRecord(partStore(self), i32(m.w[0]), kKeyedRecord, &f)) {
    s->Clear();
    return 0;
  }
  return s->LoadKString(f.table(), kPcN0 + (u32(m.w[2]) & 0xFF));
}

// PGSN (p, TString*, sort mode): the sort name PsN0 + mode of p's table when there is one (1);
// else PGNm (p, string, 0) and its answer.
Word pcoGetSortName(Object* self, const Msg& m) {
  auto* s = zelkor::asPtr<TString>(m.w[1]);
  if (!s) return 0;
  RecordFields f;
  if (readRecord(partStore(self), i32(m.w[0]), kKeyedRecord, &f)) {
    if (int32_t r = s->LoadKString(f.table(), kPsN0 + u32(m.w[2]))) return r;
  }
  return send(self, kPGNm, m.w[0], m.w[1], 0);
}

// PAbl (p, int32_t*): 8.
Word pcoGetAble(Object*, const Msg& m) {
  if (auto* out = zelkor::asPtr<int32_t>(m.w[1])) *out = kKeyedAble;
  return 0;
}

}  // namespace zove

// The user containers `@PCL`: the object's life (Setu, PmSt, PmEd), container types (PcCT, PcGT),
// finding a container by name (PcFC), and the general object protocol of its containers (PGAb,
// PGNm, PGSN, PAbl, PFog). Making and renaming containers, which ask the user, are in naming.cc.
//
// A container type is a FourCC; its record (zove/procon.h) hangs under it in the `@PCL` module DL
// and lists the type's containers in `PCo#`. A type that is not four printable characters (each
// byte 32..126) is no key the store can hold: PcCT refuses it (0) and nothing else finds one.
#include "platform/fundra/tstring.h"
#include "providers/companions.h"
#include "zove/dl.h"

namespace zove {

using zelkor::i32;
using zelkor::send;
using zelkor::toWord;
using zelkor::u32;

namespace {

fundra::TString* stringArg(Word w) { return zelkor::asPtr<fundra::TString>(w); }

}  // namespace

int32_t collModule(Object* self) {
  CollData* d = collData(self);
  return d->moduleDL ? d->moduleDL : i32(send(self, kSdRR));
}

int32_t collTypeRecord(Object* self, FourCC type, RecordFields* fields) {
  Word store = collData(self)->store;
  int32_t rec = handleUnder(store, collModule(self), type);
  return readRecord(store, rec, kContainerTypeRecord, fields) ? rec : 0;
}

int32_t collFindNamed(Object* self, int32_t rec, const fundra::TString& name) {
  Word store = collData(self)->store;
  std::vector<int32_t> containers = listOf(store, rec, kContainersKey);
  std::vector<fundra::TString> names = readNames(store, containers);
  for (size_t i = 0; i < names.size(); ++i)
    if (names[i] == name) return containers[i];
  return 0;
}

bool collKeepsChildren(Object* self, int32_t p, uint32_t typeAbilities) {
  return !(typeAbilities & kAbLinkFolder) && send(collData(self)->manager, kPoGI, p, 0) != 0;
}

// Setu (store): the database object joins the store as module PCL1. The first store given is
// the one kept (the database object refuses a second Setu).
Word collSetup(Object* self, const Msg& m) {
  CollData* d = collData(self);
  if (!d->store) d->store = m.w[0];
  return zelkor::ClassData::pass(gCollClass, self, kSetu, m.w[0], kContainerModuleSig, 0);
}

// PmSt (store, manager): the modeler keeps the manager; so does the container object, with its
// module DL. Answers the module DL.
Word collSetProvider(Object* self, const Msg& m) {
  zelkor::passMsg(gCollClass, self, m);
  CollData* d = collData(self);
  d->manager = m.w[1];
  d->moduleDL = i32(send(self, kSdRR));
  return d->moduleDL;
}

// PmEd (manager): the modeler forgets the manager if it is the one kept; the container object
// forgets its own copy on the same terms.
Word collEndProvider(Object* self, const Msg& m) {
  CollData* d = collData(self);
  if (d->manager == m.w[0]) d->manager = 0;
  return zelkor::passMsg(gCollClass, self, m);
}

// PcCT (type, string id, abilities): the type's record, made when the module DL has none, its
// header, id and abilities written on every call; then every container of the type that can be
// shown again (PmA? answers 0) is shown under its recorded parent. Answers the record.
//
// A handle under the type that names no container type record of the right size is replaced by a
// new record; the containers an old `PCtn` record listed go over to the new one, so none is lost.
Word collDefineType(Object* self, const Msg& m) {
  CollData* d = collData(self);
  FourCC type = u32(m.w[0]);
  int32_t module = collModule(self);
  if (!isPrintableCode(type) || module <= 0) return 0;
  int32_t rec = handleUnder(d->store, module, type);
  if (!writableRecord(d->store, rec, kContainerTypeRecord)) {
    int32_t old = rec;
    rec = i32(send(d->store, kTSDN, toWord(kContainerTypeType), kContainerTypeBytes, 0));
    if (rec <= 0) return 0;
    send(d->store, kTSSS, rec);
    send(d->store, kTSHS, module, type, rec);
    if (old > 0 && u32(send(d->store, kTSDT, old)) == kContainerTypeType)
      for (int32_t c : listOf(d->store, old, kContainersKey))
        send(d->store, kTSLA, rec, kContainersKey, c);
  }
  writeRecord(d->store, rec, kContainerTypeRecord, i32(m.w[1]), u32(m.w[2]));
  for (int32_t c : listOf(d->store, rec, kContainersKey))
    if (i32(send(d->manager, kPmAQ, c)) == 0) send(d->manager, kPmSh, 0, c);
  return rec;
}

// PcGT (p): the container type of a provider, its uType.
Word collGetType(Object* self, const Msg& m) { return send(collData(self)->store, kTSDT, m.w[0]); }

// PcFC (type, TString* name): the first container in the type's `PCo#` whose `Name` is the name,
// byte for byte (so names differing in case, accents or their composition are different names);
// 0 when none, when the type has no record, or when no name is given.
Word collFindContainer(Object* self, const Msg& m) {
  RecordFields f;
  int32_t rec = collTypeRecord(self, u32(m.w[0]), &f);
  const fundra::TString* name = stringArg(m.w[1]);
  return rec && name ? collFindNamed(self, rec, *name) : 0;
}

// PGAb (p): the abilities of p's container type; 0 when p's uType has no type record.
Word collGetAbilities(Object* self, const Msg& m) {
  RecordFields f;
  collTypeRecord(self, u32(send(collData(self)->store, kTSDT, m.w[0])), &f);
  return toWord(f.abilities);
}

// PGNm (p, TString*, kind): the string cleared, then, when p's uType has a type record, p's `Name`
// in the type's format for the kind (CoN0 + kind & 0xFF of the type's table).
Word collGetName(Object* self, const Msg& m) {
  fundra::TString* s = stringArg(m.w[1]);
  if (!s) return 0;
  s->Clear();
  Word store = collData(self)->store;
  int32_t p = i32(m.w[0]);
  RecordFields f;
  if (!collTypeRecord(self, u32(send(store, kTSDT, p)), &f)) return 0;
  fundra::TString name;
  readName(store, p, &name);
  s->SPrintf(f.table(), kCoN0 + (u32(m.w[2]) & 0xFF), name);
  return 0;
}

// PGSN (p, TString*): the name of kind 0.
Word collGetSortName(Object* self, const Msg& m) {
  return collGetName(self, zelkor::makeMsg(kPGNm, m.w[0], m.w[1], 0));
}

// PAbl (p, int32_t*): 10, and 4 more unless p shows a child while its type lacks kAbLinkFolder
// (when PFog would refuse to forget it).
Word collGetAble(Object* self, const Msg& m) {
  auto* out = zelkor::asPtr<int32_t>(m.w[1]);
  if (!out) return 0;
  *out = kContainerAble;
  RecordFields f;
  int32_t p = i32(m.w[0]);
  collTypeRecord(self, u32(send(collData(self)->store, kTSDT, p)), &f);
  if (!collKeepsChildren(self, p, f.abilities)) *out += kContainerForgettable;
  return 0;
}

// PFog (p): kContainerNotEmpty while p shows a child and its type lacks kAbLinkFolder; else p is
// hidden (PmHd) and every reference to it is cut (TSDR): its place in its parent's `_pk#` and in
// its type's `PCo#`, and the status record of each link to it, which holds it by a part link.
Word collForget(Object* self, const Msg& m) {
  CollData* d = collData(self);
  int32_t p = i32(m.w[0]);
  RecordFields f;
  collTypeRecord(self, u32(send(d->store, kTSDT, p)), &f);
  if (collKeepsChildren(self, p, f.abilities)) return kContainerNotEmpty;
  send(d->manager, kPmHd, p);
  send(d->store, kTSDR, p);
  return 0;
}

}  // namespace zove

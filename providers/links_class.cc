// The links `@PLK`: link types (PLCT), new links (PLNL), and the general object protocol of its
// links (PGAb, PGNm, PGSN, PAbl, PFog). A link's target is the manager's (`_plk`, set by the
// manager's PLNL or PmSL); the link object only makes the DL and names it.
//
// The store and module DL are the database part's (PGTy, SdRR), the manager the modeler part's
// (PmGP): the link object keeps nothing of its own. A link type that is not four printable
// characters is refused as container types are (containers.cc).
#include "platform/fundra/tstring.h"
#include "providers/companions.h"
#include "zove/dl.h"

namespace zove {

using fundra::TString;
using zelkor::i32;
using zelkor::send;
using zelkor::toWord;
using zelkor::u32;

namespace {

Word managerOf(Object* self) { return send(self, kPmGP); }

// The link type record of p's uType: its fields and true when there is a sound one.
bool linkTypeOf(Object* self, Word store, FourCC type, RecordFields* f) {
  return readRecord(store, handleUnder(store, partModule(self), type), kLinkTypeRecord, f);
}

}  // namespace

// Setu (store, word, size): the database object joins the store as module PLK1 with the size.
Word pinkSetup(Object* self, const Msg& m) {
  return zelkor::ClassData::pass(gPinkClass, self, kSetu, m.w[0], kLinkModuleSig, m.w[2]);
}

// PLCT (type, string id): the link type's record, made when the module DL has none, its header
// and id written on every call. A handle under the type to anything but a link type record of the
// right size is replaced by a new record.
Word pinkDefineType(Object* self, const Msg& m) {
  Word store = partStore(self);
  FourCC type = u32(m.w[0]);
  int32_t module = partModule(self);
  if (!isPrintableCode(type) || module <= 0) return 0;
  int32_t rec = handleUnder(store, module, type);
  if (!writableRecord(store, rec, kLinkTypeRecord)) {
    rec = i32(send(store, kTSDN, toWord(kLinkTypeType), kLinkTypeBytes, 0));
    if (rec <= 0) return 0;
    send(store, kTSSS, rec);
    send(store, kTSHS, module, type, rec);
  }
  writeRecord(store, rec, kLinkTypeRecord, i32(m.w[1]), 0);
  return rec;
}

// PLNL (type, TString* name or 0): a new shared DL of the type, owned by the module DL, with the
// name as its `Name` when one is given; 0 when the type has no link type record. The manager's
// PLNL then points it at its target.
Word pinkNewLink(Object* self, const Msg& m) {
  Word store = partStore(self);
  FourCC type = u32(m.w[0]);
  RecordFields f;
  if (!linkTypeOf(self, store, type, &f)) return 0;
  int32_t link = i32(send(store, kTSDN, toWord(type), 0, partModule(self)));
  if (link <= 0) return 0;
  send(store, kTSSS, link);
  if (auto* name = zelkor::asPtr<const TString>(m.w[1])) send(store, kTSSs, link, kNameKey, name);
  return link;
}

// PGAb (p): the abilities the manager gives the provider one link step from p (p itself when it
// has no target), with kAbLink.
Word pinkGetAbilities(Object* self, const Msg& m) {
  Word manager = managerOf(self);
  int32_t x = i32(m.w[0]);
  send(manager, kPRvL, &x, 1);
  return toWord(u32(send(manager, kPGAb, x)) | kAbLink);
}

// PGNm (p, TString*, kind): the string cleared; when p's uType has a link type record, the type's
// format for the kind (LkN0 + kind & 0xFF) filled with the target's name and a name: p resolved
// without limit, the target (when that is not p) named by its controller through the manager
// (kind 2 asked as 3); then the `Name` of the provider resolution left in the word (the target,
// or p when its chain does not resolve), or the target's name when it has none.
Word pinkGetName(Object* self, const Msg& m) {
  auto* s = zelkor::asPtr<TString>(m.w[1]);
  if (!s) return 0;
  s->Clear();
  Word store = partStore(self);
  int32_t p = i32(m.w[0]);
  RecordFields f;
  if (!linkTypeOf(self, store, u32(send(store, kTSDT, p)), &f)) return 0;
  uint32_t k = u32(m.w[2]) & 0xFF;
  TString format(f.table(), kLkN0 + k);
  Word manager = managerOf(self);
  int32_t x = p;
  TString targetName, name;
  if (i32(send(manager, kPRvL, &x, 0)) == 0 && x != p)
    send(manager, kPGNm, x, &targetName, k == 2 ? 3 : k);
  if (!readName(store, x, &name)) name = targetName;
  s->SPrintf(format, targetName, name);
  return 0;
}

// PGSN (p, TString*): the name of kind 0.
Word pinkGetSortName(Object* self, const Msg& m) {
  return pinkGetName(self, zelkor::makeMsg(kPGNm, m.w[0], m.w[1], 0));
}

// PAbl (p, int32_t*): 4.
Word pinkGetAble(Object*, const Msg& m) {
  if (auto* out = zelkor::asPtr<int32_t>(m.w[1])) *out = kLinkAble;
  return 0;
}

// PFog (p): the link is hidden (PmHd) and every reference to it cut (TSDR), its place in its
// target's `_pl#` and its parent's `_pk#` among them.
Word pinkForget(Object* self, const Msg& m) {
  send(managerOf(self), kPmHd, m.w[0]);
  send(partStore(self), kTSDR, m.w[0]);
  return 0;
}

}  // namespace zove

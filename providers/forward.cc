// Controllers and what the manager forwards to them: the controller of a provider, its computed
// abilities, link resolution, the general object protocol (names, forgetting, opening, requests
// through the modeler) and the companions' selectors.
//
// A provider given as 0 is the root. The forwarder (PRen, PAbl, PGII, PGHI, PMdy, PGtI, PoRs)
// hands the controller p as given, 0 included; the other forwarding selectors hand it the root's
// DL number for 0, so that the controller always names a DL.
#include "platform/fundra/debug.h"
#include "platform/fundra/tstring.h"
#include "providers/pro_class.h"

namespace zove {

using zelkor::i32;
using zelkor::send;
using zelkor::toWord;
using zelkor::u32;

Word controllerOf(const Pro& m, int32_t p) {
  p = m.orRoot(p);
  // The manager controls its own module's DLs (the status records, the globals), which are no
  // providers: naming it would send what it forwards back to itself, without end.
  if (Word ctl = m.toStore(kTSCM, p)) return ctl == zelkor::objWord(m.self) ? 0 : ctl;
  return m.toStore(kTSCS, p) == 0 ? m.d->defaultController : 0;
}

uint32_t computeAbilities(const Pro& m, int32_t p) {
  Word ctl = controllerOf(m, p);
  if (!ctl) fundra::Debug("provider", 151);
  uint32_t f = u32(send(ctl, kPGAb, p));
  if (f == 0) fundra::Debug("provider", 153);
  if (invisibleFlag(m, p))
    f |= kAbInvisible;
  else
    f &= ~uint32_t(kAbInvisible);
  return f;
}

bool resolve(const Pro& m, int32_t p, int32_t limit, int32_t* out) {
  int32_t x = m.orRoot(p);
  for (int32_t step = 1; step <= kResolveSteps; ++step) {
    int32_t status = statusOf(m, x);
    int32_t target = status ? getPart(m, status, kPlkKey) : 0;
    if (!target) {
      *out = x;
      return true;
    }
    x = target;
    if (limit > 0 && step == limit) {
      *out = x;
      return true;
    }
  }
  return false;
}

namespace {

// The forwarder: p's controller (the root's for 0), if it answers the selector, gets it with p
// as given and the words (at most eleven).
Word forward(const Pro& m, FourCC sel, int32_t p, const Word* w) {
  Word ctl = controllerOf(m, p);
  if (!ctl) return kNoController;
  if (send(ctl, kLkUp, sel) == 0) return kNoResponder;
  return send(ctl, sel, p, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7], w[8], w[9], w[10]);
}

fundra::TString* stringArg(Word w) { return zelkor::asPtr<fundra::TString>(w); }

}  // namespace

// PoCo (p): the controller, or 0.
Word proGetController(Object* self, const Msg& msg) {
  return controllerOf(Pro(self), i32(msg.w[0]));
}

// PRvL (int32_t* p, limit): resolves the provider in the word (0: the root) and writes the
// result back; on failure the word keeps what it held. A null pointer resolves the root.
Word proResolveLink(Object* self, const Msg& msg) {
  Pro m(self);
  auto* word = zelkor::asPtr<int32_t>(msg.w[0]);
  int32_t out = 0;
  if (!resolve(m, word ? *word : 0, i32(msg.w[1]), &out)) return kLinkUnresolved;
  if (word) *word = out;
  return 0;
}

// PGNm (p, TString*, kind): the string is cleared, then the controller writes the name.
Word proGetName(Object* self, const Msg& msg) {
  Pro m(self);
  if (auto* s = stringArg(msg.w[1])) s->Clear();
  int32_t p = m.orRoot(i32(msg.w[0]));
  Word ctl = controllerOf(m, p);
  if (!ctl) return kNoController;
  send(ctl, kPGNm, p, msg.w[1], msg.w[2]);
  return 0;
}

// PGSN (p, TString*, sort mode): the controller's sort name, or its name of kind 0 when it has
// no sort names. The string is not cleared first.
Word proGetSortName(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t p = m.orRoot(i32(msg.w[0]));
  Word ctl = controllerOf(m, p);
  if (!ctl) return kNoController;
  if (send(ctl, kLkUp, kPGSN) != 0)
    send(ctl, kPGSN, p, msg.w[1], msg.w[2]);
  else
    send(ctl, kPGNm, p, msg.w[1], 0);
  return 0;
}

// PGMN (p, TString*, three words): the string is cleared; the controller's answer.
Word proGetMenuName(Object* self, const Msg& msg) {
  Pro m(self);
  if (auto* s = stringArg(msg.w[1])) s->Clear();
  int32_t p = m.orRoot(i32(msg.w[0]));
  Word ctl = controllerOf(m, p);
  if (!ctl) return kNoController;
  return send(ctl, kPGMN, p, msg.w[1], msg.w[2], msg.w[3], msg.w[4]);
}

// PFog (p, word): the controller's answer.
Word proForget(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t p = m.orRoot(i32(msg.w[0]));
  Word ctl = controllerOf(m, p);
  if (!ctl) return kNoController;
  return send(ctl, kPFog, p, msg.w[1]);
}

// PRen (p, new name): PRen (p, name, 0, 0) through the forwarder.
Word proRename(Object* self, const Msg& msg) {
  const Word w[11] = {msg.w[1]};
  return forward(Pro(self), kPRen, i32(msg.w[0]), w);
}

// PAbl (p, int32_t* out, word): *out = 0, then PAbl (p, out, word, 0) through the forwarder.
Word proGetAble(Object* self, const Msg& msg) {
  if (auto* out = zelkor::asPtr<int32_t>(msg.w[1])) *out = 0;
  const Word w[11] = {msg.w[1], msg.w[2]};
  return forward(Pro(self), kPAbl, i32(msg.w[0]), w);
}

// PGII (p), PGHI (p): through the forwarder.
Word proGetIcon(Object* self, const Msg& msg) {
  const Word w[11] = {};
  return forward(Pro(self), kPGII, i32(msg.w[0]), w);
}

Word proGetHelp(Object* self, const Msg& msg) {
  const Word w[11] = {};
  return forward(Pro(self), kPGHI, i32(msg.w[0]), w);
}

namespace {

// PmFR (p, selector, the ten words after p) through the forwarder: the controller's modeler finds
// whoever answers for its module.
Word request(Object* self, FourCC sel, int32_t p, const Word* words) {
  Word w[11] = {toWord(sel)};
  for (int i = 0; i < 10; ++i) w[i + 1] = words[i];
  return forward(Pro(self), kPmFR, p, w);
}

}  // namespace

// PMdy (p, up to 10 words), PGtI (p, up to 10 words), PoRs (selector, p, up to 10 words).
Word proModify(Object* self, const Msg& msg) {
  return request(self, kPMdy, i32(msg.w[0]), msg.w + 1);
}

Word proGetInfo(Object* self, const Msg& msg) {
  return request(self, kPGtI, i32(msg.w[0]), msg.w + 1);
}

Word proRequest(Object* self, const Msg& msg) {
  return request(self, u32(msg.w[0]), i32(msg.w[1]), msg.w + 2);
}

// PoMg (selector, p or 0, up to 10 words): a provider with a status record is resolved first;
// its controller gets the selector if it answers it.
Word proMessage(Object* self, const Msg& msg) {
  Pro m(self);
  FourCC sel = u32(msg.w[0]);
  int32_t p = m.orRoot(i32(msg.w[1]));
  if (statusOf(m, p) && !resolve(m, p, 0, &p)) return kLinkUnresolved;
  Word ctl = controllerOf(m, p);
  if (!ctl) return kNoController;
  if (send(ctl, kLkUp, sel) == 0) return kNoResponder;
  const Word* w = msg.w + 2;
  return send(ctl, sel, p, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7], w[8], w[9]);
}

// PInO (p or 0, Word* result, up to 10 words): the resolved provider is opened by its controller.
Word proOpenInstance(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t p;
  if (!resolve(m, i32(msg.w[0]), 0, &p)) return kLinkUnresolved;
  if (auto* result = zelkor::asPtr<Word>(msg.w[1])) *result = 0;
  Word ctl = controllerOf(m, p);
  if (!ctl) return kNoController;
  if (send(ctl, kLkUp, kPInO) == 0) return kNoResponder;
  const Word* w = msg.w + 2;
  return send(ctl, kPInO, p, msg.w[1], w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7], w[8], w[9]);
}

namespace {

// PInC and PInR: the resolved provider, to its controller.
Word toResolvedController(Object* self, FourCC sel, int32_t p) {
  Pro m(self);
  if (!resolve(m, p, 0, &p)) return kLinkUnresolved;
  Word ctl = controllerOf(m, p);
  if (!ctl) return kNoController;
  return send(ctl, sel, p);
}

}  // namespace

Word proCloseInstance(Object* self, const Msg& msg) {
  return toResolvedController(self, kPInC, i32(msg.w[0]));
}

Word proReleaseInstance(Object* self, const Msg& msg) {
  return toResolvedController(self, kPInR, i32(msg.w[0]));
}

// PcCT, PcGT, PcNC, PcFC: to the container object, unchanged.
Word proToContainers(Object* self, const Msg& msg) {
  return zelkor::dispatch(zelkor::asObject(proData(self)->containerObject), msg);
}

// PLCT: to the link object, unchanged.
Word proToLinks(Object* self, const Msg& msg) {
  return zelkor::dispatch(zelkor::asObject(proData(self)->linkObject), msg);
}

// PLNL (type, name, target): the link object makes the link; the manager points it.
Word proNewLink(Object* self, const Msg& msg) {
  Pro m(self);
  Word link = send(m.d->linkObject, kPLNL, msg.w[0], msg.w[1]);
  if (i32(link) == 0) return 0;
  m.toSelf(kPmSL, link, msg.w[2]);
  return link;
}

}  // namespace zove

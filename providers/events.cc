// Events and the changes that announce themselves: PmMd (a provider changed), PmSv (its content
// was replaced), the update brackets (PmUg), the abilities (PmAU), the invisible flag (PmSI), and
// sharing or copying a status record (PmDF).
#include "platform/fundra/debug.h"
#include "providers/pro_class.h"

namespace zove {

using zelkor::i32;
using zelkor::toWord;
using zelkor::u32;

void event(const Pro& m, FourCC sel, Word a, Word b) {
  zelkor::TransBlock(zelkor::objWord(m.self), sel, m.self, a, b);
}

void event(const Pro& m, FourCC sel, Word a, Word b, Word c) {
  zelkor::TransBlock(zelkor::objWord(m.self), sel, m.self, a, b, c);
}

// PmMd (p): PoXM for p under its parent (whose sort mark goes), then for each link to p.
Word proModified(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t p = i32(msg.w[0]);
  int32_t status = statusOf(m, p);
  if (!status) {
    event(m, kPoXM, 0, p);
    return 0;
  }
  int32_t parent = getHandle(m, status, kPpaKey);
  if (parent) clearSortMark(m, parent);
  event(m, kPoXM, m.rep(parent), p);
  for (int32_t i = 0;; ++i) {
    int32_t link = listElem(m, statusOf(m, p), kPlKey, i);
    if (!link) break;
    if (getPart(m, statusOf(m, link), kPlkKey) != m.orRoot(p)) continue;  // a leftover
    event(m, kPoXM, m.toSelf(kPoGP, link), link);
  }
  return 0;
}

// PmSv (word, word): PoXS with the two words, without the manager.
Word proSaved(Object* self, const Msg& msg) {
  zelkor::TransBlock(zelkor::objWord(self), kPoXS, msg.w[0], msg.w[1]);
  return 0;
}

// PmUg (p or 0, open): the first opening on a provider sends PoXU (p', 1); the last closing sends
// PoXU (p', 0) unless a provider above it (below the root) has a bracket open.
Word proUpdate(Object* self, const Msg& msg) {
  Pro m(self);
  fundra::TDict* counts = m.d->updateCounts;
  if (!counts) return 0;
  int32_t q = m.orRoot(i32(msg.w[0]));
  Word n = counts->Lookup(q);
  if (msg.w[1] != 0) {
    counts->Set(q, n + 1);
    if (n == 0) event(m, kPoXU, m.rep(q), 1);
    return 0;
  }
  if (n - 1 < 0) fundra::Debug("provider", 1197);
  if (n - 1 > 0) {
    counts->Set(q, n - 1);
    return 0;
  }
  counts->Remove(q);
  for (int32_t x : ancestors(m, q))
    if (counts->Has(x)) return 0;
  event(m, kPoXU, m.rep(q), 0);
  return 0;
}

// PmAU (p, abilities or 0): writes the abilities (computed for 0) and answers the bits that
// changed. The link bit is never changed here (assertion 866 when it would be).
Word proSetAbilities(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t p = m.orRoot(i32(msg.w[0]));
  int32_t status = makeStatus(m, p);
  StatusRecord r;
  if (!readRecord(m, status, &r)) return 0;
  uint32_t f = u32(msg.w[1]) ? u32(msg.w[1]) : computeAbilities(m, p);
  if ((f ^ r.abilities) & kAbLink) {
    fundra::Debug("provider", 866);
    f = (f & ~uint32_t(kAbLink)) | (r.abilities & kAbLink);
  }
  uint32_t changed = f ^ r.abilities;
  if (changed) {
    readRecord(m, status, &r);  // the controller may have made DLs since
    r.abilities = f;
    writeRecord(m, status, r);
  }
  return toWord(changed);
}

// PmSI (p, on): the invisible flag of p's DL, and ability 0x4 to match; PmMd when that changed.
Word proSetInvisible(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t p = i32(msg.w[0]);
  m.toStore(kTSSI, m.orRoot(p), msg.w[1] != 0 ? 1 : 0);
  int32_t status = makeStatus(m, p);
  StatusRecord r;
  if (!readRecord(m, status, &r)) return 0;
  uint32_t f = msg.w[1] != 0 ? r.abilities | kAbInvisible : r.abilities & ~uint32_t(kAbInvisible);
  if (f == r.abilities) return 0;
  r.abilities = f;
  writeRecord(m, status, r);
  m.toSelf(kPmMd, p);
  return 0;
}

// PmDF (p, source or 0): p shares the source's status DL; without a source, p gets a copy of its
// own record (not shown, no children, links, required parent or sort mark), placed under the
// same parent.
Word proSetRecord(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t p = m.orRoot(i32(msg.w[0]));
  int32_t source = i32(msg.w[1]);
  int32_t status = statusOf(m, p);
  if (!status) return kNoStatusRecord;
  if (source != 0) {
    int32_t shared = statusOf(m, source);
    if (!shared) return kNoStatusRecord;
    m.toStore(kTSHS, p, kPspKey, shared);
    return 0;
  }
  int32_t parent = getHandle(m, status, kPpaKey);
  StatusRecord copy;
  if (!parent || !readRecord(m, status, &copy)) return kNoStatusRecord;
  copy.depth = -1;
  m.toStore(kTSUk, p, kPspKey);
  int32_t fresh = makeStatus(m, p);
  if (!fresh) return kNoStatusRecord;
  writeRecord(m, fresh, copy);
  m.toStore(kTSHS, fresh, kPpaKey, parent);
  m.toStore(kTSLA, makeStatus(m, parent), kPkKey, p);
  return 0;
}

}  // namespace zove

// Required parents and moves: PmRP, the required-parent check, PTMv (may p move?) and PMov.
//
// A move changes depths only where a provider is shown: the depth of a provider that is not
// shown is -1 and stays so, since a move sends no PoXA and no PoXD (one PoXT announces it). A
// shown p takes the new parent's depth + 1, and each shown provider of its subtree moves by the
// same difference.
#include "providers/pro_class.h"

namespace zove {

using zelkor::i32;
using zelkor::send;

// The check for a provider x of the subtree rooted at p that moves under q: x has no required
// parent, or q is it or below it, or it moves along (it is p or below p).
int32_t checkRequiredParent(const Pro& m, int32_t x, int32_t p, int32_t q) {
  int32_t status = statusOf(m, x);
  int32_t required = status ? getPart(m, status, kRpaKey) : 0;
  if (!required) return 0;
  if (q == required || stepsUp(m, q, required) >= 0) return 0;
  if (required == p || stepsUp(m, required, p) >= 0) return 0;
  return kRequiredParentLeft;
}

namespace {

// The checks PTMv and PMov share: q may not be p or below p, and no required parent of p's
// subtree may be left.
int32_t checkMove(const Pro& m, int32_t p, int32_t q) {
  if (q == p || stepsUp(m, q, p) >= 0) return kMoveBelowSelf;
  if (int32_t r = checkRequiredParent(m, p, p, q)) return r;
  for (const Visit& v : subtree(m, p))
    if (int32_t r = checkRequiredParent(m, v.provider, p, q)) return r;
  return 0;
}

}  // namespace

// PmRP (p, R or 0): R (neither 0 nor the root) must be p or above p; it is recorded under
// `_rpa`. 0 and the root remove the required parent.
Word proSetRequired(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t p = i32(msg.w[0]);
  int32_t required = i32(msg.w[1]);
  if (required != 0 && !m.isRoot(required)) {
    if (stepsUp(m, p, required) < 0) return kRequiredParentLeft;
    m.toStore(kTSAS, statusOf(m, p), kRpaKey, required);
    return 0;
  }
  if (int32_t status = statusOf(m, p)) m.toStore(kTSUk, status, kRpaKey);
  return 0;
}

// PTMv (p, new parent or 0): the manager's checks, then the controller decides.
Word proTstMove(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t p = i32(msg.w[0]);
  int32_t q = m.orRoot(i32(msg.w[1]));
  if (int32_t r = checkMove(m, p, q)) return r;
  Word ctl = controllerOf(m, p);
  if (!ctl) return kNoController;
  return send(ctl, kPTMv, p, q);
}

// PMov (new parent or 0, p): an unplaced p is shown under q instead; otherwise p leaves its
// parent's `_pk#` for the end of q's, and one PoXT announces it.
Word proMove(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t given = i32(msg.w[0]);
  int32_t p = i32(msg.w[1]);
  int32_t status = statusOf(m, p);
  int32_t old = status ? getHandle(m, status, kPpaKey) : 0;
  if (!old) {
    showProvider(m, given, p, 0);
    return 0;
  }
  // Only a damaged record places the root: everything is below it, so it cannot move.
  if (m.isRoot(p)) return kMoveBelowSelf;
  int32_t q = m.orRoot(given);
  if (old == q) return 0;
  if (int32_t r = checkMove(m, p, q)) return r;
  // q lists p in its status record: a q that names no DL (the store asserts) or whose `_psp` is
  // not a handle has none to give, and p stays where it is rather than take a parent that
  // cannot list it.
  int32_t qStatus = makeStatus(m, q);
  if (!qStatus) return kNoStatusRecord;
  listDelete(m, statusOf(m, old), kPkKey, p);
  m.toStore(kTSHS, status, kPpaKey, q);
  m.toStore(kTSLA, qStatus, kPkKey, p);
  StatusRecord r;
  if (readRecord(m, status, &r) && r.depth >= 0) {
    int32_t depth = depthOf(m, q) + 1;
    int32_t shift = depth - r.depth;
    r.depth = depth;
    writeRecord(m, status, r);
    if (shift != 0) {
      for (const Visit& v : subtree(m, p)) {
        int32_t below = statusOf(m, v.provider);
        StatusRecord rb;
        if (readRecord(m, below, &rb) && rb.depth >= 0) {
          rb.depth += shift;
          writeRecord(m, below, rb);
        }
      }
    }
  }
  clearSortMark(m, q);
  event(m, kPoXT, m.rep(q), p, m.rep(old));
  return 0;
}

}  // namespace zove

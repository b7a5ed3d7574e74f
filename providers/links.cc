// Links: a link provider's status DL holds a part link `_plk` to its target, whose `_pl#` lists
// the link. PmSL points a link, PEnL lists the links to a provider, PLnk finds or makes a link
// under a parent, PULk forgets one.
#include "providers/pro_class.h"

namespace zove {

using zelkor::i32;

// PmSL (link, target): the link leaves its old target's `_pl#` for the end of the new one's and
// takes the target's abilities with the link bit. No event; the link's depth stays. The root is
// never made a link.
Word proSetLink(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t link = i32(msg.w[0]);
  int32_t target = m.orRoot(i32(msg.w[1]));
  if (m.isRoot(link)) return 0;
  int32_t status = makeStatus(m, link);
  int32_t targetStatus = makeStatus(m, target);
  if (!status || !targetStatus) return 0;
  if (int32_t old = getPart(m, status, kPlkKey)) listDelete(m, statusOf(m, old), kPlKey, link);
  m.toStore(kTSAS, status, kPlkKey, target);
  m.toStore(kTSLA, targetStatus, kPlKey, link);
  StatusRecord t, r;
  readRecord(m, targetStatus, &t);
  if (readRecord(m, status, &r)) {
    r.abilities = t.abilities | kAbLink;
    writeRecord(m, status, r);
  }
  return 0;
}

// PEnL (p or 0, index): the index-th link to p, in the order they were made; 0 past the end.
Word proEnumLinks(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t status = statusOf(m, i32(msg.w[0]));
  return status ? listElem(m, status, kPlKey, i32(msg.w[1])) : 0;
}

// PLnk (parent, target or 0): the parent's first child that links to the target, or a new link
// made through the link object and shown under the parent, which becomes its required parent.
// In a link folder the target's own target is linked instead.
Word proLink(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t parent = m.orRoot(i32(msg.w[0]));
  int32_t target = m.orRoot(i32(msg.w[1]));
  int32_t folder = m.orRoot(i32(m.toSelf(kPoGP, target)));
  StatusRecord f;
  readRecord(m, statusOf(m, folder), &f);
  if (f.abilities & kAbLinkFolder) {
    int32_t status = statusOf(m, target);
    int32_t further = status ? getPart(m, status, kPlkKey) : 0;
    if (!further) return kProviderMisplaced;
    target = further;
  }
  for (int32_t child : listAll(m, statusOf(m, parent), kPkKey)) {
    int32_t status = statusOf(m, child);
    if (status && getPart(m, status, kPlkKey) == target) return child;
  }
  Word type = m.toSelf(kPcGT, parent);
  Word link = m.toSelf(kPLNL, type, 0, target);
  if (i32(link) == 0) return kProviderMisplaced;
  m.toSelf(kPmSR, parent, link);
  return link;
}

// PULk (parent, target): the parent's first child that links to the target is forgotten through
// its controller (PFog (link, 0) by way of the manager).
Word proUnlink(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t parent = m.orRoot(i32(msg.w[0]));
  int32_t target = m.orRoot(i32(msg.w[1]));
  for (int32_t child : listAll(m, statusOf(m, parent), kPkKey)) {
    int32_t status = statusOf(m, child);
    if (status && getPart(m, status, kPlkKey) == target) {
      m.toSelf(kPFog, child, 0);
      break;
    }
  }
  return 0;
}

}  // namespace zove

// Hiding: PmHd (a provider, its links and its whole subtree with theirs) and PmUA (every
// descendant, whose placement is forgotten as well).
//
// Both take the walk of the subtree before the first event, so a listener that changes the tree
// while it hears the events changes what it sees next, not the walk in progress.
#include "platform/fundra/debug.h"
#include "providers/pro_class.h"

namespace zove {

using zelkor::i32;

namespace {

// Sets a provider's depth to -1 and announces it under its recorded parent.
void hideOne(const Pro& m, int32_t p, int32_t status) {
  StatusLook s;
  lookStatus(m, status, &s);
  if (s.valid && s.record.depth != -1) {
    s.record.depth = -1;
    writeRecord(m, status, s.record);
  }
  event(m, kPoXD, m.rep(s.parent), p);
}

// The memory of a hide, kept between hides: the walk and the set of providers met. A hide that
// runs during another's events takes memory of its own.
struct HideMemory {
  std::vector<Visit> walk;
  Seen seen, below;
  bool inUse = false;
};

class HideLease {
 public:
  HideLease() {
    static thread_local HideMemory shared;
    mem_ = shared.inUse ? &own_ : &shared;
    mem_->inUse = true;
  }
  ~HideLease() {
    mem_->seen.clear();
    mem_->below.clear();
    mem_->inUse = false;
  }
  HideMemory* operator->() const { return mem_; }

 private:
  HideMemory own_;
  HideMemory* mem_;
};

}  // namespace

// PmHd (p): p, then its links (each followed by the links to it), then each descendant followed
// by its links, all set to depth -1 and announced whether shown or not; then one PoXP for p's
// parent. A p that is not shown, and the root, are left alone.
//
// `seen` holds what was hidden, so that a link met twice is hidden once. Until the first link
// below p, the walk's providers are all it would hold besides p and p's links (the walk meets
// each provider once, and leaves those out): they are added to it only then.
Word proHide(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t p = i32(msg.w[0]);
  if (m.isRoot(p)) return 0;
  int32_t status = statusOf(m, p);
  StatusRecord r;
  if (!readRecord(m, status, &r) || r.depth < 0) return 0;
  r.depth = -1;
  writeRecord(m, status, r);
  int32_t parent = getHandle(m, status, kPpaKey);
  if (!parent) fundra::Debug("provider", 705);
  event(m, kPoXD, m.rep(parent), p);
  HideLease mem;
  Seen& seen = mem->seen;
  seen.insert(p);
  for (int32_t link : linksOf(m, p, &seen)) hideOne(m, link, statusOf(m, link));
  Seen& below = mem->below;
  below = seen;
  std::vector<Visit>& walk = mem->walk;
  subtree(m, p, &below, Entries::kPlaced, &walk);
  bool linksMet = false;
  for (size_t i = 0; i < walk.size(); ++i) {
    const Visit v = walk[i];
    if (linksMet && !seen.insert(v.provider)) continue;
    hideOne(m, v.provider, v.status);
    if (listElem(m, v.status, kPlKey, 0) == 0) continue;  // no links: spares the walk
    if (!linksMet) {
      for (size_t k = 0; k <= i; ++k) seen.insert(walk[k].provider);
      linksMet = true;
    }
    for (int32_t link : linksOf(m, v.provider, &seen)) hideOne(m, link, statusOf(m, link));
  }
  int32_t gp = m.isRoot(parent) || parent == 0 ? 0 : parentOf(m, parent);
  clearSortMark(m, gp);
  event(m, kPoXP, m.rep(gp), m.rep(parent));
  return 0;
}

// PmUA (p or 0): inside a bracket on p, every shown descendant is hidden (PoXD under the walk's
// parent; p as given for p's own children) and every descendant loses its `_ppa`; p's `_pk#`
// becomes empty. The descendants' own `_pk#` lists and their links stay as they were.
Word proUnplaceAll(Object* self, const Msg& msg) {
  Pro m(self);
  Word given = msg.w[0];
  int32_t p = m.orRoot(i32(given));
  m.toSelf(kPmUg, given, 1);
  for (const Visit& v : subtree(m, p)) {
    int32_t status = v.status;
    StatusRecord r;
    if (readRecord(m, status, &r) && r.depth >= 0) {
      r.depth = -1;
      writeRecord(m, status, r);
      event(m, kPoXD, v.parent == p ? given : m.rep(v.parent), v.provider);
    }
    if (status) m.toStore(kTSUk, status, kPpaKey);
  }
  if (int32_t status = statusOf(m, p)) m.toStore(kTSLN, status, kPkKey);
  m.toSelf(kPmUg, given, 0);
  return 0;
}

}  // namespace zove

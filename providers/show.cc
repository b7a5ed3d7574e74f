// Showing providers: the show (a provider, after its unshown ancestors and before its links),
// PmSh, PmSR, PmLS, and the questions PmS?, PmA?, PmLC.
//
// The show runs on a stack of its own rather than by recursion: a provider waits while its
// unshown parent is shown, and after its own PoXA it shows its links one by one, each of which
// may wait for parents of its own. A parent chain that comes back to a provider still waiting is
// a loop: that show ends without showing anything more, and the providers that wait for it stay
// hidden (placed as they were).
#include "platform/fundra/debug.h"
#include "platform/fundra/rnlist.h"
#include "providers/pro_class.h"

namespace zove {

using zelkor::i32;

namespace {

enum class Stage { kStart, kAfterParent, kLinks };

struct Task {
  int32_t given;  // the parent given to the show (0: none)
  int32_t p;
  uint32_t f;  // the abilities to write (0: computed)
  Stage stage;
  int32_t status;  // p's status DL
  int32_t parent;
  int32_t parentStatus;
  int32_t nextLink;
};

Task start(int32_t given, int32_t p, uint32_t f) {
  return {given, p, f, Stage::kStart, 0, 0, 0, 0};
}

// The show's stack: most shows need one task or a few, so those live in place and only a deep
// chain of hidden ancestors or links takes memory. A reference to the top stays valid until the
// next push.
class TaskStack {
 public:
  bool empty() const { return size_ == 0; }
  Task& back() { return size_ <= kInPlace ? inPlace_[size_ - 1] : more_[size_ - 1 - kInPlace]; }
  void push(const Task& t) {
    if (size_ < kInPlace)
      inPlace_[size_] = t;
    else
      more_.push_back(t);
    ++size_;
  }
  void pop() {
    if (size_ > kInPlace) more_.pop_back();
    --size_;
  }

 private:
  static constexpr size_t kInPlace = 4;
  Task inPlace_[kInPlace];
  std::vector<Task> more_;
  size_t size_ = 0;
};

// What a show did with its provider.
enum class Shown { kNow, kAlready, kNot };

// Writes p's depth and abilities into its record r (as read after its controller was asked) and
// announces it: PoXA, then PoXP when a shown parent other than the root has a new child. The
// parent's sort mark is as its status DL holds it now.
void announce(const Pro& m, const Task& t, StatusRecord r, int32_t depth, int32_t parentSortMark,
              bool childrenChanged) {
  r.depth = depth;
  r.abilities = t.f;
  writeRecord(m, t.status, r);
  if (t.parentStatus && parentSortMark != 0) m.toStore(kTSVS, t.parentStatus, kPstKey, 0);
  event(m, kPoXA, m.rep(t.parent), t.p);
  if (childrenChanged) {
    int32_t gp = getHandle(m, t.parentStatus, kPpaKey);
    if (gp) clearSortMark(m, gp);
    event(m, kPoXP, m.rep(gp), t.parent);
  }
}

// Places an unplaced p under q: `_ppa` and the end of q's `_pk#`; answers q's status DL, or 0 when
// p is not placed. A q that is p or below p would close a loop of parents, so p is then not
// placed.
int32_t place(const Pro& m, int32_t status, int32_t p, int32_t q) {
  if (!m.isRoot(q) && (q == p || stepsUp(m, q, p) >= 0)) return 0;
  if (m.toStore(kTSTS, q) == 0) fundra::Debug("provider", 645);
  int32_t parentStatus = makeStatus(m, q);
  if (!parentStatus) return 0;
  m.toStore(kTSHS, status, kPpaKey, q);
  m.toStore(kTSLA, parentStatus, kPkKey, p);
  return parentStatus;
}

Shown showAll(const Pro& m, int32_t given, int32_t p, uint32_t f) {
  TaskStack stack;
  stack.push(start(given, p, f));
  Seen waiting;
  Shown result = Shown::kNot;
  auto finish = [&](Shown how) {
    stack.pop();
    if (stack.empty()) result = how;
  };
  while (!stack.empty()) {
    Task& t = stack.back();
    switch (t.stage) {
      case Stage::kStart: {
        t.status = makeStatus(m, t.p);
        StatusRecord r;
        if (!readRecord(m, t.status, &r)) {
          finish(Shown::kNot);
          break;
        }
        if (r.depth >= 0) {
          finish(Shown::kAlready);
          break;
        }
        if (t.f == 0) t.f = computeAbilities(m, t.p);
        // Read again: the controller was asked since. Placing p below writes items of its
        // status DL, never its record.
        StatusLook own;
        lookStatus(m, t.status, &own);
        t.parent = own.parent;
        if (t.parent) {
          t.parentStatus = statusOf(m, t.parent);
        } else {
          t.parent = m.orRoot(t.given);
          t.parentStatus = place(m, t.status, t.p, t.parent);
          if (!t.parentStatus) {
            finish(Shown::kNot);
            break;
          }
        }
        StatusLook pl;
        lookStatus(m, t.parentStatus, &pl);
        const StatusRecord& pr = pl.record;
        if (m.isRoot(t.parent)) {
          announce(m, t, own.record, 1, pl.sortMark, false);
          t.stage = Stage::kLinks;
        } else if (pr.depth >= 0) {
          announce(m, t, own.record, pr.depth + 1, pl.sortMark, true);
          t.stage = Stage::kLinks;
        } else if (waiting.count(t.parent) || t.parent == t.p) {
          finish(Shown::kNot);
        } else {
          if (!t.parentStatus || !getHandle(m, t.parentStatus, kPpaKey))
            fundra::Debug("provider", 662);
          waiting.insert(t.p);
          t.stage = Stage::kAfterParent;
          int32_t parent = t.parent;
          stack.push(start(0, parent, 0));  // t is not to be used after this
        }
        break;
      }
      case Stage::kAfterParent: {
        waiting.erase(t.p);
        // Showing the parent may have shown p already, as a link of a provider shown with it:
        // then it is shown once, not announced twice.
        StatusRecord own;
        if (readRecord(m, t.status, &own) && own.depth >= 0) {
          finish(Shown::kNow);
          break;
        }
        // The parent's show may have made its record (it had none): look it up again.
        t.parentStatus = statusOf(m, t.parent);
        StatusLook pl;
        lookStatus(m, t.parentStatus, &pl);
        if (pl.record.depth < 0) {
          finish(Shown::kNot);
          break;
        }
        announce(m, t, own, pl.record.depth + 1, pl.sortMark, false);
        t.stage = Stage::kLinks;
        break;
      }
      case Stage::kLinks: {
        int32_t link = listElem(m, t.status, kPlKey, t.nextLink++);
        if (!link) {
          finish(Shown::kNow);
          break;
        }
        if (getPart(m, statusOf(m, link), kPlkKey) != t.p) break;  // a leftover (pro_class.h)
        uint32_t f = t.f | kAbLink;
        stack.push(start(0, link, f));
        break;
      }
    }
  }
  return result;
}

}  // namespace

bool showProvider(const Pro& m, int32_t given, int32_t p, uint32_t f) {
  return showAll(m, given, p, f) == Shown::kNow;
}

// PmSh (parent or 0, p): shows p; a p shown already gets its abilities again and a PmMd.
Word proShow(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t p = i32(msg.w[1]);
  if (showAll(m, i32(msg.w[0]), p, 0) != Shown::kAlready) return 0;
  int32_t status = statusOf(m, p);
  uint32_t f = computeAbilities(m, m.orRoot(p));
  StatusRecord r;
  if (readRecord(m, status, &r) && r.abilities != f) {
    r.abilities = f;
    writeRecord(m, status, r);
  }
  m.toSelf(kPmMd, p);
  return 0;
}

// PmSR (required parent R or 0, p): p is shown below R, moved there when shown elsewhere, and R
// becomes its required parent.
Word proShowRequired(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t required = i32(msg.w[0]);
  int32_t p = i32(msg.w[1]);
  int32_t status = statusOf(m, p);
  if (required != 0 && status && stepsUp(m, p, required) <= 0) {
    if (required == p) fundra::Debug("provider", 955);
    if (isShown(m, p)) {
      m.toSelf(kPmRP, p, 0);
      Word moved = m.toSelf(kPMov, required, p);
      if (i32(moved) < 0) return moved;
      return m.toSelf(kPmRP, p, required);
    }
    if (int32_t old = getHandle(m, status, kPpaKey)) {
      m.toStore(kTSUk, status, kPpaKey);
      listDelete(m, statusOf(m, old), kPkKey, p);
    }
  }
  m.toSelf(kPmSh, required, p);
  return m.toSelf(kPmRP, p, required);
}

// PmLS (parent or 0, RNList*): every listed provider not shown is placed under the parent and
// shown there, announced in one bracket; its links are not shown.
Word proShowList(Object* self, const Msg& msg) {
  Pro m(self);
  Word given = msg.w[0];
  int32_t q = m.orRoot(i32(given));
  const auto* list = zelkor::asPtr<const fundra::RNList>(msg.w[1]);
  if (m.toStore(kTSTS, q) == 0) fundra::Debug("provider", 996);
  int32_t depth = 1;
  if (!m.isRoot(q)) {
    if (!isShown(m, q)) {
      if (!parentOf(m, q)) fundra::Debug("provider", 1007);
      showProvider(m, 0, q, 0);
    }
    depth = depthOf(m, q) + 1;
    // A parent that could not be shown has no depth to give its children.
    if (depth <= 0) return 0;
  }
  int32_t parentStatus = makeStatus(m, q);
  std::vector<int32_t> shown;
  for (int32_t i = 0, n = list ? list->Count() : 0; i < n; ++i) {
    int32_t p = list->Get(i);
    if (isShown(m, p)) continue;
    uint32_t f = computeAbilities(m, p);
    int32_t status = makeStatus(m, p);
    StatusRecord r;
    if (!readRecord(m, status, &r)) continue;
    int32_t old = getHandle(m, status, kPpaKey);
    if (old != q) {
      // A provider that is q or above it cannot go below q.
      if (p == q || stepsUp(m, q, p) >= 0) continue;
      if (old) listDelete(m, statusOf(m, old), kPkKey, p);
      m.toStore(kTSHS, status, kPpaKey, q);
      m.toStore(kTSLA, parentStatus, kPkKey, p);
    }
    readRecord(m, status, &r);
    r.depth = depth;
    r.abilities = f;
    writeRecord(m, status, r);
    shown.push_back(p);
  }
  clearSortMark(m, q);
  m.toSelf(kPmUg, given, 1);
  for (int32_t p : shown) event(m, kPoXA, given, p);
  int32_t gp = parentOf(m, q);
  clearSortMark(m, gp);
  event(m, kPoXP, m.rep(gp), q);
  m.toSelf(kPmUg, given, 0);
  return 0;
}

// PmS? (p or 0): 1 for the root and for a shown provider.
Word proTstShown(Object* self, const Msg& msg) { return isShown(Pro(self), i32(msg.w[0])) ? 1 : 0; }

// PmA? (p): whether p can be shown again under its recorded parents: each provider up to the
// root has a parent (else kNoStatusRecord, checked first) and a controller (else kNoController).
Word proTstShowable(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t p = i32(msg.w[0]);
  if (p == 0) return kNoStatusRecord;
  Seen seen;
  for (int32_t x = p; !m.isRoot(x); x = parentOf(m, x)) {
    if (!seen.insert(x) || !parentOf(m, x)) return kNoStatusRecord;
    if (!controllerOf(m, x)) return kNoController;
  }
  return 0;
}

// PmLC (RNList*): drops every provider that is not shown, keeping the order of the rest.
Word proListShown(Object* self, const Msg& msg) {
  Pro m(self);
  auto* list = zelkor::asPtr<fundra::RNList>(msg.w[0]);
  if (!list) return 0;
  for (int32_t i = 0, n = list->Count(); i < n; ++i)
    if (!isShown(m, list->Get(i))) list->Set(i, 0);
  return list->Del(0);
}

}  // namespace zove

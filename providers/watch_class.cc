// The tree watch `@PTW`: a listener on a provider manager's channel that keeps a mirror of the
// shown tree from the events alone (watch.h) and reports what a view could not apply; and the
// comparison of that mirror with the tree the manager keeps, asked through its selectors as any
// view would ask.
#include <string>

#include "platform/fundra/tstring.h"
#include "platform/zelkor/zelkor.h"
#include "providers/watch.h"
#include "zove/providers.h"

namespace zove {

using zelkor::ClassRec;
using zelkor::i32;
using zelkor::Msg;
using zelkor::Object;
using zelkor::send;
using zelkor::u32;

namespace {

ClassRec* gWatchClass = nullptr;

struct WatchData {
  Word manager;  // 0 once the manager has gone (PmEd)
  Word store;
  TreeMirror* mirror;
};

WatchData* watchData(Object* self) { return zelkor::instanceData<WatchData>(self, gWatchClass); }

void leave(Object* self) {
  WatchData* d = watchData(self);
  if (d->manager) send(self, zelkor::kpoRm, d->manager);
  if (d->store) send(self, zelkor::kpoRm, d->store);
  d->manager = d->store = 0;
}

// Each stored child of each parent, depth first, parents before children: (parent, child, the
// child's recorded parent as PoGP reports it). Each provider once.
template <class F>
void walkStored(Word manager, F&& visit) {
  std::vector<int32_t> stack{0};
  std::unordered_set<int32_t> seen{0};
  while (!stack.empty()) {
    int32_t parent = stack.back();
    stack.pop_back();
    std::vector<int32_t> children;
    for (int32_t i = 0;; ++i) {
      int32_t c = i32(send(manager, kPoIA, parent, i));
      if (c == 0) break;
      children.push_back(c);
    }
    for (auto it = children.rbegin(); it != children.rend(); ++it) {
      int32_t c = *it;
      bool listedHere = i32(send(manager, kPoGP, c)) == parent;
      if (listedHere && seen.insert(c).second) stack.push_back(c);
    }
    for (int32_t c : children) visit(parent, c, i32(send(manager, kPoGP, c)));
  }
}

void appendLines(Word w, const std::vector<std::string>& lines) {
  if (auto* s = zelkor::asPtr<fundra::TString>(w)) {
    s->Clear();
    for (const std::string& l : lines) s->Append(l + "\n");
  }
}

// Setu (manager): joins the manager's channel and its store's; the mirror starts as the tree the
// manager shows now. kRefused when the word is no provider manager.
Word ptwSetup(Object* self, const Msg& m) {
  WatchData* d = watchData(self);
  Word manager = m.w[0];
  if (d->mirror || !zelkor::isLiveObject(manager) ||
      !zelkor::ModuleData::sigClass(zelkor::asObject(manager), kProSig))
    return kRefused;
  d->manager = manager;
  d->store = send(manager, kPGTy);
  d->mirror = new TreeMirror(i32(send(manager, kSdRR)));
  walkStored(manager, [&](int32_t parent, int32_t c, int32_t recorded) {
    if (recorded == parent && send(manager, kPmSQ, c)) d->mirror->seed(parent, c);
  });
  send(self, zelkor::kpoAd, manager);
  if (d->store) send(self, zelkor::kpoAd, d->store);
  return 0;
}

Word ptwDispose(Object* self, const Msg& m) {
  WatchData* d = watchData(self);
  leave(self);
  delete d->mirror;
  d->mirror = nullptr;
  return zelkor::passMsg(gWatchClass, self, m);
}

// PoXA, PoXD, PoXM, PoXP, PoXT, PoXU from the manager.
Word ptwHearEvent(Object* self, const Msg& m) {
  WatchData* d = watchData(self);
  if (d->mirror && m.w[0] == d->manager)
    d->mirror->apply(m.sel, i32(m.w[1]), i32(m.w[2]), i32(m.w[3]));
  return 0;
}

// XTSD (store) on the store's channel: the attachment shows the root alone.
Word ptwHearAttach(Object* self, const Msg&) {
  WatchData* d = watchData(self);
  if (d->mirror && d->manager) d->mirror->reset(i32(send(d->manager, kSdRR)));
  return 0;
}

// PmEd (manager) on the store's channel: the manager is going; the watch leaves.
Word ptwHearEnd(Object* self, const Msg& m) {
  if (m.w[0] == watchData(self)->manager) leave(self);
  return 0;
}

Word ptwTakeReports(Object* self, const Msg& m) {
  WatchData* d = watchData(self);
  std::vector<std::string> lines =
      d->mirror ? d->mirror->takeReports() : std::vector<std::string>{};
  appendLines(m.w[0], lines);
  return Word(lines.size());
}

// PwAg (TString*): each shown provider of the mirror is shown by the manager under the same
// parent; each provider the manager shows is in the mirror, below a shown parent, one deeper
// than it; and no bracket is open.
Word ptwCompare(Object* self, const Msg& m) {
  WatchData* d = watchData(self);
  std::vector<std::string> lines;
  Word manager = d->manager;
  if (d->mirror && manager) {
    TreeMirror& mirror = *d->mirror;
    auto name = [](int32_t p) { return std::to_string(p); };
    for (int32_t p : mirror.shownProviders()) {
      if (!send(manager, kPmSQ, p))
        lines.push_back(name(p) + " is shown in the mirror, not in the tree");
      else if (int32_t parent = i32(send(manager, kPoGP, p)); parent != mirror.parentOf(p))
        lines.push_back(name(p) + " is under " + name(mirror.parentOf(p)) +
                        " in the mirror, under " + name(parent) + " in the tree");
    }
    walkStored(manager, [&](int32_t parent, int32_t c, int32_t recorded) {
      if (recorded != parent || !send(manager, kPmSQ, c)) return;
      if (!mirror.shown(c))
        lines.push_back(name(c) + " is shown in the tree under " + name(parent) +
                        ", not in the mirror");
      int32_t depth = i32(send(manager, kPGtD, c));
      int32_t above = i32(send(manager, kPGtD, parent));
      if (!send(manager, kPmSQ, parent))
        lines.push_back(name(c) + " is shown in the tree under " + name(parent) + ", which is not");
      else if (depth != above + 1)
        lines.push_back(name(c) + " has depth " + name(depth) + " under " + name(parent) +
                        " of depth " + name(above));
    });
    for (int32_t p : mirror.openBrackets())
      lines.push_back("the bracket on " + name(p) + " is open");
  }
  appendLines(m.w[0], lines);
  return Word(lines.size());
}

Word ptwDump(Object* self, const Msg& m) {
  WatchData* d = watchData(self);
  if (!d->mirror) return 0;
  if (auto* s = zelkor::asPtr<fundra::TString>(m.w[0])) s->Set(d->mirror->dump());
  return Word(d->mirror->shownProviders().size());
}

void TreeWatchClassBuild(ClassRec* cls) {
  zelkor::Defn(cls, kSetu, ptwSetup);
  zelkor::Defn(cls, kDspo, ptwDispose);
  zelkor::Defn(cls, kPoXA, ptwHearEvent);
  zelkor::Defn(cls, kPoXD, ptwHearEvent);
  zelkor::Defn(cls, kPoXM, ptwHearEvent);
  zelkor::Defn(cls, kPoXP, ptwHearEvent);
  zelkor::Defn(cls, kPoXT, ptwHearEvent);
  zelkor::Defn(cls, kPoXU, ptwHearEvent);
  zelkor::Defn(cls, kXTSD, ptwHearAttach);
  zelkor::Defn(cls, kPmEd, ptwHearEnd);
  zelkor::Defn(cls, kPwRp, ptwTakeReports);
  zelkor::Defn(cls, kPwAg, ptwCompare);
  zelkor::Defn(cls, kPwDm, ptwDump);
}

void TreeWatchBootProc(Word bootWord, Word superclass) {
  Word cls = send(superclass, zelkor::kSubC, kTreeWatchSig, 1, sizeof(WatchData));
  if (!cls) return;
  gWatchClass = zelkor::classOf(zelkor::asObject(cls));
  zelkor::TThread::TaskCall(0, zelkor::TransThread, zelkor::kboot, zelkor::kclsc, cls,
                            kTreeWatchSig);
  TreeWatchClassBuild(gWatchClass);
  zelkor::TThread::TaskSched(0, bootWord, kDspo);
}

const int gWatchBoot = zelkor::MakeBoot(zelkor::kRootSig, TreeWatchBootProc, "TreeWatchBootProc");

}  // namespace

}  // namespace zove

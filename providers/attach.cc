// The manager's life with its store: set-up (Setu), disposal (Dspo), and the store's notices
// (XTSS, XTSD, XTSI). Attachment takes the module DL as the tree's root and marks every provider
// below it as not shown: being shown does not outlive an attachment, placement does.
#include <new>

#include "platform/fundra/debug.h"
#include "providers/pro_class.h"

namespace zove {

using zelkor::i32;
using zelkor::send;

namespace {

// The superclass's handler for the message, or 0 when it answers none (so that a notice the
// database object does not answer is not counted as a send nobody answered).
Word passToDb(Object* self, const Msg& msg) {
  if (!zelkor::handlerOf(gProClass->super, zelkor::findSelector(msg.sel))) return 0;
  return zelkor::passMsg(gProClass, self, msg);
}

}  // namespace

// Setu (store): the database object joins the store as module PRO1 (which may attach the
// manager at once, XTSD), then the update counts, the default controller and the two companions.
// Answers the link object.
Word proSetup(Object* self, const Msg& msg) {
  ProData* d = proData(self);
  uint32_t& flags = zelkor::segmentFlags(self, gProClass);
  Word store = msg.w[0];
  if (flags & zelkor::kBuilt) {
    // The database object asserts and refuses a second Setu; the members stay as they are.
    return zelkor::ClassData::pass(gProClass, self, kSetu, store, kProModuleSig, 0);
  }
  flags |= zelkor::kBuilt;
  zelkor::ClassData::pass(gProClass, self, kSetu, store, kProModuleSig, 0);
  d->updateCounts = new fundra::TDict(0, 0);
  d->defaultController = send(zelkor::ZelkorLookup(kPtySig), kNew_);
  send(d->defaultController, kSetu, store);
  // The companions' classes may be absent: ZelkorLookup then answers 0, and a send to 0
  // answers 0, so the manager keeps 0 and forwards to nobody.
  d->containerObject = send(zelkor::ZelkorLookup(kContainerSig), kSdNw, store);
  d->linkObject = send(zelkor::ZelkorLookup(kLinkSig), kSdNw, store);
  return d->linkObject;
}

// Dspo: carried out at once, or by the outermost handler when one is running (ProData, P3).
Word proDispose(Object* self, const Msg& msg) {
  ProData* d = proData(self);
  if (d->disposing) return 0;
  if (d->busy > 0) {
    d->disposePending = true;
    return 0;
  }
  return proDisposeNow(self, msg);
}

// Announces the end (PmEd on the store's channel), frees the members and the default controller,
// then the database object does the rest. The companions live on as the store's controllers.
Word proDisposeNow(Object* self, const Msg& msg) {
  ProData* d = proData(self);
  d->disposing = true;
  d->disposePending = false;
  uint32_t flags = zelkor::segmentFlags(self, gProClass);
  if ((flags & zelkor::kBuilt) && !(flags & zelkor::kDestroyed)) {
    // Listeners of PmEd may send to the manager; it is whole until the broadcast is over.
    ++d->busy;
    Word store = d->store ? d->store : send(self, kPGTy);
    zelkor::TransBlock(store, kPmEd, self);
    --d->busy;
    delete d->updateCounts;
    d->updateCounts = nullptr;
    send(d->defaultController, kDspo);
    d->defaultController = 0;
    zelkor::segmentFlags(self, gProClass) |= zelkor::kDestroyed;
  }
  return passToDb(self, msg);
}

// XTSS (store): the store was saved; the database object's answer.
Word proStoreSaved(Object* self, const Msg& msg) { return passToDb(self, msg); }

// XTSD (store): the database object finds or makes the module DL, which becomes the root. The
// globals go; the root is shown (depth 0) and everything below it is not.
Word proAttach(Object* self, const Msg& msg) {
  Pro m(self);
  Word answer = passToDb(self, msg);
  int32_t root = i32(answer);
  if (root <= 0) return answer;
  m.d->store = msg.w[0];
  m.d->root = root;
  m.toStore(kTSUk, root, kGlobalsKey);
  int32_t status = makeStatus(m, root);
  StatusRecord r;
  if (readRecord(m, status, &r) && (r.abilities != kRootAbilities || r.depth != 0)) {
    r.abilities = kRootAbilities;
    r.depth = 0;
    writeRecord(m, status, r);
  }
  // Depths already -1 are left alone, so a save after attaching writes only what changed.
  for (const Visit& v : subtree(m, root, nullptr, Entries::kEvery)) setDepth(m, v.provider, -1);
  return root;
}

// XTSI (store): the manager announces itself to every modeler on the store's channel.
Word proAnnounce(Object* self, const Msg& msg) {
  zelkor::TransBlock(msg.w[0], kPmSt, msg.w[0], self);
  return 0;
}

}  // namespace zove

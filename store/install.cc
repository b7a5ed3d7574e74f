// The store's life: creation, set-up, install, change, pack, close and disposal; the fault code,
// the version word and new module DLs.
#include <cstring>
#include <new>

#include "platform/fundra/debug.h"
#include "store/collect_state.h"
#include "store/engine.h"

namespace zove {

using zelkor::DebugLogf;
using zelkor::fc;
using zelkor::send;
using zelkor::TransBlock;

namespace {

const ClassRec* super() { return gZoveClass; }

// Each module DL in the root's `mods` list, in order, until the first 0.
int32_t modsEntry(Object* self, int32_t i) { return zoveListElem(self, kRootDL, kModsKey, i); }

// Answers whether the 0-terminated array of signatures holds sig.
bool inKeepArray(const int32_t* keep, uint32_t sig) {
  for (; keep && *keep; ++keep)
    if (uint32_t(*keep) == sig) return true;
  return false;
}

}  // namespace

// HNew (space or 0, version). A new store: a fresh space whose DL 1 is the root, with the version
// and an empty `mods` list.
Word zoveNew(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  zoveUnlinked(self);  // what the last collection knew was of another space
  auto* given = zelkor::asPtr<fundra::ElementSpace>(m.w[0]);
  if (given) {
    d->space = given;
    return zelkor::ClassData::pass(super(), self, kHNew, given, m.w[1]);
  }
  auto* space = new (std::nothrow) fundra::ElementSpace(1024, 0);
  if (!space) return kNoMemory;
  d->space = space;
  Word r = zelkor::ClassData::pass(super(), self, kHNew, space, m.w[1]);
  if (r != 0) return r;
  if (space->LmSetAssert(kRootDL, kHeadBytes + kRootDataBytes) != 0) return kNoMemory;
  auto* head = reinterpret_cast<DLHead*>(space->LmGet(kRootDL));
  head->uType = kRootType;
  head->dataSize = kRootDataBytes;
  int16_t version = int16_t(zelkor::i32(m.w[1]));
  std::memcpy(space->LmGet(kRootDL) + kVersionOffset, &version, 2);
  send(self, kTSLN, kRootDL, kModsKey);
  return 0;
}

// Setu: the base first, then the controllers dictionary and the keep list.
Word zoveSetup(Object* self, const Msg& m) {
  Word r = zelkor::passMsg(super(), self, m);
  ZoveData* d = zoveData(self);
  uint32_t& flags = zelkor::segmentFlags(self, gZoveClass);
  if (!(flags & zelkor::kBuilt)) {
    new (&d->controllers) fundra::TDict(0, 0);
    new (&d->keep) fundra::RNList();
    flags |= zelkor::kBuilt;
  }
  return r;
}

// Dspo: tells the controllers (if installed), frees the dictionaries, then the base.
Word zoveDispose(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  if (d->channel) TransBlock(d->channel, kXTSC, self);
  uint32_t& flags = zelkor::segmentFlags(self, gZoveClass);
  if ((flags & zelkor::kBuilt) && !(flags & zelkor::kDestroyed)) {
    d->keep.~RNList();
    d->controllers.~TDict();
    delete d->liveRecords;
    d->liveRecords = nullptr;
    delete d->collect;
    d->collect = nullptr;
    flags |= zelkor::kDestroyed;
  }
  return zelkor::passMsg(super(), self, m);
}

// TSIn (channel, version): repair, root test, version check, then the module notices.
Word zoveInstall(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  Word channel = m.w[0];
  int32_t wanted = zelkor::i32(m.w[1]);
  if (!channel) {
    fundra::Debug("zove", __LINE__);
    return kNoSpace;
  }
  if (d->channel) return kInstalled;
  Word r = send(self, kHGtH, &d->space);
  if (r != 0) return r;
  if (!d->space) return kNoSpace;
  zoveUnlinked(self);
  send(self, kHReg, kZoveSig);
  fundra::ElementSpace* s = d->space;
  d->fault = s->LmRepair();
  if (d->fault != 0) {
    DebugLogf(kLogFault, "zoveInstall: LmRepair failed, code %~d", d->fault);
    return kFaulted;
  }
  s->LmSetParms(1024, 1);
  d->fault = s->LmTest(kRootDL);
  DLView root;
  if (d->fault != 0 || s->LmSize(kRootDL) < kRootBytes || dlOpen(s, kRootDL, &root) != 0 ||
      root.head->dataSize < kRootDataBytes) {
    // A root that exists but is too small is a failed root test as much as a missing one.
    if (d->fault == 0) d->fault = kFaulted;
    DebugLogf(kLogFault, "zoveInstall: no root or root too small", d->fault);
    return kFaulted;
  }
  int16_t stored;
  std::memcpy(&stored, root.base + kVersionOffset, 2);
  if (stored != wanted) {
    DebugLogf(kLogVersion, "zoveInstall: wrong version, wanted 0x%08x, found 0x%08x", wanted,
              int32_t(stored));
    d->fault = stored;
    return kWrongVersion;
  }
  d->file = send(self, kHGtF);
  d->channel = channel;
  for (int32_t i = 0;; ++i) {
    int32_t dl = modsEntry(self, i);
    if (dl == 0) break;
    DLView v;
    uint32_t sig = dlOpen(d->space, dl, &v) == 0 ? v.head->uType : 0;
    TransBlock(d->channel, kXTSL, self, sig, dl);
    if (d->fault != 0) return kFaulted;
  }
  TransBlock(d->channel, kXTSD, self);
  TransBlock(d->channel, kXTSI, self);
  send(self, kHSCh, 1);
  return 0;
}

// TSCl (reason buffer): closes unless a controller keeps the store busy.
Word zoveClose(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  char* reason = zelkor::asPtr<char>(m.w[0]);
  if (reason) reason[0] = 0;
  int32_t busy = 0;
  TransBlock(d->channel, kXTSU, self, &busy, reason);
  if (busy != 0) return kRefused;
  send(self, kHUrg, kZoveSig);
  send(self, kDspo);
  return 0;
}

// HChg: collect under the raised check level, compress, then let the base record the change.
Word zoveChange(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  if (d->fault != 0) return kFaulted;
  TransBlock(d->channel, kXTSS, self, 1);
  ++d->checkLevel;
  send(self, kTSGC);
  --d->checkLevel;
  if (d->fault != 0) return kFaulted;
  if (d->space) d->space->LmCompress();
  return zelkor::passMsg(super(), self, m);
}

// TSPk (0-terminated array of signatures to keep): drops every other module and packs.
Word zovePack(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  if (d->fault != 0) return kFaulted;
  if (!d->space) return kNoSpace;
  const auto* keep = zelkor::asPtr<const int32_t>(m.w[0]);
  zoveUnlinked(self);
  for (int32_t i = 0;;) {
    int32_t dl = modsEntry(self, i);
    if (dl == 0) break;
    DLView v;
    if (dlOpen(d->space, dl, &v) == 0 && inKeepArray(keep, v.head->uType)) {
      ++i;
      continue;
    }
    zoveListDelete(self, kRootDL, kModsKey, dl);
  }
  if (send(self, kTSGC) != 0) fundra::Debug("zove", __LINE__);
  d->space->LmCompress();
  d->space->LmRepair();
  return zoveChange(self, zelkor::makeMsg(kHChg));
}

Word zoveGetFault(Object* self, const Msg&) { return zoveData(self)->fault; }

// TSDS (code): a set fault code is never replaced.
Word zoveSetFault(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  if (d->fault == 0) d->fault = zelkor::i32(m.w[0]);
  return d->fault;
}

// TSVU (version): the low 16 bits go into the root's version field.
Word zoveSetVersion(Object* self, const Msg& m) {
  DLView root;
  if (zoveEditDL(self, kRootDL, &root) != 0) return 0;
  if (root.head->dataSize < kRootDataBytes) {
    zoveAssert();
    return 0;
  }
  int16_t version = int16_t(zelkor::i32(m.w[0]));
  std::memcpy(root.base + kVersionOffset, &version, 2);
  return 0;
}

// TSNM (signature, data size): a shared module DL appended to `mods`.
Word zoveNewModule(Object* self, const Msg& m) {
  int32_t dl = zelkor::i32(send(self, kTSDN, m.w[0], m.w[1], 0));
  if (dl < 1) return dl;
  // A module DL that `mods` cannot list would be lost at the next collection.
  if (int32_t r = zelkor::i32(send(self, kTSLA, kRootDL, kModsKey, dl)); r < 0) {
    zoveRelease(self, dl);
    return r;
  }
  send(self, kTSSS, dl);
  return dl;
}

}  // namespace zove

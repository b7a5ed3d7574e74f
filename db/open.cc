// Opening stored DLs into live instances and closing them again, counted and serialised per DL.
//
// The instance record of an open DL (InstanceRecord, zove/db.h), eight pointer-wide words from
// MemAlloc on this 64-bit host:
//
//   offset  width  field       meaning
//   0       8      instance    the live instance object (PmIM writes it)
//   8       8      open count  PInO calls not yet matched by PInC
//   16      48     own[6]      the subclass's; PmIM may fill them, PmIS copies them
//
// Each DL's opening and closing runs inside its block state (a TBlockState, entered through a
// TBlocker), so PmIM and PmID of one DL never overlap while different DLs proceed at once. The
// dictionaries are shared by every DL and are touched only with the database's lock held
// (db_class.h gives the invariants and the lock order).
//
// A block state that no DL uses any more leaves the dictionary but is not freed: it goes on the
// database's spare list and serves the next DL that needs one. A thread leaving a state may still
// read it (to see whether anyone sleeps there) just after another thread has entered it, used it
// and found it unused, and a hint may name it; so the memory stays a block state until Dspo. The
// spare list is never longer than the most DLs that were ever in blocks at once.
//
// Hints: a DL opened again (the common case) finds its state in a small array by DL number,
// without the lock, tries it, and checks once it holds it that the state still serves that DL.
// A missed or stale hint costs the lookup under the lock that the first opening pays.
#include <cstring>
#include <new>
#include <vector>

#include "db/db_class.h"
#include "platform/fundra/debug.h"
#include "platform/fundra/memory.h"

namespace zove {

using zelkor::asPtr;
using zelkor::i32;
using zelkor::send;
using zelkor::toWord;

namespace {

using Hold = std::lock_guard<DictLock>;

Word dlKey(int32_t dl) { return toWord(dl); }

InstanceRecord* recordOf(DbData* d, int32_t dl) {
  return asPtr<InstanceRecord>(d->instances.Lookup(dlKey(dl)));
}

void exitBlock(zelkor::TBlocker& blocker) {
  if (blocker.Exit() != 0) fundra::Debug("db", __LINE__);
  blocker.Set(nullptr);
}

// A retired block state to serve another DL, entered; null when there is none that can be entered
// now (a thread that found it through a hint may hold it for a moment).
BlockSlot* takeSpare(DbData* d, zelkor::TBlocker& blocker) {
  BlockSlot* slot = d->spare;
  if (!slot) return nullptr;
  blocker.Set(&slot->state);
  if (blocker.TryEnter() != 0) return nullptr;
  d->spare = slot->nextSpare;
  return slot;
}

// Enters the DL's block, making its state when it has none. A state entered lately is found by
// its hint without the lock; otherwise the dictionary is searched, and the state tried, with the
// lock held, so that a free one is entered before anyone could retire it; a thread that has to
// wait pins the state meanwhile instead. Answers null when there is no memory for a new state.
BlockSlot* enterBlock(DbData* d, int32_t dl, zelkor::TBlocker& blocker) {
  std::atomic<BlockSlot*>& hint = d->hints[uint32_t(dl) & (kHints - 1)];
  BlockSlot* slot = hint.load(std::memory_order_acquire);
  if (slot && slot->dl.load(std::memory_order_relaxed) == dl) {
    blocker.Set(&slot->state);
    if (blocker.TryEnter() == 0) {
      // Held now, so its DL cannot change (D5): if it is still this one, this is the DL's block.
      if (slot->dl.load(std::memory_order_relaxed) == dl) return slot;
      exitBlock(blocker);
    }
  }
  {
    Hold hold(d->lock);
    slot = asPtr<BlockSlot>(d->blockStates.Lookup(dlKey(dl)));
    if (!slot) {
      slot = takeSpare(d, blocker);
      if (!slot) {
        slot = new (std::nothrow) BlockSlot;
        if (!slot) return nullptr;
        blocker.Set(&slot->state);
        blocker.TryEnter();
      }
      slot->dl.store(dl, std::memory_order_relaxed);
      d->blockStates.Set(dlKey(dl), toWord(slot));
      hint.store(slot, std::memory_order_release);
      return slot;
    }
    blocker.Set(&slot->state);
    if (blocker.TryEnter() == 0) {
      hint.store(slot, std::memory_order_release);
      return slot;
    }
    slot->pins++;
  }
  blocker.Enter();
  Hold hold(d->lock);
  slot->pins--;
  hint.store(slot, std::memory_order_release);
  return slot;
}

// Leaves the block of a DL that this thread may have left closed. When nobody else uses the
// block state (this thread is its only user: no pin, no sleeper, no outer entry) and the DL has no
// record, the state leaves the dictionary before this thread leaves it, so that no two threads
// ever retire one state.
void leaveBlock(DbData* d, int32_t dl, BlockSlot* slot, zelkor::TBlocker& blocker) {
  {
    Hold hold(d->lock);
    if (slot->pins == 0 && slot->state.Usage() == 1 && !slot->record) {
      d->blockStates.Remove(dlKey(dl));
      slot->dl.store(BlockSlot::kSpare, std::memory_order_relaxed);
      slot->nextSpare = d->spare;
      d->spare = slot;
    }
  }
  exitBlock(blocker);
}

}  // namespace

// PInO (DL, Word* result, up to 10 words): opens the DL; the first opening makes its instance
// (PmIM with the further words). A failed PmIM leaves no trace.
Word dbOpenInstance(Object* self, const Msg& m) {
  if (!dbBuilt(self)) {
    fundra::Debug("db", __LINE__);
    return kRefused;
  }
  DbData* d = dbData(self);
  int32_t dl = i32(m.w[0]);
  auto* result = asPtr<Word>(m.w[1]);
  zelkor::TBlocker blocker;
  BlockSlot* slot = enterBlock(d, dl, blocker);
  if (!slot) return kNoMemory;
  if (result) *result = 0;
  InstanceRecord* rec = slot->record;
  if (!rec) {
    rec = static_cast<InstanceRecord*>(fundra::MemAlloc(sizeof(InstanceRecord)));
    Msg make = m;
    make.sel = kPmIM;
    make.w[1] = toWord(rec);
    Word r = rec ? zelkor::dispatch(self, make) : Word(kNoMemory);
    if (r != 0) {
      fundra::MemFree(rec);
      leaveBlock(d, dl, slot, blocker);
      return r;
    }
    Hold hold(d->lock);
    d->instances.Set(dlKey(dl), toWord(rec));
    slot->record = rec;
  }
  rec->openCount++;
  if (result) *result = rec->instance;
  exitBlock(blocker);
  return 0;
}

// PInC (DL): closes one opening; the last disposes of the instance (PmID with a copy of the
// record, which is freed first) and the DL's block state goes.
Word dbCloseInstance(Object* self, const Msg& m) {
  if (!dbBuilt(self)) {
    fundra::Debug("db", __LINE__);
    return 0;
  }
  DbData* d = dbData(self);
  int32_t dl = i32(m.w[0]);
  zelkor::TBlocker blocker;
  BlockSlot* slot = enterBlock(d, dl, blocker);
  if (!slot) return kNoMemory;
  InstanceRecord* rec = slot->record;
  if (!rec) {
    // Closing a DL that is not open.
    fundra::Debug("db", __LINE__);
    leaveBlock(d, dl, slot, blocker);
    return 0;
  }
  if (--rec->openCount > 0) {
    exitBlock(blocker);
    return 0;
  }
  {
    Hold hold(d->lock);
    d->instances.Remove(dlKey(dl));
    slot->record = nullptr;
  }
  InstanceRecord copy;
  std::memcpy(&copy, rec, sizeof copy);
  fundra::MemFree(rec);
  send(self, kPmID, dl, &copy);
  leaveBlock(d, dl, slot, blocker);
  return 0;
}

// PInG (DL): the instance of an open DL, but 0 while any thread is inside (or entering) the DL's
// block, so that nobody is handed an instance being made or disposed of.
Word dbGetInstance(Object* self, const Msg& m) {
  if (!dbBuilt(self)) {
    fundra::Debug("db", __LINE__);
    return 0;
  }
  DbData* d = dbData(self);
  int32_t dl = i32(m.w[0]);
  Hold hold(d->lock);
  auto* slot = asPtr<BlockSlot>(d->blockStates.Lookup(dlKey(dl)));
  if (slot && (slot->pins > 0 || slot->state.Usage() > 0)) return 0;
  InstanceRecord* rec = recordOf(d, dl);
  return rec ? rec->instance : 0;
}

// PInB (DL): 1 while the DL is open or a thread is opening or closing it.
Word dbTstBlocked(Object* self, const Msg& m) {
  if (!dbBuilt(self)) {
    fundra::Debug("db", __LINE__);
    return 0;
  }
  DbData* d = dbData(self);
  Word key = dlKey(i32(m.w[0]));
  Hold hold(d->lock);
  return d->blockStates.Has(key) || d->instances.Has(key) ? 1 : 0;
}

// PmIM (DL, record, PInO's further words): the default instance is a plain `@Ins`.
Word dbMakeInstance(Object*, const Msg& m) {
  auto* rec = asPtr<InstanceRecord>(m.w[1]);
  if (!rec) {
    fundra::Debug("db", __LINE__);
    return kRefused;
  }
  rec->instance = send(zelkor::ZelkorLookup(kInsSig), kNew_);
  send(rec->instance, kSetu);
  return 0;
}

// PmID (DL, record): disposes of the instance.
Word dbDisposeInstance(Object*, const Msg& m) {
  auto* rec = asPtr<InstanceRecord>(m.w[1]);
  if (!rec) {
    fundra::Debug("db", __LINE__);
    return 0;
  }
  return send(rec->instance, kDspo);
}

// PmIS (DL, record): a copy of the eight words becomes the DL's record, in the block it has or a
// new one. A record that counts no opening is refused: no PInC would ever free it. The copy is
// made inside the DL's block (entered again when the caller is already inside it).
Word dbSetInstance(Object* self, const Msg& m) {
  auto* from = asPtr<InstanceRecord>(m.w[1]);
  if (!dbBuilt(self) || !from || from->openCount < 1) {
    fundra::Debug("db", __LINE__);
    return 0;
  }
  DbData* d = dbData(self);
  int32_t dl = i32(m.w[0]);
  zelkor::TBlocker blocker;
  BlockSlot* slot = enterBlock(d, dl, blocker);
  if (!slot) return kNoMemory;
  Word r = 0;
  InstanceRecord* rec = slot->record;
  if (!rec) rec = static_cast<InstanceRecord*>(fundra::MemAlloc(sizeof(InstanceRecord)));
  if (rec) {
    Hold hold(d->lock);
    std::memmove(rec, from, sizeof *rec);
    d->instances.Set(dlKey(dl), toWord(rec));
    slot->record = rec;
  } else {
    r = kNoMemory;
  }
  leaveBlock(d, dl, slot, blocker);
  return r;
}

int32_t dbCloseAll(Object* self) {
  DbData* d = dbData(self);
  std::vector<std::pair<Word, InstanceRecord*>> open;
  {
    fundra::TDictIter it(d->instances);
    Word key, value;
    while (it.Next(&key, &value)) open.emplace_back(key, asPtr<InstanceRecord>(value));
  }
  d->instances.Clear();
  for (auto& [key, rec] : open) {
    InstanceRecord copy;
    std::memcpy(&copy, rec, sizeof copy);
    fundra::MemFree(rec);
    send(self, kPmID, key, &copy);
  }
  {
    fundra::TDictIter it(d->blockStates);
    Word key, value;
    while (it.Next(&key, &value)) delete asPtr<BlockSlot>(value);
  }
  d->blockStates.Clear();
  while (BlockSlot* slot = d->spare) {
    d->spare = slot->nextSpare;
    delete slot;
  }
  return int32_t(open.size());
}

}  // namespace zove

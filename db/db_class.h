// The classes `@DB `, `@DMD`, `@Ins` and `@PTY`: their instance data and the handlers their
// build routines define.
//
// Only this folder's files include this header; other classes send selectors (zove/db.h).
#pragma once

#include <atomic>
#include <climits>
#include <cstdint>
#include <mutex>
#include <thread>

#include "platform/fundra/dict.h"
#include "platform/zelkor/zelkor.h"
#include "zove/db.h"

namespace zove {

using zelkor::ClassRec;
using zelkor::Msg;
using zelkor::Object;

// A DL's entry in the block states: the lock that serialises its opening and closing, how many
// threads found the entry and wait to enter it (so that none frees it meanwhile), and the DL's
// record, so that a thread inside the block reaches it without a second lookup.
struct BlockSlot {
  static constexpr int64_t kSpare = INT64_MIN;
  zelkor::TBlockState state;
  std::atomic<int64_t> dl{kSpare};   // the DL it serves, or kSpare (D5)
  int32_t pins = 0;                  // with the database's lock held
  BlockSlot* nextSpare = nullptr;    // on the database's spare list, with its lock held
  InstanceRecord* record = nullptr;  // as in `instances` (D3, D4)
};

// How many recently entered block states a database remembers by DL (kHints must be a power of
// 2): a DL opened again finds its state there without the dictionaries' lock.
constexpr uint32_t kHints = 16;

// The dictionaries' lock. It is held for a lookup, an insert or a removal and never across a send,
// so a thread that finds it taken spins (yielding the processor after a while) rather than
// sleeping; taking a free one is a single exchange.
class DictLock {
 public:
  void lock() {
    while (held_.exchange(true, std::memory_order_acquire)) waitFree();
  }
  void unlock() { held_.store(false, std::memory_order_release); }

 private:
  void waitFree();
  std::atomic<bool> held_{false};
};

// Instance data of `@DB `, fields in this order (the first six are the documented ones; the lock
// is this host's, see below). The dictionaries and the lock are built in Setu and destroyed in
// Dspo.
//
// Invariants:
//   D1. every record in `instances` has an open count of 1 or more;
//   D2. a DL has an entry in `blockStates` while it has a record, and while a thread is inside
//       its block or waiting to enter it (its slot is pinned); any other DL has none;
//   D3. a slot's `record` is the DL's entry in `instances`, or null when it has none;
//   D4. a record's words and a slot's `record` change only inside the DL's block, and `record`
//       only with `lock` held too (so a thread outside the block may read it under the lock);
//   D5. a slot's `dl` is its key in `blockStates`, or kSpare when it is in none; it changes only
//       while the slot's state is held and `lock` too, so a thread that holds the state and finds
//       its DL there holds that DL's block;
//   D6. block states are freed only by Dspo: retired ones wait on `spare`, and a hint may name
//       any slot, live or spare.
//
// Locking: opening and closing of one DL are serialised by its block state, so different DLs go
// on at once on several threads; the two dictionaries, shared by all DLs, are only touched with
// `lock` held, and only for a lookup, an insert or a removal (never across a send). With `lock`
// held a thread only tries a block state (TryEnter), never waits for one, so a thread inside a
// block may take `lock` without deadlock. A DL opened again may find its state through `hints`
// without `lock`: it tries the state and keeps it only if, once held, the state serves that DL
// (D5); D6 keeps a stale hint pointing at a block state.
struct DbData {
  Word store;                 // the store this database belongs to (Setu, again XTSL)
  int32_t moduleDL;           // this module's DL; 0 until XTSL or XTSD sets it
  FourCC signature;           // module signature, given to Setu by the subclass
  int32_t moduleSize;         // data size for the module DL when XTSD makes it
  fundra::TDict blockStates;  // DL -> BlockSlot*
  fundra::TDict instances;    // DL -> InstanceRecord* (MemAlloc)
  BlockSlot* spare;           // block states no DL uses, kept for the next (see open.cc)
  DictLock lock;              // guards both dictionaries (and every slot's `record`, D4)
  std::atomic<BlockSlot*> hints[kHints];  // by DL modulo kHints: a state entered lately
};

// Instance data of `@DMD`.
struct DmodData {
  Word provider;  // the provider manager last announced with PmSt; 0 after PmEd
};

// Instance data of `@Ins`: four bytes that nothing reads.
struct InsData {
  int32_t reserved;
};

// Instance data of `@PTY`.
struct PtyData {
  Word store;  // the store whose DLs it names
};

// The class records, set when the classes boot.
extern ClassRec* gDbClass;
extern ClassRec* gDmodClass;
extern ClassRec* gInsClass;
extern ClassRec* gPtyClass;

inline DbData* dbData(Object* self) { return zelkor::instanceData<DbData>(self, gDbClass); }
// True once Setu built the members and until Dspo destroys them.
bool dbBuilt(Object* self);

// The build routines: the one table from selector to handler of each class.
void DbClassBuild(ClassRec* cls);
void DmodClassBuild(ClassRec* cls);
void PtyClassBuild(ClassRec* cls);

// --- Handlers, by the file that holds them ---------------------------------------------------
#define DB_HANDLER(name) Word name(Object* self, const Msg& m)

// join.cc: set-up, disposal, the store's notices, accessors, the class-side constructors
DB_HANDLER(dbSetup);
DB_HANDLER(dbDispose);
DB_HANDLER(dbBindModule);
DB_HANDLER(dbMakeModule);
DB_HANDLER(dbStoreClosed);
DB_HANDLER(dbTstBusy);
DB_HANDLER(dbGetModuleDL);
DB_HANDLER(dbGetSignature);
DB_HANDLER(dbGetStore);
DB_HANDLER(dbNewForStore);
DB_HANDLER(dbInitForStore);

// open.cc: opening and closing DLs into instances
DB_HANDLER(dbOpenInstance);
DB_HANDLER(dbCloseInstance);
DB_HANDLER(dbGetInstance);
DB_HANDLER(dbTstBlocked);
DB_HANDLER(dbMakeInstance);
DB_HANDLER(dbDisposeInstance);
DB_HANDLER(dbSetInstance);

// open.cc: what Dspo does with DLs still open (disposes of each instance, frees every record
// and block state). Answers how many DLs were open.
int32_t dbCloseAll(Object* self);

// modeler.cc
DB_HANDLER(dmodSetup);
DB_HANDLER(dmodSetProvider);
DB_HANDLER(dmodEndProvider);
DB_HANDLER(dmodGetProvider);
DB_HANDLER(dmodForward);

// instance.cc: `@PTY` (`@Ins` has no handlers of its own)
DB_HANDLER(ptySetup);
DB_HANDLER(ptyGetName);
DB_HANDLER(ptyGetShortName);
DB_HANDLER(ptyGetAbilities);

#undef DB_HANDLER

}  // namespace zove

// Boot of the classes `@DB `, `@DMD`, `@Ins` and `@PTY`, and their build routines: the one table
// from selector to handler of each class.
#include "db/db_class.h"

namespace zove {

using zelkor::defineClassSelector;
using zelkor::Defn;

ClassRec* gDbClass = nullptr;
ClassRec* gDmodClass = nullptr;
ClassRec* gInsClass = nullptr;
ClassRec* gPtyClass = nullptr;

void DbClassBuild(ClassRec* cls) {
  // Set-up and disposal; the store's notices.
  Defn(cls, kSetu, dbSetup);
  Defn(cls, kDspo, dbDispose);
  Defn(cls, kXTSL, dbBindModule);
  Defn(cls, kXTSD, dbMakeModule);
  Defn(cls, kXTSC, dbStoreClosed);
  Defn(cls, kXTTB, dbTstBusy);
  // Opening and closing DLs into instances.
  Defn(cls, kPInO, dbOpenInstance);
  Defn(cls, kPInC, dbCloseInstance);
  Defn(cls, kPInG, dbGetInstance);
  Defn(cls, kPInB, dbTstBlocked);
  Defn(cls, kPmIM, dbMakeInstance);
  Defn(cls, kPmID, dbDisposeInstance);
  Defn(cls, kPmIS, dbSetInstance);
  // Accessors.
  Defn(cls, kSdRR, dbGetModuleDL);
  Defn(cls, kSdMS, dbGetSignature);
  Defn(cls, kPGTy, dbGetStore);
  // Sent to the class object, not to an instance.
  defineClassSelector(cls, kSdNw, dbNewForStore);
  defineClassSelector(cls, kTIni, dbInitForStore);
}

void DmodClassBuild(ClassRec* cls) {
  Defn(cls, kSetu, dmodSetup);
  Defn(cls, kPmSt, dmodSetProvider);
  Defn(cls, kPmEd, dmodEndProvider);
  Defn(cls, kPmGP, dmodGetProvider);
  Defn(cls, kPmFR, dmodForward);
}

void PtyClassBuild(ClassRec* cls) {
  Defn(cls, kSetu, ptySetup);
  Defn(cls, kPGNm, ptyGetName);
  Defn(cls, kPGSN, ptyGetShortName);
  Defn(cls, kPGAb, ptyGetAbilities);
}

namespace {

// The start-up every class runs: SubC, the boot/clsc task, its build routine (if it has one),
// and Dspo of the boot word once the whole boot is over.
ClassRec* bootClass(Word bootWord, Word superclass, FourCC sig, uint32_t bytes,
                    void (*build)(ClassRec*)) {
  Word cls = zelkor::send(superclass, zelkor::kSubC, sig, 1, bytes);
  if (!cls) return nullptr;
  ClassRec* rec = zelkor::classOf(zelkor::asObject(cls));
  zelkor::TThread::TaskCall(0, zelkor::TransThread, zelkor::kboot, zelkor::kclsc, cls, sig);
  if (build) build(rec);
  zelkor::TThread::TaskSched(0, bootWord, kDspo);
  return rec;
}

void DbBootProc(Word bootWord, Word superclass) {
  gDbClass = bootClass(bootWord, superclass, kDbSig, sizeof(DbData), DbClassBuild);
}
void DmodBootProc(Word bootWord, Word superclass) {
  gDmodClass = bootClass(bootWord, superclass, kDmodSig, sizeof(DmodData), DmodClassBuild);
}
void InsBootProc(Word bootWord, Word superclass) {
  gInsClass = bootClass(bootWord, superclass, kInsSig, sizeof(InsData), nullptr);
}
void PtyBootProc(Word bootWord, Word superclass) {
  gPtyClass = bootClass(bootWord, superclass, kPtySig, sizeof(PtyData), PtyClassBuild);
}

const int gDbBoot = zelkor::MakeBoot(zelkor::kRootSig, DbBootProc, "DbBootProc");
const int gDmodBoot = zelkor::MakeBoot(kDbSig, DmodBootProc, "DmodBootProc");
const int gInsBoot = zelkor::MakeBoot(zelkor::kRootSig, InsBootProc, "InsBootProc");
const int gPtyBoot = zelkor::MakeBoot(zelkor::kRootSig, PtyBootProc, "PtyBootProc");

}  // namespace

void DictLock::waitFree() {
  for (int spins = 0; held_.load(std::memory_order_relaxed); ++spins)
    if (spins >= 64) std::this_thread::yield();
}

bool dbBuilt(Object* self) {
  uint32_t flags = zelkor::segmentFlags(self, gDbClass);
  return (flags & zelkor::kBuilt) && !(flags & zelkor::kDestroyed);
}

}  // namespace zove

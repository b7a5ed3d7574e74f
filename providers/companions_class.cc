// Boot of the provider companions `@PCL`, `@PLK` and `@PCO`, each a subclass of the modeler, and
// their build routines: the one table from selector to handler of each class.
#include "providers/companions.h"

namespace zove {

using zelkor::Defn;

ClassRec* gCollClass = nullptr;
ClassRec* gPinkClass = nullptr;
ClassRec* gPcoClass = nullptr;

void CollClassBuild(ClassRec* cls) {
  Defn(cls, kSetu, collSetup);
  Defn(cls, kPmSt, collSetProvider);
  Defn(cls, kPmEd, collEndProvider);
  Defn(cls, kPcCT, collDefineType);
  Defn(cls, kPcGT, collGetType);
  Defn(cls, kPcFC, collFindContainer);
  Defn(cls, kPcNC, collNewContainer);
  Defn(cls, kPGAb, collGetAbilities);
  Defn(cls, kPGNm, collGetName);
  Defn(cls, kPGSN, collGetSortName);
  Defn(cls, kPAbl, collGetAble);
  Defn(cls, kPRen, collRename);
  Defn(cls, kPFog, collForget);
}

void PinkClassBuild(ClassRec* cls) {
  Defn(cls, kSetu, pinkSetup);
  Defn(cls, kPLCT, pinkDefineType);
  Defn(cls, kPLNL, pinkNewLink);
  Defn(cls, kPGAb, pinkGetAbilities);
  Defn(cls, kPGNm, pinkGetName);
  Defn(cls, kPGSN, pinkGetSortName);
  Defn(cls, kPAbl, pinkGetAble);
  Defn(cls, kPFog, pinkForget);
}

void PcoClassBuild(ClassRec* cls) {
  Defn(cls, kSetu, pcoSetup);
  Defn(cls, kPoCC, pcoMakeContainer);
  Defn(cls, kPoGC, pcoGetContainer);
  Defn(cls, kPGAb, pcoGetAbilities);
  Defn(cls, kPGNm, pcoGetName);
  Defn(cls, kPGSN, pcoGetSortName);
  Defn(cls, kPAbl, pcoGetAble);
}

namespace {

// SubC, the boot/clsc task, the build routine and Dspo of the boot word once the boot is over.
ClassRec* bootCompanion(Word bootWord, Word superclass, FourCC sig, uint32_t bytes,
                        void (*build)(ClassRec*)) {
  Word cls = zelkor::send(superclass, zelkor::kSubC, sig, 1, bytes);
  if (!cls) return nullptr;
  ClassRec* rec = zelkor::classOf(zelkor::asObject(cls));
  zelkor::TThread::TaskCall(0, zelkor::TransThread, zelkor::kboot, zelkor::kclsc, cls, sig);
  build(rec);
  zelkor::TThread::TaskSched(0, bootWord, kDspo);
  return rec;
}

void CollBootProc(Word bootWord, Word superclass) {
  gCollClass = bootCompanion(bootWord, superclass, kContainerSig, sizeof(CollData), CollClassBuild);
}
void PinkBootProc(Word bootWord, Word superclass) {
  gPinkClass = bootCompanion(bootWord, superclass, kLinkSig, sizeof(PinkData), PinkClassBuild);
}
void PcoBootProc(Word bootWord, Word superclass) {
  gPcoClass =
      bootCompanion(bootWord, superclass, kKeyedContainerSig, sizeof(PcoData), PcoClassBuild);
}

const int gCollBoot = zelkor::MakeBoot(kDmodSig, CollBootProc, "CollBootProc");
const int gPinkBoot = zelkor::MakeBoot(kDmodSig, PinkBootProc, "PinkBootProc");
const int gPcoBoot = zelkor::MakeBoot(kDmodSig, PcoBootProc, "PcoBootProc");

}  // namespace

}  // namespace zove

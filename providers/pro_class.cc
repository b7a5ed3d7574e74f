// Boot of the provider manager `@PRO` and its build routine: the one table from selector to
// handler, in the order the class defines them.
#include "providers/pro_class.h"

namespace zove {

using zelkor::Defn;

ClassRec* gProClass = nullptr;

namespace {

// Every handler but Dspo runs inside this: it counts the handlers running on the manager, and
// the outermost one carries out a Dspo that arrived meanwhile (ProData, P3).
template <zelkor::Handler H>
Word guarded(Object* self, const Msg& m) {
  ProData* d = proData(self);
  ++d->busy;
  Word r = H(self, m);
  if (--d->busy == 0 && d->disposePending) proDisposeNow(self, zelkor::makeMsg(kDspo));
  return r;
}

}  // namespace

void ProClassBuild(ClassRec* cls) {
  Defn(cls, kSetu, guarded<proSetup>);
  Defn(cls, kDspo, proDispose);
  Defn(cls, kXTSS, guarded<proStoreSaved>);
  Defn(cls, kXTSD, guarded<proAttach>);
  Defn(cls, kXTSI, guarded<proAnnounce>);
  Defn(cls, kPmSh, guarded<proShow>);
  Defn(cls, kPmSR, guarded<proShowRequired>);
  Defn(cls, kPmLS, guarded<proShowList>);
  Defn(cls, kPmHd, guarded<proHide>);
  Defn(cls, kPmUA, guarded<proUnplaceAll>);
  Defn(cls, kPmMd, guarded<proModified>);
  Defn(cls, kPmSv, guarded<proSaved>);
  Defn(cls, kPmUg, guarded<proUpdate>);
  Defn(cls, kPmSQ, guarded<proTstShown>);
  Defn(cls, kPmAQ, guarded<proTstShowable>);
  Defn(cls, kPmLC, guarded<proListShown>);
  Defn(cls, kPmSL, guarded<proSetLink>);
  Defn(cls, kPmRP, guarded<proSetRequired>);
  Defn(cls, kPmDF, guarded<proSetRecord>);
  Defn(cls, kPmAU, guarded<proSetAbilities>);
  Defn(cls, kPmSI, guarded<proSetInvisible>);
  Defn(cls, kPoEL, guarded<proEnumChildren>);
  Defn(cls, kPoEF, guarded<proFindChild>);
  Defn(cls, kPoDL, guarded<proEnumDescendants>);
  Defn(cls, kPoDF, guarded<proFindDescendant>);
  Defn(cls, kPoGI, guarded<proGetShownChild>);
  Defn(cls, kPoIA, guarded<proGetChild>);
  Defn(cls, kPoLA, guarded<proGetChildren>);
  Defn(cls, kPoGX, guarded<proGetIndex>);
  Defn(cls, kPoSX, guarded<proSetIndex>);
  Defn(cls, kPoEp, guarded<proExpand>);
  Defn(cls, kPoFT, guarded<proFindType>);
  Defn(cls, kPoGP, guarded<proGetParent>);
  Defn(cls, kPoMP, guarded<proFindAncestor>);
  Defn(cls, kPoCo, guarded<proGetController>);
  Defn(cls, kPoMg, guarded<proMessage>);
  Defn(cls, kPoGR, guarded<proGetRecordValue>);
  Defn(cls, kPoSR, guarded<proSetRecordValue>);
  Defn(cls, kPRvL, guarded<proResolveLink>);
  Defn(cls, kPEnL, guarded<proEnumLinks>);
  Defn(cls, kPoRs, guarded<proRequest>);
  Defn(cls, kPGAb, guarded<proGetAbilities>);
  Defn(cls, kPGtD, guarded<proGetDepth>);
  Defn(cls, kPGID, guarded<proGetSteps>);
  Defn(cls, kPUBy, guarded<proTstReached>);
  Defn(cls, kPTIn, guarded<proTstInside>);
  Defn(cls, kPTMv, guarded<proTstMove>);
  Defn(cls, kPMov, guarded<proMove>);
  Defn(cls, kPLnk, guarded<proLink>);
  Defn(cls, kPULk, guarded<proUnlink>);
  Defn(cls, kPFog, guarded<proForget>);
  Defn(cls, kPGNm, guarded<proGetName>);
  Defn(cls, kPGSN, guarded<proGetSortName>);
  Defn(cls, kPGMN, guarded<proGetMenuName>);
  Defn(cls, kPInO, guarded<proOpenInstance>);
  Defn(cls, kPInC, guarded<proCloseInstance>);
  Defn(cls, kPInR, guarded<proReleaseInstance>);
  Defn(cls, kPMdy, guarded<proModify>);
  Defn(cls, kPGtI, guarded<proGetInfo>);
  Defn(cls, kPRen, guarded<proRename>);
  Defn(cls, kPAbl, guarded<proGetAble>);
  Defn(cls, kPGII, guarded<proGetIcon>);
  Defn(cls, kPGHI, guarded<proGetHelp>);
  Defn(cls, kPoGG, guarded<proGetGlobal>);
  Defn(cls, kPoSG, guarded<proSetGlobal>);
  Defn(cls, kPcCT, guarded<proToContainers>);
  Defn(cls, kPcGT, guarded<proToContainers>);
  Defn(cls, kPcNC, guarded<proToContainers>);
  Defn(cls, kPcFC, guarded<proToContainers>);
  Defn(cls, kPLCT, guarded<proToLinks>);
  Defn(cls, kPLNL, guarded<proNewLink>);
}

namespace {

// SubC, the boot/clsc task, the build routine and Dspo of the boot word once the boot is over.
void ProBootProc(Word bootWord, Word superclass) {
  Word cls = zelkor::send(superclass, zelkor::kSubC, kProSig, 1, sizeof(ProData));
  if (!cls) return;
  gProClass = zelkor::classOf(zelkor::asObject(cls));
  zelkor::TThread::TaskCall(0, zelkor::TransThread, zelkor::kboot, zelkor::kclsc, cls, kProSig);
  ProClassBuild(gProClass);
  zelkor::TThread::TaskSched(0, bootWord, kDspo);
}

const int gProBoot = zelkor::MakeBoot(kDbSig, ProBootProc, "ProBootProc");

}  // namespace

}  // namespace zove

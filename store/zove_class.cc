// Boot of the class `@zov` and its build routine: the one table from selector to handler.
#include "store/zove_class.h"

#include "store/registry.h"

namespace zove {

using zelkor::fc;

ClassRec* gZoveClass = nullptr;

void ZoveClassBuild(ClassRec* cls) {
  using zelkor::Defn;
  // Life cycle, install, change and pack.
  Defn(cls, kHNew, zoveNew);
  Defn(cls, kSetu, zoveSetup);
  Defn(cls, kDspo, zoveDispose);
  Defn(cls, kTSIn, zoveInstall);
  Defn(cls, kTSCl, zoveClose);
  Defn(cls, kHChg, zoveChange);
  Defn(cls, kTSPk, zovePack);
  Defn(cls, kTSEC, zoveGetFault);
  Defn(cls, kTSDS, zoveSetFault);
  Defn(cls, kTSVU, zoveSetVersion);
  Defn(cls, kTSNM, zoveNewModule);

  // DLs: creation, header, data area, flags, keep list, owner and controller, swap, lock.
  Defn(cls, kTSDN, zoveNewDL);
  Defn(cls, kTSDT, zoveGetType);
  Defn(cls, kTSDK, zoveDoKeep);
  Defn(cls, kTSDU, zoveDoRelease);
  Defn(cls, kTSSD, zoveGetDataSize);
  Defn(cls, kTSDP, zoveGetDataPtr);
  Defn(cls, kTSRD, zoveGetData);
  Defn(cls, kTSWD, zoveSetData);
  Defn(cls, kTSSS, zoveSetShared);
  Defn(cls, kTSTS, zoveTstShared);
  Defn(cls, kTSSI, zoveSetInvisible);
  Defn(cls, kTSTI, zoveTstInvisible);
  Defn(cls, kTSTB, zoveTstBusy);
  Defn(cls, kTSCS, zoveGetCtlSig);
  Defn(cls, kTSCM, zoveGetCtl);
  Defn(cls, kTSND, zoveSendCtl);
  Defn(cls, kTSSw, zoveSwap);
  Defn(cls, kTSLk, zoveLock);
  Defn(cls, kTSUl, zoveUnlock);

  // Items.
  Defn(cls, kTSCt, zoveGetCount);
  Defn(cls, kTSEn, zoveGetKey);
  Defn(cls, kTSUk, zoveUnkey);
  Defn(cls, kTSLU, zoveLookUp);

  // Typed values.
  Defn(cls, kTSVG, zoveGetValue);
  Defn(cls, kTSVS, zoveSetValue);
  Defn(cls, kTSHG, zoveGetHandle);
  Defn(cls, kTSHS, zoveSetHandle);
  Defn(cls, kTSAG, zoveGetPart);
  Defn(cls, kTSAS, zoveSetPart);
  Defn(cls, kTSBz, zoveGetBlobSize);
  Defn(cls, kTSBP, zoveGetBlobPtr);
  Defn(cls, kTSBR, zoveGetBlob);
  Defn(cls, kTSBW, zoveSetBlob);
  Defn(cls, kTSBG, zoveGetBlobBlock);
  Defn(cls, kTSBS, zoveSetBlobBlock);
  Defn(cls, kTSBT, zoveGetBlobMem);
  Defn(cls, kTSBF, zoveSetBlobMem);
  Defn(cls, kTSSg, zoveGetString);
  Defn(cls, kTSSs, zoveSetString);
  Defn(cls, kTDtG, zoveGetDate);
  Defn(cls, kTDtS, zoveSetDate);
  Defn(cls, kTInG, zoveGetInterval);
  Defn(cls, kTInS, zoveSetInterval);
  Defn(cls, kTDsG, zoveGetDateStep);
  Defn(cls, kTDsS, zoveSetDateStep);
  Defn(cls, kTMoG, zoveGetObject);
  Defn(cls, kTMoS, zoveSetObject);

  // Lists and records.
  Defn(cls, kTSLN, zoveNewList);
  Defn(cls, kTSLC, zoveGetListCount);
  Defn(cls, kTSLE, zoveGetListElem);
  Defn(cls, kTSLF, zoveFindListElem);
  Defn(cls, kTSLA, zoveAppend);
  Defn(cls, kTSLI, zoveInsert);
  Defn(cls, kTSLD, zoveDelete);
  Defn(cls, kTSLG, zoveGetListBlock);
  Defn(cls, kTSLH, zoveSetListBlock);
  Defn(cls, kTSLt, zoveGetListMem);
  Defn(cls, kTSLf, zoveSetListMem);
  Defn(cls, kTSLS, zoveSortList);
  Defn(cls, kTSSN, zoveSortByName);
  Defn(cls, kTSRW, zoveWriteRecord);
  Defn(cls, kTSRR, zoveReadRecord);
  Defn(cls, kTSRS, zoveGetRecordSize);

  // Collection and integrity check.
  Defn(cls, kTSGC, zoveCollect);
  Defn(cls, kTSCk, zoveCheck);

  // Controllers, module registry, exchange stream, value-handle transfer (TSGM TSRM TSUM TSDM
  // TSAM TSTM TSEX TSEx TSIm TSHX) and structure operations (TSDD TSDC TSTW TSFR TSDR TSTK):
  // their table is in store/registry.cc, their handlers in files of their own.
  zoveDefineRegistryAndStructure(cls);
}

namespace {

void ZoveBootProc(Word bootWord, Word superclass) {
  Word cls = zelkor::send(superclass, zelkor::kSubC, kZoveSig, 1, int32_t(sizeof(ZoveData)));
  if (!cls) return;
  gZoveClass = zelkor::classOf(zelkor::asObject(cls));
  zelkor::TThread::TaskCall(0, zelkor::TransThread, zelkor::kboot, zelkor::kclsc, cls, kZoveSig);
  ZoveClassBuild(gZoveClass);
  zelkor::TThread::TaskSched(0, bootWord, kDspo);
}

const int gBoot = zelkor::MakeBoot(fc("@vhd"), ZoveBootProc, "ZoveBootProc");

}  // namespace

}  // namespace zove

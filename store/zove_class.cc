// Boot of the class `@zov` and its build routine: the one table from selector to handler.
#include "store/zove_class.h"

#include "store/registry.h"

namespace zove {

using zelkor::fc;

ClassRec* gZoveClass = nullptr;

void ZoveClassBuild(ClassRec* cls) {
  using zelkor::Defn;
  // Life cycle, install, change and pack.
  Defn(cls, fc("HNew"), zoveNew);
  Defn(cls, fc("Setu"), zoveSetup);
  Defn(cls, fc("Dspo"), zoveDispose);
  Defn(cls, fc("TSIn"), zoveInstall);
  Defn(cls, fc("TSCl"), zoveClose);
  Defn(cls, fc("HChg"), zoveChange);
  Defn(cls, fc("TSPk"), zovePack);
  Defn(cls, fc("TSEC"), zoveGetFault);
  Defn(cls, fc("TSDS"), zoveSetFault);
  Defn(cls, fc("TSVU"), zoveSetVersion);
  Defn(cls, fc("TSNM"), zoveNewModule);

  // DLs: creation, header, data area, flags, keep list, owner and controller, swap, lock.
  Defn(cls, fc("TSDN"), zoveNewDL);
  Defn(cls, fc("TSDT"), zoveGetType);
  Defn(cls, fc("TSDK"), zoveDoKeep);
  Defn(cls, fc("TSDU"), zoveDoRelease);
  Defn(cls, fc("TSSD"), zoveGetDataSize);
  Defn(cls, fc("TSDP"), zoveGetDataPtr);
  Defn(cls, fc("TSRD"), zoveGetData);
  Defn(cls, fc("TSWD"), zoveSetData);
  Defn(cls, fc("TSSS"), zoveSetShared);
  Defn(cls, fc("TSTS"), zoveTstShared);
  Defn(cls, fc("TSSI"), zoveSetInvisible);
  Defn(cls, fc("TSTI"), zoveTstInvisible);
  Defn(cls, fc("TSTB"), zoveTstBusy);
  Defn(cls, fc("TSCS"), zoveGetCtlSig);
  Defn(cls, fc("TSCM"), zoveGetCtl);
  Defn(cls, fc("TSND"), zoveSendCtl);
  Defn(cls, fc("TSSw"), zoveSwap);
  Defn(cls, fc("TSLk"), zoveLock);
  Defn(cls, fc("TSUl"), zoveUnlock);

  // Items.
  Defn(cls, fc("TSCt"), zoveGetCount);
  Defn(cls, fc("TSEn"), zoveGetKey);
  Defn(cls, fc("TSUk"), zoveUnkey);
  Defn(cls, fc("TSLU"), zoveLookUp);

  // Typed values.
  Defn(cls, fc("TSVG"), zoveGetValue);
  Defn(cls, fc("TSVS"), zoveSetValue);
  Defn(cls, fc("TSHG"), zoveGetHandle);
  Defn(cls, fc("TSHS"), zoveSetHandle);
  Defn(cls, fc("TSAG"), zoveGetPart);
  Defn(cls, fc("TSAS"), zoveSetPart);
  Defn(cls, fc("TSBz"), zoveGetBlobSize);
  Defn(cls, fc("TSBP"), zoveGetBlobPtr);
  Defn(cls, fc("TSBR"), zoveGetBlob);
  Defn(cls, fc("TSBW"), zoveSetBlob);
  Defn(cls, fc("TSBG"), zoveGetBlobBlock);
  Defn(cls, fc("TSBS"), zoveSetBlobBlock);
  Defn(cls, fc("TSBT"), zoveGetBlobMem);
  Defn(cls, fc("TSBF"), zoveSetBlobMem);
  Defn(cls, fc("TSSg"), zoveGetString);
  Defn(cls, fc("TSSs"), zoveSetString);
  Defn(cls, fc("TDtG"), zoveGetDate);
  Defn(cls, fc("TDtS"), zoveSetDate);
  Defn(cls, fc("TInG"), zoveGetInterval);
  Defn(cls, fc("TInS"), zoveSetInterval);
  Defn(cls, fc("TDsG"), zoveGetDateStep);
  Defn(cls, fc("TDsS"), zoveSetDateStep);
  Defn(cls, fc("TMoG"), zoveGetObject);
  Defn(cls, fc("TMoS"), zoveSetObject);

  // Lists and records.
  Defn(cls, fc("TSLN"), zoveNewList);
  Defn(cls, fc("TSLC"), zoveGetListCount);
  Defn(cls, fc("TSLE"), zoveGetListElem);
  Defn(cls, fc("TSLF"), zoveFindListElem);
  Defn(cls, fc("TSLA"), zoveAppend);
  Defn(cls, fc("TSLI"), zoveInsert);
  Defn(cls, fc("TSLD"), zoveDelete);
  Defn(cls, fc("TSLG"), zoveGetListBlock);
  Defn(cls, fc("TSLH"), zoveSetListBlock);
  Defn(cls, fc("TSLt"), zoveGetListMem);
  Defn(cls, fc("TSLf"), zoveSetListMem);
  Defn(cls, fc("TSLS"), zoveSortList);
  Defn(cls, fc("TSSN"), zoveSortByName);
  Defn(cls, fc("TSRW"), zoveWriteRecord);
  Defn(cls, fc("TSRR"), zoveReadRecord);
  Defn(cls, fc("TSRS"), zoveGetRecordSize);

  // Collection and integrity check.
  Defn(cls, fc("TSGC"), zoveCollect);
  Defn(cls, fc("TSCk"), zoveCheck);

  // Controllers, module registry, exchange stream, value-handle transfer (TSGM TSRM TSUM TSDM
  // TSAM TSTM TSEX TSEx TSIm TSHX) and structure operations (TSDD TSDC TSTW TSFR TSDR TSTK):
  // their table is in store/registry.cc, their handlers in files of their own.
  zoveDefineRegistryAndStructure(cls);
}

namespace {

void ZoveBootProc(Word bootWord, Word superclass) {
  Word cls = zelkor::send(superclass, fc("SubC"), kZoveSig, 1, int32_t(sizeof(ZoveData)));
  if (!cls) return;
  gZoveClass = zelkor::classOf(zelkor::asObject(cls));
  zelkor::TThread::TaskCall(0, zelkor::TransThread, fc("boot"), fc("clsc"), cls, kZoveSig);
  ZoveClassBuild(gZoveClass);
  zelkor::TThread::TaskSched(0, bootWord, fc("Dspo"));
}

const int gBoot = zelkor::MakeBoot(fc("@vhd"), ZoveBootProc, "ZoveBootProc");

}  // namespace

}  // namespace zove

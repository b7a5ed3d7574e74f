// The class `@zov`: its instance data and the handlers its build routine defines.
//
// Only the store's own files include this header; other classes send selectors
// (include/zove/store.h).
#pragma once

#include <cstdint>

#include "platform/fundra/dict.h"
#include "platform/fundra/rnlist.h"
#include "platform/fundra/space.h"
#include "platform/storefile/recfile.h"
#include "platform/storefile/vhd.h"
#include "platform/zelkor/zelkor.h"
#include "zove/store.h"

namespace zove {

struct CollectState;

// The value-handle base's and the record file's selectors, which the store sends itself and its
// record file.
using storefile::kHCId;
using storefile::kHCmp;
using storefile::kHCrt;
using storefile::kHDet;
using storefile::kHEId;
using storefile::kHGtF;
using storefile::kHGtH;
using storefile::kHRed;
using storefile::kHReg;
using storefile::kHRmv;
using storefile::kHSCh;
using storefile::kHSiz;
using storefile::kHTsv;
using storefile::kHUId;
using storefile::kHUrg;
using storefile::kHWrt;

using zelkor::ClassRec;
using zelkor::Msg;
using zelkor::Object;
using zelkor::Word;

// Instance data of `@zov`, fields in this order. The controllers dictionary and the keep list
// are built in Setu and destroyed in Dspo; the live records and the scratch map exist only
// while a collection (live records) or a structure operation (scratch map) runs.
//
// Invariants of the keep list (zoveCheckStore reports violations):
//   K1. every number on it is a live DL whose kept flag is set;
//   K2. a number is on it at most once;
//   K3. every DL whose kept flag is set is on it.
struct ZoveData {
  fundra::ElementSpace* space;  // every DL; set by HNew or, on install, by the base (HGtH)
  Word file;                    // record file (HGtF at install), 0 when the store has none
  Word channel;                 // notices go here; non-zero once installed
  int32_t checkLevel;           // while non-zero, touched DLs are run through the DL check
  int32_t changeCount;          // counted changes since the last periodic collection
  int32_t fault;                // sticky fault code; 0 while the store is sound
  fundra::TDict controllers;    // signature (as toWord widens it) -> controller object
  fundra::TDict* liveRecords;   // during a collection: chunks no item has named yet
  fundra::TDict* scratch;       // during a structure operation: DL -> DL
  fundra::RNList keep;          // DLs that are roots of collection until linked or released
  CollectState* collect;        // what the last collection learnt (collect_state.h), or null
};

// The class record, set when the class boots.
extern ClassRec* gZoveClass;

inline ZoveData* zoveData(Object* self) { return zelkor::instanceData<ZoveData>(self, gZoveClass); }

// Defines every selector of the class: the one table from selector to handler.
void ZoveClassBuild(ClassRec* cls);

// --- Handlers, by the file that holds them ---------------------------------------------------
#define ZOVE_HANDLER(name) Word name(Object* self, const Msg& m)

// install.cc: life cycle, install, change, pack, fault code, version, module DLs
ZOVE_HANDLER(zoveNew);
ZOVE_HANDLER(zoveSetup);
ZOVE_HANDLER(zoveDispose);
ZOVE_HANDLER(zoveInstall);
ZOVE_HANDLER(zoveClose);
ZOVE_HANDLER(zoveChange);
ZOVE_HANDLER(zovePack);
ZOVE_HANDLER(zoveGetFault);
ZOVE_HANDLER(zoveSetFault);
ZOVE_HANDLER(zoveSetVersion);
ZOVE_HANDLER(zoveNewModule);

// dls.cc: DL creation, header, data area, flags, keep list, owner, swap, lock
ZOVE_HANDLER(zoveNewDL);
ZOVE_HANDLER(zoveGetType);
ZOVE_HANDLER(zoveDoKeep);
ZOVE_HANDLER(zoveDoRelease);
ZOVE_HANDLER(zoveGetDataSize);
ZOVE_HANDLER(zoveGetDataPtr);
ZOVE_HANDLER(zoveGetData);
ZOVE_HANDLER(zoveSetData);
ZOVE_HANDLER(zoveSetShared);
ZOVE_HANDLER(zoveTstShared);
ZOVE_HANDLER(zoveSetInvisible);
ZOVE_HANDLER(zoveTstInvisible);
ZOVE_HANDLER(zoveTstBusy);
ZOVE_HANDLER(zoveGetCtlSig);
ZOVE_HANDLER(zoveGetCtl);
ZOVE_HANDLER(zoveSendCtl);
ZOVE_HANDLER(zoveSwap);
ZOVE_HANDLER(zoveLock);
ZOVE_HANDLER(zoveUnlock);

// items.cc: item count, enumeration, removal, parent-chain lookup
ZOVE_HANDLER(zoveGetCount);
ZOVE_HANDLER(zoveGetKey);
ZOVE_HANDLER(zoveUnkey);
ZOVE_HANDLER(zoveLookUp);

// values.cc: immediate values, handles, part links, blobs
ZOVE_HANDLER(zoveGetValue);
ZOVE_HANDLER(zoveSetValue);
ZOVE_HANDLER(zoveGetHandle);
ZOVE_HANDLER(zoveSetHandle);
ZOVE_HANDLER(zoveGetPart);
ZOVE_HANDLER(zoveSetPart);
ZOVE_HANDLER(zoveGetBlobSize);
ZOVE_HANDLER(zoveGetBlobPtr);
ZOVE_HANDLER(zoveGetBlob);
ZOVE_HANDLER(zoveSetBlob);
ZOVE_HANDLER(zoveGetBlobBlock);
ZOVE_HANDLER(zoveSetBlobBlock);
ZOVE_HANDLER(zoveGetBlobMem);
ZOVE_HANDLER(zoveSetBlobMem);

// typed.cc: strings, dates, intervals, date steps, object values
ZOVE_HANDLER(zoveGetString);
ZOVE_HANDLER(zoveSetString);
ZOVE_HANDLER(zoveGetDate);
ZOVE_HANDLER(zoveSetDate);
ZOVE_HANDLER(zoveGetInterval);
ZOVE_HANDLER(zoveSetInterval);
ZOVE_HANDLER(zoveGetDateStep);
ZOVE_HANDLER(zoveSetDateStep);
ZOVE_HANDLER(zoveGetObject);
ZOVE_HANDLER(zoveSetObject);

// lists.cc
ZOVE_HANDLER(zoveNewList);
ZOVE_HANDLER(zoveGetListCount);
ZOVE_HANDLER(zoveGetListElem);
ZOVE_HANDLER(zoveFindListElem);
ZOVE_HANDLER(zoveAppend);
ZOVE_HANDLER(zoveInsert);
ZOVE_HANDLER(zoveDelete);
ZOVE_HANDLER(zoveGetListBlock);
ZOVE_HANDLER(zoveSetListBlock);
ZOVE_HANDLER(zoveGetListMem);
ZOVE_HANDLER(zoveSetListMem);
ZOVE_HANDLER(zoveSortList);
ZOVE_HANDLER(zoveSortByName);

// records.cc
ZOVE_HANDLER(zoveWriteRecord);
ZOVE_HANDLER(zoveReadRecord);
ZOVE_HANDLER(zoveGetRecordSize);

// collect.cc and check.cc
ZOVE_HANDLER(zoveCollect);
ZOVE_HANDLER(zoveCheck);

#undef ZOVE_HANDLER

}  // namespace zove

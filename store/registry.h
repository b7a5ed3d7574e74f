// Handlers of the store's registry and whole-structure selectors, and the one routine that
// defines them on the class (called from ZoveClassBuild):
//
//   registry.cc         TSGM TSRM TSUM TSDM TSAM TSTM  controllers and module DLs
//   extension.cc        TSEX                           per-DL extension tables
//   exchange*.cc        TSEx TSIm                      the exchange stream (store/exchange.h)
//   transfer.cc         TSHX                           records from another record file
//   structure_copy.cc   TSDD                           duplicate
//   structure_compare.cc TSDC                          compare
//   structure_refs.cc   TSTW TSFR                      inside test, referrer count
//   structure_cut.cc    TSDR TSTK                      cutting references out of the store
#pragma once

#include "store/zove_class.h"

namespace zove {

void zoveDefineRegistryAndStructure(ClassRec* cls);

#define ZOVE_HANDLER(name) Word name(Object* self, const Msg& m)

ZOVE_HANDLER(zoveGetMod);
ZOVE_HANDLER(zoveRegMod);
ZOVE_HANDLER(zoveUnregMod);
ZOVE_HANDLER(zoveGetModDL);
ZOVE_HANDLER(zoveAddMod);
ZOVE_HANDLER(zoveTellInstalled);
ZOVE_HANDLER(zoveGetExtension);
ZOVE_HANDLER(zoveExport);
ZOVE_HANDLER(zoveImport);
ZOVE_HANDLER(zoveVHandXfer);
ZOVE_HANDLER(zoveDoDupe);
ZOVE_HANDLER(zoveDoCompare);
ZOVE_HANDLER(zoveTstWithin);
ZOVE_HANDLER(zoveFindRefs);
ZOVE_HANDLER(zoveDelRefs);
ZOVE_HANDLER(zoveDelKey);

#undef ZOVE_HANDLER

}  // namespace zove

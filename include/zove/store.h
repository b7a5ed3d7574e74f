// The store as other modules see it: its class signature, selectors, notices, answer codes,
// item kinds and the uTypes and keys it writes itself.
//
// Other classes never touch the element space: they send the store (an object of class `@zov`)
// these selectors and get DL numbers, refnums, values and codes back. Every argument and result
// is a 32-bit value carried in a word (see platform/zelkor/word.h). A selector's name is k and
// its four characters, so that searching for the characters finds its name, its handler in the
// class's build routine (store/zove_class.cc, store/registry.cc) and its uses. docs/store.md
// describes each selector.
#pragma once

#include <cstdint>

#include "platform/storefile/vhd.h"
#include "platform/zelkor/classes.h"
#include "platform/zelkor/word.h"

namespace zove {

using zelkor::fc;
using zelkor::FourCC;

constexpr FourCC kZoveSig = fc("@zov");

// Selectors the store answers. HNew and HChg are the value-handle base's (the store overrides
// them), Setu and Dspo the general object protocol's.
using storefile::kHChg;
using storefile::kHNew;
using zelkor::kDspo;
using zelkor::kSetu;

// Life cycle, install, change and pack.
constexpr FourCC kTSIn = fc("TSIn");
constexpr FourCC kTSCl = fc("TSCl");
constexpr FourCC kTSPk = fc("TSPk");
constexpr FourCC kTSEC = fc("TSEC");
constexpr FourCC kTSDS = fc("TSDS");
constexpr FourCC kTSVU = fc("TSVU");
constexpr FourCC kTSNM = fc("TSNM");

// DLs: creation, header, data area, flags, keep list, owner and controller, swap, lock.
constexpr FourCC kTSDN = fc("TSDN");
constexpr FourCC kTSDT = fc("TSDT");
constexpr FourCC kTSDK = fc("TSDK");
constexpr FourCC kTSDU = fc("TSDU");
constexpr FourCC kTSSD = fc("TSSD");
constexpr FourCC kTSDP = fc("TSDP");
constexpr FourCC kTSRD = fc("TSRD");
constexpr FourCC kTSWD = fc("TSWD");
constexpr FourCC kTSSS = fc("TSSS");
constexpr FourCC kTSTS = fc("TSTS");
constexpr FourCC kTSSI = fc("TSSI");
constexpr FourCC kTSTI = fc("TSTI");
constexpr FourCC kTSTB = fc("TSTB");
constexpr FourCC kTSCS = fc("TSCS");
constexpr FourCC kTSCM = fc("TSCM");
constexpr FourCC kTSND = fc("TSND");
constexpr FourCC kTSSw = fc("TSSw");
constexpr FourCC kTSLk = fc("TSLk");
constexpr FourCC kTSUl = fc("TSUl");

// Items.
constexpr FourCC kTSCt = fc("TSCt");
constexpr FourCC kTSEn = fc("TSEn");
constexpr FourCC kTSUk = fc("TSUk");
constexpr FourCC kTSLU = fc("TSLU");

// Typed values.
constexpr FourCC kTSVG = fc("TSVG");
constexpr FourCC kTSVS = fc("TSVS");
constexpr FourCC kTSHG = fc("TSHG");
constexpr FourCC kTSHS = fc("TSHS");
constexpr FourCC kTSAG = fc("TSAG");
constexpr FourCC kTSAS = fc("TSAS");
constexpr FourCC kTSBz = fc("TSBz");
constexpr FourCC kTSBP = fc("TSBP");
constexpr FourCC kTSBR = fc("TSBR");
constexpr FourCC kTSBW = fc("TSBW");
constexpr FourCC kTSBG = fc("TSBG");
constexpr FourCC kTSBS = fc("TSBS");
constexpr FourCC kTSBT = fc("TSBT");
constexpr FourCC kTSBF = fc("TSBF");
constexpr FourCC kTSSg = fc("TSSg");
constexpr FourCC kTSSs = fc("TSSs");
constexpr FourCC kTDtG = fc("TDtG");
constexpr FourCC kTDtS = fc("TDtS");
constexpr FourCC kTInG = fc("TInG");
constexpr FourCC kTInS = fc("TInS");
constexpr FourCC kTDsG = fc("TDsG");
constexpr FourCC kTDsS = fc("TDsS");
constexpr FourCC kTMoG = fc("TMoG");
constexpr FourCC kTMoS = fc("TMoS");

// Lists and records.
constexpr FourCC kTSLN = fc("TSLN");
constexpr FourCC kTSLC = fc("TSLC");
constexpr FourCC kTSLE = fc("TSLE");
constexpr FourCC kTSLF = fc("TSLF");
constexpr FourCC kTSLA = fc("TSLA");
constexpr FourCC kTSLI = fc("TSLI");
constexpr FourCC kTSLD = fc("TSLD");
constexpr FourCC kTSLG = fc("TSLG");
constexpr FourCC kTSLH = fc("TSLH");
constexpr FourCC kTSLt = fc("TSLt");
constexpr FourCC kTSLf = fc("TSLf");
constexpr FourCC kTSLS = fc("TSLS");
constexpr FourCC kTSSN = fc("TSSN");
constexpr FourCC kTSRW = fc("TSRW");
constexpr FourCC kTSRR = fc("TSRR");
constexpr FourCC kTSRS = fc("TSRS");

// Collection and integrity check.
constexpr FourCC kTSGC = fc("TSGC");
constexpr FourCC kTSCk = fc("TSCk");

// Controllers, module registry, exchange stream, value-handle transfer.
constexpr FourCC kTSGM = fc("TSGM");
constexpr FourCC kTSRM = fc("TSRM");
constexpr FourCC kTSUM = fc("TSUM");
constexpr FourCC kTSDM = fc("TSDM");
constexpr FourCC kTSAM = fc("TSAM");
constexpr FourCC kTSTM = fc("TSTM");
constexpr FourCC kTSEX = fc("TSEX");
constexpr FourCC kTSEx = fc("TSEx");
constexpr FourCC kTSIm = fc("TSIm");
constexpr FourCC kTSHX = fc("TSHX");

// Structure operations.
constexpr FourCC kTSDD = fc("TSDD");
constexpr FourCC kTSDC = fc("TSDC");
constexpr FourCC kTSTW = fc("TSTW");
constexpr FourCC kTSFR = fc("TSFR");
constexpr FourCC kTSDR = fc("TSDR");
constexpr FourCC kTSTK = fc("TSTK");

// Result codes.
enum : int32_t {
  kNoMemory = -625,       // no memory for the element space (HNew)
  kWrongVersion = -801,   // stored version differs from the wanted one (TSIn)
  kFaulted = -802,        // the store is faulted, or install failed its repair or root test
  kTooDeep = -803,        // marking went deeper than kMaxDepth levels
  kBadRefType = -804,     // an item with a refnum has an unknown refnum type
  kBadValueType = -805,   // an item without a refnum has an unknown value type
  kBadStream = -806,      // TSIm: the bytes are not a stream this store's exporter can write
  kWrongKind = -807,      // the item is not of the kind the selector reads (also: not a DL)
  kNoItem = -808,         // no item with the key, no such list element, no module DL
  kRefused = -809,        // a controller keeps the store busy, a DL is open, a controller clash
  kInstalled = -810,      // TSIn on an installed store
  kNoSpace = -811,        // no element space, or not installed
  kNoRecordFile = -1100,  // the store has no record file
};

// Item kinds. For a refnum item (ref > 0) the kind word with its low byte cleared is the refnum
// type; for any other item the ref word with its low byte cleared is the value type.
enum : uint32_t {
  kBlob = 0x100,
  kHandle = 0x200,
  kPartLink = 0x400,
  kList = 0x700,
  kWeakList = 0x800,
  kWeakHandle = 0xB00,
  kImmediate = 0xFFFF8100u,
  kVHandle = 0xFFFF8200u,
};

// DL flags (header offset 4).
enum : uint16_t {
  kSharedFlag = 1u << 1,
  kInvisibleFlag = 1u << 2,
  kKeptFlag = 1u << 4,
};

constexpr int32_t kMaxDepth = 500;      // deepest level a marking walk may reach
constexpr int32_t kCollectEvery = 100;  // counted changes between periodic collections

// Log levels of the store's diagnostics.
constexpr int kLogFault = 515;
constexpr int kLogVersion = 516;
constexpr int kLogPeriodic = 519;

// uTypes and keys the store writes itself.
constexpr FourCC kRootType = fc("root");
constexpr FourCC kModsKey = fc("mods");
constexpr FourCC kPareKey = fc("Pare");
constexpr FourCC kNameKey = fc("Name");
constexpr FourCC kRecordType = fc("TVhd");  // vhandle type of every record in the record file

// Selectors the store sends to the objects of object values (TMoG, TMoS).
constexpr FourCC kImpt = fc("Impt");  // (bytes, size) -> 0 | code   the object reads itself
constexpr FourCC kStSz = fc("StSz");  // () -> bytes                the size of its export
constexpr FourCC kExpt = fc("Expt");  // (bytes, size) -> bytes | code  the object writes itself

// Notices broadcast on the store's channel.
constexpr FourCC kXTSL = fc("XTSL");  // (store, module signature, module DL)  install
constexpr FourCC kXTSD = fc("XTSD");  // (store)                              install
constexpr FourCC kXTSI = fc("XTSI");  // (store)                              install, TSTM
constexpr FourCC kXTSC = fc("XTSC");  // (store)                              Dspo
constexpr FourCC kXTSU = fc("XTSU");  // (store, int32_t* busy, char* reason)  TSCl
constexpr FourCC kXTSS = fc("XTSS");  // (store, 1)                           HChg
constexpr FourCC kXTTB = fc("XTTB");  // (store, DL, int32_t* open)            TSTB
constexpr FourCC kXTSW = fc("XTSW");  // (DL a, DL b)                         TSSw
constexpr FourCC kXTSH = fc("XTSH");  // (store)                              TSCk

}  // namespace zove

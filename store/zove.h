// The store as other classes see it: its class signature, selectors, notices, result codes,
// item kinds and the uTypes it writes itself.
//
// Other classes never touch the element space: they send the store (an object of class `@zov`)
// these selectors and get DL numbers, refnums, values and codes back. Every argument and result
// is a 32-bit value carried in a word (see platform/zelkor/word.h).
#pragma once

#include <cstdint>

#include "platform/zelkor/word.h"

namespace zove {

using zelkor::fc;
using zelkor::FourCC;

constexpr FourCC kZoveSig = fc("@zov");

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

// The persistent object bases as other modules see them: the database object `@DB ` (the
// controller of one module of a store), the modeler `@DMD`, the default instance `@Ins` and the
// property type `@PTY`; every selector they answer or send, the instance record and the code.
//
// Every database class of the application derives from `@DB ` (most through `@DMD`) and fixes its
// module signature by passing Setu (store, signature, data size) up. docs/db.md describes each
// selector, the threading guarantees and what each bad input gives.
#pragma once

#include <cstdint>

#include "platform/zelkor/classes.h"
#include "platform/zelkor/word.h"
#include "zove/store.h"

namespace zove {

using zelkor::Word;

constexpr FourCC kDbSig = fc("@DB ");
constexpr FourCC kDmodSig = fc("@DMD");
constexpr FourCC kInsSig = fc("@Ins");
constexpr FourCC kPtySig = fc("@PTY");

// The general object protocol the four classes answer or send (the framework's).
using zelkor::kDspo;
using zelkor::kNew_;
using zelkor::kNwMF;
using zelkor::kpoAd;
using zelkor::kSetu;

// --- @DB -----------------------------------------------------------------------------------
//   Setu (store, signature, module data size) -> TSAM's answer
//        builds the dictionaries, sends the store TSAM (self, signature), joins the store's
//        channel (poAd with the store)
//   Dspo -> the base's answer    an instance still open is an assertion
// The store's notices it answers (store.h): XTSL, XTSD, XTSC, XTTB.
//   XTSL (store, signature, module DL) -> another signature unchanged, or TSRM's answer
//   XTSD (store) -> module DL    makes it (TSNM) and registers (TSRM) when it has none
//   XTSC (store) -> the argument when another store's; its own: the object disposes of itself
//   XTTB (store, DL, int32_t* flag)    sets *flag to 1 when PInB answers 1
// The store's selectors it sends (store.h): TSAM, TSRM, TSNM, TSTM.
constexpr FourCC kPInO = fc("PInO");  // (DL, Word* result, up to 10 words) -> 0 | PmIM's code
                                      //   opens the DL; *result = the instance object
constexpr FourCC kPInC = fc("PInC");  // (DL) -> 0    closes one opening
constexpr FourCC kPInG = fc("PInG");  // (DL) -> instance object, or 0 (not open, or a thread is
                                      //   opening or closing it)
constexpr FourCC kPInB = fc("PInB");  // (DL) -> 1 when the DL is open or being opened or closed
constexpr FourCC kPmIM = fc("PmIM");  // (DL, InstanceRecord*, PInO's further words) -> 0 | code
                                      //   makes the instance into record word 0
constexpr FourCC kPmID = fc("PmID");  // (DL, InstanceRecord*) -> Dspo's answer   disposes of it
constexpr FourCC kPmIS = fc("PmIS");  // (DL, InstanceRecord*) -> 0   stores a copy as the record
constexpr FourCC kSdRR = fc("SdRR");  // () -> module DL
constexpr FourCC kSdMS = fc("SdMS");  // () -> module signature
constexpr FourCC kPGTy = fc("PGTy");  // () -> store
// Class-side: sent to the class object of `@DB ` or of any subclass.
constexpr FourCC kSdNw = fc("SdNw");  // (store, up to 10 words) -> a new database object
                                      //   NwMF (store), then Setu (store, 0, 0, the words)
                                      //   posted to it, then TSTM posted to the store
constexpr FourCC kTIni = fc("TIni");  // (store) -> SdNw's answer

// The instance record of an open DL: eight words, pointer-wide on this host (64 bytes), from
// MemAlloc (zero-filled). PmIS copies all eight.
struct InstanceRecord {
  Word instance;   // word 0: the live instance object for the DL
  Word openCount;  // word 1: PInO calls not yet matched by PInC
  Word own[6];     // words 2 to 7: the subclass's PmIM keeps what it likes here
};
static_assert(sizeof(InstanceRecord) == 8 * sizeof(Word));

// --- @DMD (a database object managed by the provider manager) ---------------------------------
//   Setu (store, signature, module data size) -> @DB's answer
constexpr FourCC kPmSt = fc("PmSt");  // (any word, provider manager) -> the manager   keeps it
constexpr FourCC kPmEd = fc("PmEd");  // (provider manager) -> the argument   forgets it if kept
constexpr FourCC kPmGP = fc("PmGP");  // () -> the provider manager, or 0
constexpr FourCC kPmFR = fc("PmFR");  // (DL, selector, up to 10 words) -> the responder's answer,
                                      //   or kNoResponder
// Broadcast by PmFR on the channel named by the module signature; a listener that answers for
// the module writes itself into *responder.
constexpr FourCC kFdRs = fc("FdRs");  // (store, modeler, Word* responder, Word* auxiliary,
                                      //   selector, DL, the first 6 further words)

// --- @Ins: answers only the root protocol (New , Setu, Dspo) -----------------------------------

// --- @PTY (names DLs of a store generically) --------------------------------------------------
//   Setu (store) -> the store
constexpr FourCC kPGNm = fc("PGNm");  // (DL, TString*) -> 0   "Object <uType=DL>" when the DL
                                      //   has an owning module, else "Controller <uType>"
constexpr FourCC kPGSN = fc("PGSN");  // (DL, TString*) -> 0   the short name " "
constexpr FourCC kPGAb = fc("PGAb");  // () -> kPropertyAbilities
// The store's selectors it sends (store.h): TSCS, TSDT.

constexpr uint32_t kPropertyAbilities = 0x08000002;

// Result code of the modeler.
enum : int32_t {
  kNoResponder = -833,  // no object answered FdRs for the module (PmFR)
};

}  // namespace zove

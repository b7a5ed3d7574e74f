// The provider companions as other modules see them: the user containers `@PCL`, the links
// `@PLK` and the keyed containers `@PCO` (the base of further container classes), their type
// records and containers as they lie in the store, the string kinds their names and prompts are
// loaded with, and the selectors they answer beyond the general object protocol.
//
// Each companion is a modeler (`@DMD`) with a module DL of its own that owns the providers it
// makes, so the store names it their controller: the manager forwards the general object
// protocol (PGAb, PGNm, PGSN, PAbl, PRen, PFog) of those providers to it. The provider manager
// makes one `@PCL` and one `@PLK` at its Setu and forwards PcCT, PcGT, PcNC, PcFC, PLCT and PLNL
// to them (zove/providers.h declares those selectors); a module makes its own subclass of `@PCO`.
// docs/providers.md describes each selector and what each bad input gives.
#pragma once

#include <cstdint>

#include "zove/providers.h"

namespace zove {

// kContainerSig (`@PCL`) and kLinkSig (`@PLK`) are in zove/providers.h.
constexpr FourCC kKeyedContainerSig = fc("@PCO");
constexpr FourCC kContainerModuleSig = fc("PCL1");  // `@PCL`'s module; module data size 0
constexpr FourCC kLinkModuleSig = fc("PLK1");       // `@PLK`'s module; the size its Setu gets

// --- @PCL: user containers -------------------------------------------------------------------
//   Setu (store) -> @DMD's answer          passes (store, PCL1, 0); keeps the store
//   PmSt (store, manager) -> module DL     passes it on; keeps the manager and the module DL
//   PcCT (type, string id, abilities) -> the type record    defines or redefines a type, then
//        shows again each of its containers that can be shown (PmA? 0: PmSh (0, container))
//   PcGT (p) -> p's uType
//   PcFC (type, TString* name) -> the first container of the type so named, or 0
//   PcNC (type, TString* name or 0) -> a new container, or 0    asks for a name when none given
//   PGAb (p) -> the abilities of p's type; PGNm (p, TString*, kind); PGSN (p, TString*)
//   PAbl (p, int32_t*) -> 0                10, plus 4 unless p shows a child and its type lacks
//                                          kAbLinkFolder
//   PRen (p, TString* name or 0) -> 0 | kProviderMisplaced | the dialog's kDialogCancelled
//   PFog (p) -> 0 | kContainerNotEmpty     hides p (PmHd) and cuts every reference to it (TSDR)
//
// --- @PLK: links -------------------------------------------------------------------------------
//   Setu (store, word, size) -> @DMD's answer    passes (store, PLK1, size)
//   PLCT (type, string id) -> the link type record
//   PLNL (type, TString* name or 0) -> a new link, or 0 when the type has no link type record
//   PGAb (p) -> the abilities of the provider one link step on, with kAbLink
//   PGNm (p, TString*, kind); PGSN (p, TString*); PAbl (p, int32_t*) -> 0 (writes 4)
//   PFog (p) -> 0                          hides p (PmHd) and cuts every reference to it (TSDR)
//
// --- @PCO: keyed containers --------------------------------------------------------------------
//   Setu (store, signature, size) -> @DMD's answer    a signature of 0 is an assertion
//   PGAb (p) -> the abilities of the container; PAbl (p, int32_t*) -> 0 (writes 8)
//   PGNm (p, TString*, kind) -> 1 | 0 (LoadKString's answer)
//   PGSN (p, TString*, sort mode) -> LoadKString's answer for the sort name, else PGNm's
constexpr FourCC kPoCC = fc("PoCC");  // (parent or 0, key or 0, string id, abilities) -> the
                                      //   container, made or reused, shown below the parent
constexpr FourCC kPoGC = fc("PoGC");  // (key) -> the container made with the key, or 0

// --- Records in the store ------------------------------------------------------------------------
// Each record's data area, little-endian, starts with a persist header (tag, versions 256, 256);
// the string id's low 16 bits name a string table.
//
// Container type record: uType `PCtn`, no owner, shared; a handle under the container type in the
// `@PCL` module DL. Its items: `PCo#`, the list of the type's containers in the order made.
//   offset  width  field      meaning
//   0       8      header     tag `PCt.`
//   8       4      string id  the table of the type's name and its containers' name formats
//   12      4      abilities  of every container of the type
//   16      8      reserved   0
// A user container: a DL of uType the container type, no data area, owned by the `@PCL` module
// DL, shared; its name is the string item `Name`.
constexpr FourCC kContainerTypeType = fc("PCtn");
constexpr FourCC kContainerTypeTag = fc("PCt.");
constexpr int32_t kContainerTypeBytes = 24;
constexpr FourCC kContainersKey = fc("PCo#");
//
// Link type record: uType `PrLk`, no owner, shared; a handle under the link type in the `@PLK`
// module DL.
//   offset  width  field      meaning
//   0       8      header     tag `PrL.`
//   8       4      string id  the table of the type's link name formats
//   12      4      reserved   0
// A link: a DL of uType the link type, no data area, owned by the `@PLK` module DL, shared, with
// an optional string item `Name`; the manager keeps its target (`_plk`).
constexpr FourCC kLinkTypeType = fc("PrLk");
constexpr FourCC kLinkTypeTag = fc("PrL.");
constexpr int32_t kLinkTypeBytes = 16;
//
// Keyed container: uType `PCnr`, owned by the module DL of the `@PCO` object, shared; a handle
// under its key in that module DL when it was made with a key.
//   offset  width  field      meaning
//   0       8      header     tag `PCn.`
//   8       4      string id  the table of its name and sort names
//   12      4      abilities
//   16      8      reserved   0
constexpr FourCC kKeyedContainerType = fc("PCnr");
constexpr FourCC kKeyedContainerTag = fc("PCn.");
constexpr int32_t kKeyedContainerBytes = 24;

constexpr int32_t kRecordVersion = 256;
constexpr int32_t kRecordIdOffset = 8;
constexpr int32_t kRecordAbilitiesOffset = 12;

// --- Texts -------------------------------------------------------------------------------------
// Table 18100 holds the prompts, proposals and the alert; a type record's string id names the
// table of the type's own texts. A kind is added to its base: CoN0 + (kind & 0xFF), and so on.
constexpr uint16_t kContainerTexts = 18100;
constexpr FourCC kCoTN = fc("CoTN");  // type's table: the type's name
constexpr FourCC kCoN0 = fc("CoN0");  // type's table: a container's name; (Name)
constexpr FourCC kNCPt = fc("NCPt");  // 18100: prompt for a new container's name; (type name)
constexpr FourCC kDCNm = fc("DCNm");  // 18100: the first proposed name; (type name, 0)
constexpr FourCC kDCNN = kDCNm - 31;  // 18100: `DCNN`, further proposals; (type name, n)
constexpr FourCC kDCNE = fc("DCNE");  // 18100: alert, the name is taken; (type name, name)
constexpr FourCC kRCPt = fc("RCPt");  // 18100: prompt for renaming; (type name)
constexpr FourCC kLkN0 = fc("LkN0");  // link type's table: a link's name; (target's name, Name)
constexpr FourCC kPcN0 = fc("PcN0");  // keyed container's table: its name
constexpr FourCC kPsN0 = fc("PsN0");  // keyed container's table: its sort name, + sort mode
static_assert(kDCNN == fc("DCNN"));

// What the companions pass the foundation's dialogs: a query about the application's own data
// with OK and Cancel, its answer cut to 31 characters and offered selected; an alert with OK.
constexpr uint32_t kNameQueryStyle = 18;
constexpr int32_t kNameQueryLength = -31;
constexpr uint32_t kNameAlertStyle = 17;
constexpr int32_t kProposalLength = 31;  // proposed names are cut to their first 31 characters

// PAbl's words: a user container 10 (+ 4 when it may be forgotten), a link 4, a keyed one 8.
constexpr int32_t kContainerAble = 10;
constexpr int32_t kContainerForgettable = 4;
constexpr int32_t kLinkAble = 4;
constexpr int32_t kKeyedAble = 8;

}  // namespace zove

// The provider tree as other modules see it: the provider manager `@PRO`, every selector it
// answers or sends, the events it broadcasts on itself, the status record it keeps per provider,
// its keys, ability bits and codes; and the tree watch `@PTW`, a listener that mirrors the shown
// tree from the events alone and reports any event a view could not apply.
//
// A provider is a DL of the store named by its DL number; 0 stands for the tree's root (the
// manager's module DL) wherever a selector takes a provider, and the root is reported as 0
// wherever a selector or event reports a parent. docs/providers.md describes each selector, the
// order of the events and what each bad input gives.
//
// A selector's name is k and its four characters. `?` cannot be part of a name, so `PmS?` is
// kPmSQ and `PmA?` is kPmAQ; a space becomes `_`.
#pragma once

#include <cstdint>

#include "platform/zelkor/classes.h"
#include "platform/zelkor/word.h"
#include "zove/db.h"
#include "zove/store.h"

namespace zove {

constexpr FourCC kProSig = fc("@PRO");        // the provider manager's class
constexpr FourCC kProModuleSig = fc("PRO1");  // its module signature; module data size 0
constexpr FourCC kContainerSig = fc("@PCL");  // the user containers' class (SdNw at Setu)
constexpr FourCC kLinkSig = fc("@PLK");       // the links' class (SdNw at Setu)
constexpr FourCC kTreeWatchSig = fc("@PTW");  // the tree watch

// Selectors of the framework and of the bases that the manager answers or sends.
using zelkor::kDspo;
using zelkor::kLkUp;  // sent to a controller: does it answer the selector?
using zelkor::kNew_;  // sent to `@PTY` at Setu
using zelkor::kSetu;
using zove::kPGAb;  // (p or 0) -> abilities    also sent to controllers: (p) -> abilities
using zove::kPGNm;  // (p, TString*, kind) -> 0 | kNoController    forwarded
using zove::kPGSN;  // (p, TString*, sort mode) -> 0 | kNoController    forwarded (or PGNm)
using zove::kPInC;  // (p or 0) -> the controller's answer    resolved, forwarded
using zove::kPInO;  // (p or 0, Word* result, up to 10 words) -> the controller's answer
using zove::kPmEd;  // broadcast by Dspo on the store: (manager)
using zove::kPmFR;  // sent to a controller by PMdy, PGtI, PoRs: (p, selector, words)
using zove::kPmSt;  // broadcast by XTSI on the store: (store, manager)
using zove::kSdNw;  // sent to `@PCL` and `@PLK` at Setu: (store)
// The store's notices it answers (store.h): XTSS, XTSD, XTSI. The store's selectors it sends
// (store.h): TSHG TSHS TSAG TSAS TSVG TSVS TSUk TSDN TSDT TSRD TSWD TSSS TSTS TSSI TSTI TSCS TSCM
// TSLE TSLC TSLA TSLD TSLI TSLF TSLS TSLN TSLt.

// --- @PRO: placement and events ------------------------------------------------------------
constexpr FourCC kPmSh = fc("PmSh");  // (parent or 0, p) -> 0    shows p; on a shown p, new
                                      //   abilities and PmMd
constexpr FourCC kPmSR = fc("PmSR");  // (required parent or 0, p) -> 0 | PMov's code |
                                      //   kRequiredParentLeft    shows p below it, records it
constexpr FourCC kPmLS = fc("PmLS");  // (parent or 0, RNList*) -> 0    shows the listed
                                      //   providers under the parent, in one bracket
constexpr FourCC kPmHd = fc("PmHd");  // (p) -> 0    hides p, its links and its subtree
constexpr FourCC kPmUA = fc("PmUA");  // (p or 0) -> 0    hides p's descendants, forgets where
                                      //   they were placed
constexpr FourCC kPmMd = fc("PmMd");  // (p) -> 0    announces a change of p (and of its links)
constexpr FourCC kPmSv = fc("PmSv");  // (word, word) -> 0    broadcasts PoXS with them
constexpr FourCC kPmUg = fc("PmUg");  // (p or 0, 1 open | 0 close) -> 0    update bracket
constexpr FourCC kPmSQ = fc("PmS?");  // (p or 0) -> 1 | 0    shown (0 and the root always)
constexpr FourCC kPmAQ = fc("PmA?");  // (p) -> 0 | kNoStatusRecord | kNoController    can p be
                                      //   shown again under its recorded parents?
constexpr FourCC kPmLC = fc("PmLC");  // (RNList*) -> RNList::Del (0)    drops what is not shown
constexpr FourCC kPmSL = fc("PmSL");  // (link, target) -> 0    points the link at the target
constexpr FourCC kPmRP = fc("PmRP");  // (p, R or 0) -> 0 | kRequiredParentLeft    sets or
                                      //   removes p's required parent
constexpr FourCC kPmDF = fc("PmDF");  // (p, source or 0) -> 0 | kNoStatusRecord    shares the
                                      //   source's status record, or gives p a copy of its own
constexpr FourCC kPmAU = fc("PmAU");  // (p, abilities or 0) -> the bits that changed    no event
constexpr FourCC kPmSI = fc("PmSI");  // (p, on) -> 0    the invisible flag and ability 0x4

// --- @PRO: enumeration, order and search -----------------------------------------------------
constexpr FourCC kPoEL = fc("PoEL");  // (p or 0, RNList*, mask, value, sort mode) -> 0
constexpr FourCC kPoEF = fc("PoEF");  // (p or 0, target, mask, value, sort mode) -> index
constexpr FourCC kPoDL = fc("PoDL");  // (p or 0, RNList*, mask, value, sort mode) -> 0
constexpr FourCC kPoDF = fc("PoDF");  // (p or 0, target, mask, value, sort mode) -> index
constexpr FourCC kPoGI = fc("PoGI");  // (p or 0, index) -> the index-th shown child, or 0
constexpr FourCC kPoIA = fc("PoIA");  // (p or 0, index) -> element of p's _pk#, or 0
constexpr FourCC kPoLA = fc("PoLA");  // (p or 0, TMemory*) -> TSLt's answer    p's whole _pk#
constexpr FourCC kPoGX = fc("PoGX");  // (p) -> index in the parent's _pk#, or kNoItem
constexpr FourCC kPoSX = fc("PoSX");  // (p, index) -> 0 | kProviderMisplaced    moves p there
constexpr FourCC kPoEp = fc("PoEp");  // (RNList* in, RNList* out, mask, value) -> 0 |
                                      //   kLinkUnresolved    expands through groups
constexpr FourCC kPoFT = fc("PoFT");  // (p or 0, uType) -> first shown descendant of the uType
constexpr FourCC kPoGP = fc("PoGP");  // (p) -> the recorded parent, 0 for the root and top level
constexpr FourCC kPoMP = fc("PoMP");  // (p, mask, value) -> nearest matching ancestor, or -1
constexpr FourCC kPGtD = fc("PGtD");  // (p or 0) -> depth, -1 without a status record
constexpr FourCC kPGID = fc("PGID");  // (p, a or 0) -> steps up from p to a, or -1
constexpr FourCC kPTIn = fc("PTIn");  // (a, b) -> 1 when one is the other or below it
constexpr FourCC kPUBy = fc("PUBy");  // (a, b, depth limit or 0) -> provider or 0

// --- @PRO: links, required parents and moves ---------------------------------------------------
constexpr FourCC kPLnk = fc("PLnk");  // (parent, target or 0) -> the link | kProviderMisplaced
constexpr FourCC kPULk = fc("PULk");  // (parent, target) -> 0    forgets the first link to it
constexpr FourCC kPEnL = fc("PEnL");  // (p or 0, index) -> the index-th link to p, or 0
constexpr FourCC kPTMv = fc("PTMv");  // (p, new parent or 0) -> the controller's answer |
                                      //   kNoController | kMoveBelowSelf | kRequiredParentLeft
constexpr FourCC kPMov = fc("PMov");  // (new parent or 0, p) -> 0 | kMoveBelowSelf |
                                      //   kRequiredParentLeft | kNoStatusRecord

// --- @PRO: status, records and globals ---------------------------------------------------------
constexpr FourCC kPoCo = fc("PoCo");  // (p) -> the controller, or 0
constexpr FourCC kPoGR = fc("PoGR");  // (p or 0, key) -> immediate value under the key, or 0
constexpr FourCC kPoSR = fc("PoSR");  // (p or 0, key, value) -> TSVS's answer
constexpr FourCC kPoGG = fc("PoGG");  // (key) -> the global DL, or 0
constexpr FourCC kPoSG = fc("PoSG");  // (key, DL or 0) -> 0    sets or removes a global

// --- @PRO: the general object protocol, forwarded to the provider's controller -----------------
constexpr FourCC kPGMN = fc("PGMN");  // (p, TString*, three words) -> the controller's answer
constexpr FourCC kPFog = fc("PFog");  // (p, word) -> the controller's answer
constexpr FourCC kPRen = fc("PRen");  // (p, new name) -> the answer | codes    forwarder
constexpr FourCC kPAbl = fc("PAbl");  // (p, int32_t* out, word) -> the answer | codes  forwarder
constexpr FourCC kPGII = fc("PGII");  // (p) -> the answer | codes    forwarder
constexpr FourCC kPGHI = fc("PGHI");  // (p) -> the answer | codes    forwarder
constexpr FourCC kPMdy = fc("PMdy");  // (p, up to 10 words) -> PmFR (p, PMdy, the words)
constexpr FourCC kPGtI = fc("PGtI");  // (p, up to 10 words) -> PmFR (p, PGtI, the words)
constexpr FourCC kPoRs = fc("PoRs");  // (selector, p, up to 10 words) -> PmFR (p, selector, ...)
constexpr FourCC kPoMg = fc("PoMg");  // (selector, p or 0, up to 10 words) -> the answer |
                                      //   kLinkUnresolved | kNoController | kNoResponder
constexpr FourCC kPInR = fc("PInR");  // (p or 0) -> the controller's answer    resolved first
constexpr FourCC kPRvL = fc("PRvL");  // (int32_t* p or 0, limit) -> 0 | kLinkUnresolved
                                      //   resolves the link chain in place

// --- @PRO: the companions, forwarded unchanged -------------------------------------------------
constexpr FourCC kPcCT = fc("PcCT");  // to the container object: (type, string id, abilities)
constexpr FourCC kPcGT = fc("PcGT");  // to the container object: (p) -> the container type
constexpr FourCC kPcNC = fc("PcNC");  // to the container object: (type, TString* name)
constexpr FourCC kPcFC = fc("PcFC");  // to the container object: (type, TString* name)
constexpr FourCC kPLCT = fc("PLCT");  // to the link object: (type, string id)
constexpr FourCC kPLNL = fc("PLNL");  // to the link object: (type, TString* name); the manager's
                                      //   (type, name, target) then points the link (PmSL)

// --- Events: blocking broadcasts (TransBlock) whose channel is the manager --------------------
// Every event but PoXS carries the manager as its first word. parent' is 0 for the root.
constexpr FourCC kPoXA = fc("PoXA");  // (manager, parent', p)    p is now shown
constexpr FourCC kPoXD = fc("PoXD");  // (manager, parent', p)    p is no longer shown
constexpr FourCC kPoXM = fc("PoXM");  // (manager, parent', p)    p changed or moved among its
                                      //   siblings
constexpr FourCC kPoXP = fc("PoXP");  // (manager, grandparent', parent)    the parent's children
                                      //   changed (PmLS under the root: 0, the root's DL)
constexpr FourCC kPoXT = fc("PoXT");  // (manager, new parent', p, old parent')    p moved
constexpr FourCC kPoXU = fc("PoXU");  // (manager, p', 1 | 0)    update bracket opened / closed
constexpr FourCC kPoXS = fc("PoXS");  // (word, word)    a provider's content was replaced

// --- The status record ---------------------------------------------------------------------
// A DL of uType `ProS`, owned by the manager's module DL, hung off the provider's DL under
// `_psp`. Its 24-byte data area, little-endian:
//
//   offset  width  field       meaning
//   0       8      header      persist header: tag `Pro.`, versions 256, 256
//   8       4      abilities   ability bits (below); 0 until the provider is first shown
//   12      4      depth       -1 while not shown; 0 the root; 1 under the root; parent's + 1
//   16      8      reserved    0 when made; copied only as part of the whole record
constexpr FourCC kStatusType = fc("ProS");
constexpr FourCC kStatusTag = fc("Pro.");
constexpr int32_t kStatusVersion = 256;
constexpr int32_t kStatusBytes = 24;
constexpr int32_t kStatusAbilitiesOffset = 8;
constexpr int32_t kStatusDepthOffset = 12;

struct StatusRecord {
  uint8_t header[8];
  uint32_t abilities;
  int32_t depth;
  uint8_t reserved[8];
};
static_assert(sizeof(StatusRecord) == kStatusBytes);

// Keys. `_psp` is in the provider's own DL; the others in its status DL.
constexpr FourCC kPspKey = fc("_psp");  // handle: the status DL
constexpr FourCC kPpaKey = fc("_ppa");  // handle: the parent (the root for a top-level one)
constexpr FourCC kPkKey = fc("_pk#");   // list: the children in their order
constexpr FourCC kPlKey = fc("_pl#");   // list: the links whose target this provider is
constexpr FourCC kPlkKey = fc("_plk");  // part link: a link's target
constexpr FourCC kRpaKey = fc("_rpa");  // part link: the required parent
constexpr FourCC kPstKey = fc("_pst");  // immediate: sort mode of the last sort of _pk#; 0 none
// The provider globals: the root may hold a handle under `PGL#` to a DL of uType `pgl#` (no data
// area) that maps FourCC keys to DLs through handles. Removed at every attachment.
constexpr FourCC kGlobalsKey = fc("PGL#");
constexpr FourCC kGlobalsType = fc("pgl#");

// Ability bits.
enum : uint32_t {
  kAbFirst = 0x00000001,       // sorts before siblings without it
  kAbGroup = 0x00000002,       // PoEp descends into it when it does not match the filter
  kAbInvisible = 0x00000004,   // the DL's invisible flag, mirrored
  kAbRoot = 0x08000000,        // set on the root
  kAbLinkFolder = 0x10000000,  // its children are links; PLnk into it links to their targets
  kAbKeepOrder = 0x20000000,   // its children keep their own order, never sorted
  kAbLink = 0x80000000,        // a link; its other bits are the target's
};
constexpr uint32_t kRootAbilities = kAbRoot | kAbGroup;

// How many steps resolving a link chain takes at most (PRvL and every selector that resolves).
constexpr int32_t kResolveSteps = 10;

// Result codes of the provider tree. -833 (no controller answers the selector) is kNoResponder.
enum : int32_t {
  kProviderMisplaced = -830,   // not where it must be, or a link could not be made
  kNoStatusRecord = -831,      // no status record, or the parent chain is broken
  kNoController = -832,        // the provider has no controller
  kMoveBelowSelf = -834,       // a provider would be moved into itself or below itself
  kRequiredParentLeft = -835,  // a required parent would be left
  kLinkUnresolved = -838,      // a link chain did not end within kResolveSteps steps
  kContainerNotEmpty = -841,   // a container that still shows children cannot be forgotten
};

// --- @PTW: the tree watch ------------------------------------------------------------------
// A listener for the manager's events that keeps a mirror of the shown tree built from the
// events alone, as a tree view would, and notes every event a view could not apply (a PoXA
// under a parent that is not shown, a PoXD or PoXT of a provider that is not shown, a bracket
// closed that was never opened, ...). It also hears the store's XTSD (the tree is shown afresh
// after every attachment) and the manager's PmEd. docs/providers.md lists its rules.
//   New , then Setu (manager) -> 0    joins the manager's channel and its store's; the mirror
//                                     starts as the tree the manager shows now
//   Dspo                              leaves them
constexpr FourCC kPwRp = fc("PwRp");  // (TString* or 0) -> the number of reports since the last
                                      //   PwRp; their lines (one per report) go to the string
constexpr FourCC kPwAg = fc("PwAg");  // (TString* or 0) -> the number of places where the mirror
                                      //   and the manager's tree disagree; their lines
constexpr FourCC kPwDm = fc("PwDm");  // (TString*) -> the number of providers the mirror shows;
                                      //   the mirror, one provider a line, indented by depth

}  // namespace zove

// The provider manager `@PRO`: its instance data, the helpers its handlers share (status records,
// the store's items, controllers, link resolution, tree walks, events) and the handlers its build
// routine defines.
//
// Only this folder's files include this header; other classes send selectors
// (zove/providers.h).
#pragma once

#include <cstdint>
#include <vector>

#include "platform/fundra/dict.h"
#include "platform/fundra/rnlist.h"
#include "platform/fundra/space.h"
#include "platform/zelkor/zelkor.h"
#include "providers/seen.h"
#include "zove/dl.h"
#include "zove/providers.h"

namespace zove {

using zelkor::ClassRec;
using zelkor::Msg;
using zelkor::Object;

// Instance data of `@PRO`, the documented fields in their order, then this host's own.
//
// Invariants between calls:
//   P1. outputList is null, and count, spare, searchTarget, sortMode and the filter are scratch
//       of the enumeration, search or sort in progress (they mean nothing between calls);
//   P2. updateCounts holds an entry only for a provider with an open bracket, its value >= 1;
//   P3. busy is the number of the manager's handlers running now (a handler that sends to the
//       manager counts twice); disposePending is set only while busy > 0.
// A Dspo that arrives while a handler runs (a listener of an event, or a controller, disposes of
// the manager) only sets disposePending: the handler finishes with a live manager, so the store
// and the events stay in step, and the outermost handler disposes of it as it returns.
struct ProData {
  Word store;                   // the store (XTSD)
  int32_t root;                 // the module DL, the tree's root (XTSD); 0 until attached
  Word defaultController;       // `@PTY`, answers for DLs without an owner
  Word containerObject;         // `@PCL`'s SdNw answer (0 while that class does not exist)
  Word linkObject;              // `@PLK`'s SdNw answer (likewise)
  fundra::TDict* updateCounts;  // provider -> open PmUg brackets
  fundra::RNList* outputList;   // PoEL/PoDL's list during the call
  int32_t searchTarget;         // PoEF/PoDF's target
  int32_t sortMode;             // the sort in progress
  int32_t count;                // entries so far
  int32_t spare;                // free slots in the output list
  uint32_t filterMask;          // the enumeration's filter
  uint32_t filterValue;
  void* sortKeys;       // the children's sort names during a sort (enumerate.cc)
  int32_t busy;         // handlers running (P3)
  bool disposePending;  // Dspo arrived while busy
  bool disposing;       // Dspo is running
};

extern ClassRec* gProClass;

inline ProData* proData(Object* self) { return zelkor::instanceData<ProData>(self, gProClass); }

// The manager as its handlers see it: the object, its data, and the store's items it reads and
// writes. Every DL number that names no provider is answered for by the store (its assertion and
// code); these helpers then answer "absent", never touch memory of their own for it.
//
// Reading: the helpers below read the store's items through the element space the store hands
// out (HGtH) and the DL layout (zove/dl.h), by the same rules as TSHG, TSAG, TSVG, TSLE and TSRD,
// which cost a send and a second search each; a DL the space cannot open as a DL is asked of the
// store, which asserts and answers as for any bad number. Writing always goes through the store's
// selectors, which record what a save must take and count changes.
struct Pro {
  explicit Pro(Object* o) : self(o), d(proData(o)) {}
  Object* self;
  ProData* d;

  // The store's element space, asked for once per handler; null when the store has none.
  const fundra::ElementSpace* space() const { return spaceAsked_ ? space_ : askSpace(); }

  Word store() const { return d->store; }
  int32_t root() const { return d->root; }
  // p, or the root for 0.
  int32_t orRoot(int32_t p) const { return p == 0 ? d->root : p; }
  // A parent as selectors and events report it: 0 for the root.
  int32_t rep(int32_t p) const { return p == d->root ? 0 : p; }
  bool isRoot(int32_t p) const { return p == 0 || p == d->root; }

  template <class... A>
  Word toStore(FourCC sel, A... args) const {
    return zelkor::send(d->store, sel, args...);
  }
  template <class... A>
  Word toSelf(FourCC sel, A... args) const {
    return zelkor::send(self, sel, args...);
  }

 private:
  const fundra::ElementSpace* askSpace() const;
  mutable const fundra::ElementSpace* space_ = nullptr;
  mutable bool spaceAsked_ = false;
};

// --- Items of the store (status.cc) ------------------------------------------------------------
// The DL under a handle or part link, or 0 when there is none (or the DL cannot be read). A DL
// number of 0 or below stands for none: these answer 0 (or nothing) for it without asking.
int32_t getHandle(const Pro& m, int32_t dl, FourCC key);
int32_t getPart(const Pro& m, int32_t dl, FourCC key);
int32_t getValue(const Pro& m, int32_t dl, FourCC key);
// The store's invisible flag of the DL (TSTI).
bool invisibleFlag(const Pro& m, int32_t dl);
// Lists: the element at index (0 past the end or without a list), and the whole list.
int32_t listElem(const Pro& m, int32_t dl, FourCC key, int32_t index);
std::vector<int32_t> listAll(const Pro& m, int32_t dl, FourCC key);
// TSLD: every occurrence of the member leaves the list (nothing without a DL: a parent or target
// whose record went, cut with a provider it named, has no list to leave).
void listDelete(const Pro& m, int32_t dl, FourCC key, int32_t member);

// --- Status records (status.cc) ----------------------------------------------------------------
// p's status DL (p 0: the root's), or 0 when it has none.
int32_t statusOf(const Pro& m, int32_t p);
// The same, made when absent: a new `ProS` DL with the header and depth -1, hung under `_psp`.
// 0 when p is no DL (the store asserts), or its `_psp` is not a handle.
int32_t makeStatus(const Pro& m, int32_t p);
// Reads the record of a status DL: false (and a record of depth -1, abilities 0) when the DL has
// no 24-byte data area with the `Pro.` header.
bool readRecord(const Pro& m, int32_t status, StatusRecord* r);
void writeRecord(const Pro& m, int32_t status, const StatusRecord& r);
// readRecord, and the record's `_ppa` (0 when none) from the same look at the status DL.
bool readPlacement(const Pro& m, int32_t status, StatusRecord* r, int32_t* parent);
// A status DL as one look finds it: the record and the items the walks and shows read beside it.
// Reading these one by one opens the DL once per item; a look opens it once.
struct StatusLook {
  StatusRecord record;  // depth -1 and abilities 0 when the DL holds no record
  bool valid;           // the DL holds a record (readRecord's answer)
  int32_t parent;       // `_ppa`, 0 when none (getHandle)
  int32_t sortMark;     // `_pst`, 0 when none (getValue)
  bool hasLinks;        // `_pl#` has a first entry (listElem (..., 0) != 0)
};
// Fills the look from status (0 or below: no record and nothing else, as the helpers answer).
void lookStatus(const Pro& m, int32_t status, StatusLook* s);
// One look at a DL for a walk: the refnum under refKey when its type is refType (else 0), and the
// list under listKey where it lies (count 0 when there is none). False, with nothing read, when
// the element space cannot open the DL: the caller then reads through getHandle, getPart and
// listAll, which ask the store. The list stays valid until the store next writes.
bool walkLook(const Pro& m, int32_t dl, FourCC refKey, uint32_t refType, FourCC listKey,
              int32_t* ref, ListView* list);
// p's depth (-1 without a record), and whether p is shown (the root always is).
int32_t depthOf(const Pro& m, int32_t p);
bool isShown(const Pro& m, int32_t p);
// Writes p's depth and keeps the rest of its record; a record that already holds it is not
// rewritten (so that a save does not take it).
void setDepth(const Pro& m, int32_t p, int32_t depth);
// p's recorded parent (`_ppa`), or 0 when p is not placed.
int32_t parentOf(const Pro& m, int32_t p);
// Sets x's `_pst` (x 0: the root) to 0 where it is not 0 already; the same by the status DL.
void clearSortMark(const Pro& m, int32_t x);
void clearSortMarkOf(const Pro& m, int32_t status);

// --- Controllers, abilities, links (forward.cc) ------------------------------------------------
Word controllerOf(const Pro& m, int32_t p);
// The controller's PGAb for p, with bit 0x4 as the store's invisible flag (assertions 151, 153).
uint32_t computeAbilities(const Pro& m, int32_t p);
// Follows p's link chain: true and the provider reached, or false after kResolveSteps steps.
// A limit above 0 stops after that many links.
bool resolve(const Pro& m, int32_t p, int32_t limit, int32_t* out);

// --- Walks (walk.cc) ----------------------------------------------------------------------------
// Every provider below p in the order of the `_pk#` lists, each child before its own children,
// with the list's owner: (walk parent, provider). Each provider is visited once, so a list that
// names an ancestor again ends there. The lists are read as the walk reaches them. `seen` (when
// given) holds providers not to visit, and receives those visited (seen.h).
//
// An entry of a list whose provider is placed under another parent, or under none, is a leftover
// (PmUA keeps the descendants' lists; a provider whose parent's record was cut is placed anew):
// it is not in this parent's subtree, so the walks leave it out (kPlaced), except the
// attachment's, which marks everything it can reach as not shown (kEvery).
enum class Entries { kPlaced, kEvery };
struct Visit {
  int32_t parent;
  int32_t provider;
  int32_t status;  // the provider's status DL, 0 when it has none
};
std::vector<Visit> subtree(const Pro& m, int32_t p, Seen* seen = nullptr,
                           Entries entries = Entries::kPlaced);
// The same into *out (cleared first), so that a caller can keep its memory between walks.
void subtree(const Pro& m, int32_t p, Seen* seen, Entries entries, std::vector<Visit>* out);
// The links of p, depth first: each link, then the links to that link; each once, never p. An
// entry of a `_pl#` list whose record does not point at its owner (it was pointed elsewhere, or
// its record was cut) is a leftover and left out, as in the walks of subtrees.
std::vector<int32_t> linksOf(const Pro& m, int32_t p, Seen* seen = nullptr);
// The recorded parents above p, nearest first, up to and without the root; stops at a provider
// met before (so a parent chain that loops ends). `looped` says it did.
std::vector<int32_t> ancestors(const Pro& m, int32_t p, bool* looped = nullptr);
// PGID: steps from p up to a (a 0: to the top); -1 when p has no status DL or a is not met.
int32_t stepsUp(const Pro& m, int32_t p, int32_t a);

// --- Showing and events (show.cc, events.cc) ---------------------------------------------------
// Shows p under the parent P (0: none given) with abilities f (0: computed); true when p was
// shown by the call, false when it was shown already or could not be shown.
bool showProvider(const Pro& m, int32_t P, int32_t p, uint32_t f);
// Broadcasts an event on the manager (the manager first).
void event(const Pro& m, FourCC sel, Word a, Word b);
void event(const Pro& m, FourCC sel, Word a, Word b, Word c);
// Checks a required parent for a provider x of a subtree rooted at p moving under q.
int32_t checkRequiredParent(const Pro& m, int32_t x, int32_t p, int32_t q);

// The build routine: the one table from selector to handler.
void ProClassBuild(ClassRec* cls);

// --- Handlers, by the file that holds them ---------------------------------------------------
#define PRO_HANDLER(name) Word name(Object* self, const Msg& m)

// attach.cc: set-up, disposal, attachment. proDisposeNow is what Dspo does once no handler of
// the manager runs.
PRO_HANDLER(proSetup);
PRO_HANDLER(proDispose);
PRO_HANDLER(proDisposeNow);
PRO_HANDLER(proStoreSaved);
PRO_HANDLER(proAttach);
PRO_HANDLER(proAnnounce);

// show.cc: showing
PRO_HANDLER(proShow);
PRO_HANDLER(proShowRequired);
PRO_HANDLER(proShowList);
PRO_HANDLER(proTstShown);
PRO_HANDLER(proTstShowable);
PRO_HANDLER(proListShown);

// hide.cc: hiding and forgetting placement
PRO_HANDLER(proHide);
PRO_HANDLER(proUnplaceAll);

// events.cc: changes, brackets, abilities, the invisible flag, shared records
PRO_HANDLER(proModified);
PRO_HANDLER(proSaved);
PRO_HANDLER(proUpdate);
PRO_HANDLER(proSetRecord);
PRO_HANDLER(proSetAbilities);
PRO_HANDLER(proSetInvisible);

// status.cc: records and globals
PRO_HANDLER(proGetAbilities);
PRO_HANDLER(proGetRecordValue);
PRO_HANDLER(proSetRecordValue);
PRO_HANDLER(proGetGlobal);
PRO_HANDLER(proSetGlobal);

// forward.cc: controllers, resolution, the general object protocol, the companions
PRO_HANDLER(proGetController);
PRO_HANDLER(proResolveLink);
PRO_HANDLER(proGetName);
PRO_HANDLER(proGetSortName);
PRO_HANDLER(proGetMenuName);
PRO_HANDLER(proForget);
PRO_HANDLER(proRename);
PRO_HANDLER(proGetAble);
PRO_HANDLER(proGetIcon);
PRO_HANDLER(proGetHelp);
PRO_HANDLER(proModify);
PRO_HANDLER(proGetInfo);
PRO_HANDLER(proRequest);
PRO_HANDLER(proMessage);
PRO_HANDLER(proOpenInstance);
PRO_HANDLER(proCloseInstance);
PRO_HANDLER(proReleaseInstance);
PRO_HANDLER(proToContainers);
PRO_HANDLER(proToLinks);
PRO_HANDLER(proNewLink);

// enumerate.cc: enumeration, search, order
PRO_HANDLER(proEnumChildren);
PRO_HANDLER(proFindChild);
PRO_HANDLER(proEnumDescendants);
PRO_HANDLER(proFindDescendant);
PRO_HANDLER(proGetShownChild);
PRO_HANDLER(proGetChild);
PRO_HANDLER(proGetChildren);
PRO_HANDLER(proGetIndex);
PRO_HANDLER(proSetIndex);

// search.cc: expansion, ancestry, relations
PRO_HANDLER(proExpand);
PRO_HANDLER(proFindType);
PRO_HANDLER(proGetParent);
PRO_HANDLER(proFindAncestor);
PRO_HANDLER(proGetDepth);
PRO_HANDLER(proGetSteps);
PRO_HANDLER(proTstInside);
PRO_HANDLER(proTstReached);

// links.cc: links
PRO_HANDLER(proSetLink);
PRO_HANDLER(proEnumLinks);
PRO_HANDLER(proLink);
PRO_HANDLER(proUnlink);

// moves.cc: required parents and moves
PRO_HANDLER(proSetRequired);
PRO_HANDLER(proTstMove);
PRO_HANDLER(proMove);

#undef PRO_HANDLER

}  // namespace zove

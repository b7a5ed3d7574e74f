// What a collection learns about the store and keeps for the next one, so that the periodic
// collection inside a write can look at what changed since instead of walking everything.
//
// After a collection every live element was reached, as a DL by a marking walk or as an owned
// element (blob, list, weak list) of a DL. The state keeps, per number:
//   - a DL's parent: the DL whose edge the depth-first walk entered it by (0 for DL 1 and a kept
//     DL the walks start from), and its depth in that walk;
//   - whether it was reached by the walk from DL 1 or only by a walk from the keep list;
//   - an owned element's holder;
//   - how many DLs and owned elements a DL holds that way ("holds"): the DLs it is the parent of
//     and the elements it is the holder of. A DL written since can then be told to still hold
//     all of them: a write that took one out, even behind the store's back, shows as a shortfall.
// A collection that may take the short way (collect_since.cc) needs, beside that, to know that
// since the state was made nothing was taken out of the graph: no element freed or swapped
// (the element space counts those), and no edge, list entry or record item removed or
// rewritten, no list reordered, no DL rewritten whole. The store's writers that do any of that
// call zoveUnlinked; a DL the keep list held as a walk's start that is released is listed
// (zoveReleasedKept); records made and dropped by TSRW are listed too.
//
// Invariants while `valid`:
//   S1. every live number below parent.size() whose kind is not kGone was reached by the last
//       collection as what its kind says, at the depth and from the parent recorded;
//   S2. no owned element had two holders, and no list entry reached by a walk from the keep list
//       named a free number (a number made later would be reached through it; pruning, which
//       runs from DL 1 only, never removed it);
//   S3. unless crossKept, no edge leads from one kept DL's tree into another's.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "platform/fundra/huge_alloc.h"
#include "store/zove_class.h"

namespace zove {

struct CollectState {
  // info: depth in bits 0..8, kind in bits 9..10, and bits 11..15 for a collection's own use
  // while it runs (cleared before it ends).
  enum Kind : uint16_t { kGone = 0, kRootTree = 1, kKeptTree = 2, kOwned = 3 };
  static constexpr uint16_t kDepthMask = 0x1FF;
  static constexpr int kKindShift = 9;
  static constexpr uint16_t kKeepMask = 0x07FF;
  static constexpr uint16_t kManyHolds = 0xFFFF;  // too many to count: never told apart

  // On huge pages where big: made afresh by every full collection, they would otherwise cost a
  // page fault every 4 KiB.
  template <class T>
  using Table = std::vector<T, fundra::HugeAllocator<T>>;
  Table<int32_t> parent;
  Table<uint16_t> info;
  Table<uint16_t> holds;
  bool valid = false;
  bool unlinked = false;             // a write took something out of the graph since
  bool periodic = false;             // the collection running is the periodic one
  bool crossKept = false;            // S3
  bool weakLists = false;            // a walk met a weak list (pruning reaches through them)
  bool weakIntoKept = false;         // an owner word, weak handle or weak-list entry names a DL
                                     // that a walk from the keep list reached
  int32_t records = 0;               // the record file's records after the last collection
  std::vector<int32_t> madeRecords;  // chunks TSRW made since
  std::vector<int32_t> released;     // DLs that started a walk from the keep list, released since

  Kind kind(size_t n) const { return n < info.size() ? Kind(info[n] >> kKindShift & 3) : kGone; }
  int32_t depth(size_t n) const { return n < info.size() ? info[n] & kDepthMask : 0; }
  // A thin state (reset with whole = false) has parents only, for a collection that keeps
  // nothing for the next: set, hold and unhold then write the parent alone.
  void set(size_t n, int32_t from, int32_t depth, Kind k) {
    static_assert(kMaxDepth <= kDepthMask);
    parent[n] = from;
    if (info.empty()) return;
    // A queue's level may pass the mask; the walk's depth, which replaces it, never does.
    info[n] =
        uint16_t((info[n] & ~kKeepMask) | std::min<int32_t>(depth, kDepthMask) | k << kKindShift);
  }
  void hold(int32_t holder) {
    if (holder > 0 && !holds.empty() && holds[size_t(holder)] != kManyHolds)
      ++holds[size_t(holder)];
  }
  void unhold(int32_t holder) {
    if (holder > 0 && !holds.empty() && holds[size_t(holder)] != kManyHolds)
      --holds[size_t(holder)];
  }
  // Starts afresh for a collection that reaches every element: every number kGone.
  bool reset(size_t numbers, bool whole = true);
  // Forgets what happened since the last collection (which has just ended).
  void settled();
};

// Periodic collections take the short way unless a test that compares the two turns it off;
// zoveShortWays counts the collections that took it.
void zoveSetShortWay(bool on);
bool zoveShortWayOn();
int64_t zoveShortWays();
void zoveCountShortWay();

// The store's state, made at its first collection (null before, or without memory).
CollectState* zoveCollectState(ZoveData* d);

// A write took an edge, list entry or record item out of the graph, reordered a list or rewrote
// a DL whole: the next periodic collection walks everything.
void zoveUnlinked(Object* self);
// DL `dl` left the keep list.
void zoveReleasedKept(Object* self, int32_t dl);
// TSRW made the record `chunk`, or dropped it again after a failed write.
void zoveRecordMade(Object* self, int32_t chunk);
void zoveRecordDropped(Object* self, int32_t chunk);

// Prunes one DL as the collection's pruning does (collect.cc); answers whether it changed it.
bool zovePruneOne(fundra::ElementSpace* s, int32_t dl);

// The periodic collection's short way (collect_since.cc), for a collection at check level 0
// whose state is valid. It finds the elements made since the last collection that nothing
// reaches, and everything else the walks would report or change, from the numbers touched since.
class SinceCollection {
 public:
  // Run after LmValid found the space sound. Answers false, having changed nothing but the
  // state (which is then no longer valid), when the marking walks must run: whenever the walks
  // might report something, or the changes are of a kind the short way does not follow.
  bool plan(ZoveData* d, CollectState* st);
  // Frees what the plan found unreachable, as LmCollect frees (highest number first).
  void free(ZoveData* d);
  // Once the space was found sound again: prunes the DLs that name a freed element, removes the
  // records made since that no item names, and settles the state.
  void finish(ZoveData* d, CollectState* st);

 private:
  struct Frame {
    int32_t dl;
    int32_t item;   // the next item
    int32_t entry;  // the next entry of the list of the item before `item`, or -1
  };
  bool placeTree(ZoveData* d, CollectState* st, int32_t root);
  bool region(ZoveData* d, CollectState* st, int32_t start, CollectState::Kind kind);
  bool visit(ZoveData* d, CollectState* st, int32_t from, int32_t to, bool entry);
  bool reachedBefore(CollectState* st, int32_t from, int32_t to) const;
  bool own(CollectState* st, int32_t holder, int32_t e);
  void flag(CollectState* st, int32_t n, uint16_t bit);
  bool mayPrune(ZoveData* d, CollectState* st, int32_t dl) const;

  fundra::ElementSpace* space_ = nullptr;
  CollectState::Kind regionKind_ = CollectState::kGone;
  bool weakSeen_ = false;
  bool weakIntoKeptSeen_ = false;
  std::vector<Frame> stack_;
  std::vector<int32_t> touched_, flagged_, made_, unplaced_, scanned_, garbage_, struck_, weakRefs_;
  bool deadKeptEntry_ = false;
};

}  // namespace zove

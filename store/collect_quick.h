// The collector's quick mark: the marks of the depth-first marking walks, set in an order that
// memory keeps up with.
//
// A marking walk follows items in order, depth first, so on a large store each step down waits
// for the referent's slot and then for its bytes. Which elements end up marked does not depend
// on the order, only whether the walk fails does. The quick mark therefore
//   1. walks the DLs from a queue, marking each as it is queued and fetching slots and bytes well
//      ahead, and writes each DL's followed edges (handles, part links, live list entries, in item
//      order) into a compact table;
//   2. replays the depth-first walks from DL 1 and the keep list over that table, whose few bytes
//      per DL stay in cache, to learn whether one would go deeper than kMaxDepth.
// The replay is skipped when the queue's own tree is the walk's: with no keep list, if every edge
// that did not queue a DL leads back to an ancestor of the DL it leaves (as parent handles in a
// tree do), the walk from DL 1 enters each DL through the edge that queued it, so each DL's
// depth is its level in the queue.
// Whatever a walk would report (a bad item, a handle or owned element naming nothing, an element
// that cannot be a DL reached as one, an element both owned and followed, a walk too deep) and a
// shortage of memory make it give up. The caller then clears the marks and runs the walks, which
// report the first finding exactly as they always do. At a raised check level the walks run the
// DL check on every DL they reach; the quick mark applies the same tests to every DL it scans
// and gives up where the check would log anything, so the walks log it in their order.
//
// On the way it makes the collection state afresh (collect_state.h): each DL's parent and depth
// in the walks (the queue's tree where that is the walk's, else the replay's), which walk reached
// it, and each owned element's holder.
//
// On the way it lists every reference pruning could find dead (owner words, weak handles,
// weak-list entries) and notes list entries that already name nothing, so that after the
// collection the collector can tell whether pruning would change anything at all.
#pragma once

#include <cstdint>
#include <vector>

#include "store/collect_state.h"
#include "store/zove_class.h"

namespace zove {

// Collections use the quick mark unless a test that compares the two turns it off.
void zoveSetQuickMark(bool on);
bool zoveQuickMarkOn();

class QuickMark {
 public:
  // Marks from DL 1 and the keep list as the walks would, striking named records from the live
  // records, and makes `st` afresh (null: keeps nothing, and needs 4 bytes per number where a
  // state takes 8). Answers false when the walks must run instead (some marks may then be set,
  // and `st` is not valid).
  bool run(ZoveData* d, CollectState* st);

  // After the collection freed what was left unmarked: whether pruning may change a DL. False
  // only when every reference pruning checks names a DL the mark kept.
  bool pruneMayChange() const;

 private:
  // One bit per number, tested far more often than set: a few kilobytes stay in the nearest cache.
  struct Bits {
    CollectState::Table<uint64_t> words;
    void reset(size_t n) { words.assign((n + 63) / 64, 0); }
    bool has(size_t n) const { return words[n >> 6] >> (n & 63) & 1; }
    void set(size_t n) { words[n >> 6] |= uint64_t(1) << (n & 63); }
  };

  bool inRange(int32_t n) const { return n > 0 && n <= last_; }
  void edgeBack(int32_t from, int32_t n);
  bool queueDL(fundra::ElementSpace* s, int32_t n, int32_t from);
  bool queueEntry(fundra::ElementSpace* s, int32_t n, int32_t from);
  bool own(fundra::ElementSpace* s, int32_t n, int32_t holder);
  bool scan(ZoveData* d, int32_t dl);
  bool replay(int32_t root, CollectState::Kind kind);
  bool settle(ZoveData* d);
  enum class Pass { kGiveUp, kTree, kReplay };
  Pass pass(ZoveData* d);

  int32_t last_ = 0;                     // the highest number
  Bits dls_;                             // queued as DLs
  Bits owned_;                           // marked as owned elements
  Bits replayed_;                        // entered by the replay
  CollectState::Table<int32_t> queue_;   // DLs in the order they were queued
  CollectState::Table<uint32_t> first_;  // per number: where a DL's edge count is in edges_
  CollectState* st_ = nullptr;  // per number: the DL whose edge queued it (0 for a root), ...
  CollectState thin_;           // st_ when the collection keeps no state
  int32_t scanDepth_ = 0;       // the queue's level of the DL being scanned
  bool checking_ = false;       // the check level is raised
  bool secondHolder_ = false;   // an owned element has two holders
  bool crossKept_ = false;      // an edge leads from one kept DL's tree into another's
  bool tree_ = true;            // every edge so far is a tree edge or leads back up
  bool recording_ = false;      // edges_ and first_ are kept
  bool followed_ = false;       // the DL scanned last has an edge the walk follows
  CollectState::Table<int32_t> edges_;  // per DL: the edge count, then the edges in walk order
  std::vector<int32_t> weak_;           // references pruning checks
  bool deadEntry_ = false;              // a list entry names nothing
};

}  // namespace zove

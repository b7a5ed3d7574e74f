// The collection state the store keeps between collections, and the hooks its writers call.
#include "store/collect_state.h"

#include <new>

namespace zove {

namespace {
bool shortWayOn = true;
int64_t shortWays = 0;
}  // namespace

void zoveSetShortWay(bool on) { shortWayOn = on; }
bool zoveShortWayOn() { return shortWayOn; }
int64_t zoveShortWays() { return shortWays; }
void zoveCountShortWay() { ++shortWays; }

bool CollectState::reset(size_t numbers, bool whole) {
  try {
    parent.assign(numbers, 0);
    info.assign(whole ? numbers : 0, 0);
    holds.assign(whole ? numbers : 0, 0);
  } catch (const std::bad_alloc&) {
    valid = false;
    return false;
  }
  crossKept = false;
  weakLists = false;
  weakIntoKept = false;
  return true;
}

void CollectState::settled() {
  unlinked = false;
  madeRecords.clear();
  released.clear();
}

CollectState* zoveCollectState(ZoveData* d) {
  if (!d->collect) d->collect = new (std::nothrow) CollectState;
  return d->collect;
}

void zoveUnlinked(Object* self) {
  if (CollectState* st = zoveData(self)->collect) st->unlinked = true;
}

void zoveReleasedKept(Object* self, int32_t dl) {
  CollectState* st = zoveData(self)->collect;
  // Only a DL a walk started from has a tree of its own to place again.
  if (!st || !st->valid || st->kind(size_t(dl)) != CollectState::kKeptTree ||
      st->parent[size_t(dl)] != 0)
    return;
  try {
    st->released.push_back(dl);
  } catch (const std::bad_alloc&) {
    st->unlinked = true;
  }
}

void zoveRecordMade(Object* self, int32_t chunk) {
  CollectState* st = zoveData(self)->collect;
  if (!st) return;
  try {
    st->madeRecords.push_back(chunk);
  } catch (const std::bad_alloc&) {
    st->unlinked = true;
  }
}

void zoveRecordDropped(Object* self, int32_t chunk) {
  CollectState* st = zoveData(self)->collect;
  if (!st) return;
  for (size_t i = st->madeRecords.size(); i-- > 0;)
    if (st->madeRecords[i] == chunk) {
      st->madeRecords.erase(st->madeRecords.begin() + ptrdiff_t(i));
      return;
    }
}

}  // namespace zove

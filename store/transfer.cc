// Value-handle transfer (TSHX): every record named by a DL reachable from the root is read from
// another record file and written into this store's own, the item then naming the new chunk.
// Module DLs are skipped (they hold no records of their own). A record that cannot be read or
// written loses its item; the transfer goes on and answers the first error.
#include <algorithm>
#include <vector>

#include "platform/fundra/memory.h"
#include "store/engine.h"
#include "store/registry.h"

namespace zove {

using zelkor::DebugLogf;
using zelkor::fc;
using zelkor::i32;
using zelkor::send;

namespace {

// Moves the record under the key of the DL; answers the code that ends it, 0 when it
// moved (or was not a record). *removed tells whether the item is gone.
int32_t moveRecord(Object* self, Word source, int32_t dl, uint32_t key, bool* removed) {
  *removed = false;
  Item it;
  if (zoveFindItem(self, dl, key, &it) < 0) {
    DebugLogf(kLogFault, "zoveVHandXfer: DL %~d key '%Y' missing", dl, key);
    return kFaulted;
  }
  if (it.ref > 0 || typeOf(it.ref) != kVHandle) return 0;
  int32_t chunk = int32_t(it.kind);
  Word handle = 0;
  int32_t r = i32(send(source, kHRed, kRecordType, chunk, &handle, 0));
  if (r != 0) {
    DebugLogf(kLogFault, "zoveVHandXfer: can't read vhandle %~d, %E", chunk, r);
    zoveRemoveItem(self, dl, key);
    *removed = true;
    return r;
  }
  send(source, kHDet, handle);
  r = i32(send(self, kTSRW, dl, key, handle, 1));
  delete zelkor::asPtr<fundra::TMemory>(handle);
  if (r != 0) {
    DebugLogf(kLogFault, "zoveVHandXfer: can't write vhandle %~d key '%Y', %E", dl, key, r);
    zoveRemoveItem(self, dl, key);
    *removed = true;
  }
  return r;
}

}  // namespace

// TSHX (source record file): 0 or the first error.
Word zoveVHandXfer(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  Word source = m.w[0];
  if (!d->space || !d->channel) return kNoSpace;
  if (d->fault != 0) return kFaulted;
  d->space->LmUnmark();
  d->fault = zoveDoMark(self, kRootDL, 0, 1);
  if (d->fault != 0) return kFaulted;
  // The DLs are listed before any record moves: removing an item counts a change, and the
  // periodic collection it may run marks afresh.
  std::vector<int32_t> mods, dls;
  for (int32_t i = 0, dl; (dl = zoveListElem(self, kRootDL, kModsKey, i)) != 0; ++i)
    mods.push_back(dl);
  for (int32_t n = 2; n <= d->space->LmCount(); ++n)
    if (d->space->LmMarked(n) == 1 && std::find(mods.begin(), mods.end(), n) == mods.end())
      dls.push_back(n);
  int32_t first = 0;
  for (int32_t dl : dls) {
    for (int32_t i = 0;;) {
      uint32_t key = zelkor::u32(send(self, kTSEn, dl, i));
      if (key == 0) break;
      bool removed;
      int32_t r = moveRecord(self, source, dl, key, &removed);
      if (r != 0 && first == 0) first = r;
      if (!removed) ++i;
    }
  }
  return first;
}

}  // namespace zove

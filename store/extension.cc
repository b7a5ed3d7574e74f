// Extension tables: how a module hangs its own items on a DL it does not own. The DL holds a
// table (uType `TxL1`, no data) through a part link under `_tx1`; the table holds, under each
// caller's key, a part link to that caller's extension DL (uType `TEx1`, no data). Part links,
// not handles, so that a duplicate of the DL copies its extensions with it; tables written by
// older code with handles are rewritten as part links on the way through.
#include "store/engine.h"
#include "store/registry.h"

namespace zove {

using zelkor::fc;
using zelkor::i32;
using zelkor::u32;

namespace {

constexpr uint32_t kTableKey = fc("_tx1");
constexpr uint32_t kTableType = fc("TxL1");
constexpr uint32_t kExtensionType = fc("TEx1");

// The target of the part link under the key, rewriting a handle there as a part link first;
// 0 when the key holds neither.
int32_t partTarget(Object* self, int32_t dl, uint32_t key) {
  Item it;
  if (zoveFindItem(self, dl, key, &it) < 0 || it.ref <= 0) return 0;
  uint32_t type = typeOf(it.kind);
  if (type == kHandle) {
    zoveStoreItem(self, dl, key, it.ref, kPartLink);
    return it.ref;
  }
  return type == kPartLink ? it.ref : 0;
}

// Finds the part link under the key, or (when create) makes a new DL of the uType and links it
// there; 0 when there is none and none is to be made, or the new DL could not be made.
int32_t partOrNew(Object* self, int32_t dl, uint32_t key, uint32_t uType, bool create) {
  int32_t target = partTarget(self, dl, key);
  if (target > 0 || !create) return target;
  int32_t made = i32(zelkor::send(self, kTSDN, uType, 0, 0));
  if (made < 1) return 0;
  zoveStoreItem(self, dl, key, made, kPartLink);
  return made;
}

}  // namespace

// TSEX (DL, key, create): the caller's extension DL of the DL, or 0.
Word zoveGetExtension(Object* self, const Msg& m) {
  bool create = m.w[2] != 0;
  int32_t table = partOrNew(self, i32(m.w[0]), kTableKey, kTableType, create);
  if (table <= 0) return 0;
  return partOrNew(self, table, u32(m.w[1]), kExtensionType, create);
}

}  // namespace zove

// Lists: an owned element holding 32-bit DL numbers under one key (kind kList). Elements keep the
// order they were added or inserted in and may repeat. Members are taken off the keep list when
// they are added; the list owns its element, not the DLs it names.
#include <cstring>

#include "platform/fundra/memory.h"
#include "platform/fundra/tstring.h"
#include "store/collect_state.h"
#include "store/engine.h"

namespace zove {

using zelkor::fc;
using zelkor::i32;
using zelkor::u32;

namespace {

// The list under the key: 0 and its words, kNoItem, kWrongKind, or the space's code. A caller
// that rewrites the list in place opens it with BlobUse::kTouch.
int32_t openList(Object* self, int32_t dl, uint32_t key, int32_t** at, int32_t* count,
                 BlobUse use = BlobUse::kRead) {
  uint8_t* bytes;
  int32_t size;
  int32_t r = zoveReadBlob(self, dl, key, kList, &bytes, &size, use);
  if (r != 0) return r;
  *at = reinterpret_cast<int32_t*>(bytes);
  *count = size / 4;
  return 0;
}

// Releases every DL of a block of numbers from the keep list, then writes the block as the list.
Word writeWholeList(Object* self, const Msg& m, const void* block, int32_t bytes) {
  if (bytes < 0 || (bytes > 0 && !block)) {
    zoveAssert();
    return kWrongKind;
  }
  const auto* numbers = static_cast<const int32_t*>(block);
  for (int32_t i = 0; i < bytes / 4; ++i) zoveRelease(self, numbers[i]);
  return zoveWriteBlob(self, dlArg(m), keyArg(m), block, bytes, kList);
}

// TSSN's order: named members first, by name; unnamed ones by DL number.
int32_t compareByName(void* context, const void* a, const void* b) {
  auto* self = static_cast<Object*>(context);
  int32_t da, db;
  std::memcpy(&da, a, 4);
  std::memcpy(&db, b, 4);
  uint8_t *na = nullptr, *nb = nullptr;
  int32_t sa = 0, sb = 0;
  DLView v;
  ZoveData* d = zoveData(self);
  // Members that are not DLs simply have no name; sorting must not assert.
  if (dlOpen(d->space, da, &v) == 0 && zoveReadBlob(self, da, kNameKey, kBlob, &na, &sa) != 0)
    na = nullptr;
  if (dlOpen(d->space, db, &v) == 0 && zoveReadBlob(self, db, kNameKey, kBlob, &nb, &sb) != 0)
    nb = nullptr;
  if (!na && !nb) return da > db ? 1 : da == db ? 0 : -1;
  if (!na) return 1;
  if (!nb) return -1;
  fundra::TString ta, tb;
  ta.Import(na, sa, 0);
  tb.Import(nb, sb, 0);
  return fundra::TString::Compare(ta, tb, 1);
}

}  // namespace

int32_t zoveListElem(Object* self, int32_t dl, uint32_t key, int32_t index) {
  int32_t* at;
  int32_t count;
  if (openList(self, dl, key, &at, &count) != 0) return 0;
  return index < 0 || index >= count ? 0 : at[index];
}

int32_t zoveListInsert(Object* self, int32_t dl, uint32_t key, int32_t member, int32_t index) {
  ZoveData* d = zoveData(self);
  Item it;
  int32_t r = zoveFindItem(self, dl, key, &it);
  if (r == kNoItem) {
    if (Word w = zoveWriteBlob(self, dl, key, nullptr, 0, kList); i32(w) < 0) return i32(w);
    r = zoveFindItem(self, dl, key, &it);
  } else if (r >= 0) {
    zoveCheckIfRaised(self, dl);
  }
  if (r < 0) return r;
  int32_t size = it.ref >= 1 ? d->space->LmSize(it.ref) : kWrongKind;
  if (typeOf(it.kind) != kList || size < 0) {
    zoveAssert();
    return size < 0 ? size : kWrongKind;
  }
  int32_t count = size / 4;
  if (index < 0 || index > count) index = count;
  if (count >= fundra::kLmMaxSize / 4)
    return zoveNoRoom(self, "zoveListInsert", fundra::kLmBadSize, (int64_t(count) + 1) * 4);
  r = d->space->LmSetAssert(it.ref, (count + 1) * 4);
  if (r != 0) return zoveNoRoom(self, "zoveListInsert", r, (int64_t(count) + 1) * 4);
  auto* at = reinterpret_cast<int32_t*>(d->space->LmGet(it.ref));
  std::memmove(&at[index + 1], &at[index], size_t(count - index) * 4);
  at[index] = member;
  zoveRelease(self, member);
  return index;
}

Word zoveListDelete(Object* self, int32_t dl, uint32_t key, int32_t member) {
  ZoveData* d = zoveData(self);
  zoveCheckIfRaised(self, dl);
  int32_t* at;
  int32_t count;
  int32_t r = openList(self, dl, key, &at, &count, BlobUse::kTouch);
  if (r == kNoItem) return r;
  if (r != 0) {
    zoveAssert();
    return r;
  }
  zoveUnlinked(self);
  // The list's number is read before its members move: in a damaged store the list can be the
  // DL's own element, whose items the move rewrites.
  Item it;
  zoveFindItem(self, dl, key, &it);
  int32_t kept = count;
  for (int32_t i = count - 1; i >= 0; --i) {
    if (at[i] != member) continue;
    std::memmove(&at[i], &at[i + 1], size_t(kept - i - 1) * 4);
    --kept;
  }
  d->space->LmSetAssert(it.ref, kept * 4);
  return zoveGCCheck(self);
}

Word zoveNewList(Object* self, const Msg& m) {
  return zoveWriteBlob(self, dlArg(m), keyArg(m), nullptr, 0, kList);
}

Word zoveGetListCount(Object* self, const Msg& m) {
  int32_t* at;
  int32_t count;
  return openList(self, dlArg(m), keyArg(m), &at, &count) != 0 ? 0 : count;
}

Word zoveGetListElem(Object* self, const Msg& m) {
  return zoveListElem(self, dlArg(m), keyArg(m), i32(m.w[2]));
}

// TSLF (DL, key, member): the index of the first equal element.
Word zoveFindListElem(Object* self, const Msg& m) {
  int32_t* at;
  int32_t count;
  int32_t r = openList(self, dlArg(m), keyArg(m), &at, &count);
  if (r != 0) return r == kNoItem ? kNoItem : kWrongKind;
  int32_t member = i32(m.w[2]);
  for (int32_t i = 0; i < count; ++i)
    if (at[i] == member) return i;
  return kNoItem;
}

Word zoveAppend(Object* self, const Msg& m) {
  return zoveListInsert(self, dlArg(m), keyArg(m), i32(m.w[2]), -1);
}

Word zoveInsert(Object* self, const Msg& m) {
  return zoveListInsert(self, dlArg(m), keyArg(m), i32(m.w[2]), i32(m.w[3]));
}

Word zoveDelete(Object* self, const Msg& m) {
  return zoveListDelete(self, dlArg(m), keyArg(m), i32(m.w[2]));
}

Word zoveGetListBlock(Object* self, const Msg& m) { return zoveCopyToBlock(self, m, kList); }

Word zoveSetListBlock(Object* self, const Msg& m) {
  const void* block = zelkor::asPtr<const void>(m.w[2]);
  return writeWholeList(self, m, block, fundra::MemSize(block));
}

Word zoveGetListMem(Object* self, const Msg& m) { return zoveCopyToMemory(self, m, kList); }

Word zoveSetListMem(Object* self, const Msg& m) {
  const auto* mem = zelkor::asPtr<const fundra::TMemory>(m.w[2]);
  if (!mem) {
    zoveAssert();
    return kWrongKind;
  }
  return writeWholeList(self, m, mem->MemPtr(), mem->GetSize());
}

// TSLS (DL, key, context, compare): sorts in place with the space locked.
Word zoveSortList(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  zoveCheckIfRaised(self, dlArg(m));
  int32_t* at;
  int32_t count;
  int32_t r = openList(self, dlArg(m), keyArg(m), &at, &count, BlobUse::kTouch);
  if (r == kNoItem) return 0;
  auto compare = reinterpret_cast<fundra::SortCompare>(m.w[3]);
  if (r != 0 || !compare) {
    zoveAssert();
    return 0;
  }
  // A new order is a new order of the marking walk's steps.
  zoveUnlinked(self);
  d->space->LmLock();
  fundra::Sort(at, count, 4, zelkor::asPtr<void>(m.w[2]), compare);
  return d->space->LmUnlock();
}

Word zoveSortByName(Object* self, const Msg& m) {
  return zoveSortList(
      self, zelkor::makeMsg(kTSLS, m.w[0], m.w[1], self, reinterpret_cast<Word>(&compareByName)));
}

}  // namespace zove

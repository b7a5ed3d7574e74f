// Typed values kept in the item itself or in an owned blob: immediate values, handles, part
// links, and blobs in four shapes of buffer (raw bytes, MemAlloc blocks, TMemory).
//
// Readers that take an out argument clear it before anything else. A blob element is bare: its
// size is the value's size and it has no DL header.
#include <algorithm>
#include <cstring>

#include "platform/fundra/memory.h"
#include "store/collect_state.h"
#include "store/engine.h"

namespace zove {

using zelkor::i32;
using zelkor::u32;

int32_t zoveReadBlob(Object* self, int32_t dl, uint32_t key, uint32_t type, uint8_t** at,
                     int32_t* size, BlobUse use) {
  Item it;
  int32_t r = zoveFindItem(self, dl, key, &it);
  if (r < 0) return r;
  if (it.ref < 1 || typeOf(it.kind) != type) return kWrongKind;
  fundra::ElementSpace* s = zoveData(self)->space;
  *size = s->LmSize(it.ref);
  if (*size < 0) return *size;
  *at = s->LmGet(it.ref);
  if (use == BlobUse::kTouch) s->LmTouch(it.ref);
  return 0;
}

int32_t zoveSizeBlob(Object* self, int32_t dl, uint32_t key, int32_t n) {
  ZoveData* d = zoveData(self);
  Item it;
  int32_t r = zoveFindItem(self, dl, key, &it);
  if (r < 0 && r != kNoItem) return r;
  if (r >= 0 && it.ref >= 1 && typeOf(it.kind) == kBlob) {
    zoveCheckIfRaised(self, dl);
    int32_t s = d->space->LmSetAssert(it.ref, n);
    return s != 0 ? zoveNoRoom(self, "zoveSizeBlob", s, n) : it.ref;
  }
  int32_t e = d->space->LmAddAssert(n);
  if (e < 1) return zoveNoRoom(self, "zoveSizeBlob", e, n);
  Word w = zoveStoreItem(self, dl, key, e, kBlob);
  if (w < 0) {
    d->space->LmRemove(e);
    return i32(w);
  }
  return e;
}

Word zoveWriteBlob(Object* self, int32_t dl, uint32_t key, const void* src, int32_t n,
                   uint32_t type) {
  ZoveData* d = zoveData(self);
  if (n < 0) {
    zoveAssert();
    return fundra::kLmBadSize;
  }
  Item it;
  int32_t r = zoveFindItem(self, dl, key, &it);
  if (r < 0 && r != kNoItem) return r;
  int32_t e;
  // An owned element that is not live (only damage leaves one) is not written in place: growing
  // the space to its number could ask for the whole table; the item gets a new element instead.
  if (r >= 0 && it.ref >= 1 && typeOf(it.kind) == type && d->space->LmTest(it.ref) == 0) {
    zoveCheckIfRaised(self, dl);
    e = it.ref;
    if (type == kList) zoveUnlinked(self);  // the list's entries are replaced
    int32_t s = d->space->LmSetAssert(e, n);
    if (s != 0) return zoveNoRoom(self, "zoveWriteBlob", s, n);
    if (n > 0) {
      if (src)
        std::memmove(d->space->LmGet(e), src, size_t(n));
      else
        std::memset(d->space->LmGet(e), 0, size_t(n));
    }
  } else {
    e = d->space->LmAddAssert(n, src);
    if (e < 1) return zoveNoRoom(self, "zoveWriteBlob", e, n);
    Word w = zoveStoreItem(self, dl, key, e, type);
    if (w < 0) {
      d->space->LmRemove(e);
      return w;
    }
  }
  return zoveGCCheck(self);
}

namespace {

// Finds the item and checks it for a reader: 0 and the item, kNoItem or kWrongKind.
template <class Test>
int32_t readItem(Object* self, const Msg& m, Item* it, Test ok) {
  int32_t r = zoveFindItem(self, dlArg(m), keyArg(m), it);
  if (r < 0) return r == kNoItem ? kNoItem : kWrongKind;
  return ok(*it) ? 0 : kWrongKind;
}

}  // namespace

// TSVG (DL, key, int32_t* value).
Word zoveGetValue(Object* self, const Msg& m) {
  auto* out = zelkor::asPtr<int32_t>(m.w[2]);
  if (out) *out = 0;
  Item it;
  int32_t r = readItem(self, m, &it, [](const Item& i) { return typeOf(i.ref) == kImmediate; });
  if (r == 0 && out) *out = int32_t(it.kind);
  return r;
}

Word zoveSetValue(Object* self, const Msg& m) {
  return zoveStoreItem(self, dlArg(m), keyArg(m), int32_t(kImmediate), u32(m.w[2]));
}

// TSHG (DL, key, int32_t* DL): a handle's kind word is 0x200 to 0x2FF.
Word zoveGetHandle(Object* self, const Msg& m) {
  auto* out = zelkor::asPtr<int32_t>(m.w[2]);
  if (out) *out = 0;
  Item it;
  int32_t r =
      readItem(self, m, &it, [](const Item& i) { return i.ref >= 1 && typeOf(i.kind) == kHandle; });
  if (r == 0 && out) *out = it.ref;
  return r;
}

Word zoveSetHandle(Object* self, const Msg& m) {
  return zoveStoreItem(self, dlArg(m), keyArg(m), i32(m.w[2]), kHandle);
}

Word zoveGetPart(Object* self, const Msg& m) {
  auto* out = zelkor::asPtr<int32_t>(m.w[2]);
  if (out) *out = 0;
  Item it;
  int32_t r = readItem(self, m, &it,
                       [](const Item& i) { return i.ref >= 1 && typeOf(i.kind) == kPartLink; });
  if (r == 0 && out) *out = it.ref;
  return r;
}

Word zoveSetPart(Object* self, const Msg& m) {
  return zoveStoreItem(self, dlArg(m), keyArg(m), i32(m.w[2]), kPartLink);
}

Word zoveGetBlobSize(Object* self, const Msg& m) {
  uint8_t* at;
  int32_t size;
  int32_t r = zoveReadBlob(self, dlArg(m), keyArg(m), kBlob, &at, &size);
  return r != 0 ? r : size;
}

Word zoveGetBlobPtr(Object* self, const Msg& m) {
  uint8_t* at;
  int32_t size;
  // The caller may write through the address.
  int32_t r = zoveReadBlob(self, dlArg(m), keyArg(m), kBlob, &at, &size, BlobUse::kTouch);
  return r != 0 ? 0 : zelkor::toWord(at);
}

// TSBR (DL, key, buffer, capacity): the first min(size, capacity) bytes.
Word zoveGetBlob(Object* self, const Msg& m) {
  uint8_t* at;
  int32_t size;
  int32_t r = zoveReadBlob(self, dlArg(m), keyArg(m), kBlob, &at, &size);
  if (r != 0) return r;
  auto* buffer = zelkor::asPtr<uint8_t>(m.w[2]);
  int32_t n = std::min(size, std::max(i32(m.w[3]), 0));
  if (n > 0 && !buffer) {
    zoveAssert();
    return kWrongKind;
  }
  if (n > 0) std::memcpy(buffer, at, size_t(n));
  return 0;
}

Word zoveSetBlob(Object* self, const Msg& m) {
  int32_t n = i32(m.w[3]);
  const void* src = zelkor::asPtr<const void>(m.w[2]);
  if (n > 0 && !src) {
    zoveAssert();
    return kWrongKind;
  }
  return zoveWriteBlob(self, dlArg(m), keyArg(m), src, n, kBlob);
}

// Copies a blob or list element into a new MemAlloc block handed to *out.
Word zoveCopyToBlock(Object* self, const Msg& m, uint32_t type) {
  auto** out = zelkor::asPtr<void*>(m.w[2]);
  if (out) *out = nullptr;
  uint8_t* at;
  int32_t size;
  int32_t r = zoveReadBlob(self, dlArg(m), keyArg(m), type, &at, &size);
  if (r != 0) return r;
  void* block = fundra::MemAlloc(size);
  if (!block || !out) {
    zoveAssert();
    fundra::MemFree(block);
    return kNoMemory;
  }
  if (size > 0) std::memcpy(block, at, size_t(size));
  *out = block;
  return 0;
}

// Copies a blob or list element into a TMemory, sized to it.
Word zoveCopyToMemory(Object* self, const Msg& m, uint32_t type) {
  auto* mem = zelkor::asPtr<fundra::TMemory>(m.w[2]);
  if (!mem) {
    zoveAssert();
    return kWrongKind;
  }
  uint8_t* at;
  int32_t size;
  int32_t r = zoveReadBlob(self, dlArg(m), keyArg(m), type, &at, &size);
  if (r != 0) return r;
  r = mem->SetSize(size, -1);
  if (r != 0) return zoveNoRoom(self, "zoveCopyToMemory", r, size);
  if (size > 0) std::memcpy(mem->MemPtr(), at, size_t(size));
  return 0;
}

Word zoveGetBlobBlock(Object* self, const Msg& m) { return zoveCopyToBlock(self, m, kBlob); }

Word zoveSetBlobBlock(Object* self, const Msg& m) {
  const void* block = zelkor::asPtr<const void>(m.w[2]);
  return zoveWriteBlob(self, dlArg(m), keyArg(m), block, fundra::MemSize(block), kBlob);
}

Word zoveGetBlobMem(Object* self, const Msg& m) { return zoveCopyToMemory(self, m, kBlob); }

Word zoveSetBlobMem(Object* self, const Msg& m) {
  const auto* mem = zelkor::asPtr<const fundra::TMemory>(m.w[2]);
  if (!mem) {
    zoveAssert();
    return kWrongKind;
  }
  return zoveWriteBlob(self, dlArg(m), keyArg(m), mem->MemPtr(), mem->GetSize(), kBlob);
}

}  // namespace zove

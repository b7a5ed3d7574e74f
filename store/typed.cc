// Values kept in a blob in a foundation type's export form: strings, dates, intervals, date
// steps, and objects that serialise themselves (StSz, Expt, Impt).
//
// The store keeps the bytes as the types write them and never swaps bytes. Imports are bounded
// by the blob's size, so a damaged blob is refused by the type instead of read past its end.
#include <cstring>

#include "platform/fundra/memory.h"
#include "platform/fundra/tdate.h"
#include "platform/fundra/tstring.h"
#include "store/engine.h"

namespace zove {

using zelkor::fc;
using zelkor::i32;
using zelkor::u32;

namespace {

// TDtG, TInG, TDsG: the value is reset first and again on any failure.
template <class T>
Word readValue(Object* self, const Msg& m) {
  T* value = zelkor::asPtr<T>(m.w[2]);
  if (!value) {
    zoveAssert();
    return kWrongKind;
  }
  value->Reset();
  uint8_t* at;
  int32_t size;
  int32_t r = zoveReadBlob(self, dlArg(m), keyArg(m), kBlob, &at, &size);
  if (r == 0) r = value->Import(at, size, 0);
  if (r < 0) {
    value->Reset();
    return r;
  }
  return 0;
}

// TDtS, TInS, TDsS: a blob of the value's store size, written in its export form. No change is
// counted: the blob's element is reused when there is one.
template <class T>
Word writeValue(Object* self, const Msg& m) {
  const T* value = zelkor::asPtr<const T>(m.w[2]);
  if (!value) {
    zoveAssert();
    return kWrongKind;
  }
  int32_t size = value->StoreSize();
  int32_t e = zoveSizeBlob(self, dlArg(m), keyArg(m), size);
  if (e < 1) return e;
  if (value->Export(zoveData(self)->space->LmGet(e), size, 0) < 1) zoveAssert();
  return 0;
}

}  // namespace

// TSSg (DL, key, TString* or null): reads the current form, or else the older one.
Word zoveGetString(Object* self, const Msg& m) {
  auto* text = zelkor::asPtr<fundra::TString>(m.w[2]);
  if (text) text->Clear();
  uint8_t* at;
  int32_t size;
  int32_t r = zoveReadBlob(self, dlArg(m), keyArg(m), kBlob, &at, &size);
  if (r != 0) return r == kNoItem ? kNoItem : kWrongKind;
  if (text && text->Import(at, size, 0) < 0) text->OldImport(at, 0, size);
  return 0;
}

// TSSs (DL, key, TString* or null): null writes an empty blob. The answer means nothing to
// callers when the string is stored; when it is not, it is the code of why (a DL that names
// nothing, or the limit the space met).
Word zoveSetString(Object* self, const Msg& m) {
  const auto* text = zelkor::asPtr<const fundra::TString>(m.w[2]);
  ZoveData* d = zoveData(self);
  int32_t dl = dlArg(m);
  uint32_t key = keyArg(m);
  int32_t size = text ? text->StoreSize() : 0;
  Item it;
  int32_t r = zoveFindItem(self, dl, key, &it);
  if (r < 0 && r != kNoItem) return r;
  int32_t e;
  if (r >= 0 && it.ref >= 1 && typeOf(it.kind) == kBlob) {
    zoveCheckIfRaised(self, dl);
    zoveGCCheck(self);
    e = it.ref;
    if (int32_t s = d->space->LmSetAssert(e, size); s != 0)
      return zoveNoRoom(self, "zoveSetString", s, size);
  } else {
    zoveGCCheck(self);
    e = d->space->LmAddAssert(size);
    if (e < 1) return zoveNoRoom(self, "zoveSetString", e, size);
    if (Word w = zoveStoreItem(self, dl, key, e, kBlob); zelkor::i32(w) < 0) {
      d->space->LmRemove(e);
      return w;
    }
  }
  if (text && text->Export(d->space->LmGet(e), size, 0) < 1) zoveAssert();
  return 0;
}

Word zoveGetDate(Object* self, const Msg& m) { return readValue<fundra::TDate>(self, m); }
Word zoveSetDate(Object* self, const Msg& m) { return writeValue<fundra::TDate>(self, m); }
Word zoveGetInterval(Object* self, const Msg& m) { return readValue<fundra::TInterval>(self, m); }
Word zoveSetInterval(Object* self, const Msg& m) { return writeValue<fundra::TInterval>(self, m); }
Word zoveGetDateStep(Object* self, const Msg& m) { return readValue<fundra::TDateStep>(self, m); }
Word zoveSetDateStep(Object* self, const Msg& m) { return writeValue<fundra::TDateStep>(self, m); }

// TMoG (DL, key, object): the blob goes to the object's Impt (address, size).
Word zoveGetObject(Object* self, const Msg& m) {
  fundra::TMemory mem;
  Word r = zoveCopyToMemory(self, zelkor::makeMsg(kTMoG, m.w[0], m.w[1], &mem), kBlob);
  if (r != 0) return r;
  r = zelkor::send(m.w[2], kImpt, mem.MemPtr(), mem.GetSize());
  return i32(r) < 0 ? r : 0;
}

// TMoS (DL, key, object): the object's Expt output, of the size it answers to StSz. An object
// that has nothing to store removes the item.
Word zoveSetObject(Object* self, const Msg& m) {
  int32_t n = i32(zelkor::send(m.w[2], kStSz));
  if (n <= 0) {
    zoveRemoveItem(self, dlArg(m), keyArg(m));
    return n == 0 ? -1 : n;
  }
  fundra::TMemory mem;
  int32_t r = mem.SetSize(n, -1);
  if (r != 0) return zoveNoRoom(self, "zoveSetObject", r, n);
  r = i32(zelkor::send(m.w[2], kExpt, mem.MemPtr(), n));
  if (r < 0) return r;
  Word w = zoveWriteBlob(self, dlArg(m), keyArg(m), mem.MemPtr(), n, kBlob);
  return w < 0 ? w : 0;
}

}  // namespace zove

// Records: larger values kept in the record file as vhandles of type `TVhd`. The item holds only
// the chunk (ref word kVHandle, kind word the chunk). The store never reads a record's bytes; it
// hands the file a value handle (a TMemory) to write from or to fill.
//
// Messages to the record file (the answer of HGtF at install):
//   HUId (TVhd, 1000) -> fresh chunk        HCrt (handle, TVhd, chunk) -> 0 | code
//   HCmp (handle) -> 0 when written compact HWrt (handle) -> 0 | code
//   HRed (TVhd, chunk, Word* handle, mode)  HDet (handle): detaches the handle
//   HSiz (TVhd, chunk) -> size | code       HRmv (TVhd, chunk)
//   HCId (TVhd) -> chunks                   HEId (TVhd, i) -> chunk i, from 1
#include "store/collect_state.h"
#include "store/engine.h"

namespace zove {

using zelkor::fc;
using zelkor::i32;
using zelkor::send;
using zelkor::u32;

namespace {

// The record item under the key: 0 and its chunk, kNoItem or kWrongKind.
int32_t findRecord(Object* self, const Msg& m, int32_t* chunk) {
  Item it;
  int32_t r = zoveFindItem(self, i32(m.w[0]), u32(m.w[1]), &it);
  if (r < 0) return r == kNoItem ? kNoItem : kWrongKind;
  if (typeOf(it.ref) != kVHandle || it.ref > 0) return kWrongKind;
  *chunk = int32_t(it.kind);
  return 0;
}

}  // namespace

// TSRW (DL, key, handle, compact): a failed write leaves the old item and drops the new chunk.
Word zoveWriteRecord(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  int32_t dl = i32(m.w[0]);
  Word handle = m.w[2];
  zoveCheckIfRaised(self, dl);
  if (!d->file) return kNoRecordFile;
  int32_t id = i32(send(d->file, kHUId, kRecordType, 1000));
  int32_t r = i32(send(d->file, kHCrt, handle, kRecordType, id));
  if (r != 0) return r;
  zoveRecordMade(self, id);
  r = m.w[3] ? i32(send(d->file, kHCmp, handle)) : 1;
  if (r != 0) r = i32(send(d->file, kHWrt, handle));
  if (r == 0) {
    Word w = zoveStoreItem(self, dl, u32(m.w[1]), int32_t(kVHandle), uint32_t(id));
    if (w < 0 && w != int32_t(kVHandle)) r = i32(w);
  }
  send(d->file, kHDet, handle);
  if (r != 0) {
    send(d->file, kHRmv, kRecordType, id);
    zoveRecordDropped(self, id);
  }
  return r;
}

// TSRR (DL, key, Word* handle, mode): on success the caller owns the handle read.
Word zoveReadRecord(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  auto* out = zelkor::asPtr<Word>(m.w[2]);
  if (out) *out = 0;
  if (!d->file) return kNoRecordFile;
  int32_t chunk;
  int32_t r = findRecord(self, m, &chunk);
  if (r != 0) return r;
  r = i32(send(d->file, kHRed, kRecordType, chunk, out, m.w[3]));
  if (r != 0) return r;
  send(d->file, kHDet, out ? *out : 0);
  return 0;
}

Word zoveGetRecordSize(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  if (!d->file) return kNoRecordFile;
  int32_t chunk;
  int32_t r = findRecord(self, m, &chunk);
  if (r != 0) return r;
  return i32(send(d->file, kHSiz, kRecordType, chunk));
}

}  // namespace zove

// DLs as a whole: creation, header words, data area, flags, the keep list, the owner and its
// controller, swapping and the element-space lock.
#include <cstring>
#include <string>

#include "platform/fundra/debug.h"
#include "store/collect_state.h"
#include "store/engine.h"

namespace zove {

using zelkor::fc;
using zelkor::i32;

void zoveAssert(int line) { fundra::Debug("zove", line); }

int32_t zoveNoRoom(Object* self, const char* routine, int32_t code, int64_t bytes) {
  using zelkor::DebugLogf;
  fundra::ElementSpace* s = zoveData(self)->space;
  std::string wanted = std::to_string(bytes);
  if (code == fundra::kLmNoNumber) {
    DebugLogf(
        kLogFault,
        "%s: no element of %s bytes: every number the element space may give (%~d) is taken, %E",
        routine, wanted.c_str(), s ? s->LmMaxNumber() : 0, code);
  } else if (code == fundra::kLmNoMemory) {
    if (s && s->LmMaxHeap() > 0 && s->LmHeapBytes() + bytes > s->LmMaxHeap())
      DebugLogf(
          kLogFault,
          "%s: no room for %s bytes: the element space holds %s of its ceiling of %s bytes, %E",
          routine, wanted.c_str(), std::to_string(s->LmHeapBytes()).c_str(),
          std::to_string(s->LmMaxHeap()).c_str(), code);
    else
      DebugLogf(kLogFault, "%s: no room for %s bytes: the system's memory ran out, %E", routine,
                wanted.c_str(), code);
  } else if (code == fundra::kLmBadSize) {
    DebugLogf(kLogFault, "%s: %s bytes is more than an element may hold (%~d), %E", routine,
              wanted.c_str(), fundra::kLmMaxSize, code);
  }
  return code;
}

int32_t zoveOpenDL(Object* self, int32_t dl, DLView* v, int line) {
  ZoveData* d = zoveData(self);
  int32_t r = d->space ? dlOpen(d->space, dl, v) : kNoSpace;
  if (r != 0) zoveAssert(line);
  return r;
}

int32_t zoveEditDL(Object* self, int32_t dl, DLView* v, int line) {
  int32_t r = zoveOpenDL(self, dl, v, line);
  if (r == 0) zoveData(self)->space->LmTouch(dl);
  return r;
}

int32_t zoveKeep(Object* self, int32_t dl) {
  DLView v;
  int32_t r = zoveEditDL(self, dl, &v);
  if (r != 0) return r;
  fundra::RNList& keep = zoveData(self)->keep;
  // The flag is saved with the DL, the keep list is not: a DL kept in an earlier session has the
  // flag and is on no list. A DL without the flag is on none (the list follows the flags).
  if (!(v.head->flags & kKeptFlag) || keep.Find(dl) < 0) {
    v.head->flags |= kKeptFlag;
    keep.Add(dl);
  }
  return 0;
}

int32_t zoveRelease(Object* self, int32_t dl) {
  DLView v;
  int32_t r = zoveEditDL(self, dl, &v);
  if (r != 0) return r;
  if (v.head->flags & kKeptFlag) {
    zoveData(self)->keep.Del(dl);
    v.head->flags &= uint16_t(~kKeptFlag);
    zoveReleasedKept(self, dl);
  }
  return zoveCheckIfRaised(self, dl);
}

namespace {

// Opens the DL named by the first word, or answers `fallback` from the handler.
#define OPEN_OR(fallback) \
  DLView v;               \
  if (zoveOpenDL(self, dlArg(m), &v) != 0) return fallback
// The same for a handler that writes into the DL or hands out its address.
#define EDIT_OR(fallback) \
  DLView v;               \
  if (zoveEditDL(self, dlArg(m), &v) != 0) return fallback

// TSRD and TSWD accept a length whose rounding up to 4 is the data size.
bool lengthMatches(const DLView& v, int32_t length) {
  return length >= 0 && int64_t(length + 3) / 4 * 4 == v.head->dataSize;
}

}  // namespace

// TSDN (uType, data size, owner): a new kept DL, zero-filled.
Word zoveNewDL(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  int32_t size = i32(m.w[1]);
  if (!d->space) return kNoSpace;
  // A uType the DL check rejects is a caller's slip: asserted, and made as asked (the check of
  // the next save finds it and faults the store).
  if (!isPrintableCode(uint32_t(m.w[0]))) zoveAssert();
  zoveGCCheck(self);
  int64_t rounded = (int64_t(size < 0 ? 0 : size) + 3) / 4 * 4;
  if (size < 0 || rounded + kHeadBytes > fundra::kLmMaxSize) {
    zoveAssert();
    return size < 0 ? fundra::kLmBadSize
                    : zoveNoRoom(self, "zoveNewDL", fundra::kLmBadSize, rounded + kHeadBytes);
  }
  int32_t n = d->space->LmAddAssert(int32_t(kHeadBytes + rounded));
  if (n < 1) return zoveNoRoom(self, "zoveNewDL", n, kHeadBytes + rounded);
  zoveKeep(self, n);
  auto* head = reinterpret_cast<DLHead*>(d->space->LmGet(n));
  head->uType = uint32_t(m.w[0]);
  head->owner = i32(m.w[2]);
  head->dataSize = int32_t(rounded);
  return n;
}

Word zoveGetType(Object* self, const Msg& m) {
  OPEN_OR(0);
  return zelkor::toWord(v.head->uType);
}

Word zoveDoKeep(Object* self, const Msg& m) { return zoveKeep(self, dlArg(m)); }
Word zoveDoRelease(Object* self, const Msg& m) { return zoveRelease(self, dlArg(m)); }

Word zoveGetDataSize(Object* self, const Msg& m) {
  OPEN_OR(0);
  return v.head->dataSize;
}

Word zoveGetDataPtr(Object* self, const Msg& m) {
  EDIT_OR(0);
  return zelkor::toWord(v.data);
}

// TSRD (DL, buffer, length): copies `length` bytes of the data area out.
Word zoveGetData(Object* self, const Msg& m) {
  OPEN_OR(0);
  auto* buffer = zelkor::asPtr<uint8_t>(m.w[1]);
  int32_t length = i32(m.w[2]);
  if (!lengthMatches(v, length) || (!buffer && length > 0)) {
    zoveAssert();
    return 0;
  }
  if (length > 0) std::memcpy(buffer, v.data, size_t(length));
  return 0;
}

// TSWD (DL, buffer, length): copies `length` bytes into the data area.
Word zoveSetData(Object* self, const Msg& m) {
  int32_t dl = dlArg(m);
  zoveCheckIfRaised(self, dl);
  EDIT_OR(0);
  const auto* buffer = zelkor::asPtr<const uint8_t>(m.w[1]);
  int32_t length = i32(m.w[2]);
  if (!lengthMatches(v, length) || (!buffer && length > 0)) {
    zoveAssert();
    return 0;
  }
  if (length > 0) std::memmove(v.data, buffer, size_t(length));
  return 0;
}

Word zoveSetShared(Object* self, const Msg& m) {
  zoveCheckIfRaised(self, dlArg(m));
  EDIT_OR(0);
  v.head->flags |= kSharedFlag;
  return 0;
}

Word zoveTstShared(Object* self, const Msg& m) {
  OPEN_OR(0);
  return (v.head->flags & kSharedFlag) ? 1 : 0;
}

Word zoveSetInvisible(Object* self, const Msg& m) {
  zoveCheckIfRaised(self, dlArg(m));
  EDIT_OR(0);
  if (m.w[1])
    v.head->flags |= kInvisibleFlag;
  else
    v.head->flags &= uint16_t(~kInvisibleFlag);
  return 0;
}

Word zoveTstInvisible(Object* self, const Msg& m) {
  OPEN_OR(0);
  return (v.head->flags & kInvisibleFlag) ? 1 : 0;
}

// TSTB (DL): -809 when a listener has the DL open.
Word zoveTstBusy(Object* self, const Msg& m) {
  int32_t open = 0;
  zelkor::TransBlock(zoveData(self)->channel, kXTTB, self, dlArg(m), &open);
  return open != 0 ? kRefused : 0;
}

// TSCS (DL): the uType of the DL's owner, 0 when it has none.
Word zoveGetCtlSig(Object* self, const Msg& m) {
  OPEN_OR(0);
  if (v.head->owner == 0) return 0;
  DLView owner;
  if (zoveOpenDL(self, v.head->owner, &owner) != 0) return 0;
  return zelkor::toWord(owner.head->uType);
}

Word zoveGetCtl(Object* self, const Msg& m) {
  Word sig = zoveGetCtlSig(self, m);
  return sig == 0 ? 0 : zoveData(self)->controllers.Lookup(sig);
}

// TSND (selector, DL, up to 10 words): forwards to the DL's controller, if any.
Word zoveSendCtl(Object* self, const Msg& m) {
  Word ctl = zoveGetCtl(self, zelkor::makeMsg(kTSCM, m.w[1]));
  if (!ctl) return 0;
  Msg fwd = zelkor::makeMsg(zelkor::u32(m.w[0]));
  for (int i = 1; i < zelkor::kMaxWords; ++i) fwd.w[i - 1] = m.w[i];
  return zelkor::dispatch(zelkor::asObject(ctl), fwd);
}

// TSSw (a, b): the two DLs exchange contents; the keep list follows the contents. A swap that
// fails (a number that names nothing) asserts after the keep list was exchanged, as asked.
Word zoveSwap(Object* self, const Msg& m) {
  ZoveData* d = zoveData(self);
  int32_t a = i32(m.w[0]), b = i32(m.w[1]);
  zelkor::TransBlock(d->channel, kXTSW, a, b);
  zoveUnlinked(self);
  for (int32_t i = 0; i < d->keep.Count(); ++i) {
    int32_t e = d->keep.Get(i);
    if (e == a) d->keep.Set(i, b);
    if (e == b) d->keep.Set(i, a);
  }
  if (!d->space || d->space->LmSwap(a, b) != 0) zoveAssert();
  return 0;
}

Word zoveLock(Object* self, const Msg&) {
  ZoveData* d = zoveData(self);
  return d->space ? d->space->LmLock() : kNoSpace;
}

Word zoveUnlock(Object* self, const Msg&) {
  ZoveData* d = zoveData(self);
  return d->space ? d->space->LmUnlock() : kNoSpace;
}

}  // namespace zove

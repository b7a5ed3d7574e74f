// The integrity check: the DL check run on single DLs by writers while the check level is
// raised, and TSCk, which runs it on every DL reachable from the root.
//
// The DL check's findings, in the order they are tested (each failure is logged at kLogFault,
// fires the assertion and answers kFaulted; the two record findings are only logged):
//   1. LmSize of the DL below 0
//   2. a byte of the uType outside 32..126
//   3. the element shorter than 20 + data size + 12 x item count
//      (or a data size that is no multiple of 4)
//   4. for each item: a byte of the key outside 32..126
//   5.   a refnum whose type is none of the six refnum types
//   6.   a vhandle item and no record file                  (logged only)
//   7.   a vhandle item whose chunk the file cannot size     (logged only)
//   8.   a value type other than kImmediate and kVHandle
#include "store/engine.h"

namespace zove {

using zelkor::DebugLogf;
using zelkor::fc;
using zelkor::send;

namespace {

// Fires the assertion at the line of the finding.
int32_t fail(int line = __builtin_LINE()) {
  zoveAssert(line);
  return kFaulted;
}

}  // namespace

int32_t zoveCheckDL(Object* self, int32_t dl) {
  ZoveData* d = zoveData(self);
  fundra::ElementSpace* s = d->space;
  int32_t size = s ? s->LmSize(dl) : kNoSpace;
  if (size < 0) {
    DebugLogf(kLogFault, "zoveCheckDL: DL %~d: LmSize reports error %E", dl, size);
    return fail();
  }
  const uint8_t* base = s->LmGet(dl);
  uint32_t uType = 0;
  if (size >= 4) uType = *reinterpret_cast<const uint32_t*>(base);
  if (!isPrintableCode(uType)) {
    DebugLogf(kLogFault, "zoveCheckDL: DL %~d uType '%Y' bad", dl, uType);
    return fail();
  }
  DLView v;
  if (dlOpen(s, dl, &v) != 0) {
    DebugLogf(kLogFault, "zoveCheckDL: DL %~d appears too small", dl);
    return fail();
  }
  for (int32_t i = 0; i < v.head->count; ++i) {
    const Item it = v.items[i];
    if (!isPrintableCode(it.key)) {
      DebugLogf(kLogFault, "zoveCheckDL: DL %~d key '%Y' bad", dl, it.key);
      return fail();
    }
    uint32_t type = itemType(it);
    if (it.ref > 0) {
      if (!isKnownRefType(type)) {
        DebugLogf(kLogFault, "zoveCheckDL: DL %~d item '%Y' bad refnum type 0x%08x", dl, it.key,
                  type);
        return fail();
      }
    } else if (type == kVHandle) {
      int32_t chunk = int32_t(it.kind);
      if (!d->file) {
        DebugLogf(kLogFault, "zoveCheckDL: DL %~d item '%Y' no file for chunk %~d", dl, it.key,
                  chunk);
      } else if (int32_t r = zelkor::i32(send(d->file, kHSiz, kRecordType, chunk)); r < 0) {
        DebugLogf(kLogFault, "zoveCheckDL: DL %~d item '%Y' bad chunk %~d, %E", dl, it.key, chunk,
                  r);
      }
      dlOpen(s, dl, &v);
    } else if (type != kImmediate) {
      DebugLogf(kLogFault, "zoveCheckDL: DL %~d item '%Y' bad value type 0x%08x", dl, it.key, type);
      return fail();
    }
  }
  return 0;
}

int32_t zoveCheckIfRaised(Object* self, int32_t dl) {
  return zoveData(self)->checkLevel != 0 ? zoveCheckDL(self, dl) : 0;
}

// TSCk: 1 when every DL reachable from the root passes and the base finds its value sound.
Word zoveCheck(Object* self, const Msg&) {
  ZoveData* d = zoveData(self);
  if (d->fault != 0) return kFaulted;
  if (!d->space) return kNoSpace;
  d->fault = d->space->LmValid();
  if (d->fault != 0) return kFaulted;
  ++d->checkLevel;
  d->space->LmUnmark();
  d->fault = zoveDoMark(self, kRootDL, 0, 0);
  --d->checkLevel;
  if (d->fault == 0) zelkor::TransBlock(d->channel, kXTSH, self);
  if (d->fault != 0) return kFaulted;
  return send(self, kHTsv) == 0 ? 1 : 0;
}

}  // namespace zove

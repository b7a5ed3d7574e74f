// Status records and the provider globals: the `ProS` DL the manager keeps per provider, the
// store items the other files read through, and the selectors that answer from the record
// (PGAb, PoGR, PoSR) or from the globals (PoGG, PoSG).
//
// The status record, the data area of the status DL (zove/providers.h has it too):
//
//   offset  width  field       meaning
//   0       8      header      _initpersist: tag `Pro.`, versions 256, 256
//   8       4      abilities   ability bits; 0 until the provider is first shown
//   12      4      depth       -1 while not shown; 0 the root; 1 under the root; parent's + 1
//   16      8      reserved    0 when made; copied only with the whole record
//
// A status DL whose data area is not 24 bytes with that header is damaged: it reads as no record
// (depth -1, abilities 0), nothing is written into it, and no new record is made over it, so
// that the items it holds (parent, children, links) are not lost.
#include <array>
#include <cstring>

#include "platform/fundra/debug.h"
#include "platform/fundra/memory.h"
#include "platform/fundra/persist.h"
#include "platform/storefile/vhd.h"
#include "providers/pro_class.h"
#include "zove/dl.h"

namespace zove {

using zelkor::i32;
using zelkor::toWord;
using zelkor::u32;

// The first look of a handler: asked of the store (the store may have been given another space
// since the handler before).
const fundra::ElementSpace* Pro::askSpace() const {
  fundra::ElementSpace* s = nullptr;
  toStore(storefile::kHGtH, &s);
  space_ = s;
  spaceAsked_ = true;
  return space_;
}

namespace {

// DL n as the space holds it: false when there is no space or n is no DL, and the caller asks
// the store.
[[gnu::always_inline]] inline bool view(const Pro& m, int32_t dl, DLView* v) {
  const fundra::ElementSpace* s = m.space();
  return s && dl > 0 && dlOpen(s, dl, v) == 0;
}

const Item* itemOf(const DLView& v, FourCC key) {
  int32_t i = dlFind(v, key);
  return i < 0 ? nullptr : &v.item(i);
}

// The element of the list under the key (TSLE's and TSLt's rule: a refnum of type list), or
// false when there is none.
bool listView(const Pro& m, int32_t dl, FourCC key, ListView* l, bool* asked) {
  DLView v;
  *asked = dl > 0 && !view(m, dl, &v);
  if (dl <= 0) return false;
  if (*asked) return false;
  const Item* it = itemOf(v, key);
  return it && it->ref >= 1 && typeOf(it->kind) == kList && listOpen(m.space(), it->ref, l) == 0;
}

}  // namespace

int32_t getHandle(const Pro& m, int32_t dl, FourCC key) {
  DLView v;
  if (dl <= 0) return 0;
  if (!view(m, dl, &v)) {
    int32_t out = 0;
    return m.toStore(kTSHG, dl, key, &out) == 0 && out > 0 ? out : 0;
  }
  const Item* it = itemOf(v, key);
  return it && it->ref >= 1 && typeOf(it->kind) == kHandle ? it->ref : 0;
}

int32_t getPart(const Pro& m, int32_t dl, FourCC key) {
  DLView v;
  if (dl <= 0) return 0;
  if (!view(m, dl, &v)) {
    int32_t out = 0;
    return m.toStore(kTSAG, dl, key, &out) == 0 && out > 0 ? out : 0;
  }
  const Item* it = itemOf(v, key);
  return it && it->ref >= 1 && typeOf(it->kind) == kPartLink ? it->ref : 0;
}

int32_t getValue(const Pro& m, int32_t dl, FourCC key) {
  DLView v;
  if (dl <= 0) return 0;
  if (!view(m, dl, &v)) {
    int32_t out = 0;
    m.toStore(kTSVG, dl, key, &out);
    return out;
  }
  const Item* it = itemOf(v, key);
  return it && typeOf(uint32_t(it->ref)) == kImmediate ? int32_t(it->kind) : 0;
}

bool invisibleFlag(const Pro& m, int32_t dl) {
  DLView v;
  if (!view(m, dl, &v)) return m.toStore(kTSTI, dl) != 0;
  return (v.head->flags & kInvisibleFlag) != 0;
}

int32_t listElem(const Pro& m, int32_t dl, FourCC key, int32_t index) {
  ListView l;
  bool asked;
  if (listView(m, dl, key, &l, &asked)) return index < 0 || index >= l.count ? 0 : l.at[index];
  return asked ? i32(m.toStore(kTSLE, dl, key, index)) : 0;
}

std::vector<int32_t> listAll(const Pro& m, int32_t dl, FourCC key) {
  ListView l;
  bool asked;
  if (listView(m, dl, key, &l, &asked)) return std::vector<int32_t>(l.at, l.at + l.count);
  if (!asked || dl <= 0) return {};
  fundra::TMemory mem;
  if (m.toStore(kTSLt, dl, key, &mem) != 0) return {};
  std::vector<int32_t> out(size_t(mem.GetSize() / 4));
  if (!out.empty()) std::memcpy(out.data(), mem.MemPtr(), out.size() * 4);
  return out;
}

bool walkLook(const Pro& m, int32_t dl, FourCC refKey, uint32_t refType, FourCC listKey,
              int32_t* ref, ListView* list) {
  DLView v;
  if (dl <= 0 || !view(m, dl, &v)) return false;
  const Item *r = nullptr, *l = nullptr;
  for (int32_t i = v.head->count - 1; i >= 0; --i) {
    const Item& it = v.item(i);
    if (it.key == refKey) {
      if (!r) r = &it;
    } else if (it.key == listKey) {
      if (!l) l = &it;
    }
  }
  *ref = r && r->ref >= 1 && typeOf(r->kind) == refType ? r->ref : 0;
  if (!(l && l->ref >= 1 && typeOf(l->kind) == kList && listOpen(m.space(), l->ref, list) == 0))
    *list = ListView{};
  return true;
}

void listDelete(const Pro& m, int32_t dl, FourCC key, int32_t member) {
  if (dl > 0) m.toStore(kTSLD, dl, key, member);
}

int32_t statusOf(const Pro& m, int32_t p) { return getHandle(m, m.orRoot(p), kPspKey); }

int32_t makeStatus(const Pro& m, int32_t p) {
  p = m.orRoot(p);
  if (p <= 0) return 0;
  DLView v;
  if (!view(m, p, &v)) {
    m.toStore(kTSHG, p, kPspKey, nullptr);  // the store asserts: p names no DL
    return 0;
  }
  if (const Item* it = itemOf(v, kPspKey))
    // Its status DL, or none when `_psp` holds something else than a handle.
    return it->ref >= 1 && typeOf(it->kind) == kHandle ? it->ref : 0;
  // A status DL has no status DL of its own; asked for one, it gets one all the same.
  if (v.head->uType == kStatusType) fundra::Debug("provider", 199);
  int32_t status = i32(m.toStore(kTSDN, kStatusType, kStatusBytes, m.root()));
  if (status <= 0) return 0;
  if (i32(m.toStore(kTSHS, p, kPspKey, status)) < 0) {
    m.toStore(kTSDU, status);  // nothing holds it: the next collection takes it
    return 0;
  }
  StatusRecord r0{};
  fundra::_initpersist(r0.header, kStatusTag, kStatusVersion, kStatusVersion);
  r0.depth = -1;
  writeRecord(m, status, r0);
  return status;
}

namespace {

// The header every status record starts with: compared with memcmp, it is what _checkpersist
// accepts (the tag and both versions, byte for byte).
const uint8_t* statusHeader() {
  static const auto header = [] {
    std::array<uint8_t, 8> h{};
    fundra::_initpersist(h.data(), kStatusTag, kStatusVersion, kStatusVersion);
    return h;
  }();
  return header.data();
}

}  // namespace

bool readRecord(const Pro& m, int32_t status, StatusRecord* r) {
  *r = StatusRecord{};
  r->depth = -1;
  StatusRecord got{};
  DLView v;
  if (view(m, status, &v)) {
    if (v.head->dataSize != kStatusBytes) return false;
    std::memcpy(&got, v.data, kStatusBytes);
  } else {
    if (status <= 0 || i32(m.toStore(kTSSD, status)) != kStatusBytes) return false;
    m.toStore(kTSRD, status, &got, kStatusBytes);
  }
  if (std::memcmp(got.header, statusHeader(), sizeof got.header) != 0) return false;
  *r = got;
  return true;
}

bool readPlacement(const Pro& m, int32_t status, StatusRecord* r, int32_t* parent) {
  DLView v;
  if (status <= 0 || !view(m, status, &v)) {
    *parent = getHandle(m, status, kPpaKey);
    return readRecord(m, status, r);
  }
  const Item* it = itemOf(v, kPpaKey);
  *parent = it && it->ref >= 1 && typeOf(it->kind) == kHandle ? it->ref : 0;
  *r = StatusRecord{};
  r->depth = -1;
  if (v.head->dataSize != kStatusBytes) return false;
  StatusRecord got;
  std::memcpy(&got, v.data, kStatusBytes);
  if (std::memcmp(got.header, statusHeader(), sizeof got.header) != 0) return false;
  *r = got;
  return true;
}

namespace {

// The record in a view's data area: false (and a record of depth -1) when it is not one.
[[gnu::always_inline]] inline bool recordIn(const DLView& v, StatusRecord* r) {
  if (v.head->dataSize == kStatusBytes &&
      std::memcmp(v.data, statusHeader(), sizeof r->header) == 0) {
    std::memcpy(r, v.data, kStatusBytes);
    return true;
  }
  *r = StatusRecord{};
  r->depth = -1;
  return false;
}

}  // namespace

void lookStatus(const Pro& m, int32_t status, StatusLook* s) {
  DLView v;
  if (status <= 0 || !view(m, status, &v)) {
    s->valid = readRecord(m, status, &s->record);
    s->parent = getHandle(m, status, kPpaKey);
    s->sortMark = getValue(m, status, kPstKey);
    s->hasLinks = listElem(m, status, kPlKey, 0) != 0;
    return;
  }
  s->valid = recordIn(v, &s->record);
  // One pass from the last item to the first, the first match of each key winning, as dlFind's.
  const Item *parent = nullptr, *mark = nullptr, *links = nullptr;
  for (int32_t i = v.head->count - 1; i >= 0; --i) {
    const Item& it = v.item(i);
    if (it.key == kPpaKey) {
      if (!parent) parent = &it;
    } else if (it.key == kPstKey) {
      if (!mark) mark = &it;
    } else if (it.key == kPlKey) {
      if (!links) links = &it;
    }
  }
  s->parent = parent && parent->ref >= 1 && typeOf(parent->kind) == kHandle ? parent->ref : 0;
  s->sortMark = mark && typeOf(uint32_t(mark->ref)) == kImmediate ? int32_t(mark->kind) : 0;
  ListView l;
  s->hasLinks = links && links->ref >= 1 && typeOf(links->kind) == kList &&
                listOpen(m.space(), links->ref, &l) == 0 && l.count > 0 && l.at[0] != 0;
}

void writeRecord(const Pro& m, int32_t status, const StatusRecord& r) {
  m.toStore(kTSWD, status, &r, kStatusBytes);
}

int32_t depthOf(const Pro& m, int32_t p) {
  StatusRecord r;
  readRecord(m, statusOf(m, p), &r);
  return r.depth;
}

bool isShown(const Pro& m, int32_t p) { return m.isRoot(p) || depthOf(m, p) >= 0; }

void setDepth(const Pro& m, int32_t p, int32_t depth) {
  int32_t status = statusOf(m, p);
  StatusRecord r;
  if (readRecord(m, status, &r) && r.depth != depth) {
    r.depth = depth;
    writeRecord(m, status, r);
  }
}

int32_t parentOf(const Pro& m, int32_t p) {
  int32_t status = statusOf(m, p);
  return status ? getHandle(m, status, kPpaKey) : 0;
}

void clearSortMarkOf(const Pro& m, int32_t status) {
  if (status && getValue(m, status, kPstKey) != 0) m.toStore(kTSVS, status, kPstKey, 0);
}

void clearSortMark(const Pro& m, int32_t x) { clearSortMarkOf(m, statusOf(m, x)); }

// PGAb (p or 0): the abilities in p's record; the record is made when p has none. A provider
// seen before is answered from its record where it lies: p's DL opened for `_psp`, the status
// DL for its header and abilities.
Word proGetAbilities(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t p = m.orRoot(i32(msg.w[0]));
  DLView v;
  if (p > 0 && view(m, p, &v)) {
    const Item* it = itemOf(v, kPspKey);
    if (it && it->ref >= 1 && typeOf(it->kind) == kHandle && view(m, it->ref, &v)) {
      if (v.head->dataSize != kStatusBytes ||
          std::memcmp(v.data, statusHeader(), kStatusAbilitiesOffset) != 0)
        return 0;
      uint32_t f;
      std::memcpy(&f, v.data + kStatusAbilitiesOffset, 4);
      return toWord(f);
    }
  }
  StatusRecord r;
  readRecord(m, makeStatus(m, p), &r);
  return toWord(r.abilities);
}

// PoGR (p or 0, key): the immediate value under the key in p's status DL, 0 when absent.
Word proGetRecordValue(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t status = statusOf(m, i32(msg.w[0]));
  return status ? getValue(m, status, u32(msg.w[1])) : 0;
}

// PoSR (p or 0, key, value): TSVS in p's status DL (made when absent).
Word proSetRecordValue(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t status = makeStatus(m, i32(msg.w[0]));
  if (!status) return kNoStatusRecord;
  return m.toStore(kTSVS, status, u32(msg.w[1]), i32(msg.w[2]));
}

// PoGG (key): the global DL under the key, or 0.
Word proGetGlobal(Object* self, const Msg& msg) {
  Pro m(self);
  int32_t globals = getHandle(m, m.root(), kGlobalsKey);
  return globals ? getHandle(m, globals, u32(msg.w[0])) : 0;
}

// PoSG (key, DL or 0): sets or removes a global; the globals DL is made on the first set.
Word proSetGlobal(Object* self, const Msg& msg) {
  Pro m(self);
  FourCC key = u32(msg.w[0]);
  int32_t dl = i32(msg.w[1]);
  int32_t globals = getHandle(m, m.root(), kGlobalsKey);
  if (!globals) {
    if (dl == 0) return 0;
    globals = i32(m.toStore(kTSDN, kGlobalsType, 0, m.root()));
    if (globals <= 0) return 0;
    m.toStore(kTSHS, m.root(), kGlobalsKey, globals);
  }
  if (dl != 0)
    m.toStore(kTSHS, globals, key, dl);
  else
    m.toStore(kTSUk, globals, key);
  return 0;
}

}  // namespace zove

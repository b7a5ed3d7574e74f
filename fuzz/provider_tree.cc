// Fuzz target: the provider manager over a store whose provider records are damaged, as a store
// file damaged on disk hands them to it. Per input, a fresh installed store holds a manager, a
// test controller and a small tree made through the manager's selectors (parents and children
// shown, a link, a required parent, a sorted parent). The input then
//   1. damages the tree's DLs (the providers, their status DLs, the link, the root and the
//      module DL) byte by byte in the element space: any byte of an element, a byte of its data
//      area or items, an item's ref replaced by another of the tree's DL numbers (loops, wrong
//      kinds, dangling parents) or an item's kind replaced by another kind;
//   2. attaches the manager again (XTSD, as the store's install sends it);
//   3. drives a bounded sequence of the manager's selectors on providers it picks.
// Whatever the bytes:
//   - no crash, no sanitizer report; assertions are reported through the foundation's hook;
//   - every selector that answers a code answers 0, a positive value or a registered code;
//   - a store that passed its integrity check after the damage passes it after the sequence
//     (TSCk answers 1 and zoveCheckStore finds nothing): the manager never breaks a store, even
//     when the records it reads are damaged.
// Any breach aborts, so the fuzzer (or the replay under CTest) reports it.
//
// Input layout: byte 0 = number of damage edits (at most 24), then 4 bytes per edit
// (element, mode and offset's high bits, offset, value); the rest is operations, 4 bytes each
// (selector, three argument bytes), at most 64.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/fundra/debug.h"
#include "platform/fundra/memory.h"
#include "platform/fundra/rnlist.h"
#include "platform/fundra/space.h"
#include "platform/fundra/tstring.h"
#include "platform/zelkor/codes.h"
#include "platform/zelkor/zelkor.h"
#include "store/inspect.h"
#include "zove/db.h"
#include "zove/dl.h"
#include "zove/providers.h"
#include "zove/store.h"

namespace {

using namespace zove;
using zelkor::fc;
using zelkor::i32;
using zelkor::Msg;
using zelkor::Object;
using zelkor::send;
using zelkor::Word;

constexpr FourCC kFuzzSig = fc("FZP1");
constexpr FourCC kProvKey = fc("Prov");
constexpr size_t kMaxEdits = 24;
constexpr size_t kMaxOps = 64;

void require(bool ok) {
  if (!ok) std::abort();
}

uint32_t bit(bool on, uint32_t ability) { return on ? ability : 0; }

// An answer that is a code: 0, a positive value, or a code some library registered.
void requireCode(Word w) {
  int32_t r = i32(w);
  require(r >= 0 || zelkor::findCode(r) != nullptr);
}

// A position among the providers listed: -1 when none was listed, or a code.
void requireIndex(Word w) {
  int32_t r = i32(w);
  require(r >= -1 || zelkor::findCode(r) != nullptr);
}

zelkor::ClassRec* gController = nullptr;
// Abilities the controller answers, chosen by the input per provider (by DL number modulo 8).
uint32_t gAbilities[8];

Word ctlSetup(Object* self, const Msg& m) {
  return zelkor::ClassData::pass(gController, self, kSetu, m.w[0], kFuzzSig, 0);
}
Word ctlAbilities(Object*, const Msg& m) { return Word(gAbilities[uint32_t(m.w[0]) & 7]); }
// Names run against DL numbers, so that a sort moves children.
Word ctlName(Object*, const Msg& m) {
  if (auto* s = zelkor::asPtr<fundra::TString>(m.w[1]))
    s->Set("n" + std::to_string(1000 - int32_t(m.w[0] % 1000)));
  return 0;
}
// PFog: hide the provider, then cut every reference to it, as a module forgets its objects.
Word ctlForget(Object* self, const Msg& m) {
  send(send(self, kPmGP), kPmHd, m.w[0]);
  send(send(self, kPGTy), kTSDR, m.w[0]);
  return 0;
}

void boot() {
  zelkor::setLogSink([](int, std::string_view) {});  // assertion reports are logs; swallowed
  zelkor::ZelkorBoot();
  gController = zelkor::makeSubclass(zelkor::findClass(kDmodSig), fc("fZP1"), 0);
  zelkor::Defn(gController, kSetu, ctlSetup);
  zelkor::Defn(gController, kPGAb, ctlAbilities);
  zelkor::Defn(gController, kPGNm, ctlName);
  zelkor::Defn(gController, kPGSN, ctlName);
  zelkor::Defn(gController, kPFog, ctlForget);
}

struct Tree {
  Object* store = nullptr;
  Word manager = 0;
  int32_t module = 0;
  std::vector<int32_t> providers;  // in the order made
  std::vector<int32_t> dls;        // every DL the damage may reach
};

int32_t item(Object* s, int32_t dl, FourCC key) {
  int32_t out = 0;
  send(s, kTSHG, dl, key, &out);
  return out;
}

// The tree every input starts from:
//   root: p0 (sorted in mode 1), p1
//   p0: p2, p3, p5 (p5's required parent is p0)
//   p1: p4, p6 (a link to p2)
Tree makeTree() {
  Tree t;
  t.store = zelkor::asObject(send(zelkor::ZelkorLookup(kZoveSig), zelkor::kNew_));
  send(t.store, kSetu);
  require(send(t.store, kHNew, 0, 1) == 0);
  require(send(t.store, kTSIn, t.store, 1) == 0);
  Word ctl = send(zelkor::objWord(gController->classObject), kSdNw, t.store);
  t.manager = send(zelkor::ZelkorLookup(kProSig), kSdNw, t.store);
  require(t.manager != 0);
  t.module = i32(send(ctl, kSdRR));
  for (int i = 0; i < 7; ++i) {
    int32_t dl = i32(send(t.store, kTSDN, fc("Note"), 0, t.module));
    send(t.store, kTSSS, dl);
    send(t.store, kTSLA, t.module, kProvKey, dl);
    t.providers.push_back(dl);
  }
  const auto& p = t.providers;
  send(t.manager, kPmSh, 0, p[0]);
  send(t.manager, kPmSh, 0, p[1]);
  send(t.manager, kPmSh, p[0], p[2]);
  send(t.manager, kPmSh, p[0], p[3]);
  send(t.manager, kPmSh, p[1], p[4]);
  send(t.manager, kPmSR, p[0], p[5]);
  send(t.manager, kPmSL, p[6], p[2]);  // p6 becomes a link to p2
  send(t.manager, kPmSh, p[1], p[6]);
  fundra::RNList out;
  send(t.manager, kPoEL, p[0], &out, 0, 0, 1);

  t.dls.push_back(kRootDL);
  t.dls.push_back(i32(send(t.manager, kSdRR)));
  t.dls.push_back(t.module);
  for (int32_t dl : t.providers) {
    t.dls.push_back(dl);
    if (int32_t st = item(t.store, dl, kPspKey)) t.dls.push_back(st);
  }
  return t;
}

constexpr uint32_t kKinds[] = {kBlob, kHandle, kPartLink, kList, kWeakList, kWeakHandle};

// One edit: e[0] the element, e[1] the mode (low 2 bits) and the offset's high bits, e[2] the
// offset's low bits, e[3] the value.
void damage(fundra::ElementSpace* sp, const Tree& t, const uint8_t* e) {
  int32_t n = t.dls[e[0] % t.dls.size()];
  if (sp->LmTest(n) != 0) return;
  uint8_t* at = sp->LmGet(n);
  int32_t size = sp->LmSize(n);
  if (!at || size <= 0) return;
  uint32_t offset = uint32_t(e[1] >> 2) << 8 | e[2];
  switch (e[1] & 3) {
    case 0:  // any byte
      at[offset % uint32_t(size)] = e[3];
      break;
    case 1:  // a byte past the header
      if (size > kHeadBytes) at[kHeadBytes + offset % uint32_t(size - kHeadBytes)] = e[3];
      break;
    case 2:    // an item's ref: another DL of the tree
    case 3: {  // an item's kind
      DLHead head;
      std::memcpy(&head, at, sizeof head);
      int64_t first = int64_t(kHeadBytes) + head.dataSize;
      if (head.dataSize < 0 || head.count <= 0 || first + int64_t(head.count) * kItemBytes > size)
        return;
      uint8_t* it = at + first + int64_t(offset % uint32_t(head.count)) * kItemBytes;
      if ((e[1] & 3) == 2) {
        int32_t ref = t.dls[e[3] % t.dls.size()];
        std::memcpy(it, &ref, 4);
      } else {
        uint32_t kind = kKinds[e[3] % std::size(kKinds)];
        std::memcpy(it + 4, &kind, 4);
      }
      break;
    }
  }
  sp->LmTouch(n);
}

bool sound(Object* s) { return send(s, kTSCk) == 1 && zoveCheckStore(s).empty(); }

// One operation on the tree: o[0] the selector, o[1..3] its arguments.
void operate(const Tree& t, fundra::ElementSpace* sp, const uint8_t* o) {
  const Word m = t.manager;
  // The tree's DLs the store still reaches. A caller names only DLs it reaches: a DL the damage
  // cut loose is not checked by the store's invariants (and linking it again would bring its
  // damage back), and its number may be freed and given to a blob or a list.
  std::vector<int32_t> reached;
  for (int32_t dl : reachableDLs(sp, {kRootDL}, Edges::kOwning)) {
    DLView v;
    if (dlOpen(sp, dl, &v) == 0 && std::find(t.dls.begin(), t.dls.end(), dl) != t.dls.end())
      reached.push_back(dl);
  }
  // A provider picked by a byte: mostly the tree's DLs, sometimes the root (0), a number past
  // the store's end or a negative one.
  auto pick = [&](uint8_t b) -> int32_t {
    if (b < 0xF0) return reached.empty() ? 0 : reached[b % reached.size()];
    if (b == 0xF0) return 0;
    if (b == 0xF1) return -int32_t(b);
    return 100000 + b;
  };
  const int32_t a = pick(o[1]), b = pick(o[2]);
  const uint8_t w = o[3];
  fundra::RNList list;
  switch (o[0] % 30) {
    case 0:
      requireCode(send(m, kPmSh, a, b));
      break;
    case 1:
      requireCode(send(m, kPmHd, a));
      break;
    case 2:
      requireCode(send(m, kPmSR, a, b));
      break;
    case 3:
      list.Add(b);
      list.Add(pick(w));
      requireCode(send(m, kPmLS, a, &list));
      break;
    case 4:
      requireCode(send(m, kPmUA, a));
      break;
    case 5:
      requireCode(send(m, kPmMd, a));
      break;
    case 6:  // an update bracket opened, another selector, then closed
      requireCode(send(m, kPmUg, a, 1));
      requireCode(send(m, kPmSh, a, b));
      requireCode(send(m, kPmUg, a, 0));
      break;
    case 7:
      requireCode(send(m, kPMov, a, b));
      break;
    case 8:
      requireCode(send(m, kPTMv, a, b));
      break;
    case 9:
      requireCode(send(m, kPoEL, a, &list, bit(w & 1, kAbFirst), bit(w & 2, kAbFirst), w % 4));
      break;
    case 10:
      requireCode(send(m, kPoDL, a, &list, 0, 0, w % 4));
      break;
    case 11:
      requireIndex(send(m, kPoEF, a, b, 0, 0, w % 4));
      break;
    case 12:
      requireIndex(send(m, kPoDF, a, b, 0, 0, w % 4));
      break;
    case 13:  // abilities are any bits; the link bit makes them negative
      send(m, kPGAb, a);
      break;
    case 14: {
      int32_t p = a;
      requireCode(send(m, kPRvL, &p, int32_t(w % 12)));
      break;
    }
    case 15:
      requireCode(send(m, kPLnk, a, b));
      break;
    case 16:
      requireCode(send(m, kPULk, a, b));
      break;
    case 17:
      requireCode(send(m, kPmSL, a, b));
      break;
    case 18:
      requireCode(send(m, kPmRP, a, w & 1 ? b : 0));
      break;
    case 19:
      requireCode(send(m, kPFog, a, 0));
      break;
    case 20: {
      list.Add(a);
      list.Add(b);
      fundra::RNList out;
      requireCode(send(m, kPoEp, &list, &out, bit(w & 1, kAbGroup), 0));
      break;
    }
    case 21:
      requireCode(send(m, kPoSX, a, int32_t(w % 8)));
      break;
    case 22:
      requireCode(send(m, kPoGX, a));
      break;
    case 23: {  // answers of -1 mean "not found" here
      int32_t d = i32(send(m, kPGtD, a));
      require(d >= -1);
      d = i32(send(m, kPGID, a, b));
      require(d >= -1);
      d = i32(send(m, kPoMP, a, kAbGroup, kAbGroup));
      require(d >= -1);
      break;
    }
    case 24:
      requireCode(send(m, kPoGP, a));
      requireCode(send(m, kPoGI, a, int32_t(w % 8)));
      requireCode(send(m, kPoIA, a, int32_t(w % 8)));
      break;
    case 25: {
      fundra::TMemory mem;
      requireCode(send(m, kPoLA, a, &mem));
      requireCode(send(m, kPEnL, a, int32_t(w % 4)));
      break;
    }
    case 26:
      requireCode(send(m, kPmAQ, a));
      requireCode(send(m, kPmSQ, a));
      requireCode(send(m, kPTIn, a, b));
      requireCode(send(m, kPUBy, a, b, int32_t(w % 4)));
      break;
    case 27:
      requireCode(send(m, kPmDF, a, w & 1 ? b : 0));
      break;
    case 28: {
      fundra::TString name;
      requireCode(send(m, kPGSN, a, &name, int32_t(w % 4)));
      requireCode(send(m, kPGNm, a, &name, 0));
      break;
    }
    case 29:  // attached again, as after another install
      send(m, kXTSD, t.store);
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool booted = (boot(), true);
  (void)booted;
  for (int i = 0; i < 8; ++i) gAbilities[i] = 0x100;
  Tree t = makeTree();
  fundra::ElementSpace* sp = nullptr;
  send(t.store, storefile::kHGtH, &sp);
  require(sp != nullptr);
  require(sound(t.store));

  size_t at = 0;
  size_t edits = size > 0 ? std::min<size_t>(data[at++] % 32, kMaxEdits) : 0;
  for (size_t i = 0; i < edits && at + 4 <= size; ++i, at += 4) damage(sp, t, data + at);
  // The controller's abilities for the rest of the run: from the last bytes, when there are any.
  if (size >= 9)
    for (int i = 0; i < 8; ++i)
      if (uint8_t b = data[size - 1 - i]; b & 0x80)
        gAbilities[i] = 0x100 | (bit(b & 1, kAbFirst)) | (bit(b & 2, kAbGroup)) |
                        (bit(b & 4, kAbKeepOrder)) | (bit(b & 8, kAbLinkFolder));
  const bool soundBefore = sound(t.store);

  send(t.manager, kXTSD, t.store);
  for (size_t i = 0; i < kMaxOps && at + 4 <= size; ++i, at += 4) operate(t, sp, data + at);

  if (soundBefore) require(sound(t.store));
  send(t.store, kDspo);
  return 0;
}

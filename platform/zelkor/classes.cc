#include "platform/zelkor/classes.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <unordered_map>
#include <unordered_set>

#include "platform/zelkor/channel.h"
#include "platform/zelkor/log.h"

namespace zelkor {

namespace {

constexpr uint32_t kHeaderBytes = sizeof(ObjectHeader);
constexpr uint32_t kAlign = 16;
constexpr uint32_t kFlagSlot = 8;

struct Registry {
  std::unordered_map<FourCC, ClassRec*> bySig;
  std::vector<ClassRec*> order;
  // Objects are made and disposed of on whichever thread sends New or Dspo (a database object
  // opens DLs from several threads), so the set of live objects has a lock of its own.
  std::mutex liveLock;
  std::unordered_set<Word> live;
};

Registry& reg() {
  static Registry* r = new Registry;  // lives for the process: classes are never unloaded
  return *r;
}

uint32_t alignUp(uint32_t n) { return (n + kAlign - 1) & ~(kAlign - 1); }

// Metaclass instance data: the class the class object stands for.
struct ClassObjectData {
  ClassRec* cls;
};

ClassRec* newRecord(FourCC sig, ClassRec* super, uint32_t bytes, bool meta) {
  auto* c = new ClassRec{};
  c->sig = sig;
  c->super = super;
  c->isMeta = meta;
  uint32_t base = super ? super->objectSize : kHeaderBytes;
  c->offset = alignUp(base + kFlagSlot);
  c->size = bytes;
  c->objectSize = alignUp(c->offset + bytes);
  if (super) {
    c->table = super->table;
    c->own.assign(c->table.size(), 0);
    c->fallback = super->fallback;
    super->subclasses.push_back(c);
  } else {
    c->fallback = notUnderstood;
  }
  return c;
}

// Instance handlers of the root class.
Word rooSetu(Object*, const Msg&) { return 1; }

Word rooDspo(Object* self, const Msg&) {
  leaveAllChannels(self);
  for (ClassRec* c = self->h.cls; c; c = c->super) segmentFlags(self, c) |= kDestroyed;
  {
    std::lock_guard<std::mutex> lock(reg().liveLock);
    reg().live.erase(objWord(self));
  }
  self->h.tag = 0;
  ::operator delete(self, std::align_val_t(kAlign));
  return 0;
}

Word rooPoAd(Object* self, const Msg& m) { return poAd(self, m.w[0]); }
Word rooPoRm(Object* self, const Msg& m) { return poRm(self, m.w[0]); }
Word rooLkUp(Object* self, const Msg& m) { return lookUp(self, u32(m.w[0])); }

// Class-object handlers (defined on the root metaclass).
ClassRec* selfClass(Object* self) { return classOf(self); }

Word metaNew(Object* self, const Msg&) { return objWord(newObject(selfClass(self))); }
Word metaNwMF(Object* self, const Msg& m) { return objWord(newObject(selfClass(self), m.w[0])); }

Word metaSubC(Object* self, const Msg& m) {
  ClassRec* sub = makeSubclass(selfClass(self), u32(m.w[0]), uint32_t(m.w[2]));
  return sub ? objWord(sub->classObject) : 0;
}

Word metaDefn(Object* self, const Msg& m) {
  Defn(selfClass(self), u32(m.w[0]), reinterpret_cast<Handler>(m.w[1]));
  return 0;
}

Word metaClsc(Object*, const Msg&) { return 0; }

}  // namespace

ClassRec* classOf(Object* classObject) {
  if (!classObject || !classObject->h.cls->isMeta) return nullptr;
  return instanceData<ClassObjectData>(classObject, classObject->h.cls)->cls;
}

Object* newObject(ClassRec* cls, Word home) {
  void* mem = ::operator new(cls->objectSize, std::align_val_t(kAlign), std::nothrow);
  if (!mem) return nullptr;
  std::memset(mem, 0, cls->objectSize);
  auto* o = static_cast<Object*>(mem);
  o->h.cls = cls;
  o->h.tag = kLiveTag;
  o->h.home = home;
  if (!cls->isMeta) {
    std::lock_guard<std::mutex> lock(reg().liveLock);
    reg().live.insert(objWord(o));
  }
  return o;
}

bool isLiveObject(Word w) {
  if (!w) return false;
  {
    std::lock_guard<std::mutex> lock(reg().liveLock);
    if (reg().live.count(w)) return true;
  }
  for (ClassRec* c : reg().order)
    if (objWord(c->classObject) == w) return true;
  return false;
}

ClassRec* makeSubclass(ClassRec* super, FourCC sig, uint32_t bytes) {
  Registry& r = reg();
  if (r.bySig.count(sig)) {
    DebugLogf(515, "SubC: class '%Y' exists already", sig);
    return nullptr;
  }
  ClassRec* c = newRecord(sig, super, bytes, false);
  c->meta = newRecord(sig, super ? super->meta : nullptr, sizeof(ClassObjectData), true);
  c->classObject = newObject(c->meta);
  instanceData<ClassObjectData>(c->classObject, c->meta)->cls = c;
  r.bySig[sig] = c;
  r.order.push_back(c);
  return c;
}

ClassRec* rootClass() {
  static ClassRec* root = [] {
    ClassRec* c = makeSubclass(nullptr, kRootSig, 0);
    Defn(c, kSetu, rooSetu);
    Defn(c, kDspo, rooDspo);
    Defn(c, kpoAd, rooPoAd);
    Defn(c, kpoRm, rooPoRm);
    Defn(c, kLkUp, rooLkUp);
    Defn(c->meta, kNew_, metaNew);
    Defn(c->meta, kNwMF, metaNwMF);
    Defn(c->meta, kSubC, metaSubC);
    Defn(c->meta, kDefn, metaDefn);
    Defn(c->meta, kLkUp, rooLkUp);
    Defn(c->meta, kclsc, metaClsc);
    return c;
  }();
  return root;
}

ClassRec* findClass(FourCC sig) {
  auto it = reg().bySig.find(sig);
  return it == reg().bySig.end() ? nullptr : it->second;
}

Word ZelkorLookup(FourCC sig) {
  ClassRec* c = findClass(sig);
  return c ? objWord(c->classObject) : 0;
}

std::vector<ClassRec*> allClasses() { return reg().order; }

std::vector<FourCC> ownSelectors(const ClassRec* cls) {
  std::vector<FourCC> out;
  // The selector table is the source of truth; walk it by index.
  for (uint32_t h = 0; h < detail::kSelSlots; ++h) {
    FourCC k = detail::gSelSlots[h].key.load(std::memory_order_relaxed);
    if (!k) continue;
    uint32_t i = detail::gSelSlots[h].index;
    if (i < cls->own.size() && cls->own[i]) out.push_back(k);
  }
  std::sort(out.begin(), out.end());
  return out;
}

}  // namespace zelkor

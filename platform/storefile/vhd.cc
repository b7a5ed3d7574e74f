// The value-handle base `@vhd`: its instance data, its handlers and the handle registry.
#include "platform/storefile/vhd.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <string>
#include <vector>

#include "platform/fundra/space.h"
#include "platform/storefile/binding.h"
#include "platform/zelkor/boot.h"
#include "platform/zelkor/classes.h"
#include "platform/zelkor/dispatch.h"
#include "platform/zelkor/log.h"

namespace storefile {

using namespace zelkor;

namespace {

// Instance data of `@vhd`. Zero-filled at New; every field is valid in that state (an unbound
// handle without a value).
struct VhdData {
  fundra::ElementSpace* space;  // owned; freed by Dspo or by HNew adopting another
  VhdBinding* binding;          // the store file and its record file, or null
  int32_t changed;              // HSCh flag: 1 while the value differs from the file
  int32_t version;              // the version given to HNew (kept in a new file's header)
  FourCC registered;            // the class signature given to HReg, 0 when unregistered
};

std::vector<RegisteredHandle>& registry() {
  static auto* r = new std::vector<RegisteredHandle>;
  return *r;
}

void unregister(Word object) {
  auto& r = registry();
  r.erase(std::remove_if(r.begin(), r.end(),
                         [object](const RegisteredHandle& h) { return h.object == object; }),
          r.end());
}

// The class is made once, when the framework boots, and never goes: found once, kept.
ClassRec* vhdClass() {
  static std::atomic<ClassRec*> cached{nullptr};
  ClassRec* c = cached.load(std::memory_order_acquire);
  if (!c && (c = findClass(kVhdSig))) cached.store(c, std::memory_order_release);
  return c;
}

VhdData* dataOf(Object* self) { return instanceData<VhdData>(self, vhdClass()); }

Word vhdNew(Object* self, const Msg& m) {
  VhdData* d = dataOf(self);
  auto* space = asPtr<fundra::ElementSpace>(m.w[0]);
  if (!space) {
    space = new (std::nothrow) fundra::ElementSpace(1024, 0);
    if (!space) return fundra::kLmNoMemory;
  }
  if (d->space != space) {
    delete d->space;
    // What the file holds of the space before is no part of this one.
    if (d->binding) bindingSpaceReplaced(d->binding);
  }
  d->space = space;
  d->version = i32(m.w[1]);
  d->changed = 1;
  return 0;
}

Word vhdGetHandle(Object* self, const Msg& m) {
  VhdData* d = dataOf(self);
  auto** out = asPtr<fundra::ElementSpace*>(m.w[0]);
  if (!out) return kVhdBadArgument;
  if (!d->space && d->binding) {
    int32_t r = bindingLoad(d->binding, &d->space);
    if (r != 0) {
      *out = nullptr;
      return r;
    }
    d->changed = 0;
  }
  *out = d->space;
  return 0;
}

Word vhdRegister(Object* self, const Msg& m) {
  unregister(objWord(self));
  registry().push_back({objWord(self), u32(m.w[0])});
  dataOf(self)->registered = u32(m.w[0]);
  return 0;
}

Word vhdUnregister(Object* self, const Msg&) {
  unregister(objWord(self));
  dataOf(self)->registered = 0;
  return 0;
}

Word vhdGetFile(Object* self, const Msg&) {
  VhdData* d = dataOf(self);
  return d->binding ? bindingFileObject(d->binding) : 0;
}

Word vhdSetChanged(Object* self, const Msg& m) {
  VhdData* d = dataOf(self);
  int32_t old = d->changed;
  d->changed = m.w[0] != 0;
  return old;
}

Word vhdChange(Object* self, const Msg&) {
  VhdData* d = dataOf(self);
  if (!d->binding) return 0;
  if (!d->space) return kVhdNoValue;
  int32_t r = bindingSave(d->binding, d->space);
  if (r == 0) d->changed = 0;
  return r;
}

Word vhdTest(Object* self, const Msg&) {
  VhdData* d = dataOf(self);
  if (!d->space) return kVhdNoValue;
  // The exhaustive check: a store check is asked for rarely and should find everything.
  std::vector<std::string> found = d->space->LmCheck();
  for (const std::string& f : found)
    DebugLogf(kVhdLogLevel, "vhdTest: element space: %s", f.c_str());
  if (!found.empty()) return fundra::kLmDamaged;
  return d->binding ? bindingCheck(d->binding) : 0;
}

Word vhdDispose(Object* self, const Msg& m) {
  VhdData* d = dataOf(self);
  if (d->binding) {
    bindingClose(d->binding);
    d->binding = nullptr;
  }
  delete d->space;
  d->space = nullptr;
  unregister(objWord(self));
  return passMsg(vhdClass(), self, m);
}

void vhdBuild(ClassRec* c) {
  Defn(c, kHNew, vhdNew);
  Defn(c, kHGtH, vhdGetHandle);
  Defn(c, kHReg, vhdRegister);
  Defn(c, kHUrg, vhdUnregister);
  Defn(c, kHGtF, vhdGetFile);
  Defn(c, kHSCh, vhdSetChanged);
  Defn(c, kHChg, vhdChange);
  Defn(c, kHTsv, vhdTest);
  Defn(c, kDspo, vhdDispose);
}

int gVhdClass = MakeFrameworkClass(kVhdSig, kRootSig, sizeof(VhdData), vhdBuild);

}  // namespace

std::vector<RegisteredHandle> registeredHandles() { return registry(); }

VhdBinding** vhdBindingSlot(Word store, fundra::ElementSpace** space, int32_t* version) {
  Object* o = asObject(store);
  if (!o || !vhdClass() || !ModuleData::sigClass(o, kVhdSig)) return nullptr;
  VhdData* d = dataOf(o);
  if (space) *space = d->space;
  if (version) *version = d->version;
  return &d->binding;
}

void vhdSetChangedFlag(Word store, int32_t flag) {
  if (vhdBindingSlot(store, nullptr, nullptr)) dataOf(asObject(store))->changed = flag;
}

}  // namespace storefile

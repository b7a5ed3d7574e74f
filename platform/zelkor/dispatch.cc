#include "platform/zelkor/dispatch.h"

#include <mutex>

#include "platform/zelkor/log.h"

namespace zelkor {

namespace detail {
SelSlot gSelSlots[kSelSlots];
std::atomic<uint64_t> gUnanswered{0};
}  // namespace detail

namespace {
std::mutex gInternMu;
uint32_t gSelCount = 0;

// Grows the handler table of a class and its subclasses to cover `index`.
void cover(ClassRec* c, uint32_t index) {
  if (c->table.size() <= index) {
    size_t n = std::max<size_t>(index + 1, c->table.size() * 2);
    c->table.resize(n, nullptr);
    c->own.resize(n, 0);
  }
}

void inherit(ClassRec* c, uint32_t index, Handler h) {
  for (ClassRec* sub : c->subclasses) {
    cover(sub, index);
    if (sub->own[index]) continue;
    sub->table[index] = h;
    inherit(sub, index, h);
  }
}

void inheritFallback(ClassRec* c, Handler old, Handler h) {
  for (ClassRec* sub : c->subclasses) {
    if (sub->fallback != old) continue;
    sub->fallback = h;
    inheritFallback(sub, old, h);
  }
}
}  // namespace

uint32_t internSelector(FourCC sel) {
  if (uint32_t i = findSelector(sel)) return i;
  std::lock_guard<std::mutex> lock(gInternMu);
  for (uint32_t h = detail::selHash(sel);; h = (h + 1) & (detail::kSelSlots - 1)) {
    auto& slot = detail::gSelSlots[h];
    FourCC k = slot.key.load(std::memory_order_relaxed);
    if (k == sel) return slot.index;
    if (k == 0) {
      if (gSelCount + 1 >= detail::kSelSlots / 2) {
        DebugLogf(515, "internSelector: too many selectors, '%Y' refused", sel);
        return 0;
      }
      slot.index = ++gSelCount;
      slot.key.store(sel, std::memory_order_release);
      return slot.index;
    }
  }
}

void Defn(ClassRec* cls, FourCC sel, Handler handler) {
  uint32_t i = internSelector(sel);
  if (!i || !cls) return;
  cover(cls, i);
  cls->table[i] = handler;
  cls->own[i] = handler != nullptr;
  inherit(cls, i, handler);
}

void DefnFallback(ClassRec* cls, Handler handler) {
  Handler old = cls->fallback;
  cls->fallback = handler ? handler : notUnderstood;
  inheritFallback(cls, old, cls->fallback);
}

namespace {
std::atomic<FourCC> gLastUnansweredClass{0};
std::atomic<FourCC> gLastUnansweredSel{0};
}  // namespace

Word notUnderstood(Object* self, const Msg& m) {
  detail::gUnanswered.fetch_add(1, std::memory_order_relaxed);
  gLastUnansweredClass.store(self ? self->h.cls->sig : 0, std::memory_order_relaxed);
  gLastUnansweredSel.store(m.sel, std::memory_order_relaxed);
  return 0;
}

uint64_t unansweredCount() { return detail::gUnanswered.load(std::memory_order_relaxed); }

Unanswered lastUnanswered() {
  return {gLastUnansweredClass.load(std::memory_order_relaxed),
          gLastUnansweredSel.load(std::memory_order_relaxed)};
}

Word passMsg(const ClassRec* cls, Object* self, const Msg& m) {
  const ClassRec* super = cls ? cls->super : nullptr;
  if (!super) return 0;
  Handler h = handlerOf(super, findSelector(m.sel));
  return h ? h(self, m) : super->fallback(self, m);
}

Word lookUp(const Object* self, FourCC sel) {
  if (!self) return 0;
  const ClassRec* c = self->h.cls;
  if (handlerOf(c, findSelector(sel))) return 1;
  return c->fallback != notUnderstood ? 1 : 0;
}

ClassRec* ModuleData::sigClass(const Object* obj, FourCC sig) {
  for (ClassRec* c = obj ? obj->h.cls : nullptr; c; c = c->super)
    if (c->sig == sig) return c;
  return nullptr;
}

}  // namespace zelkor

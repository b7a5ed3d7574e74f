// Selectors and message sends.
//
// Dispatch costs two array probes: each selector is interned once to a dense index (an
// open-addressed table keyed by the FourCC), and each class keeps a handler table indexed by it.
// A class's table starts as a copy of its superclass's; Defn writes the class's entry and every
// subclass entry that was inherited from it, so a send never walks the chain.
//
// Sends run synchronously on the caller's thread. Definitions (Defn, SubC) are made while the
// framework boots or from the framework thread; sends do not lock.
//
// A message that no class of the receiver's chain answers runs the class's fallback handler; the
// framework's fallback answers 0 and counts the miss (unansweredCount), so that tests can fail on
// a send that reached nobody: a misspelt selector answers 0, which reads as success. Broadcasts
// skip members that would only reach that fallback (most listeners ignore most notices), so
// they count no misses. A send to a null object also answers 0, so "send to the controller, if
// any" needs no test at the call site.
#pragma once

#include <emmintrin.h>

#include <atomic>
#include <utility>

#include "platform/zelkor/object.h"

namespace zelkor {

// Selector index table. Index 0 means "never defined by anyone".
namespace detail {
constexpr uint32_t kSelSlots = 1u << 13;
struct SelSlot {
  std::atomic<FourCC> key;
  uint32_t index;
};
extern SelSlot gSelSlots[kSelSlots];
inline uint32_t selHash(FourCC s) { return (s * 0x9E3779B1u) >> (32 - 13); }
extern std::atomic<uint64_t> gUnanswered;
}  // namespace detail

// The dense index of a selector, 0 when no class ever defined it.
inline uint32_t findSelector(FourCC sel) {
  for (uint32_t h = detail::selHash(sel);; h = (h + 1) & (detail::kSelSlots - 1)) {
    FourCC k = detail::gSelSlots[h].key.load(std::memory_order_acquire);
    if (k == sel) return detail::gSelSlots[h].index;
    if (k == 0) return 0;
  }
}
// Interns a selector (idempotent) and answers its index.
uint32_t internSelector(FourCC sel);

inline Handler handlerOf(const ClassRec* c, uint32_t index) {
  return index < c->table.size() ? c->table[index] : nullptr;
}

inline Word dispatch(Object* self, const Msg& m) {
  if (!self) return 0;
  ClassRec* c = self->h.cls;
  Handler h = handlerOf(c, findSelector(m.sel));
  return h ? h(self, m) : c->fallback(self, m);
}

// The unused words are cleared with six 16-byte stores: a plain aggregate initialisation lets the
// compiler clear the message with a string instruction whose start-up costs more than the whole
// send, and word-by-word clearing costs a store per word.
template <size_t... I, class... A>
Msg makeMsgWords(std::index_sequence<I...>, FourCC sel, A... args) {
  Msg m;
  m.sel = sel;
  const __m128i zero = _mm_setzero_si128();
  for (int k = 0; k < kMaxWords / 2; ++k)
    _mm_storeu_si128(reinterpret_cast<__m128i*>(m.w) + k, zero);
  ((m.w[I] = toWord(args)), ...);
  return m;
}

template <class... A>
Msg makeMsg(FourCC sel, A... args) {
  static_assert(sizeof...(A) <= kMaxWords, "a message carries at most twelve words");
  return makeMsgWords(std::make_index_sequence<sizeof...(A)>(), sel, args...);
}

// Defines (or redefines) the handler of a selector on a class and on every subclass that
// inherited the previous one.
void Defn(ClassRec* cls, FourCC sel, Handler handler);
// Sets the handler for selectors nobody answers, for this class and those inheriting it.
void DefnFallback(ClassRec* cls, Handler handler);
// The framework's own fallback: answers 0.
Word notUnderstood(Object* self, const Msg& m);
uint64_t unansweredCount();
// The receiver's class and the selector of the last send that reached the framework's fallback.
struct Unanswered {
  FourCC cls;
  FourCC sel;
};
Unanswered lastUnanswered();

// Runs the handler of `cls`'s superclass for the message (0 when none answers).
Word passMsg(const ClassRec* cls, Object* self, const Msg& m);

// Non-zero when the object answers the selector (a handler, or a fallback of its own).
Word lookUp(const Object* self, FourCC sel);

struct ModuleData {
  template <class... A>
  static Word send(Object* obj, FourCC sel, A... args) {
    return dispatch(obj, makeMsg(sel, args...));
  }
  template <class... A>
  static Word send(Word obj, FourCC sel, A... args) {
    return dispatch(asObject(obj), makeMsg(sel, args...));
  }
  // Delivers and waits for the answer. Every handler runs on the framework thread, so
  // delivering is sending.
  template <class... A>
  static Word postBlock(Word obj, FourCC sel, A... args) {
    return dispatch(asObject(obj), makeMsg(sel, args...));
  }
  // The record of the class named `sig` in the object's chain, or null.
  static ClassRec* sigClass(const Object* obj, FourCC sig);
};

struct ClassData {
  template <class... A>
  static Word pass(const ClassRec* cls, Object* self, FourCC sel, A... args) {
    return passMsg(cls, self, makeMsg(sel, args...));
  }
};

template <class... A>
Word send(Object* obj, FourCC sel, A... args) {
  return dispatch(obj, makeMsg(sel, args...));
}
template <class... A>
Word send(Word obj, FourCC sel, A... args) {
  return dispatch(asObject(obj), makeMsg(sel, args...));
}

}  // namespace zelkor

// Objects, class records and messages.
//
// An object is one heap block: an ObjectHeader followed by one segment per class of its chain,
// root class first. Each segment is an 8-byte flag slot and then that class's instance data; the
// class record's `offset` is the byte offset of the instance data within the object, so a class
// reaches its own data through its record and a superclass's through sigClass.
//
//   object + 0                 ObjectHeader (class, liveness tag, home store)
//   record.offset - 8          flag word of that class's segment (kBuilt, kDestroyed)
//   record.offset              instance data, zero-filled at creation, record.size bytes
//
// A class is also an object: its class object, whose class is the class's metaclass. Class-level
// selectors (New , NwMF, SubC, Defn, LkUp, SdNw, ...) are defined on metaclasses, which inherit
// along the same chain as their classes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/zelkor/word.h"

namespace zelkor {

struct ClassRec;
struct Object;

constexpr int kMaxWords = 12;

// One message: the selector and up to twelve words. Words a sender leaves out read 0.
struct alignas(16) Msg {
  Word w[kMaxWords];
  FourCC sel;
};

// A handler answers one word; it receives the object and the message.
using Handler = Word (*)(Object* self, const Msg& m);

// Flag-word bits of a class segment.
constexpr uint32_t kDestroyed = 1u << 1;  // Dspo destroyed the class's members
constexpr uint32_t kBuilt = 1u << 2;      // Setu built them

struct ObjectHeader {
  ClassRec* cls;
  uint32_t tag;  // kLiveTag while the object lives
  uint32_t reserved;
  Word home;  // the store given to NwMF, or 0
};
constexpr uint32_t kLiveTag = 0x7A6B6F62;

struct Object {
  ObjectHeader h;
};

struct ClassRec {
  FourCC sig;
  ClassRec* super;
  uint32_t offset;      // byte offset of this class's instance data in an object
  uint32_t size;        // instance bytes this class adds
  uint32_t objectSize;  // bytes of a whole object of this class
  bool isMeta;
  Object* classObject;         // for a class: its class object; for a metaclass: null
  ClassRec* meta;              // for a class: its metaclass
  std::vector<Handler> table;  // indexed by selector index; null where nothing answers
  std::vector<uint8_t> own;    // 1 where this class defined the handler itself
  std::vector<ClassRec*> subclasses;
  Handler fallback;  // runs when no handler answers; inherited like the table
};

// The class record behind a class object (the inverse of ClassRec::classObject).
ClassRec* classOf(Object* classObject);

// Instance data of class `cls` inside `self`.
template <class T>
T* instanceData(Object* self, const ClassRec* cls) {
  return reinterpret_cast<T*>(reinterpret_cast<char*>(self) + cls->offset);
}
inline uint32_t& segmentFlags(Object* self, const ClassRec* cls) {
  return *reinterpret_cast<uint32_t*>(reinterpret_cast<char*>(self) + cls->offset - 8);
}

inline Object* asObject(Word w) { return reinterpret_cast<Object*>(w); }
inline Word objWord(const Object* o) { return reinterpret_cast<Word>(o); }

// True when the word names an object that is alive (made by New /NwMF and not yet disposed).
// Costs a hash lookup: for tools and shells that take object words from people, not for sends.
bool isLiveObject(Word w);

}  // namespace zelkor

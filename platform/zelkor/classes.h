// Classes: creation, lookup, objects' life.
//
// The framework's root class `@roo` answers the general object protocol:
//   Setu -> 1                  builds nothing; subclasses build their members and pass
//   Dspo -> 0                  leaves every channel, marks every segment destroyed, frees
//   poAd (channel) -> 0        joins a channel (an object word or a FourCC)
//   poRm (channel) -> 0        leaves it
//   LkUp (selector)            non-zero when the receiver answers the selector
// Class objects (instances of the metaclasses) answer:
//   New  -> object             a zero-filled object of the class
//   NwMF (store) -> object     the same, set up on the store (ObjectHeader::home)
//   SubC (sig, 1, bytes)       a subclass; answers its class object, or 0 on a clash
//   Defn (selector, handler)   defines a handler on the class
//   LkUp (selector)            non-zero when the class object answers the selector
//   clsc (class, sig)          the class-start task of the boot sequence
#pragma once

#include <vector>

#include "platform/zelkor/dispatch.h"

namespace zelkor {

constexpr FourCC kRootSig = fc("@roo");
constexpr FourCC kVhdSig = fc("@vhd");

// Selectors of the general object protocol. A selector's name is k and its four characters (a
// space as _), so that searching for the characters finds both the name and its handler.
constexpr FourCC kSetu = fc("Setu");
constexpr FourCC kDspo = fc("Dspo");
constexpr FourCC kpoAd = fc("poAd");
constexpr FourCC kpoRm = fc("poRm");
constexpr FourCC kLkUp = fc("LkUp");
constexpr FourCC kNew_ = fc("New ");
constexpr FourCC kNwMF = fc("NwMF");
constexpr FourCC kSubC = fc("SubC");
constexpr FourCC kDefn = fc("Defn");
constexpr FourCC kclsc = fc("clsc");
constexpr FourCC kboot = fc("boot");

// Creates the root class if it does not exist yet and answers it.
ClassRec* rootClass();

// Makes a subclass of `super` with `bytes` of instance data (and its metaclass and class object).
// Answers null when the signature is taken.
ClassRec* makeSubclass(ClassRec* super, FourCC sig, uint32_t bytes);

// The class record named by the signature, or null.
ClassRec* findClass(FourCC sig);
// The class object of the class named by the signature, or 0.
Word ZelkorLookup(FourCC sig);
// Every class made so far, in creation order.
std::vector<ClassRec*> allClasses();
// The selectors a class defines itself (not inherited), in code order.
std::vector<FourCC> ownSelectors(const ClassRec* cls);

// A new zero-filled object of the class (what New answers).
Object* newObject(ClassRec* cls, Word home = 0);

// Convenience for building classes: define on the class, or on its class object's metaclass.
inline void defineClassSelector(ClassRec* cls, FourCC sel, Handler h) { Defn(cls->meta, sel, h); }

}  // namespace zelkor

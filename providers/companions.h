// The provider companions `@PCL`, `@PLK` and `@PCO`: their instance data, the record and name
// helpers they share, and the handlers their build routines define.
//
// Only this folder's files include this header; other classes send selectors (zove/procon.h).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/fundra/tstring.h"
#include "platform/zelkor/zelkor.h"
#include "zove/procon.h"

namespace zove {

using zelkor::ClassRec;
using zelkor::Msg;
using zelkor::Object;

// Instance data of `@PCL`, the three documented words in their order. The store is kept by the
// first Setu; the module DL and the manager by PmSt (and the manager forgotten by its PmEd, so
// that a container object outliving its manager never sends to a disposed object).
struct CollData {
  Word store;
  int32_t moduleDL;
  Word manager;
};

// `@PLK` and `@PCO` keep nothing of their own: the store and module DL are their database part's,
// the manager their modeler part's.
struct PinkData {
  uint8_t unused;
};
struct PcoData {
  uint8_t unused;
};

extern ClassRec* gCollClass;
extern ClassRec* gPinkClass;
extern ClassRec* gPcoClass;

inline CollData* collData(Object* self) { return zelkor::instanceData<CollData>(self, gCollClass); }

// What `@PLK` and `@PCO` ask their parts for: the store and the module DL (database part).
inline Word partStore(Object* self) { return zelkor::send(self, kPGTy); }
inline int32_t partModule(Object* self) { return zelkor::i32(zelkor::send(self, kSdRR)); }

// --- Records (records.cc) -------------------------------------------------------------------
// A record as the companions read and write it: uType, data size and persist tag. The three
// records of zove/procon.h are all this shape: a header, a string id, then abilities (a link type
// record's word at offset 12 is reserved).
struct RecordKind {
  FourCC uType;
  FourCC tag;
  int32_t bytes;
};
constexpr RecordKind kContainerTypeRecord{kContainerTypeType, kContainerTypeTag,
                                          kContainerTypeBytes};
constexpr RecordKind kLinkTypeRecord{kLinkTypeType, kLinkTypeTag, kLinkTypeBytes};
constexpr RecordKind kKeyedRecord{kKeyedContainerType, kKeyedContainerTag, kKeyedContainerBytes};

// The fields of a sound record.
struct RecordFields {
  int32_t id = 0;          // the string id; its low 16 bits are the table
  uint32_t abilities = 0;  // 0 for a link type record
  uint16_t table() const { return uint16_t(id); }
};

// The DL held by a handle under the key in dl, or 0 (no such item, or not a handle).
int32_t handleUnder(Word store, int32_t dl, FourCC key);
// Reads a record: true when rec is a DL of the kind's uType whose data area is the kind's size and
// starts with its header (tag, 256, 256). A record that is not is damaged and read as none.
bool readRecord(Word store, int32_t rec, const RecordKind& kind, RecordFields* out);
// Writes the header, the id and (unless the kind is a link type record) the abilities into rec's
// data area, keeping the reserved bytes. rec must be a DL of the kind's uType and size.
void writeRecord(Word store, int32_t rec, const RecordKind& kind, int32_t id, uint32_t abilities);
// True when rec is a DL of the kind's uType and size, so that writeRecord may write it.
bool writableRecord(Word store, int32_t rec, const RecordKind& kind);
// A new shared DL of the kind (owner as given), its record written.
int32_t makeRecord(Word store, const RecordKind& kind, int32_t owner, int32_t id,
                   uint32_t abilities);

// --- Names (names.cc) -------------------------------------------------------------------------
// The `Name` string of a DL as TSSg reads it: false (and an empty string) when it has none.
bool readName(Word store, int32_t dl, fundra::TString* out);
// The `Name` of every DL of the list, read as TSSg reads them, in the list's order (through the
// store's element space where it can, the store otherwise).
std::vector<fundra::TString> readNames(Word store, const std::vector<int32_t>& dls);
// The elements of dl's list under the key (empty without one).
std::vector<int32_t> listOf(Word store, int32_t dl, FourCC key);

// --- @PCL helpers (containers.cc) --------------------------------------------------------------
// The `@PCL` module DL: the one PmSt took, or the database part's before any PmSt.
int32_t collModule(Object* self);
// The type record of a container type, or 0; with fields, only a sound one.
int32_t collTypeRecord(Object* self, FourCC type, RecordFields* fields);
// The first container of the type record's `PCo#` named name (byte equality), or 0.
int32_t collFindNamed(Object* self, int32_t rec, const fundra::TString& name);
// Whether p shows a child and its type lacks kAbLinkFolder: PAbl's and PFog's condition.
bool collKeepsChildren(Object* self, int32_t p, uint32_t typeAbilities);

// --- Naming (naming.cc) ------------------------------------------------------------------------
// The first free proposal for a new container of the type (DCNm, then DCNN with 1, 2, ...), each
// cut to kProposalLength characters.
fundra::TString collProposeName(Object* self, int32_t rec, const fundra::TString& typeName);
// Asks the user for a name until the answer names no container of the type other than self
// (alerting DCNE for each taken one). Answers kDialogConfirmed with the name in answer, the
// dialog's other answer when cancelled, or 0 when the answer names `self` (that container).
int32_t collAskName(Object* self, int32_t rec, int32_t container, const fundra::TString& typeName,
                    const fundra::TString& prompt, fundra::TString* answer);

// The build routines: the one table from selector to handler of each class.
void CollClassBuild(ClassRec* cls);
void PinkClassBuild(ClassRec* cls);
void PcoClassBuild(ClassRec* cls);

// --- Handlers, by the file that holds them ---------------------------------------------------
#define COMPANION_HANDLER(name) Word name(Object* self, const Msg& m)

// containers.cc: `@PCL`
COMPANION_HANDLER(collSetup);
COMPANION_HANDLER(collSetProvider);
COMPANION_HANDLER(collEndProvider);
COMPANION_HANDLER(collDefineType);
COMPANION_HANDLER(collGetType);
COMPANION_HANDLER(collFindContainer);
COMPANION_HANDLER(collGetAbilities);
COMPANION_HANDLER(collGetName);
COMPANION_HANDLER(collGetSortName);
COMPANION_HANDLER(collGetAble);
COMPANION_HANDLER(collForget);
// naming.cc: `@PCL`
COMPANION_HANDLER(collNewContainer);
COMPANION_HANDLER(collRename);

// links_class.cc: `@PLK`
COMPANION_HANDLER(pinkSetup);
COMPANION_HANDLER(pinkDefineType);
COMPANION_HANDLER(pinkNewLink);
COMPANION_HANDLER(pinkGetAbilities);
COMPANION_HANDLER(pinkGetName);
COMPANION_HANDLER(pinkGetSortName);
COMPANION_HANDLER(pinkGetAble);
COMPANION_HANDLER(pinkForget);

// keyed.cc: `@PCO`
COMPANION_HANDLER(pcoSetup);
COMPANION_HANDLER(pcoMakeContainer);
COMPANION_HANDLER(pcoGetContainer);
COMPANION_HANDLER(pcoGetAbilities);
COMPANION_HANDLER(pcoGetName);
COMPANION_HANDLER(pcoGetSortName);
COMPANION_HANDLER(pcoGetAble);

#undef COMPANION_HANDLER

}  // namespace zove

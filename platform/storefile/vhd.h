// The value-handle base `@vhd` and the host calls that tie a store to its file.
//
// `@vhd` keeps one value persistent for the class derived from it: an element space (the store's
// heap, owned by the base once handed to it) and, when the object is bound to a store file, a
// record file object that keeps larger values (records) beside the space in the same file.
//
// Messages the base answers (words are 32-bit values unless said otherwise):
//   HNew (space or 0, version) -> 0 | kLmNoMemory   adopts the space (frees any earlier one);
//                                                   with 0 makes an empty one itself
//   HGtH (ElementSpace** out)  -> 0 | code          writes the space to *out; a bound object
//                                                   without a space loads it from its file first
//   HReg (class sig), HUrg (class sig) -> 0         (un)registers the handle (registeredHandles)
//   HGtF ()                    -> record file | 0   the record file object; 0 when not bound
//   HSCh (flag)                -> previous flag     marks the value changed (1) or clean (0)
//   HChg ()                    -> 0 | code          saves what changed to the bound file; 0 and
//                                                   no effect when not bound
//   HTsv ()                    -> 0 | code          integrity of the space and of the binding
//   Dspo ()                    -> @roo's answer     drops the binding (unsaved changes are lost),
//                                                   frees the space, then passes
//
// Host calls, in the order a host makes them (docs/storefile.md has the whole picture):
//   new store:      New `@zov`, Setu, HNew (0, version), vhdCreateFile (store, path), TSIn
//   existing store: New `@zov`, Setu, vhdOpenFile (store, path, mode), TSIn
//   save:           HChg to the store (the store collects first, then the base saves)
//   close:          TSCl (or Dspo); vhdCloseFile (store) drops the binding without disposing
// Every call answers 0 or one of the codes below and logs what went wrong at kVhdLogLevel.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/storefile/names.h"
#include "platform/zelkor/object.h"
#include "platform/zelkor/word.h"

namespace storefile {

// Selectors of the base.
constexpr FourCC kHNew = fc("HNew");
constexpr FourCC kHGtH = fc("HGtH");
constexpr FourCC kHReg = fc("HReg");
constexpr FourCC kHUrg = fc("HUrg");
constexpr FourCC kHGtF = fc("HGtF");
constexpr FourCC kHSCh = fc("HSCh");
constexpr FourCC kHChg = fc("HChg");
constexpr FourCC kHTsv = fc("HTsv");

constexpr int kVhdLogLevel = 515;

// Codes of the base, its record file and the store file. All below 0.
enum : int32_t {
  kVhdNoValue = -1110,       // the object holds no element space and has no file to load it from
  kVhdNotVhd = -1111,        // the object is not a value handle (not derived from `@vhd`)
  kVhdBound = -1112,         // the object is bound to a file already
  kVhdNoFile = -1113,        // no such file (open), the file exists already (create), or the
                             // file was moved or deleted since it was opened (save)
  kVhdBusy = -1114,          // another writer, in this process or another, has the file open
  kVhdReadOnly = -1115,      // the file was opened read-only, or this user may not write what
                             // must be written (the journal of a save a crash interrupted)
  kVhdNotStoreFile = -1116,  // the file is not a store file, or of a format this code cannot read
  kVhdDamaged = -1117,       // the file is damaged: a checksum, a count or the database disagrees
  kVhdIoError = -1118,       // reading or writing the file failed (the disk, a full disk, a lock)
  kVhdNoRecord = -1119,      // the record file has no record of that type and id
  kVhdNotAttached = -1120,   // the memory handle is not attached to a record of this file
  kVhdBadArgument = -1121,   // a null handle or pointer, an id not above 0
  kVhdExists = -1122,        // HCrt of a record that exists
  kVhdStale = -1123,         // a reader's view: the file was saved by a writer since its load
};

enum class VhdOpenMode { kReadWrite, kReadOnly };

// Creates a new store file at path and binds the store to it. The store must hold its element
// space already (HNew); the file is written with that space at once, so a file that exists is
// always a loadable store. Refuses an existing path (kVhdNoFile).
int32_t vhdCreateFile(Word store, const std::string& path);
// Binds the store to an existing store file. A read-write open takes the file's writer lock
// (kVhdBusy when another writer holds it); a read-only open takes none and never changes the
// file. The element space is loaded by the store's next HGtH (its install).
int32_t vhdOpenFile(Word store, const std::string& path, VhdOpenMode mode);
// Drops the binding without saving: the record file object is disposed, the lock released. The
// element space stays with the store. Answers 0, or kVhdNotVhd.
int32_t vhdCloseFile(Word store);
// The path the store is bound to, or "" when it is not bound.
std::string vhdFilePath(Word store);
// One line about the binding, for dumps and failure messages: path, mode, what the last save
// left in the file and what is held for the next one.
std::string vhdDescribe(Word store);

// Handles registered with HReg and not yet unregistered, in registration order.
struct RegisteredHandle {
  Word object;
  FourCC cls;
};
std::vector<RegisteredHandle> registeredHandles();

}  // namespace storefile

// The record file: records (values larger than a DL item) kept beside the element space.
//
// A record is named by a type (a FourCC; the store uses `TVhd`) and an id, and holds bytes. Its
// row key in the file is key = type << 32 | id (both taken as unsigned 32-bit values). Callers
// move bytes in and out through value handles: fundra::TMemory blocks that the file attaches to
// one record (HCrt, HRed) until HDet.
//
// Messages of the record file object (class `@vrf`), words are 32-bit values unless said:
//   HUId (type, lowest)            -> id        an id no record ever had, at least `lowest`
//   HCrt (TMemory*, type, id)      -> 0 | code  creates an empty record and attaches the handle
//   HWrt (TMemory*)                -> 0 | code  the record takes the handle's bytes
//   HCmp (TMemory*)                -> 0 | code  as HWrt: every record is kept in one form
//   HRed (type, id, TMemory** out, mode) -> 0 | code
//                                               *out = a new TMemory with the record's bytes,
//                                               attached; the caller owns it (delete). The
//                                               mode word is accepted and has no effect.
//   HDet (TMemory*)                -> 0 | kVhdNotAttached   detaches the handle
//   HRmv (type, id)                -> 0 | kVhdNoRecord      removes the record
//   HSiz (type, id)                -> bytes | kVhdNoRecord
//   HCId (type)                    -> number of records of the type
//   HEId (type, i)                 -> the i-th id of the type, ascending, i from 1; 0 past the end
//
// Transactions: creations, writes and removals are held in memory and reach the file only with
// the next save of the value handle, in the same transaction as the element space, so a reader
// of the file sees records exactly as of the last completed save. Until then the object answers
// as if they had happened.
//
// Invariants (checkRecordFile lists every violation):
//   1. No key is both in `written` and in `removed`.
//   2. Every key in `removed` is in `committed`.
//   3. Every attached handle's key names a record that exists (written, or committed and not
//      removed): removing a record detaches its handles.
//   4. nextId is above every id of every record, committed or written.
//   5. committed sizes equal their entries' sizes; the file's head counts `committed` exactly.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/fundra/memory.h"
#include "platform/storefile/database.h"
#include "platform/storefile/names.h"
#include "platform/zelkor/object.h"

namespace storefile {

constexpr FourCC kRecordFileSig = fc("@vrf");
constexpr FourCC kHUId = fc("HUId");
constexpr FourCC kHCrt = fc("HCrt");
constexpr FourCC kHCmp = fc("HCmp");
constexpr FourCC kHWrt = fc("HWrt");
constexpr FourCC kHRed = fc("HRed");
constexpr FourCC kHDet = fc("HDet");
constexpr FourCC kHRmv = fc("HRmv");
constexpr FourCC kHSiz = fc("HSiz");
constexpr FourCC kHCId = fc("HCId");
constexpr FourCC kHEId = fc("HEId");

inline int64_t recordKey(FourCC type, int32_t id) {
  return int64_t(uint64_t(type) << 32 | uint32_t(id));
}
inline FourCC keyType(int64_t key) { return FourCC(uint64_t(key) >> 32); }
inline int32_t keyId(int64_t key) { return int32_t(uint32_t(uint64_t(key))); }

struct RecordInfo {
  int32_t size;
  uint64_t sum;
};

class RecordFile {
 public:
  RecordFile(StoreDb* db, bool readOnly) : db_(db), readOnly_(readOnly) {}

  // After a load: what the file holds.
  void loaded(std::map<int64_t, RecordInfo> committed, int32_t nextId);

  int32_t uniqueId(FourCC type, int32_t lowest);
  int32_t create(fundra::TMemory* handle, FourCC type, int32_t id);
  int32_t write(fundra::TMemory* handle);
  int32_t read(FourCC type, int32_t id, fundra::TMemory** out);
  int32_t detach(fundra::TMemory* handle);
  int32_t remove(FourCC type, int32_t id);
  int32_t size(FourCC type, int32_t id) const;
  int32_t count(FourCC type);
  int32_t idAt(FourCC type, int32_t i);

  // Saving: writes the held changes into the open transaction and fills the head's record
  // fields; after the transaction commits, saved() makes them the committed state. After a
  // failed save nothing changes here, so the next save writes them again.
  int32_t writeChanges(Head* head) const;
  void saved();
  // After a save whose outcome was not known turned out to have reached the file: `committed`
  // is what the file holds. The held changes are reworked over it so that every record reads
  // as before; the next save writes them.
  void rebase(std::map<int64_t, RecordInfo> committed, int32_t nextId);
  bool hasChanges() const { return !written_.empty() || !removed_.empty(); }
  size_t heldWrites() const { return written_.size(); }
  size_t heldRemovals() const { return removed_.size(); }
  // The records as of the last load or save.
  const std::map<int64_t, RecordInfo>& committed() const { return committed_; }

  std::vector<std::string> check(const Head& head) const;

 private:
  bool exists(int64_t key) const;
  const std::vector<int32_t>& ids(FourCC type);

  StoreDb* db_;
  bool readOnly_;
  std::map<int64_t, RecordInfo> committed_;          // as of the last save
  std::map<int64_t, std::vector<uint8_t>> written_;  // created or written since
  std::set<int64_t> removed_;                        // committed, removed since
  std::unordered_map<fundra::TMemory*, int64_t> attached_;
  int32_t nextId_ = 1;
  FourCC idsType_ = 0;  // ids_ lists the records of this type while idsValid_
  bool idsValid_ = false;
  std::vector<int32_t> ids_;
};

// Makes a record file object for the record file (which stays the caller's); 0 when the class
// does not exist (the framework has not booted).
Word newRecordFileObject(RecordFile* records);

}  // namespace storefile

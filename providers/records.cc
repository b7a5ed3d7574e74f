// The records of the companions: container type records, link type records and keyed containers,
// read and written through the store's selectors. zove/procon.h tables each layout; all three
// start alike:
//
//   offset  width  field      meaning
//   0       8      header     _initpersist: the kind's tag, versions 256, 256
//   8       4      string id  its low 16 bits name the string table
//   12      4      abilities  (reserved, 0, in a link type record)
//   16      8      reserved   container type records and keyed containers only; 0 when made,
//                             never written by themselves
//
// A record whose uType, data size or header is not its kind's is damaged: the readers answer as
// for a missing one, and nothing writes over it unless its uType and size are right (the header
// and fields are what every definition writes anyway), so no stored item is lost to a repair.
#include <cstring>

#include "platform/fundra/persist.h"
#include "providers/companions.h"

namespace zove {

using zelkor::i32;
using zelkor::send;
using zelkor::toWord;

namespace {

constexpr int32_t kMaxRecordBytes = 24;

}  // namespace

int32_t handleUnder(Word store, int32_t dl, FourCC key) {
  if (dl <= 0) return 0;
  int32_t out = 0;
  return send(store, kTSHG, dl, key, &out) == 0 && out > 0 ? out : 0;
}

bool writableRecord(Word store, int32_t rec, const RecordKind& kind) {
  return rec > 0 && zelkor::u32(send(store, kTSDT, rec)) == kind.uType &&
         i32(send(store, kTSSD, rec)) == kind.bytes;
}

bool readRecord(Word store, int32_t rec, const RecordKind& kind, RecordFields* out) {
  *out = RecordFields{};
  if (!writableRecord(store, rec, kind)) return false;
  uint8_t bytes[kMaxRecordBytes] = {};
  send(store, kTSRD, rec, bytes, kind.bytes);
  if (fundra::_checkpersist(bytes, kind.tag, kRecordVersion, kRecordVersion) != 0) return false;
  std::memcpy(&out->id, bytes + kRecordIdOffset, 4);
  if (kind.uType != kLinkTypeType) std::memcpy(&out->abilities, bytes + kRecordAbilitiesOffset, 4);
  return true;
}

void writeRecord(Word store, int32_t rec, const RecordKind& kind, int32_t id, uint32_t abilities) {
  uint8_t bytes[kMaxRecordBytes] = {};
  send(store, kTSRD, rec, bytes, kind.bytes);
  fundra::_initpersist(bytes, kind.tag, kRecordVersion, kRecordVersion);
  std::memcpy(bytes + kRecordIdOffset, &id, 4);
  if (kind.uType != kLinkTypeType) std::memcpy(bytes + kRecordAbilitiesOffset, &abilities, 4);
  send(store, kTSWD, rec, bytes, kind.bytes);
}

int32_t makeRecord(Word store, const RecordKind& kind, int32_t owner, int32_t id,
                   uint32_t abilities) {
  int32_t rec = i32(send(store, kTSDN, toWord(kind.uType), kind.bytes, owner));
  if (rec <= 0) return 0;
  send(store, kTSSS, rec);
  writeRecord(store, rec, kind, id, abilities);
  return rec;
}

}  // namespace zove

// The exchange stream, as other modules and tools read and write it (TSEx, TSIm).
//
// Stream layout (every word 32-bit little-endian):
//
//   offset  width  field    meaning
//   0       8      header   persist header: tag `TEx.` (0x5445782e), versions 256, 256
//   8       rest   records  in the order of a depth-first walk from the exported DL
//
// Each record is a byte count n (4 bytes) and then n bytes, of one of three kinds:
//
//   DL record    the DL's element bytes (header, data area, items; include/zove/dl.h) with the
//                owner word set to 0; a blob item's ref is the blob record's index; a handle's,
//                part link's and weak handle's ref is the target's index; a list or weak-list
//                item keeps the ref it had in the store (import does not read it)
//   blob record  the blob's bytes
//   list record  the list's elements, each replaced by the index of the DL it names
//
// DL and blob records are numbered from 1 in stream order (the exported DL is 1); list records
// take no index. After a DL record come, for each of its items in item order: the blob's record
// (blob item); the list's record and then, in list order, the records of listed DLs not written
// before (list and weak-list items); the target's record if it was not written before (handle,
// part link, weak handle). Immediate values have no record. Every DL has exactly one record; a
// later reference uses its index.
//
// Example: a DL without data holding one 4-byte blob is 52 bytes: the header, 32 and the DL's
// 32 bytes (owner 0, the item's ref 2), then 4 and the blob's 4 bytes.
//
// Import answers kBadStream for any stream this exporter cannot have written: a count that
// reaches past the end, bytes after the last record, a DL record too short for its header or
// items, a uType or key outside 32..126, keys not strictly ascending, flag or reserved bits set,
// a non-zero owner, an item kind other than blob, handle, part link, list, weak list, weak
// handle and immediate value, a list record that is not whole words, or an index that names a
// blob, names nothing yet and is not the next record's, or is below 1. A refused stream changes
// nothing in the store.
#pragma once

#include <cstdint>

#include "platform/zelkor/word.h"

namespace zove {

constexpr uint32_t kExchangeTag = zelkor::fc("TEx.");
constexpr int32_t kExchangeVersion = 256;

}  // namespace zove

// The byte layouts inside a store file: the head row and the element segments.
//
// A store file is an SQLite database (application_id 0x5A4F5645 "ZOVE", user_version kFormat,
// pages of 16 KiB: database.cc) with three tables, every column NOT NULL:
//   head (k INTEGER PRIMARY KEY, body BLOB)      one row, k = 1: the layout below
//   seg  (id INTEGER PRIMARY KEY, body BLOB)     elements id*64 .. id*64+63, layout below
//   rec  (key INTEGER PRIMARY KEY, size INTEGER, sum INTEGER, body BLOB)
//                                                one record: key = type << 32 | id, both taken
//                                                as unsigned 32-bit values (recfile.h); size is
//                                                the body's byte count
// Every integer inside a body is little-endian. How the file is saved, loaded and checked:
// docs/storefile.md.
//
// Head body, 64 bytes:
//   offset width field          meaning
//   0      4     magic          "ZSFH"
//   4      4     format         kFormat (1); a file of another format is refused
//   8      4     version        the value version given to HNew when the file was made
//   12     4     segment shift  numbers per segment = 1 << shift (6); another shift is refused
//   16     8     saves          completed saves, the creating one included
//   24     4     live count     live elements saved
//   28     4     next id        the lowest record id not yet handed out
//   32     8     seg digest     sum over seg rows of segmentDigest(id, check), mod 2^64
//                               (the checksum of the row's id and its body's check, 8 bytes each)
//   40     4     record count   rows of rec
//   44     4     segment count  rows of seg
//   48     8     record digest  sum over rec rows of recordDigest(key, size, sum), mod 2^64
//                               (the checksum of the three, 8 bytes each)
//   56     8     check          checksum of bytes 0..55
//
// Segment body, for segment id s holding c live elements (c >= 1; an empty segment has no row):
//   offset   width   field     meaning
//   0        4       id        s, equal to the row id
//   4        4       count     c, 1 to 64
//   8        8 * c   entries   per element, numbers ascending: number (4), size (4);
//                              every number n has s * 64 <= n < s * 64 + 64
//   8 + 8c   sizes   bytes     the elements' bytes, concatenated in entry order
//   end - 8  8       check     checksum of every byte before it
//
// A record row's sum is the checksum of its body. The digests make the head vouch for the set of
// rows: a row lost, added, or left over from an older save changes them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/fundra/space.h"
#include "platform/storefile/names.h"

namespace storefile {

constexpr uint32_t kHeadMagic = 0x4846535A;  // "ZSFH" as little-endian bytes
constexpr uint32_t kFormat = 1;
constexpr int kSegmentShift = 6;
constexpr int32_t kHeadBytes = 64;

struct Head {
  uint32_t format = kFormat;
  int32_t version = 0;
  uint64_t saves = 0;
  int32_t liveCount = 0;
  int32_t nextId = 1;
  uint64_t segmentDigest = 0;
  int32_t segmentCount = 0;
  int32_t recordCount = 0;
  uint64_t recordDigest = 0;
};

// The file's checksum: 64 bits, four independent lanes of 8 bytes for speed. Any change of one
// aligned 8-byte word of input changes it (every step is a bijection of the lane it touches).
// Fixed for good: files carry its values.
uint64_t checksum(const void* bytes, size_t size);

std::vector<uint8_t> encodeHead(const Head& h);
// Answers 0, or kVhdNotStoreFile / kVhdDamaged with the reason in *why.
int32_t decodeHead(const uint8_t* body, size_t size, Head* h, std::string* why);

inline int32_t segmentOf(int32_t number) { return number >> kSegmentShift; }

// Writes segment s of the space into out (cleared first) and answers its check; leaves out empty
// and answers 0 when the segment holds no live element.
uint64_t encodeSegment(const fundra::ElementSpace& space, int32_t s, std::vector<uint8_t>* out);
// A segment body taken apart: its check, its elements (numbers ascending) and their bytes, which
// lie back to back from `bytes` (inside the body).
struct SegmentParts {
  uint64_t check = 0;
  int32_t count = 0;
  fundra::LmPart parts[1 << kSegmentShift];
  const uint8_t* bytes = nullptr;
  size_t byteCount = 0;
};
// Checks a segment body (its check, its id, its entries against its bytes) and takes it apart.
// Answers 0, or kVhdDamaged with the reason in *why.
int32_t checkSegment(int64_t rowId, const uint8_t* body, size_t size, SegmentParts* out,
                     std::string* why);

// A record's name as people read it: its type and id, "TVhd/1000".
std::string recordName(int64_t key);

// What one seg row and one rec row add to the head's digests.
uint64_t segmentDigest(int64_t id, uint64_t check);
uint64_t recordDigest(int64_t key, int64_t size, uint64_t sum);

}  // namespace storefile

// The byte layouts inside a store file: the head row and the element segments.
//
// A store file is an SQLite database with three tables (docs/store-file.md):
//   head (k INTEGER PRIMARY KEY, body BLOB)      one row, k = 1: the layout below
//   seg  (id INTEGER PRIMARY KEY, body BLOB)     elements id*64 .. id*64+63, layout below
//   rec  (key INTEGER PRIMARY KEY, size INTEGER, sum INTEGER, body BLOB)
//                                                one record: key = type << 32 | id (see recfile.h)
// Every integer inside a body is little-endian.
//
// Head body, 64 bytes:
//   offset width field          meaning
//   0      4     magic          "ZSFH"
//   4      4     format         kFormat; a file of another format is refused
//   8      4     version        the value version given to HNew when the file was made
//   12     4     segment shift  numbers per segment = 1 << shift (6)
//   16     8     saves          completed saves, the creating one included
//   24     4     live count     live elements saved
//   28     4     next id        the lowest record id not yet handed out
//   32     8     space sum      ElementSpace::LmSpaceSum of the saved space
//   40     4     record count   rows of rec
//   44     4     reserved       0
//   48     8     record digest  sum over rec rows of recordDigest(key, size, sum), mod 2^64
//   56     8     check          LmSum of bytes 0..55
//
// Segment body, for segment id s holding c live elements (c >= 1; an empty segment has no row):
//   offset    width   field      meaning
//   0         4       id         s, equal to the row id
//   4         4       count      c
//   8         8 * c   entries    per element, ascending: number (4), size (4); s*64 <= number <
//   s*64+64 8 + 8c    sizes   bytes      the elements' bytes, concatenated in entry order end - 8
//   8       check      LmSum of every byte before it
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/fundra/space.h"

namespace zelkor::storefile {

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
  uint64_t spaceSum = 0;
  int32_t recordCount = 0;
  uint64_t recordDigest = 0;
};

std::vector<uint8_t> encodeHead(const Head& h);
// Answers 0, or kVhdNotStoreFile / kVhdDamaged with the reason in *why.
int32_t decodeHead(const uint8_t* body, size_t size, Head* h, std::string* why);

inline int32_t segmentOf(int32_t number) { return number >> kSegmentShift; }

// Appends segment s of the space to out (cleared first); leaves it empty when the segment holds
// no live element.
void encodeSegment(const fundra::ElementSpace& space, int32_t s, std::vector<uint8_t>* out);
// Loads every element of a segment body into the space (LmLoad). Answers 0, or kVhdDamaged with
// the reason in *why.
int32_t loadSegment(int64_t rowId, const uint8_t* body, size_t size, fundra::ElementSpace* space,
                    std::string* why);

// What one record row adds to the head's record digest.
uint64_t recordDigest(int64_t key, int64_t size, uint64_t sum);

}  // namespace zelkor::storefile

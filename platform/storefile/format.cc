// Encoding and decoding of the head row and of element segments (layouts in format.h).
#include "platform/storefile/format.h"

#include <cstdio>
#include <cstring>

#include "platform/storefile/vhd.h"

namespace storefile {

using namespace zelkor;

namespace {

void put32(uint8_t* at, uint32_t v) {
  for (int i = 0; i < 4; ++i) at[i] = uint8_t(v >> (8 * i));
}
void put64(uint8_t* at, uint64_t v) {
  for (int i = 0; i < 8; ++i) at[i] = uint8_t(v >> (8 * i));
}
uint32_t get32(const uint8_t* at) {
  uint32_t v = 0;
  for (int i = 3; i >= 0; --i) v = v << 8 | at[i];
  return v;
}
uint64_t get64(const uint8_t* at) { return uint64_t(get32(at + 4)) << 32 | get32(at); }

constexpr uint64_t kP1 = 0x9E3779B185EBCA87ull;
constexpr uint64_t kP2 = 0xC2B2AE3D27D4EB4Full;
constexpr uint64_t kP3 = 0x165667B19E3779F9ull;
constexpr uint64_t kP4 = 0x85EBCA77C2B2AE63ull;

uint64_t rotl(uint64_t x, int r) { return x << r | x >> (64 - r); }
uint64_t word(const uint8_t* p) {
  uint64_t w;
  std::memcpy(&w, p, 8);
  return w;  // the host is little-endian, as every layout of the file
}
uint64_t lane(uint64_t acc, uint64_t w) { return rotl(acc + w * kP2, 31) * kP1; }

}  // namespace

uint64_t checksum(const void* bytes, size_t size) {
  const auto* p = static_cast<const uint8_t*>(bytes);
  uint64_t a = kP1 + kP2, b = kP2, c = 0, d = 0 - kP1;
  size_t i = 0;
  for (; i + 32 <= size; i += 32) {
    a = lane(a, word(p + i));
    b = lane(b, word(p + i + 8));
    c = lane(c, word(p + i + 16));
    d = lane(d, word(p + i + 24));
  }
  uint64_t h = rotl(a, 1) + rotl(b, 7) + rotl(c, 12) + rotl(d, 18) + uint64_t(size) * kP3;
  for (; i + 8 <= size; i += 8) h = rotl(h ^ lane(0, word(p + i)), 27) * kP1 + kP4;
  if (i < size) {
    uint8_t tail[8] = {};
    std::memcpy(tail, p + i, size - i);
    h = rotl(h ^ lane(0, word(tail)), 27) * kP1 + kP4;
  }
  h ^= h >> 33;
  h *= kP2;
  h ^= h >> 29;
  h *= kP3;
  return h ^ (h >> 32);
}

std::vector<uint8_t> encodeHead(const Head& h) {
  std::vector<uint8_t> b(kHeadBytes, 0);
  put32(&b[0], kHeadMagic);
  put32(&b[4], h.format);
  put32(&b[8], uint32_t(h.version));
  put32(&b[12], kSegmentShift);
  put64(&b[16], h.saves);
  put32(&b[24], uint32_t(h.liveCount));
  put32(&b[28], uint32_t(h.nextId));
  put64(&b[32], h.segmentDigest);
  put32(&b[40], uint32_t(h.recordCount));
  put32(&b[44], uint32_t(h.segmentCount));
  put64(&b[48], h.recordDigest);
  put64(&b[56], checksum(b.data(), 56));
  return b;
}

int32_t decodeHead(const uint8_t* body, size_t size, Head* h, std::string* why) {
  if (size != size_t(kHeadBytes) || get32(body) != kHeadMagic) {
    *why = "no store head";
    return size >= 4 && get32(body) == kHeadMagic ? kVhdDamaged : kVhdNotStoreFile;
  }
  if (get64(body + 56) != checksum(body, 56)) {
    *why = "store head checksum differs";
    return kVhdDamaged;
  }
  h->format = get32(body + 4);
  if (h->format != kFormat || get32(body + 12) != uint32_t(kSegmentShift)) {
    *why = "store format " + std::to_string(h->format) + " is not readable here";
    return kVhdNotStoreFile;
  }
  h->version = int32_t(get32(body + 8));
  h->saves = get64(body + 16);
  h->liveCount = int32_t(get32(body + 24));
  h->nextId = int32_t(get32(body + 28));
  h->segmentDigest = get64(body + 32);
  h->recordCount = int32_t(get32(body + 40));
  h->segmentCount = int32_t(get32(body + 44));
  h->recordDigest = get64(body + 48);
  if (h->liveCount < 0 || h->recordCount < 0 || h->segmentCount < 0) {
    *why = "store head counts are negative";
    return kVhdDamaged;
  }
  return 0;
}

uint64_t encodeSegment(const fundra::ElementSpace& space, int32_t s, std::vector<uint8_t>* out) {
  out->clear();
  int32_t first = s << kSegmentShift;
  int32_t last = first + (1 << kSegmentShift) - 1;
  if (last > space.LmCount()) last = space.LmCount();
  int32_t count = 0;
  size_t bytes = 0;
  for (int32_t n = first < 1 ? 1 : first; n <= last; ++n) {
    int32_t size = space.LmSize(n);
    if (size < 0) continue;
    ++count;
    bytes += size_t(size);
  }
  if (!count) return 0;
  out->resize(8 + 8 * size_t(count) + bytes + 8);
  uint8_t* b = out->data();
  put32(b, uint32_t(s));
  put32(b + 4, uint32_t(count));
  uint8_t* entry = b + 8;
  uint8_t* data = entry + 8 * size_t(count);
  for (int32_t n = first < 1 ? 1 : first; n <= last; ++n) {
    int32_t size = space.LmSize(n);
    if (size < 0) continue;
    put32(entry, uint32_t(n));
    put32(entry + 4, uint32_t(size));
    entry += 8;
    if (size) std::memcpy(data, space.LmGet(n), size_t(size));
    data += size;
  }
  uint64_t check = checksum(b, size_t(data - b));
  put64(data, check);
  return check;
}

int32_t checkSegment(int64_t rowId, const uint8_t* body, size_t size, SegmentParts* out,
                     std::string* why) {
  auto damaged = [&](const std::string& what) {
    *why = "segment " + std::to_string(rowId) + ": " + what;
    return kVhdDamaged;
  };
  if (size < 16 || size > size_t(INT32_MAX)) return damaged("bad size");
  out->check = get64(body + size - 8);
  if (out->check != checksum(body, size - 8)) return damaged("checksum differs");
  uint32_t count = get32(body + 4);
  if (int64_t(get32(body)) != rowId) return damaged("names another segment");
  if (count == 0 || count > (1u << kSegmentShift) || 8 + 8 * size_t(count) + 8 > size)
    return damaged("bad element count");
  const uint8_t* entry = body + 8;
  out->bytes = entry + 8 * size_t(count);
  out->byteCount = size_t(body + size - 8 - out->bytes);
  int64_t first = rowId << kSegmentShift;
  int64_t previous = first - 1;
  size_t left = out->byteCount;
  for (uint32_t i = 0; i < count; ++i, entry += 8) {
    int64_t n = get32(entry);
    uint32_t bytes = get32(entry + 4);
    if (n <= previous || n >= first + (1 << kSegmentShift) || n < 1)
      return damaged("element number out of order");
    if (bytes > left) return damaged("element runs past the segment");
    out->parts[i] = fundra::LmPart{int32_t(n), int32_t(bytes)};
    left -= bytes;
    previous = n;
  }
  if (left != 0) return damaged("stray bytes after the elements");
  out->count = int32_t(count);
  return 0;
}

uint64_t segmentDigest(int64_t id, uint64_t check) {
  uint8_t b[16];
  put64(b, uint64_t(id));
  put64(b + 8, check);
  return checksum(b, 16);
}

uint64_t recordDigest(int64_t key, int64_t size, uint64_t sum) {
  uint8_t b[24];
  put64(b, uint64_t(key));
  put64(b + 8, uint64_t(size));
  put64(b + 16, sum);
  return checksum(b, 24);
}

std::string recordName(int64_t key) {
  uint32_t type = uint32_t(uint64_t(key) >> 32);
  bool printable = true;
  for (int i = 0; i < 4; ++i) {
    uint8_t c = uint8_t(type >> (8 * i));
    printable = printable && c >= 32 && c <= 126;
  }
  char hex[16];
  std::snprintf(hex, sizeof hex, "0x%08x", type);
  return (printable ? zelkor::fcString(type) : std::string(hex)) + "/" +
         std::to_string(int32_t(uint32_t(uint64_t(key))));
}

}  // namespace storefile

// Persist headers and resource words.
//
// A persist header is the 8 bytes at the head of a stored record:
//   offset  width  field     meaning
//   0       4      tag       FourCC of the record kind, 32-bit little-endian
//   4       2      version   version of the writer, 16-bit little-endian
//   6       2      oldest    oldest version that can read the record, 16-bit little-endian
// The system writes 256, 256.
//
// Resources (templates read with RMGetRawResource) are big-endian: SwapSint32/SwapUint32 turn a
// word read from one into host order (and back: the swap is its own inverse).
#pragma once

#include <bit>
#include <cstdint>

namespace fundra {

constexpr int32_t kPersistBytes = 8;
constexpr int32_t kPersistBadTag = -1511;      // _checkpersist: another kind of record
constexpr int32_t kPersistBadVersion = -1512;  // _checkpersist: same kind, other versions

void _initpersist(void* header, uint32_t tag, int32_t version, int32_t oldest);
// 0 when the header holds exactly tag, version and oldest; else one of the codes above.
int32_t _checkpersist(const void* header, uint32_t tag, int32_t version, int32_t oldest);

constexpr uint32_t SwapUint32(uint32_t resourceWord) {
  if constexpr (std::endian::native == std::endian::big) return resourceWord;
  return __builtin_bswap32(resourceWord);
}
constexpr int32_t SwapSint32(int32_t resourceWord) {
  return int32_t(SwapUint32(uint32_t(resourceWord)));
}

}  // namespace fundra

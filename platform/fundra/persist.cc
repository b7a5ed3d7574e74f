#include "platform/fundra/persist.h"

#include <cstring>

namespace fundra {

namespace {

void Put(uint8_t* at, uint32_t v, int bytes) {
  for (int i = 0; i < bytes; ++i) at[i] = uint8_t(v >> (8 * i));
}

uint32_t Get(const uint8_t* at, int bytes) {
  uint32_t v = 0;
  for (int i = 0; i < bytes; ++i) v |= uint32_t(at[i]) << (8 * i);
  return v;
}

}  // namespace

void _initpersist(void* header, uint32_t tag, int32_t version, int32_t oldest) {
  uint8_t* h = static_cast<uint8_t*>(header);
  Put(h, tag, 4);
  Put(h + 4, uint32_t(version) & 0xFFFF, 2);
  Put(h + 6, uint32_t(oldest) & 0xFFFF, 2);
}

int32_t _checkpersist(const void* header, uint32_t tag, int32_t version, int32_t oldest) {
  const uint8_t* h = static_cast<const uint8_t*>(header);
  if (Get(h, 4) != tag) return kPersistBadTag;
  if (Get(h + 4, 2) != (uint32_t(version) & 0xFFFF) || Get(h + 6, 2) != (uint32_t(oldest) & 0xFFFF))
    return kPersistBadVersion;
  return 0;
}

}  // namespace fundra

// A cache-line prefetch the optimiser keeps.
//
// GCC 12 deletes __builtin_prefetch calls whose address depends on an index tested against 0
// (the range guards every element-space lookup has), so the walks that rely on prefetching
// issue the instruction themselves. A prefetch never faults, whatever the address.
#pragma once

namespace fundra {

inline void Prefetch(const void* p) {
#if defined(__x86_64__) || defined(__i386__)
  asm volatile("prefetcht0 (%0)" : : "r"(p));
#else
  __builtin_prefetch(p);
#endif
}

}  // namespace fundra

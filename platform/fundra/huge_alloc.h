// Big tables and chunks on huge pages.
//
// The element space's number table and chunks are read at random by every marking walk; with
// 4 KiB pages nearly every read of a large space also misses the TLB. Blocks of 2 MiB or more
// are therefore aligned to 2 MiB and offered to the kernel for transparent huge pages (a hint:
// where the kernel declines, they are ordinary memory).
#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>

namespace fundra {

constexpr size_t kHugePage = size_t(2) << 20;

// A block of `bytes` (huge-page backed when big enough), or nullptr. Free it with std::free.
void* HugeAlloc(size_t bytes);

template <class T>
struct HugeAllocator {
  using value_type = T;
  HugeAllocator() = default;
  template <class U>
  HugeAllocator(const HugeAllocator<U>&) {}
  T* allocate(size_t n) {
    void* p = HugeAlloc(n * sizeof(T));
    if (!p) throw std::bad_alloc();
    return static_cast<T*>(p);
  }
  void deallocate(T* p, size_t) { std::free(p); }
  template <class U>
  bool operator==(const HugeAllocator<U>&) const {
    return true;
  }
};

}  // namespace fundra

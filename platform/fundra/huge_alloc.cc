#include "platform/fundra/huge_alloc.h"

#include <sys/mman.h>

namespace fundra {

void* HugeAlloc(size_t bytes) {
  if (bytes < kHugePage) return std::malloc(bytes == 0 ? 1 : bytes);
  void* p = nullptr;
  if (posix_memalign(&p, kHugePage, bytes) != 0) return nullptr;
  madvise(p, bytes & ~(kHugePage - 1), MADV_HUGEPAGE);
  return p;
}

}  // namespace fundra

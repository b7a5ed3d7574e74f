// Rebuilds an element space from arbitrary (number, bytes) pairs, as a damaged store file would
// deliver them, then validates, repairs and works the space. Nothing may crash, and the checker
// may only ever complain about the load itself (invariant 9): the space's own bookkeeping must
// stay sound whatever arrived.
//
// Input:
//   byte 0      bit 0: seal with what actually arrived (else with the words that follow)
//   bytes 1..4  live count for the seal      bytes 5..12  space sum for the seal
//   then records until the input ends:
//     1 byte    bit 0: a sum follows; bit 1: the number is 4 bytes (else 2); bit 2: the pair
//               joins a run that goes to LmLoadMany when a pair without the bit (or the end)
//               comes
//     2 or 4    number (little-endian; 4-byte numbers between 65536 and the largest number
//               are skipped so that one input cannot ask for a table of millions of slots)
//     2         size (the bytes present if fewer remain)
//     8         sum, when flagged
//     size      bytes
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "platform/fundra/space.h"

using namespace fundra;

namespace {

struct Reader {
  const uint8_t* p;
  size_t left;
  template <class T>
  bool Take(T* v) {
    if (left < sizeof(T)) return false;
    std::memcpy(v, p, sizeof(T));
    p += sizeof(T);
    left -= sizeof(T);
    return true;
  }
};

void Expect(bool ok) {
  if (!ok) __builtin_trap();
}

// Every finding names invariant 9 (the load), or there are none.
void OnlyLoadFaults(const ElementSpace& s) {
  for (const std::string& line : s.LmCheck())
    Expect(line.rfind("invariant 9:", 0) == 0 || line.rfind("... and", 0) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Reader in{data, size};
  uint8_t mode = 0;
  int32_t sealCount = 0;
  uint64_t sealSum = 0;
  in.Take(&mode);
  in.Take(&sealCount);
  in.Take(&sealSum);

  ElementSpace s(64, kLmScrub);
  std::vector<LmPart> run;
  std::vector<uint8_t> runBytes;
  auto flush = [&] {
    int32_t refused = -1;
    int32_t r = s.LmLoadMany(run.data(), int32_t(run.size()), runBytes.data(), &refused);
    Expect(r <= 0 && (r == 0 || (refused >= 0 && size_t(refused) < run.size())));
    run.clear();
    runBytes.clear();
  };
  uint8_t flags;
  while (in.Take(&flags)) {
    int32_t n = 0;
    if (flags & 2) {
      if (!in.Take(&n)) break;
      if (n > 65535 && n <= kLmMaxNumber) continue;
    } else {
      uint16_t small;
      if (!in.Take(&small)) break;
      n = small;
    }
    uint16_t len = 0;
    uint64_t sum = 0;
    if (!in.Take(&len)) break;
    if ((flags & 1) && !in.Take(&sum)) break;
    int32_t have = int32_t(std::min<size_t>(len, in.left));
    if (flags & 4) {
      run.push_back(LmPart{n, have});
      runBytes.insert(runBytes.end(), in.p, in.p + have);
    } else {
      if (!run.empty()) flush();
      int32_t r = (flags & 1) ? s.LmLoad(n, in.p, have, sum) : s.LmLoad(n, in.p, have);
      Expect(r <= 0);
    }
    in.p += have;
    in.left -= size_t(have);
  }
  if (!run.empty()) flush();
  if (mode & 1)
    Expect(s.LmLoadSeal(s.LmLiveCount(), s.LmSpaceSum()) == 0);
  else
    s.LmLoadSeal(sealCount, sealSum);

  bool faulted = !s.LmLoadFaults().empty();
  Expect((s.LmValid() == 0) == !faulted);
  OnlyLoadFaults(s);
  Expect((s.LmRepair() == 0) == !faulted);
  (void)s.LmDump(8);

  // Work the rebuilt space: every live element is readable whole, and the moving operations
  // keep the bookkeeping sound.
  uint64_t seen = 0;
  for (int32_t n = s.LmNext(0); n; n = s.LmNext(n)) {
    const uint8_t* at = s.LmGet(n);
    int32_t bytes = s.LmSize(n);
    Expect(at != nullptr && bytes >= 0);
    if (bytes > 0) seen += at[bytes - 1];
    if (n % 3 == 0) s.LmMark(n);
  }
  (void)seen;
  s.LmDupeAssert(s.LmNext(0));
  s.LmSetAssert(s.LmCount() > 0 ? s.LmCount() : 1, 700);
  s.LmSwap(s.LmNext(0), s.LmCount());
  s.LmCollect();
  Expect(s.LmCompress() == 0);
  LmDelta d = s.LmChanges();
  s.LmHandedOver();
  (void)d;
  OnlyLoadFaults(s);
  return 0;
}

// Element space hand-over: what changed since the persistence layer last took the content, and
// rebuilding a space from what it kept.
//
// A 64-bit sum of each element's bytes is kept per number at each hand-over. The next LmChanges
// sums only the numbers touched since then (the space's own operations touch what they change;
// callers touch what they write through addresses) and compares. A save after a few changes so
// costs in proportion to the changes, not to the space. Checked builds (ZOVE_CHECKED) also
// compare every untouched number and stop on a change nobody touched: such a write would be
// lost to the file.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/fundra/space.h"

namespace fundra {

namespace {

constexpr uint64_t kK1 = 0x9E3779B97F4A7C15ull;
constexpr uint64_t kK2 = 0xC2B2AE3D27D4EB4Full;
constexpr uint64_t kK3 = 0x165667B19E3779F9ull;

uint64_t Mix(uint64_t h) {
  h ^= h >> 33;
  h *= 0xFF51AFD7ED558CCDull;
  h ^= h >> 33;
  h *= 0xC4CEB9FE1A85EC53ull;
  return h ^ (h >> 33);
}

// What an element handed over without its sum (a new element saved, or one loaded) has instead
// of a sum: its next touch counts as a change and takes its sum.
constexpr uint64_t kUnsummed = 1;

// What a number keeps at a hand-over: the sum, never 0 (not handed over) nor kUnsummed.
uint64_t Kept(uint64_t sum) { return sum > kUnsummed ? sum : sum + 2; }

}  // namespace

uint64_t ElementSpace::LmSum(const void* bytes, int32_t size) {
  const uint8_t* p = static_cast<const uint8_t*>(bytes);
  uint64_t h = kK1 ^ (uint64_t(uint32_t(size)) * kK2);
  size_t n = size > 0 ? size_t(size) : 0;
  size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    uint64_t w;
    std::memcpy(&w, p + i, 8);
    h = (h ^ (w * kK2)) * kK1;
    h ^= h >> 29;
  }
  // The tail has a multiplier of its own: with the size's, a tail word equal to the size would
  // cancel it (4 bytes holding 4 summed like 0 bytes).
  uint64_t tail = 0;
  if (i < n) std::memcpy(&tail, p + i, n - i);
  h = (h ^ (tail * kK3)) * kK1;
  return Mix(h + n);
}

uint64_t ElementSpace::LmSumOf(int32_t n) const {
  if (Reach(n) != 0) return 0;
  return LmSum(slots_[size_t(n)].at, slots_[size_t(n)].size);
}

uint64_t ElementSpace::LmSpaceSum() const {
  uint64_t total = 0;
  for (size_t n = 1; n < slots_.size(); ++n)
    if (slots_[n].at) total += Mix(uint64_t(n) * kK1 ^ LmSum(slots_[n].at, slots_[n].size));
  return total;
}

void ElementSpace::TouchLog::Add(int32_t n) {
  if (Has(size_t(n))) return;
  size_t w = size_t(n) >> 6;
  try {
    if (w >= bits.size()) bits.resize(std::max(w + 1, 2 * bits.size()), 0);
  } catch (const std::bad_alloc&) {
    all = true;  // the record is incomplete: its reader must take every number as touched
    return;
  }
  bits[w] |= uint64_t(1) << (n & 63);
  if (dense) return;
  if (list.size() < std::max(bits.size() * perWord, floor)) {
    try {
      list.push_back(n);
      return;
    } catch (const std::bad_alloc&) {
    }
  }
  dense = true;
  std::vector<int32_t>().swap(list);
}

void ElementSpace::TouchLog::Clear() {
  if (dense)
    std::fill(bits.begin(), bits.end(), 0);
  else
    for (int32_t n : list) bits[size_t(n) >> 6] = 0;
  list.clear();
  dense = false;
  all = false;
}

void ElementSpace::TouchSlow(int32_t n) {
  if (n <= 0 || n > kLmMaxNumber) return;
  touched_.Add(n);
  since_.Add(n);
}

void ElementSpace::LmSinceReset() {
  since_.Clear();
  sinceFreed_ = 0;
}

bool ElementSpace::LmSinceTouched(std::vector<int32_t>* out) const {
  out->clear();
  if (since_.all || since_.dense) return false;
  try {
    out->assign(since_.list.begin(), since_.list.end());
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

// Calls visit(n) for every touched number, ascending: from the bits when they are dense, else
// from the sorted list.
template <typename Visit>
void ElementSpace::ForTouched(Visit visit) {
  if (touched_.all) {
    size_t end = std::max({handed_.end(), slots_.size(), unsummed_.size() * 64});
    for (size_t n = 1; n < end; ++n) visit(n);
  } else if (touched_.dense) {
    for (size_t w = 0; w < touched_.bits.size(); ++w)
      for (uint64_t bits = touched_.bits[w]; bits; bits &= bits - 1)
        visit(w * 64 + size_t(__builtin_ctzll(bits)));
  } else {
    std::sort(touched_.list.begin(), touched_.list.end());
    for (int32_t n : touched_.list) visit(size_t(n));
  }
}

LmDelta ElementSpace::LmChanges() {
  LmDelta d;
  pendingMarks_.clear();
  pendingSums_.clear();
  // Most touched numbers of a big hand-over are new: room for all of them up front saves the
  // copies and fresh pages of growing one by one.
  if (touched_.dense && !touched_.all) {
    size_t touched = 0;
    for (uint64_t bits : touched_.bits) touched += size_t(__builtin_popcountll(bits));
    d.added.reserve(touched);
    pendingMarks_.reserve(touched);
  }
  ForTouched([&](size_t n) {
    uint64_t was = HandedOf(n);
    bool live = n < slots_.size() && slots_[n].at;
    if (!live) {
      if (was) {
        d.removed.push_back(int32_t(n));
        pendingMarks_.push_back(-int32_t(n));
      }
    } else if (!was) {
      // A new element is saved whatever its bytes, so its sum waits until it is touched again.
      d.added.push_back(int32_t(n));
      pendingMarks_.push_back(int32_t(n));
    } else if (uint64_t now = Kept(LmSum(slots_[n].at, slots_[n].size)); now != was) {
      d.changed.push_back(int32_t(n));  // always so for an element handed over unsummed
      pendingSums_.push_back({int32_t(n), now});
    }
  });
  pendingValid_ = true;
#ifdef ZOVE_CHECKED
  AuditUntouched();
#endif
  return d;
}

#ifdef ZOVE_CHECKED
void ElementSpace::AuditUntouched() const {
  if (touched_.all) return;
  size_t end = std::max({handed_.end(), slots_.size(), unsummed_.size() * 64});
  for (size_t n = 1; n < end; ++n) {
    if (touched_.Has(n)) continue;
    uint64_t was = HandedOf(n);
    if (was == kUnsummed && n < auditSums_.size()) was = auditSums_[n];
    bool live = n < slots_.size() && slots_[n].at;
    uint64_t now = live ? Kept(LmSum(slots_[n].at, slots_[n].size)) : 0;
    if (was != now) {
      std::fprintf(stderr, "element space: element %zu changed and nobody touched it\n", n);
      std::abort();
    }
  }
}

// The sums a load or a hand-over does not take, kept aside so that the audit sees every element.
void ElementSpace::AuditSum(int32_t n, uint64_t sum) {
  if (auditSums_.size() <= size_t(n)) auditSums_.resize(size_t(n) + 1, 0);
  auditSums_[size_t(n)] = Kept(sum);
}
#endif

void ElementSpace::LmHandedOver() {
  if (!pendingValid_) LmChanges();
  for (int32_t m : pendingMarks_) {
    size_t n = size_t(m < 0 ? -m : m);
    SetHanded(n, m < 0 ? 0 : kUnsummed);
#ifdef ZOVE_CHECKED
    if (m > 0) AuditSum(m, LmSumOf(m));
#endif
  }
  for (const auto& [n, sum] : pendingSums_) SetHanded(size_t(n), sum);
  // Numbers above the table were handed over as removed: nothing to remember for them.
  handed_.Trim(slots_.size());
  if (unsummed_.size() > slots_.size() / 64 + 1) unsummed_.resize(slots_.size() / 64 + 1);
  std::vector<int32_t>().swap(pendingMarks_);
  std::vector<std::pair<int32_t, uint64_t>>().swap(pendingSums_);
  pendingValid_ = false;
  // Addresses may be held across a save while the space is locked: keep their numbers touched.
  if (lockDepth_ > 0) return;
  touched_.Clear();
}

int32_t ElementSpace::LmLoad(int32_t n, const void* bytes, int32_t size) {
  // Built only on a refusal: a file load calls this once per element.
  auto where = [n] { return "load of element " + std::to_string(n) + ": "; };
  if (n <= 0 || n > maxNumber_) {
    loadFaults_.push_back(where() + "no such number");
    return n <= 0 || n > kLmMaxNumber ? kLmBadNumber : kLmNoNumber;
  }
  if (size < 0 || size > kLmMaxSize || (size > 0 && !bytes)) {
    loadFaults_.push_back(where() + "bad size " + std::to_string(size));
    return kLmBadSize;
  }
  if (size_t(n) < slots_.size() && slots_[size_t(n)].at) {
    loadFaults_.push_back(where() + "loaded twice");
    return kLmTaken;
  }
  // LmSetAssert would zero the bytes first; a load writes them once.
  uint32_t large = 0;
  uint8_t* at = Store(size, &large);
  int32_t r = at ? Grow(n) : kLmNoMemory;
  if (r < 0) {
    if (at) Release(at, size, large);
    loadFaults_.push_back(where() + "no room");
    return r;
  }
  if (size > 0) std::memcpy(at, bytes, size_t(size));
  NoteSlot(size_t(n));
  slots_[size_t(n)] = Slot{at, size, large};
  marks_[size_t(n)] = kUnmarked;
  ++live_;
  liveBytes_ += size;
  pendingValid_ = false;
  // The bytes came from a file that vouches for them: summing each element here would cost a
  // load as much again as the copy. Its sum is taken only if it is touched and compared.
  SetHanded(size_t(n), kUnsummed);
#ifdef ZOVE_CHECKED
  AuditSum(n, LmSum(bytes, size));
#endif
  return 0;
}

int32_t ElementSpace::LmLoad(int32_t n, const void* bytes, int32_t size, uint64_t sum) {
  int32_t r = LmLoad(n, bytes, size);
  if (r != 0) return r;
  uint64_t actual = LmSum(bytes, size);
  if (actual != sum) {
    loadFaults_.push_back("load of element " + std::to_string(n) + ": bytes differ from their sum");
    return kLmDamaged;
  }
  SetHanded(size_t(n), Kept(actual));
  return 0;
}

int32_t ElementSpace::LmLoadMany(const LmPart* parts, int32_t count, const uint8_t* bytes,
                                 int32_t* refused) {
  // The common case in one pass: ascending numbers, none live, sizes in range. Anything else
  // goes element by element, which records each fault as a single load would.
  int32_t top = 0;
  bool plain = count > 0;
  for (int32_t i = 0; i < count && plain; ++i) {
    const LmPart& p = parts[i];
    plain = p.number > top && p.number <= maxNumber_ && p.size >= 0 && p.size <= kLmMaxSize &&
            (size_t(p.number) >= slots_.size() || !slots_[size_t(p.number)].at);
    top = p.number;
  }
  try {
    if (plain && Grow(top) == 0 && unsummed_.size() <= size_t(top) / 64)
      unsummed_.resize(size_t(top) / 64 + 1, 0);
  } catch (const std::bad_alloc&) {
    plain = false;
  }
  if (!plain || slots_.size() <= size_t(top) || unsummed_.size() <= size_t(top) / 64) {
    for (int32_t i = 0; i < count; ++i) {
      int32_t r = LmLoad(parts[i].number, bytes, parts[i].size);
      if (r != 0) {
        *refused = i;
        return r;
      }
      bytes += parts[i].size;
    }
    return 0;
  }
  pendingValid_ = false;
  for (int32_t i = 0; i < count; ++i) {
    const auto [n, size] = parts[i];
    uint32_t large = 0;
    // A load into reserved room takes its blocks from the bump area: the same place Store
    // gives a small element whose size class has no free block, without the call.
    const size_t block = (size_t(size) + 7) & ~size_t(7);
    uint8_t* at;
    if (size > 0 && size <= kLmSmallMax && size_t(bumpEnd_ - bump_) >= block &&
        !freeBlocks_[block / 8]) {
      at = bump_;
      bump_ += block;
      smallUsed_ += int64_t(block);
    } else {
      at = Store(size, &large);
      if (!at) {
        TrimTable();  // the table was grown for the whole run
        loadFaults_.push_back("load of element " + std::to_string(n) + ": no room");
        *refused = i;
        return kLmNoMemory;
      }
    }
    if (size > 0) std::memcpy(at, bytes, size_t(size));
    NoteSlot(size_t(n));
    slots_[size_t(n)] = Slot{at, size, large};
    marks_[size_t(n)] = kUnmarked;
    unsummed_[size_t(n) >> 6] |= uint64_t(1) << (n & 63);
    if (handed_.Get(size_t(n))) handed_.Set(size_t(n), 0);
#ifdef ZOVE_CHECKED
    AuditSum(n, LmSum(bytes, size));
#endif
    ++live_;
    liveBytes_ += size;
    bytes += size;
  }
  return 0;
}

void ElementSpace::SumPages::Set(size_t n, uint64_t sum) {
  size_t p = n >> kShift;
  if (p >= pages.size()) pages.resize(p + 1);
  if (!pages[p]) pages[p].reset(new uint64_t[size_t(1) << kShift]());
  pages[p][n & ((1u << kShift) - 1)] = sum;
}

void ElementSpace::SumPages::Trim(size_t numbers) {
  size_t keep = (numbers + (size_t(1) << kShift) - 1) >> kShift;
  if (pages.size() > keep) pages.resize(keep);
}

size_t ElementSpace::SumPages::Bytes() const {
  size_t bytes = pages.capacity() * sizeof(pages[0]);
  for (const auto& p : pages)
    if (p) bytes += sizeof(uint64_t) << kShift;
  return bytes;
}

uint64_t ElementSpace::HandedOf(size_t n) const {
  if (n >> 6 < unsummed_.size() && (unsummed_[n >> 6] >> (n & 63) & 1)) return kUnsummed;
  return handed_.Get(n);
}

// Without room to remember it, an element is simply handed over again as added.
void ElementSpace::SetHanded(size_t n, uint64_t kept) {
  try {
    if (kept == kUnsummed) {
      if (unsummed_.size() <= n >> 6) unsummed_.resize((n >> 6) + 1, 0);
      unsummed_[n >> 6] |= uint64_t(1) << (n & 63);
      if (handed_.Get(n)) handed_.Set(n, 0);
      return;
    }
    if (n >> 6 < unsummed_.size()) unsummed_[n >> 6] &= ~(uint64_t(1) << (n & 63));
    if (kept != 0 || handed_.Get(n)) handed_.Set(n, kept);
  } catch (const std::bad_alloc&) {
  }
}

int32_t ElementSpace::LmReserve(int32_t numbers, int64_t bytes) {
  size_t want = size_t(std::clamp(numbers, 0, maxNumber_)) + 1;
  try {
    slots_.reserve(want);
    marks_.reserve(want);
  } catch (const std::bad_alloc&) {
    return kLmNoMemory;
  }
  return ReserveChunk(bytes);
}

int32_t ElementSpace::LmLoadSeal(int32_t liveCount, uint64_t spaceSum) {
  int32_t r = 0;
  if (liveCount != live_) {
    loadFaults_.push_back("load: " + std::to_string(live_) + " elements arrived, " +
                          std::to_string(liveCount) + " were saved");
    r = kLmDamaged;
  }
  if (spaceSum != LmSpaceSum()) {
    loadFaults_.push_back("load: the content differs from the saved space sum");
    r = kLmDamaged;
  }
  return r;
}

}  // namespace fundra

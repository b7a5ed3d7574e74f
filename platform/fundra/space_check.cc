// Element space soundness: the invariant checker, repair and the readable dump.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "platform/fundra/space.h"

namespace fundra {

namespace {

size_t BlockBytes(int32_t size) { return (size_t(size) + 7) & ~size_t(7); }

constexpr size_t kMaxFindings = 1000;

class Findings {
 public:
  explicit Findings(std::vector<std::string>* out) : out_(out) {}
  ~Findings() {
    if (dropped_ > 0) out_->push_back("... and " + std::to_string(dropped_) + " more");
  }
  void Add(int invariant, const std::string& text) {
    if (out_->size() >= kMaxFindings) {
      ++dropped_;
      return;
    }
    out_->push_back("invariant " + std::to_string(invariant) + ": " + text);
  }

 private:
  std::vector<std::string>* out_;
  size_t dropped_ = 0;
};

struct Span {
  const uint8_t* begin;
  const uint8_t* end;
  int32_t owner;  // element number, or 0 for a free-list block
};

std::string Name(int32_t owner) {
  return owner ? "element " + std::to_string(owner) : std::string("a free block");
}

}  // namespace

std::vector<std::string> ElementSpace::LmCheck() const {
  std::vector<std::string> out;
  {
    Findings f(&out);
    CheckStorage(&out);
    if (slots_.empty() || slots_[0].at) f.Add(1, "slot 0 is live or missing");
    if (marks_.size() != slots_.size())
      f.Add(2, std::to_string(marks_.size()) + " mark bytes for " + std::to_string(slots_.size()) +
                   " slots");
    if (slots_.size() > 1 && !slots_.back().at)
      f.Add(1, "the last number " + std::to_string(slots_.size() - 1) + " is free");

    auto listed = [&](size_t n) {
      return n / 64 < freeBits_.size() && n / 64 >= freeLow_ && (freeBits_[n / 64] >> (n % 64) & 1);
    };
    if (slots_.size() > 1 && freeBits_.size() * 64 < slots_.size())
      f.Add(5, "the free bits end below number " + std::to_string(LmCount()));
    for (size_t w = slots_.size() / 64; w < freeBits_.size(); ++w) {
      uint64_t above =
          w == slots_.size() / 64 ? ~uint64_t(0) << (slots_.size() % 64) : ~uint64_t(0);
      if (freeBits_[w] & above)
        f.Add(5, "a number above " + std::to_string(LmCount()) + " has a free bit");
    }
    int32_t live = 0;
    int64_t bytes = 0;
    for (size_t n = 1; n < slots_.size(); ++n) {
      const Slot& s = slots_[n];
      if (s.at) {
        ++live;
        bytes += s.size;
        if (n < marks_.size() && marks_[n] == 0)
          f.Add(2, "live number " + std::to_string(n) + " has a free mark byte");
        continue;
      }
      if (s.size != 0 || s.flags != 0 || (n < marks_.size() && marks_[n] != 0))
        f.Add(2, "free number " + std::to_string(n) + " has a size, flags or a mark byte");
      if (!listed(n)) f.Add(5, "free number " + std::to_string(n) + " has no free bit to find");
    }
    if (lockDepth_ < 0) f.Add(7, "lock depth " + std::to_string(lockDepth_));
    if (live != live_ || bytes != liveBytes_)
      f.Add(8, "the table holds " + std::to_string(live) + " elements of " + std::to_string(bytes) +
                   " bytes, the totals say " + std::to_string(live_) + " of " +
                   std::to_string(liveBytes_));
    for (const std::string& fault : loadFaults_) f.Add(9, fault);
  }
  return out;
}

// Invariants 3, 4 and 6: where every element and free block lies. Every block of a chunk is laid
// on a bitmap of the chunks' 8-byte words, so that two blocks sharing a word are found in one
// pass; large blocks, one malloc block each and few, are sorted. Only when something overlaps are
// all blocks sorted, to name both holders.
void ElementSpace::CheckStorage(std::vector<std::string>* out) const {
  Findings f(out);
  std::vector<Chunk> chunks = chunks_;
  std::sort(chunks.begin(), chunks.end(),
            [](const Chunk& a, const Chunk& b) { return a.base < b.base; });
  // Where each chunk's words start in the bitmap.
  std::vector<size_t> first(chunks.size() + 1, 0);
  for (size_t c = 0; c < chunks.size(); ++c) first[c + 1] = first[c] + chunks[c].bytes / 8;
  // The chunk holding [at, at + bytes) at an 8-aligned offset, or -1.
  auto chunkOf = [&](const uint8_t* at, size_t bytes) -> ptrdiff_t {
    auto it = std::upper_bound(chunks.begin(), chunks.end(), at,
                               [](const uint8_t* p, const Chunk& c) { return p < c.base; });
    if (it == chunks.begin()) return -1;
    --it;
    size_t off = size_t(at - it->base);
    if (off % 8 != 0 || off + bytes > it->bytes) return -1;
    return it - chunks.begin();
  };
  std::vector<uint64_t> words((first.back() + 63) / 64, 0);
  bool overlap = false;
  // Lays [at, at + bytes) of chunk c on the bitmap; false when a word was taken.
  auto lay = [&](ptrdiff_t c, const uint8_t* at, size_t bytes) {
    size_t w = first[size_t(c)] + size_t(at - chunks[size_t(c)].base) / 8;
    bool clash = false;
    for (size_t end = w + bytes / 8; w < end;) {
      size_t in = w & 63, take = std::min<size_t>(64 - in, end - w);
      uint64_t mask = (take == 64 ? ~uint64_t(0) : ((uint64_t(1) << take) - 1)) << in;
      clash |= (words[w >> 6] & mask) != 0;
      words[w >> 6] |= mask;
      w += take;
    }
    return !clash;
  };

  std::vector<Span> large;
  for (size_t n = 1; n < slots_.size(); ++n) {
    const Slot& s = slots_[n];
    if (!s.at) continue;
    if (s.size < 0 || s.size > kLmMaxSize) {
      f.Add(3, "element " + std::to_string(n) + " has size " + std::to_string(s.size));
      continue;
    }
    if (s.flags & kLargeBit) {
      int64_t cap = LargeCap(s.at);
      if (cap < s.size)
        f.Add(3, "element " + std::to_string(n) + " outgrew its block of " + std::to_string(cap));
      large.push_back({s.at - 16, s.at + std::max<int64_t>(cap, 0), int32_t(n)});
    } else if (s.size == 0) {
      if (s.at != emptyBlock_)
        f.Add(3, "element " + std::to_string(n) + " has 0 bytes but not the empty block");
    } else {
      ptrdiff_t c = s.size > kLmSmallMax ? -1 : chunkOf(s.at, BlockBytes(s.size));
      if (c < 0)
        f.Add(3, "element " + std::to_string(n) + " of " + std::to_string(s.size) +
                     " bytes lies outside every chunk");
      else
        overlap |= !lay(c, s.at, BlockBytes(s.size));
    }
  }
  // A free list that loops or leaves the chunks is cut short after the first bad block.
  size_t bound = size_t(chunkBytes_ / 8) + 1;
  for (size_t c = 1; c < freeBlocks_.size(); ++c) {
    size_t steps = 0;
    for (const FreeBlock* b = freeBlocks_[c]; b; b = b->next) {
      const uint8_t* at = reinterpret_cast<const uint8_t*>(b);
      ptrdiff_t k = ++steps > bound ? -1 : chunkOf(at, c * 8);
      if (k < 0) {
        f.Add(6, "the free list of " + std::to_string(c * 8) + "-byte blocks leaves the chunks");
        break;
      }
      overlap |= !lay(k, at, c * 8);
    }
  }
  std::sort(large.begin(), large.end(),
            [](const Span& a, const Span& b) { return a.begin < b.begin; });
  for (size_t i = 1; i < large.size() && !overlap; ++i) overlap = large[i].begin < large[i - 1].end;
  for (size_t i = 0; i < large.size() && !overlap; ++i) {
    auto it = std::upper_bound(chunks.begin(), chunks.end(), large[i].begin,
                               [](const uint8_t* p, const Chunk& c) { return p < c.base; });
    overlap = (it != chunks.end() && it->base < large[i].end) ||
              (it != chunks.begin() && std::prev(it)->base + std::prev(it)->bytes > large[i].begin);
  }
  if (!overlap) return;
  // Name the holders of every shared byte: the slow way, on a space that is damaged anyway.
  std::vector<Span> spans = large;
  for (size_t n = 1; n < slots_.size(); ++n) {
    const Slot& s = slots_[n];
    if (s.at && !(s.flags & kLargeBit) && s.size > 0 && s.size <= kLmSmallMax &&
        chunkOf(s.at, BlockBytes(s.size)) >= 0)
      spans.push_back({s.at, s.at + BlockBytes(s.size), int32_t(n)});
  }
  for (size_t c = 1; c < freeBlocks_.size(); ++c) {
    size_t steps = 0;
    for (const FreeBlock* b = freeBlocks_[c]; b; b = b->next) {
      const uint8_t* at = reinterpret_cast<const uint8_t*>(b);
      if (++steps > bound || chunkOf(at, c * 8) < 0) break;
      spans.push_back({at, at + c * 8, 0});
    }
  }
  std::sort(spans.begin(), spans.end(),
            [](const Span& a, const Span& b) { return a.begin < b.begin; });
  for (size_t i = 1; i < spans.size(); ++i)
    if (spans[i].begin < spans[i - 1].end && (spans[i].owner || spans[i - 1].owner))
      f.Add(4, Name(spans[i - 1].owner) + " and " + Name(spans[i].owner) + " share bytes");
}

void ElementSpace::NoteSlotSlow(size_t n) {
  try {
    if (validLog_.size() >= std::max<size_t>(4096, slots_.size() / 8)) throw std::bad_alloc();
    if (n >> 6 >= validBits_.size())
      validBits_.resize(std::max((n >> 6) + 1, 2 * validBits_.size()));
    validLog_.push_back({int32_t(n), n < slots_.size() && slots_[n].at ? slots_[n].size : -1});
    validBits_[n >> 6] |= uint64_t(1) << (n & 63);
  } catch (const std::bad_alloc&) {
    // Too many changes to follow, or no memory to note them: the next LmValid looks at all.
    validAll_ = true;
  }
}

void ElementSpace::ForgetNotes() const {
  if (validLog_.size() * 64 > validBits_.size())
    std::fill(validBits_.begin(), validBits_.end(), 0);
  else
    for (const SlotWas& w : validLog_) validBits_[size_t(w.n) >> 6] = 0;
  validLog_.clear();
}

// What LmValid finds wrong with one slot (rules 2 and 3), counting a live one into live and
// bytes. The branches follow the common case (a live small element), so they predict well and a
// pass costs a few instructions per slot.
[[gnu::always_inline]] inline bool ElementSpace::SlotFinding(const Slot& s, uint8_t mark,
                                                             int64_t* live, int64_t* bytes) {
  if (!s.at) return (s.size | int32_t(s.flags) | mark) != 0;  // 2
  ++*live;
  *bytes += s.size;
  bool bad = mark == 0;                            // 2
  bad |= uint32_t(s.size) > uint32_t(kLmMaxSize);  // 3
  if (!(s.flags & kLargeBit))                      // 3
    bad |= (s.size > kLmSmallMax) | ((s.size == 0) != (s.at == emptyBlock_));
  return bad;
}

// The collector runs this before and after every collection, so it reads only the number table
// and the space's own counters, without sorting or allocating, and never the heap: the whole
// table the first time, then only the slots changed since (see NoteSlot). Every finding here is
// also one of LmCheck's, so a space LmCheck passes always passes here.
int32_t ElementSpace::LmValid() const {
  if (!loadFaults_.empty() || lockDepth_ < 0) return kLmDamaged;                            // 9, 7
  if (slots_.empty() || slots_[0].at || marks_.size() != slots_.size()) return kLmDamaged;  // 1, 2
  const size_t end = slots_.size();
  if (end > 1 && !slots_[end - 1].at) return kLmDamaged;  // 1
  if (validAll_) return ValidAll();
  const Slot* slots = slots_.data();
  const uint8_t* marks = marks_.data();
  int64_t live = validLive_, bytes = validBytes_;
  bool bad = false;
  for (const SlotWas& was : validLog_) {
    size_t n = size_t(was.n);
    if (was.size >= 0) --live, bytes -= was.size;
    if (n >= end) continue;
    bad |= SlotFinding(slots[n], marks[n], &live, &bytes);
  }
  if (bad || live != live_ || bytes != liveBytes_) {
    validAll_ = true;  // a damaged space stays damaged: the next call looks at everything again
    return kLmDamaged;
  }
  validLive_ = live;
  validBytes_ = bytes;
  ForgetNotes();
  return 0;
}

int32_t ElementSpace::ValidAll() const {
  const size_t end = slots_.size();
  const Slot* slots = slots_.data();
  const uint8_t* marks = marks_.data();
  int64_t live = 0, bytes = 0;
  bool bad = false;
  for (size_t n = 1; n < end; ++n) bad |= SlotFinding(slots[n], marks[n], &live, &bytes);
  if (bad || live != live_ || bytes != liveBytes_) return kLmDamaged;  // 2, 3, 8
  validLive_ = live;
  validBytes_ = bytes;
  validAll_ = false;
  ForgetNotes();
  return 0;
}

int32_t ElementSpace::LmRepair() {
  if (slots_.empty()) slots_.push_back(Slot{nullptr, 0, 0});
  marks_.resize(slots_.size(), 0);
  live_ = 0;
  liveBytes_ = 0;
  smallUsed_ = 0;
  for (size_t n = 1; n < slots_.size(); ++n) {
    Slot& s = slots_[n];
    if (!s.at) {
      s = Slot{nullptr, 0, 0};
      marks_[n] = 0;
      continue;
    }
    if (marks_[n] == 0) marks_[n] = kUnmarked;
    ++live_;
    liveBytes_ += s.size;
    if (!(s.flags & kLargeBit)) smallUsed_ += int64_t(BlockBytes(s.size));
  }
  TrimTable();
  RebuildFreeNumbers();
  if (lockDepth_ < 0) lockDepth_ = 0;
  validAll_ = true;
  std::vector<std::string> found = LmCheck();
  // Free lists cannot be mended block by block; dropping one loses its holes until the next
  // compress, which is cheaper than trusting it.
  for (const std::string& line : found)
    if (line.rfind("invariant 6", 0) == 0 || line.rfind("invariant 4", 0) == 0) {
      std::fill(freeBlocks_.begin(), freeBlocks_.end(), nullptr);
      found = LmCheck();
      break;
    }
  if (!found.empty()) return kLmDamaged;
  // LmCheck tests everything LmValid does: the next LmValid need look only at what changes now.
  validLive_ = live_;
  validBytes_ = liveBytes_;
  validAll_ = false;
  ForgetNotes();
  return 0;
}

std::string ElementSpace::LmDump(int32_t limit) const {
  char line[160];
  std::snprintf(line, sizeof line,
                "element space: %d live, highest %d, %lld live bytes, heap %lld, table %lld, "
                "lock %d, load faults %zu\n",
                live_, LmCount(), static_cast<long long>(liveBytes_),
                static_cast<long long>(LmHeapBytes()), static_cast<long long>(LmTableBytes()),
                lockDepth_, loadFaults_.size());
  std::string out = line;
  int32_t shown = 0;
  for (size_t n = 1; n < slots_.size(); ++n) {
    const Slot& s = slots_[n];
    if (!s.at) continue;
    if (shown++ == limit) {
      out += "  ...\n";
      break;
    }
    std::snprintf(line, sizeof line, "  %6zu %7d bytes%s%s ", n, s.size,
                  n < marks_.size() && marks_[n] == epoch_ ? " marked" : "",
                  (s.flags & kLargeBit) ? " large" : "");
    out += line;
    for (int32_t i = 0; i < std::min(s.size, 16); ++i) {
      std::snprintf(line, sizeof line, " %02x", s.at[i]);
      out += line;
    }
    out += s.size > 16 ? " ...\n" : "\n";
  }
  return out;
}

}  // namespace fundra

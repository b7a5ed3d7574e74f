// Element space soundness: the invariant checker, repair and the readable dump.
#include <algorithm>
#include <cstdio>
#include <cstring>

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

// Invariants 3, 4 and 6: where every element and free block lies.
void ElementSpace::CheckStorage(std::vector<std::string>* out) const {
  Findings f(out);
  std::vector<Chunk> chunks = chunks_;
  std::sort(chunks.begin(), chunks.end(),
            [](const Chunk& a, const Chunk& b) { return a.base < b.base; });
  auto inChunk = [&](const uint8_t* at, size_t bytes) {
    auto it = std::upper_bound(chunks.begin(), chunks.end(), at,
                               [](const uint8_t* p, const Chunk& c) { return p < c.base; });
    if (it == chunks.begin()) return false;
    --it;
    size_t off = size_t(at - it->base);
    return off % 8 == 0 && off + bytes <= it->bytes;
  };

  std::vector<Span> spans;
  for (size_t n = 1; n < slots_.size(); ++n) {
    const Slot& s = slots_[n];
    if (!s.at) continue;
    std::string who = "element " + std::to_string(n);
    if (s.size < 0 || s.size > kLmMaxSize) {
      f.Add(3, who + " has size " + std::to_string(s.size));
      continue;
    }
    if (s.flags & kLargeBit) {
      int64_t cap = LargeCap(s.at);
      if (cap < s.size) f.Add(3, who + " outgrew its block of " + std::to_string(cap));
      spans.push_back({s.at - 16, s.at + std::max<int64_t>(cap, 0), int32_t(n)});
    } else if (s.size == 0) {
      if (s.at != emptyBlock_) f.Add(3, who + " has 0 bytes but not the empty block");
    } else if (s.size > kLmSmallMax || !inChunk(s.at, BlockBytes(s.size))) {
      f.Add(3, who + " of " + std::to_string(s.size) + " bytes lies outside every chunk");
    } else {
      spans.push_back({s.at, s.at + BlockBytes(s.size), int32_t(n)});
    }
  }
  // A free list that loops or leaves the chunks is cut short after the first bad block.
  size_t bound = size_t(chunkBytes_ / 8) + 1;
  for (size_t c = 1; c < freeBlocks_.size(); ++c) {
    size_t steps = 0;
    for (const FreeBlock* b = freeBlocks_[c]; b; b = b->next) {
      const uint8_t* at = reinterpret_cast<const uint8_t*>(b);
      if (++steps > bound || !inChunk(at, c * 8)) {
        f.Add(6, "the free list of " + std::to_string(c * 8) + "-byte blocks leaves the chunks");
        break;
      }
      spans.push_back({at, at + c * 8, 0});
    }
  }
  std::sort(spans.begin(), spans.end(),
            [](const Span& a, const Span& b) { return a.begin < b.begin; });
  for (size_t i = 1; i < spans.size(); ++i)
    if (spans[i].begin < spans[i - 1].end && (spans[i].owner || spans[i - 1].owner))
      f.Add(4, Name(spans[i - 1].owner) + " and " + Name(spans[i].owner) + " share bytes");
}

// The collector runs this before and after every collection, so it reads only the number table
// and the space's own counters, in one pass without sorting or allocating, and never the heap.
// Every finding here is also one of LmCheck's, so a space LmCheck passes always passes here.
int32_t ElementSpace::LmValid() const {
  if (!loadFaults_.empty() || lockDepth_ < 0) return kLmDamaged;                            // 9, 7
  if (slots_.empty() || slots_[0].at || marks_.size() != slots_.size()) return kLmDamaged;  // 1, 2
  const size_t end = slots_.size();
  if (end > 1 && !slots_[end - 1].at) return kLmDamaged;  // 1
  const Slot* slots = slots_.data();
  const uint8_t* marks = marks_.data();
  int64_t live = 0, bytes = 0;
  bool bad = false;
  // The branches follow the common case (a live small element), so they predict well and the
  // pass costs a few instructions per slot.
  for (size_t n = 1; n < end; ++n) {
    const Slot& s = slots[n];
    if (!s.at) {
      bad |= (s.size | int32_t(s.flags) | marks[n]) != 0;  // 2
      continue;
    }
    ++live;
    bytes += s.size;
    bad |= marks[n] == 0;                            // 2
    bad |= uint32_t(s.size) > uint32_t(kLmMaxSize);  // 3
    if (!(s.flags & kLargeBit))                      // 3
      bad |= (s.size > kLmSmallMax) | ((s.size == 0) != (s.at == emptyBlock_));
  }
  if (bad || live != live_ || bytes != liveBytes_) return kLmDamaged;  // 2, 3, 8
  return 0;
}

int32_t ElementSpace::LmRepair() {
  if (slots_.empty()) slots_.push_back(Slot{nullptr, 0, 0});
  marks_.resize(slots_.size(), 0);
  live_ = 0;
  liveBytes_ = 0;
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
  }
  TrimTable();
  RebuildFreeNumbers();
  if (lockDepth_ < 0) lockDepth_ = 0;
  // Free lists cannot be mended block by block; dropping one loses its holes until the next
  // compress, which is cheaper than trusting it.
  std::vector<std::string> storage;
  CheckStorage(&storage);
  for (const std::string& line : storage)
    if (line.rfind("invariant 6", 0) == 0 || line.rfind("invariant 4", 0) == 0)
      std::fill(freeBlocks_.begin(), freeBlocks_.end(), nullptr);
  return LmCheck().empty() ? 0 : kLmDamaged;
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

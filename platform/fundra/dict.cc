#include "platform/fundra/dict.h"

#include <bit>

namespace fundra {

namespace {

constexpr int32_t kEmpty = -1;
constexpr int32_t kDeleted = -2;

size_t Hash(Word key) {
  uint64_t h = uint64_t(key) * 0x9E3779B97F4A7C15ull;
  return size_t(h ^ (h >> 29));
}

}  // namespace

TDict::TDict(int32_t expected, int32_t) {
  if (expected > 0) {
    entries_.reserve(size_t(expected));
    Reindex(std::bit_ceil(size_t(expected) * 2));
  }
}

int32_t TDict::Find(Word key) const {
  if (index_.empty()) return -1;
  size_t mask = index_.size() - 1;
  for (size_t i = Hash(key) & mask;; i = (i + 1) & mask) {
    int32_t v = index_[i];
    if (v == kEmpty) return -1;
    if (v >= 0 && entries_[size_t(v)].key == key) return v;
  }
}

void TDict::Reindex(size_t buckets) {
  index_.assign(std::max<size_t>(buckets, 16), kEmpty);
  tombs_ = 0;
  size_t mask = index_.size() - 1;
  for (size_t p = 0; p < entries_.size(); ++p) {
    if (!entries_[p].live) continue;
    size_t i = Hash(entries_[p].key) & mask;
    while (index_[i] != kEmpty) i = (i + 1) & mask;
    index_[i] = int32_t(p);
  }
}

void TDict::Compact() {
  size_t out = 0;
  for (size_t p = 0; p < entries_.size(); ++p)
    if (entries_[p].live) entries_[out++] = entries_[p];
  entries_.resize(out);
  head_ = 0;
}

Word TDict::Lookup(Word key) const {
  int32_t p = Find(key);
  return p < 0 ? 0 : entries_[size_t(p)].value;
}

bool TDict::Has(Word key) const { return Find(key) >= 0; }

Word TDict::Set(Word key, Word value) {
  int32_t p = Find(key);
  if (p >= 0) {
    Word old = entries_[size_t(p)].value;
    entries_[size_t(p)].value = value;
    return old;
  }
  // Positions are what iterators hold, so dead entries are squeezed out only when none is alive.
  bool squeeze = iterators_ == 0 && entries_.size() > 2 * size_t(count_) + 16;
  if (squeeze) Compact();
  if (squeeze || (size_t(count_ + tombs_) + 1) * 4 > index_.size() * 3)
    Reindex(std::bit_ceil(size_t(count_) * 2 + 2));
  entries_.push_back(Entry{key, value, true});
  size_t mask = index_.size() - 1;
  size_t i = Hash(key) & mask;
  while (index_[i] >= 0) i = (i + 1) & mask;
  if (index_[i] == kDeleted) --tombs_;
  index_[i] = int32_t(entries_.size() - 1);
  ++count_;
  return 0;
}

int32_t TDict::Remove(Word key) {
  if (index_.empty()) return 0;
  size_t mask = index_.size() - 1;
  for (size_t i = Hash(key) & mask;; i = (i + 1) & mask) {
    int32_t v = index_[i];
    if (v == kEmpty) return 0;
    if (v >= 0 && entries_[size_t(v)].key == key) {
      index_[i] = kDeleted;
      ++tombs_;
      entries_[size_t(v)].live = false;
      --count_;
      return 1;
    }
  }
}

bool TDict::First(Word* key, Word* value) const {
  while (head_ < entries_.size() && !entries_[head_].live) ++head_;
  if (head_ >= entries_.size()) return false;
  *key = entries_[head_].key;
  *value = entries_[head_].value;
  return true;
}

void TDict::Clear() {
  entries_.clear();
  index_.clear();
  count_ = tombs_ = 0;
  head_ = 0;
}

std::vector<std::string> TDict::Check() const {
  std::vector<std::string> out;
  int32_t live = 0;
  for (size_t p = 0; p < entries_.size(); ++p) {
    if (!entries_[p].live) continue;
    ++live;
    if (Find(entries_[p].key) != int32_t(p))
      out.push_back("invariant 1: entry " + std::to_string(p) + " is not found by its key");
    if (p < head_) out.push_back("invariant 3: entry " + std::to_string(p) + " lies before head");
  }
  for (int32_t v : index_)
    if (v >= 0 && (size_t(v) >= entries_.size() || !entries_[size_t(v)].live))
      out.push_back("invariant 1: the index names dead entry " + std::to_string(v));
  if (live != count_)
    out.push_back("invariant 2: count " + std::to_string(count_) + ", live entries " +
                  std::to_string(live));
  return out;
}

TDictIter::TDictIter(const TDict& dict) : dict_(dict) { ++dict_.iterators_; }

TDictIter::~TDictIter() { --dict_.iterators_; }

bool TDictIter::Next(Word* key, Word* value) {
  while (pos_ < dict_.entries_.size()) {
    const TDict::Entry& e = dict_.entries_[pos_++];
    if (!e.live) continue;
    *key = e.key;
    *value = e.value;
    return true;
  }
  return false;
}

}  // namespace fundra

// A set of DL numbers for walks and the tree watch.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

namespace zove {

// Seen: a set of DL numbers (all above 0) by open addressing; a small walk keeps it in place and
// allocates nothing, a large one grows it a power of two at a time.
class Seen {
 public:
  Seen() = default;
  Seen(const Seen& other) { *this = other; }
  Seen& operator=(const Seen& other);
  Seen(std::initializer_list<int32_t> dls) {
    for (int32_t dl : dls) insert(dl);
  }
  // True when dl was not in the set.
  bool insert(int32_t dl);
  bool count(int32_t dl) const { return size_ != 0 && find(dl); }
  void erase(int32_t dl);
  bool empty() const { return size_ == 0; }
  void clear();

 private:
  // Fibonacci hashing: the product's top bits, which every bit of the number reaches (DL numbers
  // come in strides, which the low bits would crowd into a few runs).
  static size_t slot(int32_t dl, size_t mask) {
    return size_t((uint64_t(uint32_t(dl)) * 0x9E3779B97F4A7C15ull) >> 32) & mask;
  }
  void grow();
  bool find(int32_t dl) const;
  int32_t* slots() { return more_.empty() ? inPlace_ : more_.data(); }
  const int32_t* slots() const { return more_.empty() ? inPlace_ : more_.data(); }
  size_t capacity() const { return more_.empty() ? kInPlace : more_.size(); }

  // The slots in place are cleared on the first insert, so that a set nobody fills (most walks'
  // and shows') costs nothing to make.
  static constexpr size_t kInPlace = 32;
  int32_t inPlace_[kInPlace];
  bool cleared_ = false;
  std::vector<int32_t> more_;
  std::vector<int32_t> spare_;  // scratch of grow
  size_t size_ = 0;
};

}  // namespace zove

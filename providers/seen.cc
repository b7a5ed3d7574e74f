// Seen (seen.h): open addressing with linear probing, 0 marking an empty slot.
#include "providers/seen.h"

namespace zove {

bool Seen::insert(int32_t dl) {
  if (!cleared_) {
    for (int32_t& slot : inPlace_) slot = 0;
    cleared_ = true;
  }
  if ((size_ + 1) * 4 > capacity() * 3) grow();
  int32_t* at = slots();
  size_t mask = capacity() - 1;
  for (size_t i = slot(dl, mask);; i = (i + 1) & mask) {
    if (at[i] == dl) return false;
    if (at[i] == 0) {
      at[i] = dl;
      ++size_;
      return true;
    }
  }
}

bool Seen::find(int32_t dl) const {
  const int32_t* at = slots();
  size_t mask = capacity() - 1;
  for (size_t i = slot(dl, mask);; i = (i + 1) & mask) {
    if (at[i] == dl) return true;
    if (at[i] == 0) return false;
  }
}

// Removing leaves no hole: the entries after it in its run are placed again.
void Seen::erase(int32_t dl) {
  if (size_ == 0) return;
  int32_t* at = slots();
  size_t mask = capacity() - 1;
  size_t i = slot(dl, mask);
  while (at[i] != dl) {
    if (at[i] == 0) return;
    i = (i + 1) & mask;
  }
  at[i] = 0;
  --size_;
  for (size_t j = (i + 1) & mask; at[j] != 0; j = (j + 1) & mask) {
    int32_t moved = at[j];
    at[j] = 0;
    --size_;
    insert(moved);
  }
}

Seen& Seen::operator=(const Seen& other) {
  if (this == &other) return *this;
  more_ = other.more_;
  size_ = other.size_;
  cleared_ = other.cleared_;
  if (cleared_)
    for (size_t i = 0; i < kInPlace; ++i) inPlace_[i] = other.inPlace_[i];
  return *this;
}

void Seen::clear() {
  if (size_ == 0) return;
  more_.clear();
  for (int32_t& slot : inPlace_) slot = 0;
  size_ = 0;
}

// The old slots go through spare_, whose memory a set that is cleared and filled again reuses.
void Seen::grow() {
  size_t n = capacity();
  spare_.assign(slots(), slots() + n);
  more_.assign(n * 2, 0);
  size_ = 0;
  for (int32_t dl : spare_)
    if (dl != 0) insert(dl);
}

}  // namespace zove

// DLMap: a value per DL number, for the walks that map DLs of one structure to something (an
// exchange index, a copy, the DL it is compared with). A dense array over every number of the
// space: one probe per lookup in the walks' inner loops. It is calloc'ed, so a large space
// costs zero pages the walk never touches, not a clearing pass.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "platform/fundra/space.h"

namespace zove {

class DLMap {
 public:
  // Numbers 1..highest can be mapped; every value starts at 0.
  explicit DLMap(int32_t highest)
      : highest_(highest < 0 ? 0 : highest),
        at_(static_cast<int32_t*>(std::calloc(size_t(highest_) + 1, sizeof(int32_t)))) {}
  explicit DLMap(const fundra::ElementSpace& space) : DLMap(space.LmCount()) {}
  ~DLMap() { std::free(at_); }
  DLMap(const DLMap&) = delete;
  DLMap& operator=(const DLMap&) = delete;

  // False when the array could not be allocated.
  bool ok() const { return at_ != nullptr; }
  // 0 for a number never set and for any number outside 1..highest.
  int32_t get(int32_t n) const { return n > 0 && n <= highest_ ? at_[n] : 0; }
  // Numbers outside 1..highest are ignored: the walks only map live elements.
  void set(int32_t n, int32_t value) {
    if (n > 0 && n <= highest_) at_[n] = value;
  }

 private:
  int32_t highest_;
  int32_t* at_;
};

}  // namespace zove

// Little-endian reading and writing for the export forms of the text and date classes.
//
// Every export form of this library starts with the same 4-byte head, so that a reader can tell
// forms apart and versions up (each class's header tables the rest of its form: TString in
// tstring.h, TDate, TInterval and TDateStep in tdate.h, TLocHandle in resource.h):
//   offset  width  field     meaning
//   0       2      magic     two ASCII letters naming the form ("TS", "Dt", "Iv", "Ds", "LH")
//   2       1      version   1 for every form written today
//   3       1      reserved  0; a reader refuses other values as damage
// Every number in a form is little-endian, whatever the machine.
// Reader never looks past the size it is given; a negative size means the caller vouches that
// the bytes hold a whole form (the store passes its blobs so).
#pragma once

#include <cstdint>
#include <cstring>

#include "platform/fundra/form_codes.h"

namespace fundra::form {

constexpr int kHeadBytes = 4;
constexpr uint8_t kVersion = 1;

class Reader {
 public:
  Reader(const void* data, int64_t size)
      : p_(static_cast<const uint8_t*>(data)), left_(size < 0 ? INT64_MAX : size) {}

  // Checks the head: kFormTruncated, kFormForeign, kFormVersion, kFormDamaged, or 0.
  int32_t Head(const char magic[2]) {
    if (p_ == nullptr || left_ < kHeadBytes) return kFormTruncated;
    if (p_[0] != uint8_t(magic[0]) || p_[1] != uint8_t(magic[1])) return kFormForeign;
    if (p_[2] != kVersion) return kFormVersion;
    if (p_[3] != 0) return kFormDamaged;
    Skip(kHeadBytes);
    return 0;
  }
  bool Has(int64_t n) const { return n >= 0 && left_ >= n; }
  uint32_t U32() { return uint32_t(Take(4)); }
  int32_t I32() { return int32_t(U32()); }
  int64_t I64() { return int64_t(Take(8)); }
  const uint8_t* Bytes(int64_t n) {
    const uint8_t* at = p_;
    Skip(n);
    return at;
  }
  int64_t used() const { return used_; }

 private:
  uint64_t Take(int n) {
    uint64_t v = 0;
    for (int i = 0; i < n; ++i) v |= uint64_t(p_[i]) << (8 * i);
    Skip(n);
    return v;
  }
  void Skip(int64_t n) {
    p_ += n;
    left_ -= n;
    used_ += n;
  }
  const uint8_t* p_;
  int64_t left_;
  int64_t used_ = 0;
};

class Writer {
 public:
  explicit Writer(void* data) : p_(static_cast<uint8_t*>(data)) {}
  void Head(const char magic[2]) {
    p_[0] = uint8_t(magic[0]);
    p_[1] = uint8_t(magic[1]);
    p_[2] = kVersion;
    p_[3] = 0;
    p_ += kHeadBytes;
  }
  void U32(uint32_t v) { Put(v, 4); }
  void I32(int32_t v) { Put(uint32_t(v), 4); }
  void I64(int64_t v) { Put(uint64_t(v), 8); }
  void Bytes(const void* src, size_t n) {
    if (n) std::memcpy(p_, src, n);
    p_ += n;
  }

 private:
  void Put(uint64_t v, int n) {
    for (int i = 0; i < n; ++i) *p_++ = uint8_t(v >> (8 * i));
  }
  uint8_t* p_;
};

// Export's common checks: a destination and room for need bytes, and option 0.
inline int32_t CheckExport(const void* data, int64_t size, int32_t option, int64_t need) {
  if (option != 0) return kFormBadOption;
  if (data == nullptr || (size >= 0 && size < need)) return kFormNoRoom;
  return 0;
}

}  // namespace fundra::form

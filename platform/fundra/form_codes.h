// Result codes of the export forms' readers and writers (TString, TDate, TDateStep, TInterval,
// TLocHandle). Import answers 0 or more on success, one of these otherwise, and then leaves the
// value reset; Export answers the bytes written (1 or more) or one of these, writing nothing.
#pragma once

#include <cstdint>

namespace fundra {

constexpr int32_t kFormTruncated = -1;  // fewer bytes than the form needs
constexpr int32_t kFormForeign = -2;    // another form (or the older string form)
constexpr int32_t kFormVersion = -3;    // a version this reader does not know
constexpr int32_t kFormDamaged = -4;    // a field out of range, a reserved byte set, bad text
constexpr int32_t kFormBadOption = -5;  // an option other than 0
constexpr int32_t kFormNoRoom = -6;     // Export: no destination, or fewer bytes than StoreSize

}  // namespace fundra

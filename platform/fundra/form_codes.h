// Result codes of the export forms' readers and writers (TString, TDate, TDateStep, TInterval,
// TLocHandle). Import answers 0 or more on success, one of these otherwise, and then leaves the
// value reset; Export answers the bytes written (1 or more) or one of these, writing nothing.
#pragma once

#include <cstdint>

namespace fundra {

constexpr int32_t kFormTruncated = -1501;  // fewer bytes than the form needs
constexpr int32_t kFormForeign = -1502;    // another form (or the older string form)
constexpr int32_t kFormVersion = -1503;    // a version this reader does not know
constexpr int32_t kFormDamaged = -1504;    // a field out of range, a reserved byte set, bad text
constexpr int32_t kFormBadOption = -1505;  // an option other than 0
constexpr int32_t kFormNoRoom = -1506;     // Export: no destination, or fewer bytes than StoreSize

}  // namespace fundra

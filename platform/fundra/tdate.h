// Dates, date steps and intervals.
//
// TDate is a local date and time to the millisecond on the proleptic Gregorian calendar, from
// 0001-01-01 00:00:00.000 to 9999-12-31 23:59:59.999. It is held as milliseconds since the first
// of those instants, so the default date (from the default constructor or Reset) is that first
// instant: it compares earlier than every other date and IsDefault tells it. Arithmetic that
// would leave the range stops at its ends.
//
// Setters keep a date valid: a field out of range is clamped to the nearest valid value, and a
// day that the month lacks becomes the month's last day (so Jan 31 with SetMonth(2) is Feb 28 or
// 29). Adding months or years follows the same month-end rule: Jan 31 + 1 month is the last day
// of February, and the step's other fields are added after that as an exact duration.
#pragma once

#include <compare>
#include <cstdint>
#include <string>

#include "platform/fundra/form_codes.h"

namespace fundra {

class TDateStep;

// The difference of two dates, in milliseconds (negative when the first is earlier).
class TInterval {
 public:
  TInterval() = default;
  static TInterval Milliseconds(int64_t ms) { return TInterval(ms); }
  static TInterval Seconds(int64_t s) { return TInterval(s * 1000); }
  static TInterval Days(int64_t d) { return TInterval(d * 86400000); }

  void Reset() { ms_ = 0; }
  void SetDays(int64_t d) { ms_ = d * 86400000; }
  void SetSeconds(int64_t s) { ms_ = s * 1000; }
  // Whole days, truncated toward zero.
  int64_t GetDays() const { return ms_ / 86400000; }
  int64_t GetSeconds() const { return ms_ / 1000; }
  int64_t GetMilliseconds() const { return ms_; }

  auto operator<=>(const TInterval&) const = default;
  TInterval operator-() const { return TInterval(-ms_); }
  TInterval operator+(const TInterval& o) const { return TInterval(ms_ + o.ms_); }
  TInterval operator*(int64_t k) const { return TInterval(ms_ * k); }

  // Export form (codes and use: docs/formats.md), 12 bytes:
  //   offset  width  field  meaning
  //   0       4      head   "Iv", version 1, 0 (form_bytes.h)
  //   4       8      ms     the length in milliseconds, signed, little-endian; a length beyond
  //                         the calendar's span (10000 years) either way is damage
  // Import answers the bytes read.
  int32_t StoreSize() const { return 12; }
  int32_t Export(void* data, int64_t size, int32_t option = 0) const;
  int32_t Import(const void* data, int64_t size, int32_t option = 0);

  std::string Dump() const;  // "3d 04:05:06.007", with a leading '-' when negative

 private:
  explicit TInterval(int64_t ms) : ms_(ms) {}
  int64_t ms_ = 0;
};

class TDate {
 public:
  // One past the last millisecond of the calendar: 0001-01-01 to 10000-01-01 is 3652059 days.
  static constexpr int64_t kEndMs = 3652059LL * 86400000;

  TDate() = default;
  TDate(int32_t year, int32_t month, int32_t day, int32_t hour = 0, int32_t minute = 0,
        int32_t second = 0, int32_t millisecond = 0) {
    Set(year, month, day, hour, minute, second, millisecond);
  }

  void Reset() { ms_ = 0; }
  bool IsDefault() const { return ms_ == 0; }
  void Set(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute, int32_t second,
           int32_t millisecond);
  // The current local time, or the fixed time set with SetFixedNow.
  void SetToCurrent();

  int32_t GetYear() const;
  int32_t GetMonth() const;  // 1..12
  int32_t GetDay() const;    // 1..31
  int32_t GetHour() const { return int32_t(MsOfDay() / 3600000); }
  int32_t GetMinute() const { return int32_t(MsOfDay() / 60000 % 60); }
  int32_t GetSecond() const { return int32_t(MsOfDay() / 1000 % 60); }
  int32_t GetMillisecond() const { return int32_t(MsOfDay() % 1000); }
  int32_t GetDOW() const;        // 0 = Sunday .. 6 = Saturday
  int32_t GetMaxDays() const;    // the length of the date's month
  int32_t GetDayOfYear() const;  // 1..366
  // The week of the month the day lies in: days 1-7 are week 1, 8-14 week 2, ... 29-31 week 5.
  // So a date in week 5 is always the last of its weekday in the month.
  int32_t GetMonthWeek() const;
  // The day of this month that is weekday wd (0 = Sunday) of week w: the w-th such weekday for
  // w 1..4, the last one for w 5 or more (w below 1 counts as 1).
  int32_t GetMonthWeekDay(int32_t wd, int32_t w) const;

  void SetYear(int32_t year);
  void SetMonth(int32_t month);
  void SetDay(int32_t day);
  void SetHour(int32_t hour);
  void SetMinute(int32_t minute);
  void SetSecond(int32_t second);
  void SetMillisecond(int32_t millisecond);

  auto operator<=>(const TDate&) const = default;
  TInterval operator-(const TDate& o) const { return TInterval::Milliseconds(ms_ - o.ms_); }
  TDate& operator+=(const TDateStep& step);
  TDate& operator-=(const TDateStep& step);
  TDate& operator+=(const TInterval& i) {
    ms_ = Clamp(ms_ + i.GetMilliseconds());
    return *this;
  }
  TDate& operator-=(const TInterval& i) { return *this += -i; }
  TDate operator+(const TDateStep& step) const { return TDate(*this) += step; }
  TDate operator-(const TDateStep& step) const { return TDate(*this) -= step; }
  TDate operator+(const TInterval& i) const { return TDate(*this) += i; }
  TDate operator-(const TInterval& i) const { return TDate(*this) -= i; }

  // Export form (codes and use: docs/formats.md), 12 bytes:
  //   offset  width  field  meaning
  //   0       4      head   "Dt", version 1, 0 (form_bytes.h)
  //   4       8      ms     milliseconds since 0001-01-01 00:00:00.000 local time, proleptic
  //                         Gregorian, signed, little-endian; 0 is the default date
  // Import refuses a count outside the calendar's range (below 0, or from 10000-01-01 on) as
  // damage.
  int32_t StoreSize() const { return 12; }
  int32_t Export(void* data, int64_t size, int32_t option = 0) const;
  int32_t Import(const void* data, int64_t size, int32_t option = 0);

  std::string Dump() const;  // "2026-11-23 10:00:00.000", or "default"

 private:
  friend class TDateStep;
  static int64_t Clamp(int64_t ms) { return ms < 0 ? 0 : ms >= kEndMs ? kEndMs - 1 : ms; }
  int64_t Days() const { return ms_ / 86400000; }
  int64_t MsOfDay() const { return ms_ % 86400000; }
  void SetFields(int32_t year, int32_t month, int32_t day, int64_t ms_of_day);
  int64_t ms_ = 0;
};

// A calendar step: years and months move by the calendar, the other fields by their fixed length.
class TDateStep {
 public:
  TDateStep() = default;
  TDateStep(int32_t years, int32_t months, int32_t weeks, int32_t days, int32_t hours,
            int32_t minutes, int32_t seconds, int32_t milliseconds)
      : f_{years, months, weeks, days, hours, minutes, seconds, milliseconds} {}

  void Reset() { *this = TDateStep(); }
  void SetYears(int32_t v) { f_[0] = v; }
  void SetMonths(int32_t v) { f_[1] = v; }
  void SetWeeks(int32_t v) { f_[2] = v; }
  void SetDays(int32_t v) { f_[3] = v; }
  void SetHours(int32_t v) { f_[4] = v; }
  void SetMinutes(int32_t v) { f_[5] = v; }
  void SetSeconds(int32_t v) { f_[6] = v; }
  void SetMilliseconds(int32_t v) { f_[7] = v; }
  int32_t GetYears() const { return f_[0]; }
  int32_t GetMonths() const { return f_[1]; }
  int32_t GetWeeks() const { return f_[2]; }
  int32_t GetHours() const { return f_[4]; }
  int32_t GetMinutes() const { return f_[5]; }
  int32_t GetSeconds() const { return f_[6]; }
  int32_t GetMilliseconds() const { return f_[7]; }
  // The whole days the step always moves: weeks x 7 + days. Years and months have no fixed length
  // and count 0, so a step of months answers 0.
  int64_t GetDays() const { return int64_t(f_[2]) * 7 + f_[3]; }

  bool operator==(const TDateStep&) const = default;

  // Export form (codes and use: docs/formats.md), 36 bytes; each field a signed little-endian
  // int32, in the order of the eight-field constructor:
  //   offset  width  field
  //   0       4      head "Ds", version 1, 0 (form_bytes.h)
  //   4       4      years
  //   8       4      months
  //   12      4      weeks
  //   16      4      days
  //   20      4      hours
  //   24      4      minutes
  //   28      4      seconds
  //   32      4      milliseconds
  int32_t StoreSize() const { return 36; }
  int32_t Export(void* data, int64_t size, int32_t option = 0) const;
  int32_t Import(const void* data, int64_t size, int32_t option = 0);

  std::string Dump() const;  // "1y 2m 3w 4d 05:06:07.008"

 private:
  friend class TDate;
  // Moves d by the years and months (sign 1 or -1), with the month-end rule.
  void AddCalendar(TDate& d, int sign) const;
  int64_t FixedMs() const {
    return ((GetDays() * 24 + f_[4]) * 60 + f_[5]) * 60000 + int64_t(f_[6]) * 1000 + f_[7];
  }
  int32_t f_[8] = {};
};

// Inline: stepping dates is the inner loop of schedule walks.
inline TDate& TDate::operator+=(const TDateStep& step) {
  if (step.f_[0] != 0 || step.f_[1] != 0) step.AddCalendar(*this, 1);
  ms_ = Clamp(ms_ + step.FixedMs());
  return *this;
}

inline TDate& TDate::operator-=(const TDateStep& step) {
  if (step.f_[0] != 0 || step.f_[1] != 0) step.AddCalendar(*this, -1);
  ms_ = Clamp(ms_ - step.FixedMs());
  return *this;
}

// Fixes the time SetToCurrent gives (for hosts and tests); ClearFixedNow returns to the clock.
void SetFixedNow(const TDate& now);
void ClearFixedNow();

}  // namespace fundra

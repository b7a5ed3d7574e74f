#include "platform/fundra/tdate.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>

#include "platform/fundra/form_bytes.h"

namespace fundra {

namespace chr = std::chrono;

namespace {

constexpr int64_t kMsPerDay = 86400000;
constexpr chr::sys_days kFirstDay = chr::sys_days(chr::year(1) / chr::January / 1);
constexpr int64_t kDayCount =
    (chr::sys_days(chr::year(10000) / chr::January / 1) - kFirstDay).count();
static_assert(kDayCount * kMsPerDay == TDate::kEndMs);
constexpr int64_t kEndMs = TDate::kEndMs;

chr::year_month_day Ymd(int64_t days) { return chr::year_month_day(kFirstDay + chr::days(days)); }

int32_t LastDay(int32_t year, int32_t month) {
  return int32_t(unsigned(
      chr::year_month_day_last(chr::year(year), chr::month_day_last(chr::month(unsigned(month))))
          .day()));
}

// The fixed current time, or -1 for the clock.
std::atomic<int64_t> fixed_now{-1};

}  // namespace

void TDate::SetFields(int32_t year, int32_t month, int32_t day, int64_t ms_of_day) {
  if (year < 1) {
    ms_ = 0;
    return;
  }
  if (year > 9999) {
    ms_ = kEndMs - 1;
    return;
  }
  month = std::clamp(month, 1, 12);
  day = std::clamp(day, 1, LastDay(year, month));
  chr::sys_days d = chr::year(year) / chr::month(unsigned(month)) / chr::day(unsigned(day));
  ms_ =
      Clamp((d - kFirstDay).count() * kMsPerDay + std::clamp<int64_t>(ms_of_day, 0, kMsPerDay - 1));
}

void TDate::Set(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute,
                int32_t second, int32_t millisecond) {
  int64_t time = int64_t(std::clamp(hour, 0, 23)) * 3600000 +
                 int64_t(std::clamp(minute, 0, 59)) * 60000 +
                 int64_t(std::clamp(second, 0, 59)) * 1000 + std::clamp(millisecond, 0, 999);
  SetFields(year, month, day, time);
}

void TDate::SetToCurrent() {
  int64_t fixed = fixed_now.load(std::memory_order_relaxed);
  if (fixed >= 0) {
    ms_ = fixed;
    return;
  }
  auto now = chr::system_clock::now();
  std::time_t t = chr::system_clock::to_time_t(now);
  std::tm local{};
  localtime_r(&t, &local);
  int32_t ms =
      int32_t(chr::duration_cast<chr::milliseconds>(now.time_since_epoch()).count() % 1000);
  Set(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
      std::min(local.tm_sec, 59), ms < 0 ? ms + 1000 : ms);
}

void SetFixedNow(const TDate& now) {
  TDate copy = now;
  TInterval since = copy - TDate();
  fixed_now.store(since.GetMilliseconds(), std::memory_order_relaxed);
}

void ClearFixedNow() { fixed_now.store(-1, std::memory_order_relaxed); }

int32_t TDate::GetYear() const { return int32_t(Ymd(Days()).year()); }
int32_t TDate::GetMonth() const { return int32_t(unsigned(Ymd(Days()).month())); }
int32_t TDate::GetDay() const { return int32_t(unsigned(Ymd(Days()).day())); }

int32_t TDate::GetDOW() const {
  return int32_t(chr::weekday(kFirstDay + chr::days(Days())).c_encoding());
}

int32_t TDate::GetMaxDays() const {
  auto ymd = Ymd(Days());
  return LastDay(int32_t(ymd.year()), int32_t(unsigned(ymd.month())));
}

int32_t TDate::GetDayOfYear() const {
  auto ymd = Ymd(Days());
  return int32_t((chr::sys_days(ymd) - chr::sys_days(ymd.year() / chr::January / 1)).count()) + 1;
}

int32_t TDate::GetMonthWeek() const { return (GetDay() - 1) / 7 + 1; }

int32_t TDate::GetMonthWeekDay(int32_t wd, int32_t w) const {
  auto ymd = Ymd(Days());
  chr::weekday day(unsigned(((wd % 7) + 7) % 7));
  if (w >= 5) {
    chr::year_month_weekday_last last(ymd.year(), ymd.month(), chr::weekday_last(day));
    return int32_t(unsigned(chr::year_month_day(chr::sys_days(last)).day()));
  }
  chr::year_month_weekday nth(ymd.year(), ymd.month(), day[unsigned(std::max(w, 1))]);
  return int32_t(unsigned(chr::year_month_day(chr::sys_days(nth)).day()));
}

void TDate::SetYear(int32_t year) { SetFields(year, GetMonth(), GetDay(), MsOfDay()); }
void TDate::SetMonth(int32_t month) { SetFields(GetYear(), month, GetDay(), MsOfDay()); }
void TDate::SetDay(int32_t day) { SetFields(GetYear(), GetMonth(), day, MsOfDay()); }
void TDate::SetHour(int32_t hour) {
  Set(GetYear(), GetMonth(), GetDay(), hour, GetMinute(), GetSecond(), GetMillisecond());
}
void TDate::SetMinute(int32_t minute) {
  Set(GetYear(), GetMonth(), GetDay(), GetHour(), minute, GetSecond(), GetMillisecond());
}
void TDate::SetSecond(int32_t second) {
  Set(GetYear(), GetMonth(), GetDay(), GetHour(), GetMinute(), second, GetMillisecond());
}
void TDate::SetMillisecond(int32_t millisecond) {
  Set(GetYear(), GetMonth(), GetDay(), GetHour(), GetMinute(), GetSecond(), millisecond);
}

void TDateStep::AddCalendar(TDate& d, int sign) const {
  auto ymd = Ymd(d.Days());
  int64_t months = int64_t(int32_t(ymd.year())) * 12 + (unsigned(ymd.month()) - 1) +
                   sign * (int64_t(f_[0]) * 12 + f_[1]);
  // Before year 1 the date stops at the first instant, past 9999 at the last.
  if (months < 12 || months >= int64_t(10000) * 12) {
    d.ms_ = months < 12 ? 0 : TDate::kEndMs - 1;
    return;
  }
  chr::year_month ym(chr::year(int(months / 12)), chr::month(unsigned(months % 12 + 1)));
  chr::day day = std::min(ymd.day(), (ym / chr::last).day());
  d.ms_ = (chr::sys_days(ym / day) - kFirstDay).count() * kMsPerDay + d.MsOfDay();
}

// --- export forms ---

namespace {
constexpr char kDateMagic[2] = {'D', 't'};
constexpr char kIntervalMagic[2] = {'I', 'v'};
constexpr char kStepMagic[2] = {'D', 's'};
}  // namespace

int32_t TDate::Export(void* data, int64_t size, int32_t option) const {
  if (int32_t bad = form::CheckExport(data, size, option, StoreSize())) return bad;
  form::Writer w(data);
  w.Head(kDateMagic);
  w.I64(ms_);
  return StoreSize();
}

int32_t TDate::Import(const void* data, int64_t size, int32_t option) {
  Reset();
  if (option != 0) return kFormBadOption;
  form::Reader r(data, size);
  if (int32_t bad = r.Head(kDateMagic)) return bad;
  if (!r.Has(8)) return kFormTruncated;
  int64_t ms = r.I64();
  if (ms < 0 || ms >= kEndMs) return kFormDamaged;
  ms_ = ms;
  return int32_t(r.used());
}

int32_t TInterval::Export(void* data, int64_t size, int32_t option) const {
  if (int32_t bad = form::CheckExport(data, size, option, StoreSize())) return bad;
  form::Writer w(data);
  w.Head(kIntervalMagic);
  w.I64(ms_);
  return StoreSize();
}

int32_t TInterval::Import(const void* data, int64_t size, int32_t option) {
  Reset();
  if (option != 0) return kFormBadOption;
  form::Reader r(data, size);
  if (int32_t bad = r.Head(kIntervalMagic)) return bad;
  if (!r.Has(8)) return kFormTruncated;
  int64_t ms = r.I64();
  // No two dates lie further apart than the calendar is long.
  if (ms <= -kEndMs || ms >= kEndMs) return kFormDamaged;
  ms_ = ms;
  return int32_t(r.used());
}

int32_t TDateStep::Export(void* data, int64_t size, int32_t option) const {
  if (int32_t bad = form::CheckExport(data, size, option, StoreSize())) return bad;
  form::Writer w(data);
  w.Head(kStepMagic);
  for (int32_t v : f_) w.I32(v);
  return StoreSize();
}

int32_t TDateStep::Import(const void* data, int64_t size, int32_t option) {
  Reset();
  if (option != 0) return kFormBadOption;
  form::Reader r(data, size);
  if (int32_t bad = r.Head(kStepMagic)) return bad;
  if (!r.Has(32)) return kFormTruncated;
  for (int32_t& v : f_) v = r.I32();
  return int32_t(r.used());
}

// --- dumps ---

std::string TDate::Dump() const {
  if (IsDefault()) return "default";
  char buf[40];
  std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d.%03d", GetYear(), GetMonth(),
                GetDay(), GetHour(), GetMinute(), GetSecond(), GetMillisecond());
  return buf;
}

std::string TInterval::Dump() const {
  int64_t a = ms_ < 0 ? -ms_ : ms_;
  char buf[64];
  std::snprintf(buf, sizeof buf, "%s%lldd %02lld:%02lld:%02lld.%03lld", ms_ < 0 ? "-" : "",
                (long long)(a / kMsPerDay), (long long)(a / 3600000 % 24),
                (long long)(a / 60000 % 60), (long long)(a / 1000 % 60), (long long)(a % 1000));
  return buf;
}

std::string TDateStep::Dump() const {
  char buf[96];
  std::snprintf(buf, sizeof buf, "%dy %dm %dw %dd %02d:%02d:%02d.%03d", f_[0], f_[1], f_[2], f_[3],
                f_[4], f_[5], f_[6], f_[7]);
  return buf;
}

}  // namespace fundra

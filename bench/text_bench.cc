// Date step addition and formatting, beside their references in the same run.
//
// BM_DateAddDays / BM_DateAddMonths: TDate += TDateStep of one day / one month (the schedule
// walk's inner step). References: BM_RefAddMilliseconds, the plain int64 addition a day step
// comes down to, and BM_RefChronoAddMonths, <chrono>'s year_month_day month addition with the
// month-end clamp done by hand.
// BM_SPrintfLine / BM_RefSnprintfLine: a typical log line through TString::SPrintf and through
// snprintf into a stack buffer. BM_ParseTemplateIval: a keyed template with nested choices.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>

#include "platform/fundra/kstrings.h"
#include "platform/fundra/tdate.h"
#include "platform/fundra/tstring.h"

using namespace fundra;

namespace {

void BM_DateAddDays(benchmark::State& state) {
  TDate d(2026, 1, 1, 9, 30);
  const TDate end(4000, 1, 1);
  TDateStep day(0, 0, 0, 1, 0, 0, 0, 0);
  for (auto _ : state) {
    d += day;
    benchmark::DoNotOptimize(d);
    if (end < d) d = TDate(2026, 1, 1, 9, 30);
  }
}
BENCHMARK(BM_DateAddDays);

void BM_RefAddMilliseconds(benchmark::State& state) {
  int64_t ms = 63900000000000;
  int64_t day = 86400000;
  benchmark::DoNotOptimize(day);
  for (auto _ : state) {
    ms += day;
    benchmark::DoNotOptimize(ms);
    if (ms > 126200000000000) ms = 63900000000000;
  }
}
BENCHMARK(BM_RefAddMilliseconds);

void BM_DateAddMonths(benchmark::State& state) {
  TDate d(2026, 1, 31, 9, 30);
  const TDate end(4000, 1, 1);
  TDateStep month(0, 1, 0, 0, 0, 0, 0, 0);
  for (auto _ : state) {
    d += month;
    benchmark::DoNotOptimize(d);
    if (end < d) d = TDate(2026, 1, 31, 9, 30);
  }
}
BENCHMARK(BM_DateAddMonths);

void BM_RefChronoAddMonths(benchmark::State& state) {
  using namespace std::chrono;
  year_month_day ymd = year(2026) / January / 31;
  int64_t ms_of_day = 34200000;
  for (auto _ : state) {
    year_month_day next = ymd + months(1);
    if (!next.ok()) next = next.year() / next.month() / last;
    int64_t ms = sys_days(next).time_since_epoch().count() * 86400000 + ms_of_day;
    benchmark::DoNotOptimize(ms);
    ymd = next;
    if (ymd.year() > year(4000)) ymd = year(2026) / January / 31;
  }
}
BENCHMARK(BM_RefChronoAddMonths);

void BM_SPrintfLine(benchmark::State& state) {
  TString s;
  int32_t dl = 1234;
  for (auto _ : state) {
    s.SPrintf("zoveCheckDL: DL %~d appears too small (%~d bytes, kind 0x%08x)", dl, 20, 0x700);
    benchmark::DoNotOptimize(s);
    ++dl;
  }
}
BENCHMARK(BM_SPrintfLine);

void BM_RefSnprintfLine(benchmark::State& state) {
  char buf[128];
  int32_t dl = 1234;
  for (auto _ : state) {
    std::snprintf(buf, sizeof buf, "zoveCheckDL: DL %d appears too small (%d bytes, kind 0x%08x)",
                  dl, 20, 0x700);
    benchmark::DoNotOptimize(buf);
    ++dl;
  }
}
BENCHMARK(BM_RefSnprintfLine);

void BM_ParseTemplateIval(benchmark::State& state) {
  DefineKString(18120, zelkor::fc("Ival"),
                "%~d {2:{1#second|seconds}|{1#minute|minutes}|{1#hour|hours}|{1#day|days}}");
  TString s;
  int32_t n = 0;
  for (auto _ : state) {
    s.ParseTemplate(18120, zelkor::fc("Ival"), n & 7, 3);
    benchmark::DoNotOptimize(s);
    ++n;
  }
}
BENCHMARK(BM_ParseTemplateIval);

}  // namespace

BENCHMARK_MAIN();

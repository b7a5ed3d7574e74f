// The format language: placeholders, choices, markers, keyed formats, scans and ordinals.
#include <gtest/gtest.h>

#include "platform/fundra/debug.h"
#include "platform/fundra/kstrings.h"
#include "platform/fundra/tdate.h"
#include "platform/fundra/tstring.h"

namespace fundra {
namespace {

using zelkor::fc;

class FormatTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ClearKStrings();
    LoadTextSource(
        "[tokens]\n1 = AM\n2 = PM\n8 = Sunday\n9 = Monday\n15 = January\n25 = November\n"
        "36 = th\n37 = st\n38 = nd\n39 = rd\n",
        "tokens");
  }
  void TearDown() override { ClearKStrings(); }

  template <class... A>
  std::string F(std::string_view format, const A&... args) {
    TString s;
    s.SPrintf(format, args...);
    EXPECT_TRUE(CheckText(s).empty());
    return std::string(s.View());
  }
};

TEST_F(FormatTest, LogPlaceholdersPrintWordsCodesAndHex) {
  EXPECT_EQ(F("zoveCheckDL: DL %~d appears too small", 42), "zoveCheckDL: DL 42 appears too small");
  EXPECT_EQ(F("Object <%Y=%~d>", fc("SRUN"), 17), "Object <SRUN=17>");
  EXPECT_EQ(F("Controller <%Y>", TString("text")), "Controller <text>");
  EXPECT_EQ(F("failed %E at 0x%08x", -808, 0xBEEFu), "failed -808 at 0x0000beef");
  // ~ narrows to the 32-bit word: a sign-extended word and its unsigned twin print alike.
  EXPECT_EQ(F("%~d %~d %d", zelkor::Word(-1), 0xFFFFFFFFu, int64_t(1) << 40),
            "-1 -1 1099511627776");
  EXPECT_EQ(F("%u %x %X", -1, -1, 255), "4294967295 ffffffff FF");
  EXPECT_EQ(F("[%5d|%-5d|%05d|%3s]", -12, 7, -42, "ab"), "[  -12|7    |-0042| ab]");
  EXPECT_EQ(F("%c%c%c", 'G', 0xE9, 0), "Gé\xEF\xBF\xBD");
  EXPECT_EQ(F("100%% %{x%}%|"), "100% {x}|");
  // The fallback display format of a spec builds a format in turn.
  TString built;
  built.SPrintf("$[$%c ]%~d.%Y.\"%%s\"", 'G', 18130, fc("Cs03"));
  EXPECT_EQ(built.View(), "$[$G ]18130.Cs03.\"%s\"");
}

TEST_F(FormatTest, PositionalArgumentsAndChoices) {
  const char* ival = "%~d {2:{1#second|seconds}|{1#minute|minutes}|{1#hour|hours}|{1#day|days}}";
  EXPECT_EQ(F(ival, 2, 3), "2 days");
  EXPECT_EQ(F(ival, 1, 2), "1 hour");
  EXPECT_EQ(F(ival, 0, 1), "0 minutes");
  EXPECT_EQ(F(ival, 90, 0), "90 seconds");
  EXPECT_EQ(F("{1#no runs|one run|%1$~d runs}", 0), "no runs");
  EXPECT_EQ(F("{1#no runs|one run|%1$~d runs}", 1), "one run");
  EXPECT_EQ(F("{1#no runs|one run|%1$~d runs}", 7), "7 runs");
  EXPECT_EQ(F("%2$s-%1$s-%s-%s", "a", "b"), "b-a-a-b");
  // Placeholders in alternatives not taken read no argument.
  EXPECT_EQ(F("{2:%s|x}%s", "first", 1), "xfirst");
  // A brace that does not open a choice is text.
  EXPECT_EQ(F("{x} {1 } {"), "{x} {1 } {");
}

TEST_F(FormatTest, DatePlaceholders) {
  TDate d(2026, 11, 23, 14, 5, 9, 7);
  EXPECT_EQ(F("%D|%N|%T|%A|%W|%Z", d, d, d, d, d, d),
            "Monday 23 November 2026|2026-11-23|14:05|2:05 PM|Monday|2026-11-23 14:05:09.007");
  TDate midnight(2026, 1, 1);
  EXPECT_EQ(F("{1:midnight|noon|%2$A}", 2, &midnight), "12:00 AM");
  EXPECT_EQ(F("{1:midnight|noon|%2$A}", 0, &midnight), "midnight");
  EXPECT_EQ(F("%A", TDate(2026, 1, 1, 12)), "12:00 PM");
}

TEST_F(FormatTest, WhatCannotBeHonouredShowsAMarker) {
  EXPECT_EQ(F("a %q b", 1), "a [?%q] b");
  EXPECT_EQ(F("%s and %s", "one"), "one and [?%s]");
  EXPECT_EQ(F("%s", 5), "[?%s]");
  EXPECT_EQ(F("%d", "text"), "[?%d]");
  EXPECT_EQ(F("%D", 5), "[?%D]");
  EXPECT_EQ(F("%s", static_cast<const TString*>(nullptr)), "[?%s]");
  EXPECT_EQ(F("{1:a|b}", 2), "[?{1:2}]");
  EXPECT_EQ(F("{1:a|b}", "x"), "[?{1:-1}]");
  EXPECT_EQ(F("{3#a|b}", 1), "[?{3#-}]");
  EXPECT_EQ(F("{1#a|b|c|d}", 1), "[?{1#1}]");
  EXPECT_EQ(F("x{1:a|b", 0), "x[?{1:0]");
  EXPECT_EQ(F("end %"), "end [?%]");
  // Deep nesting stops being structure instead of growing the stack.
  std::string nested;
  for (int i = 0; i < 5000; ++i) nested += "{1:";
  EXPECT_FALSE(F(nested, 0).empty());
}

TEST_F(FormatTest, KeyedFormatsAndTheirMarkers) {
  DefineKString(18130, fc("Once"), "Once on %D");
  DefineKString(18100, fc("ONIt"), "{1#one more|%1$~d more}");
  TString s;
  s.SPrintf(18130, fc("Once"), TDate(2026, 11, 23));
  EXPECT_EQ(s.View(), "Once on Monday 23 November 2026");
  s.ParseTemplate(18100, fc("ONIt"), 2);
  EXPECT_EQ(s.View(), "2 more");
  s.SPrintf(18130, fc("SmTd"), TDate(2026, 11, 23));
  EXPECT_EQ(s.View(), "[?18130.SmTd]");
  EXPECT_EQ(TString(18100, fc("ONIt")).View(), "{1#one more|%1$~d more}");
  EXPECT_EQ(TString(18100, fc("nope")).View(), "[?18100.nope]");
}

TEST_F(FormatTest, ScansMatchTheWholeText) {
  TString base("unchanged");
  int32_t n = -1;
  EXPECT_EQ(TString("Report copy 3").Scan("%s copy %~d", &base, &n), 2);
  EXPECT_EQ(base.View(), "Report");
  EXPECT_EQ(n, 3);
  EXPECT_EQ(TString("a copy b copy 12").Scan("%s copy %~d", &base, &n), 2);
  EXPECT_EQ(base.View(), "a copy b");
  EXPECT_EQ(n, 12);
  base.Set("kept");
  EXPECT_EQ(TString("Report copy").Scan("%s copy %~d", &base, &n), 0);
  EXPECT_EQ(base.View(), "kept");
  EXPECT_EQ(TString("Report copy").Scan("%s copy", &base), 1);
  EXPECT_EQ(base.View(), "Report");
  EXPECT_EQ(TString(" copy").Scan("%s copy", &base), 0);
  EXPECT_EQ(TString("100%").Scan("%~d%%", &n), 1);
  EXPECT_EQ(n, 100);
  uint32_t code = 0;
  EXPECT_EQ(TString("Setu").Scan("%y", &code), 1);
  EXPECT_EQ(code, fc("Setu"));
  EXPECT_EQ(TString("Set").Scan("%y", &code), 0);
  EXPECT_EQ(TString("99999999999").Scan("%~d", &n), 0);

  DefineKString(18110, fc("CyN?"), "%s copy %~d");
  EXPECT_EQ(TString("Été copy 2").Scan(18110, fc("CyN?"), &base, &n), 2);
  EXPECT_EQ(base.View(), "Été");
  EXPECT_EQ(TString("x copy 2").Scan(18110, fc("none"), &base, &n), 0);

  AssertCapture asserts;
  EXPECT_EQ(TString("x").Scan("%s %~d", &base), 0);
  EXPECT_EQ(asserts.size(), 1u);
}

TEST_F(FormatTest, OrdinalsAndTokens) {
  std::string got;
  for (int n : {1, 2, 3, 4, 11, 12, 13, 21, 22, 23, 101, 111, 112})
    got += std::string(TString::FormatOrdinal(n).View()) + " ";
  EXPECT_EQ(got, "1st 2nd 3rd 4th 11th 12th 13th 21st 22nd 23rd 101st 111th 112th ");
  EXPECT_EQ(TString::TokenToString(9, 0).View(), "Monday");
  EXPECT_EQ(TString::TokenToString(99, 0).View(), "[?token 99]");
}

}  // namespace
}  // namespace fundra

// Keyed string tables: the text file format, lookups, and the application's own text files.
#include "platform/fundra/kstrings.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/fundra/tdate.h"
#include "platform/fundra/tstring.h"

namespace fundra {
namespace {

using zelkor::fc;

const std::string kTexts =
    (std::filesystem::path(__FILE__).parent_path() / "../../app/texts").lexically_normal().string();

class KStringsTest : public ::testing::Test {
 protected:
  void SetUp() override { ClearKStrings(); }
  void TearDown() override { ClearKStrings(); }
};

TEST_F(KStringsTest, TextFilesDefineKeysTokensAndReportBadLines) {
  std::vector<std::string> problems;
  int32_t n = LoadTextSource(
      "# comment\n"
      "[18100]\n"
      "NCPt = Name of the new %s:\n"
      "SPfx = \"  padded  \"\n"
      "Esc  = tab\\there \\\"q\\\" line\\nnext\n"
      "0x00414243 = hex key\n"
      "CyN? =%s copy %~d   \n"
      "NCPt = again\n"
      "bad line\n"
      "[tokens]\n"
      "8 = Sunday\n"
      "x = nothing\n"
      "[wrong]\n"
      "ABCD = lost\n",
      "t.txt", &problems);
  EXPECT_EQ(n, 7);
  std::string text;
  ASSERT_TRUE(FindKString(18100, fc("NCPt"), &text));
  EXPECT_EQ(text, "again");
  ASSERT_TRUE(FindKString(18100, fc("SPfx"), &text));
  EXPECT_EQ(text, "  padded  ");
  ASSERT_TRUE(FindKString(18100, fc("Esc "), &text));
  EXPECT_EQ(text, "tab\there \"q\" line\nnext");
  ASSERT_TRUE(FindKString(18100, 0x00414243, &text));
  EXPECT_EQ(text, "hex key");
  ASSERT_TRUE(FindKString(18100, fc("CyN?"), &text));
  EXPECT_EQ(text, "%s copy %~d");
  ASSERT_TRUE(FindToken(8, &text));
  EXPECT_EQ(text, "Sunday");
  EXPECT_FALSE(FindKString(18100, fc("ABCD"), &text));
  ASSERT_EQ(problems.size(), 5u);
  EXPECT_EQ(problems[0], "t.txt:8: key NCPt defined again");
  EXPECT_EQ(problems[1].substr(0, 8), "t.txt:9:");
  EXPECT_EQ(problems[2].substr(0, 9), "t.txt:12:");
  EXPECT_EQ(problems[3].substr(0, 9), "t.txt:13:");
  EXPECT_EQ(problems[4].substr(0, 9), "t.txt:14:");

  // The dump reads back to the same tables.
  std::string dump = DumpKStrings();
  ClearKStrings();
  problems.clear();
  EXPECT_EQ(LoadTextSource(dump, "dump", &problems), 6);
  EXPECT_TRUE(problems.empty());
  EXPECT_EQ(DumpKStrings(), dump);
}

TEST_F(KStringsTest, LoadKStringAnswersZeroForAMissingKey) {
  DefineKString(18110, fc("NmPt"), "Name:");
  TString s("before");
  EXPECT_EQ(s.LoadKString(18110, fc("NmPt")), 1);
  EXPECT_EQ(s.View(), "Name:");
  EXPECT_EQ(s.LoadKString(18110, fc("Gone")), 0);
  EXPECT_TRUE(s.IsEmpty());
  EXPECT_EQ(s.LoadKString(18111, fc("NmPt")), 0);
}

TEST_F(KStringsTest, ApplicationTextsCoverEveryKeyTheModuleUses) {
  std::vector<std::string> problems;
  ASSERT_GT(LoadTextFolder(kTexts, &problems), 0) << kTexts;
  EXPECT_TRUE(problems.empty()) << problems.front();
  struct Use {
    uint16_t table;
    const char* keys;
  } uses[] = {
      {18100, "NCPt DCNm DCNN DCNE RCPt SPfx SNmS ONIt SSfx"},
      {18110, "NmPt RNPt NmIU CyN? Cpy? NmCy NCyN Untd UntN"},
      {18120, "Ival Banr Norm OFst OSep Cs01 Cs02 Cs03 CoTN CoN0 PcN0 PsN0"},
      {18130,
       "DsPx @Now @Doc Nevr DowP DowS DowT Dowp Dows Dowt DowN DowC DwTp Once LDOM Rei3 "
       "Rei4 Rei5 Rei6 Rei7 Runt SmWg SmDQ SmTd SmDF SmTF SmHN SmDs SmPx SmTI Cs01 CoTN "
       "PcN0 PsN0"},
      {18140, "SmDs SmPx SmNv SmAw SumM SumT NxWk Cs01 CoTN PcN0 PsN0"},
      {18150, "CoTN CoN0 CoN1 CoN2 CoN3 LkN0 LkN1 LkN2 LkN3 PcN0 PcN1 PcN2 PcN3 PsN0"},
  };
  for (const Use& u : uses) {
    for (std::string_view keys = u.keys; keys.size() >= 4;) {
      zelkor::FourCC key = zelkor::FourCC(uint8_t(keys[0])) << 24 |
                           zelkor::FourCC(uint8_t(keys[1])) << 16 |
                           zelkor::FourCC(uint8_t(keys[2])) << 8 | uint8_t(keys[3]);
      std::string text;
      EXPECT_TRUE(FindKString(u.table, key, &text)) << u.table << " " << keys.substr(0, 4);
      keys.remove_prefix(std::min<size_t>(5, keys.size()));
    }
  }
  // DCNN is DCNm - 31.
  std::string text;
  EXPECT_TRUE(FindKString(18100, fc("DCNm") - 31, &text));
  for (int t = 8; t <= 14; ++t) EXPECT_TRUE(FindToken(t, &text)) << t;
  for (int t = 29; t <= 35; ++t) EXPECT_TRUE(FindToken(t, &text)) << t;

  // The texts fill in as their callers pass arguments, without markers.
  TString s;
  s.ParseTemplate(18120, fc("Ival"), 48 / 24, 3);
  EXPECT_EQ(s.View(), "2 days");
  s.ParseTemplate(18120, fc("Ival"), 30, 2);
  EXPECT_EQ(s.View(), "30 hours");
  TString base, name;
  int32_t n = 0;
  name.SPrintf(18110, fc("NCyN"), TString("Backup"), 3);
  EXPECT_EQ(name.Scan(18110, fc("CyN?"), &base, &n), 2);
  EXPECT_EQ(base.View(), "Backup");
  EXPECT_EQ(n, 3);
  name.SPrintf(18110, fc("NmCy"), TString("Backup"));
  EXPECT_EQ(name.Scan(18110, fc("Cpy?"), &base), 1);
  name.SPrintf(18110, fc("UntN"), TString(), 2);
  EXPECT_EQ(name.View(), "Untitled 2");
  TDate when(2026, 11, 23, 8, 0);
  TString days("on Mondays");
  s.ParseTemplate(18130, fc("DwTp"), 2, 0, days, 0, when);
  EXPECT_EQ(s.View(), "Every 2 weeks on Mondays");
  s.ParseTemplate(18130, fc("Rei6"), 1, TString::FormatOrdinal(4), TString::TokenToString(9, 0),
                  TString::FormatOrdinal(23), when);
  EXPECT_EQ(s.View(), "On the 4th Monday of every month");
  s.ParseTemplate(18140, fc("SumM"), 2, when);
  EXPECT_EQ(s.View(), "8:00 AM");
  s.SPrintf(18130, fc("SmTI"), TString("Monday 23 November 2026"), TString("8:00"), TString("x"));
  EXPECT_EQ(s.View().find("[?"), std::string_view::npos);
}

}  // namespace
}  // namespace fundra

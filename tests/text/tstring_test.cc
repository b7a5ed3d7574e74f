// TString: characters, comparison, and the current and older export forms.
#include "platform/fundra/tstring.h"

#include <gtest/gtest.h>

namespace fundra {
namespace {

TEST(TStringTest, LengthsAndIndexesCountCharacters) {
  TString s("Zoë ☃ 𝄞!");
  EXPECT_EQ(s.Length(), 8);
  EXPECT_EQ(s.ByteLength(), 14);
  EXPECT_EQ(s.Left(3).View(), "Zoë");
  EXPECT_EQ(s.Left(100), s);
  EXPECT_TRUE(s.Left(0).IsEmpty());
  EXPECT_EQ(s.GetAt(2), U'ë');
  EXPECT_EQ(s.GetAt(6), U'𝄞');
  EXPECT_EQ(s.GetAt(8), 0u);
  EXPECT_EQ(s.GetAt(-1), 0u);
  s.Clear();
  s.Append("a").AppendChar(U'é').Append(TString("b"));
  EXPECT_EQ(s, "aéb");
  EXPECT_EQ(TString("3").GetAt(0) - U'0', 3u);
}

TEST(TStringTest, BytesFromOutsideAreMadeWellFormed) {
  TString s(
      std::string_view("a\xFF"
                       "b\xC0\xAF"
                       "c\xED\xA0\x80"
                       "d\0e",
                       12));
  EXPECT_TRUE(CheckText(s).empty());
  EXPECT_EQ(s.View(), "a\uFFFDb\uFFFD\uFFFDc\uFFFD\uFFFD\uFFFDd\uFFFDe");
  s.Append(std::string_view("\xE2\x98", 2));
  EXPECT_TRUE(CheckText(s).empty());
}

TEST(TStringTest, CompareOrdersNamesAsAPersonExpects) {
  auto cmp = [](const char* a, const char* b, int option) {
    return TString::Compare(TString(a), TString(b), option);
  };
  for (int option : {0, 1}) {
    EXPECT_LT(cmp("File 9", "File 10", option), 0);
    EXPECT_LT(cmp("apple", "Banana", option), 0);
    EXPECT_LT(cmp("Banana", "cherry", option), 0);
    EXPECT_LT(cmp("cote", "côte", option), 0);
    EXPECT_LT(cmp("côte", "coter", option), 0);
    EXPECT_GT(cmp("Zebra", "ábaco", option), 0);
    EXPECT_EQ(cmp("same", "same", option), 0);
    EXPECT_EQ(cmp("", "", option), 0);
    EXPECT_LT(cmp("", "a", option), 0);
  }
  // Case only breaks ties; option 0 may call canonically equal texts equal, option 1 never calls
  // different texts equal.
  EXPECT_LT(cmp("report", "Report", 0), 0);
  EXPECT_EQ(cmp("e\u0301", "\u00e9", 0), 0);
  EXPECT_NE(cmp("e\u0301", "\u00e9", 1), 0);
  EXPECT_EQ(cmp("e\u0301", "\u00e9", 1), -cmp("\u00e9", "e\u0301", 1));
}

TEST(TStringTest, ExportFormRoundTripsAndRefusesDamage) {
  TString s("Plan für Ünterhalt ☃");
  std::vector<uint8_t> bytes(size_t(s.StoreSize()));
  ASSERT_EQ(s.Export(bytes.data(), int64_t(bytes.size()), 0), s.StoreSize());
  EXPECT_EQ(bytes[0], 'T');
  EXPECT_EQ(bytes[1], 'S');
  EXPECT_EQ(bytes[4], s.ByteLength());
  TString back("old");
  EXPECT_EQ(back.Import(bytes.data(), int64_t(bytes.size())), s.StoreSize());
  EXPECT_EQ(back, s);
  // The store passes -1 for a blob it vouches for.
  EXPECT_EQ(back.Import(bytes.data(), -1, 0), s.StoreSize());
  EXPECT_EQ(back, s);
  for (size_t n = 0; n < bytes.size(); ++n) {
    back.Set("old");
    EXPECT_EQ(back.Import(bytes.data(), int64_t(n)), kFormTruncated) << n;
    EXPECT_TRUE(back.IsEmpty());
  }
  std::vector<uint8_t> bad = bytes;
  bad[9] = 0xFF;  // ill-formed UTF-8 inside
  EXPECT_EQ(back.Import(bad.data(), int64_t(bad.size())), kFormDamaged);
  bad = bytes;
  bad[7] = 0x80;  // a length far past the bytes
  EXPECT_EQ(back.Import(bad.data(), int64_t(bad.size())), kFormDamaged);
  bad[7] = 0x00, bad[6] = 0x10;
  EXPECT_EQ(back.Import(bad.data(), int64_t(bad.size())), kFormTruncated);
  EXPECT_EQ(s.Export(bytes.data(), int64_t(bytes.size()) - 1, 0), kFormNoRoom);
  EXPECT_EQ(s.Export(bytes.data(), int64_t(bytes.size()), 3), kFormBadOption);
  TString empty;
  uint8_t eight[8];
  EXPECT_EQ(empty.Export(eight, 8), 8);
  EXPECT_EQ(back.Import(eight, 8), 8);
  EXPECT_TRUE(back.IsEmpty());
}

TEST(TStringTest, OlderFormIsToldApartAndRead) {
  TString s("Café 9");
  uint8_t old[16];
  ASSERT_EQ(s.OldExport(old, sizeof old), 7);
  EXPECT_EQ(old[0], 6);
  EXPECT_EQ(old[4], 0xE9);
  TString back("x");
  EXPECT_EQ(back.Import(old, 7, 0), kFormForeign);
  EXPECT_TRUE(back.IsEmpty());
  EXPECT_EQ(back.OldImport(old, 0), 7);
  EXPECT_EQ(back, s);
  EXPECT_EQ(back.OldImport(old, 0, 6), kFormTruncated);
  EXPECT_TRUE(back.IsEmpty());
  old[2] = 0;
  EXPECT_EQ(back.OldImport(old, 0, 7), kFormDamaged);
  EXPECT_EQ(TString("☃").OldStoreSize(), -1);
  EXPECT_EQ(TString(std::string(256, 'a')).OldStoreSize(), -1);
}

}  // namespace
}  // namespace fundra

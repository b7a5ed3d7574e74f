#include "platform/fundra/tdate.h"
#include "platform/fundra/tstring.h"
#include "tests/store/store_fixture.h"

namespace zt {
namespace {

struct Values : StoreTest {
  int32_t dl = dn();
};

TEST_F(Values, ReadersTellMissingFromOtherKindsAndClearTheirOutput) {
  int32_t out = 77;
  EXPECT_EQ(S(s, kTSVG, dl, fc("none"), &out), kNoItem);
  EXPECT_EQ(out, 0);
  S(s, kTSVS, dl, fc("valu"), -12);
  EXPECT_EQ(S(s, kTSVG, dl, fc("valu"), &out), 0);
  EXPECT_EQ(out, -12);
  out = 5;
  EXPECT_EQ(S(s, kTSHG, dl, fc("valu"), &out), kWrongKind);
  EXPECT_EQ(out, 0);
  EXPECT_EQ(S(s, kTSBz, dl, fc("valu")), kWrongKind);
  EXPECT_EQ(S(s, kTSBP, dl, fc("valu")), 0);

  // A handle is read as a handle only; its kind word may carry a low byte.
  int32_t t = dn();
  S(s, kTSHS, dl, fc("hand"), t);
  poke(dl, fc("hand"), t, 0x2FF);
  EXPECT_EQ(S(s, kTSHG, dl, fc("hand"), &out), 0);
  EXPECT_EQ(out, t);
  EXPECT_EQ(S(s, kTSAG, dl, fc("hand"), &out), kWrongKind);
  S(s, kTSAS, dl, fc("part"), t);
  EXPECT_EQ(S(s, kTSAG, dl, fc("part"), &out), 0);
  EXPECT_EQ(out, t);
  EXPECT_EQ(S(s, kTSHG, dl, fc("part"), &out), kWrongKind);
}

TEST_F(Values, BlobsRoundTripThroughEveryShapeOfBuffer) {
  S(s, kTSBW, dl, fc("empt"), nullptr, 0);
  EXPECT_EQ(S(s, kTSBz, dl, fc("empt")), 0);
  EXPECT_NE(S(s, kTSBP, dl, fc("empt")), 0);

  S(s, kTSBW, dl, fc("blob"), "hello", 5);
  EXPECT_EQ(S(s, kTSBz, dl, fc("blob")), 5);
  char small[3] = {}, big[8] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
  EXPECT_EQ(S(s, kTSBR, dl, fc("blob"), small, 3), 0);
  EXPECT_EQ(std::string(small, 3), "hel");
  EXPECT_EQ(S(s, kTSBR, dl, fc("blob"), big, 8), 0);
  EXPECT_EQ(std::string(big, 8), "helloxxx");

  void* block = nullptr;
  EXPECT_EQ(S(s, kTSBG, dl, fc("blob"), &block), 0);
  ASSERT_EQ(fundra::MemSize(block), 5);
  EXPECT_EQ(std::memcmp(block, "hello", 5), 0);
  std::memcpy(block, "HELLO", 5);
  S(s, kTSBS, dl, fc("copy"), block);
  fundra::MemFree(block);
  fundra::TMemory mem;
  EXPECT_EQ(S(s, kTSBT, dl, fc("copy"), &mem), 0);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(mem.MemPtr()), size_t(mem.GetSize())), "HELLO");
  mem.SetSize(2);
  // Rewriting a blob reuses its element.
  int32_t before = rawItem(s, dl, 1).ref;
  S(s, kTSBF, dl, fc("copy"), &mem);
  EXPECT_EQ(S(s, kTSBz, dl, fc("copy")), 2);
  EXPECT_EQ(rawItem(s, dl, 1).ref, before);
  expectSound(s);
}

TEST_F(Values, WritingABlobOverAListRemovesTheListButNotAHandleTarget) {
  int32_t t = dn();
  S(s, kTSLA, dl, fc("memb"), t);
  int32_t list = rawItem(s, dl, 0).ref;
  S(s, kTSBW, dl, fc("memb"), "ab", 2);
  EXPECT_NE(sp->LmTest(list), 0);
  S(s, kTSHS, dl, fc("hand"), t);
  fundra::TString text("over");
  S(s, kTSSs, dl, fc("hand"), &text);
  EXPECT_TRUE(live(t));
  fundra::TString back("stale");
  EXPECT_EQ(S(s, kTSSg, dl, fc("hand"), &back), 0);
  EXPECT_EQ(back, "over");
  expectSound(s);
}

TEST_F(Values, StringsReadTheirCurrentAndOlderFormsAndNullWritesEmpty) {
  fundra::TString text("Zählerstand"), out("x");
  S(s, kTSSs, dl, fc("Name"), &text);
  EXPECT_EQ(S(s, kTSBz, dl, fc("Name")), text.StoreSize());
  EXPECT_EQ(S(s, kTSSg, dl, fc("Name"), &out), 0);
  EXPECT_EQ(out, text);
  EXPECT_EQ(S(s, kTSSg, dl, fc("Name"), nullptr), 0);
  EXPECT_EQ(S(s, kTSSg, dl, fc("none"), &out), kNoItem);
  EXPECT_TRUE(out.IsEmpty());

  fundra::TString old("Old name");
  std::vector<uint8_t> bytes(size_t(old.OldStoreSize()));
  old.OldExport(bytes.data(), int64_t(bytes.size()));
  S(s, kTSBW, dl, fc("Old "), bytes.data(), int32_t(bytes.size()));
  EXPECT_EQ(S(s, kTSSg, dl, fc("Old "), &out), 0);
  EXPECT_EQ(out, "Old name");

  S(s, kTSSs, dl, fc("Name"), nullptr);
  EXPECT_EQ(S(s, kTSBz, dl, fc("Name")), 0);
  S(s, kTSVS, dl, fc("valu"), 1);
  EXPECT_EQ(S(s, kTSSg, dl, fc("valu"), &out), kWrongKind);
}

TEST_F(Values, DatesIntervalsAndStepsRoundTripAndResetOnFailure) {
  fundra::TDate date = fundra::TDate(2026, 11, 23, 1, 30, 0);
  S(s, kTDtS, dl, fc("Date"), &date);
  fundra::TDate back = fundra::TDate(2000, 1, 1);
  EXPECT_EQ(S(s, kTDtG, dl, fc("Date"), &back), 0);
  EXPECT_TRUE(back == date);
  EXPECT_LT(S(s, kTDtG, dl, fc("none"), &back), 0);
  EXPECT_TRUE(back == fundra::TDate());
  S(s, kTSBW, dl, fc("junk"), "12", 2);
  back = date;
  EXPECT_LT(S(s, kTDtG, dl, fc("junk"), &back), 0);
  EXPECT_TRUE(back == fundra::TDate());

  fundra::TInterval iv = fundra::TInterval::Milliseconds(90000);
  S(s, kTInS, dl, fc("Ivl "), &iv);
  fundra::TInterval ivBack;
  EXPECT_EQ(S(s, kTInG, dl, fc("Ivl "), &ivBack), 0);
  EXPECT_EQ(ivBack.GetMilliseconds(), 90000);
  fundra::TDateStep step;
  S(s, kTDsS, dl, fc("Step"), &step);
  EXPECT_EQ(S(s, kTDsG, dl, fc("Step"), &step), 0);
  EXPECT_EQ(S(s, kTDsG, dl, fc("Date"), &step), fundra::kFormForeign);
}

// An object value: StSz answers `size`, Expt writes `fill` bytes, Impt remembers what it read.
struct ValueObj {
  int32_t size;
  uint8_t fill;
  std::vector<uint8_t>* read;
};
ClassRec* gValueClass;

Object* valueObject(int32_t size, uint8_t fill, std::vector<uint8_t>* read) {
  if (!gValueClass) {
    gValueClass = makeSubclass(rootClass(), fc("tVal"), sizeof(ValueObj));
    Defn(gValueClass, kStSz, [](Object* self, const Msg&) -> Word {
      return instanceData<ValueObj>(self, gValueClass)->size;
    });
    Defn(gValueClass, kExpt, [](Object* self, const Msg& m) -> Word {
      std::memset(asPtr<void>(m.w[0]), instanceData<ValueObj>(self, gValueClass)->fill,
                  size_t(m.w[1]));
      return 0;
    });
    Defn(gValueClass, kImpt, [](Object* self, const Msg& m) -> Word {
      auto* at = asPtr<uint8_t>(m.w[0]);
      instanceData<ValueObj>(self, gValueClass)->read->assign(at, at + m.w[1]);
      return 3;
    });
  }
  Object* o = asObject(send(gValueClass->classObject, kNew_));
  *instanceData<ValueObj>(o, gValueClass) = {size, fill, read};
  return o;
}

TEST_F(Values, ObjectValuesStoreWhatTheObjectExportsAndNothingForSizeZero) {
  std::vector<uint8_t> read;
  Object* a = valueObject(6, 0xAB, &read);
  EXPECT_EQ(S(s, kTMoS, dl, fc("objv"), a), 0);
  EXPECT_EQ(S(s, kTSBz, dl, fc("objv")), 6);
  EXPECT_EQ(S(s, kTMoG, dl, fc("objv"), a), 0);
  EXPECT_EQ(read, std::vector<uint8_t>(6, 0xAB));
  Object* empty = valueObject(0, 0, &read);
  EXPECT_EQ(S(s, kTMoS, dl, fc("objv"), empty), -1);
  EXPECT_EQ(S(s, kTSBz, dl, fc("objv")), kNoItem);
  EXPECT_EQ(S(s, kTMoG, dl, fc("objv"), a), kNoItem);
  S(a, kDspo);
  S(empty, kDspo);
}

}  // namespace
}  // namespace zt

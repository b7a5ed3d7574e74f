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
  EXPECT_EQ(S(s, fc("TSVG"), dl, fc("none"), &out), kNoItem);
  EXPECT_EQ(out, 0);
  S(s, fc("TSVS"), dl, fc("valu"), -12);
  EXPECT_EQ(S(s, fc("TSVG"), dl, fc("valu"), &out), 0);
  EXPECT_EQ(out, -12);
  out = 5;
  EXPECT_EQ(S(s, fc("TSHG"), dl, fc("valu"), &out), kWrongKind);
  EXPECT_EQ(out, 0);
  EXPECT_EQ(S(s, fc("TSBz"), dl, fc("valu")), kWrongKind);
  EXPECT_EQ(S(s, fc("TSBP"), dl, fc("valu")), 0);

  // A handle is read as a handle only; its kind word may carry a low byte.
  int32_t t = dn();
  S(s, fc("TSHS"), dl, fc("hand"), t);
  poke(dl, fc("hand"), t, 0x2FF);
  EXPECT_EQ(S(s, fc("TSHG"), dl, fc("hand"), &out), 0);
  EXPECT_EQ(out, t);
  EXPECT_EQ(S(s, fc("TSAG"), dl, fc("hand"), &out), kWrongKind);
  S(s, fc("TSAS"), dl, fc("part"), t);
  EXPECT_EQ(S(s, fc("TSAG"), dl, fc("part"), &out), 0);
  EXPECT_EQ(out, t);
  EXPECT_EQ(S(s, fc("TSHG"), dl, fc("part"), &out), kWrongKind);
}

TEST_F(Values, BlobsRoundTripThroughEveryShapeOfBuffer) {
  S(s, fc("TSBW"), dl, fc("empt"), nullptr, 0);
  EXPECT_EQ(S(s, fc("TSBz"), dl, fc("empt")), 0);
  EXPECT_NE(S(s, fc("TSBP"), dl, fc("empt")), 0);

  S(s, fc("TSBW"), dl, fc("blob"), "hello", 5);
  EXPECT_EQ(S(s, fc("TSBz"), dl, fc("blob")), 5);
  char small[3] = {}, big[8] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
  EXPECT_EQ(S(s, fc("TSBR"), dl, fc("blob"), small, 3), 0);
  EXPECT_EQ(std::string(small, 3), "hel");
  EXPECT_EQ(S(s, fc("TSBR"), dl, fc("blob"), big, 8), 0);
  EXPECT_EQ(std::string(big, 8), "helloxxx");

  void* block = nullptr;
  EXPECT_EQ(S(s, fc("TSBG"), dl, fc("blob"), &block), 0);
  ASSERT_EQ(fundra::MemSize(block), 5);
  EXPECT_EQ(std::memcmp(block, "hello", 5), 0);
  std::memcpy(block, "HELLO", 5);
  S(s, fc("TSBS"), dl, fc("copy"), block);
  fundra::MemFree(block);
  fundra::TMemory mem;
  EXPECT_EQ(S(s, fc("TSBT"), dl, fc("copy"), &mem), 0);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(mem.MemPtr()), size_t(mem.GetSize())), "HELLO");
  mem.SetSize(2);
  // Rewriting a blob reuses its element.
  int32_t before = rawItem(s, dl, 1).ref;
  S(s, fc("TSBF"), dl, fc("copy"), &mem);
  EXPECT_EQ(S(s, fc("TSBz"), dl, fc("copy")), 2);
  EXPECT_EQ(rawItem(s, dl, 1).ref, before);
  expectSound(s);
}

TEST_F(Values, WritingABlobOverAListRemovesTheListButNotAHandleTarget) {
  int32_t t = dn();
  S(s, fc("TSLA"), dl, fc("memb"), t);
  int32_t list = rawItem(s, dl, 0).ref;
  S(s, fc("TSBW"), dl, fc("memb"), "ab", 2);
  EXPECT_NE(sp->LmTest(list), 0);
  S(s, fc("TSHS"), dl, fc("hand"), t);
  fundra::TString text("over");
  S(s, fc("TSSs"), dl, fc("hand"), &text);
  EXPECT_TRUE(live(t));
  fundra::TString back("stale");
  EXPECT_EQ(S(s, fc("TSSg"), dl, fc("hand"), &back), 0);
  EXPECT_EQ(back, "over");
  expectSound(s);
}

TEST_F(Values, StringsReadTheirCurrentAndOlderFormsAndNullWritesEmpty) {
  fundra::TString text("Zählerstand"), out("x");
  S(s, fc("TSSs"), dl, fc("Name"), &text);
  EXPECT_EQ(S(s, fc("TSBz"), dl, fc("Name")), text.StoreSize());
  EXPECT_EQ(S(s, fc("TSSg"), dl, fc("Name"), &out), 0);
  EXPECT_EQ(out, text);
  EXPECT_EQ(S(s, fc("TSSg"), dl, fc("Name"), nullptr), 0);
  EXPECT_EQ(S(s, fc("TSSg"), dl, fc("none"), &out), kNoItem);
  EXPECT_TRUE(out.IsEmpty());

  fundra::TString old("Old name");
  std::vector<uint8_t> bytes(size_t(old.OldStoreSize()));
  old.OldExport(bytes.data(), int64_t(bytes.size()));
  S(s, fc("TSBW"), dl, fc("Old "), bytes.data(), int32_t(bytes.size()));
  EXPECT_EQ(S(s, fc("TSSg"), dl, fc("Old "), &out), 0);
  EXPECT_EQ(out, "Old name");

  S(s, fc("TSSs"), dl, fc("Name"), nullptr);
  EXPECT_EQ(S(s, fc("TSBz"), dl, fc("Name")), 0);
  S(s, fc("TSVS"), dl, fc("valu"), 1);
  EXPECT_EQ(S(s, fc("TSSg"), dl, fc("valu"), &out), kWrongKind);
}

TEST_F(Values, DatesIntervalsAndStepsRoundTripAndResetOnFailure) {
  fundra::TDate date = fundra::TDate(2026, 11, 23, 1, 30, 0);
  S(s, fc("TDtS"), dl, fc("Date"), &date);
  fundra::TDate back = fundra::TDate(2000, 1, 1);
  EXPECT_EQ(S(s, fc("TDtG"), dl, fc("Date"), &back), 0);
  EXPECT_TRUE(back == date);
  EXPECT_LT(S(s, fc("TDtG"), dl, fc("none"), &back), 0);
  EXPECT_TRUE(back == fundra::TDate());
  S(s, fc("TSBW"), dl, fc("junk"), "12", 2);
  back = date;
  EXPECT_LT(S(s, fc("TDtG"), dl, fc("junk"), &back), 0);
  EXPECT_TRUE(back == fundra::TDate());

  fundra::TInterval iv = fundra::TInterval::Milliseconds(90000);
  S(s, fc("TInS"), dl, fc("Ivl "), &iv);
  fundra::TInterval ivBack;
  EXPECT_EQ(S(s, fc("TInG"), dl, fc("Ivl "), &ivBack), 0);
  EXPECT_EQ(ivBack.GetMilliseconds(), 90000);
  fundra::TDateStep step;
  S(s, fc("TDsS"), dl, fc("Step"), &step);
  EXPECT_EQ(S(s, fc("TDsG"), dl, fc("Step"), &step), 0);
  EXPECT_EQ(S(s, fc("TDsG"), dl, fc("Date"), &step), fundra::kFormForeign);
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
    Defn(gValueClass, fc("StSz"), [](Object* self, const Msg&) -> Word {
      return instanceData<ValueObj>(self, gValueClass)->size;
    });
    Defn(gValueClass, fc("Expt"), [](Object* self, const Msg& m) -> Word {
      std::memset(asPtr<void>(m.w[0]), instanceData<ValueObj>(self, gValueClass)->fill,
                  size_t(m.w[1]));
      return 0;
    });
    Defn(gValueClass, fc("Impt"), [](Object* self, const Msg& m) -> Word {
      auto* at = asPtr<uint8_t>(m.w[0]);
      instanceData<ValueObj>(self, gValueClass)->read->assign(at, at + m.w[1]);
      return 3;
    });
  }
  Object* o = asObject(send(gValueClass->classObject, fc("New ")));
  *instanceData<ValueObj>(o, gValueClass) = {size, fill, read};
  return o;
}

TEST_F(Values, ObjectValuesStoreWhatTheObjectExportsAndNothingForSizeZero) {
  std::vector<uint8_t> read;
  Object* a = valueObject(6, 0xAB, &read);
  EXPECT_EQ(S(s, fc("TMoS"), dl, fc("objv"), a), 0);
  EXPECT_EQ(S(s, fc("TSBz"), dl, fc("objv")), 6);
  EXPECT_EQ(S(s, fc("TMoG"), dl, fc("objv"), a), 0);
  EXPECT_EQ(read, std::vector<uint8_t>(6, 0xAB));
  Object* empty = valueObject(0, 0, &read);
  EXPECT_EQ(S(s, fc("TMoS"), dl, fc("objv"), empty), -1);
  EXPECT_EQ(S(s, fc("TSBz"), dl, fc("objv")), kNoItem);
  EXPECT_EQ(S(s, fc("TMoG"), dl, fc("objv"), a), kNoItem);
  S(a, fc("Dspo"));
  S(empty, fc("Dspo"));
}

}  // namespace
}  // namespace zt

#include "platform/fundra/tstring.h"
#include "tests/store/store_fixture.h"

namespace zt {
namespace {

struct Lists : ::testing::Test {
  Object* s = newStore(1);
  fundra::ElementSpace* sp = spaceOf(s);
  Word dl = S(s, fc("TSDN"), fc("data"), 0, 0);
  void TearDown() override { S(s, fc("Dspo")); }

  std::vector<int32_t> list(FourCC key = fc("memb")) {
    std::vector<int32_t> out;
    for (int32_t i = 0; i < S(s, fc("TSLC"), dl, key); ++i)
      out.push_back(i32(S(s, fc("TSLE"), dl, key, i)));
    return out;
  }
  void set(std::vector<int32_t> v) {
    void* block = fundra::MemAlloc(int32_t(v.size() * 4));
    std::memcpy(block, v.data(), v.size() * 4);
    S(s, fc("TSLH"), dl, fc("memb"), block);
    fundra::MemFree(block);
  }
};

TEST_F(Lists, AppendInsertDeleteAndFindKeepOrderAndRepeats) {
  EXPECT_EQ(S(s, fc("TSLC"), dl, fc("memb")), 0);
  S(s, fc("TSLA"), dl, fc("memb"), 4);
  EXPECT_EQ(S(s, fc("TSLC"), dl, fc("memb")), 1);
  S(s, fc("TSLA"), dl, fc("memb"), 5);
  S(s, fc("TSLI"), dl, fc("memb"), 7, 0);
  EXPECT_EQ(list(), (std::vector<int32_t>{7, 4, 5}));
  set({4, 5});
  S(s, fc("TSLI"), dl, fc("memb"), 7, 9);
  EXPECT_EQ(list(), (std::vector<int32_t>{4, 5, 7}));
  S(s, fc("TSLI"), dl, fc("memb"), 8, -1);
  EXPECT_EQ(list(), (std::vector<int32_t>{4, 5, 7, 8}));
  EXPECT_EQ(S(s, fc("TSLE"), dl, fc("memb"), 4), 0);
  EXPECT_EQ(S(s, fc("TSLE"), dl, fc("memb"), -1), 0);

  set({4, 5, 4});
  S(s, fc("TSLD"), dl, fc("memb"), 4);
  EXPECT_EQ(list(), std::vector<int32_t>{5});
  set({4, 5, 5});
  EXPECT_EQ(S(s, fc("TSLF"), dl, fc("memb"), 5), 1);
  EXPECT_EQ(S(s, fc("TSLF"), dl, fc("memb"), 6), kNoItem);
  EXPECT_EQ(S(s, fc("TSLF"), dl, fc("none"), 5), kNoItem);
  S(s, fc("TSVS"), dl, fc("valu"), 1);
  EXPECT_EQ(S(s, fc("TSLF"), dl, fc("valu"), 5), kWrongKind);
  EXPECT_EQ(S(s, fc("TSLC"), dl, fc("valu")), 0);
  EXPECT_EQ(S(s, fc("TSLE"), dl, fc("valu"), 0), 0);
  fundra::AssertCapture asserts;
  S(s, fc("TSLA"), dl, fc("valu"), 5);
  S(s, fc("TSLD"), dl, fc("valu"), 5);
  EXPECT_EQ(asserts.size(), 2u);

  // TSLN empties a list in place.
  S(s, fc("TSLN"), dl, fc("memb"));
  EXPECT_EQ(S(s, fc("TSLC"), dl, fc("memb")), 0);
}

TEST_F(Lists, AddingMembersTakesThemOffTheKeepList) {
  S(s, fc("TSAS"), 1, fc("root"), dl);
  Word a = S(s, fc("TSDN"), fc("data"), 0, 0), b = S(s, fc("TSDN"), fc("data"), 0, 0),
       c = S(s, fc("TSDN"), fc("data"), 0, 0);
  S(s, fc("TSLA"), dl, fc("memb"), a);
  fundra::TMemory mem(8);
  std::memcpy(mem.MemPtr(), std::vector<int32_t>{int32_t(b), int32_t(c)}.data(), 8);
  S(s, fc("TSLf"), dl, fc("othr"), &mem);
  expectSound(s);
  EXPECT_EQ(list(fc("othr")), (std::vector<int32_t>{int32_t(b), int32_t(c)}));
  fundra::TMemory back;
  EXPECT_EQ(S(s, fc("TSLt"), dl, fc("othr"), &back), 0);
  EXPECT_EQ(back.GetSize(), 8);
  void* block = nullptr;
  EXPECT_EQ(S(s, fc("TSLG"), dl, fc("memb"), &block), 0);
  EXPECT_EQ(fundra::MemSize(block), 4);
  fundra::MemFree(block);

  // Released members live only as long as a list names them.
  S(s, fc("TSLD"), dl, fc("othr"), b);
  EXPECT_EQ(S(s, fc("TSGC")), 0);
  EXPECT_EQ(sp->LmTest(int32_t(a)), 0);
  EXPECT_NE(sp->LmTest(int32_t(b)), 0);
  EXPECT_EQ(sp->LmTest(int32_t(c)), 0);
}

int32_t descending(void*, const void* a, const void* b) {
  int32_t x, y;
  std::memcpy(&x, a, 4);
  std::memcpy(&y, b, 4);
  return y - x;
}

TEST_F(Lists, SortingLocksTheSpaceAndOrdersNamedMembersFirstByName) {
  set({3, 9, 5});
  EXPECT_EQ(S(s, fc("TSLS"), dl, fc("memb"), nullptr, &descending), 0);
  EXPECT_EQ(list(), (std::vector<int32_t>{9, 5, 3}));
  EXPECT_EQ(sp->LmLockDepth(), 0);
  EXPECT_EQ(S(s, fc("TSLS"), dl, fc("none"), nullptr, &descending), 0);

  Word zed = S(s, fc("TSDN"), fc("data"), 0, 0), alf = S(s, fc("TSDN"), fc("data"), 0, 0);
  fundra::TString z("zed"), a("Alpha");
  S(s, fc("TSSs"), zed, fc("Name"), &z);
  S(s, fc("TSSs"), alf, fc("Name"), &a);
  // Unnamed members sort after the named ones, by DL number.
  Word d9 = S(s, fc("TSDN"), fc("data"), 0, 0), d3 = S(s, fc("TSDN"), fc("data"), 0, 0);
  set({int32_t(d9), int32_t(zed), int32_t(d3), int32_t(alf)});
  S(s, fc("TSSN"), dl, fc("memb"));
  int32_t lo = int32_t(std::min(d9, d3)), hi = int32_t(std::max(d9, d3));
  EXPECT_EQ(list(), (std::vector<int32_t>{int32_t(alf), int32_t(zed), lo, hi}));
  EXPECT_EQ(sp->LmLockDepth(), 0);
}

}  // namespace
}  // namespace zt

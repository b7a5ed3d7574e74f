#include "platform/fundra/tstring.h"
#include "tests/store/store_fixture.h"

namespace zt {
namespace {

struct Lists : StoreTest {
  int32_t dl = dn();

  std::vector<int32_t> list(FourCC key = fc("memb")) {
    std::vector<int32_t> out;
    for (int32_t i = 0; i < S(s, kTSLC, dl, key); ++i) out.push_back(i32(S(s, kTSLE, dl, key, i)));
    return out;
  }
  void set(std::vector<int32_t> v) {
    void* block = fundra::MemAlloc(int32_t(v.size() * 4));
    std::memcpy(block, v.data(), v.size() * 4);
    S(s, kTSLH, dl, fc("memb"), block);
    fundra::MemFree(block);
  }
};

TEST_F(Lists, AppendInsertDeleteAndFindKeepOrderAndRepeats) {
  EXPECT_EQ(S(s, kTSLC, dl, fc("memb")), 0);
  S(s, kTSLA, dl, fc("memb"), 4);
  EXPECT_EQ(S(s, kTSLC, dl, fc("memb")), 1);
  S(s, kTSLA, dl, fc("memb"), 5);
  S(s, kTSLI, dl, fc("memb"), 7, 0);
  EXPECT_EQ(list(), (std::vector<int32_t>{7, 4, 5}));
  set({4, 5});
  S(s, kTSLI, dl, fc("memb"), 7, 9);
  EXPECT_EQ(list(), (std::vector<int32_t>{4, 5, 7}));
  S(s, kTSLI, dl, fc("memb"), 8, -1);
  EXPECT_EQ(list(), (std::vector<int32_t>{4, 5, 7, 8}));
  EXPECT_EQ(S(s, kTSLE, dl, fc("memb"), 4), 0);
  EXPECT_EQ(S(s, kTSLE, dl, fc("memb"), -1), 0);

  set({4, 5, 4});
  S(s, kTSLD, dl, fc("memb"), 4);
  EXPECT_EQ(list(), std::vector<int32_t>{5});
  set({4, 5, 5});
  EXPECT_EQ(S(s, kTSLF, dl, fc("memb"), 5), 1);
  EXPECT_EQ(S(s, kTSLF, dl, fc("memb"), 6), kNoItem);
  EXPECT_EQ(S(s, kTSLF, dl, fc("none"), 5), kNoItem);
  S(s, kTSVS, dl, fc("valu"), 1);
  EXPECT_EQ(S(s, kTSLF, dl, fc("valu"), 5), kWrongKind);
  EXPECT_EQ(S(s, kTSLC, dl, fc("valu")), 0);
  EXPECT_EQ(S(s, kTSLE, dl, fc("valu"), 0), 0);
  fundra::AssertCapture asserts;
  S(s, kTSLA, dl, fc("valu"), 5);
  S(s, kTSLD, dl, fc("valu"), 5);
  EXPECT_EQ(asserts.size(), 2u);

  // TSLN empties a list in place.
  S(s, kTSLN, dl, fc("memb"));
  EXPECT_EQ(S(s, kTSLC, dl, fc("memb")), 0);
}

// A damaged list item whose list is its DL's own element: the delete rewrites the DL as it moves
// the members, and still cuts the element it opened, and no other.
TEST_F(Lists, DeletingFromAListThatIsItsOwnDLCutsOnlyThatElement) {
  S(s, kTSAS, 1, fc("keep"), dl);
  S(s, kTSLA, dl, fc("memb"), 4);
  poke(dl, fc("memb"), dl, kList);
  const int32_t count = sp->LmCount();
  const int32_t size = sp->LmSize(dl);
  S(s, kTSLD, dl, fc("memb"), 0);
  EXPECT_EQ(sp->LmCount(), count);
  EXPECT_LT(sp->LmSize(dl), size);
  EXPECT_EQ(sp->LmSize(dl) % 4, 0);
}

TEST_F(Lists, AddingMembersTakesThemOffTheKeepList) {
  S(s, kTSAS, 1, fc("root"), dl);
  int32_t a = dn(), b = dn(), c = dn();
  S(s, kTSLA, dl, fc("memb"), a);
  fundra::TMemory mem(8);
  std::memcpy(mem.MemPtr(), std::vector<int32_t>{b, c}.data(), 8);
  S(s, kTSLf, dl, fc("othr"), &mem);
  expectSound(s);
  EXPECT_EQ(list(fc("othr")), (std::vector<int32_t>{b, c}));
  fundra::TMemory back;
  EXPECT_EQ(S(s, kTSLt, dl, fc("othr"), &back), 0);
  EXPECT_EQ(back.GetSize(), 8);
  void* block = nullptr;
  EXPECT_EQ(S(s, kTSLG, dl, fc("memb"), &block), 0);
  EXPECT_EQ(fundra::MemSize(block), 4);
  fundra::MemFree(block);

  // Released members live only as long as a list names them.
  S(s, kTSLD, dl, fc("othr"), b);
  EXPECT_EQ(S(s, kTSGC), 0);
  EXPECT_TRUE(live(a));
  EXPECT_FALSE(live(b));
  EXPECT_TRUE(live(c));
}

int32_t descending(void*, const void* a, const void* b) {
  int32_t x, y;
  std::memcpy(&x, a, 4);
  std::memcpy(&y, b, 4);
  return y - x;
}

TEST_F(Lists, SortingLocksTheSpaceAndOrdersNamedMembersFirstByName) {
  set({3, 9, 5});
  EXPECT_EQ(S(s, kTSLS, dl, fc("memb"), nullptr, &descending), 0);
  EXPECT_EQ(list(), (std::vector<int32_t>{9, 5, 3}));
  EXPECT_EQ(sp->LmLockDepth(), 0);
  EXPECT_EQ(S(s, kTSLS, dl, fc("none"), nullptr, &descending), 0);

  int32_t zed = dn(), alf = dn();
  fundra::TString z("zed"), a("Alpha");
  S(s, kTSSs, zed, fc("Name"), &z);
  S(s, kTSSs, alf, fc("Name"), &a);
  // Unnamed members sort after the named ones, by DL number.
  int32_t d9 = dn(), d3 = dn();
  set({d9, zed, d3, alf});
  S(s, kTSSN, dl, fc("memb"));
  EXPECT_EQ(list(), (std::vector<int32_t>{alf, zed, std::min(d9, d3), std::max(d9, d3)}));
  EXPECT_EQ(sp->LmLockDepth(), 0);
}

}  // namespace
}  // namespace zt

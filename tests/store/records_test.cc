#include "tests/store/store_fixture.h"

namespace zt {
namespace {

struct Records : ::testing::Test {
  Object* s = newStoreWithFile(1);
  RecordFile* file = nullptr;
  Word dl = 0;
  void SetUp() override {
    ASSERT_EQ(S(s, kTSIn, kChannel, 1), 0);
    file = recordFile(s);
    dl = S(s, kTSDN, fc("data"), 0, 0);
    S(s, kTSAS, 1, fc("link"), dl);
  }
  void TearDown() override { S(s, kDspo); }

  int32_t write(FourCC key, const std::string& bytes, int32_t compact = 0) {
    fundra::TMemory mem(int32_t(bytes.size()));
    std::memcpy(mem.MemPtr(), bytes.data(), bytes.size());
    return i32(S(s, kTSRW, dl, key, &mem, compact));
  }
  std::string read(FourCC key, int32_t* result) {
    Word handle = 7;
    *result = i32(S(s, kTSRR, dl, key, &handle, 0));
    if (*result != 0) return handle == 0 ? "<cleared>" : "<not cleared>";
    auto* mem = asPtr<fundra::TMemory>(handle);
    std::string out(reinterpret_cast<char*>(mem->MemPtr()), size_t(mem->GetSize()));
    delete mem;
    return out;
  }
};

TEST_F(Records, WrittenRecordsReadBackAndLiveInTheFile) {
  int32_t r;
  EXPECT_EQ(write(fc("Rec1"), "first record"), 0);
  EXPECT_EQ(write(fc("Rec2"), "second", 1), 0);
  EXPECT_EQ(read(fc("Rec1"), &r), "first record");
  EXPECT_EQ(r, 0);
  EXPECT_EQ(read(fc("Rec2"), &r), "second");
  EXPECT_EQ(S(s, kTSRS, dl, fc("Rec1")), 12);
  EXPECT_EQ(file->chunks.size(), 2u);
  EXPECT_TRUE(file->attached.empty());  // every handle was detached again
  Item it = rawItem(s, int32_t(dl), 0);
  EXPECT_EQ(uint32_t(it.ref), kVHandle);
  EXPECT_TRUE(file->chunks.count(int32_t(it.kind)));

  EXPECT_EQ(read(fc("none"), &r), "<cleared>");
  EXPECT_EQ(r, kNoItem);
  S(s, kTSVS, dl, fc("valu"), 1);
  read(fc("valu"), &r);
  EXPECT_EQ(r, kWrongKind);
  EXPECT_EQ(S(s, kTSRS, dl, fc("valu")), kWrongKind);
  EXPECT_EQ(S(s, kTSCk), 1);
}

TEST_F(Records, AFailedWriteKeepsTheOldItemAndDropsTheNewChunk) {
  ASSERT_EQ(write(fc("Rec1"), "kept"), 0);
  file->failWrite = -1118;
  EXPECT_EQ(write(fc("Rec1"), "lost"), -1118);
  EXPECT_EQ(file->chunks.size(), 1u);
  EXPECT_EQ(file->removed.size(), 1u);
  int32_t r;
  EXPECT_EQ(read(fc("Rec1"), &r), "kept");
}

TEST_F(Records, CollectionRemovesRecordsNoItemNames) {
  ASSERT_EQ(write(fc("Rec1"), "old"), 0);
  int32_t oldChunk = int32_t(rawItem(s, int32_t(dl), 0).kind);
  ASSERT_EQ(write(fc("Rec1"), "new"), 0);
  ASSERT_EQ(write(fc("Rec2"), "other"), 0);
  EXPECT_EQ(file->chunks.size(), 3u);
  EXPECT_EQ(S(s, kTSGC), 0);
  EXPECT_EQ(file->removed, std::vector<int32_t>{oldChunk});
  EXPECT_EQ(file->chunks.size(), 2u);
  int32_t r;
  EXPECT_EQ(read(fc("Rec1"), &r), "new");

  // A record named only by an unreachable DL goes with it.
  S(s, kTSUk, 1, fc("link"));
  EXPECT_EQ(S(s, kTSGC), 0);
  EXPECT_TRUE(file->chunks.empty());
}

TEST_F(Records, CheckReportsRecordsTheFileCannotSize) {
  ASSERT_EQ(write(fc("Rec1"), "abc"), 0);
  file->chunks.clear();
  LogCapture cap;
  EXPECT_EQ(S(s, kTSCk), 1);  // logged, not a failure
  EXPECT_EQ(lines(cap), std::vector<std::string>{"515 zoveCheckDL: DL " + std::to_string(dl) +
                                                 " item 'Rec1' bad chunk 1, -1119 (kVhdNoRecord)"});
}

TEST(RecordsWithoutFile, RecordSelectorsAnswerNoRecordFile) {
  Object* s = newStore(1);
  ASSERT_EQ(S(s, kTSIn, kChannel, 1), 0);
  Word dl = S(s, kTSDN, fc("data"), 0, 0);
  fundra::TMemory mem(4);
  EXPECT_EQ(S(s, kTSRW, dl, fc("Rec1"), &mem, 0), kNoRecordFile);
  Word handle = 5;
  EXPECT_EQ(S(s, kTSRR, dl, fc("Rec1"), &handle, 0), kNoRecordFile);
  EXPECT_EQ(handle, 0);
  EXPECT_EQ(S(s, kTSRS, dl, fc("Rec1")), kNoRecordFile);
  EXPECT_EQ(S(s, kTSCt, dl), 0);
  S(s, kDspo);
}

}  // namespace
}  // namespace zt

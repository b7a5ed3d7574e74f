#include "store/exchange.h"

#include "platform/fundra/persist.h"
#include "tests/store/raw_structure.h"

namespace zt {
namespace {

// The stream's records as (byte count, bytes) pairs, after the 8-byte header.
std::vector<std::vector<uint8_t>> records(const fundra::TMemory& m) {
  std::vector<std::vector<uint8_t>> out;
  for (int32_t pos = 8; pos + 4 <= m.GetSize();) {
    int32_t n;
    std::memcpy(&n, m.MemPtr() + pos, 4);
    out.emplace_back(m.MemPtr() + pos + 4, m.MemPtr() + pos + 4 + n);
    pos += 4 + n;
  }
  return out;
}

int32_t word(const std::vector<uint8_t>& bytes, size_t at) {
  int32_t w;
  std::memcpy(&w, bytes.data() + at, 4);
  return w;
}

// A DL that callers may import into: kept, so that the check walks what lands in it.
int32_t target(Object* s) {
  int32_t t = rawDL(spaceOf(s), fc("tgt "));
  S(s, kTSDK, t);
  return t;
}

using ExchangeStream = StoreTest;

TEST_F(ExchangeStream, ADLWithOneFourByteBlobExportsAsFiftyTwoBytes) {
  int32_t blob = rawBlob(sp, {1, 2, 3, 4});
  int32_t dl = rawDL(sp, fc("one "), {{fc("Blob"), blob, kBlob}});
  fundra::TMemory m;
  ASSERT_EQ(S(s, kTSEx, dl, &m), 0);
  ASSERT_EQ(m.GetSize(), 52);
  const uint8_t expected[52] = {
      '.', 'x', 'E', 'T', 0,   1,   0,   1,  // header: tag, 256, 256
      32,  0,   0,   0,   ' ', 'e', 'n', 'o', 0,   0,   0,   0,
      0,   0,   0,   0,   0,   0,   0,   0,   1,   0,   0,   0,    // data size 0, 1 item
      2,   0,   0,   0,   0,   1,   0,   0,   'b', 'o', 'l', 'B',  // ref 2, blob, key
      4,   0,   0,   0,   1,   2,   3,   4};
  EXPECT_EQ(std::vector<uint8_t>(m.MemPtr(), m.MemPtr() + 52),
            std::vector<uint8_t>(expected, expected + 52));
}

// A damaged structure met below the top DL: the export answers its code and leaves no stream.
TEST_F(ExchangeStream, ADamagedStructureIsRefusedWithItsCodeAndNoStream) {
  const int32_t gone = sp->LmCount() + 1000;  // names no element, nor will it below
  int32_t shortList = rawBlob(sp, {1, 2, 3, 4, 5, 6});
  int32_t overlong = rawDL(sp, fc("long"));
  reinterpret_cast<DLHead*>(sp->LmGet(overlong))->count = 3;
  const struct {
    RawItem bad;
    int32_t code;
  } cases[] = {
      {{fc("Gone"), gone, kHandle}, fundra::kLmNotLive},
      {{fc("VHnd"), int32_t(kVHandle), 0}, kBadValueType},
      {{fc("Type"), rawBlob(sp, {1}), 0x12345600u}, kBadRefType},
      {{fc("Blob"), rawBlob(sp, {1, 2, 3, 4, 5, 6, 7, 8}), kHandle}, kWrongKind},
      {{fc("List"), shortList, kList}, kWrongKind},
      {{fc("Long"), overlong, kPartLink}, kWrongKind},
  };
  for (const auto& c : cases) {
    int32_t inner = rawDL(sp, fc("innr"), {{fc("AAAA"), rawBlob(sp, {9}), kBlob}, c.bad});
    int32_t top = rawDL(sp, fc("top "), {{fc("Kids"), rawList(sp, {inner}), kList}});
    fundra::TMemory m;
    EXPECT_EQ(S(s, kTSEx, top, &m), c.code) << zelkor::fcString(c.bad.key);
    EXPECT_EQ(m.GetSize(), 0);
  }
}

TEST_F(ExchangeStream, RecordsFollowTheDepthFirstWalkAndImportRebuildsTheStructure) {
  // top: a blob, a list of a and b, and a handle to b; a: a handle to b and a part link back to
  // the top; b: an immediate value. The DL owner word is not exported.
  int32_t b = rawDL(sp, fc("dl b"), {{fc("Valu"), int32_t(kImmediate), 77}});
  int32_t a = rawDL(sp, fc("dl a"), {{fc("Hand"), b, kHandle}});
  int32_t top = rawDL(sp, fc("top "),
                      {{fc("Blob"), rawBlob(sp, {9, 8, 7}), kBlob},
                       {fc("List"), rawList(sp, {a, b}), kList},
                       {fc("Zand"), b, kHandle}},
                      0, {5});
  rawWrite(sp, a, fc("dl a"), {{fc("Hand"), b, kHandle}, {fc("Up  "), top, kPartLink}});
  reinterpret_cast<DLHead*>(sp->LmGet(top))->owner = 1;
  S(s, kTSDK, a);  // exported with its kept flag, which the import drops
  fundra::TMemory m;
  ASSERT_EQ(S(s, kTSEx, top, &m), 0);
  auto recs = records(m);
  ASSERT_EQ(recs.size(), 5u);       // top (1), blob (2), list, a (3), b (4): b once, a before b
  EXPECT_EQ(word(recs[0], 8), 0);   // owner
  EXPECT_EQ(word(recs[0], 24), 2);  // the blob's index
  EXPECT_EQ(word(recs[0], 24 + 24), 4);  // the handle's: b's index
  EXPECT_EQ(recs[1], (std::vector<uint8_t>{9, 8, 7}));
  EXPECT_EQ(word(recs[2], 0), 3);
  EXPECT_EQ(word(recs[2], 4), 4);
  EXPECT_EQ(word(recs[3], 0), int32_t(fc("dl a")));
  EXPECT_EQ(word(recs[3], 20), 4);  // a's handle to b
  EXPECT_EQ(word(recs[3], 32), 1);  // a's part link to the top
  EXPECT_EQ(word(recs[4], 0), int32_t(fc("dl b")));

  int32_t t = target(s);
  ASSERT_EQ(S(s, kTSIm, t, &m), 0);
  std::string why;
  EXPECT_TRUE(sameGraph(sp, top, t, &why)) << why;
  // The list names the two imported DLs, the handle the second, and the part link back to the
  // exported DL names the target itself.
  int32_t a2 = i32(S(s, kTSLE, t, fc("List"), 0)), b2 = i32(S(s, kTSLE, t, fc("List"), 1));
  EXPECT_NE(a2, a);
  EXPECT_EQ(S(s, kTSDT, a2), toWord(fc("dl a")));
  EXPECT_EQ(handleOf(t, fc("Zand")), b2);
  EXPECT_EQ(handleOf(a2, fc("Up  "), kTSAG), t);
  EXPECT_EQ(S(s, kTSDC, top, t), 0);
  EXPECT_EQ(reinterpret_cast<DLHead*>(sp->LmGet(t))->owner, 0);
  // The target stays on the keep list (its flag with it); nothing imported is on it.
  EXPECT_EQ(sp->LmGet(t)[4] & kKeptFlag, kKeptFlag);
  EXPECT_EQ(sp->LmGet(a2)[4] & kKeptFlag, 0);
  expectSound(s);
}

TEST_F(ExchangeStream, DamagedOrTruncatedStreamsAreRefusedAndChangeNothing) {
  int32_t b = rawDL(sp, fc("dl b"), {{fc("Blob"), rawBlob(sp, {1, 2, 3, 4, 5}), kBlob}});
  int32_t top =
      rawDL(sp, fc("top "), {{fc("List"), rawList(sp, {b, b}), kList}, {fc("Part"), b, kPartLink}});
  fundra::TMemory good;
  ASSERT_EQ(S(s, kTSEx, top, &good), 0);
  int32_t t = target(s);
  auto unchanged = [&] { return std::pair(sp->LmLiveCount(), sp->LmSpaceSum()); };
  const auto before = unchanged();
  LogCapture quiet;

  fundra::TMemory m;
  m.SetSize(7);
  EXPECT_EQ(S(s, kTSIm, t, &m), -1);
  m = good;
  m.MemPtr()[0] ^= 1;
  EXPECT_EQ(S(s, kTSIm, t, &m), fundra::kPersistBadTag);
  for (int32_t cut = 8; cut < good.GetSize(); ++cut) {
    m = good;
    m.SetSize(cut);
    EXPECT_EQ(S(s, kTSIm, t, &m), kBadStream) << "cut at " << cut;
  }
  m = good;
  m.SetSize(good.GetSize() + 1);
  EXPECT_EQ(S(s, kTSIm, t, &m), kBadStream) << "a byte after the last record";
  EXPECT_EQ(unchanged(), before);
  // The top DL's two keys ('List', 'Part'; no data) repeated, then in the wrong order: the
  // importer names what was wrong and at which byte.
  const int32_t firstKey = 8 + 4 + kHeadBytes + 8, secondKey = firstKey + kItemBytes;
  LogCapture log;
  for (bool swap : {false, true}) {
    m = good;
    uint8_t* bytes = m.MemPtr();
    uint32_t a = 0, b = 0;
    std::memcpy(&a, bytes + firstKey, 4);
    std::memcpy(&b, bytes + secondKey, 4);
    ASSERT_EQ(a, fc("List"));
    std::memcpy(bytes + firstKey, swap ? &b : &a, 4);
    std::memcpy(bytes + secondKey, &a, 4);
    EXPECT_EQ(S(s, kTSIm, t, &m), kBadStream) << (swap ? "keys out of order" : "a key repeated");
    EXPECT_EQ(unchanged(), before);
  }
  std::vector<std::string> said = lines(log);
  ASSERT_EQ(said.size(), 2u);
  EXPECT_EQ(said[0], "515 zoveImport: DL " + std::to_string(t) + ": stream refused at byte " +
                         std::to_string(secondKey) +
                         ": a key that repeats the one before or sorts before it");
  EXPECT_EQ(said[1], said[0]);

  // Every single-byte change is either refused without a trace or imports a sound structure.
  int accepted = 0;
  for (int32_t at = 8; at < good.GetSize(); ++at) {
    for (uint8_t x : {0x01, 0x80, 0xFF}) {
      m = good;
      m.MemPtr()[at] ^= x;
      const auto was = unchanged();
      int32_t r = i32(S(s, kTSIm, t, &m));
      if (r != 0) {
        EXPECT_EQ(r, kBadStream) << "byte " << at;
        EXPECT_EQ(unchanged(), was) << "byte " << at;
        continue;
      }
      ++accepted;
      expectSound(s);
      EXPECT_EQ(S(s, kTSCk), 1) << "byte " << at;
      ASSERT_EQ(S(s, kTSIm, t, &good), 0);
      S(s, kTSGC);
    }
  }
  EXPECT_GT(accepted, 0);  // data bytes, flags and values may change freely
  EXPECT_EQ(S(s, kTSEC), 0);
}

TEST_F(ExchangeStream, HeaderWordsAreCheckedBitByBitInEveryDLRecord) {
  int32_t inner = rawDL(sp, fc("in  "), {{fc("Valu"), int32_t(kImmediate), 3}});
  int32_t top = rawDL(sp, fc("top "), {{fc("Part"), inner, kPartLink}});
  fundra::TMemory good;
  ASSERT_EQ(S(s, kTSEx, top, &good), 0);
  auto recs = records(good);
  ASSERT_EQ(recs.size(), 2u);
  int32_t t = target(s);
  LogCapture quiet;
  const uint32_t allowed = kSharedFlag | kInvisibleFlag | kKeptFlag;
  // Flags are the low half of the word at 4 and reserved its high half; the owner is at 8.
  for (int32_t rec : {12, 12 + 4 + int32_t(recs[0].size())}) {
    for (int32_t bit = 0; bit < 32; ++bit) {
      fundra::TMemory m = good;
      m.MemPtr()[rec + 4 + bit / 8] ^= uint8_t(1 << (bit % 8));
      EXPECT_EQ(S(s, kTSIm, t, &m), (allowed >> bit & 1) ? 0 : kBadStream)
          << "flag bit " << bit << " of the record at " << rec;
      m = good;
      m.MemPtr()[rec + 8 + bit / 8] ^= uint8_t(1 << (bit % 8));
      EXPECT_EQ(S(s, kTSIm, t, &m), kBadStream) << "owner bit " << bit << " at " << rec;
    }
  }
  expectSound(s);
}

TEST_F(ExchangeStream, RandomStructuresSurviveExportAndImport) {
  for (uint32_t seed = 1; seed <= 200; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    renew();
    RandomShape shape = rawRandom(sp, rng, seed % 2 == 0);
    S(s, kTSDK, shape.top);
    fundra::TMemory m;
    ASSERT_EQ(S(s, kTSEx, shape.top, &m), 0);
    int32_t t = target(s);
    ASSERT_EQ(S(s, kTSIm, t, &m), 0);
    std::string why;
    EXPECT_TRUE(sameGraph(sp, shape.top, t, &why)) << why;
    // Compare takes weak references by number and stops at shared DLs, so it can only call
    // copies equal when neither is there.
    if (!shape.weak && !shape.sharedBelow) {
      EXPECT_EQ(S(s, kTSDC, shape.top, t), 0);
    }
    expectSound(s);
    EXPECT_EQ(S(s, kTSCk), 1);
  }
}

}  // namespace
}  // namespace zt

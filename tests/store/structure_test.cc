#include "store/exchange.h"
#include "tests/store/raw_structure.h"

namespace zt {
namespace {

using Structure = StoreTest;

TEST_F(Structure, DuplicateCopiesPartsSharesObjectsAndRepointsHandlesToCopies) {
  int32_t object = rawDL(sp, fc("obj "), {}, kSharedFlag);
  int32_t plain = rawDL(sp, fc("part"), {{fc("Valu"), int32_t(kImmediate), 3}});
  int32_t member = rawDL(sp, fc("memb"));
  int32_t weakMember = rawDL(sp, fc("weak"));
  int32_t top = rawDL(sp, fc("top "),
                      {{fc("Plai"), plain, kPartLink},
                       {fc("Obj "), object, kPartLink},
                       {fc("HPla"), plain, kHandle},
                       {fc("Blob"), rawBlob(sp, {1, 2, 3}), kBlob},
                       {fc("List"), rawList(sp, {member, member}), kList},
                       {fc("Weak"), rawList(sp, {weakMember}), kWeakList},
                       {fc("WHnd"), plain, kWeakHandle}},
                      kSharedFlag, {42});
  S(s, kTSDK, top);

  int32_t copy = i32(S(s, kTSDD, top));
  ASSERT_GT(copy, 0);
  EXPECT_EQ(S(s, kTSTS, copy), 0);
  EXPECT_EQ(S(s, kTSTS, top), 1);
  int32_t plainCopy = handleOf(copy, fc("Plai"), kTSAG);
  EXPECT_NE(plainCopy, plain);
  EXPECT_EQ(S(s, kTSDT, plainCopy), toWord(fc("part")));
  EXPECT_EQ(handleOf(copy, fc("Obj "), kTSAG), object);  // objects are shared
  EXPECT_EQ(handleOf(copy, fc("HPla")), plainCopy);      // handles follow the copy
  EXPECT_EQ(rawItem(s, copy, 5).ref, plain);             // weak handles do not
  int32_t m0 = i32(S(s, kTSLE, copy, fc("List"), 0));
  EXPECT_NE(m0, member);
  EXPECT_EQ(S(s, kTSLE, copy, fc("List"), 1), m0);  // one copy for a DL listed twice
  int32_t weakCopy = rawItem(s, copy, 6).ref;
  EXPECT_NE(weakCopy, rawItem(s, top, 6).ref);
  EXPECT_EQ(reinterpret_cast<int32_t*>(sp->LmGet(weakCopy))[0], weakMember);
  EXPECT_NE(rawItem(s, copy, 0).ref, rawItem(s, top, 0).ref);  // the blob is a copy
  uint8_t bytes[3] = {};
  S(s, kTSBR, copy, fc("Blob"), bytes, 3);
  EXPECT_EQ(bytes[2], 3);
  // The copy alone is kept: the kept flag is the keep list's, not the bytes'.
  EXPECT_EQ(sp->LmGet(copy)[4] & kKeptFlag, kKeptFlag);
  EXPECT_EQ(sp->LmGet(plainCopy)[4] & kKeptFlag, 0);
  expectSound(s);

  // A copy compares equal to its source until a value in it changes.
  EXPECT_EQ(S(s, kTSDC, top, copy), 0);
  S(s, kTSVS, plainCopy, fc("Valu"), 4);
  EXPECT_EQ(S(s, kTSDC, top, copy), plain);

  // A bad kind ends the duplicate with its log line.
  LogCapture cap;
  int32_t bad = rawDL(sp, fc("bad "), {{fc("Odd "), plain, 0x300}});
  EXPECT_EQ(S(s, kTSDD, bad), kBadRefType);
  EXPECT_TRUE(
      cap.contains("zoveDoDupe: DL " + std::to_string(bad) + ", item value 0x00000300 bad"));
}

TEST_F(Structure, CompareAnswersTheFirstDLWhereTwoStructuresDiffer) {
  auto make = [&](uint8_t blobByte, int32_t leafValue) {
    int32_t leaf = rawDL(sp, fc("leaf"), {{fc("Valu"), int32_t(kImmediate), uint32_t(leafValue)}});
    int32_t mid = rawDL(sp, fc("mid "), {{fc("Leaf"), leaf, kPartLink}});
    return std::pair(rawDL(sp, fc("top "),
                           {{fc("Blob"), rawBlob(sp, {blobByte}), kBlob},
                            {fc("List"), rawList(sp, {mid}), kList}}),
                     leaf);
  };
  auto [a, leafA] = make(1, 5);
  auto [b, leafB] = make(1, 5);
  auto [c, leafC] = make(1, 6);
  int32_t d = make(2, 5).first;
  EXPECT_EQ(S(s, kTSDC, a, b), 0);
  EXPECT_EQ(S(s, kTSDC, a, c), leafA);  // found through the list and the part link
  EXPECT_EQ(S(s, kTSDC, c, a), leafC);
  EXPECT_EQ(S(s, kTSDC, a, d), rawItem(s, a, 0).ref);  // the differing blob itself
  // Below the top a shared DL is another object: it differs from anything but itself.
  sp->LmGet(leafB)[4] |= kSharedFlag;
  EXPECT_EQ(S(s, kTSDC, a, b), leafA);
  EXPECT_EQ(S(s, kTSDC, leafB, leafA), 0);
}

TEST_F(Structure, InsideTestAndReferrerCountStopAtObjects) {
  int32_t deep = rawDL(sp, fc("deep"));
  int32_t object = rawDL(sp, fc("obj "), {{fc("Part"), deep, kPartLink}}, kSharedFlag);
  int32_t other = rawDL(
      sp, fc("obj2"),
      {{fc("Refr"), int32_t(kImmediate), 1}, {fc("Link"), rawList(sp, {object, object}), kList}},
      kSharedFlag);
  int32_t hidden =
      rawDL(sp, fc("hide"), {{fc("HObj"), object, kHandle}}, kSharedFlag | kInvisibleFlag);
  int32_t module = rawDL(sp, fc("MOD1"),
                         {{fc("Objs"), rawList(sp, {object, other, hidden}), kList}}, kSharedFlag);
  S(s, kTSLA, 1, fc("mods"), module);

  EXPECT_EQ(S(s, kTSTW, module, object), 1);
  EXPECT_EQ(S(s, kTSTW, module, deep), 0);  // only the object's part link reaches it
  EXPECT_EQ(S(s, kTSTW, object, deep), 1);
  EXPECT_EQ(sp->LmLockDepth(), 0);

  // `other` refers twice and counts once, first; the module's list names the object too, and a
  // module DL is shared and visible; the invisible holder does not count.
  int32_t first = -1;
  EXPECT_EQ(S(s, kTSFR, object, 0, &first), 2);
  EXPECT_EQ(first, other);
  EXPECT_EQ(S(s, kTSFR, object, fc("Refr"), &first), 1);
  EXPECT_EQ(first, other);
  EXPECT_EQ(S(s, kTSFR, deep, 0, &first), 1);  // through the object's part link
  EXPECT_EQ(first, object);
  EXPECT_EQ(S(s, kTSFR, deep, fc("none"), &first), 0);
  EXPECT_EQ(first, 0);
}

TEST_F(Structure, CutRemovesEveryReferenceAndCutsPartLinkHoldersInTurn) {
  int32_t victim = rawDL(sp, fc("vict"));
  int32_t whole = rawDL(sp, fc("whol"), {{fc("Part"), victim, kPartLink}});
  int32_t list = rawList(sp, {victim, whole, victim});
  int32_t holder = rawDL(sp, fc("hold"),
                         {{fc("Hand"), victim, kHandle},
                          {fc("Keep"), int32_t(kImmediate), 9},
                          {fc("List"), list, kList},
                          {fc("WHnd"), whole, kWeakHandle},
                          {fc("Xblb"), rawBlob(sp, {1}), kBlob}});
  rawRootItem(sp, {fc("hold"), holder, kHandle});

  S(s, kTSDR, victim);
  // Three references to the victim went; `whole` holds it by part link, so every reference to
  // `whole` went in the next round (its list entry and the weak handle).
  EXPECT_EQ(S(s, kTSLC, holder, fc("List"), 0), 0);
  EXPECT_EQ(S(s, kTSCt, holder), 3);
  EXPECT_EQ(S(s, kTSEn, holder, 0), toWord(fc("Keep")));
  EXPECT_EQ(S(s, kTSEn, holder, 1), toWord(fc("List")));
  EXPECT_EQ(S(s, kTSCt, whole), 1);  // the holder's own part link stays
  EXPECT_EQ(sp->LmTest(victim), 0);  // the DLs themselves go with the next collection

  // Cutting a key removes handles and blobs under it wherever they are reachable.
  S(s, kTSTK, fc("Xblb"));
  EXPECT_EQ(S(s, kTSCt, holder), 2);
  EXPECT_EQ(S(s, kTSGC), 0);
  EXPECT_NE(sp->LmTest(victim), 0);
  expectSound(s);

  // Two DLs that hold each other by part links, both held by the root the same way: each
  // round queues the other, and nothing ever changes; the rounds still end.
  int32_t x = rawDL(sp, fc("ring"));
  int32_t y = rawDL(sp, fc("ring"), {{fc("Part"), x, kPartLink}});
  rawWrite(sp, x, fc("ring"), {{fc("Part"), y, kPartLink}});
  rawRootItem(sp, {fc("rX  "), x, kPartLink});
  rawRootItem(sp, {fc("rY  "), y, kPartLink});
  S(s, kTSDR, x);
  EXPECT_EQ(S(s, kTSCt, 1), 4);
}

// A damaged list item whose list is its DL's own element: a cut that removes a word of that
// list shrinks the DL under its own walk, which then ends there.
TEST_F(Structure, CuttingThroughAListThatIsItsOwnDLEndsThatDLsWalk) {
  std::vector<RawItem> items = {{fc("Aval"), int32_t(kImmediate), 5}, {fc("List"), 0, kList}};
  int32_t dl = rawDL(sp, fc("self"), items);
  items[1].ref = dl;
  rawWrite(sp, dl, fc("self"), items);
  rawRootItem(sp, {fc("self"), dl, kHandle});
  const int32_t size = sp->LmSize(dl);
  S(s, kTSDR, int32_t(kList));  // the number is the list item's kind word, read as a member
  EXPECT_EQ(sp->LmSize(dl), size - 4);
  EXPECT_EQ(S(s, kTSCt, 1), 2) << "the root keeps its handle";
}

// Every walk without a depth limit of its own, on a chain far deeper than a recursive walk
// could follow on a thread's stack.
TEST_F(Structure, AChainOfAHundredThousandDLsIsWalkedByEveryOperation) {
  constexpr int32_t kDeep = 100000;
  int32_t head = rawChain(sp, kDeep, kPartLink);
  int32_t last = head;
  for (int32_t i = 1; i < kDeep; ++i) last = rawItem(s, last, 0).ref;
  rawWrite(sp, last, fc("link"), {{fc("Tail"), rawBlob(sp, {1, 2, 3, 4}), kBlob}});
  int32_t holder = rawDL(sp, fc("hold"), {{fc("Head"), head, kPartLink}}, kSharedFlag);
  S(s, kTSLA, 1, fc("mods"), holder);

  EXPECT_EQ(S(s, kTSTW, head, last), 1);
  int32_t first = 0;
  EXPECT_EQ(S(s, kTSFR, last, 0, &first), 1);
  EXPECT_EQ(first, holder);

  int32_t copy = i32(S(s, kTSDD, head));
  ASSERT_GT(copy, 0);
  EXPECT_EQ(S(s, kTSDC, head, copy), 0);

  fundra::TMemory m;
  ASSERT_EQ(S(s, kTSEx, head, &m), 0);
  EXPECT_EQ(m.GetSize(), 8 + kDeep * (4 + 32) + 4 + 4);
  int32_t t = rawDL(sp, fc("tgt "));
  ASSERT_EQ(S(s, kTSIm, t, &m), 0);
  EXPECT_EQ(S(s, kTSDC, head, t), 0);

  S(s, kTSTK, fc("Tail"));
  EXPECT_EQ(S(s, kTSCt, last), 0);
}

}  // namespace
}  // namespace zt

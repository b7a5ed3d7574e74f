// Status records, attachment and the provider globals: what the manager keeps per provider, what
// an attachment keeps and what it resets, and records that are damaged or missing.
#include <unistd.h>

#include <cstring>

#include "platform/fundra/persist.h"
#include "platform/storefile/vhd.h"
#include "tests/providers/pro_fixture.h"

namespace zt {
namespace {

using StatusRecords = ProTest;

StatusRecord recordOf(Object* store, int32_t status) {
  StatusRecord r{};
  S(store, kTSRD, status, &r, kStatusBytes);
  return r;
}

TEST_F(StatusRecords, TheRootIsTheModuleDLShownWithItsAbilities) {
  EXPECT_EQ(S(store, kTSDT, root), toWord(kProModuleSig));
  EXPECT_EQ(S(store, kTSSD, root), 0);
  EXPECT_EQ(S(store, kTSGM, kProModuleSig), objWord(manager));
  EXPECT_EQ(S(manager, kPGAb, 0), toWord(kRootAbilities));
  EXPECT_EQ(S(manager, kPGAb, root), toWord(kRootAbilities));
  EXPECT_EQ(depth(0), 0);
  EXPECT_TRUE(shown(0));
  EXPECT_TRUE(shown(root));

  // The record: a ProS DL of 24 bytes owned by the root, its header Pro. 256 256.
  int32_t st = status(0);
  ASSERT_GT(st, 0);
  EXPECT_EQ(S(store, kTSDT, st), toWord(kStatusType));
  EXPECT_EQ(S(store, kTSSD, st), kStatusBytes);
  EXPECT_EQ(S(store, kTSCS, st), toWord(kProModuleSig));
  StatusRecord r = recordOf(store, st);
  EXPECT_EQ(fundra::_checkpersist(r.header, fc("Pro."), 256, 256), 0);
  EXPECT_EQ(r.abilities, 0x08000002u);
  EXPECT_EQ(r.depth, 0);
  const uint8_t zeros[8] = {};
  EXPECT_EQ(std::memcmp(r.reserved, zeros, 8), 0);
  EXPECT_EQ(events(), V{}) << "attachment sends no event";
}

TEST_F(StatusRecords, ARecordIsMadeOnlyBySelectorsThatWrite) {
  int32_t p = provider();
  EXPECT_EQ(depth(p), -1);
  EXPECT_EQ(S(manager, kPoGR, p, fc("Colr")), 0);
  EXPECT_EQ(status(p), 0) << "questions make no record";
  EXPECT_EQ(S(manager, kPGAb, p), 0) << "PGAb makes one; 0 until shown";
  EXPECT_EQ(recordOf(store, status(p)).depth, -1);
  EXPECT_EQ(S(manager, kPoSR, p, fc("Colr"), -5), i32(kImmediate)) << "TSVS's answer";
  EXPECT_EQ(S(manager, kPoGR, p, fc("Colr")), -5);
}

TEST_F(StatusRecords, GlobalsLastOneAttachment) {
  int32_t a = unowned(), b = unowned();
  // Removing a global that was never set makes nothing.
  EXPECT_EQ(S(manager, kPoSG, fc("Plan"), 0), 0);
  EXPECT_EQ(item(root, kGlobalsKey), 0);
  EXPECT_EQ(S(manager, kPoGG, fc("Plan")), 0);

  EXPECT_EQ(S(manager, kPoSG, fc("Plan"), a), 0);
  EXPECT_EQ(S(manager, kPoSG, fc("Note"), b), 0);
  int32_t globals = item(root, kGlobalsKey);
  ASSERT_GT(globals, 0);
  EXPECT_EQ(S(store, kTSDT, globals), toWord(kGlobalsType));
  EXPECT_EQ(S(store, kTSSD, globals), 0);
  EXPECT_EQ(S(manager, kPoGG, fc("Plan")), a);
  EXPECT_EQ(S(manager, kPoGG, fc("Note")), b);
  EXPECT_EQ(S(manager, kPoSG, fc("Plan"), 0), 0);
  EXPECT_EQ(S(manager, kPoGG, fc("Plan")), 0);
  EXPECT_EQ(S(manager, kPoGG, fc("Note")), b);

  EXPECT_EQ(S(manager, kXTSD, store), root);
  EXPECT_EQ(item(root, kGlobalsKey), 0);
  EXPECT_EQ(S(manager, kPoGG, fc("Note")), 0);
}

// A store saved with a placed and linked tree, opened again by a new manager: the placement, the
// order, the links and the required parent are there; only the root is shown.
TEST_F(StatusRecords, AttachingAgainKeepsPlacementAndShowsOnlyTheRoot) {
  std::string path = ::testing::TempDir() + "zove_providers_attach.zst";
  unlink(path.c_str());
  unlink((path + "-journal").c_str());
  Object* saved = asObject(send(ZelkorLookup(kZoveSig), kNew_));
  S(saved, kSetu);
  ASSERT_EQ(S(saved, kHNew, 0, 1), 0);
  ASSERT_EQ(storefile::vhdCreateFile(objWord(saved), path), 0);
  ASSERT_EQ(S(saved, kTSIn, saved, 1), 0);
  Object* c1 = asObject(S(objWord(controllerClass()->classObject), kSdNw, saved));
  Object* m1 = asObject(S(ZelkorLookup(kProSig), kSdNw, saved));
  auto make = [&] {
    int32_t dl = i32(S(saved, kTSDN, fc("Note"), 0, S(c1, kSdRR)));
    S(saved, kTSSS, dl);
    return dl;
  };
  int32_t a = make(), b = make(), c = make(), link = make();
  controllers().abilities[link] = kDefaultAbilities | kAbLink;  // as a link's controller answers
  S(m1, kPmSh, 0, a);
  S(m1, kPmSh, a, b);
  S(m1, kPmSh, a, c);
  S(m1, kPmSL, link, b);
  S(m1, kPmSh, c, link);
  EXPECT_EQ(S(m1, kPmRP, c, a), 0);
  S(m1, kPoSG, fc("Plan"), a);
  int32_t moduleDL = i32(S(m1, kSdRR));
  ASSERT_EQ(S(saved, kHChg), 0);
  S(saved, kDspo);

  Object* again = asObject(send(ZelkorLookup(kZoveSig), kNew_));
  S(again, kSetu);
  ASSERT_EQ(storefile::vhdOpenFile(objWord(again), path, storefile::VhdOpenMode::kReadWrite), 0);
  ASSERT_EQ(S(again, kTSIn, again, 1), 0);
  Object* m2 = asObject(S(ZelkorLookup(kProSig), kSdNw, again));
  EXPECT_EQ(S(m2, kSdRR), moduleDL) << "bound to the saved module DL (XTSL)";
  EXPECT_EQ(S(m2, kPGtD, 0), 0);
  for (int32_t p : {a, b, c, link}) EXPECT_EQ(S(m2, kPGtD, p), -1) << p;
  EXPECT_EQ(S(m2, kPoGP, b), a);
  EXPECT_EQ(S(m2, kPoGP, link), c);
  EXPECT_EQ(S(m2, kPoIA, a, 0), b);
  EXPECT_EQ(S(m2, kPoIA, a, 1), c);
  EXPECT_EQ(S(m2, kPEnL, b, 0), link);
  int32_t target = link;
  EXPECT_EQ(S(m2, kPRvL, &target, 0), 0);
  EXPECT_EQ(target, b);
  EXPECT_EQ(S(m2, kPGID, c, a), 1);
  EXPECT_EQ(S(m2, kPoGG, fc("Plan")), 0) << "the globals went with the attachment";
  // The abilities stay as they were last written; being shown does not.
  EXPECT_EQ(S(m2, kPGAb, link), toWord(kDefaultAbilities | kAbLink));
  S(again, kDspo);
  unlink(path.c_str());
  unlink((path + "-journal").c_str());
}

TEST_F(StatusRecords, DamagedOrMissingRecordsAreRefusedAndKept) {
  // A number that names no DL: the store asserts, nothing is made or shown.
  EXPECT_EQ(S(manager, kPGAb, 99999), 0);
  S(manager, kPmSh, 0, 99999);
  EXPECT_FALSE(shown(99999));
  EXPECT_FALSE(asserts().empty());

  // A record of the wrong size under _psp: read as no record, never written over or replaced.
  int32_t p = provider();
  int32_t small = i32(S(store, kTSDN, kStatusType, 16, root));
  S(store, kTSHS, p, kPspKey, small);
  S(manager, kPmSh, 0, p);
  EXPECT_FALSE(shown(p));
  EXPECT_EQ(S(manager, kPGAb, p), 0);
  EXPECT_EQ(S(manager, kPmDF, p, 0), kNoStatusRecord);
  EXPECT_EQ(status(p), small);
  EXPECT_EQ(S(store, kTSSD, small), 16);

  // A record of 24 bytes whose header is another kind's.
  int32_t q = provider();
  int32_t other = i32(S(store, kTSDN, kStatusType, 24, root));
  StatusRecord bad{};
  fundra::_initpersist(bad.header, fc("Xyz."), 256, 256);
  bad.depth = 3;
  S(store, kTSWD, other, &bad, kStatusBytes);
  S(store, kTSHS, q, kPspKey, other);
  EXPECT_EQ(depth(q), -1);
  S(manager, kPmSh, 0, q);
  EXPECT_FALSE(shown(q));
  EXPECT_EQ(recordOf(store, other).depth, 3) << "not written";

  // A `_psp` that is no handle: no record is made over it.
  int32_t r = provider();
  S(store, kTSVS, r, kPspKey, 12);
  EXPECT_EQ(S(manager, kPGAb, r), 0);
  EXPECT_EQ(item(r, kPspKey, kTSVG), 12);
  EXPECT_EQ(events(), V{});
  EXPECT_EQ(asserts(), V{});

  // A status DL asked for its own record: asserted, and it gets one.
  int32_t t = provider();
  S(manager, kPGAb, t);
  EXPECT_EQ(S(manager, kPGAb, status(t)), 0);
  EXPECT_EQ(asserts(), V{"provider:199"});
  EXPECT_GT(item(status(t), kPspKey), 0);
}

}  // namespace
}  // namespace zt

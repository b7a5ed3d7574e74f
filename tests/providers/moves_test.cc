// Moves and required parents: a move takes p and its subtree under another parent with one PoXT,
// never into itself, never out from below a required parent of anything it carries; PTMv asks
// the same and then the controller.
#include "tests/providers/pro_fixture.h"

namespace zt {
namespace {

using Moves = ProTest;

TEST_F(Moves, AMoveCarriesTheSubtreeAndShiftsOnlyShownDepths) {
  int32_t a = provider(), b = provider(), p = provider(), shownChild = provider();
  int32_t hiddenChild = provider(), grandchild = provider();
  show(0, a);
  show(0, b);
  show(b, p);
  show(p, shownChild);
  show(shownChild, grandchild);
  show(p, hiddenChild);
  S(manager, kPmHd, hiddenChild);
  show(a, provider());  // a has a child already
  int32_t deeper = provider();
  show(a, deeper);
  int32_t cousin = provider();
  show(deeper, cousin);
  S(store, kTSVS, status(deeper), kPstKey, 4);
  S(store, kTSVS, status(b), kPstKey, 5);
  events();

  EXPECT_EQ(S(manager, kPMov, deeper, p), 0);
  EXPECT_EQ(events(), V{ev("PoXT", {deeper, p, b})});
  EXPECT_EQ(parent(p), deeper);
  EXPECT_EQ(children(b), L{});
  EXPECT_EQ(children(deeper), (L{cousin, p})) << "at the end of the new parent's list";
  EXPECT_EQ(depth(p), 3);
  EXPECT_EQ(depth(shownChild), 4);
  EXPECT_EQ(depth(grandchild), 5);
  EXPECT_EQ(depth(hiddenChild), -1) << "not shown: stays so";
  EXPECT_EQ(S(manager, kPoGR, deeper, kPstKey), 0) << "the new parent's sort mark goes";
  EXPECT_EQ(S(manager, kPoGR, b, kPstKey), 5) << "the old parent's stays";

  // To the top: the depths shift up.
  EXPECT_EQ(S(manager, kPMov, 0, p), 0);
  EXPECT_EQ(events(), V{ev("PoXT", {0, p, deeper})});
  EXPECT_EQ(depth(p), 1);
  EXPECT_EQ(depth(grandchild), 3);
  // Where it is already: nothing.
  EXPECT_EQ(S(manager, kPMov, 0, p), 0);
  EXPECT_EQ(S(manager, kPMov, root, p), 0);
  EXPECT_EQ(events(), V{});
}

TEST_F(Moves, ARequiredParentHoldsEveryProviderThatCarriesIt) {
  int32_t r = provider(), p = provider(), x = provider(), outside = provider(), belowR = provider();
  show(0, r);
  show(r, p);
  show(p, x);
  show(0, outside);
  show(r, belowR);
  EXPECT_EQ(S(manager, kPmRP, x, outside), kRequiredParentLeft) << "not above x";
  EXPECT_EQ(S(manager, kPmRP, x, r), 0);
  EXPECT_EQ(item(status(x), kRpaKey, kTSAG), r);
  // x moves along with p: p under a provider outside r takes x out of r.
  EXPECT_EQ(S(manager, kPMov, outside, p), kRequiredParentLeft);
  EXPECT_EQ(S(manager, kPTMv, p, outside), kRequiredParentLeft);
  EXPECT_EQ(S(manager, kPTMv, p, 0), kRequiredParentLeft);
  EXPECT_EQ(S(manager, kPTMv, r, x), kMoveBelowSelf);
  EXPECT_EQ(S(manager, kPTMv, p, p), kMoveBelowSelf);
  EXPECT_EQ(parent(p), r) << "a refused move changes nothing";
  // Under r itself or below it: allowed.
  EXPECT_EQ(S(manager, kPMov, belowR, p), 0);
  EXPECT_EQ(S(manager, kPMov, r, p), 0);
  // A required parent that moves along passes: r under outside.
  EXPECT_EQ(S(manager, kPMov, outside, r), 0);
  events();
  // The root and 0 remove it.
  EXPECT_EQ(S(manager, kPmRP, x, root), 0);
  EXPECT_EQ(item(status(x), kRpaKey, kTSAG), 0);
  EXPECT_EQ(S(manager, kPmRP, x, p), 0);
  EXPECT_EQ(S(manager, kPmRP, x, 0), 0);
  EXPECT_EQ(item(status(x), kRpaKey, kTSAG), 0);
  EXPECT_EQ(S(manager, kPmRP, x, x), 0) << "a provider may require itself";
}

TEST_F(Moves, TheTestAsksTheControllerLast) {
  int32_t p = provider(), q = provider(), loose = provider(plain);
  show(0, p);
  show(0, q);
  controllers().moveAnswer = 7;
  EXPECT_EQ(S(manager, kPTMv, p, q), 7);
  EXPECT_EQ(S(manager, kPTMv, p, 0), 7);
  EXPECT_EQ(controllers().heard, (V{ev("PTMv", {p, q}), ev("PTMv", {p, root})}));
  EXPECT_EQ(parent(p), 0) << "PTMv moves nothing";
  // A controller that does not answer PTMv: what the framework gives for a message nobody answers.
  show(0, loose);
  zt::expectUnanswered(1);
  EXPECT_EQ(S(manager, kPTMv, loose, q), 0);
  S(store, kTSUM, kPlainSig, objWord(plain));
  EXPECT_EQ(S(manager, kPTMv, loose, q), kNoController);
  S(store, kTSRM, kPlainSig, objWord(plain));
}

TEST_F(Moves, AHiddenProviderMovesWithoutBeingShown) {
  int32_t a = provider(), b = provider(), p = provider();
  show(0, a);
  show(0, b);
  show(a, p);
  S(manager, kPmHd, p);
  events();
  EXPECT_EQ(S(manager, kPMov, b, p), 0);
  EXPECT_EQ(events(), V{ev("PoXT", {b, p, a})});
  EXPECT_EQ(depth(p), -1);
  EXPECT_EQ(parent(p), b);
  EXPECT_EQ(watchReports(), V{ev("PoXT", {b, p, a}) + ": " + std::to_string(p) + " is not shown"});
}

// Forgetting a required parent (its controller's PFog: hide, then TSDR): the record that named it
// by a part link is cut with it, so that provider is no longer known to the manager; its parent's
// list still names it, a leftover every walk passes by.
TEST_F(Moves, ForgettingARequiredParentCutsTheRecordsThatNameIt) {
  int32_t r = provider(), p = provider(), x = provider();
  show(0, r);
  show(r, p);
  show(p, x);
  EXPECT_EQ(S(manager, kPmRP, x, r), 0);
  EXPECT_EQ(S(manager, kPFog, r, 0), 0);
  EXPECT_EQ(events(),
            (V{ev("PoXD", {0, r}), ev("PoXD", {r, p}), ev("PoXD", {p, x}), ev("PoXP", {0, 0})}));
  EXPECT_EQ(status(x), 0) << "cut with r";
  EXPECT_EQ(parent(p), 0);
  EXPECT_EQ(item(status(p), kPpaKey), 0) << "p's parent went";
  EXPECT_EQ(children(p), L{x}) << "a leftover";
  // Shown again, each is placed anew; p's walk passes x by.
  show(0, p);
  show(0, x);
  EXPECT_EQ(parent(x), 0);
  EXPECT_EQ(depth(x), 1);
  S(manager, kPmHd, p);
  EXPECT_EQ(events(), (V{ev("PoXD", {0, p}), ev("PoXP", {0, 0})}));
  EXPECT_TRUE(shown(x));
}

// A new parent that cannot list p (a number that names no DL, a `_psp` that is no handle): p
// stays where it was, and its record never names the parent that was refused.
TEST_F(Moves, AMoveUnderAParentWithoutARecordLeavesPWhereItWas) {
  int32_t a = provider(), p = provider(), odd = provider();
  show(0, a);
  show(a, p);
  S(store, kTSVS, odd, kPspKey, 7);  // `_psp` an immediate

  EXPECT_EQ(S(manager, kPMov, 100000, p), kNoStatusRecord);
  V reports = asserts();
  EXPECT_FALSE(reports.empty());
  for (const std::string& r : reports)
    EXPECT_TRUE(r.starts_with("zove:")) << r << ": 100000 names no DL";
  EXPECT_EQ(S(manager, kPMov, odd, p), kNoStatusRecord);
  EXPECT_EQ(events(), V{});
  EXPECT_EQ(parent(p), a);
  EXPECT_EQ(children(a), L{p});
  EXPECT_EQ(depth(p), 2);
  EXPECT_EQ(S(store, kTSCk), 1);
}

// The root has a parent only in a damaged record; it still never moves, under anything.
TEST_F(Moves, TheRootNeverMovesEvenWithAParentInItsRecord) {
  int32_t a = provider(), b = provider();
  show(0, a);
  show(0, b);
  S(store, kTSHS, status(0), kPpaKey, a);
  EXPECT_EQ(S(manager, kPMov, b, 0), kMoveBelowSelf);
  EXPECT_EQ(S(manager, kPMov, b, root), kMoveBelowSelf);
  EXPECT_EQ(events(), V{});
  EXPECT_EQ(children(b), L{});
  EXPECT_EQ(children(0), (L{a, b}));
  EXPECT_EQ(S(store, kTSCk), 1);
}

}  // namespace
}  // namespace zt

// The tree watch: the events a view could not apply are reported, each rule on its own; the
// mirror follows moves, hides and re-attachments; and its comparison finds a tree changed behind
// the events' back.
#include "providers/watch.h"

#include "tests/providers/pro_fixture.h"

namespace zt {
namespace {

constexpr int32_t kRoot = 5;

TEST(TreeMirror, ReportsEventsAViewCouldNotApply) {
  TreeMirror m(kRoot);
  m.apply(kPoXA, 0, 10, 0);
  m.apply(kPoXA, 10, 11, 0);
  EXPECT_EQ(m.takeReports(), V{});
  m.apply(kPoXA, 12, 13, 0);    // W1: the parent is not shown
  m.apply(kPoXA, 0, 11, 0);     // W1: shown already
  m.apply(kPoXA, 0, kRoot, 0);  // the root
  m.apply(kPoXD, 0, 14, 0);     // W2: not shown
  m.apply(kPoXM, 0, 11, 0);     // W3: shown under 10
  m.apply(kPoXM, 0, 99, 0);     //     not shown: ignored
  m.apply(kPoXP, 0, 12, 0);     // W4: not shown
  m.apply(kPoXP, 0, 11, 0);     // W4: 11 is under 10
  m.apply(kPoXT, 0, 14, 10);    // W5: not shown
  m.apply(kPoXT, 11, 10, 0);    // W5: below itself
  m.apply(kPoXT, 12, 11, 10);   // W5: the new parent is not shown
  EXPECT_EQ(
      m.takeReports(),
      (V{"PoXA 12 13: its parent 12 is not shown", "PoXA 0 11: 11 is shown already, under 10",
         "PoXA 0 5: the root is always shown", "PoXD 0 14: 14 is not shown",
         "PoXM 0 11: 11 is shown under 10", "PoXP 0 12: 12 is not shown",
         "PoXP 0 11: 11 is shown under 10", "PoXT 0 14 10: 14 is not shown",
         "PoXT 11 10 0: 11 is 10 or below it", "PoXT 12 11 10: the new parent 12 is not shown"}));
  // Nothing the view could not apply was applied.
  EXPECT_EQ(m.shownProviders(), (L{10, 11}));
}

TEST(TreeMirror, AHideMayAnnounceWhatWentWithAnAncestor) {
  TreeMirror m(kRoot);
  for (auto [parent, p] : {std::pair{0, 10}, {10, 11}, {11, 12}, {0, 20}})
    m.apply(kPoXA, parent, p, 0);
  // 10 goes with its subtree; the PoXD events that follow for 11, 12 and for 13 (under 12, never
  // shown) are part of it.
  m.apply(kPoXD, 0, 10, 0);
  m.apply(kPoXD, 10, 11, 0);
  m.apply(kPoXD, 11, 12, 0);
  m.apply(kPoXD, 12, 13, 0);
  m.apply(kPoXP, 0, 0, 0);
  EXPECT_EQ(m.takeReports(), V{});
  EXPECT_EQ(m.shownProviders(), L{20});
  // Once another event came, a PoXD for what went is reported again.
  m.apply(kPoXD, 10, 11, 0);
  EXPECT_EQ(m.takeReports(), V{"PoXD 10 11: 11 is not shown"});
  // A PoXD naming another parent is reported and applied.
  m.apply(kPoXA, 20, 21, 0);
  m.apply(kPoXD, 0, 21, 0);
  EXPECT_EQ(m.takeReports(), V{"PoXD 0 21: 21 is shown under 20"});
  EXPECT_FALSE(m.shown(21));
}

TEST(TreeMirror, MovesCarryTheSubtreeAndTheRootsDLIsTheRoot) {
  TreeMirror m(kRoot);
  m.apply(kPoXA, kRoot, 10, 0);
  m.apply(kPoXA, 0, 20, 0);
  m.apply(kPoXA, 10, 11, 0);
  m.apply(kPoXT, 20, 10, kRoot);
  m.apply(kPoXP, 0, kRoot, 0);
  EXPECT_EQ(m.takeReports(), V{});
  EXPECT_EQ(m.parentOf(10), 20);
  EXPECT_EQ(m.parentOf(11), 10);
  EXPECT_EQ(m.dump(), "20\n  10\n    11\n");
  m.reset(kRoot);
  EXPECT_EQ(m.shownProviders(), L{});
  EXPECT_TRUE(m.shown(0));
  EXPECT_TRUE(m.shown(kRoot));
}

TEST(TreeMirror, BracketsCloseSilentlyOnlyBelowAnOpenOne) {
  TreeMirror m(kRoot);
  m.apply(kPoXA, 0, 10, 0);
  m.apply(kPoXA, 10, 11, 0);
  // 11's close inside 10's bracket is silent; 11 may open again, and 10's close ends both.
  for (auto [p, open] : {std::pair{10, 1}, {11, 1}, {11, 1}, {10, 0}, {11, 1}, {11, 0}})
    m.apply(kPoXU, p, open, 0);
  EXPECT_EQ(m.takeReports(), V{});
  EXPECT_EQ(m.openBrackets(), L{});
  // 11 closed after 10: its close is still to come.
  for (auto [p, open] : {std::pair{10, 1}, {11, 1}, {10, 0}, {11, 0}}) m.apply(kPoXU, p, open, 0);
  EXPECT_EQ(m.takeReports(), V{});
  // Opened twice with nothing above, closed without an opening, left open.
  m.apply(kPoXU, 11, 1, 0);
  m.apply(kPoXU, 11, 1, 0);
  m.apply(kPoXU, 20, 0, 0);
  EXPECT_EQ(m.takeReports(), (V{"PoXU 11 1: the bracket on 11 is open already",
                                "PoXU 20 0: no bracket on 20 is open"}));
  EXPECT_EQ(m.openBrackets(), L{11});
}

using TreeWatch = ProTest;

TEST_F(TreeWatch, StartsFromTheTreeShownAndFindsChangesBehindItsBack) {
  int32_t a = provider(), b = provider(), c = provider();
  show(0, a);
  show(a, b);
  // A watch made now starts from what is shown.
  Object* late = asObject(S(ZelkorLookup(kTreeWatchSig), kNew_));
  ASSERT_EQ(S(late, kSetu, manager), 0);
  fundra::TString s;
  EXPECT_EQ(S(late, kPwDm, &s), 2);
  EXPECT_EQ(std::string(s.View()), std::to_string(a) + "\n  " + std::to_string(b) + "\n");
  EXPECT_EQ(S(late, kPwAg, &s), 0);
  EXPECT_EQ(S(late, kSetu, manager), kRefused) << "set up once";
  Object* wrong = asObject(S(ZelkorLookup(kTreeWatchSig), kNew_));
  EXPECT_EQ(S(wrong, kSetu, store), kRefused) << "not a provider manager";
  S(wrong, kDspo);
  S(late, kDspo);

  // Records written behind the manager's back, and a bracket left open.
  StatusRecord r{};
  S(store, kTSRD, status(b), &r, kStatusBytes);
  r.depth = 7;
  S(store, kTSWD, status(b), &r, kStatusBytes);
  S(manager, kPmSh, b, c);
  S(store, kTSRD, status(c), &r, kStatusBytes);
  r.depth = -1;
  S(store, kTSWD, status(c), &r, kStatusBytes);
  S(manager, kPmUg, a, 1);
  std::string sa = std::to_string(a), sb = std::to_string(b), sc = std::to_string(c);
  EXPECT_EQ(disagreements(), (V{sc + " is shown in the mirror, not in the tree",
                                sb + " has depth 7 under " + sa + " of depth 1",
                                "the bracket on " + sa + " is open"}));
  S(manager, kPmUg, a, 0);
  checkWatch = false;
  events();
}

}  // namespace
}  // namespace zt

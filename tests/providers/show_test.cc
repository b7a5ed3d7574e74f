// Showing: where a provider is placed, which events announce it and in which order, its
// ancestors and links shown with it, re-homing with a required parent, and lists shown at once.
#include "tests/providers/pro_fixture.h"

namespace zt {
namespace {

using Showing = ProTest;

TEST_F(Showing, APlacementUnderTheRootOrAShownParentIsAnnouncedOnce) {
  int32_t a = provider(), b = provider();
  controllers().abilities[a] = 0x2;
  S(manager, kPmSh, 0, a);
  EXPECT_EQ(events(), V{ev("PoXA", {0, a})}) << "under the root: no PoXP";
  EXPECT_EQ(depth(a), 1);
  EXPECT_EQ(parent(a), 0);
  EXPECT_EQ(item(status(a), kPpaKey), root);
  EXPECT_EQ(children(0), L{a});
  EXPECT_EQ(S(manager, kPGAb, a), 0x2);

  S(store, kTSSI, b, 1);  // the invisible flag becomes ability 0x4
  S(manager, kPmSh, a, b);
  EXPECT_EQ(events(), (V{ev("PoXA", {a, b}), ev("PoXP", {0, a})}));
  EXPECT_EQ(depth(b), 2);
  EXPECT_EQ(parent(b), a);
  EXPECT_EQ(children(a), L{b});
  EXPECT_EQ(S(manager, kPGAb, b), toWord(kDefaultAbilities | kAbInvisible));

  // Shown again: the abilities are asked for again and PmMd announces the change.
  controllers().abilities[b] = 0x40;
  S(store, kTSSI, b, 0);
  S(manager, kPmSh, a, b);
  EXPECT_EQ(events(), V{ev("PoXM", {a, b})});
  EXPECT_EQ(S(manager, kPGAb, b), 0x40);
  EXPECT_EQ(children(a), L{b});
}

TEST_F(Showing, HiddenAncestorsAreShownFirstWithoutAnnouncingTheirChildren) {
  int32_t a = provider(), b = provider(), c = provider(), la = provider(), lb = provider();
  show(0, a);
  show(a, b);
  show(b, c);
  S(manager, kPmSL, la, a);
  show(0, la);  // a link shown before: placed under the root
  S(manager, kPmHd, a);
  events();
  S(manager, kPmSL, lb, b);  // a link never placed

  // c's parent b and b's parent a are hidden: a first (and its link), then b (and its link),
  // then c; b and a are not announced as parents with a new child.
  S(manager, kPmSh, 0, c);
  EXPECT_EQ(events(), (V{ev("PoXA", {0, a}), ev("PoXA", {0, la}), ev("PoXA", {a, b}),
                         ev("PoXA", {0, lb}), ev("PoXA", {b, c})}));
  EXPECT_EQ(depth(a), 1);
  EXPECT_EQ(depth(b), 2);
  EXPECT_EQ(depth(c), 3);
  EXPECT_EQ(parent(lb), 0) << "an unplaced link is placed under the root";
  EXPECT_EQ(S(manager, kPGAb, lb), toWord(kDefaultAbilities | kAbLink));
  EXPECT_EQ(S(manager, kPGAb, la), toWord(kDefaultAbilities | kAbLink));
}

TEST_F(Showing, AProviderIsPlacedOnlyWhereItCanBe) {
  int32_t a = provider(), b = provider(), loose = i32(S(store, kTSDN, fc("Note"), 0, 0));
  // A parent without the shared flag: asserted, and placed there all the same.
  show(0, loose);
  S(manager, kPmSh, loose, a);
  EXPECT_EQ(asserts(), V{"provider:645"});
  EXPECT_EQ(parent(a), loose);
  EXPECT_TRUE(shown(a));
  events();

  // Under itself: not placed, not shown.
  S(manager, kPmSh, b, b);
  EXPECT_FALSE(shown(b));
  EXPECT_EQ(item(status(b), kPpaKey), 0);
  EXPECT_EQ(events(), V{});

  // A hidden parent that is not placed (its _ppa removed by hand): asserted, shown at the top.
  int32_t c = provider();
  show(0, b);
  show(b, c);
  S(manager, kPmHd, b);
  events();
  S(store, kTSUk, status(b), kPpaKey);
  S(manager, kPmSh, 0, c);
  EXPECT_EQ(asserts(), V{"provider:662"});
  EXPECT_EQ(events(), (V{ev("PoXA", {0, b}), ev("PoXA", {b, c})}));
}

TEST_F(Showing, ARequiredParentMovesAShownProviderAndRehomesAHiddenOne) {
  int32_t a = provider(), b = provider(), p = provider(), q = provider();
  show(0, a);
  show(0, b);
  // Not yet placed: shown below R, which becomes its required parent.
  EXPECT_EQ(S(manager, kPmSR, a, p), 0);
  EXPECT_EQ(events(), (V{ev("PoXA", {a, p}), ev("PoXP", {0, a})}));
  EXPECT_EQ(item(status(p), kRpaKey, kTSAG), a);

  // Shown elsewhere: moved (one PoXT), the required parent replaced.
  EXPECT_EQ(S(manager, kPmSR, b, p), 0);
  EXPECT_EQ(events(), V{ev("PoXT", {b, p, a})});
  EXPECT_EQ(parent(p), b);
  EXPECT_EQ(depth(p), 2);
  EXPECT_EQ(item(status(p), kRpaKey, kTSAG), b);
  EXPECT_EQ(children(a), L{});

  // Hidden and placed elsewhere: taken out of the old parent's list and placed anew.
  show(a, q);
  S(manager, kPmHd, q);
  events();
  EXPECT_EQ(S(manager, kPmSR, b, q), 0);
  EXPECT_EQ(events(), (V{ev("PoXA", {b, q}), ev("PoXP", {0, b})}));
  EXPECT_EQ(children(a), L{});
  EXPECT_EQ(children(b), (L{p, q}));

  // 0 (or the root) shows it where it is and removes the required parent.
  EXPECT_EQ(S(manager, kPmSR, 0, q), 0);
  EXPECT_EQ(events(), V{ev("PoXM", {b, q})});
  EXPECT_EQ(item(status(q), kRpaKey, kTSAG), 0);

  // Its own required parent: asserted; a shown one cannot move below itself.
  EXPECT_EQ(S(manager, kPmSR, p, p), kMoveBelowSelf);
  EXPECT_EQ(asserts(), V{"provider:955"});
  EXPECT_EQ(events(), V{});
  EXPECT_EQ(item(status(p), kRpaKey, kTSAG), 0) << "cleared before the move was tried";
}

TEST_F(Showing, AListIsShownInOneBracketWithoutItsLinks) {
  int32_t a = provider(), b = provider(), c = provider(), old = provider(), link = provider();
  show(0, old);
  show(old, c);
  S(manager, kPmHd, c);
  show(0, a);
  S(manager, kPmSL, link, b);
  events();
  fundra::RNList l = list({b, a, c});
  S(manager, kPmLS, a, &l);
  // a is shown: only b and c; c leaves its old parent.
  EXPECT_EQ(events(), (V{ev("PoXU", {a, 1}), ev("PoXA", {a, b}), ev("PoXA", {a, c}),
                         ev("PoXP", {0, a}), ev("PoXU", {a, 0})}));
  EXPECT_EQ(children(a), (L{b, c}));
  EXPECT_EQ(children(old), L{});
  EXPECT_EQ(depth(c), 2);
  EXPECT_FALSE(shown(link));

  // Everything listed is shown already: the bracket and the parent's PoXP only.
  S(manager, kPmLS, a, &l);
  EXPECT_EQ(events(), (V{ev("PoXU", {a, 1}), ev("PoXP", {0, a}), ev("PoXU", {a, 0})}));

  // Under the root, PoXP carries 0 and the root's own DL.
  int32_t d = provider();
  fundra::RNList top = list({d});
  S(manager, kPmLS, 0, &top);
  EXPECT_EQ(events(),
            (V{ev("PoXU", {0, 1}), ev("PoXA", {0, d}), ev("PoXP", {0, root}), ev("PoXU", {0, 0})}));
  EXPECT_EQ(depth(d), 1);
}

TEST_F(Showing, WhetherShownAndWhetherItCanBeShownAgain) {
  int32_t a = provider(), b = provider(), c = provider();
  show(0, a);
  show(a, b);
  fundra::RNList l = list({c, root, b, c});
  EXPECT_EQ(S(manager, kPmLC, &l), 2) << "the root and b stay";
  EXPECT_EQ(l.Count(), 2);
  S(manager, kPmHd, a);
  events();
  EXPECT_EQ(S(manager, kPmAQ, b), 0) << "hidden, and can be shown again";
  EXPECT_EQ(S(manager, kPmAQ, c), kNoStatusRecord) << "never placed";
  EXPECT_EQ(S(manager, kPmAQ, 0), kNoStatusRecord);
  S(store, kTSUM, kCtlSig, objWord(ctl));
  EXPECT_EQ(S(manager, kPmAQ, b), kNoController);
  S(store, kTSRM, kCtlSig, objWord(ctl));
}

}  // namespace
}  // namespace zt

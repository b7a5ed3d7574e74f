// Hiding: a provider goes with its links and its whole subtree, each announced in the walk's
// order, then one PoXP for its parent; PmUA hides every descendant and forgets where it was.
#include "tests/providers/pro_fixture.h"

namespace zt {
namespace {

using Hiding = ProTest;

TEST_F(Hiding, AProviderGoesWithItsLinksAndSubtreeInWalkOrder) {
  int32_t top = provider(), p = provider(), child = provider(), grandchild = provider();
  int32_t l1 = provider(), l2 = provider(), lc = provider(), lol = provider();
  show(0, top);
  show(top, p);
  show(p, child);
  show(child, grandchild);
  for (auto [link, target] : {std::pair{l1, p}, {l2, p}, {lc, child}, {lol, l1}})
    S(manager, kPmSL, link, target);
  show(0, l1);
  show(top, l2);
  show(0, lc);
  show(0, lol);
  S(manager, kPmHd, p);
  // p, its links (each followed by the links to it), each descendant followed by its links,
  // then the parent's PoXP.
  EXPECT_EQ(events(), (V{ev("PoXD", {top, p}), ev("PoXD", {0, l1}), ev("PoXD", {0, lol}),
                         ev("PoXD", {top, l2}), ev("PoXD", {p, child}), ev("PoXD", {0, lc}),
                         ev("PoXD", {child, grandchild}), ev("PoXP", {0, top})}));
  for (int32_t x : {p, child, grandchild, l1, l2, lc, lol}) EXPECT_EQ(depth(x), -1) << x;
  EXPECT_TRUE(shown(top));
  // Placement, order and links stay.
  EXPECT_EQ(children(top), (L{p, l2}));
  EXPECT_EQ(children(p), L{child});
  EXPECT_EQ(linksTo(p), (L{l1, l2}));

  // Hidden already: nothing happens.
  S(manager, kPmHd, p);
  EXPECT_EQ(events(), V{});
}

// A hide announces every provider it visits, shown or not: a child hidden before is announced
// again, which a view takes as part of its hidden parent. A top-level provider's parent is
// announced as 0, 0.
TEST_F(Hiding, DescendantsHiddenBeforeAreAnnouncedAgain) {
  int32_t a = provider(), b = provider(), c = provider();
  show(0, a);
  show(a, b);
  show(b, c);
  S(manager, kPmHd, b);
  EXPECT_EQ(events(), (V{ev("PoXD", {a, b}), ev("PoXD", {b, c}), ev("PoXP", {0, a})}));
  S(store, kTSVS, status(0), kPstKey, 3);
  S(manager, kPmHd, a);
  EXPECT_EQ(events(),
            (V{ev("PoXD", {0, a}), ev("PoXD", {a, b}), ev("PoXD", {b, c}), ev("PoXP", {0, 0})}));
  EXPECT_EQ(item(status(0), kPstKey, kTSVG), 0) << "the root's sort mark was cleared";
  // The root is never hidden.
  S(manager, kPmHd, 0);
  S(manager, kPmHd, root);
  EXPECT_EQ(events(), V{});
  EXPECT_EQ(depth(0), 0);
}

TEST_F(Hiding, ForgettingPlacementHidesOnlyShownDescendantsInABracket) {
  int32_t a = provider(), b = provider(), c = provider(), d = provider(), link = provider();
  show(0, a);
  show(a, b);
  show(b, c);
  show(a, d);
  S(manager, kPmHd, d);
  S(manager, kPmSL, link, c);
  show(0, link);
  events();
  S(manager, kPmUA, a);
  EXPECT_EQ(events(),
            (V{ev("PoXU", {a, 1}), ev("PoXD", {a, b}), ev("PoXD", {b, c}), ev("PoXU", {a, 0})}));
  for (int32_t x : {b, c, d}) {
    EXPECT_EQ(depth(x), -1) << x;
    EXPECT_EQ(item(status(x), kPpaKey), 0) << x;
  }
  EXPECT_EQ(children(a), L{});
  EXPECT_EQ(children(b), L{c}) << "the descendants' own lists stay";
  EXPECT_TRUE(shown(a));
  EXPECT_TRUE(shown(link)) << "links are not a descendant's";

  // Shown again, each is placed anew where it is shown.
  show(0, c);
  EXPECT_EQ(parent(c), 0);
  EXPECT_EQ(depth(c), 1);
}

}  // namespace
}  // namespace zt

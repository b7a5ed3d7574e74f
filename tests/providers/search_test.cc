// Ancestry and expansion: parents and steps up, the nearest matching ancestor, whether one
// provider is inside another (directly or through links), and a selection expanded through its
// groups.
#include "tests/providers/pro_fixture.h"

namespace zt {
namespace {

using Search = ProTest;

TEST_F(Search, ParentsAndStepsUp) {
  int32_t a = provider(), b = provider(), c = provider(), loose = provider();
  controllers().abilities[a] = 0x40;
  show(0, a);
  show(a, b);
  show(b, c);
  EXPECT_EQ(S(manager, kPoGP, c), b);
  EXPECT_EQ(S(manager, kPoGP, a), 0) << "top level";
  EXPECT_EQ(S(manager, kPoGP, 0), 0);
  EXPECT_EQ(S(manager, kPoGP, loose), 0) << "not placed";
  EXPECT_EQ(S(manager, kPGID, c, c), 0);
  EXPECT_EQ(S(manager, kPGID, c, a), 2);
  EXPECT_EQ(S(manager, kPGID, c, 0), 3);
  EXPECT_EQ(S(manager, kPGID, c, root), 3) << "the root's DL is the root";
  EXPECT_EQ(S(manager, kPGID, a, c), -1) << "c is not above a";
  EXPECT_EQ(S(manager, kPGID, loose, a), -1) << "no record";
  EXPECT_EQ(S(manager, kPGtD, loose), -1);
  EXPECT_EQ(S(manager, kPTIn, a, c), 1);
  EXPECT_EQ(S(manager, kPTIn, a, a), 1);
  EXPECT_EQ(S(manager, kPTIn, b, loose), 0);
  // The nearest ancestor below the root that matches; 0, 0 is the parent.
  EXPECT_EQ(S(manager, kPoMP, c, 0, 0), b);
  EXPECT_EQ(S(manager, kPoMP, c, 0x40, 0x40), a);
  EXPECT_EQ(S(manager, kPoMP, c, 0x2, 0x2), -1);
  EXPECT_EQ(S(manager, kPoMP, a, 0, 0), -1) << "the root is not counted";
}

TEST_F(Search, OneIsReachedFromAnotherThroughLinksAndChildren) {
  int32_t a = provider(), child = provider(), b = provider(), link = provider(), deep = provider();
  show(0, a);
  show(a, child);
  show(0, b);
  S(manager, kPmSL, link, a);
  show(b, link);
  show(child, deep);
  EXPECT_EQ(S(manager, kPUBy, a, link, 0), a) << "b is a link to a: its target";
  EXPECT_EQ(S(manager, kPUBy, child, b, 0), b) << "b's child links into a, child's parent";
  // b, the link (resolved to a), child, deep: four levels.
  EXPECT_EQ(S(manager, kPUBy, deep, b, 3), 0) << "three levels are not enough";
  EXPECT_EQ(S(manager, kPUBy, deep, b, 4), b);
  EXPECT_EQ(S(manager, kPUBy, 0, b, 0), 0);
  EXPECT_EQ(S(manager, kPUBy, b, 0, 0), 0);
  EXPECT_EQ(S(manager, kPUBy, provider(), a, 0), 0) << "no record";
}

// A `_pk#` that holds a provider several times and loops back up (stored by hand, as a damaged
// store holds it): each pair is searched once, so the search ends at once, with the same answers.
TEST_F(Search, ReachingThroughListsThatLoopEnds) {
  int32_t a = provider(), b = provider(), deep = provider(), other = provider();
  show(0, a);
  show(a, b);
  show(b, deep);
  show(0, other);
  for (int i = 0; i < 4; ++i) S(store, kTSLA, status(b), kPkKey, b);
  S(store, kTSLA, status(b), kPkKey, a);
  EXPECT_EQ(S(manager, kPUBy, other, a, 0), 0);
  EXPECT_EQ(S(manager, kPUBy, other, a, 4096), 0);
  EXPECT_EQ(S(manager, kPUBy, deep, a, 0), a);
  checkWatch = false;  // the lists were changed behind the manager's back
}

TEST_F(Search, ASelectionExpandsThroughGroupsEachProviderOnce) {
  int32_t folder = provider(), item = provider(), sub = provider(), subItem = provider();
  int32_t hidden = provider(), link = provider(), match = provider();
  controllers().abilities[folder] = 0x2;  // a group that does not match
  controllers().abilities[sub] = 0x2;
  controllers().abilities[item] = 0x10;
  controllers().abilities[subItem] = 0x10;
  controllers().abilities[hidden] = 0x10;
  controllers().abilities[match] = 0x10;
  show(0, folder);
  show(folder, item);
  show(folder, sub);
  show(sub, subItem);
  show(folder, hidden);
  S(manager, kPmHd, hidden);
  S(manager, kPmSL, link, match);
  show(0, match);
  events();
  fundra::RNList in = list({folder, link, item}), out;
  for (int i = 0; i < 3; ++i) out.Add(7);
  EXPECT_EQ(S(manager, kPoEp, &in, &out, 0x10, 0x10), 0);
  // The link is its target; the groups give their shown members, not themselves; item once.
  EXPECT_EQ(items(out), (L{item, subItem, match}));
  // Without a filter every shown provider is kept, groups too.
  EXPECT_EQ(S(manager, kPoEp, &in, &out, 0, 0), 0);
  EXPECT_EQ(items(out), (L{folder, match, item}));

  // A link that does not resolve ends its list's scan with -838 and empties the output.
  int32_t loopA = provider(), loopB = provider();
  S(manager, kPmSL, loopA, loopB);
  S(manager, kPmSL, loopB, loopA);
  fundra::RNList bad = list({item, loopA});
  EXPECT_EQ(S(manager, kPoEp, &bad, &out, 0, 0), kLinkUnresolved);
  EXPECT_EQ(out.Count(), 0);
}

}  // namespace
}  // namespace zt

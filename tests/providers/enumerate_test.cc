// Enumeration, positions and order: which children and descendants a filter lets through, where
// a provider stands among them, and the sort of a parent's children by sort name, kept in the
// store and done again only when the parent's sort mark says so.
#include "tests/providers/pro_fixture.h"

namespace zt {
namespace {

using Enumeration = ProTest;

TEST_F(Enumeration, AFilterLetsThroughByMaskAndValueOrAnyOfTheValuesOutsideTheMask) {
  int32_t parent = provider();
  show(0, parent);
  int32_t plain = provider(), group = provider(), eight = provider(), both = provider();
  controllers().abilities[plain] = 0x100;
  controllers().abilities[group] = 0x102;
  controllers().abilities[eight] = 0x108;
  controllers().abilities[both] = 0x10A;
  for (int32_t p : {plain, group, eight, both}) show(parent, p);
  fundra::RNList l;
  auto list = [&](uint32_t mask, uint32_t value) {
    EXPECT_EQ(S(manager, kPoEL, parent, &l, mask, value, 0), 0);
    return items(l);
  };
  EXPECT_EQ(list(0, 0), (L{plain, group, eight, both})) << "no filter";
  EXPECT_EQ(list(0x2, 0), L{}) << "a mask bit must be set in the abilities";
  EXPECT_EQ(list(0x2, 0x2), (L{group, both}));
  EXPECT_EQ(list(0xA, 0x2), L{group}) << "every mask bit as in the value";
  EXPECT_EQ(list(0, 0x8), (L{eight, both})) << "value bits outside the mask: any of them";
  EXPECT_EQ(list(0x2, 0x2 | 0x8), (L{group, eight, both}));
  EXPECT_EQ(S(manager, kPoEF, parent, both, 0, 0x8, 0), 1);
  EXPECT_EQ(S(manager, kPoEF, parent, plain, 0, 0x8, 0), 1) << "not listed: the count - 1";
  EXPECT_EQ(S(manager, kPoEF, parent, plain, 0x2, 0, 0), -1) << "nothing listed";
}

TEST_F(Enumeration, DescendantsAreListedBelowHiddenOnesAndFoundInTheSameOrder) {
  int32_t a = provider(), b = provider(), c = provider(), d = provider(), e = provider();
  show(0, a);
  show(a, b);
  show(a, c);
  show(a, d);
  show(0, e);
  S(manager, kPmHd, b);
  events();
  // A shown provider moved under a hidden one stays shown (depth -1 + 1): the move's one PoXT
  // names a parent a view does not show.
  EXPECT_EQ(S(manager, kPMov, b, c), 0);
  EXPECT_EQ(events(), V{ev("PoXT", {b, c, a})});
  EXPECT_EQ(depth(c), 0);
  EXPECT_EQ(watchReports(),
            V{ev("PoXT", {b, c, a}) + ": the new parent " + std::to_string(b) + " is not shown"});
  // b is not shown, its child c is: PoDL lists c under a hidden b.
  fundra::RNList l;
  EXPECT_EQ(S(manager, kPoDL, 0, &l, 0, 0, 0), 0);
  EXPECT_EQ(items(l), (L{a, c, d, e}));
  EXPECT_EQ(S(manager, kPoDF, 0, d, 0, 0, 0), 2);
  EXPECT_EQ(S(manager, kPoDF, 0, b, 0, 0, 0), 3) << "hidden: the number listed - 1";
  EXPECT_EQ(S(manager, kPoEL, a, &l, 0, 0, 0), 0);
  EXPECT_EQ(items(l), L{d});
  EXPECT_EQ(S(manager, kPoGI, a, 0), d) << "shown children only";
  EXPECT_EQ(S(manager, kPoGI, a, 1), 0);
  EXPECT_EQ(S(manager, kPoIA, a, 0), b) << "every child";
  EXPECT_EQ(S(manager, kPoIA, a, 2), 0);
  EXPECT_EQ(S(manager, kPoIA, a, -1), 0);
  EXPECT_EQ(S(manager, kPoFT, 0, fc("Note")), a);
  EXPECT_EQ(S(manager, kPoFT, a, fc("Note")), c) << "b is hidden; c below it is shown";
  EXPECT_EQ(S(manager, kPoFT, a, fc("Nope")), 0);
  fundra::TMemory all;
  EXPECT_EQ(S(manager, kPoLA, a, &all), 0);
  EXPECT_EQ(all.GetSize(), 8);
  EXPECT_EQ(S(manager, kPoLA, provider(), &all), kNoItem);
  EXPECT_EQ(all.GetSize(), 0);
  checkWatch = false;  // the watch could not apply the move: its c is still under a
}

TEST_F(Enumeration, ALongListGrowsAndIsTrimmedToWhatMatched) {
  int32_t parent = provider();
  show(0, parent);
  fundra::RNList kids;
  L expected;
  for (int i = 0; i < 300; ++i) {
    kids.Add(provider());
    if (i % 3 != 1) expected.push_back(kids.Get(i));
  }
  S(manager, kPmLS, parent, &kids);
  for (int i = 1; i < 300; i += 3) controllers().abilities[kids.Get(i)] = 0x8;
  for (int i = 1; i < 300; i += 3) S(manager, kPmAU, kids.Get(i), 0);
  events();
  fundra::RNList l;
  for (int i = 0; i < 500; ++i) l.Add(-1);  // replaced, not appended to
  EXPECT_EQ(S(manager, kPoEL, parent, &l, 0x100, 0x100, 0), 0);
  EXPECT_EQ(items(l), expected);
  EXPECT_EQ(l.Memory().GetSize(), 200 * 4);
}

TEST_F(Enumeration, PositionsAmongSiblingsMoveOnlyByHand) {
  int32_t parent = provider(), a = provider(), b = provider(), c = provider(), stray = provider();
  show(0, parent);
  for (int32_t p : {a, b, c}) show(parent, p);
  EXPECT_EQ(S(manager, kPoGX, c), 2);
  EXPECT_EQ(S(manager, kPoGX, stray), kNoItem);
  EXPECT_EQ(S(manager, kPoSX, c, 2), 0);
  EXPECT_EQ(events(), V{}) << "already there";
  EXPECT_EQ(S(manager, kPoSX, c, 0), 0);
  EXPECT_EQ(events(), V{ev("PoXM", {parent, c})});
  EXPECT_EQ(children(parent), (L{c, a, b}));
  EXPECT_EQ(S(manager, kPoSX, c, 99), 0) << "beyond the end: appended";
  EXPECT_EQ(children(parent), (L{a, b, c}));
  events();
  EXPECT_EQ(S(manager, kPoSX, stray, 0), kProviderMisplaced);
  EXPECT_EQ(S(manager, kPoGX, 0), kNoItem) << "the root is in no list";
}

TEST_F(Enumeration, ASortIsKeptUntilTheChildrenChange) {
  int32_t parent = provider();
  show(0, parent);
  const char* names[] = {"copy 10", "Copy 2", "Éclair", "apple", "Banana", "eclair"};
  L kids;
  for (const char* n : names) {
    kids.push_back(provider());
    controllers().names[kids.back()] = n;
    show(parent, kids.back());
  }
  auto names_of = [&](const fundra::RNList& l) {
    std::vector<std::string> out;
    for (int32_t p : items(l)) out.push_back(controllers().names[p]);
    return out;
  };
  fundra::RNList l;
  controllers().sortNames = 0;
  EXPECT_EQ(S(manager, kPoEL, parent, &l, 0, 0, 1), 0);
  // The foundation's comparison, option 0: letters before case and accents, digit runs by value.
  EXPECT_EQ(names_of(l), (V{"apple", "Banana", "Copy 2", "copy 10", "eclair", "Éclair"}));
  EXPECT_EQ(controllers().sortNames, 6) << "one sort name per child";
  EXPECT_EQ(S(manager, kPoGR, parent, kPstKey), 1);
  EXPECT_EQ(children(parent), items(l)) << "the order is kept in the store";

  // Asked again in the same mode: no sort, no sort name.
  EXPECT_EQ(S(manager, kPoEL, parent, &l, 0, 0, 1), 0);
  EXPECT_EQ(S(manager, kPoEF, parent, kids[0], 0, 0, 1), 3);
  EXPECT_EQ(controllers().sortNames, 6);

  // A new child clears the mark: sorted again.
  int32_t zebra = provider();
  controllers().names[zebra] = "aardvark";
  show(parent, zebra);
  EXPECT_EQ(S(manager, kPoGR, parent, kPstKey), 0);
  EXPECT_EQ(S(manager, kPoEL, parent, &l, 0, 0, 1), 0);
  EXPECT_EQ(names_of(l)[0], "aardvark");
  EXPECT_EQ(controllers().sortNames, 13);

  // A hand-made order stays: PoSX keeps the mark.
  S(manager, kPoSX, zebra, 6);
  events();
  controllers().sortNames = 0;
  EXPECT_EQ(S(manager, kPoEL, parent, &l, 0, 0, 1), 0);
  EXPECT_EQ(items(l).back(), zebra);
  EXPECT_EQ(controllers().sortNames, 0);
  // Another mode sorts again.
  EXPECT_EQ(S(manager, kPoEL, parent, &l, 0, 0, 2), 0);
  EXPECT_EQ(items(l).front(), zebra);
}

TEST_F(Enumeration, ProvidersMarkedFirstLeadAndAParentCanKeepItsOrder) {
  int32_t parent = provider(), keep = provider();
  controllers().abilities[keep] = kAbKeepOrder;
  show(0, parent);
  show(0, keep);
  L kids, kept;
  for (const char* n : {"d", "c", "b", "a"}) {
    kids.push_back(provider());
    controllers().names[kids.back()] = n;
    if (std::string(n) == "b" || std::string(n) == "d") controllers().abilities[kids.back()] = 0x1;
    show(parent, kids.back());
    kept.push_back(provider());
    controllers().names[kept.back()] = n;
    show(keep, kept.back());
  }
  fundra::RNList l;
  EXPECT_EQ(S(manager, kPoEL, parent, &l, 0, 0, 7), 0);
  EXPECT_EQ(items(l), (L{kids[2], kids[0], kids[3], kids[1]})) << "b, d first; then a, c";
  controllers().sortNames = 0;
  EXPECT_EQ(S(manager, kPoEL, keep, &l, 0, 0, 7), 0);
  EXPECT_EQ(items(l), kept) << "never sorted";
  EXPECT_EQ(controllers().sortNames, 0);
  EXPECT_EQ(S(manager, kPoGR, keep, kPstKey), 0);
  // PoDL sorts every parent it visits: the root too.
  EXPECT_EQ(S(manager, kPoDL, 0, &l, 0, 0, 7), 0);
  EXPECT_EQ(S(manager, kPoGR, 0, kPstKey), 7);
}

}  // namespace
}  // namespace zt

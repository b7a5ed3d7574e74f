// Links (`@PLK`) and keyed containers (`@PCO`) through the manager: link types, links made under a
// container and named through their targets (chains that do not resolve included), forgetting
// links and the targets they point at; keyed containers made once per key and shown below their
// parents, their names and sort names, bad keys and damaged containers.
#include "tests/providers/companions_fixture.h"

namespace zt {
namespace {

using LinkObject = CompanionTest;
using Keyed = CompanionTest;

int32_t newLink(Object* manager, FourCC type, const char* name, int32_t target) {
  fundra::TString s(name ? name : "");
  return i32(S(manager, kPLNL, type, name ? &s : nullptr, target));
}

TEST_F(LinkObject, ALinkTypeRecordIsMadeOnceAndItsLinksBelongToTheLinkObject) {
  int32_t target = provider();
  EXPECT_EQ(newLink(manager, kBox, "Mine", target), 0) << "no link type record yet";
  EXPECT_EQ(linksTo(target), L{});
  int32_t rec = i32(S(manager, kPLCT, kBox, kBoxTable));
  ASSERT_GT(rec, 0);
  EXPECT_EQ(item(i32(S(links, kSdRR)), kBox), rec);
  EXPECT_EQ(describe(rec), "PrLk owner 0 shared: PrL. 256 256 | 18190 0x0");
  EXPECT_EQ(S(manager, kPLCT, kBox, 18199), rec);
  EXPECT_EQ(describe(rec), "PrLk owner 0 shared: PrL. 256 256 | 18199 0x0");

  int32_t named = newLink(manager, kBox, "Mine", target);
  int32_t bare = newLink(manager, kBox, nullptr, target);
  ASSERT_GT(named, 0);
  EXPECT_EQ(describe(named), "Box  owner PLK1 shared, no data");
  EXPECT_EQ(S(manager, kPoCo, named), objWord(links));
  EXPECT_EQ(stored(named), "Mine");
  EXPECT_EQ(stored(bare), "<none>");
  EXPECT_EQ(linksTo(target), (L{named, bare})) << "pointed by the manager";
  int32_t out = -1;
  EXPECT_EQ(S(manager, kPAbl, named, &out, 0), 0);
  EXPECT_EQ(out, 4);
}

TEST_F(LinkObject, ALinkMadeUnderAContainerIsNamedThroughItsTarget) {
  define(kBox);
  S(manager, kPLCT, kBox, kBoxTable);
  int32_t seeds = container("Seeds"), shed = container("Shed");
  show(0, seeds);
  show(0, shed);
  int32_t link = i32(S(manager, kPLnk, shed, seeds));
  ASSERT_GT(link, 0);
  EXPECT_EQ(S(store, kTSDT, link), toWord(kBox)) << "the parent's uType names the link type";
  EXPECT_EQ(events(), (V{ev("PoXA", {shed, link}), ev("PoXP", {0, shed})}));
  EXPECT_EQ(S(manager, kPGAb, link), toWord(kAbLink | kAbGroup));
  EXPECT_EQ(S(links, kPGAb, link), toWord(kAbLink | kAbGroup));
  EXPECT_EQ(nameOf(link), "<Seeds|Seeds>");
  EXPECT_EQ(nameOf(link, 2), "2<Box: Seeds|Seeds>") << "the target asked for kind 3";
  EXPECT_EQ(sortNameOf(link, 5), "<Seeds|Seeds>");
  EXPECT_EQ(nameOf(link, 1), "[?18190.LkN1]") << "a missing format shows its key";
  // Its own Name is not read while it resolves.
  fundra::TString mine("Mine");
  S(store, kTSSs, link, kNameKey, &mine);
  EXPECT_EQ(nameOf(link), "<Seeds|Seeds>");

  // A renamed target is announced with its link, which takes the new name.
  fundra::TString pips("Pips");
  EXPECT_EQ(S(manager, kPRen, seeds, &pips), 0);
  EXPECT_EQ(events(), (V{ev("PoXM", {0, seeds}), ev("PoXM", {shed, link})}));
  EXPECT_EQ(nameOf(link), "<Pips|Pips>");

  // A target without a Name: its controller's name stands for both.
  int32_t note = provider();
  controllers().names[note] = "Note";
  EXPECT_EQ(nameOf(newLink(manager, kBox, "Mine", note)), "<Note|Note>");
}

TEST_F(LinkObject, AChainThatDoesNotResolveIsNamedFromItsOwnName) {
  define(kBox);
  S(manager, kPLCT, kBox, kBoxTable);
  int32_t target = container("Seeds");
  L chain;
  for (int i = 1, previous = target; i <= 10; ++i) {
    previous = newLink(manager, kBox, ("link " + std::to_string(i)).c_str(), previous);
    chain.push_back(previous);
  }
  EXPECT_EQ(nameOf(chain[8]), "<Seeds|Seeds>") << "nine links resolve";
  EXPECT_EQ(nameOf(chain[9]), "<|link 10>") << "ten do not";
  S(store, kTSUk, chain[9], kNameKey);
  EXPECT_EQ(nameOf(chain[9]), "<|>");
  // A link that points at itself loops; one the link object made without a target is its own.
  S(manager, kPmSL, chain[0], chain[0]);
  EXPECT_EQ(nameOf(chain[0]), "<|link 1>");
  fundra::TString lone("Lone");
  int32_t untargeted = i32(S(links, kPLNL, kBox, &lone));
  EXPECT_EQ(nameOf(untargeted), "<|Lone>");
  // A provider of the link object whose uType has no link type record: no name.
  int32_t stray = i32(S(store, kTSDN, fc("Nope"), 0, S(links, kSdRR)));
  EXPECT_EQ(nameOf(stray), "");
}

TEST_F(LinkObject, ForgettingALinkOrItsTargetCutsTheLink) {
  define(kBox);
  S(manager, kPLCT, kBox, kBoxTable);
  int32_t seeds = container("Seeds"), shed = container("Shed");
  show(0, seeds);
  show(0, shed);
  int32_t link = i32(S(manager, kPLnk, shed, seeds));
  events();
  EXPECT_EQ(S(manager, kPULk, shed, seeds), 0);
  EXPECT_EQ(events(), (V{ev("PoXD", {shed, link}), ev("PoXP", {0, shed})}));
  EXPECT_EQ(linksTo(seeds), L{});
  EXPECT_EQ(children(shed), L{});

  // Forgetting a container hides its links with it; the cut reaches each link's record, which
  // held the container through a part link, so the link leaves the tree too.
  link = i32(S(manager, kPLnk, shed, seeds));
  events();
  EXPECT_EQ(S(manager, kPFog, seeds, 0), 0);
  EXPECT_EQ(events(), (V{ev("PoXD", {0, seeds}), ev("PoXD", {shed, link}), ev("PoXP", {0, 0})}));
  EXPECT_EQ(status(link), 0);
  EXPECT_EQ(children(shed), L{link}) << "listed, with no record";
  EXPECT_EQ(S(store, kTSGC), 0);
  EXPECT_EQ(S(store, kTSCk), 1);
}

TEST_F(Keyed, AContainerIsMadeOncePerKeyAndShownBelowItsParent) {
  int32_t c = i32(S(keyed, kPoCC, 0, fc("Inbx"), kBoxTable, 0x2));
  ASSERT_GT(c, 0);
  EXPECT_EQ(events(), V{ev("PoXA", {0, c})});
  EXPECT_EQ(S(keyed, kPoGC, fc("Inbx")), c);
  EXPECT_EQ(S(keyed, kPoGC, fc("None")), 0);
  EXPECT_EQ(describe(c), "PCnr owner KEYD shared: PCn. 256 256 | 18190 0x2 0x0 0x0");
  EXPECT_EQ(S(manager, kPoCo, c), objWord(keyed));
  EXPECT_EQ(S(manager, kPGAb, c), 0x2);

  EXPECT_EQ(nameOf(c), "Keyed");
  EXPECT_EQ(nameOf(c, 1), "Keyed one");
  EXPECT_EQ(sortNameOf(c, 1), "sorted");
  EXPECT_EQ(sortNameOf(c, 2), "Keyed") << "no sort name of mode 2: the name of kind 0";
  fundra::TString s("garbage");
  EXPECT_EQ(S(keyed, kPGNm, c, &s, 1), 1);
  EXPECT_EQ(S(keyed, kPGNm, c, &s, 5), 0);
  EXPECT_EQ(s.View(), "");
  EXPECT_EQ(S(keyed, kPGSN, c, &s, 1), 1);
  int32_t out = -1;
  EXPECT_EQ(S(manager, kPAbl, c, &out, 0), 0);
  EXPECT_EQ(out, 8);

  // Made again with its key: the same container, its record written again, and (shown already)
  // announced as changed.
  EXPECT_EQ(S(keyed, kPoCC, 0, fc("Inbx"), kShelfTable, 0x3), c);
  EXPECT_EQ(events(), V{ev("PoXM", {0, c})});
  EXPECT_EQ(describe(c), "PCnr owner KEYD shared: PCn. 256 256 | 18191 0x3 0x0 0x0");
  EXPECT_EQ(S(manager, kPGAb, c), 0x3);
  EXPECT_EQ(nameOf(c), "") << "the shelf's table has no PcN0";

  // Without a key: a new container every time, below the parent, its required parent.
  int32_t d1 = i32(S(keyed, kPoCC, c, 0, kBoxTable, 0x100));
  int32_t d2 = i32(S(keyed, kPoCC, c, 0, kBoxTable, 0x100));
  EXPECT_NE(d1, d2);
  EXPECT_EQ(events(),
            (V{ev("PoXA", {c, d1}), ev("PoXP", {0, c}), ev("PoXA", {c, d2}), ev("PoXP", {0, c})}));
  EXPECT_EQ(item(status(d1), kRpaKey, kTSAG), c);
  EXPECT_EQ(S(manager, kPMov, 0, d1), kRequiredParentLeft);
}

TEST_F(Keyed, BadKeysAndDamagedContainersNeverLoseWhatIsStored) {
  EXPECT_EQ(S(keyed, kPoCC, 0, 0x01020304, kBoxTable, 0x2), 0) << "no key the store can hold";
  EXPECT_EQ(events(), V{});
  int32_t module = i32(S(keyed, kSdRR));
  int32_t junk = i32(S(store, kTSDN, kKeyedContainerType, 8, module));
  S(store, kTSSS, junk);
  S(store, kTSHS, module, fc("Junk"), junk);
  EXPECT_EQ(S(keyed, kPGAb, junk), 0);
  fundra::TString s("garbage");
  EXPECT_EQ(S(keyed, kPGNm, junk, &s, 0), 0);
  EXPECT_EQ(s.View(), "");
  EXPECT_EQ(S(keyed, kPGSN, junk, &s, 1), 0);
  int32_t fresh = i32(S(keyed, kPoCC, 0, fc("Junk"), kBoxTable, 0x2));
  EXPECT_NE(fresh, junk);
  EXPECT_EQ(S(keyed, kPoGC, fc("Junk")), fresh);
  EXPECT_EQ(S(store, kTSSD, junk), 8) << "left as it was";
  EXPECT_EQ(events(), V{ev("PoXA", {0, fresh})});

  // A keyed container class that names no module: the assertion, then Setu as usual.
  Object* bare = asObject(send(ZelkorLookup(kKeyedContainerSig), kNew_));
  S(bare, kSetu, store, 0, 0);
  V reports = asserts();
  ASSERT_FALSE(reports.empty());
  EXPECT_EQ(reports.front(), "procon:169");
}

}  // namespace
}  // namespace zt

// Links: found or made under a parent and shown there, linking through a link folder, retargeted
// without an event, listed in the order they were made, forgotten through their controller.
#include "tests/providers/pro_fixture.h"

namespace zt {
namespace {

using Links = ProTest;

TEST_F(Links, ALinkIsMadeOnceUnderItsParentWhichItMustStayBelow) {
  useCompanions();
  int32_t folder = provider(), target = provider();
  show(0, folder);
  show(0, target);
  int32_t link = i32(S(manager, kPLnk, folder, target));
  ASSERT_GT(link, 0);
  EXPECT_EQ(S(store, kTSDT, link), toWord(fc("Note"))) << "of the parent's type (PcGT)";
  EXPECT_EQ(S(store, kTSCS, link), toWord(kLinkModSig));
  EXPECT_EQ(events(), (V{ev("PoXA", {folder, link}), ev("PoXP", {0, folder})}));
  EXPECT_EQ(item(status(link), kPlkKey, kTSAG), target);
  EXPECT_EQ(item(status(link), kRpaKey, kTSAG), folder);
  EXPECT_EQ(linksTo(target), L{link});
  EXPECT_EQ(S(manager, kPGAb, link), toWord(kDefaultAbilities | kAbLink));
  // Asked again: the same link, nothing happens.
  EXPECT_EQ(S(manager, kPLnk, folder, target), link);
  EXPECT_EQ(events(), V{});
  EXPECT_EQ(S(manager, kPMov, 0, link), kRequiredParentLeft);
  // Hidden and shown with its target.
  S(manager, kPmHd, target);
  EXPECT_EQ(events(), (V{ev("PoXD", {0, target}), ev("PoXD", {folder, link}), ev("PoXP", {0, 0})}));
  S(manager, kPmSh, 0, target);
  EXPECT_EQ(events(),
            (V{ev("PoXA", {0, target}), ev("PoXA", {folder, link}), ev("PoXP", {0, folder})}));
}

TEST_F(Links, InALinkFolderALinkLinksToItsOwnTarget) {
  useCompanions();
  int32_t folder = provider(), target = provider(), other = provider(), plain = provider();
  controllers().abilities[folder] = kAbLinkFolder;
  show(0, folder);
  show(0, target);
  show(0, other);
  int32_t inFolder = i32(S(manager, kPLnk, folder, target));
  show(folder, plain);
  events();
  // Linking to the link in the folder links to its target.
  int32_t link = i32(S(manager, kPLnk, other, inFolder));
  ASSERT_GT(link, 0);
  EXPECT_EQ(item(status(link), kPlkKey, kTSAG), target);
  EXPECT_EQ(linksTo(target), (L{inFolder, link}));
  // A provider in a link folder that is no link cannot be linked.
  EXPECT_EQ(S(manager, kPLnk, other, plain), kProviderMisplaced);
  EXPECT_EQ(children(other), L{link});
  events();
}

TEST_F(Links, ForgettingALinkTakesOnlyTheFirstToTheTarget) {
  useCompanions();
  int32_t a = provider(), t = provider();
  show(0, a);
  show(0, t);
  int32_t l1 = i32(S(manager, kPLnk, a, t));
  // A second link to t under a, made by hand (PLnk would answer the first).
  int32_t l2 = i32(S(linker, kPLNL, 0, 0));
  S(manager, kPmSL, l2, t);
  S(manager, kPmSR, a, l2);
  events();
  EXPECT_EQ(S(manager, kPULk, a, t), 0);
  EXPECT_EQ(controllers().heard, V{"PFog " + std::to_string(l1) + " 0"});
  EXPECT_EQ(events(), (V{ev("PoXD", {a, l1}), ev("PoXP", {0, a})}));
  EXPECT_EQ(children(a), L{l2}) << "TSDR cut every reference to l1";
  EXPECT_EQ(linksTo(t), L{l2});
  EXPECT_EQ(S(manager, kPULk, a, a), 0) << "no link to a: nothing";
  EXPECT_EQ(events(), V{});
}

}  // namespace
}  // namespace zt

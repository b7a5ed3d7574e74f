// Changes that announce themselves: update brackets and their nesting, PmMd for a provider and
// its links, the invisible flag, abilities written without an event, PoXS, shared and copied
// status records; and a listener that disposes of the manager in the middle of an event.
#include "tests/providers/pro_fixture.h"

namespace zt {
namespace {

using Events = ProTest;

TEST_F(Events, AnInnerBracketClosesSilentlyWhileOneAboveIsOpen) {
  int32_t a = provider(), b = provider();
  show(0, a);
  show(a, b);
  S(manager, kPmUg, a, 1);
  S(manager, kPmUg, b, 1);
  S(manager, kPmUg, b, 0);
  S(manager, kPmUg, a, 0);
  EXPECT_EQ(events(), (V{ev("PoXU", {a, 1}), ev("PoXU", {b, 1}), ev("PoXU", {a, 0})}));

  // Closed the other way round, each close is announced.
  S(manager, kPmUg, a, 1);
  S(manager, kPmUg, b, 1);
  S(manager, kPmUg, a, 0);
  S(manager, kPmUg, b, 0);
  EXPECT_EQ(events(),
            (V{ev("PoXU", {a, 1}), ev("PoXU", {b, 1}), ev("PoXU", {a, 0}), ev("PoXU", {b, 0})}));

  // Nested on one provider: only the outermost pair is announced. A bracket on the root does
  // not silence the others.
  S(manager, kPmUg, 0, 1);
  S(manager, kPmUg, b, 1);
  S(manager, kPmUg, b, 1);
  S(manager, kPmUg, b, 0);
  S(manager, kPmUg, b, 0);
  S(manager, kPmUg, root, 0);
  EXPECT_EQ(events(),
            (V{ev("PoXU", {0, 1}), ev("PoXU", {b, 1}), ev("PoXU", {b, 0}), ev("PoXU", {0, 0})}));
}

TEST_F(Events, ABracketClosedMoreOftenThanOpenedIsAsserted) {
  int32_t a = provider();
  show(0, a);
  S(manager, kPmUg, a, 0);
  EXPECT_EQ(asserts(), V{"provider:1197"});
  EXPECT_EQ(events(), V{ev("PoXU", {a, 0})});
  EXPECT_EQ(watchReports(),
            V{"PoXU " + std::to_string(a) + " 0: no bracket on " + std::to_string(a) + " is open"});
}

TEST_F(Events, AChangeIsAnnouncedForTheProviderAndEachLinkToIt) {
  int32_t a = provider(), p = provider(), l1 = provider(), l2 = provider(), loose = provider();
  show(0, a);
  show(a, p);
  S(manager, kPmSL, l1, p);
  S(manager, kPmSL, l2, p);
  show(a, l1);
  S(store, kTSVS, status(a), kPstKey, 2);
  S(manager, kPmMd, p);
  // l2 was never placed: PoGP answers 0 for it.
  EXPECT_EQ(events(), (V{ev("PoXM", {a, p}), ev("PoXM", {a, l1}), ev("PoXM", {0, l2})}));
  EXPECT_EQ(item(status(a), kPstKey, kTSVG), 0) << "the parent's sort mark was cleared";

  // A provider the manager has never seen.
  S(manager, kPmMd, loose);
  EXPECT_EQ(events(), V{ev("PoXM", {0, loose})});
  EXPECT_EQ(status(loose), 0);

  S(manager, kPmSv, 11, 22);
  EXPECT_EQ(events(), V{"PoXS 11 22"});
}

TEST_F(Events, AbilitiesAreWrittenWithoutAnEventAndKeepTheLinkBit) {
  int32_t a = provider(), link = provider();
  show(0, a);
  EXPECT_EQ(S(manager, kPmAU, a, 0), 0) << "the controller's answer did not change";
  controllers().abilities[a] = 0x103;
  EXPECT_EQ(S(manager, kPmAU, a, 0), 0x3);
  EXPECT_EQ(S(manager, kPmAU, a, 0x1), 0x102);
  EXPECT_EQ(S(manager, kPGAb, a), 0x1);
  EXPECT_EQ(events(), V{});

  S(manager, kPmSL, link, a);
  EXPECT_EQ(S(manager, kPGAb, link), toWord(0x1 | kAbLink));
  EXPECT_EQ(S(manager, kPmAU, link, 0x8), 0x9) << "the link bit stays";
  EXPECT_EQ(asserts(), V{"provider:866"});
  EXPECT_EQ(S(manager, kPGAb, link), toWord(0x8 | kAbLink));
  EXPECT_EQ(S(manager, kPmAU, a, kAbLink | 0x1), 0);
  EXPECT_EQ(asserts(), V{"provider:866"});

  // The invisible flag and bit 0x4 go together; PmMd only when they changed.
  S(manager, kPmSI, a, 1);
  EXPECT_EQ(events(), (V{ev("PoXM", {0, a}), ev("PoXM", {0, link})}));
  EXPECT_EQ(S(store, kTSTI, a), 1);
  EXPECT_EQ(S(manager, kPGAb, a), toWord(0x1 | kAbInvisible));
  S(manager, kPmSI, a, 1);
  EXPECT_EQ(events(), V{});
}

TEST_F(Events, ARecordIsSharedOrCopiedUnderTheSameParent) {
  int32_t a = provider(), p = provider(), copy = provider(), child = provider(), fresh = provider();
  show(0, a);
  show(a, p);
  show(p, child);
  S(manager, kPoSR, p, fc("Colr"), 9);
  EXPECT_EQ(S(manager, kPmDF, fresh, p), kNoStatusRecord) << "fresh has no record";
  S(manager, kPGAb, copy);
  EXPECT_EQ(S(manager, kPmDF, copy, fresh), kNoStatusRecord) << "the source has none";

  // Shared: both name one status DL.
  EXPECT_EQ(S(manager, kPmDF, copy, p), 0);
  EXPECT_EQ(status(copy), status(p));
  EXPECT_TRUE(shown(copy));

  // Copied: a record of its own, placed under the same parent, not shown, with nothing else.
  int32_t shared = status(copy);
  EXPECT_EQ(S(manager, kPmDF, copy, 0), 0);
  EXPECT_NE(status(copy), shared);
  EXPECT_EQ(S(store, kTSDT, status(copy)), toWord(kStatusType));
  EXPECT_EQ(depth(copy), -1);
  EXPECT_EQ(S(manager, kPGAb, copy), S(manager, kPGAb, p));
  EXPECT_EQ(parent(copy), a);
  EXPECT_EQ(children(a), (L{p, copy}));
  EXPECT_EQ(children(copy), L{});
  EXPECT_EQ(S(manager, kPoGR, copy, fc("Colr")), 0);
  EXPECT_EQ(depth(p), 2) << "the original is as it was";
  EXPECT_EQ(children(p), L{child});

  // Not placed: no copy.
  S(manager, kPGAb, fresh);
  EXPECT_EQ(S(manager, kPmDF, fresh, 0), kNoStatusRecord);
  EXPECT_EQ(events(), V{});
}

// A listener that disposes of the manager while it hears PoXA: the show completes with the
// manager whole (its links and the parent's PoXP are still announced), and the manager is gone
// once the show returns.
TEST_F(Events, AManagerDisposedByAListenerFinishesWhatItWasDoing) {
  int32_t a = provider(), b = provider(), link = provider();
  show(0, a);
  S(manager, kPmSL, link, b);
  static Object* gManager;
  static int gDisposals;
  gManager = manager;
  gDisposals = 0;
  ClassRec* cls = makeSubclass(rootClass(), fc("tRud"), 0);
  ASSERT_TRUE(cls);
  Defn(cls, kPoXA, [](Object*, const Msg&) -> Word {
    ++gDisposals;
    return S(gManager, kDspo);
  });
  Object* rude = newObject(cls);
  poAd(rude, objWord(manager));
  Object* modeler = ctl;
  EXPECT_EQ(S(modeler, kPmGP), objWord(manager));
  S(manager, kPmSh, a, b);
  EXPECT_FALSE(isLiveObject(objWord(manager)));
  EXPECT_EQ(gDisposals, 2) << "it heard b's PoXA and its link's";
  EXPECT_EQ(events(), (V{ev("PoXA", {a, b}), ev("PoXP", {0, a}), ev("PoXA", {0, link})}));
  EXPECT_EQ(S(modeler, kPmGP), 0) << "PmEd reached the modelers";
  // The store holds what the show wrote.
  StatusRecord r{};
  S(store, kTSRD, item(b, kPspKey), &r, kStatusBytes);
  EXPECT_EQ(r.depth, 2);
  S(rude, kDspo);
}

}  // namespace
}  // namespace zt

// Controllers and forwarding: which object answers for a provider, how link chains resolve
// (nine links resolve, ten do not, a loop does not), what each forwarding selector hands the
// controller and which code it answers when there is nobody to ask; the companions' selectors
// with no companion class loaded.
#include "platform/zelkor/codes.h"
#include "tests/providers/pro_fixture.h"

namespace zt {
namespace {

using Forwarding = ProTest;

// A chain of n links ending at a plain provider: answers the first link (or the provider).
struct Chain {
  std::vector<int32_t> links;
  int32_t end = 0;
};

TEST_F(Forwarding, NineLinksResolveTenDoNot) {
  auto chain = [&](int n) {
    Chain c;
    c.end = provider();
    int32_t target = c.end;
    for (int i = 0; i < n; ++i) {
      int32_t link = provider();
      S(manager, kPmSL, link, target);
      c.links.insert(c.links.begin(), link);
      target = link;
    }
    return c;
  };
  Chain nine = chain(9), ten = chain(10);
  int32_t w = nine.links[0];
  EXPECT_EQ(S(manager, kPRvL, &w, 0), 0);
  EXPECT_EQ(w, nine.end);
  Word instance = 0;
  EXPECT_EQ(S(manager, kPInO, nine.links[0], &instance), 0);
  EXPECT_TRUE(isLiveObject(instance)) << "the controller opened the chain's end";
  EXPECT_EQ(S(ctl, kPInG, nine.end), instance);
  EXPECT_EQ(S(manager, kPInC, nine.links[0]), 0);
  EXPECT_EQ(S(ctl, kPInG, nine.end), 0);

  w = ten.links[0];
  EXPECT_EQ(S(manager, kPRvL, &w, 0), kLinkUnresolved);
  EXPECT_EQ(w, ten.links[0]) << "left as it was";
  instance = 99;
  EXPECT_EQ(S(manager, kPInO, ten.links[0], &instance), kLinkUnresolved);
  EXPECT_EQ(instance, 99) << "the result word is cleared only once resolved";
  EXPECT_EQ(S(manager, kPInC, ten.links[0]), kLinkUnresolved);
  EXPECT_EQ(S(manager, kPInR, ten.links[0]), kLinkUnresolved);
  EXPECT_EQ(S(manager, kPoMg, kPGII, ten.links[0]), kLinkUnresolved);
  // A limit stops earlier: a limit of 10 reaches the end, a limit of 1 the next link.
  w = ten.links[0];
  EXPECT_EQ(S(manager, kPRvL, &w, 10), 0);
  EXPECT_EQ(w, ten.end);
  w = ten.links[0];
  EXPECT_EQ(S(manager, kPRvL, &w, 1), 0);
  EXPECT_EQ(w, ten.links[1]);
  EXPECT_EQ(controllers().heard, V{}) << "nothing reached the controller";
}

TEST_F(Forwarding, ALoopOfLinksFailsAndALimitStopsOnIt) {
  int32_t a = provider(), b = provider(), c = provider();
  S(manager, kPmSL, a, b);
  S(manager, kPmSL, b, c);
  S(manager, kPmSL, c, a);
  int32_t w = a;
  EXPECT_EQ(S(manager, kPRvL, &w, 0), kLinkUnresolved);
  EXPECT_EQ(S(manager, kPRvL, &w, 3), 0);
  EXPECT_EQ(w, a) << "three steps round the loop";
  w = a;
  EXPECT_EQ(S(manager, kPRvL, &w, 2), 0);
  EXPECT_EQ(w, c);
  int32_t r = 0;
  EXPECT_EQ(S(manager, kPRvL, &r, 0), 0);
  EXPECT_EQ(r, root) << "0 is the root";
  EXPECT_EQ(S(manager, kPRvL, nullptr, 0), 0);
}

TEST_F(Forwarding, TheControllerIsTheOwnersOrTheDefaultOne) {
  int32_t p = provider(), loose = unowned(fc("Data"));
  int32_t orphan = provider(plain);
  EXPECT_EQ(S(manager, kPoCo, p), objWord(ctl));
  EXPECT_EQ(S(manager, kPoCo, 0), S(manager, kPoCo, loose)) << "the default controller";
  EXPECT_NE(S(manager, kPoCo, loose), 0);
  fundra::TString name("stale");
  EXPECT_EQ(S(manager, kPGNm, loose, &name, 0), 0);
  EXPECT_EQ(std::string(name.View()), "Controller <Data>");
  EXPECT_EQ(S(manager, kPGNm, 0, &name, 0), 0);
  EXPECT_EQ(std::string(name.View()), "Controller <PRO1>");
  controllers().names[p] = "Garden";
  EXPECT_EQ(S(manager, kPGNm, p, &name, 0), 0);
  EXPECT_EQ(std::string(name.View()), "Garden");

  // A module without a registered controller: -832, the string left empty.
  S(store, kTSUM, kPlainSig, objWord(plain));
  EXPECT_EQ(S(manager, kPoCo, orphan), 0);
  EXPECT_EQ(S(manager, kPGNm, orphan, &name, 0), kNoController);
  EXPECT_TRUE(name.IsEmpty());
  EXPECT_EQ(S(manager, kPGSN, orphan, &name, 1), kNoController);
  EXPECT_EQ(S(manager, kPRen, orphan, 0), kNoController);
  EXPECT_EQ(S(manager, kPFog, orphan, 0), kNoController);
  EXPECT_EQ(S(manager, kPInC, orphan), kNoController);
  // Shown without a controller: both abilities assertions, and shown all the same.
  S(manager, kPmSh, 0, orphan);
  EXPECT_EQ(asserts(), (V{"provider:151", "provider:153"}));
  EXPECT_EQ(events(), V{ev("PoXA", {0, orphan})});
  EXPECT_EQ(S(manager, kPGAb, orphan), 0);
  S(store, kTSRM, kPlainSig, objWord(plain));
}

// A status record is the manager's own DL, not a provider: asked about as one, it has no
// controller, and nothing forwarded comes back to the manager.
TEST_F(Forwarding, AStatusRecordHasNoController) {
  int32_t p = provider();
  show(0, p);
  int32_t st = status(p);
  ASSERT_GT(st, 0);
  fundra::TString name("stale");
  EXPECT_EQ(S(manager, kPoCo, st), 0);
  EXPECT_EQ(S(manager, kPGNm, st, &name, 0), kNoController);
  EXPECT_EQ(S(manager, kPGSN, st, &name, 1), kNoController);
  EXPECT_EQ(S(manager, kPGMN, st, &name, 0, 0, 0), kNoController);
  EXPECT_EQ(S(manager, kPTMv, st, 0), kNoController);
  EXPECT_EQ(S(manager, kPFog, st, 0), kNoController);
  EXPECT_EQ(S(manager, kPRen, st, 0), kNoController);
  EXPECT_EQ(S(manager, kPInR, st), kNoController);
  EXPECT_EQ(controllers().heard, V{});
}

TEST_F(Forwarding, TheForwarderAsksTheControllerFirst) {
  int32_t p = provider(), q = provider(plain);
  std::string sp = std::to_string(p);
  EXPECT_EQ(S(manager, kPRen, p, 77), 7);
  int32_t able = -1;
  EXPECT_EQ(S(manager, kPAbl, p, &able, 5), 0);
  EXPECT_EQ(able, 10);
  EXPECT_EQ(S(manager, kPGII, p), 1234);
  EXPECT_EQ(S(manager, kPGII, 0), kNoResponder) << "the default controller answers no PGII";
  EXPECT_EQ(S(manager, kPGHI, p), kNoResponder);
  able = -1;
  EXPECT_EQ(S(manager, kPAbl, q, &able, 5), kNoResponder);
  EXPECT_EQ(able, 0) << "cleared before the controller was asked";
  EXPECT_EQ(controllers().heard,
            (V{"PRen " + sp + " 77", "PAbl " + sp + " " + std::to_string(Word(&able)),
               "PGII " + sp + " 0"}));
  // Requests go through the controller's modeler (PmFR), which finds no responder here.
  EXPECT_EQ(S(manager, kPMdy, p, 1, 2), kNoResponder);
  EXPECT_EQ(S(manager, kPGtI, p), kNoResponder);
  EXPECT_EQ(S(manager, kPoRs, fc("Ping"), p, 1), kNoResponder);
  EXPECT_EQ(S(manager, kPMdy, q), kNoResponder) << "TCT2's modeler answers PmFR";
}

TEST_F(Forwarding, MessagesResolveOnlyProvidersTheManagerKnows) {
  int32_t target = provider(), link = provider(), unseen = provider();
  S(manager, kPmSL, link, target);
  std::string st = std::to_string(target), su = std::to_string(unseen);
  EXPECT_EQ(S(manager, kPoMg, kPTMv, link, 3), 0);
  EXPECT_EQ(S(manager, kPoMg, kPTMv, unseen, 4), 0);
  EXPECT_EQ(S(manager, kPoMg, kPGHI, unseen), kNoResponder);
  EXPECT_EQ(status(unseen), 0) << "a message does not make a record";
  EXPECT_EQ(S(manager, kPInR, link), 5);
  EXPECT_EQ(controllers().heard,
            (V{"PTMv " + st + " 3", "PTMv " + su + " 4", "PInR " + st + " 0"}));
}

// A controller's answers are taken at their word: abilities with every bit set (the link and root
// bits among them) are written as they come, with 0x4 from the invisible flag; a move test's
// answer is passed back. The tree stays as the events say.
TEST_F(Forwarding, AControllerThatAnswersGarbageIsTakenAtItsWord) {
  int32_t p = provider(), q = provider();
  controllers().abilities[p] = 0xFFFFFFFF;
  controllers().moveAnswer = -123456;
  S(manager, kPmSh, 0, p);
  S(manager, kPmSh, p, q);
  EXPECT_EQ(u32(S(manager, kPGAb, p)), 0xFFFFFFFBu);
  EXPECT_EQ(S(manager, kPTMv, q, 0), -123456);
  fundra::RNList l;
  EXPECT_EQ(S(manager, kPoEL, p, &l, 0, 0, 3), 0) << "a parent that keeps its order";
  EXPECT_EQ(l.Count(), 1);
  EXPECT_EQ(S(manager, kPoGR, p, kPstKey), 0);
  events();
}

TEST(ProviderCodes, EachNumberIsRegisteredOnceByName) {
  std::map<int32_t, std::string> owner;
  for (const RegisteredCode& r : registeredCodes())
    EXPECT_TRUE(owner.emplace(r.info.code, r.library).second)
        << r.info.code << " is registered by " << owner[r.info.code] << " and " << r.library;
  for (int32_t code : {-830, -831, -832, -834, -835, -838, -841})
    EXPECT_EQ(owner[code], "provider") << code;
  EXPECT_EQ(owner[-833], "db");
  EXPECT_EQ(codeName(kNoStatusRecord), "-831 (kNoStatusRecord)");
  EXPECT_EQ(codeName(kNoResponder), "-833 (kNoResponder)");
}

}  // namespace
}  // namespace zt

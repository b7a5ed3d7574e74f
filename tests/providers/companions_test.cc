// User containers (`@PCL`) through the manager, as the application reaches them: container types
// and their records, naming a new container (the free proposal, the dialog, the taken-name alert),
// names of any length and script, renaming, PAbl, forgetting, and a type defined again showing its
// containers after an attachment; damaged and missing type records.
#include <sstream>

#include "tests/providers/companions_fixture.h"

namespace zt {
namespace {

using Types = CompanionTest;
using Naming = CompanionTest;
using Renaming = CompanionTest;
using Forgetting = CompanionTest;

std::string repeat(const std::string& s, int n) {
  std::string out;
  for (int i = 0; i < n; ++i) out += s;
  return out;
}

TEST_F(Types, ATypeRecordIsMadeOnceAndWrittenOnEveryDefinition) {
  int32_t rec = define(kBox, 0x2);
  ASSERT_GT(rec, 0);
  EXPECT_EQ(typeRecord(kBox), rec) << "a handle under the type in the module DL";
  EXPECT_EQ(describe(rec), "PCtn owner 0 shared: PCt. 256 256 | 18190 0x2 0x0 0x0");
  EXPECT_EQ(define(kBox, 0x3, 18199), rec) << "the same record, written again";
  EXPECT_EQ(describe(rec), "PCtn owner 0 shared: PCt. 256 256 | 18199 0x3 0x0 0x0");
  int32_t c = container("Apple");
  EXPECT_EQ(S(manager, kPcGT, c), toWord(kBox));
  EXPECT_EQ(S(manager, kPGAb, c), 0) << "the manager's record: not shown yet";
  EXPECT_EQ(S(containers, kPGAb, c), 0x3) << "the type's abilities";
  EXPECT_EQ(S(containers, kPGAb, provider()), 0) << "no type record for its uType";

  // Types that are not four printable characters are no key: refused, nothing stored.
  int32_t module = i32(S(containers, kSdRR));
  int32_t items = i32(S(store, kTSCt, module));
  EXPECT_EQ(S(manager, kPcCT, 0, kBoxTable, 0), 0);
  EXPECT_EQ(S(manager, kPcCT, 0x01626f78, kBoxTable, 0), 0);
  EXPECT_EQ(S(manager, kPLCT, 0x7f7f7f7f, kBoxTable), 0);
  EXPECT_EQ(S(store, kTSCt, module), items);
}

TEST_F(Naming, ANewContainerIsNamedFromAFreeProposalThroughTheDialog) {
  EXPECT_EQ(S(manager, kPcNC, kBox, 0), 0) << "no type record yet";
  EXPECT_EQ(queries(), V{}) << "and nobody is asked";
  define(kBox);

  dialogs.QueueCancel();
  EXPECT_EQ(S(manager, kPcNC, kBox, 0), 0);
  std::vector<fundra::QueryRequest> asked = dialogs.TakeQueries();
  ASSERT_EQ(asked.size(), 1u);
  EXPECT_EQ(asked[0].text.View(), "Name of the new box:");
  EXPECT_EQ(asked[0].proposal.View(), "New box");
  EXPECT_EQ(asked[0].style, 18u);
  EXPECT_EQ(asked[0].length, -31);
  EXPECT_EQ(containersOf(kBox), L{}) << "a cancel makes nothing";

  dialogs.QueueAnswer("Seeds");
  int32_t seeds = i32(S(manager, kPcNC, kBox, 0));
  ASSERT_GT(seeds, 0);
  EXPECT_EQ(describe(seeds), "Box  owner PCL1 shared, no data");
  EXPECT_EQ(S(manager, kPoCo, seeds), objWord(containers)) << "its controller";
  EXPECT_EQ(stored(seeds), "Seeds");
  EXPECT_EQ(nameOf(seeds), "Seeds");
  EXPECT_EQ(nameOf(seeds, 1), "(Seeds)") << "the type's format for kind 1";
  EXPECT_EQ(nameOf(seeds, 0x101), "(Seeds)") << "only the kind's low byte counts";
  EXPECT_EQ(sortNameOf(seeds, 7), "Seeds");
  EXPECT_FALSE(shown(seeds)) << "its maker places it";
  EXPECT_EQ(events(), V{});
  EXPECT_EQ(queries(), V{"Name of the new box: [New box]"});

  // With the first two proposals taken, the third is offered.
  int32_t first = container("New box"), second = container("New box 1");
  dialogs.QueueCancel();
  EXPECT_EQ(S(manager, kPcNC, kBox, 0), 0);
  EXPECT_EQ(queries(), V{"Name of the new box: [New box 2]"});

  // A taken answer brings the alert and the question again, offering what was entered.
  dialogs.QueueAnswer("Seeds");
  dialogs.QueueAnswer("Beans");
  int32_t beans = i32(S(manager, kPcNC, kBox, 0));
  EXPECT_EQ(stored(beans), "Beans");
  EXPECT_EQ(alerts(), V{"A box named \"Seeds\" already exists. Choose another name."});
  EXPECT_EQ(queries(), (V{"Name of the new box: [New box 2]", "Name of the new box: [Seeds]"}));
  EXPECT_EQ(containersOf(kBox), (L{seeds, first, second, beans}));
  EXPECT_EQ(findNamed("New box 1"), second);
  EXPECT_EQ(findNamed("New box 3"), 0);
  EXPECT_EQ(S(manager, kPcFC, kBox, 0), 0) << "no name to find";
  fundra::TString seedsName("Seeds");
  EXPECT_EQ(S(manager, kPcFC, kShelf, &seedsName), 0) << "no such type";
}

TEST_F(Naming, TheTerminalDialogKeepsTheProposalOnAnEmptyLineAndCancelsAtTheEnd) {
  define(kBox);
  std::istringstream in("\nCarrots\n");
  std::ostringstream out;
  fundra::TerminalDialogs terminal(in, out);
  fundra::SetDialogHost(&terminal);
  int32_t kept = i32(S(manager, kPcNC, kBox, 0));
  int32_t typed = i32(S(manager, kPcNC, kBox, 0));
  EXPECT_EQ(S(manager, kPcNC, kBox, 0), 0) << "the end of input cancels";
  fundra::SetDialogHost(&dialogs);
  EXPECT_EQ(stored(kept), "New box");
  EXPECT_EQ(stored(typed), "Carrots");
  EXPECT_EQ(out.str(),
            "Name of the new box: [New box]: Name of the new box: [New box 1]: "
            "Name of the new box: [New box 1]: \n");
}

// Names given are kept whole, byte for byte; the dialog's answers are cut to 31 characters.
// Names that differ only in case, accents or how an accent is written are different names.
TEST_F(Naming, NamesOfAnyLengthAndScriptAreKeptAndComparedByteForByte) {
  define(kBox);
  for (int n : {0, 31, 32, 300}) {
    std::string name = repeat("ж", n);
    int32_t c = container(name);
    EXPECT_EQ(stored(c), name) << n;
    EXPECT_EQ(findNamed(name), c) << n;
  }
  V names = {"Café", "café", "CAFÉ", "Cafe\xcc\x81", "Cafe", "Κήπος", "庭", "حديقة", "🌱 seeds"};
  L made;
  for (const std::string& n : names) made.push_back(container(n));
  for (size_t i = 0; i < names.size(); ++i) EXPECT_EQ(findNamed(names[i]), made[i]) << names[i];

  dialogs.QueueAnswer(repeat("y", 40));
  EXPECT_EQ(stored(i32(S(manager, kPcNC, kBox, 0))), repeat("y", 31));
  dialogs.QueueAnswer(repeat("é", 32));
  EXPECT_EQ(stored(i32(S(manager, kPcNC, kBox, 0))), repeat("é", 31));
  dialogs.QueueAnswer(repeat("ж", 31));  // taken: the 31-character name given above
  dialogs.QueueAnswer("café");           // taken, in this case
  dialogs.QueueAnswer("cafÉ");
  EXPECT_EQ(stored(i32(S(manager, kPcNC, kBox, 0))), "cafÉ");
  EXPECT_EQ(alerts().size(), 2u);
  // An empty answer is a name like any: taken here by the container of 0 characters.
  dialogs.QueueAnswer("");
  dialogs.QueueCancel();
  EXPECT_EQ(S(manager, kPcNC, kBox, 0), 0);
  EXPECT_EQ(alerts(), V{"A box named \"\" already exists. Choose another name."});
  define(kShelf, kAbLinkFolder, kShelfTable);
  dialogs.QueueAnswer("");
  int32_t unnamed = i32(S(manager, kPcNC, kShelf, 0));
  EXPECT_EQ(stored(unnamed), "");
  EXPECT_EQ(findNamed("", kShelf), unnamed);
  queries();
}

TEST_F(Naming, ProposalsAreCutTo31CharactersBeforeTheyAreChecked) {
  // "New " and a type name of 26 characters is 30; the next proposal, "New <name> 1", is cut to
  // 31 characters, its last a blank.
  std::string type26 = repeat("a", 26);
  fundra::DefineKString(18192, kCoTN, type26);
  define(fc("Long"), 0x2, 18192);
  container("New " + type26, fc("Long"));
  dialogs.QueueCancel();
  S(manager, kPcNC, fc("Long"), 0);
  EXPECT_EQ(queries(), V{"Name of the new " + type26 + ": [New " + type26 + " ]"});
  // Every further proposal is cut to that same name: taken, so none is free. The search stops,
  // and a user who keeps the proposal hears it is taken.
  container("New " + type26 + " ", fc("Long"));
  dialogs.QueueAnswer("New " + type26 + " ");
  dialogs.QueueCancel();
  EXPECT_EQ(S(manager, kPcNC, fc("Long"), 0), 0);
  EXPECT_EQ(queries().front(), "Name of the new " + type26 + ": [New " + type26 + " ]");
  EXPECT_EQ(alerts().size(), 1u);

  // A type name of 300 characters in another script: the proposal is its first 31 characters.
  fundra::DefineKString(18193, kCoTN, repeat("名", 300));
  define(fc("Huge"), 0x2, 18193);
  dialogs.QueueCancel();
  S(manager, kPcNC, fc("Huge"), 0);
  std::vector<fundra::QueryRequest> asked = dialogs.TakeQueries();
  ASSERT_FALSE(asked.empty());
  EXPECT_EQ(asked[0].proposal.View(), "New " + repeat("名", 27));
}

TEST_F(Renaming, TheDialogOffersTheCurrentNameAndTheChangeIsAnnounced) {
  define(kBox);
  int32_t a = container("Apple"), b = container("Pear");
  show(0, a);
  show(a, b);
  dialogs.QueueAnswer("Quince");
  EXPECT_EQ(S(manager, kPRen, a, 0), 0);
  EXPECT_EQ(queries(), V{"New name for this box: [Apple]"});
  EXPECT_EQ(stored(a), "Quince");
  EXPECT_EQ(events(), V{ev("PoXM", {0, a})});

  // Its own name again: 0, and nothing announced.
  dialogs.QueueAnswer("Quince");
  EXPECT_EQ(S(manager, kPRen, a, 0), 0);
  EXPECT_EQ(events(), V{});
  // Another container's name: the alert, then the question again.
  dialogs.QueueAnswer("Pear");
  dialogs.QueueAnswer("Plum");
  EXPECT_EQ(S(manager, kPRen, a, 0), 0);
  EXPECT_EQ(alerts(), V{"A box named \"Pear\" already exists. Choose another name."});
  EXPECT_EQ(queries(), (V{"New name for this box: [Quince]", "New name for this box: [Quince]",
                          "New name for this box: [Pear]"}));
  EXPECT_EQ(stored(a), "Plum");
  EXPECT_EQ(events(), V{ev("PoXM", {0, a})});
  // A cancel answers the dialog's code and changes nothing.
  dialogs.QueueCancel();
  EXPECT_EQ(S(manager, kPRen, b, 0), fundra::kDialogCancelled);
  EXPECT_EQ(stored(b), "Pear");
  EXPECT_EQ(events(), V{});
  queries();
  // A name given is stored and announced, even the same one.
  fundra::TString plum("Plum"), lower("plum");
  EXPECT_EQ(S(manager, kPRen, a, &plum), 0);
  EXPECT_EQ(S(manager, kPRen, b, &lower), 0);
  EXPECT_EQ(events(), (V{ev("PoXM", {0, a}), ev("PoXM", {a, b})}));
  EXPECT_EQ(stored(b), "plum");
  EXPECT_EQ(queries(), V{});

  // A provider of the container object whose uType has no type record.
  int32_t stray = i32(S(store, kTSDN, fc("Nope"), 0, S(containers, kSdRR)));
  EXPECT_EQ(S(manager, kPRen, stray, 0), kProviderMisplaced);
  EXPECT_EQ(S(manager, kPRen, stray, &plum), kProviderMisplaced);
  EXPECT_EQ(nameOf(stray), "") << "no type record: the string is cleared";
}

TEST_F(Types, PAblWritesFourteenUnlessAChildIsShownOutsideALinkFolder) {
  define(kBox);
  define(kShelf, kAbLinkFolder, kShelfTable);
  int32_t box = container("Box"), shelf = container("Shelf", kShelf);
  int32_t out = -1;
  EXPECT_EQ(S(manager, kPAbl, box, &out, 0), 0);
  EXPECT_EQ(out, 14) << "empty";
  show(0, box);
  int32_t child = provider();
  show(box, child);
  EXPECT_EQ(S(manager, kPAbl, box, &out, 0), 0);
  EXPECT_EQ(out, 10) << "a shown child";
  S(manager, kPmHd, child);
  events();
  EXPECT_EQ(S(manager, kPAbl, box, &out, 0), 0);
  EXPECT_EQ(out, 14) << "a child placed, not shown";
  show(0, shelf);
  show(shelf, provider());
  EXPECT_EQ(S(manager, kPAbl, shelf, &out, 0), 0);
  EXPECT_EQ(out, 14) << "a link folder with a shown child";
  EXPECT_EQ(S(containers, kPAbl, box, static_cast<int32_t*>(nullptr)), 0) << "nothing to write";
}

TEST_F(Forgetting, AContainerGoesWithEveryReferenceUnlessItShowsAChild) {
  define(kBox);
  define(kShelf, kAbLinkFolder, kShelfTable);
  int32_t a = container("A"), b = container("B");
  show(0, a);
  int32_t child = provider();
  show(a, child);
  EXPECT_EQ(S(manager, kPFog, a, 0), kContainerNotEmpty);
  EXPECT_EQ(events(), V{});
  EXPECT_TRUE(shown(a));
  EXPECT_EQ(containersOf(kBox), (L{a, b}));

  // Shown, with nothing below: hidden, then cut from its parent's list and its type's.
  show(0, b);
  EXPECT_EQ(S(manager, kPFog, b, 0), 0);
  EXPECT_EQ(events(), (V{ev("PoXD", {0, b}), ev("PoXP", {0, 0})}));
  EXPECT_EQ(containersOf(kBox), L{a});
  EXPECT_EQ(children(0), L{a});
  EXPECT_EQ(findNamed("B"), 0);

  // Hidden with its child: nothing to hide, every reference cut. The child, which only the
  // container's list reached, goes with it at the next collection.
  S(manager, kPmHd, a);
  events();
  EXPECT_EQ(S(manager, kPFog, a, 0), 0);
  EXPECT_EQ(events(), V{});
  EXPECT_EQ(containersOf(kBox), L{});
  EXPECT_EQ(children(0), L{});

  // A link folder goes with its shown children, hidden first.
  int32_t shelf = container("Shelf", kShelf);
  int32_t inside = provider();
  show(0, shelf);
  show(shelf, inside);
  EXPECT_EQ(S(manager, kPFog, shelf, 0), 0);
  EXPECT_EQ(events(), (V{ev("PoXD", {0, shelf}), ev("PoXD", {shelf, inside}), ev("PoXP", {0, 0})}));
  EXPECT_EQ(containersOf(kShelf), L{});
  EXPECT_EQ(S(store, kTSGC), 0);
  EXPECT_EQ(S(store, kTSCk), 1) << "the store is sound after the cut and a collection";
}

// A type defined again shows every container of it that can be shown again, under its recorded
// parent: after an attachment (when nothing is shown) they reappear; on a live tree the shown ones
// are announced as changed, with the type's new abilities.
TEST_F(Types, DefiningATypeAgainShowsItsContainersAgain) {
  define(kBox, 0x2);
  int32_t a = container("A"), b = container("B"), loose = container("Never placed");
  show(0, a);
  show(a, b);
  EXPECT_EQ(define(kBox, 0x3), typeRecord(kBox));
  EXPECT_EQ(events(), (V{ev("PoXM", {0, a}), ev("PoXM", {a, b})}));
  EXPECT_EQ(S(manager, kPGAb, b), 0x3);

  S(manager, kXTSD, store);  // as the store's install sends it
  S(watch, kXTSD, store);
  EXPECT_FALSE(shown(a));
  define(kBox, 0x2);
  EXPECT_EQ(events(), (V{ev("PoXA", {0, a}), ev("PoXA", {a, b}), ev("PoXP", {0, a})}));
  EXPECT_EQ(depth(b), 2);
  EXPECT_EQ(S(manager, kPGAb, a), 0x2);
  EXPECT_FALSE(shown(loose));
}

// A damaged type record reads as none; defining the type again repairs it where it can and
// otherwise makes a new record, and the containers of the old one are kept.
TEST_F(Types, DamagedTypeRecordsReadAsMissingAndDefiningAgainKeepsTheirContainers) {
  int32_t rec = define(kBox);
  int32_t a = container("A");
  show(0, a);
  const uint8_t zeros[24] = {};
  S(store, kTSWD, rec, zeros, 24);
  fundra::TString name("A");
  EXPECT_EQ(S(manager, kPcFC, kBox, &name), 0);
  EXPECT_EQ(container("B"), 0);
  EXPECT_EQ(S(manager, kPRen, a, &name), kProviderMisplaced);
  EXPECT_EQ(S(containers, kPGAb, a), 0);
  EXPECT_EQ(nameOf(a), "");
  EXPECT_EQ(define(kBox), rec) << "the right uType and size: repaired in place";
  EXPECT_EQ(findNamed("A"), a);
  events();

  // A record of the wrong size: a new one takes over its containers.
  int32_t module = i32(S(containers, kSdRR));
  int32_t small = i32(S(store, kTSDN, kContainerTypeType, 16, 0));
  S(store, kTSLA, small, kContainersKey, a);
  S(store, kTSHS, module, kBox, small);
  EXPECT_EQ(findNamed("A"), 0);
  int32_t fresh = define(kBox);
  EXPECT_NE(fresh, small);
  EXPECT_EQ(containersOf(kBox), L{a});
  EXPECT_EQ(findNamed("A"), a);
  EXPECT_EQ(events(), V{ev("PoXM", {0, a})}) << "shown, so announced with its type";

  // Something else under the type: a new record; the other DL is not written.
  int32_t other = i32(S(store, kTSDN, fc("Note"), 24, 0));
  const uint8_t ones[24] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
  S(store, kTSWD, other, ones, 24);
  S(store, kTSHS, module, kShelf, other);
  EXPECT_EQ(S(containers, kPcFC, kShelf, &name), 0);
  EXPECT_NE(define(kShelf, kAbLinkFolder, kShelfTable), other);
  EXPECT_EQ(dataOf(other), std::vector<uint8_t>(24, 1));
}

}  // namespace
}  // namespace zt

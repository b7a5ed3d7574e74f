// What the provider tests share: a booted framework; an installed store whose channel is the
// store itself; a provider manager on it, with a tree watch and an event recorder on the
// manager's channel; and test controllers for the modules TCT1 (answers the whole general object
// protocol) and TCT2 (abilities and names only), whose answers a test sets and whose requests it
// reads.
//
// Every test ends with the watch's verdict: no event a view could not apply, and a mirror that
// agrees with the manager's tree (tests that break that on purpose take the reports themselves
// or say so). An assertion nobody took fails the test too.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "platform/fundra/debug.h"
#include "platform/fundra/rnlist.h"
#include "platform/fundra/tstring.h"
#include "platform/zelkor/zelkor.h"
#include "tests/support/sends.h"
#include "zove/db.h"
#include "zove/providers.h"
#include "zove/store.h"

namespace zt {

using namespace zelkor;
using namespace zove;

constexpr FourCC kCtlSig = fc("TCT1");      // the test controller's module
constexpr FourCC kPlainSig = fc("TCT2");    // a controller without sort names
constexpr FourCC kLinkModSig = fc("TLK1");  // the test links' module
constexpr FourCC kProvKey = fc("Prov");     // TCT1's module DL lists every test provider here
constexpr uint32_t kDefaultAbilities = 0x100;

// What the test controllers answer, and what they were asked.
struct Controllers {
  std::map<int32_t, uint32_t> abilities;  // PGAb; kDefaultAbilities for a provider not here
  std::map<int32_t, std::string> names;   // PGNm and PGSN; "P<dl>" for a provider not here
  Word moveAnswer = 0;                    // PTMv's answer
  std::vector<std::string> heard;         // "PFog 12 0", "PTMv 12 34", ...
  int32_t sortNames = 0;                  // PGSN calls
  Object* containerStore = nullptr;       // the store the container object asks for uTypes
};
Controllers& controllers();

// The classes the fixture makes: the two controllers (subclasses of `@DMD`).
ClassRec* controllerClass();
ClassRec* plainControllerClass();

// Companions for the tests that need them (useCompanions): a link maker of module TLK1 that
// answers PLNL (type, name) with a new shared DL of the type (`Link` for 0) of its own, PGAb of
// its links as the one step beyond (PRvL limit 1) with the link bit, and PFog (hide, then TSDR);
// and a container object that answers PcGT (p) with p's uType.

inline Word S(Object* o, FourCC sel, auto... args) { return send(o, sel, args...); }
inline Word S(Word o, FourCC sel, auto... args) { return send(o, sel, args...); }

using V = std::vector<std::string>;
using L = std::vector<int32_t>;

// The providers of a list, in order.
inline L items(const fundra::RNList& l) { return L(l.Data(), l.Data() + l.Count()); }

// An event as the recorder writes it: its four characters and its words after the manager.
std::string ev(const char* sel, std::initializer_list<Word> words);

class ProTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // A new shared DL of the type, owned by the controller's module DL (0: no owner). As a module
  // keeps its stored objects, TCT1's module DL lists it (kProvKey), so that it stays reachable
  // from the root whatever becomes of the tree.
  int32_t provider(Object* owner = nullptr, FourCC type = fc("Note"));
  int32_t unowned(FourCC type = fc("Data"));
  // The events recorded since the last call.
  std::vector<std::string> events();
  // The assertion reports since the last call, "source:line".
  std::vector<std::string> asserts() { return capture_.take(); }
  // The watch's reports since the last call, and its comparison with the manager's tree.
  std::vector<std::string> watchReports();
  std::vector<std::string> disagreements();
  // Builds a list of providers.
  static fundra::RNList list(std::initializer_list<int32_t> items);

  int32_t depth(int32_t p) { return i32(S(manager, kPGtD, p)); }
  int32_t parent(int32_t p) { return i32(S(manager, kPoGP, p)); }
  bool shown(int32_t p) { return S(manager, kPmSQ, p) != 0; }
  int32_t status(int32_t p);
  std::vector<int32_t> children(int32_t p);             // the whole `_pk#`
  std::vector<int32_t> linksTo(int32_t p);              // the whole `_pl#`
  std::vector<int32_t> listOf(int32_t dl, FourCC key);  // a list item of a DL ({} for none)
  int32_t item(int32_t dl, FourCC key, FourCC getter = kTSHG);

  // Shows p under the parent and takes the events (for setting up a tree).
  void show(int32_t parentDL, int32_t p);
  // Gives the manager the test companions (the link maker and the container object).
  void useCompanions();

  Object* store = nullptr;
  Object* manager = nullptr;
  Object* ctl = nullptr;    // TCT1's controller
  Object* plain = nullptr;  // TCT2's controller
  Object* watch = nullptr;
  Object* ear = nullptr;
  Object* linker = nullptr;  // after useCompanions
  int32_t root = 0;
  bool checkWatch = true;  // TearDown asks the watch for its verdict

 private:
  Object* containers_ = nullptr;
  fundra::AssertCapture capture_;
  zelkor::LogCapture log_;
};

}  // namespace zt

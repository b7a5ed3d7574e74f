#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/zelkor/zelkor.h"

using namespace zelkor;

namespace {

std::vector<std::string> gSteps;
std::vector<Word> gBootWords;

Word started(Object*, const Msg& m) {
  gSteps.push_back("clsc " + fcString(u32(m.w[1])));
  return 0;
}

// The start-up every class of a module runs: SubC, TaskCall (boot, clsc), Defn..., TaskSched.
template <int Sig, int Super>
void bootProc(Word bootWord, Word superclass) {
  gSteps.push_back("boot " + fcString(Sig) + " under " +
                   fcString(classOf(asObject(superclass))->sig));
  EXPECT_EQ(classOf(asObject(superclass))->sig, FourCC(Super));
  Word cls = send(superclass, kSubC, Sig, 1, 16);
  ASSERT_NE(cls, 0);
  Defn(classOf(asObject(cls))->meta, kclsc, started);
  TThread::TaskCall(0, TransThread, kboot, kclsc, cls, Sig);
  send(cls, kDefn, fc("ping"),
       reinterpret_cast<Word>(+[](Object*, const Msg&) -> Word { return 1; }));
  gBootWords.push_back(bootWord);
  TThread::TaskSched(0, bootWord, kDspo);
}

constexpr FourCC kKid = fc("tKid");
constexpr FourCC kTop = fc("tTop");
constexpr FourCC kVh = fc("tVh ");
constexpr FourCC kRoo = fc("@roo");
constexpr FourCC kVhd = fc("@vhd");

// Registered out of order on purpose: a class boots only once its superclass exists.
int gr1 = MakeBoot(kTop, bootProc<kKid, kTop>, "KidBootProc");
int gr2 = MakeBoot(kVhd, bootProc<kVh, kVhd>, "VhBootProc");
int gr3 = MakeBoot(kRoo, bootProc<kTop, kRoo>, "TopBootProc");

}  // namespace

TEST(Boot, ClassesBootUnderTheirSuperclassesAndRunTheStartUpSteps) {
  int count = ZelkorBoot();
  EXPECT_GE(count, 5);  // @roo, @vhd and the three classes of this test
  EXPECT_EQ(ZelkorBoot(), kAlreadyBooted);
  std::vector<std::string> expected = {"boot tTop under @roo", "clsc tTop",
                                       "boot tKid under tTop", "clsc tKid",
                                       "boot tVh  under @vhd", "clsc tVh "};
  EXPECT_EQ(gSteps, expected);
  // Every boot word was disposed by its scheduled Dspo once the boot was over.
  for (Word w : gBootWords) EXPECT_FALSE(isLiveObject(w));
  ASSERT_NE(findClass(kKid), nullptr);
  EXPECT_EQ(findClass(kKid)->super, findClass(kTop));
  EXPECT_EQ(findClass(kVh)->super->sig, kVhd);
  std::vector<FourCC> own = ownSelectors(findClass(kKid));
  EXPECT_EQ(own, std::vector<FourCC>{fc("ping")});
  std::vector<std::string> names;
  for (const auto& b : bootedClasses()) names.push_back(b.procedure);
  EXPECT_EQ(names.front(), "framework");

  // A module loaded after the boot registers late: its procedure runs at once.
  gSteps.clear();
  MakeBoot(kKid, bootProc<fc("tLat"), kKid>, "LateBootProc");
  EXPECT_EQ(gSteps, (std::vector<std::string>{"boot tLat under tKid", "clsc tLat"}));
  EXPECT_FALSE(isLiveObject(gBootWords.back()));
}

TEST(Boot, LoadingSomethingThatIsNotAModuleIsRefused) {
  LogCapture cap;
  EXPECT_EQ(ZelkorLoadModule("/nonexistent/libnothing.so"), kModuleNotFound);
  EXPECT_EQ(ZelkorLoadModule("libm.so.6"), kNotAModule);
  EXPECT_TRUE(cap.contains("is not a module"));
}

#include "tests/providers/pro_fixture.h"

#include <cstring>

#include "platform/fundra/memory.h"
#include "providers/pro_class.h"

namespace zt {

namespace {

ClassRec* gController = nullptr;
ClassRec* gPlain = nullptr;
ClassRec* gEar = nullptr;
ClassRec* gLinker = nullptr;
ClassRec* gContainers = nullptr;
std::vector<std::string> gEvents;

fundra::TString* str(Word w) { return asPtr<fundra::TString>(w); }

std::string nameOf(int32_t p) {
  auto it = controllers().names.find(p);
  return it == controllers().names.end() ? "P" + std::to_string(p) : it->second;
}

void hear(const Msg& m, int words) {
  std::string line = fcString(m.sel);
  for (int i = 0; i < words; ++i) line += " " + std::to_string(m.w[i]);
  controllers().heard.push_back(line);
}

// Setu of a module's class: its signature passed up.
template <ClassRec*& cls, FourCC sig>
Word setupAs(Object* self, const Msg& m) {
  return ClassData::pass(cls, self, kSetu, m.w[0], sig, 0);
}
Word ctlAbilities(Object*, const Msg& m) {
  auto it = controllers().abilities.find(i32(m.w[0]));
  return toWord(it == controllers().abilities.end() ? kDefaultAbilities : it->second);
}
Word ctlName(Object*, const Msg& m) {
  if (auto* s = str(m.w[1])) s->Set(nameOf(i32(m.w[0])));
  return 0;
}
Word ctlSortName(Object*, const Msg& m) {
  ++controllers().sortNames;
  if (auto* s = str(m.w[1])) s->Set(nameOf(i32(m.w[0])));
  return 0;
}
Word ctlMenuName(Object*, const Msg& m) {
  if (auto* s = str(m.w[1])) s->Set("menu " + nameOf(i32(m.w[0])));
  return m.w[2] + m.w[3] + m.w[4];
}
// PFog (p, word): as the link and container classes do, hide p, then cut every reference to it.
Word forget(Object* self, const Msg& m) {
  hear(m, 2);
  S(S(self, kPmGP), kPmHd, m.w[0]);
  S(S(self, kPGTy), kTSDR, m.w[0]);
  return 0;
}
Word ctlAnswer(Object*, const Msg& m) {
  hear(m, 2);
  if (m.sel == kPTMv) return controllers().moveAnswer;
  if (m.sel == kPAbl) {
    if (auto* out = asPtr<int32_t>(m.w[1])) *out = 10;
    return 0;
  }
  if (m.sel == kPRen) return 7;
  if (m.sel == kPGII) return 1234;
  if (m.sel == kPInR) return 5;
  return 0;
}

Word linkerNewLink(Object* self, const Msg& m) {
  Word store = S(self, kPGTy);
  FourCC type = u32(m.w[0]) ? u32(m.w[0]) : fc("Link");
  Word dl = S(store, kTSDN, type, 0, S(self, kSdRR));
  S(store, kTSSS, dl);
  S(store, kTSLA, S(self, kSdRR), kProvKey, dl);  // kept as a module keeps its objects
  return dl;
}
Word linkerAbilities(Object* self, const Msg& m) {
  int32_t next = i32(m.w[0]);
  Word manager = S(self, kPmGP);
  S(manager, kPRvL, &next, 1);
  return toWord(u32(S(manager, kPGAb, next)) | kAbLink);
}
Word containersType(Object*, const Msg& m) {
  return controllers().containerStore ? S(controllers().containerStore, kTSDT, m.w[0]) : 0;
}

Word earHear(Object*, const Msg& m) {
  std::string line = fcString(m.sel);
  int first = m.sel == kPoXS ? 0 : 1;
  int last = m.sel == kPoXT ? 3 : first + 1;
  for (int i = first; i <= last; ++i) line += " " + std::to_string(m.w[i]);
  gEvents.push_back(line);
  return 0;
}

struct Boot : ::testing::Environment {
  void SetUp() override {
    ZelkorBoot();
    gController = makeSubclass(findClass(kDmodSig), fc("tCT1"), 0);
    Defn(gController, kSetu, setupAs<gController, kCtlSig>);
    Defn(gController, kPGAb, ctlAbilities);
    Defn(gController, kPGNm, ctlName);
    Defn(gController, kPGSN, ctlSortName);
    Defn(gController, kPGMN, ctlMenuName);
    Defn(gController, kPFog, forget);
    for (FourCC sel : {kPTMv, kPAbl, kPRen, kPGII, kPInR}) Defn(gController, sel, ctlAnswer);
    gPlain = makeSubclass(findClass(kDmodSig), fc("tCT2"), 0);
    Defn(gPlain, kSetu, setupAs<gPlain, kPlainSig>);
    Defn(gPlain, kPGAb, ctlAbilities);
    Defn(gPlain, kPGNm, ctlName);
    gLinker = makeSubclass(findClass(kDmodSig), fc("tLK1"), 0);
    Defn(gLinker, kSetu, setupAs<gLinker, kLinkModSig>);
    Defn(gLinker, kPLNL, linkerNewLink);
    Defn(gLinker, kPGAb, linkerAbilities);
    Defn(gLinker, kPFog, forget);
    gContainers = makeSubclass(rootClass(), fc("tCON"), 0);
    Defn(gContainers, kPcGT, containersType);
    gEar = makeSubclass(rootClass(), fc("tEar"), 0);
    DefnFallback(gEar, earHear);
  }
};

const auto* gBoot = ::testing::AddGlobalTestEnvironment(new Boot);

}  // namespace

Controllers& controllers() {
  static Controllers c;
  return c;
}

ClassRec* controllerClass() { return gController; }
ClassRec* plainControllerClass() { return gPlain; }

std::string ev(const char* sel, std::initializer_list<Word> words) {
  std::string line = sel;
  for (Word w : words) line += " " + std::to_string(w);
  return line;
}

void ProTest::SetUp() {
  controllers() = Controllers{};
  gEvents.clear();
  store = asObject(send(ZelkorLookup(kZoveSig), kNew_));
  S(store, kSetu);
  ASSERT_EQ(S(store, kHNew, 0, 1), 0);
  ASSERT_EQ(S(store, kTSIn, store, 1), 0);
  ctl = asObject(S(objWord(gController->classObject), kSdNw, store));
  plain = asObject(S(objWord(gPlain->classObject), kSdNw, store));
  manager = asObject(S(ZelkorLookup(kProSig), kSdNw, store));
  ASSERT_TRUE(manager);
  root = i32(S(manager, kSdRR));
  ASSERT_GT(root, 1);
  watch = asObject(S(ZelkorLookup(kTreeWatchSig), kNew_));
  ASSERT_EQ(S(watch, kSetu, manager), 0);
  ear = newObject(gEar);
  poAd(ear, objWord(manager));
}

void ProTest::TearDown() {
  if (checkWatch && isLiveObject(objWord(manager))) {
    EXPECT_EQ(watchReports(), std::vector<std::string>{}) << "events a view could not apply";
    EXPECT_EQ(disagreements(), std::vector<std::string>{}) << "the mirror and the tree differ";
  }
  EXPECT_EQ(asserts(), std::vector<std::string>{}) << "assertions nobody expected";
  S(ear, kDspo);
  S(watch, kDspo);
  if (containers_) S(containers_, kDspo);
  S(store, kDspo);  // the controllers and the manager go with it
}

int32_t ProTest::provider(Object* owner, FourCC type) {
  int32_t module = i32(S(owner ? owner : ctl, kSdRR));
  int32_t dl = i32(S(store, kTSDN, type, 0, module));
  S(store, kTSSS, dl);
  S(store, kTSLA, S(ctl, kSdRR), kProvKey, dl);
  return dl;
}

int32_t ProTest::unowned(FourCC type) {
  int32_t dl = i32(S(store, kTSDN, type, 0, 0));
  S(store, kTSSS, dl);
  S(store, kTSLA, S(ctl, kSdRR), kProvKey, dl);
  return dl;
}

std::vector<std::string> ProTest::events() { return std::exchange(gEvents, {}); }

namespace {

std::vector<std::string> lines(const fundra::TString& s) {
  std::vector<std::string> out;
  std::string text(s.View());
  for (size_t at = 0; at < text.size();) {
    size_t end = text.find('\n', at);
    out.push_back(text.substr(at, end - at));
    at = end == std::string::npos ? text.size() : end + 1;
  }
  return out;
}

}  // namespace

std::vector<std::string> ProTest::watchReports() {
  fundra::TString s;
  S(watch, kPwRp, &s);
  return lines(s);
}

std::vector<std::string> ProTest::disagreements() {
  fundra::TString s;
  S(watch, kPwAg, &s);
  return lines(s);
}

fundra::RNList ProTest::list(std::initializer_list<int32_t> items) {
  fundra::RNList l;
  for (int32_t i : items) l.Add(i);
  return l;
}

int32_t ProTest::status(int32_t p) { return item(p == 0 ? root : p, kPspKey); }

int32_t ProTest::item(int32_t dl, FourCC key, FourCC getter) {
  int32_t out = 0;
  S(store, getter, dl, key, &out);
  return out;
}

std::vector<int32_t> ProTest::listOf(int32_t dl, FourCC key) {
  fundra::TMemory mem;
  if (dl <= 0 || S(store, kTSLt, dl, key, &mem) != 0) return {};
  std::vector<int32_t> out(size_t(mem.GetSize() / 4));
  if (!out.empty()) std::memcpy(out.data(), mem.MemPtr(), out.size() * 4);
  return out;
}

std::vector<int32_t> ProTest::children(int32_t p) { return listOf(status(p), kPkKey); }
std::vector<int32_t> ProTest::linksTo(int32_t p) { return listOf(status(p), kPlKey); }

void ProTest::useCompanions() {
  linker = asObject(S(objWord(gLinker->classObject), kSdNw, store));
  Object* containers = newObject(gContainers);
  controllers().containerStore = store;
  proData(manager)->linkObject = objWord(linker);
  proData(manager)->containerObject = objWord(containers);
  containers_ = containers;
}

void ProTest::show(int32_t parentDL, int32_t p) {
  S(manager, kPmSh, parentDL, p);
  events();
}

}  // namespace zt

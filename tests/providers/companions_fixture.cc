#include "tests/providers/companions_fixture.h"

#include <cstdio>
#include <filesystem>

namespace zt {

namespace {

const std::string kAppTexts =
    (std::filesystem::path(__FILE__).parent_path() / "../../app/texts").lexically_normal().string();

ClassRec* gKeyed = nullptr;

Word keyedSetup(Object* self, const Msg& m) {
  return ClassData::pass(gKeyed, self, kSetu, m.w[0], kKeyedModule, 0);
}

void defineTestTexts() {
  using fundra::DefineKString;
  DefineKString(kBoxTable, kCoTN, "box");
  DefineKString(kBoxTable, kCoN0, "%s");
  DefineKString(kBoxTable, kCoN0 + 1, "(%s)");
  DefineKString(kBoxTable, kCoN0 + 3, "Box: %s");
  DefineKString(kBoxTable, kLkN0, "<%s|%s>");
  DefineKString(kBoxTable, kLkN0 + 2, "2<%s|%s>");
  DefineKString(kBoxTable, kPcN0, "Keyed");
  DefineKString(kBoxTable, kPcN0 + 1, "Keyed one");
  DefineKString(kBoxTable, kPsN0 + 1, "sorted");
  DefineKString(kShelfTable, kCoTN, "shelf");
  DefineKString(kShelfTable, kCoN0, "%s");
}

}  // namespace

void CompanionTest::SetUp() {
  ProTest::SetUp();
  fundra::ClearKStrings();
  ASSERT_GT(fundra::LoadTextFolder(kAppTexts), 0) << kAppTexts;
  defineTestTexts();
  previousHost_ = fundra::SetDialogHost(&dialogs);
  containers = asObject(S(store, kTSGM, kContainerModuleSig));
  links = asObject(S(store, kTSGM, kLinkModuleSig));
  ASSERT_TRUE(containers && links) << "the manager made its companions";
  if (!gKeyed) {
    gKeyed = makeSubclass(findClass(kKeyedContainerSig), fc("tKCo"), 0);
    Defn(gKeyed, kSetu, keyedSetup);
  }
  keyed = asObject(S(objWord(gKeyed->classObject), kSdNw, store));
  ASSERT_EQ(S(keyed, kPmGP), objWord(manager)) << "it heard the manager announce itself";
}

void CompanionTest::TearDown() {
  EXPECT_EQ(dialogs.PendingAnswers(), 0u) << "answers queued for a dialog that never came";
  fundra::SetDialogHost(previousHost_);
  ProTest::TearDown();
}

int32_t CompanionTest::define(FourCC type, uint32_t abilities, int32_t table) {
  return i32(S(manager, kPcCT, type, table, abilities));
}

int32_t CompanionTest::container(const std::string& name, FourCC type) {
  fundra::TString s(name);
  return i32(S(manager, kPcNC, type, &s));
}

std::string CompanionTest::nameOf(int32_t p, int32_t kind) {
  fundra::TString s("garbage");
  S(manager, kPGNm, p, &s, kind);
  return std::string(s.View());
}

std::string CompanionTest::sortNameOf(int32_t p, int32_t mode) {
  fundra::TString s;
  S(manager, kPGSN, p, &s, mode);
  return std::string(s.View());
}

std::string CompanionTest::stored(int32_t p) {
  fundra::TString s;
  if (S(store, kTSSg, p, kNameKey, &s) != 0) return "<none>";
  return std::string(s.View());
}

int32_t CompanionTest::typeRecord(FourCC type) { return item(i32(S(containers, kSdRR)), type); }

std::vector<int32_t> CompanionTest::containersOf(FourCC type) {
  return listOf(typeRecord(type), kContainersKey);
}

int32_t CompanionTest::findNamed(const std::string& name, FourCC type) {
  fundra::TString s(name);
  return i32(S(manager, kPcFC, type, &s));
}

V CompanionTest::queries() {
  V out;
  for (const fundra::QueryRequest& q : dialogs.TakeQueries())
    out.push_back(std::string(q.text.View()) + " [" + std::string(q.proposal.View()) + "]");
  return out;
}

V CompanionTest::alerts() {
  V out;
  for (const fundra::TString& a : dialogs.TakeAlerts()) out.emplace_back(a.View());
  return out;
}

std::vector<uint8_t> CompanionTest::dataOf(int32_t dl) {
  std::vector<uint8_t> bytes(size_t(i32(S(store, kTSSD, dl))));
  if (!bytes.empty()) S(store, kTSRD, dl, bytes.data(), int32_t(bytes.size()));
  return bytes;
}

std::string CompanionTest::describe(int32_t dl) {
  Word owner = S(store, kTSCS, dl);
  std::string out = fcString(u32(S(store, kTSDT, dl))) + " owner " +
                    (owner ? fcString(u32(owner)) : "0") + (S(store, kTSTS, dl) ? " shared" : "");
  std::vector<uint8_t> data = dataOf(dl);
  if (data.size() < 8) return out + (data.empty() ? ", no data" : ", short data");
  auto word = [&](size_t at) {
    return uint32_t(data[at]) | uint32_t(data[at + 1]) << 8 | uint32_t(data[at + 2]) << 16 |
           uint32_t(data[at + 3]) << 24;
  };
  FourCC tag = word(0);
  out += ": " + fcString(tag) + " " + std::to_string(data[4] | data[5] << 8) + " " +
         std::to_string(data[6] | data[7] << 8) + " |";
  char hex[16];
  for (size_t at = 8; at + 4 <= data.size(); at += 4) {
    std::snprintf(hex, sizeof hex, at == 8 ? " %u" : " 0x%x", word(at));
    out += hex;
  }
  return out;
}

}  // namespace zt

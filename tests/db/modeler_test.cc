// The modeler keeps the provider manager that announced itself and forwards requests to whoever
// answers for its module; the property type names DLs; the area's code has a name.
#include "platform/zelkor/codes.h"
#include "tests/db/db_fixture.h"

namespace zt {
namespace {

using DmodForward = DbTest;
using PtyNames = DbTest;

// A listener on a module's channel: answers FdRs by naming the responder, and as the responder
// records the request and answers 77.
struct Responder {
  static inline ClassRec* cls = nullptr;
  static inline std::vector<std::vector<Word>> heard;  // selector then the twelve words
  static inline Word answerWith = 0;                   // the object FdRs names; 0 names none
  static Object* make(Word channel) {
    if (!cls) {
      cls = makeSubclass(rootClass(), fc("tRsp"), 0);
      auto note = [](Object*, const Msg& m) -> Word {
        std::vector<Word> w{toWord(m.sel)};
        w.insert(w.end(), m.w, m.w + kMaxWords);
        heard.push_back(w);
        if (m.sel == kFdRs) {
          if (answerWith) *asPtr<Word>(m.w[2]) = answerWith;
          return 0;
        }
        return 77;
      };
      Defn(cls, kFdRs, note);
      Defn(cls, fc("Ping"), note);
    }
    heard.clear();
    Object* o = asObject(send(objWord(cls->classObject), kNew_));
    send(o, kpoAd, channel);
    return o;
  }
};

Object* newModeler(Object* store, FourCC sig) {
  Object* dmd = asObject(send(ZelkorLookup(kDmodSig), kNew_));
  EXPECT_EQ(send(dmd, kSetu, store, sig, 0), 0);
  return dmd;
}

TEST_F(DmodForward, TheProviderManagerIsKeptUntilItWithdraws) {
  Object* dmd = newModeler(store, fc("MOD1"));
  EXPECT_GT(S(dmd, kSdRR), 0) << "a database object underneath";
  EXPECT_EQ(S(dmd, kPmGP), 0);
  Word manager = toWord(0x5000), other = toWord(0x6000);
  EXPECT_EQ(S(dmd, kPmSt, store, manager), manager);
  EXPECT_EQ(S(dmd, kPmGP), manager);
  EXPECT_EQ(S(dmd, kPmEd, other), other);
  EXPECT_EQ(S(dmd, kPmGP), manager) << "another object's withdrawal changes nothing";
  EXPECT_EQ(S(dmd, kPmEd, manager), manager);
  EXPECT_EQ(S(dmd, kPmGP), 0);
}

TEST_F(DmodForward, RequestsGoToTheObjectThatAnswersForTheModule) {
  Object* dmd = newModeler(store, fc("MOD1"));
  const Word channel = toWord(fc("MOD1"));

  // Nobody on the module's channel: -833, and nothing else is sent.
  EXPECT_EQ(S(dmd, kPmFR, 40, fc("Ping"), 1, 2), kNoResponder);

  // A listener that hears FdRs but names nobody: still -833.
  Object* ear = Responder::make(channel);
  EXPECT_EQ(S(dmd, kPmFR, 40, fc("Ping"), 1, 2), kNoResponder);
  ASSERT_EQ(Responder::heard.size(), 1u);
  std::vector<Word>& fdrs = Responder::heard[0];
  EXPECT_EQ(fdrs[0], toWord(kFdRs));
  EXPECT_EQ(fdrs[1], objWord(store));
  EXPECT_EQ(fdrs[2], objWord(dmd));
  EXPECT_NE(fdrs[3], 0);
  EXPECT_NE(fdrs[4], 0);
  EXPECT_EQ((std::vector<Word>(fdrs.begin() + 5, fdrs.end())),
            (std::vector<Word>{toWord(fc("Ping")), 40, 1, 2, 0, 0, 0, 0}));

  // Once it names itself, the request reaches it with (store, modeler, DL, the words).
  Responder::heard.clear();
  Responder::answerWith = objWord(ear);
  EXPECT_EQ(S(dmd, kPmFR, 40, fc("Ping"), 1, 2, 3, 4, 5, 6, 7, 8, 9, 10), 77);
  ASSERT_EQ(Responder::heard.size(), 2u);
  EXPECT_EQ(Responder::heard[0].back(), 6) << "FdRs carries the first six further words";
  std::vector<Word>& ping = Responder::heard[1];
  EXPECT_EQ(ping[0], toWord(fc("Ping")));
  EXPECT_EQ((std::vector<Word>(ping.begin() + 1, ping.end())),
            (std::vector<Word>{objWord(store), objWord(dmd), 40, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
  Responder::answerWith = 0;
  S(ear, kDspo);
}

TEST_F(PtyNames, ObjectDLsByTypeAndNumberControllerDLsByType) {
  Object* db = newDb(store);
  int32_t module = i32(S(db, kSdRR));
  int32_t note = i32(S(store, kTSDN, fc("Note"), 0, module));
  int32_t plain = i32(S(store, kTSDN, fc("Data"), 0, 0));
  Object* pty = asObject(S(ZelkorLookup(kPtySig), kNew_));
  EXPECT_EQ(S(pty, kSetu, store), objWord(store));
  fundra::TString name("old text");
  EXPECT_EQ(S(pty, kPGNm, note, &name), 0);
  EXPECT_EQ(name, "Object <Note=" + std::to_string(note) + ">");
  S(pty, kPGNm, module, &name);
  EXPECT_EQ(name, "Controller <TST1>");
  S(pty, kPGNm, plain, &name);
  EXPECT_EQ(name, "Controller <Data>") << "no owner: named as a controller's DL";
  for (int32_t dl : {note, module, 1}) {
    S(pty, kPGSN, dl, &name);
    EXPECT_EQ(name, " ");
  }
  EXPECT_EQ(S(pty, kPGAb), 0x08000002);

  // A number that names nothing: the store asserts and answers 0 for both questions.
  fundra::AssertCapture cap;
  S(pty, kPGNm, 999, &name);
  EXPECT_EQ(name, "Controller <\\x00\\x00\\x00\\x00>");
  EXPECT_EQ(sources(cap), (std::vector<std::string>{"zove", "zove"}));
  // No string to write into.
  EXPECT_EQ(S(pty, kPGNm, note, nullptr), 0);
  EXPECT_EQ(S(pty, kPGSN, note, nullptr), 0);
  EXPECT_EQ(sources(cap), (std::vector<std::string>{"db", "db"}));
  S(pty, kDspo);
}

TEST(DbCodes, TheModelersCodeHasAName) {
  EXPECT_EQ(codeName(kNoResponder), "-833 (kNoResponder)");
  const RegisteredCode* code = findCode(kNoResponder);
  ASSERT_TRUE(code);
  EXPECT_STREQ(code->library, "db");
}

}  // namespace
}  // namespace zt

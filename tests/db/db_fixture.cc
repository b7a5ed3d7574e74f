#include "tests/db/db_fixture.h"

namespace zt {

namespace {

ClassRec* gRecording = nullptr;

std::string word(Word w) { return std::to_string(w); }

Word recSetup(Object* self, const Msg& m) {
  return ClassData::pass(gRecording, self, kSetu, m.w[0], kTestSig, kTestDataSize);
}

Word recNotice(Object* self, const Msg& m) {
  if (m.sel == kXTSL)
    recorder().add("XTSL " + fcString(u32(m.w[1])) + " " + word(m.w[2]));
  else
    recorder().add(fcString(m.sel));
  return m.sel == kXTSI ? 0 : passMsg(gRecording, self, m);
}

Word recMake(Object* self, const Msg& m) {
  recorder().add("PmIM " + word(m.w[0]) + " " + word(m.w[2]) + " " + word(m.w[11]));
  recorder().lastMade = asPtr<InstanceRecord>(m.w[1]);
  if (recorder().failMake) return recorder().failMake;
  return passMsg(gRecording, self, m);
}

Word recDispose(Object* self, const Msg& m) {
  recorder().add("PmID " + word(m.w[0]));
  return passMsg(gRecording, self, m);
}

struct Boot : ::testing::Environment {
  void SetUp() override {
    ZelkorBoot();
    gRecording = makeSubclass(findClass(kDbSig), fc("tDB1"), 0);
    Defn(gRecording, kSetu, recSetup);
    Defn(gRecording, kXTSL, recNotice);
    Defn(gRecording, kXTSD, recNotice);
    Defn(gRecording, kXTSI, recNotice);
    Defn(gRecording, kPmIM, recMake);
    Defn(gRecording, kPmID, recDispose);
  }
};

const auto* gBoot = ::testing::AddGlobalTestEnvironment(new Boot);

}  // namespace

Recorder& recorder() {
  static Recorder r;
  return r;
}

ClassRec* recordingClass() { return gRecording; }

Object* newBareStore() {
  Object* s = asObject(send(ZelkorLookup(kZoveSig), kNew_));
  send(s, kSetu);
  EXPECT_EQ(send(s, kHNew, 0, 1), 0);
  return s;
}

Object* newInstalledStore() {
  Object* s = newBareStore();
  EXPECT_EQ(send(s, kTSIn, s, 1), 0);
  return s;
}

Object* newDb(Object* store) {
  return asObject(send(objWord(gRecording->classObject), kSdNw, store));
}

}  // namespace zt

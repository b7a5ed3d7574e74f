#include "tests/store/raw_structure.h"

namespace zt {
namespace {

// A controller as a database object behaves towards the store: on XTSL it binds to the module
// DL and registers; on XTSD it registers (making its module DL) if it has none yet.
struct Ctl {
  std::vector<std::string>* trace;
  Word sig;
  int32_t dl;
};
ClassRec* gCtlClass;

Word ctlNotice(Object* self, const Msg& m) {
  Ctl* c = instanceData<Ctl>(self, gCtlClass);
  Object* store = asObject(m.w[0]);
  if (m.sel == kXTSL && m.w[1] == c->sig) {
    c->dl = i32(m.w[2]);
    c->trace->push_back("XTSL " + std::to_string(c->dl));
    send(store, kTSRM, c->sig, self);
  } else if (m.sel == kXTSD) {
    c->trace->push_back("XTSD");
    if (c->dl == 0) {
      c->dl = i32(send(store, kTSNM, c->sig, 0));
      send(store, kTSRM, c->sig, self);
    }
  }
  return 0;
}

Object* newCtl(std::vector<std::string>* trace, FourCC sig) {
  if (!gCtlClass) {
    gCtlClass = makeSubclass(rootClass(), fc("tCtl"), sizeof(Ctl));
    Defn(gCtlClass, kXTSL, ctlNotice);
    Defn(gCtlClass, kXTSD, ctlNotice);
  }
  Object* o = asObject(send(gCtlClass->classObject, kNew_));
  *instanceData<Ctl>(o, gCtlClass) = {trace, toWord(sig), 0};
  return o;
}

using StoreRegistry = StoreTest;
using StoreExtensions = StoreTest;

TEST_F(StoreRegistry, OneControllerPerSignatureAndOnlyItMayUnregister) {
  std::vector<std::string> trace;
  Object* first = newCtl(&trace, fc("PRO1"));
  Object* second = newCtl(&trace, fc("PRO1"));
  LogCapture cap;
  EXPECT_EQ(S(s, kTSRM, fc("PRO1"), first), 0);
  EXPECT_EQ(S(s, kTSRM, fc("PRO1"), second), kRefused);
  EXPECT_EQ(S(s, kTSGM, fc("PRO1")), objWord(first));
  EXPECT_EQ(S(s, kTSUM, fc("PRO1"), second), kRefused);
  EXPECT_EQ(S(s, kTSUM, fc("OPTS"), second), 0);  // nobody holds it
  EXPECT_EQ(lines(cap), (std::vector<std::string>{
                            "515 zoveRegMod: already have controller for 'PRO1'",
                            "515 zoveUnregMod: wrong controller trying to unregister 'PRO1'"}));
  EXPECT_EQ(S(s, kTSGM, fc("PRO1")), objWord(first));
  EXPECT_EQ(S(s, kTSUM, fc("PRO1"), first), 0);
  EXPECT_EQ(S(s, kTSGM, fc("PRO1")), 0);
  EXPECT_EQ(S(s, kTSRM, fc("PRO1"), second), 0);
}

TEST_F(StoreRegistry, ModuleSelectorsNeedAnInstalledSoundStore) {
  std::vector<std::string> trace;
  Object* ctl = newCtl(&trace, fc("PRO1"));
  int32_t pro = i32(S(s, kTSNM, fc("PRO1"), 4));
  EXPECT_EQ(S(s, kTSDM, fc("PRO1")), kNoSpace);
  EXPECT_EQ(S(s, kTSAM, ctl, fc("PRO1")), kNoSpace);
  EXPECT_EQ(S(s, kTSTM), kNoSpace);
  EXPECT_TRUE(trace.empty());

  std::vector<std::string> notices;
  Object* listener = newListener(&notices);
  ASSERT_EQ(S(s, kTSIn, kChannel, 1), 0);
  EXPECT_EQ(S(s, kTSDM, fc("PRO1")), pro);
  EXPECT_EQ(S(s, kTSDM, fc("OPTS")), kNoItem);
  notices.clear();
  EXPECT_EQ(S(s, kTSTM), 0);
  EXPECT_EQ(notices, std::vector<std::string>{"XTSI"});

  // A controller added late hears of its module DL as install would have told it.
  EXPECT_EQ(S(s, kTSAM, ctl, fc("PRO1")), 0);
  EXPECT_EQ(trace, (std::vector<std::string>{"XTSL " + std::to_string(pro), "XTSD"}));
  EXPECT_EQ(S(s, kTSGM, fc("PRO1")), objWord(ctl));
  LogCapture cap;
  EXPECT_EQ(S(s, kTSAM, ctl, fc("PRO1")), kRefused);
  EXPECT_TRUE(cap.contains("zoveAddMod: already have controller for 'PRO1'"));
  // One without a module DL makes its own.
  Object* late = newCtl(&trace, fc("SCDS"));
  EXPECT_EQ(S(s, kTSAM, late, fc("SCDS")), 0);
  int32_t scds = i32(S(s, kTSDM, fc("SCDS")));
  EXPECT_GT(scds, 0);
  EXPECT_EQ(instanceData<Ctl>(late, gCtlClass)->dl, scds);

  S(s, kTSDS, -5);
  EXPECT_EQ(S(s, kTSDM, fc("PRO1")), kFaulted);
  EXPECT_EQ(S(s, kTSAM, late, fc("OPTS")), kFaulted);
  EXPECT_EQ(S(s, kTSTM), 0);
  S(listener, kDspo);
}

TEST_F(StoreExtensions, EachKeyFindsOrMakesOneExtensionDLThroughATable) {
  int32_t dl = dn(fc("obj "));
  EXPECT_EQ(S(s, kTSEX, dl, fc("Mine"), 0), 0);
  EXPECT_EQ(S(s, kTSCt, dl), 0);

  int32_t mine = i32(S(s, kTSEX, dl, fc("Mine"), 1));
  ASSERT_GT(mine, 0);
  EXPECT_EQ(S(s, kTSDT, mine), toWord(fc("TEx1")));
  int32_t table = 0;
  ASSERT_EQ(S(s, kTSAG, dl, fc("_tx1"), &table), 0);
  EXPECT_EQ(S(s, kTSDT, table), toWord(fc("TxL1")));
  EXPECT_EQ(S(s, kTSEX, dl, fc("Mine"), 1), mine);
  EXPECT_EQ(S(s, kTSEX, dl, fc("Mine"), 0), mine);
  int32_t yours = i32(S(s, kTSEX, dl, fc("Your"), 1));
  EXPECT_NE(yours, mine);
  EXPECT_EQ(S(s, kTSCt, table), 2);

  // Tables held by handles are read and rewritten as part links, so duplicates copy them.
  S(s, kTSHS, dl, fc("_tx1"), table);
  S(s, kTSHS, table, fc("Mine"), mine);
  EXPECT_EQ(S(s, kTSEX, dl, fc("Mine"), 0), mine);
  EXPECT_EQ(rawItem(s, dl, 0).kind, kPartLink);
  EXPECT_EQ(S(s, kTSAG, table, fc("Mine"), &table), 0);
  expectSound(s);
}

std::string bytesOf(RecordFile* f, int32_t chunk) {
  auto it = f->chunks.find(chunk);
  return it == f->chunks.end() ? "<none>" : std::string(it->second.begin(), it->second.end());
}

TEST(StoreTransfer, RecordsMoveFromAnotherFileAndFailuresLoseTheirItemOnly) {
  Object* s = newStoreWithFile();
  Object* other = newStoreWithFile();  // only its record file is used: the source
  RecordFile* source = recordFile(other);
  source->chunks[5] = {'h', 'e', 'l', 'l', 'o'};
  source->chunks[7] = {'m', 'o', 'd'};
  fundra::ElementSpace* sp = spaceOf(s);
  int32_t mod = i32(S(s, kTSNM, fc("PRO1"), 0));
  int32_t obj = i32(S(s, kTSDN, fc("obj "), 0, mod));
  S(s, kTSLA, mod, fc("Objs"), obj);
  rawWrite(sp, obj, fc("obj "),
           {{fc("RecA"), int32_t(kVHandle), 5},
            {fc("RecB"), int32_t(kVHandle), 6},
            {fc("Valu"), int32_t(kImmediate), 1}});
  int32_t objs = rawItem(s, mod, 0).ref;
  rawWrite(sp, mod, fc("PRO1"), {{fc("Objs"), objs, kList}, {fc("ModR"), int32_t(kVHandle), 7}},
           kSharedFlag);
  EXPECT_EQ(S(s, kTSHX, recordFileObject(other)), kNoSpace);  // not installed
  ASSERT_EQ(S(s, kTSIn, kChannel, 1), 0);

  LogCapture cap;
  EXPECT_EQ(S(s, kTSHX, recordFileObject(other)), -1119);
  EXPECT_EQ(lines(cap), std::vector<std::string>{
                            "515 zoveVHandXfer: can't read vhandle 6, -1119 (kVhdNoRecord)"});
  ASSERT_EQ(S(s, kTSCt, obj), 2);  // RecB is gone, the transfer went on
  Item a = rawItem(s, obj, 0);
  EXPECT_EQ(a.key, fc("RecA"));
  EXPECT_EQ(bytesOf(recordFile(s), int32_t(a.kind)), "hello");
  EXPECT_EQ(rawItem(s, mod, 0).kind, 7u);  // module DLs keep what they name
  EXPECT_TRUE(source->attached.empty());

  // A record that cannot be written loses its item too; the first error is answered.
  recordFile(s)->failWrite = -1118;
  rawWrite(sp, obj, fc("obj "),
           {{fc("RecC"), int32_t(kVHandle), 5}, {fc("RecD"), int32_t(kVHandle), 9}});
  EXPECT_EQ(S(s, kTSHX, recordFileObject(other)), -1118);
  EXPECT_EQ(lines(cap), (std::vector<std::string>{
                            "515 zoveVHandXfer: can't write vhandle " + std::to_string(obj) +
                                " key 'RecC', -1118 (kVhdIoError)",
                            "515 zoveVHandXfer: can't read vhandle 9, -1119 (kVhdNoRecord)"}));
  EXPECT_EQ(S(s, kTSCt, obj), 0);
  S(s, kDspo);
  S(other, kDspo);
}

}  // namespace
}  // namespace zt

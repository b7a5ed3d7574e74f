#include "tests/store/store_fixture.h"

namespace zt {

namespace {

ClassRec* gFileClass;   // tRcF: the record file
ClassRec* gStoreClass;  // tZvF: a store whose base has a record file
ClassRec* gListenClass;

struct FileData {
  RecordFile* file;
};
struct StoreData {
  Word file;
};

RecordFile* rf(Object* self) { return instanceData<FileData>(self, gFileClass)->file; }

Word fileWrite(Object* self, const Msg& m) {
  RecordFile* f = rf(self);
  if (f->failWrite) return f->failWrite;
  auto* mem = asPtr<fundra::TMemory>(m.w[0]);
  auto it = f->attached.find(m.w[0]);
  if (!mem || it == f->attached.end()) return -1120;
  f->chunks[it->second].assign(mem->MemPtr(), mem->MemPtr() + mem->GetSize());
  return 0;
}

void buildFile(ClassRec* c) {
  Defn(c, kHUId, [](Object* self, const Msg&) -> Word {
    RecordFile* f = rf(self);
    while (f->chunks.count(f->nextId)) ++f->nextId;
    return f->nextId++;
  });
  Defn(c, kHCrt, [](Object* self, const Msg& m) -> Word {
    rf(self)->attached[m.w[0]] = i32(m.w[2]);
    return 0;
  });
  Defn(c, kHWrt, fileWrite);
  Defn(c, kHCmp, fileWrite);
  Defn(c, kHDet, [](Object* self, const Msg& m) -> Word {
    rf(self)->attached.erase(m.w[0]);
    return 0;
  });
  Defn(c, kHRed, [](Object* self, const Msg& m) -> Word {
    auto it = rf(self)->chunks.find(i32(m.w[1]));
    if (it == rf(self)->chunks.end()) return -1119;
    auto* mem = new fundra::TMemory(int32_t(it->second.size()));
    if (!it->second.empty()) std::memcpy(mem->MemPtr(), it->second.data(), it->second.size());
    *asPtr<Word>(m.w[2]) = toWord(mem);
    rf(self)->attached[toWord(mem)] = i32(m.w[1]);
    return 0;
  });
  Defn(c, kHRmv, [](Object* self, const Msg& m) -> Word {
    rf(self)->chunks.erase(i32(m.w[1]));
    rf(self)->removed.push_back(i32(m.w[1]));
    return 0;
  });
  Defn(c, kHSiz, [](Object* self, const Msg& m) -> Word {
    auto it = rf(self)->chunks.find(i32(m.w[1]));
    return it == rf(self)->chunks.end() ? -1119 : Word(it->second.size());
  });
  Defn(c, kHCId, [](Object* self, const Msg&) -> Word { return Word(rf(self)->chunks.size()); });
  Defn(c, kHEId, [](Object* self, const Msg& m) -> Word {
    auto it = rf(self)->chunks.begin();
    std::advance(it, m.w[1] - 1);
    return it->first;
  });
  Defn(c, kDspo, [](Object* self, const Msg& m) -> Word {
    delete rf(self);
    return passMsg(gFileClass, self, m);
  });
}

std::string note(const Msg& m) {
  std::string s = fcString(m.sel);
  if (m.sel == kXTSL) s += " " + fcString(u32(m.w[1])) + " " + std::to_string(i32(m.w[2]));
  if (m.sel == kXTTB || m.sel == kXTSS) s += " " + std::to_string(i32(m.w[1]));
  if (m.sel == kXTSW) s += " " + std::to_string(m.w[0]) + " " + std::to_string(m.w[1]);
  return s;
}

Word listen(Object* self, const Msg& m) {
  auto* d = instanceData<Listener>(self, gListenClass);
  d->trace->push_back(note(m));
  if (m.sel == kXTSU && d->setBusy) {
    *asPtr<int32_t>(m.w[1]) = d->setBusy;
    if (m.w[2]) std::strcpy(asPtr<char>(m.w[2]), "busy");
  }
  if (m.sel == kXTTB && d->setBusy) *asPtr<int32_t>(m.w[2]) = d->setBusy;
  return 0;
}

struct Boot : ::testing::Environment {
  void SetUp() override {
    ZelkorBoot();
    gFileClass = makeSubclass(rootClass(), fc("tRcF"), sizeof(FileData));
    buildFile(gFileClass);
    gStoreClass = makeSubclass(findClass(kZoveSig), fc("tZvF"), sizeof(StoreData));
    Defn(gStoreClass, kHGtF, [](Object* self, const Msg&) -> Word {
      return instanceData<StoreData>(self, gStoreClass)->file;
    });
    Defn(gStoreClass, kDspo, [](Object* self, const Msg& m) -> Word {
      Word file = instanceData<StoreData>(self, gStoreClass)->file;
      Word r = passMsg(gStoreClass, self, m);
      send(file, kDspo);
      return r;
    });
    gListenClass = makeSubclass(rootClass(), fc("tLsn"), sizeof(Listener));
    for (FourCC sel : {kXTSL, kXTSD, kXTSI, kXTSC, kXTSU, kXTSS, kXTTB, kXTSW, kXTSH})
      Defn(gListenClass, sel, listen);
  }
};

const auto* gBoot = ::testing::AddGlobalTestEnvironment(new Boot);

Object* setUp(Object* store, int32_t version) {
  send(store, kSetu);
  EXPECT_EQ(send(store, kHNew, 0, version), 0);
  return store;
}

}  // namespace

Object* newStore(int32_t version) {
  return setUp(asObject(send(ZelkorLookup(kZoveSig), kNew_)), version);
}

Object* newStoreWithFile(int32_t version) {
  Object* store = asObject(send(gStoreClass->classObject, kNew_));
  Object* file = asObject(send(gFileClass->classObject, kNew_));
  instanceData<FileData>(file, gFileClass)->file = new RecordFile;
  instanceData<StoreData>(store, gStoreClass)->file = objWord(file);
  return setUp(store, version);
}

Word recordFileObject(Object* store) { return instanceData<StoreData>(store, gStoreClass)->file; }

RecordFile* recordFile(Object* store) { return rf(asObject(recordFileObject(store))); }

Object* newListener(std::vector<std::string>* trace, int32_t setBusy) {
  Object* o = asObject(send(gListenClass->classObject, kNew_));
  *instanceData<Listener>(o, gListenClass) = {trace, setBusy};
  send(o, kpoAd, kChannel);
  return o;
}

fundra::ElementSpace* spaceOf(Object* store) {
  fundra::ElementSpace* s = nullptr;
  send(store, kHGtH, &s);
  return s;
}

}  // namespace zt

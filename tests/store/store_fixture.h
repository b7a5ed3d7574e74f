// What the store's tests share: a booted framework, a store to send selectors to, a listener on
// its channel that records the notices, and a small in-memory record file.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "platform/fundra/debug.h"
#include "platform/fundra/memory.h"
#include "platform/fundra/space.h"
#include "platform/storefile/recfile.h"
#include "platform/storefile/vhd.h"
#include "platform/zelkor/zelkor.h"
#include "store/inspect.h"
#include "zove/dl.h"
#include "zove/store.h"

namespace zt {

using namespace zelkor;
using storefile::kHCId;
using storefile::kHCmp;
using storefile::kHCrt;
using storefile::kHDet;
using storefile::kHEId;
using storefile::kHGtF;
using storefile::kHGtH;
using storefile::kHRed;
using storefile::kHRmv;
using storefile::kHSiz;
using storefile::kHUId;
using storefile::kHWrt;
using namespace zove;

constexpr Word kChannel = toWord(fc("tChn"));

// A record file kept in a map, answering the messages the store sends its file. A handle is a
// fundra::TMemory; HCrt attaches it to a chunk, HWrt/HCmp copy its bytes into the chunk.
struct RecordFile {
  std::map<int32_t, std::vector<uint8_t>> chunks;
  std::map<Word, int32_t> attached;  // handle -> chunk
  int32_t nextId = 1;
  int32_t failWrite = 0;  // answered by HWrt and HCmp when non-zero
  std::vector<int32_t> removed;
};

// Notices that reached the listener, as "XTSL PRO1 5" lines (signatures as text, numbers).
struct Listener {
  std::vector<std::string>* trace;
  int32_t setBusy;  // XTSU/XTTB: the value written to the busy word
};

Object* newStore(int32_t version = 1);
// A store whose base answers HGtF with a record file of its own (see recordFile).
Object* newStoreWithFile(int32_t version = 1);
RecordFile* recordFile(Object* store);
Word recordFileObject(Object* store);

Object* newListener(std::vector<std::string>* trace, int32_t setBusy = 0);

fundra::ElementSpace* spaceOf(Object* store);

inline Word S(Object* store, FourCC sel, auto... args) { return send(store, sel, args...); }

// The item (ref, kind, key) at index of a DL, read straight from the space.
inline Item rawItem(Object* store, int32_t dl, int32_t index) {
  DLView v;
  EXPECT_EQ(dlOpen(spaceOf(store), dl, &v), 0);
  return v.items[index];
}

// Every log line captured, as text.
inline std::vector<std::string> lines(LogCapture& cap) {
  std::vector<std::string> out;
  for (auto& e : cap.take()) out.push_back(std::to_string(e.level) + " " + e.text);
  return out;
}

// Fails the test with a dump when the store breaks an invariant.
inline void expectSound(Object* store) {
  auto v = zoveCheckStore(store);
  EXPECT_TRUE(v.empty()) << ::testing::PrintToString(v) << "\n" << zoveDumpStore(store);
}

// A fresh store of version 1 for each test, disposed after it, and what most tests reach for.
struct StoreTest : ::testing::Test {
  Object* s = newStore(1);
  fundra::ElementSpace* sp = spaceOf(s);
  void TearDown() override { S(s, kDspo); }

  // Replaces the store with a new one, for tests that fault or damage theirs on purpose.
  void renew() {
    S(s, kDspo);
    s = newStore(1);
    sp = spaceOf(s);
  }
  int32_t dn(FourCC type = fc("data"), int32_t dataSize = 0) {
    return i32(S(s, kTSDN, type, dataSize, 0));
  }
  bool live(int32_t n) { return sp->LmTest(n) == 0; }
  // What a handle or part-link reader (sel) answers for key; 0 when it fails.
  int32_t handleOf(int32_t dl, FourCC key, FourCC sel = kTSHG) {
    int32_t h = 0;
    S(s, sel, dl, key, &h);
    return h;
  }
  // Rewrites the item under key as a damaged or older store would hold it.
  void poke(int32_t dl, FourCC key, int32_t ref, uint32_t kind) {
    DLView v;
    ASSERT_EQ(dlOpen(sp, dl, &v), 0);
    int32_t i = dlFind(v, key);
    ASSERT_GE(i, 0);
    v.items[i].ref = ref;
    v.items[i].kind = kind;
  }
};

}  // namespace zt

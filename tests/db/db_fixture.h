// What the database tests share: a booted framework, an installed store whose channel is the store
// itself (a database object joins that channel in Setu), and a database class of module `TST1`
// that records what it is asked and can be told to fail.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "platform/fundra/debug.h"
#include "platform/fundra/tstring.h"
#include "platform/zelkor/zelkor.h"
#include "tests/support/sends.h"
#include "zove/db.h"
#include "zove/store.h"

namespace zt {

using namespace zelkor;
using namespace zove;

constexpr FourCC kTestSig = fc("TST1");
constexpr int32_t kTestDataSize = 8;

// The recording database class `tDB1` (a subclass of `@DB ` for module TST1, data size 8): its
// Setu passes its signature up, as every module's class does; XTSL, XTSD, XTSI, PmIM and PmID
// are traced (and passed to `@DB ` where it answers them). PmIM answers `failMake` instead when
// that is non-zero.
struct Recorder {
  std::mutex mu;
  std::vector<std::string> trace;  // "XTSD", "PmIM 7 w2 w11", "PmID 7", ...
  Word failMake = 0;
  InstanceRecord* lastMade = nullptr;  // the record PmIM was given last
  void add(std::string line) {
    std::lock_guard<std::mutex> hold(mu);
    trace.push_back(std::move(line));
  }
  std::vector<std::string> take() {
    std::lock_guard<std::mutex> hold(mu);
    return std::exchange(trace, {});
  }
};
Recorder& recorder();
ClassRec* recordingClass();

// An installed store of version 1, its channel being itself.
Object* newInstalledStore();
// A store as HNew leaves it: set up, not installed.
Object* newBareStore();

// A database object of the recording class, joined to the store through SdNw.
Object* newDb(Object* store);

inline Word S(Object* o, FourCC sel, auto... args) { return send(o, sel, args...); }
inline Word S(Word o, FourCC sel, auto... args) { return send(o, sel, args...); }

// The assertion reports made since the last call, as "source:line" with the lines dropped
// ("db", "db", "zove").
inline std::vector<std::string> sources(fundra::AssertCapture& cap) {
  std::vector<std::string> out;
  for (const std::string& r : cap.take()) out.push_back(r.substr(0, r.find(':')));
  return out;
}

// Each test starts with a fresh installed store and the recorder emptied; the store is disposed of
// after it (which disposes of its database objects).
struct DbTest : ::testing::Test {
  Object* store = newInstalledStore();
  void SetUp() override { recorder().take(), recorder().failMake = 0; }
  void TearDown() override {
    if (store) S(store, kDspo);
  }
};

}  // namespace zt

// Every writer at a limit of the element space (its numbers, its heap, an element's largest size)
// answers the space's code and logs one line that names the limit; none answers 0 or a DL having
// stored nothing, and what it could not store is not there afterwards.
#include <cstring>
#include <functional>

#include "platform/fundra/tdate.h"
#include "platform/fundra/tstring.h"
#include "store/engine.h"
#include "tests/store/store_fixture.h"

namespace zt {
namespace {

using fundra::kLmBadSize;
using fundra::kLmMaxNumber;
using fundra::kLmMaxSize;
using fundra::kLmNoNumber;

struct Writer {
  const char* name;
  bool number;  // it needs a new number (a grown DL does not)
  bool heap;    // it needs heap bytes (an empty list does not)
  std::function<Word(Object* s, int32_t dl)> write;
  // What must not be there after a refused write.
  std::function<bool(Object* s, int32_t dl)> stored;
};

bool has(Object* s, int32_t dl, FourCC key) {
  DLView v;
  return dlOpen(spaceOf(s), dl, &v) == 0 && dlFind(v, key) >= 0;
}

std::vector<Writer> writers() {
  static fundra::TString text("a name");
  static fundra::TDate date;
  static fundra::TMemory mem = [] {
    fundra::TMemory m(16);
    for (int i = 0; i < 4; ++i) std::memcpy(m.MemPtr() + 4 * i, &kRootDL, 4);
    return m;
  }();
  static const char bytes[64] = "bytes";
  using Stored = std::function<bool(Object*, int32_t)>;
  auto item = [](FourCC key) -> Stored {
    return [key](Object* s, int32_t dl) { return has(s, dl, key); };
  };
  Stored none = [](Object*, int32_t) { return false; };
  return {
      {"TSDN", true, true, [](Object* s, int32_t) { return S(s, kTSDN, fc("data"), 0, 0); }, none},
      {"TSNM", true, true, [](Object* s, int32_t) { return S(s, kTSNM, fc("MOD1"), 4, 0); },
       [](Object* s, int32_t) { return S(s, kTSLE, 1, kModsKey, 0) != 0; }},
      {"TSBW", true, true,
       [](Object* s, int32_t dl) { return S(s, kTSBW, dl, fc("blob"), bytes, 64); },
       item(fc("blob"))},
      {"TSBF", true, true, [](Object* s, int32_t dl) { return S(s, kTSBF, dl, fc("blob"), &mem); },
       item(fc("blob"))},
      {"TSSs", true, true, [](Object* s, int32_t dl) { return S(s, kTSSs, dl, kNameKey, &text); },
       item(kNameKey)},
      {"TDtS", true, true, [](Object* s, int32_t dl) { return S(s, kTDtS, dl, fc("date"), &date); },
       item(fc("date"))},
      {"TSLN", true, false, [](Object* s, int32_t dl) { return S(s, kTSLN, dl, fc("list")); },
       item(fc("list"))},
      {"TSLA", true, true, [](Object* s, int32_t dl) { return S(s, kTSLA, dl, fc("list"), 1); },
       [](Object* s, int32_t dl) { return S(s, kTSLC, dl, fc("list")) != 0; }},
      {"TSLf", true, true, [](Object* s, int32_t dl) { return S(s, kTSLf, dl, fc("list"), &mem); },
       item(fc("list"))},
      {"TSVS", false, true, [](Object* s, int32_t dl) { return S(s, kTSVS, dl, fc("valu"), 7); },
       item(fc("valu"))},
      {"TSHS", false, true, [](Object* s, int32_t dl) { return S(s, kTSHS, dl, fc("hand"), 1); },
       item(fc("hand"))},
      {"TSDD", true, true, [](Object* s, int32_t dl) { return S(s, kTSDD, dl); }, none},
  };
}

// Makes a store whose DL `dl` has room for nothing more once `limit` is applied.
Object* storeAtLimit(const std::function<void(fundra::ElementSpace*)>& limit, int32_t* dl) {
  Object* s = newStore(1);
  *dl = i32(S(s, kTSDN, fc("data"), 4, 0));
  S(s, kTSHS, 1, fc("data"), *dl);
  limit(spaceOf(s));
  return s;
}

void expectEveryWriterRefused(const std::function<void(fundra::ElementSpace*)>& limit,
                              const std::string& said, bool heap) {
  for (const Writer& w : writers()) {
    if (heap ? !w.heap : !w.number) continue;
    SCOPED_TRACE(w.name);
    int32_t dl;
    Object* s = storeAtLimit(limit, &dl);
    LogCapture cap;
    Word answer = w.write(s, dl);
    std::vector<std::string> log = lines(cap);
    EXPECT_LT(i32(answer), 0);
    ASSERT_EQ(log.size(), 1u) << ::testing::PrintToString(log);
    EXPECT_NE(log[0].find(said), std::string::npos) << log[0];
    EXPECT_FALSE(w.stored(s, dl));
    S(s, kDspo);
  }
}

TEST(Limits, AtTheLastNumberEveryWriterAnswersAndSaysWhy) {
  expectEveryWriterRefused([](fundra::ElementSpace* sp) { sp->LmSetCeiling(sp->LmCount(), 0); },
                           "every number the element space may give (", false);
}

TEST(Limits, AtTheHeapsCeilingEveryWriterAnswersAndSaysWhy) {
  expectEveryWriterRefused(
      [](fundra::ElementSpace* sp) {
        // The heap as it is, every free block taken: any new block needs a new chunk.
        sp->LmSetCeiling(kLmMaxNumber, sp->LmHeapBytes());
        for (int32_t size = 8; size <= fundra::kLmSmallMax; size += 8)
          while (sp->LmAddAssert(size) > 0) {
          }
      },
      "of its ceiling of", true);
}

TEST(Limits, AnImportThatCannotBeMadeChangesNothingAndSaysWhy) {
  Object* s = newStore(1);
  int32_t top = i32(S(s, kTSDN, fc("data"), 0, 0));
  for (int i = 0; i < 20; ++i) S(s, kTSLA, top, fc("list"), i32(S(s, kTSDN, fc("part"), 0, 0)));
  fundra::TMemory stream;
  ASSERT_EQ(S(s, kTSEx, top, &stream), 0);
  int32_t into = i32(S(s, kTSDN, fc("data"), 0, 0));
  fundra::ElementSpace* sp = spaceOf(s);
  sp->LmSetCeiling(sp->LmCount() + 5, 0);
  int32_t live = sp->LmLiveCount();
  LogCapture cap;
  EXPECT_EQ(S(s, kTSIm, into, &stream), kLmNoNumber);
  std::vector<std::string> log = lines(cap);
  ASSERT_EQ(log.size(), 1u);
  EXPECT_NE(log[0].find("zoveImport: no element"), std::string::npos) << log[0];
  EXPECT_EQ(sp->LmLiveCount(), live);
  EXPECT_EQ(S(s, kTSCt, into), 0);
  // Room again: the same stream imports whole.
  sp->LmSetCeiling(kLmMaxNumber, 0);
  EXPECT_EQ(S(s, kTSIm, into, &stream), 0);
  EXPECT_EQ(S(s, kTSLC, into, fc("list")), 20);
  S(s, kDspo);
}

TEST(Limits, AnElementPastItsLargestSizeIsRefusedAsTooBigNotAsMemory) {
  Object* s = newStore(1);
  LogCapture cap;
  EXPECT_EQ(S(s, kTSDN, fc("data"), kLmMaxSize, 0), kLmBadSize);
  std::vector<std::string> log = lines(cap);
  ASSERT_FALSE(log.empty());
  EXPECT_NE(log.back().find("more than an element may hold"), std::string::npos) << log.back();
  S(s, kDspo);
}

}  // namespace
}  // namespace zt

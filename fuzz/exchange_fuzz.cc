// Fuzz target: arbitrary bytes imported as an exchange stream into a DL of a store that holds a
// module with an object, a blob, a list and handles. Whatever the bytes:
//   - a refused import leaves every element of the store exactly as it was;
//   - an accepted import leaves a store that passes its integrity check and its invariants, and
//     whose new structure exports and imports again.
// Any breach aborts, so the fuzzer (or the replay under CTest) reports it.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/fundra/memory.h"
#include "platform/fundra/space.h"
#include "platform/zelkor/zelkor.h"
#include "store/inspect.h"
#include "zove/store.h"

namespace {

using namespace zove;
using zelkor::fc;
using zelkor::i32;
using zelkor::Object;
using zelkor::send;

void require(bool ok) {
  if (!ok) std::abort();
}

struct Store {
  Object* s;
  int32_t target;
  int32_t spare;
};

// A fresh store per input, so that every input meets the same content.
Store makeStore() {
  Object* s = zelkor::asObject(send(zelkor::ZelkorLookup(zove::kZoveSig), zelkor::kNew_));
  send(s, kSetu);
  require(send(s, kHNew, 0, 1) == 0);
  int32_t mod = i32(send(s, kTSNM, fc("FUZZ"), 4));
  int32_t obj = i32(send(s, kTSDN, fc("obj "), 8, mod));
  int32_t part = i32(send(s, kTSDN, fc("part"), 0, 0));
  send(s, kTSSS, obj);
  send(s, kTSLA, mod, fc("Objs"), obj);
  send(s, kTSAS, obj, fc("Part"), part);
  send(s, kTSHS, part, fc("Back"), obj);
  send(s, kTSBW, part, fc("Blob"), "bytes", 5);
  send(s, kTSVS, part, fc("Valu"), 7);
  int32_t target = i32(send(s, kTSDN, fc("tgt "), 0, mod));
  int32_t spare = i32(send(s, kTSDN, fc("spar"), 0, mod));
  send(s, kTSAS, mod, fc("Tgt "), target);
  send(s, kTSAS, mod, fc("Spar"), spare);
  return {s, target, spare};
}

fundra::ElementSpace* spaceOf(Object* s) {
  fundra::ElementSpace* sp = nullptr;
  send(s, storefile::kHGtH, &sp);
  return sp;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool booted = [] {
    zelkor::setLogSink([](int, std::string_view) {});
    zelkor::ZelkorBoot();
    return true;
  }();
  (void)booted;
  if (size > (1u << 20)) return 0;
  Store st = makeStore();
  fundra::ElementSpace* sp = spaceOf(st.s);
  fundra::TMemory in{int32_t(size)};
  if (size > 0) std::memcpy(in.MemPtr(), data, size);

  const int32_t liveBefore = sp->LmLiveCount();
  const uint64_t sumBefore = sp->LmSpaceSum();
  int32_t r = i32(send(st.s, kTSIm, st.target, &in));
  if (r != 0) {
    require(r < 0);
    require(sp->LmLiveCount() == liveBefore && sp->LmSpaceSum() == sumBefore);
  } else {
    require(send(st.s, kTSCk) == 1);
    require(zove::zoveCheckStore(st.s).empty());
    fundra::TMemory out;
    require(send(st.s, kTSEx, st.target, &out) == 0);
    require(send(st.s, kTSIm, st.spare, &out) == 0);
    require(send(st.s, kTSCk) == 1);
  }
  send(st.s, kDspo);
  return 0;
}

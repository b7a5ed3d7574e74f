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
#include "store/zove.h"

namespace {

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
  Object* s = zelkor::asObject(send(zelkor::ZelkorLookup(zove::kZoveSig), fc("New ")));
  send(s, fc("Setu"));
  require(send(s, fc("HNew"), 0, 1) == 0);
  int32_t mod = i32(send(s, fc("TSNM"), fc("FUZZ"), 4));
  int32_t obj = i32(send(s, fc("TSDN"), fc("obj "), 8, mod));
  int32_t part = i32(send(s, fc("TSDN"), fc("part"), 0, 0));
  send(s, fc("TSSS"), obj);
  send(s, fc("TSLA"), mod, fc("Objs"), obj);
  send(s, fc("TSAS"), obj, fc("Part"), part);
  send(s, fc("TSHS"), part, fc("Back"), obj);
  send(s, fc("TSBW"), part, fc("Blob"), "bytes", 5);
  send(s, fc("TSVS"), part, fc("Valu"), 7);
  int32_t target = i32(send(s, fc("TSDN"), fc("tgt "), 0, mod));
  int32_t spare = i32(send(s, fc("TSDN"), fc("spar"), 0, mod));
  send(s, fc("TSAS"), mod, fc("Tgt "), target);
  send(s, fc("TSAS"), mod, fc("Spar"), spare);
  return {s, target, spare};
}

fundra::ElementSpace* spaceOf(Object* s) {
  fundra::ElementSpace* sp = nullptr;
  send(s, fc("HGtH"), &sp);
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
  int32_t r = i32(send(st.s, fc("TSIm"), st.target, &in));
  if (r != 0) {
    require(r < 0);
    require(sp->LmLiveCount() == liveBefore && sp->LmSpaceSum() == sumBefore);
  } else {
    require(send(st.s, fc("TSCk")) == 1);
    require(zove::zoveCheckStore(st.s).empty());
    fundra::TMemory out;
    require(send(st.s, fc("TSEx"), st.target, &out) == 0);
    require(send(st.s, fc("TSIm"), st.spare, &out) == 0);
    require(send(st.s, fc("TSCk")) == 1);
  }
  send(st.s, fc("Dspo"));
  return 0;
}

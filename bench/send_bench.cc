// The cost of a message send, beside the C++ calls it stands in for.
//
// BM_Send: send of a selector the receiver's class defines (a trivial handler).
// BM_Pass: a handler that passes to its superclass's handler (one send plus one pass: the pass
// alone costs BM_Pass - BM_Send).
// BM_SendInherited: the handler is defined two classes up (inherited tables cost nothing extra).
// BM_VirtualCall / BM_FunctionCall: the references, through a pointer the compiler cannot see
// through, so neither is inlined away.
// BM_Broadcast: TransBlock of a selector to a channel of two members, among 1,000 other channels
// of one member each; BM_SendTwo, the reference: the same message sent to the two members.
#include <benchmark/benchmark.h>

#include <utility>

#include "platform/zelkor/zelkor.h"

using namespace zelkor;

namespace {

ClassRec *gBase, *gMid, *gLeaf;
constexpr FourCC kPing = fc("ping");
constexpr FourCC kPong = fc("pong");
constexpr FourCC kDeep = fc("deep");

Word basePing(Object*, const Msg& m) { return m.w[0] + 1; }
Word leafPing(Object*, const Msg& m) { return m.w[0] + 1; }
Word leafPong(Object* self, const Msg& m) { return passMsg(gLeaf, self, m); }
Word midPong(Object*, const Msg& m) { return m.w[0] + 2; }

Object* leaf() {
  static Object* o = [] {
    gBase = makeSubclass(rootClass(), fc("bBas"), 8);
    gMid = makeSubclass(gBase, fc("bMid"), 8);
    gLeaf = makeSubclass(gMid, fc("bLef"), 8);
    Defn(gLeaf, kPing, leafPing);
    Defn(gLeaf, kPong, leafPong);
    Defn(gMid, kPong, midPong);
    Defn(gBase, kDeep, basePing);
    return asObject(send(gLeaf->classObject, kNew_));
  }();
  return o;
}

struct Shape {
  virtual ~Shape() = default;
  virtual Word ping(Word w) = 0;
};
// Out of line, as a virtual method in a real program is: otherwise the compiler guesses the
// target, inlines it behind a vtable check and the reference measures no call at all.
struct Square : Shape {
  __attribute__((noinline)) Word ping(Word w) override { return w + 1; }
};

__attribute__((noinline)) Word plainPing(Word w) { return w + 1; }

void BM_Send(benchmark::State& state) {
  Object* o = leaf();
  Word w = 0;
  for (auto _ : state) {
    w = send(o, kPing, w);
    benchmark::DoNotOptimize(w);
  }
}
BENCHMARK(BM_Send);

void BM_SendInherited(benchmark::State& state) {
  Object* o = leaf();
  Word w = 0;
  for (auto _ : state) {
    w = send(o, kDeep, w);
    benchmark::DoNotOptimize(w);
  }
}
BENCHMARK(BM_SendInherited);

void BM_Pass(benchmark::State& state) {
  Object* o = leaf();
  Word w = 0;
  for (auto _ : state) {
    w = send(o, kPong, w);
    benchmark::DoNotOptimize(w);
  }
}
BENCHMARK(BM_Pass);

void BM_VirtualCall(benchmark::State& state) {
  Square sq;
  Shape* s = &sq;
  benchmark::DoNotOptimize(s);
  Word w = 0;
  for (auto _ : state) {
    w = s->ping(w);
    benchmark::DoNotOptimize(w);
  }
}
BENCHMARK(BM_VirtualCall);

void BM_FunctionCall(benchmark::State& state) {
  Word (*f)(Word) = plainPing;
  benchmark::DoNotOptimize(f);
  Word w = 0;
  for (auto _ : state) {
    w = f(w);
    benchmark::DoNotOptimize(w);
  }
}
BENCHMARK(BM_FunctionCall);

// A channel of two members among 1,000 channels of one.
std::pair<Object*, Object*> channelPair() {
  static std::pair<Object*, Object*> members = [] {
    Object* o = leaf();
    for (uint32_t i = 0; i < 1000; ++i) poAd(o, Word(0x10000 + i));
    Object* a = asObject(send(gLeaf->classObject, kNew_));
    Object* b = asObject(send(gLeaf->classObject, kNew_));
    poAd(a, Word(fc("bChn")));
    poAd(b, Word(fc("bChn")));
    return std::pair{a, b};
  }();
  return members;
}

void BM_Broadcast(benchmark::State& state) {
  channelPair();
  for (auto _ : state) TransBlock(Word(fc("bChn")), kPing, Word(1));
}
BENCHMARK(BM_Broadcast);

void BM_SendTwo(benchmark::State& state) {
  auto [a, b] = channelPair();
  benchmark::DoNotOptimize(a);
  benchmark::DoNotOptimize(b);
  for (auto _ : state) {
    benchmark::DoNotOptimize(send(a, kPing, Word(1)));
    benchmark::DoNotOptimize(send(b, kPing, Word(1)));
  }
}
BENCHMARK(BM_SendTwo);

}  // namespace

BENCHMARK_MAIN();

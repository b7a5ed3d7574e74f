// Structures written straight into a store's element space, for the tests of the whole-structure
// selectors: kinds no selector makes (weak handles, weak lists), chains far deeper than marking
// follows, and random shapes, all without counting changes (so no periodic collection runs).
#pragma once

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "tests/store/store_fixture.h"

namespace zt {

struct RawItem {
  uint32_t key;
  int32_t ref;
  uint32_t kind;
};

// Writes (or rewrites) DL n whole: header, `dataWords` words of data, the items sorted by key.
inline void rawWrite(fundra::ElementSpace* sp, int32_t n, uint32_t uType,
                     std::vector<RawItem> items, uint16_t flags = 0,
                     std::vector<int32_t> data = {}) {
  std::sort(items.begin(), items.end(),
            [](const RawItem& a, const RawItem& b) { return int32_t(a.key) < int32_t(b.key); });
  int32_t size = kHeadBytes + 4 * int32_t(data.size()) + kItemBytes * int32_t(items.size());
  ASSERT_EQ(sp->LmSetAssert(n, size), 0);
  uint8_t* at = sp->LmGet(n);
  DLHead head{uType, flags, 0, 0, 4 * int32_t(data.size()), int32_t(items.size())};
  std::memcpy(at, &head, sizeof head);
  if (!data.empty()) std::memcpy(at + kHeadBytes, data.data(), 4 * data.size());
  auto* out = reinterpret_cast<Item*>(at + kHeadBytes + 4 * data.size());
  for (size_t i = 0; i < items.size(); ++i)
    out[i] = Item{items[i].ref, items[i].kind, items[i].key};
}

inline int32_t rawDL(fundra::ElementSpace* sp, uint32_t uType, std::vector<RawItem> items = {},
                     uint16_t flags = 0, std::vector<int32_t> data = {}) {
  int32_t n = sp->LmAddAssert(kHeadBytes);
  rawWrite(sp, n, uType, std::move(items), flags, std::move(data));
  return n;
}

inline int32_t rawBlob(fundra::ElementSpace* sp, const std::vector<uint8_t>& bytes) {
  return sp->LmAddAssert(int32_t(bytes.size()), bytes.data());
}

inline int32_t rawList(fundra::ElementSpace* sp, const std::vector<int32_t>& elems) {
  return sp->LmAddAssert(int32_t(4 * elems.size()), elems.data());
}

// Adds an item to the root (DL 1) without counting a change.
inline void rawRootItem(fundra::ElementSpace* sp, RawItem add) {
  DLView v;
  ASSERT_EQ(dlOpen(sp, 1, &v), 0);
  std::vector<RawItem> items;
  for (int32_t i = 0; i < v.head->count; ++i)
    items.push_back({v.items[i].key, v.items[i].ref, v.items[i].kind});
  std::vector<int32_t> data(2);  // the version and the reserved word
  std::memcpy(data.data(), v.data, 8);
  items.push_back(add);
  rawWrite(sp, 1, fc("root"), items, 0, data);
}

// A chain of n DLs, each holding the next under `Next` with the kind given; answers the first.
inline int32_t rawChain(fundra::ElementSpace* sp, int32_t n, uint32_t kind) {
  int32_t next = 0;
  for (int32_t i = 0; i < n; ++i)
    next = rawDL(sp, fc("link"),
                 next ? std::vector<RawItem>{{fc("Next"), next, kind}} : std::vector<RawItem>{});
  return next;
}

// What a random structure holds, so that a test can tell which comparisons apply.
struct RandomShape {
  int32_t top = 0;
  bool weak = false;         // a weak handle or weak list below the top
  bool sharedBelow = false;  // a shared DL other than the top
};

// A random structure of up to 24 DLs: data words, immediate values, blobs, lists, weak lists,
// handles, part links and weak handles among its DLs (the top, cycles and DLs reached twice
// included), some DLs shared.
inline RandomShape rawRandom(fundra::ElementSpace* sp, std::mt19937& rng, bool allowWeak) {
  auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  int32_t count = pick(1, 24);
  std::vector<int32_t> dls;
  for (int32_t i = 0; i < count; ++i) dls.push_back(rawDL(sp, fc("rand")));
  RandomShape shape{dls[0]};
  const uint32_t kinds[] = {kBlob, kHandle, kPartLink, kList, kImmediate, kWeakHandle, kWeakList};
  for (int32_t i = 0; i < count; ++i) {
    std::set<uint32_t> keys;
    std::vector<RawItem> items;
    for (int k = pick(0, 5); k > 0; --k) {
      uint32_t key = fc("k000") + uint32_t(pick(0, 9));
      if (!keys.insert(key).second) continue;
      uint32_t kind = kinds[pick(0, allowWeak ? 6 : 4)];
      int32_t any = dls[size_t(pick(0, count - 1))];
      if (kind == kBlob) {
        std::vector<uint8_t> bytes(size_t(pick(0, 11)));
        for (auto& b : bytes) b = uint8_t(pick(0, 255));
        items.push_back({key, rawBlob(sp, bytes), kBlob});
      } else if (kind == kList || kind == kWeakList) {
        std::vector<int32_t> elems(size_t(pick(0, 4)));
        for (auto& e : elems) e = dls[size_t(pick(0, count - 1))];
        items.push_back({key, rawList(sp, elems), kind});
        shape.weak |= kind == kWeakList && !elems.empty();
      } else if (kind == kImmediate) {
        items.push_back({key, int32_t(kImmediate), uint32_t(rng())});
      } else {
        items.push_back({key, any, kind | uint32_t(pick(0, 1))});
        shape.weak |= kind == kWeakHandle;
      }
    }
    bool isShared = i > 0 && pick(0, 5) == 0;
    shape.sharedBelow |= isShared;
    std::vector<int32_t> data(size_t(pick(0, 2)));
    for (auto& w : data) w = int32_t(rng());
    rawWrite(sp, dls[size_t(i)], fc("rand"), items, isShared ? kSharedFlag : 0, data);
  }
  return shape;
}

// True when the structures from a and b are the same graph: headers (but owner and kept flag),
// data, items, blob bytes and list lengths equal, and references corresponding one to one.
inline bool sameGraph(const fundra::ElementSpace* sp, int32_t a, int32_t b, std::string* why) {
  std::map<int32_t, int32_t> ab, ba;
  std::vector<std::pair<int32_t, int32_t>> todo{{a, b}};
  auto pair = [&](int32_t x, int32_t y) {
    auto i = ab.find(x);
    auto j = ba.find(y);
    if (i != ab.end() || j != ba.end()) return i != ab.end() && j != ba.end() && i->second == y;
    ab[x] = y;
    ba[y] = x;
    todo.push_back({x, y});
    return true;
  };
  ab[a] = b;
  ba[b] = a;
  while (!todo.empty()) {
    auto [x, y] = todo.back();
    todo.pop_back();
    DLView vx, vy;
    if (dlOpen(sp, x, &vx) != 0 || dlOpen(sp, y, &vy) != 0) return *why = "not a DL", false;
    if (vx.head->uType != vy.head->uType || vx.head->dataSize != vy.head->dataSize ||
        vx.head->count != vy.head->count ||
        (vx.head->flags & ~kKeptFlag) != (vy.head->flags & ~kKeptFlag) ||
        std::memcmp(vx.data, vy.data, size_t(vx.head->dataSize)) != 0)
      return *why = "header of " + std::to_string(x), false;
    for (int32_t i = 0; i < vx.head->count; ++i) {
      Item ix = vx.items[i], iy = vy.items[i];
      if (ix.key != iy.key || ix.kind != iy.kind || (ix.ref > 0) != (iy.ref > 0))
        return *why = "item " + std::to_string(i) + " of " + std::to_string(x), false;
      if (ix.ref <= 0) {
        if (ix.ref != iy.ref) return *why = "value in " + std::to_string(x), false;
        continue;
      }
      uint32_t t = typeOf(ix.kind);
      int32_t sx = sp->LmSize(ix.ref), sy = sp->LmSize(iy.ref);
      if (t == kBlob || t == kList || t == kWeakList) {
        if (sx != sy || ix.ref == iy.ref)
          return *why = "owned element in " + std::to_string(x), false;
        if (t == kBlob && std::memcmp(sp->LmGet(ix.ref), sp->LmGet(iy.ref), size_t(sx)) != 0)
          return *why = "blob bytes in " + std::to_string(x), false;
        if (t != kBlob)
          for (int32_t k = 0; k < sx / 4; ++k)
            if (!pair(reinterpret_cast<int32_t*>(sp->LmGet(ix.ref))[k],
                      reinterpret_cast<int32_t*>(sp->LmGet(iy.ref))[k]))
              return *why = "list element in " + std::to_string(x), false;
      } else if (!pair(ix.ref, iy.ref)) {
        return *why = "reference in " + std::to_string(x), false;
      }
    }
  }
  return true;
}

}  // namespace zt

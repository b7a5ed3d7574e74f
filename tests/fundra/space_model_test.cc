// The element space beside a plain model: random operations on both, compared after every step.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "platform/fundra/space.h"

namespace fundra {
namespace {

struct Model {
  std::map<int32_t, std::vector<uint8_t>> elements;
  std::set<int32_t> marked;
  int32_t Count() const { return elements.empty() ? 0 : elements.rbegin()->first; }
  int32_t NextNumber() const {
    for (int32_t n = 1;; ++n)
      if (!elements.count(n)) return n;
  }
};

std::string Compare(const ElementSpace& s, const Model& m) {
  if (s.LmCount() != m.Count())
    return "count " + std::to_string(s.LmCount()) + " vs " + std::to_string(m.Count());
  if (s.LmLiveCount() != int32_t(m.elements.size())) return "live count differs";
  for (int32_t n = 1; n <= m.Count() + 1; ++n) {
    auto it = m.elements.find(n);
    if (it == m.elements.end()) {
      if (s.LmTest(n) == 0) return "element " + std::to_string(n) + " should be free";
      continue;
    }
    if (s.LmSize(n) != int32_t(it->second.size())) return "size of " + std::to_string(n);
    if (!it->second.empty() && std::memcmp(s.LmGet(n), it->second.data(), it->second.size()))
      return "bytes of " + std::to_string(n);
    if (s.LmMarked(n) != int32_t(m.marked.count(n))) return "mark of " + std::to_string(n);
  }
  std::vector<std::string> faults = s.LmCheck();
  if (!faults.empty()) return faults.front();
  // The quick test looks again only at what changed since its last call: a change it was not
  // told of would leave its totals behind the table's.
  return s.LmValid() == 0 ? "" : "LmValid finds damage LmCheck does not";
}

int32_t RandomSize(std::mt19937& rng) {
  int kind = int(rng() % 10);
  return kind == 0 ? 0 : kind < 8 ? int32_t(rng() % 100) : int32_t(400 + rng() % 800);
}

// Runs `steps` random operations from `seed`; answers the first step whose comparison failed
// (with the reason), or -1.
int RunModel(uint32_t seed, int steps, std::string* why, std::vector<std::string>* log) {
  std::mt19937 rng(seed);
  ElementSpace s(64, kLmScrub);
  Model m;
  auto pick = [&]() -> int32_t { return int32_t(rng() % uint32_t(m.Count() + 3)); };
  for (int step = 0; step < steps; ++step) {
    int op = int(rng() % 12);
    int32_t n = pick(), size = RandomSize(rng);
    std::string what;
    bool live = m.elements.count(n) > 0;
    switch (op) {
      case 0:
      case 1: {
        int32_t want = m.NextNumber();
        what = "add " + std::to_string(size) + " -> " + std::to_string(want);
        if (s.LmAddAssert(size) != want) return *why = what + " got another number", step;
        m.elements[want].assign(size_t(size), 0);
        break;
      }
      case 2: {
        what = "set " + std::to_string(n) + " to " + std::to_string(size);
        if (s.LmSetAssert(n, size) != (n > 0 ? 0 : kLmBadNumber)) return *why = what, step;
        if (n > 0) m.elements[n].resize(size_t(size), 0);
        break;
      }
      case 3:
        what = "remove " + std::to_string(n);
        if ((s.LmRemove(n) == 0) != live) return *why = what, step;
        m.elements.erase(n);
        m.marked.erase(n);
        break;
      case 4: {
        what = "write " + std::to_string(n);
        if (live && !m.elements[n].empty()) {
          size_t at = rng() % m.elements[n].size();
          uint8_t v = uint8_t(rng());
          s.LmGet(n)[at] = v;
          m.elements[n][at] = v;
        }
        break;
      }
      case 5:
        what = "mark " + std::to_string(n);
        if (s.LmMark(n) != (live ? int32_t(m.marked.insert(n).second) : kLmNotLive) && n > 0)
          return *why = what, step;
        break;
      case 6:
        what = "unmark all";
        s.LmUnmark();
        m.marked.clear();
        break;
      case 7: {
        what = "collect";
        int32_t freed = 0;
        for (auto it = m.elements.begin(); it != m.elements.end();)
          if (!m.marked.count(it->first))
            it = m.elements.erase(it), ++freed;
          else
            ++it;
        if (s.LmCollect() != freed) return *why = what, step;
        break;
      }
      case 8: {
        int32_t b = pick();
        what = "swap " + std::to_string(n) + " " + std::to_string(b);
        bool ok = live && m.elements.count(b);
        if ((s.LmSwap(n, b) == 0) != ok) return *why = what, step;
        if (ok) std::swap(m.elements[n], m.elements[b]);
        break;
      }
      case 9:
        what = "compress";
        if (rng() % 4 == 0 && s.LmCompress() != 0) return *why = what, step;
        break;
      case 10: {
        int32_t want = m.NextNumber();
        what = "dupe " + std::to_string(n);
        int32_t got = s.LmDupeAssert(n);
        if (live ? got != want : got >= 0) return *why = what, step;
        if (live) m.elements[want] = m.elements[n];
        break;
      }
      case 11: {
        std::vector<int32_t> sizes(rng() % 6), numbers(sizes.size());
        std::vector<uint8_t*> at(sizes.size());
        for (int32_t& z : sizes) z = RandomSize(rng);
        what = "add " + std::to_string(sizes.size()) + " at once";
        if (s.LmAddMany(int32_t(sizes.size()), sizes.data(), numbers.data(), at.data()) != 0)
          return *why = what, step;
        for (size_t i = 0; i < sizes.size(); ++i) {
          int32_t want = m.NextNumber();
          if (numbers[i] != want) return *why = what + " got another number", step;
          std::vector<uint8_t>& e = m.elements[want];
          e.assign(size_t(sizes[i]), uint8_t(want));
          if (!e.empty()) std::memcpy(at[i], e.data(), e.size());
        }
        break;
      }
    }
    log->push_back(what);
    std::string diff = Compare(s, m);
    if (!diff.empty()) return *why = what + ": " + diff, step;
  }
  return -1;
}

TEST(ElementSpaceModel, RandomOperationsMatchAPlainMap) {
  uint32_t base = std::random_device{}();
  for (uint32_t round = 0; round < 20; ++round) {
    uint32_t seed = base + round;
    std::string why;
    std::vector<std::string> log;
    int failed = RunModel(seed, 1500, &why, &log);
    if (failed < 0) continue;
    // Operations come from the seed alone, so the first failing step ends the shortest run.
    std::string tail;
    for (size_t i = log.size() > 10 ? log.size() - 10 : 0; i < log.size(); ++i)
      tail += "\n  " + log[i];
    FAIL() << "seed " << seed << ": fails at step " << failed << ": " << why
           << "\nlast steps:" << tail;
  }
}

}  // namespace
}  // namespace fundra

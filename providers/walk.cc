// Walks of the tree: a subtree through the `_pk#` lists, a provider's links through the `_pl#`
// lists, and the parents above a provider. Each walk meets a provider at most once, so a store
// whose lists or parents loop (a damaged one, or one re-homed by hand) still ends every walk; the
// walks keep their own stacks, so a deep tree needs no deep recursion.
#include "providers/pro_class.h"

namespace zove {

namespace {

struct Frame {
  int32_t parent;
  std::vector<int32_t> children;
  size_t next = 0;
};

}  // namespace

std::vector<Visit> subtree(const Pro& m, int32_t p, Seen* shared, Entries entries) {
  p = m.orRoot(p);
  std::vector<Visit> out;
  std::vector<int32_t> top = listAll(m, statusOf(m, p), kPkKey);
  if (top.empty()) return out;
  Seen own;
  Seen& seen = shared ? *shared : own;
  seen.insert(p);
  std::vector<Frame> stack;
  stack.push_back({p, std::move(top)});
  while (!stack.empty()) {
    Frame& f = stack.back();
    if (f.next == f.children.size()) {
      stack.pop_back();
      continue;
    }
    int32_t child = f.children[f.next++];
    if (child <= 0 || seen.count(child)) continue;
    int32_t status = statusOf(m, child);
    if (entries == Entries::kPlaced && getHandle(m, status, kPpaKey) != f.parent) continue;
    seen.insert(child);
    out.push_back({f.parent, child, status});
    std::vector<int32_t> below = listAll(m, status, kPkKey);
    if (!below.empty()) stack.push_back({child, std::move(below)});
  }
  return out;
}

std::vector<int32_t> linksOf(const Pro& m, int32_t p, Seen* shared) {
  std::vector<int32_t> out;
  std::vector<int32_t> top = listAll(m, statusOf(m, p), kPlKey);
  if (top.empty()) return out;
  Seen own;
  Seen& seen = shared ? *shared : own;
  seen.insert(m.orRoot(p));
  std::vector<Frame> stack;
  stack.push_back({m.orRoot(p), std::move(top)});
  while (!stack.empty()) {
    Frame& f = stack.back();
    if (f.next == f.children.size()) {
      stack.pop_back();
      continue;
    }
    int32_t link = f.children[f.next++];
    if (link <= 0 || seen.count(link)) continue;
    int32_t status = statusOf(m, link);
    if (getPart(m, status, kPlkKey) != f.parent) continue;  // a leftover
    seen.insert(link);
    out.push_back(link);
    std::vector<int32_t> further = listAll(m, status, kPlKey);
    if (!further.empty()) stack.push_back({link, std::move(further)});
  }
  return out;
}

std::vector<int32_t> ancestors(const Pro& m, int32_t p, bool* looped) {
  std::vector<int32_t> out;
  Seen seen{m.orRoot(p)};
  if (looped) *looped = false;
  for (int32_t x = parentOf(m, p); x > 0 && !m.isRoot(x); x = parentOf(m, x)) {
    if (!seen.insert(x)) {
      if (looped) *looped = true;
      break;
    }
    out.push_back(x);
  }
  return out;
}

int32_t stepsUp(const Pro& m, int32_t p, int32_t a) {
  if (!statusOf(m, p)) return -1;
  if (m.isRoot(a)) a = 0;
  if (p == a || (a == 0 && m.isRoot(p))) return 0;
  bool looped = false;
  std::vector<int32_t> up = ancestors(m, p, &looped);
  for (size_t i = 0; i < up.size(); ++i)
    if (up[i] == a) return int32_t(i + 1);
  // The walk reached the top (PoGP answered 0) unless the parents loop.
  return a == 0 && !looped ? int32_t(up.size() + 1) : -1;
}

}  // namespace zove

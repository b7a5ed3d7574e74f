// Walks of the tree: a subtree through the `_pk#` lists, a provider's links through the `_pl#`
// lists, and the parents above a provider. Each walk meets a provider at most once, so a store
// whose lists or parents loop (a damaged one, or one re-homed by hand) still ends every walk; the
// walks keep their own stacks, so a deep tree needs no deep recursion.
#include "providers/pro_class.h"

namespace zove {

namespace {

// A list being walked: its entries where the store keeps them (a walk only reads, so nothing
// moves under it), or in `copies` when the store was asked for them.
struct Frame {
  int32_t parent;
  const int32_t* at;
  int32_t count;
  int32_t next;
};

// The walk's memory, kept between walks: a walk that runs while another is in progress (a
// listener's, during the events of a hide) takes memory of its own.
struct WalkMemory {
  std::vector<Frame> frames;
  std::vector<std::vector<int32_t>> copies;
  bool inUse = false;
};

class Lease {
 public:
  Lease() {
    static thread_local WalkMemory shared;
    mem_ = shared.inUse ? &own_ : &shared;
    mem_->inUse = true;
    mem_->frames.clear();
  }
  ~Lease() {
    mem_->copies.clear();
    mem_->inUse = false;
  }
  WalkMemory* operator->() const { return mem_; }

 private:
  WalkMemory own_;
  WalkMemory* mem_;
};

// The list under the key in dl, as a frame for the walk.
Frame frameOf(const Pro& m, Lease& mem, int32_t parent, int32_t dl, FourCC key) {
  std::vector<int32_t> all = listAll(m, dl, key);
  if (all.empty()) return {parent, nullptr, 0, 0};
  mem->copies.push_back(std::move(all));
  const std::vector<int32_t>& kept = mem->copies.back();
  return {parent, kept.data(), int32_t(kept.size()), 0};
}

// dl's reference and list for the walk: one look where the space opens dl, else the store's
// answers in the order the readers ask: the reference first (when it is tested at all), the list
// only when it is needed. refType 0: the reference is not tested.
template <class Wanted>
bool readStep(const Pro& m, Lease& mem, int32_t dl, FourCC refKey, uint32_t refType, FourCC listKey,
              int32_t owner, Wanted wanted, Frame* next) {
  int32_t ref = 0;
  ListView l;
  if (walkLook(m, dl, refKey, refType, listKey, &ref, &l)) {
    if (refType && !wanted(ref)) return false;
    *next = {owner, l.at, l.count, 0};
    return true;
  }
  if (refType) {
    ref = refType == kHandle ? getHandle(m, dl, refKey) : getPart(m, dl, refKey);
    if (!wanted(ref)) return false;
  }
  *next = frameOf(m, mem, owner, dl, listKey);
  return true;
}

// The list under the key in dl, as the walk's first frame.
Frame topFrame(const Pro& m, Lease& mem, int32_t owner, int32_t dl, FourCC key) {
  Frame top;
  readStep(
      m, mem, dl, 0, 0, key, owner, [](int32_t) { return true; }, &top);
  return top;
}

}  // namespace

void subtree(const Pro& m, int32_t p, Seen* shared, Entries entries, std::vector<Visit>* out) {
  p = m.orRoot(p);
  out->clear();
  Lease mem;
  Frame top = topFrame(m, mem, p, statusOf(m, p), kPkKey);
  if (top.count == 0) return;
  Seen own;
  Seen& seen = shared ? *shared : own;
  seen.insert(p);
  mem->frames.push_back(top);
  while (!mem->frames.empty()) {
    Frame& f = mem->frames.back();
    if (f.next == f.count) {
      mem->frames.pop_back();
      continue;
    }
    int32_t child = f.at[f.next++];
    int32_t parent = f.parent;
    if (child <= 0 || seen.count(child)) continue;
    int32_t childStatus = statusOf(m, child);
    Frame below;
    uint32_t tested = entries == Entries::kPlaced ? uint32_t(kHandle) : 0;
    if (!readStep(
            m, mem, childStatus, kPpaKey, tested, kPkKey, child,
            [&](int32_t placed) { return placed == parent; }, &below))
      continue;
    seen.insert(child);
    out->push_back({parent, child, childStatus});
    if (below.count != 0) mem->frames.push_back(below);  // f is not to be used after this
  }
}

std::vector<Visit> subtree(const Pro& m, int32_t p, Seen* shared, Entries entries) {
  std::vector<Visit> out;
  subtree(m, p, shared, entries, &out);
  return out;
}

std::vector<int32_t> linksOf(const Pro& m, int32_t p, Seen* shared) {
  std::vector<int32_t> out;
  Lease mem;
  Frame top = topFrame(m, mem, m.orRoot(p), statusOf(m, p), kPlKey);
  if (top.count == 0) return out;
  Seen own;
  Seen& seen = shared ? *shared : own;
  seen.insert(m.orRoot(p));
  mem->frames.push_back(top);
  while (!mem->frames.empty()) {
    Frame& f = mem->frames.back();
    if (f.next == f.count) {
      mem->frames.pop_back();
      continue;
    }
    int32_t link = f.at[f.next++];
    int32_t target = f.parent;
    if (link <= 0 || seen.count(link)) continue;
    int32_t status = statusOf(m, link);
    Frame further;
    if (!readStep(
            m, mem, status, kPlkKey, kPartLink, kPlKey, link,
            [&](int32_t t) { return t == target; }, &further))
      continue;  // a leftover
    seen.insert(link);
    out.push_back(link);
    if (further.count != 0) mem->frames.push_back(further);
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

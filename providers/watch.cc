// The tree watch's mirror (watch.h has its rules). Children are kept in an intrusive list per
// parent, so adding, removing and moving a provider cost the same however many siblings it has,
// and removing a subtree costs its size.
#include "providers/watch.h"

#include <algorithm>

#include "zove/providers.h"

namespace zove {

TreeMirror::Node* TreeMirror::Nodes::find(int32_t p) {
  if (p >= 0 && size_t(p) < dense_.size())
    return present_[size_t(p)] ? &dense_[size_t(p)] : nullptr;
  auto it = far_.find(p);
  return it == far_.end() ? nullptr : &it->second;
}

TreeMirror::Node& TreeMirror::Nodes::add(int32_t p) {
  size_t n = dense_.size();
  if (p >= 0 && size_t(p) >= n && size_t(p) <= 2 * n + 4096) {
    dense_.resize(std::max(size_t(p) + 1, 2 * n));
    present_.resize(dense_.size());
  }
  if (p >= 0 && size_t(p) < dense_.size()) {
    present_[size_t(p)] = true;
    return dense_[size_t(p)] = Node{};
  }
  return far_[p] = Node{};
}

void TreeMirror::Nodes::clear() {
  dense_.clear();
  present_.clear();
  far_.clear();
}

void TreeMirror::reset(int32_t root) {
  root_ = root;
  nodes_.clear();
  nodes_.add(0).parent = 0;
  dropped_.clear();
}

void TreeMirror::seed(int32_t parent, int32_t p) {
  parent = norm(parent);
  p = norm(p);
  if (p != 0 && shown(parent) && !shown(p)) link(parent, p);
}

bool TreeMirror::shown(int32_t p) const { return parentOf(p) >= 0; }

int32_t TreeMirror::parentOf(int32_t p) const {
  const Node* n = nodes_.find(norm(p));
  return n ? n->parent : -1;
}

// Adds p (or moves it, keeping its children) as the parent's last child. Both exist after it.
void TreeMirror::link(int32_t parent, int32_t p) {
  if (!nodes_.find(p)) nodes_.add(p);
  int32_t last = nodes_.find(parent)->last;
  Node* n = nodes_.find(p);
  n->parent = parent;
  n->next = 0;
  n->prev = last;
  if (last)
    nodes_.find(last)->next = p;
  else
    nodes_.find(parent)->first = p;
  nodes_.find(parent)->last = p;
}

void TreeMirror::unlink(int32_t p) {
  Node n = *nodes_.find(p);
  Node* par = nodes_.find(n.parent);
  if (n.prev)
    nodes_.find(n.prev)->next = n.next;
  else
    par->first = n.next;
  if (n.next)
    nodes_.find(n.next)->prev = n.prev;
  else
    par->last = n.prev;
  Node* self = nodes_.find(p);
  self->prev = self->next = 0;
}

std::vector<int32_t> TreeMirror::below(int32_t p) const {
  std::vector<int32_t> out{p};
  for (size_t i = 0; i < out.size(); ++i)
    for (int32_t c = nodes_.find(out[i])->first; c; c = nodes_.find(c)->next) out.push_back(c);
  return out;
}

bool TreeMirror::bracketAbove(int32_t p) const {
  for (int32_t x = parentOf(p); x > 0; x = parentOf(x))
    if (open_.count(x)) return true;
  return false;
}

void TreeMirror::report(zelkor::FourCC sel, std::initializer_list<int32_t> args,
                        const std::string& what) {
  std::string line = zelkor::fcString(sel);
  for (int32_t a : args) line += " " + std::to_string(a);
  reports_.push_back(line + ": " + what);
}

void TreeMirror::apply(zelkor::FourCC sel, int32_t a, int32_t b, int32_t c) {
  applyOne(sel, a, b, c);
  if (sel != kPoXD) dropped_.clear();  // any other event ends a run of PoXD events
}

void TreeMirror::applyOne(zelkor::FourCC sel, int32_t a, int32_t b, int32_t c) {
  // The words as a report names them (made only for a report).
  auto pa = [&] { return std::to_string(norm(a)); };
  auto pb = [&] { return std::to_string(norm(b)); };
  if (sel == kPoXA) {
    int32_t parent = norm(a), p = norm(b);
    if (p == 0) {
      report(sel, {a, b}, "the root is always shown");
    } else if (shown(p)) {
      report(sel, {a, b}, pb() + " is shown already, under " + std::to_string(parentOf(p)));
    } else if (!shown(parent)) {
      report(sel, {a, b}, "its parent " + pa() + " is not shown");
    } else {
      link(parent, p);
      if (p > 0) dropped_.erase(p);
    }
  } else if (sel == kPoXD) {
    int32_t parent = norm(a), p = norm(b);
    if (p == 0) {
      report(sel, {a, b}, "the root is always shown");
    } else if (shown(p)) {
      if (parentOf(p) != parent)
        report(sel, {a, b}, pb() + " is shown under " + std::to_string(parentOf(p)));
      unlink(p);
      for (int32_t x : below(p)) {
        *nodes_.find(x) = Node{};  // not shown: parent -1
        if (x > 0) dropped_.insert(x);
      }
    } else if (p > 0 && !dropped_.empty()) {
      dropped_.insert(p);  // announced by a hide in progress: nothing to apply
    } else {
      report(sel, {a, b}, pb() + " is not shown");
    }
  } else if (sel == kPoXM) {
    int32_t p = norm(b);
    if (p != 0 && shown(p) && parentOf(p) != norm(a))
      report(sel, {a, b}, pb() + " is shown under " + std::to_string(parentOf(p)));
  } else if (sel == kPoXP) {
    int32_t gp = norm(a), parent = norm(b);
    if (!shown(parent)) {
      // The PoXP that ends a hide names the parent even when it went in the hide (a parent that
      // is also a link to the provider hidden).
      if (parent <= 0 || !dropped_.count(parent)) report(sel, {a, b}, pb() + " is not shown");
    } else if (parent != 0 && parentOf(parent) != gp)
      report(sel, {a, b}, pb() + " is shown under " + std::to_string(parentOf(parent)));
    else if (parent == 0 && gp != 0)
      report(sel, {a, b}, "the root has no parent");
  } else if (sel == kPoXT) {
    int32_t to = norm(a), p = norm(b), from = norm(c);
    if (p == 0 || !shown(p)) {
      report(sel, {a, b, c}, pb() + " is not shown");
    } else if (parentOf(p) != from) {
      report(sel, {a, b, c}, pb() + " is shown under " + std::to_string(parentOf(p)));
    } else if (!shown(to)) {
      report(sel, {a, b, c}, "the new parent " + pa() + " is not shown");
    } else {
      bool inside = false;
      for (int32_t x = to; x > 0; x = parentOf(x)) inside = inside || x == p;
      if (inside) {
        report(sel, {a, b, c}, pa() + " is " + pb() + " or below it");
      } else {
        unlink(p);
        link(to, p);
      }
    }
  } else if (sel == kPoXU) {
    int32_t p = norm(a);
    if (b != 0) {
      if (open_.count(p) && !bracketAbove(p))
        report(sel, {a, b}, "the bracket on " + pa() + " is open already");
      open_.insert(p);
      closedAbove_.erase(p);
    } else if (open_.erase(p)) {
      for (int32_t x : std::vector<int32_t>(open_.begin(), open_.end())) {
        bool under = false;
        for (int32_t y = parentOf(x); y > 0 && !under; y = parentOf(y)) under = y == p;
        if (under) {
          open_.erase(x);
          closedAbove_.insert(x);
        }
      }
    } else if (!closedAbove_.erase(p)) {
      report(sel, {a, b}, "no bracket on " + pa() + " is open");
    }
  }
}

std::vector<int32_t> TreeMirror::shownProviders() const {
  std::vector<int32_t> out = below(0);
  out.erase(out.begin());
  return out;
}

std::vector<int32_t> TreeMirror::openBrackets() const {
  return std::vector<int32_t>(open_.begin(), open_.end());
}

std::vector<std::string> TreeMirror::takeReports() { return std::exchange(reports_, {}); }

std::string TreeMirror::dump() const {
  std::string out;
  std::vector<std::pair<int32_t, int>> stack;
  for (int32_t c = nodes_.find(0)->last; c; c = nodes_.find(c)->prev) stack.push_back({c, 0});
  while (!stack.empty()) {
    auto [p, depth] = stack.back();
    stack.pop_back();
    out += std::string(size_t(depth) * 2, ' ') + std::to_string(p) + "\n";
    for (int32_t c = nodes_.find(p)->last; c; c = nodes_.find(c)->prev)
      stack.push_back({c, depth + 1});
  }
  return out;
}

}  // namespace zove

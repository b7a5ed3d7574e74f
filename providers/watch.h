// The tree watch's mirror: the shown tree as a view builds it from the manager's events alone,
// and the rules a view needs the events to keep.
//
// Rules (an event that breaks one is reported, and applied only where a view could):
//   W1. PoXA (parent, p): p is not shown, and the parent is (the root always is). p is added as
//       the parent's last child.
//   W2. PoXD (parent, p): p is shown under that parent; it goes with its whole subtree. A hide
//       announces every provider it visits, shown or not (the links, the subtree, their links), so
//       inside a run of PoXD events that removed a shown provider, a PoXD for a provider not shown
//       has nothing to apply and is accepted. A PoXD for a provider not shown that starts a run
//       is reported: no hide is in progress, and a view has nothing to remove.
//   W3. PoXM (parent, p): a shown p is shown under that parent. A p not shown is ignored.
//   W4. PoXP (grandparent, parent): the parent is shown (0 and the root's DL both name the root)
//       under that grandparent; the PoXP that ends a hide may name a parent that went in it (a
//       parent that is also a link to the provider hidden).
//   W5. PoXT (new, p, old): p is shown under old, new is shown and not p or below p. p becomes
//       new's last child.
//   W6. PoXU (p, 1): p's bracket is not open, unless a bracket above p (in the mirror) is: a
//       bracket that closed while one above it was open closes without an event. PoXU (p, 0): p's
//       bracket is open, or one above it closed since p's opened (its close was then silent or
//       is still to come). A bracket open when the caller is done is reported by the comparison.
//   W7. The store's XTSD: only the root is shown.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "platform/zelkor/word.h"
#include "providers/seen.h"

namespace zove {

class TreeMirror {
 public:
  explicit TreeMirror(int32_t root) { reset(root); }

  // Only the root shown (W7); the root's DL number may change (a manager attached later).
  void reset(int32_t root);
  int32_t root() const { return root_; }
  // Adds p as the parent's last child without any rule: the tree shown when the watch began.
  void seed(int32_t parent, int32_t p);
  // Applies one event of the manager (its words after the manager).
  void apply(zelkor::FourCC sel, int32_t a, int32_t b, int32_t c);

  bool shown(int32_t p) const;
  // The mirror's parent of a shown p (0 for the root), or -1 when p is not shown.
  int32_t parentOf(int32_t p) const;
  // Every shown provider but the root, parents before children, children in mirror order.
  std::vector<int32_t> shownProviders() const;
  std::vector<int32_t> openBrackets() const;
  // The reports since the last call, one line each.
  std::vector<std::string> takeReports();
  // One shown provider a line, indented two spaces per level, children in mirror order.
  std::string dump() const;

 private:
  struct Node {
    int32_t parent = -1;
    int32_t first = 0, last = 0;  // children
    int32_t prev = 0, next = 0;   // siblings
  };
  // The nodes by DL number (0 the root). DL numbers are element numbers, dense from 1, and a
  // view meets them in runs, so the nodes lie in an array by number (which keeps neighbours
  // together); a number far beyond every one met so far (an event with a word that is no DL) goes
  // to a map instead, so that it cannot make the array huge. A provider once shown keeps its
  // node; parent -1 marks it as not shown.
  class Nodes {
   public:
    Node* find(int32_t p);
    const Node* find(int32_t p) const { return const_cast<Nodes*>(this)->find(p); }
    Node& add(int32_t p);  // p must not be there
    void clear();

   private:
    std::vector<Node> dense_;
    std::vector<bool> present_;
    std::unordered_map<int32_t, Node> far_;
  };
  int32_t norm(int32_t p) const { return p == root_ ? 0 : p; }
  void link(int32_t parent, int32_t p);
  void unlink(int32_t p);
  // p and every provider below it in the mirror, p first.
  std::vector<int32_t> below(int32_t p) const;
  bool bracketAbove(int32_t p) const;
  void report(zelkor::FourCC sel, std::initializer_list<int32_t> args, const std::string& what);
  void applyOne(zelkor::FourCC sel, int32_t a, int32_t b, int32_t c);

  int32_t root_ = 0;
  Nodes nodes_;                              // the providers shown now or before; 0 is the root
  Seen dropped_;                             // gone in the current run of PoXD events
  std::unordered_set<int32_t> open_;         // brackets open
  std::unordered_set<int32_t> closedAbove_;  // open when a bracket above them closed
  std::vector<std::string> reports_;
};

}  // namespace zove

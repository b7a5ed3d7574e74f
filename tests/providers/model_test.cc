// The provider tree beside a plain model: random sequences of new providers, shows, hides, moves,
// links made and retargeted, required parents set, placements forgotten (PmUA) and providers
// forgotten (PFog: hidden, then every reference cut), each applied to the manager and to the
// model, which is then compared with the store after every step (records, parents, the order of
// children, the links, required parents, depths) while a tree watch checks every event.
//
// The model follows the algorithms on maps and vectors, and the store's cut (TSDR) as the store
// does it: lists and handles naming the provider lose it, and a status record that names it by a
// part link (a link's target, a required parent) is cut with it.
//
// A failure prints the seed, the step and the operations up to it. ZOVE_PROVIDER_SEED=n runs one
// seed alone.
#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "tests/providers/pro_fixture.h"

namespace zt {
namespace {

struct Node {
  bool status = false;
  int32_t ppa = 0, plk = 0, rpa = 0, depth = -1;
  std::vector<int32_t> kids, links;
};

enum class Shown { kNow, kAlready, kNot };

void eraseAll(std::vector<int32_t>& v, int32_t x) { std::erase(v, x); }

class Model {
 public:
  explicit Model(int32_t root) : root_(root) {
    Node& r = n_[root];
    r.status = true;
    r.depth = 0;
  }
  std::map<int32_t, Node>& nodes() { return n_; }
  int32_t root() const { return root_; }
  bool status(int32_t p) const { return n_.count(p) && n_.at(p).status; }
  Node& st(int32_t p) {
    Node& x = n_[p];
    if (!x.status) x = Node{true, 0, 0, 0, -1, {}, {}};
    return x;
  }
  const Node* node(int32_t p) const { return status(p) ? &n_.at(p) : nullptr; }
  int32_t ppa(int32_t p) const { return status(p) ? n_.at(p).ppa : 0; }
  // A link is a leaf: hiding a target hides its links, not what lies below them, so the
  // sequences keep children away from links (docs/providers.md).
  bool link(int32_t p) const { return status(p) && n_.at(p).plk != 0; }
  bool shown(int32_t p) const { return p == 0 || p == root_ || (status(p) && n_.at(p).depth >= 0); }
  // The assertions the algorithms make, "provider:662", since the last call.
  std::vector<std::string> takeAsserts() { return std::exchange(asserts_, {}); }

  int32_t stepsUp(int32_t x, int32_t a) const {
    if (!status(x)) return -1;
    if (a == root_) a = 0;
    if (x == a || (a == 0 && x == root_)) return 0;
    std::vector<int32_t> up;
    std::set<int32_t> seen{x};
    bool looped = false;
    for (int32_t y = ppa(x); y > 0 && y != root_; y = ppa(y)) {
      if (!seen.insert(y).second) {
        looped = true;
        break;
      }
      up.push_back(y);
    }
    for (size_t i = 0; i < up.size(); ++i)
      if (up[i] == a) return int32_t(i + 1);
    return a == 0 && !looped ? int32_t(up.size() + 1) : -1;
  }

  // (walk parent, provider), each child before its own, each once.
  std::vector<std::pair<int32_t, int32_t>> subtree(int32_t p, std::set<int32_t>& seen) const {
    std::vector<std::pair<int32_t, int32_t>> out;
    if (!status(p) || n_.at(p).kids.empty()) return out;
    seen.insert(p);
    walkKids(p, seen, out);
    return out;
  }
  std::vector<int32_t> linksOf(int32_t p, std::set<int32_t>& seen) const {
    std::vector<int32_t> out;
    if (!status(p) || n_.at(p).links.empty()) return out;
    seen.insert(p);
    walkLinks(p, seen, out);
    return out;
  }

  // The links the link maker made: its PGAb asks the manager for PGAb of the provider one step
  // on (PRvL with limit 1), which makes that one a record when it has none.
  std::set<int32_t>& madeLinks() { return madeLinks_; }
  void computeAbilities(int32_t p) {
    if (!madeLinks_.count(p)) return;
    st(status(p) && n_[p].plk ? n_[p].plk : p);
  }

  Shown show(int32_t given, int32_t p, std::set<int32_t>& waiting, bool compute = true) {
    st(p);
    if (n_[p].depth >= 0) return Shown::kAlready;
    if (compute) computeAbilities(p);
    Node& x = n_[p];
    int32_t par = x.ppa;
    if (!par) {
      int32_t q = given ? given : root_;
      if (q != root_ && (q == p || stepsUp(q, p) >= 0)) return Shown::kNot;
      st(q).kids.push_back(p);
      n_[p].ppa = q;
      par = q;
    }
    if (par == root_) {
      n_[p].depth = 1;
    } else if (shownRecord(par)) {
      n_[p].depth = n_[par].depth + 1;
    } else if (waiting.count(par) || par == p) {
      return Shown::kNot;
    } else {
      if (!ppa(par)) asserts_.push_back("provider:662");
      waiting.insert(p);
      show(0, par, waiting);
      waiting.erase(p);
      if (shownRecord(p)) return Shown::kNow;  // shown meanwhile, as a link
      if (!shownRecord(par)) return Shown::kNot;
      n_[p].depth = n_[par].depth + 1;
    }
    for (size_t i = 0; i < n_[p].links.size(); ++i) {
      int32_t l = n_[p].links[i];
      if (status(l) && n_[l].plk == p) show(0, l, waiting, false);
    }
    return Shown::kNow;
  }
  void show(int32_t given, int32_t p) {
    std::set<int32_t> waiting;
    show(given, p, waiting);
  }
  // PmSh: a provider shown already has its abilities asked for again.
  void showAgain(int32_t given, int32_t p) {
    std::set<int32_t> waiting;
    if (show(given, p, waiting) == Shown::kAlready) computeAbilities(p);
  }

  void hide(int32_t p) {
    if (p == root_ || !status(p) || n_[p].depth < 0) return;
    n_[p].depth = -1;
    std::set<int32_t> seen{p};
    for (int32_t l : linksOf(p, seen)) hideOne(l);
    std::set<int32_t> below = seen;
    for (auto [parent, v] : subtree(p, below)) {
      if (!seen.insert(v).second) continue;
      hideOne(v);
      if (status(v) && !n_[v].links.empty())
        for (int32_t l : linksOf(v, seen)) hideOne(l);
    }
  }

  void unplaceAll(int32_t p) {
    std::set<int32_t> seen;
    for (auto [parent, v] : subtree(p, seen)) {
      if (!status(v)) continue;
      if (n_[v].depth >= 0) n_[v].depth = -1;
      n_[v].ppa = 0;
    }
    if (status(p)) n_[p].kids.clear();
  }

  int32_t checkRequired(int32_t x, int32_t p, int32_t q) const {
    int32_t r = status(x) ? n_.at(x).rpa : 0;
    if (!r || q == r || stepsUp(q, r) >= 0 || r == p || stepsUp(r, p) >= 0) return 0;
    return kRequiredParentLeft;
  }

  int32_t move(int32_t given, int32_t p) {
    if (!ppa(p)) {
      show(given, p);
      return 0;
    }
    int32_t q = given ? given : root_;
    int32_t old = n_[p].ppa;
    if (old == q) return 0;
    if (q == p || stepsUp(q, p) >= 0) return kMoveBelowSelf;
    if (int32_t r = checkRequired(p, p, q)) return r;
    std::set<int32_t> seen;
    for (auto [parent, v] : subtree(p, seen))
      if (int32_t r = checkRequired(v, p, q)) return r;
    if (status(old)) eraseAll(n_[old].kids, p);
    n_[p].ppa = q;
    st(q).kids.push_back(p);
    if (n_[p].depth >= 0) {
      int32_t depth = (q == root_ ? 0 : n_[q].depth) + 1;
      int32_t shift = depth - n_[p].depth;
      n_[p].depth = depth;
      std::set<int32_t> again;
      if (shift != 0)
        for (auto [parent, v] : subtree(p, again))
          if (status(v) && n_[v].depth >= 0) n_[v].depth += shift;
    }
    return 0;
  }

  int32_t setRequired(int32_t p, int32_t r) {
    if (r != 0 && r != root_) {
      if (stepsUp(p, r) < 0) return kRequiredParentLeft;
      n_[p].rpa = r;
      return 0;
    }
    if (status(p)) n_[p].rpa = 0;
    return 0;
  }

  int32_t showRequired(int32_t r, int32_t p) {
    if (r != 0 && status(p) && stepsUp(p, r) <= 0) {
      if (shown(p)) {
        setRequired(p, 0);
        if (int32_t moved = move(r, p)) return moved;
        return setRequired(p, r);
      }
      if (int32_t old = n_[p].ppa) {
        n_[p].ppa = 0;
        if (status(old)) eraseAll(n_[old].kids, p);
      }
    }
    showAgain(r, p);
    return setRequired(p, r);
  }

  void setLink(int32_t link, int32_t target) {
    Node& l = st(link);
    st(target);
    if (l.plk && status(l.plk)) eraseAll(n_[l.plk].links, link);
    n_[link].plk = target;
    n_[target].links.push_back(link);
  }

  // PLnk without link folders: the parent's first child linking to the target, or the new link.
  int32_t linkFound(int32_t parent, int32_t target) const {
    if (!status(parent)) return 0;
    for (int32_t ch : n_.at(parent).kids)
      if (status(ch) && n_.at(ch).plk == target) return ch;
    return 0;
  }
  void linkMade(int32_t parent, int32_t target, int32_t link) {
    n_.erase(link);  // a number used before (and collected) names a new DL
    madeLinks_.insert(link);
    setLink(link, target);
    showRequired(parent, link);
  }

  // The store's TSDR: lists and handles naming the target lose it; a record naming it by a part
  // link is cut with it.
  void cut(int32_t target) {
    std::vector<int32_t> lose;
    for (auto& [y, node] : n_) {
      if (!node.status || y == target) continue;
      eraseAll(node.kids, target);
      eraseAll(node.links, target);
      if (node.ppa == target) node.ppa = 0;
      if (node.plk == target || node.rpa == target) lose.push_back(y);
    }
    for (int32_t y : lose) n_[y] = Node{};
    n_.erase(target);
  }
  // The providers whose records a cut of the target would take.
  std::vector<int32_t> cutWith(int32_t target) const {
    std::vector<int32_t> out;
    for (const auto& [y, node] : n_)
      if (node.status && y != target && (node.plk == target || node.rpa == target))
        out.push_back(y);
    return out;
  }

 private:
  bool shownRecord(int32_t p) const { return status(p) && n_.at(p).depth >= 0; }
  void hideOne(int32_t p) {
    if (status(p)) n_[p].depth = -1;
  }
  void walkKids(int32_t p, std::set<int32_t>& seen,
                std::vector<std::pair<int32_t, int32_t>>& out) const {
    if (!status(p)) return;
    for (int32_t c : n_.at(p).kids) {
      // A leftover entry (placed elsewhere, or nowhere) is not in this subtree.
      if (c <= 0 || seen.count(c) || ppa(c) != p) continue;
      seen.insert(c);
      out.push_back({p, c});
      walkKids(c, seen, out);
    }
  }
  void walkLinks(int32_t p, std::set<int32_t>& seen, std::vector<int32_t>& out) const {
    if (!status(p)) return;
    for (int32_t l : n_.at(p).links) {
      if (l <= 0 || seen.count(l) || !status(l) || n_.at(l).plk != p) continue;  // leftovers
      seen.insert(l);
      out.push_back(l);
      walkLinks(l, seen, out);
    }
  }

  int32_t root_;
  std::map<int32_t, Node> n_;
  std::vector<std::string> asserts_;
  std::set<int32_t> madeLinks_;
};

class ModelRun : public ProTest {
 protected:
  void SetUp() override {
    ProTest::SetUp();
    useCompanions();
  }

  // One seeded sequence; false after the first difference (reported as a test failure).
  bool run(uint32_t seed, int steps);

 private:
  std::string compare(Model& model);

  std::vector<int32_t> live_;  // providers made and not forgotten
};

// The store against the model, provider by provider; "" when they agree.
std::string ModelRun::compare(Model& model) {
  std::ostringstream diff;
  auto both = [&](const char* what, int32_t p, auto store, auto expected) {
    if (store != expected) diff << what << " of " << p << " differs\n";
  };
  std::vector<int32_t> all = live_;
  all.push_back(model.root());
  for (int32_t p : all) {
    int32_t st = status(p);
    bool valid = st > 0 && S(store, kTSSD, st) == kStatusBytes;
    const Node* n = model.node(p);
    if (valid != (n != nullptr)) {
      diff << p << (valid ? " has a record, not in the model\n" : " has no record\n");
      continue;
    }
    if (!n) continue;
    both("_ppa", p, item(st, kPpaKey), n->ppa);
    both("_pk#", p, listOf(st, kPkKey), n->kids);
    both("_pl#", p, listOf(st, kPlKey), n->links);
    both("_plk", p, item(st, kPlkKey, kTSAG), n->plk);
    both("_rpa", p, item(st, kRpaKey, kTSAG), n->rpa);
    both("depth", p, depth(p), n->depth);
  }
  // The watch shows exactly what the model shows (a shown provider no list leads to included).
  std::set<int32_t> modelShown, watchShown;
  for (int32_t p : live_)
    if (model.node(p) && model.node(p)->depth >= 0) modelShown.insert(p);
  fundra::TString mirror;
  S(watch, kPwDm, &mirror);
  std::istringstream lines{std::string(mirror.View())};
  for (int32_t p; lines >> p;) watchShown.insert(p);
  if (modelShown != watchShown) diff << "the watch shows other providers than the model\n";
  for (const std::string& line : watchReports()) diff << "watch: " << line << "\n";
  for (const std::string& line : disagreements()) diff << "watch: " << line << "\n";
  std::vector<std::string> made = asserts(), expected = model.takeAsserts();
  if (made != expected)
    for (const std::string& line : made) diff << "assertion " << line << "\n";
  return diff.str();
}

bool ModelRun::run(uint32_t seed, int steps) {
  std::mt19937 rng(seed);
  Model model(root);
  live_.clear();
  std::vector<std::string> log;
  auto pick = [&](const std::vector<int32_t>& from) {
    return from[std::uniform_int_distribution<size_t>(0, from.size() - 1)(rng)];
  };
  auto chance = [&](int percent) { return int(rng() % 100) < percent; };
  for (int step = 0; step < steps; ++step) {
    std::ostringstream op;
    int kind = int(rng() % 100);
    if (live_.size() < 3 || (kind < 8 && live_.size() < 40)) {
      int32_t p = provider();
      model.nodes().erase(p);  // a number used before names a new DL
      model.madeLinks().erase(p);
      live_.push_back(p);
      op << "new " << p;
    } else if (kind < 30) {
      int32_t p = pick(live_), given = chance(30) ? 0 : pick(live_);
      if (model.link(given) && !model.ppa(p)) continue;
      op << "PmSh " << given << " " << p;
      S(manager, kPmSh, given, p);
      model.showAgain(given, p);
    } else if (kind < 44) {
      int32_t p = pick(live_);
      op << "PmHd " << p;
      S(manager, kPmHd, p);
      model.hide(p);
    } else if (kind < 56) {
      // A shown provider goes under a shown parent (a move under a hidden one sends a PoXT no
      // view can apply); an unplaced one is shown there.
      int32_t p = pick(live_), q = chance(25) ? 0 : pick(live_);
      if ((model.ppa(p) && !model.shown(p)) || (model.shown(p) && !model.shown(q)) || model.link(q))
        continue;
      op << "PMov " << q << " " << p;
      int32_t expected = model.move(q, p);
      EXPECT_EQ(S(manager, kPMov, q, p), expected) << op.str();
    } else if (kind < 64) {
      int32_t a = pick(live_), b = pick(live_);
      if (model.link(a)) continue;
      op << "PLnk " << a << " " << b;
      int32_t found = model.linkFound(a, b);
      int32_t link = i32(S(manager, kPLnk, a, b));
      if (found) {
        EXPECT_EQ(link, found) << op.str();
      } else {
        if (link <= 0) {
          ADD_FAILURE() << "seed " << seed << ": " << op.str() << " made no link";
          return false;
        }
        if (std::find(live_.begin(), live_.end(), link) == live_.end()) live_.push_back(link);
        model.linkMade(a, b, link);
        op << " made " << link;
      }
    } else if (kind < 71) {
      int32_t l = pick(live_), t = pick(live_);
      if (l == t || (model.status(l) && !model.node(l)->kids.empty())) continue;
      op << "PmSL " << l << " " << t;
      S(manager, kPmSL, l, t);
      model.setLink(l, t);
    } else if (kind < 83) {
      int32_t p = pick(live_), r = chance(20) ? 0 : pick(live_);
      if (r == p || (model.shown(p) && r && !model.shown(r) && model.stepsUp(p, r) <= 0) ||
          model.link(r))
        continue;
      if (chance(70)) {
        op << "PmSR " << r << " " << p;
        int32_t expected = model.showRequired(r, p);
        EXPECT_EQ(S(manager, kPmSR, r, p), expected) << op.str();
      } else {
        op << "PmRP " << p << " " << r;
        bool removes = r == 0 || r == model.root();
        int32_t expected = model.status(p) ? model.setRequired(p, r)
                           : removes       ? 0
                                           : kRequiredParentLeft;
        EXPECT_EQ(S(manager, kPmRP, p, r), expected) << op.str();
      }
    } else if (kind < 88) {
      int32_t p = chance(20) ? 0 : pick(live_);
      int32_t from = p ? p : model.root();
      op << "PmUA " << p;
      S(manager, kPmUA, p);
      model.unplaceAll(from);
    } else {
      // Forgetting (PFog: hide, then TSDR). A record cut with it must be a hidden provider's
      // without children: a shown one would leave the tree with no event, and children would
      // keep naming a parent whose new record does not list them, where a hide never reaches
      // them (docs/providers.md).
      int32_t p = pick(live_);
      Model after = model;
      after.hide(p);
      bool safe = true;
      for (int32_t y : after.cutWith(p))
        safe = safe && !after.shown(y) && after.node(y)->kids.empty();
      if (!safe) continue;
      op << "PFog " << p;
      S(manager, kPFog, p, 0);
      model.hide(p);
      model.cut(p);
      std::erase(live_, p);
    }
    log.push_back(op.str());
    std::vector<std::string> heard = events();
    controllers().heard.clear();
    std::string diff = compare(model);
    if (!diff.empty()) {
      std::ostringstream all;
      for (const std::string& line : log) all << "  " << line << "\n";
      std::ostringstream evs;
      for (const std::string& e : heard) evs << " " << e << ";";
      ADD_FAILURE() << "seed " << seed << ", step " << step << " (" << op.str()
                    << "): the store and the model differ:\n"
                    << diff << "the step's events:" << evs.str() << "\noperations:\n"
                    << all.str();
      return false;
    }
  }
  return true;
}

TEST_F(ModelRun, RandomSequencesKeepTheTreeTheModelKeeps) {
  if (const char* one = std::getenv("ZOVE_PROVIDER_SEED")) {
    run(uint32_t(std::strtoul(one, nullptr, 10)),
        std::getenv("ZOVE_PROVIDER_STEPS") ? std::atoi(std::getenv("ZOVE_PROVIDER_STEPS")) : 400);
    return;
  }
  for (uint32_t seed = 1; seed <= 30; ++seed) {
    if (!run(seed, 400)) break;
    // Each sequence starts afresh: a new store, manager, watch and companions.
    TearDown();
    SetUp();
  }
}

}  // namespace
}  // namespace zt

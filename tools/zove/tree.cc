// zove tree FILE [--json]: the provider tree a store file holds, as it lies in the file.
//
// The tree is read from the DLs, never through a manager: attaching one would mark every
// provider as not shown (being shown does not outlive an attachment; placement does). From the
// module DL of signature PRO1 (the root) the walk follows each provider's status DL (`_psp`) and
// its `_pk#` list, in the recorded order, and reports per provider: its uType, its abilities,
// where it is placed (`_ppa`), its link target (`_plk`), the links to it (`_pl#`), its required
// parent (`_rpa`) and its sort mark (`_pst`). A provider listed under a parent it does not name
// as its own is shown as listed there and not walked again; one met twice is walked once.
//
// The JSON form, for tools:
//   top level   file, root (null when the file has no PRO1 module), providers: [provider]
//   provider    dl, uType, name (its `Name` string, or null), listedUnder (the `_pk#` it was
//   reached through; null for the root),
//               parent (`_ppa`, null when not placed), status (its DL, or null), damaged (true
//               when the status DL is no 24-byte `Pro.` record), abilities, children, links,
//               target, requiredParent (null when none), sortMark
#include <cstdio>
#include <cstring>
#include <string>
#include <unordered_set>
#include <vector>

#include "platform/fundra/persist.h"
#include "platform/fundra/tstring.h"
#include "tools/zove/commands.h"
#include "tools/zove/storetool.h"
#include "zove/dl.h"
#include "zove/providers.h"

namespace zove::cli {

namespace {

// One provider as the file holds it.
struct Node {
  int32_t dl = 0;
  int32_t listedUnder = 0;  // 0 for the root
  int32_t depth = 0;        // in the walk
  uint32_t uType = 0;
  std::string name;  // its `Name` string, when it has one
  int32_t status = 0;
  bool damaged = false;
  uint32_t abilities = 0;
  int32_t parent = 0, target = 0, required = 0, sortMark = 0;
  std::vector<int32_t> children, links;
  bool walkedBefore = false;  // met again: not walked a second time
};

const Item* findItem(const fundra::ElementSpace* s, int32_t dl, uint32_t key, DLView* v) {
  if (dl <= 0 || dlOpen(s, dl, v) != 0) return nullptr;
  int32_t i = dlFind(*v, key);
  return i < 0 ? nullptr : &v->item(i);
}

int32_t refOf(const fundra::ElementSpace* s, int32_t dl, uint32_t key, uint32_t type) {
  DLView v;
  const Item* it = findItem(s, dl, key, &v);
  return it && it->ref > 0 && typeOf(it->kind) == type ? it->ref : 0;
}

std::vector<int32_t> listOf(const fundra::ElementSpace* s, int32_t dl, uint32_t key) {
  ListView l;
  int32_t n = refOf(s, dl, key, kList);
  if (!n || listOpen(s, n, &l) != 0) return {};
  return std::vector<int32_t>(l.at, l.at + l.count);
}

Node readNode(const fundra::ElementSpace* s, int32_t dl, int32_t listedUnder, int32_t depth) {
  Node n;
  n.dl = dl;
  n.listedUnder = listedUnder;
  n.depth = depth;
  DLView v;
  if (dlOpen(s, dl, &v) == 0) n.uType = v.head->uType;
  if (int32_t blob = refOf(s, dl, kNameKey, kBlob)) {
    fundra::TString text;
    int32_t size = s->LmSize(blob);
    if (size > 0 && text.Import(s->LmGet(blob), size) == size) n.name = std::string(text.View());
  }
  n.status = refOf(s, dl, kPspKey, kHandle);
  DLView sv;
  if (n.status && dlOpen(s, n.status, &sv) == 0 && sv.head->dataSize == kStatusBytes &&
      fundra::_checkpersist(sv.data, kStatusTag, kStatusVersion, kStatusVersion) == 0) {
    std::memcpy(&n.abilities, sv.data + kStatusAbilitiesOffset, 4);
  } else {
    n.damaged = n.status != 0;
  }
  if (!n.status) return n;
  n.parent = refOf(s, n.status, kPpaKey, kHandle);
  n.target = refOf(s, n.status, kPlkKey, kPartLink);
  n.required = refOf(s, n.status, kRpaKey, kPartLink);
  DLView pv;
  if (const Item* it = findItem(s, n.status, kPstKey, &pv); it && itemType(*it) == kImmediate)
    n.sortMark = int32_t(it->kind);
  n.children = listOf(s, n.status, kPkKey);
  n.links = listOf(s, n.status, kPlKey);
  return n;
}

// The providers in walk order: each child (in `_pk#` order) before its own children.
std::vector<Node> walk(const fundra::ElementSpace* s, int32_t root) {
  std::vector<Node> out;
  std::unordered_set<int32_t> seen{root};
  std::vector<Node> stack{readNode(s, root, 0, 0)};
  while (!stack.empty()) {
    Node n = std::move(stack.back());
    stack.pop_back();
    bool own = n.dl == root || n.parent == n.listedUnder;
    if (own && n.dl != root && !seen.insert(n.dl).second) n.walkedBefore = true;
    if (own && !n.walkedBefore)
      for (auto it = n.children.rbegin(); it != n.children.rend(); ++it)
        stack.push_back(readNode(s, *it, n.dl, n.depth + 1));
    out.push_back(std::move(n));
  }
  return out;
}

int32_t findRoot(const fundra::ElementSpace* s) {
  for (int32_t m : listOf(s, kRootDL, kModsKey)) {
    DLView v;
    if (dlOpen(s, m, &v) == 0 && v.head->uType == kProModuleSig) return m;
  }
  return 0;
}

std::string dlList(const std::vector<int32_t>& dls) {
  std::string out;
  for (int32_t d : dls) out += (out.empty() ? "" : ", ") + std::to_string(d);
  return out;
}

void printText(const std::string& path, int32_t root, const std::vector<Node>& nodes) {
  std::printf("provider tree of %s, root DL %d (PRO1)\n", path.c_str(), root);
  for (const Node& n : nodes) {
    std::string line(size_t(n.depth) * 2, ' ');
    line += "DL " + std::to_string(n.dl) + " " + fourccName(n.uType);
    if (!n.name.empty()) line += " \"" + n.name + "\"";
    if (n.dl != root && n.parent != n.listedUnder) {
      line += n.parent ? "  (listed here, placed under DL " + std::to_string(n.parent) + ")"
                       : "  (listed here, not placed)";
      std::printf("%s\n", line.c_str());
      continue;
    }
    if (n.walkedBefore) {
      std::printf("%s  (met before)\n", line.c_str());
      continue;
    }
    char ab[16];
    std::snprintf(ab, sizeof ab, "0x%08x", n.abilities);
    line += !n.status   ? "  (no status record)"
            : n.damaged ? "  (status record damaged)"
                        : std::string("  abilities ") + ab;
    if (n.target) line += "  link to DL " + std::to_string(n.target);
    if (!n.links.empty()) line += "  linked from DL " + dlList(n.links);
    if (n.required) line += "  required parent DL " + std::to_string(n.required);
    if (n.sortMark) line += "  sorted in mode " + std::to_string(n.sortMark);
    std::printf("%s\n", line.c_str());
  }
}

std::string jsonRef(int32_t dl) { return dl ? std::to_string(dl) : "null"; }

void printJson(const std::string& path, int32_t root, const std::vector<Node>& nodes) {
  std::printf("{\"file\": %s, \"root\": %s, \"providers\": [", jsonString(path).c_str(),
              jsonRef(root).c_str());
  for (size_t i = 0; i < nodes.size(); ++i) {
    const Node& n = nodes[i];
    std::printf(
        "%s\n  {\"dl\": %d, \"uType\": \"%s\", \"name\": %s, \"listedUnder\": %s, \"parent\": %s, "
        "\"status\": %s, "
        "\"damaged\": %s, \"abilities\": %u, \"children\": [%s], \"links\": [%s], \"target\": %s, "
        "\"requiredParent\": %s, \"sortMark\": %d}",
        i ? "," : "", n.dl, zelkor::fcString(n.uType).c_str(),
        n.name.empty() ? "null" : jsonString(n.name).c_str(),
        n.dl == root ? "null" : jsonRef(n.listedUnder).c_str(), jsonRef(n.parent).c_str(),
        jsonRef(n.status).c_str(), n.damaged ? "true" : "false", n.abilities,
        dlList(n.children).c_str(), dlList(n.links).c_str(), jsonRef(n.target).c_str(),
        jsonRef(n.required).c_str(), n.sortMark);
  }
  std::printf("\n]}\n");
}

}  // namespace

int cmdTree(int argc, char** argv) {
  const char* path = nullptr;
  bool json = false;
  for (int i = 0; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--json")) {
      json = true;
    } else if (!path && argv[i][0] != '-') {
      path = argv[i];
    } else {
      std::fprintf(stderr, "zove tree: '%s' is not an option\n", argv[i]);
      return 2;
    }
  }
  if (!path) {
    std::fprintf(stderr, "usage: zove tree FILE [--json]\n");
    return 2;
  }
  StoreFile f("tree", path);
  if (!f.open(false)) return 1;
  int32_t root = findRoot(f.space());
  if (!root) {
    if (json)
      std::printf("{\"file\": %s, \"root\": null, \"providers\": []}\n",
                  jsonString(f.path()).c_str());
    else
      std::printf("%s holds no provider tree (no module PRO1)\n", path);
    return 0;
  }
  std::vector<Node> nodes = walk(f.space(), root);
  if (json)
    printJson(f.path(), root, nodes);
  else
    printText(f.path(), root, nodes);
  return 0;
}

}  // namespace zove::cli

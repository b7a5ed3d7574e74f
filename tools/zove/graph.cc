// zove graph FILE [DL] [--depth N]: the DL graph as Graphviz dot.
//
// Drawing: a DL is a box naming its number and uType, with its values (immediates, blobs,
// records) listed inside; a shared DL (a stored object of its own) has a double border.
//   handle       solid arrow
//   part link    bold arrow starting at a diamond: the target is part of the DL
//   list         blue arrows labelled key[index]
//   weak handle, weak list   grey dashed arrows
// A DL at the depth limit whose references are not followed is drawn dotted.
#include <cstdio>
#include <cstring>
#include <string>

#include "tools/zove/commands.h"
#include "tools/zove/storetool.h"
#include "zove/dl.h"

namespace zove::cli {

namespace {

// A text inside a quoted dot label: quotes and backslashes escaped.
std::string dotText(const std::string& s) {
  std::string out;
  for (char c : s) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out;
}

std::string valueLine(const fundra::ElementSpace* s, const Item& it) {
  uint32_t type = itemType(it);
  std::string key = zelkor::fcString(it.key);
  if (type == kImmediate) return key + " = " + std::to_string(int32_t(it.kind));
  if (type == kVHandle) return key + ": record " + std::to_string(int32_t(it.kind));
  if (type == kBlob) return key + ": blob, " + std::to_string(s->LmSize(it.ref)) + " bytes";
  if (!isKnownRefType(type)) return key + ": " + kindName(type);
  return "";
}

void edge(int32_t from, int32_t to, const std::string& label, const char* style) {
  std::printf("  dl%d -> dl%d [label=\"%s\"%s];\n", from, to, dotText(label).c_str(), style);
}

void drawDL(const fundra::ElementSpace* s, int32_t dl, bool followed) {
  DLView v;
  if (dlOpen(s, dl, &v) != 0) {
    std::printf("  dl%d [label=\"DL %d\\n%s\", color=red];\n", dl, dl,
                s->LmTest(dl) == 0 ? "not a DL" : "no such element");
    return;
  }
  std::string label = "DL " + std::to_string(dl) + " " + dotText(fourccName(v.head->uType));
  for (int32_t i = 0; i < v.count(); ++i) {
    std::string line = valueLine(s, v.item(i));
    if (!line.empty()) label += "\\l" + dotText(line);
  }
  if (label.find("\\l") != std::string::npos) label += "\\l";
  std::printf("  dl%d [label=\"%s\"%s%s];\n", dl, label.c_str(),
              v.head->flags & kSharedFlag ? ", peripheries=2" : "",
              followed ? "" : ", style=dotted");
  if (!followed) return;
  for (int32_t i = 0; i < v.count(); ++i) {
    const Item& it = v.item(i);
    uint32_t type = itemType(it);
    std::string key = zelkor::fcString(it.key);
    if (type == kHandle) {
      edge(dl, it.ref, key, "");
    } else if (type == kPartLink) {
      edge(dl, it.ref, key, ", style=bold, dir=both, arrowtail=diamond");
    } else if (type == kWeakHandle) {
      edge(dl, it.ref, key, ", style=dashed, color=grey50");
    } else if (isListType(type)) {
      ListView l;
      if (listOpen(s, it.ref, &l) != 0) continue;
      const char* style = type == kList ? ", color=blue, fontcolor=blue"
                                        : ", style=dashed, color=grey50, fontcolor=grey50";
      for (int32_t k = 0; k < l.count; ++k)
        edge(dl, l.at[k], key + "[" + std::to_string(k) + "]", style);
    }
  }
}

}  // namespace

int cmdGraph(int argc, char** argv) {
  const char* path = nullptr;
  int32_t start = kRootDL, depth = -1;
  bool haveStart = false;
  for (int i = 0; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--depth")) {
      if (i + 1 >= argc || !parseInt(argv[i + 1], &depth) || depth < 0) {
        std::fprintf(stderr, "zove graph: --depth needs a number of at least 0\n");
        return 2;
      }
      ++i;
    } else if (!path && argv[i][0] != '-') {
      path = argv[i];
    } else if (path && !haveStart && parseInt(argv[i], &start) && start > 0) {
      haveStart = true;
    } else {
      std::fprintf(stderr, "usage: zove graph FILE [DL] [--depth N]\n");
      return 2;
    }
  }
  if (!path) {
    std::fprintf(stderr, "usage: zove graph FILE [DL] [--depth N]\n");
    return 2;
  }
  StoreFile f("graph", path);
  if (!f.open(false)) return 1;
  const fundra::ElementSpace* s = f.space();
  if (s->LmTest(start) != 0) {
    f.fail("DL " + std::to_string(start) + " does not exist");
    return 1;
  }
  std::vector<int32_t> depths;
  std::vector<int32_t> dls = reachableDLs(s, {start}, Edges::kAll, depth, &depths);
  std::printf(
      "digraph store {\n  node [shape=box, fontname=\"monospace\", fontsize=10];\n"
      "  edge [fontname=\"monospace\", fontsize=9];\n");
  for (size_t i = 0; i < dls.size(); ++i) drawDL(s, dls[i], depth < 0 || depths[i] < depth);
  std::printf("}\n");
  return 0;
}

}  // namespace zove::cli

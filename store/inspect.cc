// The store's invariant checker and its readable dumps.
#include "store/inspect.h"

#include <cinttypes>
#include <cstdio>
#include <map>
#include <set>

#include "store/engine.h"

namespace zove {

namespace {

std::string format(const char* fmt, auto... args) {
  char buf[256];
  std::snprintf(buf, sizeof buf, fmt, args...);
  return buf;
}

std::string code(uint32_t c) { return zelkor::fcString(c); }

// DLs reachable from DL 1 and the keep list, as the collector reaches them.
std::vector<int32_t> reachable(ZoveData* d) {
  std::vector<int32_t> starts{kRootDL};
  for (int32_t i = 0; i < d->keep.Count(); ++i) starts.push_back(d->keep.Get(i));
  std::vector<int32_t> live;
  for (int32_t dl : reachableDLs(d->space, starts, Edges::kOwning))
    if (d->space->LmTest(dl) == 0) live.push_back(dl);
  return live;
}

}  // namespace

std::vector<std::string> zoveCheckStore(zelkor::Object* store) {
  ZoveData* d = zoveData(store);
  std::vector<std::string> out;
  fundra::ElementSpace* s = d->space;
  if (!s) return {"S1: the store has no element space"};
  DLView root;
  if (dlOpen(s, kRootDL, &root) != 0 || root.head->uType != kRootType || root.head->owner != 0 ||
      root.head->dataSize < kRootDataBytes || dlFind(root, kModsKey) < 0 ||
      itemType(root.items[dlFind(root, kModsKey)]) != kList)
    out.push_back("S1: DL 1 is not a sound root");
  std::map<int32_t, int32_t> holder;  // owned element -> DL holding it
  for (int32_t dl : reachable(d)) {
    DLView v;
    if (dlOpen(s, dl, &v) != 0) {
      out.push_back(format("S2: DL %d is too short for its header", dl));
      continue;
    }
    if (!isPrintableCode(v.head->uType)) out.push_back(format("S2: DL %d uType bad", dl));
    for (int32_t i = 0; i < v.count(); ++i) {
      const Item& it = v.items[i];
      uint32_t type = itemType(it);
      if (!isPrintableCode(it.key)) out.push_back(format("S2: DL %d item %d key bad", dl, i));
      if (i > 0 && int32_t(v.items[i - 1].key) > int32_t(it.key))
        out.push_back(format("S2: DL %d items %d and %d out of order", dl, i - 1, i));
      if (it.ref > 0 ? !isKnownRefType(type) : type != kImmediate && type != kVHandle) {
        out.push_back(format("S2: DL %d item '%s' kind 0x%08x unknown", dl, code(it.key).c_str(),
                             it.ref > 0 ? it.kind : uint32_t(it.ref)));
        continue;
      }
      if (ownsReferent(it)) {
        if (s->LmTest(it.ref) != 0)
          out.push_back(format("S3: DL %d item '%s' owns %d, which is not live", dl,
                               code(it.key).c_str(), it.ref));
        auto [at, fresh] = holder.emplace(it.ref, dl);
        if (!fresh)
          out.push_back(
              format("S3: element %d is held by DL %d and DL %d", it.ref, at->second, dl));
      }
      auto notDL = [&](int32_t n) {
        DLView t;
        return dlOpen(s, n, &t) != 0;
      };
      if ((type == kHandle || type == kPartLink) && it.ref > 0 && notDL(it.ref))
        out.push_back(format("S4: DL %d item '%s' names %d, which is not a DL", dl,
                             code(it.key).c_str(), it.ref));
      ListView l;
      if (it.ref > 0 && type == kList && listOpen(s, it.ref, &l) == 0)
        for (int32_t j = 0; j < l.count; ++j)
          if (notDL(l.at[j]))
            out.push_back(format("S4: DL %d list '%s' element %d names %d, which is not a DL", dl,
                                 code(it.key).c_str(), j, l.at[j]));
    }
  }
  // An owned element is a blob or a list, never a DL: one that handles or lists reach as a DL
  // would be freed under them the next time its owner's item is replaced or removed.
  const std::vector<int32_t> dls = reachable(d);
  const std::set<int32_t> reached(dls.begin(), dls.end());
  for (const auto& [element, dl] : holder)
    if (reached.count(element))
      out.push_back(format("S3: element %d is owned by DL %d and reached as a DL", element, dl));
  ListView mods;
  int32_t at = root.head && dlOpen(s, kRootDL, &root) == 0 ? dlFind(root, kModsKey) : -1;
  if (at >= 0 && root.items[at].ref > 0 && listOpen(s, root.items[at].ref, &mods) == 0) {
    for (int32_t j = 0; j < mods.count; ++j) {
      DLView m;
      if (dlOpen(s, mods.at[j], &m) != 0 || !(m.head->flags & kSharedFlag) || m.head->owner != 0)
        out.push_back(
            format("S5: mods entry %d (DL %d) is not a shared DL with owner 0", j, mods.at[j]));
    }
  }
  std::map<int32_t, int> onList;
  for (int32_t i = 0; i < d->keep.Count(); ++i) {
    int32_t dl = d->keep.Get(i);
    DLView v;
    if (dlOpen(s, dl, &v) != 0 || !(v.head->flags & kKeptFlag))
      out.push_back(format("K1: kept %d is not a DL with the kept flag", dl));
    if (++onList[dl] == 2) out.push_back(format("K2: %d is on the keep list twice", dl));
  }
  // Only DLs reached through items can be told from blobs that happen to look like one.
  for (int32_t n : reachable(d)) {
    DLView v;
    if (dlOpen(s, n, &v) == 0 && (v.head->flags & kKeptFlag) && !onList.count(n))
      out.push_back(format("K3: DL %d has the kept flag but is not on the keep list", n));
  }
  return out;
}

std::string zoveDumpDL(zelkor::Object* store, int32_t dl) {
  ZoveData* d = zoveData(store);
  DLView v;
  int32_t r = d->space ? dlOpen(d->space, dl, &v) : kNoSpace;
  if (r != 0) return format("DL %d: not a DL (%d)\n", dl, r);
  std::string out = format("DL %d '%s' flags 0x%x owner %d data %d items %d size %d\n", dl,
                           code(v.head->uType).c_str(), v.head->flags, v.head->owner,
                           v.head->dataSize, v.count(), v.size);
  for (int32_t i = 0; i < v.count(); ++i) {
    const Item& it = v.items[i];
    uint32_t type = itemType(it);
    out += format("  '%s' %-11s", code(it.key).c_str(),
                  (itemTypeName(type) ? itemTypeName(type) : "?"));
    if (type == kImmediate)
      out += format(" %d", int32_t(it.kind));
    else if (type == kVHandle)
      out += format(" chunk %d", int32_t(it.kind));
    else if (it.ref > 0)
      out += format(" -> %d (kind 0x%x)", it.ref, it.kind);
    else
      out += format(" ref 0x%08x kind 0x%08x", uint32_t(it.ref), it.kind);
    ListView l;
    if (it.ref > 0 && isListType(type) && listOpen(d->space, it.ref, &l) == 0) {
      out += " [";
      for (int32_t j = 0; j < l.count; ++j) {
        if (j) out += ' ';
        out += std::to_string(l.at[j]);
      }
      out += "]";
    } else if (it.ref > 0 && type == kBlob) {
      out += format(" %d bytes", d->space->LmSize(it.ref));
    }
    out += "\n";
  }
  return out;
}

std::string zoveDumpStore(zelkor::Object* store, int32_t limit) {
  ZoveData* d = zoveData(store);
  std::string out = format("store: fault %d, changes %d, check level %d, channel %s\n", d->fault,
                           d->changeCount, d->checkLevel, d->channel ? "set" : "none");
  if (!d->space) return out + "no element space\n";
  out += format("elements %d live, highest %d; keep list %s\n", d->space->LmLiveCount(),
                d->space->LmCount(), d->keep.Dump().c_str());
  int32_t shown = 0;
  for (int32_t dl : reachable(d)) {
    if (shown++ == limit) return out + "...\n";
    out += zoveDumpDL(store, dl);
  }
  return out;
}

}  // namespace zove

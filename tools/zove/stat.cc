// zove stat FILE: what a store file holds, in numbers.
#include <cstdio>

#include "platform/storefile/recfile.h"
#include "platform/zelkor/zelkor.h"
#include "tools/zove/commands.h"
#include "tools/zove/storetool.h"
#include "zove/dl.h"

namespace zove::cli {

namespace {

using zelkor::fc;

struct ElementCounts {
  int32_t dls = 0, blobs = 0, lists = 0, unreachable = 0;
  int64_t dlBytes = 0, blobBytes = 0, listBytes = 0, unreachableBytes = 0;
};

// Sorts every live element into DLs, blobs and lists by what refers to it from the reachable
// DLs; what nothing reachable names is counted as unreachable (the next collection frees it).
ElementCounts countElements(const fundra::ElementSpace* s) {
  ElementCounts c;
  std::vector<uint8_t> role(size_t(s->LmCount()) + 1, 0);  // 1 DL, 2 blob, 3 list
  for (int32_t dl : reachableDLs(s, {kRootDL}, Edges::kAll)) {
    DLView v;
    if (dlOpen(s, dl, &v) != 0) continue;
    role[size_t(dl)] = 1;
    for (int32_t i = 0; i < v.count(); ++i) {
      const Item& it = v.item(i);
      if (!ownsReferent(it) || s->LmTest(it.ref) != 0) continue;
      role[size_t(it.ref)] = itemType(it) == kBlob ? 2 : 3;
    }
  }
  for (int32_t n = s->LmNext(0); n; n = s->LmNext(n)) {
    int64_t size = s->LmSize(n);
    switch (role[size_t(n)]) {
      case 1:
        ++c.dls, c.dlBytes += size;
        break;
      case 2:
        ++c.blobs, c.blobBytes += size;
        break;
      case 3:
        ++c.lists, c.listBytes += size;
        break;
      default:
        ++c.unreachable, c.unreachableBytes += size;
        break;
    }
  }
  return c;
}

}  // namespace

int cmdStat(int argc, char** argv) {
  if (argc != 1) {
    std::fprintf(stderr, "usage: zove stat FILE\n");
    return 2;
  }
  StoreFile f("stat", argv[0]);
  if (!f.open(false)) return 1;
  const fundra::ElementSpace* s = f.space();

  std::printf("file      %s\n", f.path().c_str());
  int32_t version = 0;
  if (f.storedVersion(&version))
    std::printf("version   %d\n", version);
  else
    std::printf("version   unknown: DL 1 is not a readable root\n");
  std::printf("elements  %d live, %lld bytes (highest number %d)\n", s->LmLiveCount(),
              (long long)s->LmLiveBytes(), s->LmCount());
  ElementCounts c = countElements(s);
  std::printf("  DLs     %d, %lld bytes\n", c.dls, (long long)c.dlBytes);
  std::printf("  blobs   %d, %lld bytes\n", c.blobs, (long long)c.blobBytes);
  std::printf("  lists   %d, %lld bytes\n", c.lists, (long long)c.listBytes);
  if (c.unreachable)
    std::printf("  unreachable from DL 1: %d, %lld bytes\n", c.unreachable,
                (long long)c.unreachableBytes);

  std::printf("modules\n");
  DLView root;
  int32_t modsIndex = dlOpen(s, kRootDL, &root) == 0 ? dlFind(root, kModsKey) : -1;
  ListView mods;
  if (modsIndex < 0 || listOpen(s, root.item(modsIndex).ref, &mods) != 0) {
    std::printf("  (the root has no 'mods' list)\n");
  } else if (mods.count == 0) {
    std::printf("  (none)\n");
  } else {
    for (int32_t i = 0; i < mods.count; ++i) {
      DLView m;
      if (dlOpen(s, mods.at[i], &m) == 0)
        std::printf("  %s  DL %d, %d data bytes, %d items\n", fourccName(m.head->uType).c_str(),
                    mods.at[i], m.head->dataSize, m.count());
      else
        std::printf("  DL %d: not a readable DL\n", mods.at[i]);
    }
  }

  Word file = f.recordFile();
  if (!file) {
    std::printf("records   none (no record file)\n");
    return 0;
  }
  int32_t count = zelkor::i32(zelkor::send(file, storefile::kHCId, kRecordType));
  int64_t bytes = 0;
  for (int32_t i = 1; i <= count; ++i) {
    Word id = zelkor::send(file, storefile::kHEId, kRecordType, i);
    int32_t size = zelkor::i32(zelkor::send(file, storefile::kHSiz, kRecordType, id));
    if (size > 0) bytes += size;
  }
  std::printf("records   %d, %lld bytes\n", count, (long long)bytes);
  return 0;
}

}  // namespace zove::cli

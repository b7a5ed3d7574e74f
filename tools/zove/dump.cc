// zove dump FILE [DL...] [--json]: DLs as they lie in the file, for a person or for a tool.
//
// Blobs in a foundation export form (strings, dates, intervals, date steps) are shown decoded
// beside their size; other blobs as their first bytes.
//
// The JSON form, for tools (docs/cli.md has an example):
//   top level   file, version (null when DL 1 is no root), elements, dls: [DL objects]
//   DL object   dl, uType, flags, owner, dataSize, size (element bytes), data (hex), items
//               or, for a number that is no readable DL: dl, error, size (when it exists)
//   item        key, kind (name or hex), ref; then by kind: value (immediate), record
//               (vhandle), size + bytes (hex) + decoded (blob), elements (list), missing
//               (a referent that does not exist)
//   codes (uType, key) are strings when their four bytes are printable, else numbers.
#include <cstdio>
#include <cstring>
#include <string>

#include "platform/fundra/tdate.h"
#include "platform/fundra/tstring.h"
#include "tools/zove/commands.h"
#include "tools/zove/storetool.h"
#include "zove/dl.h"

namespace zove::cli {

namespace {

std::string hex(const uint8_t* p, int32_t n) {
  std::string out;
  char buf[4];
  for (int32_t i = 0; i < n; ++i) {
    std::snprintf(buf, sizeof buf, "%02x", p[i]);
    out += buf;
  }
  return out;
}

// A FourCC for JSON: its four characters when printable, else its number.
std::string jsonCode(uint32_t code) {
  return isPrintableCode(code) ? jsonString(zelkor::fcString(code)) : std::to_string(code);
}

// What a blob holds when it is one of the foundation's export forms: "string \"...\"" and the
// like; empty when it is not.
std::string decodeBlob(const uint8_t* p, int32_t size, bool json) {
  if (size < 4) return "";
  if (!std::memcmp(p, "TS", 2)) {
    fundra::TString s;
    if (s.Import(p, size) == size) return json ? jsonString(s.View()) : "string " + s.Dump();
  } else if (!std::memcmp(p, "Dt", 2)) {
    fundra::TDate d;
    if (d.Import(p, size) == size) return json ? jsonString(d.Dump()) : "date " + d.Dump();
  } else if (!std::memcmp(p, "Iv", 2)) {
    fundra::TInterval i;
    if (i.Import(p, size) == size) return json ? jsonString(i.Dump()) : "interval " + i.Dump();
  } else if (!std::memcmp(p, "Ds", 2)) {
    fundra::TDateStep d;
    if (d.Import(p, size) == size) return json ? jsonString(d.Dump()) : "date step " + d.Dump();
  }
  return "";
}

std::string flagNames(uint16_t flags) {
  std::string out;
  if (flags & kSharedFlag) out += "  shared";
  if (flags & kInvisibleFlag) out += "  invisible";
  if (flags & kKeptFlag) out += "  kept";
  if (uint16_t other = flags & ~(kSharedFlag | kInvisibleFlag | kKeptFlag)) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "  flags 0x%04x", other);
    out += buf;
  }
  return out;
}

// Where a reference leads: "DL 7", or why it leads nowhere.
std::string target(const fundra::ElementSpace* s, int32_t ref) {
  std::string t = "DL " + std::to_string(ref);
  return s->LmTest(ref) == 0 ? t : t + " (no such element)";
}

void dumpItemText(const fundra::ElementSpace* s, const Item& it) {
  uint32_t type = itemType(it);
  std::printf("  %-7s %s", fourccName(it.key).c_str(), kindName(type).c_str());
  if (type == kImmediate) {
    std::printf(" %d", int32_t(it.kind));
  } else if (type == kVHandle) {
    std::printf(", record %d", int32_t(it.kind));
  } else if (it.ref <= 0) {
    std::printf(" (ref %d)", it.ref);
  } else if (type == kBlob) {
    int32_t size = s->LmSize(it.ref);
    if (size < 0) {
      std::printf(" %s", target(s, it.ref).c_str());
    } else {
      const uint8_t* p = s->LmGet(it.ref);
      std::string decoded = decodeBlob(p, size, false);
      std::printf(" %d, %d bytes: %s", it.ref, size,
                  decoded.empty() ? (hex(p, std::min(size, 24)) + (size > 24 ? "..." : "")).c_str()
                                  : decoded.c_str());
    }
  } else if (isListType(type)) {
    ListView l;
    if (listOpen(s, it.ref, &l) != 0) {
      std::printf(" %s", target(s, it.ref).c_str());
    } else {
      std::printf(" %d, %d element%s%s", it.ref, l.count, l.count == 1 ? "" : "s",
                  l.count ? ":" : "");
      for (int32_t k = 0; k < l.count; ++k) std::printf(" %s", target(s, l.at[k]).c_str());
    }
  } else {
    std::printf(" -> %s", target(s, it.ref).c_str());
  }
  std::printf("\n");
}

void dumpText(const fundra::ElementSpace* s, int32_t dl) {
  DLView v;
  int32_t rc = dlOpen(s, dl, &v);
  if (rc != 0) {
    int32_t size = s->LmSize(dl);
    if (size < 0)
      std::printf("DL %d: no such element\n\n", dl);
    else
      std::printf("DL %d: not a DL (an element of %d bytes, too short for its header)\n\n", dl,
                  size);
    return;
  }
  const DLHead& h = *v.head;
  std::printf("DL %d %s%s  owner %d  data %d bytes  %d item%s  (element of %d bytes)\n", dl,
              fourccName(h.uType).c_str(), flagNames(h.flags).c_str(), h.owner, h.dataSize, h.count,
              h.count == 1 ? "" : "s", v.size);
  for (int32_t off = 0; off < h.dataSize; off += 16) {
    int32_t n = std::min(16, h.dataSize - off);
    std::printf("  data %04x", off);
    for (int32_t i = 0; i < n; ++i) std::printf(" %02x", v.data[off + i]);
    std::printf("\n");
  }
  for (int32_t i = 0; i < v.count(); ++i) dumpItemText(s, v.item(i));
  std::printf("\n");
}

std::string itemJson(const fundra::ElementSpace* s, const Item& it) {
  uint32_t type = itemType(it);
  std::string out = "{\"key\": " + jsonCode(it.key) + ", \"kind\": " + jsonString(kindName(type)) +
                    ", \"ref\": " + std::to_string(it.ref);
  if (type == kImmediate) {
    out += ", \"value\": " + std::to_string(int32_t(it.kind));
  } else if (type == kVHandle) {
    out += ", \"record\": " + std::to_string(int32_t(it.kind));
  } else if (it.ref > 0 && s->LmTest(it.ref) != 0) {
    out += ", \"missing\": true";
  } else if (type == kBlob) {
    int32_t size = s->LmSize(it.ref);
    const uint8_t* p = s->LmGet(it.ref);
    out += ", \"size\": " + std::to_string(size) + ", \"bytes\": \"" + hex(p, size) + "\"";
    std::string decoded = decodeBlob(p, size, true);
    if (!decoded.empty()) out += ", \"decoded\": " + decoded;
  } else if (isListType(type) && it.ref > 0) {
    ListView l;
    listOpen(s, it.ref, &l);
    out += ", \"elements\": [";
    for (int32_t k = 0; k < l.count; ++k) out += (k ? ", " : "") + std::to_string(l.at[k]);
    out += "]";
  }
  return out + "}";
}

std::string dlJson(const fundra::ElementSpace* s, int32_t dl) {
  DLView v;
  if (dlOpen(s, dl, &v) != 0) {
    int32_t size = s->LmSize(dl);
    return "{\"dl\": " + std::to_string(dl) +
           ", \"error\": " + jsonString(size < 0 ? "no such element" : "not a DL") +
           (size < 0 ? "" : ", \"size\": " + std::to_string(size)) + "}";
  }
  const DLHead& h = *v.head;
  std::string out =
      "{\"dl\": " + std::to_string(dl) + ", \"uType\": " + jsonCode(h.uType) +
      ", \"flags\": " + std::to_string(h.flags) + ", \"owner\": " + std::to_string(h.owner) +
      ", \"dataSize\": " + std::to_string(h.dataSize) + ", \"size\": " + std::to_string(v.size) +
      ", \"data\": \"" + hex(v.data, h.dataSize) + "\", \"items\": [";
  for (int32_t i = 0; i < v.count(); ++i)
    out += std::string(i ? ",\n      " : "\n      ") + itemJson(s, v.item(i));
  return out + "]}";
}

}  // namespace

int cmdDump(int argc, char** argv) {
  const char* path = nullptr;
  bool json = false;
  std::vector<int32_t> dls;
  for (int i = 0; i < argc; ++i) {
    int32_t dl = 0;
    if (!std::strcmp(argv[i], "--json")) {
      json = true;
    } else if (!path && argv[i][0] != '-') {
      path = argv[i];
    } else if (path && parseInt(argv[i], &dl) && dl > 0) {
      dls.push_back(dl);
    } else {
      std::fprintf(stderr, "zove dump: '%s' is neither a DL number nor an option\n", argv[i]);
      return 2;
    }
  }
  if (!path) {
    std::fprintf(stderr, "usage: zove dump FILE [DL...] [--json]\n");
    return 2;
  }
  StoreFile f("dump", path);
  Progress progress("loading", false);
  progress.phase("loading");
  if (!f.open(false)) return 1;
  const fundra::ElementSpace* s = f.space();
  progress.phase("finding what DL 1 reaches");
  if (dls.empty()) dls = reachableDLs(s, {kRootDL}, Edges::kAll);
  int32_t version = 0;
  bool hasVersion = f.storedVersion(&version);

  if (json) {
    std::printf("{\"file\": %s, \"version\": %s, \"elements\": %d, \"dls\": [",
                jsonString(f.path()).c_str(), hasVersion ? std::to_string(version).c_str() : "null",
                s->LmLiveCount());
    for (size_t i = 0; i < dls.size(); ++i) {
      progress.step(int64_t(i), int64_t(dls.size()));
      std::printf("%s\n  %s", i ? "," : "", dlJson(s, dls[i]).c_str());
    }
    std::printf("\n]}\n");
    return 0;
  }
  std::printf("store file %s, version %s, %d elements, %lld bytes\n\n", f.path().c_str(),
              hasVersion ? std::to_string(version).c_str() : "unknown", s->LmLiveCount(),
              (long long)s->LmLiveBytes());
  for (size_t i = 0; i < dls.size(); ++i) {
    progress.step(int64_t(i), int64_t(dls.size()));
    dumpText(s, dls[i]);
  }
  return 0;
}

}  // namespace zove::cli

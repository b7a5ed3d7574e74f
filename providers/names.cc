// Reading the `Name` strings of containers and links, and the lists the companions keep.
//
// A name reads as the store's TSSg reads it: the blob under `Name` imported as a TString (its
// export form), or in the older one-byte-length form when that fails; no `Name`, or one that is
// not a blob, reads as empty. Reading every name of a type (a proposal compares each candidate
// with all of them) goes through the store's element space, as the manager reads its items,
// which spares a send and a copy per name; a DL the space cannot open is asked of the store, which
// asserts and answers as it does for any bad number.
#include <cstring>

#include "platform/fundra/memory.h"
#include "platform/storefile/vhd.h"
#include "providers/companions.h"
#include "zove/dl.h"

namespace zove {

using zelkor::send;

bool readName(Word store, int32_t dl, fundra::TString* out) {
  out->Clear();
  return send(store, kTSSg, dl, kNameKey, out) == 0;
}

std::vector<fundra::TString> readNames(Word store, const std::vector<int32_t>& dls) {
  fundra::ElementSpace* space = nullptr;
  send(store, storefile::kHGtH, &space);
  std::vector<fundra::TString> names(dls.size());
  for (size_t k = 0; k < dls.size(); ++k) {
    fundra::TString& s = names[k];
    DLView v;
    if (!space || dls[k] <= 0 || dlOpen(space, dls[k], &v) != 0) {
      readName(store, dls[k], &s);
      continue;
    }
    int32_t i = dlFind(v, kNameKey);
    const Item* it = i < 0 ? nullptr : &v.item(i);
    int32_t size = it && it->ref >= 1 && typeOf(it->kind) == kBlob ? space->LmSize(it->ref) : -1;
    if (size < 0) continue;
    const uint8_t* at = space->LmGet(it->ref);
    if (s.Import(at, size, 0) < 0) s.OldImport(at, 0, size);
  }
  return names;
}

std::vector<int32_t> listOf(Word store, int32_t dl, FourCC key) {
  fundra::TMemory mem;
  if (dl <= 0 || send(store, kTSLt, dl, key, &mem) != 0) return {};
  std::vector<int32_t> out(size_t(mem.GetSize() / 4));
  if (!out.empty()) std::memcpy(out.data(), mem.MemPtr(), out.size() * 4);
  return out;
}

}  // namespace zove

// Looking into a store from outside the selectors: its invariants and readable dumps, for tools,
// tests and failure messages. None of these changes the store or its marks.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/zelkor/object.h"

namespace zove {

// Invariants of a store between selectors (each violation is one line naming its number):
//   S1. DL 1 is a DL of uType `root`, owner 0, data size at least 8, with a list under `mods`.
//   S2. Every DL reachable from DL 1 or the keep list is well formed: element long enough for
//       its header, printable uType and keys, keys in ascending order (signed), known kinds.
//   S3. Every owned element (blob, list, weak list) of a reachable DL is live, held by no
//       other item, and not itself reached as a DL (through a handle, part link or list).
//   S4. Every handle, part link and list element of a reachable DL names a live DL.
//   S5. Every `mods` entry is a shared DL with owner 0.
//   K1-K3. The keep list's invariants (store/zove_class.h).
std::vector<std::string> zoveCheckStore(zelkor::Object* store);

// One DL: header, data size, and one line per item with its key, kind and referent.
std::string zoveDumpDL(zelkor::Object* store, int32_t dl);
// The store's state (fault code, counters, keep list) and every DL reachable from DL 1 or the
// keep list, up to `limit` DLs.
std::string zoveDumpStore(zelkor::Object* store, int32_t limit = 64);

}  // namespace zove

// The exchange stream's reader and writer: a DL structure written to bytes (TSEx) and read back
// into a DL (TSIm). The stream's layout is tabled in include/zove/exchange.h.
#pragma once

#include <cstdint>
#include <string>

#include "platform/fundra/memory.h"
#include "platform/fundra/space.h"
#include "platform/zelkor/word.h"
#include "zove/exchange.h"
#include "zove/store.h"

namespace zove {

// Writes the structure reached from dl into out (sized to the stream). Answers 0, or the
// space's code for a reference to a number that names no element, kWrongKind for a DL element
// too short for its header or a list that is not whole words, kBadValueType for a vhandle item,
// kBadRefType for an unknown refnum type (out is then cut to 0 bytes).
int32_t exchangeExport(const fundra::ElementSpace& space, int32_t dl, fundra::TMemory* out);

// Reads a stream into dl: the top record replaces dl's bytes, every other record becomes a new
// element. References to index 1 name dl itself. The kept flag of every imported DL is cleared
// and dl keeps its own. Answers 0, -1 for fewer than 8 bytes, the persist check's code,
// kBadStream (with "at byte N: what was wrong" in *why when given), or the space's code when an
// element cannot be made (nothing is changed then).
int32_t exchangeImport(fundra::ElementSpace* space, int32_t dl, const uint8_t* bytes, int32_t size,
                       std::string* why = nullptr);

}  // namespace zove

// What enumeration shares with expansion and search (enumerate.cc, search.cc): the filter, the
// sort of a parent's children, and the walk over children and descendants.
#pragma once

#include "platform/fundra/rnlist.h"
#include "providers/pro_class.h"

namespace zove {

// The filter rule: no filter (mask and value 0); every mask bit as in value with at least one
// set in f; or one of value's bits outside the mask set in f.
bool matchesFilter(uint32_t f, uint32_t mask, uint32_t value);

// Sorts parent's `_pk#` in the mode unless the mode is 0, the parent keeps its order, or its
// `_pst` holds the mode already; then records the mode in `_pst`.
void sortChildren(const Pro& m, int32_t parent, int32_t mode);

// PoEL (descend false) and PoDL (descend true) into the list, through the manager's scratch
// fields: the list grows 128 entries at a time and is cut to the count at the end.
void enumerate(const Pro& m, int32_t p, fundra::RNList* list, uint32_t mask, uint32_t value,
               int32_t mode, bool descend);

}  // namespace zove

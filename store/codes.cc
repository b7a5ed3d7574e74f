// The store's answer codes, by name (platform/zelkor/codes.h). kNoMemory is the foundation's
// kLmNoMemory, registered there.
#include "platform/zelkor/codes.h"

#include "platform/fundra/space.h"
#include "zove/store.h"

namespace zove {
namespace {

static_assert(kNoMemory == fundra::kLmNoMemory);

constexpr zelkor::CodeInfo kCodes[] = {
    {kWrongVersion, "kWrongVersion", "the stored version differs from the wanted one"},
    {kFaulted, "kFaulted", "the store is faulted, or its install failed the repair or root test"},
    {kTooDeep, "kTooDeep", "marking went deeper than the deepest level a walk may reach"},
    {kBadRefType, "kBadRefType", "an item with a refnum has an unknown refnum type"},
    {kBadValueType, "kBadValueType", "an item without a refnum has an unknown value type"},
    {kBadStream, "kBadStream", "the bytes are not an exchange stream this store can read"},
    {kWrongKind, "kWrongKind", "the item is not of the kind the selector reads, or not a DL"},
    {kNoItem, "kNoItem", "no item with the key, no such list element, or no module DL"},
    {kRefused, "kRefused", "a controller keeps the store busy, a DL is open, or controllers clash"},
    {kInstalled, "kInstalled", "the store is installed already"},
    {kNoSpace, "kNoSpace", "the store has no element space, or is not installed"},
    {kNoRecordFile, "kNoRecordFile", "the store has no record file"},
};

const int gRegistered = zelkor::registerCodes("zove", kCodes, std::size(kCodes));

}  // namespace
}  // namespace zove

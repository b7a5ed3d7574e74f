// The foundation's answer codes, by name (platform/zelkor/codes.h). The element space and memory
// blocks share the heap's codes: kMemNoMemory and kMemBadSize are kLmNoMemory and kLmBadSize.
#include "platform/zelkor/codes.h"

#include "platform/fundra/memory.h"
#include "platform/fundra/persist.h"
#include "platform/fundra/space.h"

namespace fundra {
namespace {

static_assert(kMemNoMemory == kLmNoMemory && kMemBadSize == kLmBadSize);

constexpr zelkor::CodeInfo kCodes[] = {
    {kLmBadNumber, "kLmBadNumber",
     "an element number of 0, below 0 or above the largest there can be"},
    {kLmNotLive, "kLmNotLive", "the number names no live element"},
    {kLmBadSize, "kLmBadSize", "a size below 0 or above the largest an element or block may have"},
    {kLmLocked, "kLmLocked", "the elements are pinned (LmLock) and the operation would move one"},
    {kLmNotLocked, "kLmNotLocked", "LmUnlock without a matching LmLock"},
    {kLmNoMemory, "kLmNoMemory",
     "the heap could not supply the bytes (the system's memory, or a ceiling set)"},
    {kLmDamaged, "kLmDamaged", "the element space is not sound"},
    {kLmTaken, "kLmTaken", "the element number is already live"},
    {kLmNoNumber, "kLmNoNumber",
     "every element number the space may give is taken (its table's limit, or a ceiling set)"},
    {kPersistBadTag, "kPersistBadTag", "the persist header names another kind of record"},
    {kPersistBadVersion, "kPersistBadVersion", "the persist header has other versions"},
};

const int gRegistered = zelkor::registerCodes("fundra", kCodes, std::size(kCodes));

}  // namespace
}  // namespace fundra

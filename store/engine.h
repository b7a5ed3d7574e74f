// The store engine's shared workers: item rules, keep list, change count, blobs, lists, marking.
//
// Every handler of `@zov` is a thin shell around these; new selector files (registry, exchange,
// structure operations) build on them too. All take the store object and answer 32-bit codes:
// 0 or more on success, below 0 a store code (include/zove/store.h) or the element space's code.
//
// Addresses: anything that allocates, grows, removes, swaps or counts a change (which may run
// the periodic collection) may move DLs. Re-open a DL (zoveOpenDL) after any such call.
#pragma once

#include <cstdint>

#include "store/zove_class.h"
#include "zove/dl.h"

namespace zove {

// The store's `zove` assertion, reported with the caller's line. (__builtin_LINE rather than
// std::source_location: the clang that builds the fuzzers has no working source_location.)
void zoveAssert(int line = __builtin_LINE());

// A writer whose element the space could not make or grow (kLmNoNumber, kLmNoMemory,
// kLmBadSize): logs, with the writer's name, which limit it met (every number taken, the
// space's ceiling of heap bytes, the system's memory, an element's largest size) and answers
// the code. Any other code is answered as it is, without a line.
int32_t zoveNoRoom(Object* self, const char* routine, int32_t code, int64_t bytes);

// The words most selectors start with: the DL, then the item's key.
inline int32_t dlArg(const Msg& m) { return zelkor::i32(m.w[0]); }
inline uint32_t keyArg(const Msg& m) { return zelkor::u32(m.w[1]); }

// Opens DL n. A number that names no element, or an element that cannot be a DL, fires the
// assertion (with the caller's line) and answers the element space's code or kWrongKind.
int32_t zoveOpenDL(Object* self, int32_t dl, DLView* v, int line = __builtin_LINE());

// Opens DL n for writing: as zoveOpenDL, and tells the element space that the DL's bytes may
// change, so the next save takes it. Every handler that writes into a DL through its address, or
// hands the address out, opens it with this.
int32_t zoveEditDL(Object* self, int32_t dl, DLView* v, int line = __builtin_LINE());

// Runs the DL check (check.cc) when the check level is non-zero; answers its result, else 0.
int32_t zoveCheckIfRaised(Object* self, int32_t dl);
// The DL check itself: 0, or kFaulted after logging and asserting the first finding.
int32_t zoveCheckDL(Object* self, int32_t dl);

// Keep list (dls.cc). Keep sets the kept flag and adds the DL once; release clears it and runs
// the DL check at a raised check level. Both answer 0 or the code of a DL that cannot be opened.
int32_t zoveKeep(Object* self, int32_t dl);
int32_t zoveRelease(Object* self, int32_t dl);

// Counts one change; the kCollectEvery-th runs the periodic collection (collect.cc). Answers the
// counter after the call.
Word zoveGCCheck(Object* self);

// Finds the item with the key in DL (searching from the last item): answers its index and
// copies it to *out, kNoItem, or the code of a DL that cannot be opened.
int32_t zoveFindItem(Object* self, int32_t dl, uint32_t key, Item* out);

// The one item writer: stores (ref, kind) under the key, with the ownership rules of each kind.
// Answers the ref word, LmRemove's answer when an owned referent was removed, or a code.
Word zoveStoreItem(Object* self, int32_t dl, uint32_t key, int32_t ref, uint32_t kind);
// Removes the item; kNoItem when there is none. Counts a change.
Word zoveRemoveItem(Object* self, int32_t dl, uint32_t key);

// Blob reading (values.cc): finds the item, which must be a refnum of `type` (kBlob or kList);
// answers 0 with the element's address and size, kNoItem, kWrongKind or the space's code. A
// caller that writes through the address, or hands it out, passes `touch`: the element is then
// recorded as touched for the next save.
enum class BlobUse { kRead, kTouch };
int32_t zoveReadBlob(Object* self, int32_t dl, uint32_t key, uint32_t type, uint8_t** at,
                     int32_t* size, BlobUse use = BlobUse::kRead);
// Blob writing: writes n bytes from src (null: zeros) under the key as a blob or list element
// of `type`, reusing an element of the same type. Counts a change; answers the counter word.
Word zoveWriteBlob(Object* self, int32_t dl, uint32_t key, const void* src, int32_t n,
                   uint32_t type);
// Gets or makes the blob element of n bytes under the key without counting a change; answers
// its number or a code.
int32_t zoveSizeBlob(Object* self, int32_t dl, uint32_t key, int32_t n);

// Copies a blob or list element (selected by type) into a new MemAlloc block stored at the
// pointer in word 2, or into the TMemory in word 2. Answers 0 or a code.
Word zoveCopyToBlock(Object* self, const Msg& m, uint32_t type);
Word zoveCopyToMemory(Object* self, const Msg& m, uint32_t type);

// Lists (lists.cc). The element at index, 0 past either end or without a list.
int32_t zoveListElem(Object* self, int32_t dl, uint32_t key, int32_t index);
// Inserts member at index (outside 0..count: appends), making the list if the key has none;
// releases the member from the keep list. Answers the member's index or a code.
int32_t zoveListInsert(Object* self, int32_t dl, uint32_t key, int32_t member, int32_t index);
// Removes every element equal to member; counts a change. Answers the counter word or a code.
Word zoveListDelete(Object* self, int32_t dl, uint32_t key, int32_t member);

// Marking (collect.cc): mode 0 marks owned elements, mode 1 leaves them unmarked.
int32_t zoveDoMark(Object* self, int32_t dl, int32_t depth, int32_t mode);

}  // namespace zove

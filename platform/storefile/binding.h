// Between the value-handle base and its store file: the binding of one `@vhd` object to one
// file. Internal to the value-handle base; hosts use the calls in vhd.h.
#pragma once

#include <cstdint>

#include "platform/fundra/space.h"
#include "platform/storefile/names.h"
#include "platform/zelkor/word.h"

namespace storefile {

struct VhdBinding;

// Makes the element space and loads it (and the record index) from the file. On failure *space
// stays null, the reason is logged, and the code is answered.
int32_t bindingLoad(VhdBinding* b, fundra::ElementSpace** space);
// Saves what changed since the last save in one transaction. kVhdReadOnly for a read-only file.
int32_t bindingSave(VhdBinding* b, fundra::ElementSpace* space);
// The object was given another space (HNew) while bound: the next save writes every segment and
// drops the rows of the space before.
void bindingSpaceReplaced(VhdBinding* b);
// Integrity of the binding: the record file's invariants and the database's structure check.
int32_t bindingCheck(VhdBinding* b);
Word bindingFileObject(VhdBinding* b);
// Disposes the record file object, closes the file (releasing the writer lock), frees b.
void bindingClose(VhdBinding* b);

// The binding slot of a value-handle object, and its space and version; null when the word is
// not a `@vhd` object. Defined beside the class.
VhdBinding** vhdBindingSlot(Word store, fundra::ElementSpace** space, int32_t* version);
// Sets the object's changed flag (HSCh without a send).
void vhdSetChangedFlag(Word store, int32_t flag);

}  // namespace storefile

// The answer codes of the foundation's texts, forms, dialogs and resources, by name
// (platform/zelkor/codes.h).
#include "platform/fundra/dialogs.h"
#include "platform/fundra/form_codes.h"
#include "platform/fundra/kstrings.h"
#include "platform/fundra/resource.h"
#include "platform/zelkor/codes.h"

namespace fundra {
namespace {

constexpr zelkor::CodeInfo kCodes[] = {
    {kDialogCancelled, "kDialogCancelled", "the user cancelled the dialog"},
    {kDialogConfirmed, "kDialogConfirmed", "the user confirmed the dialog"},
    {kFormTruncated, "kFormTruncated", "fewer bytes than the export form needs"},
    {kFormForeign, "kFormForeign", "the bytes are another export form"},
    {kFormVersion, "kFormVersion", "an export form of a version this reader does not know"},
    {kFormDamaged, "kFormDamaged",
     "a field of the export form is out of range, or its text is bad"},
    {kFormBadOption, "kFormBadOption", "an export option other than 0"},
    {kFormNoRoom, "kFormNoRoom", "no destination, or fewer bytes than the export form needs"},
    {kResNotFound, "kResNotFound", "no resource with that id"},
    {kResReadFailed, "kResReadFailed", "the resource file exists but cannot be read whole"},
    {kResBadArgument, "kResBadArgument", "a null memory or string, or an id below 0"},
    {kResNoPath, "kResNoPath", "the location handle names no file"},
    {kTextNoSource, "kTextNoSource", "the text file or folder cannot be opened"},
};

const int gRegistered = zelkor::registerCodes("fundra", kCodes, std::size(kCodes));

}  // namespace
}  // namespace fundra

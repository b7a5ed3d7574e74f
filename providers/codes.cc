// The provider tree's answer codes, by name (platform/zelkor/codes.h). -833 is the modeler's
// kNoResponder, registered by the database objects.
#include "platform/zelkor/codes.h"

#include "zove/providers.h"

namespace zove {
namespace {

constexpr zelkor::CodeInfo kCodes[] = {
    {kProviderMisplaced, "kProviderMisplaced",
     "a provider is not where it must be, or a link could not be made"},
    {kNoStatusRecord, "kNoStatusRecord",
     "the provider has no status record, or its chain of parents is broken"},
    {kNoController, "kNoController", "the provider has no controller"},
    {kMoveBelowSelf, "kMoveBelowSelf", "a provider would be moved into itself or below itself"},
    {kRequiredParentLeft, "kRequiredParentLeft", "a provider would leave its required parent"},
    {kLinkUnresolved, "kLinkUnresolved",
     "a chain of links did not reach a provider that is no link within ten steps"},
    {kContainerNotEmpty, "kContainerNotEmpty",
     "the container still shows children, so it cannot be forgotten"},
};

const int gRegistered = zelkor::registerCodes("provider", kCodes, std::size(kCodes));

}  // namespace
}  // namespace zove

// The persistent object bases' answer codes, by name (platform/zelkor/codes.h).
#include "platform/zelkor/codes.h"

#include "zove/db.h"

namespace zove {
namespace {

constexpr zelkor::CodeInfo kCodes[] = {
    {kNoResponder, "kNoResponder", "no object answered for the module when asked who does (FdRs)"},
};

const int gRegistered = zelkor::registerCodes("db", kCodes, std::size(kCodes));

}  // namespace
}  // namespace zove

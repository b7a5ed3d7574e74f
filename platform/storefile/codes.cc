// The store file's answer codes, by name (platform/zelkor/codes.h).
#include "platform/zelkor/codes.h"

#include "platform/storefile/vhd.h"

namespace storefile {
namespace {

constexpr zelkor::CodeInfo kCodes[] = {
    {kVhdNoValue, "kVhdNoValue",
     "the value handle holds no element space and has no file to load it from"},
    {kVhdNotVhd, "kVhdNotVhd", "the object is not a value handle"},
    {kVhdBound, "kVhdBound", "the value handle is bound to a file already"},
    {kVhdNoFile, "kVhdNoFile",
     "no such file (open), the file exists already (create), or it was moved or deleted since "
     "it was opened (save)"},
    {kVhdBusy, "kVhdBusy", "another writer, in this process or another, has the file open"},
    {kVhdReadOnly, "kVhdReadOnly",
     "the file was opened read-only, or this user may not write what must be written"},
    {kVhdNotStoreFile, "kVhdNotStoreFile",
     "the file is not a store file, or of a format this code cannot read"},
    {kVhdDamaged, "kVhdDamaged",
     "the file is damaged: a checksum, a count or the database disagrees"},
    {kVhdIoError, "kVhdIoError", "reading or writing the file failed"},
    {kVhdNoRecord, "kVhdNoRecord", "the record file has no record of that type and id"},
    {kVhdNotAttached, "kVhdNotAttached",
     "the memory handle is not attached to a record of this file"},
    {kVhdBadArgument, "kVhdBadArgument", "a null handle or pointer, or an id not above 0"},
    {kVhdExists, "kVhdExists", "the record exists already"},
    {kVhdStale, "kVhdStale",
     "a writer saved the file since this reader loaded it: reopen the file to see the new save"},
};

const int gRegistered = zelkor::registerCodes("storefile", kCodes, std::size(kCodes));

}  // namespace
}  // namespace storefile

// The framework's names that the store file's headers use unqualified.
#pragma once

#include "platform/zelkor/object.h"
#include "platform/zelkor/word.h"

namespace storefile {

using zelkor::fc;
using zelkor::FourCC;
using zelkor::Object;
using zelkor::Word;

}  // namespace storefile

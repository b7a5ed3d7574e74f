// The module's identity. The host looks this symbol up after loading the library to tell a
// zove module from any other shared object; the classes register themselves from their own
// static initializers.
#include "zove/export.h"

extern "C" ZOVE_EXPORT const char* zoveModuleName() { return "zove"; }

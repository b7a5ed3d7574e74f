// What the host application gives the framework: loaded modules, and values it answers for.
#pragma once

#include <string>

#include "platform/zelkor/word.h"

namespace zelkor {

// Loads a module (a shared library exporting zoveModuleName) so that its static initializers
// register its classes. Answers 0, or kModuleNotFound / kNotAModule with the reason logged.
constexpr int kModuleNotFound = -1004;
constexpr int kNotAModule = -1005;
int ZelkorLoadModule(const std::string& path);

// The global option set's DL (0 when the program has none) and the express flag.
Word ProgGetOptRef(Word which);
Word MEGetExpress();
void setProgOptRef(Word dl);
void setExpress(Word flag);

}  // namespace zelkor

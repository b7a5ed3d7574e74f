// The module's identity. The host looks this symbol up after loading the library to tell a
// zove module from any other shared object; the classes register themselves from their own
// static initializers.
extern "C" const char* zoveModuleName() { return "zove"; }

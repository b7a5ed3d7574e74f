// Marks what the module exports. Everything else in libzove.so is hidden: other modules reach
// the module's classes through selectors, and link only the few symbols marked here.
#pragma once

#define ZOVE_EXPORT __attribute__((visibility("default")))

// Weak stand-ins for functions and data that other parts of the library
// define. They let the shared object (linked with --no-undefined) and the
// driver's tests link while those parts are still being written; a real
// definition anywhere in the link replaces the stand-in. This file goes away
// once every part has landed.
#include "driver/driver.h"

#define TOLVA_WEAK __attribute__((weak))

extern "C" {

// Settings.
TOLVA_WEAK HGLOBAL CreateSetup(intptr_t, const char *, const char *, intptr_t) { return 0; }

// Raster.
TOLVA_WEAK void rev_rgb(int32_t, uint8_t *, int32_t) {}

}  // extern "C"

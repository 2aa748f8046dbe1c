// Weak stand-ins for the raster operations that the pipeline calls, so that
// the shared object links while those parts are still being written. A real
// definition anywhere in the link replaces each one; this file goes away once
// they have landed.
#include "tolva/tolva.h"

#define TOLVA_WEAK __attribute__((weak))

extern "C" {

TOLVA_WEAK void rlALPHAtoRGB(HGLOBAL, int32_t, int32_t) {}
TOLVA_WEAK void rlCMYKtoRGB(HGLOBAL, int32_t, int32_t) {}
TOLVA_WEAK HGLOBAL rlChangeColorResolution(HGLOBAL, int32_t, int32_t, int16_t, int16_t, HGLOBAL *table) {
    if (table != nullptr) *table = 0;
    return 0;
}
TOLVA_WEAK HGLOBAL rlConvertBitmapDepth(HGLOBAL, int32_t, int32_t, int16_t, int16_t, HGLOBAL, HGLOBAL,
                                        int16_t) {
    return 0;
}
TOLVA_WEAK int32_t rlDitherGetCT(HGLOBAL, int32_t, int32_t, int16_t, int16_t, HGLOBAL, HGLOBAL *table,
                                 int16_t *) {
    if (table != nullptr) *table = 0;
    return 0;
}
TOLVA_WEAK HGLOBAL rlDitherGivenCT(HGLOBAL, int32_t, int32_t, int16_t, int16_t, HGLOBAL, HGLOBAL,
                                   int16_t) {
    return 0;
}
TOLVA_WEAK HGLOBAL rlReduceColorTable(HGLOBAL, int32_t, int32_t, int16_t *) { return 0; }
TOLVA_WEAK HGLOBAL rlShrinkBitmap(HGLOBAL, int16_t, int32_t, int32_t, int32_t, int32_t) { return 0; }
TOLVA_WEAK HGLOBAL rlStretchBitmap(HGLOBAL, int16_t, int32_t, int32_t, int32_t, int32_t) { return 0; }

}  // extern "C"

// A weak stand-in for the dithering entry that rlChangeColorResolution calls,
// so that the library links while dithering is still being written. The real
// definition replaces it; this file goes away once it has landed.
#include "raster/raster.h"

extern "C" {

__attribute__((weak)) HGLOBAL rlDitherBitmap(HGLOBAL, int32_t, int32_t, int16_t, int16_t,
                                             HGLOBAL, HGLOBAL *) {
    return 0;
}

}  // extern "C"

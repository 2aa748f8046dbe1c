// Shrink, Stretch, ShrinkX and StretchX written literally: the sampling and
// replication loops with their truncations and 16-bit counters, one
// rlGetPixel/rlSetPixel call per pixel. The library precomputes one row plan
// and copies whole rows; the tests compare every byte with these loops and the
// benchmarks time the two side by side.
#ifndef TOLVA_REFERENCE_RASTER_SCALE_ORACLE_H
#define TOLVA_REFERENCE_RASTER_SCALE_ORACLE_H

#include <stdint.h>

#include "tolva/host.h"
#include "tolva/raster.h"

void oracle_ShrinkX(const uint8_t *src, uint8_t *dst, int16_t bpp, int32_t sw, int32_t rows,
                    int32_t dw);
void oracle_StretchX(const uint8_t *src, uint8_t *dst, int16_t bpp, int32_t sw, int32_t rows,
                     int32_t dw);
void oracle_Shrink(const uint8_t *src, uint8_t *dst, int16_t bpp, int32_t sw, int32_t sh,
                   int32_t dw, int32_t dh);
void oracle_Stretch(const uint8_t *src, uint8_t *dst, int16_t bpp, int32_t sw, int32_t sh,
                    int32_t dw, int32_t dh);
// rlShrinkBitmap/rlStretchBitmap through the oracles.
HGLOBAL oracle_scale_bitmap(HGLOBAL bits, int16_t bpp, int32_t sw, int32_t sh, int32_t dw,
                            int32_t dh);

#endif

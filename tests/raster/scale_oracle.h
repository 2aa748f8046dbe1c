// The scaling functions written as one rlGetPixel/rlSetPixel call per pixel,
// straight from the sampling loops: the reference the row plans must match.
#ifndef TOLVA_TESTS_RASTER_SCALE_ORACLE_H
#define TOLVA_TESTS_RASTER_SCALE_ORACLE_H

#include <stdint.h>

#include "tolva/tolva.h"

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

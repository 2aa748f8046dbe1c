// The diffusion of one row written as the per-pixel loop: rlNearestRGBIndex for
// every pixel, BOUNDARY_CHK for every sum. The reference for the fast row.
#ifndef TOLVA_TESTS_RASTER_DITHER_ORACLE_H
#define TOLVA_TESTS_RASTER_DITHER_ORACLE_H

#include <stdint.h>

#include "tolva/tolva.h"

void oracle_dither_line(uint8_t *current, uint8_t *next, const uint8_t *table, int32_t width,
                        int16_t count);
// rlDitherGivenCT through the per-pixel loops: 24-bit copy, rows diffused by
// oracle_dither_line, then every pixel mapped by rlSetPixel with the table.
HGLOBAL oracle_dither_given(HGLOBAL bits, int32_t width, int32_t height, int16_t srcBits,
                            int16_t dstBits, HGLOBAL table, int16_t count);

#endif

// Error-diffusion dithering written literally: the linear nearest-colour
// search of raster_oracle.h for every pixel, BOUNDARY_CHK for every sum,
// rlSetPixel for every output pixel. The library diffuses rows through an exact search structure;
// the tests compare every byte with this loop and the benchmarks time the two
// side by side.
#ifndef TOLVA_REFERENCE_RASTER_DITHER_ORACLE_H
#define TOLVA_REFERENCE_RASTER_DITHER_ORACLE_H

#include <stdint.h>

#include "tolva/host.h"
#include "tolva/raster.h"

void oracle_dither_line(uint8_t *current, uint8_t *next, const uint8_t *table, int32_t width,
                        int16_t count);
// rlDitherGivenCT through the per-pixel loops: 24-bit copy, rows diffused by
// oracle_dither_line, then every pixel mapped to its nearest entry.
HGLOBAL oracle_dither_given(HGLOBAL bits, int32_t width, int32_t height, int16_t srcBits,
                            int16_t dstBits, HGLOBAL table, int16_t count);

#endif

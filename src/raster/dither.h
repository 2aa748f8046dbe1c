// Internals of the dithering: the diffusion of one row against a table,
// every pixel's nearest entry found through the library's one search
// (RlNearest of raster.h).
#ifndef TOLVA_RASTER_DITHER_H
#define TOLVA_RASTER_DITHER_H

#include <stdint.h>

#include "raster/raster.h"

// Diffuses one 24-bit row into itself and the next row (null for the last
// row) against the search's table, every pixel ending as exactly the table
// colour recorded in chosen[x] (when chosen is not null; width entries).
// False, with nothing changed, for a missing table, a count below 1 or a
// width below 1.
bool rl_dither_row(uint8_t *current, uint8_t *next, RlNearest *search, int32_t width,
                   int16_t *chosen);

#endif

// Internals of the dithering: an exact nearest-colour search over a fixed
// table and the diffusion of one row with it.
//
// Invariant: nearest_find returns exactly what rlNearestRGBIndex returns for
// the same table and count (grey and colour classes, lowest index on ties, 0
// when the class is empty).
#ifndef TOLVA_RASTER_DITHER_H
#define TOLVA_RASTER_DITHER_H

#include <stdint.h>

#include "tolva/tolva.h"

// Tables up to this many entries are split by class once; larger ones are
// searched entry by entry through rlNearestRGBIndex.
#define TOLVA_NEAREST_SPLIT_MAX 256

struct NearestClass {
    int32_t n;
    int16_t index[TOLVA_NEAREST_SPLIT_MAX];
    uint8_t rgb[3 * TOLVA_NEAREST_SPLIT_MAX];
};

struct NearestSearch {
    const uint8_t *table;
    int16_t count;
    bool split;           // false: fall back to rlNearestRGBIndex
    NearestClass grey;    // entries with three equal channels, in index order
    NearestClass colour;  // all other entries, in index order
};

void nearest_make(NearestSearch *search, const uint8_t *table, int16_t count);
int16_t nearest_find(const NearestSearch *search, uint8_t red, uint8_t green, uint8_t blue);

// Diffuses one 24-bit row into itself and the next row (null for the last
// row) against the search's table; rows of width < 1 are left alone.
void dither_row(uint8_t *current, uint8_t *next, const NearestSearch *search, int32_t width);

#endif

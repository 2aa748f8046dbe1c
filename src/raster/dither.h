// Internals of the dithering: an exact nearest-colour search over a fixed
// table and the diffusion of one row with it.
//
// A search is made in one of two ways: split into grey and colour entries,
// cheap to make and right for a single row; or, for a whole picture, on top of
// the cell structure of raster.h (RlNearest), which costs a large block to
// make and then answers from a few candidates. Invariant: nearest_find returns
// exactly what rlNearestRGBIndex returns for the same table and count (grey
// and colour classes, lowest index on ties, 0 when the class is empty).
#ifndef TOLVA_RASTER_DITHER_H
#define TOLVA_RASTER_DITHER_H

#include <stdint.h>

#include "raster/raster.h"

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
    RlNearest *cells;     // when not null, answers every query
    uint32_t *memoKey;    // null, or TOLVA_NEAREST_MEMO slots: colour | 1 << 24
    int16_t *memoIndex;   // and the answer for that colour
};

// Slots of the answer memo (4-byte key, 2-byte answer each); a power of two
// matching the 12-bit slot hash of nearest_find.
#define TOLVA_NEAREST_MEMO 4096

// The split search; with `cells` (opened by the caller on the same table and
// count, closed after the search's last use) the cell search. The memo is off
// until the caller points memoKey and memoIndex at a zeroed block.
void nearest_make(NearestSearch *search, const uint8_t *table, int16_t count, RlNearest *cells);
int16_t nearest_find(NearestSearch *search, uint8_t red, uint8_t green, uint8_t blue);

// Diffuses one 24-bit row into itself and the next row (null for the last
// row) against the search's table, every pixel ending as exactly the table
// colour recorded in chosen[x] (when chosen is not null; width entries).
// False, with nothing changed, for a missing table, a count below 1 or a
// width below 1.
bool dither_row(uint8_t *current, uint8_t *next, NearestSearch *search, int32_t width,
                int16_t *chosen);

#endif

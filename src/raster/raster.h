// Internal helpers of the raster library shared between its files.
//
// Packed colour values keep red in bits 31-24, green in 23-16, blue in 15-8
// and the fourth byte of a 32-bit pixel in 7-0; everything here reads and
// writes that one layout.
//
// For anyone mapping many 8-bit colours onto one table (dithering included):
// use RlNearest below instead of calling rlNearestRGBIndex per pixel. It
// returns exactly what rlNearestRGBIndex returns for channels 0-255 (grey and
// colour classes, lowest index on ties, 0 when the class is empty) and is
// typically tens of times faster on photographs:
//     RlNearest near;
//     rl_nearest_open(&near, table, count);   // table must outlive `near`
//     int16_t k = rl_nearest_find(&near, r, g, b);
//     rl_nearest_close(&near);
// A failed open leaves a search that still answers, through the linear scan.
#ifndef TOLVA_RASTER_RASTER_H
#define TOLVA_RASTER_RASTER_H

#include <stddef.h>
#include <stdint.h>

#include "tolva/tolva.h"

// The depths that have pixels: 1, 4, 8, 24, 32. Any other depth reads as 0
// and writes nothing.
inline bool rl_pixel_depth(int16_t bits) {
    return bits == 1 || bits == 4 || bits == 8 || bits == 24 || bits == 32;
}

inline uint32_t rl_pack(uint8_t red, uint8_t green, uint8_t blue, uint8_t fourth) {
    return (static_cast<uint32_t>(red) << 24) | (static_cast<uint32_t>(green) << 16) |
           (static_cast<uint32_t>(blue) << 8) | fourth;
}

inline int16_t rl_red(uint32_t value) { return static_cast<int16_t>(value >> 24); }
inline int16_t rl_green(uint32_t value) { return static_cast<int16_t>((value >> 16) & 255u); }
inline int16_t rl_blue(uint32_t value) { return static_cast<int16_t>((value >> 8) & 255u); }

// The three colour bytes of a 24- or 32-bit pixel as rlSetPixel writes them.
// With a table the colour is the table entry that the map chose (v is that
// map entry). Without a map, or with a map entry that is not an index of the
// table (a packed colour from a map built for a direct-colour target), the
// entry would lie outside the table: the packed value v is written instead.
inline void rl_store_direct(uint8_t *at, uint32_t v, const uint32_t *map, const uint8_t *table,
                            int16_t tableCount) {
    if (table != nullptr && map != nullptr && tableCount > 0 &&
        v < static_cast<uint32_t>(tableCount)) {
        const uint8_t *entry = table + 3 * static_cast<size_t>(v);
        at[0] = entry[0];
        at[1] = entry[1];
        at[2] = entry[2];
    } else {
        at[0] = static_cast<uint8_t>(v >> 24);
        at[1] = static_cast<uint8_t>(v >> 16);
        at[2] = static_cast<uint8_t>(v >> 8);
    }
}

// Exact nearest-colour search structure; see nearest_fast.cpp.
struct RlNearestCell {
    uint32_t start;   // first candidate in the pool; 0 until the cell is built
    uint32_t length;  // number of candidates
};

struct RlNearest {
    const uint8_t *table;
    int32_t count;          // 0 for a missing table or a count below 1
    HGLOBAL classHandle;
    HGLOBAL cellsHandle;
    HGLOBAL poolHandle;
    uint16_t *classes;      // grey entry indices, then colour entry indices
    RlNearestCell *cells;   // two per 8x8x8 cell: colour queries, grey queries
    uint16_t *pool;         // candidate indices of all built cells
    int32_t greyCount;
    int32_t colourCount;
    uint32_t poolUsed;
    uint32_t poolSize;
};

// 0, or -1 when the search structure could not be made (it then falls back
// to the linear scan, so the answers stay right).
int32_t rl_nearest_open(RlNearest *n, const uint8_t *table, int16_t count);
// rlNearestRGBIndex(r, g, b, table, count), exactly.
int16_t rl_nearest_find(RlNearest *n, uint8_t r, uint8_t g, uint8_t b);
void rl_nearest_close(RlNearest *n);

#endif

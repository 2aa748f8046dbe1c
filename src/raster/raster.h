// Internal helpers of the raster library shared between its files.
//
// Packed colour values keep red in bits 31-24, green in 23-16, blue in 15-8
// and the fourth byte of a 32-bit pixel in 7-0; everything here reads and
// writes that one layout.
#ifndef TOLVA_RASTER_RASTER_H
#define TOLVA_RASTER_RASTER_H

#include <stddef.h>
#include <stdint.h>

#include "tolva/tolva.h"

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

#endif

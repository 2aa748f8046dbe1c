// Nearest-colour search and colour maps.
//
// All colour mapping rests on rlNearestRGBIndex: greys match only greys and
// colours only colours (the class rule of raster.h), distance is the
// unweighted squared distance in wrapping 32-bit arithmetic, and among equal
// distances the lowest index wins.
// Any faster search must return the very same index.
#include "raster/raster.h"

namespace {

uint32_t square(uint32_t d) { return d * d; }

}  // namespace

extern "C" {

int16_t rlNearestRGBIndex(int16_t red, int16_t green, int16_t blue, const uint8_t *table,
                          int16_t count) {
    if (table == nullptr) return 0;
    bool grey = rl_grey_query(red, green, blue) != 0;
    uint32_t best = 0x7FFFFFFFu;
    int16_t bestIndex = 0;
    for (int16_t i = 0; i < count; ++i) {
        const uint8_t *e = table + 3 * static_cast<size_t>(i);
        if (rl_grey_entry(e) != grey) continue;
        uint32_t db = static_cast<uint32_t>(blue) - e[2];
        uint32_t dg = static_cast<uint32_t>(green) - e[1];
        uint32_t dr = static_cast<uint32_t>(red) - e[0];
        uint32_t distance = square(db) + square(dg) + square(dr);
        if (distance < best) {
            best = distance;
            bestIndex = i;
            if (distance == 0) return i;
        }
    }
    return bestIndex;
}

HGLOBAL rlBuildColormap(const uint8_t *srcTable, int16_t srcBits, const uint8_t *dstTable,
                        int16_t dstBits, int16_t dstCount) {
    // Direct colour needs no map. Entry counts are 16-bit, so no indexed
    // source is deeper than 16 bits: a 32-bit (or negative) depth is treated
    // as direct colour too rather than sizing a map that cannot exist.
    if (srcBits > 16 || srcBits < 0) return 0;
    uint32_t entries = 1u << srcBits;
    if (srcBits <= dstBits && dstTable == nullptr) {
        dstTable = srcTable;
        dstCount = static_cast<int16_t>(entries);
    }
    HGLOBAL map = rlGetMemory(4, static_cast<int32_t>(entries));
    auto *m = static_cast<uint32_t *>(rlLockMemory(map));
    if (m != nullptr && srcTable != nullptr && dstTable != nullptr) {
        RlNearest near;
        (void)rl_nearest_open(&near, dstTable, dstCount, kRlNearestFew);  // falls back by itself
        for (uint32_t i = 0; i < entries; ++i) {
            const uint8_t *s = srcTable + 3 * static_cast<size_t>(i);
            if (dstBits == 24) {
                m[i] = rl_pack(s[0], s[1], s[2], 0);
            } else {
                m[i] = static_cast<uint32_t>(rl_nearest_find(&near, s[0], s[1], s[2]));
            }
        }
        rl_nearest_close(&near);
    }
    (void)rlUnlockMemory(map);
    return map;
}

}  // extern "C"

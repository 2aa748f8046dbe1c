// Internal helpers of the raster library shared between its files.
//
// Packed colour values keep red in bits 31-24, green in 23-16, blue in 15-8
// and the fourth byte of a 32-bit pixel in 7-0; everything here reads and
// writes that one layout.
//
// For anyone mapping many 8-bit colours onto one table (dithering included):
// use RlNearest below instead of calling rlNearestRGBIndex per colour. It
// returns exactly what rlNearestRGBIndex returns for channels 0-255 (grey and
// colour classes, lowest index on ties, 0 when the class is empty) and is
// typically tens of times faster on photographs:
//     RlNearest near;
//     rl_nearest_open(&near, table, count, kRlNearestMany);  // table outlives `near`
//     int16_t k = rl_nearest_find(&near, r, g, b);
//     rl_nearest_close(&near);
// A failed open leaves a search that still answers, through the linear scan.
#ifndef TOLVA_RASTER_RASTER_H
#define TOLVA_RASTER_RASTER_H

#include <stddef.h>
#include <stdint.h>

#include "tolva/host.h"
#include "tolva/raster.h"

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

// The one nearest-colour search of the library; see nearest_fast.cpp. Every
// mapping of colours onto a table goes through it: rlNearestRGBIndex (one
// question, the linear scan), rl_nearest_find (many questions about one
// table), the dithering and the GIF writer's transparent and background
// colours.
constexpr int kRlNearestLevels = 4;  // cells 32, 16, 8 and 4 wide

struct RlNearestCell {
    uint32_t start;   // first candidate in the pool; 0 until the cell is built
    uint32_t length;  // number of candidates
};

struct RlNearestCandidate {
    uint16_t closest;  // squared distance from the entry to its cell, at most 0xFFFF
    uint16_t index;    // table index
    uint8_t red, green, blue, unused;
};

// Recent answers, by colour: colour << 8 | (index + 1), 0 for an empty slot.
// Only indices below 255 are kept, which is every index of the usual tables.
constexpr int kRlNearestRecentBits = 15;
// Answers of whole 8-wide and 4-wide cells of colour queries: 0 not known
// yet, index + 1 when every colour of the cell has that answer,
// kRlNearestMixed otherwise.
constexpr uint8_t kRlNearestMixed = 255;

// How much a search is worth preparing: a handful of questions (a row of
// dithering, a colour map of 256 entries) or every pixel of a picture.
enum RlNearestUse { kRlNearestFew, kRlNearestMany };

struct RlNearest {
    const uint8_t *table;
    int32_t count;  // 0 for a missing table or a count below 1
    HGLOBAL poolHandle;
    HGLOBAL cacheHandle;
    RlNearestCell classes[2];  // all colour entries, all grey entries; length 0 when unmade
    RlNearestCell *cells[2];   // every level, for colour queries and for grey queries
    RlNearestCell *fine[2];    // their 4-wide levels; null when the class lists serve alone
    RlNearestCandidate *pool;  // every list, one after another; null: the linear scan serves
    uint32_t *recent;          // recent answers (kRlNearestMany); photographs repeat colours
    uint8_t *uniform;          // answers of whole 4-wide cells (with the cells)
    uint8_t *coarse;           // answers of whole 8-wide cells, also copied into `uniform`
    uint32_t poolUsed;
    uint32_t poolSize;
};

// Prepares a search of the first `count` entries of `table` (which must
// outlive it). 0, or -1 when memory was short: the search then answers
// through a simpler road, so the answers stay right either way.
int32_t rl_nearest_open(RlNearest *n, const uint8_t *table, int16_t count, RlNearestUse use);
void rl_nearest_close(RlNearest *n);
// Builds what a query needs, then answers it (or scans linearly).
int16_t rl_nearest_find_slow(RlNearest *n, uint8_t r, uint8_t g, uint8_t b);

// One row of 8-bit colours (`step` bytes apart, red first) mapped to the low
// bytes of their answers; `waiting` is scratch room for `width` entries.
void rl_nearest_map_row(RlNearest *n, const uint8_t *in, uint32_t step, int32_t width, uint8_t *out,
                        uint32_t *waiting);

// Greys match only greys and colours only colours. A query counts as grey
// when its channels are within kRlGreyTolerance of each other, a table entry
// only when its three channels are equal: keeping the classes apart stops a
// near-grey from picking up a tinted entry.
constexpr int32_t kRlGreyTolerance = 4;

// 1 for a query that counts as grey. Any 16-bit channels, not only 0-255.
inline uint32_t rl_grey_query(int32_t r, int32_t g, int32_t b) {
    auto near = [](int32_t a, int32_t c) {
        return static_cast<uint32_t>(a - c + kRlGreyTolerance) <= 2u * kRlGreyTolerance ? 1u : 0u;
    };
    return near(r, g) & near(g, b) & near(r, b);
}

// True for a table entry (red, green, blue) of the grey class.
inline bool rl_grey_entry(const uint8_t *entry) {
    return entry[0] == entry[1] && entry[1] == entry[2];
}

// A colour's cell at one level. A cell's eight parts follow one another, so
// that nearby colours share cache lines.
constexpr uint32_t rl_nearest_position(uint8_t r, uint8_t g, uint8_t b, int level) {
    uint32_t p = (static_cast<uint32_t>(r >> 5) << 6) | (static_cast<uint32_t>(g >> 5) << 3) |
                 static_cast<uint32_t>(b >> 5);
    for (int shift = 4; shift > 4 - level; --shift) {
        p = (p << 3) | ((static_cast<uint32_t>(r >> shift) & 1u) << 2) |
            ((static_cast<uint32_t>(g >> shift) & 1u) << 1) |
            (static_cast<uint32_t>(b >> shift) & 1u);
    }
    return p;
}

// Each channel's share of its 4-wide cell position, so that a query's cell
// is three lookups ORed together.
struct RlFineSpread {
    uint32_t red[256], green[256], blue[256];
};
constexpr RlFineSpread rl_make_fine_spread() {
    RlFineSpread s{};
    for (uint32_t v = 0; v < 256; ++v) {
        auto u = static_cast<uint8_t>(v);
        s.red[v] = rl_nearest_position(u, 0, 0, kRlNearestLevels - 1);
        s.green[v] = rl_nearest_position(0, u, 0, kRlNearestLevels - 1);
        s.blue[v] = rl_nearest_position(0, 0, u, kRlNearestLevels - 1);
    }
    return s;
}
inline constexpr RlFineSpread kRlFineSpread = rl_make_fine_spread();

inline uint32_t rl_fine_position(uint8_t r, uint8_t g, uint8_t b) {
    return kRlFineSpread.red[r] | kRlFineSpread.green[g] | kRlFineSpread.blue[b];
}

// The best of a list of candidates: the smallest distance, and among equal
// distances the smallest index. Distances stay below 2^18 and indices below
// 2^15, so (distance << 15 | index) orders the pairs exactly that way. Lists
// come in groups of four (the last one padded with copies of the first
// candidate, which change nothing), sorted by closest approach; a group whose
// first candidate cannot come within the best distance ends the scan (a
// closest approach held as 0xFFFF may be farther still, so it never stops a
// scan too early).
inline int16_t rl_nearest_scan(const RlNearestCandidate *k, uint32_t length, uint8_t r, uint8_t g,
                               uint8_t b) {
    if (length == 0) return 0;  // no entry of the query's class
    uint64_t best = ~uint64_t{0};
    for (uint32_t group = 0; group < length; group += 4, k += 4) {
        if (group != 0 && k->closest > (best >> 15)) break;
        for (int i = 0; i < 4; ++i) {
            int dr = r - k[i].red, dg = g - k[i].green, db = b - k[i].blue;
            uint64_t key = static_cast<uint64_t>(dr * dr + dg * dg + db * db) << 15 | k[i].index;
            best = key < best ? key : best;
        }
    }
    return static_cast<int16_t>(best & 0x7FFF);
}

// rlNearestRGBIndex(r, g, b, table, count), exactly. Inlined into the row
// loops: most answers come from a whole cell's answer or the recent cache.
__attribute__((always_inline)) inline int16_t rl_nearest_find(RlNearest *n, uint8_t r, uint8_t g,
                                                              uint8_t b) {
    if (n->recent == nullptr) return rl_nearest_find_slow(n, r, g, b);
    uint32_t position = rl_fine_position(r, g, b);
    if (n->uniform != nullptr) {
        uint32_t whole = n->uniform[position] - 1u;
        if (whole < kRlNearestMixed - 1u) return static_cast<int16_t>(whole);
    }
    uint32_t colour = (static_cast<uint32_t>(r) << 16) | (static_cast<uint32_t>(g) << 8) | b;
    uint32_t &recent = n->recent[(colour * 0x9E3779B1u) >> (32 - kRlNearestRecentBits)];
    uint32_t known = (recent ^ (colour << 8)) - 1;  // the index when the colours match
    if (known < 255u) return static_cast<int16_t>(known);
    int16_t index;
    const RlNearestCell *cell =
        n->fine[0] != nullptr ? &n->fine[rl_grey_query(r, g, b)][position] : nullptr;
    if (cell != nullptr && cell->start != 0 && n->uniform[position] != 0) {
        index = rl_nearest_scan(n->pool + cell->start, cell->length, r, g, b);
    } else {
        index = rl_nearest_find_slow(n, r, g, b);
    }
    if (index < 255) recent = colour << 8 | static_cast<uint32_t>(index + 1);
    return index;
}

#endif

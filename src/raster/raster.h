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

// The answers of a search asked many questions are kept by 4-wide cell, in
// blocks: the 64 colours' answers, each stored complemented so that memory
// still zero reads as "not known yet", then a mask of the colours whose
// answer is known (an answer of 255 is stored as 0 too). Block 0 stands for
// every cell not looked at yet and is never written; block a + 1 serves
// every cell whose colours all have the answer a; a cell with several
// answers gets a block of its own, filled colour by colour.
constexpr uint32_t kRlNearestBlockBytes = 72;
constexpr uint32_t kRlNearestSharedBlocks = 257;
constexpr uint32_t kRlNearestFineCells = 262144;

// How much a search is worth preparing: a handful of questions (a row of
// dithering, a colour map of 256 entries) or every pixel of a picture.
enum RlNearestUse { kRlNearestFew, kRlNearestMany };

struct RlNearest {
    const uint8_t *table;
    int32_t count;  // 0 for a missing table or a count below 1
    HGLOBAL poolHandle;
    HGLOBAL cacheHandle;
    HGLOBAL blockHandle;
    RlNearestCell classes[2];  // all colour entries, all grey entries; length 0 when unmade
    RlNearestCell *cells[2];   // every level, for colour queries and for grey queries
    RlNearestCandidate *pool;  // every list, one after another; null: the linear scan serves
    // Per 4-wide cell, the byte offset of its block in `blocks`; null when
    // no answers are kept (a table of more than 256 entries, or few questions).
    uint32_t *cellBlock;
    uint8_t *blocks;
    uint8_t *coarse;  // per 8-wide cell: non-zero once looked at
    uint32_t blocksUsed;
    uint32_t blocksSize;
    uint32_t poolUsed;
    uint32_t poolSize;
    bool wideScan;  // the kept answers' lists are scanned eight at a time
    bool wideRows;  // rows of 3-byte colours are mapped sixteen at a time
};

// Prepares a search of the first `count` entries of `table` (which must
// outlive it). `questions`, when known, is about how many colours will be
// asked (a picture's pixels), to size the search's first room. 0, or -1 when
// memory was short: the search then answers through a simpler road, so the
// answers stay right either way.
int32_t rl_nearest_open(RlNearest *n, const uint8_t *table, int16_t count, RlNearestUse use,
                        int64_t questions = 0);
void rl_nearest_close(RlNearest *n);
// Test-only: searches opened while this is on take the plain roads even
// where the processor has wider ones, so that both are checked on one
// machine.
void rl_nearest_narrow(bool narrow);
// Builds what a query needs, then answers it (or scans linearly).
int16_t rl_nearest_find_slow(RlNearest *n, uint8_t r, uint8_t g, uint8_t b);

// One row of 8-bit colours (`step` bytes apart, red first) mapped to the low
// bytes of their answers.
void rl_nearest_map_row(RlNearest *n, const uint8_t *in, uint32_t step, int32_t width,
                        uint8_t *out);

// rlConvertBitmapDepth from 24 to 8 bits onto dstTable, written over the
// source's own block for a source that is not needed afterwards: the first
// rlCalcNewSize(width, height, 8) bytes of `bits` then hold exactly the
// bitmap rlConvertBitmapDepth would return, and `bits` is returned. Where
// that cannot be done safely the result is a new block, as from
// rlConvertBitmapDepth.
HGLOBAL rl_convert_over_source(HGLOBAL bits, int32_t width, int32_t height, HGLOBAL dstTable,
                               int16_t dstCount);

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

// A colour's key: its 4-wide cell's position times 64, plus its place in
// the cell. Each channel's share is looked up, so the key is three loads ORed.
struct RlKeySpread {
    uint32_t red[256], green[256], blue[256];
};
constexpr RlKeySpread rl_make_key_spread() {
    RlKeySpread s{};
    for (uint32_t v = 0; v < 256; ++v) {
        auto u = static_cast<uint8_t>(v);
        s.red[v] = rl_nearest_position(u, 0, 0, kRlNearestLevels - 1) << 6 | (v & 3u) << 4;
        s.green[v] = rl_nearest_position(0, u, 0, kRlNearestLevels - 1) << 6 | (v & 3u) << 2;
        s.blue[v] = rl_nearest_position(0, 0, u, kRlNearestLevels - 1) << 6 | (v & 3u);
    }
    return s;
}
inline constexpr RlKeySpread kRlKeySpread = rl_make_key_spread();

inline uint32_t rl_nearest_key(uint8_t r, uint8_t g, uint8_t b) {
    return kRlKeySpread.red[r] | kRlKeySpread.green[g] | kRlKeySpread.blue[b];
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
// loops: most answers are a cell's block byte, known already.
__attribute__((always_inline)) inline int16_t rl_nearest_find(RlNearest *n, uint8_t r, uint8_t g,
                                                              uint8_t b) {
    if (n->cellBlock != nullptr) {
        uint32_t key = rl_nearest_key(r, g, b);
        uint8_t stored = n->blocks[n->cellBlock[key >> 6] + (key & 63u)];
        if (stored != 0) return static_cast<int16_t>(stored ^ 0xFFu);
    }
    return rl_nearest_find_slow(n, r, g, b);
}

#endif

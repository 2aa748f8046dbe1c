// Error diffusion of one scan line (_rlDitherOneLine) and the nearest-colour
// search it runs for every pixel.
//
// Left to right, no serpentine: each pixel takes its nearest table colour and
// hands the integer error on as e*7/16 to the right and e*7/16 - k*(e/8) below
// (k = 1 straight down, 2 down-left, 3 down-right), every sum clamped through
// BOUNDARY_CHK. The last pixel of a row is not searched but repeats the
// previous pixel's colour, which keeps the row's last error from spilling
// past its end. Invariant: the divisions truncate toward zero, and a channel
// plus an error always stays within the clamp table's -128..383.
#include "raster/dither.h"

namespace {

// Queries whose channels lie within 4 of each other are greys; they match only
// entries with three equal channels, and colours only the other entries.
bool grey_query(int32_t r, int32_t g, int32_t b) {
    return feqi(r, g, 4) != 0 && feqi(g, b, 4) != 0 && feqi(r, b, 4) != 0;
}

void add_entry(NearestClass *c, int16_t index, const uint8_t *rgb) {
    c->index[c->n] = index;
    c->rgb[3 * c->n] = rgb[0];
    c->rgb[3 * c->n + 1] = rgb[1];
    c->rgb[3 * c->n + 2] = rgb[2];
    c->n += 1;
}

uint8_t clamp(int32_t v) { return BOUNDARY_CHK[128 + v]; }

}  // namespace

void nearest_make(NearestSearch *search, const uint8_t *table, int16_t count, RlNearest *cells) {
    search->table = table;
    search->count = count;
    search->grey.n = 0;
    search->colour.n = 0;
    search->cells = cells;
    search->memoKey = nullptr;
    search->memoIndex = nullptr;
    search->split = cells == nullptr && table != nullptr && count <= TOLVA_NEAREST_SPLIT_MAX;
    if (!search->split) return;
    for (int16_t i = 0; i < count; ++i) {
        const uint8_t *e = table + 3 * i;
        add_entry(e[0] == e[1] && e[1] == e[2] ? &search->grey : &search->colour, i, e);
    }
}

namespace {

int16_t search_table(const NearestSearch *search, RlNearest *cells, uint8_t red, uint8_t green,
                     uint8_t blue) {
    if (cells != nullptr) return rl_nearest_find(cells, red, green, blue);
    if (!search->split) {
        return rlNearestRGBIndex(red, green, blue, search->table, search->count);
    }
    const NearestClass &c = grey_query(red, green, blue) ? search->grey : search->colour;
    uint32_t best = 0x7FFFFFFF;
    int16_t bestIndex = 0;
    const uint8_t *e = c.rgb;
    for (int32_t i = 0; i < c.n; ++i, e += 3) {
        int32_t dr = red - e[0];
        int32_t dg = green - e[1];
        int32_t db = blue - e[2];
        auto d = static_cast<uint32_t>(db * db + dg * dg + dr * dr);
        if (d < best) {
            if (d == 0) return c.index[i];
            best = d;
            bestIndex = c.index[i];
        }
    }
    return bestIndex;
}

}  // namespace

int16_t nearest_find(NearestSearch *search, uint8_t red, uint8_t green, uint8_t blue) {
    if (search->memoKey == nullptr) return search_table(search, search->cells, red, green, blue);
    // The answer depends on the colour alone, so a slot keyed by the whole
    // colour can be reused until it is overwritten.
    uint32_t key = 1u << 24 | static_cast<uint32_t>(red) << 16 |
                   static_cast<uint32_t>(green) << 8 | blue;
    uint32_t slot = (key * 2654435761u) >> 20;
    if (search->memoKey[slot] == key) return search->memoIndex[slot];
    int16_t k = search_table(search, search->cells, red, green, blue);
    search->memoKey[slot] = key;
    search->memoIndex[slot] = k;
    return k;
}

namespace {

// The row loop, with and without a next row; the first pixel has no
// below-left neighbour.
template <bool kNext>
int16_t diffuse(uint8_t *current, uint8_t *next, NearestSearch *search, int32_t width,
                int16_t *chosen) {
    const uint8_t *table = search->table;
    int16_t k = 0;
    for (int32_t x = 0; x + 1 < width; ++x) {
        uint8_t *p = current + 3 * static_cast<ptrdiff_t>(x);
        k = nearest_find(search, p[0], p[1], p[2]);
        if (chosen != nullptr) chosen[x] = k;
        const uint8_t *t = table + 3 * k;
        for (int c = 0; c < 3; ++c) {
            int32_t e = p[c] - t[c];
            int32_t e8 = e / 8;
            int32_t e716 = (7 * e) / 16;
            p[c] = t[c];
            p[3 + c] = clamp(p[3 + c] + e716);
            if constexpr (kNext) {
                uint8_t *q = next + 3 * static_cast<ptrdiff_t>(x) + c;
                q[0] = clamp(q[0] + e716 - e8);
                if (x > 0) q[-3] = clamp(q[-3] + e716 - 2 * e8);
                q[3] = clamp(q[3] + e716 - 3 * e8);
            }
        }
    }
    return k;
}

}  // namespace

bool dither_row(uint8_t *current, uint8_t *next, NearestSearch *search, int32_t width,
                int16_t *chosen) {
    const uint8_t *table = search->table;
    if (table == nullptr || search->count < 1 || width < 1 || current == nullptr) return false;
    // A row of one pixel takes entry 0.
    int16_t k = next != nullptr ? diffuse<true>(current, next, search, width, chosen)
                                : diffuse<false>(current, nullptr, search, width, chosen);
    if (chosen != nullptr) chosen[width - 1] = k;
    uint8_t *last = current + 3 * static_cast<ptrdiff_t>(width - 1);
    const uint8_t *t = table + 3 * k;
    last[0] = t[0];
    last[1] = t[1];
    last[2] = t[2];
    return true;
}

extern "C" {

void _rlDitherOneLine(uint8_t *current, uint8_t *next, const uint8_t *table, int32_t width,
                      int16_t count) {
    NearestSearch search;
    nearest_make(&search, table, count, nullptr);
    (void)dither_row(current, next, &search, width, nullptr);  // rows left alone need no note
}

}  // extern "C"

// Error diffusion of one scan line (_rlDitherOneLine).
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

uint8_t clamp(int32_t v) { return BOUNDARY_CHK[128 + v]; }

}  // namespace

namespace {

// The row loop, with and without a next row; the first pixel has no
// below-left neighbour.
template <bool kNext>
int16_t diffuse(uint8_t *current, uint8_t *next, RlNearest *search, int32_t width,
                int16_t *chosen) {
    const uint8_t *table = search->table;
    int16_t k = 0;
    for (int32_t x = 0; x + 1 < width; ++x) {
        uint8_t *p = current + 3 * static_cast<ptrdiff_t>(x);
        k = rl_nearest_find(search, p[0], p[1], p[2]);
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

bool rl_dither_row(uint8_t *current, uint8_t *next, RlNearest *search, int32_t width,
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
    RlNearest search;
    (void)rl_nearest_open(&search, table, count, kRlNearestFew);  // falls back by itself
    (void)rl_dither_row(current, next, &search, width, nullptr);  // rows left alone need no note
    rl_nearest_close(&search);
}

}  // extern "C"

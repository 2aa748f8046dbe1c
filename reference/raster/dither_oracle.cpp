// Literal per-pixel dithering; see dither_oracle.h.
#include "raster/dither_oracle.h"

#include "raster/raster_oracle.h"

namespace {

uint8_t chk(int32_t v) { return BOUNDARY_CHK[128 + v]; }

}  // namespace

void oracle_dither_line(uint8_t *current, uint8_t *next, const uint8_t *table, int32_t width,
                        int16_t count) {
    int16_t k = 0;
    for (int32_t x = 0; x <= width - 2; ++x) {
        uint8_t *p = current + 3 * x;
        k = rasteroracle::nearest_index(p[0], p[1], p[2], table, count);
        for (int c = 0; c < 3; ++c) {
            int32_t e = p[c] - table[3 * k + c];
            int32_t e8 = e / 8;
            int32_t e716 = (7 * e) / 16;
            p[c] = table[3 * k + c];
            p[3 + c] = chk(p[3 + c] + e716);
            if (next != nullptr) {
                next[3 * x + c] = chk(next[3 * x + c] + e716 - e8);
                if (x > 0) next[3 * (x - 1) + c] = chk(next[3 * (x - 1) + c] + e716 - 2 * e8);
                next[3 * (x + 1) + c] = chk(next[3 * (x + 1) + c] + e716 - 3 * e8);
            }
        }
    }
    for (int c = 0; c < 3; ++c) current[3 * (width - 1) + c] = table[3 * k + c];
}

HGLOBAL oracle_dither_given(HGLOBAL bits, int32_t width, int32_t height, int16_t srcBits,
                            int16_t dstBits, HGLOBAL table, int16_t count) {
    const auto *src = static_cast<const uint8_t *>(GlobalLock(bits));
    const auto *t = static_cast<const uint8_t *>(GlobalLock(table));
    int32_t srcLine = rlBytesPerLine(width, srcBits);
    int32_t line = rlBytesPerLine(width, 24);
    HGLOBAL work = GlobalAlloc(66, rlCalcNewSize(width, height, 24));
    auto *w = static_cast<uint8_t *>(GlobalLock(work));
    // The copy takes no table: indexed pixels become packed value 0.
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x) {
            uint32_t v = srcBits >= 24 ? rlGetPixel(src, srcLine, x, y, srcBits) : 0;
            rlSetPixel(w, line, x, y, 24, v, nullptr, nullptr, 0);
        }
    for (int32_t y = 0; y < height; ++y) {
        uint8_t *current = w + y * line;
        uint8_t *next = y + 1 < height ? current + line : nullptr;
        if (dstBits == 1) {
            if (y == 0) rev_rgb(width, current, 3);
            if (next != nullptr) rev_rgb(width, next, 3);
        }
        oracle_dither_line(current, next, t, width, count);
    }
    HGLOBAL out = GlobalAlloc(66, rlCalcNewSize(width, height, dstBits));
    auto *o = static_cast<uint8_t *>(GlobalLock(out));
    int32_t outLine = rlBytesPerLine(width, dstBits);
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x) {
            const uint8_t *p = w + y * line + 3 * x;
            int16_t k = rasteroracle::nearest_index(p[0], p[1], p[2], t, count);
            rlSetPixel(o, outLine, x, y, dstBits, static_cast<uint32_t>(static_cast<int8_t>(k)),
                       nullptr, nullptr, 0);
        }
    GlobalFree(work);
    return out;
}

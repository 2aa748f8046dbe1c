// Literal per-pixel scaling loops; see scale_oracle.h.
#include "raster/scale_oracle.h"

#include <cstring>

namespace {

double ratio_of(int32_t a, int32_t b) {
    return static_cast<double>(static_cast<uint32_t>(a)) /
           static_cast<double>(static_cast<uint32_t>(b));
}

void copy_pixel(const uint8_t *src, int32_t sbpl, int32_t sx, uint8_t *dst, int32_t dbpl,
                int32_t dx, int32_t row, int16_t bpp) {
    rlSetPixel(dst, dbpl, dx, row, bpp, rlGetPixel(src, sbpl, sx, row, bpp), nullptr, nullptr, 0);
}

void scale_row(const uint8_t *src, uint8_t *dst, int16_t bpp, int32_t sw, int32_t dw) {
    if (dw > sw) {
        oracle_StretchX(src, dst, bpp, sw, 1, dw);
    } else {
        oracle_ShrinkX(src, dst, bpp, sw, 1, dw);
    }
}

}  // namespace

void oracle_ShrinkX(const uint8_t *src, uint8_t *dst, int16_t bpp, int32_t sw, int32_t rows,
                    int32_t dw) {
    int32_t sbpl = rlBytesPerLine(sw, bpp);
    int32_t dbpl = rlBytesPerLine(dw, bpp);
    double ratio = ratio_of(sw, dw);
    for (int32_t r = 0; r < rows; ++r) {
        uint32_t prev = 0;
        uint32_t sx = 0;
        for (int32_t i = 1; i <= dw; ++i) {
            auto pos = static_cast<uint32_t>(i * ratio);
            uint32_t step = pos - prev;
            prev = pos;
            if (i != dw) {
                copy_pixel(src, sbpl, static_cast<int32_t>(sx), dst, dbpl, i - 1, r, bpp);
                sx += step;
            } else {
                copy_pixel(src, sbpl, sw - 1, dst, dbpl, i - 1, r, bpp);
            }
        }
    }
}

void oracle_StretchX(const uint8_t *src, uint8_t *dst, int16_t bpp, int32_t sw, int32_t rows,
                     int32_t dw) {
    int32_t sbpl = rlBytesPerLine(sw, bpp);
    int32_t dbpl = rlBytesPerLine(dw, bpp);
    double ratio = ratio_of(dw, sw);
    for (int16_t r = 0; r < rows && r < INT16_MAX; ++r) {
        int32_t dx = dw - 1;
        uint16_t prev = 0;
        for (auto sx = static_cast<int16_t>(sw - 1); sx >= 0; --sx) {
            uint32_t p = rlGetPixel(src, sbpl, sx, r, bpp);
            auto pos = static_cast<uint16_t>(static_cast<int64_t>((sw - sx) * ratio));
            auto n = static_cast<int16_t>(static_cast<uint16_t>(pos - prev));
            prev = pos;
            for (int16_t j = 0; j < n; ++j, --dx) {
                if (dx >= 0) rlSetPixel(dst, dbpl, dx, r, bpp, p, nullptr, nullptr, 0);
            }
        }
    }
}

void oracle_Shrink(const uint8_t *src, uint8_t *dst, int16_t bpp, int32_t sw, int32_t sh,
                   int32_t dw, int32_t dh) {
    int32_t sbpl = rlBytesPerLine(sw, bpp);
    int32_t dbpl = rlBytesPerLine(dw, bpp);
    double ratio = ratio_of(sh, dh);
    int64_t srcRow = 0;
    int16_t prev = 0;
    for (int32_t i = 1; i <= dh; ++i) {
        auto pos = static_cast<int16_t>(static_cast<int64_t>(i * ratio));
        int32_t step = pos - prev;
        prev = pos;
        uint8_t *d = dst + static_cast<ptrdiff_t>(i - 1) * dbpl;
        if (i == dh) scale_row(src + static_cast<ptrdiff_t>(sh - 1) * sbpl, d, bpp, sw, dw);
        if (srcRow >= 0 && srcRow < sh) {
            scale_row(src + static_cast<ptrdiff_t>(srcRow) * sbpl, d, bpp, sw, dw);
        }
        srcRow += step;
    }
}

void oracle_Stretch(const uint8_t *src, uint8_t *dst, int16_t bpp, int32_t sw, int32_t sh,
                    int32_t dw, int32_t dh) {
    int32_t sbpl = rlBytesPerLine(sw, bpp);
    int32_t dbpl = rlBytesPerLine(dw, bpp);
    double ratio = ratio_of(dh, sh);
    int64_t srcRow = sh - 1;
    int64_t dstRow = dh - 1;
    int32_t prev = 0;
    for (int32_t sy = sh - 1; sy >= 0; --sy) {
        auto pos = static_cast<int32_t>(static_cast<int64_t>((sh - sy) * ratio));
        int32_t n = pos - prev;
        prev = pos;
        if (n != 0) {
            if (dstRow >= 0) {
                scale_row(src + srcRow * sbpl, dst + dstRow * dbpl, bpp, sw, dw);
            }
            for (int32_t k = 1; k < n; ++k) {
                dstRow -= 1;
                if (dstRow >= 0)
                    std::memcpy(dst + dstRow * dbpl, dst + (dstRow + 1) * dbpl,
                                static_cast<size_t>(dbpl));
            }
            dstRow -= 1;
        }
        srcRow -= 1;
    }
}

HGLOBAL oracle_scale_bitmap(HGLOBAL bits, int16_t bpp, int32_t sw, int32_t sh, int32_t dw,
                            int32_t dh) {
    HGLOBAL out = GlobalAlloc(66, rlCalcNewSize(dw, dh, bpp));
    auto *dst = static_cast<uint8_t *>(GlobalLock(out));
    const auto *src = static_cast<const uint8_t *>(GlobalLock(bits));
    if (dh > sh) {
        oracle_Stretch(src, dst, bpp, sw, sh, dw, dh);
    } else {
        oracle_Shrink(src, dst, bpp, sw, sh, dw, dh);
    }
    return out;
}

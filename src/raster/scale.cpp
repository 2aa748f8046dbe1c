// Resizing by point sampling (shrink) and pixel replication (stretch), with no
// averaging: rlShrinkBitmap and rlStretchBitmap, the row functions Shrink and
// Stretch, and the pixel functions ShrinkX and StretchX.
//
// Which source pixel lands where is decided by the sampling loops' own double
// products and integer truncations, 16-bit wraps included; those loops are
// replayed once per call into a row plan (source pixel per destination pixel,
// -1 for pixels no source reaches) and the plan is then applied row by row
// with byte and bit copies per depth. Invariant: applying a plan writes
// exactly the pixels, values and order that one rlGetPixel/rlSetPixel call per
// pixel would, and nothing outside the rows it is given.
#include <cstdio>
#include <cstring>

#include "raster/raster.h"
#include "raster/scale.h"

namespace {

// Products of a loop counter and a ratio are truncated toward zero. Every
// product here is bounded by the larger size (below 2^31), so the int64 step
// is exact before any narrowing to 16 bits.
int64_t trunc_product(double counter, double ratio) {
    return static_cast<int64_t>(counter * ratio);
}

double size_ratio(int32_t numerator, int32_t denominator) {
    return static_cast<double>(static_cast<uint32_t>(numerator)) /
           static_cast<double>(static_cast<uint32_t>(denominator));
}

// Point sampling: destination pixel k takes source pixel trunc(k * ratio),
// accumulated step by step; the last one always takes the last source pixel.
void plan_shrink(int32_t *plan, int32_t srcWidth, int32_t dstWidth) {
    double ratio = size_ratio(srcWidth, dstWidth);
    uint32_t prev = 0;
    uint32_t sx = 0;
    for (int32_t i = 1; i <= dstWidth; ++i) {
        auto pos = static_cast<uint32_t>(trunc_product(i, ratio));
        uint32_t step = pos - prev;
        prev = pos;
        if (i != dstWidth) {
            plan[i - 1] = static_cast<int32_t>(sx);
            sx += step;
        } else {
            plan[i - 1] = srcWidth - 1;
        }
    }
}

// Replication from the right. The source counter, the position and the repeat
// count are 16-bit: a row wider than 32767 pixels starts from a wrapped counter
// and a repeat count beyond 32767 turns negative, which writes nothing. Pixels
// left of the last write stay as they were.
void plan_stretch(int32_t *plan, int32_t srcWidth, int32_t dstWidth) {
    for (int32_t k = 0; k < dstWidth; ++k) plan[k] = -1;
    double ratio = size_ratio(dstWidth, srcWidth);
    int32_t dx = dstWidth - 1;
    uint16_t prev = 0;
    for (auto sx = static_cast<int16_t>(srcWidth - 1); sx >= 0; --sx) {
        auto pos = static_cast<uint16_t>(trunc_product(srcWidth - sx, ratio));
        auto n = static_cast<int16_t>(static_cast<uint16_t>(pos - prev));
        prev = pos;
        for (int16_t j = 0; j < n; ++j, --dx) {
            if (dx >= 0) plan[dx] = sx;  // a write left of the row is dropped
        }
    }
}

// Writes through rlSetPixel itself, in the sampling loop's order, so that the
// per-pixel trace of a high debug level comes out exactly as the loop prints it.
void apply_traced(const ScalePlan &plan, const uint8_t *src, int32_t srcBytesPerLine, uint8_t *dst,
                  int32_t dstBytesPerLine, int32_t row) {
    for (int32_t n = 0; n < plan.dstWidth; ++n) {
        int32_t k = plan.fromRight ? plan.dstWidth - 1 - n : n;
        int32_t s = plan.source[k];
        if (s < 0) continue;
        uint32_t v = rlGetPixel(src, srcBytesPerLine, s, row, plan.bitsPerPixel);
        (void)rlSetPixel(dst, dstBytesPerLine, k, row, plan.bitsPerPixel, v, nullptr, nullptr, 0);
    }
}

}  // namespace

int32_t rl_scale_plan_make(ScalePlan *plan, int16_t bitsPerPixel, int32_t srcWidth,
                           int32_t dstWidth, bool replicate) {
    plan->handle = 0;
    plan->source = nullptr;
    plan->dstWidth = dstWidth;
    plan->bitsPerPixel = bitsPerPixel;
    plan->fromRight = replicate;
    if (srcWidth <= 0 || dstWidth <= 0) return -1;
    plan->handle = rlGetMemory(4, dstWidth);
    plan->source = static_cast<int32_t *>(rlLockMemory(plan->handle));
    if (plan->source == nullptr) return -1;
    if (plan->fromRight) {
        plan_stretch(plan->source, srcWidth, dstWidth);
    } else {
        plan_shrink(plan->source, srcWidth, dstWidth);
    }
    return 0;
}

void rl_scale_plan_free(ScalePlan *plan) {
    (void)rlUnlockMemory(plan->handle);
    (void)rlFreeNewData(plan->handle);
    plan->handle = 0;
    plan->source = nullptr;
}

void rl_scale_plan_apply(const ScalePlan *plan, const uint8_t *src, int32_t srcBytesPerLine,
                         uint8_t *dst, int32_t dstBytesPerLine, int32_t row) {
    if (!rl_pixel_depth(plan->bitsPerPixel)) return;  // other depths read 0, write nothing
    if (_debug_color_res > 3) {
        apply_traced(*plan, src, srcBytesPerLine, dst, dstBytesPerLine, row);
        return;
    }
    const uint8_t *s = src + static_cast<ptrdiff_t>(row) * srcBytesPerLine;
    uint8_t *d = dst + static_cast<ptrdiff_t>(row) * dstBytesPerLine;
    const int32_t *from = plan->source;
    int32_t width = plan->dstWidth;
    switch (plan->bitsPerPixel) {
    case 1:
        for (int32_t k = 0; k < width; ++k) {
            int32_t x = from[k];
            if (x < 0) continue;
            auto bit = static_cast<uint32_t>(s[x >> 3] >> (7 - (x & 7))) & 1u;
            uint8_t &byte = d[k >> 3];
            uint32_t mask = 1u << (7 - (k & 7));
            byte = static_cast<uint8_t>((byte & ~mask) | (bit << (7 - (k & 7))));
        }
        break;
    case 4:
        for (int32_t k = 0; k < width; ++k) {
            int32_t x = from[k];
            if (x < 0) continue;
            uint32_t nibble =
                (x & 1) != 0 ? s[x >> 1] & 15u : static_cast<uint32_t>(s[x >> 1] >> 4);
            uint8_t &byte = d[k >> 1];
            byte = (k & 1) != 0 ? static_cast<uint8_t>((byte & 0xF0u) | nibble)
                                : static_cast<uint8_t>((byte & 0x0Fu) | (nibble << 4));
        }
        break;
    case 8:
        for (int32_t k = 0; k < width; ++k) {
            if (from[k] >= 0) d[k] = s[from[k]];
        }
        break;
    case 24:
        for (int32_t k = 0; k < width; ++k) {
            if (from[k] >= 0)
                std::memcpy(d + 3 * static_cast<ptrdiff_t>(k),
                            s + 3 * static_cast<ptrdiff_t>(from[k]), 3);
        }
        break;
    default:  // 32
        for (int32_t k = 0; k < width; ++k) {
            if (from[k] >= 0)
                std::memcpy(d + 4 * static_cast<ptrdiff_t>(k),
                            s + 4 * static_cast<ptrdiff_t>(from[k]), 4);
        }
        break;
    }
}

namespace {

// Both entries: a zeroed destination, drawn only when both blocks lock and the
// source block really holds the rows its size claims.
HGLOBAL scale_bitmap(HGLOBAL bits, int16_t bitsPerPixel, int32_t srcWidth, int32_t srcHeight,
                     int32_t dstWidth, int32_t dstHeight) {
    int32_t dstLine = rlBytesPerLine(dstWidth, bitsPerPixel);
    if (dstWidth < 0 || dstHeight < 0 || dstLine < 0 ||
        static_cast<int64_t>(dstLine) * dstHeight > INT32_MAX) {
        return 0;
    }
    HGLOBAL result = rlGetMemory(1, dstLine * dstHeight);
    auto *dst = static_cast<uint8_t *>(rlLockMemory(result));
    if (dst == nullptr) return result;
    const auto *src = static_cast<const uint8_t *>(rlLockMemory(bits));
    int32_t srcLine = rlBytesPerLine(srcWidth, bitsPerPixel);
    bool whole =
        src != nullptr && srcWidth > 0 && srcHeight > 0 && srcLine > 0 &&
        static_cast<uint64_t>(srcLine) * static_cast<uint64_t>(srcHeight) <= GlobalSize(bits);
    if (whole) {
        if (dstHeight > srcHeight) {
            (void)Stretch(src, dst, bitsPerPixel, srcWidth, srcHeight, dstWidth, dstHeight);
        } else {
            (void)Shrink(src, dst, bitsPerPixel, srcWidth, srcHeight, dstWidth, dstHeight);
        }
    }
    (void)rlUnlockMemory(bits);
    (void)rlUnlockMemory(result);
    return result;
}

bool valid_sizes(const void *src, const void *dst, int32_t a, int32_t b, int32_t c, int32_t d) {
    return src != nullptr && dst != nullptr && a > 0 && b > 0 && c > 0 && d > 0;
}

// Scales the first `last` of `rows` rows across, by the plan for a shrink or
// a stretch; always 0.
int32_t scale_rows(const uint8_t *srcRow, uint8_t *dstRow, int16_t bitsPerPixel, int32_t srcWidth,
                   int32_t rows, int32_t dstWidth, bool stretch, int32_t last) {
    if (!valid_sizes(srcRow, dstRow, srcWidth, rows, dstWidth, 1)) return 0;
    ScalePlan plan;
    if (rl_scale_plan_make(&plan, bitsPerPixel, srcWidth, dstWidth, stretch) == 0) {
        int32_t srcLine = rlBytesPerLine(srcWidth, bitsPerPixel);
        int32_t dstLine = rlBytesPerLine(dstWidth, bitsPerPixel);
        for (int32_t r = 0; r < last; ++r) {
            rl_scale_plan_apply(&plan, srcRow, srcLine, dstRow, dstLine, r);
        }
    }
    rl_scale_plan_free(&plan);
    return 0;
}

}  // namespace

extern "C" {

HGLOBAL rlShrinkBitmap(HGLOBAL bits, int16_t bitsPerPixel, int32_t srcWidth, int32_t srcHeight,
                       int32_t dstWidth, int32_t dstHeight) {
    return scale_bitmap(bits, bitsPerPixel, srcWidth, srcHeight, dstWidth, dstHeight);
}

HGLOBAL rlStretchBitmap(HGLOBAL bits, int16_t bitsPerPixel, int32_t srcWidth, int32_t srcHeight,
                        int32_t dstWidth, int32_t dstHeight) {
    return scale_bitmap(bits, bitsPerPixel, srcWidth, srcHeight, dstWidth, dstHeight);
}

int32_t Shrink(const uint8_t *src, uint8_t *dst, int16_t bitsPerPixel, int32_t srcWidth,
               int32_t srcHeight, int32_t dstWidth, int32_t dstHeight) {
    if (!valid_sizes(src, dst, srcWidth, srcHeight, dstWidth, dstHeight)) return 0;
    ScalePlan plan;
    if (rl_scale_plan_make(&plan, bitsPerPixel, srcWidth, dstWidth, dstWidth > srcWidth) == 0) {
        int32_t srcLine = rlBytesPerLine(srcWidth, bitsPerPixel);
        int32_t dstLine = rlBytesPerLine(dstWidth, bitsPerPixel);
        double ratio = size_ratio(srcHeight, dstHeight);
        // The row position is kept in 16 bits while the step between two
        // positions is a full int: past row 32767 the position wraps and the
        // step jumps back. Rows the wrap sends before the first one are not
        // read; their destination rows keep what they held.
        int16_t prev = 0;
        int64_t srcRow = 0;
        for (int32_t i = 1; i <= dstHeight; ++i) {
            auto pos = static_cast<int16_t>(trunc_product(i, ratio));
            int32_t step = pos - prev;
            prev = pos;
            uint8_t *dstRow = dst + static_cast<ptrdiff_t>(i - 1) * dstLine;
            if (i == dstHeight) {
                // Scaled and then overwritten by the sampled row below.
                rl_scale_plan_apply(&plan, src + static_cast<ptrdiff_t>(srcHeight - 1) * srcLine,
                                    srcLine, dstRow, dstLine, 0);
            }
            if (srcRow >= 0 && srcRow < srcHeight) {
                rl_scale_plan_apply(&plan, src + static_cast<ptrdiff_t>(srcRow) * srcLine, srcLine,
                                    dstRow, dstLine, 0);
            }
            srcRow += step;
        }
    }
    rl_scale_plan_free(&plan);
    return 0;
}

int32_t Stretch(const uint8_t *src, uint8_t *dst, int16_t bitsPerPixel, int32_t srcWidth,
                int32_t srcHeight, int32_t dstWidth, int32_t dstHeight) {
    if (!valid_sizes(src, dst, srcWidth, srcHeight, dstWidth, dstHeight)) return 0;
    ScalePlan plan;
    if (rl_scale_plan_make(&plan, bitsPerPixel, srcWidth, dstWidth, dstWidth > srcWidth) == 0) {
        int32_t srcLine = rlBytesPerLine(srcWidth, bitsPerPixel);
        int32_t dstLine = rlBytesPerLine(dstWidth, bitsPerPixel);
        auto line = static_cast<size_t>(dstLine);
        double ratio = size_ratio(dstHeight, srcHeight);
        int32_t prev = 0;
        int64_t dstRow = dstHeight - 1;
        for (int32_t sy = srcHeight - 1; sy >= 0; --sy) {
            auto pos = static_cast<int32_t>(trunc_product(srcHeight - sy, ratio));
            int32_t n = pos - prev;
            prev = pos;
            if (n == 0) continue;  // this source row is skipped
            if (dstRow >= 0) {
                rl_scale_plan_apply(&plan, src + static_cast<ptrdiff_t>(sy) * srcLine, srcLine,
                                    dst + static_cast<ptrdiff_t>(dstRow) * dstLine, dstLine, 0);
            }
            // Further copies are byte copies of the row just written, upward.
            for (int32_t k = 1; k < n && dstRow > 0; ++k, --dstRow) {
                uint8_t *row = dst + static_cast<ptrdiff_t>(dstRow) * dstLine;
                std::memcpy(row - dstLine, row, line);
            }
            dstRow -= 1;
        }
    }
    rl_scale_plan_free(&plan);
    return 0;
}

int32_t ShrinkX(const uint8_t *srcRow, uint8_t *dstRow, int16_t bitsPerPixel, int32_t srcWidth,
                int32_t rows, int32_t dstWidth) {
    return scale_rows(srcRow, dstRow, bitsPerPixel, srcWidth, rows, dstWidth, false, rows);
}

int32_t StretchX(const uint8_t *srcRow, uint8_t *dstRow, int16_t bitsPerPixel, int32_t srcWidth,
                 int32_t rows, int32_t dstWidth) {
    // The row counter is 16-bit: it never reaches a count above 32767, so
    // at most 32767 rows are scaled.
    int32_t last = rows > INT16_MAX ? INT16_MAX : rows;
    return scale_rows(srcRow, dstRow, bitsPerPixel, srcWidth, rows, dstWidth, true, last);
}

}  // extern "C"

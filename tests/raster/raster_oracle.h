// The literal per-pixel algorithms, kept as oracles for the row-wise and
// cached paths of the library (tests and benchmarks).
#ifndef TOLVA_TESTS_RASTER_ORACLE_H
#define TOLVA_TESTS_RASTER_ORACLE_H

#include <cstdint>

#include "tolva/tolva.h"

namespace rasteroracle {

// rlConvertBitmapDepth as one rlSetPixel(rlGetPixel()) call per pixel, with
// the map of the two tables. Tables must hold their full 2^srcBits and
// dstCount entries.
inline HGLOBAL convert(HGLOBAL bits, int32_t width, int32_t height, int16_t srcBits,
                       int16_t dstBits, HGLOBAL srcTable, HGLOBAL dstTable, int16_t dstCount) {
    const auto *src = static_cast<const uint8_t *>(rlLockMemory(bits));
    const auto *srcColours = static_cast<const uint8_t *>(rlLockMemory(srcTable));
    const auto *dstColours = static_cast<const uint8_t *>(rlLockMemory(dstTable));
    HGLOBAL result = rlGetMemory(1, static_cast<int32_t>(rlCalcNewSize(width, height, dstBits)));
    auto *dst = static_cast<uint8_t *>(rlLockMemory(result));
    HGLOBAL map = rlBuildColormap(srcColours, srcBits, dstColours, dstBits, dstCount);
    const auto *m = static_cast<const uint32_t *>(rlLockMemory(map));
    int32_t srcRow = rlBytesPerLine(width, srcBits), dstRow = rlBytesPerLine(width, dstBits);
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x)
            rlSetPixel(dst, dstRow, x, y, dstBits, rlGetPixel(src, srcRow, x, y, srcBits), m,
                       dstColours, dstCount);
    rlFreeColormap(map);
    return result;
}

// 24 -> 8 as rlChangeColorResolution defines it: a median-cut table, then
// the literal conversion against it.
inline HGLOBAL to_eight_bits(HGLOBAL bits, int32_t width, int32_t height, HGLOBAL *table) {
    int16_t count = 256;
    *table = rlReduceColorTable(bits, width, height, &count);
    return convert(bits, width, height, 24, 8, 0, *table, count);
}

}  // namespace rasteroracle

#endif

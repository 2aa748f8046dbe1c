// The literal per-pixel conversion and median-cut loops; see raster_oracle.h.
#include "raster/raster_oracle.h"

#include <vector>

namespace rasteroracle {

HGLOBAL convert(HGLOBAL bits, int32_t width, int32_t height, int16_t srcBits, int16_t dstBits,
                HGLOBAL srcTable, HGLOBAL dstTable, int16_t dstCount) {
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

HGLOBAL reduce(HGLOBAL bits, int32_t width, int32_t height, int16_t *count) {
    const int32_t n = *count;
    const auto *src = static_cast<const uint8_t *>(rlLockMemory(bits));
    std::vector<uint16_t> histogram(32768, 0);
    int32_t distinct = 0;
    int32_t row = rlBytesPerLine(width, 24);
    for (int32_t y = 0; y < height; ++y) {
        for (int32_t x = 0; x < width; ++x) {
            uint32_t c = rlGetPixel(src, row, x, y, 24);
            uint32_t key =
                ((c >> 24) & 0xF8) << 7 | ((c >> 16) & 0xF8) << 2 | ((c >> 8) & 0xFF) >> 3;
            if (histogram[key] == 0) ++distinct;
            if (histogram[key] != 0xFFFF) ++histogram[key];
        }
    }
    HGLOBAL result = rlGetMemory(3, n);
    auto *table = static_cast<uint8_t *>(rlLockMemory(result));
    auto put = [&](uint32_t r5, uint32_t g5, uint32_t b5) {
        for (uint32_t c : {r5, g5, b5}) *table++ = static_cast<uint8_t>(c == 0 ? 0 : (c * 8) | 7);
    };
    if (distinct < n) {
        for (uint32_t key = 0; key < 32768; ++key)
            if (histogram[key] != 0) put(key >> 10, (key >> 5) & 31, key & 31);
        *count = static_cast<int16_t>(distinct);
        return result;
    }
    std::vector<RlColorEntry> list;
    for (uint32_t key = 0; key < 32768; ++key)
        if (histogram[key] != 0) list.push_back({static_cast<uint16_t>(key), histogram[key]});
    list.push_back({0, 0});
    std::vector<RlColorBox> boxes(static_cast<size_t>(n), RlColorBox{});
    std::vector<uint16_t> status(static_cast<size_t>(n), 0xFFFF);
    uint16_t boxCount = 1;
    status[0] = 0;
    getCRectData(&boxes[0], list.data(), 0, distinct - 1);
    while (boxCount < n - 1) {
        int32_t slot = GetMaxHistSum(boxes.data(), status.data(), n);
        int32_t first = boxes[slot].first, last = boxes[slot].last;
        HeapSort(&list[first], boxes[slot].axis, last - first + 1);
        int32_t median = find_median(list.data(), &boxes[slot]);
        split(boxes.data(), slot, median, &boxCount, status.data(), list.data(), n);
    }
    for (const RlColorBox &b : boxes) put(b.meanRed, b.meanGreen, b.meanBlue);
    return result;
}

HGLOBAL to_eight_bits(HGLOBAL bits, int32_t width, int32_t height, HGLOBAL *table) {
    int16_t count = 256;
    *table = reduce(bits, width, height, &count);
    return convert(bits, width, height, 24, 8, 0, *table, count);
}

}  // namespace rasteroracle

// The literal per-pixel conversion and median-cut loops; see raster_oracle.h.
#include "raster/raster_oracle.h"

#include <vector>

namespace rasteroracle {

int16_t nearest_index(int16_t red, int16_t green, int16_t blue, const uint8_t *table,
                      int16_t count) {
    auto close = [](int a, int b) { return a - b <= 4 && b - a <= 4; };
    bool grey = close(red, green) && close(green, blue) && close(red, blue);
    int64_t best = 0x7FFFFFFF;
    int16_t bestIndex = 0;
    for (int16_t i = 0; i < count; ++i) {
        const uint8_t *e = table + 3 * i;
        if ((e[0] == e[1] && e[1] == e[2]) != grey) continue;
        int64_t dr = red - e[0], dg = green - e[1], db = blue - e[2];
        int64_t d = dr * dr + dg * dg + db * db;
        if (d < best) {
            best = d;
            bestIndex = i;
        }
    }
    return bestIndex;
}

namespace {

int component(const RlColorEntry &e, int32_t axis) {
    return axis == 0 ? (e.key >> 10) & 31 : axis == 1 ? (e.key >> 5) & 31 : e.key & 31;
}

void adjust_heap(RlColorEntry *list, int32_t axis, int32_t root, int32_t last) {
    for (;;) {
        int32_t left = 2 * root + 1, right = 2 * root + 2;
        if (left > last) return;
        int32_t child;
        if (left == last) {
            child = left;
        } else if (component(list[left], axis) > component(list[right], axis)) {
            child = left;
        } else {
            child = right;
        }
        if (!(component(list[root], axis) < component(list[child], axis))) return;
        RlColorEntry t = list[root];
        list[root] = list[child];
        list[child] = t;
        root = child;
    }
}

}  // namespace

void heap_sort(RlColorEntry *list, int32_t axis, int32_t n) {
    for (int32_t root = (n - 2) / 2; root >= 0; --root) adjust_heap(list, axis, root, n);
    for (int32_t k = n - 1; k >= 1; --k) {
        RlColorEntry t = list[0];
        list[0] = list[k];
        list[k] = t;
        adjust_heap(list, axis, 0, k - 1);
    }
}

HGLOBAL convert(HGLOBAL bits, int32_t width, int32_t height, int16_t srcBits, int16_t dstBits,
                HGLOBAL srcTable, HGLOBAL dstTable, int16_t dstCount) {
    const auto *src = static_cast<const uint8_t *>(rlLockMemory(bits));
    const auto *srcColours = static_cast<const uint8_t *>(rlLockMemory(srcTable));
    const auto *dstColours = static_cast<const uint8_t *>(rlLockMemory(dstTable));
    HGLOBAL result = rlGetMemory(1, static_cast<int32_t>(rlCalcNewSize(width, height, dstBits)));
    auto *dst = static_cast<uint8_t *>(rlLockMemory(result));
    // The map of an indexed source: each source entry's packed colour for a
    // direct-colour target, else its nearest destination entry.
    // Without a destination table, a source no deeper than the target maps
    // onto its own table.
    std::vector<uint32_t> map;
    bool direct = srcBits == 24 || srcBits == 32;
    const uint8_t *onto = dstColours;
    int16_t ontoCount = dstCount;
    if (!direct && onto == nullptr && srcBits <= dstBits) {
        onto = srcColours;
        ontoCount = static_cast<int16_t>(1 << srcBits);
    }
    if (!direct) {
        map.assign(size_t{1} << srcBits, 0);
        for (size_t i = 0; srcColours != nullptr && onto != nullptr && i < map.size(); ++i) {
            const uint8_t *s = srcColours + 3 * i;
            map[i] = dstBits == 24
                         ? uint32_t{s[0]} << 24 | uint32_t{s[1]} << 16 | uint32_t{s[2]} << 8
                         : static_cast<uint32_t>(nearest_index(s[0], s[1], s[2], onto, ontoCount));
        }
    }
    int32_t srcRow = rlBytesPerLine(width, srcBits), dstRow = rlBytesPerLine(width, dstBits);
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x) {
            uint32_t v = rlGetPixel(src, srcRow, x, y, srcBits);
            if (direct && dstColours != nullptr && dstBits < 24) {
                // The index passes through a signed byte, as the pixel store takes it.
                int16_t k = nearest_index(
                    static_cast<int16_t>(v >> 24), static_cast<int16_t>((v >> 16) & 255),
                    static_cast<int16_t>((v >> 8) & 255), dstColours, dstCount);
                rlSetPixel(dst, dstRow, x, y, dstBits,
                           static_cast<uint32_t>(static_cast<int8_t>(k)), nullptr, nullptr, 0);
            } else {
                rlSetPixel(dst, dstRow, x, y, dstBits, v, direct ? nullptr : map.data(), dstColours,
                           dstCount);
            }
        }
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
        heap_sort(&list[first], boxes[slot].axis, last - first + 1);
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

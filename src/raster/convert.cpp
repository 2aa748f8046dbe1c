// Depth conversion: rlChangeColorResolution picks reduction, dithering or a
// plain conversion; rlConvertBitmapDepth converts pixel by pixel.
//
// A conversion is defined as rlSetPixel(rlGetPixel(...)) for every pixel with
// the colour map and the destination table. The row loops here produce the
// same bytes (the per-pixel road stays for the depths they do not cover and
// for the debug level that prints every pixel). Tables and bitmaps smaller
// than their depth and size imply are read only as far as their blocks go.
#include <cstdio>
#include <cstring>

#include "raster/raster.h"

namespace {

// Pictures of at least this many pixels get the search's cells and caches.
// Without them every pixel scans its class list, about half a microsecond
// for a table of 256; with them a picture first pays about a millisecond of
// fresh tables. The two meet near 3600 pixels.
constexpr int64_t kManyPixels = 4096;

uint32_t power_of_two(int16_t bits) { return bits >= 0 && bits < 32 ? 1u << bits : 0u; }

// Everything one conversion needs, locked.
struct Conversion {
    const uint8_t *src;
    uint8_t *dst;
    int32_t width;
    int32_t rows;  // source rows that lie wholly inside the source block
    int16_t srcBits;
    int16_t dstBits;
    int32_t srcRow;
    int32_t dstRow;
    const uint32_t *map;
    const uint8_t *table;  // the destination table
    int16_t count;
};

// The rlSetPixel(rlGetPixel()) definition, one call per pixel.
void convert_literal(const Conversion &c) {
    for (int32_t y = 0; y < c.rows; ++y) {
        for (int32_t x = 0; x < c.width; ++x) {
            (void)rlSetPixel(c.dst, c.dstRow, x, y, c.dstBits,
                             rlGetPixel(c.src, c.srcRow, x, y, c.srcBits), c.map, c.table, c.count);
        }
        if (_debug_color_res == 1 || _debug_color_res == 2) std::fputc('.', stderr);
    }
}

void read_row(const uint8_t *row, int32_t width, int16_t bits, uint32_t *out) {
    switch (bits) {
    case 1:
        for (int32_t x = 0; x < width; ++x) out[x] = (row[x >> 3] >> (7 - (x & 7))) & 1u;
        break;
    case 4:
        for (int32_t x = 0; x < width; ++x)
            out[x] = (x & 1) != 0 ? row[x >> 1] & 15u : static_cast<uint32_t>(row[x >> 1] >> 4);
        break;
    case 8:
        for (int32_t x = 0; x < width; ++x) out[x] = row[x];
        break;
    case 24:
        for (int32_t x = 0; x < width; ++x, row += 3) out[x] = rl_pack(row[0], row[1], row[2], 0);
        break;
    default:
        for (int32_t x = 0; x < width; ++x, row += 4)
            out[x] = rl_pack(row[0], row[1], row[2], row[3]);
        break;
    }
}

// The value rlSetPixel would store for each read value.
void translate_row(const Conversion &c, RlNearest *near, uint32_t *values) {
    if (c.map != nullptr) {
        for (int32_t x = 0; x < c.width; ++x) values[x] = c.map[values[x]];
    } else if (c.table != nullptr && c.dstBits < 24) {
        // Neighbouring pixels often share a colour; the index passes through a
        // signed byte exactly as in rlSetPixel.
        uint32_t lastColour = 0;
        uint32_t lastValue = 0;
        bool haveLast = false;
        for (int32_t x = 0; x < c.width; ++x) {
            uint32_t colour = values[x] & 0xFFFFFF00u;
            if (!haveLast || colour != lastColour) {
                int16_t index = rl_nearest_find(near, static_cast<uint8_t>(colour >> 24),
                                                static_cast<uint8_t>(colour >> 16),
                                                static_cast<uint8_t>(colour >> 8));
                lastValue = static_cast<uint32_t>(static_cast<int32_t>(static_cast<int8_t>(index)));
                lastColour = colour;
                haveLast = true;
            }
            values[x] = lastValue;
        }
    }
}

void write_row(const Conversion &c, const uint32_t *values, uint8_t *row) {
    switch (c.dstBits) {
    case 1:  // the destination starts zeroed, so setting bits is enough
        for (int32_t x = 0; x < c.width; ++x)
            row[x >> 3] = static_cast<uint8_t>(row[x >> 3] | ((values[x] & 1u) << (7 - (x & 7))));
        break;
    case 4:
        for (int32_t x = 0; x < c.width; ++x) {
            uint32_t nibble = values[x] & 15u;
            row[x >> 1] = static_cast<uint8_t>(row[x >> 1] | ((x & 1) != 0 ? nibble : nibble << 4));
        }
        break;
    case 8:
        for (int32_t x = 0; x < c.width; ++x) row[x] = static_cast<uint8_t>(values[x]);
        break;
    case 24:
        for (int32_t x = 0; x < c.width; ++x, row += 3)
            rl_store_direct(row, values[x], c.map, c.table, c.count);
        break;
    default:
        for (int32_t x = 0; x < c.width; ++x, row += 4) {
            row[3] = c.table != nullptr ? 0 : static_cast<uint8_t>(values[x]);
            rl_store_direct(row, values[x], c.map, c.table, c.count);
        }
        break;
    }
}

// Row by row; false when the scratch row could not be had (the caller then
// takes the per-pixel road).
bool convert_rows(const Conversion &c) {
    HGLOBAL scratch = rlGetMemory(4, c.width > 0 ? c.width : 0);
    auto *values = static_cast<uint32_t *>(rlLockMemory(scratch));
    if (values == nullptr) return false;
    RlNearest near;
    bool searching = c.map == nullptr && c.table != nullptr && c.dstBits < 24;
    if (searching) {
        // A whole picture asks a question per pixel; a few rows need no cells.
        int64_t pixels = static_cast<int64_t>(c.width) * c.rows;
        (void)rl_nearest_open(&near, c.table, c.count,  // falls back by itself
                              pixels >= kManyPixels ? kRlNearestMany : kRlNearestFew, pixels);
    }
    bool toIndices = searching && c.srcBits >= 24 && c.dstBits == 8;
    // Over the source itself, a row of indices ends where its own source row
    // starts at the latest (the rows before it are done with), except that
    // it may overlap that row: each row goes through the scratch row first.
    bool over = c.dst == c.src;
    for (int32_t y = 0; y < c.rows; ++y) {
        if (toIndices) {
            // The common road (a picture onto its reduced table) in one pass.
            const uint8_t *in = c.src + static_cast<ptrdiff_t>(y) * c.srcRow;
            uint8_t *out = c.dst + static_cast<ptrdiff_t>(y) * c.dstRow;
            auto *row = over ? reinterpret_cast<uint8_t *>(values) : out;
            rl_nearest_map_row(&near, in, c.srcBits == 24 ? 3 : 4, c.width, row);
            if (over) {
                std::memcpy(out, row, static_cast<size_t>(c.width));
                std::memset(out + c.width, 0, static_cast<size_t>(c.dstRow - c.width));
            }
            if (_debug_color_res == 1 || _debug_color_res == 2) std::fputc('.', stderr);
            continue;
        }
        read_row(c.src + static_cast<ptrdiff_t>(y) * c.srcRow, c.width, c.srcBits, values);
        translate_row(c, &near, values);
        write_row(c, values, c.dst + static_cast<ptrdiff_t>(y) * c.dstRow);
        if (_debug_color_res == 1 || _debug_color_res == 2) std::fputc('.', stderr);
    }
    if (searching) rl_nearest_close(&near);
    (void)rlFreeNewData(scratch);  // 1: it was there
    return true;
}

// Source rows that lie wholly inside the block (the last row needs only its
// pixel bytes, not its padding).
int32_t rows_in_block(HGLOBAL bits, int32_t width, int32_t height, int16_t srcBits,
                      int32_t srcRow) {
    if (!rl_pixel_depth(srcBits)) return height;  // such pixels are never read
    if (bits == 0 || height <= 0) return 0;
    if (width <= 0 || srcRow <= 0) return height;
    uint64_t used = (static_cast<uint64_t>(width) * static_cast<uint64_t>(srcBits) + 7) / 8;
    uint64_t size = GlobalSize(bits);
    if (size < used) return 0;
    uint64_t rows = (size - used) / static_cast<uint64_t>(srcRow) + 1;
    return rows < static_cast<uint64_t>(height) ? static_cast<int32_t>(rows) : height;
}

// rlConvertBitmapDepth, into a new block or (over) into the source's own.
HGLOBAL convert_depth(HGLOBAL bits, int32_t width, int32_t height, int16_t srcBits, int16_t dstBits,
                      HGLOBAL srcTable, HGLOBAL dstTable, int16_t dstCount, bool over) {
    auto *src = static_cast<uint8_t *>(rlLockMemory(bits));
    auto *srcColours = static_cast<const uint8_t *>(rlLockMemory(srcTable));
    auto *dstColours = static_cast<const uint8_t *>(rlLockMemory(dstTable));
    uint32_t size = rlCalcNewSize(width, height, dstBits);
    HGLOBAL result = over ? bits : rlGetMemory(1, static_cast<int32_t>(size));
    auto *dst = over ? src : static_cast<uint8_t *>(rlLockMemory(result));

    // A colour map reads 2^srcBits source entries; a table shorter than that
    // is read through a copy padded with black.
    HGLOBAL padded = 0;
    uint32_t srcEntries = power_of_two(srcBits);
    if (srcColours != nullptr && srcBits <= 16 && srcBits != 24 &&
        GlobalSize(srcTable) / 3 < srcEntries) {
        padded = rlGetMemory(3, static_cast<int32_t>(srcEntries));
        auto *copy = static_cast<uint8_t *>(rlLockMemory(padded));
        std::memcpy(copy, srcColours, GlobalSize(srcTable) / 3 * 3);
        srcColours = copy;
    }
    if (dstColours != nullptr && dstCount > 0 &&
        GlobalSize(dstTable) / 3 < static_cast<uint32_t>(dstCount)) {
        dstCount = static_cast<int16_t>(GlobalSize(dstTable) / 3);
    }

    if (dst != nullptr) {
        if (_debug_color_res != 0) {
            std::fprintf(stderr, "Allocated %d bytes of new memory for the destination bitmap\n",
                         static_cast<int>(size));
        }
        HGLOBAL map = rlBuildColormap(srcColours, srcBits, dstColours, dstBits, dstCount);
        Conversion c;
        c.src = src;
        c.dst = dst;
        c.width = width;
        c.srcBits = srcBits;
        c.dstBits = dstBits;
        c.srcRow = rlBytesPerLine(width, srcBits);
        c.dstRow = rlBytesPerLine(width, dstBits);
        c.rows = rows_in_block(bits, width, height, srcBits, c.srcRow);
        c.map = static_cast<const uint32_t *>(rlLockMemory(map));
        c.table = dstColours;
        c.count = dstCount;
        if (_debug_color_res == 1 || _debug_color_res == 2) {
            std::fprintf(stderr, "Converted bits. Each (.) represents one scan line\n");
        }
        bool rowWise = rl_pixel_depth(srcBits) && rl_pixel_depth(dstBits) && _debug_color_res <= 3;
        if (!rowWise || !convert_rows(c)) convert_literal(c);
        (void)rlFreeColormap(map);
    }
    if (_debug_color_res != 0) std::fprintf(stderr, "\nColor resolution conversion complete\n");
    (void)rlFreeNewData(padded);  // 0 when no copy was needed
    (void)rlUnlockMemory(bits);
    (void)rlUnlockMemory(srcTable);
    (void)rlUnlockMemory(dstTable);
    if (!over) (void)rlUnlockMemory(result);
    return result;
}

}  // namespace

HGLOBAL rl_convert_over_source(HGLOBAL bits, int32_t width, int32_t height, HGLOBAL dstTable,
                               int16_t dstCount) {
    // Only the row road from 24 to 8 bits onto a table writes nothing
    // before it has read it; every row must lie wholly inside the block.
    bool fits = width > 0 && height > 0 && _debug_color_res <= 3 &&
                rlLockMemory(dstTable) != nullptr && dstCount > 0 &&
                rows_in_block(bits, width, height, 24, rlBytesPerLine(width, 24)) == height;
    (void)rlUnlockMemory(dstTable);
    if (!fits) return rlConvertBitmapDepth(bits, width, height, 24, 8, 0, dstTable, dstCount);
    return convert_depth(bits, width, height, 24, 8, 0, dstTable, dstCount, true);
}

extern "C" {

HGLOBAL rlConvertBitmapDepth(HGLOBAL bits, int32_t width, int32_t height, int16_t srcBits,
                             int16_t dstBits, HGLOBAL srcTable, HGLOBAL dstTable,
                             int16_t dstCount) {
    return convert_depth(bits, width, height, srcBits, dstBits, srcTable, dstTable, dstCount,
                         false);
}

HGLOBAL rlChangeColorResolution(HGLOBAL bits, int32_t width, int32_t height, int16_t srcBits,
                                int16_t dstBits, HGLOBAL *table) {
    HGLOBAL srcTable = table != nullptr ? *table : 0;
    HGLOBAL newTable = 0;
    auto count = static_cast<int16_t>(power_of_two(dstBits));
    if (dstBits < srcBits) {
        if (srcBits == 24 && dstBits > 7) {
            newTable = rlReduceColorTable(bits, width, height, &count);
        } else if (dstBits > 4) {
            // The source table itself, read as a one-row 24-bit bitmap of
            // 2^srcBits pixels (no more than its block holds).
            uint32_t entries = power_of_two(srcBits);
            uint32_t held = srcTable != 0 ? GlobalSize(srcTable) / 3 : 0;
            if (held < entries) entries = held;
            newTable = rlReduceColorTable(srcTable, static_cast<int32_t>(entries), 1, &count);
        }
    }
    HGLOBAL result;
    if (dstBits < 8 && srcBits > dstBits) {
        result = rlDitherBitmap(bits, width, height, srcBits, dstBits, srcTable, &newTable);
    } else {
        result =
            rlConvertBitmapDepth(bits, width, height, srcBits, dstBits, srcTable, newTable, count);
    }
    if (table != nullptr) *table = newTable;
    return result;
}

}  // extern "C"

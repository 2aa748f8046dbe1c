// Dithering of a bitmap to a low depth: rlDitherBitmap (choose a table, then
// diffuse), rlDitherGetCT (only choose), rlDitherGivenCT (diffuse against a
// given table).
//
// The picture is first copied to 24 bits, the copy is diffused row by row in
// place (turned to grey first when the target is 1 bit) and then mapped to the
// target depth by nearest colour. A table is either the caller's, the 8-entry
// grey MonoTable, or a median-cut table of 2^depth - 8 colours followed by the
// 8 must_have_colors, its unused tail black. Invariant: the count handed to the
// diffusion and the mapping never exceeds the entries the table's block holds.
// Progress and tables of this file go to standard output.
#include <cstdio>
#include <cstring>

#include "raster/dither.h"

namespace {

struct TableChoice {
    HGLOBAL table;
    int16_t count;
};

// 2^depth in 16 bits, as the table sizes are counted (0 once it overflows).
int16_t entries_for_depth(int16_t dstBits) {
    if (dstBits < 0 || dstBits > 30) return 0;
    return static_cast<int16_t>(1 << dstBits);
}

// The count clipped to the entries that the table's block really holds.
int16_t usable_count(HGLOBAL table, int16_t count) {
    if (table == 0) return 0;
    uint32_t held = GlobalSize(table) / 3;
    return static_cast<uint32_t>(count) > held && count > 0 ? static_cast<int16_t>(held) : count;
}

bool tracing_rows() { return _debug_color_res == 1 || _debug_color_res == 2; }

HGLOBAL copy_to_24_bits(HGLOBAL bits, int32_t width, int32_t height, int16_t srcBits) {
    // The copy is made with no tables at all, as the dithering has always made
    // it: an indexed source's pixels come out black, so callers that want its
    // colours hand over a 24-bit picture.
    return rlConvertBitmapDepth(bits, width, height, srcBits, 24, 0, 0, 0);
}

HGLOBAL fixed_table(const uint8_t *entries, int16_t count) {
    HGLOBAL table = rlGetMemory(3, count);
    auto *t = static_cast<uint8_t *>(rlLockMemory(table));
    if (t != nullptr) std::memcpy(t, entries, 3 * static_cast<size_t>(count));
    (void)rlUnlockMemory(table);
    return table;
}

// A median-cut table of `entries - 8` colours of the picture, then the eight
// fixed colours, then black up to `entries`.
HGLOBAL reduced_table(HGLOBAL work, int32_t width, int32_t height, int16_t entries) {
    auto wanted = static_cast<int16_t>(entries - 8);
    int16_t got = 0;
    HGLOBAL reduced = 0;
    if (wanted > 0) {
        got = wanted;
        reduced = rlReduceColorTable(work, width, height, &got);
        got = usable_count(reduced, got < 0 ? 0 : (got > wanted ? wanted : got));
    }
    HGLOBAL table = rlGetMemory(3, entries);
    auto *t = static_cast<uint8_t *>(rlLockMemory(table));
    const auto *r = static_cast<const uint8_t *>(rlLockMemory(reduced));
    if (t != nullptr) {
        size_t at = 0;
        if (r != nullptr) {
            at = 3 * static_cast<size_t>(got);
            std::memcpy(t, r, at);
        }
        // A table of fewer than 16 entries keeps what fits of the fixed colours.
        size_t room = 3 * static_cast<size_t>(entries) - at;
        std::memcpy(t + at, must_have_colors, room < 24 ? room : 24);
    }
    (void)rlUnlockMemory(reduced);
    (void)rlFreeNewData(reduced);  // 0 when nothing was reduced
    (void)rlUnlockMemory(table);
    return table;
}

void print_table(HGLOBAL table, int16_t count) {
    std::printf("Dithering to the following colortable:\n");
    const auto *t = static_cast<const uint8_t *>(rlLockMemory(table));
    int16_t shown = t == nullptr ? 0 : usable_count(table, count);
    for (int16_t i = 0; i < shown; ++i) {
        std::printf("color %d: [%d, %d, %d]\n", i, t[3 * i], t[3 * i + 1], t[3 * i + 2]);
    }
    (void)rlUnlockMemory(table);
}

// The table choice of rlDitherBitmap (callerAlwaysWins: a caller's table that
// locks is taken at any depth) and of rlDitherGetCT (only below 3 entries).
// *work is the 24-bit copy (made here if it is still 0 when the reduction
// needs it).
TableChoice choose_table(HGLOBAL bits, int32_t width, int32_t height, int16_t srcBits,
                         int16_t dstBits, HGLOBAL callerTable, bool callerAlwaysWins,
                         HGLOBAL *work) {
    TableChoice choice{0, entries_for_depth(dstBits)};
    bool callerLocks = callerAlwaysWins && rlLockMemory(callerTable) != nullptr;
    if (callerAlwaysWins) (void)rlUnlockMemory(callerTable);
    if (choice.count < 3 || callerLocks) {
        if (callerTable != 0) {
            choice.table = callerTable;
        } else {
            choice.table = fixed_table(MonoTable, 8);
            choice.count = 8;
        }
    } else {
        if (*work == 0) *work = copy_to_24_bits(bits, width, height, srcBits);
        choice.table = reduced_table(*work, width, height, choice.count);
    }
    if (_debug_color_res != 0) print_table(choice.table, choice.count);
    return choice;
}

// Writes one row of indices at 1, 4 or 8 bits into a zeroed row: the value
// of each pixel is the index of its table entry's nearest entry, its low bits
// taken as the pixel store of that depth takes them.
void store_indices(uint8_t *row, const int16_t *chosen, const uint8_t *entryIndex, int32_t width,
                   int16_t dstBits) {
    for (int32_t x = 0; x < width; ++x) {
        uint32_t v = entryIndex[chosen[x]];
        switch (dstBits) {
        case 1:
            row[x >> 3] = static_cast<uint8_t>(row[x >> 3] | (v & 1u) << (7 - (x & 7)));
            break;
        case 4:
            row[x >> 1] = static_cast<uint8_t>(row[x >> 1] | (v & 15u) << ((x & 1) != 0 ? 0 : 4));
            break;
        default:
            row[x] = static_cast<uint8_t>(v);
            break;
        }
    }
}

// The blocks of the direct mapping: the indices chosen along one row and,
// per table entry, the index that the nearest-colour search gives its colour.
struct DirectMap {
    HGLOBAL result;
    uint8_t *out;
    HGLOBAL chosenHandle;
    int16_t *chosen;
    HGLOBAL entryHandle;
    uint8_t *entryIndex;
};

bool direct_open(DirectMap *m, int32_t width, int32_t height, int16_t dstBits, const uint8_t *t,
                 int16_t count, RlNearest *search) {
    m->result = rlGetMemory(1, static_cast<int32_t>(rlCalcNewSize(width, height, dstBits)));
    m->out = static_cast<uint8_t *>(rlLockMemory(m->result));
    m->chosenHandle = rlGetMemory(2, width);
    m->chosen = static_cast<int16_t *>(rlLockMemory(m->chosenHandle));
    m->entryHandle = rlGetMemory(1, count);
    m->entryIndex = static_cast<uint8_t *>(rlLockMemory(m->entryHandle));
    if (m->out == nullptr || m->chosen == nullptr || m->entryIndex == nullptr) return false;
    for (int16_t k = 0; k < count; ++k) {
        const uint8_t *e = t + 3 * k;
        m->entryIndex[k] = static_cast<uint8_t>(rl_nearest_find(search, e[0], e[1], e[2]));
    }
    return true;
}

void direct_close(DirectMap *m) {
    (void)rlUnlockMemory(m->result);
    (void)rlFreeNewData(m->chosenHandle);  // 0 when it was never made
    (void)rlFreeNewData(m->entryHandle);
}

// Diffuses the 24-bit work copy against the table, maps it to dstBits and
// frees it; returns the new bitmap.
//
// Once a row is diffused every pixel holds exactly the colour of its chosen
// entry, so mapping it by nearest colour only needs each entry's own nearest
// index: at 1, 4 and 8 bits the rows are written from the chosen entries as
// they are finished. Other depths, and the per-pixel trace of the debug
// levels, go through rlConvertBitmapDepth, which gives the same bytes.
HGLOBAL dither_and_map(HGLOBAL work, int32_t width, int32_t height, int16_t dstBits, HGLOBAL table,
                       int16_t count) {
    count = usable_count(table, count);
    if (tracing_rows()) std::printf("Dithering...each(.) represents one scan line\n");
    auto *data = static_cast<uint8_t *>(rlLockMemory(work));
    const auto *t = static_cast<const uint8_t *>(rlLockMemory(table));
    int32_t line = rlBytesPerLine(width, 24);
    bool diffused = data != nullptr && t != nullptr && width > 0 && height > 0 &&
                    static_cast<uint64_t>(line) * static_cast<uint64_t>(height) <= GlobalSize(work);
    bool direct = diffused && count >= 1 && _debug_color_res == 0 &&
                  (dstBits == 1 || dstBits == 4 || dstBits == 8);
    DirectMap map{};
    if (diffused) {
        // Pictures of some size earn the search's cells and caches.
        RlNearest search;
        int64_t pixels = static_cast<int64_t>(width) * height;
        (void)rl_nearest_open(&search, t, count,  // falls back by itself
                              pixels >= 16384 ? kRlNearestMany : kRlNearestFew, pixels);
        if (direct) direct = direct_open(&map, width, height, dstBits, t, count, &search);
        int32_t outLine = rlBytesPerLine(width, dstBits);
        for (int32_t y = 0; y < height; ++y) {
            uint8_t *current = data + static_cast<ptrdiff_t>(y) * line;
            uint8_t *next = y + 1 < height ? current + line : nullptr;
            if (dstBits == 1) {
                // Each row is turned to grey once, just before it is first
                // touched by the diffusion from the row above.
                if (y == 0) rev_rgb(width, current, 3);
                if (next != nullptr) rev_rgb(width, next, 3);
            }
            if (rl_dither_row(current, next, &search, width, direct ? map.chosen : nullptr) &&
                direct) {
                store_indices(map.out + static_cast<ptrdiff_t>(y) * outLine, map.chosen,
                              map.entryIndex, width, dstBits);
            }
            if (tracing_rows()) std::printf(".");
        }
        rl_nearest_close(&search);
    }
    if (tracing_rows()) std::printf("\n");
    (void)rlUnlockMemory(table);
    (void)rlUnlockMemory(work);
    HGLOBAL result;
    if (direct) {
        result = map.result;
    } else {
        (void)rlFreeNewData(map.result);  // a direct map that failed, or 0
        map.result = 0;
        result = rlConvertBitmapDepth(work, width, height, 24, dstBits, 0, table, count);
    }
    direct_close(&map);
    (void)rlFreeNewData(work);  // 0 when the copy could not be made
    return result;
}

}  // namespace

extern "C" {

HGLOBAL rlDitherBitmap(HGLOBAL bits, int32_t width, int32_t height, int16_t srcBits,
                       int16_t dstBits, HGLOBAL srcTable, HGLOBAL *table) {
    (void)srcTable;  // the 24-bit copy takes no table
    HGLOBAL work = copy_to_24_bits(bits, width, height, srcBits);
    HGLOBAL callerTable = table != nullptr ? *table : 0;
    TableChoice choice =
        choose_table(bits, width, height, srcBits, dstBits, callerTable, true, &work);
    HGLOBAL result = dither_and_map(work, width, height, dstBits, choice.table, choice.count);
    if (table != nullptr) {
        *table = choice.table;
    } else {
        (void)rlFreeNewData(choice.table);  // nobody could own it
    }
    return result;
}

int32_t rlDitherGetCT(HGLOBAL bits, int32_t width, int32_t height, int16_t srcBits, int16_t dstBits,
                      HGLOBAL srcTable, HGLOBAL *table, int16_t *count) {
    (void)srcTable;  // the 24-bit copy takes no table
    // The copy is made even when the table needs no reduction, as by
    // rlDitherBitmap, so that a debug trace reads the same.
    HGLOBAL work = copy_to_24_bits(bits, width, height, srcBits);
    HGLOBAL callerTable = table != nullptr ? *table : 0;
    TableChoice choice =
        choose_table(bits, width, height, srcBits, dstBits, callerTable, false, &work);
    (void)rlFreeNewData(work);  // 0 when the copy could not be made
    if (table != nullptr) {
        *table = choice.table;
    } else {
        (void)rlFreeNewData(choice.table);  // nobody could own it
    }
    if (count != nullptr) *count = choice.count;
    return 0;
}

HGLOBAL rlDitherGivenCT(HGLOBAL bits, int32_t width, int32_t height, int16_t srcBits,
                        int16_t dstBits, HGLOBAL srcTable, HGLOBAL table, int16_t count) {
    (void)srcTable;  // the 24-bit copy takes no table
    HGLOBAL work = copy_to_24_bits(bits, width, height, srcBits);
    return dither_and_map(work, width, height, dstBits, table, count);
}

}  // extern "C"

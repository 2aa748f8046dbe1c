// Median-cut colour reduction of a 24-bit bitmap to a table of at most N colours.
//
// Colours are counted in a 15-bit histogram (5 bits a channel) of saturating
// 16-bit counters; a picture with fewer than N keys gets its keys as the table,
// otherwise the key list is cut into N - 1 boxes and the table holds the box
// means in slot order, one freed slot still showing its old parent. Channels
// leave as c * 8, with the low bits set when non-zero, so 31 becomes 255.
#include <cstdio>
#include <cstring>

#include "raster/raster.h"

namespace {

constexpr uint32_t kKeys = 32768;
constexpr uint16_t kSlotFree = 0xFFFF;

uint8_t expand(uint32_t c5) {
    uint32_t c = c5 * 8;
    return static_cast<uint8_t>(c != 0 ? (c | 7) : 0);
}

void emit(uint8_t *table, int32_t index, uint32_t r5, uint32_t g5, uint32_t b5) {
    uint8_t *e = table + 3 * static_cast<size_t>(index);
    e[0] = expand(r5);
    e[1] = expand(g5);
    e[2] = expand(b5);
}

// Counts every pixel into the histogram; returns the new number of keys.
//
// Neighbouring pixels often share a key, and a counter incremented twice in a
// row waits for its own store. So the odd pixels of a row go to a second
// histogram when one can be had, which is added in at the end: a counter
// that saturates at 0xFFFF in either half saturates in the sum too, so the
// counts come out as if every pixel had been counted into the first.
uint32_t count_pixels(uint16_t *histogram, uint32_t distinct, const uint8_t *pixels, int32_t width,
                      int32_t height) {
    size_t stride = (static_cast<size_t>(static_cast<uint32_t>(width)) * 3 + 3) & ~size_t{3};
    HGLOBAL oddHandle = width > 1 ? rlGetMemory(2, static_cast<int32_t>(kKeys)) : 0;
    auto *odd = static_cast<uint16_t *>(rlLockMemory(oddHandle));
    auto count = [&distinct](uint16_t &counter, bool first) {
        if (first && counter == 0) ++distinct;
        counter = static_cast<uint16_t>(counter + (counter != 0xFFFF ? 1 : 0));
    };
    auto key_of = [](const uint8_t *p) {
        return (static_cast<uint32_t>(p[0] & 0xF8) << 7) |
               (static_cast<uint32_t>(p[1] & 0xF8) << 2) | (p[2] >> 3);
    };
    for (int32_t y = 0; y < height; ++y) {
        const uint8_t *p = pixels + static_cast<size_t>(y) * stride;
        int32_t x = 0;
        if (odd != nullptr) {
            for (; x + 1 < width; x += 2, p += 6) {
                count(histogram[key_of(p)], true);
                count(odd[key_of(p + 3)], false);
            }
        }
        for (; x < width; ++x, p += 3) count(histogram[key_of(p)], true);
    }
    if (odd != nullptr) {
        for (uint32_t key = 0; key < kKeys; ++key) {
            if (odd[key] == 0) continue;
            if (histogram[key] == 0) ++distinct;
            uint32_t sum = uint32_t{histogram[key]} + odd[key];
            histogram[key] = static_cast<uint16_t>(sum < 0xFFFF ? sum : 0xFFFF);
        }
    }
    (void)rlFreeNewData(oddHandle);  // 0 when there was none
    return distinct;
}

// Cuts the key list into n - 1 boxes and writes the n slot means to the table.
void median_cut(RlColorContext *ctx, const uint16_t *histogram, RlColorBox *boxes, uint16_t *status,
                RlColorEntry *list, int32_t n, uint8_t *table) {
    int32_t distinct = 0;
    for (uint32_t key = 0; key < kKeys; ++key) {
        if (histogram[key] == 0) continue;
        list[distinct].key = static_cast<uint16_t>(key);
        list[distinct].count = histogram[key];
        ++distinct;
    }
    for (int32_t s = 0; s < n; ++s) status[s] = kSlotFree;
    ctx->boxCount = 1;
    status[0] = 0;
    getCRectData(&boxes[0], list, 0, distinct - 1);
    while (ctx->boxCount < n - 1) {
        int32_t slot = GetMaxHistSum(boxes, status, n);
        ctx->currentBox = static_cast<uint16_t>(slot);
        ctx->currentFirst = boxes[slot].first;
        ctx->currentLast = boxes[slot].last;
        HeapSort(&list[ctx->currentFirst], boxes[slot].axis,
                 ctx->currentLast - ctx->currentFirst + 1);
        ctx->median = static_cast<uint16_t>(find_median(list, &boxes[slot]));
        (void)split(boxes, slot, ctx->median, &ctx->boxCount, status, list, n);
    }
    for (int32_t s = 0; s < n; ++s) {
        emit(table, s, boxes[s].meanRed, boxes[s].meanGreen, boxes[s].meanBlue);
    }
}

}  // namespace

extern "C" {

HGLOBAL InitColorLib(void) { return rlGetMemory(1, static_cast<int32_t>(sizeof(RlColorContext))); }

int32_t TermColorLib(HGLOBAL context) {
    if (context == 0) return 0;
    auto *ctx = static_cast<RlColorContext *>(rlLockMemory(context));
    if (ctx == nullptr) return -1;
    (void)rlFreeNewData(ctx->histogram);  // each is either freed or was never made
    (void)rlFreeNewData(ctx->boxes);
    (void)rlFreeNewData(ctx->status);
    (void)rlFreeNewData(context);
    return 0;
}

int32_t direct_indexed(const uint8_t *pixels, int32_t width, int32_t height, int16_t *count,
                       int32_t flags, uint8_t *table, HGLOBAL context) {
    auto *ctx = static_cast<RlColorContext *>(rlLockMemory(context));
    if (ctx == nullptr || pixels == nullptr || count == nullptr) {
        (void)rlUnlockMemory(context);
        return -1;
    }
    if (ctx->histogram == 0) ctx->histogram = rlGetMemory(2, static_cast<int32_t>(kKeys));
    auto *histogram = static_cast<uint16_t *>(rlLockMemory(ctx->histogram));

    // A request for no colours still counts the picture but builds no boxes.
    int32_t n = *count > 0 ? *count : 0;
    bool build = (flags & 1) != 0;
    if (build) {
        uint32_t boxBytes = static_cast<uint32_t>(n) * sizeof(RlColorBox);
        uint32_t statusBytes = static_cast<uint32_t>(n) * sizeof(uint16_t);
        ctx->boxes = ctx->boxes == 0 ? rlGetMemory(1, static_cast<int32_t>(boxBytes))
                                     : GlobalReAlloc(ctx->boxes, boxBytes, TOLVA_GMEM_FLAGS);
        ctx->status = ctx->status == 0 ? rlGetMemory(1, static_cast<int32_t>(statusBytes))
                                       : GlobalReAlloc(ctx->status, statusBytes, TOLVA_GMEM_FLAGS);
        if (ctx->boxes != 0) std::memset(rlLockMemory(ctx->boxes), 0, boxBytes);
    }
    auto *boxes = static_cast<RlColorBox *>(rlLockMemory(ctx->boxes));
    auto *status = static_cast<uint16_t *>(rlLockMemory(ctx->status));
    if (histogram == nullptr || (build && (boxes == nullptr || status == nullptr))) {
        (void)rlUnlockMemory(ctx->status);
        (void)rlUnlockMemory(ctx->boxes);
        (void)rlUnlockMemory(ctx->histogram);
        (void)rlUnlockMemory(context);
        return -1;
    }

    ctx->distinct =
        static_cast<uint16_t>(count_pixels(histogram, ctx->distinct, pixels, width, height));
    int32_t result = 0;
    if (!build) {
        *count = 0;
    } else if (ctx->distinct < n) {
        int32_t produced = 0;
        for (uint32_t key = 0; key < kKeys; ++key) {
            if (histogram[key] != 0) emit(table, produced++, key >> 10, (key >> 5) & 31, key & 31);
        }
        *count = static_cast<int16_t>(produced);
    } else if (n > 0) {
        // One spare zeroed entry after the last colour: the heap build of the
        // last box reaches it.
        HGLOBAL listHandle =
            rlGetMemory(static_cast<int16_t>(sizeof(RlColorEntry)), ctx->distinct + 1);
        auto *list = static_cast<RlColorEntry *>(rlLockMemory(listHandle));
        if (list == nullptr) {
            result = -1;
        } else {
            median_cut(ctx, histogram, boxes, status, list, n, table);
        }
        (void)rlFreeNewData(listHandle);
    }
    if (build && (flags & 2) == 0) {
        std::memset(histogram, 0, kKeys * sizeof(uint16_t));
        ctx->distinct = 0;
    }
    (void)rlUnlockMemory(ctx->status);
    (void)rlUnlockMemory(ctx->boxes);
    (void)rlUnlockMemory(ctx->histogram);
    (void)rlUnlockMemory(context);
    return result;
}

HGLOBAL rlReduceColorTable(HGLOBAL bits, int32_t width, int32_t height, int16_t *count) {
    int16_t requested = count != nullptr ? *count : 0;
    int16_t produced = requested;
    auto *pixels = static_cast<const uint8_t *>(rlLockMemory(bits));
    HGLOBAL table = rlGetMemory(3, requested > 0 ? requested : 0);
    auto *entries = static_cast<uint8_t *>(rlLockMemory(table));
    if (entries != nullptr) {
        HGLOBAL context = InitColorLib();
        // A failed reduction leaves the zeroed table and the requested count.
        (void)direct_indexed(pixels, width, height, &produced, 3, entries, context);
        (void)TermColorLib(context);
        if (_debug_color_res != 0) {
            std::fprintf(stderr, "Color Reduction in Process...24bit -> %d colors\n", requested);
            std::fprintf(stderr, "  -new color table size: %d\n", produced);
            for (int32_t i = 0; i < produced; ++i) {
                const uint8_t *e = entries + 3 * i;
                std::fprintf(stderr, "   color %d: [%d, %d, %d]\n", i, e[0], e[1], e[2]);
            }
        }
    }
    if (count != nullptr) *count = produced;
    (void)rlUnlockMemory(bits);
    (void)rlUnlockMemory(table);
    return table;
}

}  // extern "C"

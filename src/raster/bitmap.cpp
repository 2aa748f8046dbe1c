// Bitmap geometry, the memory wrappers and single-pixel access.
//
// A bitmap is only an argument group (data, width, height, depth): rows are
// padded to 4 bytes, 1- and 4-bit pixels are packed from the most significant
// bits. Pixels are located through x * (depth / 8.0) in double precision,
// truncated; every faster path in this library must land on the same byte and
// bit as that product does.
#include <cstdio>

#include "raster/raster.h"

namespace {

// Where pixel (x, y) lives: the byte offset from the start of the data and the
// bit position inside that byte. The products wrap rather than overflow; an
// out-of-range coordinate is the caller's fault, but must not be undefined.
struct PixelPlace {
    ptrdiff_t offset;
    int32_t bit;
};

PixelPlace place_pixel(int32_t bytesPerLine, int32_t x, int32_t y, int16_t bitsPerPixel) {
    double along = static_cast<double>(x) * (bitsPerPixel / 8.0);
    PixelPlace p;
    p.offset = static_cast<ptrdiff_t>(static_cast<int64_t>(y) * bytesPerLine) +
               static_cast<ptrdiff_t>(static_cast<int64_t>(along));
    uint32_t bits = static_cast<uint32_t>(bitsPerPixel) * static_cast<uint32_t>(x);
    p.bit = static_cast<int32_t>(bits) % 8;
    return p;
}

}  // namespace

extern "C" {

int16_t _debug_color_res = 0;

HGLOBAL rlGetMemory(int16_t elementSize, int32_t count) {
    uint32_t bytes = static_cast<uint32_t>(elementSize) * static_cast<uint32_t>(count);
    return GlobalAlloc(TOLVA_GMEM_FLAGS, bytes);
}

void *rlLockMemory(HGLOBAL h) { return h == 0 ? nullptr : GlobalLock(h); }

int32_t rlUnlockMemory(HGLOBAL h) { return h == 0 ? 0 : GlobalUnlock(h); }

int32_t rlFreeNewData(HGLOBAL h) {
    if (h == 0) return 0;
    (void)GlobalFree(h);  // the wrapper reports that it freed something
    return 1;
}

HGLOBAL rlPointertoHandle(const void *pointer) { return GlobalHandle(pointer); }

int32_t rlFreeColormap(HGLOBAL map) {
    (void)rlFreeNewData(map);
    return 0;
}

int32_t rlBytesPerLine(int32_t width, int16_t bitsPerPixel) {
    // Wrapping arithmetic: an absurd width gives an absurd size, never UB.
    int32_t bits =
        static_cast<int32_t>(static_cast<uint32_t>(width) * static_cast<uint32_t>(bitsPerPixel));
    int32_t bytes = bits / 8 + (bits % 8 != 0 ? 1 : 0);
    if (bytes % 4 == 0) return bytes;
    return static_cast<int32_t>((static_cast<uint32_t>(bytes) + 3u) & ~3u);
}

uint32_t rlCalcNewSize(int32_t width, int32_t height, int16_t bitsPerPixel) {
    return static_cast<uint32_t>(rlBytesPerLine(width, bitsPerPixel)) *
           static_cast<uint32_t>(height);
}

uint32_t rlGetPixel(const uint8_t *data, int32_t bytesPerLine, int32_t x, int32_t y,
                    int16_t bitsPerPixel) {
    if (!rl_pixel_depth(bitsPerPixel)) return 0;  // read as 0, without touching the data
    PixelPlace p = place_pixel(bytesPerLine, x, y, bitsPerPixel);
    const uint8_t *at = data + p.offset;
    switch (bitsPerPixel) {
    case 1:
        return (static_cast<uint32_t>(at[0]) >> (7 - p.bit)) & 1u;
    case 4:
        return p.bit != 4 ? static_cast<uint32_t>(at[0] >> 4) : static_cast<uint32_t>(at[0] & 15);
    case 8:
        return at[0];
    case 24:
        return rl_pack(at[0], at[1], at[2], 0);
    default:
        return rl_pack(at[0], at[1], at[2], at[3]);
    }
}

int32_t rlSetPixel(uint8_t *data, int32_t bytesPerLine, int32_t x, int32_t y, int16_t bitsPerPixel,
                   uint32_t value, const uint32_t *map, const uint8_t *table, int16_t tableCount) {
    if (_debug_color_res > 3) std::fprintf(stderr, "(%d,%d): ", x, y);

    uint32_t v;
    if (map != nullptr) {
        v = map[value];
    } else if (table != nullptr && bitsPerPixel < 24) {
        // The index passes through a signed byte on its way to the pixel, so
        // an index above 127 comes back sign-extended; only its low bits are
        // ever stored.
        int16_t index =
            rlNearestRGBIndex(rl_red(value), rl_green(value), rl_blue(value), table, tableCount);
        v = static_cast<uint32_t>(static_cast<int32_t>(static_cast<int8_t>(index)));
    } else {
        v = value;
    }

    if (!rl_pixel_depth(bitsPerPixel)) return 0;  // other depths write nothing
    PixelPlace p = place_pixel(bytesPerLine, x, y, bitsPerPixel);
    uint8_t *at = data + p.offset;
    switch (bitsPerPixel) {
    case 1: {
        auto mask = static_cast<uint8_t>(1u << (7 - p.bit));
        at[0] = static_cast<uint8_t>((at[0] & ~mask) | ((v & 1u) << (7 - p.bit)));
        break;
    }
    case 4:
        // Bit position 0 is the high nibble, 4 the low one; the other nibble stays.
        if (p.bit == 4) {
            at[0] = static_cast<uint8_t>((at[0] & 0xF0) | (v & 15u));
        } else {
            at[0] = static_cast<uint8_t>((at[0] & 0x0F) | ((v & 15u) << 4));
        }
        break;
    case 8:
        at[0] = static_cast<uint8_t>(v);
        break;
    case 32:
        at[3] = table != nullptr ? 0 : static_cast<uint8_t>(v);
        [[fallthrough]];
    case 24:
        rl_store_direct(at, v, map, table, tableCount);
        break;
    }
    return 0;
}

}  // extern "C"

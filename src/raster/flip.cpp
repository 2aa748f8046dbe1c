// rlFlipBitmap: mirrors a bitmap in place, vertically by exchanging rows from
// the outside in, horizontally by exchanging pixel x with pixel width - x.
//
// That horizontal partner is one past the mirror image (pixel 0 pairs with the
// position just after the last pixel, pixel width-1 with pixel 1): hosts that
// read the flipped rows expect exactly this pairing. The position just after a
// row lies in its padding or in the next row, and after the last row outside
// the block. Invariant: every byte read or written lies inside the bitmap's
// block; a byte past its end reads as 0 and is never written.
#include <cstdio>
#include <utility>

#include "tolva/host.h"
#include "tolva/raster.h"

namespace {

// The bitmap's bytes with their bound, and the pixel geometry of one depth.
struct FlipArea {
    uint8_t *data;
    uint64_t size;
    int16_t bitsPerPixel;
};

// Byte offset of pixel x within its row: the truncated double product that
// every pixel access of the library uses.
uint64_t pixel_offset(int32_t x, int16_t bitsPerPixel) {
    return static_cast<uint64_t>(static_cast<double>(x) * (bitsPerPixel / 8.0));
}

uint8_t byte_at(const FlipArea &a, uint64_t at) { return at < a.size ? a.data[at] : 0; }

void put_byte(const FlipArea &a, uint64_t at, uint8_t value) {
    if (at < a.size) a.data[at] = value;
}

// Bit position of pixel x in its byte; the product is taken modulo 2^32, which
// keeps it exact modulo 8.
int32_t pixel_bit(int32_t x, int16_t bitsPerPixel) {
    return static_cast<int32_t>(static_cast<uint32_t>(bitsPerPixel) * static_cast<uint32_t>(x) %
                                8u);
}

uint32_t get_pixel(const FlipArea &a, uint64_t row, int32_t x) {
    uint64_t at = row + pixel_offset(x, a.bitsPerPixel);
    int32_t bit = pixel_bit(x, a.bitsPerPixel);
    switch (a.bitsPerPixel) {
    case 1:
        return static_cast<uint32_t>(byte_at(a, at) >> (7 - bit)) & 1u;
    case 4:
        return bit != 4 ? static_cast<uint32_t>(byte_at(a, at) >> 4) : byte_at(a, at) & 15u;
    case 8:
        return byte_at(a, at);
    case 24:
        return static_cast<uint32_t>(byte_at(a, at)) << 24 |
               static_cast<uint32_t>(byte_at(a, at + 1)) << 16 |
               static_cast<uint32_t>(byte_at(a, at + 2)) << 8;
    case 32:
        return static_cast<uint32_t>(byte_at(a, at)) << 24 |
               static_cast<uint32_t>(byte_at(a, at + 1)) << 16 |
               static_cast<uint32_t>(byte_at(a, at + 2)) << 8 | byte_at(a, at + 3);
    default:
        return 0;
    }
}

// The store of rlSetPixel without map or table, byte by byte within bounds.
// The pixel trace of a high debug level names the pixel within its row.
void set_pixel(const FlipArea &a, uint64_t row, int32_t x, uint32_t v) {
    if (_debug_color_res > 3) std::fprintf(stderr, "(%d,%d): ", x, 0);
    uint64_t at = row + pixel_offset(x, a.bitsPerPixel);
    int32_t bit = pixel_bit(x, a.bitsPerPixel);
    switch (a.bitsPerPixel) {
    case 1: {
        auto keep = static_cast<uint32_t>(byte_at(a, at)) & ~(1u << (7 - bit));
        put_byte(a, at, static_cast<uint8_t>(keep | (v & 1u) << (7 - bit)));
        break;
    }
    case 4: {
        auto keep = static_cast<uint32_t>(byte_at(a, at)) & (0x0Fu << bit);
        put_byte(a, at, static_cast<uint8_t>(keep | (v & 15u) << (4 - bit)));
        break;
    }
    case 8:
        put_byte(a, at, static_cast<uint8_t>(v));
        break;
    case 32:
        put_byte(a, at + 3, static_cast<uint8_t>(v));
        [[fallthrough]];
    case 24:
        put_byte(a, at, static_cast<uint8_t>(v >> 24));
        put_byte(a, at + 1, static_cast<uint8_t>(v >> 16));
        put_byte(a, at + 2, static_cast<uint8_t>(v >> 8));
        break;
    default:
        break;
    }
}

}  // namespace

extern "C" {

HGLOBAL rlFlipBitmap(HGLOBAL bits, int16_t bitsPerPixel, int32_t width, int32_t height,
                     int16_t horizontal, int16_t vertical) {
    int32_t line = rlBytesPerLine(width, bitsPerPixel);
    auto *data = static_cast<uint8_t *>(rlLockMemory(bits));
    if (data == nullptr) return bits;
    // A bitmap that claims more rows than its block holds is left as it is.
    if (width < 0 || height <= 0 || line < 0 ||
        static_cast<uint64_t>(line) * static_cast<uint64_t>(height) > GlobalSize(bits)) {
        return bits;
    }
    FlipArea area{data, GlobalSize(bits), bitsPerPixel};
    uint64_t top = 0;
    uint64_t bottom = static_cast<uint64_t>(height - 1) * static_cast<uint64_t>(line);
    auto rowBytes = static_cast<uint64_t>(line);
    // Rows are exchanged byte for byte in place, so rows of any length swap
    // whole without a scratch row.
    for (int32_t pass = 0; pass < (height + 1) / 2; ++pass) {
        if (vertical != 0) {
            for (uint64_t i = 0; i < rowBytes; ++i) std::swap(data[top + i], data[bottom + i]);
        }
        if (horizontal != 0) {
            for (int32_t x = 0; x < width / 2; ++x) {
                int32_t partner = width - x;
                uint32_t a = get_pixel(area, top, x);
                uint32_t b = get_pixel(area, top, partner);
                uint32_t c = get_pixel(area, bottom, x);
                uint32_t d = get_pixel(area, bottom, partner);
                set_pixel(area, top, x, b);
                set_pixel(area, top, partner, a);
                set_pixel(area, bottom, x, d);
                set_pixel(area, bottom, partner, c);
            }
        }
        top += rowBytes;
        bottom -= rowBytes;
    }
    // The bitmap stays locked, as callers expect of a flip in place.
    return bits;
}

}  // extern "C"

// Colour-model rewrites of 32-bit bitmaps in place: RGB to CMYK, and CMYK or
// RGBA down to packed RGB.
//
// The two conversions down to RGB pack their 3-byte output from the start of
// the buffer with no row padding (width * 3 bytes a row); the callers read the
// result that way. Every rewrite stays inside the bitmap's block.
#include "raster/raster.h"

namespace {

// How many 4-byte pixels of a width x height bitmap the block really holds.
uint32_t pixels_in_block(HGLOBAL bits, int32_t width, int32_t height) {
    if (width <= 0 || height <= 0) return 0;
    uint64_t wanted = static_cast<uint64_t>(width) * static_cast<uint64_t>(height);
    uint64_t held = GlobalSize(bits) / 4;
    return static_cast<uint32_t>(wanted < held ? wanted : held);
}

}  // namespace

extern "C" {

void rlRGB4toCMYK(HGLOBAL bits, int32_t width, int32_t height) {
    // Every pixel of every row: C, M, Y are the complements of R, G, B and K
    // starts at 0. 32-bit rows carry no padding, so the rows are contiguous.
    auto *p = static_cast<uint8_t *>(rlLockMemory(bits));
    if (p == nullptr) return;
    uint32_t n = pixels_in_block(bits, width, height);
    for (uint32_t i = 0; i < n; ++i, p += 4) {
        p[0] = static_cast<uint8_t>(255 - p[0]);
        p[1] = static_cast<uint8_t>(255 - p[1]);
        p[2] = static_cast<uint8_t>(255 - p[2]);
        p[3] = 0;
    }
    (void)rlUnlockMemory(bits);
}

void rlCMYKtoRGB(HGLOBAL bits, int32_t width, int32_t height) {
    auto *p = static_cast<uint8_t *>(rlLockMemory(bits));
    if (p == nullptr) return;
    uint32_t n = pixels_in_block(bits, width, height);
    // Output pixel i (3 bytes at 3i) never overtakes input pixel i (at 4i),
    // and each input pixel is read whole before its output is written.
    for (uint32_t i = 0; i < n; ++i) {
        const uint8_t *in = p + 4 * static_cast<size_t>(i);
        uint8_t c = in[0], m = in[1], y = in[2], k = in[3];
        uint8_t *out = p + 3 * static_cast<size_t>(i);
        out[0] = static_cast<uint8_t>(255 - (c > k ? c : k));
        out[1] = static_cast<uint8_t>(255 - (m > k ? m : k));
        out[2] = static_cast<uint8_t>(255 - (y > k ? y : k));
    }
    (void)rlUnlockMemory(bits);
}

void rlALPHAtoRGB(HGLOBAL bits, int32_t width, int32_t height) {
    auto *p = static_cast<uint8_t *>(rlLockMemory(bits));
    if (p == nullptr) return;
    uint32_t n = pixels_in_block(bits, width, height);
    for (uint32_t i = 0; i < n; ++i) {
        const uint8_t *in = p + 4 * static_cast<size_t>(i);
        uint8_t r = in[0], g = in[1], b = in[2];
        uint8_t *out = p + 3 * static_cast<size_t>(i);
        out[0] = r;
        out[1] = g;
        out[2] = b;
    }
    (void)rlUnlockMemory(bits);
}

}  // extern "C"

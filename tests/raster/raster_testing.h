// Helpers shared by the raster tests: bitmaps built from colour lists, read
// back as colour lists, and the photograph.
#ifndef TOLVA_TESTS_RASTER_TESTING_H
#define TOLVA_TESTS_RASTER_TESTING_H

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "tolva/tolva.h"

namespace rastertest {

// 0xRRGGBB as a packed colour value (fourth byte 0).
inline uint32_t packed(uint32_t rrggbb) { return rrggbb << 8; }

// A bitmap handle whose pixels are `values` (packed colours at 24 and 32
// bits, indices below), row by row.
inline HGLOBAL make_bitmap(const std::vector<uint32_t> &values, int32_t width, int32_t height,
                           int16_t bits) {
    HGLOBAL h = rlGetMemory(1, static_cast<int32_t>(rlCalcNewSize(width, height, bits)));
    auto *data = static_cast<uint8_t *>(rlLockMemory(h));
    int32_t row = rlBytesPerLine(width, bits);
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x)
            rlSetPixel(data, row, x, y, bits, values[static_cast<size_t>(y * width + x)], nullptr,
                       nullptr, 0);
    return h;
}

inline std::vector<uint32_t> read_bitmap(HGLOBAL h, int32_t width, int32_t height,
                                         int16_t bits) {
    const auto *data = static_cast<const uint8_t *>(rlLockMemory(h));
    int32_t row = rlBytesPerLine(width, bits);
    std::vector<uint32_t> out;
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x) out.push_back(rlGetPixel(data, row, x, y, bits));
    return out;
}

inline HGLOBAL make_table(const std::vector<uint32_t> &rrggbb) {
    HGLOBAL h = rlGetMemory(3, static_cast<int32_t>(rrggbb.size()));
    auto *t = static_cast<uint8_t *>(rlLockMemory(h));
    for (size_t i = 0; i < rrggbb.size(); ++i) {
        t[3 * i] = static_cast<uint8_t>(rrggbb[i] >> 16);
        t[3 * i + 1] = static_cast<uint8_t>(rrggbb[i] >> 8);
        t[3 * i + 2] = static_cast<uint8_t>(rrggbb[i]);
    }
    return h;
}

inline std::vector<uint32_t> read_table(HGLOBAL h, int32_t count) {
    const auto *t = static_cast<const uint8_t *>(rlLockMemory(h));
    std::vector<uint32_t> out;
    for (int32_t i = 0; i < count; ++i)
        out.push_back((uint32_t{t[3 * i]} << 16) | (uint32_t{t[3 * i + 1]} << 8) | t[3 * i + 2]);
    return out;
}

// The whole block of a handle, for byte-for-byte comparisons.
inline std::vector<uint8_t> block_bytes(HGLOBAL h) {
    const auto *p = static_cast<const uint8_t *>(rlLockMemory(h));
    return std::vector<uint8_t>(p, p + GlobalSize(h));
}

// A 24-bit picture of `colours` random colours scattered over width x height,
// the padding bytes left zero.
inline HGLOBAL random_picture(std::mt19937 &rng, int32_t width, int32_t height,
                              uint32_t colours) {
    std::vector<uint32_t> palette(colours);
    for (uint32_t &c : palette) c = packed(rng() & 0xFFFFFF);
    std::vector<uint32_t> pixels(static_cast<size_t>(width) * static_cast<size_t>(height));
    for (uint32_t &p : pixels) p = palette[rng() % colours];
    return make_bitmap(pixels, width, height, 24);
}

}  // namespace rastertest

#endif

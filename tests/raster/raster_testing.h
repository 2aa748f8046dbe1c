// Helpers shared by the raster tests (test code only, so not in a namespace):
// bitmaps and tables built from value lists and read back as value lists,
// generated pictures and tables, and what the debug levels print.
#ifndef TOLVA_TESTS_RASTER_TESTING_H
#define TOLVA_TESTS_RASTER_TESTING_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tolva/host.h"
#include "tolva/raster.h"

using Bytes = std::vector<uint8_t>;
using Values = std::vector<uint32_t>;

// 0xRRGGBB as a packed colour value (fourth byte 0).
inline uint32_t packed(uint32_t rrggbb) { return rrggbb << 8; }

// A block holding exactly `bytes`, padding and all.
inline HGLOBAL bytes_block(const Bytes &bytes) {
    HGLOBAL h = rlGetMemory(1, static_cast<int32_t>(bytes.size()));
    std::memcpy(rlLockMemory(h), bytes.data(), bytes.size());
    return h;
}

inline Bytes block_bytes(HGLOBAL h) {
    const auto *p = static_cast<const uint8_t *>(rlLockMemory(h));
    return Bytes(p, p + GlobalSize(h));
}

// A bitmap whose pixels are `values` (packed colours at 24 and 32 bits,
// indices below), row by row, the padding left zero.
inline HGLOBAL make_bitmap(const Values &values, int32_t width, int32_t height, int16_t bits) {
    HGLOBAL h = rlGetMemory(1, static_cast<int32_t>(rlCalcNewSize(width, height, bits)));
    auto *data = static_cast<uint8_t *>(rlLockMemory(h));
    for (int32_t i = 0; i < width * height; ++i)
        rlSetPixel(data, rlBytesPerLine(width, bits), i % width, i / width, bits,
                   values[static_cast<size_t>(i)], nullptr, nullptr, 0);
    return h;
}

inline Values read_bitmap(HGLOBAL h, int32_t width, int32_t height, int16_t bits) {
    const auto *data = static_cast<const uint8_t *>(rlLockMemory(h));
    Values out;
    for (int32_t i = 0; i < width * height; ++i)
        out.push_back(rlGetPixel(data, rlBytesPerLine(width, bits), i % width, i / width, bits));
    return out;
}

// The bytes of a table of 0xRRGGBB colours, three an entry, and a table block.
inline Bytes table_bytes(const Values &rrggbb) {
    Bytes bytes;
    for (uint32_t c : rrggbb)
        bytes.insert(bytes.end(), {static_cast<uint8_t>(c >> 16), static_cast<uint8_t>(c >> 8),
                                   static_cast<uint8_t>(c)});
    return bytes;
}
inline HGLOBAL make_table(const Values &rrggbb) { return bytes_block(table_bytes(rrggbb)); }

// Tables that stress a nearest-colour search: exact greys, near greys (which
// count as colours), duplicates (ties by index), near neighbours of other
// entries, and colours anywhere.
inline Values awkward_table(std::mt19937 &rng, int32_t count) {
    auto r = [&] { return static_cast<uint32_t>(rng()); };
    Values t(1, r() & 0xFFFFFF);
    while (static_cast<int32_t>(t.size()) < count) {
        uint32_t v = r() & 255, other = t[r() % t.size()], tint = std::min(v + r() % 5, 255u);
        const uint32_t kinds[] = {v * 0x010101u, other, v << 16 | tint << 8 | v,
                                  other ^ (r() & 0x030303u), r() & 0xFFFFFF};
        t.push_back(kinds[r() % 5]);
    }
    return t;
}

// Random bytes at any depth, padding included (no conversion may carry it
// into a result). Direct-colour pixels mostly cluster around one colour, as
// in a photograph, so that neighbours repeat and errors diffuse far.
inline HGLOBAL random_bits(std::mt19937 &rng, int32_t width, int32_t height, int16_t bits) {
    HGLOBAL h = rlGetMemory(1, static_cast<int32_t>(rlCalcNewSize(width, height, bits)));
    auto *p = static_cast<uint8_t *>(rlLockMemory(h));
    for (uint32_t i = 0; i < GlobalSize(h); ++i) p[i] = static_cast<uint8_t>(rng());
    uint32_t base = rng();
    for (int32_t i = 0; bits >= 24 && i < width * height; ++i)
        if (rng() % 4 != 0)
            rlSetPixel(p, rlBytesPerLine(width, bits), i % width, i / width, bits,
                       base ^ (rng() & 0x0F0F0F0F), nullptr, nullptr, 0);
    return h;
}

// What `run` prints at debug `level`: standard error, "| ", standard output.
template <typename Run>
std::string printed(int16_t level, Run run) {
    const int16_t saved = std::exchange(_debug_color_res, level);
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    run();
    _debug_color_res = saved;
    std::string err = testing::internal::GetCapturedStderr();
    return err + "| " + testing::internal::GetCapturedStdout();
}

#endif

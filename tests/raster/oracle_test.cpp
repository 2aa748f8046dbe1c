// The fast paths against the literal algorithms: the exact nearest-colour
// search against rlNearestRGBIndex, row-wise conversion against one
// rlSetPixel(rlGetPixel()) per pixel, on generated pictures and the photograph.
#include <gtest/gtest.h>

#include <algorithm>

#include "photo.h"
#include "raster/raster.h"
#include "raster_oracle.h"
#include "raster_testing.h"

namespace {

using rastertest::block_bytes;
using rastertest::make_table;

// Tables that stress the search: greys and near-greys, duplicates (ties),
// clusters, and a few far-off colours.
std::vector<uint32_t> awkward_table(std::mt19937 &rng, int count) {
    std::vector<uint32_t> t;
    while (static_cast<int>(t.size()) < count) {
        uint32_t kind = rng() % 6;
        uint32_t v = rng() & 255;
        if (kind == 0) {
            t.push_back(v * 0x010101u);  // exact grey
        } else if (kind == 1 && !t.empty()) {
            t.push_back(t[rng() % t.size()]);  // duplicate: ties by index
        } else if (kind == 2) {
            uint32_t d = rng() % 5;  // near grey, which counts as colour
            t.push_back(v << 16 | std::min(v + d, 255u) << 8 | v);
        } else if (kind == 3 && !t.empty()) {
            uint32_t base = t[rng() % t.size()];  // a near neighbour of another entry
            t.push_back(base ^ (rng() & 0x030303u));
        } else {
            t.push_back(rng() & 0xFFFFFF);
        }
    }
    return t;
}

TEST(NearestOracle, FastSearchReturnsTheLinearScansIndex) {
    std::mt19937 rng(2024);
    for (int round = 0; round < 40; ++round) {
        int count = round < 5 ? round + 1 : static_cast<int>(rng() % 300) + 1;
        std::vector<uint32_t> colours = awkward_table(rng, count);
        if (round == 6) colours.assign(count, 0x123456);     // all equal
        if (round == 7) for (uint32_t &c : colours) c = (c & 0xFF) * 0x010101u;  // greys only
        HGLOBAL h = make_table(colours);
        const auto *table = static_cast<const uint8_t *>(rlLockMemory(h));
        RlNearest near;
        rl_nearest_open(&near, table, static_cast<int16_t>(count));
        for (int q = 0; q < 20000; ++q) {
            uint32_t c = rng();
            if (q % 3 == 0) c = ((c & 0xFF) * 0x010101u) ^ (rng() & 0x070707u);  // near grey
            if (q % 7 == 0) c = colours[rng() % colours.size()] ^ (rng() & 0x010101u);
            auto r = static_cast<uint8_t>(c >> 16), g = static_cast<uint8_t>(c >> 8),
                 b = static_cast<uint8_t>(c);
            ASSERT_EQ(rl_nearest_find(&near, r, g, b),
                      rlNearestRGBIndex(r, g, b, table, static_cast<int16_t>(count)))
                << "round " << round << " colour " << std::hex << (c & 0xFFFFFF);
        }
        // Every colour of one plane and of a band around the grey diagonal.
        for (int u = 0; round == 10 && u < 256; ++u) {
            for (int v = 0; v < 256; ++v) {
                auto U = static_cast<uint8_t>(u), V = static_cast<uint8_t>(v);
                auto W = static_cast<uint8_t>(std::clamp(u + v % 11 - 5, 0, 255));
                ASSERT_EQ(rl_nearest_find(&near, U, 37, V), rlNearestRGBIndex(U, 37, V, table, count));
                ASSERT_EQ(rl_nearest_find(&near, U, W, U), rlNearestRGBIndex(U, W, U, table, count));
            }
        }
        rl_nearest_close(&near);
        rlFreeNewData(h);
    }
    RlNearest none;
    rl_nearest_open(&none, nullptr, 16);
    EXPECT_EQ(rl_nearest_find(&none, 1, 2, 3), 0);
    rl_nearest_close(&none);
}

// A random bitmap at any depth, padding bytes included (the conversion must
// not read them into the result).
HGLOBAL random_bits(std::mt19937 &rng, int32_t width, int32_t height, int16_t bits) {
    HGLOBAL h = rlGetMemory(1, static_cast<int32_t>(rlCalcNewSize(width, height, bits)));
    auto *p = static_cast<uint8_t *>(rlLockMemory(h));
    uint32_t size = GlobalSize(h);
    // Direct colour from a small palette so that neighbours repeat.
    std::vector<uint32_t> palette(64);
    for (uint32_t &c : palette) c = rng();
    for (uint32_t i = 0; i < size; ++i) p[i] = static_cast<uint8_t>(rng());
    if (bits >= 24) {
        int32_t row = rlBytesPerLine(width, bits);
        for (int32_t y = 0; y < height; ++y)
            for (int32_t x = 0; x < width; ++x)
                if (rng() % 3 != 0) {
                    uint32_t c = palette[rng() % palette.size()];
                    std::memcpy(p + y * row + x * (bits / 8), &c, static_cast<size_t>(bits / 8));
                }
    }
    return h;
}

TEST(ConversionOracle, RowLoopsMatchThePerPixelDefinition) {
    std::mt19937 rng(99);
    const int16_t depths[] = {1, 4, 8, 24, 32};
    for (int16_t from : depths) {
        for (int16_t to : depths) {
            for (int round = 0; round < 6; ++round) {
                int32_t w = 1 + static_cast<int32_t>(rng() % 41), h = 1 + static_cast<int32_t>(rng() % 9);
                HGLOBAL bits = random_bits(rng, w, h, from);
                // Source tables of the full size for indexed depths; the
                // destination table sometimes missing, sometimes short.
                HGLOBAL srcTable = from <= 8 ? make_table(awkward_table(rng, 1 << from)) : 0;
                int16_t count = static_cast<int16_t>(1 + rng() % 300);
                HGLOBAL dstTable = round % 3 == 0 ? 0 : make_table(awkward_table(rng, count));
                if (dstTable == 0) count = static_cast<int16_t>(round % 2 == 0 ? 0 : 16);
                HGLOBAL fast = rlConvertBitmapDepth(bits, w, h, from, to, srcTable, dstTable, count);
                HGLOBAL slow = rasteroracle::convert(bits, w, h, from, to, srcTable, dstTable, count);
                ASSERT_EQ(block_bytes(fast), block_bytes(slow))
                    << from << " -> " << to << " round " << round << " " << w << "x" << h;
                for (HGLOBAL hd : {bits, srcTable, dstTable, fast, slow}) rlFreeNewData(hd);
            }
        }
    }
}

// A centred crop of the photograph, small enough for the per-pixel road.
HGLOBAL photo_crop(int32_t w, int32_t h) {
    int32_t fullW = 0, fullH = 0;
    HGLOBAL full = load_test_photo(&fullW, &fullH);
    if (full == 0 || fullW < w || fullH < h) return 0;
    const auto *src = static_cast<const uint8_t *>(rlLockMemory(full));
    HGLOBAL crop = rlGetMemory(1, static_cast<int32_t>(rlCalcNewSize(w, h, 24)));
    auto *dst = static_cast<uint8_t *>(rlLockMemory(crop));
    int32_t left = (fullW - w) / 2, top = (fullH - h) / 2;
    for (int32_t y = 0; y < h; ++y)
        std::memcpy(dst + y * rlBytesPerLine(w, 24),
                    src + (y + top) * rlBytesPerLine(fullW, 24) + left * 3, static_cast<size_t>(w) * 3);
    rlFreeNewData(full);
    return crop;
}

TEST(ConversionOracle, PhotographToEightBits) {
    const int32_t w = 480, h = 270;
    HGLOBAL bits = photo_crop(w, h);
    ASSERT_NE(bits, 0u);
    HGLOBAL table = 0, oracleTable = 0;
    HGLOBAL fast = rlChangeColorResolution(bits, w, h, 24, 8, &table);
    HGLOBAL slow = rasteroracle::to_eight_bits(bits, w, h, &oracleTable);
    EXPECT_EQ(block_bytes(table), block_bytes(oracleTable));
    EXPECT_TRUE(block_bytes(fast) == block_bytes(slow));
    // And back up: 8 -> 24 through the table against the per-pixel road.
    HGLOBAL up = rlConvertBitmapDepth(fast, w, h, 8, 24, table, 0, 0);
    HGLOBAL upSlow = rasteroracle::convert(fast, w, h, 8, 24, table, 0, 0);
    EXPECT_TRUE(block_bytes(up) == block_bytes(upSlow));
    for (HGLOBAL hd : {bits, table, oracleTable, fast, slow, up, upSlow}) rlFreeNewData(hd);
}

}  // namespace

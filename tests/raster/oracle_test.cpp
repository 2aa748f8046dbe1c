// The fast paths against the literal per-pixel algorithms: every nearest-colour
// search against the linear scan, and conversion, dithering and scaling byte
// for byte, on generated pictures; conversion and dithering on the photograph.
#include <algorithm>

#include "raster/dither_oracle.h"
#include "raster/photo.h"
#include "raster/raster.h"
#include "raster/raster_oracle.h"
#include "raster/scale_oracle.h"
#include "raster_testing.h"

namespace {

const int16_t kDepths[] = {1, 4, 8, 24, 32};

// Every road of the one nearest-colour search against the literal definition:
// the one-question scan (which the GIF writer's entry also asks), the class lists
// of a search asked a few questions, and the cells and recent cache of a
// search asked many (the map fuzz target maps whole pictures through them). Tables carry ties (repeated entries),
// greys and colours mixed, greys only and colours only; queries hug the grey
// diagonal, the entries themselves and whole planes of the cube.
TEST(NearestOracle, EverySearchReturnsTheLiteralIndex) {
    std::mt19937 rng(2024);
    for (int round = 0; round < 40; ++round) {
        auto count = static_cast<int16_t>(round < 5 ? round + 1 : 1 + rng() % 300);
        Values colours = awkward_table(rng, count);
        if (round == 6) colours.assign(colours.size(), 0x123456);
        for (uint32_t &c : colours) c = round == 7 ? (c & 255) * 0x010101u : c;  // greys only
        if (round == 8) {
            for (uint32_t &c : colours) c = rng() & 0xFCFCFC;  // colours on a coarse grid: ties
        }
        const Bytes bytes = table_bytes(colours);
        const uint8_t *table = bytes.data();
        RlNearest few, many;
        rl_nearest_open(&few, table, count, kRlNearestFew);
        rl_nearest_open(&many, table, count, kRlNearestMany);
        auto check = [&](uint32_t c) {
            auto r = static_cast<uint8_t>(c >> 16), g = static_cast<uint8_t>(c >> 8),
                 b = static_cast<uint8_t>(c);
            int16_t expected = rasteroracle::nearest_index(r, g, b, table, count);
            // Asked twice: the second answer may come from a cache.
            return rlNearestRGBIndex(r, g, b, table, count) == expected &&
                   rl_nearest_find(&few, r, g, b) == expected &&
                   rl_nearest_find(&many, r, g, b) == expected &&
                   rl_nearest_find(&many, r, g, b) == expected;
        };
        for (int q = 0; q < 20000; ++q) {
            uint32_t c = rng();
            if (q % 3 == 0) c = ((c & 255) * 0x010101u) ^ (rng() & 0x070707u);  // near grey
            if (q % 7 == 0) c = colours[rng() % colours.size()] ^ (rng() & 0x010101u);
            if (q % 11 == 0) c = colours[rng() % colours.size()] + (rng() & 0x030303u);
            ASSERT_TRUE(check(c)) << "round " << round << " colour " << std::hex << (c & 0xFFFFFF);
        }
        rl_nearest_close(&few);
        rl_nearest_close(&many);
    }
    // Channels outside 0-255 reach only the one-question scan.
    const uint8_t table[] = {0, 0, 0, 255, 255, 255, 200, 10, 10};
    for (int16_t v : {-300, -5, 260, 1000})
        EXPECT_EQ(rlNearestRGBIndex(v, 7, v, table, 3),
                  rasteroracle::nearest_index(v, 7, v, table, 3));
}

// 24 -> 8 written over a copy of the source's own block gives the bytes of
// the literal conversion in its first rows.
void expect_same_over_source(HGLOBAL bits, int32_t w, int32_t h, HGLOBAL table, int16_t count,
                             HGLOBAL literal) {
    HGLOBAL copy = bytes_block(block_bytes(bits));
    HGLOBAL over = rl_convert_over_source(copy, w, h, table, count);
    Bytes written = block_bytes(over);
    if (over == copy) written.resize(rlCalcNewSize(w, h, 8));
    EXPECT_EQ(over == copy, table != 0 && count > 0);
    EXPECT_TRUE(written == block_bytes(literal)) << w << "x" << h;
    if (over != copy) rlFreeNewData(over);
    rlFreeNewData(copy);
}

// The sort decides which colours share a box, ties included, so its exact
// order matters: lists of few distinct components, with the entry past the
// range (which the build reaches) compared too.
TEST(Oracles, HeapSortKeepsTheLiteralOrder) {
    std::mt19937 rng(77);
    for (int round = 0; round < 400; ++round) {
        auto n = static_cast<int32_t>(round < 8 ? round : 1 + rng() % 600);
        uint32_t spread = 1 + rng() % 32;
        std::vector<RlColorEntry> ours(static_cast<size_t>(n) + 1);
        for (size_t i = 0; i < ours.size(); ++i) {
            uint32_t c = rng() % spread;
            ours[i] = {static_cast<uint16_t>(c << 10 | (rng() % spread) << 5 | c),
                       static_cast<uint16_t>(i)};
        }
        std::vector<RlColorEntry> theirs = ours;
        int32_t axis = round % 3;
        HeapSort(ours.data(), axis, n);
        rasteroracle::heap_sort(theirs.data(), axis, n);
        for (size_t i = 0; i < ours.size(); ++i) {
            ASSERT_EQ(theirs[i].key, ours[i].key) << "round " << round << ", entry " << i;
            ASSERT_EQ(theirs[i].count, ours[i].count) << "round " << round << ", entry " << i;
        }
    }
}

TEST(Oracles, GeneratedPictures) {
    // Every pair of depths converted (through tables that stress the nearest-
    // colour search, the destination's sometimes missing, of any size up to
    // 300), scaled, and sampled row by row into rows that already hold data.
    std::mt19937 rng(99);
    auto size = [&](uint32_t most) { return static_cast<int32_t>(1 + rng() % most); };
    for (int trial = 0; trial < 750; ++trial) {
        int16_t from = kDepths[trial % 5], to = kDepths[trial / 5 % 5];
        int32_t w = size(40), h = size(24), dw = size(40), dh = size(40);
        SCOPED_TRACE(testing::Message() << "trial " << trial << ", " << w << "x" << h);
        HGLOBAL bits = random_bits(rng, w, h, from);
        HGLOBAL srcTable = from <= 8 ? make_table(awkward_table(rng, 1 << from)) : 0;
        auto count = static_cast<int16_t>(trial % 3 == 0 ? trial % 2 * 16 : size(300));
        HGLOBAL dstTable = trial % 3 == 0 ? 0 : make_table(awkward_table(rng, count));
        HGLOBAL fast = rlConvertBitmapDepth(bits, w, h, from, to, srcTable, dstTable, count);
        HGLOBAL slow = rasteroracle::convert(bits, w, h, from, to, srcTable, dstTable, count);
        ASSERT_EQ(block_bytes(fast), block_bytes(slow));
        if (from == 24 && to == 8) expect_same_over_source(bits, w, h, dstTable, count, slow);
        HGLOBAL scaled = trial % 2 ? rlShrinkBitmap(bits, from, w, h, dw, dh)
                                   : rlStretchBitmap(bits, from, w, h, dw, dh);
        HGLOBAL literal = oracle_scale_bitmap(bits, from, w, h, dw, dh);
        ASSERT_EQ(block_bytes(scaled), block_bytes(literal));
        HGLOBAL rows = random_bits(rng, dw, h, from);
        Bytes expected = block_bytes(rows);
        const auto *src = static_cast<const uint8_t *>(rlLockMemory(bits));
        auto *dst = static_cast<uint8_t *>(rlLockMemory(rows));
        (trial % 3 ? ShrinkX : StretchX)(src, dst, from, w, h, dw);
        (trial % 3 ? oracle_ShrinkX : oracle_StretchX)(src, expected.data(), from, w, h, dw);
        ASSERT_EQ(block_bytes(rows), expected);
        for (HGLOBAL x : {srcTable, dstTable, fast, slow, scaled, literal, rows}) rlFreeNewData(x);

        if (from == 24) {  // dithered to 1, 4 and 8 bits
            int16_t depth = kDepths[trial / 25 % 3];
            auto n = static_cast<int16_t>(depth == 1 ? 8 : 1 << depth);
            HGLOBAL table = 0, dithered = 0;
            // Odd trials take the library's table choice, even ones a table of
            // fewer entries than the depth holds, passed with a count past its block.
            if (trial % 2 != 0) {
                // Traced half the time: debug runs map every pixel on their own road.
                auto level = static_cast<int16_t>(trial % 4 == 1);
                printed(level,
                        [&] { dithered = rlDitherBitmap(bits, w, h, 24, depth, 0, &table); });
            } else {
                n = static_cast<int16_t>(size(depth == 8 ? 40 : static_cast<uint32_t>(n)));
                table = make_table(awkward_table(rng, n));
                dithered = rlDitherGivenCT(bits, w, h, 24, depth, 0, table, int16_t(n + 50));
            }
            HGLOBAL literalDither = oracle_dither_given(bits, w, h, 24, depth, table, n);
            ASSERT_EQ(block_bytes(dithered), block_bytes(literalDither));
            Values indices = read_bitmap(dithered, w, h, depth);
            EXPECT_LT(*std::max_element(indices.begin(), indices.end()), uint32_t(n));
            for (HGLOBAL x : {table, dithered, literalDither}) rlFreeNewData(x);
        }
        rlFreeNewData(bits);
    }
}

// Pictures large enough for the search to keep its answers by cell, on the
// wide and the plain roads, are compared with the literal search by the map
// fuzz target.
TEST(Oracles, Photograph) {
    int32_t w = 0, h = 0;
    HGLOBAL photo = load_test_photo(&w, &h);
    ASSERT_NE(photo, 0u);
    // The per-pixel nearest-colour search is slow: 24 -> 8 (a median-cut table,
    // then every pixel mapped) on a 480 x 270 copy. Each pair is the library's
    // result and the literal one, in order.
    HGLOBAL crop = rlShrinkBitmap(photo, 24, w, h, 480, 270);
    HGLOBAL mono = 0, table = 0, literalTable = 0;
    const std::pair<HGLOBAL, HGLOBAL> results[] = {
        {rlDitherBitmap(photo, w, h, 24, 1, 0, &mono),
         oracle_dither_given(photo, w, h, 24, 1, mono, 8)},
        {rlChangeColorResolution(crop, 480, 270, 24, 8, &table),
         rasteroracle::to_eight_bits(crop, 480, 270, &literalTable)},
        {table, literalTable},
    };
    expect_same_over_source(crop, 480, 270, literalTable, 256, results[1].second);
    for (const auto &[fast, literal] : results) {
        EXPECT_TRUE(block_bytes(fast) == block_bytes(literal)) << GlobalSize(fast) << " bytes";
        for (HGLOBAL x : {fast, literal}) rlFreeNewData(x);
    }
    for (HGLOBAL x : {photo, crop, mono}) rlFreeNewData(x);
}

}  // namespace

// Dithering: the row filter's modes, the integer error formulas and the last
// pixel that repeats its neighbour's choice, the exact nearest-colour search
// against rlNearestRGBIndex, and the fast rows against the per-pixel loop.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "dither_oracle.h"
#include "raster/dither.h"
#include "tolva/tolva.h"

namespace {

using Pixels = std::vector<uint8_t>;

Pixels greys(std::initializer_list<uint8_t> values) {
    Pixels p;
    for (uint8_t v : values) p.insert(p.end(), {v, v, v});
    return p;
}

const Pixels kBlackWhite = greys({0, 255});

TEST(RevRgb, Modes) {
    Pixels row = {0, 10, 20, 100, 110, 105, 10, 20, 30, 250, 245, 255};
    Pixels r1 = row, r2 = row, r3 = row, r4 = row, r0 = row, r5 = row;
    rev_rgb(4, r1.data(), 1);
    EXPECT_EQ(r1, (Pixels{255, 245, 235, 155, 145, 150, 245, 235, 225, 5, 10, 0}));
    // Mode 2 tests every pair within 10: (0, 10, 20) fails red-blue.
    rev_rgb(4, r2.data(), 2);
    EXPECT_EQ(r2, (Pixels{0, 10, 20, 155, 145, 150, 10, 20, 30, 5, 10, 0}));
    rev_rgb(4, r3.data(), 3);
    // (3*0 + 6*10 + 20)/10 = 8, (300+660+105)/10 = 106, 18, (750+1470+255)/10 = 247
    EXPECT_EQ(r3, (Pixels{8, 8, 8, 106, 106, 106, 18, 18, 18, 247, 247, 247}));
    rev_rgb(4, r4.data(), 4);
    EXPECT_EQ(r4, (Pixels{247, 247, 247, 149, 149, 149, 237, 237, 237, 8, 8, 8}));
    rev_rgb(4, r0.data(), 0);
    rev_rgb(4, r5.data(), 5);
    EXPECT_EQ(r0, row);
    EXPECT_EQ(r5, row);
    rev_rgb(0, r0.data(), 1);
    rev_rgb(-4, r0.data(), 1);
    EXPECT_EQ(r0, row);
}

TEST(DitherLine, IntegerErrorsAndTheCopiedLastPixel) {
    // 100 -> black, error 100: 43 to the right, 41 below, 17 below-right; then
    // 93 -> black, error 93: 40 right, 46 below, 59 below-left, 17 below-right.
    // The last pixel (now 240, nearer white) repeats black.
    Pixels cur = greys({100, 50, 200}), next = greys({10, 10, 10});
    _rlDitherOneLine(cur.data(), next.data(), kBlackWhite.data(), 3, 2);
    EXPECT_EQ(cur, greys({0, 0, 0}));
    EXPECT_EQ(next, greys({59, 46, 17}));
}

TEST(DitherLine, NegativeErrorsTruncateTowardZero) {
    // 200 -> white, error -55: e/8 = -6 and 7e/16 = -24 (flooring would give
    // -7 and -25): right 100 - 24 = 76, below-right 100 - 24 + 18 = 94.
    Pixels cur = greys({200, 100, 0}), next = greys({100, 100, 100});
    _rlDitherOneLine(cur.data(), next.data(), kBlackWhite.data(), 3, 2);
    EXPECT_EQ(cur, greys({255, 0, 0}));
    EXPECT_EQ(next, greys({97, 118, 106}));
}

TEST(DitherLine, ClampsAndShortRows) {
    // 200 -> white, error -55: right 10 - 24 and below 5 - 24 + 6 clamp to 0;
    // below-right 250 - 24 + 18 = 244.
    Pixels cur = greys({200, 10}), next = greys({5, 250});
    _rlDitherOneLine(cur.data(), next.data(), kBlackWhite.data(), 2, 2);
    EXPECT_EQ(cur, greys({255, 255}));
    EXPECT_EQ(next, greys({0, 244}));
    // 55 -> black, error 55: right 250 + 24, below 250 + 18, below-right 250 + 6
    // all clamp to 255.
    Pixels hot = greys({55, 250}), below = greys({250, 250});
    _rlDitherOneLine(hot.data(), below.data(), kBlackWhite.data(), 2, 2);
    EXPECT_EQ(below, greys({255, 255}));

    // A one-pixel row has no previous choice: entry 0, whatever is nearer.
    Pixels one = greys({250});
    Pixels table = greys({9, 255});
    _rlDitherOneLine(one.data(), nullptr, table.data(), 1, 2);
    EXPECT_EQ(one, greys({9}));

    Pixels keep = greys({1, 2, 3});
    _rlDitherOneLine(keep.data(), nullptr, nullptr, 3, 2);
    _rlDitherOneLine(keep.data(), nullptr, table.data(), 3, 0);
    _rlDitherOneLine(keep.data(), nullptr, table.data(), 0, 2);
    EXPECT_EQ(keep, greys({1, 2, 3}));
}

Pixels random_table(std::mt19937 &rng, int32_t n) {
    Pixels t;
    for (int32_t i = 0; i < n; ++i) {
        auto r = static_cast<uint8_t>(rng());
        switch (rng() % 4) {
        case 0: t.insert(t.end(), {r, r, r}); break;  // exact grey
        case 1:                                        // near grey, still a colour entry
            t.insert(t.end(), {r, static_cast<uint8_t>(r ^ 1), r});
            break;
        case 2:                                        // duplicate of an earlier entry
            if (i > 0) {
                size_t j = 3 * (rng() % static_cast<uint32_t>(i));
                t.insert(t.end(), {t[j], t[j + 1], t[j + 2]});
                break;
            }
            [[fallthrough]];
        default:
            t.insert(t.end(), {r, static_cast<uint8_t>(rng()), static_cast<uint8_t>(rng())});
        }
    }
    return t;
}

TEST(DitherSearch, SplitTableAnswersAsTheLinearSearch) {
    std::mt19937 rng(11);
    for (int32_t n : {1, 2, 3, 8, 16, 17, 64, 256, 300}) {
        Pixels t = random_table(rng, n);
        NearestSearch search;
        nearest_make(&search, t.data(), static_cast<int16_t>(n));
        for (int i = 0; i < 20000; ++i) {
            auto r = static_cast<uint8_t>(rng()), g = static_cast<uint8_t>(rng()),
                 b = static_cast<uint8_t>(rng());
            if (i % 3 == 0) g = static_cast<uint8_t>(r + static_cast<int>(rng() % 9) - 4);
            if (i % 3 == 0) b = static_cast<uint8_t>(r + static_cast<int>(rng() % 9) - 4);
            ASSERT_EQ(nearest_find(&search, r, g, b),
                      rlNearestRGBIndex(r, g, b, t.data(), static_cast<int16_t>(n)))
                << n << ": " << +r << "," << +g << "," << +b;
        }
    }
}

TEST(DitherSearch, FastRowsMatchThePerPixelLoop) {
    std::mt19937 rng(12);
    for (int trial = 0; trial < 400; ++trial) {
        int32_t n = 1 + static_cast<int32_t>(rng() % 40);
        if (trial % 50 == 0) n = 256;
        Pixels t = random_table(rng, n);
        int32_t width = 1 + static_cast<int32_t>(rng() % 60);
        Pixels a(3 * static_cast<size_t>(width)), b;
        for (auto &v : a) v = static_cast<uint8_t>(rng());
        Pixels an(a.rbegin(), a.rend());
        b = a;
        Pixels bn = an;
        bool withNext = trial % 3 != 0;
        _rlDitherOneLine(a.data(), withNext ? an.data() : nullptr, t.data(), width,
                         static_cast<int16_t>(n));
        oracle_dither_line(b.data(), withNext ? bn.data() : nullptr, t.data(), width,
                           static_cast<int16_t>(n));
        ASSERT_EQ(a, b) << trial;
        ASSERT_EQ(an, bn) << trial;
    }
}

TEST(DitherTables, FixedContents) {
    EXPECT_EQ(Pixels(MonoTable, MonoTable + 24), greys({0, 255, 64, 128, 160, 192, 208, 224}));
    EXPECT_EQ(Pixels(must_have_colors, must_have_colors + 24),
              (Pixels{255, 255, 255, 255, 255, 0, 255, 0, 255, 0, 255, 255, 255, 0, 0, 0, 255, 0,
                      0, 0, 255, 0, 0, 0}));
    for (int v = -128; v < 384; ++v) EXPECT_EQ(BOUNDARY_CHK[128 + v], v < 0 ? 0 : v > 255 ? 255 : v);
}

}  // namespace

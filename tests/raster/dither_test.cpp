// Dithering: the row filter's modes, the integer error formulas and the last
// pixel that repeats its neighbour's choice, the exact nearest-colour search
// against rlNearestRGBIndex, and the fast rows against the per-pixel loop.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "dither_oracle.h"
#include "photo.h"
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

TEST(DitherSearch, EverySearchAnswersAsTheLinearSearch) {
    std::mt19937 rng(11);
    for (int32_t n : {1, 2, 3, 8, 16, 17, 64, 256, 300}) {
        Pixels t = random_table(rng, n);
        NearestSearch split, celled;
        RlNearest cells;
        ASSERT_EQ(rl_nearest_open(&cells, t.data(), static_cast<int16_t>(n)), 0);
        nearest_make(&split, t.data(), static_cast<int16_t>(n), nullptr);
        nearest_make(&celled, t.data(), static_cast<int16_t>(n), &cells);
        // The memo in front of the cells: few colours, so slots are both
        // reused and overwritten.
        std::vector<uint32_t> keys(TOLVA_NEAREST_MEMO, 0);
        std::vector<int16_t> answers(TOLVA_NEAREST_MEMO, 0);
        celled.memoKey = keys.data();
        celled.memoIndex = answers.data();
        std::vector<uint32_t> colours(6000);
        for (auto &c : colours) c = rng() & 0xFFFFFF;
        for (int i = 0; i < 20000; ++i) {
            uint32_t c = colours[rng() % colours.size()];
            auto r = static_cast<uint8_t>(c >> 16), g = static_cast<uint8_t>(c >> 8),
                 b = static_cast<uint8_t>(c);
            if (i % 3 == 0) g = static_cast<uint8_t>(r + static_cast<int>(rng() % 9) - 4);
            if (i % 3 == 0) b = static_cast<uint8_t>(r + static_cast<int>(rng() % 9) - 4);
            int16_t expected = rlNearestRGBIndex(r, g, b, t.data(), static_cast<int16_t>(n));
            ASSERT_EQ(nearest_find(&split, r, g, b), expected) << n << ": " << +r << "," << +g << "," << +b;
            ASSERT_EQ(nearest_find(&celled, r, g, b), expected) << n << ": " << +r << "," << +g << "," << +b;
        }
        rl_nearest_close(&cells);
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


// A 24-bit bitmap of width x height from packed colours (0xRRGGBB), row by row.
HGLOBAL picture(const std::vector<uint32_t> &rgb, int32_t width, int32_t height) {
    HGLOBAL h = GlobalAlloc(66, rlCalcNewSize(width, height, 24));
    auto *p = static_cast<uint8_t *>(GlobalLock(h));
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x)
            rlSetPixel(p, rlBytesPerLine(width, 24), x, y, 24, rgb[static_cast<size_t>(y * width + x)] << 8,
                       nullptr, nullptr, 0);
    return h;
}

HGLOBAL random_picture(std::mt19937 &rng, int32_t width, int32_t height) {
    std::vector<uint32_t> rgb(static_cast<size_t>(width * height));
    uint32_t base = rng() & 0xFFFFFF;
    for (auto &v : rgb) v = (rng() % 4 == 0) ? rng() & 0xFFFFFF : base ^ (rng() & 0x0F0F0F);
    return picture(rgb, width, height);
}

Pixels table_bytes(HGLOBAL table, int32_t count) {
    const auto *t = static_cast<const uint8_t *>(GlobalLock(table));
    return Pixels(t, t + 3 * count);
}

bool same_block(HGLOBAL a, HGLOBAL b) {
    return GlobalSize(a) == GlobalSize(b) &&
           std::memcmp(GlobalLock(a), GlobalLock(b), GlobalSize(a)) == 0;
}

// Every pixel of an indexed bitmap below `count`.
bool indices_below(HGLOBAL bits, int32_t width, int32_t height, int16_t depth, int32_t count) {
    const auto *p = static_cast<const uint8_t *>(GlobalLock(bits));
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x)
            if (rlGetPixel(p, rlBytesPerLine(width, depth), x, y, depth) >= static_cast<uint32_t>(count))
                return false;
    return true;
}

TEST(DitherBitmap, OneBitUsesTheGreyTableAndTheIndexLowBit) {
    std::mt19937 rng(21);
    HGLOBAL src = random_picture(rng, 13, 7);
    HGLOBAL table = 0;
    int16_t count = 0;
    EXPECT_EQ(rlDitherGetCT(src, 13, 7, 24, 1, 0, &table, &count), 0);
    EXPECT_EQ(count, 8);
    EXPECT_EQ(table_bytes(table, 8), Pixels(MonoTable, MonoTable + 24));
    GlobalFree(table);

    table = 0;
    HGLOBAL out = rlDitherBitmap(src, 13, 7, 24, 1, 0, &table);
    ASSERT_NE(table, 0u);
    EXPECT_EQ(table_bytes(table, 8), Pixels(MonoTable, MonoTable + 24));
    HGLOBAL expected = oracle_dither_given(src, 13, 7, 24, 1, table, 8);
    EXPECT_TRUE(same_block(out, expected));
    EXPECT_EQ(GlobalSize(out), rlCalcNewSize(13, 7, 1));
    for (HGLOBAL h : {src, table, out, expected}) GlobalFree(h);

    // Mid grey 128 is entry 3 of the ramp: its low bit makes it a set pixel,
    // while 64 (entry 2) comes out clear.
    HGLOBAL flat = picture(std::vector<uint32_t>(4 * 2, 0x808080), 4, 2);
    HGLOBAL dark = picture(std::vector<uint32_t>(4 * 2, 0x404040), 4, 2);
    HGLOBAL t1 = 0, t2 = 0;
    HGLOBAL a = rlDitherBitmap(flat, 4, 2, 24, 1, 0, &t1);
    HGLOBAL b = rlDitherBitmap(dark, 4, 2, 24, 1, 0, &t2);
    EXPECT_EQ(static_cast<const uint8_t *>(GlobalLock(a))[0], 0xF0);
    EXPECT_EQ(static_cast<const uint8_t *>(GlobalLock(b))[0], 0x00);
    for (HGLOBAL h : {flat, dark, t1, t2, a, b}) GlobalFree(h);
}

TEST(DitherBitmap, FourBitsReduceToEightAndAppendTheFixedColours) {
    std::mt19937 rng(22);
    HGLOBAL src = random_picture(rng, 31, 9);
    HGLOBAL table = 0;
    int16_t count = 0;
    rlDitherGetCT(src, 31, 9, 24, 4, 0, &table, &count);
    EXPECT_EQ(count, 16);
    Pixels t = table_bytes(table, 16);
    EXPECT_EQ(Pixels(t.begin() + 24, t.end()), Pixels(must_have_colors, must_have_colors + 24));

    HGLOBAL used = 0;
    HGLOBAL out = rlDitherBitmap(src, 31, 9, 24, 4, 0, &used);
    EXPECT_EQ(table_bytes(used, 16), t);  // the same choice as rlDitherGetCT
    HGLOBAL expected = oracle_dither_given(src, 31, 9, 24, 4, used, 16);
    EXPECT_TRUE(same_block(out, expected));
    HGLOBAL given = rlDitherGivenCT(src, 31, 9, 24, 4, 0, used, 16);
    EXPECT_TRUE(same_block(given, expected));
    for (HGLOBAL h : {src, table, used, out, expected, given}) GlobalFree(h);
}

TEST(DitherBitmap, ThreeColoursGiveThreeReducedEightFixedFiveBlack) {
    std::vector<uint32_t> rgb = {0xFF0000, 0x008000, 0x000040, 0xFF0000, 0x008000, 0x000040};
    HGLOBAL src = picture(rgb, 3, 2);
    HGLOBAL table = 0;
    int16_t count = 0;
    rlDitherGetCT(src, 3, 2, 24, 4, 0, &table, &count);
    EXPECT_EQ(count, 16);
    // Ascending colour keys, each 5-bit channel c written as c * 8 | 7.
    Pixels expected = {0, 0, 71, 0, 135, 0, 255, 0, 0};
    expected.insert(expected.end(), must_have_colors, must_have_colors + 24);
    expected.resize(48, 0);
    EXPECT_EQ(table_bytes(table, 16), expected);
    GlobalFree(table);
    GlobalFree(src);
}

TEST(DitherBitmap, CallerTables) {
    std::mt19937 rng(23);
    HGLOBAL src = random_picture(rng, 10, 4);
    Pixels mine = greys({0, 40, 80, 120, 160, 200, 240, 255});
    mine.resize(48, 7);
    HGLOBAL table = GlobalAlloc(66, 48);
    std::memcpy(GlobalLock(table), mine.data(), 48);

    // rlDitherBitmap takes a caller's table at any depth, at 2^depth entries.
    HGLOBAL used = table;
    HGLOBAL out = rlDitherBitmap(src, 10, 4, 24, 4, 0, &used);
    EXPECT_EQ(used, table);
    HGLOBAL expected = oracle_dither_given(src, 10, 4, 24, 4, table, 16);
    EXPECT_TRUE(same_block(out, expected));

    // rlDitherGetCT keeps it only below 3 entries: at 1 bit, with 2 entries.
    HGLOBAL chosen = table;
    int16_t count = 0;
    rlDitherGetCT(src, 10, 4, 24, 1, 0, &chosen, &count);
    EXPECT_EQ(chosen, table);
    EXPECT_EQ(count, 2);
    chosen = table;
    rlDitherGetCT(src, 10, 4, 24, 4, 0, &chosen, &count);
    EXPECT_NE(chosen, table);
    EXPECT_EQ(count, 16);
    for (HGLOBAL h : {src, table, out, expected, chosen}) GlobalFree(h);
}

TEST(DitherBitmap, IndexedSourcesAreCopiedWithoutTheirTable) {
    // The 24-bit copy is made without a table, so every index reads as black.
    HGLOBAL src = GlobalAlloc(66, rlCalcNewSize(4, 2, 8));
    std::memset(GlobalLock(src), 5, GlobalSize(src));
    HGLOBAL srcTable = GlobalAlloc(66, 3 * 256);
    std::memset(GlobalLock(srcTable), 200, 3 * 256);
    Pixels bw = greys({255, 0});
    HGLOBAL table = GlobalAlloc(66, 6);
    std::memcpy(GlobalLock(table), bw.data(), 6);
    HGLOBAL out = rlDitherGivenCT(src, 4, 2, 8, 1, srcTable, table, 2);
    EXPECT_EQ(static_cast<const uint8_t *>(GlobalLock(out))[0], 0xF0);  // entry 1, black
    for (HGLOBAL h : {src, srcTable, table, out}) GlobalFree(h);
}

TEST(DitherBitmap, GeneratedPicturesMatchThePerPixelLoopBelowTheCount) {
    // Odd trials take the library's table choice, even ones a random table
    // (greys, near greys, duplicates) of fewer entries than the depth holds.
    std::mt19937 rng(25);
    for (int trial = 0; trial < 90; ++trial) {
        int16_t depth = trial % 3 == 0 ? 1 : (trial % 3 == 1 ? 4 : 8);
        int32_t w = 1 + static_cast<int32_t>(rng() % 50), h = 1 + static_cast<int32_t>(rng() % 20);
        HGLOBAL src = random_picture(rng, w, h);
        HGLOBAL table = 0, out = 0;
        int16_t count = depth == 1 ? 8 : static_cast<int16_t>(1 << depth);
        if (trial % 2 != 0) {
            out = rlDitherBitmap(src, w, h, 24, depth, 0, &table);
        } else {
            count = static_cast<int16_t>(1 + rng() % static_cast<uint32_t>(depth == 8 ? 40 : count));
            Pixels t = random_table(rng, count);
            table = GlobalAlloc(66, static_cast<uint32_t>(t.size()));
            std::memcpy(GlobalLock(table), t.data(), t.size());
            // A count beyond the table's block is cut to the entries it holds.
            out = rlDitherGivenCT(src, w, h, 24, depth, 0, table, static_cast<int16_t>(count + 50));
        }
        HGLOBAL expected = oracle_dither_given(src, w, h, 24, depth, table, count);
        ASSERT_TRUE(same_block(out, expected)) << trial;
        EXPECT_TRUE(indices_below(out, w, h, depth, count)) << trial;
        for (HGLOBAL x : {src, table, out, expected}) GlobalFree(x);
    }
}

TEST(DitherBitmap, DebugOutputGoesToStandardOutput) {
    HGLOBAL src = picture(std::vector<uint32_t>(3 * 2, 0x808080), 3, 2);
    HGLOBAL table = 0;
    _debug_color_res = 1;
    testing::internal::CaptureStdout();
    HGLOBAL out = rlDitherBitmap(src, 3, 2, 24, 1, 0, &table);
    std::string text = testing::internal::GetCapturedStdout();
    _debug_color_res = 0;
    EXPECT_EQ(text, "Dithering to the following colortable:\n"
                    "color 0: [0, 0, 0]\ncolor 1: [255, 255, 255]\ncolor 2: [64, 64, 64]\n"
                    "color 3: [128, 128, 128]\ncolor 4: [160, 160, 160]\n"
                    "color 5: [192, 192, 192]\ncolor 6: [208, 208, 208]\n"
                    "color 7: [224, 224, 224]\n"
                    "Dithering...each(.) represents one scan line\n..\n");
    for (HGLOBAL h : {src, table, out}) GlobalFree(h);

    // A traced run maps through the per-pixel conversion: the same bytes.
    std::mt19937 rng(26);
    HGLOBAL pic = random_picture(rng, 29, 11);
    for (int16_t depth : {1, 4, 8}) {
        HGLOBAL t1 = 0, t2 = 0;
        _debug_color_res = 1;
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        HGLOBAL traced = rlDitherBitmap(pic, 29, 11, 24, depth, 0, &t1);
        (void)testing::internal::GetCapturedStderr();
        (void)testing::internal::GetCapturedStdout();
        _debug_color_res = 0;
        HGLOBAL quiet = rlDitherBitmap(pic, 29, 11, 24, depth, 0, &t2);
        EXPECT_TRUE(same_block(traced, quiet)) << depth;
        for (HGLOBAL h : {t1, t2, traced, quiet}) GlobalFree(h);
    }
    GlobalFree(pic);
}

TEST(DitherBitmap, BadInput) {
    HGLOBAL table = 0;
    HGLOBAL out = rlDitherBitmap(0, 5, 5, 24, 4, 0, &table);  // no source: nothing to read
    if (out != 0) {
        EXPECT_TRUE(indices_below(out, 5, 5, 4, 16));
    }
    GlobalFree(out);
    GlobalFree(table);
    HGLOBAL src = picture(std::vector<uint32_t>(6, 0x123456), 3, 2);
    for (int16_t depth : {0, 2, 3, 16, -1}) {
        table = 0;
        HGLOBAL o = rlDitherBitmap(src, 3, 2, 24, depth, 0, nullptr);
        HGLOBAL p = rlDitherBitmap(src, 3, 2, 24, depth, 0, &table);
        GlobalFree(o);
        GlobalFree(p);
        GlobalFree(table);
    }
    HGLOBAL g = rlDitherGivenCT(src, 3, 2, 24, 4, 0, 0, 16);  // no table: pixels untouched
    GlobalFree(g);
    GlobalFree(src);
}

TEST(DitherPhoto, FastPathMatchesThePerPixelLoop) {
    int32_t w = 0, h = 0;
    HGLOBAL photo = load_test_photo(&w, &h);
    ASSERT_NE(photo, 0u);
    for (int16_t depth : {1, 4}) {
        HGLOBAL table = 0;
        HGLOBAL out = rlDitherBitmap(photo, w, h, 24, depth, 0, &table);
        int16_t count = depth == 1 ? 8 : 16;
        HGLOBAL expected = oracle_dither_given(photo, w, h, 24, depth, table, count);
        EXPECT_TRUE(same_block(out, expected)) << depth;
        for (HGLOBAL x : {table, out, expected}) GlobalFree(x);
    }
    GlobalFree(photo);
}

}  // namespace

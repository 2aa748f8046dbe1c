// Depth conversion and colour-model rewrites.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "raster_testing.h"

namespace {

using rastertest::block_bytes;
using rastertest::make_bitmap;
using rastertest::make_table;
using rastertest::packed;
using rastertest::read_bitmap;

HGLOBAL bytes_block(const std::vector<uint8_t> &bytes) {
    HGLOBAL h = rlGetMemory(1, static_cast<int32_t>(bytes.size()));
    std::memcpy(rlLockMemory(h), bytes.data(), bytes.size());
    return h;
}

TEST(ColourModel, CmykBecomesPackedRgb) {
    HGLOBAL h = bytes_block({0, 0, 0, 255, 255, 0, 0, 0, 10, 200, 30, 100,
                             0, 0, 0, 0, 255, 255, 255, 255, 1, 2, 3, 4});
    rlCMYKtoRGB(h, 3, 2);
    std::vector<uint8_t> out = block_bytes(h);
    EXPECT_EQ(std::vector<uint8_t>(out.begin(), out.begin() + 18),
              (std::vector<uint8_t>{0, 0, 0, 0, 255, 255, 155, 55, 155,
                                    255, 255, 255, 0, 0, 0, 251, 251, 251}));
    rlFreeNewData(h);

    h = bytes_block({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    rlALPHAtoRGB(h, 1, 3);
    out = block_bytes(h);
    EXPECT_EQ(std::vector<uint8_t>(out.begin(), out.begin() + 9),
              (std::vector<uint8_t>{1, 2, 3, 5, 6, 7, 9, 10, 11}));
    rlFreeNewData(h);
}

TEST(ColourModel, RgbBecomesCmykWithoutBlack) {
    HGLOBAL h = bytes_block({0, 100, 255, 77, 10, 20, 30, 40, 1, 1, 1, 1, 2, 2, 2, 2});
    rlRGB4toCMYK(h, 2, 1);  // one row of two pixels; the rest of the block stays
    EXPECT_EQ(block_bytes(h), (std::vector<uint8_t>{255, 155, 0, 0, 245, 235, 225, 0,
                                                    1, 1, 1, 1, 2, 2, 2, 2}));
    rlRGB4toCMYK(h, 2, 0);  // no rows: nothing changes
    EXPECT_EQ(block_bytes(h)[0], 255);
    rlRGB4toCMYK(0, 2, 2);  // zero handles are ignored
    rlCMYKtoRGB(0, 2, 2);
    // A block shorter than its size claims is rewritten only as far as it goes.
    rlRGB4toCMYK(h, 100, 100);
    EXPECT_EQ(block_bytes(h)[12], 253);
    rlFreeNewData(h);
}

TEST(DepthConversion, IndexedSourcesGoThroughTheColourMap) {
    // 2 x 2 pixels at 4 bits on a 16-entry table.
    std::vector<uint32_t> table16(16, 0x000000);
    table16[1] = 0xFF0000;
    table16[2] = 0x00FF00;
    table16[3] = 0x808080;
    table16[4] = 0x0000FE;
    HGLOBAL src = make_table(table16);
    HGLOBAL bits = make_bitmap({1, 2, 3, 4}, 2, 2, 4);

    HGLOBAL rgb = rlConvertBitmapDepth(bits, 2, 2, 4, 24, src, 0, 0);
    EXPECT_EQ(GlobalSize(rgb), 16u);
    EXPECT_EQ(read_bitmap(rgb, 2, 2, 24), (std::vector<uint32_t>{packed(0xFF0000), packed(0x00FF00),
                                                                 packed(0x808080), packed(0x0000FE)}));
    // 32 bits: the map holds indices (only 24 bits get colours), so the
    // pixels carry the index in their fourth byte.
    HGLOBAL rgba = rlConvertBitmapDepth(bits, 2, 2, 4, 32, src, 0, 0);
    EXPECT_EQ(read_bitmap(rgba, 2, 2, 32), (std::vector<uint32_t>{1, 2, 3, 4}));

    HGLOBAL dst = make_table({0x00FF00, 0x000000, 0xFF0000, 0xFFFFFF, 0x0000FF});
    HGLOBAL eight = rlConvertBitmapDepth(bits, 2, 2, 4, 8, src, dst, 5);
    EXPECT_EQ(read_bitmap(eight, 2, 2, 8), (std::vector<uint32_t>{2, 0, 3, 4}));
    // Same depth without a destination table: the default palette's entries
    // 0 and 1 are both black, so 1 becomes 0.
    HGLOBAL zunl = rlGetMemory(3, 256);
    std::memcpy(rlLockMemory(zunl), ZUNLColorTable, 768);
    HGLOBAL indices = make_bitmap({0, 1, 2, 255}, 4, 1, 8);
    HGLOBAL same = rlConvertBitmapDepth(indices, 4, 1, 8, 8, zunl, 0, 0);
    EXPECT_EQ(read_bitmap(same, 4, 1, 8), (std::vector<uint32_t>{0, 0, 2, 255}));
    for (HGLOBAL h : {src, bits, rgb, rgba, dst, eight, zunl, indices, same}) rlFreeNewData(h);
}

TEST(DepthConversion, FewColoursSurviveTheRoundTripThroughEightBits) {
    // Up to 255 colours whose channels are 0 or c * 8 + 7 are exactly what
    // the reduction emits, so 24 -> 8 -> 24 gives the picture back.
    std::mt19937 rng(3);
    for (uint32_t n : {1u, 2u, 17u, 255u}) {
        std::vector<uint32_t> palette;
        std::set<uint32_t> seen;
        while (palette.size() < n) {
            uint32_t c = 0;
            for (int k = 0; k < 3; ++k) {
                uint32_t v = rng() % 32;
                c = (c << 8) | (v == 0 ? 0 : v * 8 + 7);
            }
            if (seen.insert(c).second) palette.push_back(packed(c));
        }
        const int32_t w = 37, h = 23;
        std::vector<uint32_t> pixels(w * h);
        for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = palette[i < n ? i : rng() % n];
        HGLOBAL bits = make_bitmap(pixels, w, h, 24);
        HGLOBAL table = 0;
        HGLOBAL eight = rlChangeColorResolution(bits, w, h, 24, 8, &table);
        HGLOBAL reduced = table;
        HGLOBAL back = rlChangeColorResolution(eight, w, h, 8, 24, &table);
        EXPECT_EQ(read_bitmap(back, w, h, 24), pixels) << n;
        EXPECT_EQ(block_bytes(back), block_bytes(bits)) << n;  // padding included
        std::vector<uint32_t> indices = read_bitmap(eight, w, h, 8);
        EXPECT_LT(*std::max_element(indices.begin(), indices.end()), n);
        EXPECT_EQ(table, 0u);  // going up makes no table; the one passed in is not freed
        for (HGLOBAL hd : {bits, eight, reduced, back}) rlFreeNewData(hd);
    }
}

TEST(ChangeResolution, ReductionsBelowEightBitsDither) {
    std::mt19937 rng(17);
    const int32_t w = 23, h = 11;
    HGLOBAL photo = rastertest::random_picture(rng, w, h, 300);
    HGLOBAL grey8 = rastertest::make_bitmap(std::vector<uint32_t>(w * h, 7), w, h, 8);
    std::vector<uint32_t> ramp(256);
    for (uint32_t i = 0; i < 256; ++i) ramp[i] = i * 0x010101u;
    HGLOBAL rampTable = make_table(ramp);

    struct Case { HGLOBAL bits; int16_t from, to; HGLOBAL table; int16_t expectedCount; };
    const Case cases[] = {
        {photo, 24, 4, 0, 16},        // median cut to 8 colours plus the 8 fixed ones
        {photo, 24, 1, 0, 8},         // the grey MonoTable
        {grey8, 8, 4, rampTable, 16},
        {grey8, 8, 6, rampTable, 64}, // the source table reduced first, then dithered against
    };
    for (const Case &c : cases) {
        HGLOBAL table = c.table;
        HGLOBAL out = rlChangeColorResolution(c.bits, w, h, c.from, c.to, &table);
        ASSERT_NE(table, 0u);
        EXPECT_NE(table, c.table);
        EXPECT_EQ(GlobalSize(table) / 3, static_cast<uint32_t>(c.expectedCount)) << c.from << c.to;
        EXPECT_EQ(GlobalSize(out), rlCalcNewSize(w, h, c.to));

        // The same as dithering directly against the table that road chose.
        HGLOBAL direct = 0;
        if (c.to > 4 && c.from != 24) {
            int16_t n = static_cast<int16_t>(1 << c.to);
            direct = rlReduceColorTable(c.table, 256, 1, &n);
        }
        HGLOBAL expected = rlDitherBitmap(c.bits, w, h, c.from, c.to, c.table, &direct);
        EXPECT_EQ(block_bytes(out), block_bytes(expected)) << c.from << " -> " << c.to;
        EXPECT_EQ(block_bytes(table), block_bytes(direct));
        for (HGLOBAL hd : {out, expected, table, direct}) rlFreeNewData(hd);
    }
    EXPECT_EQ(GlobalSize(rampTable), 768u);  // the source table is the caller's, still there
    for (HGLOBAL hd : {photo, grey8, rampTable}) rlFreeNewData(hd);
}

TEST(DepthConversion, BadDepthsAndMissingPartsStayInsideTheirBlocks) {
    HGLOBAL bits = make_bitmap({1, 2, 3, 0}, 2, 2, 8);
    HGLOBAL table = make_table({0xFF0000, 0x00FF00, 0x0000FF, 0xFFFFFF});
    // An unknown destination depth is allocated but never written.
    for (int16_t depth : {0, 2, 16}) {
        HGLOBAL out = rlConvertBitmapDepth(bits, 2, 2, 8, depth, table, table, 4);
        EXPECT_EQ(GlobalSize(out), rlCalcNewSize(2, 2, depth));
        for (uint8_t b : block_bytes(out)) EXPECT_EQ(b, 0);
        rlFreeNewData(out);
    }
    // An unknown source depth reads as 0 everywhere: every pixel is map[0].
    HGLOBAL two = make_table({0x00FF00, 0xFF0000});
    HGLOBAL out = rlConvertBitmapDepth(bits, 2, 2, 2, 8, table, two, 2);
    EXPECT_EQ(read_bitmap(out, 2, 2, 8), (std::vector<uint32_t>{1, 1, 1, 1}));
    rlFreeNewData(out);
    rlFreeNewData(two);
    // No source bitmap: the destination stays zeroed.
    out = rlConvertBitmapDepth(0, 2, 2, 24, 8, 0, table, 4);
    for (uint8_t b : block_bytes(out)) EXPECT_EQ(b, 0);
    rlFreeNewData(out);
    // No tables: the map is left zeroed, so every index becomes 0.
    out = rlConvertBitmapDepth(bits, 2, 2, 8, 4, 0, 0, 0);
    EXPECT_EQ(read_bitmap(out, 2, 2, 4), (std::vector<uint32_t>{0, 0, 0, 0}));
    rlFreeNewData(out);
    // A 4-entry table used as an 8-bit one: the missing entries read as black.
    out = rlConvertBitmapDepth(bits, 2, 2, 8, 24, table, 0, 0);
    EXPECT_EQ(read_bitmap(out, 2, 2, 24),
              (std::vector<uint32_t>{packed(0x00FF00), packed(0x0000FF), packed(0xFFFFFF),
                                     packed(0xFF0000)}));
    rlFreeNewData(out);
    // A count larger than the table's block is cut to the block.
    out = rlConvertBitmapDepth(bits, 2, 2, 8, 8, table, table, 200);
    EXPECT_EQ(read_bitmap(out, 2, 2, 8), (std::vector<uint32_t>{1, 2, 3, 0}));
    rlFreeNewData(out);
    // A bitmap block shorter than its size: the rows it lacks stay zero.
    out = rlConvertBitmapDepth(bits, 2, 9, 8, 8, table, 0, 0);
    EXPECT_EQ(read_bitmap(out, 2, 3, 8), (std::vector<uint32_t>{1, 2, 3, 0, 0, 0}));
    rlFreeNewData(out);
    for (HGLOBAL h : {bits, table}) rlFreeNewData(h);
}

TEST(DepthConversion, DebugLevelsReportProgress) {
    HGLOBAL bits = make_bitmap({packed(0x102030), packed(0x405060)}, 1, 2, 24);
    int16_t saved = _debug_color_res;
    _debug_color_res = 2;
    testing::internal::CaptureStderr();
    HGLOBAL out = rlConvertBitmapDepth(bits, 1, 2, 24, 24, 0, 0, 0);
    std::string printed = testing::internal::GetCapturedStderr();
    _debug_color_res = 4;
    testing::internal::CaptureStderr();
    HGLOBAL slow = rlConvertBitmapDepth(bits, 1, 2, 24, 24, 0, 0, 0);
    std::string perPixel = testing::internal::GetCapturedStderr();
    _debug_color_res = saved;
    EXPECT_EQ(printed,
              "Allocated 8 bytes of new memory for the destination bitmap\n"
              "Converted bits. Each (.) represents one scan line\n"
              "..\nColor resolution conversion complete\n");
    EXPECT_EQ(perPixel,
              "Allocated 8 bytes of new memory for the destination bitmap\n"
              "(0,0): (0,1): \nColor resolution conversion complete\n");
    EXPECT_EQ(block_bytes(slow), block_bytes(out));
    for (HGLOBAL h : {bits, out, slow}) rlFreeNewData(h);
}

}  // namespace

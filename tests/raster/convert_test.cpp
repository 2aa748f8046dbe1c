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
using rastertest::read_table;

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
    rlRGB4toCMYK(h, 2, 0);
    rlCMYKtoRGB(h, 2, 0);
    rlALPHAtoRGB(h, 0, 2);
    EXPECT_EQ(block_bytes(h)[0], 255);
    rlRGB4toCMYK(0, 2, 2);  // zero handles are ignored
    rlCMYKtoRGB(0, 2, 2);
    rlALPHAtoRGB(0, 2, 2);
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
    HGLOBAL one = rlConvertBitmapDepth(eight, 2, 2, 8, 1, dst, 0, 0);  // no table: all 0
    EXPECT_EQ(read_bitmap(one, 2, 2, 1), (std::vector<uint32_t>{0, 0, 0, 0}));
    for (HGLOBAL h : {src, bits, rgb, rgba, dst, eight, one}) rlFreeNewData(h);
}

TEST(DepthConversion, SameDepthWithoutTableKeepsTheFirstOfEqualEntries) {
    // The default palette's entries 0 and 1 are both black: 1 becomes 0.
    HGLOBAL table = rlGetMemory(3, 256);
    std::memcpy(rlLockMemory(table), ZUNLColorTable, 768);
    HGLOBAL bits = make_bitmap({0, 1, 2, 255}, 4, 1, 8);
    HGLOBAL out = rlConvertBitmapDepth(bits, 4, 1, 8, 8, table, 0, 0);
    EXPECT_EQ(read_bitmap(out, 4, 1, 8), (std::vector<uint32_t>{0, 0, 2, 255}));
    for (HGLOBAL h : {table, bits, out}) rlFreeNewData(h);
}

TEST(DepthConversion, DirectColourCopiesAndPacksTheFourthByte) {
    std::vector<uint32_t> colours = {packed(0x102030), packed(0xFFFFFF), packed(0x000001)};
    HGLOBAL bits = make_bitmap(colours, 3, 1, 24);
    HGLOBAL same = rlConvertBitmapDepth(bits, 3, 1, 24, 24, 0, 0, 0);
    EXPECT_EQ(block_bytes(same), block_bytes(bits));
    HGLOBAL wide = rlConvertBitmapDepth(bits, 3, 1, 24, 32, 0, 0, 0);
    EXPECT_EQ(read_bitmap(wide, 3, 1, 32), colours);
    HGLOBAL alpha = make_bitmap({0x10203044u}, 1, 1, 32);
    HGLOBAL back = rlConvertBitmapDepth(alpha, 1, 1, 32, 24, 0, 0, 0);
    EXPECT_EQ(block_bytes(back), (std::vector<uint8_t>{0x10, 0x20, 0x30, 0}));
    // To 8 bits without a table the value itself is stored: its low byte.
    HGLOBAL low = rlConvertBitmapDepth(alpha, 1, 1, 32, 8, 0, 0, 0);
    EXPECT_EQ(block_bytes(low)[0], 0x44);
    for (HGLOBAL h : {bits, same, wide, alpha, back, low}) rlFreeNewData(h);
}

TEST(DepthConversion, TrueColourToEightBitsMapsEveryPixelToItsNearestEntry) {
    std::mt19937 rng(11);
    const int32_t w = 53, h = 29;
    HGLOBAL bits = rastertest::random_picture(rng, w, h, 900);
    HGLOBAL table = 0;
    HGLOBAL out = rlChangeColorResolution(bits, w, h, 24, 8, &table);
    ASSERT_NE(table, 0u);
    ASSERT_EQ(GlobalSize(table), 768u);
    const auto *entries = static_cast<const uint8_t *>(rlLockMemory(table));
    std::vector<uint32_t> colours = read_bitmap(bits, w, h, 24);
    std::vector<uint32_t> indices = read_bitmap(out, w, h, 8);
    for (size_t i = 0; i < colours.size(); ++i) {
        uint32_t c = colours[i];
        EXPECT_EQ(indices[i], static_cast<uint32_t>(rlNearestRGBIndex(
                                  static_cast<int16_t>(c >> 24), static_cast<int16_t>((c >> 16) & 255),
                                  static_cast<int16_t>((c >> 8) & 255), entries, 256)));
    }
    for (HGLOBAL hd : {bits, table, out}) rlFreeNewData(hd);
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

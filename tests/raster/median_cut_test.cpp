// Median-cut colour reduction: the table it emits, odd orders included.
#include <gtest/gtest.h>

#include <algorithm>

#include "raster_testing.h"

namespace {

using rastertest::make_bitmap;
using rastertest::packed;
using rastertest::read_table;

std::vector<uint32_t> reduce(const std::vector<uint32_t> &pixels, int32_t width, int32_t height,
                             int16_t &count) {
    HGLOBAL bits = make_bitmap(pixels, width, height, 24);
    HGLOBAL table = rlReduceColorTable(bits, width, height, &count);
    std::vector<uint32_t> out = read_table(table, count > 0 ? count : 0);
    rlFreeNewData(table);
    rlFreeNewData(bits);
    return out;
}

// A red-only key list entry: r5 in the red field.
RlColorEntry red_entry(int r5, int count) {
    return RlColorEntry{static_cast<uint16_t>(r5 << 10), static_cast<uint16_t>(count)};
}

TEST(MedianCut, FewColoursComeBackInKeyOrder) {
    // Channels keep their top 5 bits and leave as c * 8 | 7 (0 stays 0).
    std::vector<uint32_t> pixels = {packed(0xFFFFFF), packed(0x0000FF), packed(0x08F010),
                                    packed(0x000000), packed(0x0000FF), packed(0x800001),
                                    packed(0x0F0F0F), packed(0x000000)};
    int16_t count = 16;
    std::vector<uint32_t> table = reduce(pixels, 4, 2, count);
    EXPECT_EQ(count, 6);
    EXPECT_EQ(table, (std::vector<uint32_t>{0x000000, 0x0000FF, 0x0F0F0F, 0x0FF717, 0x870000,
                                            0xFFFFFF}));
}

TEST(MedianCut, ExactlyNColoursStillCutAndLeaveAStaleParent) {
    // Four reds with 5-bit values 0, 10, 20, 31. The second cut's heap build
    // pulls red 20 into the box {0, 10} and drops red 0 from it; the freed
    // slot 1 still holds the first box {0, 10} with its mean 5.
    std::vector<uint32_t> pixels = {packed(0x000000), packed(0x500000), packed(0xA00000),
                                    packed(0xF80000)};
    int16_t count = 4;
    std::vector<uint32_t> table = reduce(pixels, 4, 1, count);
    EXPECT_EQ(count, 4);
    EXPECT_EQ(table, (std::vector<uint32_t>{0x570000, 0x2F0000, 0xCF0000, 0xA70000}));

    // Two colours asked for two: one box, and a slot that was never used.
    count = 2;
    table = reduce({packed(0x000000), packed(0xF80000)}, 2, 1, count);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(table, (std::vector<uint32_t>{0x7F0000, 0x000000}));
}

TEST(MedianCut, CountersSaturateAt65535) {
    // 70000 black pixels weigh as 65535 against 65535 white ones: the one
    // box's mean is 15 (127) per channel; unsaturated it would be 14 (119).
    std::vector<uint32_t> pixels(70000 + 65535, packed(0xFFFFFF));
    std::fill(pixels.begin(), pixels.begin() + 70000, 0u);
    int16_t count = 2;
    std::vector<uint32_t> table = reduce(pixels, 70000 + 65535, 1, count);
    EXPECT_EQ(table[0], 0x7F7F7Fu);
}

TEST(MedianCut, BadRequestsLeaveTheTableZeroedAndDebugPrintsTheTable) {
    int16_t count = 8;
    HGLOBAL table = rlReduceColorTable(0, 4, 4, &count);  // no bitmap
    EXPECT_EQ(count, 8);
    EXPECT_EQ(read_table(table, 8), std::vector<uint32_t>(8, 0));
    rlFreeNewData(table);

    HGLOBAL bits = make_bitmap({packed(0xFFFFFF), packed(0x000000)}, 2, 1, 24);
    count = 0;
    table = rlReduceColorTable(bits, 2, 1, &count);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(GlobalSize(table), 0u);
    rlFreeNewData(table);

    count = 8;
    int16_t saved = _debug_color_res;
    _debug_color_res = 1;
    testing::internal::CaptureStderr();
    table = rlReduceColorTable(bits, 2, 1, &count);
    std::string printed = testing::internal::GetCapturedStderr();
    _debug_color_res = saved;
    EXPECT_EQ(printed,
              "Color Reduction in Process...24bit -> 8 colors\n"
              "  -new color table size: 2\n"
              "   color 0: [0, 0, 0]\n"
              "   color 1: [255, 255, 255]\n");
    rlFreeNewData(table);
    rlFreeNewData(bits);
}

TEST(MedianCut, HistogramAccumulatesUntilTheTableIsBuilt) {
    HGLOBAL context = InitColorLib();
    ASSERT_NE(context, 0u);
    const uint8_t first[] = {255, 0, 0, 0};
    const uint8_t second[] = {0, 0, 255, 0};
    uint8_t table[3 * 4] = {};
    int16_t count = 4;
    EXPECT_EQ(direct_indexed(first, 1, 1, &count, 0, table, context), 0);
    EXPECT_EQ(count, 0);
    count = 4;
    EXPECT_EQ(direct_indexed(second, 1, 1, &count, 3, table, context), 0);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(table[2], 255);  // blue sorts first by key
    EXPECT_EQ(table[3], 255);
    count = 4;  // flags bit 1 kept both colours
    EXPECT_EQ(direct_indexed(first, 1, 1, &count, 1, table, context), 0);
    EXPECT_EQ(count, 2);
    count = 4;  // and without it they were cleared
    EXPECT_EQ(direct_indexed(second, 1, 1, &count, 1, table, context), 0);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(TermColorLib(context), 0);
    EXPECT_EQ(TermColorLib(0), 0);
    EXPECT_EQ(direct_indexed(first, 1, 1, &count, 1, table, 0), -1);
}

TEST(MedianBoxes, DownwardRunComparesWithTheEntryAbove) {
    RlColorBox box{};
    box.axis = 0;
    box.first = 0;
    box.last = 4;
    RlColorEntry a[] = {red_entry(1, 1), red_entry(2, 1), red_entry(2, 1), red_entry(2, 1),
                        red_entry(3, 1), RlColorEntry{0, 0}};
    EXPECT_EQ(find_median(a, &box), 0);  // comparing with the entry below would give 1
    RlColorEntry b[] = {red_entry(1, 3), red_entry(4, 1), red_entry(4, 1), red_entry(4, 1),
                        red_entry(9, 3), RlColorEntry{0, 0}};
    EXPECT_EQ(find_median(b, &box), 3);  // the upward run wins; otherwise 1
    box.last = 1;
    EXPECT_EQ(find_median(b, &box), 0);  // two entries: always the first
}

}  // namespace

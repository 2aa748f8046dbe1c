// Median-cut colour reduction: the table it emits and the box steps that
// decide it, odd orders included.
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

TEST(MedianCut, ManyColoursGiveExactlyNExpandedEntries) {
    std::mt19937 rng(7);
    for (int16_t n : {256, 16, 3}) {
        HGLOBAL bits = rastertest::random_picture(rng, 61, 37, 2000);
        int16_t count = n;
        HGLOBAL table = rlReduceColorTable(bits, 61, 37, &count);
        EXPECT_EQ(count, n);
        EXPECT_EQ(GlobalSize(table), 3u * static_cast<uint32_t>(n));
        for (uint32_t c : read_table(table, count)) {
            for (int shift : {0, 8, 16}) {
                uint32_t channel = (c >> shift) & 255;
                EXPECT_TRUE(channel == 0 || (channel & 7) == 7) << std::hex << c;
            }
        }
        rlFreeNewData(table);
        rlFreeNewData(bits);
    }
}

TEST(MedianCut, BadRequestsLeaveTheTableZeroed) {
    int16_t count = 8;
    HGLOBAL table = rlReduceColorTable(0, 4, 4, &count);  // no bitmap
    EXPECT_EQ(count, 8);
    for (uint32_t c : read_table(table, 8)) EXPECT_EQ(c, 0u);
    rlFreeNewData(table);

    HGLOBAL bits = make_bitmap({packed(0x102030), packed(0x405060)}, 2, 1, 24);
    count = 0;
    table = rlReduceColorTable(bits, 2, 1, &count);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(GlobalSize(table), 0u);
    rlFreeNewData(table);
    count = 4;
    table = rlReduceColorTable(bits, 0, 0, &count);  // an empty picture has no colours
    EXPECT_EQ(count, 0);
    rlFreeNewData(table);
    rlFreeNewData(bits);
}

TEST(MedianCut, DebugLevelPrintsTheTable) {
    HGLOBAL bits = make_bitmap({packed(0xFFFFFF), packed(0x000000)}, 2, 1, 24);
    int16_t count = 8;
    int16_t saved = _debug_color_res;
    _debug_color_res = 1;
    testing::internal::CaptureStderr();
    HGLOBAL table = rlReduceColorTable(bits, 2, 1, &count);
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

TEST(MedianBoxes, HeapBuildReachesOnePastTheRange) {
    RlColorEntry list[] = {red_entry(5, 1), red_entry(1, 1), red_entry(9, 1)};
    HeapSort(list, 0, 2);
    EXPECT_EQ(list[0].key, 1 << 10);
    EXPECT_EQ(list[1].key, 9 << 10);  // taken from past the range
    EXPECT_EQ(list[2].key, 5 << 10);

    RlColorEntry many[9];
    const int reds[] = {7, 3, 3, 30, 0, 12, 3, 19};
    for (int i = 0; i < 8; ++i) many[i] = red_entry(reds[i], 1);
    many[8] = RlColorEntry{0, 0};  // the spare: nothing sorts below it
    HeapSort(many, 0, 8);
    for (int i = 0; i < 7; ++i) EXPECT_LE(many[i].key, many[i + 1].key);
    EXPECT_EQ(many[8].key, 0);
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

TEST(MedianBoxes, SplitFillsTheLowestFreeSlots) {
    RlColorEntry list[] = {red_entry(1, 2), red_entry(2, 2), red_entry(3, 2), RlColorEntry{0, 0}};
    RlColorBox boxes[4] = {};
    uint16_t status[4] = {0, 0xFFFF, 0xFFFF, 0xFFFF};
    uint16_t boxCount = 1;
    getCRectData(&boxes[0], list, 0, 2);
    EXPECT_EQ(split(boxes, 0, 2, &boxCount, status, list, 4), 1);  // the median is the last entry
    EXPECT_EQ(boxCount, 2);
    EXPECT_EQ((std::vector<uint16_t>(status, status + 4)),
              (std::vector<uint16_t>{0xFFFF, 1, 0xFFFE, 0xFFFF}));
    EXPECT_EQ(boxes[1].first, 0);
    EXPECT_EQ(boxes[1].last, 1);
    EXPECT_EQ(boxes[2].first, 2);
    EXPECT_EQ(boxes[2].last, 2);
    EXPECT_EQ(boxes[0].last, 2);  // the parent's record stays behind

    EXPECT_EQ(split(boxes, 1, 0, &boxCount, status, list, 4), 1);  // the median is the first
    EXPECT_EQ((std::vector<uint16_t>(status, status + 4)),
              (std::vector<uint16_t>{0xFFFE, 0xFFFF, 0xFFFE, 0xFFFE}));
    EXPECT_EQ(boxes[0].first, 0);
    EXPECT_EQ(boxes[0].last, 0);
    EXPECT_EQ(boxes[3].first, 1);
}

TEST(MedianBoxes, BoxesMeasureExtentsAndPickTheLongestAxis) {
    auto key = [](int r, int g, int b) { return static_cast<uint16_t>(r << 10 | g << 5 | b); };
    RlColorEntry list[] = {{key(2, 10, 4), 3}, {key(6, 0, 8), 1}, {key(2, 4, 0), 0}};
    RlColorBox box;
    getCRectData(&box, list, 0, 1);
    EXPECT_EQ(box.pixels, 4u);
    EXPECT_EQ(box.axis, 1);  // green 10 beats red 4 and blue 4
    EXPECT_EQ(box.meanRed, 3);   // (6 + 6) / 4
    EXPECT_EQ(box.meanGreen, 7);  // 30 / 4
    EXPECT_EQ(box.meanBlue, 5);  // 20 / 4
    EXPECT_EQ(box.redMin, 2);
    EXPECT_EQ(box.greenMax, 10);
    RlColorEntry tie[] = {{key(0, 0, 0), 1}, {key(5, 5, 5), 1}};
    getCRectData(&box, tie, 0, 1);
    EXPECT_EQ(box.axis, 0);  // equal extents keep red

    RlColorBox boxes[4] = {};
    boxes[0].pixels = 100;
    boxes[1].pixels = 5;
    boxes[2].pixels = 5;
    boxes[3].pixels = 50;
    uint16_t status[4] = {0xFFFE, 1, 2, 0xFFFF};
    EXPECT_EQ(GetMaxHistSum(boxes, status, 4), 1);
    uint16_t none[4] = {0xFFFE, 0xFFFF, 0xFFFE, 0xFFFF};
    EXPECT_EQ(GetMaxHistSum(boxes, none, 4), 0);
}

}  // namespace

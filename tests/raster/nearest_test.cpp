// Nearest-colour search, colour maps and the published default palette.
#include <gtest/gtest.h>

#include <vector>

#include "tolva/tolva.h"

namespace {

TEST(NearestColour, GreysAndColoursMatchOnlyTheirOwnClass) {
    const uint8_t saturated[] = {255, 0, 0, 0, 255, 0, 0, 0, 255};
    const uint8_t greys[] = {0, 0, 0, 128, 128, 128, 255, 255, 255};
    EXPECT_EQ(rlNearestRGBIndex(10, 12, 14, saturated, 3), 0);  // grey query, no grey entry
    EXPECT_EQ(rlNearestRGBIndex(10, 20, 30, greys, 3), 0);      // colour query, no colour entry
    EXPECT_EQ(rlNearestRGBIndex(10, 200, 30, saturated, 3), 1);
    EXPECT_EQ(rlNearestRGBIndex(124, 126, 128, greys, 3), 1);
    // Within 4 on every pair is grey; a difference of 5 anywhere is colour.
    const uint8_t mixed[] = {100, 100, 100, 104, 100, 100};
    EXPECT_EQ(rlNearestRGBIndex(104, 100, 100, mixed, 2), 0);  // grey query skips the exact tint
    EXPECT_EQ(rlNearestRGBIndex(105, 100, 100, mixed, 2), 1);
}

TEST(NearestColour, EqualDistancesPickTheLowestIndex) {
    const uint8_t table[] = {0, 0, 0, 20, 10, 10, 0, 10, 10, 20, 10, 10, 10, 10, 10};
    // (10, 10, 10) is grey; entries 0 and 4 are the greys, 4 is exact.
    EXPECT_EQ(rlNearestRGBIndex(10, 10, 10, table, 5), 4);
    // (10, 10, 0) is colour: entries 1, 2, 3 all lie at distance 200.
    EXPECT_EQ(rlNearestRGBIndex(10, 10, 0, table, 5), 1);
    EXPECT_EQ(rlNearestRGBIndex(10, 10, 0, table + 6, 2), 0);
    EXPECT_EQ(rlNearestRGBIndex(10, 10, 0, nullptr, 5), 0);
    EXPECT_EQ(rlNearestRGBIndex(10, 10, 0, table, 0), 0);
    EXPECT_EQ(rlNearestRGBIndex(10, 10, 0, table, -3), 0);
}

TEST(NearestColour, DistanceIsUnweightedAndExactMatchesStop) {
    // Off by 40 in green or in red is the same distance; a luminance-weighted
    // metric would prefer the red error and pick entry 1.
    const uint8_t table[] = {0, 40, 100, 40, 0, 100, 0, 0, 0, 60, 0, 0, 60, 0, 0};
    EXPECT_EQ(rlNearestRGBIndex(0, 0, 100, table, 5), 0);
    EXPECT_EQ(rlNearestRGBIndex(60, 0, 0, table, 5), 3);  // the first of two exact matches
}

TEST(Colormap, MapsEveryIndexOfTheSource) {
    const uint8_t src[] = {0, 0, 0, 250, 10, 10, 128, 128, 128, 0, 0, 255};
    const uint8_t dst[] = {255, 0, 0, 0, 0, 200, 255, 255, 255};
    // 2-bit source (4 entries) onto a 3-entry destination.
    HGLOBAL h = rlBuildColormap(src, 2, dst, 8, 3);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(GlobalSize(h), 16u);
    auto *m = static_cast<uint32_t *>(rlLockMemory(h));
    EXPECT_EQ(std::vector<uint32_t>(m, m + 4), (std::vector<uint32_t>{2, 0, 2, 1}));
    rlFreeColormap(h);

    h = rlBuildColormap(src, 2, dst, 24, 3);
    m = static_cast<uint32_t *>(rlLockMemory(h));
    EXPECT_EQ(std::vector<uint32_t>(m, m + 4),
              (std::vector<uint32_t>{0, 0xFA0A0A00u, 0x80808000u, 0x0000FF00u}));
    rlFreeColormap(h);

    // No destination table: a deeper target maps onto the source table itself.
    h = rlBuildColormap(src, 2, nullptr, 8, 0);
    m = static_cast<uint32_t *>(rlLockMemory(h));
    EXPECT_EQ(std::vector<uint32_t>(m, m + 4), (std::vector<uint32_t>{0, 1, 2, 3}));
    rlFreeColormap(h);
}

TEST(Colormap, MissingTablesLeaveTheMapZeroed) {
    EXPECT_EQ(rlBuildColormap(nullptr, 24, nullptr, 8, 0), 0u);
    EXPECT_EQ(rlBuildColormap(nullptr, 32, nullptr, 8, 0), 0u);
    const uint8_t table[6] = {1, 2, 3, 4, 5, 6};
    for (HGLOBAL h : {rlBuildColormap(nullptr, 1, table, 8, 2),
                      rlBuildColormap(table, 4, nullptr, 1, 2)}) {
        ASSERT_NE(h, 0u);
        auto *m = static_cast<const uint32_t *>(rlLockMemory(h));
        uint32_t n = GlobalSize(h) / 4;
        for (uint32_t i = 0; i < n; ++i) EXPECT_EQ(m[i], 0u) << i;
        rlFreeColormap(h);
    }
}

TEST(DefaultPalette, RowsAreAGreyRampAndFifteenHues) {
    auto entry = [](int i) {
        return (uint32_t{ZUNLColorTable[3 * i]} << 16) | (uint32_t{ZUNLColorTable[3 * i + 1]} << 8) |
               ZUNLColorTable[3 * i + 2];
    };
    EXPECT_EQ(entry(0), 0x000000u);
    EXPECT_EQ(entry(1), 0x000000u);
    EXPECT_EQ(entry(2), 0x121212u);
    EXPECT_EQ(entry(15), 0xFFFFFFu);
    EXPECT_EQ(entry(16), 0x330000u);
    EXPECT_EQ(entry(24), 0xFF0000u);
    EXPECT_EQ(entry(57), 0xFFAA00u);
    EXPECT_EQ(entry(119), 0x00FF00u);
    EXPECT_EQ(entry(190), 0xB3D9FFu);
    EXPECT_EQ(entry(198), 0x0000FFu);
    EXPECT_EQ(entry(255), 0xFFCCE6u);
    for (int i = 1; i < 16; ++i) EXPECT_EQ(entry(i) & 0xFF, entry(i) >> 16) << i;  // greys
    // Every hue row goes from its dark shade to a pale tint of the same hue.
    for (int row = 1; row < 16; ++row) {
        int dark = 16 * row, pale = 16 * row + 15;
        EXPECT_LT(ZUNLColorTable[3 * dark] + ZUNLColorTable[3 * dark + 1] + ZUNLColorTable[3 * dark + 2],
                  ZUNLColorTable[3 * pale] + ZUNLColorTable[3 * pale + 1] + ZUNLColorTable[3 * pale + 2]);
    }
}

}  // namespace

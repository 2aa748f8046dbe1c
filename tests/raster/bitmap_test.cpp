// Row geometry, single-pixel access, nearest colour and colour maps.
#include <gtest/gtest.h>

#include "raster_testing.h"

namespace {

TEST(Bitmap, RowsArePaddedToFourBytes) {
    const int32_t cases[][3] = {{1, 1, 4},  {33, 1, 8}, {32, 1, 4}, {5, 24, 16}, {0, 8, 0},
                                {3, 8, 4},  {4, 8, 4},  {1, 32, 4}, {9, 4, 8},   {7, 24, 24}};
    for (const auto &c : cases)
        EXPECT_EQ(rlBytesPerLine(c[0], static_cast<int16_t>(c[1])), c[2]) << c[0] << "x" << c[1];
    EXPECT_EQ(rlCalcNewSize(5, 3, 24), 48u);
}

TEST(Bitmap, PackedPixelsAreMostSignificantFirst) {
    uint8_t row[8] = {0x80, 0x01, 0, 0, 0xAB, 0, 0, 0};
    EXPECT_EQ(rlGetPixel(row, 4, 0, 0, 1), 1u);  // x = 0 is the top bit
    EXPECT_EQ(rlGetPixel(row, 4, 15, 0, 1), 1u);
    EXPECT_EQ(rlGetPixel(row, 4, 0, 1, 4), 0xAu);  // even x: high nibble
    EXPECT_EQ(rlGetPixel(row, 4, 1, 1, 4), 0xBu);
    rlSetPixel(row, 4, 9, 0, 1, 3, nullptr, nullptr, 0);  // only the low bit counts
    rlSetPixel(row, 4, 0, 0, 1, 0, nullptr, nullptr, 0);
    EXPECT_EQ(row[0], 0x00);
    EXPECT_EQ(row[1], 0x41);
    rlSetPixel(row, 4, 0, 1, 4, 0x1C, nullptr, nullptr, 0);  // the other nibble stays
    rlSetPixel(row, 4, 3, 1, 4, 0x5, nullptr, nullptr, 0);
    EXPECT_EQ(row[4], 0xCB);
    EXPECT_EQ(row[5], 0x05);

    uint8_t direct[12] = {};
    rlSetPixel(direct, 4, 0, 1, 32, 0xA1B2C3D4u, nullptr, nullptr, 0);
    EXPECT_EQ(rlGetPixel(direct, 4, 0, 1, 32), 0xA1B2C3D4u);
    EXPECT_EQ(rlGetPixel(direct, 4, 0, 1, 24), 0xA1B2C300u);  // red in the top byte
    EXPECT_EQ(rlGetPixel(direct, 4, 1, 1, 24), 0xD4000000u);  // 3 bytes a pixel
}

TEST(Bitmap, StoredValueComesFromMapThenTable) {
    const uint8_t table[] = {0, 0, 0, 255, 0, 0, 0, 0, 255, 200, 200, 200};
    const uint32_t map[] = {3, 1, 0, 2};
    uint8_t data[4] = {};
    rlSetPixel(data, 4, 0, 0, 8, 2, map, table, 4);                // the map wins
    rlSetPixel(data, 4, 1, 0, 8, 0x1008F000u, nullptr, table, 4);  // nearest: pure blue
    EXPECT_EQ(data[0], 0);
    EXPECT_EQ(data[1], 2);
    uint8_t direct[4] = {9, 9, 9, 9};
    rlSetPixel(direct, 4, 0, 0, 32, 1, map, table, 4);  // table entry map[1], fourth byte 0
    EXPECT_EQ((std::vector<uint8_t>(direct, direct + 4)), (std::vector<uint8_t>{255, 0, 0, 0}));
    const uint32_t packedMap[] = {0x10203000u};  // not an index of the table: its own bytes
    rlSetPixel(direct, 4, 0, 0, 24, 0, packedMap, table, 4);
    EXPECT_EQ((std::vector<uint8_t>(direct, direct + 3)), (std::vector<uint8_t>{0x10, 0x20, 0x30}));

    // An index above 127 passes through a signed byte; its low bits survive.
    std::vector<uint8_t> wide(201 * 3, 0);
    for (int i = 0; i < 200; ++i) wide[3 * i] = 255;
    wide[600] = 10, wide[601] = 100, wide[602] = 200;
    rlSetPixel(data, 4, 0, 0, 8, 0x0A64C800u, nullptr, wide.data(), 201);
    EXPECT_EQ(data[0], 200);
}

TEST(Bitmap, UnsupportedDepthsReadZeroWriteNothingAndDebugPrintsCoordinates) {
    uint8_t data[8];
    std::memset(data, 0x5A, sizeof data);
    int16_t saved = _debug_color_res;
    _debug_color_res = 4;
    testing::internal::CaptureStderr();
    for (int16_t bits : {0, 2, 16, 33, -8}) {
        EXPECT_EQ(rlGetPixel(data, 4, 1, 1, bits), 0u) << bits;
        rlSetPixel(data, 4, 1, 1, bits, 0xFFFFFFFFu, nullptr, nullptr, 0);
    }
    rlSetPixel(data, 4, 2, 0, 8, 7, nullptr, nullptr, 0);
    std::string printed = testing::internal::GetCapturedStderr();
    _debug_color_res = saved;
    EXPECT_EQ(printed, "(1,1): (1,1): (1,1): (1,1): (1,1): (2,0): ");
    EXPECT_EQ((std::vector<uint8_t>(data, data + 8)),
              (std::vector<uint8_t>{0x5A, 0x5A, 7, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A}));
}

TEST(NearestColour, GreysMatchGreysColoursMatchColoursLowestIndexOnTies) {
    const uint8_t saturated[] = {255, 0, 0, 0, 255, 0, 0, 0, 255};
    const uint8_t greys[] = {0, 0, 0, 128, 128, 128, 255, 255, 255};
    EXPECT_EQ(rlNearestRGBIndex(10, 12, 14, saturated, 3), 0);  // grey query, no grey entry
    EXPECT_EQ(rlNearestRGBIndex(10, 20, 30, greys, 3), 0);      // colour query, no colour entry
    EXPECT_EQ(rlNearestRGBIndex(124, 126, 128, greys, 3), 1);
    const uint8_t tinted[] = {100, 100, 100, 104, 100, 100};
    EXPECT_EQ(rlNearestRGBIndex(104, 100, 100, tinted, 2), 0);  // within 4: grey, skips the tint
    EXPECT_EQ(rlNearestRGBIndex(105, 100, 100, tinted, 2), 1);
    // Off by 40 in green or in red is the same unweighted distance: index 0.
    const uint8_t ties[] = {0, 40, 100, 40, 0, 100, 60, 0, 0, 60, 0, 0};
    EXPECT_EQ(rlNearestRGBIndex(0, 0, 100, ties, 4), 0);
    EXPECT_EQ(rlNearestRGBIndex(60, 0, 0, ties, 4), 2);  // the first exact match
    EXPECT_EQ(rlNearestRGBIndex(60, 0, 0, nullptr, 4), 0);
    EXPECT_EQ(rlNearestRGBIndex(60, 0, 0, ties, -3), 0);
}

TEST(Colormap, MapsEachSourceIndexOrStaysZeroWithoutTables) {
    const uint8_t src[] = {0, 0, 0, 250, 10, 10, 128, 128, 128, 0, 0, 255};
    const uint8_t dst[] = {255, 0, 0, 0, 0, 200, 255, 255, 255};
    auto entries = [](HGLOBAL h) {
        const auto *m = static_cast<const uint32_t *>(rlLockMemory(h));
        std::vector<uint32_t> v(m, m + GlobalSize(h) / 4);
        rlFreeColormap(h);
        return v;
    };
    EXPECT_EQ(entries(rlBuildColormap(src, 2, dst, 8, 3)), (std::vector<uint32_t>{2, 0, 2, 1}));
    EXPECT_EQ(entries(rlBuildColormap(src, 2, dst, 24, 3)),
              (std::vector<uint32_t>{0, 0xFA0A0A00u, 0x80808000u, 0x0000FF00u}));
    EXPECT_EQ(entries(rlBuildColormap(src, 2, nullptr, 8, 0)), (std::vector<uint32_t>{0, 1, 2, 3}));
    EXPECT_EQ(entries(rlBuildColormap(src, 2, nullptr, 1, 0)), (std::vector<uint32_t>(4, 0)));
    EXPECT_EQ(entries(rlBuildColormap(nullptr, 1, dst, 8, 3)), (std::vector<uint32_t>(2, 0)));
    EXPECT_EQ(rlBuildColormap(src, 24, dst, 8, 3), 0u);
    EXPECT_EQ(rlBuildColormap(src, 32, dst, 8, 3), 0u);
}

TEST(DefaultPalette, GreyRampThenFifteenHues) {
    auto entry = [](int i) {
        return uint32_t{ZUNLColorTable[3 * i]} << 16 | uint32_t{ZUNLColorTable[3 * i + 1]} << 8 |
               ZUNLColorTable[3 * i + 2];
    };
    const uint32_t spots[][2] = {{0, 0x000000}, {1, 0x000000}, {2, 0x121212}, {15, 0xFFFFFF},
                                 {16, 0x330000}, {57, 0xFFAA00}, {119, 0x00FF00},
                                 {190, 0xB3D9FF}, {255, 0xFFCCE6}};
    for (const auto &s : spots) EXPECT_EQ(entry(static_cast<int>(s[0])), s[1]) << s[0];
}

}  // namespace

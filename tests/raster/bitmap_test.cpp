// Row geometry, memory wrappers and single-pixel access at every depth.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "tolva/tolva.h"

namespace {

TEST(RowGeometry, RowsArePaddedToFourBytes) {
    struct Case { int32_t width; int16_t bits; int32_t bytes; };
    const Case cases[] = {
        {1, 1, 4}, {33, 1, 8}, {32, 1, 4}, {5, 24, 16}, {0, 8, 0}, {0, 24, 0},
        {3, 8, 4}, {4, 8, 4}, {1, 32, 4}, {9, 4, 8}, {8, 4, 4}, {7, 24, 24},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(rlBytesPerLine(c.width, c.bits), c.bytes) << c.width << "x" << c.bits;
    }
    EXPECT_EQ(rlCalcNewSize(5, 3, 24), 48u);
    EXPECT_EQ(rlCalcNewSize(33, 2, 1), 16u);
    EXPECT_EQ(rlCalcNewSize(0, 7, 8), 0u);
}

TEST(MemoryWrappers, ZeroHandlesPassThrough) {
    EXPECT_EQ(rlLockMemory(0), nullptr);
    EXPECT_EQ(rlUnlockMemory(0), 0);
    EXPECT_EQ(rlFreeNewData(0), 0);
    EXPECT_EQ(rlFreeColormap(0), 0);
    EXPECT_EQ(rlPointertoHandle(nullptr), 0u);

    HGLOBAL h = rlGetMemory(3, 5);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(GlobalSize(h), 15u);
    auto *p = static_cast<uint8_t *>(rlLockMemory(h));
    ASSERT_NE(p, nullptr);
    for (int i = 0; i < 15; ++i) EXPECT_EQ(p[i], 0);
    EXPECT_EQ(rlPointertoHandle(p), h);
    EXPECT_EQ(rlUnlockMemory(h), 0);
    EXPECT_EQ(rlFreeNewData(h), 1);
    EXPECT_EQ(rlFreeColormap(rlGetMemory(4, 16)), 0);
}

TEST(PixelAccess, PackedDepthsAreMostSignificantFirst) {
    uint8_t row[8] = {0x80, 0x01, 0, 0, 0xAB, 0, 0, 0};
    EXPECT_EQ(rlGetPixel(row, 4, 0, 0, 1), 1u);   // x = 0 is the top bit
    EXPECT_EQ(rlGetPixel(row, 4, 1, 0, 1), 0u);
    EXPECT_EQ(rlGetPixel(row, 4, 15, 0, 1), 1u);  // last bit of the second byte
    EXPECT_EQ(rlGetPixel(row, 4, 0, 1, 4), 0xAu);  // even x: high nibble
    EXPECT_EQ(rlGetPixel(row, 4, 1, 1, 4), 0xBu);  // odd x: low nibble

    uint8_t bits[4] = {};
    rlSetPixel(bits, 4, 0, 0, 1, 1, nullptr, nullptr, 0);
    rlSetPixel(bits, 4, 9, 0, 1, 3, nullptr, nullptr, 0);  // only the low bit counts
    EXPECT_EQ(bits[0], 0x80);
    EXPECT_EQ(bits[1], 0x40);
    rlSetPixel(bits, 4, 0, 0, 1, 0, nullptr, nullptr, 0);
    EXPECT_EQ(bits[0], 0x00);

    uint8_t nibbles[4] = {0x00, 0xFF, 0, 0};
    rlSetPixel(nibbles, 4, 0, 0, 4, 0x1C, nullptr, nullptr, 0);
    rlSetPixel(nibbles, 4, 3, 0, 4, 0x5, nullptr, nullptr, 0);
    EXPECT_EQ(nibbles[0], 0xC0);
    EXPECT_EQ(nibbles[1], 0xF5);
    rlSetPixel(nibbles, 4, 1, 0, 4, 0x7, nullptr, nullptr, 0);
    EXPECT_EQ(nibbles[0], 0xC7);
}

TEST(PixelAccess, DirectDepthsPackRedHighest) {
    uint8_t data[2 * 8] = {};
    rlSetPixel(data, 8, 1, 1, 24, 0x11223344u, nullptr, nullptr, 0);
    EXPECT_EQ(data[8 + 3], 0x11);
    EXPECT_EQ(data[8 + 4], 0x22);
    EXPECT_EQ(data[8 + 5], 0x33);
    EXPECT_EQ(data[8 + 6], 0x00);  // 24-bit pixels have no fourth byte
    EXPECT_EQ(rlGetPixel(data, 8, 1, 1, 24), 0x11223300u);

    rlSetPixel(data, 8, 1, 0, 32, 0xA1B2C3D4u, nullptr, nullptr, 0);
    EXPECT_EQ(data[4], 0xA1);
    EXPECT_EQ(data[7], 0xD4);
    EXPECT_EQ(rlGetPixel(data, 8, 1, 0, 32), 0xA1B2C3D4u);
}

TEST(PixelAccess, MapAndTableResolveTheStoredValue) {
    const uint8_t table[] = {0, 0, 0, 255, 0, 0, 0, 0, 255, 200, 200, 200};
    const uint32_t map[] = {3, 1, 0, 2};
    uint8_t data[4] = {};
    rlSetPixel(data, 4, 0, 0, 8, 2, map, table, 4);  // the map wins over the table
    EXPECT_EQ(data[0], 0);
    rlSetPixel(data, 4, 1, 0, 8, 0x1008F000u, nullptr, table, 4);  // nearest: pure blue
    EXPECT_EQ(data[1], 2);

    uint8_t direct[4] = {9, 9, 9, 9};
    rlSetPixel(direct, 4, 0, 0, 32, 1, map, table, 4);  // entry map[1] = 1, fourth byte 0
    EXPECT_EQ(std::vector<uint8_t>(direct, direct + 4), (std::vector<uint8_t>{255, 0, 0, 0}));
    // A map entry beyond the table (a packed colour) writes its own bytes.
    const uint32_t packed[] = {0x10203000u};
    rlSetPixel(direct, 4, 0, 0, 24, 0, packed, table, 4);
    EXPECT_EQ(std::vector<uint8_t>(direct, direct + 3), (std::vector<uint8_t>{0x10, 0x20, 0x30}));
}

TEST(PixelAccess, LargeIndicesStoreTheirLowBits) {
    // 200 entries of pure red, then the wanted colour at index 200: the index
    // travels through a signed byte but the stored byte is still 200.
    std::vector<uint8_t> table(201 * 3, 0);
    for (int i = 0; i < 200; ++i) table[3 * i] = 255;
    table[600] = 10;
    table[601] = 100;
    table[602] = 200;
    uint8_t data[4] = {};
    rlSetPixel(data, 4, 0, 0, 8, 0x0A64C800u, nullptr, table.data(), 201);
    EXPECT_EQ(data[0], 200);
    rlSetPixel(data, 4, 0, 0, 4, 0x0A64C800u, nullptr, table.data(), 201);
    EXPECT_EQ(data[0] >> 4, 200 & 15);
}

TEST(PixelAccess, UnsupportedDepthsReadZeroAndWriteNothing) {
    uint8_t data[8];
    std::memset(data, 0x5A, sizeof data);
    for (int16_t bits : {0, 2, 16, 33, -8}) {
        EXPECT_EQ(rlGetPixel(data, 4, 1, 1, bits), 0u) << bits;
        EXPECT_EQ(rlSetPixel(data, 4, 1, 1, bits, 0xFFFFFFFFu, nullptr, nullptr, 0), 0);
    }
    for (uint8_t b : data) EXPECT_EQ(b, 0x5A);
}

TEST(PixelAccess, DebugLevelFourPrintsEveryCoordinate) {
    uint8_t data[8] = {};
    int16_t saved = _debug_color_res;
    _debug_color_res = 4;
    testing::internal::CaptureStderr();
    rlSetPixel(data, 4, 2, 1, 8, 7, nullptr, nullptr, 0);
    rlSetPixel(data, 4, 0, 0, 2, 7, nullptr, nullptr, 0);  // printed even when nothing is written
    std::string printed = testing::internal::GetCapturedStderr();
    _debug_color_res = 3;
    testing::internal::CaptureStderr();
    rlSetPixel(data, 4, 2, 1, 8, 7, nullptr, nullptr, 0);
    std::string quiet = testing::internal::GetCapturedStderr();
    _debug_color_res = saved;
    EXPECT_EQ(printed, "(2,1): (0,0): ");
    EXPECT_EQ(quiet, "");
    EXPECT_EQ(data[6], 7);
}

}  // namespace

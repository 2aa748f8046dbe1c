// The Setup block outside the profile: defaults, the limit repair, the
// string table, edit and destroy.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "tolva/tolva.h"

namespace {

struct Block : ::testing::Test {
    HGLOBAL handle = GlobalAlloc(TOLVA_GMEM_FLAGS, TOLVA_SETUP_BLOCK_SIZE);
    SetupBlock *block = static_cast<SetupBlock *>(GlobalLock(handle));
    void SetUp() override { lpRaster = block; }
    void TearDown() override {
        if (handle != 0) GlobalFree(handle);
        lpRaster = nullptr;
    }
};

TEST_F(Block, DefaultsFillEveryListedFieldButTheLineMode) {
    std::memset(block, 0x5a, TOLVA_SETUP_BLOCK_SIZE);
    EXPECT_EQ(UseDefaultSettings(block), 0);
    EXPECT_STREQ(block->sectionName, "");
    EXPECT_STREQ(block->profilePath, "");
    EXPECT_STREQ(block->thirdName, "");
    EXPECT_STREQ(block->driverName, "TOLVA.1");
    for (uint8_t b : block->reserved) EXPECT_EQ(b, 0);
    EXPECT_EQ(block->colourMode, 103);
    EXPECT_EQ(block->secondMode, 0);
    EXPECT_EQ(block->sizeMode, 602);
    EXPECT_EQ(block->resolutionMode, 309);
    EXPECT_EQ(block->xResolution + block->yResolution, 192);
    EXPECT_EQ(block->width, 6.67);
    EXPECT_EQ(block->height, 5.0);
    EXPECT_EQ(block->lineMode, 0x5a5a5a5a);
    EXPECT_STREQ(szFilter, "tolva");  // only CreateSetup upper-cases it
}

TEST_F(Block, LimitCheckRepairsAndReportsTheLastRepair) {
    UseDefaultSettings(block);
    EXPECT_EQ(LimitCheck(), 0);
    block->xResolution = 31;
    block->yResolution = 400;
    EXPECT_EQ(LimitCheck(), TOLVA_LIMIT_RESOLUTION);
    EXPECT_EQ(block->xResolution, 96);
    EXPECT_EQ(block->yResolution, 400);
    block->yResolution = 401;
    block->width = 22.5;
    EXPECT_EQ(LimitCheck(), TOLVA_LIMIT_SIZE);  // the size repair comes last
    EXPECT_EQ(block->yResolution, 96);
    EXPECT_EQ(block->width, 6.67);
    block->width = 0.03125;
    block->height = 22.0;
    EXPECT_EQ(LimitCheck(), 0);
    block->height = NAN;
    EXPECT_EQ(LimitCheck(), TOLVA_LIMIT_SIZE);
    EXPECT_EQ(block->height, 5.0);
    lpRaster = nullptr;
    EXPECT_EQ(LimitCheck(), 0);
}

TEST_F(Block, EditStoresInTheReservedSecondWordAndDestroyFrees) {
    EXPECT_EQ(EditSetup(handle, 0x12345678), 0);
    int32_t stored;
    std::memcpy(&stored, block->reserved + 4, sizeof stored);
    EXPECT_EQ(stored, 0x12345678);
    EXPECT_EQ(EditSetup(0, 1), -1);
    EXPECT_EQ(DestroySetup(0), 1);
    EXPECT_EQ(lpRaster, block);
    EXPECT_EQ(DestroySetup(handle), 0);
    EXPECT_EQ(lpRaster, nullptr);
    handle = 0;
}

TEST(StringTable, LoadStringCopiesOrCutsWithoutTerminator) {
    char buf[16];
    std::memset(buf, '#', sizeof buf);
    EXPECT_EQ(LoadString(0, 7, buf, 3), 4);
    EXPECT_EQ(std::memcmp(buf, "Fon#", 4), 0);
    EXPECT_EQ(LoadString(0, 7, buf, 5), 4);
    EXPECT_EQ(std::memcmp(buf, "Font\0#", 6), 0);
    std::memset(buf, '#', sizeof buf);
    EXPECT_EQ(LoadString(0, 12, buf, sizeof buf), 0);
    EXPECT_EQ(std::memcmp(buf, "Not Defined\0#", 13), 0);
    // Only the low 16 bits count, and the fallback row can itself be found.
    EXPECT_EQ(LoadString(0, 0x10000 + 34, buf, sizeof buf), 9);
    EXPECT_STREQ(buf, "Line Mode");
    EXPECT_EQ(LoadString(0, -1, buf, sizeof buf), 11);
    EXPECT_EQ(LoadString(0, 5, buf, sizeof buf), 16);  // the row after 15, not sorted
    EXPECT_EQ(std::memcmp(buf, "ColorTableSource", 16), 0);
    EXPECT_EQ(LoadString(0, 21, nullptr, 8) + LoadString(0, 21, buf, -4), 10);
    EXPECT_EQ(SaveProfile(), 1);
}

}  // namespace

// Setup block: defaults, the limit repair, the string table, edit and destroy.
#include <gtest/gtest.h>

#include <cstring>

#include "tolva/tolva.h"

namespace {

struct BlockFixture : ::testing::Test {
    HGLOBAL handle = 0;
    SetupBlock *block = nullptr;
    void SetUp() override {
        handle = GlobalAlloc(TOLVA_GMEM_FLAGS, TOLVA_SETUP_BLOCK_SIZE);
        block = static_cast<SetupBlock *>(GlobalLock(handle));
        lpRaster = block;
    }
    void TearDown() override {
        if (handle != 0) GlobalFree(handle);
        lpRaster = nullptr;
    }
};

using SetupDefaults = BlockFixture;

TEST_F(SetupDefaults, FillEveryListedFieldButTheLineMode) {
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
    EXPECT_EQ(block->xResolution, 96);
    EXPECT_EQ(block->yResolution, 96);
    EXPECT_EQ(block->width, 6.67);
    EXPECT_EQ(block->height, 5.0);
    EXPECT_EQ(block->lineMode, 0x5a5a5a5a);
    // The defaults use an upper-case copy; only CreateSetup changes szFilter.
    EXPECT_STREQ(szFilter, "tolva");
}

using Limits = BlockFixture;

TEST_F(Limits, RepairOutOfRangeValuesAndReportTheLastRepair) {
    UseDefaultSettings(block);
    EXPECT_EQ(LimitCheck(), 0);

    block->xResolution = 31;
    block->yResolution = 400;
    EXPECT_EQ(LimitCheck(), TOLVA_LIMIT_RESOLUTION);
    EXPECT_EQ(block->xResolution, 96);
    EXPECT_EQ(block->yResolution, 400);

    block->xResolution = 401;
    block->width = 22.5;
    EXPECT_EQ(LimitCheck(), TOLVA_LIMIT_SIZE);  // the size repair comes last
    EXPECT_EQ(block->xResolution, 96);
    EXPECT_EQ(block->width, 6.67);

    block->width = 0.03125;
    block->height = 22.0;
    EXPECT_EQ(LimitCheck(), 0);
    EXPECT_EQ(block->width, 0.03125);

    block->height = 0.03;
    EXPECT_EQ(LimitCheck(), TOLVA_LIMIT_SIZE);
    EXPECT_EQ(block->height, 5.0);

    block->width = __builtin_nan("");
    EXPECT_EQ(LimitCheck(), TOLVA_LIMIT_SIZE);
    EXPECT_EQ(block->width, 6.67);
}

TEST(LimitsWithoutBlock, NothingHappens) {
    lpRaster = nullptr;
    EXPECT_EQ(LimitCheck(), 0);
}

TEST(StringTable, HasTheRowsInOrderWithTheFallbackLast) {
    EXPECT_EQ(gStringTable[0].id, 0);
    EXPECT_STREQ(gStringTable[0].text, "~Defaults");
    EXPECT_EQ(gStringTable[9].id, 5);
    EXPECT_EQ(gStringTable[21].id, 34);
    EXPECT_STREQ(gStringTable[21].text, "Line Mode");
    EXPECT_EQ(gStringTable[22].id, -1);
    EXPECT_STREQ(gStringTable[22].text, "Not Defined");
}

TEST(StringTable, LoadStringCopiesOrTruncatesWithoutTerminator) {
    char buf[32];
    std::memset(buf, '#', sizeof buf);
    EXPECT_EQ(LoadString(0, 7, buf, 3), 4);
    EXPECT_EQ(std::memcmp(buf, "Fon#", 4), 0);

    std::memset(buf, '#', sizeof buf);
    EXPECT_EQ(LoadString(0, 7, buf, 5), 4);  // size n + 1 still fits the terminator
    EXPECT_EQ(std::memcmp(buf, "Font\0#", 6), 0);

    std::memset(buf, '#', sizeof buf);
    EXPECT_EQ(LoadString(0, 12, buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "Not Defined");
    EXPECT_EQ(buf[12], '#');

    // Only the low 16 bits count, and -1 is a row that can be found.
    EXPECT_EQ(LoadString(0, 0x10000 + 4, buf, sizeof buf), 6);
    EXPECT_STREQ(buf, "Driver");
    EXPECT_EQ(LoadString(0, 0xFFFF, buf, sizeof buf), 11);
    EXPECT_STREQ(buf, "Not Defined");

    std::memset(buf, '#', sizeof buf);
    EXPECT_EQ(LoadString(0, 21, buf, 0), 5);
    EXPECT_EQ(LoadString(0, 21, buf, -4), 5);
    EXPECT_EQ(LoadString(0, 21, nullptr, 8), 5);
    EXPECT_EQ(buf[0], '#');
}

using Handles = BlockFixture;

TEST_F(Handles, EditStoresInTheReservedSecondWordAndDestroyFrees) {
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

TEST(TrivialEntries, AnswerTheirFixedValues) {
    EXPECT_EQ(SaveProfile(), 1);
    EXPECT_EQ(LoadProfileList(1, 2, 3), 0);
}

}  // namespace

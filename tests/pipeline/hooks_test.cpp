// The format query, the offscreen hooks, the metafile stubs and the export
// callback's bookkeeping, each driven directly.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "tolva/tolva.h"

namespace {

// A Setup block with the defaults (sizes 602/309, 96 dpi, 6.67 x 5.0 inches),
// current while the test runs.
class DefaultSetup : public ::testing::Test {
protected:
    void SetUp() override {
        unsetenv("DISPLAYINFO");
        SetDisplayInfo(0.0, 0.0, 0, 0);
        handle_ = GlobalAlloc(TOLVA_GMEM_FLAGS, TOLVA_SETUP_BLOCK_SIZE);
        block_ = static_cast<SetupBlock *>(GlobalLock(handle_));
        UseDefaultSettings(block_);
        lpRaster = block_;
    }
    void TearDown() override {
        lpRaster = nullptr;
        GlobalFree(handle_);
        unsetenv("DISPLAYINFO");
    }
    HGLOBAL handle_ = 0;
    SetupBlock *block_ = nullptr;
};

using QueryCellFormatTest = DefaultSetup;

TEST_F(QueryCellFormatTest, GivenResolutionKeepsThePicturesOwnSize) {
    double width = 19.2, height = 10.8;
    int16_t bits = 0;
    int32_t resolution = 100;
    EXPECT_EQ(QueryCellFormat(&width, &height, &bits, &resolution, nullptr, nullptr), 0);
    EXPECT_DOUBLE_EQ(width, 1920.0);
    EXPECT_DOUBLE_EQ(height, 1080.0);
    EXPECT_EQ(resolution, 100);
    EXPECT_EQ(bits, 8);
    EXPECT_DOUBLE_EQ(block_->width, 19.2);
    EXPECT_EQ(block_->xResolution, 100);
    EXPECT_EQ(block_->yResolution, 100);
}

TEST_F(QueryCellFormatTest, NoResolutionFitsTheAspectIntoTheSavedBox) {
    // The default box is 640 x 480 dots; a 16:9 picture loses height.
    double width = 1920.0, height = 1080.0;
    int16_t bits = 0;
    int32_t resolution = 0;
    QueryCellFormat(&width, &height, &bits, &resolution, nullptr, nullptr);
    EXPECT_DOUBLE_EQ(width, 640.0);
    EXPECT_DOUBLE_EQ(height, 360.0);
    EXPECT_EQ(resolution, 96);
    EXPECT_DOUBLE_EQ(block_->width, 6.67);  // the saved size is not touched
}

TEST_F(QueryCellFormatTest, DisplayChoicesTakeTheDisplaysSizeAndResolution) {
    setenv("DISPLAYINFO", "1024x768x72x72", 1);
    block_->sizeMode = TOLVA_SIZE_DISPLAY;
    block_->resolutionMode = TOLVA_RESOLUTION_DISPLAY;
    double width = 1920.0, height = 1080.0;
    int16_t bits = 0;
    int32_t resolution = 150;  // ignored under both display choices
    QueryCellFormat(&width, &height, &bits, &resolution, nullptr, nullptr);
    EXPECT_EQ(block_->xResolution, 72);
    EXPECT_NEAR(block_->width, 1024.0 / 72.0, 1e-12);
    EXPECT_DOUBLE_EQ(width, 1024.0);
    EXPECT_DOUBLE_EQ(height, 576.0);
    EXPECT_EQ(resolution, 72);
}

TEST_F(QueryCellFormatTest, OtherChoicesLeaveTheSavedValues) {
    block_->sizeMode = 601;
    block_->resolutionMode = 308;
    double width = 100.0, height = 100.0;
    int16_t bits = 0;
    int32_t resolution = 300;
    QueryCellFormat(&width, &height, &bits, &resolution, nullptr, nullptr);
    // Box 640 x 480 at 96 dpi; a square picture keeps the height.
    EXPECT_DOUBLE_EQ(width, 480.0);
    EXPECT_DOUBLE_EQ(height, 480.0);
    EXPECT_EQ(resolution, 96);
}

TEST(QueryCellFormatNoSetup, RefusesWithoutChangingTheSize) {
    lpRaster = nullptr;
    double width = 3.0, height = 4.0;
    int16_t bits = 0;
    int32_t resolution = 7;
    EXPECT_EQ(QueryCellFormat(&width, &height, &bits, &resolution, nullptr, nullptr),
              TOLVA_ERR_NO_SETUP);
    EXPECT_EQ(width, 3.0);
    EXPECT_EQ(resolution, 7);
    EXPECT_EQ(bits, 8);
}

// A callback that records what the hooks hand it.
struct Call {
    int32_t operation;
    void *record;
    intptr_t arg1, arg2;
    std::vector<intptr_t> information;
};
std::vector<Call> g_calls;
intptr_t g_init_answer = 0;

intptr_t recording_callback(int32_t operation, void *record, intptr_t arg1, intptr_t arg2) {
    Call call{operation, record, arg1, arg2, {}};
    if (operation == 1) {
        const auto *words = reinterpret_cast<const intptr_t *>(arg1);
        call.information.assign(words, words + 5);
    }
    g_calls.push_back(call);
    if (operation == 0) reinterpret_cast<TolvaOffscreenQuery *>(arg1)->width = 12.5;
    if (operation == 1) return g_init_answer;
    if (operation == 3) return 0x1234;
    return 0;
}

TEST(OffscreenHooks, PassEveryOperationToTheCallback) {
    g_calls.clear();
    g_init_answer = 16;
    int context = 0;
    TolvaOffscreenQuery query = {};
    QueryPlatformOffscreen(&query, &context, recording_callback);
    EXPECT_EQ(query.width, 12.5);

    uint8_t table[768] = {};
    int32_t rows = 40;
    TolvaOffscreen *record =
        InitPlatformOffscreen(320, &rows, 8, 256, table, &context, recording_callback, 0);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(rows, 16);
    EXPECT_EQ(record->hostContext, &context);
    EXPECT_EQ(record->bandRows, 40);
    EXPECT_EQ(record->colourTable, table);
    EXPECT_EQ(DrawPlatformOffscreen(record, 24, 40), 0x1234u);
    TermPlatformOffscreen(record);

    ASSERT_EQ(g_calls.size(), 4u);
    EXPECT_EQ(g_calls[0].operation, 0);
    EXPECT_EQ(g_calls[0].record, &context);
    EXPECT_EQ(g_calls[1].operation, 1);
    EXPECT_EQ(g_calls[1].information,
              (std::vector<intptr_t>{320, 40, 8, 256, reinterpret_cast<intptr_t>(table)}));
    EXPECT_EQ(g_calls[2].operation, 3);
    EXPECT_EQ(g_calls[2].arg1, 24);
    EXPECT_EQ(g_calls[2].arg2, 40);
    EXPECT_EQ(g_calls[3].operation, 2);
    EXPECT_EQ(g_calls[3].record, g_calls[1].record);
}

TEST(OffscreenHooks, ToleratesNoCallbackAndNoRecord) {
    int32_t rows = 8;
    TolvaOffscreen *record = InitPlatformOffscreen(4, &rows, 8, 256, nullptr, nullptr, nullptr, 0);
    EXPECT_EQ(rows, 0);
    EXPECT_EQ(DrawPlatformOffscreen(record, 0, 8), 0u);
    TermPlatformOffscreen(record);
    TermPlatformOffscreen(nullptr);
    EXPECT_EQ(DrawPlatformOffscreen(nullptr, 0, 8), 0u);
}

TEST(MetafileHooks, AreStubsThatZeroWhatTheyAreGiven) {
    intptr_t metafile = 5, aux = 6, callback = 7;
    HGLOBAL setup = 8;
    EXPECT_EQ(InitPlatformMetafileFilter(42, 1, nullptr, &metafile, &setup, &aux, &callback), 42);
    EXPECT_EQ(metafile, 0);
    EXPECT_EQ(setup, 0u);
    EXPECT_EQ(aux, 0);
    EXPECT_EQ(callback, 0);
    EXPECT_EQ(TermPlatformMetafileFilter(3), 0);
    EXPECT_EQ(GetMetaFileHandle(1, 2), 0);
    EXPECT_EQ(DeleteMetaFileHandle(9), 0);
}

TEST(MetafileHooks, QueryReadsThePageBoundsAndInitOffersNoBand) {
    // {metafile, left, top, right, bottom, resolution}
    intptr_t bounds[12] = {0, 100, 700, 400, 100, 100};
    TolvaOffscreenQuery query = {};
    EXPECT_EQ(DrawPlatformMetafile(0, bounds, reinterpret_cast<intptr_t>(&query), 0), 0);
    EXPECT_DOUBLE_EQ(query.width, 3.0);
    EXPECT_DOUBLE_EQ(query.height, 6.0);
    EXPECT_EQ(query.resolution, 100);
    EXPECT_EQ(query.value, 4);
    EXPECT_EQ(DrawPlatformMetafile(1, bounds, 0, 0), 0);
    EXPECT_EQ(DrawPlatformMetafile(2, nullptr, 0, 0), 1);
    EXPECT_EQ(DrawPlatformMetafile(2, bounds, 0, 0), 0);
    EXPECT_EQ(DrawPlatformMetafile(3, bounds, 0, 0), 0);
}

using MetafileRoad = DefaultSetup;

TEST_F(MetafileRoad, WritesNothingAndAnswers27) {
    void *data = nullptr;
    HGLOBAL blockHandle = GlobalAlloc(TOLVA_GMEM_FLAGS, 1);
    data = GlobalLock(blockHandle);
    intptr_t descriptor[6] = {reinterpret_cast<intptr_t>(&data), 0, 4096, 0, 0, 0};
    HGLOBAL stream = zunOpen(nullptr, descriptor, 4097);
    ASSERT_NE(stream, 0u);
    intptr_t bounds[12] = {0, 0, 500, 500, 0, 100};
    EXPECT_EQ(OutputPicture(stream, bounds, DrawPlatformMetafile), TOLVA_ERR_NO_PICTURE);
    EXPECT_EQ(zunSeek(stream, 0, 1), 0);  // not a byte written
    zunClose(stream);
    GlobalFree(GlobalHandle(data));
}

// The export callback's colour table at init, for a palette picture.
TEST(ExportCallback, PalettePictureHandsOverItsOwnPalette) {
    HGLOBAL palette = GlobalAlloc(TOLVA_GMEM_FLAGS, 6);
    uint8_t *colours = static_cast<uint8_t *>(GlobalLock(palette));
    const uint8_t two[6] = {10, 20, 30, 200, 100, 50};
    memcpy(colours, two, 6);
    HGLOBAL bits = GlobalAlloc(TOLVA_GMEM_FLAGS, 4 * 2);
    TolvaPicture picture = {1, 8, 2, 0, 8.0, 2.0, palette, bits};

    TolvaOffscreenQuery query = {};
    EXPECT_EQ(DrawExportCellData(0, &picture, reinterpret_cast<intptr_t>(&query), 0), 0);
    EXPECT_EQ(query.width, 8.0);
    EXPECT_EQ(query.value, 1);

    uint8_t *table = static_cast<uint8_t *>(GlobalLock(GlobalAlloc(TOLVA_GMEM_FLAGS, 768)));
    int32_t rows = 2;
    TolvaOffscreen *record =
        InitPlatformOffscreen(8, &rows, 8, 256, table, &picture, DrawExportCellData, 0);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(rows, 2);
    EXPECT_EQ(record->colourCount, 2);
    EXPECT_EQ(memcmp(record->colourTable, two, 6), 0);
    EXPECT_EQ(record->colourTable[6], 0);
    TermPlatformOffscreen(record);
    GlobalFree(GlobalHandle(table));
    GlobalFree(bits);
    GlobalFree(palette);
}

TEST(ExportCallback, SameSizeAndDepthServesTheSourceItself) {
    HGLOBAL palette = GlobalAlloc(TOLVA_GMEM_FLAGS, 768);
    HGLOBAL bits = GlobalAlloc(TOLVA_GMEM_FLAGS, 4 * 3);
    TolvaPicture picture = {8, 4, 3, 0, 4.0, 3.0, palette, bits};
    uint8_t *table = static_cast<uint8_t *>(GlobalLock(GlobalAlloc(TOLVA_GMEM_FLAGS, 768)));
    int32_t rows = 3;
    TolvaOffscreen *record =
        InitPlatformOffscreen(4, &rows, 8, 256, table, &picture, DrawExportCellData, 0);
    EXPECT_EQ(DrawPlatformOffscreen(record, 0, 3), bits);
    TermPlatformOffscreen(record);
    GlobalFree(GlobalHandle(table));
    GlobalFree(bits);
    GlobalFree(palette);
}

}  // namespace

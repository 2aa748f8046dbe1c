// The setup escape and the raster geometry: size checks, ranges, queries,
// mode selectors and the pixel size a picture becomes.
#include <gtest/gtest.h>

#include <cstring>

#include "tolva/tolva.h"

namespace {

struct Escape : ::testing::Test {
    HGLOBAL handle = 0;
    SetupBlock *block = nullptr;
    void SetUp() override {
        handle = GlobalAlloc(TOLVA_GMEM_FLAGS, TOLVA_SETUP_BLOCK_SIZE);
        block = static_cast<SetupBlock *>(GlobalLock(handle));
        UseDefaultSettings(block);
        lpRaster = nullptr;
    }
    void TearDown() override {
        GlobalFree(handle);
        lpRaster = nullptr;
    }
    int32_t call(int32_t code, int32_t size, const void *in, void *out = nullptr) {
        return xEscapeSetup(handle, code, size, const_cast<void *>(in), out, 0);
    }
};

TEST_F(Escape, ColourClassMapsToColourModeAndBack) {
    for (int32_t cls = 101; cls <= 105; ++cls) {
        EXPECT_EQ(call(TOLVA_ESCAPE_COLOUR_CLASS, 4, &cls), 1);
        EXPECT_EQ(block->colourMode, cls + 2);
        int32_t back = 0;
        EXPECT_EQ(call(TOLVA_ESCAPE_QUERY_COLOUR_CLASS, 4, nullptr, &back), 1);
        EXPECT_EQ(back, cls);
    }
    int32_t bad = 106;
    EXPECT_EQ(call(TOLVA_ESCAPE_COLOUR_CLASS, 4, &bad), -1);
    bad = 100;
    EXPECT_EQ(call(TOLVA_ESCAPE_COLOUR_CLASS, 4, &bad), -1);
    int32_t ok = 101;
    EXPECT_EQ(call(TOLVA_ESCAPE_COLOUR_CLASS, 8, &ok), -1);
    EXPECT_EQ(block->colourMode, 107);

    // A wrong size on the query is "done" with nothing written; an unknown
    // mode is refused.
    int32_t out = -9;
    EXPECT_EQ(call(TOLVA_ESCAPE_QUERY_COLOUR_CLASS, 2, nullptr, &out), 1);
    EXPECT_EQ(out, -9);
    block->colourMode = 0;
    EXPECT_EQ(call(TOLVA_ESCAPE_QUERY_COLOUR_CLASS, 4, nullptr, &out), -1);
    EXPECT_EQ(out, -9);
}

TEST_F(Escape, ResolutionsAndSizesKeepTheirRanges) {
    int32_t dpi = 31;
    EXPECT_EQ(call(TOLVA_ESCAPE_X_RESOLUTION, 4, &dpi), -1);
    EXPECT_EQ(block->xResolution, 96);
    dpi = 400;
    EXPECT_EQ(call(TOLVA_ESCAPE_X_RESOLUTION, 4, &dpi), 1);
    EXPECT_EQ(block->xResolution, 400);
    dpi = 32;
    EXPECT_EQ(call(TOLVA_ESCAPE_Y_RESOLUTION, 4, &dpi), 1);
    EXPECT_EQ(block->yResolution, 32);
    dpi = 401;
    EXPECT_EQ(call(TOLVA_ESCAPE_Y_RESOLUTION, 4, &dpi), -1);
    dpi = 100;
    EXPECT_EQ(call(TOLVA_ESCAPE_Y_RESOLUTION, 2, &dpi), -1);
    EXPECT_EQ(block->yResolution, 32);

    for (double inches : {0.03125, 22.0}) {
        EXPECT_EQ(call(TOLVA_ESCAPE_WIDTH, 8, &inches), 1);
        EXPECT_EQ(block->width, inches);
        EXPECT_EQ(call(TOLVA_ESCAPE_HEIGHT, 8, &inches), 1);
        EXPECT_EQ(block->height, inches);
    }
    for (double inches : {22.000001, 0.0312, -1.0, __builtin_nan("")}) {
        EXPECT_EQ(call(TOLVA_ESCAPE_WIDTH, 8, &inches), -1);
        EXPECT_EQ(call(TOLVA_ESCAPE_HEIGHT, 8, &inches), -1);
    }
    double fine = 3.0;
    EXPECT_EQ(call(TOLVA_ESCAPE_WIDTH, 4, &fine), -1);
    EXPECT_EQ(block->width, 22.0);

    // A needed pointer that is null is refused rather than followed.
    EXPECT_EQ(call(TOLVA_ESCAPE_WIDTH, 8, nullptr), -1);
    EXPECT_EQ(call(TOLVA_ESCAPE_X_RESOLUTION, 4, nullptr), -1);
}

TEST_F(Escape, QueriesAnswerZerosInTheGivenModes) {
    block->xResolution = 150;
    block->yResolution = 120;
    int32_t dpi[2] = {-1, -1};
    EXPECT_EQ(call(TOLVA_ESCAPE_QUERY_RESOLUTION, 0, nullptr, dpi), 1);
    EXPECT_EQ(dpi[0], 0);
    EXPECT_EQ(dpi[1], 0);
    EXPECT_EQ(call(TOLVA_ESCAPE_RESOLUTION_MODE, 0, nullptr), 1);
    EXPECT_EQ(block->resolutionMode, 307);
    EXPECT_EQ(call(TOLVA_ESCAPE_QUERY_RESOLUTION, 123, nullptr, dpi), 1);
    EXPECT_EQ(dpi[0], 150);
    EXPECT_EQ(dpi[1], 120);

    double size[2] = {-1, -1};
    EXPECT_EQ(call(TOLVA_ESCAPE_QUERY_SIZE, 0, nullptr, size), 1);
    EXPECT_EQ(size[0], 0.0);
    EXPECT_EQ(size[1], 0.0);
    EXPECT_EQ(call(TOLVA_ESCAPE_SIZE_MODE, 3, nullptr), 1);
    EXPECT_EQ(block->sizeMode, 603);
    EXPECT_EQ(call(TOLVA_ESCAPE_QUERY_SIZE, 0, nullptr, size), 1);
    EXPECT_EQ(size[0], 6.67);
    EXPECT_EQ(size[1], 5.0);
}

TEST_F(Escape, SelectorsOutsideZeroToThreeChangeNothing) {
    for (int32_t s = 0; s < 4; ++s) {
        EXPECT_EQ(call(TOLVA_ESCAPE_RESOLUTION_MODE, s, nullptr), 1);
        EXPECT_EQ(block->resolutionMode, 307 + s);
        EXPECT_EQ(call(TOLVA_ESCAPE_SIZE_MODE, s, nullptr), 1);
        EXPECT_EQ(block->sizeMode, 600 + s);
    }
    EXPECT_EQ(call(TOLVA_ESCAPE_RESOLUTION_MODE, 4, nullptr), 1);
    EXPECT_EQ(call(TOLVA_ESCAPE_SIZE_MODE, -1, nullptr), 1);
    EXPECT_EQ(block->resolutionMode, 310);
    EXPECT_EQ(block->sizeMode, 603);
}

TEST_F(Escape, OutputDeviceStoresThePointerItself) {
    int32_t target = 7;
    EXPECT_EQ(call(TOLVA_ESCAPE_OUTPUT_DEVICE, 8, &target), -1);
    EXPECT_EQ(block->outputDevice, 0);
    EXPECT_EQ(call(TOLVA_ESCAPE_OUTPUT_DEVICE, 4, &target), 1);
    EXPECT_EQ(block->outputDevice, reinterpret_cast<intptr_t>(&target));
}

TEST_F(Escape, UnhandledCodesAndMissingHandles) {
    int32_t v = 101;
    EXPECT_EQ(call(2, 4, &v), 0);
    EXPECT_EQ(call(82, 4, &v), 0);
    EXPECT_EQ(call(0, 4, &v), 0);
    EXPECT_EQ(call(-1, 4, &v), 0);
    EXPECT_EQ(xEscapeSetup(0, TOLVA_ESCAPE_COLOUR_CLASS, 4, &v, nullptr, 0), -1);
}

TEST_F(Escape, RasterInfoOfAGivenSizeAndResolution) {
    const int32_t in[7] = {0, 0, 96, 960, 480, 0, 0};
    int32_t out[3] = {};
    EXPECT_EQ(call(TOLVA_ESCAPE_RASTER_INFO, 0, in, out), 1);
    EXPECT_EQ(lpRaster, block);
    EXPECT_EQ(block->width, 10.0);
    EXPECT_EQ(block->height, 5.0);
    EXPECT_EQ(block->xResolution, 96);
    EXPECT_EQ(out[0], 960);
    EXPECT_EQ(out[1], 480);
    EXPECT_EQ(out[2], 8);
}

TEST_F(Escape, RasterInfoFromTheDisplayFitsTheAspect) {
    block->sizeMode = TOLVA_SIZE_DISPLAY;
    block->resolutionMode = TOLVA_RESOLUTION_DISPLAY;
    // A 1000 x 1000 dot picture into a 1280 x 1024 display at 100 dpi: the
    // box 12.8 x 10.24 inches loses width until it is square.
    const int32_t in[7] = {100, 0, 0, 1000, 1000, 1280, 1024};
    int32_t out[3] = {};
    GetRasterInfo(handle, in, out);
    EXPECT_EQ(block->width, 12.8);
    EXPECT_EQ(block->height, 10.24);
    EXPECT_EQ(block->xResolution, 100);
    EXPECT_EQ(out[0], 1024);
    EXPECT_EQ(out[1], 1024);
    EXPECT_EQ(out[2], 8);

    // Unknown display resolution: the block's own size and resolution stay.
    const int32_t unknown[7] = {0, 0, 0, 200, 100, 1280, 1024};
    block->width = 4.0;
    block->height = 4.0;
    GetRasterInfo(handle, unknown, out);
    EXPECT_EQ(out[0], 400);
    EXPECT_EQ(out[1], 200);
}

TEST_F(Escape, RasterInfoOfAZeroFilledBlockStaysInRange) {
    std::memset(block, 0, TOLVA_SETUP_BLOCK_SIZE);
    const int32_t in[7] = {0, 0, 0, 0, 0, 0, 0};
    int32_t out[3] = {-1, -1, -1};
    GetRasterInfo(handle, in, out);
    EXPECT_EQ(out[0], 0);
    EXPECT_EQ(out[1], 0);
    EXPECT_EQ(out[2], 8);
    GetRasterInfo(handle, nullptr, out);
    GetRasterInfo(handle, in, nullptr);
}

TEST_F(Escape, AdjustAspectTrimsTheLongSideOfTheBox) {
    lpRaster = block;  // 6.67 x 5.0 inches at 96 dpi: a box of 640 x 480 dots
    double size[2];
    EXPECT_EQ(RasterAdjustAspect(size, 400, 300), 0);  // the box's own shape
    EXPECT_EQ(size[0], 640.0 / 96);
    EXPECT_EQ(size[1], 480.0 / 96);
    RasterAdjustAspect(size, 100, 100);  // too wide: W := 640 - trunc(640 - 480)
    EXPECT_EQ(size[0], 480.0 / 96);
    EXPECT_EQ(size[1], 480.0 / 96);
    RasterAdjustAspect(size, 300, 100);  // too tall: H := 480 - trunc(480 - 640/3)
    EXPECT_EQ(size[0], 640.0 / 96);
    EXPECT_EQ(size[1], 214.0 / 96);
}

TEST(ScaleImage, CapsTheLargerExtentAt22Inches) {
    double w = 44.0, h = 11.0;
    EXPECT_EQ(ScaleImageSize(&w, &h), 0);
    EXPECT_EQ(w, 22.0);
    EXPECT_EQ(h, 5.5);
    w = 10.0;
    h = 10.0;
    ScaleImageSize(&w, &h);
    EXPECT_EQ(w, 10.0);
    EXPECT_EQ(h, 10.0);
    w = 11.0;
    h = 44.0;
    ScaleImageSize(&w, &h);
    EXPECT_EQ(w, 5.5);
    EXPECT_EQ(h, 22.0);
    w = 30.0;
    h = 30.0;  // equal extents: the width rule applies
    ScaleImageSize(&w, &h);
    EXPECT_EQ(w, 22.0);
    EXPECT_EQ(h, 22.0);
}

}  // namespace

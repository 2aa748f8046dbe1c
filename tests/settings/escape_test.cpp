// The setup escape and the raster geometry: sizes, ranges, queries, mode
// selectors, and the pixel size a picture becomes.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "tolva/tolva.h"

namespace {

struct Escape : ::testing::Test {
    HGLOBAL handle = GlobalAlloc(TOLVA_GMEM_FLAGS, TOLVA_SETUP_BLOCK_SIZE);
    SetupBlock *block = static_cast<SetupBlock *>(GlobalLock(handle));
    void SetUp() override {
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

TEST_F(Escape, SettersCheckSizeAndRangeAndChangeNothingWhenRefused) {
    struct Case {
        int32_t code, size;
        double value;  // passed as int32_t when size is 4
        int32_t result;
    };
    const Case cases[] = {
        {TOLVA_ESCAPE_COLOUR_CLASS, 4, 100, -1}, {TOLVA_ESCAPE_COLOUR_CLASS, 4, 106, -1},
        {TOLVA_ESCAPE_COLOUR_CLASS, 8, 101, -1}, {TOLVA_ESCAPE_COLOUR_CLASS, 4, 105, 1},
        {TOLVA_ESCAPE_X_RESOLUTION, 4, 31, -1},  {TOLVA_ESCAPE_X_RESOLUTION, 4, 400, 1},
        {TOLVA_ESCAPE_Y_RESOLUTION, 4, 401, -1}, {TOLVA_ESCAPE_Y_RESOLUTION, 2, 100, -1},
        {TOLVA_ESCAPE_Y_RESOLUTION, 4, 32, 1},   {TOLVA_ESCAPE_WIDTH, 8, 22.000001, -1},
        {TOLVA_ESCAPE_WIDTH, 8, 0.0312, -1},     {TOLVA_ESCAPE_WIDTH, 8, NAN, -1},
        {TOLVA_ESCAPE_WIDTH, 4, 3.0, -1},        {TOLVA_ESCAPE_WIDTH, 8, 22.0, 1},
        {TOLVA_ESCAPE_HEIGHT, 8, 0.03125, 1},    {TOLVA_ESCAPE_HEIGHT, 8, -1.0, -1},
        {2, 4, 101, 0},                          {82, 4, 101, 0},
        {0, 4, 101, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.code << " " << c.size << " " << c.value);
        unsigned char before[TOLVA_SETUP_BLOCK_SIZE];
        std::memcpy(before, block, sizeof before);
        int32_t whole = std::isnan(c.value) ? 0 : static_cast<int32_t>(c.value);
        const void *in = c.code == TOLVA_ESCAPE_WIDTH || c.code == TOLVA_ESCAPE_HEIGHT
                             ? static_cast<const void *>(&c.value)
                             : &whole;
        EXPECT_EQ(call(c.code, c.size, in), c.result);
        if (c.result != 1) {
            EXPECT_EQ(std::memcmp(before, block, sizeof before), 0);
        }
    }
    EXPECT_EQ(block->colourMode, 107);
    EXPECT_EQ(block->xResolution, 400);
    EXPECT_EQ(block->yResolution, 32);
    EXPECT_EQ(block->width, 22.0);
    EXPECT_EQ(block->height, 0.03125);
    EXPECT_EQ(call(TOLVA_ESCAPE_WIDTH, 8, nullptr), -1);
    int32_t v = 101;
    EXPECT_EQ(xEscapeSetup(0, TOLVA_ESCAPE_COLOUR_CLASS, 4, &v, nullptr, 0), -1);
}

TEST_F(Escape, QueriesAndModeSelectors) {
    block->xResolution = 150;
    int32_t dpi[2] = {-1, -1};
    EXPECT_EQ(call(TOLVA_ESCAPE_QUERY_RESOLUTION, 0, nullptr, dpi), 1);
    EXPECT_EQ(dpi[0] + dpi[1], 0);  // mode 309 answers 0, 0
    double size[2] = {-1, -1};
    EXPECT_EQ(call(TOLVA_ESCAPE_QUERY_SIZE, 0, nullptr, size), 1);
    EXPECT_EQ(size[0] + size[1], 0.0);  // mode 602 answers 0, 0
    for (int32_t s = 0; s < 4; ++s) {
        EXPECT_EQ(call(TOLVA_ESCAPE_RESOLUTION_MODE, s, nullptr), 1);
        EXPECT_EQ(call(TOLVA_ESCAPE_SIZE_MODE, s, nullptr), 1);
        EXPECT_EQ(block->resolutionMode - 307 + block->sizeMode - 600, 2 * s);
    }
    EXPECT_EQ(call(TOLVA_ESCAPE_RESOLUTION_MODE, 4, nullptr), 1);  // no change, still done
    EXPECT_EQ(call(TOLVA_ESCAPE_SIZE_MODE, -1, nullptr), 1);
    EXPECT_EQ(block->resolutionMode + block->sizeMode, 310 + 603);
    EXPECT_EQ(call(TOLVA_ESCAPE_QUERY_RESOLUTION, 0, nullptr, dpi), 1);
    EXPECT_EQ(dpi[0], 150);
    EXPECT_EQ(dpi[1], 96);
    EXPECT_EQ(call(TOLVA_ESCAPE_QUERY_SIZE, 0, nullptr, size), 1);
    EXPECT_EQ(size[0], 6.67);
    EXPECT_EQ(size[1], 5.0);

    int32_t cls = -9;
    EXPECT_EQ(call(TOLVA_ESCAPE_QUERY_COLOUR_CLASS, 2, nullptr, &cls), 1);  // wrong size: done
    EXPECT_EQ(cls, -9);
    EXPECT_EQ(call(TOLVA_ESCAPE_QUERY_COLOUR_CLASS, 4, nullptr, &cls), 1);
    EXPECT_EQ(cls, 101);
    block->colourMode = 0;
    EXPECT_EQ(call(TOLVA_ESCAPE_QUERY_COLOUR_CLASS, 4, nullptr, &cls), -1);

    int32_t target = 7;  // the pointer itself is stored
    EXPECT_EQ(call(TOLVA_ESCAPE_OUTPUT_DEVICE, 8, &target), -1);
    EXPECT_EQ(call(TOLVA_ESCAPE_OUTPUT_DEVICE, 4, &target), 1);
    EXPECT_EQ(block->outputDevice, reinterpret_cast<intptr_t>(&target));
}

TEST_F(Escape, RasterInfo) {
    // Given size and resolution: 960 x 480 dots at 96 dpi.
    const int32_t given[7] = {0, 0, 96, 960, 480, 0, 0};
    int32_t out[3] = {};
    EXPECT_EQ(call(TOLVA_ESCAPE_RASTER_INFO, 0, given, out), 1);
    EXPECT_EQ(lpRaster, block);
    EXPECT_EQ(block->width, 10.0);
    EXPECT_EQ(block->height, 5.0);
    EXPECT_EQ(out[0] * 10000 + out[1] * 10 + out[2], 9604808);

    // From the display: a square picture into a 12.8 x 10.24 inch box at
    // 100 dpi loses width until it is square.
    block->sizeMode = TOLVA_SIZE_DISPLAY;
    block->resolutionMode = TOLVA_RESOLUTION_DISPLAY;
    const int32_t display[7] = {100, 0, 0, 1000, 1000, 1280, 1024};
    GetRasterInfo(handle, display, out);
    EXPECT_EQ(block->width, 12.8);
    EXPECT_EQ(block->xResolution, 100);
    EXPECT_EQ(out[0] * 10000 + out[1], 10241024);

    // Nothing known: the block's own size and resolution stay.
    const int32_t unknown[7] = {0, 0, 0, 200, 100, 1280, 1024};
    block->width = block->height = 4.0;
    GetRasterInfo(handle, unknown, out);
    EXPECT_EQ(out[0] * 10000 + out[1], 4000200);

    // A zero-filled block gives 0 x 0, not an undefined conversion.
    std::memset(block, 0, TOLVA_SETUP_BLOCK_SIZE);
    GetRasterInfo(handle, unknown, out);
    EXPECT_EQ(out[0] + out[1], 0);
    GetRasterInfo(handle, nullptr, out);
}

TEST_F(Escape, AdjustAspectTrimsTheLongSideOfTheBox) {
    lpRaster = block;  // 6.67 x 5.0 inches at 96 dpi: 640 x 480 dots
    double size[2];
    const double cases[][4] = {
        {400, 300, 640, 480},  // the box's own shape
        {100, 100, 480, 480},  // too wide: W := 640 - trunc(640 - 480)
        {300, 100, 640, 214},  // too tall: H := 480 - trunc(480 - 213.33)
    };
    for (const auto &c : cases) {
        EXPECT_EQ(RasterAdjustAspect(size, c[0], c[1]), 0);
        EXPECT_EQ(size[0], c[2] / 96);
        EXPECT_EQ(size[1], c[3] / 96);
    }
}

TEST(ScaleImage, CapsTheLargerExtentAt22Inches) {
    const double cases[][4] = {
        {44, 11, 22, 5.5}, {11, 44, 5.5, 22}, {10, 10, 10, 10}, {30, 30, 22, 22}};
    for (const auto &c : cases) {
        double w = c[0], h = c[1];
        EXPECT_EQ(ScaleImageSize(&w, &h), 0);
        EXPECT_EQ(w, c[2]);
        EXPECT_EQ(h, c[3]);
    }
}

}  // namespace

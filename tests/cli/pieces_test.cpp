// The command's pieces on their own: the command line, and the status
// function's progress and stop answers. What each option does to the picture
// is tested through the command itself (command_test.cpp).
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "batch.h"
#include "options.h"
#include "progress.h"
#include "resample.h"
#include "sizing.h"

namespace {

// The parsed record borrows argv and its strings: keep the last ones alive.
int Parse(const std::vector<std::string> &given, TolvaOptions *o, std::string *error = nullptr) {
    static std::vector<std::string> args;
    static std::vector<char *> argv;
    args = given;
    args.insert(args.begin(), "tolva");
    argv.clear();
    for (auto &a : args) argv.push_back(a.data());
    char text[256];
    int r = tolva_parse_options(static_cast<int>(argv.size()), argv.data(), o, text, sizeof text);
    if (error) *error = text;
    return r;
}

TEST(Options, BundledShortFormsAndTheEndOfOptions) {
    TolvaOptions o;
    ASSERT_EQ(Parse({"-iqs4x3", "-t", "#FF8000", "--", "-a.png", "-"}, &o), 0);
    EXPECT_TRUE(o.interlace && o.quiet && o.transparent);
    EXPECT_FALSE(o.actualSize);
    EXPECT_EQ(std::pair(o.width, o.height), std::pair(4.0, 3.0));
    EXPECT_EQ(o.transparentColour[0] << 16 | o.transparentColour[1] << 8 | o.transparentColour[2],
              0xff8000);
    EXPECT_STREQ(o.input, "-a.png");
    EXPECT_STREQ(o.output, "-");
    ASSERT_EQ(Parse({"-V", "--help"}, &o), 0);
    EXPECT_EQ(o.action, TOLVA_RUN_HELP);
    // File names and options in any order; a batch takes every file name.
    ASSERT_EQ(Parse({"a.png", "-j2", "b.png", "--output-dir=out", "-vn", "c.png"}, &o), 0);
    ASSERT_EQ(o.inputCount, 3);
    EXPECT_STREQ(o.inputs[2], "c.png");
    EXPECT_EQ(o.output, nullptr);
    EXPECT_STREQ(o.outputDir, "out");
    EXPECT_TRUE(o.jobs == 2 && o.verbose && o.noClobber);
}

TEST(Options, RefusalsAreUsageErrorsWithAReason) {
    const std::vector<std::vector<std::string>> cases = {
        {"in.png"},
        {"a", "b", "c"},
        {"--size=4x0", "a", "b"},
        {"--transparent=12345", "a", "b"},
        {"--colour-mode=sepia", "a", "b"},
        {"--bands=0", "a", "b"},
        {"-a", "-d", "96", "a", "b"},
        {"--quiet=yes", "a", "b"},
        {"--frobnicate", "a", "b"},
        {"--profile", std::string(150, 'p'), "a", "b"},
        {"--section", "GIF Export", "a", "b"},  // a section of no profile
        {"--jobs", "2", "a", "b"},              // jobs without a batch
        {"-O", "out", "a.png", "-"},
        {"--size"},
        {"--height", "65536", "a", "b"},
        {"--width", "100", "--dpi", "96", "a", "b"},
        {"--smooth", "a", "b"},
    };
    for (const auto &args : cases) {
        TolvaOptions o;
        std::string error;
        EXPECT_EQ(Parse(args, &o, &error), 2) << ::testing::PrintToString(args);
        EXPECT_FALSE(error.empty());
        EXPECT_EQ(error.find('\n'), std::string::npos);
    }
}

TEST(Batch, OutputNamesLoseOnlyTheLastExtension) {
    const char *cases[][3] = {
        {"out", "a/b.photo.jpg", "out/b.photo.gif"},
        {"out/", "pic", "out/pic.gif"},
        {"/", ".hidden", "/.hidden.gif"},
    };
    for (const auto &c : cases) {
        char name[64];
        ASSERT_EQ(tolva_batch_output_name(c[0], c[1], name, sizeof name), 0);
        EXPECT_STREQ(name, c[2]);
    }
    char small[8];
    EXPECT_EQ(tolva_batch_output_name("out", "long-name.png", small, sizeof small), -1);
}

// Whatever the plan, the filter's own arithmetic must give the planned size,
// and the asked sides exactly: shrinking, enlarging, 1:1, odd ratios, large
// pictures a pixel off their own size, one side or both.
TEST(Sizing, PlansGiveExactlyTheAskedPixels) {
    const int32_t sizes[][4] = {
        {1, 1, 400, 300},         {3, 7, 900, 2100},      {1920, 1080, 1, 1},
        {37, 15, 37, 15},         {640, 480, 641, 479},   {32767, 3, 65534, 6},
        {4000, 3000, 1700, 4000}, {30000, 20000, 30, 20}, {1920, 1080, 0, 333},
        {999, 997, 1000, 0},      {4000, 3000, 0, 2999},  {1, 5000, 0, 4999},
    };
    for (const auto &s : sizes) {
        SCOPED_TRACE(::testing::PrintToString(std::vector<int32_t>(s, s + 4)));
        TolvaPixelPlan plan;
        ASSERT_EQ(tolva_plan_pixels(s[0], s[1], s[2], s[3], &plan), 0);
        if (s[2] > 0) {
            EXPECT_EQ(plan.outWidth, s[2]);
        }
        if (s[3] > 0) {
            EXPECT_EQ(plan.outHeight, s[3]);
        }
        EXPECT_TRUE(plan.xResolution >= 32 && plan.xResolution <= 400);
        EXPECT_TRUE(plan.yResolution >= 32 && plan.yResolution <= 400);
        if (plan.road == TOLVA_PLAN_OWN_SIZE) {
            EXPECT_EQ(tolva_scaled_pixels(s[0], plan.resolution, plan.xResolution), plan.outWidth);
            EXPECT_EQ(tolva_scaled_pixels(s[1], plan.resolution, plan.yResolution), plan.outHeight);
        } else {
            EXPECT_TRUE(plan.width >= 0.03125 && plan.width <= 22.0);
            EXPECT_TRUE(plan.height >= 0.03125 && plan.height <= 22.0);
            // Proportions kept within the filter's rounding of a pixel.
            EXPECT_NEAR(
                static_cast<double>(plan.outWidth) / plan.outHeight,
                static_cast<double>(s[0]) / s[1],
                static_cast<double>(s[0]) / s[1] / std::min(plan.outWidth, plan.outHeight) + 1e-9);
        }
    }
    TolvaPixelPlan plan;
    EXPECT_EQ(tolva_plan_pixels(2, 2, 1000, 2, &plan), -1);         // 500 times wider
    EXPECT_EQ(tolva_plan_pixels(32767, 5, 1, 5, &plan), -1);        // 32767 times narrower
    EXPECT_EQ(tolva_plan_pixels(4000, 3000, 17, 4000, &plan), -1);  // stretched 300 to 1
    EXPECT_EQ(tolva_proportional_side(1920, 1080, 0, 100), 178);    // 177.8 rounds up
    EXPECT_EQ(tolva_proportional_side(1000, 1, 10, 0), 1);          // never 0
}

TolvaImage Picture(int16_t bits, int32_t width, int32_t height) {
    TolvaImage image{};
    image.width = width;
    image.height = height;
    image.bits = bits;
    image.stride = (static_cast<uint32_t>(width) * bits / 8 + 3) & ~3u;
    image.pixels = static_cast<uint8_t *>(calloc(image.stride, height));
    memset(image.alpha, 255, sizeof image.alpha);
    return image;
}

// Shrinking averages areas (the command's test halves a checkerboard to
// grey): a transparent half becomes half-transparent, and a flat colour
// stays flat.
TEST(Resample, ShrinkingAveragesWhatPickingWouldDrop) {
    char error[128];
    TolvaImage half = Picture(32, 8, 2);  // left half opaque red, right half transparent
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 4; ++x) {
            uint8_t *p = half.pixels + y * half.stride + 4 * x;
            p[0] = 255, p[3] = 255;
        }
    ASSERT_EQ(tolva_resample(&half, 2, 1, error, sizeof error), 0) << error;
    ASSERT_EQ(half.bits, 32);
    EXPECT_EQ(half.pixels[0], 255);  // red stays red where it is opaque...
    EXPECT_EQ(half.pixels[3], 255);
    EXPECT_EQ(half.pixels[7], 0);  // ...and the transparent half stays clear
    tolva_free_image(&half);

    TolvaImage flat = Picture(24, 5, 3);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 15; ++x)
            flat.pixels[y * flat.stride + x] = static_cast<uint8_t>(40 + x % 3);
    ASSERT_EQ(tolva_resample(&flat, 11, 7, error, sizeof error), 0) << error;
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 33; ++x) EXPECT_EQ(flat.pixels[y * flat.stride + x], 40 + x % 3);
    tolva_free_image(&flat);
}

TEST(Progress, StopIsStickyAndTheBarReachesTheEnd) {
    FILE *terminal = tmpfile();
    ASSERT_NE(terminal, nullptr);
    TolvaProgress p;
    tolva_progress_init(&p, terminal, "out.gif", 3);
    auto call = [&](intptr_t a, intptr_t b, intptr_t d) {
        return tolva_status_function(reinterpret_cast<intptr_t>(&p), a, b, 0, d, 0, 0);
    };
    EXPECT_EQ(call(0, -2, 0), 0);  // the init report
    tolva_progress_reading(&p, 500);
    tolva_progress_bands(&p, 2, 4);
    tolva_progress_bands(&p, 4, 4);
    EXPECT_EQ(call(0, 0, 100), 0);
    EXPECT_EQ(call(0, 0, 0), 1);   // the third call asks to stop...
    EXPECT_EQ(call(2, 61, 0), 1);  // ...and so does the detail request after it
    EXPECT_TRUE(tolva_progress_stopping(&p));
    tolva_progress_finish(&p);
    rewind(terminal);
    char text[512] = {0};
    std::string drawn(text, fread(text, 1, sizeof text - 1, terminal));
    fclose(terminal);
    // Reading, sending and the filter's own percentages each move the bar on.
    for (const char *bar : {"out.gif [######........................]  20% reading",
                            "out.gif [#############.................]  45% sending",
                            "out.gif [##############################] 100% done"})
        EXPECT_NE(drawn.find(bar), std::string::npos) << drawn;
    EXPECT_EQ(drawn.back(), '\n');
}

}  // namespace

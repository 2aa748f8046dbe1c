// The command's pieces on their own: the picture reader (the colours of
// every format and depth, the pixel budget, a palette's transparency), the
// command line, sizing and resampling. What each option does to the picture,
// and how a stop answer cancels, is tested through the command itself
// (command_test.cpp).
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "options.h"
#include "picture.h"
#include "picture_files.h"
#include "resample.h"
#include "sizing.h"
#include "transparency.h"

namespace {

using namespace pictures;

struct Read {
    TolvaImageResult result;
    TolvaImage image;
    std::string error;
};

Read ReadPicture(const Bytes &bytes, uint64_t maxPixels = 0) {
    Read r;
    char error[512];
    TolvaReadSettings settings = {maxPixels, 0};
    r.result =
        tolva_read_picture(bytes.data(), bytes.size(), &settings, &r.image, error, sizeof error);
    r.error = error;
    return r;
}

// The RGB(A) samples of pixel (x, y) counted from the top.
std::vector<int> Pixel(const TolvaImage &image, int x, int y) {
    const uint8_t *p = tolva_image_row(&image, y) + x * (image.bits / 8);
    return std::vector<int>(p, p + image.bits / 8);
}

// Every format and depth gives its quadrant colours: exactly where the format
// is lossless, palette pictures through their palette. 16-bit samples sit
// just under the exact 8-bit value, and 1000 is neither 8 nor 16 bits, so a
// reader that truncates instead of rounding gets some of them one low.
TEST(Reader, EveryFormatAndDepthGivesItsColours) {
    const int w = 12, h = 8;
    auto q = [&](int channels, uint32_t maxval, bool grey) {
        return Quadrants(w, h, channels, maxval, grey);
    };
    auto deep = [&](int channels, bool grey) {
        Raster r = q(channels, 65535, grey);
        for (uint16_t &v : r.samples) v = uint16_t(v ? v - 120 : 0);
        return r;
    };
    Raster cmyk = q(4, 255, false);
    for (size_t i = 0; i < cmyk.samples.size(); i += 4) {  // inverted CMYK of the quadrants
        uint16_t k = std::max({cmyk.samples[i], cmyk.samples[i + 1], cmyk.samples[i + 2]});
        for (int c = 0; c < 3; ++c)
            cmyk.samples[i + c] = uint16_t(k ? cmyk.samples[i + c] * 255 / k : 0);
        cmyk.samples[i + 3] = k;
    }
    Raster indexed = q(1, 3, true);
    const Bytes greys = {0, 0, 0, 85, 85, 85, 170, 170, 170, 255, 255, 255};
    const uint8_t *bilevel = (const uint8_t *)"\0\0\xff\xff";
    struct Case {
        std::string name;
        Bytes bytes;
        int bits, tolerance;
        const uint8_t *greys = nullptr;  // for grey pictures: the quadrants' values
        bool more = false;               // more images follow the first
    };
    // Two frames: the first GIF's image block again before its trailer.
    Bytes two = Gif(indexed, greys);
    const size_t image = 13 + 3 * (size_t{2} << (two[10] & 7));
    two.insert(two.end() - 1, two.begin() + long(image), two.end() - 1);
    const Case cases[] = {
        {"grey1.png", Png(q(1, 1, true), PNG_COLOR_TYPE_GRAY, 1), 24, 0, bilevel},
        {"grey4.png", Png(q(1, 15, true), PNG_COLOR_TYPE_GRAY, 4), 24, 0, kGreyQuadrant},
        {"grey16.png", Png(deep(1, true), PNG_COLOR_TYPE_GRAY, 16), 24, 0, kGreyQuadrant},
        {"ga.png", Png(q(2, 255, true), PNG_COLOR_TYPE_GRAY_ALPHA, 8), 32, 0, kGreyQuadrant},
        {"rgba.png", Png(q(4, 255, false), PNG_COLOR_TYPE_RGBA, 8), 32, 0},
        {"palette.png", Png(indexed, PNG_COLOR_TYPE_PALETTE, 2, greys), 8, 0, kGreyQuadrant},
        {"interlaced.gif", Gif(indexed, greys, -1, true), 8, 0, kGreyQuadrant},
        {"two.gif", two, 8, 0, kGreyQuadrant, true},
        {"grey.jpg", Jpeg(q(1, 255, true)), 24, 12, kGreyQuadrant},
        {"rgb.jpg", Jpeg(q(3, 255, false), 100, 0, true), 24, 16},
        {"cmyk.jpg", Jpeg(cmyk, 100), 24, 16},
        {"rgb.webp", Webp(q(3, 255, false)), 24, 0},
        {"rgb8.tif", Tiff(q(3, 255, false), 8, PHOTOMETRIC_RGB), 32, 0},
        {"rgb16.tif", Tiff(deep(3, false), 16, PHOTOMETRIC_RGB), 24, 0},
        {"rgba.tif", Tiff(q(4, 255, false), 8, PHOTOMETRIC_RGB, true), 32, 0},
        {"pages.tif", Tiff(q(3, 255, false), 8, PHOTOMETRIC_RGB, false, 1, 2), 32, 0, nullptr,
         true},
        {"raw.pbm", Netpbm(q(1, 1, true), RPBM_FORMAT), 24, 0, bilevel},
        {"grey16.pgm", Netpbm(deep(1, true), RPGM_FORMAT), 24, 0, kGreyQuadrant},
        {"rgb1000.ppm", Netpbm(q(3, 1000, false), RPPM_FORMAT), 24, 0},
        {"ga.pam", Netpbm(q(2, 255, true), PAM_FORMAT, "GRAYSCALE_ALPHA"), 32, 0, kGreyQuadrant},
        {"rgba.pam", Netpbm(q(4, 255, false), PAM_FORMAT, "RGB_ALPHA"), 32, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Read r = ReadPicture(c.bytes, w * h);  // a budget the picture just fits
        ASSERT_EQ(r.result, TOLVA_IMAGE_OK) << r.error;
        ASSERT_EQ(std::make_tuple(r.image.width, r.image.height, r.image.bits),
                  std::make_tuple(w, h, c.bits));
        EXPECT_EQ(r.image.moreImages, c.more);
        for (int q = 0; q < 4; ++q) {
            std::vector<int> got = Pixel(r.image, (q & 1) ? w - 2 : 1, (q & 2) ? h - 2 : 1);
            if (c.bits == 8)
                got.assign(r.image.palette + 3 * got[0], r.image.palette + 3 * got[0] + 3);
            for (int k = 0; k < 3; ++k)
                EXPECT_NEAR(got[k], c.greys ? c.greys[q] : kQuadrant[q][k], c.tolerance)
                    << "quadrant " << q;
        }
        tolva_free_image(&r.image);
    }
}

// A palette's transparent entries all become its first one, whose colour is
// a key that no opaque entry has (the command's tests check the mask and the
// blending of true-colour pictures through the GIF).
TEST(Reader, FlatteningGivesAPaletteOneTransparentEntry) {
    const uint8_t matte[3] = {0, 0, 255};
    TolvaTransparency t;
    char error[256];
    // Entries 1 and 3 are transparent, entry 1's colour is also entry 0's.
    Raster indexed{4, 1, 1, 255, {0, 1, 2, 3}};
    const Bytes palette = {9, 9, 9, 9, 9, 9, 100, 0, 0, 0, 100, 0};
    Read p = ReadPicture(Png(indexed, PNG_COLOR_TYPE_PALETTE, 2, palette, {255, 0, 255, 0}));
    ASSERT_EQ(p.result, TOLVA_IMAGE_OK) << p.error;
    ASSERT_EQ(tolva_flatten(&p.image, matte, &t, error, sizeof error), TOLVA_IMAGE_OK);
    ASSERT_TRUE(t.active);
    EXPECT_EQ(Pixel(p.image, 3, 0), std::vector<int>{1});
    EXPECT_EQ(std::vector<int>(p.image.palette + 3, p.image.palette + 6),
              std::vector<int>(t.key, t.key + 3));
    EXPECT_NE(std::vector<int>(t.key, t.key + 3), (std::vector<int>{9, 9, 9}));
    tolva_free_transparency(&t);
    tolva_free_image(&p.image);
}

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

TEST(Options, BundledShortFormsTheEndOfOptionsAndRefusals) {
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
    // Refusals are usage errors with a one-line reason.
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
        {"-r", "a", "b"},                       // so is recursion
        {"-O", "out", "a.png", "-"},
        {"--size"},
        {"--height", "65536", "a", "b"},
        {"--width", "100", "--dpi", "96", "a", "b"},
        {"--smooth", "a", "b"},
    };
    for (const auto &args : cases) {
        std::string error;
        EXPECT_EQ(Parse(args, &o, &error), 2) << ::testing::PrintToString(args);
        EXPECT_FALSE(error.empty());
        EXPECT_EQ(error.find('\n'), std::string::npos);
    }
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
        EXPECT_EQ(plan.outWidth, s[2] > 0 ? s[2] : plan.outWidth);
        EXPECT_EQ(plan.outHeight, s[3] > 0 ? s[3] : plan.outHeight);
        for (int32_t dpi : {plan.xResolution, plan.yResolution})
            EXPECT_TRUE(dpi >= 32 && dpi <= 400);
        if (plan.road == TOLVA_PLAN_OWN_SIZE) {
            EXPECT_EQ(tolva_scaled_pixels(s[0], plan.resolution, plan.xResolution), plan.outWidth);
            EXPECT_EQ(tolva_scaled_pixels(s[1], plan.resolution, plan.yResolution), plan.outHeight);
        } else {
            for (double inches : {plan.width, plan.height})
                EXPECT_TRUE(inches >= 0.03125 && inches <= 22.0);
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

TolvaImage Picture(int16_t bits, uint32_t width, uint32_t height) {
    TolvaImage image{};
    char error[64];
    EXPECT_EQ(tolva_allocate_image(&image, width, height, bits, error, sizeof error),
              TOLVA_IMAGE_OK);
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

}  // namespace

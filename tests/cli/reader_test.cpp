// The picture reader on its own: exact pixels for every format and depth
// (what the command's round trips can only check within the filter's colour
// reduction), 16-bit samples rounded, and transparency flattened into a key
// colour and a mask.
#include <gtest/gtest.h>

#include <string>

#include "picture.h"
#include "picture_files.h"
#include "transparency.h"

namespace {

using pictures::Bytes;
using pictures::Quadrants;
using pictures::Raster;

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

TEST(Reader, EveryDepthGivesExactSamples) {
    const int w = 6, h = 4;
    // 16-bit values whose eighth-bit fraction is .5 and above: rounding gives
    // 101 and 255 where truncation would give 100 and 254.
    Raster grey16{w, h, 1, 65535, {}};
    for (int i = 0; i < w * h; ++i) grey16.samples.push_back(i % 2 ? 25829 : 65500);
    Raster rgb16 = grey16;
    rgb16.channels = 3;
    rgb16.samples.clear();
    for (int i = 0; i < w * h; ++i) rgb16.samples.insert(rgb16.samples.end(), {25829, 0, 65500});
    // A maxval that is neither 8 nor 16 bits: 500 of 1000 rounds up to 128,
    // 999 to 255, 1 down to 0.
    Raster rgb1000{w, h, 3, 1000, {}};
    for (int i = 0; i < w * h; ++i) rgb1000.samples.insert(rgb1000.samples.end(), {500, 999, 1});
    const std::vector<int> white = {255, 255, 255}, grey101 = {101, 101, 101},
                           mixed16 = {101, 0, 255}, black = {0, 0, 0};
    struct Case {
        std::string name;
        Bytes bytes;
        int bits;
        std::vector<int> even, odd;  // pixels 0 and 1 of the top row
    };
    const Case cases[] = {
        {"png grey 16", pictures::Png(grey16, PNG_COLOR_TYPE_GRAY, 16), 24, white, grey101},
        {"png rgb 16", pictures::Png(rgb16, PNG_COLOR_TYPE_RGB, 16), 24, mixed16, mixed16},
        {"pgm 16", pictures::Netpbm(grey16, RPGM_FORMAT), 24, white, grey101},
        {"ppm 16 plain", pictures::Netpbm(rgb16, PPM_FORMAT, true), 24, mixed16, mixed16},
        {"ppm 16 maxval 1000",
         pictures::Netpbm(rgb1000, RPPM_FORMAT),
         24,
         {128, 255, 0},
         {128, 255, 0}},
        {"tiff grey 16", pictures::Tiff(grey16, 16, PHOTOMETRIC_MINISBLACK), 24, white, grey101},
        {"tiff rgb 16", pictures::Tiff(rgb16, 16, PHOTOMETRIC_RGB), 24, mixed16, mixed16},
        {"png grey 1", pictures::Png(Quadrants(w, h, 1, 1, true), PNG_COLOR_TYPE_GRAY, 1), 24,
         black, black},
        {"pbm", pictures::Netpbm(Quadrants(w, h, 1, 1, true), RPBM_FORMAT), 24, black, black},
        {"png grey 2", pictures::Png(Quadrants(w, h, 1, 3, true), PNG_COLOR_TYPE_GRAY, 2), 24,
         black, black},
        // An opaque picture's alpha is not kept by the lossless encoder.
        {"webp rgba",
         pictures::Webp(Quadrants(w, h, 4, 255, false)),
         24,
         {250, 20, 30},
         {250, 20, 30}},
        {"pam grey alpha",
         pictures::Netpbm(Quadrants(w, h, 2, 255, true), PAM_FORMAT, false, "GRAYSCALE_ALPHA"),
         32,
         {0, 0, 0, 255},
         {0, 0, 0, 255}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Read r = ReadPicture(c.bytes);
        ASSERT_EQ(r.result, TOLVA_IMAGE_OK) << r.error;
        EXPECT_EQ(r.image.bits, c.bits);
        EXPECT_EQ(Pixel(r.image, 0, 0), c.even);
        EXPECT_EQ(Pixel(r.image, 1, 0), c.odd);
        if (c.name.find("16") == std::string::npos) {
            EXPECT_GE(Pixel(r.image, w - 1, h - 1)[0],
                      240);  // the quadrants' bottom right is (near) white
        }
        tolva_free_image(&r.image);
    }
}

TEST(Reader, SizesAreCheckedBeforeDecoding) {
    Bytes png = pictures::Png(Quadrants(100, 50, 3, 255, false), PNG_COLOR_TYPE_RGB, 8);
    Read over = ReadPicture(png, 4999);
    EXPECT_EQ(over.result, TOLVA_IMAGE_TOO_LARGE);
    EXPECT_EQ(
        over.error,
        "the picture is 100x50 pixels, more than the limit of 4999 pixels (see --max-pixels)");
    EXPECT_EQ(over.image.pixels, nullptr);
    Read exact = ReadPicture(png, 5000);
    EXPECT_EQ(exact.result, TOLVA_IMAGE_OK) << exact.error;
    tolva_free_image(&exact.image);
    Read empty = ReadPicture({});
    EXPECT_EQ(empty.result, TOLVA_IMAGE_UNSUPPORTED);
}

// Fully transparent pixels take one key colour that no opaque pixel has and
// are marked in the mask; partly transparent ones are blended over the
// matte; a palette's transparent entries all become its first one.
TEST(Reader, FlatteningKeepsTransparentPixelsApart) {
    const uint8_t matte[3] = {0, 0, 255};
    Raster rgba = Quadrants(4, 2, 4, 255, false);
    rgba.samples[3] = 0;       // pixel 0: transparent
    rgba.samples[4 + 3] = 51;  // pixel 1: a fifth opaque
    Read r = ReadPicture(pictures::Png(rgba, PNG_COLOR_TYPE_RGBA, 8));
    ASSERT_EQ(r.result, TOLVA_IMAGE_OK) << r.error;
    TolvaTransparency t;
    char error[256];
    ASSERT_EQ(tolva_flatten(&r.image, matte, &t, error, sizeof error), TOLVA_IMAGE_OK);
    EXPECT_EQ(r.image.bits, 24);
    ASSERT_TRUE(t.active);
    EXPECT_EQ(Pixel(r.image, 0, 0), std::vector<int>(t.key, t.key + 3));
    EXPECT_EQ(Pixel(r.image, 1, 0), (std::vector<int>{50, 4, 210}));
    EXPECT_FALSE(t.key[0] == t.key[1] && t.key[1] == t.key[2]);  // never grey
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 4; ++x) {
            EXPECT_EQ(tolva_image_row(&t.mask, y)[x], x == 0 && y == 0) << x << "," << y;
            if (x || y) {
                EXPECT_NE(Pixel(r.image, x, y), std::vector<int>(t.key, t.key + 3));
            }
        }
    tolva_free_transparency(&t);
    tolva_free_image(&r.image);

    // Entries 1 and 3 are transparent, entry 1's colour is also entry 0's.
    Raster indexed{4, 1, 1, 255, {0, 1, 2, 3}};
    const Bytes palette = {9, 9, 9, 9, 9, 9, 100, 0, 0, 0, 100, 0};
    Read p =
        ReadPicture(pictures::Png(indexed, PNG_COLOR_TYPE_PALETTE, 2, palette, {255, 0, 255, 0}));
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

}  // namespace

// The picture reader on its own: the colours of every format and depth, the
// pixel budget, and transparency flattened into a key colour and a mask.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <tuple>

#include "picture.h"
#include "picture_files.h"
#include "transparency.h"

namespace {

using pictures::Bytes;
using pictures::kGreyQuadrant;
using pictures::kQuadrant;
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

// Every format and depth gives its quadrant colours: exactly where the format
// is lossless, palette pictures through their palette. 16-bit samples sit
// just under the exact 8-bit value, and 1000 is neither 8 nor 16 bits, so a
// reader that truncates instead of rounding gets some of them one low.
TEST(Reader, EveryFormatAndDepthGivesItsColours) {
    const int w = 12, h = 8;
    auto deep = [&](int channels, bool grey) {
        Raster r = Quadrants(w, h, channels, 65535, grey);
        for (uint16_t &v : r.samples) v = uint16_t(v ? v - 120 : 0);
        return r;
    };
    Raster cmyk = Quadrants(w, h, 4, 255, false);
    for (size_t i = 0; i < cmyk.samples.size(); i += 4) {  // inverted CMYK of the quadrants
        uint16_t k = std::max({cmyk.samples[i], cmyk.samples[i + 1], cmyk.samples[i + 2]});
        for (int c = 0; c < 3; ++c)
            cmyk.samples[i + c] = uint16_t(k ? cmyk.samples[i + c] * 255 / k : 0);
        cmyk.samples[i + 3] = k;
    }
    Raster indexed = Quadrants(w, h, 1, 3, true);
    const Bytes greys = {0, 0, 0, 85, 85, 85, 170, 170, 170, 255, 255, 255};
    const uint8_t *bilevel = (const uint8_t *)"\0\0\xff\xff";
    struct Case {
        std::string name;
        Bytes bytes;
        int bits, tolerance;
        const uint8_t *greys = nullptr;  // for grey pictures: the quadrants' values
    };
    const Case cases[] = {
        {"grey1.png", pictures::Png(Quadrants(w, h, 1, 1, true), PNG_COLOR_TYPE_GRAY, 1), 24, 0,
         bilevel},
        {"grey4.png", pictures::Png(Quadrants(w, h, 1, 15, true), PNG_COLOR_TYPE_GRAY, 4), 24, 0,
         kGreyQuadrant},
        {"grey16.png", pictures::Png(deep(1, true), PNG_COLOR_TYPE_GRAY, 16), 24, 0, kGreyQuadrant},
        {"rgb16.png", pictures::Png(deep(3, false), PNG_COLOR_TYPE_RGB, 16), 24, 0},
        {"ga.png", pictures::Png(Quadrants(w, h, 2, 255, true), PNG_COLOR_TYPE_GRAY_ALPHA, 8), 32,
         0, kGreyQuadrant},
        {"rgba.png", pictures::Png(Quadrants(w, h, 4, 255, false), PNG_COLOR_TYPE_RGBA, 8), 32, 0},
        {"palette.png", pictures::Png(indexed, PNG_COLOR_TYPE_PALETTE, 2, greys), 8, 0,
         kGreyQuadrant},
        {"interlaced.gif", pictures::Gif(indexed, greys, -1, true), 8, 0, kGreyQuadrant},
        {"grey.jpg", pictures::Jpeg(Quadrants(w, h, 1, 255, true)), 24, 12, kGreyQuadrant},
        {"rgb.jpg", pictures::Jpeg(Quadrants(w, h, 3, 255, false), 100, 0, true), 24, 16},
        {"cmyk.jpg", pictures::Jpeg(cmyk, 100), 24, 16},
        {"rgb.webp", pictures::Webp(Quadrants(w, h, 3, 255, false)), 24, 0},
        {"rgb8.tif", pictures::Tiff(Quadrants(w, h, 3, 255, false), 8, PHOTOMETRIC_RGB), 32, 0},
        {"grey16.tif", pictures::Tiff(deep(1, true), 16, PHOTOMETRIC_MINISBLACK), 24, 0,
         kGreyQuadrant},
        {"rgb16.tif", pictures::Tiff(deep(3, false), 16, PHOTOMETRIC_RGB), 24, 0},
        {"rgba.tif", pictures::Tiff(Quadrants(w, h, 4, 255, false), 8, PHOTOMETRIC_RGB, true), 32,
         0},
        {"raw.pbm", pictures::Netpbm(Quadrants(w, h, 1, 1, true), RPBM_FORMAT), 24, 0, bilevel},
        {"grey16.pgm", pictures::Netpbm(deep(1, true), RPGM_FORMAT), 24, 0, kGreyQuadrant},
        {"rgb1000.ppm", pictures::Netpbm(Quadrants(w, h, 3, 1000, false), RPPM_FORMAT), 24, 0},
        {"ga.pam", pictures::Netpbm(Quadrants(w, h, 2, 255, true), PAM_FORMAT, "GRAYSCALE_ALPHA"),
         32, 0, kGreyQuadrant},
        {"rgba.pam", pictures::Netpbm(Quadrants(w, h, 4, 255, false), PAM_FORMAT, "RGB_ALPHA"), 32,
         0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Read r = ReadPicture(c.bytes);
        ASSERT_EQ(r.result, TOLVA_IMAGE_OK) << r.error;
        ASSERT_EQ(std::make_tuple(r.image.width, r.image.height, r.image.bits),
                  std::make_tuple(w, h, c.bits));
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

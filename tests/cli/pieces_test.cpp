// The command's pieces on their own: the command line, and pictures read
// into the bottom-up, 4-byte-padded rows that the filter's cell arrays take.
#include <gtest/gtest.h>
#include <png.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "filter.h"
#include "image.h"
#include "options.h"
#include "png_write.h"
#include "progress.h"

namespace {

// The parsed record borrows its strings from argv: keep the last one alive.
int Parse(const std::vector<std::string> &given, TolvaOptions *o, std::string *error = nullptr) {
    static std::vector<std::string> args;
    args = given;
    args.insert(args.begin(), "tolva");
    std::vector<char *> argv;
    for (auto &a : args) argv.push_back(a.data());
    char text[256];
    int r = tolva_parse_options(static_cast<int>(argv.size()), argv.data(), o, text, sizeof text);
    if (error) *error = text;
    return r;
}

TEST(Options, LongShortAndBundledFormsAgree) {
    TolvaOptions o;
    ASSERT_EQ(Parse({"-iqs4x3", "--dpi=150", "-t", "#FF8000", "--background", "00ff7f",
                     "--colour-mode=invert-grey", "--bands", "7", "--section=GIF", "in.png", "-"},
                    &o),
              0);
    EXPECT_TRUE(o.interlace && o.quiet);
    EXPECT_DOUBLE_EQ(o.width, 4.0);
    EXPECT_DOUBLE_EQ(o.height, 3.0);
    EXPECT_EQ(o.dpi, 150);
    EXPECT_TRUE(o.transparent);
    EXPECT_EQ(o.transparentColour[0], 0xff);
    EXPECT_EQ(o.transparentColour[1], 0x80);
    EXPECT_EQ(o.backgroundColour[2], 0x7f);
    EXPECT_EQ(o.colourClass, 103);
    EXPECT_EQ(o.bands, 7);
    EXPECT_STREQ(o.section, "GIF");
    EXPECT_STREQ(o.input, "in.png");
    EXPECT_STREQ(o.output, "-");

    ASSERT_EQ(Parse({"--", "-a.png", "out.gif"}, &o), 0);
    EXPECT_STREQ(o.input, "-a.png");
    EXPECT_FALSE(o.actualSize);
    ASSERT_EQ(Parse({"--version"}, &o), 0);
    EXPECT_EQ(o.action, TOLVA_RUN_VERSION);
    ASSERT_EQ(Parse({"-V", "--help"}, &o), 0);
    EXPECT_EQ(o.action, TOLVA_RUN_HELP);
}

TEST(Options, RefusalsAreUsageErrorsWithAReason) {
    const std::vector<std::vector<std::string>> cases = {
        {},
        {"in.png"},
        {"a", "b", "c"},
        {"--size", "4", "a", "b"},
        {"--size=4x0", "a", "b"},
        {"--size=4x3y", "a", "b"},
        {"--dpi", "-5", "a", "b"},
        {"--dpi"},
        {"--transparent=12345", "a", "b"},
        {"--background=gg0000", "a", "b"},
        {"--colour-mode=sepia", "a", "b"},
        {"--bands=0", "a", "b"},
        {"--actual-size", "--size=4x3", "a", "b"},
        {"-a", "-d", "96", "a", "b"},
        {"--quiet=yes", "a", "b"},
        {"--frobnicate", "a", "b"},
        {"-z", "a", "b"},
        {"--profile", std::string(150, 'p'), "a", "b"},
    };
    for (const auto &args : cases) {
        TolvaOptions o;
        std::string error;
        EXPECT_EQ(Parse(args, &o, &error), 2) << ::testing::PrintToString(args);
        EXPECT_FALSE(error.empty());
        EXPECT_EQ(error.find('\n'), std::string::npos);
    }
}

class Pictures : public ::testing::Test {
protected:
    void SetUp() override {
        char dir[] = "/tmp/tolva-pieces-XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        dir_ = dir;
    }
    void TearDown() override { (void)system(("rm -rf '" + dir_ + "'").c_str()); }

    std::vector<uint8_t> ReadAll(const std::string &path) {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    TolvaImageResult Decode(const std::vector<uint8_t> &bytes, TolvaImage *image) {
        char error[256];
        return tolva_decode_image(bytes.data(), bytes.size(), image, error, sizeof error);
    }

    std::string dir_;
};

// Reads back picture row y (counted from the top) of a decoded image.
const uint8_t *RowFromTop(const TolvaImage &image, int y) {
    return image.pixels + static_cast<size_t>(image.stride) * (image.height - 1 - y);
}

TEST_F(Pictures, PalettePngsBecomeBottomUpIndicesWithTheirPalette) {
    for (int depth : {1, 2, 4, 8}) {
        const int width = 13, height = 5, colours = 1 << depth;
        std::vector<uint8_t> palette(3 * colours);
        for (size_t i = 0; i < palette.size(); ++i) palette[i] = static_cast<uint8_t>(i * 7 + 1);
        size_t rowBytes = (width * depth + 7) / 8;
        std::vector<uint8_t> packed(rowBytes * height, 0);
        auto index = [&](int x, int y) { return (x * 3 + y * 5) % colours; };
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                int bit = x * depth;
                packed[y * rowBytes + bit / 8] |=
                    static_cast<uint8_t>(index(x, y) << (8 - depth - bit % 8));
            }
        std::string path = dir_ + "/p.png";
        ASSERT_EQ(test_write_png(path.c_str(), width, height, PNG_COLOR_TYPE_PALETTE, depth,
                                 packed.data(), rowBytes, palette.data(), colours, depth == 2),
                  0);
        TolvaImage image;
        ASSERT_EQ(Decode(ReadAll(path), &image), TOLVA_IMAGE_OK) << depth;
        EXPECT_EQ(image.bits, 8);
        EXPECT_EQ(image.stride, 16u);
        EXPECT_EQ(image.colours, colours);
        EXPECT_EQ(0, memcmp(image.palette, palette.data(), palette.size()));
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                ASSERT_EQ(RowFromTop(image, y)[x], index(x, y)) << depth << " " << x << "," << y;
        tolva_free_image(&image);
    }
}

TEST_F(Pictures, GreyAndAlphaBecomeColourRows) {
    struct Case {
        int colourType, depth, channels;
        int16_t bits;
    };
    for (Case c : {Case{PNG_COLOR_TYPE_GRAY, 8, 1, 24}, Case{PNG_COLOR_TYPE_GRAY_ALPHA, 8, 2, 32},
                   Case{PNG_COLOR_TYPE_RGB, 16, 3, 24}, Case{PNG_COLOR_TYPE_RGBA, 8, 4, 32}}) {
        const int width = 3, height = 2, sample = c.depth / 8;
        size_t rowBytes = static_cast<size_t>(width * c.channels * sample);
        std::vector<uint8_t> rows(rowBytes * height);
        for (size_t i = 0; i < rows.size(); ++i) rows[i] = static_cast<uint8_t>(i * 11);
        std::string path = dir_ + "/c.png";
        ASSERT_EQ(test_write_png(path.c_str(), width, height, c.colourType, c.depth, rows.data(),
                                 rowBytes, nullptr, 0, 0),
                  0);
        TolvaImage image;
        ASSERT_EQ(Decode(ReadAll(path), &image), TOLVA_IMAGE_OK);
        ASSERT_EQ(image.bits, c.bits);
        EXPECT_EQ(image.stride % 4, 0u);
        // The top-left pixel's first channel: for 16-bit samples, the high byte
        // (the writer was handed little-endian samples).
        const uint8_t *top = RowFromTop(image, 0);
        const uint8_t *source = rows.data();
        EXPECT_EQ(top[0], sample == 2 ? source[1] : source[0]);
        if (c.colourType == PNG_COLOR_TYPE_GRAY_ALPHA) {
            EXPECT_EQ(top[1], source[0]);  // grey copied to green
            EXPECT_EQ(top[3], source[1]);  // alpha kept
        }
        const uint8_t *bottom = RowFromTop(image, 1);
        EXPECT_EQ(bottom[0], source[rowBytes + (sample == 2 ? 1 : 0)]);
        tolva_free_image(&image);
    }
}

TEST_F(Pictures, RefusesWhatItCannotRead) {
    std::string path = dir_ + "/g.png";
    std::vector<uint8_t> row(70000, 9);
    ASSERT_EQ(test_write_png(path.c_str(), 70000, 1, PNG_COLOR_TYPE_GRAY, 8, row.data(),
                             row.size(), nullptr, 0, 0),
              0);
    auto wide = ReadAll(path);
    TolvaImage image;
    EXPECT_EQ(Decode(wide, &image), TOLVA_IMAGE_TOO_LARGE);
    EXPECT_EQ(image.pixels, nullptr);

    ASSERT_EQ(test_write_png(path.c_str(), 64, 64, PNG_COLOR_TYPE_GRAY, 8, row.data(), 64,
                             nullptr, 0, 0),
              0);
    auto whole = ReadAll(path);
    std::vector<uint8_t> cut(whole.begin(), whole.begin() + whole.size() / 2);
    EXPECT_EQ(Decode(cut, &image), TOLVA_IMAGE_CORRUPT);
    EXPECT_EQ(image.pixels, nullptr);

    std::vector<uint8_t> text = {'h', 'e', 'l', 'l', 'o'};
    EXPECT_EQ(Decode(text, &image), TOLVA_IMAGE_UNSUPPORTED);
    std::vector<uint8_t> badJpeg = {0xff, 0xd8, 0xff, 0x00, 0x01};
    EXPECT_EQ(Decode(badJpeg, &image), TOLVA_IMAGE_CORRUPT);
}

TEST_F(Pictures, NetpbmGoesThroughStbBottomUp) {
    std::string ppm = "P6\n2 2\n255\n";
    const uint8_t pixels[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    ppm.append(reinterpret_cast<const char *>(pixels), sizeof pixels);
    std::vector<uint8_t> bytes(ppm.begin(), ppm.end());
    TolvaImage image;
    ASSERT_EQ(Decode(bytes, &image), TOLVA_IMAGE_OK);
    EXPECT_EQ(image.bits, 24);
    EXPECT_EQ(image.stride, 8u);
    EXPECT_EQ(RowFromTop(image, 0)[3], 4);
    EXPECT_EQ(RowFromTop(image, 1)[0], 7);
    tolva_free_image(&image);
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
    tolva_progress_bands(&p, 4, 4);
    EXPECT_EQ(call(0, 0, 100), 0);
    EXPECT_EQ(call(0, 0, 0), 1);  // the third call asks to stop...
    EXPECT_EQ(call(2, 61, 0), 1); // ...and so does the detail request after it
    EXPECT_TRUE(tolva_progress_stopping(&p));
    tolva_progress_finish(&p);
    rewind(terminal);
    char text[512] = {0};
    size_t got = fread(text, 1, sizeof text - 1, terminal);
    fclose(terminal);
    std::string drawn(text, got);
    EXPECT_NE(drawn.find("out.gif [##############################] 100%"), std::string::npos)
        << drawn;
    EXPECT_EQ(drawn.back(), '\n');
}

TEST(Bands, CountFollowsRequestAndHeight) {
    TolvaImage image{};
    image.height = 10;
    image.stride = 4;
    EXPECT_EQ(tolva_band_count(&image, 3), 3);
    EXPECT_EQ(tolva_band_count(&image, 50), 10);
    EXPECT_EQ(tolva_band_count(&image, 0), 1);
    image.height = 1000;
    image.stride = 4096;  // 64 rows make 256 KiB
    EXPECT_EQ(tolva_band_count(&image, 0), 16);
}

}  // namespace

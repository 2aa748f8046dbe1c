// Sizes a person thinks in: the picture's own by default, a width and or a
// height in pixels honoured exactly (the filter then evens the height), the
// profile's size when only a profile is named, and --smooth resampling
// instead of the filter's pixel picking.
#include <gif_lib.h>

#include <set>

#include "cli_testing.h"

namespace {

using cli::Args;
using cli::Result;
using cli::WriteText;

struct Gif {
    int width = 0, height = 0;
    std::set<int> greys;  // the grey levels of the pixels (all pixels here are grey)
};

Gif Decode(const std::string &path) {
    Gif gif;
    int error = 0;
    GifFileType *file = DGifOpenFileName(path.c_str(), &error);
    if (file == nullptr) return gif;
    if (DGifSlurp(file) == GIF_OK && file->ImageCount == 1 && file->SColorMap != nullptr) {
        gif.width = file->SWidth;
        gif.height = file->SHeight;
        const SavedImage &image = file->SavedImages[0];
        for (int i = 0; i < gif.width * gif.height; ++i)
            gif.greys.insert(file->SColorMap->Colors[image.RasterBits[i]].Red);
    }
    DGifCloseFile(file, &error);
    return gif;
}

class Sizes : public cli::Folder {};

TEST_F(Sizes, PixelSizesAreExactAndTheDefaultIsThePicturesOwn) {
    PalettePng("wide.png", 400, 300);
    PalettePng("odd.png", 37, 15);
    PalettePng("big.png", 999, 997);
    WriteText(Path("named.ini"),
              "[TOLVA]\n~Mode=Small\n\n[Small]\nDriver=TOLVA.1\nWidth=2.00\n"
              "Height=2.0\nX Resolution=64\nY Resolution=64\n");
    struct Case {
        Args args;
        int width, height;
    };
    const Case cases[] = {
        {{"wide.png"}, 400, 300},
        {{"odd.png"}, 37, 16},  // an odd height gains a row
        {{"--width", "100", "wide.png"}, 100, 76},
        {{"--height=15", "wide.png"}, 20, 16},
        {{"--width", "399", "wide.png"}, 399, 300},
        {{"--width", "74", "--height", "45", "odd.png"}, 74, 46},  // stretched, as asked
        {{"--width", "1000", "big.png"}, 1000, 998},               // a pixel more than its own
        {{"--height", "996", "big.png"}, 998, 996},
        {{"--width", "200", "--smooth", "wide.png"}, 200, 150},
        {{"--profile", "named.ini", "wide.png"}, 128, 96},  // the section it names
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.args));
        Args args = c.args;
        args.push_back("out.gif");
        Result r = Run(args);
        ASSERT_EQ(r.status, 0) << r.err;
        Gif gif = Decode(Path("out.gif"));
        EXPECT_EQ(gif.width, c.width);
        EXPECT_EQ(gif.height, c.height);
    }
    // -v says what was read, what was written and which settings were used.
    Result told = Run({"-v", "--profile", "named.ini", "wide.png", "out.gif"});
    ASSERT_EQ(told.status, 0) << told.err;
    EXPECT_EQ(told.err.rfind("tolva: wide.png: PNG, 400x300 pixels\n"
                             "tolva: out.gif: GIF of 128x96 pixels, ",
                             0),
              0u)
        << told.err;
    EXPECT_NE(told.err.find(" bytes; profile " + Path("named.ini") + ", section [Small]; "),
              std::string::npos)
        << told.err;

    Result far = Run({"--width", "1000", "--height", "2", "odd.png", "out.gif"});
    EXPECT_EQ(far.status, 1);
    EXPECT_EQ(far.err,
              "tolva: odd.png: the filter cannot make 1000 x 2 pixels of this 37x15 "
              "picture (try --smooth)\n");
}

// A one-pixel checkerboard halved: the filter's picking keeps pure black and
// white, --smooth averages them to grey.
TEST_F(Sizes, SmoothAveragesWhereTheFilterPicks) {
    std::vector<uint8_t> board(64 * 64);
    for (size_t i = 0; i < board.size(); ++i) board[i] = ((i % 64) + (i / 64)) % 2 ? 255 : 0;
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = image.height = 64;
    image.format = PNG_FORMAT_GRAY;
    ASSERT_TRUE(
        png_image_write_to_file(&image, Path("board.png").c_str(), 0, board.data(), 0, nullptr));
    chmod(Path("board.png").c_str(), 0644);

    ASSERT_EQ(Run({"--width", "32", "board.png", "picked.gif"}).status, 0);
    ASSERT_EQ(Run({"--width", "32", "--smooth", "board.png", "smooth.gif"}).status, 0);
    Gif picked = Decode(Path("picked.gif")), smooth = Decode(Path("smooth.gif"));
    EXPECT_EQ(picked.width, 32);
    EXPECT_EQ(smooth.width, 32);
    for (int grey : picked.greys) EXPECT_TRUE(grey < 16 || grey > 239) << grey;
    for (int grey : smooth.greys) EXPECT_NEAR(grey, 128, 8);
}

}  // namespace

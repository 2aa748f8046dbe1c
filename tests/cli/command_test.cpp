// The tolva command as a user runs it: exit codes and one-line messages for
// every failure, no output left behind after a failure or a cancel, and GIFs
// that giflib reads back with the expected size, colours and pixel places.
#include <fcntl.h>
#include <gif_lib.h>
#include <gtest/gtest.h>
#include <png.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <dirent.h>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "png_write.h"

extern char **environ;

namespace {

struct Result {
    int status = -1;
    std::string out, err;
};

std::string ReadText(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void WriteText(const std::string &path, const std::string &text) {
    std::ofstream(path, std::ios::binary) << text;
}

bool Exists(const std::string &path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

struct Gif {
    int width = 0, height = 0, background = 0, transparent = -1;
    bool interlaced = false;
    std::vector<uint8_t> indices;  // top row first
    std::vector<GifColorType> colours;
};

bool DecodeGif(const std::string &path, Gif *gif) {
    int error = 0;
    GifFileType *file = DGifOpenFileName(path.c_str(), &error);
    if (file == nullptr) return false;
    bool ok = DGifSlurp(file) == GIF_OK && file->ImageCount == 1 && file->SColorMap != nullptr;
    if (ok) {
        const SavedImage &image = file->SavedImages[0];
        gif->width = file->SWidth;
        gif->height = file->SHeight;
        gif->background = file->SBackGroundColor;
        gif->interlaced = image.ImageDesc.Interlace;
        gif->indices.assign(image.RasterBits,
                            image.RasterBits + static_cast<size_t>(gif->width) * gif->height);
        gif->colours.assign(file->SColorMap->Colors,
                            file->SColorMap->Colors + file->SColorMap->ColorCount);
        GraphicsControlBlock gcb;
        if (DGifSavedExtensionToGCB(file, 0, &gcb) == GIF_OK) gif->transparent = gcb.TransparentColor;
    }
    DGifCloseFile(file, &error);
    return ok;
}

class Command : public ::testing::Test {
protected:
    void SetUp() override {
        char dir[] = "/tmp/tolva-command-XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        dir_ = dir;
        // No profile anywhere: the filter's built-in settings apply.
        mkdir((dir_ + "/ini").c_str(), 0755);
        setenv("INIDIR", (dir_ + "/ini").c_str(), 1);
        unsetenv("DISPLAYINFO");
    }
    void TearDown() override { (void)system(("rm -rf '" + dir_ + "'").c_str()); }

    std::string Path(const std::string &name) const { return dir_ + "/" + name; }

    // Runs the command in the test directory, standard output to a file.
    Result Run(std::vector<std::string> args) {
        args.insert(args.begin(), TOLVA_COMMAND_PATH);
        std::vector<char *> argv;
        for (auto &a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        std::string out = Path("stdout"), err = Path("stderr");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_addchdir_np(&actions, dir_.c_str());
        pid_t pid;
        Result result;
        if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0) {
            int status = 0;
            waitpid(pid, &status, 0);
            result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        posix_spawn_file_actions_destroy(&actions);
        result.out = ReadText(out);
        result.err = ReadText(err);
        unlink(out.c_str());
        unlink(err.c_str());
        return result;
    }

    // No temporary file of the command may survive a run.
    void ExpectNoLeftovers() {
        DIR *d = opendir(dir_.c_str());
        ASSERT_NE(d, nullptr);
        while (dirent *e = readdir(d)) {
            EXPECT_NE(std::string(e->d_name).rfind(".tolva-", 0), 0u) << e->d_name;
        }
        closedir(d);
    }

    // A palette picture of `depth` bits whose index at (x, y) is known.
    std::vector<uint8_t> PalettePng(const std::string &name, int width, int height, int depth,
                                    int colours) {
        std::vector<uint8_t> palette(3 * colours), indices(width * height);
        for (int i = 0; i < colours; ++i) {
            palette[3 * i] = static_cast<uint8_t>(255 - i * 13);
            palette[3 * i + 1] = static_cast<uint8_t>(i * 29);
            palette[3 * i + 2] = static_cast<uint8_t>(i * 71 + 5);
        }
        size_t rowBytes = (width * depth + 7) / 8;
        std::vector<uint8_t> packed(rowBytes * height, 0);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                int index = (x * 7 + y * y * 3 + (x ^ y)) % colours;
                indices[y * width + x] = static_cast<uint8_t>(index);
                int bit = x * depth;
                packed[y * rowBytes + bit / 8] |= static_cast<uint8_t>(index << (8 - depth - bit % 8));
            }
        EXPECT_EQ(test_write_png(Path(name).c_str(), width, height, PNG_COLOR_TYPE_PALETTE, depth,
                                 packed.data(), rowBytes, palette.data(), colours, 0),
                  0);
        palette_ = palette;
        return indices;
    }

    // A colour picture in four quadrants: red, green / blue, white.
    void QuadrantPng(const std::string &name, int width, int height, int colourType) {
        int channels = colourType == PNG_COLOR_TYPE_GRAY         ? 1
                       : colourType == PNG_COLOR_TYPE_GRAY_ALPHA ? 2
                       : colourType == PNG_COLOR_TYPE_RGB        ? 3
                                                                 : 4;
        std::vector<uint8_t> rows(static_cast<size_t>(width) * height * channels);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                uint8_t *p = &rows[(static_cast<size_t>(y) * width + x) * channels];
                int q = (y >= height / 2) * 2 + (x >= width / 2);
                static const uint8_t kColour[4][3] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {255, 255, 255}};
                static const uint8_t kGrey[4] = {0, 80, 160, 255};
                if (channels <= 2) {
                    p[0] = kGrey[q];
                } else {
                    p[0] = kColour[q][0], p[1] = kColour[q][1], p[2] = kColour[q][2];
                }
                if (channels == 2 || channels == 4) p[channels - 1] = 255;
            }
        ASSERT_EQ(test_write_png(Path(name).c_str(), width, height, colourType, 8, rows.data(),
                                 static_cast<size_t>(width) * channels, nullptr, 0, 0),
                  0);
    }

    std::string dir_;
    std::vector<uint8_t> palette_;
};

void ExpectOneLine(const Result &r, const std::string &mention) {
    EXPECT_EQ(r.err.rfind("tolva: ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find(mention), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
}

TEST_F(Command, HelpVersionAndUsageErrors) {
    Result help = Run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("Usage: tolva"), std::string::npos);
    Result version = Run({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_NE(version.out.find("filter version 2.0.5"), std::string::npos) << version.out;
    for (auto args : std::vector<std::vector<std::string>>{
             {}, {"--size", "4", "a.png", "b.gif"}, {"--colour-mode=sepia", "a.png", "b.gif"},
             {"-a", "-s", "4x3", "a.png", "b.gif"}, {"--nope", "a.png", "b.gif"}}) {
        Result r = Run(args);
        EXPECT_EQ(r.status, 2) << r.err;
        EXPECT_NE(r.err.find("tolva --help"), std::string::npos);
    }
}

TEST_F(Command, InputProblemsNameTheFileAndKeepTheOldOutput) {
    WriteText(Path("text.png"), "just some text\n");
    QuadrantPng("whole.png", 64, 64, PNG_COLOR_TYPE_RGB);
    std::string whole = ReadText(Path("whole.png"));
    WriteText(Path("cut.png"), whole.substr(0, whole.size() / 2));
    std::vector<uint8_t> row(70000, 7);
    ASSERT_EQ(test_write_png(Path("wide.png").c_str(), 70000, 2, PNG_COLOR_TYPE_GRAY, 8,
                             row.data(), 0, nullptr, 0, 0),
              0);
    mkdir(Path("folder.png").c_str(), 0755);
    struct Case {
        std::string input, mention;
    };
    for (const Case &c : {Case{"missing.png", "No such file"}, Case{"folder.png", "Is a directory"},
                          Case{"text.png", "not a picture"}, Case{"cut.png", "corrupt PNG"},
                          Case{"wide.png", "65535"}}) {
        WriteText(Path("old.gif"), "old");
        Result r = Run({c.input, "old.gif"});
        EXPECT_EQ(r.status, 1) << c.input;
        ExpectOneLine(r, c.input + ": ");
        EXPECT_NE(r.err.find(c.mention), std::string::npos) << r.err;
        EXPECT_EQ(ReadText(Path("old.gif")), "old");
        Result fresh = Run({c.input, "new.gif"});
        EXPECT_EQ(fresh.status, 1);
        EXPECT_FALSE(Exists(Path("new.gif")));
    }
    ExpectNoLeftovers();
}

TEST_F(Command, OutputProfileAndLibraryProblems) {
    QuadrantPng("in.png", 8, 8, PNG_COLOR_TYPE_RGB);
    Result r = Run({"in.png", "no/such/dir/out.gif"});
    EXPECT_EQ(r.status, 1);
    ExpectOneLine(r, "no/such/dir/out.gif: cannot create the output file (No such file");
    mkdir(Path("out.gif").c_str(), 0755);
    r = Run({"in.png", "out.gif"});
    EXPECT_EQ(r.status, 1);
    ExpectOneLine(r, "out.gif: cannot create the output file (Is a directory");
    r = Run({"--profile", "absent.ini", "in.png", "x.gif"});
    EXPECT_EQ(r.status, 1);
    ExpectOneLine(r, "absent.ini: cannot read the profile");
    r = Run({"--library", Path("nolib.so"), "in.png", "x.gif"});
    EXPECT_EQ(r.status, 1);
    ExpectOneLine(r, "nolib.so: cannot load the filter");
    EXPECT_FALSE(Exists(Path("x.gif")));
    ExpectNoLeftovers();
}

// --- Everything below needs the whole export pipeline of the library. ---

#define REQUIRE_PIPELINE()                                                       \
    if (!TOLVA_PIPELINE_READY) GTEST_SKIP() << "the library's export pipeline (OutputPicture) " \
                                               "has not landed yet"

TEST_F(Command, CancelLeavesNoFileWhateverTheCallThatStops) {
    REQUIRE_PIPELINE();
    PalettePng("in.png", 20, 10, 8, 16);
    // Call 1 is the init report, then the writer's progress, then the close.
    for (int call : {1, 2, 3}) {
        WriteText(Path("old.gif"), "old");
        Result r = Run({"--cancel-at", std::to_string(call), "--actual-size", "in.png", "old.gif"});
        EXPECT_EQ(r.status, 130) << call << r.err;
        ExpectOneLine(r, "old.gif: cancelled");
        EXPECT_EQ(ReadText(Path("old.gif")), "old");
        r = Run({"--cancel-at", std::to_string(call), "in.png", "-"});
        EXPECT_EQ(r.status, 130);
        EXPECT_TRUE(r.out.empty());
    }
    ExpectNoLeftovers();
}

struct RoundTrip {
    int depth;
    std::vector<std::string> options;
};

void PrintTo(const RoundTrip &r, std::ostream *os) {
    *os << r.depth << " bits " << ::testing::PrintToString(r.options);
}

class PaletteRoundTrip : public Command, public ::testing::WithParamInterface<RoundTrip> {};

TEST_P(PaletteRoundTrip, IndicesComeBackInTheirPlaces) {
    REQUIRE_PIPELINE();
    const int width = 37, height = 20, colours = 1 << GetParam().depth;
    std::vector<uint8_t> indices = PalettePng("in.png", width, height, GetParam().depth, colours);
    std::vector<std::string> args = GetParam().options;
    args.insert(args.end(), {"--actual-size", "in.png", "out.gif"});
    Result r = Run(args);
    ASSERT_EQ(r.status, 0) << r.err;
    Gif gif;
    ASSERT_TRUE(DecodeGif(Path("out.gif"), &gif));
    ASSERT_EQ(gif.width, width);
    ASSERT_EQ(gif.height, height);
    bool interlace = std::find(args.begin(), args.end(), "--interlace") != args.end();
    EXPECT_EQ(gif.interlaced, interlace);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            ASSERT_EQ(gif.indices[y * width + x], indices[y * width + x]) << x << "," << y;
    ASSERT_GE(gif.colours.size(), static_cast<size_t>(colours));
    for (int i = 0; i < colours; ++i) {
        EXPECT_EQ(gif.colours[i].Red, palette_[3 * i]);
        EXPECT_EQ(gif.colours[i].Green, palette_[3 * i + 1]);
        EXPECT_EQ(gif.colours[i].Blue, palette_[3 * i + 2]);
    }
    ExpectNoLeftovers();
}

INSTANTIATE_TEST_SUITE_P(
    Depths, PaletteRoundTrip,
    ::testing::Values(RoundTrip{1, {}}, RoundTrip{2, {"--bands", "3"}}, RoundTrip{4, {"-q"}},
                      RoundTrip{8, {}}, RoundTrip{8, {"--bands", "20"}},
                      RoundTrip{8, {"--interlace", "--bands", "4"}}, RoundTrip{4, {"--interlace"}}));

// The size the filter gives a picture fitted into W x H inches at `dpi`:
// the box in whole dots, narrowed to the picture's proportions, and an even
// number of rows.
std::pair<int, int> Fitted(int pw, int ph, double w, double h, int dpi) {
    double W = std::trunc(dpi * w), H = std::trunc(dpi * h);
    double box = W / H, picture = static_cast<double>(pw) / ph;
    if (picture < box) W -= std::trunc(W - H * picture);
    if (picture > box) H -= std::trunc(H - W / picture);
    auto width = static_cast<int>(W / dpi * dpi), height = static_cast<int>(H / dpi * dpi);
    return {width, height + (height & 1)};
}

TEST_F(Command, EachSizeOptionGivesItsSize) {
    REQUIRE_PIPELINE();
    QuadrantPng("wide.png", 400, 300, PNG_COLOR_TYPE_RGB);
    QuadrantPng("odd.png", 37, 15, PNG_COLOR_TYPE_RGB);
    struct Case {
        std::vector<std::string> args;
        std::pair<int, int> size;
    };
    for (const Case &c : {Case{{"--actual-size", "odd.png"}, {37, 16}},
                          Case{{"--size", "4x3", "--dpi", "64", "wide.png"}, {256, 192}},
                          Case{{"--size=4x1", "--dpi=64", "wide.png"}, Fitted(400, 300, 4, 1, 64)},
                          Case{{"--dpi", "64", "wide.png"}, Fitted(400, 300, 6.67, 5.0, 64)},
                          Case{{"--size", "2x2", "odd.png"}, Fitted(37, 15, 2, 2, 96)},
                          Case{{"wide.png"}, Fitted(400, 300, 6.67, 5.0, 96)}}) {
        std::vector<std::string> args = c.args;
        args.push_back("out.gif");
        Result r = Run(args);
        ASSERT_EQ(r.status, 0) << r.err;
        Gif gif;
        ASSERT_TRUE(DecodeGif(Path("out.gif"), &gif));
        EXPECT_EQ(std::make_pair(gif.width, gif.height), c.size) << ::testing::PrintToString(args);
    }
    // The README's first command, on the shipped sample and on the shared photograph.
    const char *data = getenv("TOLVA_TEST_DATA");
    for (const Case &c : {Case{{TOLVA_SAMPLES_DIR "/sunset.png"}, Fitted(320, 200, 6.67, 5.0, 96)},
                          Case{{std::string(data ? data : ".") + "/photo.jpg"},
                               Fitted(1920, 1080, 6.67, 5.0, 96)}}) {
        Result r = Run({c.args[0], "sample.gif"});
        ASSERT_EQ(r.status, 0) << r.err;
        Gif gif;
        ASSERT_TRUE(DecodeGif(Path("sample.gif"), &gif));
        EXPECT_EQ(std::make_pair(gif.width, gif.height), c.size) << c.args[0];
    }
    Result refused = Run({"--size", "30x2", "wide.png", "out2.gif"});
    EXPECT_EQ(refused.status, 2);
    ExpectOneLine(refused, "tolva: the filter refused the size");
    EXPECT_FALSE(Exists(Path("out2.gif")));
}

TEST_F(Command, ProfileSectionsChooseTheSettings) {
    REQUIRE_PIPELINE();
    QuadrantPng("wide.png", 400, 300, PNG_COLOR_TYPE_RGB);
    // The filter reads a value over its default's text, so Width=2 would
    // read as 2.67: values are written at least as long as the defaults.
    WriteText(Path("my.ini"), "[Small]\nDriver=TOLVA.1\nWidth=2.00\nHeight=2.0\nX Resolution=64\n"
                              "Y Resolution=64\n\n[Bare]\nWidth=2\n");
    Result r = Run({"--profile", "my.ini", "--section", "Small", "wide.png", "out.gif"});
    ASSERT_EQ(r.status, 0) << r.err;
    Gif gif;
    ASSERT_TRUE(DecodeGif(Path("out.gif"), &gif));
    EXPECT_EQ(std::make_pair(gif.width, gif.height), Fitted(400, 300, 2, 2, 64));
    r = Run({"--profile=my.ini", "--section=Bare", "wide.png", "bare.gif"});
    EXPECT_EQ(r.status, 1);
    ExpectOneLine(r, "section [Bare] holds no settings");
    EXPECT_FALSE(Exists(Path("bare.gif")));
}

TEST_F(Command, ColourPicturesKeepTheirWayUpAndRound) {
    REQUIRE_PIPELINE();
    struct Case {
        const char *name;
        int colourType;
        bool grey;
    };
    for (const Case &c : {Case{"rgb.png", PNG_COLOR_TYPE_RGB, false},
                          Case{"rgba.png", PNG_COLOR_TYPE_RGBA, false},
                          Case{"grey.png", PNG_COLOR_TYPE_GRAY, true},
                          Case{"greya.png", PNG_COLOR_TYPE_GRAY_ALPHA, true}}) {
        QuadrantPng(c.name, 40, 30, c.colourType);
        Result r = Run({"--actual-size", "--bands", "4", c.name, "out.gif"});
        ASSERT_EQ(r.status, 0) << c.name << r.err;
        Gif gif;
        ASSERT_TRUE(DecodeGif(Path("out.gif"), &gif));
        ASSERT_EQ(gif.width, 40);
        ASSERT_EQ(gif.height, 30);
        static const uint8_t kColour[4][3] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {255, 255, 255}};
        static const uint8_t kGrey[4] = {0, 80, 160, 255};
        const int probes[4][2] = {{5, 5}, {35, 5}, {5, 25}, {35, 25}};
        for (int q = 0; q < 4; ++q) {
            const GifColorType &got = gif.colours[gif.indices[probes[q][1] * 40 + probes[q][0]]];
            int want[3] = {kColour[q][0], kColour[q][1], kColour[q][2]};
            if (c.grey) want[0] = want[1] = want[2] = kGrey[q];
            EXPECT_NEAR(got.Red, want[0], 12) << c.name << " quadrant " << q;
            EXPECT_NEAR(got.Green, want[1], 12) << c.name << " quadrant " << q;
            EXPECT_NEAR(got.Blue, want[2], 12) << c.name << " quadrant " << q;
        }
    }
}

TEST_F(Command, TransparentAndBackgroundPickTheNearestEntries) {
    REQUIRE_PIPELINE();
    PalettePng("in.png", 16, 8, 4, 16);
    // Entry 2 is (229, 58, 147); ask for a colour a little off it.
    Result r = Run({"--actual-size", "--transparent", "e23c90", "--background=e53a93", "in.png",
                    "out.gif"});
    ASSERT_EQ(r.status, 0) << r.err;
    Gif gif;
    ASSERT_TRUE(DecodeGif(Path("out.gif"), &gif));
    EXPECT_EQ(gif.transparent, 2);
    EXPECT_EQ(gif.colours[2].Red, 0xe2);
    EXPECT_EQ(gif.colours[2].Green, 0x3c);
    EXPECT_EQ(gif.colours[2].Blue, 0x90);
    EXPECT_EQ(gif.background, 2);
}

TEST_F(Command, ColourModeReachesTheDevice) {
    REQUIRE_PIPELINE();
    std::vector<uint8_t> indices = PalettePng("in.png", 10, 4, 8, 32);
    Result r = Run({"--actual-size", "--colour-mode", "invert", "in.png", "out.gif"});
    ASSERT_EQ(r.status, 0) << r.err;
    Gif gif;
    ASSERT_TRUE(DecodeGif(Path("out.gif"), &gif));
    EXPECT_EQ(gif.indices, indices);
    for (int i = 0; i < 32; ++i) {
        EXPECT_EQ(gif.colours[i].Red, 255 - palette_[3 * i]) << i;
        EXPECT_EQ(gif.colours[i].Blue, 255 - palette_[3 * i + 2]) << i;
    }
}

TEST_F(Command, StandardStreamsReplacementAndOtherFormats) {
    REQUIRE_PIPELINE();
    QuadrantPng("in.png", 24, 12, PNG_COLOR_TYPE_RGB);
    WriteText(Path("out.gif"), "old");
    ASSERT_EQ(Run({"in.png", "out.gif"}).status, 0);
    std::string file = ReadText(Path("out.gif"));
    EXPECT_EQ(file.rfind("GIF89a", 0), 0u);
    Result piped = Run({"in.png", "-"});
    ASSERT_EQ(piped.status, 0) << piped.err;
    EXPECT_EQ(piped.out, file);
    struct stat info;
    ASSERT_EQ(stat(Path("out.gif").c_str(), &info), 0);
    mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(info.st_mode & 0777, 0666 & ~mask);

    // A directory name too long for the filter's 144-byte file name field.
    std::string deep = dir_;
    for (int i = 0; i < 4; ++i) {
        deep += "/" + std::string(40, 'd');
        mkdir(deep.c_str(), 0755);
    }
    Result far = Run({"in.png", deep + "/far.gif"});
    ASSERT_EQ(far.status, 0) << far.err;
    EXPECT_EQ(ReadText(deep + "/far.gif"), file);

    std::string ppm = "P6\n4 2\n255\n" + std::string(24, '\x80');
    WriteText(Path("in.ppm"), ppm);
    Result fromPpm = Run({"--actual-size", "in.ppm", "ppm.gif"});
    ASSERT_EQ(fromPpm.status, 0) << fromPpm.err;
    Gif gif;
    ASSERT_TRUE(DecodeGif(Path("ppm.gif"), &gif));
    EXPECT_EQ(gif.width, 4);
    EXPECT_EQ(gif.height, 2);
    ExpectNoLeftovers();
}

}  // namespace

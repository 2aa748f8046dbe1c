// The tolva command as a user runs it: exit codes and one-line messages for
// every failure, no output left behind after a failure, a cancel or a stop
// signal, GIFs that giflib reads back with the expected size, colours and
// pixel places, and every kind of output path. The command runs in a scratch
// folder with its standard output read back, optionally as an unprivileged
// user (so that a command that tried to replace a file in /dev would be
// refused instead of succeeding) or under a file-size limit.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <png.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "../output/gif_decode.h"
#include "picture_files.h"

namespace {

using Args = std::vector<std::string>;

inline std::string ReadText(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline void WriteText(const std::string &path, const std::string &text) {
    std::ofstream(path, std::ios::binary) << text;
}

using gif_decode::decode_file;
using gif_decode::Gif;

struct Result {
    int status = -1;  // the exit status; -1 when ended by a signal
    int signal = 0;   // the signal that ended it
    std::string out, err;
};

struct Launch {
    bool unprivileged = false;  // run as nobody when the test runs as root
    rlim_t fileLimit = RLIM_INFINITY;
    std::string input = "";   // a file for standard input; /dev/null when empty
    std::string tmpdir = "";  // TMPDIR, when not empty
};

// Reads everything from a descriptor until end of file, and closes it.
std::string Drain(int fd) {
    std::string all;
    char buffer[65536];
    for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) > 0;) all.append(buffer, size_t(n));
    close(fd);
    return all;
}

class Process {
public:
    // Starts the command in `dir` with standard output on a pipe.
    Process(const std::string &dir, const Args &args, const Launch &launch = {}) {
        int out[2];
        if (pipe(out) != 0) return;
        std::vector<std::string> all = {TOLVA_COMMAND_PATH};
        all.insert(all.end(), args.begin(), args.end());
        std::vector<char *> argv;
        for (auto &a : all) argv.push_back(a.data());
        argv.push_back(nullptr);
        std::string err = dir + "/.err", in = launch.input.empty() ? "/dev/null" : launch.input;
        pid_ = fork();
        if (pid_ == 0) {
            if (chdir(dir.c_str()) != 0) _exit(126);
            int input = open(in.c_str(), O_RDONLY),
                error = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
            dup2(input, 0);
            dup2(out[1], 1);
            dup2(error, 2);
            close(out[0]);
            rlimit limit{launch.fileLimit, launch.fileLimit};
            setrlimit(RLIMIT_FSIZE, &limit);
            if (!launch.tmpdir.empty()) setenv("TMPDIR", launch.tmpdir.c_str(), 1);
            if (launch.unprivileged && geteuid() == 0) {
                if (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0)
                    _exit(126);
            }
            execv(argv[0], argv.data());
            _exit(127);
        }
        close(out[1]);
        out_ = out[0];
        err_ = err;
    }
    pid_t pid() const { return pid_; }

    Result Finish() {
        Result r;
        r.out = Drain(out_);
        int status = 0;
        while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
        r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        r.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
        r.err = ReadText(err_);
        return r;
    }

private:
    pid_t pid_ = -1;
    int out_ = -1;  // read to its end by Finish
    std::string err_;
};

class Folder : public ::testing::Test {
protected:
    void SetUp() override {
        char dir[] = "/tmp/tolva-cli-XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        dir_ = dir;
        // Open to everyone: some runs drop root for the command.
        chmod(dir_.c_str(), 0777);
        setenv("INIDIR", dir_.c_str(), 1);  // no profile: the built-in settings
        unsetenv("DISPLAYINFO");
    }
    // No temporary file of the command may survive a run, failed or not.
    void TearDown() override {
        for (const auto &e : std::filesystem::recursive_directory_iterator(dir_))
            EXPECT_NE(e.path().filename().string().rfind(".tolva-", 0), 0u) << e.path();
        std::filesystem::remove_all(dir_);
    }

    std::string Path(const std::string &name) const { return dir_ + "/" + name; }

    Result Run(const Args &args, const Launch &launch = {}) {
        return Process(dir_, args, launch).Finish();
    }

    void Save(const std::string &name, const pictures::Bytes &bytes) {
        ASSERT_FALSE(bytes.empty()) << name;
        std::ofstream(Path(name), std::ios::binary)
            .write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size()));
    }

    // A palette picture of the fewest bits that hold its colours, whose
    // index at (x, y) is known, in a pattern the LZW coder cannot shrink to
    // nothing; its palette is left in palette_.
    std::vector<uint8_t> PalettePng(const std::string &name, int width, int height,
                                    int colours = 16) {
        palette_.clear();
        for (int i = 0; i < colours; ++i)
            palette_.insert(palette_.end(),
                            {uint8_t(255 - i * 13), uint8_t(i * 29), uint8_t(i * 71 + 5)});
        pictures::Raster r{width, height, 1, 255, {}};
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                r.samples.push_back(uint16_t((x * 7 + y * y * 3 + (x ^ y)) % colours));
        int bits = colours <= 2 ? 1 : colours <= 4 ? 2 : colours <= 16 ? 4 : 8;
        Save(name, pictures::Png(r, PNG_COLOR_TYPE_PALETTE, bits, palette_));
        return std::vector<uint8_t>(r.samples.begin(), r.samples.end());
    }

    // Runs the command with `out.gif` as the output and decodes what it wrote.
    Gif Export(Args args) {
        args.push_back("out.gif");
        Result r = Run(args);
        Gif gif = decode_file(Path("out.gif"));
        EXPECT_EQ(r.status, 0) << ::testing::PrintToString(args) << r.err;
        EXPECT_TRUE(gif.ok) << ::testing::PrintToString(args);
        return gif;
    }

    std::vector<uint8_t> palette_;
    std::string dir_;
};

using pictures::Bytes;
using pictures::kQuadrant;
using pictures::Quadrants;
using pictures::Raster;

bool Has(const Args &args, const std::string &word) {
    return std::find(args.begin(), args.end(), word) != args.end();
}

using Command = Folder;

TEST_F(Command, FailuresSayWhatAndLeaveTheOutputAlone) {
    Result help = Run({"--help"});  // the version is the install test's to check
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("Usage: tolva"), std::string::npos);

    PalettePng("in.png", 20, 10, 16);
    std::string picture = ReadText(Path("in.png"));
    ASSERT_EQ(symlink("in.png", Path("alias.png").c_str()), 0);
    ASSERT_EQ(link(Path("in.png").c_str(), Path("hard.png").c_str()), 0);
    mkdir(Path("folder").c_str(), 0777);
    Save("wide.png", pictures::Png({70000, 2, 1, 255, std::vector<uint16_t>(140000, 7)},
                                   PNG_COLOR_TYPE_GRAY, 8));
    WriteText(Path("bare.ini"), "[Bare]\nWidth=2\n");
    // A PNG whose header is made to declare 30000 x 30000 (CRC mended, so
    // that only the size is wrong).
    Bytes big = pictures::Png(Quadrants(8, 8, 1, 1, true), PNG_COLOR_TYPE_GRAY, 1);
    for (int at : {16, 20}) big[at] = big[at + 1] = 0, big[at + 2] = 0x75, big[at + 3] = 0x30;
    uLong crc = crc32(0, &big[12], 17);
    for (int k = 0; k < 4; ++k) big[29 + k] = uint8_t(crc >> (24 - 8 * k));
    Save("big.png", big);
    // Files cut in half (the fuzz target's short runs cut every format), and
    // headers no reader may believe.
    auto half = [](const Bytes &b) { return Bytes(b.begin(), b.begin() + long(b.size() / 2)); };
    Raster q = Quadrants(40, 40, 3, 255, false);
    Save("cut.png", half(pictures::Png(q, PNG_COLOR_TYPE_RGB, 8)));
    Save("cut.jpg", half(pictures::Jpeg(q)));
    WriteText(Path("huge.pgm"), "P5 99999999999999 2 255\n");
    WriteText(Path("deep.pam"), "P7\nWIDTH 2\nHEIGHT 2\nDEPTH 5\nMAXVAL 255\nTUPLTYPE X\nENDHDR\n" +
                                    std::string(20, 'x'));
    WriteText(Path("picture.bmp"), "BM" + std::string(60, '\0'));
    const std::string hint = "Try 'tolva --help' for more information.\n";
    struct Case {
        Args args;  // the output is old.gif (which exists), new.gif (which does not) or "-"
        int status;
        std::string mention;
        bool usage = false;  // a usage error points to --help on a second line
        Launch launch = {};
        std::string out = "";
    };
    const Case cases[] = {
        {{}, 2, "missing input and output files", true},
        {{"-a", "-s", "4x3", "in.png", "new.gif"}, 2, "choose one way to size", true},
        {{"missing.png", "old.gif"}, 1, "missing.png: cannot read the picture (No such file"},
        {{"wide.png", "-"}, 1, "wide.png: the picture is 70000x2 pixels; the filter takes at"},
        {{"in.png", "no/such/dir/new.gif"}, 1, "new.gif: cannot create the output file (No such"},
        {{"in.png", "folder"}, 1, "folder: cannot create the output file (Is a directory)"},
        {{"in.png", "in.png"}, 1, "in.png: is the input file; not overwritten"},
        {{"in.png", "alias.png"}, 1, "alias.png: is the input file; not overwritten"},
        {{"alias.png", "hard.png"}, 1, "hard.png: is the input file; not overwritten"},
        {{"-", "in.png"}, 1, "in.png: is the input file", false, {.input = Path("in.png")}},
        {{"-n", "in.png", "old.gif"}, 1, "old.gif: already exists; not replaced (--no-clobber)"},
        {{"--profile", "absent.ini", "in.png", "new.gif"}, 1, "absent.ini: cannot read the"},
        {{"--profile=bare.ini", "--section=Bare", "in.png", "old.gif"}, 1, "[Bare] holds no"},
        {{"--size", "30x2", "in.png", "old.gif"}, 2, "the filter refused the size"},
        {{"--width", "1000", "--height", "2", "in.png", "old.gif"}, 1, "in.png: the filter cannot"},
        // The status function answers stop at the given call: 1 is the init
        // report, then come the writer's progress reports, then the close.
        {{"--cancel-at", "1", "in.png", "old.gif"}, 130, "old.gif: cancelled"},
        {{"--cancel-at", "2", "in.png", "new.gif"}, 130, "new.gif: cancelled"},
        {{"--cancel-at", "3", "in.png", "old.gif"}, 130, "old.gif: cancelled"},
        {{"--cancel-at", "2", "in.png", "-"}, 130, "standard output: cancelled"},
        // Pictures refused from their header, before any pixel memory.
        {{"big.png", "old.gif"}, 1, "big.png: the picture is 30000x30000 pixels, more than"},
        {{"--max-pixels", "199", "in.png", "new.gif"}, 1, "in.png: the picture is 20x10 pixels"},
        {{"cut.png", "new.gif"}, 1, "cut.png: corrupt PNG"},
        {{"cut.jpg", "new.gif"}, 1, "cut.jpg: corrupt JPEG file"},
        {{"huge.pgm", "new.gif"}, 1, "huge.pgm: corrupt netpbm file"},
        {{"deep.pam", "new.gif"}, 1, "deep.pam: corrupt netpbm file"},
        {{"picture.bmp", "new.gif"}, 1, "picture.bmp: BMP pictures are not read"},
        {{"in.png", "-"}, 1, "no-such-dir: cannot create a", false, {.tmpdir = "no-such-dir"}},
        {{"-O", "no/such", "in.png"}, 1, "no/such: cannot use the output directory (No such"},
        {{"-O", "in.png", "hard.png"}, 1, "in.png: is not a directory"},
        {{"folder", "new.gif"}, 1, "folder: is a folder; give -O DIR to convert the pictures"},
        {{"-O", "gifs", "folder"}, 1, "folder: holds no picture the command reads (PNG, JPEG"},
        // A file-size limit is a write failure, not the end of the command.
        {{"in.png", "new.gif"}, 1, "new.gif: cannot write the output", false, {.fileLimit = 100}},
        {{"in.png", "-"}, 1, "standard output: cannot write the", false, {.fileLimit = 100}},
        // The command's own version needs no library.
        {{"--version", "--library", "no.so"}, 1, "no.so: cannot load", false, {}, "tolva 2.0.5\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.args));
        WriteText(Path("old.gif"), "old");
        Result r = Run(c.args, c.launch);
        EXPECT_EQ(r.status, c.status) << r.err;
        size_t end = r.err.find('\n') + 1;
        EXPECT_EQ(r.err.rfind("tolva: ", 0), 0u) << r.err;
        EXPECT_NE(r.err.substr(0, end).find(c.mention), std::string::npos) << r.err;
        EXPECT_EQ(r.err.substr(end), c.usage ? hint : "") << r.err;
        EXPECT_EQ(r.out, c.out);
        EXPECT_EQ(ReadText(Path("old.gif")), "old");
        EXPECT_EQ(ReadText(Path("in.png")), picture);
        EXPECT_NE(access(Path("new.gif").c_str(), F_OK), 0);
    }
}

// A palette picture exported at 1:1 comes back with its indices in their
// places: the rows went out in the order the device's cell-array direction and
// the writer's bottom-row-first bands require, at every depth and band split.
TEST_F(Command, PaletteIndicesComeBackInTheirPlaces) {
    const int width = 37, height = 20;
    const std::pair<int, Args> cases[] = {
        {2, {"--bands", "3"}},
        {16, {"-q"}},
        {256, {"--interlace", "--bands", "4"}},
        {32, {"--colour-mode", "invert"}},
        // Entry 2 is (229, 58, 147): both colours pick it, and the transparent
        // one takes its place in the table.
        {16, {"--transparent", "e23c90", "--background=e53a93"}},
    };
    for (auto [colours, args] : cases) {
        SCOPED_TRACE(::testing::PrintToString(args));
        std::vector<uint8_t> indices = PalettePng("in.png", width, height, colours);
        args.insert(args.end(), {"--actual-size", "in.png"});
        Gif gif = Export(args);
        EXPECT_EQ(gif.indices, indices);  // and so the size
        EXPECT_EQ(gif.interlaced, Has(args, "--interlace"));
        std::vector<uint8_t> want = palette_;
        for (uint8_t &v : want) v ^= Has(args, "invert") ? 255 : 0;
        bool transparent = Has(args, "--transparent");
        EXPECT_EQ(gif.transparent, transparent ? 2 : -1);
        if (transparent) {
            EXPECT_EQ(gif.background, 2);
            want[6] = 0xe2, want[7] = 0x3c, want[8] = 0x90;
        }
        gif.palette.resize(want.size());  // the table may have unused entries after ours
        EXPECT_EQ(gif.palette, want);
    }
}

// Inches and dots, pixel sizes honoured exactly (the filter then evens the
// height), a profile's size, and the picture's own size by default.
TEST_F(Command, EachSizeOptionGivesItsSize) {
    Save("wide.png", pictures::Png(Quadrants(400, 300, 3, 255, false), PNG_COLOR_TYPE_RGB, 8));
    Save("odd.png", pictures::Png(Quadrants(37, 15, 3, 255, false), PNG_COLOR_TYPE_RGB, 8));
    PalettePng("pal.png", 400, 300);
    PalettePng("odd8.png", 37, 15);
    // The filter reads a value over its default's text, so Width=2 would
    // read as 2.67: values are written at least as long as the defaults.
    const std::string small =
        "[Small]\nDriver=TOLVA.1\nWidth=2.00\nHeight=2.0\nX Resolution=64\nY Resolution=64\n";
    WriteText(Path("my.ini"), small);
    WriteText(Path("named.ini"), "[TOLVA]\n~Mode=Small\n\n" + small);
    const char *data = getenv("TOLVA_TEST_DATA");
    const std::pair<Args, std::pair<int, int>> cases[] = {
        {{"--actual-size", "odd.png"}, {37, 16}},
        {{"--size", "4x3", "--dpi", "64", "wide.png"}, {256, 192}},
        {{"--size=4x1", "--dpi=64", "wide.png"}, {86, 64}},
        {{"--dpi", "64", "wide.png"}, {426, 320}},
        {{"--profile", "my.ini", "--section", "Small", "wide.png"}, {128, 96}},
        {{"--profile", "named.ini", "pal.png"}, {128, 96}},  // the section it names
        {{"pal.png"}, {400, 300}},
        {{"--width", "100", "pal.png"}, {100, 76}},
        {{"--height=15", "pal.png"}, {20, 16}},
        {{"--width", "74", "--height", "45", "odd8.png"}, {74, 46}},  // stretched, as asked
        // The README's first command, on the shipped sample and on a photograph.
        {{TOLVA_SAMPLES_DIR "/sunset.png"}, {320, 200}},
        {{std::string(data ? data : ".") + "/photo.jpg"}, {1920, 1080}},
    };
    for (const auto &[args, size] : cases) {
        Gif gif = Export(args);
        EXPECT_EQ(std::make_pair(gif.width, gif.height), size) << ::testing::PrintToString(args);
    }
    // -v says what was read, what was written and which settings were used.
    Result told = Run({"-v", "--profile", "named.ini", "pal.png", "out.gif"});
    ASSERT_EQ(told.status, 0) << told.err;
    EXPECT_TRUE(std::regex_search(
        told.err, std::regex("^tolva: pal.png: PNG, 400x300 pixels\n"
                             "tolva: out.gif: GIF of 128x96 pixels, [0-9]+ "
                             "bytes; profile /.*/named.ini, section \\[Small\\]; ")))
        << told.err;
}

// A one-pixel checkerboard halved: the filter's own scaling picks pure black
// and white, --smooth averages them to grey.
TEST_F(Command, SmoothAveragesWhereTheFilterPicks) {
    Raster board{64, 64, 1, 255, {}};
    for (int i = 0; i < 64 * 64; ++i) board.samples.push_back(((i % 64) + (i / 64)) % 2 ? 255 : 0);
    Save("board.png", pictures::Png(board, PNG_COLOR_TYPE_GRAY, 8));
    Gif gif = Export({"--width", "32", "--smooth", "board.png"});
    for (uint8_t index : gif.indices) EXPECT_NEAR(gif.palette[3 * index], 128, 8);
}

const uint8_t *At(const Gif &gif, int x, int y) {
    return &gif.palette[3 * gif.indices[y * gif.width + x]];
}

// A picture with transparent corners: exactly the fully transparent pixels
// are transparent in the GIF; a half transparent pixel is blended over the
// matte. The hidden colours of the corners must not matter.
TEST_F(Command, TransparencyIsExact) {
    const int w = 20, h = 10;
    Raster rgba = Quadrants(w, h, 4, 255, false);
    auto corner = [&](int x, int y) { return (x < 3 || x >= w - 3) && (y < 2 || y >= h - 2); };
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint16_t *p = &rgba.samples[(size_t(y) * w + x) * 4];
            if (corner(x, y)) p[0] = uint16_t(x * 13), p[1] = uint16_t(y * 29), p[2] = 77, p[3] = 0;
        }
    rgba.samples[(2 * w + 12) * 4 + 3] = 128;  // half transparent, in the green quadrant
    Save("corners.png", pictures::Png(rgba, PNG_COLOR_TYPE_RGBA, 8));
    Save("corners.webp", pictures::Webp(rgba));
    // A palette picture whose entry 2 is transparent, and the same as a GIF.
    Raster indexed{w, h, 1, 255, {}};
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            indexed.samples.push_back(uint16_t(corner(x, y)       ? 2
                                               : (x + y) % 4 == 2 ? 3
                                                                  : (x + y) % 4));
    const Bytes palette = {200, 10, 10, 10, 200, 10, 255, 255, 255, 10, 10, 200};
    Save("palette.png", pictures::Png(indexed, PNG_COLOR_TYPE_PALETTE, 2, palette, {255, 255, 0}));
    Save("palette.gif", pictures::Gif(indexed, palette, 2));
    for (const Args &args :
         {Args{"--actual-size", "corners.png"},
          Args{"--actual-size", "--background", "000000", "--interlace", "corners.webp"},
          Args{"--actual-size", "palette.png"},
          Args{"--actual-size", "--colour-mode", "grey", "palette.gif"}}) {
        SCOPED_TRACE(::testing::PrintToString(args));
        Gif gif = Export(args);
        ASSERT_EQ(std::make_pair(gif.width, gif.height), std::make_pair(w, h));
        ASSERT_GE(gif.transparent, 0);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                EXPECT_EQ(gif.indices[y * w + x] == gif.transparent, corner(x, y)) << x << "," << y;
        if (args.back().rfind("palette", 0) == 0) {
            EXPECT_EQ(gif.transparent, 2);
            for (int i = 0; i < w * h; ++i) EXPECT_EQ(gif.indices[i], indexed.samples[i]);
        } else {  // over the matte: white, or the background's black
            EXPECT_NEAR(At(gif, 12, 2)[1],
                        (200 * 128 + (Has(args, "000000") ? 0 : 255) * 127) / 255, 8);
        }
    }
}

// When the key colour cannot be kept apart from the opaque colours (here
// every candidate is itself an opaque colour), the picture is written without
// transparency, over the matte, and the command says so.
TEST_F(Command, TransparencyThatCannotHoldIsDroppedWithANote) {
    Raster r{16, 8, 4, 255, {}};
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 16; ++x) {
            int i = (y * 8 + x) % 64;  // the opaque half holds all 64 candidate keys
            bool clear = x >= 8;
            r.samples.insert(r.samples.end(),
                             {uint16_t((i >> 4 & 3) * 85), uint16_t((i >> 2 & 3) * 85),
                              uint16_t((i & 3) * 85), uint16_t(clear ? 0 : 255)});
        }
    Save("full.png", pictures::Png(r, PNG_COLOR_TYPE_RGBA, 8));
    Result result = Run({"--actual-size", "--matte", "102030", "full.png", "out.gif"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.err.find("out.gif: written without transparency"), std::string::npos)
        << result.err;
    Gif gif = decode_file(Path("out.gif"));
    ASSERT_TRUE(gif.ok);
    EXPECT_EQ(gif.transparent, -1);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(At(gif, 12, 3)[k], "\x10\x20\x30"[k], 8);
}

// EXIF orientation 6 means the stored rows must be turned a quarter to the
// right: the stored top-left quadrant ends up top right.
TEST_F(Command, OrientationTurnsPicturesUpright) {
    const Raster stored = Quadrants(16, 8, 3, 255, false);
    Save("six.jpg", pictures::Jpeg(stored, 100, 6));
    Save("three.png", pictures::Png(stored, PNG_COLOR_TYPE_RGB, 8, {}, {}, 3));
    Save("eight.tif", pictures::Tiff(stored, 8, PHOTOMETRIC_RGB, false, 8));
    // Which stored quadrant shows at top left, top right, bottom left, bottom right.
    struct Case {
        Args args;
        int width, height, quadrantAt[4];
    };
    const Case cases[] = {
        {{"--actual-size", "six.jpg"}, 8, 16, {2, 0, 3, 1}},
        {{"--actual-size", "--no-orient", "six.jpg"}, 16, 8, {0, 1, 2, 3}},
        {{"--actual-size", "three.png"}, 16, 8, {3, 2, 1, 0}},
        {{"--actual-size", "eight.tif"}, 8, 16, {1, 3, 0, 2}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.args));
        Gif gif = Export(c.args);
        ASSERT_EQ(std::make_pair(gif.width, gif.height), std::make_pair(c.width, c.height));
        for (int q = 0; q < 4; ++q) {
            const uint8_t *got = At(gif, (q & 1) ? c.width - 2 : 1, (q & 2) ? c.height - 2 : 1);
            for (int k = 0; k < 3; ++k) EXPECT_NEAR(got[k], kQuadrant[c.quadrantAt[q]][k], 16) << q;
        }
    }
}

// Where the command may be pointed: every kind of output path, and many
// inputs at once. The GIF that reaches any of them must be byte for byte the
// one written to a plain new file; nothing may be renamed over a device, a
// link or the input; a failed file of a batch must not stop the others.
// Every run here is as nobody when the tests run as root, so that what the
// command may do to a path is what an ordinary user's command may do; the
// test's own files are open to it.
class Targets : public Folder {
protected:
    void SetUp() override {
        umask(0);
        Folder::SetUp();
        PalettePng("in.png", 60, 40);
        Result r = Run({"in.png", "reference.gif"});
        ASSERT_EQ(r.status, 0) << r.err;
        reference_ = ReadText(Path("reference.gif"));
        ASSERT_EQ(reference_.rfind("GIF89a", 0), 0u);
    }
    Result Run(const Args &args, Launch launch = {}) {
        launch.unprivileged = true;
        return Folder::Run(args, launch);
    }
    std::string reference_;
};

TEST_F(Targets, DevicesAreWrittenNeverReplaced) {
    // A command that renamed over a device would be refused here (the runs
    // are unprivileged) and fail, rather than replace it.
    Result null = Run({"in.png", "/dev/null"});
    EXPECT_EQ(null.status, 0) << null.err;
    Result full = Run({"in.png", "/dev/full"});
    EXPECT_EQ(full.status, 1);
    EXPECT_EQ(full.err,
              "tolva: /dev/full: cannot write the output file (No space left on device)\n");

    // Standard output is a pipe here.
    Result piped = Run({"in.png", "-"});
    EXPECT_EQ(piped.status, 0) << piped.err;
    EXPECT_TRUE(piped.out == reference_);
}

TEST_F(Targets, PipesAndSocketsGetTheWholeGif) {
    ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0666), 0);
    auto fromFifo =
        std::async(std::launch::async, [&] { return Drain(open(Path("fifo").c_str(), O_RDONLY)); });
    Result fifo = Run({"in.png", "fifo"});
    EXPECT_EQ(fifo.status, 0) << fifo.err;
    EXPECT_TRUE(fromFifo.get() == reference_);  // so the fifo was not replaced

    int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{AF_UNIX, {}};
    ASSERT_LT(Path("socket").size(), sizeof address.sun_path);
    Path("socket").copy(address.sun_path, sizeof address.sun_path);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    auto fromSocket =
        std::async(std::launch::async, [&] { return Drain(accept(listener, nullptr, nullptr)); });
    Result sock = Run({"in.png", "socket"});
    EXPECT_EQ(sock.status, 0) << sock.err;
    EXPECT_TRUE(fromSocket.get() == reference_);
    close(listener);
}

TEST_F(Targets, LinksAreFollowedAndTheirTargetsReplaced) {
    mkdir(Path("sub").c_str(), 0777);
    WriteText(Path("sub/real.gif"), "old");
    ASSERT_EQ(symlink("sub/real.gif", Path("link.gif").c_str()), 0);
    ASSERT_EQ(symlink("../link.gif", Path("sub/chain.gif").c_str()), 0);  // a link to a link
    ASSERT_EQ(symlink("sub/absent.gif", Path("dangling.gif").c_str()), 0);
    const std::pair<const char *, const char *> cases[] = {{"link.gif", "sub/real.gif"},
                                                           {"sub/chain.gif", "sub/real.gif"},
                                                           {"dangling.gif", "sub/absent.gif"}};
    for (const auto &[name, written] : cases) {
        WriteText(Path("sub/real.gif"), "old");
        Result r = Run({"in.png", name});
        EXPECT_EQ(r.status, 0) << name << r.err;
        EXPECT_TRUE(ReadText(Path(written)) == reference_) << name;
        // (So the link was not replaced.) The finished file gets a new file's
        // mode, not the temporary's.
        struct stat info;
        ASSERT_EQ(stat(Path(written).c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0666u) << name;
    }
    // --no-clobber still writes where nothing is, through a link too.
    unlink(Path("sub/absent.gif").c_str());
    Result fresh = Run({"--no-clobber", "in.png", "dangling.gif"});
    EXPECT_EQ(fresh.status, 0) << fresh.err;
    EXPECT_TRUE(ReadText(Path("sub/absent.gif")) == reference_);
    // A directory name too long for the filter's 144-byte file name field.
    std::string deep = dir_;
    for (int i = 0; i < 4; ++i) mkdir((deep += "/" + std::string(40, 'd')).c_str(), 0777);
    Result far = Run({"in.png", deep + "/far.gif"});
    EXPECT_EQ(far.status, 0) << far.err;
    EXPECT_TRUE(ReadText(deep + "/far.gif") == reference_);
}

TEST_F(Targets, ABatchWritesEveryFileItCanAndNamesTheOthers) {
    mkdir(Path("gifs").c_str(), 0777);
    mkdir(Path("b").c_str(), 0777);
    PalettePng("b/two.photo.png", 30, 20);
    PalettePng("b/in.png", 10, 10);  // the same output name as in.png
    WriteText(Path("broken.png"), "not a picture\n");
    WriteText(Path("gifs/three.gif"), "old");
    Result r = Run({"-O", "gifs", "--jobs=3", "in.png", "b/two.photo.png", "broken.png",
                    "missing.png", "b/in.png"});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(ReadText(Path("gifs/in.gif")) == reference_);
    EXPECT_TRUE(decode_file(Path("gifs/two.photo.gif")).ok);
    EXPECT_FALSE(decode_file(Path("gifs/broken.gif")).ok);
    // One whole line for each failed file, whatever order they ended in.
    std::vector<std::string> lines;
    for (size_t at = 0, end; (end = r.err.find('\n', at)) != std::string::npos; at = end + 1)
        lines.push_back(r.err.substr(at, end - at));
    std::sort(lines.begin(), lines.end());
    const std::vector<std::string> want = {
        "tolva: b/in.png: has the output name of an earlier input; not converted",
        "tolva: broken.png: not a picture the command reads (PNG, JPEG, GIF, WebP, TIFF, PBM, PGM, "
        "PPM or PAM)",
        "tolva: missing.png: cannot read the picture (No such file or directory)",
    };
    EXPECT_EQ(lines, want) << r.err;

    // Every file written: status 0, one process at a time as well.
    Result again = Run({"in.png", "b/two.photo.png", "--output-dir", "gifs/", "-j", "1"});
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(again.err, "");

    // A missing folder is made (one whose parent is missing is refused: see
    // the failure table).
    Result made = Run({"-O", "new", "in.png"});
    EXPECT_EQ(made.status, 0) << made.err;
    EXPECT_TRUE(ReadText(Path("new/in.gif")) == reference_);

    // A folder stands for the pictures directly in it, known by content:
    // not its notes, hidden files or subfolders.
    WriteText(Path("b/notes.txt"), "PNG pictures\n");
    PalettePng("b/.hidden.png", 10, 10);
    mkdir(Path("b/sub").c_str(), 0777);
    PalettePng("b/sub/deeper.png", 10, 10);
    WriteText(Path("b/photo.data"), ReadText(Path("in.png")));
    // With -r, subfolders too, their layout kept; never a link to a folder,
    // which could lead back up.
    ASSERT_EQ(symlink("..", Path("b/sub/up").c_str()), 0);
    auto written = [&](const std::string &folder) {
        std::vector<std::string> files;
        for (const auto &entry : std::filesystem::recursive_directory_iterator(Path(folder)))
            if (entry.is_regular_file())
                files.push_back(entry.path().lexically_relative(Path(folder)).string());
        std::sort(files.begin(), files.end());
        return files;
    };
    for (bool recursive : {false, true}) {
        Args args = {"-O", recursive ? "deep" : "flat", "b/"};
        if (recursive) args.push_back("-r");
        Result r = Run(args);
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.err, "");
        std::vector<std::string> want = {"in.gif", "photo.gif", "two.photo.gif"};
        if (recursive) want.insert(want.begin() + 2, "sub/deeper.gif");
        EXPECT_EQ(written(args[1]), want);
        EXPECT_TRUE(ReadText(Path(args[1] + "/photo.gif")) == reference_);
    }
    // An output folder inside the input is not an input: a second run makes
    // the same files, not GIFs of the first run's GIFs.
    for (int run = 0; run < 2; ++run) {
        Result r = Run({"-r", "-O", "b/gifs", "b"});
        EXPECT_EQ(r.status, 0) << r.err;
    }
    EXPECT_EQ(written("b/gifs"),
              (std::vector<std::string>{"in.gif", "photo.gif", "sub/deeper.gif", "two.photo.gif"}));
}

// Every way but SIGKILL to stop the command leaves nothing behind: not the
// output, not the command's temporary file, not the filter's interlace spool
// in /tmp. The signal is sent while that spool is open (the command is
// frozen with SIGSTOP while it holds the spool, checked again once frozen),
// which is when an abrupt end would leave it.

// The spool file (/tmp/zun*) process `pid` has open, or "".
std::string SpoolOf(pid_t pid) {
    std::error_code error;
    for (const auto &fd :
         std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", error)) {
        std::string target = std::filesystem::read_symlink(fd, error);
        if (target.rfind("/tmp/zun", 0) == 0) return target;
    }
    return "";
}

class Stop : public Folder {
protected:
    void SetUp() override {
        Folder::SetUp();
        // Large enough for the filter to spool its interlace passes to a file.
        PalettePng("in.png", 3000, 2000);
    }

    // While `command` runs, watches the processes `watched` names until one
    // of them holds a spool open, freezes them and hands the spool to `stop`;
    // false when none was caught (the export was too quick).
    template <typename Watched, typename Stopper>
    bool StopWhileSpooling(Process &command, Watched watched, Stopper stop) {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        for (siginfo_t info{}; std::chrono::steady_clock::now() < deadline; usleep(100)) {
            if (waitid(P_PID, id_t(command.pid()), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
                info.si_pid != 0)
                return false;  // ended, and left to be waited for
            std::vector<pid_t> pids = watched();
            std::string spool;
            for (pid_t pid : pids) spool += SpoolOf(pid);
            if (spool.empty()) continue;
            for (pid_t pid : pids) kill(pid, SIGSTOP);
            spool.clear();
            for (pid_t pid : pids) spool += SpoolOf(pid);
            if (!spool.empty()) stop(spool);
            for (pid_t pid : pids) kill(pid, SIGCONT);
            if (!spool.empty()) return true;
        }
        return false;
    }
};

TEST_F(Stop, EachStopSignalCancelsThroughTheFilter) {
    const std::vector<std::vector<int>> cases = {
        {SIGINT}, {SIGINT, SIGINT, SIGINT}, {SIGTERM}, {SIGHUP}, {SIGQUIT}, {SIGINT, SIGTERM}};
    for (const auto &signals : cases) {
        SCOPED_TRACE(::testing::PrintToString(signals));
        Process command(dir_, {"-q", "--interlace", "--actual-size", "in.png", "out.gif"});
        std::string spool;
        bool caught = StopWhileSpooling(
            command, [&] { return std::vector<pid_t>{command.pid()}; },
            [&](const std::string &name) {
                spool = name;
                for (int s : signals) kill(command.pid(), s);
            });
        Result r = command.Finish();
        ASSERT_TRUE(caught) << "the spool was never caught open";
        EXPECT_EQ(r.signal, 0) << "ended by the signal itself";
        // Pending signals may arrive in any order; the first one counts.
        EXPECT_NE(std::find(signals.begin(), signals.end(), r.status - 128), signals.end())
            << r.status;
        EXPECT_EQ(r.err, "tolva: out.gif: cancelled\n");
        EXPECT_NE(access(spool.c_str(), F_OK), 0) << spool << " was left";
        EXPECT_NE(access(Path("out.gif").c_str(), F_OK), 0);
    }
}

TEST_F(Stop, ABatchPassesTheStopOnToItsConversions) {
    mkdir(Path("gifs").c_str(), 0777);
    Args args = {"-O", "gifs", "--jobs", "2", "--interlace", "--actual-size"};
    for (const char *name : {"a.png", "b.png", "c.png", "d.png"}) {
        ASSERT_EQ(link(Path("in.png").c_str(), Path(name).c_str()), 0);
        args.push_back(name);
    }
    // Only the parent gets the signal, as from kill(1), once one of its
    // children has its spool open.
    Process batch(dir_, args);
    std::string task = "/proc/" + std::to_string(batch.pid()) + "/task/";
    bool sent = StopWhileSpooling(
        batch,
        [&] {
            std::istringstream list(ReadText(task + std::to_string(batch.pid()) + "/children"));
            return std::vector<pid_t>(std::istream_iterator<pid_t>(list), {});
        },
        [&](const std::string &) { kill(batch.pid(), SIGTERM); });
    Result r = batch.Finish();
    ASSERT_TRUE(sent) << "no conversion of the batch was caught with its spool open";
    EXPECT_EQ(r.status, 128 + SIGTERM) << r.err;
    // The two conversions under way were cancelled, the others never began.
    EXPECT_TRUE(std::filesystem::is_empty(Path("gifs")));
}

}  // namespace

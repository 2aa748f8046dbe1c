// The Setup block: filled from hand-written profiles behind the "Driver" gate,
// the setup escape and the settings it saves, the raster geometry, the limit
// repair, the string table, and the display information.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <tuple>

#include "../profile/profile_fixture.h"
#include "tolva/host.h"
#include "tolva/profile.h"
#include "tolva/settings.h"

namespace {

using namespace std::string_literals;

const char kProfile[] =
    "[TOLVA]\n~Mode=GIF Export\n\n[GIF Export]\nDriver=TOLVA.1\nColor Mode=105\n"
    "Size Mode=600\nResolution Mode=0x133\nX Resolution=31\nY Resolution=400\n"
    "Width=22.5\nHeight=4\nLine Mode=120\n";

// The settings a host sees, comparable and printable in one piece.
auto fields(const SetupBlock *b) {
    return std::tuple(b->colourMode, b->sizeMode, b->resolutionMode, b->xResolution, b->yResolution,
                      b->width, b->height, b->lineMode);
}
using Fields = decltype(fields(nullptr));

// Each test starts from a block created without a profile: the defaults.
struct Setup : ::testing::Test {
    ScratchDir dir;
    HGLOBAL handle = 0;
    SetupBlock *block = create("absent.ini");

    ~Setup() override { DestroySetup(handle); }
    SetupBlock *create(const char *profile, const char *section = "") {
        DestroySetup(handle);
        handle = CreateSetup(0, profile, section, 0);
        EXPECT_EQ(hRaster, handle);
        return block = static_cast<SetupBlock *>(GlobalLock(handle));
    }
    int32_t escape(int32_t code, int32_t size, const void *in, void *out = nullptr, int save = 0) {
        return xEscapeSetup(handle, code, size, const_cast<void *>(in), out, save);
    }
};

TEST_F(Setup, ProfilesFillTheBlockBehindTheDriverGate) {
    EXPECT_STREQ(block->driverName, "TOLVA.1");
    EXPECT_EQ(fields(block), Fields(103, 602, 309, 96, 96, 6.67, 5.0, 0));  // no line mode
    dir.put("my.ini", "[G]\nDriver=X\nWidth=5\n[H]\nColor Mode=104\n");
    EXPECT_EQ(fields(create("my.ini", "H")), Fields());  // without "Driver" the zero fill stays
    EXPECT_EQ(fields(create("my.ini", "G")), Fields(103, 602, 309, 96, 96, 5.67, 5.0, 119));
    EXPECT_STREQ(create("my.ini")->sectionName, "");  // no "~Mode" key: no section
    // 31 dpi and 22.5 inches are repaired; "4" over the default "5.0" reads "4.0".
    dir.put("my.ini", kProfile);
    EXPECT_EQ(fields(create("my.ini")), Fields(105, 600, 307, 96, 400, 6.67, 4.0, 120));
    EXPECT_STREQ(szFilter, "TOLVA");
    // Without a name the module's file names the profile, less everything
    // from its first dot; over-long names stay inside their 144-byte fields.
    std::strcpy(export_szDLLName, "/opt/host/filters/libtolva.so.2");
    dir.put("libtolva.ini", "[G]\nDriver=TOLVA.1\nColor Mode=106\n");
    EXPECT_EQ(create(nullptr, "G")->colourMode, 106);
    EXPECT_STREQ(block->profilePath, "libtolva.ini");
    std::memset(export_szDLLName, 'm', sizeof export_szDLLName);
    EXPECT_STREQ(create(nullptr, std::string(400, 's').c_str())->profilePath, "");
    dir.put("long.ini", "[TOLVA]\n~Mode=" + std::string(250, 's') + "\n");
    EXPECT_EQ(std::strlen(create("long.ini")->sectionName), sizeof block->sectionName - 1);
    std::memset(export_szDLLName, 0, sizeof export_szDLLName);
}

TEST_F(Setup, TheEscapeSavesToTheProfileAndTheWidthComesBackAs036) {
    dir.put("my.ini", kProfile);
    create("my.ini");
    double width = 6.67, height = 5.0;
    int32_t dpi = 150, colourClass = 102, bad = 20;
    EXPECT_EQ(escape(TOLVA_ESCAPE_WIDTH, 8, &width, nullptr, 1), 1);
    EXPECT_EQ(escape(TOLVA_ESCAPE_HEIGHT, 8, &height, nullptr, 1), 1);
    EXPECT_EQ(escape(TOLVA_ESCAPE_X_RESOLUTION, 4, &dpi, nullptr, 1), 1);
    EXPECT_EQ(escape(TOLVA_ESCAPE_COLOUR_CLASS, 4, &colourClass, nullptr, 1), 1);
    EXPECT_EQ(escape(TOLVA_ESCAPE_Y_RESOLUTION, 4, &bad, nullptr, 1), -1);
    EXPECT_EQ(escape(TOLVA_ESCAPE_SIZE_MODE, 2, nullptr, nullptr, 1), 1);  // never saved
    const std::string saved =
        "[TOLVA]\n~Mode=GIF Export\n\n[GIF Export]\nDriver=TOLVA.1\nColor Mode=104\n"
        "Size Mode=600\nResolution Mode=0x133\nX Resolution=150\nY Resolution=400\n"
        "Width=.36.67\nHeight=5\nLine Mode=120\n";
    EXPECT_EQ(dir.get("my.ini"), saved);
    EXPECT_EQ(fields(create("my.ini")), Fields(104, 600, 307, 150, 400, 0.36, 5.0, 120));
    EXPECT_EQ(escape(TOLVA_ESCAPE_WIDTH, 8, &height), 1);  // not saved
    EXPECT_EQ(dir.get("my.ini"), saved);
    // Without a profile the save fails silently and the change stands.
    create("absent.ini");
    EXPECT_EQ(escape(TOLVA_ESCAPE_WIDTH, 8, &height, nullptr, 1), 1);
    EXPECT_EQ(block->width, 5.0);
    EXPECT_EQ(dir.list(), std::set<std::string>{"my.ini"});
}

TEST_F(Setup, EscapeCodesCheckSizeAndRangeAndChangeNothingWhenRefused) {
    int32_t dpi[2] = {-1, -1}, colourClass = 0;
    double size[2] = {-1, -1};
    // code, size or mode selector, value (passed as int32_t to the codes that
    // take 4 bytes), result
    const std::tuple<int32_t, int32_t, double, int32_t> cases[] = {
        {TOLVA_ESCAPE_COLOUR_CLASS, 4, 100, -1}, {TOLVA_ESCAPE_COLOUR_CLASS, 4, 106, -1},
        {TOLVA_ESCAPE_COLOUR_CLASS, 8, 101, -1}, {TOLVA_ESCAPE_COLOUR_CLASS, 4, 105, 1},
        {TOLVA_ESCAPE_X_RESOLUTION, 4, 31, -1},  {TOLVA_ESCAPE_X_RESOLUTION, 4, 400, 1},
        {TOLVA_ESCAPE_Y_RESOLUTION, 4, 32, 1},   {TOLVA_ESCAPE_WIDTH, 8, 22.000001, -1},
        {TOLVA_ESCAPE_WIDTH, 8, 0.0312, -1},     {TOLVA_ESCAPE_WIDTH, 8, NAN, -1},
        {TOLVA_ESCAPE_WIDTH, 4, 3.0, -1},        {TOLVA_ESCAPE_WIDTH, 8, 22.0, 1},
        {TOLVA_ESCAPE_HEIGHT, 8, 0.03125, 1},    {TOLVA_ESCAPE_RESOLUTION_MODE, 3, 0, 1},
        {TOLVA_ESCAPE_RESOLUTION_MODE, 4, 0, 1}, {TOLVA_ESCAPE_SIZE_MODE, 0, 0, 1},
        {TOLVA_ESCAPE_SIZE_MODE, -1, 0, 1},      {2, 4, 101, 0}};

    for (const auto &[code, size, value, result] : cases) {
        SCOPED_TRACE(testing::Message() << code << " " << size << " " << value);
        SetupBlock before = *block;
        // Sizes are checked before the input is read, so a wrong one may
        // point at either form.
        int32_t whole = std::isnan(value) ? 0 : static_cast<int32_t>(value);
        const void *in = size == 8 ? static_cast<const void *>(&value) : &whole;
        EXPECT_EQ(escape(code, size, in), result);
        EXPECT_TRUE(result == 1 || std::memcmp(&before, block, sizeof before) == 0);
    }
    // Selectors 4 and -1 changed nothing.
    EXPECT_EQ(fields(block), Fields(107, 600, 310, 400, 32, 22.0, 0.03125, 0));
    EXPECT_EQ(escape(TOLVA_ESCAPE_QUERY_RESOLUTION, 0, nullptr, dpi), 1);
    EXPECT_EQ(escape(TOLVA_ESCAPE_QUERY_SIZE, 0, nullptr, size), 1);
    EXPECT_EQ(std::tuple(dpi[0], dpi[1], size[0], size[1]), std::tuple(400, 32, 22.0, 0.03125));
    EXPECT_EQ(escape(TOLVA_ESCAPE_QUERY_COLOUR_CLASS, 4, nullptr, &colourClass), 1);
    EXPECT_EQ(colourClass, 105);
    EXPECT_EQ(escape(TOLVA_ESCAPE_WIDTH, 8, nullptr), -1);
    EXPECT_EQ(xEscapeSetup(0, TOLVA_ESCAPE_COLOUR_CLASS, 4, &block->colourMode, nullptr, 0), -1);
    EXPECT_EQ(escape(TOLVA_ESCAPE_OUTPUT_DEVICE, 4, &handle), 1);  // the pointer itself is stored
    EXPECT_EQ(block->outputDevice, reinterpret_cast<intptr_t>(&handle));
}

TEST_F(Setup, RasterInfo) {
    // Given size and resolution: 960 x 480 dots at 96 dpi are 10 x 5 inches.
    const int32_t given[7] = {0, 0, 96, 960, 480, 0, 0};
    int32_t out[3] = {};
    EXPECT_EQ(escape(TOLVA_ESCAPE_RASTER_INFO, 0, given, out), 1);
    EXPECT_EQ(std::tuple(block->width, block->height), std::tuple(10.0, 5.0));
    EXPECT_EQ(std::tuple(out[0], out[1], out[2]), std::tuple(960, 480, 8));
    // A zero-filled block gives 0 x 0, not an undefined conversion. (The
    // display modes are checked against the writer's query in the pipeline.)
    std::memset(block, 0, TOLVA_SETUP_BLOCK_SIZE);
    const int32_t square[7] = {100, 0, 0, 1000, 1000, 1280, 1024};
    GetRasterInfo(handle, square, out);
    EXPECT_EQ(std::tuple(out[0], out[1]), std::tuple(0, 0));
    GetRasterInfo(handle, nullptr, out);
    // The largest extent is 22 inches; the other side keeps the proportion.
    double w = 44.0, h = 11.0, sw = 10.0, sh = 10.0;
    EXPECT_EQ(ScaleImageSize(&w, &h) + ScaleImageSize(&sw, &sh), 0);
    EXPECT_EQ(std::tuple(w, h, sw, sh), std::tuple(22.0, 5.5, 10.0, 10.0));
}

TEST_F(Setup, LimitCheckReportsTheLastRepair) {
    std::tie(block->xResolution, block->yResolution, block->height) = std::tuple(31, 401, NAN);
    EXPECT_EQ(LimitCheck(), TOLVA_LIMIT_SIZE);  // the size repair comes last
    EXPECT_EQ(fields(block), Fields(103, 602, 309, 96, 96, 6.67, 5.0, 0));
    block->yResolution = 31;
    EXPECT_EQ(LimitCheck(), TOLVA_LIMIT_RESOLUTION);
    EXPECT_EQ(DestroySetup(0) + DestroySetup(handle), 1 + 0);
    EXPECT_EQ(LimitCheck(), 0);  // no current block
    handle = 0;
}

TEST(StringTable, LoadStringCutsWithoutTerminator) {
    char buffer[16];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(LoadString(0, 0x10000 + 7, buffer, 3), 4);  // only the low 16 bits count
    EXPECT_EQ(std::string(buffer, 4), "Fon#");
    EXPECT_EQ(LoadString(0, 12, buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "Not Defined");
}

TEST(DisplayInfo, TheVariableOverridesTheHostWhoseZerosKeepTheDefaults) {
    // the host's width, height, X and Y; DISPLAYINFO; the inches and resolutions given
    const std::tuple<double, double, int16_t, int16_t, const char *, double, double, int16_t,
                     int16_t>
        cases[] = {{0, 0, 0, 0, nullptr, 1280.0 / 96, 1078.0 / 96, 96, 96},
                   {0, 768, 72, 0, "", 1280.0 / 72, 768.0 / 96, 72, 96},  // empty counts as unset
                   {2000, 1000, 200, 200, "1024,768,72,72", 1024.0 / 72, 768.0 / 72, 72, 72},
                   {2000, 1000, 200, 200, "1024", INFINITY, NAN, 0, 0},
                   {0, 0, 0, 0, "800,,96,97", 800.0 / 96, 0.0, 96, 97},  // ",," is a missing number
                   // A resolution beyond 16 bits divides with its full value and is
                   // handed out narrowed.
                   {0, 0, 0, 0, "65632x100x65632x96", 1.0, 100.0 / 96, 96, 96}};
    for (const auto &[hostW, hostH, hostX, hostY, variable, width, height, x, y] : cases) {
        SCOPED_TRACE(variable == nullptr ? "unset" : variable);
        variable != nullptr ? setenv("DISPLAYINFO", variable, 1) : unsetenv("DISPLAYINFO");
        SetDisplayInfo(hostW, hostH, hostX, hostY);
        double w, h;
        int16_t dpi[2];
        EXPECT_EQ(GetDisplayInfo(&w, &h, &dpi[0], &dpi[1]), 0);
        EXPECT_TRUE(std::isnan(width) ? std::isnan(w) : w == width) << w;
        EXPECT_TRUE(std::isnan(height) ? std::isnan(h) : h == height) << h;
        EXPECT_EQ(std::tuple(dpi[0], dpi[1]), std::tuple(x, y));
    }
    EXPECT_EQ(GetDisplayInfo(nullptr, nullptr, nullptr, nullptr), 0);
    unsetenv("DISPLAYINFO");
}

}  // namespace

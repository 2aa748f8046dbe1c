// End to end: a host drives the device through the opcode protocol and the
// GIF it finds is decoded with giflib and compared with pixels computed here.
//
// Orientation, pinned down here: the device collects rows into a bottom-up
// bitmap and the writer sends its last row first. Rows sent downward land at
// bitmap rows 0, 1, ..., so the host's first row becomes the GIF's bottom
// row. Rows sent upward start at bitmap row height - 2, so the host's first
// row becomes the GIF's second row and the GIF's top row stays index 0.
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "test_host.h"

using namespace test_host;

namespace {

class Export : public ::testing::Test {
protected:
    void SetUp() override { spoolsBefore_ = spool_files(); }
    void TearDown() override { EXPECT_EQ(spool_files(), spoolsBefore_) << "a spool file was left"; }

    Gif export_file(const Picture &p, const Send &how, Device *given = nullptr) {
        std::unique_ptr<Device> local;
        if (given == nullptr) local = std::make_unique<Device>();
        Device &device = given != nullptr ? *given : *local;
        std::string path = dir_.path("out.gif");
        EXPECT_EQ(device.start(path), 0);
        send_picture(device, p, how);
        device.stop();
        return decode_file(path);
    }

    TempDir dir_;
    std::vector<std::string> spoolsBefore_;
};

void expect_downward_indices(const Gif &gif, const Picture &p) {
    ASSERT_TRUE(gif.ok);
    ASSERT_EQ(gif.width, p.width);
    ASSERT_EQ(gif.height, p.height);
    for (int32_t y = 0; y < p.height; ++y)
        for (int32_t x = 0; x < p.width; ++x)
            ASSERT_EQ(gif.at(x, y), p.row(p.height - 1 - y)[x]) << x << "," << y;
}

TEST_F(Export, PalettePictureOneToOneKeepsEveryIndexAndThePalette) {
    Picture p = indexed_picture(60, 40);
    Gif gif = export_file(p, Send{});
    expect_downward_indices(gif, p);
    EXPECT_EQ(gif.palette, device_palette());
    EXPECT_FALSE(gif.interlaced);
    EXPECT_EQ(gif.transparent, -1);
}

TEST_F(Export, OneCellArrayAndManyBandsWriteTheSameBytes) {
    Picture p = indexed_picture(37, 30);
    const std::string whole = dir_.path("whole.gif");
    const std::string bands = dir_.path("bands.gif");
    {
        Device device;
        device.start(whole);
        send_picture(device, p, Send{});
    }
    {
        Device device;
        device.start(bands);
        Send how;
        how.band = 7;
        send_picture(device, p, how);
    }
    std::vector<uint8_t> a = read_file(whole);
    ASSERT_GT(a.size(), 13u);
    EXPECT_EQ(a, read_file(bands));
    expect_downward_indices(decode_file(bands), p);
}

TEST_F(Export, UpwardRowsStartTwoRowsAboveTheBottom) {
    Picture p = indexed_picture(24, 20);
    for (int32_t band : {0, 1, 6}) {
        Send how;
        how.upward = true;
        how.band = band;
        how.rowsSent = p.height - 1;  // the last bitmap row is never filled
        Gif gif = export_file(p, how);
        ASSERT_TRUE(gif.ok);
        ASSERT_EQ(gif.height, p.height);
        for (int32_t x = 0; x < p.width; ++x) ASSERT_EQ(gif.at(x, 0), 0);
        for (int32_t y = 1; y < p.height; ++y)
            for (int32_t x = 0; x < p.width; ++x)
                ASSERT_EQ(gif.at(x, y), p.row(y - 1)[x]) << "band " << band << " at " << x << "," << y;
    }
}

TEST_F(Export, UpwardRowsBeyondTheBottomStartOverAtTheTop) {
    // Height 4, one row at a time: bitmap rows 2, 1, 0, then 2 again.
    Picture p = indexed_picture(8, 4);
    Send how;
    how.upward = true;
    how.band = 1;
    Gif gif = export_file(p, how);
    ASSERT_TRUE(gif.ok);
    for (int32_t x = 0; x < p.width; ++x) {
        EXPECT_EQ(gif.at(x, 0), 0);
        EXPECT_EQ(gif.at(x, 1), p.row(3)[x]);
        EXPECT_EQ(gif.at(x, 2), p.row(1)[x]);
        EXPECT_EQ(gif.at(x, 3), p.row(2)[x]);
    }
}

TEST_F(Export, TrueColourPixelsMapToTheirNearestEntry) {
    Picture p = true_colour_picture(64, 48);
    Gif gif = export_file(p, Send{});
    ASSERT_TRUE(gif.ok);
    ASSERT_EQ(gif.width, 64);
    ASSERT_EQ(gif.height, 48);
    ASSERT_EQ(gif.palette.size(), 768u);
    for (int32_t y = 0; y < p.height; ++y)
        for (int32_t x = 0; x < p.width; ++x) {
            const uint8_t *source = p.row(p.height - 1 - y) + 3 * x;
            int expected = nearest_entry(source, gif.palette, 256);
            const uint8_t *got = &gif.palette[3 * gif.at(x, y)];
            ASSERT_EQ(distance(source, got), distance(source, &gif.palette[3 * expected]))
                << x << "," << y;
        }
}

TEST_F(Export, InterlacedLargePictureSpoolsAndComesBackTheSame) {
    // Over 349999 pixels: the spool is a temporary file, which must be gone.
    Picture p = indexed_picture(700, 520);
    Device device;
    device.settings->interlace = TOLVA_INTERLACE_ON;
    Gif gif = export_file(p, Send{}, &device);
    EXPECT_TRUE(gif.interlaced);
    expect_downward_indices(gif, p);
}

TEST_F(Export, TransparentColourTakesItsNearestEntryExactly) {
    Picture p = indexed_picture(20, 10);
    Device device;
    device.settings->transparency = TOLVA_TRANSPARENCY_ON;
    const uint8_t colour[3] = {100, 160, 44};
    memcpy(device.settings->transparentColour, colour, 3);
    Gif gif = export_file(p, Send{}, &device);
    ASSERT_TRUE(gif.ok);
    int expected = nearest_entry(colour, device_palette(), 256);
    EXPECT_EQ(gif.transparent, expected);
    EXPECT_EQ(memcmp(&gif.palette[3 * expected], colour, 3), 0);
    expect_downward_indices(gif, p);
}

TEST_F(Export, DefaultSizeFitsThePictureIntoTheSetupBox) {
    // 6.67 x 5 inches at 96 dpi is a 640 x 480 box; 2:1 gives 640 x 320.
    Picture p = indexed_picture(100, 50);
    Send how;
    how.oneToOne = false;
    Gif gif = export_file(p, how);
    ASSERT_TRUE(gif.ok);
    EXPECT_EQ(gif.width, 640);
    EXPECT_EQ(gif.height, 320);
}

TEST_F(Export, OddHeightGainsARow) {
    Picture p = indexed_picture(16, 9);
    Gif gif = export_file(p, Send{});
    ASSERT_TRUE(gif.ok);
    EXPECT_EQ(gif.width, 16);
    EXPECT_EQ(gif.height, 10);
}

// The host's own I/O procedure, set through setup escape 81: a file of its
// own in memory, with a position that seeks move.
std::vector<uint8_t> g_delivered;
size_t g_position = 0;
int g_closes = 0;
intptr_t collect(intptr_t, int32_t operation, intptr_t a, intptr_t b) {
    switch (operation) {
    case 1:
        g_delivered.clear();
        g_position = 0;
        return 1;
    case 2: {
        size_t n = std::min(static_cast<size_t>(b), g_delivered.size() - g_position);
        memcpy(reinterpret_cast<uint8_t *>(a), g_delivered.data() + g_position, n);
        g_position += n;
        return static_cast<intptr_t>(n);
    }
    case 3: {
        const auto *bytes = reinterpret_cast<const uint8_t *>(a);
        size_t n = static_cast<size_t>(b);
        if (g_delivered.size() < g_position + n) g_delivered.resize(g_position + n);
        memcpy(g_delivered.data() + g_position, bytes, n);
        g_position += n;
        return b;
    }
    case 4: {
        int32_t offset;
        memcpy(&offset, reinterpret_cast<const void *>(a), sizeof offset);
        intptr_t base = b == 0 ? 0 : b == 1 ? static_cast<intptr_t>(g_position)
                                            : static_cast<intptr_t>(g_delivered.size());
        if (base + offset < 0) return -1;
        g_position = static_cast<size_t>(base + offset);
        return static_cast<intptr_t>(g_position);
    }
    case 5:
        ++g_closes;
        return 0;
    default:
        return -1;
    }
}

TEST_F(Export, HostProcedureReceivesTheWholeFile) {
    g_closes = 0;
    Picture p = indexed_picture(33, 22);
    Device device;
    ASSERT_EQ(xEscapeSetup(device.setup, 81, 4, reinterpret_cast<void *>(collect), nullptr, 0), 1);
    ASSERT_EQ(device.start("host-name.gif"), 0);
    send_picture(device, p, Send{});
    device.stop();
    EXPECT_EQ(g_closes, 1);
    EXPECT_FALSE(file_exists("host-name.gif"));
    ASSERT_FALSE(g_delivered.empty());
    EXPECT_EQ(g_delivered.back(), 0x3B);
    expect_downward_indices(decode_memory(g_delivered.data(), g_delivered.size()), p);
}

TEST_F(Export, NoFileNameWritesIntoAMemoryBlock) {
    Picture p = indexed_picture(30, 12);
    Device device;
    ASSERT_EQ(device.start(""), 0);
    send_picture(device, p, Send{});
    // Once the device is closed the block is found through the Setup block;
    // term releases it.
    HGLOBAL block = device.settings->exportMemoryBlock;
    ASSERT_NE(block, 0u);
    const auto *data = static_cast<const uint8_t *>(device.settings->exportMemoryData);
    ASSERT_EQ(data, GlobalLock(block));
    expect_downward_indices(decode_memory(data, GlobalSize(block)), p);
    device.stop();
    EXPECT_EQ(device.settings->exportMemoryBlock, 0u);
}

// Status functions. A stop answer to a plain query is followed by the
// detail request (2, 61), which must say stop as well.
int32_t g_stop_at = -1;
std::vector<intptr_t> g_reports;
int32_t stop_at_close(intptr_t, intptr_t a, intptr_t b, intptr_t, intptr_t d, intptr_t, intptr_t) {
    if (a == 2 && b == 61) return 1;
    return a == 0 && b == 0 && d == 0 ? 1 : 0;
}
int32_t stop_at_progress(intptr_t, intptr_t a, intptr_t b, intptr_t, intptr_t d, intptr_t, intptr_t) {
    if (a == 2 && b == 61) return 1;
    if (a == 0 && b == 0 && d != 0) g_reports.push_back(d);
    return a == 0 && b == 0 && d == g_stop_at ? 1 : 0;
}

TEST_F(Export, StopAtCloseDeletesTheFileWith901) {
    Picture p = indexed_picture(16, 8);
    Device device(stop_at_close);
    std::string path = dir_.path("stopped.gif");
    ASSERT_EQ(device.start(path), 0);
    EXPECT_EQ(device.call(0x1), 0);
    device.call(0x3);
    auto window = device_window(0, 0, p.width - 1, p.height - 1);
    device.call(window);
    device.call(0x4);
    auto open = open_picture(p.width, p.height, 8);
    device.call(open);
    auto cells = cell_array(p.row(0), 16, 8, 8, false);
    device.call(cells);
    auto close = close_picture();
    device.call(close);
    EXPECT_TRUE(file_exists(path));
    device.call(0x5);
    EXPECT_EQ(device.call(0x2), TOLVA_ERR_STOPPED);
    EXPECT_EQ(device.errors(), std::vector<int16_t>{TOLVA_ERR_STOPPED});
    EXPECT_FALSE(file_exists(path));
}

// A single cell array outside a picture bracket goes through the whole-bitmap
// road, which reports 20 per conversion step and at least 50 before writing.
TEST_F(Export, WholeBitmapRoadReportsProgressAndStopsAtAnyStep) {
    Picture p = true_colour_picture(100, 50);  // 640 x 320: converted, then stretched
    Send how;
    how.bracket = false;
    how.oneToOne = false;

    g_stop_at = -1;
    g_reports.clear();
    {
        Device device(stop_at_progress);
        Gif gif = export_file(p, how, &device);
        ASSERT_TRUE(gif.ok);
        EXPECT_EQ(gif.width, 640);
        EXPECT_EQ(gif.height, 320);
    }
    EXPECT_EQ(g_reports, (std::vector<intptr_t>{20, 40, 50}));

    for (int32_t step : {20, 40, 50}) {
        g_stop_at = step;
        g_reports.clear();
        Device device(stop_at_progress);
        std::string path = dir_.path("step.gif");
        ASSERT_EQ(device.start(path), 0);
        send_picture(device, p, how);
        device.stop();
        EXPECT_EQ(g_reports.back(), step);
        EXPECT_TRUE(read_file(path).empty()) << "stopped at " << step;
    }
    g_stop_at = -1;
}

TEST_F(Export, WholeBitmapRoadWithNoPictureOpenWritesAnEmptyBitmap) {
    // Outside a bracket the rows that fit are counted against the height of
    // the last picture opened: none, so no row is copied and the image keeps
    // the size of the cell array with every index 0.
    Picture p = indexed_picture(40, 16);
    Send how;
    how.bracket = false;
    Gif gif = export_file(p, how);
    ASSERT_TRUE(gif.ok);
    EXPECT_EQ(gif.width, 40);
    EXPECT_EQ(gif.height, 16);
    EXPECT_EQ(gif.indices, std::vector<uint8_t>(40 * 16, 0));
}

}  // namespace

namespace {

// CMYK and RGB-with-alpha bitmaps become RGB before their colours are
// reduced; a uniform picture shows the conversion in every pixel.
TEST_F(Export, FourByteColourModelsBecomeRGB) {
    struct Case {
        int32_t model;
        uint8_t pixel[4];
        uint8_t rgb[3];
    };
    const Case cases[] = {{2, {255, 0, 0, 0}, {0, 255, 255}},
                          {2, {0, 40, 0, 100}, {155, 155, 155}},
                          {3, {10, 200, 30, 77}, {10, 200, 30}}};
    for (const Case &c : cases) {
        Device device;
        std::string path = dir_.path("model.gif");
        ASSERT_EQ(device.start(path), 0);
        device.call(0x1);
        HGLOBAL bits = GlobalAlloc(TOLVA_GMEM_FLAGS, 4 * 4 * 2);
        auto *pixels = static_cast<uint8_t *>(GlobalLock(bits));
        for (int i = 0; i < 8; ++i) memcpy(pixels + 4 * i, c.pixel, 4);
        RasterWriteCellData(bits, 4, 2, 0, 32, c.model);
        GlobalFree(bits);
        device.call(0x2);
        device.stop();
        Gif gif = decode_file(path);
        ASSERT_TRUE(gif.ok);
        EXPECT_EQ(gif.width, 640);
        EXPECT_EQ(gif.height, 320);
        // The median cut keeps colours at its own precision: each pixel
        // takes the entry nearest its RGB colour.
        int nearest = nearest_entry(c.rgb, gif.palette, 256);
        EXPECT_LE(distance(c.rgb, &gif.palette[3 * nearest]), 3u * 7 * 7) << "model " << c.model;
        for (uint8_t index : gif.indices) ASSERT_EQ(index, nearest) << "model " << c.model;
    }
}

}  // namespace

namespace {

// 1- and 4-bit pictures come out as 8-bit GIFs with their indices intact
// and the first 2^bits entries of the device's table.
TEST_F(Export, PackedPalettePicturesWidenToEightBits) {
    for (int32_t bits : {1, 4}) {
        Picture p;
        p.width = 21;
        p.height = 6;
        p.bits = bits;
        p.stride = ((p.width * bits + 7) / 8 + 3) & ~3;
        p.rows.assign(static_cast<size_t>(p.stride) * p.height, 0);
        const int32_t mask = (1 << bits) - 1;
        auto index = [&](int32_t x, int32_t y) { return (x * 5 + y * 3) & mask; };
        for (int32_t y = 0; y < p.height; ++y)
            for (int32_t x = 0; x < p.width; ++x) {
                int32_t bit = x * bits;
                p.rows[static_cast<size_t>(y) * p.stride + bit / 8] |=
                    static_cast<uint8_t>(index(x, y) << (8 - bits - bit % 8));
            }
        Gif gif = export_file(p, Send{});
        ASSERT_TRUE(gif.ok) << bits;
        ASSERT_EQ(gif.width, p.width);
        for (int32_t y = 0; y < p.height; ++y)
            for (int32_t x = 0; x < p.width; ++x)
                ASSERT_EQ(gif.at(x, y), index(x, p.height - 1 - y)) << bits << ": " << x << "," << y;
        std::vector<uint8_t> expected = device_palette();
        std::fill(expected.begin() + 3 * (1 << bits), expected.end(), 0);
        EXPECT_EQ(gif.palette, expected) << bits;
    }
}

}  // namespace

namespace {

TEST_F(Export, FourBytePixelsMapToTheirNearestEntry) {
    Picture rgb = true_colour_picture(40, 30);
    Picture p;
    p.width = 40;
    p.height = 30;
    p.bits = 32;
    p.stride = 160;
    p.rows.assign(160 * 30, 0x5A);  // the fourth byte plays no part
    for (int32_t y = 0; y < 30; ++y)
        for (int32_t x = 0; x < 40; ++x)
            memcpy(&p.rows[static_cast<size_t>(y) * 160 + 4 * x], rgb.row(y) + 3 * x, 3);
    Gif gif = export_file(p, Send{});
    ASSERT_TRUE(gif.ok);
    ASSERT_EQ(gif.width, 40);
    for (int32_t y = 0; y < 30; ++y)
        for (int32_t x = 0; x < 40; ++x) {
            const uint8_t *source = rgb.row(29 - y) + 3 * x;
            int expected = nearest_entry(source, gif.palette, 256);
            ASSERT_EQ(distance(source, &gif.palette[3 * gif.at(x, y)]),
                      distance(source, &gif.palette[3 * expected]))
                << x << "," << y;
        }
}

}  // namespace

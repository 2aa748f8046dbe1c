// The format query, and OutputPicture with a host callback that delivers
// bands: band order, row order, progress per band, a stop in the middle.
#include <gtest/gtest.h>

#include <cmath>

#include "test_host.h"
#include "tolva/output.h"
#include "tolva/stream.h"

using namespace test_host;

namespace {

// The host's dialog (GetRasterInfo, in pixels) and the writer (the format
// query, in inches) describe one picture in different units; under every
// size and resolution mode, with and without a resolution of the picture's
// own, the dialog must predict exactly the size written and save the same
// settings.
TEST(QueryCellFormat, TheDialogPredictsTheWrittenSize) {
    setenv("DISPLAYINFO", "1280x1024x100x100", 1);
    for (int32_t sizeMode = 600; sizeMode <= 603; ++sizeMode) {
        for (int32_t resolutionMode = 307; resolutionMode <= 310; ++resolutionMode) {
            for (int32_t dpi : {0, 120}) {
                Device dialog, writer;
                for (SetupBlock *block : {dialog.settings, writer.settings}) {
                    block->sizeMode = sizeMode;
                    block->resolutionMode = resolutionMode;
                }
                double width = dpi != 0 ? 1000.0 / dpi : 1000.0;
                double height = dpi != 0 ? 600.0 / dpi : 600.0;
                int32_t resolution = dpi;
                int16_t bits = 0;
                ASSERT_EQ(QueryCellFormat(&width, &height, &bits, &resolution, nullptr, nullptr),
                          0);
                const int32_t input[7] = {100, 0, dpi, 1000, 600, 1280, 1024};
                int32_t predicted[3] = {};
                GetRasterInfo(dialog.setup, input, predicted);
                const auto written = std::make_tuple(static_cast<int32_t>(std::ceil(width)),
                                                     static_cast<int32_t>(std::ceil(height)));
                EXPECT_EQ(std::make_tuple(predicted[0], predicted[1]), written)
                    << sizeMode << " " << resolutionMode << " " << dpi;
                const SetupBlock &a = *dialog.settings, &b = *writer.settings;
                EXPECT_EQ(std::make_tuple(a.width, a.height, a.xResolution, a.yResolution),
                          std::make_tuple(b.width, b.height, b.xResolution, b.yResolution))
                    << sizeMode << " " << resolutionMode << " " << dpi;
            }
        }
    }
    unsetenv("DISPLAYINFO");
}

// The host's picture: every row holds its own bottom-up row number. A band
// lives until the next one is asked for or the host's terminate runs.
struct Offscreen {
    int32_t width, height, bandRows;
    HGLOBAL band;
    std::vector<std::pair<intptr_t, intptr_t>> asked;
};

intptr_t host_callback(int32_t operation, void *record, intptr_t lower, intptr_t upper) {
    auto *host = static_cast<Offscreen *>(record);
    if (operation == 0) {
        *reinterpret_cast<TolvaOffscreenQuery *>(lower) = {host->width / 96.0, host->height / 96.0,
                                                           96, 0};
        return 0;
    }
    host = static_cast<Offscreen *>(static_cast<TolvaOffscreen *>(record)->hostContext);
    if (host->band != 0) GlobalFree(host->band);
    host->band = 0;
    if (operation != 3) return operation == 1 ? host->bandRows : 1;
    host->asked.emplace_back(lower, upper);
    size_t stride = (static_cast<size_t>(host->width) + 3) & ~size_t{3};
    host->band = GlobalAlloc(TOLVA_GMEM_FLAGS, static_cast<uint32_t>(stride * (upper - lower)));
    auto *bits = static_cast<uint8_t *>(GlobalLock(host->band));
    for (intptr_t row = lower; row < upper; ++row, bits += stride)
        memset(bits, static_cast<int>(row & 255), static_cast<size_t>(host->width));
    return static_cast<intptr_t>(host->band);
}

// Bands are asked for from the top, each reports its progress, an odd height
// is asked for even, a stop ends the image without its trailer (and runs the
// host's terminate), and no band height is 27 with nothing written.
TEST(OutputPicture, BandsProgressAndStops) {
    struct Case {
        int32_t width, height, bandRows, result;
        std::vector<std::pair<intptr_t, intptr_t>> asked;
        std::vector<intptr_t> progress;
    } cases[] = {
        {40, 50, 16, 0, {{34, 50}, {18, 34}, {2, 18}, {0, 2}}, {25, 50, 75, 100}},
        {8, 7, 100, 0, {{0, 8}}, {100}},
        {700, 520, 104, TOLVA_ERR_STOPPED, {{416, 520}, {312, 416}}, {20, 40}},  // stopped at 40
        {8, 8, 0, TOLVA_ERR_NO_PICTURE, {}, {}},
    };
    size_t spools = spool_files().size();
    TempDir dir;
    for (const Case &c : cases) {
        Device device;
        device.settings->statusRecord = device.status;
        bool interlace = c.width == 700;  // large enough to spool through a file
        device.settings->interlace = interlace ? TOLVA_INTERLACE_ON : 0;
        g_stop_at = c.result == TOLVA_ERR_STOPPED ? 40 : -1;
        g_reports.clear();
        Offscreen host{c.width, c.height, c.bandRows, 0, {}};
        HGLOBAL stream = zunOpen(dir.path("bands.gif").c_str(), nullptr, 4097);
        EXPECT_EQ(OutputPicture(stream, &host, host_callback), c.result);
        zunClose(stream);
        EXPECT_EQ(host.asked, c.asked);
        EXPECT_EQ(g_reports, c.progress);
        EXPECT_EQ(host.band, 0u) << "terminate ran";
        std::vector<uint8_t> bytes = read_file(dir.path("bands.gif"));
        EXPECT_EQ(!bytes.empty() && bytes.back() == 0x3B, c.result == 0);
        EXPECT_TRUE(c.bandRows != 0 || bytes.empty());
        Gif gif = decode(bytes);
        int height = c.result == 0 ? (c.height + 1) & ~1 : 0;
        ASSERT_EQ(gif.height, height);
        EXPECT_EQ(gif.interlaced, interlace && height != 0);
        for (int y = 0; y < height; ++y)
            ASSERT_EQ(gif.indices[y * c.width], (height - 1 - y) & 255) << c.height;
    }
    EXPECT_EQ(spool_files().size(), spools);
    g_stop_at = -1;
}

}  // namespace

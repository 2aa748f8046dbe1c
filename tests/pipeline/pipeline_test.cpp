// End to end: a host drives the device through the opcode protocol (or hands
// a whole bitmap to ExportCellData, or renders bands for OutputPicture), and
// the GIF it finds is decoded with giflib and compared with pixels computed
// here; then what a careless host gets, and a second thread calling in.
//
// Orientation: the device collects rows into a bottom-up bitmap and the
// writer sends its last row first. Rows sent downward land at bitmap rows 0,
// 1, ..., so the host's first row becomes the GIF's bottom row. Rows sent
// upward start at bitmap row height - 2, so the host's first row becomes the
// GIF's second row and the GIF's top row stays index 0.
#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <cmath>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>
#include <tuple>

#include "test_host.h"
#include "tolva/output.h"
#include "tolva/stream.h"

using namespace test_host;

namespace {

// The host's own I/O procedure (setup escape 81), which keeps the file under
// a name of its own and can neither read it back nor seek: the writer needs
// neither.
std::string g_host_path;
FILE *g_host_file = nullptr;
intptr_t host_io(intptr_t, int32_t operation, intptr_t data, intptr_t size) {
    if (operation == 1) return (g_host_file = fopen(g_host_path.c_str(), "wb")) != nullptr;
    if (operation == 3) return fwrite(reinterpret_cast<void *>(data), 1, size_t(size), g_host_file);
    return operation == 5 ? fclose(g_host_file) : -1;
}

// The direct export road: the host hands a whole bitmap over, bottom row
// first; a picture's rows in the host's order make the same image as rows
// sent downward.
int32_t export_cell(const Picture &p, int16_t resolution, const char *name, HGLOBAL setup) {
    HGLOBAL bits = GlobalAlloc(TOLVA_GMEM_FLAGS, static_cast<uint32_t>(p.rows.size()));
    memcpy(GlobalLock(bits), p.rows.data(), p.rows.size());
    HGLOBAL palette = GlobalAlloc(TOLVA_GMEM_FLAGS, 768);
    memcpy(GlobalLock(palette), device_palette().data(), 768);
    HGLOBAL colours = p.bits <= 8 ? palette : 0;
    TolvaPicture information = {};
    TolvaPicture cell = {
        int16_t(p.bits), int16_t(p.width), int16_t(p.height), resolution, 0, 0, colours, bits};
    intptr_t arguments[8] = {0, 0, static_cast<intptr_t>(setup), 0, 0, 0, 0, 0};
    int32_t result = ExportCellData(name, &information, &cell, arguments);
    GlobalFree(bits);
    GlobalFree(palette);
    return result;
}

enum Road { kFile, kMemory, kHostProcedure, kCellData };

class Export : public ::testing::Test {
protected:
    void TearDown() override {
        g_stop_at = -1;
        EXPECT_EQ(spool_files().size(), spools_) << "a spool file was left";
    }

    // One export from init to term; the bytes the road delivered.
    std::vector<uint8_t> run(Device &device, const Picture &p, const Send &how, Road road = kFile) {
        unlink(path_.c_str());
        g_host_path = dir_.path("host.gif");
        if (road == kCellData) {
            EXPECT_EQ(export_cell(p, 96, path_.c_str(), device.setup), 0);
            return read_file(path_);
        }
        void *io = reinterpret_cast<void *>(host_io);
        EXPECT_TRUE(road != kHostProcedure || xEscapeSetup(device.setup, 81, 4, io, nullptr, 0));
        EXPECT_EQ(device.start(road == kMemory ? "" : path_), 0);
        send_picture(device, p, how);
        std::vector<uint8_t> bytes = read_file(road == kHostProcedure ? g_host_path : path_);
        // Once the device is closed a memory block is found through the Setup
        // block; term releases it.
        const auto *data = static_cast<const uint8_t *>(device.settings->exportMemoryData);
        if (road == kMemory && data != nullptr)
            bytes.assign(data, data + GlobalSize(device.settings->exportMemoryBlock));
        errors_.clear();  // the error stack, oldest first
        for (int32_t i = 0; lpEMData != nullptr && i < std::min(lpEMData->errorCount, 10); ++i)
            errors_.push_back(lpEMData->errors[i].code);
        device.stop();
        EXPECT_EQ(device.settings->exportMemoryBlock, 0u);
        EXPECT_TRUE(road == kFile || access(path_.c_str(), F_OK) != 0) << "a file was written";
        return bytes;
    }
    std::vector<uint8_t> run(const Picture &p, const Send &how = {}) {
        Device device;
        return run(device, p, how);
    }

    TempDir dir_;
    std::string path_ = dir_.path("out.gif");
    size_t spools_ = spool_files().size();
    std::vector<int16_t> errors_;  // the device's error stack at close
};

// Every road writes the same bytes for a picture however it is cut into cell
// arrays; they decode to the picture's own indices (palette pictures, widened
// to 8 bits with the device's table) or to each pixel's nearest entry.
TEST_F(Export, DepthsDirectionsBandsInterlaceAndRoadsAgree) {
    const uint8_t transparent[3] = {100, 160, 44};  // near entry 100, (100, 155, 44)
    std::map<std::tuple<int32_t, bool, bool>, std::vector<uint8_t>> first;
    for (int32_t bits : {1, 4, 8, 24, 32})
        for (bool upward : {false, true})
            for (int32_t band : {0, 1, 7})
                for (bool interlace : {false, true})
                    for (Road road : {kFile, kMemory, kHostProcedure, kCellData}) {
                        SCOPED_TRACE(testing::Message() << bits << " bits " << upward << band
                                                        << interlace << " road " << road);
                        Picture p = make_picture(37, 30, bits);
                        Device device;
                        device.settings->interlace = interlace ? TOLVA_INTERLACE_ON : 0;
                        bool transparency = bits == 8 && upward == interlace;
                        device.settings->transparency = transparency ? TOLVA_TRANSPARENCY_ON : 0;
                        memcpy(device.settings->transparentColour, transparent, 3);
                        // On the way up the bitmap's last row is never filled.
                        Send how{.band = band, .upward = upward, .rowsSent = upward ? 29 : -1};
                        if (road == kCellData && (upward || band != 0)) continue;
                        std::vector<uint8_t> bytes = run(device, p, how, road);
                        auto &reference = first[std::make_tuple(bits, upward, interlace)];
                        if (reference.empty()) reference = bytes;
                        // A memory block may be longer than what was written.
                        if (road == kMemory) bytes.resize(std::min(bytes.size(), reference.size()));
                        ASSERT_EQ(bytes, reference);
                        if (band != 0 || road != kFile) continue;

                        std::vector<int32_t> rows(upward ? 30 : 0);
                        for (int32_t y = 0; upward && y < 30; ++y) rows[y] = y - 1;
                        Gif gif = decode(bytes);
                        ASSERT_EQ(mismatch(gif, p, rows), "");
                        EXPECT_EQ(gif.interlaced, interlace);
                        std::vector<uint8_t> palette = device_palette();
                        for (size_t i = bits < 8 ? 3u << bits : 768; i < 768; ++i) palette[i] = 0;
                        // The transparent colour replaces its nearest entry exactly.
                        int entry = transparency ? nearest_entry(transparent, palette) : -1;
                        if (transparency) memcpy(&palette[3 * entry], transparent, 3);
                        EXPECT_EQ(gif.transparent, entry);
                        EXPECT_EQ(bits > 8 ? palette : gif.palette, palette);  // of 256 entries
                    }
}

// A single cell array outside a picture bracket (or a bitmap handed to
// ExportCellData) goes through the whole-bitmap road, which reports 20 per conversion step and at least 50 before writing;
// a stop at any step writes nothing. With no picture open, the rows that fit
// are counted against the height of the last picture opened: none, so the
// image keeps the size of the cell array with every index 0.
TEST_F(Export, WholeBitmapRoadReportsProgressAndStopsAtAnyStep) {
    Picture p = make_picture(100, 50, 24);  // 640 x 320 by default: converted, then stretched
    for (intptr_t step : {-1, 20, 40, 50}) {
        g_stop_at = step;
        g_reports.clear();
        Gif gif = decode(run(p, {.oneToOne = false, .bracket = false}));
        std::vector<intptr_t> reports = {20, 40, 50};
        reports.resize(step == 20 ? 1 : step == 40 ? 2 : 3);
        EXPECT_EQ(g_reports, reports) << step;
        EXPECT_EQ(gif.width * gif.height, step < 0 ? 640 * 320 : 0) << step;
    }
    g_stop_at = -1;
    Picture q = make_picture(40, 16, 8);
    EXPECT_EQ(mismatch(decode(run(q, {.bracket = false})), q, std::vector<int32_t>(16, -1)), "");
    // ExportCellData writes to a memory block when it has no name.
    Device device;
    std::vector<uint8_t> bytes = run(device, q, {}, kCellData);
    ASSERT_EQ(export_cell(q, 96, "", device.setup), 0);
    const auto *data = static_cast<const uint8_t *>(device.settings->exportMemoryData);
    EXPECT_EQ(std::vector<uint8_t>(data, data + bytes.size()), bytes);
    GlobalFree(device.settings->exportMemoryBlock);
}

using BadInput = Export;

// What a careless host gets: before init there is no device at all (opcodes
// out of order within one are the dispatch table's to refuse); a picture
// opened and never closed gives way to the next (its bitmap freed, as the
// leak checker of the sanitized build sees); rows beyond the picture are
// dropped; without a colour table every entry is black and the indices stay;
// a picture of height 0 writes nothing, and that height is saved.
TEST_F(BadInput, CarelessHostsGetWhatTheyAskedFor) {
    Picture p = make_picture(16, 12, 8), taller = make_picture(16, 17, 8);
    Device device;
    EXPECT_EQ(device.call(cell_array(p.row(0), 16, 12, 8, false)), 0);
    EXPECT_EQ(lpEMData, nullptr);
    EXPECT_EQ(mismatch(decode(run(p, {.abandoned = 500})), p), "");
    taller.height = 12;
    EXPECT_EQ(run(taller, {.rowsSent = 17}), run(p));
    Gif gif = decode(run(p, {.palette = false}));
    EXPECT_EQ(gif.palette, std::vector<uint8_t>(768, 0));
    EXPECT_EQ(mismatch(gif, p), "");
    taller.height = 0;
    EXPECT_TRUE(run(device, taller, {.rowsSent = 6}).empty());
    EXPECT_EQ(access(path_.c_str(), F_OK), 0);
    EXPECT_EQ(device.settings->height, 0.0);
}

// A refused export leaves no file and one error: a stop answer to the plain
// query of close (901); a path that cannot be written, or a name longer than
// the 143 characters of its field (303: not even the name cut to the field is
// written); a side beyond the picture record's 16 signed bits (300).
TEST_F(BadInput, RefusedExportsLeaveNoFileAndOneError) {
    const std::string longest = dir_.path(std::string(143 - dir_.dir.size() - 1, 'n'));
    const struct {
        int32_t width, height;
        std::string path;
        intptr_t stop;
        int16_t error;
    } cases[] = {
        {16, 8, path_, 0, TOLVA_ERR_STOPPED},
        {16, 8, "/nonexistent-tolva-dir/out.gif", -1, TOLVA_ERR_STREAM},
        {16, 8, longest + "n", -1, TOLVA_ERR_STREAM},
        {32768, 2, path_, -1, TOLVA_ERR_MEMORY},
        {1, 32768, path_, -1, TOLVA_ERR_MEMORY},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.width << " x " << c.height << " " << c.path);
        g_stop_at = c.stop;
        path_ = c.path;
        EXPECT_TRUE(run(make_picture(c.width, c.height, 8)).empty());
        EXPECT_EQ(errors_, std::vector<int16_t>{c.error});
        EXPECT_NE(access(path_.c_str(), F_OK), 0);
    }
    EXPECT_TRUE(std::filesystem::is_empty(dir_.dir));
    // The longest name and the largest sides are written; an odd height gains
    // the black row that makes every picture's height even.
    g_stop_at = -1;
    path_ = longest;
    Picture wide = make_picture(32767, 2, 8);
    EXPECT_EQ(mismatch(decode(run(wide)), wide), "");
    Gif tall = decode(run(make_picture(1, 32767, 8)));
    EXPECT_EQ(std::make_tuple(tall.ok, tall.width, tall.height), std::make_tuple(true, 1, 32768));
}

// The host's dialog (GetRasterInfo, in pixels) and the writer (the format
// query, in inches) describe one picture in different units; under every
// size and resolution mode, with and without a resolution of the picture's
// own, the dialog must predict exactly the size written and save the same
// settings.
TEST(QueryCellFormat, TheDialogPredictsTheWrittenSize) {
    setenv("DISPLAYINFO", "1280x1024x100x100", 1);
    for (int32_t sizeMode = 600; sizeMode <= 603; ++sizeMode)
        for (int32_t resolutionMode = 307; resolutionMode <= 310; ++resolutionMode)
            for (int32_t dpi : {0, 120}) {
                SCOPED_TRACE(testing::Message() << sizeMode << " " << resolutionMode << " " << dpi);
                Device dialog, writer;
                for (SetupBlock *block : {dialog.settings, writer.settings})
                    block->sizeMode = sizeMode, block->resolutionMode = resolutionMode;
                double width = dpi ? 1000.0 / dpi : 1000.0, height = dpi ? 600.0 / dpi : 600.0;
                int32_t resolution = dpi, predicted[3] = {};
                int16_t bits = 0;
                ASSERT_EQ(QueryCellFormat(&width, &height, &bits, &resolution, nullptr, nullptr),
                          0);
                const int32_t input[7] = {100, 0, dpi, 1000, 600, 1280, 1024};
                GetRasterInfo(dialog.setup, input, predicted);
                EXPECT_EQ(std::make_tuple(predicted[0], predicted[1]),
                          std::make_tuple(int32_t(std::ceil(width)), int32_t(std::ceil(height))));
                const SetupBlock &a = *dialog.settings, &b = *writer.settings;
                EXPECT_EQ(std::make_tuple(a.width, a.height, a.xResolution, a.yResolution),
                          std::make_tuple(b.width, b.height, b.xResolution, b.yResolution));
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

// One export per process: a thread that calls in while another's export is
// inside the library is refused with TOLVA_ERR_BUSY and changes nothing;
// calls that follow one another may come from any thread. The export's
// status function, told of its one band before the trailer, is where it
// waits for the other thread.
std::mutex g_mutex;
std::condition_variable g_changed;
bool g_inside = false;   // the export waits inside the library
bool g_release = false;  // the other thread is done
int32_t g_nested_call = 0;

// Says "go on" to everything; at the band's progress report (100) it calls
// back in on its own thread, then waits for the other thread.
int32_t meeting_status(intptr_t, intptr_t a, intptr_t b, intptr_t, intptr_t d, intptr_t, intptr_t) {
    if (a != 0 || b != 0 || d != 100 || g_release) return 0;
    Block query(0xf03);
    g_nested_call = RASTER_dd_entry32(0, 2, query.bytes.data());
    std::unique_lock<std::mutex> lock(g_mutex);
    g_inside = true;
    g_changed.notify_all();
    g_changed.wait(lock, [] { return g_release; });
    return 0;
}

// Every host entry that touches state, called while another holds the library.
std::vector<int32_t> calls_while_busy(Device &other, HGLOBAL exporting) {
    intptr_t arguments[8] = {0, 0, static_cast<intptr_t>(other.setup), 0, 0, 0, 0, 0};
    TolvaPicture cell = {8, 4, 2, 96, 0, 0, 0, 0}, information = {};
    Block opcode(0x2);
    int32_t value = 200;
    return {
        other.entry(0, 0, other.init),
        RASTER_dd_entry32(0, 2, opcode.bytes.data()),
        RASTER_dd_entry32(0, -1, nullptr),
        dd_entry32(0, 0, other.init),
        dd_entry32(0, 2, opcode.bytes.data()),
        dd_entry32(0, -1, nullptr),
        static_cast<int32_t>(CreateSetup(0, "", "", 0)),
        EditSetup(exporting, 5),
        DestroySetup(exporting),
        xEscapeSetup(exporting, TOLVA_ESCAPE_X_RESOLUTION, 4, &value, nullptr, 0),
        ExportCellData("", &information, &cell, arguments),
    };
}

TEST(OneExportPerProcess, ASecondThreadIsRefusedAndTheExportStaysIntact) {
    TempDir dir;
    Picture p = make_picture(40, 30, 24);
    // The Setup block made last is the current one, through whose status
    // record the picture's bands are reported.
    Device other, exporting;
    exporting.status[TOLVA_STATUS_FUNCTION] = reinterpret_cast<intptr_t>(meeting_status);
    exporting.settings->statusRecord = exporting.status;
    other.init[TOLVA_INIT_SETUP] = static_cast<intptr_t>(other.setup);
    const int16_t dpi = exporting.settings->xResolution;

    // The worker inits the device and sends the picture.
    std::thread worker([&] {
        ASSERT_EQ(exporting.start(dir.path("a.gif")), 0);
        send_picture(exporting, p, {});
    });
    {
        std::unique_lock<std::mutex> lock(g_mutex);
        g_changed.wait(lock, [] { return g_inside; });
    }
    EMData *device = lpEMData;
    std::vector<int32_t> refused = calls_while_busy(other, exporting.setup);
    uint32_t version = 0;
    intptr_t entry = 0;
    EXPECT_EQ(RASTER_dd_entry32(0, -2, &version), 4);
    EXPECT_EQ(RASTER_dd_entry(-3, &entry, nullptr), 0);
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        g_release = true;
        g_changed.notify_all();
    }
    worker.join();

    std::vector<int32_t> busy(refused.size(), TOLVA_ERR_BUSY);
    busy[6] = 0;  // CreateSetup has only a handle to answer with
    EXPECT_EQ(refused, busy);
    EXPECT_EQ(version, TOLVA_FILTER_VERSION) << "the version is answered at any time";
    EXPECT_EQ(entry, reinterpret_cast<intptr_t>(&RASTER_dd_entry32));
    EXPECT_EQ(g_nested_call, TOLVA_ERR_BUSY) << "a callback that calls back in is refused";
    EXPECT_EQ(lpEMData, device) << "the refused init took no device";
    EXPECT_EQ(exporting.settings->xResolution, dpi) << "the refused escape changed nothing";
    EXPECT_EQ(lpEMData->errorCount, 0);
    EXPECT_EQ(mismatch(decode_file(dir.path("a.gif")), p), "");

    // Term from this thread ends what the worker began; then this thread
    // exports on its own.
    exporting.stop();
    EXPECT_EQ(lpEMData, nullptr);
    ASSERT_EQ(other.start(dir.path("b.gif")), 0);
    send_picture(other, p, {});
    other.stop();
    EXPECT_EQ(mismatch(decode_file(dir.path("b.gif")), p), "");
}

}  // namespace

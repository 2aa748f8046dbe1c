// One export per process: a thread that calls in while another's export is
// inside the library is refused with TOLVA_ERR_BUSY and changes nothing;
// calls that follow one another may come from any thread.
// The export's status function, told of its one band before the trailer, is
// where it waits for the other thread.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "test_host.h"

using namespace test_host;

namespace {

std::mutex g_mutex;
std::condition_variable g_changed;
bool g_inside = false;   // the export waits inside the library
bool g_release = false;  // the other thread is done
int32_t g_nested_call = 0, g_nested_version = 0;

// Says "go on" to everything; at the band's progress report (100) it calls
// back in on its own thread, then waits for the other thread.
int32_t meeting_status(intptr_t, intptr_t a, intptr_t b, intptr_t, intptr_t d, intptr_t, intptr_t) {
    if (a != 0 || b != 0 || d != 100 || g_release) return 0;
    Block query(0xf03);
    g_nested_call = RASTER_dd_entry32(0, 2, query.bytes.data());
    uint32_t version = 0;
    g_nested_version = RASTER_dd_entry32(0, -2, &version) == 4 ? static_cast<int32_t>(version) : 0;
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
    EXPECT_EQ(g_nested_version, static_cast<int32_t>(TOLVA_FILTER_VERSION));
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

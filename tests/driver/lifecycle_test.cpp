// The driver's life from init to term, for both variants.
#include <unistd.h>

#include <string>
#include <tuple>

#include "host_fixture.h"

namespace {

using Lifecycle = DriverTest;

TEST_F(Lifecycle, InitFillsTheCapabilitiesReportsOnceAndTermClosesAnOpenDevice) {
    g_answers = {5};
    settings->colourMode = TOLVA_COLOUR_INVERT_LUMINANCE;
    ASSERT_EQ(start(40, true), 0);
    EXPECT_EQ(g_calls, (std::vector<Call>{{77, 0, -2, 100, 0, 0, 0}})) << "no detail asked";
    // Slot 47 holds the colour conversion mode; slots the filter has no
    // answer for keep the host's own values.
    EXPECT_EQ(std::tuple(caps[0], caps[6], caps[38], caps[47], caps[60]),
              std::tuple(100, 12345, 1, 4, 12345));
    // Other colour modes give 0; a long name is cut to its field; without a
    // context there is no report, and an idle device is not closed at term.
    const std::string name = "/nonexistent-tolva-dir/" + std::string(300, 'n');
    init[TOLVA_INIT_FILE_NAME] = reinterpret_cast<intptr_t>(name.c_str());
    status[TOLVA_STATUS_CONTEXT] = 0;
    settings->colourMode = 108;
    EXPECT_EQ(RASTER_dd_entry32(0, -1, nullptr) + RASTER_dd_entry32(0, 0, init), 0);
    EXPECT_EQ(caps[47], 0);
    EXPECT_EQ(lpEMData->fileName, name.substr(0, 143));
    EXPECT_EQ(g_calls.size(), 1u);
    call(TOLVA_OP_OPEN_DEVICE);
    EXPECT_EQ(RASTER_dd_entry32(0, -1, nullptr), 0);
    EXPECT_EQ(g_calls.size(), 2u) << "closing asks the host whether to stop";
}

TEST_F(Lifecycle, TheExportVariantTakesTheHostsNameAndEndsWith300) {
    std::string name = "/tmp/tolva-export-" + std::to_string(getpid()) + ".gif";
    init[TOLVA_EXPORT_INIT_FILE_NAME] = reinterpret_cast<intptr_t>(name.data());
    init[TOLVA_EXPORT_INIT_SETUP] = static_cast<intptr_t>(setup);
    ASSERT_EQ(dd_entry32(0, 0, init), 0);
    EXPECT_EQ(name[0], '\0') << "the host's name is cleared";
    EXPECT_EQ(dd_entry32(0, -1, nullptr), 300) << "no metafile on this platform";
    EXPECT_EQ(unlink(settings->fileName), 0) << "the output was opened on the name";
    // A name longer than the field is refused rather than cut.
    std::string tooLong = "/tmp/" + std::string(140, 'n');
    init[TOLVA_EXPORT_INIT_FILE_NAME] = reinterpret_cast<intptr_t>(tooLong.data());
    init[TOLVA_EXPORT_INIT_SETUP] = static_cast<intptr_t>(setup);
    EXPECT_EQ(dd_entry32(0, 0, init), TOLVA_ERR_STREAM);
    EXPECT_NE(access(tooLong.substr(0, 143).c_str(), F_OK), 0) << "no file under the cut name";
    EXPECT_EQ(settings->outputStream, 0u);
    lpRaster = nullptr;
}

// The Setup block is the host's: once it is destroyed, before term or after
// it, the functions that fall back on the device's Setup block find none
// (the sanitized build would see any touch of the freed block).
TEST(SetupAfterDestroy, CallsWithoutAHandleTouchNoFreedBlock) {
    for (bool beforeTerm : {false, true}) {
        HGLOBAL setup = CreateSetup(0, "/nonexistent/tolva.ini", "", 0);
        intptr_t init[TOLVA_INIT_WORDS] = {};
        init[TOLVA_INIT_REPLY_SIZE] = 16;
        init[TOLVA_INIT_SETUP] = static_cast<intptr_t>(setup);
        ASSERT_EQ(RASTER_dd_entry32(0, 0, init), 0);
        EXPECT_NE(lpSetup, nullptr);
        if (!beforeTerm) RASTER_dd_entry32(0, -1, nullptr);
        EXPECT_EQ(DestroySetup(setup), 0);
        EXPECT_EQ(lpSetup, nullptr);
        EXPECT_EQ(lpRaster, nullptr);

        double width = 3.0, height = 2.0, size[2] = {-1.0, -1.0};
        int16_t bits = 0;
        int32_t resolution = 96;
        EXPECT_EQ(LimitCheck(), 0);
        EXPECT_EQ(LoadProfile(0), 0);
        EXPECT_EQ(QueryCellFormat(&width, &height, &bits, &resolution, nullptr, nullptr),
                  TOLVA_ERR_NO_SETUP);
        EXPECT_EQ(RasterAdjustAspect(size, 3.0, 2.0), 0);
        EXPECT_EQ(width * 10 + height + size[0] + size[1], 32.0 - 2.0) << "nothing changed";
        if (beforeTerm) {
            call(0x1);  // the device opens a memory stream of its own
            EXPECT_EQ(RASTER_dd_entry32(0, -1, nullptr), 0);
        }
        EXPECT_EQ(lpEMData, nullptr);
    }
}

}  // namespace

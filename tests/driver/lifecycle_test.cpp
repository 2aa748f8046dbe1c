// The driver's life from init to term, for both variants.
#include <unistd.h>

#include <string>

#include "host_fixture.h"

namespace {

using Lifecycle = DriverTest;

TEST_F(Lifecycle, InitFillsTheCapabilitiesReportsOnceAndTermClosesAnOpenDevice) {
    g_answers = {5};
    settings->colourMode = TOLVA_COLOUR_INVERT_LUMINANCE;
    ASSERT_EQ(start(40, true), 0);
    EXPECT_EQ(g_calls, (std::vector<Call>{{77, 0, -2, 100, 0, 0, 0}})) << "no detail asked";
    const int32_t K = 12345;  // the host's own values; slot 47 holds the colour conversion mode
    const int32_t want[61] = {
        100, -1, -1, -1, -1, 0,  K,  K,  K,  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 0, 0,
        0,   0,  -1, -1, -1, -1, -1, -1, -1, K,  0,  -1, -1, 0,  0,  -1, -1, 1,  1,  0, -1,
        K,   K,  0,  -1, K,  4,  K,  K,  K,  K,  K,  K,  K,  0,  0,  -1, 0,  -1, K};
    for (int slot = 0; slot < 61; ++slot) EXPECT_EQ(caps[slot], want[slot]) << "slot " << slot;
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
    lpRaster = nullptr;
}

}  // namespace

// The entry protocol and the driver's life from init to term, for both
// variants.
#include <unistd.h>

#include <string>

#include "host_fixture.h"

namespace {

using Lifecycle = DriverTest;

TEST(Entry, VersionAndEntryQueriesThroughBothEntries) {
    uint32_t version = 0;
    void *entry = nullptr;
    EXPECT_EQ(RASTER_dd_entry(-2, &version, nullptr), 0);
    EXPECT_EQ(version, 0x02000005u);
    EXPECT_EQ(RASTER_dd_entry(-3, &entry, nullptr), 0);
    EXPECT_EQ(entry, reinterpret_cast<void *>(&RASTER_dd_entry32));
    version = 0;
    EXPECT_EQ(dd_entry(-2, &version, nullptr), 0);
    EXPECT_EQ(version, 0x02000005u);
    EXPECT_EQ(dd_entry(-3, &entry, nullptr), 0);
    EXPECT_EQ(entry, reinterpret_cast<void *>(&dd_entry32));

    uint8_t out[8] = {0, 0, 0, 0, 0xee, 0xee, 0xee, 0xee};
    EXPECT_EQ(RASTER_dd_entry32(0, -2, out), 4);
    EXPECT_EQ(dd_entry32(0, -2, out), 4);
    memcpy(&version, out, 4);
    EXPECT_EQ(version, 0x02000005u);
    EXPECT_EQ(out[4], 0xee) << "the version is exactly 4 bytes";

    EXPECT_EQ(RASTER_dd_entry(0, out, nullptr), 0);
    EXPECT_EQ(RASTER_dd_entry32(0, 1, out), 0);
    EXPECT_EQ(dd_entry32(0, 1, out), 0);
    EXPECT_EQ(RASTER_dd_entry32(0, 9, out), 0);
    EXPECT_EQ(FilterVersion, 1);
    EXPECT_EQ(FilterID, 19);
}

TEST(Entry, OpcodesBeforeInitRunNothing) {
    ASSERT_EQ(lpEMData, nullptr);
    Op open(0x1);
    EXPECT_EQ(RASTER_dd_entry32(0, 2, open.bytes), 0);
    EXPECT_EQ(lpEMData, nullptr);
    EXPECT_EQ(dd_entry32(0, 2, open.bytes), 0) << "no Common block: nothing runs";
}

TEST_F(Lifecycle, InitFillsTheCapabilitiesAndKeepsTheHostsOtherSlots) {
    ASSERT_EQ(start(256, TOLVA_COLOUR_INVERT_LUMINANCE), 0);
    const int32_t K = 12345;  // the host's own values
    const int32_t want[60] = {
        100, -1, -1, -1, -1, 0,  K,  K,  K,  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 0,
        0,   0,  0,  -1, -1, -1, -1, -1, -1, -1, K,  0,  -1, -1, 0,  0,  -1, -1, 1,  1,
        0,   -1, K,  K,  0,  -1, K,  4,  K,  K,  K,  K,  K,  K,  K,  0,  0,  -1, 0,  -1};
    for (int slot = 0; slot < 60; ++slot) EXPECT_EQ(caps[slot], want[slot]) << "slot " << slot;
    EXPECT_EQ(caps[60], K);
    EXPECT_EQ(lpEMData->deviceState, 1);
    EXPECT_EQ(lpSetup, GlobalLock(setup));
    EXPECT_EQ(lpEMData->setup, setup);
}

TEST_F(Lifecycle, ColourModesBecomeConversionModes) {
    const int32_t modes[][2] = {{103, 0}, {104, 1}, {105, 2}, {106, 3}, {107, 4}, {108, 0}, {0, 0}};
    for (const auto &m : modes) {
        ASSERT_EQ(start(16, m[0]), 0);
        EXPECT_EQ(caps[47], m[1]) << "colour mode " << m[0];
        EXPECT_EQ(lpEMData->colourConversionMode, m[1]);
        RASTER_dd_entry32(0, -1, nullptr);
        GlobalFree(setup);
        setup = 0;
    }
}

TEST_F(Lifecycle, InitHandsOutTheReplyBufferAndTakesTheFileName) {
    strcpy(fileName, "/tmp/picture.gif");
    ASSERT_EQ(start(40), 0);
    EXPECT_NE(init[TOLVA_INIT_REPLY_BUFFER], 0);
    EXPECT_EQ(reinterpret_cast<uint8_t *>(init[TOLVA_INIT_REPLY_BUFFER]), lpEMData->replyBuffer);
    EXPECT_EQ(GlobalSize(lpEMData->replyHandle), 40u);
    EXPECT_STREQ(lpEMData->fileName, "/tmp/picture.gif");
}

TEST_F(Lifecycle, LongFileNamesStayInsideTheirField) {
    std::string name(300, 'n');
    init[TOLVA_INIT_FILE_NAME] = reinterpret_cast<intptr_t>(name.c_str());
    setup = GlobalAlloc(TOLVA_GMEM_FLAGS, TOLVA_SETUP_BLOCK_SIZE);
    init[TOLVA_INIT_SETUP] = static_cast<intptr_t>(setup);
    ASSERT_EQ(RASTER_dd_entry32(0, 0, init), 0);
    EXPECT_EQ(strlen(lpEMData->fileName), 143u);
    EXPECT_EQ(lpEMData->pictureWidth, 0);
}

TEST_F(Lifecycle, InitReportsOnceAndNeverAsksForADetail) {
    g_status_answers = {5};
    ASSERT_EQ(start(16, 103, true), 0);
    ASSERT_EQ(g_status_calls.size(), 1u);
    const StatusCall &c = g_status_calls[0];
    EXPECT_EQ(c.context, 77);
    EXPECT_EQ(c.a, 0);
    EXPECT_EQ(c.b, -2);
    EXPECT_EQ(c.c, 100);
    EXPECT_EQ(c.d + c.e + c.f, 0);
    EXPECT_EQ(lpEMData->statusRecord, status);
}

TEST_F(Lifecycle, InitSkipsTheReportWithoutAContext) {
    status[TOLVA_STATUS_CONTEXT] = 0;
    setup = GlobalAlloc(TOLVA_GMEM_FLAGS, TOLVA_SETUP_BLOCK_SIZE);
    status[TOLVA_STATUS_FUNCTION] = reinterpret_cast<intptr_t>(&recording_status);
    init[TOLVA_INIT_SETUP] = static_cast<intptr_t>(setup);
    init[TOLVA_INIT_STATUS_RECORD] = reinterpret_cast<intptr_t>(status);
    ASSERT_EQ(RASTER_dd_entry32(0, 0, init), 0);
    EXPECT_TRUE(g_status_calls.empty());
}

TEST_F(Lifecycle, TermClosesAnOpenDeviceAndReleasesEverything) {
    ASSERT_EQ(start(16, 103, true), 0);
    Op open(0x1);
    call(open);
    g_status_calls.clear();
    EXPECT_EQ(RASTER_dd_entry32(0, -1, nullptr), 0);
    EXPECT_EQ(lpEMData, nullptr);
    EXPECT_EQ(hEMData, 0u);
    ASSERT_EQ(g_status_calls.size(), 1u) << "closing asks the host whether to stop";
    EXPECT_EQ(g_status_calls[0].b, 0);
    EXPECT_EQ(RASTER_dd_entry32(0, -1, nullptr), 0) << "a second term is harmless";
}

TEST_F(Lifecycle, TermOfAnIdleDeviceDoesNotClose) {
    ASSERT_EQ(start(16, 103, true), 0);
    g_status_calls.clear();
    EXPECT_EQ(RASTER_dd_entry32(0, -1, nullptr), 0);
    EXPECT_TRUE(g_status_calls.empty());
}

TEST_F(Lifecycle, ASecondInitTakesAFreshBlock) {
    ASSERT_EQ(start(), 0);
    HGLOBAL first = hEMData;
    HGLOBAL firstReply = lpEMData->replyHandle;
    ASSERT_EQ(RASTER_dd_entry32(0, 0, init), 0);
    EXPECT_NE(hEMData, first);
    GlobalFree(firstReply);  // the old block is the host's loss; give it back here
    GlobalFree(first);
}

TEST_F(Lifecycle, AHostCommonBlockStopsTheRasterInit) {
    CommonBlock common = {};
    hCommon = 1;
    lpCommon = &common;
    setup = GlobalAlloc(TOLVA_GMEM_FLAGS, TOLVA_SETUP_BLOCK_SIZE);
    init[TOLVA_INIT_SETUP] = static_cast<intptr_t>(setup);
    EXPECT_EQ(RASTER_dd_entry32(0, 0, init), 300) << "no EMData is taken with a Common block";
    EXPECT_EQ(lpEMData, nullptr);
    hCommon = 0;
    lpCommon = nullptr;
}

TEST(NameTable, LeadsToTheExportedFunctionsAndData) {
    intptr_t record[3] = {0, -1, 0};
    fltLoadPointers(record);
    int16_t count;
    memcpy(&count, &record[1], 2);
    EXPECT_EQ(count, 9);
    int16_t rest;
    memcpy(&rest, reinterpret_cast<uint8_t *>(&record[1]) + 2, 2);
    EXPECT_EQ(rest, -1) << "only the 16-bit count is written";
    const TolvaNameEntry *rows = reinterpret_cast<const TolvaNameEntry *>(record[2]);
    struct Want {
        const char *name;
        int16_t ordinal;
        const void *target;
    } want[] = {
        {"CreateSetup", 1001, reinterpret_cast<const void *>(&CreateSetup)},
        {"DestroySetup", 1002, reinterpret_cast<const void *>(&DestroySetup)},
        {"EditSetup", 1003, reinterpret_cast<const void *>(&EditSetup)},
        {"EscapeSetup", 1004, reinterpret_cast<const void *>(&xEscapeSetup)},
        {"ZUNGetFilterVersion", 1005, reinterpret_cast<const void *>(&ZUNGetFilterVersion)},
        {"dd_entry", 1006, reinterpret_cast<const void *>(&dd_entry)},
        {"RASTER_dd_entry", 1008, reinterpret_cast<const void *>(&RASTER_dd_entry)},
        {"ExportCellData", 1009, reinterpret_cast<const void *>(&ExportCellData)},
        {"szDLLName", 1010, export_szDLLName},
    };
    for (int i = 0; i < 9; ++i) {
        EXPECT_STREQ(rows[i].name, want[i].name);
        EXPECT_EQ(rows[i].ordinal, want[i].ordinal);
        EXPECT_EQ(rows[i].target, want[i].target) << want[i].name;
    }
}

TEST(ExportVariant, InitWithoutSettingsIsRefused) {
    intptr_t block[16] = {};
    EXPECT_EQ(dd_entry32(0, 0, block), 22);
    EXPECT_EQ(lpRaster, nullptr);
}

TEST(ExportVariant, CallsRouteThroughTheCommonBlock) {
    CommonBlock common = {};
    common.deviceState = 2;
    common.result = 44;
    hCommon = 1;
    lpCommon = &common;
    Op pop(0xf02);
    EXPECT_EQ(dd_entry32(0, 2, pop.bytes), 0);
    EXPECT_EQ(common.result, 0) << "the result word is zeroed before each call";
    // With a host Common block in state 2 the export init is skipped.
    intptr_t block[16] = {};
    EXPECT_EQ(dd_entry32(0, 0, block), 0);
    common.deviceState = 1;
    EXPECT_EQ(dd_entry32(0, 0, block), 22);
    hCommon = 0;
    lpCommon = nullptr;
}

TEST(ExportVariant, InitOpensTheOutputAndTermEndsWith300) {
    char path[] = "/tmp/tolva-export-XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    std::string kept = path;
    for (char *name : {path, static_cast<char *>(nullptr)}) {
        char empty[1] = "";
        HGLOBAL settings = GlobalAlloc(TOLVA_GMEM_FLAGS, TOLVA_SETUP_BLOCK_SIZE);
        intptr_t block[16] = {};
        block[TOLVA_EXPORT_INIT_FILE_NAME] = reinterpret_cast<intptr_t>(name ? name : empty);
        block[TOLVA_EXPORT_INIT_SETUP] = static_cast<intptr_t>(settings);
        ASSERT_EQ(dd_entry32(0, 0, block), 0);
        EXPECT_EQ(path[0], '\0') << "the host's name is cleared";
        EXPECT_EQ(block[TOLVA_EXPORT_INIT_SETUP], 0) << "hSetup, which no hook produces here";
        EXPECT_EQ(hRaster, settings);
        EXPECT_STREQ(lpRaster->fileName, name ? kept.c_str() : "");
        EXPECT_NE(lpRaster->outputStream, 0u);
        EXPECT_EQ(lpRaster->exportMemoryData != nullptr, name == nullptr);
        EXPECT_EQ(dd_entry32(0, -1, nullptr), 300) << "no metafile on this platform";
        EXPECT_EQ(lpRaster->outputStream, 0u);
        if (lpRaster->exportMemoryData != nullptr)
            GlobalFree(GlobalHandle(lpRaster->exportMemoryData));
        GlobalFree(settings);
        lpRaster = nullptr;
        hRaster = 0;
    }
    EXPECT_EQ(unlink(kept.c_str()), 0) << "the named file was created";
    EXPECT_EQ(dd_entry32(0, -1, nullptr), 300);
    EXPECT_EQ(LockGlobal(5) + UnlockGlobal(5) + AltFontsAvailable(), 0);
}

}  // namespace

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
    EXPECT_EQ(dd_entry(-3, &entry, nullptr), 0);
    EXPECT_EQ(entry, reinterpret_cast<void *>(&dd_entry32));
    uint8_t out[8] = {0, 0, 0, 0, 0xee, 0xee, 0xee, 0xee};
    EXPECT_EQ(RASTER_dd_entry32(0, -2, out), 4);
    EXPECT_EQ(dd_entry32(0, -2, out), 4);
    memcpy(&version, out, 4);
    EXPECT_EQ(version, 0x02000005u);
    EXPECT_EQ(out[4], 0xee) << "the version is exactly 4 bytes";
    EXPECT_EQ(RASTER_dd_entry32(0, 1, out) + dd_entry32(0, 1, out) + RASTER_dd_entry32(0, 9, out),
              0);
    Op open(0x1);
    EXPECT_EQ(RASTER_dd_entry32(0, 2, open.bytes), 0) << "no opcode runs before init";
    EXPECT_EQ(lpEMData, nullptr);
    EXPECT_EQ(FilterVersion + FilterID, 1 + 19);
}

TEST_F(Lifecycle, InitFillsTheCapabilitiesAndKeepsTheHostsOtherSlots) {
    strcpy(fileName, "/tmp/picture.gif");
    ASSERT_EQ(start(40, TOLVA_COLOUR_INVERT_LUMINANCE), 0);
    const int32_t K = 12345;  // the host's own values
    const int32_t want[61] = {
        100, -1, -1, -1, -1, 0,  K,  K,  K,  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 0, 0,
        0,   0,  -1, -1, -1, -1, -1, -1, -1, K,  0,  -1, -1, 0,  0,  -1, -1, 1,  1,  0, -1,
        K,   K,  0,  -1, K,  4,  K,  K,  K,  K,  K,  K,  K,  0,  0,  -1, 0,  -1, K};
    for (int slot = 0; slot < 61; ++slot) EXPECT_EQ(caps[slot], want[slot]) << "slot " << slot;
    EXPECT_EQ(lpEMData->deviceState, 1);
    EXPECT_EQ(lpSetup, GlobalLock(setup));
    EXPECT_EQ(reinterpret_cast<uint8_t *>(init[TOLVA_INIT_REPLY_BUFFER]), lpEMData->replyBuffer);
    EXPECT_EQ(GlobalSize(lpEMData->replyHandle), 40u);
    EXPECT_STREQ(lpEMData->fileName, "/tmp/picture.gif");
}

TEST_F(Lifecycle, ColourModesBecomeConversionModes) {
    for (int32_t mode : {103, 104, 105, 106, 108, 0}) {
        ASSERT_EQ(start(16, mode), 0);
        EXPECT_EQ(caps[47], mode >= 103 && mode <= 107 ? mode - 103 : 0) << mode;
        RASTER_dd_entry32(0, -1, nullptr);
        GlobalFree(setup);
        setup = 0;
    }
}

TEST_F(Lifecycle, LongFileNamesStayInsideTheirField) {
    std::string name(300, 'n');
    ASSERT_EQ(start(), 0);
    init[TOLVA_INIT_FILE_NAME] = reinterpret_cast<intptr_t>(name.c_str());
    HGLOBAL first = hEMData, firstReply = lpEMData->replyHandle;
    ASSERT_EQ(RASTER_dd_entry32(0, 0, init), 0) << "init runs again on an active device";
    EXPECT_NE(hEMData, first);
    EXPECT_EQ(strlen(lpEMData->fileName), 143u);
    EXPECT_EQ(lpEMData->pictureWidth, 0);
    GlobalFree(firstReply);  // the first block is the host's loss; give it back
    GlobalFree(first);
}

TEST_F(Lifecycle, InitReportsOnceAndTermClosesAnOpenDevice) {
    g_answers = {5};
    ASSERT_EQ(start(16, 103, true), 0);
    ASSERT_EQ(g_calls.size(), 1u) << "the init report never asks for a detail";
    const StatusCall &c = g_calls[0];
    EXPECT_EQ(c.context, 77);
    EXPECT_EQ(c.a, 0);
    EXPECT_EQ(c.b, -2);
    EXPECT_EQ(c.c, 100);
    EXPECT_EQ(c.d + c.e + c.f, 0);
    call(0x1);
    EXPECT_EQ(RASTER_dd_entry32(0, -1, nullptr), 0);
    EXPECT_EQ(lpEMData, nullptr);
    EXPECT_EQ(hEMData, 0u);
    EXPECT_EQ(g_calls.size(), 2u) << "closing asks the host whether to stop";
    EXPECT_EQ(RASTER_dd_entry32(0, -1, nullptr), 0) << "a second term is harmless";
}

TEST_F(Lifecycle, NoReportWithoutAContextAndNoCloseOfAnIdleDevice) {
    ASSERT_EQ(start(16, 103, true), 0);
    g_calls.clear();
    EXPECT_EQ(RASTER_dd_entry32(0, -1, nullptr), 0);
    EXPECT_TRUE(g_calls.empty()) << "an idle device is not closed at term";
    status[TOLVA_STATUS_CONTEXT] = 0;
    ASSERT_EQ(RASTER_dd_entry32(0, 0, init), 0);
    EXPECT_TRUE(g_calls.empty());
}

TEST_F(Lifecycle, AHostCommonBlockDecidesBothInits) {
    CommonBlock common = {};
    hCommon = 1;
    lpCommon = &common;
    setup = GlobalAlloc(TOLVA_GMEM_FLAGS, TOLVA_SETUP_BLOCK_SIZE);
    init[TOLVA_INIT_SETUP] = static_cast<intptr_t>(setup);
    EXPECT_EQ(RASTER_dd_entry32(0, 0, init), 300) << "AllocGlobal takes nothing";
    EXPECT_EQ(lpEMData, nullptr);
    common.deviceState = 2;
    common.result = 44;
    intptr_t block[16] = {};
    EXPECT_EQ(dd_entry32(0, 0, block), 0) << "skipped: the Common state is not 1";
    Op pop(0xf02);
    EXPECT_EQ(dd_entry32(0, 2, pop.bytes), 0);
    EXPECT_EQ(common.result, 0) << "zeroed before the call";
    common.deviceState = 1;
    EXPECT_EQ(dd_entry32(0, 0, block), 22) << "no settings block";
    hCommon = 0;
    lpCommon = nullptr;
    EXPECT_EQ(dd_entry32(0, 2, pop.bytes), 0);
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
        EXPECT_STREQ(lpRaster->fileName, name ? kept.c_str() : "");
        EXPECT_NE(lpRaster->outputStream, 0u);
        EXPECT_EQ(lpRaster->exportMemoryData != nullptr, name == nullptr);
        EXPECT_EQ(dd_entry32(0, -1, nullptr), 300) << "no metafile on this platform";
        EXPECT_EQ(lpRaster->outputStream, 0u);
        if (lpRaster->exportMemoryData != nullptr)
            GlobalFree(GlobalHandle(lpRaster->exportMemoryData));
        GlobalFree(settings);
        lpRaster = nullptr;
    }
    EXPECT_EQ(unlink(kept.c_str()), 0) << "the named file was created";
    EXPECT_EQ(LockGlobal(5) + UnlockGlobal(5) + AltFontsAvailable(), 0);
}

}  // namespace

// Opening and closing the device on each of its three outputs, and the
// settings and queries taken between the picture brackets.
#include <stdlib.h>
#include <sys/stat.h>

#include <array>
#include <string>

#include "host_fixture.h"

namespace {

class Device : public DriverTest {
protected:
    std::string dir;
    void SetUp() override {
        DriverTest::SetUp();
        char pattern[] = "/tmp/tolva-driver-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    void TearDown() override {
        DriverTest::TearDown();
        ASSERT_EQ(system(("rm -rf '" + dir + "'").c_str()), 0);
    }
    long size_of(const std::string &path) {
        struct stat st;
        return stat(path.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : -1;
    }
};

TEST_F(Device, WithoutANameTheOutputGoesToAMemoryBlockOfTheHost) {
    ASSERT_EQ(start(), 0);
    EXPECT_EQ(call(0x1), 0);
    ASSERT_NE(lpEMData->outputStream, 0u);
    std::vector<uint8_t> bytes(10000);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7);
    EXPECT_EQ(zunWrite(lpEMData->outputStream, bytes.data(), 10000), 10000);  // grows twice
    EXPECT_EQ(call(0x2), 0);
    const uint8_t *block = static_cast<const uint8_t *>(GlobalLock(lpSetup->exportMemoryBlock));
    ASSERT_EQ(block, lpSetup->exportMemoryData);
    EXPECT_EQ(0, memcmp(block, bytes.data(), 10000));
    EXPECT_EQ(block[10000], 0xff) << "the stream's end marker follows the bytes";
    call(0x1);  // the first block goes; the host takes the second one
    call(0x2);
    HGLOBAL taken = lpSetup->exportMemoryBlock;
    lpSetup->exportMemoryBlock = 0;
    lpSetup->exportMemoryData = nullptr;
    EXPECT_EQ(RASTER_dd_entry32(0, -1, nullptr), 0);
    EXPECT_EQ(static_cast<const uint8_t *>(GlobalLock(taken))[0], 0xff);
    GlobalFree(taken);
}

TEST_F(Device, ANamedFileIsWrittenOrDeletedWhenTheHostStops) {
    std::string path = dir + "/out.gif";
    strcpy(fileName, path.c_str());
    ASSERT_EQ(start(64, 103, true), 0);
    EXPECT_EQ(call(0x1), 0);
    zunWrite(lpEMData->outputStream, "abc", 3);
    EXPECT_EQ(call(0x2), 0);
    EXPECT_EQ(size_of(path), 3);
    call(0x1);
    EXPECT_EQ(size_of(path), 0);
    g_calls.clear();
    g_answers = {1, 1};  // stop, and confirmed
    EXPECT_EQ(call(0x2), 901);
    EXPECT_EQ(size_of(path), -1);
    EXPECT_EQ(lpEMData->deviceState, 1);
}

TEST_F(Device, AnUnwritablePathIsReportedAndTheStateStillMoves) {
    std::string path = dir + "/missing/out.gif";
    strcpy(fileName, path.c_str());
    ASSERT_EQ(start(), 0);
    EXPECT_EQ(call(0x1), 303);
    EXPECT_EQ(lpEMData->deviceState, 2);
    EXPECT_EQ(size_of(path), -1);
    EXPECT_EQ(call(0x2), 303) << "closing no stream fails too";
}

std::vector<std::array<intptr_t, 4>> g_io;
intptr_t g_open_answer;

intptr_t host_io(intptr_t instance, int32_t operation, intptr_t a, intptr_t b) {
    g_io.push_back({instance, operation, a, b});
    return operation == 1 ? g_open_answer : operation == 3 ? b : 0;
}

TEST_F(Device, AnOutputDeviceReceivesTheStreamAndReportsItsOwnFailures) {
    g_io.clear();
    g_open_answer = 0x55;
    strcpy(fileName, "picture.gif");
    ASSERT_EQ(start(), 0);
    lpSetup->outputDevice = reinterpret_cast<intptr_t>(&host_io);
    status[TOLVA_STATUS_DEVICE] = 0x3210;
    lpEMData->statusRecord = status;
    EXPECT_EQ(call(0x1), 0);
    ASSERT_EQ(g_io.size(), 1u);
    EXPECT_EQ(g_io[0][0], 0x3210) << "word 12 of the status record";
    EXPECT_EQ(g_io[0][1], 1);
    EXPECT_STREQ(reinterpret_cast<const char *>(g_io[0][2]), "picture.gif");
    EXPECT_EQ(g_io[0][3], 4097);
    EXPECT_EQ(call(0x2), 0);
    EXPECT_EQ(g_io.back()[0], 0x55);
    EXPECT_EQ(g_io.back()[1], 5);

    g_open_answer = 0;  // declined: the stream then tries the (missing) file
    strcpy(lpEMData->fileName, (dir + "/missing/out.gif").c_str());
    EXPECT_EQ(call(0x1), 0) << "no error on this path";
    EXPECT_EQ(lpEMData->outputStream, 0u);
    lpEMData->deviceState = 1;
}

TEST_F(Device, ViewportScalingModeGivesTheResolution) {
    ASSERT_EQ(start(), 0);
    reach(4);
    const struct {
        int16_t mode;
        double unit;
        int32_t want;
    } cases[] = {{1, 0.254, 100}, {1, 0.0, 0}, {1, 0.1, 254}, {3, 1.0, 254},
                 {0, 0.5, 0},     {1, 0.5, 51}, {2, 0.5, 0},  {-1, 0.1, 0}};
    for (const auto &c : cases) {
        Op vpsm(0x209);
        call(vpsm.i16(16, c.mode).f64(24, c.unit));
        EXPECT_EQ(lpEMData->resolution, c.want) << c.mode << " " << c.unit;
    }
    lpEMData->deviceState = 4 | 128;  // a host-set flag that freezes the mode
    Op vpsm(0x209);
    call(vpsm.i16(16, 1).f64(24, 0.254));
    EXPECT_EQ(lpEMData->resolution, 0);
    lpEMData->deviceState = 4;
}

TEST_F(Device, WindowAndViewportComeBackInTheHostsOrder) {
    ASSERT_EQ(start(256), 0);
    reach(4);
    const double window[6] = {1.5, -2.25, 3.0, 640.0, 480.125, -0.0};
    Op dvwn(0x206), dvvp(0x208), bgc(0x207);
    call(dvwn.raw(16, window, sizeof window));
    for (int i = 0; i < 6; ++i) dvvp.f64(16 + 8 * i, 10.0 + i);
    call(dvvp);
    call(bgc.raw(16, "\x10\x20\x30", 3));
    EXPECT_EQ(0, memcmp(lpEMData->backgroundColour, "\x10\x20\x30", 3));
    memset(lpEMData->replyBuffer, 0xab, 256);
    call(0x2ff);
    call(0x2fd);
    std::vector<uint8_t> r = reply();
    ASSERT_EQ(r.size(), 96u);
    EXPECT_EQ(0, memcmp(r.data(), window, 48));
    double got[6];
    memcpy(got, r.data() + 48, 48);
    EXPECT_EQ(got[0], 10.0);
    EXPECT_EQ(got[1], 14.0);
    EXPECT_EQ(got[3], 11.0);
    EXPECT_EQ(got[4], 13.0);
    for (size_t k = 0; k < 8; ++k) EXPECT_EQ(r[64 + k] & r[88 + k], 0xab) << "unset values";
    EXPECT_EQ(lpEMData->deviceViewport[2] + lpEMData->deviceViewport[5], 0.0);
    call(0x4);
    call(0x206);
    EXPECT_EQ(lpEMData->deviceWindow[3], 640.0) << "the window is fixed once the body begins";
}

TEST_F(Device, ColourTableEntriesStopAtTheEnd) {
    ASSERT_EQ(start(), 0);
    reach(8);
    Op ct(0x522);
    ct.i32(4, 2 + 3 * 10).i32(16, 250);
    for (int i = 0; i < 30; ++i) ct.bytes[20 + i] = static_cast<uint8_t>(i + 1);
    std::vector<uint8_t> before((uint8_t *)lpEMData, (uint8_t *)lpEMData + sizeof(EMData));
    call(ct);
    EXPECT_EQ(0, memcmp(lpEMData->colourTable + 750, ct.bytes + 20, 18));
    before.erase(before.begin(), before.begin() + offsetof(EMData, colourTable) + 750 + 18);
    Op past(0x522);
    call(past.i32(4, 2 + 3 * 4).i32(16, 300));
    EXPECT_EQ(0, memcmp(lpEMData->colourTable + 768, before.data(), 3 + 4))
        << "nothing past the table changes";
}

TEST_F(Device, AnInvertingColourModeInvertsTheTableAndTheHostsBlock) {
    ASSERT_EQ(start(256, TOLVA_COLOUR_INVERT), 0);
    reach(8);
    Op ct(0x522);
    call(ct.i32(4, 2 + 3 * 2).i32(16, 1).raw(20, "\x0a\x14\x1e\x28\x32\x3c", 6));
    const uint8_t want[6] = {245, 235, 225, 215, 205, 195};
    EXPECT_EQ(0, memcmp(lpEMData->colourTable + 3, want, 6));
    EXPECT_EQ(0, memcmp(ct.bytes + 20, want, 6));
}

}  // namespace

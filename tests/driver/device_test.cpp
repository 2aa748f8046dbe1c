// Opening and closing the device on each of its three outputs, and the
// settings and queries taken between the picture brackets.
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

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
        std::string cleanup = "rm -rf '" + dir + "'";
        ASSERT_EQ(system(cleanup.c_str()), 0);
    }
    bool exists(const std::string &path) {
        struct stat st;
        return stat(path.c_str(), &st) == 0;
    }
};

TEST_F(Device, WithoutANameTheOutputGoesToAMemoryBlockOfTheHost) {
    ASSERT_EQ(start(), 0);
    Op open(0x1), close(0x2);
    EXPECT_EQ(call(open), 0);
    ASSERT_NE(lpEMData->outputStream, 0u);
    std::vector<uint8_t> bytes(10000);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7);
    EXPECT_EQ(zunWrite(lpEMData->outputStream, bytes.data(), 10000), 10000);  // grows twice
    EXPECT_EQ(call(close), 0);
    EXPECT_EQ(lpEMData->deviceState, 1);
    const uint8_t *block = static_cast<const uint8_t *>(GlobalLock(lpSetup->exportMemoryBlock));
    ASSERT_EQ(block, lpSetup->exportMemoryData);
    EXPECT_EQ(0, memcmp(block, bytes.data(), 10000));
    EXPECT_EQ(block[10000], 0xff) << "the stream's end marker follows the bytes";
}

TEST_F(Device, ANamedFileIsCreatedAndClosed) {
    std::string path = dir + "/out.gif";
    strcpy(fileName, path.c_str());
    ASSERT_EQ(start(), 0);
    Op open(0x1), close(0x2);
    EXPECT_EQ(call(open), 0);
    EXPECT_TRUE(exists(path));
    zunWrite(lpEMData->outputStream, "abc", 3);
    EXPECT_EQ(call(close), 0);
    struct stat st;
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_size, 3);
}

TEST_F(Device, AnUnwritablePathIsReportedAndTheStateStillMoves) {
    std::string path = dir + "/missing/out.gif";
    strcpy(fileName, path.c_str());
    ASSERT_EQ(start(), 0);
    Op open(0x1), close(0x2);
    EXPECT_EQ(call(open), 303);
    EXPECT_EQ(lpEMData->deviceState, 2);
    EXPECT_EQ(lpEMData->outputStream, 0u);
    EXPECT_FALSE(exists(path));
    EXPECT_EQ(call(close), 303) << "closing no stream fails too";
}

TEST_F(Device, AStopAtCloseDeletesTheFile) {
    std::string path = dir + "/out.gif";
    strcpy(fileName, path.c_str());
    ASSERT_EQ(start(64, 103, true), 0);
    Op open(0x1), close(0x2);
    call(open);
    ASSERT_TRUE(exists(path));
    g_status_answers = {0, 1, 1};  // the init report, then stop
    EXPECT_EQ(call(close), 901);
    EXPECT_FALSE(exists(path));
    EXPECT_EQ(lpEMData->deviceState, 1);
}

// A host I/O procedure that records what the stream asks of it.
struct ProcLog {
    std::vector<std::array<intptr_t, 4>> calls;
    intptr_t openAnswer = 0x55;
};
ProcLog g_proc;

intptr_t host_io(intptr_t instance, int32_t operation, intptr_t a, intptr_t b) {
    g_proc.calls.push_back({instance, operation, a, b});
    if (operation == 1) return g_proc.openAnswer;
    if (operation == 3) return b;
    return 0;
}

TEST_F(Device, AnOutputDeviceReceivesTheStream) {
    g_proc = ProcLog();
    strcpy(fileName, "picture.gif");
    ASSERT_EQ(start(), 0);
    lpSetup->outputDevice = reinterpret_cast<intptr_t>(&host_io);
    intptr_t record[TOLVA_STATUS_WORDS] = {};
    record[TOLVA_STATUS_DEVICE] = 0x3210;
    lpEMData->statusRecord = record;
    Op open(0x1), close(0x2);
    EXPECT_EQ(call(open), 0);
    ASSERT_FALSE(g_proc.calls.empty());
    EXPECT_EQ(g_proc.calls[0][0], 0x3210) << "word 12 of the status record";
    EXPECT_EQ(g_proc.calls[0][1], 1);
    EXPECT_STREQ(reinterpret_cast<const char *>(g_proc.calls[0][2]), "picture.gif");
    EXPECT_EQ(g_proc.calls[0][3], 4097);
    EXPECT_EQ(call(close), 0);
    EXPECT_EQ(g_proc.calls.back()[0], 0x55);
    EXPECT_EQ(g_proc.calls.back()[1], 5);
    lpEMData->statusRecord = nullptr;
}

TEST_F(Device, AFailedOpenOnTheOutputDeviceIsNotReported) {
    g_proc = ProcLog();
    g_proc.openAnswer = 0;
    std::string path = dir + "/missing/out.gif";
    strcpy(fileName, path.c_str());
    ASSERT_EQ(start(), 0);
    lpSetup->outputDevice = reinterpret_cast<intptr_t>(&host_io);
    Op open(0x1);
    EXPECT_EQ(call(open), 0);
    EXPECT_EQ(lpEMData->outputStream, 0u);
    EXPECT_EQ(lpEMData->lostErrors, 0);
    lpEMData->deviceState = 1;  // nothing to close
}

TEST_F(Device, ViewportScalingModeGivesTheResolution) {
    ASSERT_EQ(start(), 0);
    reach(4);
    struct {
        int16_t mode;
        double unit;
        int32_t want;
    } cases[] = {{1, 0.254, 100}, {1, 0.0, 0}, {1, 25.4 / 299.5, 300}, {3, 1.0, 300},
                 {0, 0.5, 0},     {1, 0.1, 254}, {2, 0.5, 0},          {-1, 0.1, 0}};
    for (const auto &c : cases) {
        Op vpsm(0x209);
        vpsm.i16(16, c.mode).f64(24, c.unit);
        call(vpsm);
        EXPECT_EQ(lpEMData->resolution, c.want) << c.mode << " " << c.unit;
    }
    lpEMData->deviceState = 4 | 128;  // a host-set flag that freezes the mode
    Op vpsm(0x209);
    vpsm.i16(16, 1).f64(24, 0.254);
    call(vpsm);
    EXPECT_EQ(lpEMData->resolution, 0);
    lpEMData->deviceState = 4;
}

TEST_F(Device, WindowAndViewportComeBackInTheHostsOrder) {
    ASSERT_EQ(start(256), 0);
    reach(4);
    const double window[6] = {1.5, -2.25, 3.0, 640.0, 480.125, -0.0};
    Op dvwn(0x206);
    dvwn.raw(16, window, sizeof window);
    call(dvwn);
    Op dvvp(0x208);
    for (int i = 0; i < 6; ++i) dvvp.f64(16 + 8 * i, 10.0 + i);
    call(dvvp);
    Op bgc(0x207);
    bgc.raw(16, "\x10\x20\x30", 3);
    call(bgc);
    EXPECT_EQ(0, memcmp(lpEMData->backgroundColour, "\x10\x20\x30", 3));

    memset(lpEMData->replyBuffer, 0xab, 256);
    Op qwn(0x2ff), qvp(0x2fd);
    call(qwn);
    call(qvp);
    std::vector<uint8_t> r = reply();
    ASSERT_EQ(r.size(), 96u);
    EXPECT_EQ(0, memcmp(r.data(), window, 48));
    double got[6];
    memcpy(got, r.data() + 48, 48);
    EXPECT_EQ(got[0], 10.0);
    EXPECT_EQ(got[1], 14.0);
    EXPECT_EQ(got[3], 11.0);
    EXPECT_EQ(got[4], 13.0);
    for (size_t at : {64u, 88u})
        for (size_t k = 0; k < 8; ++k) EXPECT_EQ(r[at + k], 0xab) << "unset value at " << at;
    EXPECT_EQ(lpEMData->deviceViewport[2], 0.0);
    EXPECT_EQ(lpEMData->deviceViewport[5], 0.0);

    Op begpb(0x4);
    call(begpb);
    Op late(0x206);
    call(late);
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
    EXPECT_EQ(0, memcmp(lpEMData->colourTable, before.data() + offsetof(EMData, colourTable), 750));
    EXPECT_EQ(0, memcmp(lpEMData->backgroundColour, before.data() + offsetof(EMData, backgroundColour), 3));

    Op past(0x522);
    past.i32(4, 2 + 3 * 4).i32(16, 300);
    call(past);
    EXPECT_EQ(0, memcmp(lpEMData->backgroundColour, before.data() + offsetof(EMData, backgroundColour), 3));
}

}  // namespace

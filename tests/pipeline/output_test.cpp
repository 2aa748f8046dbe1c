// OutputPicture with a host offscreen callback that delivers several bands:
// band order, row order, progress per band and a stop in the middle.
#include <gtest/gtest.h>
#include <string.h>

#include <vector>

#include "test_host.h"

using namespace test_host;

namespace {

// The host's picture: every row holds its own bottom-up row number.
struct Offscreen {
    int32_t width, height, bandRows;
    std::vector<HGLOBAL> bands;
    std::vector<std::pair<int32_t, int32_t>> asked;
};

intptr_t host_callback(int32_t operation, void *record, intptr_t arg1, intptr_t arg2) {
    switch (operation) {
    case 0: {
        auto *host = static_cast<Offscreen *>(record);
        auto *query = reinterpret_cast<TolvaOffscreenQuery *>(arg1);
        query->width = host->width / 96.0;
        query->height = host->height / 96.0;
        query->resolution = 96;
        return 0;
    }
    case 1: {
        auto *offscreen = static_cast<TolvaOffscreen *>(record);
        const auto *information = reinterpret_cast<const intptr_t *>(arg1);
        auto *table = reinterpret_cast<uint8_t *>(information[4]);
        for (int i = 0; i < 768; ++i) table[i] = static_cast<uint8_t>(i / 3);  // greys
        return static_cast<Offscreen *>(offscreen->hostContext)->bandRows;
    }
    case 3: {
        auto *host = static_cast<Offscreen *>(static_cast<TolvaOffscreen *>(record)->hostContext);
        auto lower = static_cast<int32_t>(arg1), upper = static_cast<int32_t>(arg2);
        host->asked.emplace_back(lower, upper);
        int32_t stride = (host->width + 3) & ~3;
        HGLOBAL band = GlobalAlloc(TOLVA_GMEM_FLAGS, static_cast<uint32_t>(stride * (upper - lower)));
        auto *bits = static_cast<uint8_t *>(GlobalLock(band));
        for (int32_t j = 0; j < upper - lower; ++j)
            memset(bits + j * stride, (lower + j) & 255, static_cast<size_t>(host->width));
        host->bands.push_back(band);
        return static_cast<intptr_t>(band);
    }
    case 2: {
        auto *host = static_cast<Offscreen *>(static_cast<TolvaOffscreen *>(record)->hostContext);
        for (HGLOBAL band : host->bands) GlobalFree(band);
        host->bands.clear();
        return 1;
    }
    }
    return 0;
}

std::vector<intptr_t> g_progress;
intptr_t g_stop_at = -1;
int32_t status(intptr_t, intptr_t a, intptr_t b, intptr_t, intptr_t d, intptr_t, intptr_t) {
    if (a == 2 && b == 61) return 1;
    g_progress.push_back(d);
    return d == g_stop_at ? 1 : 0;
}

class OutputPictureTest : public ::testing::Test {
protected:
    void SetUp() override {
        spools_ = spool_files();
        handle_ = GlobalAlloc(TOLVA_GMEM_FLAGS, TOLVA_SETUP_BLOCK_SIZE);
        block_ = static_cast<SetupBlock *>(GlobalLock(handle_));
        UseDefaultSettings(block_);
        record_[TOLVA_STATUS_FUNCTION] = reinterpret_cast<intptr_t>(status);
        block_->statusRecord = record_;
        lpRaster = block_;
        g_progress.clear();
        g_stop_at = -1;
    }
    void TearDown() override {
        lpRaster = nullptr;
        GlobalFree(handle_);
        EXPECT_EQ(spool_files(), spools_);
    }
    int32_t run(Offscreen &host, const std::string &path) {
        HGLOBAL stream = zunOpen(path.c_str(), nullptr, 4097);
        int32_t r = OutputPicture(stream, &host, host_callback);
        zunClose(stream);
        return r;
    }
    TempDir dir_;
    HGLOBAL handle_ = 0;
    SetupBlock *block_ = nullptr;
    intptr_t record_[TOLVA_STATUS_WORDS] = {};
    std::vector<std::string> spools_;
};

TEST_F(OutputPictureTest, BandsRunFromTheTopAndReportProgressEach) {
    Offscreen host{40, 50, 16, {}, {}};
    std::string path = dir_.path("bands.gif");
    EXPECT_EQ(run(host, path), 0);
    EXPECT_EQ(host.asked, (std::vector<std::pair<int32_t, int32_t>>{{34, 50}, {18, 34}, {2, 18}, {0, 2}}));
    EXPECT_EQ(g_progress, (std::vector<intptr_t>{25, 50, 75, 100}));
    Gif gif = decode_file(path);
    ASSERT_TRUE(gif.ok);
    ASSERT_EQ(gif.height, 50);
    for (int y = 0; y < 50; ++y) EXPECT_EQ(gif.at(7, y), 49 - y) << y;
    EXPECT_EQ(gif.palette[3 * 200], 200);
}

TEST_F(OutputPictureTest, InterlacedBandsComeBackInOrder) {
    block_->interlace = TOLVA_INTERLACE_ON;
    Offscreen host{700, 520, 96, {}, {}};  // spooled through a temporary file
    std::string path = dir_.path("interlaced.gif");
    EXPECT_EQ(run(host, path), 0);
    Gif gif = decode_file(path);
    ASSERT_TRUE(gif.ok);
    EXPECT_TRUE(gif.interlaced);
    for (int y = 0; y < 520; ++y) ASSERT_EQ(gif.at(699, y), (519 - y) & 255) << y;
}

TEST_F(OutputPictureTest, StopAfterABandEndsWithoutTrailerAndNoSpool) {
    block_->interlace = TOLVA_INTERLACE_ON;
    g_stop_at = 40;
    Offscreen host{700, 520, 104, {}, {}};  // five bands: 20, 40, ...
    std::string path = dir_.path("stopped.gif");
    EXPECT_EQ(run(host, path), TOLVA_ERR_STOPPED);
    EXPECT_EQ(host.asked.size(), 2u);
    std::vector<uint8_t> bytes = read_file(path);
    ASSERT_FALSE(bytes.empty());
    EXPECT_NE(bytes.back(), 0x3B);
    EXPECT_TRUE(host.bands.empty()) << "terminate ran";
}

TEST_F(OutputPictureTest, OddHeightIsAskedForEven) {
    Offscreen host{8, 7, 100, {}, {}};
    std::string path = dir_.path("odd.gif");
    EXPECT_EQ(run(host, path), 0);
    ASSERT_EQ(host.asked.size(), 1u);
    EXPECT_EQ(host.asked[0], (std::pair<int32_t, int32_t>{0, 8}));
    EXPECT_EQ(decode_file(path).height, 8);
}

TEST_F(OutputPictureTest, NoBandHeightIs27AndWritesNothing) {
    Offscreen host{8, 8, 0, {}, {}};
    std::string path = dir_.path("none.gif");
    EXPECT_EQ(run(host, path), TOLVA_ERR_NO_PICTURE);
    EXPECT_TRUE(read_file(path).empty());
    EXPECT_TRUE(host.asked.empty());
}

}  // namespace

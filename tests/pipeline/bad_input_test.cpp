// What a careless host gets: opcodes out of order, too many rows, an empty
// picture, no palette, a path that cannot be written; and the direct export
// road (ExportCellData), including its failures.
#include <gtest/gtest.h>
#include <string.h>

#include <vector>

#include "test_host.h"

using namespace test_host;

namespace {

class BadInput : public ::testing::Test {
protected:
    void SetUp() override { spools_ = spool_files(); }
    void TearDown() override { EXPECT_EQ(spool_files(), spools_); }
    TempDir dir_;
    std::vector<std::string> spools_;
};

std::vector<uint8_t> clean_export(const Picture &p, const std::string &path) {
    Device device;
    device.start(path);
    send_picture(device, p, Send{});
    device.stop();
    return read_file(path);
}

TEST_F(BadInput, OpcodesOutOfOrderAreRefusedWithoutEffect) {
    Picture p = indexed_picture(20, 10);
    std::vector<uint8_t> expected = clean_export(p, dir_.path("clean.gif"));

    Device device;
    Block early = cell_array(p.row(0), 20, 10, 8, false);
    EXPECT_EQ(device.entry(0, 2, early.data()), 0);  // before init: nothing runs
    std::string path = dir_.path("disorder.gif");
    ASSERT_EQ(device.start(path), 0);
    EXPECT_EQ(device.call(0x4), 0);  // body before open
    EXPECT_EQ(device.call(early), 0);
    device.call(0x1);
    Block table = colour_table(0, std::vector<uint8_t>(768, 9));
    EXPECT_EQ(device.call(table), 0);  // colour table outside a body
    Block close = close_picture();
    EXPECT_EQ(device.call(close), 0);
    EXPECT_TRUE(read_file(path).empty());
    EXPECT_TRUE(device.errors().empty());
    device.call(0x2);
    device.stop();

    Device again;
    again.start(path);
    send_picture(again, p, Send{});
    again.stop();
    EXPECT_EQ(read_file(path), expected);
}

TEST_F(BadInput, RowsBeyondThePictureAreDropped) {
    Picture p = indexed_picture(16, 12);
    std::vector<uint8_t> expected = clean_export(p, dir_.path("exact.gif"));
    // The same first 12 rows and 5 more, sent to a picture of height 12.
    Picture taller = indexed_picture(16, 17);
    taller.height = 12;
    Device device;
    std::string path = dir_.path("taller.gif");
    device.start(path);
    Send how;
    how.rowsSent = 17;
    send_picture(device, taller, how);
    device.stop();
    EXPECT_EQ(read_file(path), expected);
}

TEST_F(BadInput, PictureOfHeightZeroWritesNothing) {
    Picture p = indexed_picture(16, 6);
    Device device;
    std::string path = dir_.path("flat.gif");
    device.start(path);
    p.height = 0;
    Send how;
    how.rowsSent = 6;
    send_picture(device, p, how);
    device.stop();
    EXPECT_TRUE(file_exists(path));
    EXPECT_TRUE(read_file(path).empty());
    // The picture's size at its resolution became the Setup block's saved
    // size, height 0 included.
    EXPECT_EQ(device.settings->height, 0.0);
}

TEST_F(BadInput, MissingPaletteGivesBlackEntriesAndKeepsIndices) {
    Picture p = indexed_picture(12, 8);
    Device device;
    std::string path = dir_.path("black.gif");
    device.start(path);
    device.call(0x1);
    device.call(0x3);
    Block window = device_window(0, 0, 11, 7);
    device.call(window);
    Block mode = scaling_mode(1, kUnitFor96Dpi);
    device.call(mode);
    device.call(0x4);
    Block open = open_picture(12, 8, 8);
    device.call(open);
    Block cells = cell_array(p.row(0), 12, 8, 8, false);
    device.call(cells);
    Block close = close_picture();
    device.call(close);
    device.call(0x5);
    device.call(0x2);
    device.stop();
    Gif gif = decode_file(path);
    ASSERT_TRUE(gif.ok);
    EXPECT_EQ(gif.palette, std::vector<uint8_t>(768, 0));
    for (int32_t y = 0; y < 8; ++y)
        for (int32_t x = 0; x < 12; ++x) ASSERT_EQ(gif.at(x, y), p.row(7 - y)[x]);
}

TEST_F(BadInput, UnwritablePathPushes303AndWritesNothing) {
    Picture p = indexed_picture(8, 4);
    Device device;
    const std::string path = "/nonexistent-tolva-dir/out.gif";
    ASSERT_EQ(device.start(path), 0);
    EXPECT_EQ(device.call(0x1), TOLVA_ERR_STREAM);
    std::vector<int16_t> afterOpen = device.errors();
    EXPECT_EQ(afterOpen, std::vector<int16_t>{TOLVA_ERR_STREAM});
    device.call(0x3);
    Block window = device_window(0, 0, 7, 3);
    device.call(window);
    device.call(0x4);
    Block open = open_picture(8, 4, 8);
    device.call(open);
    Block cells = cell_array(p.row(0), 8, 4, 8, false);
    device.call(cells);
    Block close = close_picture();
    device.call(close);
    device.call(0x5);
    device.call(0x2);
    EXPECT_EQ(device.errors(), std::vector<int16_t>{TOLVA_ERR_STREAM});
    device.stop();
    EXPECT_FALSE(file_exists(path));
}

// The direct export road: the host hands a whole bitmap over.
struct Cell {
    HGLOBAL bits = 0, palette = 0;
    TolvaPicture descriptor = {};
    Cell(const Picture &p, int16_t resolution) {
        // The descriptor's bitmap is bottom-up: host row 0 goes last.
        bits = GlobalAlloc(TOLVA_GMEM_FLAGS, static_cast<uint32_t>(p.rows.size()));
        auto *to = static_cast<uint8_t *>(GlobalLock(bits));
        for (int32_t y = 0; y < p.height; ++y)
            memcpy(to + static_cast<size_t>(p.height - 1 - y) * p.stride, p.row(y),
                   static_cast<size_t>(p.stride));
        if (p.bits <= 8) {
            palette = GlobalAlloc(TOLVA_GMEM_FLAGS, 768);
            memcpy(GlobalLock(palette), device_palette().data(), 768);
        }
        descriptor = {static_cast<int16_t>(p.bits), static_cast<int16_t>(p.width),
                      static_cast<int16_t>(p.height), resolution, 0.0, 0.0, palette, bits};
    }
    ~Cell() {
        GlobalFree(bits);
        if (palette != 0) GlobalFree(palette);
    }
};

TEST_F(BadInput, ExportCellDataWritesAFileOrAMemoryBlock) {
    Picture p = indexed_picture(30, 20);
    Device device;
    intptr_t arguments[8] = {0, 0, static_cast<intptr_t>(device.setup), 0, 0, 0, 1234, 0};

    Cell toFile(p, 96);
    TolvaPicture information = {};
    std::string path = dir_.path("export.gif");
    EXPECT_EQ(ExportCellData(path.c_str(), &information, &toFile.descriptor, arguments), 0);
    EXPECT_EQ(information.bitmap, toFile.bits);
    EXPECT_EQ(information.widthValue, 30.0);
    EXPECT_EQ(device.settings->hostArgument, 1234);
    std::vector<uint8_t> fileBytes = read_file(path);
    Gif gif = decode_file(path);
    ASSERT_TRUE(gif.ok);
    EXPECT_EQ(gif.palette, device_palette());
    for (int32_t y = 0; y < 20; ++y)
        for (int32_t x = 0; x < 30; ++x) ASSERT_EQ(gif.at(x, y), p.row(y)[x]);

    Cell toMemory(p, 96);
    EXPECT_EQ(ExportCellData("", &information, &toMemory.descriptor, arguments), 0);
    ASSERT_NE(device.settings->exportMemoryBlock, 0u);
    const auto *data = static_cast<const uint8_t *>(device.settings->exportMemoryData);
    ASSERT_EQ(data, GlobalLock(device.settings->exportMemoryBlock));
    std::vector<uint8_t> memoryBytes(data, data + fileBytes.size());
    EXPECT_EQ(memoryBytes, fileBytes);
    GlobalFree(device.settings->exportMemoryBlock);

    Cell failing(p, 96);
    EXPECT_EQ(ExportCellData("/nonexistent-tolva-dir/x.gif", &information, &failing.descriptor,
                             arguments),
              TOLVA_ERR_STREAM);
    arguments[2] = 0;
    EXPECT_EQ(ExportCellData(path.c_str(), &information, &failing.descriptor, arguments),
              TOLVA_ERR_NO_SETUP);
}

TEST_F(BadInput, ExportCellDataShrinksTrueColourIntoTheBox) {
    // 2 x 2 blocks of one colour: shrinking by 2 keeps one pixel of each.
    Picture blocks = true_colour_picture(320, 180);
    Picture p;
    p.width = 640;
    p.height = 360;
    p.bits = 24;
    p.stride = 640 * 3;
    p.rows.resize(static_cast<size_t>(p.stride) * 360);
    for (int32_t y = 0; y < 360; ++y)
        for (int32_t x = 0; x < 640; ++x)
            memcpy(&p.rows[static_cast<size_t>(y) * p.stride + 3 * x], blocks.row(y / 2) + 3 * (x / 2), 3);
    Device device;
    device.settings->width = 3.34;  // a 320 x 240 box at 96 dpi
    intptr_t arguments[8] = {0, 0, static_cast<intptr_t>(device.setup), 0, 0, 0, 0, 0};
    Cell cell(p, 0);
    TolvaPicture information = {};
    std::string path = dir_.path("shrunk.gif");
    ASSERT_EQ(ExportCellData(path.c_str(), &information, &cell.descriptor, arguments), 0);
    Gif gif = decode_file(path);
    ASSERT_TRUE(gif.ok);
    ASSERT_EQ(gif.width, 320);
    ASSERT_EQ(gif.height, 180);
    for (int32_t y = 0; y < 180; ++y)
        for (int32_t x = 0; x < 320; ++x) {
            const uint8_t *source = blocks.row(y) + 3 * x;
            int expected = nearest_entry(source, gif.palette, 256);
            ASSERT_EQ(distance(source, &gif.palette[3 * gif.at(x, y)]),
                      distance(source, &gif.palette[3 * expected]))
                << x << "," << y;
        }
}

}  // namespace

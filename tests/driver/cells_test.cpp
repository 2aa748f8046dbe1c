// Cell arrays collected into a picture between primitives -5 and -6: row
// geometry, source stride and the downward and upward fill, read from the
// picture bitmap before -6 hands it on and frees it.
#include "host_fixture.h"

namespace {

class Cells : public DriverTest {
protected:
    // A device in the picture body with the window x1..x2, y1..y2.
    void body(double x1, double x2, double y1 = 0.0, double y2 = 100.0,
              int32_t colourMode = TOLVA_COLOUR_NORMAL) {
        ASSERT_EQ(start(256, colourMode), 0);
        reach(4);
        Op dvwn(0x206);
        call(dvwn.f64(16, x1).f64(24, y1).f64(40, x2).f64(48, y2));
        reach(8);
    }
    // Primitive -5, with one (ignored) point in front of its data.
    int32_t open(int32_t maxWidth, int32_t height, int32_t bits, int16_t flag = 0) {
        Op gdp(0x40a);
        gdp.i32(16, -5).i32(20, 1).f64(24, 99.0).i32(48, 28).i32(52, maxWidth);
        return call(gdp.i32(56, height).i32(60, bits).i16(66, flag));
    }
    int32_t close() {
        Op gdp(0x40a);
        return call(gdp.i32(16, -6));
    }
    // A cell array whose corners run from y1 to y2, with its cells inline.
    static Op cells(uint32_t perRow, uint32_t rows, int32_t bits, double y1, double y2) {
        Op ca(0x409);
        ca.f64(24, y1).f64(48, y2).i32(88, static_cast<int32_t>(perRow));
        return ca.i32(92, static_cast<int32_t>(rows)).i32(96, bits);
    }
    const uint8_t *bitmap() const {
        return static_cast<const uint8_t *>(GlobalLock(lpEMData->pictureBitmap));
    }
};

TEST_F(Cells, DownwardArraysFillFromRowZeroAndDropWhatDoesNotFit) {
    body(0.0, 5.0);
    ASSERT_EQ(open(6, 15, 8), 0);
    for (int a = 0; a < 2; ++a) {
        Op ca = cells(8, 10, 8, 0.0, 9.0);
        for (int row = 0; row < 10; ++row) memset(ca.bytes + 102 + 8 * row, a * 16 + row + 1, 8);
        call(ca);
    }
    EXPECT_EQ(lpEMData->currentRow, 15);
    ASSERT_EQ(GlobalSize(lpEMData->pictureBitmap), 8u * 15);
    for (int row = 0; row < 15; ++row)
        EXPECT_EQ(bitmap()[8 * row + 7], row < 10 ? row + 1 : 16 + row - 9) << "row " << row;
    EXPECT_EQ(close(), 0);
    EXPECT_EQ(lpEMData->pictureBitmap, 0u);
    EXPECT_EQ(lpEMData->accumulating, 0);
}

TEST_F(Cells, UpwardRowsSkipTheLastRowAndRestartBelowIt) {
    body(0.0, 3.0);
    ASSERT_EQ(open(4, 4, 8), 0);
    for (uint8_t value = 1; value <= 4; ++value) {
        Op ca = cells(4, 1, 8, 1.0, 0.0);  // the second corner below the first
        memset(ca.bytes + 102, value, 4);
        call(ca);
    }
    const uint8_t want[4] = {3, 2, 4, 0};  // the fourth row lands again at row 2
    for (int row = 0; row < 4; ++row) EXPECT_EQ(bitmap()[4 * row], want[row]) << "row " << row;
    EXPECT_EQ(lpEMData->currentRow, 2);
    close();
}

TEST_F(Cells, AWindowWhoseYRunsDownTurnsTheDirection) {
    body(0.0, 3.0, 50.0, 0.0);
    ASSERT_EQ(open(4, 3, 8), 0);
    Op ca = cells(4, 1, 8, 0.0, 1.0);
    call(ca.raw(102, "\x07\x07\x07\x07", 4));
    EXPECT_EQ(bitmap()[4], 7);
    EXPECT_EQ(lpEMData->currentRow, 1);
    close();
}

TEST_F(Cells, RowWidthComesFromTheTruncatedWindowAndItsCaps) {
    body(2.9, -5.7);  // trunc gives 2 and -5: 8 pixels
    const struct {
        int32_t maxWidth, bits, width, depth;
        uint32_t size;
    } cases[] = {{100, 8, 8, 8, 16}, {5, -32768, 5, 1, 8}, {7, -24, 7, 24, 48}};
    for (const auto &c : cases) {
        ASSERT_EQ(open(c.maxWidth, 2, c.bits, 0x1234), 0);
        EXPECT_EQ(lpEMData->pictureWidth, c.width);
        EXPECT_EQ(lpEMData->pictureDepth, c.depth);
        EXPECT_EQ(GlobalSize(lpEMData->pictureBitmap), c.size) << "rows padded to 4 bytes";
        EXPECT_EQ(lpEMData->cellFlag, 0x1234);
        close();
    }
}

TEST_F(Cells, NarrowRowsAreReadAtTheStrideOfTheirDepth) {
    body(0.0, 1.0);
    ASSERT_EQ(open(2, 2, 24), 0);
    Op ca = cells(5, 2, 24, 0.0, 1.0);  // 15-byte source rows padded to 16
    for (int i = 0; i < 32; ++i) ca.bytes[102 + i] = static_cast<uint8_t>(i + 1);
    call(ca);
    EXPECT_EQ(0, memcmp(bitmap(), ca.bytes + 102, 8));
    EXPECT_EQ(0, memcmp(bitmap() + 8, ca.bytes + 102 + 16, 8)) << "24 bits skip the rest";
    close();
    ASSERT_EQ(open(2, 2, 8), 0);
    call(cells(10, 2, 8, 0.0, 1.0).raw(102, ca.bytes + 102, 24));
    EXPECT_EQ(bitmap()[4], 5) << "8 bits: row 1 starts at 4 bytes, not at the padded 12";
    close();
}

TEST_F(Cells, TrueColourRowsFollowTheColourModeAndCellsMayLiveElsewhere) {
    body(0.0, 1.0, 0.0, 10.0, TOLVA_COLOUR_INVERT);
    ASSERT_EQ(open(2, 1, 24), 0);
    const uint8_t cellsData[8] = {0x00, 0x10, 0x20, 0xff, 0xf0, 0x80, 0, 0};  // a padded row
    const uint8_t *address = cellsData;
    Op ca = cells(2, 1, -24, 0.0, 1.0);
    call(ca.raw(102, &address, sizeof address));
    EXPECT_EQ(0, memcmp(bitmap(), "\xff\xef\xdf\x00\x0f\x7f", 6));
    EXPECT_EQ(cellsData[1], 0x10) << "the host's cells stay as they were";
    close();
}

TEST_F(Cells, MissingBitmapsAndPicturesAreHandled) {
    body(0.0, 3.0);
    ASSERT_EQ(open(4, -1, 8), 0) << "a bitmap that cannot be had is noticed later";
    Op ca = cells(4, 1, 8, 0.0, 1.0);
    EXPECT_EQ(call(ca), 300);
    close();
    EXPECT_EQ(call(ca), 0) << "outside a picture: written on its own";
    EXPECT_EQ(lpEMData->pictureBitmap, 0u);
    lpEMData->pictureHeight = 0;
    lpEMData->currentRow = 0;
    EXPECT_EQ(call(ca), 0);
    EXPECT_EQ(lpEMData->currentRow, 0) << "a picture height of 0 takes no rows";
}

}  // namespace

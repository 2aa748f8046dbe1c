// Cell arrays collected into a picture between primitives -5 and -6: the row
// geometry, the source stride and the downward and upward fill, read from
// the picture bitmap before -6 hands it on and frees it.
#include "host_fixture.h"

namespace {

class Cells : public DriverTest {
protected:
    // A device in the picture body whose window spans x1..x2 and y 0..ySpan.
    void body(double x1, double x2, double ySpan = 100.0) {
        ASSERT_EQ(start(), 0);
        reach(4);
        Op dvwn(0x206);
        dvwn.f64(16, x1).f64(24, 0.0).f64(40, x2).f64(48, ySpan);
        call(dvwn);
        reach(8);
    }
    // Primitive -5 with one (ignored) point in front of its data.
    int32_t open(int32_t maxWidth, int32_t height, int32_t bits, int16_t flag = 0) {
        Op gdp(0x40a);
        gdp.i32(16, -5).i32(20, 1).f64(24, 99.0).i32(48, 28);
        gdp.i32(52, maxWidth).i32(56, height).i32(60, bits).i16(66, flag);
        return call(gdp);
    }
    int32_t close() {
        Op gdp(0x40a);
        gdp.i32(16, -6);
        return call(gdp);
    }
    // A cell array from the first corner's y to the second's.
    static Op cells(uint32_t perRow, uint32_t rows, int32_t bits, double y1, double y2) {
        Op ca(0x409);
        ca.f64(24, y1).f64(48, y2).i32(88, static_cast<int32_t>(perRow));
        ca.i32(92, static_cast<int32_t>(rows)).i32(96, bits);
        return ca;
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
    ASSERT_NE(lpEMData->pictureBitmap, 0u);
    EXPECT_EQ(GlobalSize(lpEMData->pictureBitmap), 8u * 15);
    const uint8_t *bits = bitmap();
    for (int row = 0; row < 15; ++row) {
        uint8_t want = row < 10 ? row + 1 : 16 + row - 10 + 1;
        EXPECT_EQ(bits[8 * row], want) << "row " << row;
        EXPECT_EQ(bits[8 * row + 5], want);
        EXPECT_EQ(bits[8 * row + 7], want) << "whole padded rows are copied";
    }
    EXPECT_EQ(close(), 0);
    EXPECT_EQ(lpEMData->pictureBitmap, 0u);
    EXPECT_EQ(lpEMData->accumulating, 0);
}

TEST_F(Cells, UpwardRowsSkipTheLastRowAndRestartBelowIt) {
    body(0.0, 3.0);
    ASSERT_EQ(open(4, 4, 8), 0);
    for (uint8_t value = 1; value <= 4; ++value) {
        Op ca = cells(4, 1, 8, 1.0, 0.0);  // second corner below the first
        memset(ca.bytes + 102, value, 4);
        call(ca);
    }
    const uint8_t *bits = bitmap();
    EXPECT_EQ(bits[0 * 4], 3);
    EXPECT_EQ(bits[1 * 4], 2);
    EXPECT_EQ(bits[2 * 4], 4) << "the fourth row lands again at height - 2";
    EXPECT_EQ(bits[3 * 4], 0) << "the last row is never filled";
    EXPECT_EQ(lpEMData->currentRow, 2);
    close();
}

TEST_F(Cells, AWindowWithYDownwardTurnsTheDirection) {
    ASSERT_EQ(start(), 0);
    reach(4);
    Op dvwn(0x206);
    dvwn.f64(16, 0.0).f64(24, 50.0).f64(40, 3.0).f64(48, 0.0);  // y2 below y1
    call(dvwn);
    reach(8);
    ASSERT_EQ(open(4, 3, 8), 0);
    Op ca = cells(4, 1, 8, 0.0, 1.0);  // corners rising: upward in this window
    memset(ca.bytes + 102, 7, 4);
    call(ca);
    EXPECT_EQ(bitmap()[4], 7);
    EXPECT_EQ(lpEMData->currentRow, 1);
    close();
}

TEST_F(Cells, RowWidthComesFromTheTruncatedWindowAndItsCaps) {
    body(2.9, -5.7);  // trunc gives 2 and -5: 8 pixels
    ASSERT_EQ(open(100, 2, 8, 0x1234), 0);
    EXPECT_EQ(lpEMData->pictureWidth, 8);
    EXPECT_EQ(lpEMData->pictureDepth, 8);
    EXPECT_EQ(lpEMData->cellFlag, 0x1234);
    EXPECT_EQ(GlobalSize(lpEMData->pictureBitmap), 16u);
    close();
    ASSERT_EQ(open(5, 2, -32768), 0);
    EXPECT_EQ(lpEMData->pictureWidth, 5);
    EXPECT_EQ(lpEMData->pictureDepth, 1);
    EXPECT_EQ(GlobalSize(lpEMData->pictureBitmap), 8u) << "1-bit rows still pad to 4 bytes";
    close();
    ASSERT_EQ(open(7, 1, -24), 0);
    EXPECT_EQ(lpEMData->pictureDepth, 24);
    EXPECT_EQ(GlobalSize(lpEMData->pictureBitmap), 24u);
    close();
}

TEST_F(Cells, NarrowTrueColourRowsSkipTheRestOfEachSourceRow) {
    body(0.0, 1.0);
    ASSERT_EQ(open(2, 2, 24), 0);
    Op ca = cells(5, 2, 24, 0.0, 1.0);  // source rows of 15 bytes padded to 16
    for (int i = 0; i < 32; ++i) ca.bytes[102 + i] = static_cast<uint8_t>(i + 1);
    call(ca);
    const uint8_t *bits = bitmap();
    EXPECT_EQ(0, memcmp(bits, ca.bytes + 102, 8));
    EXPECT_EQ(0, memcmp(bits + 8, ca.bytes + 102 + 16, 8));
    close();
}

TEST_F(Cells, NarrowPaletteRowsAreReadAtTheirOwnWidth) {
    body(0.0, 2.0);
    ASSERT_EQ(open(3, 2, 8), 0);
    Op ca = cells(10, 2, 8, 0.0, 1.0);
    for (int i = 0; i < 24; ++i) ca.bytes[102 + i] = static_cast<uint8_t>(i + 1);
    call(ca);
    EXPECT_EQ(bitmap()[4], 5) << "row 1 starts 4 bytes on, not 12";
    close();
}

TEST_F(Cells, CellsHeldElsewhereAreReadThroughTheirAddress) {
    body(0.0, 15.0);
    ASSERT_EQ(open(16, 2, -32768), 0);
    const uint8_t data[8] = {0xf0, 0x0f, 0, 0, 0xaa, 0x55, 0, 0};
    const uint8_t *address = data;
    Op ca = cells(16, 2, -32768, 0.0, 1.0);
    ca.raw(102, &address, sizeof address);
    call(ca);
    EXPECT_EQ(0, memcmp(bitmap(), data, 8));
    close();
}

TEST_F(Cells, APictureWithoutABitmapReports300) {
    body(0.0, 3.0);
    ASSERT_EQ(open(4, -1, 8), 0) << "the missing bitmap is noticed by the next cell array";
    EXPECT_EQ(lpEMData->pictureBitmap, 0u);
    Op ca = cells(4, 1, 8, 0.0, 1.0);
    EXPECT_EQ(call(ca), 300);
    close();
}

TEST_F(Cells, ACellArrayOutsideAPictureIsWrittenOnItsOwn) {
    body(0.0, 3.0);
    Op ca = cells(4, 2, 8, 0.0, 1.0);
    EXPECT_EQ(call(ca), 0);
    EXPECT_EQ(lpEMData->currentRow, 0) << "a picture height of 0 takes no rows";
    EXPECT_EQ(lpEMData->pictureBitmap, 0u);
}

}  // namespace

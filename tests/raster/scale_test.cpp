// Scaling and flipping: the 16-bit counters, the flip partner one past the
// mirror, and bitmaps that are missing or too short.
#include <tuple>

#include "raster_testing.h"

namespace {

// A 32-bit bitmap whose pixels hold their own numbers, row by row.
HGLOBAL numbered(int32_t width, int32_t height) {
    Values pixels(static_cast<size_t>(width) * static_cast<size_t>(height));
    for (uint32_t i = 0; i < pixels.size(); ++i) pixels[i] = i;
    return make_bitmap(pixels, width, height, 32);
}

// The ratios themselves are compared with the literal scaling by the oracle
// tests; these sizes lie beyond the pictures it generates.
TEST(Scale, SixteenBitCounters) {
    // 40000 rows to 20000: row k takes source row 2k while 2k < 32768; beyond,
    // the 16-bit position is negative and those rows stay zero, except the last
    // one, which keeps the last source row scaled into it first.
    HGLOBAL rows = numbered(1, 40000), half = rlShrinkBitmap(rows, 32, 1, 40000, 1, 20000);
    Values got = read_bitmap(half, 1, 20000, 32);
    EXPECT_EQ((Values{got[16383], got[16384], got[19998], got[19999]}),
              (Values{32766, 0, 0, 39999}));
    // 140000 rows to 2: trunc(70000.0) wraps to 4464, a row inside the source.
    HGLOBAL many = numbered(1, 140000), two = rlShrinkBitmap(many, 32, 1, 140000, 1, 2);
    EXPECT_EQ(read_bitmap(two, 1, 2, 32), (Values{0, 70000 - 65536}));
    // A stretch whose repeat count reaches 40000 reads it as negative and
    // writes nothing; 30000 still fits.
    HGLOBAL pixel = make_bitmap({9}, 1, 1, 8);
    HGLOBAL wide = rlStretchBitmap(pixel, 8, 1, 1, 40000, 2);
    EXPECT_EQ(block_bytes(wide), Bytes(rlCalcNewSize(40000, 2, 8), 0));
    HGLOBAL narrow = rlStretchBitmap(pixel, 8, 1, 1, 30000, 2);
    EXPECT_EQ(read_bitmap(narrow, 30000, 2, 8), Values(60000, 9));
    for (HGLOBAL h : {rows, half, many, two, pixel, wide, narrow}) rlFreeNewData(h);
}

TEST(Scale, BadInput) {
    HGLOBAL bits = make_bitmap({1, 2, 3, 4, 5, 6}, 3, 2, 8);
    HGLOBAL none = rlShrinkBitmap(0, 8, 3, 2, 2, 1);  // no source: zeroed
    EXPECT_EQ(block_bytes(none), Bytes(4, 0));
    EXPECT_EQ(rlShrinkBitmap(bits, 8, 3, 2, -2, 1), 0u);
    HGLOBAL empty = rlShrinkBitmap(bits, 8, 3, 2, 0, 0);
    EXPECT_EQ(GlobalSize(empty), 0u);
    HGLOBAL tall = rlStretchBitmap(bits, 8, 3, 50, 3, 60);  // the block holds 2 of the 50 rows
    EXPECT_EQ(read_bitmap(tall, 3, 60, 8).back(), 0u);
    for (int16_t bpp : {0, 2, 16, -8}) {  // no pixels at these depths: nothing drawn
        HGLOBAL h = rlShrinkBitmap(bits, bpp, 3, 2, 2, 1);
        EXPECT_EQ(block_bytes(h), Bytes(GlobalSize(h), 0)) << bpp;
        rlFreeNewData(h);
    }
    for (HGLOBAL h : {bits, none, empty, tall}) rlFreeNewData(h);
}

TEST(Flip, PartnerIsOnePastTheMirrorAndStaysInsideTheBlock) {
    const Bytes counted = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    // {depth, width, height, horizontal, vertical, the whole block before, after}
    const std::tuple<int16_t, int32_t, int32_t, int16_t, int16_t, Bytes, Bytes> cases[] = {
        // Pixel 0 pairs with the padding byte at 3; pixel 2 stays.
        {8, 3, 1, 1, 0, {1, 2, 3, 7}, {7, 2, 3, 1}},
        // Pixel 0 <-> padding bit 8, 1..3 <-> 7..5, pixel 4 stays.
        {1, 8, 1, 1, 0, {0xC8, 0, 0, 0}, {0x09, 0x80, 0, 0}},
        {4, 3, 1, 1, 0, {0x12, 0x30, 0, 0}, {0x02, 0x31, 0, 0}},
        {32, 2, 1, 1, 0, {1, 2, 3, 4, 5, 6, 7, 8}, {0, 0, 0, 0, 5, 6, 7, 8}},
        // Rows reversed, and every row mirrored once.
        {8, 3, 3, 1, 1, {1, 2, 3, 0, 4, 5, 6, 0, 7, 8, 9, 0}, {0, 8, 9, 7, 0, 5, 6, 4, 0, 2, 3, 1}},
        // No padding: pixel 4 of row 0 is row 1's pixel 0, and pixel 4 of the
        // last row lies past the block, read as 0 and not written.
        {8, 4, 2, 1, 0, {1, 2, 3, 4, 5, 6, 7, 8}, {5, 4, 3, 2, 0, 8, 7, 6}},
        // The partner of pixel 0 straddles the end of the block.
        {24, 5, 1, 1, 0, counted, {16, 0, 0, 13, 14, 15, 7, 8, 9, 10, 11, 12, 4, 5, 6, 1}},
        // Nothing to flip: more rows claimed than held, no pixels at 16 bits,
        // a negative width.
        {8, 3, 9, 1, 1, {1, 2, 3, 0}, {1, 2, 3, 0}},
        {16, 3, 1, 1, 0, {1, 2, 3, 0}, {1, 2, 3, 0}},
        {8, -3, 1, 1, 1, {1, 2, 3, 0}, {1, 2, 3, 0}},
    };
    for (const auto &[bpp, width, height, horizontal, vertical, before, after] : cases) {
        HGLOBAL h = bytes_block(before);
        EXPECT_EQ(rlFlipBitmap(h, bpp, width, height, horizontal, vertical), h);
        EXPECT_EQ(block_bytes(h), after) << bpp << " bits, " << width << "x" << height;
        rlFreeNewData(h);
    }
    EXPECT_EQ(rlFlipBitmap(0, 8, 4, 4, 1, 1), 0u);
}

}  // namespace

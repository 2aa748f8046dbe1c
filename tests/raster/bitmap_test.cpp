// Row geometry, single-pixel access and nearest colour, what the debug levels
// print; scaling and flipping. (Colour maps are checked through the
// conversions that use them.)
#include <tuple>

#include "raster_testing.h"

namespace {

TEST(Bitmap, RowsArePaddedToFourBytes) {
    const int32_t cases[][3] = {{33, 1, 8}, {32, 1, 4},  {0, 8, 0},
                                {9, 4, 8},  {5, 24, 16}, {1, 32, 4}};
    for (const auto &c : cases)
        EXPECT_EQ(rlBytesPerLine(c[0], static_cast<int16_t>(c[1])), c[2]) << c[0] << "x" << c[1];
    EXPECT_EQ(rlCalcNewSize(5, 3, 24), 48u);
}

TEST(Bitmap, PixelsAreMostSignificantFirst) {
    uint8_t row[16] = {0x80, 0x01, 0, 0, 0xAB};
    EXPECT_EQ(rlGetPixel(row, 4, 0, 0, 1), 1u);  // x = 0 is the top bit
    EXPECT_EQ(rlGetPixel(row, 4, 15, 0, 1), 1u);
    EXPECT_EQ(rlGetPixel(row, 4, 0, 1, 4), 0xAu);  // even x: high nibble
    EXPECT_EQ(rlGetPixel(row, 4, 1, 1, 4), 0xBu);
    for (int16_t bits : {0, 2, 16, 33, -8}) {  // other depths read as 0 and write nothing
        EXPECT_EQ(rlGetPixel(row, 4, 1, 1, bits), 0u) << bits;
        rlSetPixel(row, 4, 1, 1, bits, ~0u, nullptr, nullptr, 0);
    }
    rlSetPixel(row, 4, 9, 0, 1, 3, nullptr, nullptr, 0);  // only the low bit counts
    rlSetPixel(row, 4, 0, 0, 1, 0, nullptr, nullptr, 0);
    rlSetPixel(row, 4, 0, 1, 4, 0x1C, nullptr, nullptr, 0);  // the other nibble stays
    rlSetPixel(row, 4, 3, 1, 4, 0x5, nullptr, nullptr, 0);
    rlSetPixel(row, 4, 0, 2, 32, 0xA1B2C3D4u, nullptr, nullptr, 0);
    EXPECT_EQ(Bytes(row, row + 12), (Bytes{0, 0x41, 0, 0, 0xCB, 5, 0, 0, 0xA1, 0xB2, 0xC3, 0xD4}));
    EXPECT_EQ(rlGetPixel(row, 4, 0, 2, 32), 0xA1B2C3D4u);
    EXPECT_EQ(rlGetPixel(row, 4, 0, 2, 24), 0xA1B2C300u);  // red in the top byte
    EXPECT_EQ(rlGetPixel(row, 4, 1, 2, 24), 0xD4000000u);  // 3 bytes a pixel
}

TEST(Bitmap, StoredValueComesFromMapThenTable) {
    const uint8_t table[] = {0, 0, 0, 255, 0, 0, 0, 0, 255, 200, 200, 200};
    const uint32_t map[] = {3, 1, 0, 2}, packedMap[] = {0x10203000u};
    Bytes data(4, 9);
    rlSetPixel(data.data(), 4, 0, 0, 8, 2, map, table, 4);                // the map wins
    rlSetPixel(data.data(), 4, 1, 0, 8, 0x1008F000u, nullptr, table, 4);  // nearest: pure blue
    EXPECT_EQ(data, (Bytes{0, 2, 9, 9}));
    rlSetPixel(data.data(), 4, 0, 0, 32, 1, map, table, 4);  // table entry map[1], fourth byte 0
    EXPECT_EQ(data, (Bytes{255, 0, 0, 0}));
    // A map entry that is no index of the table is written as its own bytes.
    rlSetPixel(data.data(), 4, 0, 0, 24, 0, packedMap, table, 4);
    EXPECT_EQ(data, (Bytes{0x10, 0x20, 0x30, 0}));
    // An index above 127 passes through a signed byte; its low bits survive.
    Bytes wide(201 * 3, 0);
    for (int i = 0; i < 200; ++i) wide[3 * i] = 255;
    wide[600] = 10, wide[601] = 100, wide[602] = 200;
    rlSetPixel(data.data(), 4, 0, 0, 8, 0x0A64C800u, nullptr, wide.data(), 201);
    EXPECT_EQ(data[0], 200);
}

// Greys, tints and ties are compared with the literal search by the oracle
// tests; a search with no table answers 0.
TEST(NearestColour, NoTableGivesEntryZero) {
    const uint8_t table[] = {0, 40, 100, 60, 0, 0};
    EXPECT_EQ(rlNearestRGBIndex(60, 0, 0, nullptr, 2), 0);
    EXPECT_EQ(rlNearestRGBIndex(60, 0, 0, table, -3), 0);
}

TEST(Debug, LevelsPrintProgressAndChangeNothing) {
    const std::string memory = " bytes of new memory for the destination bitmap\n";
    const std::string rows = "Converted bits. Each (.) represents one scan line\n..\n";
    const std::string done = "Color resolution conversion complete\n";
    // Level 4 converts pixel by pixel, printing where each pixel goes.
    HGLOBAL two = make_bitmap({packed(0x102030), packed(0x405060)}, 1, 2, 24), b = 0;
    HGLOBAL a = rlConvertBitmapDepth(two, 1, 2, 24, 24, 0, 0, 0);
    EXPECT_EQ(printed(4, [&] { b = rlConvertBitmapDepth(two, 1, 2, 24, 24, 0, 0, 0); }),
              "Allocated 8" + memory + "(0,0): (0,1): \n" + done + "| ");
    EXPECT_EQ(block_bytes(a), block_bytes(b));
    // Dithering prints on standard output; its conversions, to 24 bits and
    // then to the indices, on standard error. (The table it lists is checked
    // in the dithering tests, traced dithering against the literal loop in the
    // oracle tests.)
    HGLOBAL grey = make_bitmap(Values(6, packed(0x808080)), 3, 2, 24), table = 0, out = 0;
    std::string text = printed(1, [&] { out = rlDitherBitmap(grey, 3, 2, 24, 1, 0, &table); });
    EXPECT_EQ(text.substr(0, text.find("color 1:")),
              "Allocated 24" + memory + rows + done + "Allocated 8" + memory + rows + done +
                  "| Dithering to the following colortable:\ncolor 0: [0, 0, 0]\n");
    EXPECT_TRUE(text.ends_with("\nDithering...each(.) represents one scan line\n..\n"));
    for (HGLOBAL h : {two, a, b, grey, table, out}) rlFreeNewData(h);
}

// Scaling and flipping: the 16-bit counters, the flip partner one past the
// mirror, and bitmaps that are missing or too short.

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

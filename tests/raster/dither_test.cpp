// Dithering: the row filter's modes, rows left alone, and the tables each
// depth gets.
#include <tuple>

#include "raster_testing.h"

namespace {

Bytes greys(std::initializer_list<uint8_t> values) {
    Bytes p;
    for (uint8_t v : values) p.insert(p.end(), {v, v, v});
    return p;
}

TEST(RevRgb, Modes) {
    const Bytes row = {0, 10, 20, 100, 110, 105, 10, 20, 30, 250, 245, 255};
    const std::tuple<int32_t, int32_t, Bytes> cases[] = {
        // {mode, width, row after}
        {1, 4, {255, 245, 235, 155, 145, 150, 245, 235, 225, 5, 10, 0}},
        // Mode 2 inverts near greys only, every pair within 10: (0, 10, 20) fails red-blue.
        {2, 4, {0, 10, 20, 155, 145, 150, 10, 20, 30, 5, 10, 0}},
        // (3r + 6g + b) / 10, then that inverted.
        {3, 4, {8, 8, 8, 106, 106, 106, 18, 18, 18, 247, 247, 247}},
        {4, 4, {247, 247, 247, 149, 149, 149, 237, 237, 237, 8, 8, 8}},
        {0, 4, row},
        {1, 0, row},
        {1, -4, row},
    };
    for (const auto &[mode, width, expected] : cases) {
        Bytes r = row;
        rev_rgb(width, r.data(), mode);
        EXPECT_EQ(r, expected) << mode << " " << width;
    }
}

// The error formulas, clamps and the last pixel's choice are compared with the
// literal loop by the oracle tests; here only the calls that do nothing.
TEST(DitherLine, NothingToDitherLeavesTheRowAlone) {
    const Bytes bw = greys({0, 255});
    Bytes keep = greys({1, 2, 3});  // no table, no entries, no width: untouched
    _rlDitherOneLine(keep.data(), nullptr, nullptr, 3, 2);
    _rlDitherOneLine(keep.data(), nullptr, bw.data(), 3, 0);
    _rlDitherOneLine(keep.data(), nullptr, bw.data(), 0, 2);
    EXPECT_EQ(keep, greys({1, 2, 3}));
}

TEST(DitherTables, ChosenByDepthOrGivenByTheCaller) {
    // Four colours: at 4 bits the table is their reduction (in key order, each
    // 5-bit channel c written as c * 8 | 7), the 8 fixed colours, then black.
    HGLOBAL src = make_bitmap(
        {packed(0xFF0000), packed(0x008000), packed(0x000040), packed(0x808080)}, 2, 2, 24);
    Bytes four = {0, 0, 71, 0, 135, 0, 135, 135, 135, 255, 0, 0};
    four.insert(four.end(), must_have_colors, must_have_colors + 24);
    four.resize(48, 0);
    // A caller's table: rlDitherBitmap takes it at any depth (2^depth
    // entries), rlDitherGetCT only below 3 entries, so at 1 bit.
    HGLOBAL given = bytes_block(Bytes(48, 7));
    for (int16_t depth : {1, 4}) {
        HGLOBAL table = 0, used = 0, kept = given, taken = given;
        int16_t count = 0, keptCount = 0;
        EXPECT_EQ(rlDitherGetCT(src, 2, 2, 24, depth, 0, &table, &count), 0);
        EXPECT_EQ(count, depth == 1 ? 8 : 16);
        EXPECT_EQ(block_bytes(table), depth == 1 ? Bytes(MonoTable, MonoTable + 24) : four);
        HGLOBAL out = rlDitherBitmap(src, 2, 2, 24, depth, 0, &used);
        EXPECT_EQ(block_bytes(used), block_bytes(table));  // the same choice
        rlDitherGetCT(src, 2, 2, 24, depth, 0, &kept, &keptCount);
        EXPECT_EQ(kept == given, depth == 1);
        EXPECT_EQ(keptCount, depth == 1 ? 2 : 16);
        HGLOBAL withGiven = rlDitherBitmap(src, 2, 2, 24, depth, 0, &taken);
        EXPECT_EQ(taken, given);
        for (HGLOBAL h : {table, used, out, withGiven}) rlFreeNewData(h);
        if (kept != given) rlFreeNewData(kept);
    }
    // An indexed source is copied to 24 bits without its table: every pixel
    // reads as black, entry 1 of this table.
    HGLOBAL indexed = make_bitmap(Values(8, 5), 4, 2, 8), light = bytes_block(Bytes(768, 200));
    HGLOBAL whiteBlack = make_table({0xFFFFFF, 0x000000});
    HGLOBAL mono = rlDitherGivenCT(indexed, 4, 2, 8, 1, light, whiteBlack, 2);
    EXPECT_EQ(block_bytes(mono)[0], 0xF0);
    for (HGLOBAL h : {src, given, indexed, light, whiteBlack, mono}) rlFreeNewData(h);
}

TEST(DitherTables, BadInput) {
    HGLOBAL table = 0, out = rlDitherBitmap(0, 5, 5, 24, 4, 0, &table);  // no source: all black
    EXPECT_EQ(block_bytes(out), Bytes(GlobalSize(out), 0));
    HGLOBAL picture = make_bitmap(Values(6, packed(0x123456)), 3, 2, 24);
    for (int16_t depth : {0, 2, 3, 16, -1}) {  // no pixels at these depths
        HGLOBAL t = 0, o = rlDitherBitmap(picture, 3, 2, 24, depth, 0, nullptr);
        for (HGLOBAL h : {o, rlDitherBitmap(picture, 3, 2, 24, depth, 0, &t), t}) rlFreeNewData(h);
    }
    HGLOBAL untouched = rlDitherGivenCT(picture, 3, 2, 24, 4, 0, 0, 16);  // no table
    for (HGLOBAL h : {out, table, picture, untouched}) rlFreeNewData(h);
}

}  // namespace

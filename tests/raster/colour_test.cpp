// Colour reduction by median cut, depth conversion, the choice of road in
// rlChangeColorResolution, the colour-model rewrites, and dithering.
#include <algorithm>
#include <tuple>

#include "raster_testing.h"

namespace {

// A one-row 24-bit bitmap of 0xRRGGBB colours, reduced to at most `count`.
Bytes reduce(const Values &rrggbb, int16_t &count) {
    auto width = static_cast<int32_t>(rrggbb.size());
    Bytes pixels = table_bytes(rrggbb);
    pixels.resize(rlCalcNewSize(width, 1, 24));
    HGLOBAL bits = bytes_block(pixels), table = rlReduceColorTable(bits, width, 1, &count);
    Bytes out = block_bytes(table);
    out.resize(3 * static_cast<size_t>(count));  // the entries produced, of those asked for
    for (HGLOBAL h : {bits, table}) rlFreeNewData(h);
    return out;
}

TEST(MedianCut, EmittedTables) {
    // 70000 black pixels weigh as 65535 against 65535 white ones: the box's
    // mean is 15 (127) per channel; with unsaturated counters it would be 14.
    Values saturating(70000 + 65535, 0xFFFFFF);
    std::fill(saturating.begin(), saturating.begin() + 70000, 0u);
    const std::tuple<Values, int16_t, Values> cases[] = {
        // {pixels, colours asked, table}
        // Fewer colours than asked: key order, channels cut to 5 bits and
        // expanded as c * 8 | 7 (0 stays 0).
        {{0xFFFFFF, 0x0000FF, 0x08F010, 0x000000, 0x0000FF, 0x800001, 0x0F0F0F, 0x000000},
         16,
         {0x000000, 0x0000FF, 0x0F0F0F, 0x0FF717, 0x870000, 0xFFFFFF}},
        // Exactly as many as asked still cuts. Reds 0, 10, 20, 31 (5 bits): the
        // second cut's heap build pulls red 20 into the box {0, 10} and drops
        // red 0; the freed slot 1 keeps the first box {0, 10} with its mean 5.
        {{0x000000, 0x500000, 0xA00000, 0xF80000}, 4, {0x570000, 0x2F0000, 0xCF0000, 0xA70000}},
        // Two of two: one box, and a slot that was never used.
        {{0x000000, 0xF80000}, 2, {0x7F0000, 0x000000}},
        {saturating, 2, {0x7F7F7F, 0x000000}},
        {{0xFFFFFF, 0x000000}, 0, {}},  // no colours asked: none
    };
    for (const auto &[pixels, asked, table] : cases) {
        int16_t count = asked;
        EXPECT_EQ(reduce(pixels, count), table_bytes(table)) << asked;
        EXPECT_EQ(count, static_cast<int16_t>(table.size()));
    }
}

TEST(MedianCut, ZeroHandles) {
    int16_t count = 8;
    HGLOBAL table = rlReduceColorTable(0, 4, 4, &count);  // no bitmap: the table stays zeroed
    EXPECT_EQ(count, 8);
    EXPECT_EQ(block_bytes(table), Bytes(24, 0));
    uint8_t pixel[4] = {}, entries[12] = {};
    EXPECT_EQ(direct_indexed(pixel, 1, 1, &count, 3, entries, 0), -1);  // no context
    EXPECT_EQ(TermColorLib(0), 0);
    rlFreeNewData(table);
}

TEST(MedianBoxes, DownwardRunComparesWithTheEntryAbove) {
    auto red = [](int r5, int count) {
        return RlColorEntry{static_cast<uint16_t>(r5 << 10), static_cast<uint16_t>(count)};
    };
    RlColorBox box{};
    box.last = 4;  // red axis, entries 0 to 4
    RlColorEntry a[] = {red(1, 1), red(2, 1), red(2, 1), red(2, 1), red(3, 1), {0, 0}};
    EXPECT_EQ(find_median(a, &box), 0);  // comparing with the entry below would give 1
    RlColorEntry b[] = {red(1, 3), red(4, 1), red(4, 1), red(4, 1), red(9, 3), {0, 0}};
    EXPECT_EQ(find_median(b, &box), 3);  // the upward run wins; otherwise 1
    box.last = 1;
    EXPECT_EQ(find_median(b, &box), 0);  // two entries: always the first
}

// `rewrite` turns the block `before` into `after`; a zero handle is ignored.
void expect_rewrite(void (*rewrite)(HGLOBAL, int32_t, int32_t), int32_t width, int32_t height,
                    const Bytes &before, const Bytes &after) {
    HGLOBAL h = bytes_block(before);
    rewrite(h, width, height);
    EXPECT_EQ(block_bytes(h), after) << width << "x" << height;
    rlFreeNewData(h);
    rewrite(0, width, height);
}

// RGB rows come out packed without padding; what lies past the pixels stays.
TEST(ColourModel, CmykAlphaAndBackRewriteTheBlock) {
    expect_rewrite(rlCMYKtoRGB, 2, 2, {0, 0, 0, 255, 255, 0, 0, 0, 10, 200, 30, 100, 1, 2, 3, 4},
                   {0, 0, 0, 0, 255, 255, 155, 55, 155, 251, 251, 251, 1, 2, 3, 4});
    expect_rewrite(rlALPHAtoRGB, 1, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12},
                   {1, 2, 3, 5, 6, 7, 9, 10, 11, 10, 11, 12});
    expect_rewrite(rlRGB4toCMYK, 2, 1, {0, 100, 255, 77, 10, 20, 30, 40, 1},
                   {255, 155, 0, 0, 245, 235, 225, 0, 1});
    expect_rewrite(rlRGB4toCMYK, 2, 0, {1, 2, 3, 4}, {1, 2, 3, 4});
    // A block shorter than its size claims is rewritten only as far as it goes.
    expect_rewrite(rlRGB4toCMYK, 100, 100, {1, 2, 3, 4, 5, 5, 5, 5},
                   {254, 253, 252, 0, 250, 250, 250, 0});
}

// Conversions between every pair of depths are compared with the literal
// conversion by the oracle tests; these are the inputs it does not make.
TEST(DepthConversion, ShortTablesUnknownDepthsAndMissingBlocks) {
    HGLOBAL table4 = make_table({0xFF0000, 0x00FF00, 0x0000FF, 0xFFFFFF});
    HGLOBAL table2 = make_table({0x00FF00, 0xFF0000}), bytes = make_bitmap({1, 2, 3, 0}, 2, 2, 8);
    // {bitmap, width, height, from, to, source table, destination table, count,
    // the pixels of the first rows}
    const std::tuple<HGLOBAL, int32_t, int32_t, int16_t, int16_t, HGLOBAL, HGLOBAL, int16_t, Values>
        cases[] = {
            // An unknown depth reads 0: map[0].
            {bytes, 2, 2, 2, 8, table4, table2, 2, {1, 1, 1, 1}},
            {0, 2, 2, 24, 8, 0, table4, 4, {0, 0, 0, 0}},  // no bitmap: left zeroed
            {bytes, 2, 2, 8, 4, 0, 0, 0, {0, 0, 0, 0}},    // no tables: the map stays zeroed
            // A 4-entry table used as an 8-bit one: the missing entries read as black.
            {bytes, 2, 2, 8, 24, table4, 0, 0, {0x00FF0000, 0x0000FF00, 0xFFFFFF00, 0xFF000000}},
            {bytes, 2, 2, 8, 8, table4, table4, 200, {1, 2, 3, 0}},  // a count past the block: cut
            {bytes, 2, 9, 8, 8, table4, 0, 0, {1, 2, 3, 0, 0, 0}},   // rows the block lacks: zero
            // Unknown destination depths: allocated, never written.
            {bytes, 2, 2, 8, 0, table4, table4, 4, {}},
            {bytes, 2, 2, 8, 16, table4, table4, 4, {}},
        };
    for (const auto &[bits, w, h, from, to, srcTable, dstTable, count, pixels] : cases) {
        HGLOBAL out = rlConvertBitmapDepth(bits, w, h, from, to, srcTable, dstTable, count);
        EXPECT_EQ(GlobalSize(out), rlCalcNewSize(w, h, to));
        auto rows = static_cast<int32_t>(pixels.size()) / w;
        EXPECT_EQ(read_bitmap(out, w, rows, to), pixels) << from << " -> " << to;
        EXPECT_TRUE(!pixels.empty() || block_bytes(out) == Bytes(GlobalSize(out), 0)) << to;
        rlFreeNewData(out);
    }
    for (HGLOBAL h : {table4, table2, bytes}) rlFreeNewData(h);
}

TEST(ChangeResolution, BelowEightBitsDithers) {
    std::mt19937 rng(17);
    const int32_t w = 37, h = 23;
    // (24 -> 8 is compared with the literal road by the oracle tests.) Below
    // 8 bits the road is dithering: median cut to 2^n - 8 colours plus 8
    // fixed ones, the grey table at 1 bit, or the source table reduced first.
    HGLOBAL photo = random_bits(rng, w, h, 24), grey8 = make_bitmap(Values(w * h, 7), w, h, 8);
    HGLOBAL palette = bytes_block(Bytes(ZUNLColorTable, ZUNLColorTable + 768));
    // {bitmap, from, to, its table, entries of the table dithered against}
    const std::tuple<HGLOBAL, int16_t, int16_t, HGLOBAL, uint32_t> cases[] = {
        {photo, 24, 4, 0, 16},  // median cut to 8 colours plus the 8 fixed ones
        {photo, 24, 1, 0, 8},   // the grey MonoTable
        {grey8, 8, 4, palette, 16},
        {grey8, 8, 6, palette, 64},  // the source table reduced first, then dithered against
    };
    for (auto [bits, from, to, srcTable, entries] : cases) {
        HGLOBAL table = srcTable, out = rlChangeColorResolution(bits, w, h, from, to, &table);
        ASSERT_NE(table, srcTable);
        EXPECT_EQ(GlobalSize(table), 3 * entries) << from << " -> " << to;
        // The same as dithering directly against the table that road chose.
        auto n = static_cast<int16_t>(1 << to);
        HGLOBAL direct = to > 4 && from != 24 ? rlReduceColorTable(srcTable, 256, 1, &n) : 0;
        HGLOBAL expected = rlDitherBitmap(bits, w, h, from, to, srcTable, &direct);
        EXPECT_EQ(block_bytes(out), block_bytes(expected)) << from << " -> " << to;
        EXPECT_EQ(block_bytes(table), block_bytes(direct));
        for (HGLOBAL hd : {out, expected, table, direct}) rlFreeNewData(hd);
    }
    EXPECT_EQ(GlobalSize(palette), 768u);  // the source table is the caller's, still there
    for (HGLOBAL hd : {photo, grey8, palette}) rlFreeNewData(hd);
}

// Dithering: the row filter's modes, rows left alone, and the tables each
// depth gets.

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
    const uint8_t reduced[] = {0, 0, 71, 0, 135, 0, 135, 135, 135, 255, 0, 0};
    Bytes four(48, 0);
    std::copy(std::begin(reduced), std::end(reduced), four.begin());
    std::copy(must_have_colors, must_have_colors + 24, four.begin() + 12);
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

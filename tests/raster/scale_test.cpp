// Scaling and flipping: the worked ratios, the 16-bit counters, the flip
// partner one past the mirror, and the row plans against the per-pixel loops
// on many generated bitmaps.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "scale_oracle.h"
#include "tolva/tolva.h"

namespace {

const int16_t kDepths[] = {1, 4, 8, 24, 32};

struct Bitmap {
    HGLOBAL h;
    uint8_t *p;
    uint32_t size;
};

Bitmap make_bitmap(int32_t w, int32_t h, int16_t bpp) {
    Bitmap b;
    b.size = rlCalcNewSize(w, h, bpp);
    b.h = GlobalAlloc(66, b.size);
    b.p = static_cast<uint8_t *>(GlobalLock(b.h));
    return b;
}

Bitmap random_bitmap(std::mt19937 &rng, int32_t w, int32_t h, int16_t bpp) {
    Bitmap b = make_bitmap(w, h, bpp);
    for (uint32_t i = 0; i < b.size; ++i) b.p[i] = static_cast<uint8_t>(rng());
    return b;
}

// An 8-bit bitmap, one byte a pixel, rows given as strings of pixel values.
Bitmap bytes_bitmap(const std::vector<std::vector<uint8_t>> &rows) {
    auto w = static_cast<int32_t>(rows[0].size());
    Bitmap b = make_bitmap(w, static_cast<int32_t>(rows.size()), 8);
    int32_t line = rlBytesPerLine(w, 8);
    for (size_t y = 0; y < rows.size(); ++y) std::memcpy(b.p + y * line, rows[y].data(), rows[y].size());
    return b;
}

std::vector<uint8_t> row_of(HGLOBAL h, int32_t w, int32_t y) {
    const auto *p = static_cast<const uint8_t *>(GlobalLock(h));
    int32_t line = rlBytesPerLine(w, 8);
    return std::vector<uint8_t>(p + y * line, p + y * line + w);
}

// One 24-bit pixel a row that names its own row number.
Bitmap numbered_rows(int32_t h) {
    Bitmap b = make_bitmap(1, h, 24);
    for (int32_t y = 0; y < h; ++y) rlSetPixel(b.p, 4, 0, y, 24, static_cast<uint32_t>(y) << 8, nullptr, nullptr, 0);
    return b;
}

int32_t row_number(HGLOBAL h, int32_t y) {
    return static_cast<int32_t>(rlGetPixel(static_cast<uint8_t *>(GlobalLock(h)), 4, 0, y, 24) >> 8);
}

TEST(ScaleExamples, RowsOfPixelsAtRatioTwo) {
    Bitmap s = bytes_bitmap({{10, 11, 12, 13}});
    HGLOBAL shrunk = rlShrinkBitmap(s.h, 8, 4, 1, 2, 1);
    EXPECT_EQ(row_of(shrunk, 2, 0), (std::vector<uint8_t>{10, 13}));  // pixels 0 and 3
    Bitmap t = bytes_bitmap({{20, 21}});
    HGLOBAL stretched = rlStretchBitmap(t.h, 8, 2, 1, 4, 1);
    EXPECT_EQ(row_of(stretched, 4, 0), (std::vector<uint8_t>{20, 20, 21, 21}));
    for (HGLOBAL h : {s.h, shrunk, t.h, stretched}) GlobalFree(h);
}

TEST(ScaleExamples, TenRowsToThreeAndTwoRowsToFive) {
    Bitmap ten = numbered_rows(10);
    HGLOBAL three = rlShrinkBitmap(ten.h, 24, 1, 10, 1, 3);
    EXPECT_EQ(row_number(three, 0), 0);
    EXPECT_EQ(row_number(three, 1), 3);
    EXPECT_EQ(row_number(three, 2), 6);

    Bitmap two = numbered_rows(2);
    HGLOBAL five = rlStretchBitmap(two.h, 24, 1, 2, 1, 5);
    int32_t expected[] = {0, 0, 0, 1, 1};  // trunc(2.5) = 2 rows of row 1, then 3 of row 0
    for (int32_t y = 0; y < 5; ++y) EXPECT_EQ(row_number(five, y), expected[y]) << y;
    for (HGLOBAL h : {ten.h, three, two.h, five}) GlobalFree(h);
}

TEST(ScaleProperties, OneToOneIsTheIdentity) {
    std::mt19937 rng(1);
    for (int16_t bpp : kDepths) {
        for (int32_t w : {1, 3, 8, 33}) {
            Bitmap s = random_bitmap(rng, w, 5, bpp);
            // Padding is not a pixel: clear it so the blocks compare whole.
            HGLOBAL clean = rlShrinkBitmap(s.h, bpp, w, 5, w, 5);
            HGLOBAL again = rlShrinkBitmap(clean, bpp, w, 5, w, 5);
            const auto *a = static_cast<const uint8_t *>(GlobalLock(clean));
            const auto *b = static_cast<const uint8_t *>(GlobalLock(again));
            EXPECT_EQ(0, std::memcmp(a, b, s.size)) << bpp << " " << w;
            for (int32_t y = 0; y < 5; ++y) {
                for (int32_t x = 0; x < w; ++x) {
                    ASSERT_EQ(rlGetPixel(s.p, rlBytesPerLine(w, bpp), x, y, bpp),
                              rlGetPixel(a, rlBytesPerLine(w, bpp), x, y, bpp));
                }
            }
            for (HGLOBAL h : {s.h, clean, again}) GlobalFree(h);
        }
    }
}

TEST(ScaleProperties, RowPlansMatchThePerPixelLoops) {
    std::mt19937 rng(42);
    std::uniform_int_distribution<int32_t> size(1, 40);
    for (int trial = 0; trial < 600; ++trial) {
        int16_t bpp = kDepths[trial % 5];
        int32_t sw = size(rng), sh = size(rng), dw = size(rng), dh = size(rng);
        Bitmap s = random_bitmap(rng, sw, sh, bpp);
        HGLOBAL fast = trial % 2 ? rlShrinkBitmap(s.h, bpp, sw, sh, dw, dh)
                                 : rlStretchBitmap(s.h, bpp, sw, sh, dw, dh);
        HGLOBAL slow = oracle_scale_bitmap(s.h, bpp, sw, sh, dw, dh);
        ASSERT_EQ(0, std::memcmp(GlobalLock(fast), GlobalLock(slow), rlCalcNewSize(dw, dh, bpp)))
            << bpp << ": " << sw << "x" << sh << " -> " << dw << "x" << dh;
        for (HGLOBAL h : {s.h, fast, slow}) GlobalFree(h);
    }
}

TEST(ScaleProperties, RowFunctionsMatchOnSeveralRowsAndOddRatios) {
    // ShrinkX and StretchX called directly, either way round, on 3 rows that
    // already hold data: pixels they do not reach must keep it.
    std::mt19937 rng(3);
    for (int trial = 0; trial < 300; ++trial) {
        int16_t bpp = kDepths[trial % 5];
        int32_t sw = 1 + static_cast<int32_t>(rng() % 70), dw = 1 + static_cast<int32_t>(rng() % 70);
        Bitmap s = random_bitmap(rng, sw, 3, bpp);
        Bitmap a = random_bitmap(rng, dw, 3, bpp);
        std::vector<uint8_t> b(a.p, a.p + a.size);
        if (trial % 2) {
            ShrinkX(s.p, a.p, bpp, sw, 3, dw);
            oracle_ShrinkX(s.p, b.data(), bpp, sw, 3, dw);
        } else {
            StretchX(s.p, a.p, bpp, sw, 3, dw);
            oracle_StretchX(s.p, b.data(), bpp, sw, 3, dw);
        }
        ASSERT_EQ(0, std::memcmp(a.p, b.data(), a.size)) << bpp << ": " << sw << " -> " << dw;
        GlobalFree(s.h);
        GlobalFree(a.h);
    }
}

TEST(ScaleCounters, ShrinkRowPositionWrapsAtSixteenBits) {
    // 40000 rows to 20000: row k takes source row 2k while 2k < 32768; beyond,
    // the 16-bit position is negative and those rows stay zero, except the last
    // one, which keeps the last source row scaled into it first.
    Bitmap s = numbered_rows(40000);
    HGLOBAL d = rlShrinkBitmap(s.h, 24, 1, 40000, 1, 20000);
    EXPECT_EQ(row_number(d, 16383), 32766);
    EXPECT_EQ(row_number(d, 16384), 0);
    EXPECT_EQ(row_number(d, 19998), 0);
    EXPECT_EQ(row_number(d, 19999), 39999);
    GlobalFree(d);
    GlobalFree(s.h);

    // 140000 rows to 2: trunc(70000.0) wraps to 4464, a row inside the source.
    Bitmap t = numbered_rows(140000);
    HGLOBAL e = rlShrinkBitmap(t.h, 24, 1, 140000, 1, 2);
    EXPECT_EQ(row_number(e, 0), 0);
    EXPECT_EQ(row_number(e, 1), 70000 - 65536);
    GlobalFree(e);
    GlobalFree(t.h);
}

TEST(ScaleCounters, StretchRepeatCountBeyondSixteenBitsWritesNothing) {
    Bitmap s = bytes_bitmap({{9}});
    HGLOBAL wide = rlStretchBitmap(s.h, 8, 1, 1, 40000, 2);  // n = 40000 reads as negative
    const auto *p = static_cast<const uint8_t *>(GlobalLock(wide));
    uint32_t nonzero = 0;
    for (uint32_t i = 0; i < rlCalcNewSize(40000, 2, 8); ++i) nonzero += p[i] != 0;
    EXPECT_EQ(nonzero, 0u);
    HGLOBAL narrow = rlStretchBitmap(s.h, 8, 1, 1, 30000, 2);  // 30000 still fits
    EXPECT_EQ(row_of(narrow, 30000, 1)[0], 9);
    EXPECT_EQ(row_of(narrow, 30000, 1)[29999], 9);
    for (HGLOBAL h : {s.h, wide, narrow}) GlobalFree(h);
}

TEST(ScaleBadInput, NoDrawingAndNoStrayAccess) {
    Bitmap s = bytes_bitmap({{1, 2, 3}, {4, 5, 6}});
    HGLOBAL none = rlShrinkBitmap(0, 8, 3, 2, 2, 1);  // no source: zeroed result
    ASSERT_NE(none, 0u);
    EXPECT_EQ(row_of(none, 2, 0), (std::vector<uint8_t>{0, 0}));
    EXPECT_EQ(rlShrinkBitmap(s.h, 8, 3, 2, -2, 1), 0u);
    HGLOBAL empty = rlShrinkBitmap(s.h, 8, 3, 2, 0, 0);
    EXPECT_EQ(GlobalSize(empty), 0u);
    HGLOBAL tooTall = rlStretchBitmap(s.h, 8, 3, 50, 3, 60);  // the block holds 2 rows
    EXPECT_EQ(row_of(tooTall, 3, 59), (std::vector<uint8_t>{0, 0, 0}));
    for (int16_t bpp : {0, 2, 16, -8}) {
        HGLOBAL h = rlShrinkBitmap(s.h, bpp, 3, 2, 2, 1);
        const auto *p = static_cast<const uint8_t *>(GlobalLock(h));
        for (uint32_t i = 0; h != 0 && i < GlobalSize(h); ++i) EXPECT_EQ(p[i], 0) << bpp;
        GlobalFree(h);
    }
    for (HGLOBAL h : {s.h, none, empty, tooTall}) GlobalFree(h);
}

TEST(Flip, PartnerIsOnePastTheMirror) {
    // Width 3 at 8 bits: pixel 0 pairs with the padding byte at 3, pixel 2 stays.
    Bitmap b = bytes_bitmap({{1, 2, 3}});
    b.p[3] = 7;
    rlFlipBitmap(b.h, 8, 3, 1, 1, 0);
    EXPECT_EQ((std::vector<uint8_t>(b.p, b.p + 4)), (std::vector<uint8_t>{7, 2, 3, 1}));

    // 1 bit, width 8: pixel 0 <-> padding bit 8, 1..3 <-> 7..5, pixel 4 stays.
    Bitmap m = make_bitmap(8, 1, 1);
    m.p[0] = 0xC8;  // pixels 0, 1, 4
    m.p[1] = 0x00;
    rlFlipBitmap(m.h, 1, 8, 1, 1, 0);
    EXPECT_EQ(m.p[0], 0x09);  // pixel 4 stays, pixel 1 -> 7, pixel 0 -> bit 8
    EXPECT_EQ(m.p[1], 0x80);
    GlobalFree(b.h);
    GlobalFree(m.h);
}

TEST(Flip, VerticalAndOddMiddleRow) {
    Bitmap b = bytes_bitmap({{1, 2, 3}, {4, 5, 6}, {7, 8, 9}});
    rlFlipBitmap(b.h, 8, 3, 3, 1, 1);
    // Rows reversed; every row mirrored once with pixel 0 <-> padding (0).
    EXPECT_EQ(row_of(b.h, 3, 0), (std::vector<uint8_t>{0, 8, 9}));
    EXPECT_EQ(row_of(b.h, 3, 1), (std::vector<uint8_t>{0, 5, 6}));
    EXPECT_EQ(row_of(b.h, 3, 2), (std::vector<uint8_t>{0, 2, 3}));
    EXPECT_EQ(b.p[3], 7);
    EXPECT_EQ(b.p[7], 4);
    EXPECT_EQ(b.p[11], 1);
    GlobalFree(b.h);
}

TEST(Flip, PartnerPastTheBlockReadsZeroAndIsNotWritten) {
    // Width 4 at 8 bits has no padding: pixel 4 of row 0 is row 1's pixel 0,
    // and pixel 4 of the last row lies past the block.
    Bitmap b = bytes_bitmap({{1, 2, 3, 4}, {5, 6, 7, 8}});
    rlFlipBitmap(b.h, 8, 4, 2, 1, 0);
    EXPECT_EQ(row_of(b.h, 4, 0), (std::vector<uint8_t>{5, 4, 3, 2}));
    EXPECT_EQ(row_of(b.h, 4, 1), (std::vector<uint8_t>{0, 8, 7, 6}));
    GlobalFree(b.h);
    // 24 bits, width 5: the partner of pixel 0 straddles the end of the block.
    Bitmap c = make_bitmap(5, 1, 24);
    for (uint32_t i = 0; i < c.size; ++i) c.p[i] = static_cast<uint8_t>(i + 1);
    rlFlipBitmap(c.h, 24, 5, 1, 1, 0);
    EXPECT_EQ((std::vector<uint8_t>(c.p, c.p + 3)), (std::vector<uint8_t>{16, 0, 0}));
    EXPECT_EQ(c.p[15], 1);
    GlobalFree(c.h);
}

TEST(Flip, TwiceIsTheIdentityWhereThePartnerStaysInside) {
    std::mt19937 rng(5);
    for (int16_t bpp : kDepths) {
        for (int32_t w : {1, 2, 3, 5, 6, 7, 9, 13}) {
            // Only widths whose pixel at `width` fits in the row's padding.
            uint64_t end = static_cast<uint64_t>(w * (bpp / 8.0)) + (bpp >= 8 ? bpp / 8 : 1);
            if (end > static_cast<uint64_t>(rlBytesPerLine(w, bpp))) continue;
            for (int32_t h : {1, 4, 7}) {
                Bitmap b = random_bitmap(rng, w, h, bpp);
                std::vector<uint8_t> before(b.p, b.p + b.size);
                for (int16_t hv = 1; hv <= 3; ++hv) {
                    int16_t hor = hv & 1, ver = hv >> 1 & 1;
                    rlFlipBitmap(b.h, bpp, w, h, hor, ver);
                    rlFlipBitmap(b.h, bpp, w, h, hor, ver);
                    ASSERT_EQ(0, std::memcmp(before.data(), b.p, b.size)) << bpp << " " << w << " " << h;
                }
                GlobalFree(b.h);
            }
        }
    }
}

TEST(Flip, BadInputLeavesTheBitmap) {
    EXPECT_EQ(rlFlipBitmap(0, 8, 4, 4, 1, 1), 0u);
    Bitmap b = bytes_bitmap({{1, 2, 3}});
    EXPECT_EQ(rlFlipBitmap(b.h, 8, 3, 9, 1, 1), b.h);  // claims 9 rows, holds 1
    EXPECT_EQ(row_of(b.h, 3, 0), (std::vector<uint8_t>{1, 2, 3}));
    rlFlipBitmap(b.h, 16, 3, 1, 1, 0);  // no pixels at this depth
    rlFlipBitmap(b.h, 8, -3, 1, 1, 1);
    EXPECT_EQ(row_of(b.h, 3, 0), (std::vector<uint8_t>{1, 2, 3}));
    GlobalFree(b.h);
}

}  // namespace

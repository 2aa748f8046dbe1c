// The GIF writer byte for byte: small files worked out by hand, the streams
// that no decoder reads in full (checked against the reference encoder
// instead), the palette search, and bad input.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstring>
#include <random>
#include <utility>

#include "gif_support.h"
#include "lzw_oracle.h"

namespace {

class GifFormat : public testing::Test {
protected:
    void SetUp() override {
        std::memset(&setup_, 0, sizeof setup_);
        std::memset(&em_, 0, sizeof em_);
        lpRaster = &setup_;
        lpEMData = &em_;
    }
    void TearDown() override {
        lpRaster = nullptr;
        lpEMData = nullptr;
    }

    // Writes rows (top first, `row_bytes` each) in the given bands.
    std::vector<uint8_t> write_rows(int32_t width, int16_t bits, const std::vector<uint8_t> &rows,
                                    uint32_t row_bytes, const std::vector<int32_t> &bands,
                                    std::vector<uint8_t> palette) {
        MemoryOutput out;
        open_memory_output(&out);
        HGLOBAL state = 0;
        int32_t height = 0;
        for (int32_t b : bands) height += b;
        BeginCellBitmap(out.stream, width, height, bits, palette.data(), &state);
        uint32_t stride = (row_bytes + 3) & ~3u;
        int32_t top = 0;
        for (int32_t n : bands) {
            HGLOBAL band = GlobalAlloc(TOLVA_GMEM_FLAGS, stride * static_cast<uint32_t>(n));
            auto *data = static_cast<uint8_t *>(GlobalLock(band));
            for (int32_t k = 0; k < n; ++k) {
                std::memcpy(data + static_cast<size_t>(k) * stride,
                            rows.data() + static_cast<size_t>(top + n - 1 - k) * row_bytes, row_bytes);
            }
            EXPECT_EQ(0, WriteCellBits(out.stream, band, width, n, bits, 0, state));
            GlobalFree(band);
            top += n;
        }
        EXPECT_EQ(0, EndCellBitmap(out.stream, state));
        return close_memory_output(&out);
    }

    SetupBlock setup_;
    EMData em_;
};

std::vector<uint8_t> grey_palette() {
    std::vector<uint8_t> p(768);
    for (int k = 0; k < 768; ++k) p[k] = static_cast<uint8_t>(k / 3);
    return p;
}

std::vector<uint8_t> concat(std::vector<uint8_t> a, const std::vector<uint8_t> &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

TEST_F(GifFormat, TwoByTwoWorkedByHand) {
    // Pixels 1 2 / 3 3: clear, 1, 2, 3, then the unmatched last 3 on its own,
    // end; six 9-bit codes in seven bytes.
    auto file = write_rows(2, 8, {1, 2, 3, 3}, 2, {2}, grey_palette());
    auto want = gif_head(2, 2, 8, grey_palette(), -1, 0, false);
    want = concat(want, {0x07, 0x00, 0x03, 0x08, 0x18, 0x30, 0x20, 0x20, 0x00, 0x3B});
    EXPECT_EQ(want, file);
    Decoded d = decode_gif(file);
    ASSERT_TRUE(d.ok);
    EXPECT_EQ((std::vector<uint8_t>{1, 2, 3, 3}), d.pixels);
}

TEST_F(GifFormat, OnePixelImageHoldsOnlyClearAndEnd) {
    // A one-pixel segment never emits its pixel: the data are the clear and
    // end codes alone, which no decoder can turn into the one pixel.
    auto file = write_rows(1, 8, {77}, 1, {1}, grey_palette());
    auto want = concat(gif_head(1, 1, 8, grey_palette(), -1, 0, false),
                       {0x03, 0x00, 0x03, 0x02, 0x00, 0x3B});
    EXPECT_EQ(want, file);
}

TEST_F(GifFormat, PackedRowsAreCompressedAsBytes) {
    // 1- and 4-bit rows go into the encoder as their packed bytes, with code
    // size 8: a decoder reads the bytes as pixels, not the pixels meant.
    std::mt19937 rng(4);
    for (int16_t bits : {1, 4}) {
        int32_t width = bits == 1 ? 21 : 9;
        uint32_t row_bytes = (static_cast<uint32_t>(width) * static_cast<uint32_t>(bits) + 7) / 8;
        std::vector<uint8_t> rows(row_bytes * 6);
        for (auto &b : rows) b = static_cast<uint8_t>(rng());
        std::vector<uint8_t> palette(3u << bits);
        for (auto &b : palette) b = static_cast<uint8_t>(rng());
        auto file = write_rows(width, bits, rows, row_bytes, {4, 2}, palette);
        std::vector<uint8_t> band1(rows.begin(), rows.begin() + 4 * row_bytes);
        std::vector<uint8_t> band2(rows.begin() + 4 * row_bytes, rows.end());
        auto want = concat(gif_head(width, 6, bits, palette, -1, 0, false),
                           reference_data({band1, band2}, true));
        want.push_back(0x3B);
        EXPECT_EQ(want, file) << bits << " bits";
    }
}

TEST_F(GifFormat, SecondWidthRaiseBetweenBands) {
    // The first band's 256 distinct pixels end unmatched at next free code
    // 513: the width goes up twice and the clear code joining the bands goes
    // out at 11 bits. Decoders read it at 10, so only the bytes are checked.
    std::vector<uint8_t> rows(512);
    for (int k = 0; k < 256; ++k) rows[k] = static_cast<uint8_t>(255 - k);
    std::mt19937 rng(1);
    for (int k = 256; k < 512; ++k) rows[k] = static_cast<uint8_t>(rng());
    ASSERT_TRUE(ends_with_double_raise(rows.data(), 256));
    auto file = write_rows(256, 8, rows, 256, {1, 1}, grey_palette());
    auto want = concat(gif_head(256, 2, 8, grey_palette(), -1, 0, false),
                       reference_data({std::vector<uint8_t>(rows.begin(), rows.begin() + 256),
                                       std::vector<uint8_t>(rows.begin() + 256, rows.end())},
                                      true));
    want.push_back(0x3B);
    EXPECT_EQ(want, file);
}

TEST_F(GifFormat, ShortInterlacedPictureInBandsHasNoEndCode) {
    // Three rows in two bands are spooled; the passes stop when the second
    // pass would start at row 4, so only row 0 is compressed, as a segment
    // that is not the last: it ends with a clear code (and its parked byte),
    // and the trailer follows without end code or terminator.
    setup_.interlace = TOLVA_INTERLACE_ON;
    std::vector<uint8_t> rows(60);
    for (size_t k = 0; k < rows.size(); ++k) rows[k] = static_cast<uint8_t>(k * 7);
    auto file = write_rows(20, 8, rows, 20, {1, 2}, grey_palette());
    auto want = concat(gif_head(20, 3, 8, grey_palette(), -1, 0, true),
                       reference_data({std::vector<uint8_t>(rows.begin(), rows.begin() + 20)}, false));
    want.push_back(0x3B);
    EXPECT_EQ(want, file);
}

TEST_F(GifFormat, TinyPassLoadsInheritTheWorkBuffer) {
    // Two pixels wide, nine rows in bands: the passes are segments of 4, 2,
    // 4 and 8 bytes sharing one work buffer. The 2-byte segment clears only
    // two bytes of it, and the bytes the previous segment left in the next
    // two are ORed into its codes, so a decoder gets wrong pixels from it on.
    setup_.interlace = TOLVA_INTERLACE_ON;
    std::vector<uint8_t> rows(18);
    for (size_t k = 0; k < rows.size(); ++k) rows[k] = static_cast<uint8_t>(k % 2 + (k / 6));
    auto file = write_rows(2, 8, rows, 2, {4, 5}, grey_palette());
    auto row = [&](int y) { return std::vector<uint8_t>{rows[2 * y], rows[2 * y + 1]}; };
    auto join = [](std::vector<std::vector<uint8_t>> parts) {
        std::vector<uint8_t> all;
        for (auto &p : parts) all.insert(all.end(), p.begin(), p.end());
        return all;
    };
    std::vector<std::vector<uint8_t>> passes = {join({row(0), row(8)}), row(4),
                                                join({row(2), row(6)}),
                                                join({row(1), row(3), row(5), row(7)})};
    auto want = concat(gif_head(2, 9, 8, grey_palette(), -1, 0, true),
                       reference_data(passes, true, true));
    want.push_back(0x3B);
    EXPECT_EQ(want, file);
    EXPECT_NE(want, concat(gif_head(2, 9, 8, grey_palette(), -1, 0, true),
                           concat(reference_data(passes, true, false), {0x3B})))
        << "the inherited bytes must make a difference here";
}

TEST_F(GifFormat, TwentyFourBitsHaveNoColourTable) {
    MemoryOutput out;
    open_memory_output(&out);
    HGLOBAL state = 0;
    uint8_t unused[3] = {};
    EXPECT_EQ(-1, BeginCellBitmap(out.stream, 3, 1, 24, unused, &state));
    EXPECT_EQ(0, EndCellBitmap(out.stream, state));
    auto file = close_memory_output(&out);
    const std::vector<uint8_t> want = {'G', 'I', 'F', '8', '9', 'a', 3, 0, 1, 0, 0x07, 0, 0,
                                       0x21, 0xF9, 4, 0, 0, 0, 0, 0,
                                       0x2C, 0, 0, 0, 0, 3, 0, 1, 0, 0, 8, 0x3B};
    EXPECT_EQ(want, file);
}

TEST_F(GifFormat, TransparentColourTakesOverItsNearestEntry) {
    // An all-grey palette has no entry for a coloured target: index 0 gets
    // the colour. A two-entry palette is searched without reading past it.
    struct Case {
        int16_t bits;
        std::vector<uint8_t> palette;
        uint8_t colour[3];
        int index;
    };
    std::vector<Case> cases = {
        {8, grey_palette(), {200, 10, 10}, 0},
        {1, {0, 0, 0, 250, 20, 20}, {200, 10, 10}, 1},
        {1, {0, 0, 0, 250, 20, 20}, {130, 128, 129}, 0},
    };
    for (auto &c : cases) {
        setup_.transparency = TOLVA_TRANSPARENCY_ON;
        std::memcpy(setup_.transparentColour, c.colour, 3);
        MemoryOutput out;
        open_memory_output(&out);
        HGLOBAL state = 0;
        std::vector<uint8_t> palette = c.palette;
        BeginCellBitmap(out.stream, 8, 1, c.bits, palette.data(), &state);
        EndCellBitmap(out.stream, state);
        auto file = close_memory_output(&out);
        std::vector<uint8_t> expected_palette = c.palette;
        std::memcpy(&expected_palette[3 * static_cast<size_t>(c.index)], c.colour, 3);
        EXPECT_EQ(expected_palette, palette);
        auto want = gif_head(8, 1, c.bits, expected_palette, c.index, 0, false);
        want.push_back(0x3B);
        EXPECT_EQ(want, file);
    }
}

TEST_F(GifFormat, BackgroundColourPicksAnIndexAndLeavesThePalette) {
    // A coloured background in an all-grey palette falls back to index 0; a
    // grey one finds its grey.
    for (auto [colour, index] : {std::pair<std::vector<uint8_t>, int>{{10, 200, 30}, 0},
                                 std::pair<std::vector<uint8_t>, int>{{81, 80, 79}, 80}}) {
        setup_.backgroundChoice = TOLVA_BACKGROUND_ON;
        std::memcpy(setup_.backgroundColour, colour.data(), 3);
        MemoryOutput out;
        open_memory_output(&out);
        HGLOBAL state = 0;
        std::vector<uint8_t> palette = grey_palette();
        BeginCellBitmap(out.stream, 4, 1, 8, palette.data(), &state);
        EndCellBitmap(out.stream, state);
        EXPECT_EQ(grey_palette(), palette);
        auto want = gif_head(4, 1, 8, palette, -1, index, false);
        want.push_back(0x3B);
        EXPECT_EQ(want, close_memory_output(&out));
    }
}

TEST(GifNearestIndex, GreyAndColouredEntriesNeverMix) {
    std::vector<uint8_t> p(16 * 3, 0);
    auto set = [&](int k, uint8_t r, uint8_t g, uint8_t b) {
        p[3 * k] = r;
        p[3 * k + 1] = g;
        p[3 * k + 2] = b;
    };
    set(0, 100, 102, 104);  // coloured, though close to grey
    set(1, 90, 90, 90);     // grey
    set(2, 250, 0, 0);
    set(3, 200, 0, 0);
    set(7, 100, 105, 100);  // coloured
    set(9, 200, 0, 0);      // same as 3: the lower index wins
    // A grey target (components within 4) skips the exact coloured entry 0.
    EXPECT_EQ(1, get_nearest_rgb_index(100, 102, 104, p.data(), 16));
    // One step further apart the target is coloured and finds entry 0 or 7.
    EXPECT_EQ(7, get_nearest_rgb_index(100, 105, 100, p.data(), 16));
    EXPECT_EQ(3, get_nearest_rgb_index(199, 1, 1, p.data(), 16));
    // Fewer than 16 entries still searches 16.
    EXPECT_EQ(3, get_nearest_rgb_index(199, 1, 1, p.data(), 2));
    // No entry of the target's class: index 0.
    std::vector<uint8_t> greys(16 * 3);
    for (size_t k = 0; k < greys.size(); ++k) greys[k] = static_cast<uint8_t>(k / 3 * 16);
    EXPECT_EQ(0, get_nearest_rgb_index(10, 200, 30, greys.data(), 16));
    EXPECT_EQ(5, get_nearest_rgb_index(81, 80, 79, greys.data(), 16));
}

TEST_F(GifFormat, MissingBandGives300) {
    MemoryOutput out;
    open_memory_output(&out);
    Picture p = make_picture(2, 10, 4, 16, false);
    HGLOBAL state = 0;
    BeginCellBitmap(out.stream, 10, 4, 8, p.palette.data(), &state);
    EXPECT_EQ(TOLVA_ERR_MEMORY, WriteCellBits(out.stream, 0, 10, 2, 8, 0, state));
    // A band block smaller than its rows claim is read only as far as it
    // goes; the missing rows come out as zeros.
    HGLOBAL empty = GlobalAlloc(TOLVA_GMEM_FLAGS, 0);
    EXPECT_EQ(0, WriteCellBits(out.stream, empty, 10, 2, 8, 0, state));
    GlobalFree(empty);
    EXPECT_EQ(0, EndCellBitmap(out.stream, state));
    close_memory_output(&out);
}

TEST_F(GifFormat, WriteFailuresGive303) {
    Picture p = make_picture(6, 200, 200, 256, false);
    // A full device: the buffered stream fails at its first flush, and the
    // terminator and the trailer cannot be written after that.
    HGLOBAL full = zunOpen("/dev/full", nullptr, 4097);
    ASSERT_NE(0u, full);
    std::vector<int32_t> results;
    write_picture(full, &p, {200}, &results);
    EXPECT_EQ((std::vector<int32_t>{TOLVA_ERR_STREAM, TOLVA_ERR_STREAM}), results);
    zunClose(full);

    // A host procedure that stops taking bytes: the trailer alone, then the
    // terminator too, then a parked byte between bands.
    HostFile whole;
    HGLOBAL s = open_host_output(&whole);
    write_picture(s, &p, {100, 100});
    zunClose(s);
    const auto size = static_cast<int64_t>(whole.bytes.size());
    struct Case {
        int64_t limit;
        std::vector<int32_t> results;
    };
    for (const Case &c : {Case{size - 1, {0, 0, TOLVA_ERR_STREAM}},
                          Case{size - 2, {0, TOLVA_ERR_STREAM, TOLVA_ERR_STREAM}},
                          Case{900, {TOLVA_ERR_STREAM, TOLVA_ERR_STREAM, TOLVA_ERR_STREAM}}}) {
        HostFile host;
        host.write_limit = c.limit;
        HGLOBAL h = open_host_output(&host);
        std::vector<int32_t> r;
        write_picture(h, &p, {100, 100}, &r);
        zunClose(h);
        EXPECT_EQ(c.results, r) << "limit " << c.limit;
        // Up to the failure the bytes are those of the whole file. (After a
        // failure inside the data, the next band still steps back one byte
        // and writes its count byte there.)
        if (c.limit >= size - 2) {
            EXPECT_EQ(std::vector<uint8_t>(whole.bytes.begin(), whole.bytes.begin() + c.limit),
                      host.bytes);
        }
    }
}

TEST_F(GifFormat, SpoolThatCannotBeOpenedPushes303) {
    // No file descriptor left: the temporary file cannot be made or opened.
    // The error is pushed, not returned; the image data are lost and the
    // file ends with the trailer.
    setup_.interlace = TOLVA_INTERLACE_ON;
    Picture p = make_picture(9, 700, 500, 16, false);
    MemoryOutput out;
    open_memory_output(&out);
    rlimit saved;
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &saved));
    int lowest = dup(0);
    ASSERT_GE(lowest, 0);
    close(lowest);
    rlimit tight = saved;
    tight.rlim_cur = static_cast<rlim_t>(lowest);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &tight));
    std::vector<int32_t> results;
    HGLOBAL state = 0;
    write_picture(out.stream, &p, {250, 250}, &results, &state);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &saved));
    EXPECT_EQ((std::vector<int32_t>{0, 0, 0}), results);
    EXPECT_EQ(TOLVA_ERR_STREAM, em_.result);
    EXPECT_EQ(1, em_.lostErrors);
    auto want = gif_head(700, 500, 8, p.palette, -1, 0, true);
    want.push_back(0x3B);
    EXPECT_EQ(want, close_memory_output(&out));
}

TEST_F(GifFormat, NoSpoolFileOutlivesTheImage) {
    // Opened at the start and closed at the end with no band in between:
    // the passes find nothing to read and the file is still deleted.
    setup_.interlace = TOLVA_INTERLACE_ON;
    Picture p = make_picture(10, 700, 500, 16, false);
    MemoryOutput out;
    open_memory_output(&out);
    HGLOBAL state = 0;
    BeginCellBitmap(out.stream, p.width, p.height, 8, p.palette.data(), &state);
    std::string name = static_cast<CellBitmapState *>(GlobalLock(state))->spoolName;
    ASSERT_FALSE(name.empty());
    EXPECT_EQ(0, access(name.c_str(), F_OK));
    EXPECT_EQ(0, EndCellBitmap(out.stream, state));
    EXPECT_NE(0, access(name.c_str(), F_OK));
    close_memory_output(&out);
}

}  // namespace

// The GIF writer: files read back by giflib over a generated matrix of
// palettes, widths, bandings and interlace; the streams no decoder reads in
// full, byte for byte against the reference encoder; the transparent and
// background entries; bad input. Then the LZW encoder's fast dictionary
// against the literal linear-scan encoder on thousands of generated
// segments, cut at every kind of boundary (the width raises, the reset, odd
// carries), some with failing writes (failed sub-blocks are not reported, the
// terminator and the parked byte are).
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "gif_decode.h"
#include "output/lzw.h"
#include "output/lzw_oracle.h"
#include "output/pixels.h"
#include "tolva/host.h"
#include "tolva/output.h"
#include "tolva/stream.h"

namespace {

constexpr int32_t kPassStart[4] = {0, 4, 2, 1};
constexpr int32_t kPassStep[4] = {8, 8, 4, 2};

// A picture, top row first, rows of row_bytes() bytes (packed below 8 bits).
struct Picture {
    int32_t width, height;
    int16_t bits;
    std::vector<uint8_t> pixels, palette;
    uint32_t row_bytes() const { return (static_cast<uint32_t>(width * bits) + 7) / 8; }
};

// Runs of up to 8 pixels over `colours` values, any bytes for packed rows;
// no colours: a walk of distinct pairs, in which every LZW step adds an entry.
Picture make_picture(uint32_t seed, int32_t width, int32_t height, int colours, int16_t bits = 8) {
    std::mt19937 rng(seed);
    Picture p{width, height, bits, {}, random_pixels(rng, 3u << bits)};
    const size_t n = p.row_bytes() * static_cast<size_t>(height);
    p.pixels = colours == 0 ? distinct_pairs(n) : run_pixels(rng, n, bits == 8 ? colours : 256, 8);
    p.pixels.resize(n);
    return p;
}

// An output stream over a memory block that grows, or with a limit, over a
// block of that many bytes that cannot grow.
struct Output {
    void *data;
    HGLOBAL stream;
    explicit Output(uint32_t limit = 0) {
        data = GlobalLock(GlobalAlloc(TOLVA_GMEM_FLAGS, limit != 0 ? limit : 1));
        intptr_t descriptor[TOLVA_STREAM_DESCRIPTOR_WORDS] = {
            reinterpret_cast<intptr_t>(&data), limit, limit != 0 ? 0 : 4096, 0, 0, 0};
        stream = zunOpen(nullptr, descriptor, TOLVA_STREAM_OUTPUT);
    }
    ~Output() {
        zunClose(stream);
        GlobalFree(GlobalHandle(data));
    }
    std::vector<uint8_t> bytes() const {
        auto *b = static_cast<const uint8_t *>(data);
        return std::vector<uint8_t>(b, b + zunSeek(stream, 0, 2));
    }
};

// The bytes in front of the image data: header, colour table, graphic control
// extension, image descriptor, code size.
std::vector<uint8_t> gif_head(const Picture &p, bool interlaced, int transparent = -1,
                              int background = 0) {
    auto lo = [](int32_t v) { return static_cast<uint8_t>(v & 0xFF); };
    auto hi = [](int32_t v) { return static_cast<uint8_t>(v >> 8 & 0xFF); };
    std::vector<uint8_t> h = {'G', 'I', 'F', '8', '9', 'a'};
    h.reserve(800);
    h.insert(h.end(),
             {lo(p.width), hi(p.width), lo(p.height), hi(p.height),
              static_cast<uint8_t>(0xF0 + p.bits - 1), static_cast<uint8_t>(background), 0});
    if (p.bits <= 8) h.insert(h.end(), p.palette.begin(), p.palette.begin() + (3 << p.bits));
    h.insert(h.end(), {0x21, 0xF9, 4, static_cast<uint8_t>(transparent >= 0 ? 1 : 0), 0, 0,
                       static_cast<uint8_t>(transparent >= 0 ? transparent : 0), 0});
    h.insert(h.end(), {0x2C, 0, 0, 0, 0, lo(p.width), hi(p.width), lo(p.height), hi(p.height),
                       static_cast<uint8_t>(interlaced ? 0x40 : 0), 8});
    return h;
}

// A whole file: the head, the image data the reference encoder makes of these
// segments (`end` marks the final one as the last), the trailer. Each segment gets a fresh zeroed work buffer,
// as a band too small to serve as one does, or all share one, as the
// interlace passes do.
std::vector<uint8_t> reference_file(const Picture &p, bool interlaced, int transparent,
                                    const std::vector<std::vector<uint8_t>> &segments, bool end,
                                    bool shared_work) {
    ByteStream stream{gif_head(p, interlaced, transparent)};
    stream.position = stream.bytes.size();
    uint32_t carry = 0;
    std::vector<uint8_t> shared(kLzwWorkBytes, 0);
    for (size_t k = 0; k < segments.size(); ++k) {
        std::vector<uint8_t> fresh(kLzwWorkBytes, 0);
        const bool final = k + 1 == segments.size();
        oracle_compress_and_write(
            &stream, segments[k].data(), (shared_work ? shared : fresh).data(),
            static_cast<int32_t>(segments[k].size()), k == 0, end && final, &carry, nullptr);
    }
    stream.bytes.push_back(0x3B);
    return stream.bytes;
}

// The LZW segments the writer makes of a picture in these bands: one per
// band; one in pass order for a single interlaced band; one per pass from the
// spool (no pass here fills a 65536-byte load), the passes stopping at the
// first that starts below the picture.
std::vector<std::vector<uint8_t>> segments_of(const Picture &p, const std::vector<int32_t> &bands,
                                              bool interlaced) {
    const bool spooled = interlaced && bands.size() > 1;
    std::vector<std::vector<uint8_t>> segments;
    auto add_row = [&](int32_t y) {
        auto row = p.pixels.begin() + static_cast<long>(y * p.row_bytes());
        segments.back().insert(segments.back().end(), row, row + p.row_bytes());
    };
    int32_t y = 0;
    for (int32_t rows : interlaced ? std::vector<int32_t>{} : bands) {
        segments.emplace_back();
        while (rows-- > 0) add_row(y++);
    }
    for (int pass = 0; interlaced && pass < 4 && (!spooled || kPassStart[pass] < p.height);
         ++pass) {
        if (pass == 0 || spooled) segments.emplace_back();
        for (y = kPassStart[pass]; y < p.height; y += kPassStep[pass]) add_row(y);
    }
    return segments;
}

class GifTest : public testing::Test {
protected:
    void SetUp() override {
        lpRaster = &setup_;
        lpEMData = &em_;
    }
    void TearDown() override {
        lpRaster = nullptr;
        lpEMData = nullptr;
        for (const auto &name : spools_) EXPECT_NE(0, access(name.c_str(), F_OK)) << name;
    }

    // Hands the picture over in bands of these row counts, each bottom row
    // first with rows padded to 4 bytes; the results of every WriteCellBits
    // and of EndCellBitmap. Remembers the spool file the writer opens.
    std::vector<int32_t> write(HGLOBAL out, Picture *p, const std::vector<int32_t> &bands) {
        HGLOBAL state = 0;
        BeginCellBitmap(out, p->width, p->height, p->bits, p->palette.data(), &state);
        std::string spool = static_cast<CellBitmapState *>(GlobalLock(state))->spoolName;
        GlobalUnlock(state);
        if (!spool.empty()) spools_.push_back(spool);
        std::vector<int32_t> results;
        const uint32_t r = p->row_bytes(), s = (r + 3) & ~3u;
        int32_t top = 0;
        for (int32_t rows : bands) {
            HGLOBAL band = GlobalAlloc(TOLVA_GMEM_FLAGS, s * static_cast<uint32_t>(rows));
            auto *data = static_cast<uint8_t *>(GlobalLock(band));
            for (int32_t k = 0; k < rows; ++k)
                std::memcpy(data + k * s, &p->pixels[(top + rows - 1 - k) * r], r);
            results.push_back(WriteCellBits(out, band, p->width, rows, p->bits, 0, state));
            GlobalFree(band);
            top += rows;
        }
        results.push_back(EndCellBitmap(out, state));
        return results;
    }

    std::vector<uint8_t> write_to_memory(Picture *p, const std::vector<int32_t> &bands) {
        Output out;
        EXPECT_EQ(std::vector<int32_t>(bands.size() + 1, 0), write(out.stream, p, bands));
        return out.bytes();
    }

    SetupBlock setup_{};
    EMData em_{};
    std::vector<std::string> spools_;
};

TEST_F(GifTest, EveryPaletteWidthBandingAndInterlace) {
    // Colours 0 make a walk of distinct pairs, where segments end on width
    // raises; the last two kinds are packed rows of 1 and 4 bits.
    const std::pair<int, int16_t> kinds[] = {{0, 8},   {2, 8},   {3, 8}, {16, 8},
                                             {200, 8}, {256, 8}, {2, 1}, {16, 4}};
    const int32_t widths[] = {1, 2, 3, 7, 100, 255, 256, 1000, 2000};
    std::mt19937 rng(5);
    int decoded = 0;
    for (int round = 0; round < 2000; ++round) {
        const auto [colours, bits] = kinds[rng() % 8];
        const int32_t width = widths[rng() % 9];
        const auto height = static_cast<int32_t>(1 + rng() % (width <= 256 ? 60 : 33));
        Picture p = make_picture(rng(), width, height, colours, bits);
        // One band, bands of single rows, or bands of 1 to 12 rows.
        std::vector<int32_t> bands;
        const uint32_t banding = rng() % 3;
        for (int32_t left = height; left > 0; left -= bands.back()) {
            bands.push_back(banding == 0   ? left
                            : banding == 1 ? 1
                                           : 1 + static_cast<int32_t>(rng() % std::min(left, 12)));
        }
        const bool interlaced = rng() % 2, spooled = interlaced && bands.size() > 1;
        SCOPED_TRACE(testing::Message() << "round " << round);
        const bool transparent = bits == 8 && rng() % 4 == 0;
        setup_.interlace = interlaced ? TOLVA_INTERLACE_ON : 0;
        setup_.transparency = transparent ? TOLVA_TRANSPARENCY_ON : 0;
        for (auto &c : setup_.transparentColour) c = static_cast<uint8_t>(rng());
        std::vector<uint8_t> palette = p.palette;
        auto file = write_to_memory(&p, bands);
        // The transparent colour takes over its entry, in the file and in the
        // caller's palette.
        const int index = transparent ? file.at(13 + 768 + 6) : -1;
        if (transparent) std::memcpy(&palette[3 * index], setup_.transparentColour, 3);
        EXPECT_EQ(palette, p.palette);
        if (gif_decode::decode(file).indices == p.pixels) {
            auto head = gif_head(p, interlaced, index);
            EXPECT_TRUE(std::equal(head.begin(), head.end(), file.begin()));
            ++decoded;
            continue;
        }
        // A stream that decoders cannot read back (packed rows compressed with
        // code size 8, a one-pixel segment whose pixel is never emitted, a
        // spool of under four rows that ends without its end code, a
        // pass-load under 4 bytes that ORs in what the last one left, a clear
        // code joining segments at an odd width) must be exactly what the
        // reference encoder makes.
        ASSERT_EQ(reference_file(p, interlaced, index, segments_of(p, bands, interlaced),
                                 !spooled || height > 4, spooled),
                  file);
    }
    // Such streams stay the exception among the 8-bit pictures (about three
    // in four rounds).
    EXPECT_GT(decoded, 1300);
}

TEST_F(GifTest, TransparentAndBackgroundColoursTakeTheirNearestEntry) {
    // Grey and coloured entries never mix: in `mixed`, entry 0 is coloured
    // though close to grey, 1 is grey, 3 and 9 are the same red (the lower
    // index wins), the rest black. A target is grey when its components lie
    // within 4; with no entry of its class it gets index 0. The transparent
    // colour takes over its entry, in the file and in the caller's palette;
    // the background leaves the palette alone. The search covers 16 entries
    // of the caller's array even when the table has fewer (2 at 1 bit, none
    // at 24 bits): the entry found past the table is overwritten there and its
    // index written all the same.
    std::vector<uint8_t> mixed = {100, 102, 104, 90, 90, 90, 0,   0,   0,   200, 0, 0, 0,   0, 0,
                                  0,   0,   0,   0,  0,  0,  100, 105, 100, 0,   0, 0, 200, 0, 0};
    // Entries 0 and 1 make the 1-bit table; (201, 10, 10) at 5 lies past it.
    std::vector<uint8_t> sixteen = {0, 0, 0, 250, 20, 20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 201, 10, 10};
    mixed.resize(48), sixteen.resize(48);
    // Bits, palette, transparent (or background), colour, index.
    std::tuple<int16_t, std::vector<uint8_t>, bool, std::array<uint8_t, 3>, int> cases[] = {
        {4, mixed, true, {100, 102, 104}, 1},    {4, mixed, false, {100, 105, 100}, 7},
        {4, mixed, false, {199, 1, 1}, 3},       {1, sixteen, true, {200, 10, 10}, 5},
        {1, sixteen, false, {130, 128, 129}, 0}, {24, sixteen, true, {240, 30, 30}, 1}};
    for (auto &[bits, palette, transparent, colour, index] : cases) {
        setup_.transparency = transparent ? TOLVA_TRANSPARENCY_ON : 0;
        setup_.backgroundChoice = transparent ? 0 : TOLVA_BACKGROUND_ON;
        std::memcpy(transparent ? setup_.transparentColour : setup_.backgroundColour, colour.data(),
                    3);
        Picture p{8, 1, bits, {}, palette};
        std::vector<uint8_t> file = write_to_memory(&p, {});
        if (transparent) std::memcpy(&palette[3 * index], colour.data(), 3);
        EXPECT_EQ(palette, p.palette) << index;
        auto want = gif_head(p, false, transparent ? index : -1, transparent ? 0 : index);
        want.push_back(0x3B);
        EXPECT_EQ(want, file) << index;
    }
}

// Output that cannot be written gives 303; a missing band 300; a spool that
// cannot be opened pushes 303.
TEST_F(GifTest, WriteFailuresMissingBandsAndNoSpool) {
    // A band block smaller than its rows is read only as far as it goes.
    Picture p = make_picture(6, 200, 200, 256);
    Output small;
    HGLOBAL state = 0;
    BeginCellBitmap(small.stream, 10, 4, 8, p.palette.data(), &state);
    EXPECT_EQ(TOLVA_ERR_MEMORY, WriteCellBits(small.stream, 0, 10, 2, 8, 0, state));
    HGLOBAL empty = GlobalAlloc(TOLVA_GMEM_FLAGS, 0);
    EXPECT_EQ(0, WriteCellBits(small.stream, empty, 10, 2, 8, 0, state));
    GlobalFree(empty);
    EXPECT_EQ(0, EndCellBitmap(small.stream, state));
    // Output that stops taking bytes before the trailer, before the block
    // terminator, in the image data. After a failure in the data the next
    // band still steps back over its parked byte, so only the first two keep
    // the bytes of the whole file up to the failure.
    const std::vector<uint8_t> whole = write_to_memory(&p, {100, 100});
    const auto size = static_cast<uint32_t>(whole.size());
    for (auto [limit, results] :
         {std::pair<uint32_t, std::vector<int32_t>>{size - 1, {0, 0, TOLVA_ERR_STREAM}},
          {size - 2, {0, TOLVA_ERR_STREAM, TOLVA_ERR_STREAM}},
          {900, {TOLVA_ERR_STREAM, TOLVA_ERR_STREAM, TOLVA_ERR_STREAM}}}) {
        Output out(limit);
        EXPECT_EQ(results, write(out.stream, &p, {100, 100})) << "limit " << limit;
        if (limit + 2 >= size) {
            EXPECT_EQ(std::vector<uint8_t>(whole.begin(), whole.begin() + limit), out.bytes());
        }
    }
    // An interlaced picture spooled to a file reports only the trailer, and
    // removes its spool file all the same.
    setup_.interlace = TOLVA_INTERLACE_ON;
    Picture big = make_picture(7, 700, 500, 16);
    Output out(900);
    EXPECT_EQ((std::vector<int32_t>{0, 0, TOLVA_ERR_STREAM}), write(out.stream, &big, {300, 200}));
    EXPECT_EQ(1u, spools_.size());
    // With no file descriptor to be had the spool file cannot be made or
    // opened. The error is pushed, not returned; the image data are lost and
    // the file ends with the trailer.
    em_ = {};
    Output unlimited;
    rlimit saved, none;
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &saved));
    none = saved;
    none.rlim_cur = 0;
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    std::vector<int32_t> results = write(unlimited.stream, &big, {250, 250});
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &saved));
    EXPECT_EQ((std::vector<int32_t>{0, 0, 0}), results);
    EXPECT_EQ(TOLVA_ERR_STREAM, em_.result);
    EXPECT_EQ(1, em_.lostErrors);
    std::vector<uint8_t> want = gif_head(big, true);
    want.push_back(0x3B);
    EXPECT_EQ(want, unlimited.bytes());
}

// Encodes the pixels, cut into segments at `cuts`, with the library and with
// the reference side by side, from work buffers holding the same garbage, and
// compares after each segment the bytes so far, the result, the carry and the
// first work bytes (which a later short segment ORs its codes onto).
void expect_same(const std::vector<uint8_t> &pixels, std::vector<size_t> cuts, uint32_t seed,
                 OracleStats *stats, int32_t fail_after = -1) {
    ByteStream ours, theirs;
    ours.fail_after = theirs.fail_after = fail_after;
    LzwSink sink = byte_stream_sink(&ours);
    std::mt19937 rng(seed);
    std::vector<uint8_t> work = random_pixels(rng, kLzwWorkBytes), their_work = work;
    uint32_t carry = 0, their_carry = 0;
    cuts.push_back(pixels.size());
    for (size_t k = 0, start = 0; k < cuts.size(); start = cuts[k++]) {
        auto count = static_cast<int32_t>(cuts[k] - start);
        int32_t first = k == 0, last = k + 1 == cuts.size();
        int32_t r = lzw_compress_and_write(&sink, pixels.data() + start, work.data(), count, first,
                                           last, &carry);
        int32_t want = oracle_compress_and_write(&theirs, pixels.data() + start, their_work.data(),
                                                 count, first, last, &their_carry, stats);
        ASSERT_EQ(theirs.bytes, ours.bytes) << "segment " << k << " of " << cuts.size();
        ASSERT_EQ(std::tie(want, their_carry), std::tie(r, carry)) << "segment " << k;
        ASSERT_TRUE(std::equal(work.begin(), work.begin() + 4, their_work.begin())) << k;
    }
}

TEST(Lzw, GeneratedSegmentsMatchTheReference) {
    std::mt19937 rng(20240611);
    OracleStats stats;
    for (int round = 0; round < 2000; ++round) {
        // Mostly short segments, since the reference scans its whole table at
        // each step; one in sixteen long enough to cross the reset twice.
        uint32_t size = rng() % 16;
        size_t n = size < 2    ? rng() % 5
                   : size < 8  ? rng() % 300
                   : size < 15 ? rng() % 2000
                               : 4000 + rng() % 8000;
        int kind = static_cast<int>(rng() % 6);
        std::vector<uint8_t> pixels;
        switch (kind) {
        case 0:
            pixels = random_pixels(rng, n);
            break;
        case 1:
            pixels = random_pixels(rng, n, 2 + static_cast<int>(rng() % 15));
            break;
        case 2:
            pixels = run_pixels(rng, n, 1 + static_cast<int>(rng() % 255), 1 + rng() % 3000);
            break;
        case 3:
            pixels.assign(n, static_cast<uint8_t>(rng()));
            break;
        case 4:
            pixels = smooth_pixels(rng, 1 + n / 64, 64);
            break;
        default:
            pixels = distinct_pairs(n);
        }
        // One to four segments, cut anywhere (empty ones included); in one
        // round of eight the output stops taking bytes part way.
        std::vector<size_t> cuts(rng() % 4);
        for (auto &cut : cuts) cut = rng() % (pixels.size() + 1);
        std::sort(cuts.begin(), cuts.end());
        auto fail_after = static_cast<int32_t>(rng() % 8 == 0 ? rng() % (n + 9) : -1);
        SCOPED_TRACE(testing::Message() << "round " << round << ", kind " << kind);
        expect_same(pixels, cuts, rng(), &stats, fail_after);
        if (HasFatalFailure()) return;
    }
    // Cuts around the width raises and the 4090 reset of a distinct-pair
    // walk end segments on each of them, with every carry from 0 to 7.
    std::vector<uint8_t> walk = distinct_pairs(4400);
    for (size_t edge : {3u, 255u, 767u, 1791u, 3832u})
        for (size_t cut = edge - 3; cut <= edge + 3; ++cut)
            expect_same(walk, {cut, cut + 1, cut + 3}, static_cast<uint32_t>(cut), &stats);
    // The generated inputs must reach the edges the comparison is about.
    EXPECT_GT(stats.double_raises, 3);
    EXPECT_GT(stats.resets, 20);
    EXPECT_GT(stats.found_at_end, 100);
}

}  // namespace

// The LZW encoder against its reference: single segments of every kind of
// data, images split into segments at every kind of boundary, failing writes,
// and a few code streams worked out by hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "lzw_oracle.h"
#include "output/lzw.h"
#include "pixels.h"

namespace {

struct SegmentResult {
    std::vector<uint8_t> bytes;
    uint32_t carry;
    int32_t result;
    uint8_t head[4];  // work[0..3] afterwards: a later short segment reads them
};

// Runs a chain of segments through the library (fast) or the reference.
std::vector<SegmentResult> run_chain(const std::vector<uint8_t> &pixels,
                                     const std::vector<size_t> &cuts,
                                     const std::vector<uint8_t> &garbage, bool fast,
                                     OracleStats *stats = nullptr, int32_t fail_after = -1) {
    ByteStream stream;
    stream.fail_after = fail_after;
    LzwSink sink = byte_stream_sink(&stream);
    std::vector<uint8_t> work(kLzwWorkBytes);
    std::memcpy(work.data(), garbage.data(), work.size());
    std::vector<SegmentResult> results;
    uint32_t carry = 0;
    size_t start = 0;
    for (size_t k = 0; k <= cuts.size(); ++k) {
        size_t end = k < cuts.size() ? cuts[k] : pixels.size();
        auto count = static_cast<int32_t>(end - start);
        int32_t first = k == 0;
        int32_t last = k == cuts.size();
        int32_t r = fast ? lzw_compress_and_write(&sink, pixels.data() + start, work.data(), count,
                                                  first, last, &carry)
                         : oracle_compress_and_write(&stream, pixels.data() + start, work.data(),
                                                     count, first, last, &carry, stats);
        SegmentResult s{stream.bytes, carry, r, {}};
        std::memcpy(s.head, work.data(), 4);
        results.push_back(s);
        start = end;
    }
    return results;
}

void expect_same_chain(const std::vector<uint8_t> &pixels, const std::vector<size_t> &cuts,
                       const std::vector<uint8_t> &garbage, OracleStats *stats = nullptr,
                       int32_t fail_after = -1) {
    auto expected = run_chain(pixels, cuts, garbage, false, stats, fail_after);
    auto actual = run_chain(pixels, cuts, garbage, true, nullptr, fail_after);
    ASSERT_EQ(expected.size(), actual.size());
    for (size_t k = 0; k < expected.size(); ++k) {
        SCOPED_TRACE(testing::Message() << "segment " << k << " of " << expected.size()
                                        << ", " << pixels.size() << " pixels");
        ASSERT_EQ(expected[k].bytes, actual[k].bytes);
        ASSERT_EQ(expected[k].carry, actual[k].carry);
        ASSERT_EQ(expected[k].result, actual[k].result);
        ASSERT_EQ(0, std::memcmp(expected[k].head, actual[k].head, 4));
    }
}

std::vector<uint8_t> random_garbage(std::mt19937 &rng) {
    std::vector<uint8_t> g(kLzwWorkBytes);
    for (auto &b : g) b = static_cast<uint8_t>(rng());
    return g;
}

// The data bytes of a sub-block sequence, without the count bytes and the
// terminator.
std::vector<uint8_t> unblock(const std::vector<uint8_t> &blocks) {
    std::vector<uint8_t> data;
    size_t at = 0;
    while (at < blocks.size() && blocks[at] != 0) {
        size_t n = blocks[at];
        data.insert(data.end(), blocks.begin() + static_cast<long>(at) + 1,
                    blocks.begin() + static_cast<long>(at + 1 + n));
        at += 1 + n;
    }
    return data;
}

uint32_t read_code(const std::vector<uint8_t> &data, uint32_t bitpos, uint32_t width) {
    uint32_t code = 0;
    for (uint32_t k = 0; k < width; ++k) {
        uint32_t b = bitpos + k;
        if (b / 8 < data.size() && (data[b / 8] >> (b % 8)) & 1) code |= 1u << k;
    }
    return code;
}

std::vector<uint8_t> encode_whole(const std::vector<uint8_t> &pixels) {
    ByteStream stream;
    LzwSink sink = byte_stream_sink(&stream);
    std::vector<uint8_t> work(kLzwWorkBytes);
    uint32_t carry = 0;
    EXPECT_EQ(0, lzw_compress_and_write(&sink, pixels.data(), work.data(),
                                        static_cast<int32_t>(pixels.size()), 1, 1, &carry));
    return stream.bytes;
}

TEST(LzwPutCode, OrsIntoTheBufferAndClearsTwoBytesAhead) {
    uint8_t work[8] = {0x05, 0xF0, 0xAA, 0x00, 0x77, 0x77, 0x77, 0x77};
    uint32_t bitpos = 3;
    LZWPutCode(work, &bitpos, 0x1FF, 9);
    EXPECT_EQ(12u, bitpos);
    const uint8_t want[8] = {0xFD, 0xFF, 0xAA, 0x00, 0x00, 0x00, 0x77, 0x77};
    EXPECT_EQ(0, std::memcmp(want, work, 8));
}

TEST(LzwSubBlocks, SplitsAt254AndStopsAtTheFirstFailure) {
    std::vector<uint8_t> data(600);
    for (size_t k = 0; k < data.size(); ++k) data[k] = static_cast<uint8_t>(k);
    for (uint32_t n : {0u, 1u, 254u, 255u, 600u}) {
        ByteStream s;
        LzwSink sink = byte_stream_sink(&s);
        EXPECT_EQ(0, lzw_write_sub_blocks(&sink, data.data(), n));
        std::vector<uint8_t> want;
        for (uint32_t at = 0; at < n; at += 254) {
            uint32_t k = std::min(254u, n - at);
            want.push_back(static_cast<uint8_t>(k));
            want.insert(want.end(), data.begin() + at, data.begin() + at + k);
        }
        EXPECT_EQ(want, s.bytes) << n;
    }
    // A count byte that cannot be written skips its data and ends the loop;
    // a short data write ends it too.
    for (int32_t fail_after : {0, 1, 100, 255, 256}) {
        ByteStream s;
        s.fail_after = fail_after;
        LzwSink sink = byte_stream_sink(&s);
        EXPECT_EQ(TOLVA_ERR_STREAM, lzw_write_sub_blocks(&sink, data.data(), 600));
        EXPECT_EQ(static_cast<size_t>(fail_after), s.bytes.size());
    }
}

TEST(LzwHandWorked, ThreeEqualPixels) {
    // clear 256, 7, then 7 7 found as code 258 at the end (stored a second
    // time as 259), end 257: four 9-bit codes in five bytes.
    const std::vector<uint8_t> want = {0x05, 0x00, 0x0F, 0x08, 0x0C, 0x08, 0x00};
    EXPECT_EQ(want, encode_whole({7, 7, 7}));
}

TEST(LzwHandWorked, SecondWidthRaiseAtTheEnd) {
    // 256 distinct pixels: no pair repeats, so every step adds an entry and
    // the last step leaves the next free code at 513. The last pixel goes
    // out at 10 bits, the width test raises the width a second time, and the
    // end code goes out at 11 bits, where a decoder expects 10.
    std::vector<uint8_t> pixels(256);
    for (int k = 0; k < 256; ++k) pixels[k] = static_cast<uint8_t>(255 - k);
    auto data = unblock(encode_whole(pixels));
    uint32_t bits = 9 + 255 * 9 + 10 + 11;
    ASSERT_EQ((bits + 7) / 8, data.size());
    EXPECT_EQ(256u, read_code(data, 0, 9));
    for (uint32_t k = 0; k < 255; ++k) EXPECT_EQ(255 - k, read_code(data, 9 + 9 * k, 9));
    EXPECT_EQ(0u, read_code(data, 9 + 255 * 9, 10));
    EXPECT_EQ(257u, read_code(data, 9 + 255 * 9 + 10, 11));
}

TEST(LzwHandWorked, ClearAt4090IsEmittedAt12Bits) {
    // Distinct pairs keep every step a new entry: with 256 x 256 pairs in a
    // de Bruijn walk, step 3832 stores the entry that brings the next free
    // code to 4090: its prefix goes out at 12 bits, the clear follows at 12,
    // and the next code is back at 9 bits.
    std::vector<uint8_t> pixels = distinct_pairs(5000);
    auto data = unblock(encode_whole(pixels));
    uint32_t at = 9 + 255 * 9 + 512 * 10 + 1024 * 11;  // codes up to next 2049
    at += (4090 - 2049) * 12;                           // prefixes up to next 4090
    EXPECT_EQ(pixels[3831], read_code(data, at - 12, 12));
    EXPECT_EQ(256u, read_code(data, at, 12));
    EXPECT_EQ(pixels[3832], read_code(data, at + 12, 9));
}

// Builds the pixels of one generated case. Kinds: 0 noise, 1 few colours,
// 2 long runs, 3 flat, 4 smooth, 5 distinct pairs.
std::vector<uint8_t> make_pixels(std::mt19937 &rng, int kind, size_t n) {
    switch (kind) {
    case 0: return random_pixels(rng, n);
    case 1: return random_pixels(rng, n, 2 + static_cast<int>(rng() % 15));
    case 2: return run_pixels(rng, n, 1 + static_cast<int>(rng() % 255), 1 + rng() % 3000);
    case 3: return std::vector<uint8_t>(n, static_cast<uint8_t>(rng()));
    case 4: return smooth_pixels(rng, 1 + n / 64, 64);
    default: return distinct_pairs(n);
    }
}

size_t random_count(std::mt19937 &rng) {
    // The reference scans its whole table at each step, so long segments are
    // kept few: enough of them to cross the table reset many times.
    switch (rng() % 16) {
    case 0:
    case 1: return rng() % 5;  // 0..4 pixels: the edge of the edge
    case 2:
    case 3:
    case 4:
    case 5:
    case 6:
    case 7: return rng() % 300;
    case 15: return 4000 + rng() % 8000;
    default: return rng() % 2000;
    }
}

TEST(LzwOracle, GeneratedSegmentsMatchTheReference) {
    std::mt19937 rng(20240611);
    OracleStats stats;
    for (int round = 0; round < 2000; ++round) {
        int kind = static_cast<int>(rng() % 6);
        std::vector<uint8_t> pixels = make_pixels(rng, kind, random_count(rng));
        // One to four segments, cut anywhere (empty segments included).
        std::vector<size_t> cuts;
        size_t segments = rng() % 4;
        for (size_t k = 0; k < segments; ++k) cuts.push_back(pixels.empty() ? 0 : rng() % (pixels.size() + 1));
        std::sort(cuts.begin(), cuts.end());
        SCOPED_TRACE(testing::Message() << "round " << round << " kind " << kind);
        expect_same_chain(pixels, cuts, random_garbage(rng), &stats);
        if (HasFatalFailure()) return;
    }
    // The generator must reach the edges the comparison is about.
    EXPECT_GT(stats.double_raises, 0);
    EXPECT_GT(stats.resets, 20);
    EXPECT_GT(stats.found_at_end, 100);
}

TEST(LzwOracle, CutsAtEveryPositionNearTheEdges) {
    // Distinct pairs put the width raises and the 4090 reset at known steps;
    // a cut at each position around them ends segments on each of them, with
    // every carry from 0 to 7.
    std::mt19937 rng(7);
    std::vector<uint8_t> walk = distinct_pairs(4400);
    std::vector<uint8_t> garbage = random_garbage(rng);
    OracleStats stats;
    std::vector<size_t> positions;
    for (size_t p = 0; p < 12; ++p) positions.push_back(p);
    for (size_t centre : {255u, 767u, 1791u, 3832u}) {
        for (size_t p = centre - 3; p <= centre + 3; ++p) positions.push_back(p);
    }
    for (size_t cut : positions) {
        expect_same_chain(walk, {cut}, garbage, &stats);
        expect_same_chain(walk, {cut, cut + 1, cut + 3}, garbage, &stats);
        if (HasFatalFailure()) return;
    }
    EXPECT_GT(stats.double_raises, 3);
    // The same cuts over runs and few colours: strings found at the cut.
    std::vector<uint8_t> runs = run_pixels(rng, 4000, 3, 40);
    for (size_t cut = 0; cut < 4000; cut += 29) {
        expect_same_chain(runs, {cut}, garbage);
        if (HasFatalFailure()) return;
    }
}

TEST(LzwOracle, FailingWritesGiveTheSameResults) {
    // A write that fails part way through: sub-block failures are not
    // reported, the terminator and parked byte failures are, and the bytes
    // written before the failure are the same.
    std::mt19937 rng(99);
    std::vector<uint8_t> pixels = random_pixels(rng, 3000, 64);
    std::vector<uint8_t> garbage = random_garbage(rng);
    for (int32_t fail_after = 0; fail_after < 2800; fail_after += 41) {
        expect_same_chain(pixels, {1000, 1001, 2500}, garbage, nullptr, fail_after);
        if (HasFatalFailure()) return;
    }
}

}  // namespace

// The LZW encoder: its deliberate edge cases worked out by hand, and the fast
// dictionary against the literal linear-scan encoder on thousands of
// generated segments, cut at every kind of boundary, some with failing
// writes (failed sub-blocks are not reported, the terminator and the parked
// byte are).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <tuple>
#include <vector>

#include "output/lzw.h"
#include "output/lzw_oracle.h"
#include "output/pixels.h"

namespace {

// One whole segment in sub-blocks.
std::vector<uint8_t> encode(const std::vector<uint8_t> &pixels) {
    ByteStream stream;
    LzwSink sink = byte_stream_sink(&stream);
    std::vector<uint8_t> work(kLzwWorkBytes);
    uint32_t carry = 0;
    EXPECT_EQ(0, lzw_compress_and_write(&sink, pixels.data(), work.data(),
                                        static_cast<int32_t>(pixels.size()), 1, 1, &carry));
    return stream.bytes;
}

// `width` bits from bit `at` of the data of a segment's sub-blocks (of 254
// bytes each but the last).
uint32_t code_at(const std::vector<uint8_t> &blocks, uint32_t at, uint32_t width) {
    uint32_t code = 0;
    for (uint32_t b = at; b < at + width; ++b) {
        if (blocks.at(1 + b / 8 + b / 8 / 254) >> (b % 8) & 1) code |= 1u << (b - at);
    }
    return code;
}

TEST(Lzw, PutCodeOrsIntoTheBufferAndClearsTwoBytesAhead) {
    uint8_t work[8] = {0x05, 0xF0, 0xAA, 0x00, 0x77, 0x77, 0x77, 0x77};
    uint32_t bitpos = 3;
    LZWPutCode(work, &bitpos, 0x1FF, 9);
    EXPECT_EQ(12u, bitpos);
    const uint8_t want[8] = {0xFD, 0xFF, 0xAA, 0x00, 0x00, 0x00, 0x77, 0x77};
    EXPECT_EQ(0, std::memcmp(want, work, 8));
}

TEST(Lzw, StreamsWorkedByHand) {
    // 256 distinct pixels: every step adds an entry and the last leaves the
    // next free code at 513 on an unmatched pixel. That pixel goes out at 10
    // bits, the width test raises the width a second time, and the end code
    // goes out at 11 bits, where a decoder expects 10.
    std::vector<uint8_t> down(256);
    for (int k = 0; k < 256; ++k) down[k] = static_cast<uint8_t>(255 - k);
    auto data = encode(down);
    ASSERT_EQ(3 + (9 + 255 * 9 + 10 + 11 + 7) / 8u, data.size());  // two sub-blocks, terminator
    EXPECT_EQ(256u, code_at(data, 0, 9));
    for (uint32_t k = 0; k < 255; ++k) EXPECT_EQ(255 - k, code_at(data, 9 + 9 * k, 9));
    EXPECT_EQ(0u, code_at(data, 9 + 255 * 9, 10));
    EXPECT_EQ(257u, code_at(data, 9 + 255 * 9 + 10, 11));

    // A walk of distinct pairs makes every step a new entry: step 3832 brings
    // the next free code to 4090, its prefix goes out at 12 bits, the clear
    // follows at 12, and the next code is back at 9 bits.
    std::vector<uint8_t> walk = distinct_pairs(5000);
    data = encode(walk);
    uint32_t at = 9 + 255 * 9 + 512 * 10 + 1024 * 11 + (4090 - 2049) * 12;
    EXPECT_EQ(walk[3831], code_at(data, at - 12, 12));
    EXPECT_EQ(256u, code_at(data, at, 12));
    EXPECT_EQ(walk[3832], code_at(data, at + 12, 9));
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
    for (size_t edge : {3u, 255u, 767u, 1791u, 3832u}) {
        for (size_t cut = edge - 3; cut <= edge + 3; ++cut) {
            expect_same(walk, {cut, cut + 1, cut + 3}, static_cast<uint32_t>(cut), &stats);
        }
    }
    // The generated inputs must reach the edges the comparison is about.
    EXPECT_GT(stats.double_raises, 3);
    EXPECT_GT(stats.resets, 20);
    EXPECT_GT(stats.found_at_end, 100);
}

}  // namespace

// The LZW encoder's fast dictionary against the literal linear-scan encoder
// on thousands of generated segments, cut at every kind of boundary (the
// width raises, the reset, odd carries), some with failing writes (failed
// sub-blocks are not reported, the terminator and the parked byte are).
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <tuple>
#include <vector>

#include "output/lzw.h"
#include "output/lzw_oracle.h"
#include "output/pixels.h"

namespace {

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

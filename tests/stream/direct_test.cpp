// The direct bulk transfers against the plain window-by-window algorithm:
// the same random operations, run once each way, must give the same results,
// the same bytes read and the same file.
#include <gtest/gtest.h>

#include <random>

#include "stream/stream.h"
#include "stream_fixture.h"

namespace {

// Sixty random reads, writes, seeks and single-byte writes on a file of
// 100000 bytes, half of their lengths next to a window boundary. Returns each
// result, then the bytes read, then the file.
std::vector<int64_t> run(uint32_t seed, uint32_t mode, bool direct) {
    stream_use_direct_io(direct);
    TempFile tmp;
    tmp.put(pattern(100000, 5));
    std::mt19937 rng(seed);
    Bytes data = pattern(70000, seed), sink(70000);
    std::vector<int64_t> trace;
    HGLOBAL s = zunOpen(tmp.c_str(), nullptr, mode);
    static const int32_t near[] = {1, 12287, 12288, 12289, 24575, 24576, 24577, 36864, 50000};
    for (int step = 0; step < 60; ++step) {
        int32_t n = rng() % 2 ? near[rng() % 9] + static_cast<int32_t>(rng() % 3) - 1
                              : static_cast<int32_t>(rng() % 60000);
        int32_t origin = static_cast<int32_t>(rng() % 3);
        int32_t offset = origin == 0 ? n : origin == 1 ? n - 30000 : -(n % 20000);
        switch (rng() % 4) {
        case 0:
            trace.push_back(zunWrite(s, data.data() + rng() % 1000, n));
            break;
        case 1:
            trace.push_back(zunRead(s, sink.data(), n));
            if (trace.back() > 0)
                trace.insert(trace.end(), sink.begin(), sink.begin() + trace.back());
            break;
        case 2:
            trace.push_back(zunSeek(s, offset, origin));
            break;
        case 3:
            trace.push_back(zunWriteChar(s, data.data() + step, 1));
            break;
        }
    }
    trace.push_back(zunClose(s));
    Bytes file = tmp.contents();
    trace.insert(trace.end(), file.begin(), file.end());
    stream_use_direct_io(true);
    return trace;
}

TEST(DirectTransfers, MatchTheBufferedAlgorithm) {
    for (uint32_t mode : {TOLVA_STREAM_OUTPUT, TOLVA_STREAM_UPDATE, 0u}) {
        for (uint32_t seed = 1; seed <= 40; ++seed) {
            ASSERT_EQ(run(seed, mode, false), run(seed, mode, true))
                << "mode " << mode << " seed " << seed;
        }
    }
}

}  // namespace

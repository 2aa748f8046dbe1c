// The direct bulk transfers against the plain window-by-window algorithm:
// the same random operations, run once each way, must give the same results,
// the same record after every step and the same file.
#include <gtest/gtest.h>

#include <string.h>

#include <random>

#include "stream/stream.h"
#include "stream_fixture.h"

namespace {

// Everything a caller or a later operation can see after one step.
std::vector<int64_t> snapshot(HGLOBAL s, int64_t result) {
    StreamRecord *r = stream_lock(s);
    std::vector<int64_t> v = {result,        r->cursor,   r->lastValid, r->lastSlot,
                              r->bufferStart, r->nextFill, r->dirty,     r->size,
                              r->error};
    for (int32_t i = 0; i <= r->lastValid; ++i) v.push_back(r->bufferData[i]);
    return v;
}

int32_t pick_length(std::mt19937 &rng) {
    static const int32_t near[] = {1, 12287, 12288, 12289, 24575, 24576, 24577, 36864, 50000};
    if (rng() % 2) return near[rng() % 9] + static_cast<int32_t>(rng() % 3) - 1;
    return static_cast<int32_t>(rng() % 60000);
}

std::vector<std::vector<int64_t>> run(uint32_t seed, uint32_t mode, const std::vector<uint8_t> &initial,
                                      std::vector<uint8_t> *file_after, bool direct) {
    stream_use_direct_io(direct);
    TempFile tmp;
    tmp.put(initial);
    std::mt19937 rng(seed);
    auto data = pattern(70000, seed);
    std::vector<uint8_t> sink(70000);
    std::vector<std::vector<int64_t>> trace;
    HGLOBAL s = zunOpen(tmp.c_str(), nullptr, mode);
    trace.push_back(snapshot(s, 0));
    for (int step = 0; step < 60; ++step) {
        int32_t n = pick_length(rng);
        int64_t result = 0;
        switch (rng() % 6) {
        case 0:
        case 1: result = zunWrite(s, data.data() + rng() % 1000, n); break;
        case 2:
        case 3: {
            result = zunRead(s, sink.data(), n);
            if (result > 0) result = result * 1000003 + sink[static_cast<size_t>(result) - 1];
            break;
        }
        case 4: {
            int32_t origin = static_cast<int32_t>(rng() % 3);
            int32_t offset = origin == 0 ? n : origin == 1 ? n - 30000 : -(n % 20000);
            result = zunSeek(s, offset, origin);
            break;
        }
        case 5: result = zunWriteChar(s, data.data() + step, 1); break;
        }
        trace.push_back(snapshot(s, result));
    }
    trace.push_back({zunClose(s)});
    *file_after = tmp.contents();
    stream_use_direct_io(true);
    return trace;
}

TEST(DirectTransfers, MatchTheBufferedAlgorithmStepForStep) {
    auto existing = pattern(100000, 5);
    struct Setup {
        uint32_t mode;
        const std::vector<uint8_t> *initial;
    } setups[] = {{TOLVA_STREAM_OUTPUT, &existing}, {TOLVA_STREAM_UPDATE, &existing}, {0, &existing}};
    for (const Setup &setup : setups) {
        for (uint32_t seed = 1; seed <= 40; ++seed) {
            std::vector<uint8_t> plain_file, direct_file;
            auto plain = run(seed, setup.mode, *setup.initial, &plain_file, false);
            auto direct = run(seed, setup.mode, *setup.initial, &direct_file, true);
            ASSERT_EQ(plain.size(), direct.size());
            for (size_t i = 0; i < plain.size(); ++i) {
                ASSERT_EQ(plain[i], direct[i]) << "mode " << setup.mode << " seed " << seed << " step " << i;
            }
            ASSERT_EQ(plain_file, direct_file) << "seed " << seed;
        }
    }
}

}  // namespace

// Median-cut reduction of the photograph to 256 colours and its conversion
// from 24 to 8 bits through rlChangeColorResolution, each beside the literal
// per-pixel road it must equal (checked once before timing).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "raster/photo.h"
#include "raster/raster_oracle.h"
#include "tolva/host.h"
#include "tolva/raster.h"

namespace {

bool same_block(HGLOBAL a, HGLOBAL b) {
    return GlobalSize(a) == GlobalSize(b) &&
           std::memcmp(rlLockMemory(a), rlLockMemory(b), GlobalSize(a)) == 0;
}

// Loads the photograph and refuses to time anything if the fast roads differ
// from the literal ones.
const Photo &photo() {
    static const Photo p = [] {
        Photo q = shared_test_photo();
        if (q.bits == 0) {
            std::fprintf(stderr, "cannot read the test photograph\n");
            std::exit(1);
        }
        HGLOBAL table = 0, oracleTable = 0;
        HGLOBAL fast = rlChangeColorResolution(q.bits, q.width, q.height, 24, 8, &table);
        HGLOBAL slow = rasteroracle::to_eight_bits(q.bits, q.width, q.height, &oracleTable);
        if (!same_block(table, oracleTable) || !same_block(fast, slow)) {
            std::fprintf(stderr, "the fast conversion differs from the literal one\n");
            std::exit(1);
        }
        for (HGLOBAL h : {table, oracleTable, fast, slow}) rlFreeNewData(h);
        return q;
    }();
    return p;
}

void BM_ReduceTo256(benchmark::State &state) {
    const Photo &p = photo();
    for (auto _ : state) {
        int16_t count = 256;
        HGLOBAL table = rlReduceColorTable(p.bits, p.width, p.height, &count);
        benchmark::DoNotOptimize(table);
        rlFreeNewData(table);
    }
    state.SetItemsProcessed(state.iterations() * p.width * p.height);
}

void BM_ReduceTo256_Literal(benchmark::State &state) {
    const Photo &p = photo();
    for (auto _ : state) {
        int16_t count = 256;
        HGLOBAL table = rasteroracle::reduce(p.bits, p.width, p.height, &count);
        benchmark::DoNotOptimize(table);
        rlFreeNewData(table);
    }
    state.SetItemsProcessed(state.iterations() * p.width * p.height);
}

void BM_To8Bits(benchmark::State &state) {
    const Photo &p = photo();
    for (auto _ : state) {
        HGLOBAL table = 0;
        HGLOBAL out = rlChangeColorResolution(p.bits, p.width, p.height, 24, 8, &table);
        benchmark::DoNotOptimize(out);
        rlFreeNewData(out);
        rlFreeNewData(table);
    }
    state.SetItemsProcessed(state.iterations() * p.width * p.height);
}

void BM_To8Bits_Literal(benchmark::State &state) {
    const Photo &p = photo();
    for (auto _ : state) {
        HGLOBAL table = 0;
        HGLOBAL out = rasteroracle::to_eight_bits(p.bits, p.width, p.height, &table);
        benchmark::DoNotOptimize(out);
        rlFreeNewData(out);
        rlFreeNewData(table);
    }
    state.SetItemsProcessed(state.iterations() * p.width * p.height);
}

// The photograph twice as wide and high, new pixels the means of their
// neighbours, as a smooth enlargement gives: a 4K picture with the many
// distinct colours of one.
const Photo &enlarged() {
    static const Photo big = [] {
        const Photo &p = photo();
        Photo q;
        q.width = p.width * 2;
        q.height = p.height * 2;
        q.bits = GlobalAlloc(66, rlCalcNewSize(q.width, q.height, 24));
        const auto *in = static_cast<const uint8_t *>(GlobalLock(p.bits));
        auto *out = static_cast<uint8_t *>(GlobalLock(q.bits));
        int32_t inRow = rlBytesPerLine(p.width, 24), outRow = rlBytesPerLine(q.width, 24);
        for (int32_t y = 0; y < q.height; ++y) {
            for (int32_t x = 0; x < q.width; ++x) {
                int32_t x0 = x / 2, y0 = y / 2;
                int32_t x1 = x0 + (x & 1) < p.width ? x0 + (x & 1) : x0;
                int32_t y1 = y0 + (y & 1) < p.height ? y0 + (y & 1) : y0;
                for (int c = 0; c < 3; ++c) {
                    int sum = in[y0 * inRow + 3 * x0 + c] + in[y0 * inRow + 3 * x1 + c] +
                              in[y1 * inRow + 3 * x0 + c] + in[y1 * inRow + 3 * x1 + c];
                    out[y * outRow + 3 * x + c] = static_cast<uint8_t>((sum + 2) / 4);
                }
            }
        }
        return q;
    }();
    return big;
}

// The mapping alone: every pixel onto the picture's reduced table, after a
// check against the literal search.
void BM_Map24To8(benchmark::State &state) {
    const Photo &p = state.range(0) == 1 ? photo() : enlarged();
    int16_t count = 256;
    HGLOBAL table = rlReduceColorTable(p.bits, p.width, p.height, &count);
    HGLOBAL fast = rlConvertBitmapDepth(p.bits, p.width, p.height, 24, 8, 0, table, count);
    HGLOBAL slow = rasteroracle::convert(p.bits, p.width, p.height, 24, 8, 0, table, count);
    if (!same_block(fast, slow))
        state.SkipWithError("the fast mapping differs from the literal one");
    rlFreeNewData(fast);
    rlFreeNewData(slow);
    for (auto _ : state) {
        HGLOBAL out = rlConvertBitmapDepth(p.bits, p.width, p.height, 24, 8, 0, table, count);
        benchmark::DoNotOptimize(out);
        rlFreeNewData(out);
    }
    rlFreeNewData(table);
    state.SetItemsProcessed(state.iterations() * p.width * p.height);
}

}  // namespace

BENCHMARK(BM_Map24To8)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReduceTo256)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReduceTo256_Literal)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_To8Bits)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_To8Bits_Literal)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();

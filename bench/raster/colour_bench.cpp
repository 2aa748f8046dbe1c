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

}  // namespace

BENCHMARK(BM_ReduceTo256)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReduceTo256_Literal)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_To8Bits)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_To8Bits_Literal)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();

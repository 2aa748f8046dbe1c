// Dithering the photograph from 24 to 4 bits (and to 1 bit): the library path
// beside the per-pixel loop it must equal (checked once before timing), both
// against the same table; and the whole rlDitherBitmap including the table.
#include <benchmark/benchmark.h>

#include <cstring>

#include "raster/dither_oracle.h"
#include "raster/photo.h"
#include "tolva/host.h"
#include "tolva/raster.h"

namespace {

const Photo &photo() { return shared_test_photo(); }

void dither(benchmark::State &state, int16_t depth, bool literal) {
    const Photo &p = photo();
    if (p.bits == 0) {
        state.SkipWithError("photo.jpg not found");
        return;
    }
    HGLOBAL table = 0;
    int16_t count = 0;
    rlDitherGetCT(p.bits, p.width, p.height, 24, depth, 0, &table, &count);
    HGLOBAL fast = rlDitherGivenCT(p.bits, p.width, p.height, 24, depth, 0, table, count);
    HGLOBAL slow = oracle_dither_given(p.bits, p.width, p.height, 24, depth, table, count);
    if (GlobalSize(fast) != GlobalSize(slow) ||
        std::memcmp(GlobalLock(fast), GlobalLock(slow), GlobalSize(fast)) != 0) {
        state.SkipWithError("fast and literal results differ");
    }
    GlobalFree(fast);
    GlobalFree(slow);
    for (auto _ : state) {
        HGLOBAL out = literal
                          ? oracle_dither_given(p.bits, p.width, p.height, 24, depth, table, count)
                          : rlDitherGivenCT(p.bits, p.width, p.height, 24, depth, 0, table, count);
        benchmark::DoNotOptimize(out);
        GlobalFree(out);
    }
    state.SetItemsProcessed(state.iterations() * p.width * p.height);
    GlobalFree(table);
}

void dither_whole(benchmark::State &state, int16_t depth) {
    const Photo &p = photo();
    if (p.bits == 0) {
        state.SkipWithError("photo.jpg not found");
        return;
    }
    for (auto _ : state) {
        HGLOBAL table = 0;
        HGLOBAL out = rlDitherBitmap(p.bits, p.width, p.height, 24, depth, 0, &table);
        benchmark::DoNotOptimize(out);
        GlobalFree(out);
        GlobalFree(table);
    }
    state.SetItemsProcessed(state.iterations() * p.width * p.height);
}

// The diffusion of the rows alone, on a 24-bit copy of the photograph.
void rows(benchmark::State &state, int16_t depth, bool literal) {
    const Photo &p = photo();
    if (p.bits == 0) {
        state.SkipWithError("photo.jpg not found");
        return;
    }
    HGLOBAL table = 0;
    int16_t count = 0;
    rlDitherGetCT(p.bits, p.width, p.height, 24, depth, 0, &table, &count);
    const auto *t = static_cast<const uint8_t *>(GlobalLock(table));
    uint32_t size = GlobalSize(p.bits);
    HGLOBAL work = GlobalAlloc(66, size);
    auto *w = static_cast<uint8_t *>(GlobalLock(work));
    int32_t line = rlBytesPerLine(p.width, 24);
    for (auto _ : state) {
        state.PauseTiming();
        std::memcpy(w, GlobalLock(p.bits), size);
        state.ResumeTiming();
        for (int32_t y = 0; y < p.height; ++y) {
            uint8_t *current = w + static_cast<size_t>(y) * line;
            uint8_t *next = y + 1 < p.height ? current + line : nullptr;
            if (literal) {
                oracle_dither_line(current, next, t, p.width, count);
            } else {
                _rlDitherOneLine(current, next, t, p.width, count);
            }
        }
        benchmark::DoNotOptimize(w);
    }
    state.SetItemsProcessed(state.iterations() * p.width * p.height);
    GlobalFree(work);
    GlobalFree(table);
}

BENCHMARK_CAPTURE(rows, of_4_bits, 4, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(rows, of_4_bits_literal, 4, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(dither, to_4_bits, 4, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(dither, to_4_bits_literal, 4, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(dither, to_1_bit, 1, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(dither, to_1_bit_literal, 1, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(dither_whole, to_4_bits_with_table, 4)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

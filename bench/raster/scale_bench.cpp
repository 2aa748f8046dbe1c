// Shrinking and stretching the photograph by 3 and by 2.5, the row-plan path
// beside the per-pixel loop it must equal (checked once before timing).
#include <benchmark/benchmark.h>

#include <cstring>

#include "raster/photo.h"
#include "raster/scale_oracle.h"
#include "tolva/host.h"
#include "tolva/raster.h"

namespace {

const Photo &photo() { return shared_test_photo(); }

// The bitmap to scale and the target size for a case: shrinking starts from
// the photograph, stretching from the photograph shrunk by the same factor.
struct Case {
    HGLOBAL bits;
    int32_t sw, sh, dw, dh;
};

Case make_case(double factor, bool stretch) {
    const Photo &p = photo();
    auto w = static_cast<int32_t>(p.width / factor), h = static_cast<int32_t>(p.height / factor);
    if (!stretch) return {p.bits, p.width, p.height, w, h};
    return {rlShrinkBitmap(p.bits, 24, p.width, p.height, w, h), w, h, p.width, p.height};
}

void scale(benchmark::State &state, double factor, bool stretch, bool literal) {
    if (photo().bits == 0) {
        state.SkipWithError("photo.jpg not found");
        return;
    }
    Case c = make_case(factor, stretch);
    HGLOBAL fast = rlStretchBitmap(c.bits, 24, c.sw, c.sh, c.dw, c.dh);
    HGLOBAL slow = oracle_scale_bitmap(c.bits, 24, c.sw, c.sh, c.dw, c.dh);
    if (std::memcmp(GlobalLock(fast), GlobalLock(slow), GlobalSize(fast)) != 0) {
        state.SkipWithError("fast and literal results differ");
    }
    GlobalFree(fast);
    GlobalFree(slow);
    for (auto _ : state) {
        HGLOBAL out = literal ? oracle_scale_bitmap(c.bits, 24, c.sw, c.sh, c.dw, c.dh)
                              : rlShrinkBitmap(c.bits, 24, c.sw, c.sh, c.dw, c.dh);
        benchmark::DoNotOptimize(out);
        GlobalFree(out);
    }
    state.SetItemsProcessed(state.iterations() * c.dw * c.dh);
    if (stretch) GlobalFree(c.bits);
}

BENCHMARK_CAPTURE(scale, shrink_3, 3.0, false, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(scale, shrink_3_literal, 3.0, false, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(scale, shrink_2_5, 2.5, false, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(scale, shrink_2_5_literal, 2.5, false, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(scale, stretch_3, 3.0, true, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(scale, stretch_3_literal, 3.0, true, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(scale, stretch_2_5, 2.5, true, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(scale, stretch_2_5_literal, 2.5, true, true)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

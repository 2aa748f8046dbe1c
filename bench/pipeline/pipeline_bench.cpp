// Time for the whole opcode conversation (init to term) that exports a
// 1920 x 1080 photograph: true colour written 1:1 (the resolution given
// through the viewport scaling mode), true colour at the Setup block's
// default size, and an 8-bit version of the same picture 1:1. Each output
// is decoded once before timing; a benchmark whose GIF does not decode to
// the expected size reports an error instead of a time.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "raster/photo.h"
#include "test_host.h"

using namespace test_host;

namespace {

// The photograph in host row order, or a synthetic picture of the same
// size when it cannot be read.
const Picture &photo() {
    static Picture p = [] {
        const RgbPixels photo = read_jpeg_rgb(TOLVA_TEST_DATA_DIR "/photo.jpg");
        const int w = photo.width, h = photo.height;
        if (w == 0) return make_picture(1920, 1080, 24);
        Picture q;
        q.width = w;
        q.height = h;
        q.bits = 24;
        q.stride = (w * 3 + 3) & ~3;
        q.rows.assign(static_cast<size_t>(q.stride) * h, 0);
        for (int y = 0; y < h; ++y)
            memcpy(&q.rows[static_cast<size_t>(y) * q.stride],
                   photo.rgb.data() + static_cast<size_t>(y) * w * 3, static_cast<size_t>(w) * 3);
        return q;
    }();
    return p;
}

// The photograph as indices of a 3-3-2 palette.
const Picture &indexed_photo() {
    static Picture p = [] {
        const Picture &rgb = photo();
        Picture q;
        q.width = rgb.width;
        q.height = rgb.height;
        q.bits = 8;
        q.stride = (rgb.width + 3) & ~3;
        q.rows.assign(static_cast<size_t>(q.stride) * q.height, 0);
        for (int y = 0; y < q.height; ++y)
            for (int x = 0; x < q.width; ++x) {
                const uint8_t *c = rgb.row(y) + 3 * x;
                q.rows[static_cast<size_t>(y) * q.stride + x] =
                    static_cast<uint8_t>((c[0] & 0xE0) | ((c[1] >> 3) & 0x1C) | (c[2] >> 6));
            }
        return q;
    }();
    return p;
}

void export_once(const Picture &p, bool oneToOne, const std::string &path) {
    Device device;
    device.start(path);
    Send how;
    how.oneToOne = oneToOne;
    send_picture(device, p, how);
    device.stop();
}

void run(benchmark::State &state, const Picture &p, bool oneToOne, int width, int height) {
    TempDir dir;
    const std::string path = dir.path("bench.gif");
    export_once(p, oneToOne, path);
    Gif gif = decode_file(path);
    if (!gif.ok || gif.width != width || gif.height != height) {
        fprintf(stderr, "decoded %d: %d x %d\n", gif.ok, gif.width, gif.height);
        state.SkipWithError("the GIF does not decode to the expected size");
        return;
    }
    for (auto _ : state) export_once(p, oneToOne, path);
    state.counters["Mpx/s"] = benchmark::Counter(p.width * static_cast<double>(p.height) / 1e6,
                                                 benchmark::Counter::kIsIterationInvariantRate);
}

void BM_TrueColourOneToOne(benchmark::State &state) {
    run(state, photo(), true, photo().width, photo().height);
}

void BM_TrueColourDefaultSize(benchmark::State &state) {
    // The default box is 640 x 480 dots; a 16:9 photograph fills its width.
    run(state, photo(), false, 640, 360);
}

void BM_IndexedOneToOne(benchmark::State &state) {
    run(state, indexed_photo(), true, indexed_photo().width, indexed_photo().height);
}

}  // namespace

BENCHMARK(BM_TrueColourOneToOne)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_TrueColourDefaultSize)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_IndexedOneToOne)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();

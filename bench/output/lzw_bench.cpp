// LZW throughput in pixels (bytes) per second: our encoder, giflib's
// EGifPutLine and the reference linear-scan encoder on the same pixels in the
// same run. Three kinds of 8-bit data: a photograph reduced to 256 colours by
// median cut, a flat picture and uniform noise. A run whose output differs
// from the reference encoder's is reported as an error, not as a number.
#include <benchmark/benchmark.h>
#include <gif_lib.h>

#include <cstring>
#include <random>
#include <vector>

#include "output/lzw.h"
#include "output/lzw_oracle.h"
#include "output/pixels.h"
#include "raster/photo.h"

namespace {

struct Data {
    int32_t width = 0;
    int32_t height = 0;
    std::vector<uint8_t> pixels;  // top row first, one byte each
};

// The photograph through median cut to 8 bits; a synthetic smooth picture
// of the same kind when the file cannot be read.
Data photo_data() {
    Data d;
    int32_t w = 0, h = 0;
    HGLOBAL rgb = load_test_photo(&w, &h);
    if (rgb == 0) {
        std::mt19937 rng(1);
        d.width = 1024;
        d.height = 768;
        d.pixels = smooth_pixels(rng, 1024, 768);
        return d;
    }
    int16_t count = 256;
    HGLOBAL table = rlReduceColorTable(rgb, w, h, &count);
    HGLOBAL indexed = rlConvertBitmapDepth(rgb, w, h, 24, 8, 0, table, count);
    auto *rows = static_cast<const uint8_t *>(GlobalLock(indexed));
    int32_t line = rlBytesPerLine(w, 8);
    d.width = w;
    d.height = h;
    d.pixels.resize(static_cast<size_t>(w) * static_cast<size_t>(h));
    // Bitmap rows are stored bottom-up.
    for (int32_t y = 0; y < h; ++y) {
        std::memcpy(&d.pixels[static_cast<size_t>(y) * static_cast<size_t>(w)],
                    rows + static_cast<size_t>(h - 1 - y) * static_cast<size_t>(line),
                    static_cast<size_t>(w));
    }
    GlobalFree(indexed);
    GlobalFree(table);
    GlobalFree(rgb);
    return d;
}

const Data &data(int kind) {
    static Data sets[3];
    static bool made[3] = {};
    if (!made[kind]) {
        Data photo = photo_data();
        if (kind == 0) {
            sets[0] = photo;
        } else {
            sets[kind].width = photo.width;
            sets[kind].height = photo.height;
            std::mt19937 rng(7);
            sets[kind].pixels = kind == 1 ? std::vector<uint8_t>(photo.pixels.size(), 17)
                                          : random_pixels(rng, photo.pixels.size());
        }
        made[kind] = true;
    }
    return sets[kind];
}

const char *kind_name(int kind) { return kind == 0 ? "photo" : kind == 1 ? "flat" : "random"; }

std::vector<uint8_t> encode_tolva(const Data &d) {
    ByteStream out;
    out.bytes.reserve(d.pixels.size() * 2);
    LzwSink sink = byte_stream_sink(&out);
    uint8_t work[kLzwWorkBytes] = {};
    uint32_t carry = 0;
    lzw_compress_and_write(&sink, d.pixels.data(), work, static_cast<int32_t>(d.pixels.size()), 1,
                           1, &carry);
    return out.bytes;
}

std::vector<uint8_t> encode_oracle(const Data &d) {
    ByteStream out;
    out.bytes.reserve(d.pixels.size() * 2);
    std::vector<uint8_t> work(kLzwWorkBytes);
    uint32_t carry = 0;
    oracle_compress_and_write(&out, d.pixels.data(), work.data(),
                              static_cast<int32_t>(d.pixels.size()), 1, 1, &carry);
    return out.bytes;
}

// Checked once per data set: the numbers of an encoder that writes
// something else mean nothing.
bool same_as_oracle(int kind) {
    static int verdict[3] = {};
    if (verdict[kind] == 0)
        verdict[kind] = encode_tolva(data(kind)) == encode_oracle(data(kind)) ? 1 : -1;
    return verdict[kind] == 1;
}

void BM_Tolva(benchmark::State &state) {
    int kind = static_cast<int>(state.range(0));
    const Data &d = data(kind);
    state.SetLabel(kind_name(kind));
    if (!same_as_oracle(kind)) {
        state.SkipWithError("output differs from the reference encoder");
        return;
    }
    // The library's entry on a growing memory stream, as the writer uses it.
    void *block = GlobalLock(GlobalAlloc(TOLVA_GMEM_FLAGS, 1));
    intptr_t descriptor[TOLVA_STREAM_DESCRIPTOR_WORDS] = {
        reinterpret_cast<intptr_t>(&block), 0, 4096, 0, 0, 0};
    HGLOBAL stream = zunOpen(nullptr, descriptor, 4097);
    uint8_t work[kLzwWorkBytes] = {};
    for (auto _ : state) {
        zunSeek(stream, 0, 0);
        uint32_t carry = 0;
        int32_t r = CompressAndWrite(stream, d.pixels.data(), work,
                                     static_cast<int32_t>(d.pixels.size()), 1, 1, &carry);
        benchmark::DoNotOptimize(r);
    }
    state.counters["bytes_out"] = zunSeek(stream, 0, 1);
    zunClose(stream);
    GlobalFree(GlobalHandle(block));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(d.pixels.size()));
}

struct GifBuffer {
    std::vector<uint8_t> bytes;
};

int gif_write(GifFileType *gif, const GifByteType *bytes, int n) {
    auto *b = static_cast<GifBuffer *>(gif->UserData);
    b->bytes.insert(b->bytes.end(), bytes, bytes + n);
    return n;
}

void BM_Giflib(benchmark::State &state) {
    int kind = static_cast<int>(state.range(0));
    const Data &d = data(kind);
    state.SetLabel(kind_name(kind));
    std::vector<GifPixelType> line(d.pixels.begin(), d.pixels.end());
    GifColorType colours[256] = {};
    ColorMapObject *map = GifMakeMapObject(256, colours);
    GifBuffer out;
    out.bytes.reserve(d.pixels.size() * 2);
    for (auto _ : state) {
        out.bytes.clear();
        int error = 0;
        GifFileType *gif = EGifOpen(&out, gif_write, &error);
        EGifPutScreenDesc(gif, d.width, d.height, 8, 0, map);
        EGifPutImageDesc(gif, 0, 0, d.width, d.height, false, nullptr);
        // EGifPutLine masks the pixels in place: a no-op at 8 bits.
        if (EGifPutLine(gif, line.data(), static_cast<int>(line.size())) != GIF_OK) {
            state.SkipWithError("giflib failed");
        }
        EGifCloseFile(gif, &error);
        benchmark::DoNotOptimize(out.bytes.data());
    }
    state.counters["bytes_out"] = static_cast<double>(out.bytes.size());
    GifFreeMapObject(map);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(d.pixels.size()));
}

void BM_Reference(benchmark::State &state) {
    int kind = static_cast<int>(state.range(0));
    const Data &d = data(kind);
    state.SetLabel(kind_name(kind));
    for (auto _ : state) {
        auto bytes = encode_oracle(d);
        benchmark::DoNotOptimize(bytes.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(d.pixels.size()));
}

BENCHMARK(BM_Tolva)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Giflib)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Reference)->DenseRange(0, 2)->Unit(benchmark::kMillisecond)->Iterations(2);

}  // namespace

BENCHMARK_MAIN();

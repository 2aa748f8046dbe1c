// Stream throughput beside C stdio doing the same work in the same run:
// 64 MiB bulk writes and reads through a file (in 64 KiB and 1 MiB calls)
// and through memory, and one-byte writes. The goal: bulk file I/O within 10%
// of stdio, memory streams faster than stdio's memory streams. A file stream
// keeps the last 12288-byte window of every call in its buffer, so small calls
// pay for one window's copy each; large calls go past the buffer.
#include <benchmark/benchmark.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <vector>

#include "tolva/host.h"
#include "tolva/stream.h"

namespace {

constexpr int32_t kTotal = 64 << 20;
constexpr int32_t kChunk = 64 << 10;
constexpr int32_t kBigChunk = 1 << 20;

const std::vector<uint8_t> &chunk() {
    static std::vector<uint8_t> bytes = [] {
        std::vector<uint8_t> v(kBigChunk);
        for (size_t i = 0; i < v.size(); ++i) v[i] = static_cast<uint8_t>(i * 131 + 7);
        return v;
    }();
    return bytes;
}

struct TempPath {
    char name[TOLVA_TEMP_NAME_SIZE] = {};
    TempPath() { ZUNGetTempFileName(0, nullptr, 0, name); }
    ~TempPath() { unlink(name); }
};

void write_file_through_stdio(const char *name, int32_t step = kChunk) {
    FILE *f = fopen(name, "w+");
    for (int32_t done = 0; done < kTotal; done += step)
        fwrite(chunk().data(), 1, static_cast<size_t>(step), f);
    fclose(f);
}

void BM_FileWrite_Stream(benchmark::State &state) {
    const auto step = static_cast<int32_t>(state.range(0));
    TempPath tmp;
    for (auto _ : state) {
        HGLOBAL s = zunOpen(tmp.name, nullptr, TOLVA_STREAM_OUTPUT);
        for (int32_t done = 0; done < kTotal; done += step) zunWrite(s, chunk().data(), step);
        zunClose(s);
    }
    state.SetBytesProcessed(state.iterations() * int64_t{kTotal});
}

void BM_FileWrite_Stdio(benchmark::State &state) {
    const auto step = static_cast<int32_t>(state.range(0));
    TempPath tmp;
    for (auto _ : state) write_file_through_stdio(tmp.name, step);
    state.SetBytesProcessed(state.iterations() * int64_t{kTotal});
}

void BM_FileRead_Stream(benchmark::State &state) {
    const auto step = static_cast<int32_t>(state.range(0));
    TempPath tmp;
    write_file_through_stdio(tmp.name);
    std::vector<uint8_t> buffer(static_cast<size_t>(step));
    for (auto _ : state) {
        HGLOBAL s = zunOpen(tmp.name, nullptr, 0);
        while (zunRead(s, buffer.data(), step) > 0) benchmark::DoNotOptimize(buffer.data());
        zunClose(s);
    }
    state.SetBytesProcessed(state.iterations() * int64_t{kTotal});
}

void BM_FileRead_Stdio(benchmark::State &state) {
    const auto step = static_cast<int32_t>(state.range(0));
    TempPath tmp;
    write_file_through_stdio(tmp.name);
    std::vector<uint8_t> buffer(static_cast<size_t>(step));
    for (auto _ : state) {
        FILE *f = fopen(tmp.name, "r");
        while (fread(buffer.data(), 1, static_cast<size_t>(step), f) > 0)
            benchmark::DoNotOptimize(buffer.data());
        fclose(f);
    }
    state.SetBytesProcessed(state.iterations() * int64_t{kTotal});
}

// A memory stream over a block the caller sized up front (the descriptor's
// size word with mode 0x1000), so that no growth copies the data.
struct SizedBlock {
    void *data = nullptr;
    intptr_t d[TOLVA_STREAM_DESCRIPTOR_WORDS] = {};
    SizedBlock() {
        data = GlobalLock(GlobalAlloc(TOLVA_GMEM_FLAGS, kTotal + 1));
        d[0] = reinterpret_cast<intptr_t>(&data);
        d[1] = kTotal + 1;
        d[2] = 4096;
    }
    ~SizedBlock() { GlobalFree(GlobalHandle(data)); }
};

void BM_MemoryWrite_Stream(benchmark::State &state) {
    SizedBlock block;
    for (auto _ : state) {
        block.d[1] = kTotal + 1;
        HGLOBAL s = zunOpen(nullptr, block.d, TOLVA_STREAM_OUTPUT);
        for (int32_t done = 0; done < kTotal; done += kChunk) zunWrite(s, chunk().data(), kChunk);
        zunClose(s);
        benchmark::DoNotOptimize(block.data);
    }
    state.SetBytesProcessed(state.iterations() * int64_t{kTotal});
}

void BM_MemoryWrite_Stdio(benchmark::State &state) {
    std::vector<uint8_t> memory(kTotal + 1);
    for (auto _ : state) {
        FILE *f = fmemopen(memory.data(), memory.size(), "w");
        for (int32_t done = 0; done < kTotal; done += kChunk) fwrite(chunk().data(), 1, kChunk, f);
        fclose(f);
        benchmark::DoNotOptimize(memory.data());
    }
    state.SetBytesProcessed(state.iterations() * int64_t{kTotal});
}

void BM_MemoryRead_Stream(benchmark::State &state) {
    SizedBlock block;
    memset(block.data, 1, kTotal);
    static_cast<uint8_t *>(block.data)[kTotal] = 0xFF;
    std::vector<uint8_t> buffer(kChunk);
    for (auto _ : state) {
        block.d[1] = kTotal + 1;
        HGLOBAL s = zunOpen(nullptr, block.d, 0);
        while (zunRead(s, buffer.data(), kChunk) > 0) benchmark::DoNotOptimize(buffer.data());
        zunClose(s);
    }
    state.SetBytesProcessed(state.iterations() * int64_t{kTotal});
}

void BM_MemoryRead_Stdio(benchmark::State &state) {
    std::vector<uint8_t> memory(kTotal, 1);
    std::vector<uint8_t> buffer(kChunk);
    for (auto _ : state) {
        FILE *f = fmemopen(memory.data(), memory.size(), "r");
        while (fread(buffer.data(), 1, kChunk, f) > 0) benchmark::DoNotOptimize(buffer.data());
        fclose(f);
    }
    state.SetBytesProcessed(state.iterations() * int64_t{kTotal});
}

// Growth by 4096 bytes at a time, as the library's own writers open their
// memory streams: every step copies the block, so this stays small.
void BM_MemoryGrowingWrite_Stream(benchmark::State &state) {
    const auto total = static_cast<int32_t>(state.range(0));
    for (auto _ : state) {
        void *data = GlobalLock(GlobalAlloc(TOLVA_GMEM_FLAGS, 1));
        intptr_t d[TOLVA_STREAM_DESCRIPTOR_WORDS] = {reinterpret_cast<intptr_t>(&data), 0, 4096};
        HGLOBAL s = zunOpen(nullptr, d, TOLVA_STREAM_OUTPUT);
        for (int32_t done = 0; done < total; done += 4096) zunWrite(s, chunk().data(), 4096);
        zunClose(s);
        GlobalFree(GlobalHandle(data));
    }
    state.SetBytesProcessed(state.iterations() * int64_t{total});
}

void BM_MemoryGrowingWrite_Stdio(benchmark::State &state) {
    const auto total = static_cast<int32_t>(state.range(0));
    for (auto _ : state) {
        char *data = nullptr;
        size_t size = 0;
        FILE *f = open_memstream(&data, &size);
        for (int32_t done = 0; done < total; done += 4096) fwrite(chunk().data(), 1, 4096, f);
        fclose(f);
        free(data);
    }
    state.SetBytesProcessed(state.iterations() * int64_t{total});
}

void BM_WriteChar_Stream(benchmark::State &state) {
    TempPath tmp;
    for (auto _ : state) {
        HGLOBAL s = zunOpen(tmp.name, nullptr, TOLVA_STREAM_OUTPUT);
        const uint8_t *bytes = chunk().data();
        for (int32_t i = 0; i < kTotal / 4; ++i) zunWriteChar(s, bytes + (i & (kChunk - 1)), 1);
        zunClose(s);
    }
    state.SetBytesProcessed(state.iterations() * int64_t{kTotal / 4});
}

void BM_WriteChar_Stdio(benchmark::State &state) {
    TempPath tmp;
    for (auto _ : state) {
        FILE *f = fopen(tmp.name, "w+");
        const uint8_t *bytes = chunk().data();
        for (int32_t i = 0; i < kTotal / 4; ++i) fputc(bytes[i & (kChunk - 1)], f);
        fclose(f);
    }
    state.SetBytesProcessed(state.iterations() * int64_t{kTotal / 4});
}

void BM_MemoryWriteChar_Stream(benchmark::State &state) {
    SizedBlock block;
    for (auto _ : state) {
        block.d[1] = kTotal + 1;
        HGLOBAL s = zunOpen(nullptr, block.d, TOLVA_STREAM_OUTPUT);
        const uint8_t *bytes = chunk().data();
        for (int32_t i = 0; i < kTotal / 4; ++i) zunWriteChar(s, bytes + (i & (kChunk - 1)), 1);
        zunClose(s);
    }
    state.SetBytesProcessed(state.iterations() * int64_t{kTotal / 4});
}

void BM_MemoryWriteChar_Stdio(benchmark::State &state) {
    std::vector<uint8_t> memory(kTotal + 1);
    for (auto _ : state) {
        FILE *f = fmemopen(memory.data(), memory.size(), "w");
        const uint8_t *bytes = chunk().data();
        for (int32_t i = 0; i < kTotal / 4; ++i) fputc(bytes[i & (kChunk - 1)], f);
        fclose(f);
    }
    state.SetBytesProcessed(state.iterations() * int64_t{kTotal / 4});
}

}  // namespace

BENCHMARK(BM_FileWrite_Stream)->Arg(kChunk)->Arg(kBigChunk)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FileWrite_Stdio)->Arg(kChunk)->Arg(kBigChunk)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FileRead_Stream)->Arg(kChunk)->Arg(kBigChunk)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FileRead_Stdio)->Arg(kChunk)->Arg(kBigChunk)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MemoryWrite_Stream)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MemoryWrite_Stdio)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MemoryRead_Stream)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MemoryRead_Stdio)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MemoryGrowingWrite_Stream)->Arg(1 << 20)->Arg(4 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MemoryGrowingWrite_Stdio)->Arg(1 << 20)->Arg(4 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteChar_Stream)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteChar_Stdio)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MemoryWriteChar_Stream)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MemoryWriteChar_Stdio)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();

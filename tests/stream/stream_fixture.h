// Shared helpers of the stream tests: temporary files and memory streams.
#ifndef TOLVA_TESTS_STREAM_FIXTURE_H
#define TOLVA_TESTS_STREAM_FIXTURE_H

#include <stdio.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tolva/tolva.h"

// A temporary file that is removed when the test ends.
struct TempFile {
    std::string path;
    TempFile() {
        char name[TOLVA_TEMP_NAME_SIZE];
        if (ZUNGetTempFileName(0, nullptr, 0, name) == 1) path = name;
    }
    ~TempFile() { unlink(path.c_str()); }
    const char *c_str() const { return path.c_str(); }
    std::vector<uint8_t> contents() const {
        std::vector<uint8_t> bytes;
        FILE *f = fopen(path.c_str(), "rb");
        if (f == nullptr) return bytes;
        int c;
        while ((c = fgetc(f)) != EOF) bytes.push_back(static_cast<uint8_t>(c));
        fclose(f);
        return bytes;
    }
    void put(const std::vector<uint8_t> &bytes) const {
        FILE *f = fopen(path.c_str(), "wb");
        if (f == nullptr) return;
        fwrite(bytes.data(), 1, bytes.size(), f);
        fclose(f);
    }
};

// A memory stream the way the library's writers build one: a 1-byte block,
// locked, its address in `data`, growth step 4096.
struct MemoryBlock {
    void *data = nullptr;
    intptr_t descriptor[TOLVA_STREAM_DESCRIPTOR_WORDS] = {};
    MemoryBlock() {
        data = GlobalLock(GlobalAlloc(TOLVA_GMEM_FLAGS, 1));
        descriptor[0] = reinterpret_cast<intptr_t>(&data);
        descriptor[2] = 4096;
    }
    ~MemoryBlock() { GlobalFree(GlobalHandle(data)); }
    HGLOBAL open(uint32_t mode) { return zunOpen(nullptr, descriptor, mode); }
    // Reopens the block for reading with its whole length as the size word.
    HGLOBAL reopen() {
        descriptor[1] = static_cast<intptr_t>(GlobalSize(GlobalHandle(data)));
        return zunOpen("", descriptor, 0);
    }
    uint8_t *bytes() const { return static_cast<uint8_t *>(data); }
};

inline std::vector<uint8_t> pattern(size_t n, uint32_t seed = 1) {
    std::vector<uint8_t> v(n);
    for (size_t i = 0; i < n; ++i) {
        seed = seed * 1103515245u + 12345u;
        v[i] = static_cast<uint8_t>(seed >> 16);
    }
    return v;
}

#endif

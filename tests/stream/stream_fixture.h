// Shared helpers of the stream tests: test data, temporary files and memory
// streams.
#ifndef TOLVA_TESTS_STREAM_FIXTURE_H
#define TOLVA_TESTS_STREAM_FIXTURE_H

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tolva/host.h"
#include "tolva/stream.h"

using Bytes = std::vector<uint8_t>;

inline Bytes read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void write_file(const std::string &path, const Bytes &bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

inline Bytes pattern(size_t n, uint32_t seed = 1) {
    Bytes v(n);
    for (auto &b : v) {
        seed = seed * 1103515245u + 12345u;
        b = static_cast<uint8_t>(seed >> 16);
    }
    return v;
}

inline Bytes slice(const Bytes &b, size_t at, size_t n) {
    return Bytes(b.begin() + static_cast<long>(at), b.begin() + static_cast<long>(at + n));
}

// Seeks and reads up to `n` bytes; callers ask for more than there is to see
// the end respected.
inline Bytes read_at(HGLOBAL s, int32_t offset, size_t n, int32_t origin = 0) {
    zunSeek(s, offset, origin);
    Bytes got(n);
    got.resize(static_cast<size_t>(std::max(0, zunRead(s, got.data(), static_cast<int32_t>(n)))));
    return got;
}

// A temporary file that is removed when the test ends.
struct TempFile {
    char path[TOLVA_TEMP_NAME_SIZE] = {};
    TempFile() { ZUNGetTempFileName(0, nullptr, 0, path); }
    ~TempFile() { unlink(path); }
    const char *c_str() const { return path; }
    Bytes contents() const { return read_file(path); }
    void put(const Bytes &bytes) const { write_file(path, bytes); }
};

// A memory stream built the way the library's writers build one: a 1-byte
// block, locked, its address in `data`, growth step 4096.
struct MemoryBlock {
    void *data = GlobalLock(GlobalAlloc(TOLVA_GMEM_FLAGS, 1));
    intptr_t descriptor[TOLVA_STREAM_DESCRIPTOR_WORDS] = {reinterpret_cast<intptr_t>(&data), 0,
                                                          4096};
    ~MemoryBlock() { GlobalFree(GlobalHandle(data)); }
    uint8_t *bytes() const { return static_cast<uint8_t *>(data); }
    HGLOBAL open(uint32_t mode) { return zunOpen(nullptr, descriptor, mode); }
    // Reopens the block for reading with its whole length as the size word.
    HGLOBAL reopen() {
        descriptor[1] = static_cast<intptr_t>(GlobalSize(GlobalHandle(data)));
        return zunOpen("", descriptor, 0);
    }
    // A stream holding `content`, positioned at 0.
    HGLOBAL holding(const Bytes &content) {
        HGLOBAL w = open(TOLVA_STREAM_OUTPUT);
        zunWrite(w, content.data(), static_cast<int32_t>(content.size()));
        zunClose(w);
        return reopen();
    }
};

#endif

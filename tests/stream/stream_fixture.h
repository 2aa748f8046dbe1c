// Shared helpers of the stream tests: temporary files and memory streams.
#ifndef TOLVA_TESTS_STREAM_FIXTURE_H
#define TOLVA_TESTS_STREAM_FIXTURE_H

#include <stdio.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tolva/tolva.h"

std::vector<uint8_t> read_file(const std::string &path);
void write_file(const std::string &path, const std::vector<uint8_t> &bytes);

// A temporary file that is removed when the test ends.
struct TempFile {
    std::string path;
    TempFile() {
        char name[TOLVA_TEMP_NAME_SIZE];
        if (ZUNGetTempFileName(0, nullptr, 0, name) == 1) path = name;
    }
    ~TempFile() { unlink(path.c_str()); }
    const char *c_str() const { return path.c_str(); }
    std::vector<uint8_t> contents() const { return read_file(path); }
    void put(const std::vector<uint8_t> &bytes) const { write_file(path, bytes); }
};

// A memory stream built the way the library's writers build one: a 1-byte
// block, locked, its address in `data`, growth step 4096.
struct MemoryBlock {
    void *data = GlobalLock(GlobalAlloc(TOLVA_GMEM_FLAGS, 1));
    intptr_t descriptor[TOLVA_STREAM_DESCRIPTOR_WORDS] = {reinterpret_cast<intptr_t>(&data), 0, 4096};
    ~MemoryBlock() { GlobalFree(GlobalHandle(data)); }
    HGLOBAL open(uint32_t mode) { return zunOpen(nullptr, descriptor, mode); }
    // Reopens the block for reading with its whole length as the size word.
    HGLOBAL reopen() {
        descriptor[1] = static_cast<intptr_t>(GlobalSize(GlobalHandle(data)));
        return zunOpen("", descriptor, 0);
    }
    uint8_t *bytes() const { return static_cast<uint8_t *>(data); }
};

// A memory stream holding `bytes`, positioned at 0.
HGLOBAL memory_source(MemoryBlock &m, const std::vector<uint8_t> &bytes);
std::vector<uint8_t> pattern(size_t n, uint32_t seed = 1);

#endif

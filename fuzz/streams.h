// Helpers shared by the stream-level fuzz targets: streams over the input's
// bytes, temporary files, and the line reader as a host sees it, written out
// plainly so that the targets can compare the library against it.
#ifndef TOLVA_FUZZ_STREAMS_H
#define TOLVA_FUZZ_STREAMS_H

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tolva/host.h"
#include "tolva/profile.h"
#include "tolva/stream.h"

namespace fuzzstreams {

using Bytes = std::vector<uint8_t>;

// Stops the run when a model and the library disagree; libFuzzer keeps the
// input that got here.
[[noreturn]] inline void mismatch(const char *what) {
    std::fprintf(stderr, "model mismatch: %s\n", what);
    std::abort();
}
inline void expect(bool ok, const char *what) {
    if (!ok) mismatch(what);
}

// A file made with mkstemp and removed when the object goes.
struct TempFile {
    char path[32] = "/tmp/tolva-fuzz-XXXXXX";
    bool made = false;
    TempFile() {
        int fd = mkstemp(path);
        made = fd >= 0;
        if (made) close(fd);
    }
    ~TempFile() {
        if (made) unlink(path);
    }
    bool put(const uint8_t *data, size_t size) const {
        FILE *f = std::fopen(path, "wb");
        if (f == nullptr) return false;
        bool ok = size == 0 || std::fwrite(data, 1, size, f) == size;
        return std::fclose(f) == 0 && ok;
    }
};

inline Bytes read_whole(const char *path) {
    Bytes out;
    FILE *f = std::fopen(path, "rb");
    if (f == nullptr) return out;
    uint8_t chunk[4096];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) out.insert(out.end(), chunk, chunk + n);
    std::fclose(f);
    return out;
}

// A caller's memory block for memory streams, set up the way the library's
// own writers set one up: one zero-filled byte, locked, growth step 4096.
struct MemoryBlock {
    void *data = GlobalLock(GlobalAlloc(TOLVA_GMEM_FLAGS, 1));
    intptr_t descriptor[TOLVA_STREAM_DESCRIPTOR_WORDS] = {reinterpret_cast<intptr_t>(&data), 0,
                                                          4096};
    MemoryBlock() = default;
    MemoryBlock(const MemoryBlock &) = delete;
    MemoryBlock &operator=(const MemoryBlock &) = delete;
    ~MemoryBlock() { GlobalFree(GlobalHandle(data)); }
    uint32_t size() const { return GlobalSize(GlobalHandle(data)); }
    const uint8_t *bytes() const { return static_cast<const uint8_t *>(data); }
    // A new, empty stream over the block.
    HGLOBAL create() {
        descriptor[1] = 0;
        return zunOpen(nullptr, descriptor, TOLVA_STREAM_OUTPUT);
    }
    // The block's contents again, for reading (mode 0) or update (mode 2):
    // the size word is the whole block, as a host that kept only the block passes.
    HGLOBAL reopen(uint32_t mode) {
        descriptor[1] = static_cast<intptr_t>(size());
        return zunOpen("", descriptor, mode);
    }
};

// A stream positioned at 0 that holds `data`: a memory stream being written,
// or a file opened for reading.
struct Source {
    MemoryBlock block;
    TempFile file;
    HGLOBAL stream = 0;
    Source(const uint8_t *data, size_t size, bool onFile) {
        if (onFile) {
            if (file.made && file.put(data, size)) stream = zunOpen(file.path, nullptr, 0);
            return;
        }
        stream = block.create();
        if (stream != 0 && size > 0) {
            zunWrite(stream, data, static_cast<int32_t>(size));
            zunSeek(stream, 0, 0);
        }
    }
    ~Source() {
        if (stream != 0) zunClose(stream);
    }
};

// Everything a memory stream opened for writing holds, read back through it.
inline Bytes contents(HGLOBAL s) {
    int32_t end = zunSeek(s, 0, 2);
    Bytes out(end > 0 ? static_cast<size_t>(end) : 0);
    zunSeek(s, 0, 0);
    if (!out.empty() && zunRead(s, out.data(), end) != end)
        mismatch("reading back a memory stream");
    return out;
}

// The line reader: one line of at most `size` characters from `at`. CR, LF
// and CR LF end a line; a CR followed by anything else gives that byte back.
// The result is the count, or -1 when the data ran out first (a CR as the
// very last byte included).
struct Line {
    int32_t result;
    std::string text;
};
inline Line next_line(const Bytes &data, size_t *at, int32_t size) {
    Line line{1, {}};
    bool last_ok = true;
    while (static_cast<int32_t>(line.text.size()) < size) {
        if (*at >= data.size()) {
            last_ok = false;
            break;
        }
        uint8_t c = data[(*at)++];
        if (c == '\r') {
            if (*at >= data.size()) {
                last_ok = false;
            } else if (data[*at] == '\n') {
                ++*at;
            }
            break;
        }
        if (c == '\n') break;
        line.text.push_back(static_cast<char>(c));
    }
    line.result = last_ok ? static_cast<int32_t>(line.text.size()) : -1;
    return line;
}

// The line end a line format writes: 1 CR, 2 LF, anything else CR LF.
inline const char *line_end(int32_t format) {
    return format == 1 ? "\r" : format == 2 ? "\n" : "\r\n";
}

}  // namespace fuzzstreams

#endif

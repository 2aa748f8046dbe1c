// Helpers of the GIF writer tests: output streams to write into, pictures cut
// into bands as the pipeline hands them over, giflib decoding, and the bytes
// the format fixes around the image data.
#ifndef TOLVA_TESTS_OUTPUT_GIF_SUPPORT_H
#define TOLVA_TESTS_OUTPUT_GIF_SUPPORT_H

#include <cstdint>
#include <vector>

#include "tolva/tolva.h"

// A growing memory stream, as the driver opens it when the host asks for
// its output in memory.
struct MemoryOutput {
    void *data = nullptr;
    HGLOBAL stream = 0;
};
void open_memory_output(MemoryOutput *out);
std::vector<uint8_t> close_memory_output(MemoryOutput *out);

// A host I/O procedure over a byte vector; writes start failing once
// `write_limit` bytes have been taken (-1: never).
struct HostFile {
    std::vector<uint8_t> bytes;
    size_t position = 0;
    int64_t write_limit = -1;
};
HGLOBAL open_host_output(HostFile *file);

// An 8-bit picture, top row first, with a 256-entry palette.
struct Picture {
    int32_t width = 0;
    int32_t height = 0;
    std::vector<uint8_t> pixels;
    std::vector<uint8_t> palette;  // 768 bytes
};
Picture make_picture(uint32_t seed, int32_t width, int32_t height, int colours, bool smooth);

// A band of rows [top, top + rows) as the pipeline hands it over: bottom row
// first, rows padded to 4 bytes, in a movable block `extra` bytes larger.
HGLOBAL make_band(const Picture &p, int32_t top, int32_t rows, uint32_t extra = 0);

// Writes the picture through the writer in bands of the given row counts;
// the results of every WriteCellBits call go to *results when given.
void write_picture(HGLOBAL stream, Picture *p, const std::vector<int32_t> &bands,
                   std::vector<int32_t> *results = nullptr, HGLOBAL *state_out = nullptr);

struct Decoded {
    bool ok = false;
    int width = 0;
    int height = 0;
    bool interlaced = false;
    int transparent = -1;
    int background = 0;
    std::vector<uint8_t> pixels;   // top row first
    std::vector<uint8_t> palette;  // red, green, blue per entry
};
Decoded decode_gif(const std::vector<uint8_t> &file);

// The bytes in front of the image data: header, colour table, graphic control
// extension, image descriptor, code size.
std::vector<uint8_t> gif_head(int32_t width, int32_t height, int bits,
                              const std::vector<uint8_t> &palette, int transparent, int background,
                              bool interlaced);

// The image data the reference encoder makes of these segments; `end` marks
// the final segment as the last. Each segment gets a fresh zeroed work buffer
// (as a band too small to serve as one does), or all share one (as the
// interlace passes do).
std::vector<uint8_t> reference_data(const std::vector<std::vector<uint8_t>> &segments, bool end,
                                    bool shared_work = false);

// True when LZW over these pixels ends on an unmatched pixel while the next
// free code stands at 513, 1025 or 2049: the end code (or the clear that joins
// it to the next segment) then goes out one bit wider than decoders read.
bool ends_with_double_raise(const uint8_t *pixels, size_t n);

#endif

// The literal GIF LZW encoder: the encoder as first written, whose string
// lookup scans the table linearly from the current code to the next free
// code, codes ORed into the work buffer with the two bytes ahead cleared,
// over a byte vector that behaves like an output stream (writes at a
// position, one step back). It is kept because the library's encoder, with
// its faster dictionary, must match it exactly: the tests compare the two
// byte for byte (the same bytes, result, carry and first work bytes) and the
// benchmark times them side by side.
#ifndef TOLVA_REFERENCE_OUTPUT_LZW_ORACLE_H
#define TOLVA_REFERENCE_OUTPUT_LZW_ORACLE_H

#include <cstdint>
#include <vector>

#include "output/lzw.h"

// A growing byte array with a write position, standing in for a stream.
struct ByteStream {
    std::vector<uint8_t> bytes;
    size_t position = 0;
    int32_t fail_after = -1;  // >= 0: writes fail once this many bytes went out
    int32_t written = 0;
};

// The encoder's sink over a ByteStream (for the library's sink-based entries).
LzwSink byte_stream_sink(ByteStream *stream);

// What the reference saw at the end of a segment, so that tests can prove
// that their inputs reach each edge case.
struct OracleStats {
    int double_raises = 0;  // the width test raised the width twice at the end
    int resets = 0;         // clear codes emitted at next free code 4090
    int found_at_end = 0;   // the input ended inside a known string
    // The input ended on an unmatched pixel with the next free code at 512 or
    // 513 (1024 or 1025, 2048 or 2049): the last entry is counted once for two
    // codes, so the closing code goes out one bit narrower or wider than a
    // decoder reads it.
    int odd_width_ends = 0;
};

uint32_t oracle_lzw_compression(ByteStream *stream, const uint8_t *pixels, uint8_t *work,
                                int32_t count, int32_t first, int32_t last, uint32_t *carry,
                                OracleStats *stats = nullptr);

int32_t oracle_compress_and_write(ByteStream *stream, const uint8_t *pixels, uint8_t *work,
                                  int32_t count, int32_t first, int32_t last, uint32_t *carry,
                                  OracleStats *stats = nullptr);

#endif

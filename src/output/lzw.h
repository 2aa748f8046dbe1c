// The pieces of the GIF LZW encoder: the string table, the bit accumulator
// that packs codes least significant bit first, and the byte sink that takes
// sub-blocks and gives back a parked byte.
//
// The one invariant: whatever structure the table uses, a lookup answers
// exactly what a scan of the codes 258 .. next-1 would answer, so that the
// code stream never depends on how the table is built.
#ifndef TOLVA_OUTPUT_LZW_H
#define TOLVA_OUTPUT_LZW_H

#include <stdint.h>

#include "tolva/host.h"
#include "tolva/stream.h"
#include "tolva/output.h"

// Code numbers and widths of the GIF variant we write. They are fixed for the
// root alphabet of 256 values, whatever the image depth.
constexpr uint32_t kLzwClearCode = 256;
constexpr uint32_t kLzwEndCode = 257;
constexpr uint32_t kLzwFirstCode = 258;
constexpr uint32_t kLzwFirstWidth = 9;
constexpr uint32_t kLzwLastWidth = 12;
// The table is started afresh when the next free code reaches this value,
// six codes short of the 4096 that 12 bits can name.
constexpr uint32_t kLzwResetCode = 4090;
// Whole groups of this many bytes leave the work buffer after each input
// step; it is also the largest sub-block we write (never 255).
constexpr uint32_t kLzwGroupBytes = 254;
// The least a work buffer may hold: one group, three 12-bit codes of one
// step, and the six bytes LZWPutCode touches from the current byte on.
constexpr uint32_t kLzwWorkBytes = 264;

// ---------------------------------------------------------------------------
// String table. The first string added under each prefix code sits in a
// direct slot of that code (pixel << 16 | code), which serves runs and most
// of photographic data with one load; later ones go to an open-addressing
// hash over (prefix << 8 | pixel) keys, an entry being key << 12 | code.
// Codes are 258 and up, so 0 marks an empty slot either way. Every string is
// stored once (a key is added only after its lookup failed), which is why the
// first match of a linear scan and the match found here agree.

constexpr uint32_t kLzwHashBits = 13;
constexpr uint32_t kLzwHashSize = 1u << kLzwHashBits;  // 8192 slots, never half full
constexpr uint32_t kLzwCodes = 4096;
// The `where` of a string whose prefix has no string added yet.
constexpr uint32_t kLzwFirstChild = 0xFFFFFFFFu;

struct LzwTable {
    uint32_t firstChild[kLzwCodes];
    uint32_t slot[kLzwHashSize];
};

inline uint32_t lzw_hash(uint32_t key) { return (key * 0x9E3779B1u) >> (32 - kLzwHashBits); }

// The code of the string prefix + pixel, or 0 when it is not in the table;
// *where then says where it belongs.
inline uint32_t lzw_table_find(const LzwTable *table, uint32_t prefix, uint32_t pixel,
                               uint32_t *where) {
    uint32_t first = table->firstChild[prefix];
    if (first == 0) {
        *where = kLzwFirstChild;
        return 0;
    }
    if ((first >> 16) == pixel) return first & 0xFFFFu;
    uint32_t key = (prefix << 8) | pixel;
    uint32_t h = lzw_hash(key);
    for (;;) {
        uint32_t entry = table->slot[h];
        if (entry == 0) {
            *where = h;
            return 0;
        }
        if ((entry >> 12) == key) return entry & 0xFFFu;
        h = (h + 1) & (kLzwHashSize - 1);
    }
}

inline void lzw_table_add(LzwTable *table, uint32_t where, uint32_t prefix, uint32_t pixel,
                          uint32_t code) {
    if (where == kLzwFirstChild) {
        table->firstChild[prefix] = (pixel << 16) | code;
    } else {
        table->slot[where] = (((prefix << 8) | pixel) << 12) | code;
    }
}

void lzw_table_clear(LzwTable *table);

// ---------------------------------------------------------------------------
// Bit accumulator over the work buffer. bitpos = 8 * pos + nbits counts the
// bits packed since work[0]. The first four bytes of the buffer are loaded
// into the accumulator at the start, so that codes are ORed onto whatever
// those bytes hold (the parked byte of the previous segment, or bytes the
// caller did not clear), exactly as a packer that ORs into the buffer would;
// every later byte is written whole.

struct LzwBits {
    uint64_t acc;   // pending bits, least significant first
    uint32_t nbits; // pending bit count
    uint32_t pos;   // index in work of the first pending byte
    uint8_t *work;
};

inline void lzw_bits_start(LzwBits *bits, uint8_t *work, uint32_t carry) {
    bits->work = work;
    bits->pos = 0;
    bits->nbits = carry;
    bits->acc = uint64_t{work[0]} | uint64_t{work[1]} << 8 | uint64_t{work[2]} << 16 |
                uint64_t{work[3]} << 24;
}

inline void lzw_bits_put(LzwBits *bits, uint32_t code, uint32_t width) {
    bits->acc |= uint64_t{code} << bits->nbits;
    bits->nbits += width;
    if (bits->nbits >= 32) {
        uint8_t *p = bits->work + bits->pos;
        p[0] = static_cast<uint8_t>(bits->acc);
        p[1] = static_cast<uint8_t>(bits->acc >> 8);
        p[2] = static_cast<uint8_t>(bits->acc >> 16);
        p[3] = static_cast<uint8_t>(bits->acc >> 24);
        bits->pos += 4;
        bits->acc >>= 32;
        bits->nbits -= 32;
    }
}

inline uint32_t lzw_bits_position(const LzwBits *bits) { return bits->pos * 8 + bits->nbits; }

// Writes every complete pending byte into the buffer.
inline void lzw_bits_drain(LzwBits *bits) {
    while (bits->nbits >= 8) {
        bits->work[bits->pos++] = static_cast<uint8_t>(bits->acc);
        bits->acc >>= 8;
        bits->nbits -= 8;
    }
}

// ---------------------------------------------------------------------------
// Where the encoded bytes go: an output stream in the library, a plain byte
// vector in the encoder's tests.

struct LzwSink {
    void *context;
    // Writes count bytes; the number written, or 0 or -1 when nothing was.
    int32_t (*write)(void *context, const void *bytes, int32_t count);
    // Steps back over the last byte written, stores it in *byte, and leaves
    // the position on it so that the next write replaces it.
    void (*takeBack)(void *context, uint8_t *byte);
};

// Writes n bytes as data sub-blocks of at most 254 bytes, each behind its
// count byte. Stops at the first failed write; 0 or TOLVA_ERR_STREAM.
int32_t lzw_write_sub_blocks(const LzwSink *sink, const uint8_t *bytes, uint32_t n);

// Encodes one segment with a table that the caller provides (its contents on
// entry do not matter). work[0] holds the parked byte when *carry is non-zero.
// Returns the number of bytes of the closing flush, which is also the index in
// work of the partial byte left for the next segment.
uint32_t lzw_encode_segment(LzwTable *table, const LzwSink *sink, const uint8_t *pixels,
                            uint8_t *work, int32_t count, int32_t first, int32_t last,
                            uint32_t *carry);

// One segment with the table taken from and given back to the memory handles,
// and the parked byte taken back first: what LZWCompression does on a stream.
uint32_t lzw_compress(const LzwSink *sink, const uint8_t *pixels, uint8_t *work, int32_t count,
                      int32_t first, int32_t last, uint32_t *carry);

// lzw_compress, then the block terminator (last segment) or the parked byte:
// what CompressAndWrite does on a stream. 0 or TOLVA_ERR_STREAM.
int32_t lzw_compress_and_write(const LzwSink *sink, const uint8_t *pixels, uint8_t *work,
                               int32_t count, int32_t first, int32_t last, uint32_t *carry);

#endif

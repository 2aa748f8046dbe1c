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
#include "tolva/output.h"
#include "tolva/stream.h"

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
// String table: open addressing over (prefix << 8 | pixel) keys. A slot holds
// only a code (0 when empty, since codes are 258 and up) and the key of every
// code is kept beside the slots. The home slot of a key is prefix + pixel <<
// 6, which spreads the 256 strings of one prefix 64 slots apart; the step
// from one pixel's code to the next lookup is then a load whose address the
// processor adds up itself, with no operation between. The string ends when
// the home slot is empty, which is known as soon as the slot is read; that
// the code found is the right one is checked against its key beside it. A
// taken slot that holds another key sends the search 0x1F1 slots on, a step
// prime to the table's size that does not run along the blocks that the
// strings of small prefixes fill. With 20480 slots the table is never a
// fifth full, so nearly every lookup reads one slot. Every string is stored
// once (a key is added only after its lookup failed), which is why the first
// match of a linear scan and the match found here agree.
//
// The slots are empty when the table is handed to the encoder. A reset does
// not clear the whole table: where each code since the last reset went is
// listed, and only those slots are emptied, so that a reset costs what the
// codes since the last one cost. The encoder hands the table back emptied
// the same way.
//
// Where the time goes: a run of found strings costs one slot load each, and
// the end of every string is a mispredicted branch. On a photograph's
// indices those two are most of the encoder's time; the rest is mostly the
// strings whose home slot another key holds. Steps without the branch (a
// select instead) were measured slower on every kind of data, because the
// select lengthens the chain of loads that every step waits on; so were
// chasing several slots ahead and settling afterwards, and marking codes
// that have no longer strings yet.

constexpr uint32_t kLzwCodes = 4096;
constexpr uint32_t kLzwSlots = 20480;  // above every home, 4095 + (255 << 6)
constexpr uint32_t kLzwProbeStep = 0x1F1;
// Encoded bytes gather here and leave in whole groups once this many are
// complete, instead of after every step.
constexpr uint32_t kLzwStageGroups = 16;
constexpr uint32_t kLzwStageBytes = kLzwStageGroups * kLzwGroupBytes;

struct LzwTable {
    uint16_t slot[kLzwSlots];
    uint32_t keyOf[kLzwCodes];  // the key of each code since the last reset
    uint16_t where[kLzwCodes];  // the slot each code since the last reset took
    // Whole words are stored past the last complete byte: room for one
    // step's 36 bits and the word beyond them.
    uint8_t stage[kLzwStageBytes + 32];
};

inline uint32_t lzw_home(uint32_t prefix, uint32_t pixel) { return prefix + (pixel << 6); }
inline uint32_t lzw_key(uint32_t prefix, uint32_t pixel) { return (prefix << 8) | pixel; }

// Goes on from a slot *h that holds another key: the code of `key`, or 0
// with *h at the empty slot where it belongs.
inline uint32_t lzw_table_probe(const LzwTable *table, uint32_t key, uint32_t *h) {
    uint32_t at = *h;
    for (;;) {
        at += kLzwProbeStep;
        if (at >= kLzwSlots) at -= kLzwSlots;
        uint32_t code = table->slot[at];
        if (code == 0) {
            *h = at;
            return 0;
        }
        if (table->keyOf[code] == key) return code;
    }
}

// The code of `key`, given what its home slot *h holds: that code when it
// is key's, else what the search on from there finds; 0, with *h at the
// empty slot where the key belongs, when the key is not in the table.
inline uint32_t lzw_table_match(const LzwTable *table, uint32_t code, uint32_t key, uint32_t *h) {
    if (code == 0 || table->keyOf[code] == key) return code;
    return lzw_table_probe(table, key, h);
}

inline void lzw_table_add(LzwTable *table, uint32_t where, uint32_t key, uint32_t code) {
    table->slot[where] = static_cast<uint16_t>(code);
    table->keyOf[code] = key;
    table->where[code] = static_cast<uint16_t>(where);
}

// Empties the slots of the codes 258 .. next-1.
inline void lzw_table_forget(LzwTable *table, uint32_t next) {
    for (uint32_t code = kLzwFirstCode; code < next; ++code) table->slot[table->where[code]] = 0;
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

// Encodes one segment with a table that the caller provides, its slots zero on
// entry (and zero again on return). work[0] holds the parked byte when *carry is non-zero.
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

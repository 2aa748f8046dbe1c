// A minimal host for the fuzz targets: builds opcode parameter blocks at
// their byte positions and drives the raster device through its 32-bit entry.
#ifndef TOLVA_FUZZ_HOST_H
#define TOLVA_FUZZ_HOST_H

#include <cstdint>
#include <cstring>
#include <vector>

#include "tolva/tolva.h"

namespace fuzzhost {

// Hands out the fuzz input a byte at a time; past the end, a fixed filler.
struct Reader {
    const uint8_t *p;
    size_t n;
    uint8_t filler;
    uint8_t byte() {
        if (n == 0) return filler;
        --n;
        return *p++;
    }
};

struct Block {
    std::vector<uint8_t> bytes;
    explicit Block(int32_t opcode, size_t size = 128) : bytes(size, 0) {
        put32(TOLVA_BLOCK_OPCODE, opcode);
    }
    void put32(size_t at, int32_t v) { std::memcpy(&bytes[at], &v, 4); }
    void put16(size_t at, int16_t v) { std::memcpy(&bytes[at], &v, 2); }
    void putd(size_t at, double v) { std::memcpy(&bytes[at], &v, 8); }
    void *data() { return bytes.data(); }
};

inline int32_t call(Block &b) { return RASTER_dd_entry32(0, TOLVA_ENTRY_CALL, b.data()); }

struct Session {
    HGLOBAL setup = 0;
    std::vector<intptr_t> init = std::vector<intptr_t>(TOLVA_INIT_WORDS, 0);
    int32_t capabilities[64] = {};
    char fileName[144] = {};

    // Opens the driver on a fresh Setup block; the caller may edit the block
    // (through lpRaster) before calling start().
    void create() { setup = CreateSetup(0, "", "", 0); }
    int32_t start(const char *name) {
        std::strncpy(fileName, name, sizeof fileName - 1);
        init[TOLVA_INIT_FILE_NAME] = reinterpret_cast<intptr_t>(fileName);
        init[TOLVA_INIT_REPLY_SIZE] = 4096;
        init[TOLVA_INIT_SETUP] = static_cast<intptr_t>(setup);
        init[TOLVA_INIT_CAPABILITIES] = reinterpret_cast<intptr_t>(capabilities);
        return RASTER_dd_entry32(0, TOLVA_ENTRY_INIT, init.data());
    }
    void finish() {
        RASTER_dd_entry32(0, TOLVA_ENTRY_TERM, nullptr);
        if (setup != 0) DestroySetup(setup);
        setup = 0;
    }
};

// The drawing primitive block: word 4 the identifier, word 5 no points, then
// the data length and the data.
inline Block primitive(int32_t id, const int32_t *data, int32_t words) {
    const size_t at = TOLVA_PRIMITIVE_DATA(0);
    Block b(TOLVA_OP_PRIMITIVE, at + 4 * static_cast<size_t>(words) + 8);
    b.put32(TOLVA_PRIMITIVE_ID, id);
    b.put32(TOLVA_PRIMITIVE_POINTS, 0);
    b.put32(TOLVA_PRIMITIVE_DATA_LENGTH(0), 4 * words);
    for (int32_t i = 0; i < words; ++i) b.put32(at + 4 * static_cast<size_t>(i), data[i]);
    return b;
}

// A cell array with its rows inline from byte 102, or, for a negative bit
// count, at the address stored there (the caller keeps the rows alive).
inline Block cellArray(double y1, double y2, uint32_t cells, uint32_t rows, int32_t bits,
                       const uint8_t *rowsData, size_t bytes) {
    Block b(TOLVA_OP_CELL_ARRAY, TOLVA_CELLS_DATA + bytes + 8);
    b.putd(TOLVA_CELLS_FIRST_X, 0.0);
    b.putd(TOLVA_CELLS_FIRST_Y, y1);
    b.putd(TOLVA_CELLS_SECOND_X, 0.0);
    b.putd(TOLVA_CELLS_SECOND_Y, y2);
    std::memcpy(&b.bytes[TOLVA_CELLS_PER_ROW], &cells, 4);
    std::memcpy(&b.bytes[TOLVA_CELLS_ROWS], &rows, 4);
    b.put32(TOLVA_CELLS_BITS, bits);
    if (bits < 0) {
        // Negative bits per cell: the rows stay in the host's memory and the
        // block carries their address.
        std::memcpy(&b.bytes[TOLVA_CELLS_DATA], &rowsData, sizeof rowsData);
    } else if (bytes > 0) {
        std::memcpy(&b.bytes[TOLVA_CELLS_DATA], rowsData, bytes);
    }
    return b;
}

}  // namespace fuzzhost

#endif

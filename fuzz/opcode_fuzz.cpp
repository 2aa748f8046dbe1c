// Opcode sequences into the raster device. Each step takes a few input bytes:
// which opcode, then its parameters. Blocks are always as large as the fields
// the handler reads, cell data lies inline in the block, and colour-table
// indices stay below 256, as every well-behaved host guarantees; everything
// else (order, states, sizes, directions, depths) is left to the fuzzer. The
// output goes to a memory stream, so nothing touches the disk.
#include <cstdint>
#include <vector>

#include "fuzz/host.h"

using fuzzhost::Block;

namespace {

const int32_t kOpcodes[] = {TOLVA_OP_OPEN_DEVICE,
                            TOLVA_OP_CLOSE_DEVICE,
                            TOLVA_OP_BEGIN_PICTURE,
                            TOLVA_OP_BEGIN_BODY,
                            TOLVA_OP_END_PICTURE,
                            TOLVA_OP_DEVICE_WINDOW,
                            TOLVA_OP_BACKGROUND,
                            TOLVA_OP_DEVICE_VIEWPORT,
                            TOLVA_OP_VIEWPORT_SCALING,
                            TOLVA_OP_QUERY_WINDOW,
                            TOLVA_OP_QUERY_VIEWPORT,
                            0x303,
                            TOLVA_OP_COLOUR_TABLE,
                            TOLVA_OP_CELL_ARRAY,
                            TOLVA_OP_PRIMITIVE,
                            0x906,
                            TOLVA_OP_POP_ERRORS,
                            TOLVA_OP_CLEAR_ERRORS,
                            0x601,
                            0x9,
                            0x7777};  // the unnamed ones: accepted and ignored, or unknown

void step(fuzzhost::Reader &in) {
    int32_t opcode = kOpcodes[in.byte() % (sizeof kOpcodes / sizeof kOpcodes[0])];
    switch (opcode) {
    case TOLVA_OP_DEVICE_WINDOW: {
        Block b(opcode);
        for (int i = 0; i < 6; ++i)
            b.putd(TOLVA_WINDOW_X1 + 8 * static_cast<size_t>(i), static_cast<int8_t>(in.byte()));
        fuzzhost::call(b);
        break;
    }
    case TOLVA_OP_VIEWPORT_SCALING: {
        Block b(opcode);
        b.put16(TOLVA_SCALING_MODE, static_cast<int16_t>(in.byte() % 5) - 1);
        b.putd(TOLVA_SCALING_UNIT, in.byte() / 100.0);
        fuzzhost::call(b);
        break;
    }
    case TOLVA_OP_COLOUR_TABLE: {
        uint32_t count = in.byte();
        Block b(opcode, TOLVA_COLOURS_RGB + 3 * static_cast<size_t>(count) + 8);
        b.put32(TOLVA_COLOURS_LENGTH, static_cast<int32_t>(TOLVA_COLOURS_LENGTH_OF(count)));
        b.put32(TOLVA_COLOURS_FIRST, in.byte());
        for (uint32_t i = 0; i < 3 * count; ++i) b.bytes[TOLVA_COLOURS_RGB + i] = in.byte();
        fuzzhost::call(b);
        break;
    }
    case TOLVA_OP_CELL_ARRAY: {
        static const int32_t kBits[] = {1, 4, 8, 24, 32, TOLVA_CELLS_ONE_BIT};
        int32_t bits = kBits[in.byte() % 6];
        uint32_t cells = 1 + in.byte() % 40;
        uint32_t rows = in.byte() % 12;
        int32_t magnitude = bits < 0 ? 1 : bits;
        size_t rowBytes = ((cells * static_cast<uint32_t>(magnitude) + 7) / 8 + 3) / 4 * 4;
        std::vector<uint8_t> data(rowBytes * rows);
        for (uint8_t &v : data) v = in.byte();
        double y1 = static_cast<int8_t>(in.byte());
        double y2 = static_cast<int8_t>(in.byte());
        Block b = fuzzhost::cellArray(y1, y2, cells, rows, bits, data.data(), data.size());
        fuzzhost::call(b);
        break;
    }
    case TOLVA_OP_PRIMITIVE: {
        int32_t id = -static_cast<int32_t>(in.byte() % 8);
        int32_t open[7] = {1 + in.byte() % 40, in.byte() % 24, 0, 0, 0, 0, 0};
        static const int32_t kBits[] = {1, 4, 8, 24, TOLVA_CELLS_ONE_BIT, -8};
        open[2] = kBits[in.byte() % 6];
        Block b = fuzzhost::primitive(id, open, 7);
        fuzzhost::call(b);
        break;
    }
    case TOLVA_OP_POP_ERRORS: {
        Block b(opcode);
        b.put32(TOLVA_POP_WANTED, in.byte() % 12);
        fuzzhost::call(b);
        break;
    }
    default: {
        Block b(opcode);
        for (size_t i = TOLVA_BLOCK_SETTINGS; i < 64; ++i) b.bytes[i] = in.byte();
        fuzzhost::call(b);
        break;
    }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzzhost::Session session;
    session.create();
    if (session.start("") != 0) {
        session.finish();
        return 0;
    }
    fuzzhost::Reader in{data, size, 0};
    for (int i = 0; i < 64 && in.n > 0; ++i) step(in);
    session.finish();
    return 0;
}

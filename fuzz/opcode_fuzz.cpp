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

const int32_t kOpcodes[] = {0x1,   0x2,   0x3,   0x4,   0x5,   0x206, 0x207, 0x208, 0x209,
                            0x2ff, 0x2fd, 0x303, 0x522, 0x409, 0x40a, 0x906, 0xf02, 0xf03,
                            0x601, 0x9,   0x7777};

void step(fuzzhost::Reader &in) {
    int32_t opcode = kOpcodes[in.byte() % (sizeof kOpcodes / sizeof kOpcodes[0])];
    switch (opcode) {
    case 0x206: {
        Block b(opcode);
        for (int i = 0; i < 6; ++i) b.putd(16 + 8 * static_cast<size_t>(i), static_cast<int8_t>(in.byte()));
        fuzzhost::call(b);
        break;
    }
    case 0x209: {
        Block b(opcode);
        b.put16(16, static_cast<int16_t>(in.byte() % 5) - 1);
        b.putd(24, in.byte() / 100.0);
        fuzzhost::call(b);
        break;
    }
    case 0x522: {
        uint32_t count = in.byte();
        Block b(opcode, 20 + 3 * static_cast<size_t>(count) + 8);
        b.put32(4, static_cast<int32_t>(3 * count + 2));
        b.put32(16, in.byte());
        for (uint32_t i = 0; i < 3 * count; ++i) b.bytes[20 + i] = in.byte();
        fuzzhost::call(b);
        break;
    }
    case 0x409: {
        static const int32_t kBits[] = {1, 4, 8, 24, 32, -32768};
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
    case 0x40a: {
        int32_t id = -static_cast<int32_t>(in.byte() % 8);
        int32_t open[7] = {1 + in.byte() % 40, in.byte() % 24, 0, 0, 0, 0, 0};
        static const int32_t kBits[] = {1, 4, 8, 24, -32768, -8};
        open[2] = kBits[in.byte() % 6];
        Block b = fuzzhost::primitive(id, open, 7);
        fuzzhost::call(b);
        break;
    }
    case 0xf02: {
        Block b(opcode);
        b.put32(16, in.byte() % 12);
        fuzzhost::call(b);
        break;
    }
    default: {
        Block b(opcode);
        for (size_t i = 16; i < 64; ++i) b.bytes[i] = in.byte();
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

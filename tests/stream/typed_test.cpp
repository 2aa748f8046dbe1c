// Typed arrays, format-driven records and text lines: the writers' byte
// orders and quirks, alignment and the padding the reader zeroes, unions, and
// the default line end.
#include <gtest/gtest.h>

#include <string.h>

#include "stream_fixture.h"

namespace {

// What `write` puts into a memory stream set to the given byte and float formats.
template <typename Write>
Bytes written(int16_t order, int16_t fixed, Write write) {
    MemoryBlock m;
    HGLOBAL s = m.open(TOLVA_STREAM_OUTPUT);
    zunSetDataFormat(s, order, fixed);
    write(s);
    Bytes out(m.bytes(), m.bytes() + zunSeek(s, 0, 1));
    zunClose(s);
    return out;
}

// A memory stream over `bytes` in the given formats, closed at scope end.
struct Source {
    MemoryBlock m;
    HGLOBAL s;
    Source(const Bytes &bytes, int16_t order = 0, int16_t fixed = 0) : s(m.holding(bytes)) {
        zunSetDataFormat(s, order, fixed);
    }
    ~Source() { zunClose(s); }
};

// The memory zunReadStruct fills from `file`, 0xEE where it stores nothing.
Bytes read_struct(const Bytes &file, const char *format, int32_t records, size_t size) {
    Bytes mem(size, 0xEE);
    EXPECT_EQ(zunReadStruct(Source(file).s, format, mem.data(), records), records) << format;
    return mem;
}

// The fixed-point writer puts the fraction first and each half most
// significant byte first in either order, and big-endian doubles go out as
// their two halves swapped. (Reads are checked against a model by the struct
// fuzz target, which leaves the fixed-point writer's rounding out.)
TEST(TypedIO, WritersInBothByteOrders) {
    const uint16_t word = 0x1234;
    const float fixed = -2.25f;
    const double value = 1.0000000000000002;  // 3F F0 00 00 00 00 00 01
    for (int16_t order : {0, 1}) {
        Bytes out = written(order, 1, [&](HGLOBAL s) {
            zunWriteShort(s, &word, 1);
            zunWriteFloat(s, &fixed, 1);
            zunWriteDouble(s, &value, 1);
        });
        EXPECT_EQ(out,
                  (order ? Bytes{0x12, 0x34, 0xC0, 0, 0xFF, 0xFE, 0, 0, 0, 1, 0, 0, 0xF0, 0x3F}
                         : Bytes{0x34, 0x12, 0xC0, 0, 0xFF, 0xFE, 1, 0, 0, 0, 0, 0, 0xF0, 0x3F}));
    }
    uint32_t v[3] = {};
    EXPECT_EQ(zunReadLong(Source({1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0}, 1).s, v, 3), 0);
    EXPECT_EQ(memcmp(v, "\1\0\0\0\2\0\0\0\3\0\0", 11), 0);  // a short read stays unconverted
}

TEST(Records, PadWidthAndUnionSize) {
    EXPECT_EQ(GetPadWidth("6C2S3C"), 2);
    EXPECT_EQ(GetPadWidth("1C{1D}"), 8);
    EXPECT_EQ(GetPadWidth("{1S}1L"), 2);  // a leading "{" measures only that structure
    struct Case {
        const char *format;
        int32_t size;
        size_t end;
    } cases[] = {{"(1L|2S)", 4, 6},
                 {"(1S|1D)", 2, 6},
                 {"(1S|1D|)", 8, 7},
                 {"(1C(1L|)|1S|)", 8, 12},
                 {"(1L|", 4, 4}};
    for (const Case &c : cases) {
        int32_t size = -1;
        EXPECT_EQ(GetUnionSize(c.format, &size), c.format + c.end) << c.format;
        EXPECT_EQ(size, c.size) << c.format;
    }
}

TEST(Records, PackedInTheFileAlignedAndZeroPaddedInMemory) {
    struct Image {
        uint8_t sep;
        uint16_t l, t, w, h;
        uint8_t flags;
    } images[2] = {{0x2C, 1, 2, 3, 0x0405, 0x80}, {7, 8, 9, 10, 11, 12}};
    static_assert(sizeof(Image) == 12);
    Bytes bytes =
        written(0, 0, [&](HGLOBAL s) { EXPECT_EQ(zunWriteStruct(s, "1C4S1C", images, 2), 2); });
    EXPECT_EQ(bytes, (Bytes{0x2C, 1, 0, 2, 0, 3, 0, 5, 4, 0x80, 7, 8, 0, 9, 0, 10, 0, 11, 0, 12}));
    // The reader steps over the pad in front of a short but zeroes the record's tail pad.
    EXPECT_EQ(read_struct(bytes, "1C4S1C", 2, 24),
              (Bytes{0x2C, 0xEE, 1, 0, 2, 0, 3,  0, 5,  4, 0x80, 0,
                     7,    0xEE, 8, 0, 9, 0, 10, 0, 11, 0, 12,   0}));
    // 1C, a union of a long and a double (8 bytes aligned to 8) that is
    // skipped, a skipped short, one short read, and the record pad to 8.
    EXPECT_EQ(read_struct({0x7F, 0x34, 0x12}, "1C(1L|1D|)[1S]1S", 1, 24),
              (Bytes{0x7F, 0,    0,    0,    0,    0,    0,    0,    0xEE, 0xEE, 0xEE, 0xEE,
                     0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0x34, 0x12, 0,    0,    0,    0}));
}

TEST(Records, UnknownCharactersAndWriterUnionsCountAsNoRecord) {
    uint8_t rec[8] = {0x11, 0, 0, 0, 0x44, 0x33, 0x22, 0x11};
    // The writer walks a union's alternatives as plain items.
    EXPECT_EQ(written(0, 0, [&](HGLOBAL s) { EXPECT_EQ(zunWriteStruct(s, "1C(1L|)", rec, 1), 0); }),
              (Bytes{0x11, 0x44, 0x33, 0x22, 0x11}));
    EXPECT_EQ(zunReadStruct(Source({1, 2, 3, 4}).s, "1C1X", rec, 1), 0);
}

// Line reads and line ends written are compared with a plain line reader by
// the line fuzz target, which always sets the format first.
TEST(LineIO, LfUntilToldAndATextsLineEndDetected) {
    Bytes out = written(0, 0, [](HGLOBAL s) {
        zunWriteLine(s, "a", 1);
        zunSetLineFormat(s, 1);
        zunWriteLine(s, "b", 1);
    });
    EXPECT_EQ(out, (Bytes{'a', 10, 'b', 13}));
    struct Case {
        const char *text;
        int32_t format;
    } cases[] = {
        {"key=1\r\nx\n", 0}, {"key\rx\n", 1}, {"key\nx\r\n", 2}, {"no end", -1}, {"end\r", 1}};
    for (const Case &c : cases) {
        Source in(Bytes(c.text, c.text + strlen(c.text)));
        char skip[2];
        zunRead(in.s, skip, 2);
        EXPECT_EQ(zunGetLineFormat(in.s), c.format) << c.text;
        EXPECT_EQ(zunSeek(in.s, 0, 1), 0);  // rewound whatever was found
    }
}

}  // namespace

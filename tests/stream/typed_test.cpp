// Typed arrays and format-driven records: byte orders, the fixed-point and
// double quirks, alignment, unions and the record count.
#include <gtest/gtest.h>

#include <string.h>

#include "stream_fixture.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Captures what a writer produces, in the given byte and float formats.
struct Sink {
    MemoryBlock m;
    HGLOBAL s = m.open(TOLVA_STREAM_OUTPUT);
    Sink(int16_t order = 0, int16_t fixed = 0) { zunSetDataFormat(s, order, fixed); }
    ~Sink() { zunClose(s); }
    Bytes bytes() { return Bytes(m.bytes(), m.bytes() + zunSeek(s, 0, 1)); }
};

TEST(TypedIO, IntegersInBothByteOrders) {
    for (int16_t order : {0, 1}) {
        MemoryBlock m;
        HGLOBAL src = memory_source(m, {0x34, 0x12, 0x78, 0x56});
        zunSetDataFormat(src, order, 0);
        uint16_t v[2];
        EXPECT_EQ(zunReadShort(src, v, 2), 2);
        EXPECT_EQ(v[0], order ? 0x3412 : 0x1234);
        EXPECT_EQ(v[1], order ? 0x7856 : 0x5678);
        zunClose(src);

        Sink out(order);
        const uint32_t longs[2] = {0x01020304u, 0xA0B0C0D0u};
        EXPECT_EQ(zunWriteLong(out.s, longs, 2), 2);
        EXPECT_EQ(out.bytes(), (order ? Bytes{1, 2, 3, 4, 0xA0, 0xB0, 0xC0, 0xD0}
                                      : Bytes{4, 3, 2, 1, 0xD0, 0xC0, 0xB0, 0xA0}));
    }
    MemoryBlock m;
    HGLOBAL src = memory_source(m, {1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0});
    uint32_t v[3] = {};
    EXPECT_EQ(zunReadLong(src, v, 3), 0);  // 11 bytes: short, left unconverted
    EXPECT_EQ(memcmp(v, "\1\0\0\0\2\0\0\0\3\0\0", 11), 0);
    zunClose(src);
}

TEST(TypedIO, FixedPointWriterIsNotTheReadersInverse) {
    MemoryBlock m;
    HGLOBAL src = memory_source(m, {0x00, 0x80, 0x01, 0x00});
    zunSetDataFormat(src, 0, 1);
    float f;
    EXPECT_EQ(zunReadFloat(src, &f, 1), 1);
    EXPECT_EQ(f, 1.5f);
    zunClose(src);
    for (int16_t order : {0, 1}) {
        Sink out(order, 1);
        const float values[2] = {1.5f, -2.25f};
        EXPECT_EQ(zunWriteFloat(out.s, values, 2), 2);
        EXPECT_EQ(out.bytes(), (Bytes{0x80, 0x00, 0x00, 0x01, 0xC0, 0x00, 0xFF, 0xFE}));
    }
}

TEST(TypedIO, DoublesWrittenBigEndianSwapTheirHalves) {
    const double value = 1.0000000000000002;  // 3F F0 00 00 00 00 00 01
    for (int16_t order : {0, 1}) {
        Sink out(order);
        EXPECT_EQ(zunWriteDouble(out.s, &value, 1), 1);
        auto bytes = out.bytes();
        EXPECT_EQ(bytes, (order ? Bytes{0, 0, 0, 1, 0, 0, 0xF0, 0x3F} : Bytes{1, 0, 0, 0, 0, 0, 0xF0, 0x3F}));
        // Little-endian round-trips; big-endian reads the plain order back.
        MemoryBlock m;
        HGLOBAL src = memory_source(m, order ? Bytes{0x3F, 0xF0, 0, 0, 0, 0, 0, 1} : bytes);
        zunSetDataFormat(src, order, 0);
        double got;
        EXPECT_EQ(zunReadDouble(src, &got, 1), 1);
        EXPECT_EQ(got, value);
        zunClose(src);
    }
}

TEST(Formats, PadWidthAndUnionSize) {
    EXPECT_EQ(GetPadWidth("6C2S3C"), 2);
    EXPECT_EQ(GetPadWidth("1C{1D}"), 8);
    EXPECT_EQ(GetPadWidth("3C"), 1);
    EXPECT_EQ(GetPadWidth("{1S}1L"), 2);  // a leading "{" measures only that structure
    struct Case {
        const char *format;
        int32_t size;
        size_t end;
    } cases[] = {{"(1L|2S)", 4, 6}, {"(1S|1D)", 2, 6}, {"(1S|1D|)", 8, 7}, {"(1C(1L|)|1S|)", 8, 12}, {"(1L|", 4, 4}};
    for (const Case &c : cases) {
        int32_t size = -1;
        EXPECT_EQ(GetUnionSize(c.format, &size), c.format + c.end) << c.format;
        EXPECT_EQ(size, c.size) << c.format;
    }
}

TEST(Records, GifDescriptorsArePackedInTheFile) {
    struct Screen {
        uint8_t sig[6];
        uint16_t w, h;
        uint8_t flags, bg, aspect;
    } screens[2] = {{{'G', 'I', 'F', '8', '9', 'a'}, 0x0102, 0x0304, 0xF7, 0, 0},
                    {{'a', 'b', 'c', 'd', 'e', 'f'}, 7, 8, 9, 10, 11}};
    static_assert(sizeof(Screen) == 14);
    Sink out;
    EXPECT_EQ(zunWriteStruct(out.s, "6C2S3C", screens, 2), 2);
    auto bytes = out.bytes();
    ASSERT_EQ(bytes.size(), 26u);
    EXPECT_EQ(memcmp(bytes.data(), "GIF89a\x02\x01\x04\x03\xF7\x00\x00", 13), 0);

    MemoryBlock m;
    HGLOBAL src = memory_source(m, bytes);
    Screen got[2];
    memset(got, 0xEE, sizeof got);
    EXPECT_EQ(zunReadStruct(src, "6C2S3C", got, 2), 2);
    EXPECT_EQ(memcmp(got, screens, 13), 0);
    EXPECT_EQ(memcmp(&got[1], &screens[1], 13), 0);
    EXPECT_EQ(reinterpret_cast<uint8_t *>(got)[13], 0x00);  // the record's tail pad is zeroed
    zunClose(src);

    Sink image;
    struct {
        uint8_t sep;
        uint16_t l, t, w, h;
        uint8_t flags;
    } im = {0x2C, 1, 2, 3, 4, 0x80};
    EXPECT_EQ(zunWriteStruct(image.s, "1C4S1C", &im, 1), 1);
    EXPECT_EQ(image.bytes(), (Bytes{0x2C, 1, 0, 2, 0, 3, 0, 4, 0, 0x80}));
}

TEST(Records, ReaderZeroesPaddingAndSkipsUnionsAndBrackets) {
    MemoryBlock m;
    HGLOBAL src = memory_source(m, {0x01, 0x02, 0xAA, 0xBB, 0xCC, 0xDD, 0x7F, 0x34, 0x12});
    uint8_t mem[24];
    memset(mem, 0xEE, sizeof mem);
    EXPECT_EQ(zunReadStruct(src, "2C1L", mem, 1), 1);
    uint32_t v;
    memcpy(&v, mem + 4, 4);
    EXPECT_EQ(memcmp(mem, "\x01\x02\x00\x00", 4), 0);
    EXPECT_EQ(v, 0xDDCCBBAAu);

    // 1C, a union of a long and a double (8 bytes aligned to 8), a skipped
    // short, then one short read.
    memset(mem, 0xEE, sizeof mem);
    EXPECT_EQ(zunReadStruct(src, "1C(1L|1D|)[1S]1S", mem, 1), 1);
    EXPECT_EQ(mem[0], 0x7F);
    for (int i = 1; i < 8; ++i) EXPECT_EQ(mem[i], 0) << i;      // zeroed pad
    for (int i = 8; i < 18; ++i) EXPECT_EQ(mem[i], 0xEE) << i;  // union and skipped short
    uint16_t s;
    memcpy(&s, mem + 18, 2);
    EXPECT_EQ(s, 0x1234);
    for (int i = 20; i < 24; ++i) EXPECT_EQ(mem[i], 0) << i;  // record pad to 8
    zunClose(src);
}

TEST(Records, UnknownCharactersAndWriterUnionsCountAsNoRecord) {
    Sink out;
    uint8_t rec[8] = {0x11, 0, 0, 0, 0x44, 0x33, 0x22, 0x11};
    EXPECT_EQ(zunWriteStruct(out.s, "1C(1L|)", rec, 1), 0);
    EXPECT_EQ(out.bytes(), (Bytes{0x11, 0x44, 0x33, 0x22, 0x11}));

    MemoryBlock m;
    HGLOBAL src = memory_source(m, {1, 2, 3, 4});
    uint8_t mem[4];
    EXPECT_EQ(zunReadStruct(src, "1C1X", mem, 1), 0);
    EXPECT_EQ(zunReadStruct(src, "1c", mem, 3), 3);  // lower case matches too
    EXPECT_EQ(zunReadStruct(src, "1C", mem, 1), 0);  // the data is used up
    zunClose(src);
}

}  // namespace

// Typed arrays and format-driven records: byte orders, the fixed-point and
// double quirks, alignment, unions and the record count.
#include <gtest/gtest.h>

#include <string.h>

#include "stream_fixture.h"

namespace {

// A memory stream holding `bytes`, positioned at 0, for the readers.
struct Source {
    MemoryBlock m;
    HGLOBAL s = 0;
    explicit Source(std::vector<uint8_t> bytes) {
        HGLOBAL w = m.open(TOLVA_STREAM_OUTPUT);
        zunWrite(w, bytes.data(), static_cast<int32_t>(bytes.size()));
        zunClose(w);
        s = m.reopen();
    }
    ~Source() { zunClose(s); }
};

// Captures what a writer produces.
struct Sink {
    MemoryBlock m;
    HGLOBAL s = m.open(TOLVA_STREAM_OUTPUT);
    ~Sink() {
        if (s != 0) zunClose(s);
    }
    std::vector<uint8_t> bytes() {
        int32_t n = zunSeek(s, 0, 1);
        return std::vector<uint8_t>(m.bytes(), m.bytes() + n);
    }
};

TEST(TypedIO, ShortsAndLongsInBothOrders) {
    {
        Source src({0x34, 0x12, 0x78, 0x56});
        uint16_t v[2];
        EXPECT_EQ(zunReadShort(src.s, v, 2), 2);
        EXPECT_EQ(v[0], 0x1234);
        EXPECT_EQ(v[1], 0x5678);
    }
    {
        Source src({0x34, 0x12, 0x78, 0x56});
        zunSetDataFormat(src.s, 1, 0);
        uint16_t v[2];
        EXPECT_EQ(zunReadShort(src.s, v, 2), 2);
        EXPECT_EQ(v[0], 0x3412);
        EXPECT_EQ(v[1], 0x7856);
    }
    for (int16_t order : {0, 1}) {
        Sink out;
        zunSetDataFormat(out.s, order, 0);
        const uint32_t longs[2] = {0x01020304u, 0xA0B0C0D0u};
        EXPECT_EQ(zunWriteLong(out.s, longs, 2), 2);
        auto bytes = out.bytes();
        std::vector<uint8_t> want = order == 1
            ? std::vector<uint8_t>{1, 2, 3, 4, 0xA0, 0xB0, 0xC0, 0xD0}
            : std::vector<uint8_t>{4, 3, 2, 1, 0xD0, 0xC0, 0xB0, 0xA0};
        EXPECT_EQ(bytes, want);
        Source back(bytes);
        zunSetDataFormat(back.s, order, 0);
        uint32_t got[2];
        EXPECT_EQ(zunReadLong(back.s, got, 2), 2);
        EXPECT_EQ(memcmp(got, longs, 8), 0);
    }
}

TEST(TypedIO, ShortReadLeavesTheBufferUnconverted) {
    Source src({1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0});
    uint32_t v[3] = {};
    EXPECT_EQ(zunReadLong(src.s, v, 3), 0);
    uint8_t raw[11] = {1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0};
    EXPECT_EQ(memcmp(v, raw, 11), 0);
}

TEST(TypedIO, FixedPointIsNotItsOwnInverse) {
    Source src({0x00, 0x80, 0x01, 0x00});
    zunSetDataFormat(src.s, 0, 1);
    float f;
    EXPECT_EQ(zunReadFloat(src.s, &f, 1), 1);
    EXPECT_EQ(f, 1.5f);

    for (int16_t order : {0, 1}) {
        Sink out;
        zunSetDataFormat(out.s, order, 1);
        const float values[2] = {1.5f, -2.25f};
        EXPECT_EQ(zunWriteFloat(out.s, values, 2), 2);
        EXPECT_EQ(out.bytes(), (std::vector<uint8_t>{0x80, 0x00, 0x00, 0x01, 0xC0, 0x00, 0xFF, 0xFE}));
    }
}

TEST(TypedIO, IeeeFloatsAndDoublesRoundTripLittleEndian) {
    Sink out;
    const float f[3] = {1.0f, -0.0f, 3.25e-7f};
    const double d[2] = {1.0000000000000002, -123.5};
    EXPECT_EQ(zunWriteFloat(out.s, f, 3), 3);
    EXPECT_EQ(zunWriteDouble(out.s, d, 2), 2);
    auto bytes = out.bytes();
    EXPECT_EQ(bytes[3], 0x3F);  // 1.0f little-endian: 00 00 80 3F
    Source back(bytes);
    float gf[3];
    double gd[2];
    EXPECT_EQ(zunReadFloat(back.s, gf, 3), 3);
    EXPECT_EQ(zunReadDouble(back.s, gd, 2), 2);
    EXPECT_EQ(memcmp(gf, f, sizeof f), 0);
    EXPECT_EQ(memcmp(gd, d, sizeof d), 0);
}

TEST(TypedIO, BigEndianDoublesSwapTheirHalves) {
    const double value = 1.0000000000000002;  // 3F F0 00 00 00 00 00 01
    for (int16_t order : {0, 1}) {
        Sink out;
        zunSetDataFormat(out.s, order, 0);
        EXPECT_EQ(zunWriteDouble(out.s, &value, 1), 1);
        std::vector<uint8_t> want = order == 1
            ? std::vector<uint8_t>{0, 0, 0, 1, 0, 0, 0xF0, 0x3F}
            : std::vector<uint8_t>{1, 0, 0, 0, 0, 0, 0xF0, 0x3F};
        EXPECT_EQ(out.bytes(), want);
    }
    Source src({0x3F, 0xF0, 0, 0, 0, 0, 0, 1});
    zunSetDataFormat(src.s, 1, 0);
    double got;
    EXPECT_EQ(zunReadDouble(src.s, &got, 1), 1);
    EXPECT_EQ(got, value);
}

TEST(TypedIO, NativeToByteOrders) {
    uint8_t le[3], be[3];
    zunNativeToLE(le, 0x11223344u, 3);
    zunNativeToBE(be, 0x11223344u, 3);
    EXPECT_EQ(memcmp(le, "\x44\x33\x22", 3), 0);
    EXPECT_EQ(memcmp(be, "\x22\x33\x44", 3), 0);
}

TEST(Formats, PadWidthAndUnionSize) {
    EXPECT_EQ(GetPadWidth("6C2S3C"), 2);
    EXPECT_EQ(GetPadWidth("1C{1D}"), 8);
    EXPECT_EQ(GetPadWidth("3C"), 1);
    EXPECT_EQ(GetPadWidth("{1S}1L"), 2);  // a leading "{" measures only that structure
    int32_t size = -1;
    const char *f = "(1L|2S)";
    EXPECT_EQ(GetUnionSize(f, &size), f + 6);
    EXPECT_EQ(size, 4);
    GetUnionSize("(1S|1D)", &size);
    EXPECT_EQ(size, 2);
    GetUnionSize("(1S|1D|)", &size);
    EXPECT_EQ(size, 8);
    GetUnionSize("(1C(1L|)|1S|)", &size);
    EXPECT_EQ(size, 8);
    const char *open = "(1L|";
    EXPECT_EQ(GetUnionSize(open, &size), open + 4);
    EXPECT_EQ(size, 4);
}

TEST(Records, GifDescriptorsArePackedInTheFile) {
    struct Screen {
        uint8_t sig[6];
        uint16_t w, h;
        uint8_t flags, bg, aspect;
    };
    static_assert(sizeof(Screen) == 14);
    Screen screens[2] = {{{'G', 'I', 'F', '8', '9', 'a'}, 0x0102, 0x0304, 0xF7, 0, 0},
                         {{'a', 'b', 'c', 'd', 'e', 'f'}, 7, 8, 9, 10, 11}};
    Sink out;
    EXPECT_EQ(zunWriteStruct(out.s, "6C2S3C", screens, 2), 2);
    auto bytes = out.bytes();
    ASSERT_EQ(bytes.size(), 26u);
    EXPECT_EQ(memcmp(bytes.data(), "GIF89a\x02\x01\x04\x03\xF7\x00\x00", 13), 0);

    Source back(bytes);
    Screen got[2];
    memset(got, 0xEE, sizeof got);
    EXPECT_EQ(zunReadStruct(back.s, "6C2S3C", got, 2), 2);
    EXPECT_EQ(memcmp(got[0].sig, "GIF89a", 6), 0);
    EXPECT_EQ(got[1].h, 8);
    EXPECT_EQ(got[1].aspect, 11);
    // The pad byte in front of S is stepped over, the record's tail pad too
    // (alignment 2 pads with nothing but the trailing byte, which is left).
    EXPECT_EQ(reinterpret_cast<uint8_t *>(&got[0])[13], 0x00);

    Sink image;
    struct Image {
        uint8_t sep;
        uint16_t l, t, w, h;
        uint8_t flags;
    } im = {0x2C, 1, 2, 3, 4, 0x80};
    EXPECT_EQ(zunWriteStruct(image.s, "1C4S1C", &im, 1), 1);
    EXPECT_EQ(image.bytes(), (std::vector<uint8_t>{0x2C, 1, 0, 2, 0, 3, 0, 4, 0, 0x80}));
}

TEST(Records, ReaderZeroesPaddingBeforeWiderItems) {
    Source src({0x01, 0x02, 0xAA, 0xBB, 0xCC, 0xDD});
    uint8_t mem[8];
    memset(mem, 0xEE, sizeof mem);
    EXPECT_EQ(zunReadStruct(src.s, "2C1L", mem, 1), 1);
    uint32_t v;
    memcpy(&v, mem + 4, 4);
    EXPECT_EQ(memcmp(mem, "\x01\x02\x00\x00", 4), 0);
    EXPECT_EQ(v, 0xDDCCBBAAu);
}

TEST(Records, UnknownCharactersAndUnionsCountAsNoRecord) {
    Sink out;
    uint8_t rec[8] = {0x11, 0, 0, 0, 0x44, 0x33, 0x22, 0x11};
    EXPECT_EQ(zunWriteStruct(out.s, "1C(1L|)", rec, 1), 0);
    EXPECT_EQ(out.bytes(), (std::vector<uint8_t>{0x11, 0x44, 0x33, 0x22, 0x11}));

    Source src({1, 2, 3, 4});
    uint8_t mem[4];
    EXPECT_EQ(zunReadStruct(src.s, "1C1X", mem, 1), 0);
    EXPECT_EQ(zunReadStruct(src.s, "1c", mem, 3), 3);  // lower case matches too
    EXPECT_EQ(zunReadStruct(src.s, "1C", mem, 1), 0);  // the data is used up
}

TEST(Records, UnionsAndSkippedRunsMoveMemoryOnly) {
    // 1C, a union of a long and a double (size 8, aligned to 8), then a skipped
    // short and one transferred short.
    Source src({0x7F, 0x34, 0x12});
    uint8_t mem[24];
    memset(mem, 0xEE, sizeof mem);
    EXPECT_EQ(zunReadStruct(src.s, "1C(1L|1D|)[1S]1S", mem, 1), 1);
    EXPECT_EQ(mem[0], 0x7F);
    for (int i = 1; i < 8; ++i) EXPECT_EQ(mem[i], 0) << i;   // zeroed pad
    for (int i = 8; i < 18; ++i) EXPECT_EQ(mem[i], 0xEE) << i;  // union and skipped short
    uint16_t v;
    memcpy(&v, mem + 18, 2);
    EXPECT_EQ(v, 0x1234);
    for (int i = 20; i < 24; ++i) EXPECT_EQ(mem[i], 0) << i;  // record pad to 8
}

}  // namespace

// Arrays of 8-, 16-, 32- and 64-bit values between the machine's order and
// the file's (little-endian unless the stream's dataFormat is 1), with 16.16
// fixed point for floats when floatFormat is 1.
//
// Every conversion is written as file bytes against the value, so nothing here
// depends on the machine's own byte order. The invariant: readers convert only
// a complete read; writers never change the caller's buffer.
#include <math.h>
#include <stdint.h>
#include <string.h>

#include "stream/stream.h"

namespace {

bool big_endian(HGLOBAL s) { return s != 0 && stream_lock(s)->dataFormat == 1; }
bool fixed_point(HGLOBAL s) { return s != 0 && stream_lock(s)->floatFormat == 1; }

// One read of count elements of `width` bytes; true when all arrived.
bool read_all(HGLOBAL s, void *buffer, int32_t count, int width) {
    int64_t bytes = int64_t{count} * width;
    if (bytes < 0 || bytes > INT32_MAX) return false;
    return zunRead(s, buffer, static_cast<int32_t>(bytes)) >= bytes;
}

// A float truncated toward zero into 32 bits; NaN and values out of range go
// to the largest value of their sign, as the fixed-point writer's hosts expect.
int32_t truncate_saturating(double x) {
    if (isnan(x)) return signbit(x) ? INT32_MIN : INT32_MAX;
    if (x >= 2147483648.0) return INT32_MAX;
    if (x <= -2147483649.0) return INT32_MIN;
    return static_cast<int32_t>(x);
}

template <typename Encode>
int32_t write_each(HGLOBAL s, const void *buffer, int32_t count, int width, Encode encode) {
    const auto *in = static_cast<const uint8_t *>(buffer);
    uint8_t scratch[8];
    for (int32_t i = 0; i < count; ++i) {
        encode(in + int64_t{i} * width, scratch);
        int32_t wrote = zunWrite(s, scratch, width);
        if (wrote < 1) return wrote;
    }
    return count;
}

// Reads count values of width bytes (2, 4 or 8) and turns each from the
// stream's byte order into the machine's, in place.
int32_t read_integers(HGLOBAL s, void *buffer, int32_t count, int width) {
    if (!read_all(s, buffer, count, width)) return 0;
    bool msb = big_endian(s);
    auto *p = static_cast<uint8_t *>(buffer);
    for (int32_t i = 0; i < count; ++i, p += width) {
        uint64_t v = stream_load_bytes(p, width, msb);
        if (width == 2) {
            auto v16 = static_cast<uint16_t>(v);
            memcpy(p, &v16, 2);
        } else if (width == 4) {
            auto v32 = static_cast<uint32_t>(v);
            memcpy(p, &v32, 4);
        } else {
            memcpy(p, &v, 8);
        }
    }
    return count;
}

}  // namespace

extern "C" {

int32_t zunReadChar(HGLOBAL s, void *buffer, int32_t count) { return zunRead(s, buffer, count); }

int32_t zunWriteChar(HGLOBAL s, const void *buffer, int32_t count) {
    // Single bytes are the GIF writer's staple: skip the general road when
    // the byte simply fits.
    if (s != 0 && count == 1 &&
        stream_put_byte(stream_lock(s), *static_cast<const uint8_t *>(buffer))) {
        return 1;
    }
    return zunWrite(s, buffer, count);
}

int32_t zunReadShort(HGLOBAL s, void *buffer, int32_t count) {
    return read_integers(s, buffer, count, 2);
}

int32_t zunReadLong(HGLOBAL s, void *buffer, int32_t count) {
    return read_integers(s, buffer, count, 4);
}

int32_t zunReadFloat(HGLOBAL s, void *buffer, int32_t count) {
    if (!read_all(s, buffer, count, 4)) return 0;
    bool msb = big_endian(s);
    bool fixed = fixed_point(s);
    auto *p = static_cast<uint8_t *>(buffer);
    for (int32_t i = 0; i < count; ++i, p += 4) {
        auto bits = static_cast<uint32_t>(stream_load_bytes(p, 4, msb));
        float value;
        if (fixed) {
            value = static_cast<float>(static_cast<int32_t>(bits) / 65536.0);
        } else {
            memcpy(&value, &bits, 4);
        }
        memcpy(p, &value, 4);
    }
    return count;
}

int32_t zunReadDouble(HGLOBAL s, void *buffer, int32_t count) {
    // A double's bytes come back exactly as its 64-bit pattern.
    return read_integers(s, buffer, count, 8);
}

int32_t zunWriteShort(HGLOBAL s, const void *buffer, int32_t count) {
    bool msb = big_endian(s);
    return write_each(s, buffer, count, 2, [msb](const uint8_t *in, uint8_t *out) {
        uint16_t v;
        memcpy(&v, in, 2);
        stream_store_bytes(out, v, 2, msb);
    });
}

int32_t zunWriteLong(HGLOBAL s, const void *buffer, int32_t count) {
    bool msb = big_endian(s);
    return write_each(s, buffer, count, 4, [msb](const uint8_t *in, uint8_t *out) {
        uint32_t v;
        memcpy(&v, in, 4);
        stream_store_bytes(out, v, 4, msb);
    });
}

int32_t zunWriteFloat(HGLOBAL s, const void *buffer, int32_t count) {
    bool msb = big_endian(s);
    bool fixed = fixed_point(s);
    return write_each(s, buffer, count, 4, [msb, fixed](const uint8_t *in, uint8_t *out) {
        float value;
        memcpy(&value, in, 4);
        if (!fixed) {
            uint32_t bits;
            memcpy(&bits, &value, 4);
            stream_store_bytes(out, bits, 4, msb);
            return;
        }
        // Fraction first, then the integer part, each most significant byte
        // first whatever the stream's byte order: the layout the fixed-point
        // consumers of these files read.
        int32_t whole = truncate_saturating(value);
        float rest = value - static_cast<float>(whole);
        int32_t fraction = truncate_saturating(rest * 65536.0);
        stream_store_bytes(out, static_cast<uint16_t>(fraction), 2, true);
        stream_store_bytes(out + 2, static_cast<uint16_t>(whole), 2, true);
    });
}

int32_t zunWriteDouble(HGLOBAL s, const void *buffer, int32_t count) {
    bool msb = big_endian(s);
    return write_each(s, buffer, count, 8, [msb](const uint8_t *in, uint8_t *out) {
        uint64_t bits;
        memcpy(&bits, in, 8);
        stream_store_bytes(out, bits, 8, false);
        // Big-endian doubles put the two 32-bit halves in the opposite order
        // to the reader's: the low word's bytes come first, most significant
        // first, then the high word's, least significant first.
        if (msb) {
            uint8_t low[4] = {out[0], out[1], out[2], out[3]};
            for (int i = 0; i < 4; ++i) out[i] = low[3 - i];
        }
    });
}

int32_t zunSetDataFormat(HGLOBAL s, int16_t dataFormat, int16_t floatFormat) {
    if (s == 0) return -1;
    StreamRecord *r = stream_lock(s);
    r->dataFormat = static_cast<uint16_t>(dataFormat);
    r->floatFormat = static_cast<uint16_t>(floatFormat);
    return 0;
}

int32_t zunGetDataFormat(HGLOBAL s, int16_t *dataFormat, int16_t *floatFormat) {
    if (s == 0) return -1;
    StreamRecord *r = stream_lock(s);
    if (dataFormat != nullptr) *dataFormat = static_cast<int16_t>(r->dataFormat);
    if (floatFormat != nullptr) *floatFormat = static_cast<int16_t>(r->floatFormat);
    return 0;
}

void zunNativeToLE(void *destination, uint32_t value, int32_t n) {
    auto *out = static_cast<uint8_t *>(destination);
    for (int32_t i = 0; i < n; ++i) out[i] = i < 4 ? static_cast<uint8_t>(value >> (8 * i)) : 0;
}

void zunNativeToBE(void *destination, uint32_t value, int32_t n) {
    auto *out = static_cast<uint8_t *>(destination);
    for (int32_t i = 0; i < n; ++i) {
        out[n - 1 - i] = i < 4 ? static_cast<uint8_t>(value >> (8 * i)) : 0;
    }
}

}  // extern "C"

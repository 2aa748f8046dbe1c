// The LZW encoder proper: one segment of 8-bit pixels into GIF codes of 9 to
// 12 bits, packed into the work buffer and handed on in groups of 254 bytes.
//
// The code stream must stay identical, bit for bit, to that of the plain
// encoder this file replaces (a linear scan of the string table, kept in the
// tests as the reference), including its habits at the edges: the table is
// reset with a clear code when the next free code reaches 4090, a segment that
// ends inside a known string stores that string a second time before emitting
// it, a segment that ends on an unmatched pixel emits it and runs the width
// test once more, and the pixel of a one-pixel segment is never emitted.
// Decoders stay in step because this encoder adds each entry one code before
// a decoder does.
#include <cstring>

#include "output/lzw.h"

namespace {

// The width test that follows every emitted code, in its general form: the
// end of a segment may run it twice with the same next free code, so it must
// not assume that the code only moves forward.
void width_test(LzwBits *bits, uint32_t *width, uint32_t *next) {
    if (*next == 513 || *next == 1025 || *next == 2049) {
        *width += 1;
    } else if (*next == kLzwResetCode) {
        lzw_bits_put(bits, kLzwClearCode, *width);
        *width = kLzwFirstWidth;
        *next = kLzwFirstCode;
    }
}

// Hands every whole group of 254 bytes to the sink and moves the rest of the
// buffer to its start. The group area is cleared first, as the packer of old
// relied on: bytes 0..3 of the buffer can be read by the next segment.
void flush_groups(LzwBits *bits, const LzwSink *sink) {
    uint32_t bytes = lzw_bits_position(bits) / 8;
    uint32_t g = bytes / kLzwGroupBytes * kLzwGroupBytes;
    if (g == 0) return;
    lzw_bits_drain(bits);
    // A failed sub-block write is not reported; the encoder goes on.
    (void)lzw_write_sub_blocks(sink, bits->work, g);
    uint32_t rest = bits->pos - g;
    std::memset(bits->work, 0, kLzwGroupBytes);
    std::memmove(bits->work, bits->work + g, rest);
    bits->pos = rest;
}

}  // namespace

void lzw_table_clear(LzwTable *table) {
    std::memset(table->firstChild, 0, sizeof table->firstChild);
    std::memset(table->slot, 0, sizeof table->slot);
}

uint32_t lzw_encode_segment(LzwTable *table, const LzwSink *sink, const uint8_t *pixels,
                            uint8_t *work, int32_t count, int32_t first, int32_t last,
                            uint32_t *carry) {
    LzwBits bits;
    lzw_bits_start(&bits, work, *carry);
    lzw_table_clear(table);
    uint32_t width = kLzwFirstWidth;
    uint32_t next = kLzwFirstCode;
    // The next free code at which the width grows, or the table is reset.
    uint32_t bump = 513;
    if (first) lzw_bits_put(&bits, kLzwClearCode, width);

    if (count > 1) {
        uint32_t prefix = pixels[0];
        const int32_t finalIndex = count - 1;
        for (int32_t i = 1; i < finalIndex; ++i) {
            uint32_t c = pixels[i];
            uint32_t where = 0;
            uint32_t code = lzw_table_find(table, prefix, c, &where);
            if (code != 0) {
                prefix = code;
                continue;
            }
            lzw_table_add(table, where, prefix, c, next);
            ++next;
            lzw_bits_put(&bits, prefix, width);
            if (next == bump) {
                if (width < kLzwLastWidth) {
                    ++width;
                    bump = width < kLzwLastWidth ? (1u << width) + 1 : kLzwResetCode;
                } else {
                    lzw_bits_put(&bits, kLzwClearCode, width);
                    width = kLzwFirstWidth;
                    next = kLzwFirstCode;
                    bump = 513;
                    lzw_table_clear(table);
                }
            }
            prefix = c;
            if (lzw_bits_position(&bits) >= kLzwGroupBytes * 8) flush_groups(&bits, sink);
        }

        // The last pixel: the segment ends here whether or not it extends the
        // current string, and the table is not searched again.
        uint32_t c = pixels[finalIndex];
        uint32_t where = 0;
        uint32_t code = lzw_table_find(table, prefix, c, &where);
        // The string is counted as a new entry even when it was found, which
        // keeps the next free code where a decoder expects it.
        ++next;
        if (code != 0) {
            lzw_bits_put(&bits, code, width);
            width_test(&bits, &width, &next);
        } else {
            lzw_bits_put(&bits, prefix, width);
            width_test(&bits, &width, &next);
            lzw_bits_put(&bits, c, width);
            width_test(&bits, &width, &next);
        }
        flush_groups(&bits, sink);
    }

    lzw_bits_put(&bits, last ? kLzwEndCode : kLzwClearCode, width);
    uint32_t bitpos = lzw_bits_position(&bits);
    uint32_t n;
    if (last) {
        n = (bitpos + 7) / 8;
        *carry = 0;
    } else {
        n = bitpos / 8;
        *carry = bitpos % 8;
    }
    lzw_bits_drain(&bits);
    if (bits.nbits > 0) work[bits.pos] = static_cast<uint8_t>(bits.acc);
    // As inside the loop, a failed write of the closing bytes is not reported.
    (void)lzw_write_sub_blocks(sink, work, n);
    return n;
}

int32_t lzw_write_sub_blocks(const LzwSink *sink, const uint8_t *bytes, uint32_t n) {
    int32_t error = TOLVA_OK;
    while (error == TOLVA_OK && n > 0) {
        uint32_t k = n < kLzwGroupBytes ? n : kLzwGroupBytes;
        uint8_t size = static_cast<uint8_t>(k);
        if (sink->write(sink->context, &size, 1) < 1) {
            error = TOLVA_ERR_STREAM;
        } else if (sink->write(sink->context, bytes, static_cast<int32_t>(k)) !=
                   static_cast<int32_t>(k)) {
            error = TOLVA_ERR_STREAM;
        }
        bytes += k;
        n -= k;
    }
    return error;
}

extern "C" {

void LZWPutCode(uint8_t *work, uint32_t *bitPosition, uint32_t code, int16_t width) {
    uint8_t *p = work + *bitPosition / 8;
    uint32_t v = code << (*bitPosition % 8);
    p[0] = static_cast<uint8_t>(p[0] | (v & 0xFF));
    p[1] = static_cast<uint8_t>(p[1] | ((v >> 8) & 0xFF));
    p[2] = static_cast<uint8_t>(p[2] | ((v >> 16) & 0xFF));
    p[3] = static_cast<uint8_t>(p[3] | (v >> 24));
    // Keeping the two bytes ahead clear is what lets the buffer be cleared
    // only at its start.
    p[4] = 0;
    p[5] = 0;
    *bitPosition += static_cast<uint32_t>(static_cast<int32_t>(width));
}

}  // extern "C"

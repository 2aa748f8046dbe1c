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
#include <bit>
#include <cstring>

#include "output/lzw.h"

namespace {

// The packer stores its accumulator as one little-endian word.
static_assert(std::endian::native == std::endian::little);

// Codes go into a 64-bit accumulator least significant bit first. Every put
// stores the whole accumulator at the first incomplete byte and steps over
// the bytes it completed, so no put loops or branches; the incomplete bytes
// it stored are stored again, grown, by the next put.
struct Packer {
    uint64_t acc;    // pending bits, least significant first
    uint32_t nbits;  // pending bit count, below 8 between puts
    uint8_t *out;    // the first incomplete byte in the stage
    uint8_t *stage;
    bool flushed;  // some group left the stage in this segment
};

inline void put(Packer *p, uint32_t code, uint32_t width) {
    p->acc |= uint64_t{code} << p->nbits;
    p->nbits += width;
    std::memcpy(p->out, &p->acc, sizeof p->acc);
    uint32_t whole = p->nbits >> 3;
    p->out += whole;
    p->acc >>= whole * 8;
    p->nbits &= 7;
}

// Hands every whole group of 254 complete bytes to the sink, each as its own
// write: a group that fails does not keep the next one from being tried,
// exactly as when each left on its own after a step. The incomplete bytes
// move to the start of the stage.
void flush_groups(Packer *p, const LzwSink *sink) {
    auto complete = static_cast<uint32_t>(p->out - p->stage);
    uint32_t g = complete / kLzwGroupBytes * kLzwGroupBytes;
    if (g == 0) return;
    for (uint32_t at = 0; at < g; at += kLzwGroupBytes) {
        // A failed sub-block write is not reported; the encoder goes on.
        (void)lzw_write_sub_blocks(sink, p->stage + at, kLzwGroupBytes);
    }
    std::memmove(p->stage, p->stage + g, complete - g + sizeof p->acc);
    p->out -= g;
    p->flushed = true;
}

// The width test that follows every emitted code, in its general form: the
// end of a segment may run it twice with the same next free code, so it must
// not assume that the code only moves forward. The table is not searched
// after the end's codes, so a reset here leaves its slots to the caller.
void width_test(Packer *p, uint32_t *width, uint32_t *next) {
    if (*next == 513 || *next == 1025 || *next == 2049) {
        *width += 1;
    } else if (*next == kLzwResetCode) {
        put(p, kLzwClearCode, *width);
        *width = kLzwFirstWidth;
        *next = kLzwFirstCode;
    }
}

}  // namespace

uint32_t lzw_encode_segment(LzwTable *table, const LzwSink *sink, const uint8_t *pixels,
                            uint8_t *work, int32_t count, int32_t first, int32_t last,
                            uint32_t *carry) {
    // Codes are ORed onto the first four bytes of the work buffer, whatever
    // they hold: the parked byte of the previous segment, or bytes a short
    // segment's caller did not clear.
    Packer p{uint64_t{work[0]} | uint64_t{work[1]} << 8 | uint64_t{work[2]} << 16 |
                 uint64_t{work[3]} << 24,
             *carry, table->stage, table->stage, false};
    const uint8_t *stage_full = table->stage + kLzwStageBytes;
    uint32_t width = kLzwFirstWidth;
    uint32_t next = kLzwFirstCode;
    // The highest next free code the table has had since it was last empty.
    uint32_t reached = next;
    // The next free code at which the width grows, or the table is reset.
    uint32_t bump = 513;
    if (first) put(&p, kLzwClearCode, width);

    if (count > 1) {
        uint32_t prefix = pixels[0];
        const int32_t finalIndex = count - 1;
        // Each step starts with its home slot already read. A string that
        // ends is a mispredicted branch, and only what comes before the
        // branch survives it: so every step also reads, ahead of the branch,
        // the home slot of the string that its pixel and the next one would
        // start. When the string ends, the next step's slot is then already
        // there rather than read after the pipeline refills; it is read again
        // in the rare case that the new entry took that very slot, or after
        // a reset. The empty asm keeps the compiler from moving the read
        // into the branch that uses it.
        uint32_t c = pixels[1];
        uint32_t h = lzw_home(prefix, c);
        uint32_t code = table->slot[h];
        for (int32_t i = 1; i < finalIndex;) {
            uint32_t key = lzw_key(prefix, c);
            uint32_t c2 = pixels[i + 1];
            uint32_t h2 = lzw_home(c, c2);
            uint32_t code2 = table->slot[h2];
            asm volatile("" : "+r"(code2));
            code = lzw_table_match(table, code, key, &h);
            ++i;
            if (code != 0) {
                prefix = code;
                c = c2;
                h = lzw_home(prefix, c);
                code = table->slot[h];
                continue;
            }
            lzw_table_add(table, h, key, next);
            if (h2 == h) code2 = table->slot[h2];
            ++next;
            put(&p, prefix, width);
            if (next == bump) {
                if (width < kLzwLastWidth) {
                    ++width;
                    bump = width < kLzwLastWidth ? (1u << width) + 1 : kLzwResetCode;
                } else {
                    put(&p, kLzwClearCode, width);
                    lzw_table_forget(table, next);
                    width = kLzwFirstWidth;
                    next = kLzwFirstCode;
                    bump = 513;
                    code2 = table->slot[h2];
                }
            }
            prefix = c;
            c = c2;
            h = h2;
            code = code2;
            if (p.out >= stage_full) flush_groups(&p, sink);
        }
        reached = next;

        // The last pixel (c, its home slot already read): the segment ends
        // here whether or not it extends the current string, and the table
        // is not searched again.
        code = lzw_table_match(table, code, lzw_key(prefix, c), &h);
        // The string is counted as a new entry even when it was found, which
        // keeps the next free code where a decoder expects it.
        ++next;
        if (code != 0) {
            put(&p, code, width);
            width_test(&p, &width, &next);
        } else {
            put(&p, prefix, width);
            width_test(&p, &width, &next);
            put(&p, c, width);
            width_test(&p, &width, &next);
        }
        flush_groups(&p, sink);
    }
    lzw_table_forget(table, reached);

    put(&p, last ? kLzwEndCode : kLzwClearCode, width);
    auto whole = static_cast<uint32_t>(p.out - p.stage);
    uint32_t n = whole;
    if (last) {
        n += p.nbits != 0 ? 1 : 0;
        *carry = 0;
    } else {
        *carry = p.nbits;
    }
    // The work buffer ends as if every byte had gone through it: cleared
    // where groups left it, then the closing bytes and the partial one.
    if (p.flushed) std::memset(work, 0, kLzwGroupBytes);
    std::memcpy(work, p.stage, whole + (p.nbits != 0 ? 1 : 0));
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

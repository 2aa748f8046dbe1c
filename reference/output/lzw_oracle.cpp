// The literal LZW encoder, step by step as first written: keys of
// (prefix << 16 | pixel) in a 4096-entry table searched linearly from the
// current code to the next free code, codes ORed into the work buffer with
// the two bytes ahead cleared, groups of 254 bytes flushed after each step.
// Slow on purpose; the library's encoder is checked against it byte for byte
// and timed beside it.
#include "output/lzw_oracle.h"

#include <algorithm>
#include <cstring>

namespace {

int32_t stream_write(ByteStream *s, const void *data, int32_t count) {
    if (count <= 0) return 0;
    auto *p = static_cast<const uint8_t *>(data);
    for (int32_t k = 0; k < count; ++k) {
        if (s->fail_after >= 0 && s->written >= s->fail_after) return k == 0 ? -1 : k;
        if (s->position < s->bytes.size()) {
            s->bytes[s->position] = p[k];
        } else {
            s->bytes.push_back(p[k]);
        }
        ++s->position;
        ++s->written;
    }
    return count;
}

void stream_take_back(ByteStream *s, uint8_t *byte) {
    if (s->position == 0) return;
    --s->position;
    *byte = s->bytes[s->position];
}

void put_code(uint8_t *work, uint32_t *bitpos, uint32_t code, uint32_t width) {
    uint8_t *p = work + *bitpos / 8;
    uint32_t v = code << (*bitpos % 8);
    p[0] |= static_cast<uint8_t>(v);
    p[1] |= static_cast<uint8_t>(v >> 8);
    p[2] |= static_cast<uint8_t>(v >> 16);
    p[3] |= static_cast<uint8_t>(v >> 24);
    p[4] = 0;
    p[5] = 0;
    *bitpos += width;
}

int32_t write_sub_blocks(ByteStream *s, const uint8_t *bytes, uint32_t n) {
    int32_t error = 0;
    while (error == 0 && n > 0) {
        uint32_t k = std::min<uint32_t>(n, 254);
        uint8_t size = static_cast<uint8_t>(k);
        if (stream_write(s, &size, 1) < 1) {
            error = 303;
        } else if (stream_write(s, bytes, static_cast<int32_t>(k)) != static_cast<int32_t>(k)) {
            error = 303;
        }
        bytes += k;
        n -= k;
    }
    return error;
}

}  // namespace

LzwSink byte_stream_sink(ByteStream *stream) {
    return LzwSink{
        stream,
        [](void *c, const void *b, int32_t n) {
            return stream_write(static_cast<ByteStream *>(c), b, n);
        },
        [](void *c, uint8_t *byte) { stream_take_back(static_cast<ByteStream *>(c), byte); }};
}

uint32_t oracle_lzw_compression(ByteStream *stream, const uint8_t *pixels, uint8_t *work,
                                int32_t count, int32_t first, int32_t last, uint32_t *carry,
                                OracleStats *stats) {
    std::vector<uint32_t> table(4096, 0);
    uint32_t bitpos = *carry;
    if (bitpos != 0) stream_take_back(stream, &work[0]);
    uint8_t width = 9;
    uint16_t next = 258;
    uint16_t prefix = 0;
    uint32_t search = 0;
    bool found = false;
    if (first) put_code(work, &bitpos, 256, width);
    if (count > 0) {
        prefix = pixels[0];
        search = 258;
        int32_t i = 1;
        while (i < count) {
            uint8_t c = pixels[i];
            ++i;
            found = false;
            uint32_t key = (uint32_t{prefix} << 16) | c;
            search = std::max<uint32_t>(search & 0xFFFF, c);
            while (static_cast<uint16_t>(search) < next) {
                if (table[search] == key) {
                    prefix = static_cast<uint16_t>(search);
                    found = true;
                    break;
                }
                ++search;
            }
            if (!(found && i < count)) {
                if (found && stats) ++stats->found_at_end;
                search = 258;
                table[next] = key;
                ++next;
                int rounds = 0;
                for (;;) {
                    put_code(work, &bitpos, prefix, width);
                    if (next == 513 || next == 1025 || next == 2049) {
                        ++width;
                        if (rounds == 1 && stats) ++stats->double_raises;
                    } else if (next == 4090) {
                        put_code(work, &bitpos, 256, width);
                        width = 9;
                        next = 258;
                        if (stats) ++stats->resets;
                    }
                    prefix = c;
                    if (found || i < count) break;
                    found = true;
                    ++rounds;
                }
                uint32_t end = next | 1u;
                if (rounds == 1 && stats && (end == 513 || end == 1025 || end == 2049)) {
                    ++stats->odd_width_ends;
                }
            }
            uint32_t g = bitpos / 8 / 254 * 254;
            if (g > 0) {
                write_sub_blocks(stream, work, g);
                bitpos -= 8 * g;
                std::memset(work, 0, 254);
                std::memmove(work, work + g, (bitpos + 7) / 8);
            }
        }
    }
    uint32_t n;
    if (last) {
        put_code(work, &bitpos, 257, width);
        n = (bitpos + 7) / 8;
        *carry = 0;
    } else {
        put_code(work, &bitpos, 256, width);
        n = bitpos / 8;
        *carry = bitpos % 8;
    }
    write_sub_blocks(stream, work, n);
    return n;
}

int32_t oracle_compress_and_write(ByteStream *stream, const uint8_t *pixels, uint8_t *work,
                                  int32_t count, int32_t first, int32_t last, uint32_t *carry,
                                  OracleStats *stats) {
    int32_t clear = std::min<int32_t>(count, 254);
    for (int32_t k = 0; k < clear; ++k) work[k] = 0;
    uint32_t n = oracle_lzw_compression(stream, pixels, work, count, first, last, carry, stats);
    int32_t result = 0;
    uint8_t zero = 0;
    if (last && stream_write(stream, &zero, 1) != 1) result = 303;
    if (*carry != 0 && stream_write(stream, &work[n], 1) != 1) result = 303;
    return result;
}

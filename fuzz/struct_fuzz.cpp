// Struct format strings and data into zunReadStruct and zunWriteStruct, and
// the typed array calls, in both byte orders and both float formats. The
// first byte chooses the data format (bit 0), the float format (bit 1), the
// number of records (bits 2-3, 1 to 4) and the stream (bit 4: file or
// memory); the format string runs to the first zero byte; the rest is the
// file data and the memory the writer takes.
//
// The memory record is laid out here from the format the way the header
// describes it (natural alignment, unions sized by GetUnionSize, nested
// structures and records aligned by GetPadWidth) and allocated at exactly
// that size, so that AddressSanitizer catches any access beyond it. The
// target then checks each complete transfer element by element, the record
// count, how far the stream moved and, for the writer, every byte written.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/streams.h"

using namespace fuzzstreams;

namespace {

constexpr int64_t kMaxBytes = 1 << 16;

struct Item {
    char letter;  // C, S, L, F or D
    int64_t count;
    int64_t offset;  // in memory
    bool skipped;    // inside "[" ... "]": laid out, not transferred
};

struct Layout {
    std::vector<Item> items;         // in transfer order
    std::vector<size_t> recordEnds;  // index into items where each record ends
    int64_t size = 0;                // memory bytes
    bool rejected = false;           // a character the walk refuses
};

int width(char letter) {
    switch (letter) {
    case 'S':
        return 2;
    case 'L':
    case 'F':
        return 4;
    case 'D':
        return 8;
    default:
        return 1;
    }
}

int64_t align(int64_t v, int64_t to) { return (v + to - 1) / to * to; }
char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }

// Lays out `records` records. The reader skips a union's size in memory;
// the writer refuses "(" and ")" and walks what lies between them as items.
Layout lay_out(const char *format, int32_t records, bool reading) {
    Layout l;
    int32_t recordAlign = GetPadWidth(format);
    bool skipping = false;
    for (int32_t r = 0; r < records; ++r) {
        for (const char *p = format; *p != '\0'; ++p) {
            int64_t count = 1;
            if (*p >= '0' && *p <= '9') {
                count = 0;
                while (*p >= '0' && *p <= '9') {
                    if (count < INT32_MAX) count = count * 10 + (*p - '0');
                    ++p;
                }
                if (count > INT32_MAX) count = INT32_MAX;
            }
            char c = upper(*p);
            if (c == '\0') break;
            switch (c) {
            case 'C':
            case 'S':
            case 'L':
            case 'F':
            case 'D':
                l.size = align(l.size, width(c));
                l.items.push_back({c, count, l.size, skipping});
                l.size += count * width(c);
                break;
            case '{':
                l.size = align(l.size, GetPadWidth(p));
                break;
            case '}':
            case '|':
                break;
            case '[':
                skipping = true;
                break;
            case ']':
                skipping = false;
                break;
            case '(':
                if (!reading) {
                    l.rejected = true;
                    break;
                }
                {
                    l.size = align(l.size, GetPadWidth(p));
                    int32_t bytes = -1;
                    p = GetUnionSize(p, &bytes);
                    if (bytes < 0) mismatch("union size");
                    l.size += bytes;
                }
                break;
            case ')':
            case 'P':
                if (!reading) l.rejected = true;
                break;
            default:
                l.rejected = true;
                break;
            }
            if (l.size > kMaxBytes) return l;
            if (*p == '\0') break;
        }
        l.size = align(l.size, recordAlign);
        l.recordEnds.push_back(l.items.size());
    }
    return l;
}

uint64_t load(const uint8_t *p, int n, bool msbFirst) {
    uint64_t v = 0;
    for (int i = 0; i < n; ++i) v = v << 8 | p[msbFirst ? i : n - 1 - i];
    return v;
}

// The memory bytes that file bytes `in` of one element become.
void decode(char letter, const uint8_t *in, bool bigEndian, bool fixed, uint8_t *out) {
    int n = width(letter);
    if (letter == 'C') {
        out[0] = in[0];
        return;
    }
    uint64_t v = load(in, n, bigEndian);
    if (letter == 'F' && fixed) {
        float f = static_cast<float>(static_cast<int32_t>(static_cast<uint32_t>(v)) / 65536.0);
        std::memcpy(out, &f, 4);
        return;
    }
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<uint8_t>(v >> (8 * i));  // host order (little-endian)
}

// The file bytes one memory element becomes. Fixed-point floats are only
// counted (their rounding is the writer's own): `known` marks the bytes that
// are modelled.
void encode(char letter, const uint8_t *in, bool bigEndian, bool fixed, Bytes *out,
            std::vector<bool> *known) {
    int n = width(letter);
    uint64_t v = 0;
    std::memcpy(&v, in, static_cast<size_t>(n));  // little-endian host
    bool modelled = !(letter == 'F' && fixed);
    known->insert(known->end(), static_cast<size_t>(n), modelled);
    uint8_t b[8];
    for (int i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(v >> (8 * (bigEndian ? n - 1 - i : i)));
    if (letter == 'D' && bigEndian) {
        // The big-endian double writer puts the low word first, most
        // significant byte first, then the high word least significant first.
        uint8_t m[8];
        for (int i = 0; i < 8; ++i) m[i] = static_cast<uint8_t>(v >> (8 * (7 - i)));
        const uint8_t order[8] = {m[4], m[5], m[6], m[7], m[3], m[2], m[1], m[0]};
        std::memcpy(b, order, 8);
    }
    out->insert(out->end(), b, b + n);
}

void check_format_helpers(const std::vector<char> &format) {
    const char *end = format.data() + format.size() - 1;
    for (const char *p = format.data(); p <= end; ++p) {
        int32_t a = GetPadWidth(p);
        expect(a == 1 || a == 2 || a == 4 || a == 8, "GetPadWidth result");
        if (*p == '(') {
            int32_t bytes = -1;
            const char *close = GetUnionSize(p, &bytes);
            expect(bytes >= 0 && close >= p && close <= end && (*close == ')' || *close == '\0'),
                   "GetUnionSize result");
        }
    }
}

void check_read(const std::vector<char> &format, int32_t records, const Bytes &data, bool onFile,
                bool bigEndian, bool fixed) {
    Layout l = lay_out(format.data(), records, true);
    if (l.size > kMaxBytes) return;
    Source in(data.data(), data.size(), onFile);
    if (in.stream == 0) return;
    zunSetDataFormat(in.stream, bigEndian ? 1 : 0, fixed ? 1 : 0);
    auto *memory = static_cast<uint8_t *>(std::malloc(static_cast<size_t>(l.size)));
    if (l.size > 0) std::memset(memory, 0xA5, static_cast<size_t>(l.size));
    int32_t got = zunReadStruct(in.stream, format.data(), memory, records);

    // The walk as the header gives it: transfers in order until one returns
    // less than 1; a refused character counts the record as 0.
    size_t at = 0;
    int32_t last = 1;
    int32_t count = 0;
    size_t item = 0;
    for (size_t r = 0; r < l.recordEnds.size() && last >= 1; ++r) {
        for (; item < l.recordEnds[r] && last >= 1; ++item) {
            const Item &it = l.items[item];
            if (it.skipped) continue;
            int64_t bytes = it.count * width(it.letter);
            int64_t left = static_cast<int64_t>(data.size() - at);
            int64_t moved = bytes < left ? bytes : left;
            bool whole = moved == bytes;
            if (it.letter == 'C') {
                last = static_cast<int32_t>(moved);
                expect(moved == 0 || std::memcmp(memory + it.offset, data.data() + at,
                                                 static_cast<size_t>(moved)) == 0,
                       "bytes read");
            } else {
                last = whole ? static_cast<int32_t>(it.count) : 0;
                uint8_t want[8];
                for (int64_t e = 0; whole && e < it.count; ++e) {
                    int n = width(it.letter);
                    decode(it.letter, data.data() + at + e * n, bigEndian, fixed, want);
                    expect(
                        std::memcmp(memory + it.offset + e * n, want, static_cast<size_t>(n)) == 0,
                        "element read");
                }
            }
            at += static_cast<size_t>(moved);
        }
        if (last < 1) break;
        count = (l.rejected ? 0 : count + 1);
    }
    // A refused character sets the count to -1 in every record, which the
    // record's end then brings back to 0.
    int32_t want = last < 1 ? last : count;
    expect(got == want, "zunReadStruct result");
    expect(zunSeek(in.stream, 0, 1) == static_cast<int32_t>(at), "bytes the reader took");
    std::free(memory);
}

void check_write(const std::vector<char> &format, int32_t records, const Bytes &data,
                 bool bigEndian, bool fixed) {
    Layout l = lay_out(format.data(), records, false);
    if (l.size > kMaxBytes) return;
    MemoryBlock block;
    HGLOBAL out = block.create();
    if (out == 0) return;
    auto *memory = static_cast<uint8_t *>(std::malloc(static_cast<size_t>(l.size)));
    for (int64_t i = 0; i < l.size; ++i)
        memory[i] = data.empty() ? 0 : data[static_cast<size_t>(i) % data.size()];
    zunSetDataFormat(out, bigEndian ? 1 : 0, fixed ? 1 : 0);
    int32_t got = zunWriteStruct(out, format.data(), memory, records);

    Bytes want;
    std::vector<bool> known;
    int32_t last = 1;
    int32_t count = 0;
    size_t item = 0;
    for (size_t r = 0; r < l.recordEnds.size() && last >= 1; ++r) {
        for (; item < l.recordEnds[r] && last >= 1; ++item) {
            const Item &it = l.items[item];
            if (it.skipped) continue;
            // A count of 0 writes nothing, which ends the walk.
            last = it.count > 0 ? static_cast<int32_t>(it.count) : 0;
            for (int64_t e = 0; e < it.count; ++e) {
                encode(it.letter, memory + it.offset + e * width(it.letter), bigEndian, fixed,
                       &want, &known);
            }
        }
        if (last < 1) break;
        count = (l.rejected ? 0 : count + 1);
    }
    expect(got == (last < 1 ? last : count), "zunWriteStruct result");
    Bytes wrote = contents(out);
    expect(wrote.size() == want.size(), "number of bytes written");
    for (size_t i = 0; i < want.size(); ++i)
        expect(!known[i] || wrote[i] == want[i], "bytes written");
    zunClose(out);
    std::free(memory);
}

// The typed calls on their own: every element width through a read and a
// write, the written bytes read back equal to what was read (doubles written
// big-endian and fixed-point floats excepted: their writers are not the
// readers' inverses).
void check_typed(const Bytes &data, bool bigEndian, bool fixed) {
    using Read = int32_t (*)(HGLOBAL, void *, int32_t);
    using Write = int32_t (*)(HGLOBAL, const void *, int32_t);
    struct Typed {
        char letter;
        Read read;
        Write write;
    } const kTyped[] = {{'C', zunReadChar, zunWriteChar},
                        {'S', zunReadShort, zunWriteShort},
                        {'L', zunReadLong, zunWriteLong},
                        {'F', zunReadFloat, zunWriteFloat},
                        {'D', zunReadDouble, zunWriteDouble}};
    for (const Typed &t : kTyped) {
        int n = width(t.letter);
        auto count = static_cast<int32_t>(data.size() / static_cast<size_t>(n));
        Source in(data.data(), data.size(), false);
        zunSetDataFormat(in.stream, bigEndian ? 1 : 0, fixed ? 1 : 0);
        std::vector<uint8_t> values(static_cast<size_t>(count) * static_cast<size_t>(n));
        int32_t got = t.read(in.stream, values.data(), count);
        expect(got == count, "typed read");
        MemoryBlock block;
        HGLOBAL out = block.create();
        zunSetDataFormat(out, bigEndian ? 1 : 0, fixed ? 1 : 0);
        expect(t.write(out, values.data(), count) == count, "typed write");
        bool inverse = !(t.letter == 'D' && bigEndian) && !(t.letter == 'F' && fixed);
        if (inverse)
            expect(contents(out) == Bytes(data.begin(), data.begin() + count * n),
                   "typed round trip");
        zunClose(out);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *input, size_t size) {
    if (size < 1) return 0;
    bool bigEndian = input[0] & 1;
    bool fixed = input[0] & 2;
    int32_t records = 1 + (input[0] >> 2 & 3);
    bool onFile = input[0] & 0x10;
    const uint8_t *text = input + 1;
    const uint8_t *zero = static_cast<const uint8_t *>(std::memchr(text, 0, size - 1));
    size_t length = zero != nullptr ? static_cast<size_t>(zero - text) : size - 1;
    if (length > 64) return 0;
    // Exactly the format and its terminator, so that reading past it shows.
    std::vector<char> format(text, text + length);
    format.push_back('\0');
    Bytes data(text + length + (zero != nullptr ? 1 : 0), input + size);

    check_format_helpers(format);
    check_read(format, records, data, onFile, bigEndian, fixed);
    check_write(format, records, data, bigEndian, fixed);
    check_typed(data, bigEndian, fixed);
    return 0;
}

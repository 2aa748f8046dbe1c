// Whole records described by a format string ("6C2S3C"): memory laid out
// with natural alignment, the file packed.
//
// The layout offset runs from the start of the caller's buffer across all
// records, so a record array in memory is an ordinary C array of structs. The
// invariant: the reader writes only element bytes and the alignment padding
// it zeroes; the writer never writes padding to the file.
#include <ctype.h>
#include <stdint.h>
#include <string.h>

#include "stream/stream.h"

namespace {

// Decimal count before an item's letter; 1 when absent. Large counts are
// capped so that sizes stay representable (the transfer then simply fails).
int64_t parse_count(const char **p) {
    if (!isdigit(static_cast<unsigned char>(**p))) return 1;
    int64_t n = 0;
    while (isdigit(static_cast<unsigned char>(**p))) {
        if (n < INT32_MAX) n = n * 10 + (**p - '0');
        ++*p;
    }
    return n > INT32_MAX ? INT32_MAX : n;
}

char upper(char c) { return static_cast<char>(toupper(static_cast<unsigned char>(c))); }

int64_t align_up(int64_t value, int64_t to) { return (value + to - 1) / to * to; }

int64_t union_size(const char **p) {
    int64_t running = 0;
    int64_t result = 0;
    const char *q = *p + 1;
    while (*q != '\0' && *q != ')') {
        int64_t count = parse_count(&q);
        char c = upper(*q);
        if (c == '\0' || c == ')') break;
        switch (c) {
        case 'C':
            running += count;
            break;
        case 'S':
            running = align_up(running, 2) + 2 * count;
            break;
        case 'F':
        case 'L':
            running = align_up(running, 4) + 4 * count;
            break;
        case 'D':
            running = align_up(running, 8) + 8 * count;
            break;
        case '{':
            running = align_up(running, GetPadWidth(q));
            break;
        case '(': {
            running = align_up(running, GetPadWidth(q));
            running += union_size(&q);
            if (*q == '\0') {
                *p = q;
                return result;
            }
            break;
        }
        case '|':
            // Only alternatives closed by "|" are compared: the last one
            // counts only when the format ends it with "|" as well.
            if (running > result) result = running;
            running = 0;
            break;
        default:
            break;
        }
        ++q;
    }
    *p = q;
    return result;
}

// Pads the layout to `to`, zeroing the pad bytes in memory when asked.
void pad(int64_t *offset, int64_t to, uint8_t *base, bool zero) {
    int64_t aligned = align_up(*offset, to);
    if (zero && base != nullptr && aligned > *offset) {
        memset(base + *offset, 0, static_cast<size_t>(aligned - *offset));
    }
    *offset = aligned;
}

using Transfer = int32_t (*)(HGLOBAL, void *, int32_t);

struct Walk {
    HGLOBAL stream;
    uint8_t *base;  // the caller's buffer
    bool reading;
    int64_t offset;  // layout offset from base
    bool skipping;
    int32_t last;     // result of the last transfer
    int32_t records;  // the running record count
};

// One transfer of `count` elements of `width` bytes at the aligned offset.
void transfer(Walk *w, int64_t count, int width, Transfer call) {
    if (!w->skipping) {
        w->last = call(w->stream, w->base + w->offset, static_cast<int32_t>(count));
    }
    w->offset += count * width;
}

// The writers take a const buffer; the walk shares one signature.
int32_t write_char(HGLOBAL s, void *b, int32_t n) { return zunWriteChar(s, b, n); }
int32_t write_short(HGLOBAL s, void *b, int32_t n) { return zunWriteShort(s, b, n); }
int32_t write_long(HGLOBAL s, void *b, int32_t n) { return zunWriteLong(s, b, n); }
int32_t write_float(HGLOBAL s, void *b, int32_t n) { return zunWriteFloat(s, b, n); }
int32_t write_double(HGLOBAL s, void *b, int32_t n) { return zunWriteDouble(s, b, n); }

// Walks one record of the format. The reader zeroes the pad bytes in front of
// L, F, D, "{" and "(" but steps over the pad in front of S untouched.
void walk_record(Walk *w, const char *format) {
    const bool rd = w->reading;
    const char *p = format;
    while (*p != '\0' && w->last >= 1) {
        int64_t count = parse_count(&p);
        char c = upper(*p);
        if (c == '\0') break;
        switch (c) {
        case 'C':
            transfer(w, count, 1, rd ? zunReadChar : write_char);
            break;
        case 'S':
            pad(&w->offset, 2, w->base, false);
            transfer(w, count, 2, rd ? zunReadShort : write_short);
            break;
        case 'L':
            pad(&w->offset, 4, w->base, rd);
            transfer(w, count, 4, rd ? zunReadLong : write_long);
            break;
        case 'F':
            pad(&w->offset, 4, w->base, rd);
            transfer(w, count, 4, rd ? zunReadFloat : write_float);
            break;
        case 'D':
            pad(&w->offset, 8, w->base, rd);
            transfer(w, count, 8, rd ? zunReadDouble : write_double);
            break;
        case '{':
            pad(&w->offset, GetPadWidth(p), w->base, rd);
            break;
        case '}':
        case '|':
            break;
        case '[':
            w->skipping = true;
            break;
        case ']':
            w->skipping = false;
            break;
        case '(':
            if (!rd) {
                w->records = -1;
                break;
            }
            pad(&w->offset, GetPadWidth(p), w->base, true);
            w->offset += union_size(&p);
            if (*p == '\0') return;
            break;
        case ')':
        case 'P':
            if (!rd) w->records = -1;
            break;
        default:
            w->records = -1;
            break;
        }
        ++p;
    }
}

int32_t walk_records(HGLOBAL s, const char *format, uint8_t *buffer, int32_t records,
                     bool reading) {
    if (format == nullptr) return 0;
    int32_t recordAlign = GetPadWidth(format);
    Walk w{s, buffer, reading, 0, false, 1, 0};
    for (int32_t i = 0; i < records && w.last >= 1; ++i) {
        walk_record(&w, format);
        if (w.last < 1) break;
        pad(&w.offset, recordAlign, buffer, reading);
        w.records += 1;
    }
    return w.last < 1 ? w.last : w.records;
}

}  // namespace

extern "C" {

int32_t GetPadWidth(const char *position) {
    if (position == nullptr) return 1;
    int32_t align = 1;
    int32_t depth = (*position == '{' || *position == '(') ? 0 : 1;
    for (const char *p = position; *p != '\0'; ++p) {
        switch (upper(*p)) {
        case '{':
        case '(':
            ++depth;
            break;
        case '}':
        case ')':
            --depth;
            break;
        case 'D':
            align = 8;
            break;
        case 'F':
        case 'L':
            if (align < 4) align = 4;
            break;
        case 'S':
            if (align < 2) align = 2;
            break;
        default:
            break;
        }
        if (depth <= 0 || align == 8) break;
    }
    return align;
}

const char *GetUnionSize(const char *position, int32_t *size) {
    if (position == nullptr || *position == '\0') {
        if (size != nullptr) *size = 0;
        return position;
    }
    const char *p = position;
    int64_t bytes = union_size(&p);
    if (size != nullptr) *size = bytes > INT32_MAX ? INT32_MAX : static_cast<int32_t>(bytes);
    return p;
}

int32_t zunReadStruct(HGLOBAL s, const char *format, void *buffer, int32_t records) {
    return walk_records(s, format, static_cast<uint8_t *>(buffer), records, true);
}

int32_t zunWriteStruct(HGLOBAL s, const char *format, const void *buffer, int32_t records) {
    // The walk is shared with the reader; on this road nothing is stored into
    // the buffer (padding is stepped over, the writers only read).
    return walk_records(s, format, static_cast<uint8_t *>(const_cast<void *>(buffer)), records,
                        false);
}

}  // extern "C"

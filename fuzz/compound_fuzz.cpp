// Compound documents from arbitrary bytes: open a sub-stream by name, read it
// whole, seek and read again, then ask for a second name. Byte 0 chooses
// the stream under the document (bit 0: file, else memory) and the first
// name (bits 1-3), byte 1 the second name, bytes 2-10 three seeks (origin,
// then a signed 16-bit offset) and byte 11 the length of the reads after
// them; the document follows from byte 12.
//
// Whatever the document, an open either fails with one of its codes and
// leaves the stream as it was, or gives a sub-stream whose reads agree with
// each other: a read after a seek returns exactly the bytes at that place in
// the whole, and seeks clamp to 0..size.
#include <cstdint>
#include <cstring>

#include "fuzz/streams.h"

using namespace fuzzstreams;

namespace {

const char *const kNames[] = {"stream",    "big",     "small", "dir/inner",
                              "DIR/Inner", "missing", "dir",   "Root Entry"};
constexpr size_t kHeader = 12;

bool is_code(int32_t r) {
    return r == 0 || r == TOLVA_DOC_NOT_COMPOUND || r == TOLVA_DOC_CORRUPT ||
           r == TOLVA_DOC_NOT_FOUND;
}

Bytes read_some(HGLOBAL s, int32_t n) {
    Bytes got(static_cast<size_t>(n));
    int32_t r = zunRead(s, got.data(), n);
    got.resize(r > 0 ? static_cast<size_t>(r) : 0);
    return got;
}

// The sub-stream read whole, then slices of it after seeks.
Bytes check_sub_stream(HGLOBAL s, const uint8_t *params) {
    int32_t size = zunSeek(s, 0, 2);
    expect(size >= 0, "size of the sub-stream");
    expect(zunSeek(s, 0, 0) == 0, "seek to the start");
    Bytes whole = read_some(s, size + 1);
    expect(whole.size() == static_cast<size_t>(size), "whole read");
    expect(zunSeek(s, 0, 1) == size, "position after the whole read");
    int64_t position = size;
    for (int i = 0; i < 3; ++i) {
        int32_t origin = params[3 * i] % 3;
        int32_t offset = static_cast<int16_t>(params[3 * i + 1] | params[3 * i + 2] << 8);
        int64_t target = origin == 0   ? offset
                         : origin == 1 ? position + offset
                                       : int64_t{size} - offset;
        target = target < 0 ? 0 : target > size ? size : target;
        expect(zunSeek(s, offset, origin) == target, "clamped seek");
        int32_t want = params[9] * 37;
        Bytes got = read_some(s, want);
        int64_t n = size - target < want ? size - target : want;
        expect(got.size() == static_cast<size_t>(n) &&
                   std::equal(got.begin(), got.end(), whole.begin() + target),
               "read after a seek");
        position = target + n;
    }
    return whole;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < kHeader) return 0;
    bool onFile = data[0] & 1;
    const char *first = kNames[(data[0] >> 1) % 8];
    const char *second = kNames[data[1] % 8];
    Source in(data + kHeader, size - kHeader, onFile);
    if (in.stream == 0) return 0;
    HGLOBAL s = in.stream;

    int32_t opened = zunOpenDocumentStream(s, first);
    expect(is_code(opened), "result of the first open");
    Bytes whole;
    if (opened == 0) whole = check_sub_stream(s, data + 2);

    int32_t again = zunOpenDocumentStream(s, second);
    expect(is_code(again), "result of the second open");
    if (again == 0) {
        check_sub_stream(s, data + 2);
    } else if (opened == 0) {
        // A failed open leaves the earlier sub-stream in place.
        expect(
            zunSeek(s, 0, 0) == 0 && read_some(s, static_cast<int32_t>(whole.size()) + 1) == whole,
            "earlier sub-stream after a failed open");
    } else {
        // Still the plain stream over the document.
        size_t n = size - kHeader < 600 ? size - kHeader : 600;
        expect(zunSeek(s, 0, 0) == 0 && read_some(s, static_cast<int32_t>(n)) ==
                                            Bytes(data + kHeader, data + kHeader + n),
               "plain stream after failed opens");
    }
    return 0;
}

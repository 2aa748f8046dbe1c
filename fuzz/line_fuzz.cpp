// Text lines out of arbitrary bytes and back. The first bytes choose the
// stream (file or memory), the line end to write, the buffer size, where the
// line-end detection starts and how often the text repeats (so that lines
// cross the file buffer's 12288-byte windows); the rest is the text. Every
// line read must match the plain line reader of streams.h in its result, its
// characters and its terminator, inside a buffer of exactly the size given;
// written back with zunWriteLine, the lines must give exactly their text and
// the chosen line end.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "fuzz/streams.h"

using namespace fuzzstreams;

namespace {

const int16_t kFormats[] = {0, 1, 2, 3, -1};

// What zunGetLineFormat finds from `at`: 0 CR LF, 1 CR, 2 LF, -1 none.
int32_t detect(const Bytes &data, size_t at) {
    for (; at < data.size(); ++at) {
        if (data[at] == '\n') return 2;
        if (data[at] == '\r') return at + 1 < data.size() && data[at + 1] == '\n' ? 0 : 1;
    }
    return -1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *input, size_t size) {
    if (size < 4) return 0;
    bool onFile = input[0] & 1;
    int16_t format = kFormats[(input[0] >> 1) % 5];
    int32_t bufferSize = 1 + input[1] % 80;
    size_t repeat = (input[0] & 0x80) ? 1 + input[3] % 8 : 1;
    Bytes data;
    for (size_t r = 0; r < repeat; ++r) data.insert(data.end(), input + 4, input + size);
    if (input[0] & 0x40 && repeat > 1) bufferSize = 256 + input[1];  // long lines whole
    size_t detectAt = input[2] % (data.size() + 1);

    Source in(data.data(), data.size(), onFile);
    if (in.stream == 0) return 0;
    HGLOBAL s = in.stream;

    expect(zunSeek(s, static_cast<int32_t>(detectAt), 0) == static_cast<int32_t>(detectAt),
           "seek before detection");
    expect(zunGetLineFormat(s) == detect(data, detectAt), "detected line end");
    expect(zunSeek(s, 0, 1) == 0, "detection leaves the stream at 0");

    MemoryBlock outBlock;
    HGLOBAL out = outBlock.create();
    if (out == 0) return 0;
    expect(zunSetLineFormat(out, format) == 0, "setting the line format");
    Bytes expected;

    size_t at = 0;
    // A buffer of exactly the size given, so that AddressSanitizer sees any
    // store past it.
    char *buffer = static_cast<char *>(std::malloc(static_cast<size_t>(bufferSize)));
    for (size_t guard = 0; guard <= data.size() + 1; ++guard) {
        std::memset(buffer, 0x5a, static_cast<size_t>(bufferSize));
        Line want = next_line(data, &at, bufferSize);
        int32_t got = zunReadLine(s, buffer, bufferSize);
        expect(got == want.result, "line result");
        size_t n = want.text.size();
        expect(std::memcmp(buffer, want.text.data(), n) == 0, "line text");
        if (static_cast<int32_t>(n) < bufferSize) expect(buffer[n] == '\0', "line terminator");
        if (got < 0 && n == 0) break;
        expect(zunWriteLine(out, buffer, static_cast<int32_t>(n)) == static_cast<int32_t>(n),
               "line write");
        expected.insert(expected.end(), want.text.begin(), want.text.end());
        for (const char *e = line_end(format); *e != '\0'; ++e)
            expected.push_back(static_cast<uint8_t>(*e));
        if (got < 0) break;
    }
    std::free(buffer);
    expect(contents(out) == expected, "lines written back");
    zunClose(out);
    return 0;
}

// Text lines over a stream: reading whatever the line end (CR, LF or CR LF),
// writing with the stream's own, and detecting the end an existing file uses
// so that a rewritten profile keeps it.
//
// The invariant: zunReadLine stores nothing past the caller's size, and a line
// that fills the buffer exactly is left unterminated for the next call.
#include <stdint.h>

#include "stream/stream.h"

namespace {
constexpr char kCR = 13;
constexpr char kLF = 10;
}  // namespace

extern "C" {

int32_t zunReadLine(HGLOBAL s, char *buffer, int32_t size) {
    if (buffer == nullptr || size < 1) return -1;
    buffer[0] = '\0';
    int32_t count = 0;
    int32_t last = 1;
    while (count < size) {
        char c;
        last = zunRead(s, &c, 1);
        if (last < 1) break;
        if (c == kCR) {
            // A lone CR ends a line too; what followed it is given back.
            char next;
            last = zunRead(s, &next, 1);
            if (last == 1 && next != kLF) (void)zunSeek(s, -1, SEEK_CUR);
            buffer[count] = '\0';
            break;
        }
        if (c == kLF) {
            buffer[count] = '\0';
            break;
        }
        buffer[count] = c;
        if (count + 1 < size) buffer[count + 1] = '\0';
        ++count;
    }
    return last >= 1 ? count : -1;
}

int32_t zunWriteLine(HGLOBAL s, const char *text, int32_t length) {
    static const char kCRByte = kCR;
    static const char kLFByte = kLF;
    int32_t wrote = zunWrite(s, text, length);
    int16_t format = s != 0 ? static_cast<int16_t>(stream_lock(s)->lineFormat) : 0;
    int32_t end;
    if (format == 1) {
        end = zunWrite(s, &kCRByte, 1);
    } else if (format == 2) {
        end = zunWrite(s, &kLFByte, 1);
    } else {
        end = zunWrite(s, &kCRByte, 1);
        if (end == 1) end = zunWrite(s, &kLFByte, 1);
    }
    return end == 1 ? wrote : end;
}

int32_t zunSetLineFormat(HGLOBAL s, int16_t format) {
    if (s == 0) return -1;
    stream_lock(s)->lineFormat = static_cast<uint16_t>(format);
    return 0;
}

int32_t zunGetLineFormat(HGLOBAL s) {
    int32_t found = -1;
    char c;
    while (zunRead(s, &c, 1) >= 1) {
        if (c == kLF) {
            found = 2;
            break;
        }
        if (c == kCR) {
            found = (zunRead(s, &c, 1) >= 1 && c == kLF) ? 0 : 1;
            break;
        }
    }
    (void)zunSeek(s, 0, SEEK_SET);  // a failure is on the stream's error flag
    return found;
}

}  // extern "C"

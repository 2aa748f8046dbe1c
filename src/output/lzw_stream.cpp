// The LZW encoder's exported entries, over an output stream: the stream
// becomes the encoder's byte sink, and taking back the parked byte becomes a
// step back, a one-byte read and another step back.
//
// The stream must therefore be readable and seekable, not only writable.
#include "output/lzw.h"

namespace {

int32_t write_to_stream(void *context, const void *bytes, int32_t count) {
    return zunWrite(reinterpret_cast<HGLOBAL>(context), bytes, count);
}

void take_back_from_stream(void *context, uint8_t *byte) {
    HGLOBAL stream = reinterpret_cast<HGLOBAL>(context);
    // Only the byte matters; a stream that cannot step back has already lost
    // the segment's start, and the results say no more than that.
    (void)zunSeek(stream, -1, 1);
    (void)zunRead(stream, byte, 1);
    (void)zunSeek(stream, -1, 1);
}

LzwSink sink_of_stream(HGLOBAL stream) {
    return LzwSink{reinterpret_cast<void *>(stream), write_to_stream, take_back_from_stream};
}

}  // namespace

extern "C" {

int32_t CompressAndWrite(HGLOBAL stream, const uint8_t *pixels, uint8_t *work, int32_t count,
                         int32_t first, int32_t last, uint32_t *carry) {
    LzwSink sink = sink_of_stream(stream);
    return lzw_compress_and_write(&sink, pixels, work, count, first, last, carry);
}

int32_t LZWCompression(HGLOBAL stream, const uint8_t *pixels, uint8_t *work, int32_t count,
                       int32_t first, int32_t last, uint32_t *carry) {
    LzwSink sink = sink_of_stream(stream);
    return static_cast<int32_t>(lzw_compress(&sink, pixels, work, count, first, last, carry));
}

int32_t LZWWriteSubBlocks(HGLOBAL stream, const uint8_t *bytes, uint32_t n) {
    LzwSink sink = sink_of_stream(stream);
    return lzw_write_sub_blocks(&sink, bytes, n);
}

}  // extern "C"

// One LZW segment from start to end: the string table taken for the segment
// and given back, the parked byte of the previous segment taken back, the
// encoding, and what follows it (the block terminator or a new parked byte).
//
// Segments of one image are joined through the output itself: a segment other
// than the last leaves its unfinished byte written bare behind its sub-blocks
// and its bit count in *carry; the next segment steps back over that byte and
// writes it again as its first data byte, so the finished file holds no bare
// byte. Nothing else may be written between two segments.
#include "output/lzw.h"

uint32_t lzw_compress(const LzwSink *sink, const uint8_t *pixels, uint8_t *work, int32_t count,
                      int32_t first, int32_t last, uint32_t *carry) {
    HGLOBAL handle = GlobalAlloc(TOLVA_GMEM_FLAGS, sizeof(LzwTable));
    auto *table = static_cast<LzwTable *>(GlobalLock(handle));
    // Without a table the segment is lost, silently: nothing is written and
    // the carry stays as it was.
    if (table == nullptr) {
        if (handle != 0) GlobalFree(handle);
        return 0;
    }
    if (*carry != 0) sink->takeBack(sink->context, &work[0]);
    uint32_t n = lzw_encode_segment(table, sink, pixels, work, count, first, last, carry);
    GlobalUnlock(handle);
    GlobalFree(handle);
    return n;
}

int32_t lzw_compress_and_write(const LzwSink *sink, const uint8_t *pixels, uint8_t *work,
                               int32_t count, int32_t first, int32_t last, uint32_t *carry) {
    // Only the start of the buffer needs clearing: the packer writes every
    // later byte whole. Bytes that a short segment leaves uncleared are ORed
    // into its first codes, as they always were.
    int32_t clear =
        count < static_cast<int32_t>(kLzwGroupBytes) ? count : static_cast<int32_t>(kLzwGroupBytes);
    for (int32_t k = 0; k < clear; ++k) work[k] = 0;
    uint32_t n = lzw_compress(sink, pixels, work, count, first, last, carry);
    int32_t result = TOLVA_OK;
    if (last) {
        const uint8_t terminator = 0;
        if (sink->write(sink->context, &terminator, 1) != 1) result = TOLVA_ERR_STREAM;
    }
    if (*carry != 0) {
        if (sink->write(sink->context, &work[n], 1) != 1) result = TOLVA_ERR_STREAM;
    }
    return result;
}

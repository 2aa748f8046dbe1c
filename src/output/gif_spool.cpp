// The spool of an interlaced image that arrives in several bands, and the
// pass-order compression that empties it.
//
// The spool holds the image top row first, one unpadded row after another:
// a memory stream for images of up to 349999 pixels, a temporary file in /tmp
// beyond that. Whatever happens, the spool file is deleted when the spool is
// closed, and a file that could not be opened is not left behind either.
#include <cstring>

#include "output/gif.h"
#include "output/lzw.h"
#include "stream/sinks.h"

namespace {

// One buffer-load of rows, and one LZW segment, at most.
constexpr uint32_t kLoadBytes = 65536;

}  // namespace

extern "C" {

HGLOBAL GifOpenSpoolFile(CellBitmapState *state, uint32_t pixels) {
    int32_t error = TOLVA_OK;
    HGLOBAL spool = 0;
    if (pixels > kGifMemorySpoolPixels) {
        char name[TOLVA_TEMP_NAME_SIZE] = {};
        state->spoolName[0] = '\0';
        if (ZUNGetTempFileName(0, "", 0, name) != 0 &&
            std::strlen(name) < sizeof state->spoolName) {
            std::memcpy(state->spoolName, name, std::strlen(name) + 1);
        }
        spool = stream_open_file(state->spoolName);
        if (spool == 0) {
            error = TOLVA_ERR_STREAM;
            // The name service may have created the file already.
            if (state->spoolName[0] != '\0')
                (void)zunOpen(state->spoolName, nullptr, TOLVA_STREAM_DELETE);
        }
    } else {
        // The stream keeps state->spoolData pointing at the block as it
        // grows, which is how EndCellBitmap finds the block to free.
        spool = stream_open_memory(&state->spoolBlock, &state->spoolData);
        if (state->spoolBlock == 0)
            error = TOLVA_ERR_WORK_BUFFER;
        else if (spool == 0)
            error = TOLVA_ERR_STREAM;
    }
    if (error != TOLVA_OK) output_push_error(error);
    return spool;
}

int32_t GifWriteSpoolFile(HGLOBAL spool, const uint8_t *bytes, int32_t n) {
    return zunWrite(spool, bytes, n);
}

int32_t GifCloseSpoolFile(CellBitmapState *state) {
    return zunCloseandDelete(state->spoolStream, state->spoolName);
}

int32_t GifInterlaceandWrite(CellBitmapState *state, HGLOBAL stream) {
    HGLOBAL pixelHandle = GlobalAlloc(TOLVA_GMEM_FLAGS, kLoadBytes);
    HGLOBAL workHandle = GlobalAlloc(TOLVA_GMEM_FLAGS, kLoadBytes);
    auto *pixels = static_cast<uint8_t *>(GlobalLock(pixelHandle));
    auto *work = static_cast<uint8_t *>(GlobalLock(workHandle));
    int32_t result = TOLVA_OK;
    const uint32_t rowBytes = state->bytesPerRow;
    // A row longer than a buffer-load can never be read back: no load would
    // make progress, so nothing is compressed at all.
    if (pixels != nullptr && work != nullptr && rowBytes <= kLoadBytes) {
        const uint32_t rowsPerLoad = rowBytes == 0 ? UINT32_MAX : kLoadBytes / rowBytes;
        const int32_t height = state->height;
        int32_t first = 1;
        int32_t last = 0;
        uint32_t carry = 0;
        int pass = 0;
        int64_t row = 0;
        while (row < height && pass <= 3) {
            uint32_t filled = 0;
            while (filled < rowsPerLoad && row < height) {
                auto offset = static_cast<int32_t>(static_cast<uint32_t>(row) * rowBytes);
                (void)zunSeek(state->spoolStream, offset, 0);
                (void)zunRead(state->spoolStream, pixels + filled * rowBytes,
                              static_cast<int32_t>(rowBytes));
                ++filled;
                row += kGifPassStep[pass];
            }
            // Only the load that ends the fourth pass ends the image. A
            // picture of 2 to 4 rows never reaches the second pass (it starts
            // at row 4), so passes 2 to 4 are not written at all and there is
            // no end code; a picture of one row loses only the end code.
            if (pass == 3 && row >= height) last = 1;
            result = CompressAndWrite(stream, pixels, work, static_cast<int32_t>(filled * rowBytes),
                                      first, last, &carry);
            first = 0;
            if (row >= height) {
                ++pass;
                if (pass < 4) row = kGifPassStart[pass];
            }
        }
    }
    if (pixelHandle != 0) GlobalFree(pixelHandle);
    if (workHandle != 0) GlobalFree(workHandle);
    return result;
}

}  // extern "C"

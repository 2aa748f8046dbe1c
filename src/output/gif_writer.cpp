// The GIF89a file around one image: header, colour table, graphic control
// extension and image descriptor at the start, the bands of rows in between,
// the trailer at the end.
//
// Bands arrive bottom row first and are turned top row first before they are
// compressed or spooled. Each band is one LZW segment; only an interlaced
// image that arrives in several bands is spooled and compressed at the end,
// since its rows are needed in pass order.
#include <algorithm>
#include <cstring>

#include "output/gif.h"
#include "output/lzw.h"

namespace {

constexpr uint8_t kExtensionIntroducer = 0x21;
constexpr uint8_t kControlLabel = 0xF9;
constexpr uint8_t kImageSeparator = 0x2C;
constexpr uint8_t kInterlacedImage = 0x40;
constexpr uint8_t kTrailer = 0x3B;
// Pixels are always written one byte each, so the code size is always 8.
constexpr uint8_t kCodeSize = 8;

// The palette entry nearest to a colour. The search covers at least 16
// entries of the caller's array, also when the table written has fewer (or
// none, at 24 bits), so the entry found may lie past the table: its index is
// written all the same. Without a palette there is nothing to search.
int32_t nearest_entry(const uint8_t colour[3], const uint8_t *palette, int32_t entries) {
    if (palette == nullptr) return 0;
    return get_nearest_rgb_index(colour[0], colour[1], colour[2], palette, entries);
}

// Turns a bottom-up band with stride s into rows of r bytes, top row first,
// in place: the band becomes the encoder's input, and a picture's worth of
// memory that would only receive a copy is never touched. Every row must lie
// inside the band.
void turn_rows_in_place(uint8_t *band, int32_t rows, uint32_t r, uint32_t s) {
    for (int64_t y = 0, z = rows - 1; y < z; ++y, --z) {
        std::swap_ranges(band + y * s, band + y * s + r, band + z * s);
    }
    if (r == s) return;
    for (int64_t y = 1; y < rows; ++y) std::memmove(band + y * r, band + y * s, r);
}

// Copies `rows` rows of r bytes from a bottom-up band with stride s into dst,
// top row first, or in the order of the four interlace passes (image rows 0,
// 8, 16...; 4, 12...; 2, 6, 10...; 1, 3, 5...). Rows that lie past the band's
// block (a band smaller than it claims) stay zero.
void turn_rows(uint8_t *dst, const uint8_t *band, uint32_t bandSize, int32_t rows, uint32_t r,
               uint32_t s, bool interlaced) {
    uint32_t place = 0;
    auto copy = [&](int64_t y) {
        uint64_t from = static_cast<uint64_t>(rows - 1 - y) * s;
        if (from + r <= bandSize) std::memcpy(dst + uint64_t{place} * r, band + from, r);
        ++place;
    };
    if (!interlaced) {
        for (int64_t y = 0; y < rows; ++y) copy(y);
        return;
    }
    for (int pass = 0; pass < 4; ++pass) {
        for (int64_t y = kGifPassStart[pass]; y < rows; y += kGifPassStep[pass]) copy(y);
    }
}

}  // namespace

extern "C" {

int32_t BeginCellBitmap(HGLOBAL stream, int32_t width, int32_t height, int16_t bitsPerPixel,
                        uint8_t *palette, HGLOBAL *state) {
    const GifSettings settings = gif_settings();
    int32_t entries = 0;
    if (bitsPerPixel >= 1 && bitsPerPixel <= 8) entries = 1 << bitsPerPixel;
    int32_t transparentIndex = -1;
    int32_t backgroundIndex = -1;
    if (settings.transparent) {
        transparentIndex = nearest_entry(settings.transparentColour, palette, entries);
        if (palette != nullptr)
            std::memcpy(palette + 3 * transparentIndex, settings.transparentColour, 3);
    }
    if (settings.background) {
        backgroundIndex = nearest_entry(settings.backgroundColour, palette, entries);
    }

    GifScreenRecord screen = {{'G', 'I', 'F', '8', '9', 'a'},
                              static_cast<uint16_t>(width),
                              static_cast<uint16_t>(height),
                              // Colour table present, resolution 7, size 2^bits.
                              static_cast<uint8_t>(bitsPerPixel - 17),
                              static_cast<uint8_t>(backgroundIndex < 0 ? 0 : backgroundIndex),
                              0};
    GifControlRecord control = {kExtensionIntroducer,
                                kControlLabel,
                                4,
                                static_cast<uint8_t>(settings.transparent ? 1 : 0),
                                0,
                                static_cast<uint8_t>(transparentIndex < 0 ? 0 : transparentIndex),
                                0};
    GifImageRecord image = {kImageSeparator,
                            0,
                            0,
                            static_cast<uint16_t>(width),
                            static_cast<uint16_t>(height),
                            static_cast<uint8_t>(settings.interlace ? kInterlacedImage : 0)};
    // Each part is written only if everything before it was; a failure is
    // not reported here (the caller learns of it from the later writes).
    bool written = zunWriteStruct(stream, "6C2S3C", &screen, 1) == 1;
    if (written) written = zunWriteStruct(stream, "3C", palette, entries) == entries;
    if (written) written = zunWriteStruct(stream, "4C1S2C", &control, 1) == 1;
    if (written) written = zunWriteStruct(stream, "1C4S1C", &image, 1) == 1;
    if (written) (void)zunWrite(stream, &kCodeSize, 1);

    if (state == nullptr) return -1;
    uint32_t size = sizeof(CellBitmapState) > TOLVA_CELL_BITMAP_STATE_SIZE
                        ? static_cast<uint32_t>(sizeof(CellBitmapState))
                        : TOLVA_CELL_BITMAP_STATE_SIZE;
    HGLOBAL handle = GlobalAlloc(TOLVA_GMEM_FLAGS, size);
    auto *st = static_cast<CellBitmapState *>(GlobalLock(handle));
    if (st == nullptr) {
        if (handle != 0) GlobalFree(handle);
        return -1;
    }
    *state = handle;
    st->calls = 0;
    st->height = height;
    st->rowsToCome = height;
    st->bytesPerRow = gif_row_bytes(width, bitsPerPixel);
    st->carry = 0;
    if (settings.interlace) {
        st->spoolStream =
            GifOpenSpoolFile(st, static_cast<uint32_t>(width) * static_cast<uint32_t>(height));
    }
    GlobalUnlock(handle);
    return -1;
}

int32_t WriteCellBits(HGLOBAL stream, HGLOBAL band, int32_t width, int32_t rows,
                      int16_t bitsPerPixel, int16_t /*unused*/, HGLOBAL state) {
    auto *st = static_cast<CellBitmapState *>(GlobalLock(state));
    int32_t first = 0;
    int32_t last = 0;
    uint32_t lostCarry = 0;
    uint32_t *carry = &lostCarry;
    if (st != nullptr) {
        st->rowsToCome -= rows;
        first = st->calls == 0;
        last = st->rowsToCome < 1;
        st->calls += 1;
        carry = &st->carry;
    }

    const int32_t rowCount = rows > 0 ? rows : 0;
    const uint32_t r = gif_row_bytes(width, bitsPerPixel);
    const uint32_t s = (r + 3) & ~3u;
    const uint64_t tempSize = uint64_t{s} * static_cast<uint32_t>(rowCount);
    const auto count = static_cast<int32_t>(uint64_t{r} * static_cast<uint32_t>(rowCount));
    const bool interlace = gif_settings().interlace;
    // A whole band written straight on is turned where it lies and encoded
    // from there, with a work buffer of its own. Only segments long enough
    // that the encoder clears the start of its work buffer qualify: shorter
    // ones OR their first codes onto what the band's bytes held.
    const bool inPlace = band != 0 && !interlace && GlobalSize(band) >= tempSize &&
                         count >= static_cast<int32_t>(kLzwWorkBytes);
    HGLOBAL tempHandle = 0;
    if (!inPlace && tempSize <= UINT32_MAX) {
        tempHandle = GlobalAlloc(TOLVA_GMEM_FLAGS, static_cast<uint32_t>(tempSize));
    }
    auto *temp = static_cast<uint8_t *>(GlobalLock(tempHandle));

    if (inPlace) {
        auto *bandData = static_cast<uint8_t *>(GlobalLock(band));
        turn_rows_in_place(bandData, rowCount, r, s);
        uint8_t work[kLzwWorkBytes] = {};
        int32_t result = CompressAndWrite(stream, bandData, work, count, first, last, carry);
        GlobalUnlock(band);
        if (st != nullptr) GlobalUnlock(state);
        return result;
    }
    int32_t result = TOLVA_OK;
    if (band == 0 || temp == nullptr) {
        result = TOLVA_ERR_MEMORY;
    } else {
        auto *bandData = static_cast<uint8_t *>(GlobalLock(band));
        const uint32_t bandSize = GlobalSize(band);
        const bool wholeImage = first && last;
        turn_rows(temp, bandData, bandSize, rowCount, r, s, interlace && wholeImage);
        if (interlace && !wholeImage) {
            // Spooled for the interlace passes at the end; a failed spool
            // write is not reported.
            (void)GifWriteSpoolFile(st != nullptr ? st->spoolStream : 0, temp, count);
        } else {
            if (interlace && st != nullptr) {
                // The rows are already in pass order: the spool is not needed.
                (void)GifCloseSpoolFile(st);
                st->spoolStream = 0;
            }
            // The band doubles as the encoder's work buffer, unless it is
            // too small to be one.
            HGLOBAL workHandle = 0;
            uint8_t *work = bandData;
            if (bandSize < kLzwWorkBytes) {
                workHandle = GlobalAlloc(TOLVA_GMEM_FLAGS, kLzwWorkBytes);
                work = static_cast<uint8_t *>(GlobalLock(workHandle));
            }
            if (work == nullptr) {
                result = TOLVA_ERR_MEMORY;
            } else {
                result = CompressAndWrite(stream, temp, work, count, first, last, carry);
            }
            if (workHandle != 0) GlobalFree(workHandle);
        }
        GlobalUnlock(band);
    }
    if (tempHandle != 0) GlobalFree(tempHandle);
    if (st != nullptr) GlobalUnlock(state);
    return result;
}

int32_t EndCellBitmap(HGLOBAL stream, HGLOBAL state) {
    auto *st = static_cast<CellBitmapState *>(GlobalLock(state));
    if (st != nullptr && st->spoolStream != 0) {
        // Whatever the passes could not write shows in the file; only the
        // trailer is reported.
        (void)GifInterlaceandWrite(st, stream);
        (void)GifCloseSpoolFile(st);
        st->spoolStream = 0;
    }
    int32_t result = zunWrite(stream, &kTrailer, 1) < 1 ? TOLVA_ERR_STREAM : TOLVA_OK;
    if (st != nullptr) {
        if (st->spoolBlock != 0) {
            // The memory stream moves the block as it grows; the data address
            // names the block as it is now.
            GlobalFree(st->spoolData != nullptr ? GlobalHandle(st->spoolData) : st->spoolBlock);
        }
        GlobalFree(state);
    }
    return result;
}

}  // extern "C"

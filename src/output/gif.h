// Internal view of the GIF writer: the settings it reads and the records it
// writes through zunWriteStruct.
//
// The records are laid out as the struct formats describe them in memory
// (natural alignment); on file they are packed, little-endian.
#ifndef TOLVA_OUTPUT_GIF_H
#define TOLVA_OUTPUT_GIF_H

#include <stddef.h>
#include <stdint.h>

#include "tolva/host.h"
#include "tolva/output.h"
#include "tolva/stream.h"

#include "output/device.h"

// Interlaced images of more pixels than this are spooled to a temporary file
// rather than to memory.
constexpr uint32_t kGifMemorySpoolPixels = 349999;

// The four interlace passes: the image row each starts at and the rows it
// steps by (rows 0, 8, 16...; 4, 12...; 2, 6, 10...; 1, 3, 5...).
constexpr int32_t kGifPassStart[4] = {0, 4, 2, 1};
constexpr int32_t kGifPassStep[4] = {8, 8, 4, 2};

// The choices of the current Setup block; all off without one.
struct GifSettings {
    bool interlace;
    bool transparent;
    uint8_t transparentColour[3];
    bool background;
    uint8_t backgroundColour[3];
};

inline GifSettings gif_settings(void) {
    GifSettings s{};
    const SetupBlock *setup = lpRaster;
    if (setup == nullptr) return s;
    s.interlace = setup->interlace == TOLVA_INTERLACE_ON;
    s.transparent = setup->transparency == TOLVA_TRANSPARENCY_ON;
    s.background = setup->backgroundChoice == TOLVA_BACKGROUND_ON;
    for (int k = 0; k < 3; ++k) {
        s.transparentColour[k] = setup->transparentColour[k];
        s.backgroundColour[k] = setup->backgroundColour[k];
    }
    return s;
}

// Logical screen descriptor behind the signature: "6C2S3C".
struct GifScreenRecord {
    char signature[6];
    uint16_t width;
    uint16_t height;
    uint8_t packed;
    uint8_t background;
    uint8_t aspect;
};
static_assert(offsetof(GifScreenRecord, width) == 6 && offsetof(GifScreenRecord, packed) == 10,
              "6C2S3C layout");

// Graphic control extension: "4C1S2C".
struct GifControlRecord {
    uint8_t introducer;
    uint8_t label;
    uint8_t size;
    uint8_t packed;
    uint16_t delay;
    uint8_t transparent;
    uint8_t terminator;
};
static_assert(offsetof(GifControlRecord, delay) == 4 && sizeof(GifControlRecord) == 8,
              "4C1S2C layout");

// Image descriptor: "1C4S1C".
struct GifImageRecord {
    uint8_t separator;
    uint16_t left;
    uint16_t top;
    uint16_t width;
    uint16_t height;
    uint8_t packed;
};
static_assert(offsetof(GifImageRecord, left) == 2 && offsetof(GifImageRecord, packed) == 10,
              "1C4S1C layout");

// Bytes of one row of `width` pixels of `bits` bits, unpadded.
inline uint32_t gif_row_bytes(int32_t width, int16_t bits) {
    int64_t r = (int64_t{width} * bits + 7) / 8;
    return r < 0 ? 0 : static_cast<uint32_t>(r);
}

#endif

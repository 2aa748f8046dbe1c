// The test photograph as a 24-bit bitmap handle (rows padded to 4 bytes). Not
// an algorithm: the real picture on which the tests compare the fast paths with
// the literal ones and the benchmarks time them. The JPEG is decoded here with
// libjpeg, for the raster tests and benchmarks and for the whole-export
// benchmarks alike.
#ifndef TOLVA_REFERENCE_RASTER_PHOTO_H
#define TOLVA_REFERENCE_RASTER_PHOTO_H

#include <stdint.h>

#include <vector>

#include "tolva/host.h"
#include "tolva/raster.h"

// A JPEG file's pixels as red, green and blue bytes, rows top first and packed
// (width * 3 bytes each); grey pictures are widened to RGB. Empty (width 0)
// when the file cannot be read or is not a JPEG of one or three components.
struct RgbPixels {
    std::vector<uint8_t> rgb;
    int32_t width = 0;
    int32_t height = 0;
};
RgbPixels read_jpeg_rgb(const char *path);

// 0 when the file cannot be read; the caller frees the handle.
HGLOBAL load_photo(const char *path, int32_t *width, int32_t *height);
// tests/data/photo.jpg through TOLVA_TEST_DATA (or the source tree).
HGLOBAL load_test_photo(int32_t *width, int32_t *height);

// The test photograph loaded once and kept for the life of the process, for
// programs that time several cases on it (bits is 0 when it cannot be read).
struct Photo {
    HGLOBAL bits;
    int32_t width;
    int32_t height;
};
const Photo &shared_test_photo();

#endif

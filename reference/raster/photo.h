// The test photograph as a 24-bit bitmap handle (rows padded to 4 bytes). Not
// an algorithm: the real picture on which the tests compare the fast paths with
// the literal ones and the benchmarks time them; the JPEG is decoded here, and
// only here, with stb_image.
#ifndef TOLVA_REFERENCE_RASTER_PHOTO_H
#define TOLVA_REFERENCE_RASTER_PHOTO_H

#include <stdint.h>

#include "tolva/host.h"
#include "tolva/raster.h"

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

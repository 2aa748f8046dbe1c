// The test photograph as a 24-bit bitmap handle (rows padded to 4 bytes).
#ifndef TOLVA_TESTS_RASTER_PHOTO_H
#define TOLVA_TESTS_RASTER_PHOTO_H

#include <stdint.h>

#include "tolva/tolva.h"

// 0 when the file cannot be read; the caller frees the handle.
HGLOBAL load_photo(const char *path, int32_t *width, int32_t *height);
// tests/data/photo.jpg through TOLVA_TEST_DATA (or the source tree).
HGLOBAL load_test_photo(int32_t *width, int32_t *height);

#endif

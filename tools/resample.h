/*
 * resample.h - smooth resizing of a decoded picture before the filter sees
 * it (--smooth).
 *
 * The filter scales by picking whole pixels, which keeps the hard edges its
 * hosts expect but makes shrunken photographs grainy. Resampled first with
 * pixman (area averaging when shrinking, linear interpolation when
 * enlarging), the picture reaches the filter at its final size and is taken
 * one pixel for one.
 */
#ifndef TOLVA_TOOLS_RESAMPLE_H
#define TOLVA_TOOLS_RESAMPLE_H

#include <stddef.h>
#include <stdint.h>

#include "image.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Replaces `image` by itself resampled to `width` x `height`: 24-bit RGB,
 * or 32-bit RGB and alpha when the picture had any transparency. Returns 0,
 * or -1 with the reason in `error` (the image is then unchanged).
 */
int tolva_resample(TolvaImage *image, int32_t width, int32_t height, char *error, size_t errorSize);

#ifdef __cplusplus
}
#endif

#endif

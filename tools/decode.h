/*
 * decode.h - what the format readers share: the input, the budget and the
 * place for a reason. Each reader checks the declared size with
 * tolva_check_size before it lets its library allocate pixel memory.
 */
#ifndef TOLVA_TOOLS_DECODE_H
#define TOLVA_TOOLS_DECODE_H

#include <stddef.h>
#include <stdint.h>

#include "image.h"

typedef struct TolvaDecodeJob {
    const uint8_t *data;
    size_t size;
    uint64_t maxPixels;
    TolvaImage *image;
    char *error;
    size_t errorSize;
} TolvaDecodeJob;

/* Refuses a size that is empty, over the budget or over what the filter
 * carries, with a message naming it. */
TolvaImageResult tolva_check_size(const TolvaDecodeJob *job, uint64_t width, uint64_t height);

/* Writes "corrupt FORMAT file (DETAIL)" with the detail on one line. */
TolvaImageResult tolva_corrupt(const TolvaDecodeJob *job, const char *format, const char *detail);

/* Tells the command's progress bar that `done` of `total` units of decoding
 * are behind (a no-op unless tolva_watch_reading was called). */
void tolva_reading_progress(uint64_t done, uint64_t total);

/* Rounds a sample of 0..maxval to 0..255. */
static inline uint8_t tolva_scale_sample(uint32_t value, uint32_t maxval)
{
    if (value >= maxval) {
        return 255;
    }
    return (uint8_t)((value * 255u + maxval / 2u) / maxval);
}

/* The orientation an EXIF block records (1..8), or 1. The block may start
 * with "Exif\0\0" or directly with its TIFF header. */
int32_t tolva_exif_orientation(const uint8_t *exif, size_t size);

TolvaImageResult tolva_decode_png(TolvaDecodeJob *job);
TolvaImageResult tolva_decode_jpeg(TolvaDecodeJob *job);
TolvaImageResult tolva_decode_gif(TolvaDecodeJob *job);
TolvaImageResult tolva_decode_webp(TolvaDecodeJob *job);
TolvaImageResult tolva_decode_tiff(TolvaDecodeJob *job);
TolvaImageResult tolva_decode_netpbm(TolvaDecodeJob *job);

#endif

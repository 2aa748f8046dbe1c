/*
 * picture.h - reads a picture file held in memory with its format's own
 * reference library: PNG, JPEG, GIF (first image), WebP, TIFF and netpbm
 * (PBM, PGM, PPM, PAM). The format is known by the file's first bytes.
 *
 * Every size is checked against a pixel budget before any pixel memory is
 * taken, so a small file that declares a huge picture costs nothing. The
 * result is palette indices (with the opacity of each entry), RGB, or RGB
 * with straight alpha; 16-bit samples are rounded to 8 bits.
 */
#ifndef TOLVA_TOOLS_PICTURE_H
#define TOLVA_TOOLS_PICTURE_H

#include <stddef.h>
#include <stdint.h>

#include "image.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * 16384 x 16384 pixels: a 200-megapixel camera frame passes, while the RGB
 * copy the filter makes of the largest picture allowed (805 MB) still fits
 * its 32-bit byte counts.
 */
#define TOLVA_DEFAULT_MAX_PIXELS (16384ull * 16384ull)

typedef struct TolvaReadSettings {
    uint64_t maxPixels;      /* budget in pixels; 0 means TOLVA_DEFAULT_MAX_PIXELS */
    int32_t keepOrientation; /* non-zero: rows as stored, whatever the EXIF orientation says */
} TolvaReadSettings;

/*
 * Decodes `data` into `image` (which need not be initialised). On failure the
 * image is empty and `error` holds a one-line reason without the file name.
 */
TolvaImageResult tolva_read_picture(const uint8_t *data, size_t size,
                                    const TolvaReadSettings *settings, TolvaImage *image,
                                    char *error, size_t errorSize);

/* The name of the format `data` is in ("PNG", "JPEG", ...), or NULL. */
const char *tolva_picture_format(const uint8_t *data, size_t size);

/*
 * Has the readers report how far decoding has come, as permille, to
 * `watcher` (NULL stops it). The large formats (PNG, JPEG) report as they
 * go; the others when they are done.
 */
void tolva_watch_reading(void (*watcher)(void *context, int32_t permille), void *context);

/* The formats, for --help and messages. */
extern const char tolva_picture_formats[];

#ifdef __cplusplus
}
#endif

#endif

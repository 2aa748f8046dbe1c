/*
 * image.h - pictures read from PNG, JPEG and netpbm files, laid out as the
 * filter's cell arrays want them.
 *
 * Invariant: rows are stored bottom-up (row 0 is the bottom of the picture),
 * each padded to a multiple of 4 bytes, so that a band of rows is one
 * contiguous slice that can be handed to the filter as it is.
 */
#ifndef TOLVA_TOOLS_IMAGE_H
#define TOLVA_TOOLS_IMAGE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The largest side a GIF can describe: its sizes are 16-bit fields. */
#define TOLVA_IMAGE_MAX_SIDE 65535

typedef enum TolvaImageResult {
    TOLVA_IMAGE_OK = 0,
    TOLVA_IMAGE_UNSUPPORTED, /* not a PNG, JPEG, PGM or PPM file */
    TOLVA_IMAGE_CORRUPT,     /* the decoder refused the data */
    TOLVA_IMAGE_TOO_LARGE,   /* larger than a GIF, or than the filter's 32-bit sizes */
    TOLVA_IMAGE_NO_MEMORY
} TolvaImageResult;

typedef struct TolvaImage {
    int32_t width;
    int32_t height;
    int16_t bits;          /* 8 (palette indices), 24 (RGB) or 32 (RGB and alpha) */
    uint32_t stride;       /* bytes per row, a multiple of 4 */
    uint8_t *pixels;       /* stride * height bytes, bottom row first; malloc'ed */
    int32_t colours;       /* palette entries of an 8-bit picture; 0 otherwise */
    uint8_t palette[768];  /* red, green, blue per entry; the rest zero */
} TolvaImage;

/*
 * Decodes a whole file held in memory. On failure the image is empty and
 * `error` holds the reason (without the file name).
 */
TolvaImageResult tolva_decode_image(const uint8_t *data, size_t size, TolvaImage *image,
                                    char *error, size_t errorSize);

/* Releases the pixels; the record may be decoded into again. */
void tolva_free_image(TolvaImage *image);

/*
 * Reads a whole file ("-" is standard input) into a malloc'ed buffer.
 * Returns 0, or an errno value.
 */
int tolva_read_file(const char *path, uint8_t **data, size_t *size);

#ifdef __cplusplus
}
#endif

#endif

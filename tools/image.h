/*
 * image.h - a decoded picture, laid out as the filter's cell arrays want it.
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

/* The largest side the filter's picture record carries: its sizes are signed
 * 16-bit fields. */
#define TOLVA_IMAGE_MAX_SIDE 32767

typedef enum TolvaImageResult {
    TOLVA_IMAGE_OK = 0,
    TOLVA_IMAGE_UNSUPPORTED, /* not a format the command reads */
    TOLVA_IMAGE_CORRUPT,     /* the decoder refused the data */
    TOLVA_IMAGE_TOO_LARGE,   /* over the pixel budget or what the filter carries */
    TOLVA_IMAGE_NO_MEMORY
} TolvaImageResult;

typedef struct TolvaImage {
    int32_t width;
    int32_t height;
    int16_t bits;         /* 8 (palette indices), 24 (RGB) or 32 (RGB and straight alpha) */
    uint32_t stride;      /* bytes per row, a multiple of 4 */
    uint8_t *pixels;      /* stride * height bytes, bottom row first; malloc'ed */
    int32_t colours;      /* palette entries of an 8-bit picture; 0 otherwise */
    uint8_t palette[768]; /* red, green, blue per entry; the rest zero */
    uint8_t alpha[256];   /* opacity of each palette entry, 255 = opaque */
    int32_t orientation;  /* EXIF orientation 1..8 found in the file; 1 when none */
    int32_t moreImages;   /* the file holds further images (frames, pages) after this one */
} TolvaImage;

/*
 * Sizes the pixel rows of an empty record for `width` x `height` pixels of
 * `bits` each, zero-filled. The caller has checked the size against the
 * budget. Returns TOLVA_IMAGE_OK or TOLVA_IMAGE_NO_MEMORY (with `error`).
 */
TolvaImageResult tolva_allocate_image(TolvaImage *image, uint32_t width, uint32_t height,
                                      int16_t bits, char *error, size_t errorSize);

/* Start of a row counted from the top of the picture. */
uint8_t *tolva_image_row(const TolvaImage *image, int32_t rowFromTop);

/* Releases the pixels and empties the record (palette opaque again). */
void tolva_free_image(TolvaImage *image);

/*
 * Reads a whole file ("-" is standard input) into a malloc'ed buffer.
 * Returns 0, or an errno value.
 */
int tolva_read_file(const char *path, uint8_t **data, size_t *size);

/* A whole input file in memory, read-only. */
typedef struct TolvaFileBytes {
    const uint8_t *data;
    size_t size;
    void *mapping; /* the file's own pages when it was mapped; NULL when read */
    size_t mappedSize;
} TolvaFileBytes;

/*
 * Maps a regular file, so that its bytes are the page cache's own: no copy
 * and no fresh memory, which for a large picture costs as much as decoding
 * it. Anything else ("-", pipes, devices, an empty file) is read as by
 * tolva_read_file. A mapped file cut short by another program while it is
 * decoded faults with SIGBUS on the pages that are gone: a caller that maps
 * catches it (tolva.c does, and reports the file as changed). Returns 0, or
 * an errno value; release with
 * tolva_release_file either way.
 */
int tolva_load_file(const char *path, TolvaFileBytes *file);
void tolva_release_file(TolvaFileBytes *file);

#ifdef __cplusplus
}
#endif

#endif

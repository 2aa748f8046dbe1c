/*
 * picture.c - the one entry through which the command (and its fuzz target)
 * reads a picture: recognises the format by its signature, hands the bytes
 * to that format's reader, and turns the result upright.
 */
#include "picture.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "decode.h"

const char tolva_picture_formats[] = "PNG, JPEG, GIF, WebP, TIFF, PBM, PGM, PPM or PAM";

TolvaImageResult tolva_check_size(const TolvaDecodeJob *job, uint64_t width, uint64_t height)
{
    if (width == 0 || height == 0) {
        snprintf(job->error, job->errorSize, "the picture is empty (%llux%llu pixels)",
                 (unsigned long long)width, (unsigned long long)height);
        return TOLVA_IMAGE_CORRUPT;
    }
    if (width > TOLVA_IMAGE_MAX_SIDE || height > TOLVA_IMAGE_MAX_SIDE) {
        snprintf(job->error, job->errorSize,
                 "the picture is %llux%llu pixels; the filter takes at most %d pixels a side",
                 (unsigned long long)width, (unsigned long long)height, TOLVA_IMAGE_MAX_SIDE);
        return TOLVA_IMAGE_TOO_LARGE;
    }
    if (width * height > job->maxPixels) {
        snprintf(job->error, job->errorSize,
                 "the picture is %llux%llu pixels, more than the limit of %llu pixels "
                 "(see --max-pixels)",
                 (unsigned long long)width, (unsigned long long)height,
                 (unsigned long long)job->maxPixels);
        return TOLVA_IMAGE_TOO_LARGE;
    }
    return TOLVA_IMAGE_OK;
}

TolvaImageResult tolva_corrupt(const TolvaDecodeJob *job, const char *format, const char *detail)
{
    char line[256];
    snprintf(line, sizeof line, "%s", detail != NULL && detail[0] != '\0' ? detail : "unreadable");
    /* Library messages may end in a newline or hold several lines. */
    size_t length = strlen(line);
    while (length > 0 &&
           (line[length - 1] == '\n' || line[length - 1] == ' ' || line[length - 1] == '.')) {
        line[--length] = '\0';
    }
    for (char *c = line; *c != '\0'; ++c) {
        if (*c == '\n' || *c == '\r' || *c == '\t') {
            *c = ' ';
        }
    }
    snprintf(job->error, job->errorSize, "corrupt %s file (%s)", format, line);
    return TOLVA_IMAGE_CORRUPT;
}

/* Source position, from the top left, of the upright picture's pixel (x, y). */
static void oriented_source(int32_t orientation, int32_t width, int32_t height, int32_t x,
                            int32_t y, int32_t *sx, int32_t *sy)
{
    switch (orientation) {
    case 2:
        *sx = width - 1 - x;
        *sy = y;
        break;
    case 3:
        *sx = width - 1 - x;
        *sy = height - 1 - y;
        break;
    case 4:
        *sx = x;
        *sy = height - 1 - y;
        break;
    case 5:
        *sx = y;
        *sy = x;
        break;
    case 6:
        *sx = y;
        *sy = height - 1 - x;
        break;
    case 7:
        *sx = width - 1 - y;
        *sy = height - 1 - x;
        break;
    case 8:
        *sx = width - 1 - y;
        *sy = x;
        break;
    default:
        *sx = x;
        *sy = y;
        break;
    }
}

/* Turns the picture as its orientation says; a second copy lives briefly. */
static TolvaImageResult turn_upright(TolvaImage *image, char *error, size_t errorSize)
{
    int32_t orientation = image->orientation;
    if (orientation < 2 || orientation > 8) {
        return TOLVA_IMAGE_OK;
    }
    int sideways = orientation >= 5;
    TolvaImage upright = *image;
    upright.pixels = NULL;
    TolvaImageResult result = tolva_allocate_image(
        &upright, (uint32_t)(sideways ? image->height : image->width),
        (uint32_t)(sideways ? image->width : image->height), image->bits, error, errorSize);
    if (result != TOLVA_IMAGE_OK) {
        return result;
    }
    size_t pixelBytes = (size_t)image->bits / 8;
    for (int32_t y = 0; y < upright.height; ++y) {
        uint8_t *out = tolva_image_row(&upright, y);
        for (int32_t x = 0; x < upright.width; ++x) {
            int32_t sx = 0, sy = 0;
            oriented_source(orientation, image->width, image->height, x, y, &sx, &sy);
            memcpy(out + pixelBytes * (size_t)x,
                   tolva_image_row(image, sy) + pixelBytes * (size_t)sx, pixelBytes);
        }
    }
    free(image->pixels);
    *image = upright;
    image->orientation = 1;
    return TOLVA_IMAGE_OK;
}

typedef struct Format {
    const char *name;
    const char *signature;
    size_t length;
    TolvaImageResult (*decode)(TolvaDecodeJob *job);
} Format;

/* The one place that says how a reader is picked. */
static const Format *find_format(const uint8_t *data, size_t size);

static void (*gWatcher)(void *, int32_t) = NULL;
static void *gWatcherContext = NULL;

void tolva_watch_reading(void (*watcher)(void *context, int32_t permille), void *context)
{
    gWatcher = watcher;
    gWatcherContext = context;
}

void tolva_reading_progress(uint64_t done, uint64_t total)
{
    if (gWatcher != NULL && total > 0) {
        gWatcher(gWatcherContext, (int32_t)(done >= total ? 1000 : done * 1000 / total));
    }
}

const char *tolva_picture_format(const uint8_t *data, size_t size)
{
    const Format *format = find_format(data, size);
    return format != NULL ? format->name : NULL;
}

static int is_webp(const uint8_t *data, size_t size)
{
    return size >= 12 && memcmp(data, "RIFF", 4) == 0 && memcmp(data + 8, "WEBP", 4) == 0;
}

static int is_netpbm(const uint8_t *data, size_t size)
{
    return size >= 2 && data[0] == 'P' && data[1] >= '1' && data[1] <= '7';
}

static const Format *find_format(const uint8_t *data, size_t size)
{
    static const Format kFormats[] = {
        {"PNG", "\x89PNG\r\n\x1a\n", 8, tolva_decode_png},
        {"JPEG", "\xff\xd8\xff", 3, tolva_decode_jpeg},
        {"GIF", "GIF87a", 6, tolva_decode_gif},
        {"GIF", "GIF89a", 6, tolva_decode_gif},
        {"TIFF", "II*\0", 4, tolva_decode_tiff},
        {"TIFF", "MM\0*", 4, tolva_decode_tiff},
        {"TIFF", "II+\0", 4, tolva_decode_tiff},
        {"TIFF", "MM\0+", 4, tolva_decode_tiff},
    };
    static const Format kWebp = {"WebP", "", 0, tolva_decode_webp};
    static const Format kNetpbm = {"netpbm", "", 0, tolva_decode_netpbm};
    for (size_t i = 0; i < sizeof kFormats / sizeof kFormats[0]; ++i) {
        if (size >= kFormats[i].length &&
            memcmp(data, kFormats[i].signature, kFormats[i].length) == 0) {
            return &kFormats[i];
        }
    }
    if (is_webp(data, size)) {
        return &kWebp;
    }
    return is_netpbm(data, size) ? &kNetpbm : NULL;
}

TolvaImageResult tolva_read_picture(const uint8_t *data, size_t size,
                                    const TolvaReadSettings *settings, TolvaImage *image,
                                    char *error, size_t errorSize)
{
    image->pixels = NULL;
    tolva_free_image(image);
    error[0] = '\0';
    TolvaDecodeJob job = {data, size, TOLVA_DEFAULT_MAX_PIXELS, image, error, errorSize};
    if (settings != NULL && settings->maxPixels != 0) {
        job.maxPixels = settings->maxPixels;
    }
    const Format *format = find_format(data, size);
    TolvaImageResult (*decode)(TolvaDecodeJob *) = format != NULL ? format->decode : NULL;
    if (decode == NULL) {
        if (size >= 2 && data[0] == 'B' && data[1] == 'M') {
            snprintf(error, errorSize, "BMP pictures are not read (the command reads %s)",
                     tolva_picture_formats);
        } else {
            snprintf(error, errorSize, "not a picture the command reads (%s)",
                     tolva_picture_formats);
        }
        return TOLVA_IMAGE_UNSUPPORTED;
    }
    TolvaImageResult result = decode(&job);
    tolva_reading_progress(1, 1);
    if (result == TOLVA_IMAGE_OK && (settings == NULL || !settings->keepOrientation)) {
        result = turn_upright(image, error, errorSize);
    }
    if (result != TOLVA_IMAGE_OK) {
        tolva_free_image(image);
    }
    return result;
}

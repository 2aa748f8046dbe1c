/*
 * decode_tiff.c - the first directory of a TIFF through libtiff's RGBA
 * reader, which knows every photometric interpretation, depth and
 * compression the library supports (16-bit samples are rounded to 8) and
 * applies the file's mirroring orientations itself.
 */
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <tiffio.h>

#include "decode.h"

typedef struct TiffSource {
    const TolvaDecodeJob *job;
    toff_t position;
    char message[200];
} TiffSource;

static tmsize_t read_memory(thandle_t handle, void *out, tmsize_t count)
{
    TiffSource *source = (TiffSource *)handle;
    size_t left = source->position < source->job->size ? source->job->size - source->position : 0;
    size_t n = count < 0 ? 0 : (size_t)count;
    if (n > left) {
        n = left;
    }
    memcpy(out, source->job->data + source->position, n);
    source->position += n;
    return (tmsize_t)n;
}

static tmsize_t refuse_write(thandle_t handle, void *data, tmsize_t count)
{
    (void)handle;
    (void)data;
    (void)count;
    return 0;
}

static toff_t seek_memory(thandle_t handle, toff_t offset, int whence)
{
    TiffSource *source = (TiffSource *)handle;
    toff_t base = whence == SEEK_CUR ? source->position : whence == SEEK_END ? source->job->size : 0;
    source->position = base + offset;
    return source->position;
}

static int close_memory(thandle_t handle)
{
    (void)handle;
    return 0;
}

static toff_t size_of_memory(thandle_t handle) { return ((TiffSource *)handle)->job->size; }

static int on_error(TIFF *tiff, void *user, const char *module, const char *format, va_list args)
{
    (void)tiff;
    (void)module;
    TiffSource *source = (TiffSource *)user;
    if (source->message[0] == '\0') {
        vsnprintf(source->message, sizeof source->message, format, args);
    }
    return 1;
}

static int on_warning(TIFF *tiff, void *user, const char *module, const char *format, va_list args)
{
    (void)tiff;
    (void)user;
    (void)module;
    (void)format;
    (void)args;
    return 1;
}

/* libtiff packs A, B, G, R into a word and premultiplies colour by alpha. */
static void unpack_pixels(TolvaImage *image)
{
    size_t count = (size_t)image->width * (size_t)image->height;
    uint8_t *p = image->pixels;
    for (size_t i = 0; i < count; ++i, p += 4) {
        uint32_t word;
        memcpy(&word, p, 4);
        uint32_t a = TIFFGetA(word);
        uint32_t rgb[3] = {TIFFGetR(word), TIFFGetG(word), TIFFGetB(word)};
        for (int c = 0; c < 3; ++c) {
            if (a != 0 && a != 255) {
                rgb[c] = (rgb[c] * 255u + a / 2u) / a;
            }
            p[c] = (uint8_t)(rgb[c] > 255 ? 255 : rgb[c]);
        }
        p[3] = (uint8_t)a;
    }
}

TolvaImageResult tolva_decode_tiff(TolvaDecodeJob *job)
{
    TiffSource source = {job, 0, ""};
    TIFFOpenOptions *options = TIFFOpenOptionsAlloc();
    if (options == NULL) {
        snprintf(job->error, job->errorSize, "not enough memory to read the TIFF file");
        return TOLVA_IMAGE_NO_MEMORY;
    }
    TIFFOpenOptionsSetErrorHandlerExtR(options, on_error, &source);
    TIFFOpenOptionsSetWarningHandlerExtR(options, on_warning, &source);
    TIFF *tiff = TIFFClientOpenExt("input", "rm", (thandle_t)&source, read_memory, refuse_write,
                                   seek_memory, close_memory, size_of_memory, NULL, NULL, options);
    TIFFOpenOptionsFree(options);
    if (tiff == NULL) {
        return tolva_corrupt(job, "TIFF", source.message);
    }
    uint32_t width = 0, height = 0;
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height);
    TolvaImageResult result = tolva_check_size(job, width, height);
    char reason[1024] = "";
    if (result == TOLVA_IMAGE_OK && !TIFFRGBAImageOK(tiff, reason)) {
        result = tolva_corrupt(job, "TIFF", source.message[0] != '\0' ? source.message : reason);
    }
    if (result == TOLVA_IMAGE_OK) {
        result = tolva_allocate_image(job->image, width, height, 32, job->error, job->errorSize);
    }
    if (result == TOLVA_IMAGE_OK) {
        /* Bottom-left first is the order the picture keeps its rows in. */
        if (TIFFReadRGBAImageOriented(tiff, width, height, (uint32_t *)(void *)job->image->pixels,
                                      ORIENTATION_BOTLEFT, 1)) {
            unpack_pixels(job->image);
        } else {
            result = tolva_corrupt(job, "TIFF", source.message);
        }
    }
    TIFFClose(tiff);
    return result;
}

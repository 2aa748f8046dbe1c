/*
 * decode_png.c - PNG through libpng. Palette pictures keep their palette and
 * indices (1, 2 and 4-bit ones unpacked to a byte per pixel) and take the
 * opacity of each entry from tRNS; grey becomes RGB; any alpha or tRNS
 * colour becomes an alpha channel.
 */
#include <png.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "decode.h"

typedef struct PngReader {
    TolvaDecodeJob *job;
    size_t position;
    char message[200];
} PngReader;

static void read_memory(png_structp png, png_bytep out, size_t count)
{
    PngReader *reader = (PngReader *)png_get_io_ptr(png);
    if (count > reader->job->size - reader->position) {
        png_error(png, "the file ends early");
    }
    memcpy(out, reader->job->data + reader->position, count);
    reader->position += count;
}

static void on_error(png_structp png, png_const_charp message)
{
    PngReader *reader = (PngReader *)png_get_error_ptr(png);
    snprintf(reader->message, sizeof reader->message, "%s", message);
    png_longjmp(png, 1);
}

static void on_warning(png_structp png, png_const_charp message)
{
    (void)png;
    (void)message;
}

/* Sets up libpng's transformations; returns the depth the rows will have. */
static int16_t choose_depth(png_structp png, png_infop info)
{
    int colourType = png_get_color_type(png, info);
    int depth = png_get_bit_depth(png, info);
    if (colourType == PNG_COLOR_TYPE_PALETTE) {
        if (depth < 8) {
            png_set_packing(png);
        }
        return 8;
    }
    if (depth == 16) {
        png_set_scale_16(png); /* rounds, where strip_16 would truncate */
    }
    if (colourType == PNG_COLOR_TYPE_GRAY && depth < 8) {
        png_set_expand_gray_1_2_4_to_8(png);
    }
    int alpha = (colourType & PNG_COLOR_MASK_ALPHA) != 0;
    if (png_get_valid(png, info, PNG_INFO_tRNS)) {
        png_set_tRNS_to_alpha(png);
        alpha = 1;
    }
    if ((colourType & PNG_COLOR_MASK_COLOR) == 0) {
        png_set_gray_to_rgb(png);
    }
    return alpha ? 32 : 24;
}

static void take_palette(png_structp png, png_infop info, TolvaImage *image)
{
    png_colorp palette = NULL;
    int count = 0;
    if (!png_get_PLTE(png, info, &palette, &count) || count < 1 || count > 256) {
        png_error(png, "palette missing");
    }
    for (int i = 0; i < count; ++i) {
        image->palette[3 * i] = palette[i].red;
        image->palette[3 * i + 1] = palette[i].green;
        image->palette[3 * i + 2] = palette[i].blue;
    }
    image->colours = count;
    png_bytep opacity = NULL;
    int opacityCount = 0;
    if (png_get_tRNS(png, info, &opacity, &opacityCount, NULL) && opacity != NULL) {
        for (int i = 0; i < opacityCount && i < 256; ++i) {
            image->alpha[i] = opacity[i];
        }
    }
}

static void take_orientation(png_structp png, png_infop info, TolvaImage *image)
{
    png_uint_32 length = 0;
    png_bytep exif = NULL;
    if (png_get_eXIf_1(png, info, &length, &exif) && exif != NULL) {
        image->orientation = tolva_exif_orientation(exif, length);
    }
}

/* The rows and interlace passes of the picture being read, for its
 * progress: libpng reports each row of each pass. */
static uint64_t gRows = 1;
static int gPasses = 1;

static void on_row(png_structp png, png_uint_32 row, int pass)
{
    (void)png;
    tolva_reading_progress((uint64_t)pass * gRows + row, (uint64_t)gPasses * gRows);
}

TolvaImageResult tolva_decode_png(TolvaDecodeJob *job)
{
    PngReader reader = {job, 0, ""};
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &reader, on_error, on_warning);
    png_infop info = png ? png_create_info_struct(png) : NULL;
    if (info == NULL) {
        png_destroy_read_struct(&png, NULL, NULL);
        snprintf(job->error, job->errorSize, "not enough memory to read the PNG file");
        return TOLVA_IMAGE_NO_MEMORY;
    }
    TolvaImage *image = job->image;
    /* Changed between setjmp and a possible longjmp. */
    png_bytep *volatile rows = NULL;
    if (setjmp(png_jmpbuf(png))) {
        free(rows);
        png_destroy_read_struct(&png, &info, NULL);
        return tolva_corrupt(job, "PNG", reader.message);
    }
    png_set_read_fn(png, &reader, read_memory);
    png_read_info(png, info);
    TolvaImageResult result =
        tolva_check_size(job, png_get_image_width(png, info), png_get_image_height(png, info));
    if (result != TOLVA_IMAGE_OK) {
        png_destroy_read_struct(&png, &info, NULL);
        return result;
    }
    int16_t bits = choose_depth(png, info);
    gPasses = png_set_interlace_handling(png);
    png_set_read_status_fn(png, on_row);
    png_read_update_info(png, info);
    result =
        tolva_allocate_image(image, png_get_image_width(png, info), png_get_image_height(png, info),
                             bits, job->error, job->errorSize);
    if (result != TOLVA_IMAGE_OK) {
        png_destroy_read_struct(&png, &info, NULL);
        return result;
    }
    if (png_get_rowbytes(png, info) > image->stride) {
        png_error(png, "unexpected row size");
    }
    if (bits == 8) {
        take_palette(png, info, image);
    }
    rows = (png_bytep *)malloc(sizeof(png_bytep) * (size_t)image->height);
    if (rows == NULL) {
        png_error(png, "out of memory");
    }
    for (int32_t y = 0; y < image->height; ++y) {
        rows[y] = tolva_image_row(image, y);
    }
    gRows = (uint64_t)image->height;
    png_read_image(png, rows);
    png_read_end(png, info); /* eXIf may follow the pixels */
    take_orientation(png, info, image);
    free(rows);
    png_destroy_read_struct(&png, &info, NULL);
    return TOLVA_IMAGE_OK;
}

/*
 * image.c - reads the pictures the command accepts: PNG through libpng, JPEG
 * and binary netpbm (PGM, PPM) through stb_image.
 *
 * Palette PNGs keep their palette and become 8-bit indices (1, 2 and 4-bit
 * ones are unpacked to a byte per pixel); everything else becomes RGB, or RGB
 * with alpha when the picture has transparency. Rows end up bottom row first,
 * padded to 4 bytes, because that is how the filter's cell arrays and its
 * bitmaps run: keep every writer of `pixels` going through row_address().
 */
#include "image.h"

#include <errno.h>
#include <limits.h>
#include <png.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <stb/stb_image.h>

static uint8_t *row_address(const TolvaImage *image, int32_t rowFromTop)
{
    return image->pixels + (size_t)image->stride * (size_t)(image->height - 1 - rowFromTop);
}

/* Checks the size and allocates the rows; the caller fills them. */
static TolvaImageResult allocate_image(TolvaImage *image, uint32_t width, uint32_t height,
                                       int16_t bits, char *error, size_t errorSize)
{
    if (width == 0 || height == 0) {
        snprintf(error, errorSize, "the picture is empty");
        return TOLVA_IMAGE_CORRUPT;
    }
    if (width > TOLVA_IMAGE_MAX_SIDE || height > TOLVA_IMAGE_MAX_SIDE) {
        snprintf(error, errorSize,
                 "the picture is %ux%u pixels; a GIF holds at most %d pixels a side",
                 (unsigned)width, (unsigned)height, TOLVA_IMAGE_MAX_SIDE);
        return TOLVA_IMAGE_TOO_LARGE;
    }
    uint32_t stride = ((width * (uint32_t)bits + 7u) / 8u + 3u) & ~3u;
    uint64_t bytes = (uint64_t)stride * height;
    /* The filter sizes its bitmaps in 32-bit byte counts. */
    if (bytes > UINT32_MAX) {
        snprintf(error, errorSize, "the picture is %ux%u pixels, more than the filter can hold",
                 (unsigned)width, (unsigned)height);
        return TOLVA_IMAGE_TOO_LARGE;
    }
    image->pixels = (uint8_t *)calloc(1, (size_t)bytes);
    if (image->pixels == NULL) {
        snprintf(error, errorSize, "not enough memory for a %ux%u picture", (unsigned)width,
                 (unsigned)height);
        return TOLVA_IMAGE_NO_MEMORY;
    }
    image->width = (int32_t)width;
    image->height = (int32_t)height;
    image->bits = bits;
    image->stride = stride;
    return TOLVA_IMAGE_OK;
}

void tolva_free_image(TolvaImage *image)
{
    free(image->pixels);
    memset(image, 0, sizeof *image);
}

/* ---------------------------------------------------------------- PNG -- */

typedef struct PngReader {
    const uint8_t *data;
    size_t size;
    size_t position;
    char *error;
    size_t errorSize;
} PngReader;

static void png_read_memory(png_structp png, png_bytep out, size_t count)
{
    PngReader *reader = (PngReader *)png_get_io_ptr(png);
    if (count > reader->size - reader->position) {
        png_error(png, "the file ends early");
    }
    memcpy(out, reader->data + reader->position, count);
    reader->position += count;
}

static void png_on_error(png_structp png, png_const_charp message)
{
    PngReader *reader = (PngReader *)png_get_error_ptr(png);
    snprintf(reader->error, reader->errorSize, "corrupt PNG file (%s)", message);
    png_longjmp(png, 1);
}

static void png_on_warning(png_structp png, png_const_charp message)
{
    (void)png;
    (void)message;
}

/* Sets up libpng's transformations; returns the depth the rows will have. */
static int16_t png_choose_depth(png_structp png, png_infop info)
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
        png_set_strip_16(png);
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

static TolvaImageResult decode_png(const uint8_t *data, size_t size, TolvaImage *image,
                                   char *error, size_t errorSize)
{
    PngReader reader = {data, size, 0, error, errorSize};
    png_structp png =
        png_create_read_struct(PNG_LIBPNG_VER_STRING, &reader, png_on_error, png_on_warning);
    png_infop info = png ? png_create_info_struct(png) : NULL;
    if (info == NULL) {
        png_destroy_read_struct(&png, NULL, NULL);
        snprintf(error, errorSize, "not enough memory to read the PNG file");
        return TOLVA_IMAGE_NO_MEMORY;
    }
    /* Both are changed between setjmp and a possible longjmp. */
    png_bytep *volatile rows = NULL;
    volatile TolvaImageResult result = TOLVA_IMAGE_CORRUPT;
    if (setjmp(png_jmpbuf(png))) {
        free(rows);
        tolva_free_image(image);
        png_destroy_read_struct(&png, &info, NULL);
        return result;
    }
    png_set_read_fn(png, &reader, png_read_memory);
    png_read_info(png, info);
    int16_t bits = png_choose_depth(png, info);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);

    result = allocate_image(image, png_get_image_width(png, info),
                            png_get_image_height(png, info), bits, error, errorSize);
    if (result != TOLVA_IMAGE_OK) {
        png_destroy_read_struct(&png, &info, NULL);
        return result;
    }
    result = TOLVA_IMAGE_CORRUPT;
    if (png_get_rowbytes(png, info) > image->stride) {
        png_error(png, "unexpected row size");
    }
    if (bits == 8) {
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
    }
    rows = (png_bytep *)malloc(sizeof(png_bytep) * (size_t)image->height);
    if (rows == NULL) {
        snprintf(error, errorSize, "not enough memory to read the PNG file");
        result = TOLVA_IMAGE_NO_MEMORY;
        png_longjmp(png, 1);
    }
    for (int32_t y = 0; y < image->height; ++y) {
        rows[y] = row_address(image, y);
    }
    png_read_image(png, rows);
    free(rows);
    png_destroy_read_struct(&png, &info, NULL);
    return TOLVA_IMAGE_OK;
}

/* ------------------------------------------------------ JPEG and netpbm -- */

static TolvaImageResult decode_stb(const uint8_t *data, size_t size, const char *format,
                                   TolvaImage *image, char *error, size_t errorSize)
{
    if (size > INT_MAX) {
        snprintf(error, errorSize, "the %s file is too large", format);
        return TOLVA_IMAGE_TOO_LARGE;
    }
    int width = 0, height = 0, channels = 0;
    if (!stbi_info_from_memory(data, (int)size, &width, &height, &channels)) {
        snprintf(error, errorSize, "corrupt %s file (%s)", format, stbi_failure_reason());
        return TOLVA_IMAGE_CORRUPT;
    }
    int16_t bits = (channels == 2 || channels == 4) ? 32 : 24;
    TolvaImageResult result =
        allocate_image(image, (uint32_t)width, (uint32_t)height, bits, error, errorSize);
    if (result != TOLVA_IMAGE_OK) {
        return result;
    }
    int wanted = bits / 8;
    stbi_uc *decoded = stbi_load_from_memory(data, (int)size, &width, &height, &channels, wanted);
    if (decoded == NULL || width != image->width || height != image->height) {
        snprintf(error, errorSize, "corrupt %s file (%s)", format,
                 decoded ? "size changed" : stbi_failure_reason());
        stbi_image_free(decoded);
        tolva_free_image(image);
        return TOLVA_IMAGE_CORRUPT;
    }
    size_t rowBytes = (size_t)width * (size_t)wanted;
    for (int32_t y = 0; y < image->height; ++y) {
        memcpy(row_address(image, y), decoded + rowBytes * (size_t)y, rowBytes);
    }
    stbi_image_free(decoded);
    return TOLVA_IMAGE_OK;
}

TolvaImageResult tolva_decode_image(const uint8_t *data, size_t size, TolvaImage *image,
                                    char *error, size_t errorSize)
{
    static const uint8_t kPng[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    memset(image, 0, sizeof *image);
    error[0] = '\0';
    if (size >= 8 && memcmp(data, kPng, 8) == 0) {
        return decode_png(data, size, image, error, errorSize);
    }
    if (size >= 3 && data[0] == 0xff && data[1] == 0xd8 && data[2] == 0xff) {
        return decode_stb(data, size, "JPEG", image, error, errorSize);
    }
    if (size >= 2 && data[0] == 'P' && (data[1] == '5' || data[1] == '6')) {
        return decode_stb(data, size, data[1] == '5' ? "PGM" : "PPM", image, error, errorSize);
    }
    snprintf(error, errorSize, "not a picture the command reads (PNG, JPEG, PGM or PPM)");
    return TOLVA_IMAGE_UNSUPPORTED;
}

int tolva_read_file(const char *path, uint8_t **data, size_t *size)
{
    *data = NULL;
    *size = 0;
    int fromStdin = strcmp(path, "-") == 0;
    FILE *file = fromStdin ? stdin : fopen(path, "rb");
    if (file == NULL) {
        return errno;
    }
    size_t capacity = 0, used = 0;
    uint8_t *buffer = NULL;
    int failure = 0;
    for (;;) {
        if (used == capacity) {
            size_t grown = capacity ? capacity * 2 : 65536;
            uint8_t *bigger = (uint8_t *)realloc(buffer, grown);
            if (bigger == NULL) {
                failure = ENOMEM;
                break;
            }
            buffer = bigger;
            capacity = grown;
        }
        size_t got = fread(buffer + used, 1, capacity - used, file);
        used += got;
        if (got == 0) {
            if (ferror(file)) {
                failure = errno ? errno : EIO;
            }
            break;
        }
    }
    if (!fromStdin) {
        fclose(file);
    }
    if (failure != 0) {
        free(buffer);
        return failure;
    }
    *data = buffer;
    *size = used;
    return 0;
}

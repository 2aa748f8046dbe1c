/*
 * resample.c - --smooth through pixman's separable convolution filters.
 *
 * pixman works on premultiplied 0xAARRGGBB words, so the picture goes in and
 * comes out through that form; a transparent pixel's hidden colour then
 * cannot bleed into its neighbours. Rows stay in the picture's bottom-up
 * order on both sides: scaling does not care which way up it runs.
 */
#include "resample.h"

#include <pixman.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static uint8_t premultiply(uint8_t colour, uint8_t alpha)
{
    return (uint8_t)((colour * alpha + 127) / 255);
}

/* The picture as premultiplied words; sets *alpha when any pixel is not
 * opaque. */
static uint32_t *to_words(const TolvaImage *image, int *alpha)
{
    size_t count = (size_t)image->width * (size_t)image->height;
    uint32_t *words = malloc(count * sizeof *words);
    if (words == NULL) {
        return NULL;
    }
    *alpha = 0;
    for (int32_t y = 0; y < image->height; ++y) {
        const uint8_t *row = image->pixels + (size_t)image->stride * (size_t)y;
        uint32_t *out = words + (size_t)y * (size_t)image->width;
        for (int32_t x = 0; x < image->width; ++x) {
            const uint8_t *rgb;
            uint8_t a = 255;
            if (image->bits == 8) {
                rgb = image->palette + 3 * row[x];
                a = image->alpha[row[x]];
            } else if (image->bits == 24) {
                rgb = row + 3 * x;
            } else {
                rgb = row + 4 * x;
                a = row[4 * x + 3];
            }
            *alpha |= a != 255;
            out[x] = (uint32_t)a << 24 | (uint32_t)premultiply(rgb[0], a) << 16 |
                     (uint32_t)premultiply(rgb[1], a) << 8 | premultiply(rgb[2], a);
        }
    }
    return words;
}

static uint8_t unpremultiply(uint32_t colour, uint32_t alpha)
{
    if (alpha == 0) {
        return 0;
    }
    uint32_t value = (colour * 255 + alpha / 2) / alpha;
    return (uint8_t)(value > 255 ? 255 : value);
}

/* A filter for each direction: the box of source pixels that falls on a
 * destination pixel when shrinking, straight lines between pixels when
 * enlarging. */
static int set_filter(pixman_image_t *source, double scaleX, double scaleY)
{
    int count = 0;
    pixman_fixed_t *parameters = pixman_filter_create_separable_convolution(
        &count, pixman_double_to_fixed(scaleX > 1.0 ? scaleX : 1.0),
        pixman_double_to_fixed(scaleY > 1.0 ? scaleY : 1.0),
        scaleX > 1.0 ? PIXMAN_KERNEL_IMPULSE : PIXMAN_KERNEL_LINEAR,
        scaleY > 1.0 ? PIXMAN_KERNEL_IMPULSE : PIXMAN_KERNEL_LINEAR,
        scaleX > 1.0 ? PIXMAN_KERNEL_BOX : PIXMAN_KERNEL_IMPULSE,
        scaleY > 1.0 ? PIXMAN_KERNEL_BOX : PIXMAN_KERNEL_IMPULSE, 4, 4);
    if (parameters == NULL) {
        return -1;
    }
    pixman_bool_t ok =
        pixman_image_set_filter(source, PIXMAN_FILTER_SEPARABLE_CONVOLUTION, parameters, count);
    free(parameters);
    return ok ? 0 : -1;
}

static int fail(char *error, size_t size, const char *what)
{
    snprintf(error, size, "cannot resample the picture (%s)", what);
    return -1;
}

int tolva_resample(TolvaImage *image, int32_t width, int32_t height, char *error, size_t errorSize)
{
    int alpha = 0;
    uint32_t *from = to_words(image, &alpha);
    uint32_t *to = calloc((size_t)width * (size_t)height, sizeof *to);
    int16_t bits = alpha ? 32 : 24;
    uint32_t stride = (((uint32_t)width * (uint32_t)bits / 8u) + 3u) & ~3u;
    uint8_t *pixels = malloc((size_t)stride * (size_t)height);
    if (from == NULL || to == NULL || pixels == NULL) {
        free(from);
        free(to);
        free(pixels);
        return fail(error, errorSize, "out of memory");
    }
    pixman_image_t *source = pixman_image_create_bits(PIXMAN_a8r8g8b8, image->width, image->height,
                                                      from, image->width * 4);
    pixman_image_t *target =
        pixman_image_create_bits(PIXMAN_a8r8g8b8, width, height, to, width * 4);
    double scaleX = (double)image->width / width, scaleY = (double)image->height / height;
    pixman_transform_t transform;
    pixman_transform_init_scale(&transform, pixman_double_to_fixed(scaleX),
                                pixman_double_to_fixed(scaleY));
    int failed = source == NULL || target == NULL ||
                 !pixman_image_set_transform(source, &transform) ||
                 set_filter(source, scaleX, scaleY) != 0;
    if (!failed) {
        /* The edge pixels stand in for what lies beyond them. */
        pixman_image_set_repeat(source, PIXMAN_REPEAT_PAD);
        pixman_image_composite32(PIXMAN_OP_SRC, source, NULL, target, 0, 0, 0, 0, 0, 0, width,
                                 height);
    }
    if (source != NULL) pixman_image_unref(source);
    if (target != NULL) pixman_image_unref(target);
    free(from);
    if (failed) {
        free(to);
        free(pixels);
        return fail(error, errorSize, "pixman refused the scale");
    }
    for (int32_t y = 0; y < height; ++y) {
        uint8_t *row = pixels + (size_t)stride * (size_t)y;
        memset(row, 0, stride);
        for (int32_t x = 0; x < width; ++x) {
            uint32_t word = to[(size_t)y * (size_t)width + (size_t)x], a = word >> 24;
            uint8_t *p = row + (size_t)x * (size_t)(bits / 8);
            p[0] = unpremultiply((word >> 16) & 0xff, a);
            p[1] = unpremultiply((word >> 8) & 0xff, a);
            p[2] = unpremultiply(word & 0xff, a);
            if (alpha) {
                p[3] = (uint8_t)a;
            }
        }
    }
    free(to);
    free(image->pixels);
    image->pixels = pixels;
    image->width = width;
    image->height = height;
    image->bits = bits;
    image->stride = stride;
    image->colours = 0;
    memset(image->palette, 0, sizeof image->palette);
    memset(image->alpha, 255, sizeof image->alpha);
    return 0;
}

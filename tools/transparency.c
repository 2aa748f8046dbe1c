/*
 * transparency.c - flattening alpha for the filter, and checking the GIF.
 */
#include "transparency.h"

#include <gif_lib.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static uint8_t blend(uint8_t colour, uint8_t alpha, uint8_t matte)
{
    return (uint8_t)(((unsigned)colour * alpha + (unsigned)matte * (255u - alpha) + 127u) / 255u);
}

static TolvaImageResult make_mask(const TolvaImage *image, TolvaTransparency *t, char *error,
                                  size_t errorSize)
{
    tolva_free_image(&t->mask);
    TolvaImageResult result = tolva_allocate_image(&t->mask, (uint32_t)image->width,
                                                   (uint32_t)image->height, 8, error, errorSize);
    /* Black opaque, white transparent: only the indices matter. */
    t->mask.colours = 2;
    memset(t->mask.palette + 3, 255, 3);
    return result;
}

/* ------------------------------------------------------------ palette -- */

static int colour_in_palette(const TolvaImage *image, const uint8_t rgb[3], int32_t except)
{
    for (int32_t i = 0; i < image->colours; ++i) {
        if (i != except && memcmp(image->palette + 3 * i, rgb, 3) == 0) {
            return 1;
        }
    }
    return 0;
}

static TolvaImageResult flatten_palette(TolvaImage *image, const uint8_t matte[3],
                                        TolvaTransparency *t, char *error, size_t errorSize)
{
    int32_t entry = -1;
    for (int32_t i = 0; i < image->colours; ++i) {
        if (image->alpha[i] == 0 && entry < 0) {
            entry = i;
        } else if (image->alpha[i] != 0 && image->alpha[i] != 255) {
            for (int c = 0; c < 3; ++c) {
                image->palette[3 * i + c] =
                    blend(image->palette[3 * i + c], image->alpha[i], matte[c]);
            }
        }
    }
    int used = 0;
    if (entry >= 0) {
        TolvaImageResult result = make_mask(image, t, error, errorSize);
        if (result != TOLVA_IMAGE_OK) {
            return result;
        }
        /* Every transparent entry's pixels move to the first such entry: the
         * filter marks one entry only. */
        for (int32_t y = 0; y < image->height; ++y) {
            uint8_t *row = image->pixels + (size_t)image->stride * (size_t)y;
            uint8_t *mask = t->mask.pixels + (size_t)t->mask.stride * (size_t)y;
            for (int32_t x = 0; x < image->width; ++x) {
                if (image->alpha[row[x]] == 0) {
                    row[x] = (uint8_t)entry;
                    mask[x] = 1;
                    used = 1;
                }
            }
        }
    }
    if (used) {
        /* The nearest-entry search finds the key exactly when no other entry
         * holds it; otherwise try colours until one is free. */
        uint8_t key[3];
        memcpy(key, image->palette + 3 * entry, 3);
        for (uint32_t n = 0; colour_in_palette(image, key, entry) && n < 1u << 24; ++n) {
            key[0] = (uint8_t)(255 - (n & 0xff));
            key[1] = (uint8_t)(n >> 8 & 0xff);
            key[2] = (uint8_t)(255 - (n >> 16 & 0xff));
        }
        memcpy(image->palette + 3 * entry, key, 3);
        memcpy(t->key, key, 3);
        t->active = 1;
    } else {
        tolva_free_image(&t->mask);
    }
    memset(image->alpha, 255, sizeof image->alpha);
    return TOLVA_IMAGE_OK;
}

/* ---------------------------------------------------------------- RGBA -- */

/* Colours are compared at 5 bits a channel: 32768 cells, one bit each. */
#define CELL(r, g, b) \
    (((uint32_t)(r) >> 3) << 10 | ((uint32_t)(g) >> 3) << 5 | ((uint32_t)(b) >> 3))

/*
 * The key is the colourful candidate farthest from every opaque colour, so
 * that median cut gives it a box of its own. Candidates are never grey: the
 * filter's nearest-entry search keeps grey and colourful entries apart.
 */
static void choose_key(const uint8_t *used, uint8_t key[3])
{
    static const uint8_t kLevels[4] = {0, 85, 170, 255};
    uint32_t best = 0;
    memcpy(key, "\xff\x00\xff", 3);
    for (int i = 0; i < 64; ++i) {
        uint8_t candidate[3] = {kLevels[i >> 4], kLevels[i >> 2 & 3], kLevels[i & 3]};
        if (candidate[0] == candidate[1] && candidate[1] == candidate[2]) {
            continue;
        }
        uint32_t nearest = UINT32_MAX;
        int32_t cr = candidate[0] >> 3, cg = candidate[1] >> 3, cb = candidate[2] >> 3;
        for (uint32_t word = 0; word < 32768 / 32 && nearest > 0; ++word) {
            uint32_t bits = (uint32_t)used[4 * word] | (uint32_t)used[4 * word + 1] << 8 |
                            (uint32_t)used[4 * word + 2] << 16 | (uint32_t)used[4 * word + 3] << 24;
            for (; bits != 0; bits &= bits - 1) {
                uint32_t cell = word * 32 + (uint32_t)__builtin_ctz(bits);
                int32_t dr = (int32_t)(cell >> 10) - cr, dg = (int32_t)(cell >> 5 & 31) - cg,
                        db = (int32_t)(cell & 31) - cb;
                uint32_t d = (uint32_t)(dr * dr + dg * dg + db * db);
                if (d < nearest) {
                    nearest = d;
                }
            }
        }
        if (nearest > best) {
            best = nearest;
            memcpy(key, candidate, 3);
        }
    }
}

static TolvaImageResult flatten_rgba(TolvaImage *image, const uint8_t matte[3],
                                     TolvaTransparency *t, char *error, size_t errorSize)
{
    uint8_t *used = (uint8_t *)calloc(32768 / 8, 1);
    if (used == NULL) {
        return TOLVA_IMAGE_NO_MEMORY;
    }
    int transparent = 0;
    for (int32_t y = 0; y < image->height; ++y) {
        const uint8_t *p = image->pixels + (size_t)image->stride * (size_t)y;
        for (int32_t x = 0; x < image->width; ++x, p += 4) {
            if (p[3] == 0) {
                transparent = 1;
                continue;
            }
            uint32_t cell = CELL(blend(p[0], p[3], matte[0]), blend(p[1], p[3], matte[1]),
                                 blend(p[2], p[3], matte[2]));
            used[cell >> 3] |= (uint8_t)(1u << (cell & 7));
        }
    }
    if (transparent) {
        choose_key(used, t->key);
        TolvaImageResult result = make_mask(image, t, error, errorSize);
        if (result != TOLVA_IMAGE_OK) {
            free(used);
            return result;
        }
        t->active = 1;
    }
    free(used);
    /* RGB rows are never longer than RGBA ones, and each pixel is read
     * before it is overwritten, so the rows shrink in place. */
    uint32_t stride = ((uint32_t)image->width * 3u + 3u) & ~3u;
    for (int32_t y = 0; y < image->height; ++y) {
        const uint8_t *in = image->pixels + (size_t)image->stride * (size_t)y;
        uint8_t *out = image->pixels + (size_t)stride * (size_t)y;
        uint8_t *mask = t->active ? t->mask.pixels + (size_t)t->mask.stride * (size_t)y : NULL;
        for (int32_t x = 0; x < image->width; ++x, in += 4, out += 3) {
            uint8_t r = in[0], g = in[1], b = in[2], a = in[3];
            if (a == 0) {
                memcpy(out, t->key, 3);
                mask[x] = 1;
            } else {
                out[0] = blend(r, a, matte[0]);
                out[1] = blend(g, a, matte[1]);
                out[2] = blend(b, a, matte[2]);
            }
        }
        memset(out, 0, stride - (uint32_t)image->width * 3u);
    }
    image->stride = stride;
    image->bits = 24;
    uint8_t *smaller = (uint8_t *)realloc(image->pixels, (size_t)stride * (size_t)image->height);
    if (smaller != NULL) {
        image->pixels = smaller;
    }
    return TOLVA_IMAGE_OK;
}

TolvaImageResult tolva_flatten(TolvaImage *image, const uint8_t matte[3], TolvaTransparency *t,
                               char *error, size_t errorSize)
{
    memset(t, 0, sizeof *t);
    tolva_free_image(&t->mask);
    TolvaImageResult result = TOLVA_IMAGE_OK;
    if (image->bits == 8) {
        result = flatten_palette(image, matte, t, error, errorSize);
    } else if (image->bits == 32) {
        result = flatten_rgba(image, matte, t, error, errorSize);
    }
    if (result == TOLVA_IMAGE_NO_MEMORY && error[0] == '\0') {
        snprintf(error, errorSize, "not enough memory for the picture's transparency");
    }
    return result;
}

void tolva_fill_transparent(TolvaImage *image, const TolvaTransparency *t, const uint8_t matte[3])
{
    if (!t->active) {
        return;
    }
    if (image->bits == 8) {
        for (int32_t i = 0; i < image->colours; ++i) {
            if (memcmp(image->palette + 3 * i, t->key, 3) == 0) {
                memcpy(image->palette + 3 * i, matte, 3);
            }
        }
        return;
    }
    for (int32_t y = 0; y < image->height; ++y) {
        uint8_t *row = image->pixels + (size_t)image->stride * (size_t)y;
        const uint8_t *mask = t->mask.pixels + (size_t)t->mask.stride * (size_t)y;
        for (int32_t x = 0; x < image->width; ++x) {
            if (mask[x]) {
                memcpy(row + 3 * x, matte, 3);
            }
        }
    }
}

/* ------------------------------------------------------------ the check -- */

typedef struct GifBytes {
    const uint8_t *data;
    size_t size, position;
} GifBytes;

static int read_bytes(GifFileType *gif, GifByteType *out, int count)
{
    GifBytes *in = (GifBytes *)gif->UserData;
    size_t n = count < 0 ? 0 : (size_t)count;
    if (n > in->size - in->position) {
        n = in->size - in->position;
    }
    memcpy(out, in->data + in->position, n);
    in->position += n;
    return (int)n;
}

static GifFileType *open_gif(GifBytes *bytes)
{
    int error = 0;
    GifFileType *gif = DGifOpen(bytes, read_bytes, &error);
    if (gif != NULL && (DGifSlurp(gif) != GIF_OK || gif->ImageCount < 1)) {
        DGifCloseFile(gif, &error);
        gif = NULL;
    }
    return gif;
}

int tolva_transparency_holds(const uint8_t *picture, size_t pictureSize, const uint8_t *mask,
                             size_t maskSize)
{
    GifBytes a = {picture, pictureSize, 0}, b = {mask, maskSize, 0};
    GifFileType *shown = open_gif(&a);
    GifFileType *holes = shown != NULL ? open_gif(&b) : NULL;
    int holds = 0;
    GraphicsControlBlock control;
    if (holes != NULL && shown->SWidth == holes->SWidth && shown->SHeight == holes->SHeight &&
        DGifSavedExtensionToGCB(shown, 0, &control) == GIF_OK && control.TransparentColor >= 0) {
        const GifByteType *p = shown->SavedImages[0].RasterBits;
        const GifByteType *m = holes->SavedImages[0].RasterBits;
        size_t count = (size_t)shown->SWidth * (size_t)shown->SHeight;
        holds = 1;
        for (size_t i = 0; i < count && holds; ++i) {
            holds = (p[i] == control.TransparentColor) == (m[i] == 1);
        }
    }
    int error = 0;
    if (holes != NULL) {
        DGifCloseFile(holes, &error);
    }
    if (shown != NULL) {
        DGifCloseFile(shown, &error);
    }
    return holds;
}

void tolva_free_transparency(TolvaTransparency *t)
{
    tolva_free_image(&t->mask);
    t->active = 0;
}

/*
 * transparency.h - pictures with alpha made ready for a filter that keeps one
 * transparent colour.
 *
 * Fully transparent pixels all get one key colour, chosen far from every
 * opaque colour; partly transparent ones are blended over the matte. The
 * filter is then asked to make the key transparent. Whether that held (the
 * colour reduction may merge the key with opaque colours) is checked on the
 * written GIF against the mask of transparent pixels, exported through the
 * same scaling.
 */
#ifndef TOLVA_TOOLS_TRANSPARENCY_H
#define TOLVA_TOOLS_TRANSPARENCY_H

#include <stddef.h>
#include <stdint.h>

#include "image.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct TolvaTransparency {
    int32_t active;  /* the picture has fully transparent pixels */
    uint8_t key[3];  /* the colour they carry now */
    TolvaImage mask; /* 2-entry palette picture: index 1 where transparent */
} TolvaTransparency;

/*
 * Leaves `image` as RGB or palette indices with every entry opaque, and fills
 * `t` (its mask is empty unless t->active). Returns TOLVA_IMAGE_OK or
 * TOLVA_IMAGE_NO_MEMORY with `error`.
 */
TolvaImageResult tolva_flatten(TolvaImage *image, const uint8_t matte[3], TolvaTransparency *t,
                               char *error, size_t errorSize);

/* Gives the transparent pixels the matte colour instead of the key, for a
 * picture written without transparency. */
void tolva_fill_transparent(TolvaImage *image, const TolvaTransparency *t, const uint8_t matte[3]);

/*
 * 1 when the GIF `picture` (written with the key transparent) marks exactly
 * the pixels that the GIF `mask` (written from t->mask) shows as index 1.
 */
int tolva_transparency_holds(const uint8_t *picture, size_t pictureSize, const uint8_t *mask,
                             size_t maskSize);

void tolva_free_transparency(TolvaTransparency *t);

#ifdef __cplusplus
}
#endif

#endif

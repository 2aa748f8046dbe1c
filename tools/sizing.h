/*
 * sizing.h - the settings that make the filter produce a given pixel size.
 *
 * The filter sizes a picture in inches and dots per inch, not in pixels.
 * When the host hands it the picture with a resolution R (the viewport
 * scaling unit) and the settings say "the picture's own size" and "the
 * profile's X and Y resolutions", a picture of w x h pixels becomes
 * trunc(w / R * X) by trunc(h / R * Y) pixels. Choosing R, X and Y is all it
 * takes to ask for an exact width and height.
 */
#ifndef TOLVA_TOOLS_SIZING_H
#define TOLVA_TOOLS_SIZING_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The largest side a GIF can describe: its sizes are 16-bit fields. */
#define TOLVA_MAX_GIF_SIDE 65535

typedef struct TolvaPixelScale {
    int32_t resolution;   /* R: dots per inch the picture is handed over with */
    int32_t xResolution;  /* X and Y: the profile's resolutions, 32..400 */
    int32_t yResolution;
} TolvaPixelScale;

/*
 * Finds R, X and Y that turn `width` x `height` pixels into exactly
 * `wantWidth` x `wantHeight` (the filter then makes an odd height even).
 * Returns 0, or -1 when no such settings exist: a picture enlarged more than
 * 400 times, shrunk to less than a thousandth, or stretched one way more than
 * about 12 times the other (X / Y lies within 32 / 400 and 400 / 32).
 */
int tolva_pixel_scale(int32_t width, int32_t height, int32_t wantWidth, int32_t wantHeight,
                      TolvaPixelScale *scale);

/* The pixels the filter makes of `pixels` at resolution R and profile
 * resolution `dpi`, with the filter's own arithmetic. */
int64_t tolva_scaled_pixels(int32_t pixels, int32_t resolution, int32_t dpi);

/*
 * The other side when only one is given, keeping the picture's proportions
 * (rounded, at least 1): the height for `wantWidth`, or the width for
 * `wantHeight` when `wantWidth` is 0.
 */
int32_t tolva_proportional_side(int32_t width, int32_t height, int32_t wantWidth,
                                int32_t wantHeight);

#ifdef __cplusplus
}
#endif

#endif

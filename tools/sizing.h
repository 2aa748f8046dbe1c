/*
 * sizing.h - the settings that make the filter produce a given pixel size.
 *
 * The filter sizes a picture in inches and dots per inch, not in pixels.
 * Two of its roads can be steered to a pixel size:
 *
 * - The picture's own size: handed over with a resolution R (the viewport
 *   scaling unit), with size mode "given" and the profile's X and Y
 *   resolutions, a picture of w x h pixels becomes trunc(w / R * X) by
 *   trunc(h / R * Y). Both sides can be chosen, but X and Y are whole
 *   numbers of 32..400, so not every size is within reach.
 * - The fitted size: handed over without a resolution, the picture is fitted
 *   into a box of Width x Height inches at X dots per inch, keeping its
 *   proportions. One side can be made exact; the filter's rounding decides
 *   the other.
 *
 * Either way the filter then gives an odd height one more row.
 */
#ifndef TOLVA_TOOLS_SIZING_H
#define TOLVA_TOOLS_SIZING_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The largest side a GIF can describe: its sizes are 16-bit fields. */
#define TOLVA_MAX_GIF_SIDE 65535

enum { TOLVA_PLAN_OWN_SIZE = 1, TOLVA_PLAN_FITTED = 2 };

typedef struct TolvaPixelPlan {
    int32_t road;        /* TOLVA_PLAN_* */
    int32_t resolution;  /* R, for the picture's own size; 0 when fitted */
    int32_t xResolution; /* X and Y: the profile's resolutions, 32..400 */
    int32_t yResolution;
    double width; /* the box in inches, when fitted */
    double height;
    int32_t outWidth; /* what the filter makes (before evening the height) */
    int32_t outHeight;
} TolvaPixelPlan;

/*
 * Plans `wantWidth` x `wantHeight` pixels for a picture of `width` x
 * `height`. One of the two may be 0: that side keeps the picture's
 * proportions. Returns 0, or -1 when the filter cannot make the size (a
 * picture enlarged more than 400 times, shrunk to less than a thousandth,
 * or stretched one way far more than the other).
 */
int tolva_plan_pixels(int32_t width, int32_t height, int32_t wantWidth, int32_t wantHeight,
                      TolvaPixelPlan *plan);

/* The pixels the filter makes of `pixels` handed over at resolution R with
 * profile resolution `dpi`, with the filter's own arithmetic. */
int64_t tolva_scaled_pixels(int32_t pixels, int32_t resolution, int32_t dpi);

/* The other side when only one is given, keeping the picture's proportions
 * (rounded, at least 1): the height for `wantWidth`, or the width for
 * `wantHeight` when `wantWidth` is 0. */
int32_t tolva_proportional_side(int32_t width, int32_t height, int32_t wantWidth,
                                int32_t wantHeight);

#ifdef __cplusplus
}
#endif

#endif

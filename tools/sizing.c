/*
 * sizing.c - searches the resolutions that give an exact pixel size.
 *
 * The profile resolutions X and Y must lie within 32..400 and the handed-over
 * resolution R is a 16-bit value, so for each R the one or two X that can
 * work are tried, checked with the same double arithmetic the filter uses
 * (w / R first, then times X, then cut to whole pixels): an X that is exact
 * on paper can fall a hair short in floating point and lose a pixel.
 */
#include "sizing.h"

enum { kMinDpi = 32, kMaxDpi = 400, kMaxResolution = 32767 };

int64_t tolva_scaled_pixels(int32_t pixels, int32_t resolution, int32_t dpi)
{
    double inches = (double)pixels / (double)resolution;
    double scaled = inches * (double)(int16_t)dpi;
    if (!(scaled > 0.0)) {
        return 0;
    }
    return scaled >= 2147483646.0 ? 2147483646 : (int64_t)(uint32_t)scaled;
}

/* The profile resolution that makes `pixels` become `want` at R, or 0. */
static int32_t dpi_for(int32_t pixels, int32_t want, int32_t resolution)
{
    /* The smallest allowed X with pixels * X / R >= want, and the one
     * after it. */
    int64_t first = ((int64_t)want * resolution + pixels - 1) / pixels;
    if (first < kMinDpi) {
        first = kMinDpi;
    }
    for (int64_t dpi = first; dpi <= first + 1; ++dpi) {
        if (dpi >= kMinDpi && dpi <= kMaxDpi &&
            tolva_scaled_pixels(pixels, resolution, (int32_t)dpi) == want) {
            return (int32_t)dpi;
        }
    }
    return 0;
}

int tolva_pixel_scale(int32_t width, int32_t height, int32_t wantWidth, int32_t wantHeight,
                      TolvaPixelScale *scale)
{
    if (width < 1 || height < 1 || wantWidth < 1 || wantHeight < 1) {
        return -1;
    }
    for (int32_t r = 1; r <= kMaxResolution; ++r) {
        int32_t x = dpi_for(width, wantWidth, r);
        int32_t y = x != 0 ? dpi_for(height, wantHeight, r) : 0;
        if (y != 0) {
            scale->resolution = r;
            scale->xResolution = x;
            scale->yResolution = y;
            return 0;
        }
    }
    return -1;
}

int32_t tolva_proportional_side(int32_t width, int32_t height, int32_t wantWidth,
                                int32_t wantHeight)
{
    int64_t side = wantWidth > 0 ? ((int64_t)wantWidth * height * 2 + width) / (2 * (int64_t)width)
                                 : ((int64_t)wantHeight * width * 2 + height) / (2 * (int64_t)height);
    return side < 1 ? 1 : side > TOLVA_MAX_GIF_SIDE ? TOLVA_MAX_GIF_SIDE : (int32_t)side;
}

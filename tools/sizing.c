/*
 * sizing.c - searches the settings that give an exact pixel size.
 *
 * Every candidate is checked with the same double arithmetic the filter
 * uses, in the same order: a setting that is exact on paper can fall a hair
 * short in floating point and lose a pixel.
 */
#include "sizing.h"

#include <math.h>

enum { kMinDpi = 32, kMaxDpi = 400, kMaxResolution = 32767 };
static const double kMaxInches = 22.0;

static int64_t to_pixels(double value)
{
    if (!(value > 0.0)) {
        return 0;
    }
    return value >= 2147483646.0 ? 2147483646 : (int64_t)(uint32_t)value;
}

int64_t tolva_scaled_pixels(int32_t pixels, int32_t resolution, int32_t dpi)
{
    double inches = (double)pixels / (double)resolution;
    return to_pixels(inches * (double)(int16_t)dpi);
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
        if (dpi <= kMaxDpi && tolva_scaled_pixels(pixels, resolution, (int32_t)dpi) == want) {
            return (int32_t)dpi;
        }
    }
    return 0;
}

static int plan_own_size(int32_t width, int32_t height, int32_t wantWidth, int32_t wantHeight,
                         TolvaPixelPlan *plan)
{
    for (int32_t r = 1; r <= kMaxResolution; ++r) {
        int32_t x = dpi_for(width, wantWidth, r);
        int32_t y = x != 0 ? dpi_for(height, wantHeight, r) : 0;
        if (y != 0) {
            *plan = (TolvaPixelPlan){TOLVA_PLAN_OWN_SIZE, r, x, y, 0.0, 0.0, wantWidth, wantHeight};
            return 0;
        }
    }
    return -1;
}

/* The filter's fitting of a w x h picture into `boxWidth` x `boxHeight`
 * inches at `dpi`, and the pixels it then makes. */
static void fit(int32_t width, int32_t height, double boxWidth, double boxHeight, int32_t dpi,
                int64_t *outWidth, int64_t *outHeight)
{
    double d = (double)(int16_t)dpi;
    double w = trunc(d * boxWidth), h = trunc(d * boxHeight);
    double boxRatio = w / h, pictureRatio = (double)width / (double)height;
    if (pictureRatio < boxRatio) {
        w -= trunc(w - h * pictureRatio);
    } else if (pictureRatio > boxRatio) {
        h -= trunc(h - w / pictureRatio);
    }
    *outWidth = to_pixels(w / d * d);
    *outHeight = to_pixels(h / d * d);
}

/* One side exact through the fitted road: that side of the box is the
 * asked size, the other as long as the filter allows, so that the
 * proportions bind on the asked side. */
static int plan_fitted(int32_t width, int32_t height, int32_t wantWidth, int32_t wantHeight,
                       TolvaPixelPlan *plan)
{
    for (int32_t dpi = kMaxDpi; dpi >= kMinDpi; --dpi) {
        double side = ((wantWidth > 0 ? wantWidth : wantHeight) + 0.5) / dpi;
        if (side < 0.03125 || side > kMaxInches) {
            continue;
        }
        double boxWidth = wantWidth > 0 ? side : kMaxInches;
        double boxHeight = wantWidth > 0 ? kMaxInches : side;
        int64_t w = 0, h = 0;
        fit(width, height, boxWidth, boxHeight, dpi, &w, &h);
        if ((wantWidth > 0 ? w == wantWidth : h == wantHeight) && w >= 1 && h >= 1 &&
            w <= TOLVA_MAX_GIF_SIDE && h <= TOLVA_MAX_GIF_SIDE) {
            *plan = (TolvaPixelPlan){TOLVA_PLAN_FITTED, 0,         dpi,        dpi,
                                     boxWidth,          boxHeight, (int32_t)w, (int32_t)h};
            return 0;
        }
    }
    return -1;
}

int tolva_plan_pixels(int32_t width, int32_t height, int32_t wantWidth, int32_t wantHeight,
                      TolvaPixelPlan *plan)
{
    if (width < 1 || height < 1 || wantWidth < 0 || wantHeight < 0 ||
        (wantWidth == 0 && wantHeight == 0)) {
        return -1;
    }
    int32_t fullWidth =
        wantWidth > 0 ? wantWidth : tolva_proportional_side(width, height, 0, wantHeight);
    int32_t fullHeight =
        wantHeight > 0 ? wantHeight : tolva_proportional_side(width, height, wantWidth, 0);
    if (plan_own_size(width, height, fullWidth, fullHeight, plan) == 0) {
        return 0;
    }
    if (wantWidth > 0 && wantHeight > 0) {
        return -1;
    }
    return plan_fitted(width, height, wantWidth, wantHeight, plan);
}

int32_t tolva_proportional_side(int32_t width, int32_t height, int32_t wantWidth,
                                int32_t wantHeight)
{
    int64_t side = wantWidth > 0
                       ? ((int64_t)wantWidth * height * 2 + width) / (2 * (int64_t)width)
                       : ((int64_t)wantHeight * width * 2 + height) / (2 * (int64_t)height);
    return side < 1 ? 1 : side > TOLVA_MAX_GIF_SIDE ? TOLVA_MAX_GIF_SIDE : (int32_t)side;
}

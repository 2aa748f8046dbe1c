// Raster geometry: how many pixels a picture of a given size becomes under
// the Setup block's size and resolution choices, and the cap on extents.
//
// GetRasterInfo makes the given block the current settings (lpRaster) and
// then follows the same rules as the output pipeline's format query, so that
// the host's dialog predicts exactly the size that will be written.
#include <cmath>
#include <cstdint>

#include "settings/settings.h"

namespace {

constexpr double kLargestExtent = 22.0;  // inches

// ceil's result as the 32-bit integer the host reads; NaN becomes 0 and
// values beyond the range stick at its ends instead of being undefined.
int32_t to_int32(double x) {
    if (!(x == x)) return 0;
    if (x <= -2147483648.0) return INT32_MIN;
    if (x >= 2147483647.0) return INT32_MAX;
    return static_cast<int32_t>(x);
}

}  // namespace

extern "C" {

int32_t RasterAdjustAspect(double sizeOut[2], double width, double height) {
    const SetupBlock *block = settings_current();
    if (block == nullptr || sizeOut == nullptr) return 0;
    double xDpi = block->xResolution;
    double yDpi = block->yResolution;
    // The box in whole dots; the truncations are what lets a picture of the
    // box's own shape come back unchanged.
    double w = std::trunc(xDpi * block->width);
    double h = std::trunc(yDpi * block->height);
    double boxRatio = w / h;
    double pictureRatio = width / height;
    if (pictureRatio < boxRatio)
        w -= std::trunc(w - h * pictureRatio);
    else if (pictureRatio > boxRatio)
        h -= std::trunc(h - w / pictureRatio);
    sizeOut[0] = w / xDpi;
    sizeOut[1] = h / yDpi;
    return 0;
}

void GetRasterInfo(HGLOBAL setup, const int32_t *input, int32_t *output) {
    auto *locked = static_cast<SetupBlock *>(GlobalLock(setup));
    if (locked != nullptr) lpRaster = locked;
    SetupBlock *block = lpRaster;
    if (block == nullptr || input == nullptr || output == nullptr) return;

    const int32_t displayDpi = input[0];
    const int32_t givenDpi = input[2];
    if (block->sizeMode == TOLVA_SIZE_GIVEN && givenDpi != 0) {
        block->width = static_cast<double>(input[3]) / givenDpi;
        block->height = static_cast<double>(input[4]) / givenDpi;
    } else if (block->sizeMode == TOLVA_SIZE_DISPLAY && displayDpi != 0) {
        block->width = static_cast<double>(input[5]) / displayDpi;
        block->height = static_cast<double>(input[6]) / displayDpi;
    }
    if (block->resolutionMode == TOLVA_RESOLUTION_GIVEN && givenDpi != 0) {
        block->xResolution = static_cast<int16_t>(givenDpi);
        block->yResolution = static_cast<int16_t>(givenDpi);
    } else if (block->resolutionMode == TOLVA_RESOLUTION_DISPLAY && displayDpi != 0) {
        block->xResolution = static_cast<int16_t>(displayDpi);
        block->yResolution = static_cast<int16_t>(displayDpi);
    }

    double size[2] = {block->width, block->height};
    if (givenDpi == 0 || block->sizeMode != TOLVA_SIZE_GIVEN)
        RasterAdjustAspect(size, input[3], input[4]);

    output[0] = to_int32(std::ceil(block->xResolution * size[0]));
    output[1] = to_int32(std::ceil(block->yResolution * size[1]));
    output[2] = 8;
    GlobalUnlock(setup);
}

int32_t ScaleImageSize(double *width, double *height) {
    if (width == nullptr || height == nullptr) return 0;
    if (*width >= *height && *width > kLargestExtent) {
        *height = *height * kLargestExtent / *width;
        *width = kLargestExtent;
    } else if (*height > *width && *height > kLargestExtent) {
        *width = *width * kLargestExtent / *height;
        *height = kLargestExtent;
    }
    return 0;
}

}  // extern "C"

// Raster geometry: how many pixels a picture of a given size becomes under
// the Setup block's size and resolution choices, and the cap on extents.
//
// GetRasterInfo makes the given block the current settings (lpRaster) and
// then applies settings_choose_size, the rules the output pipeline's format
// query applies too, so that the host's dialog predicts exactly the size
// that will be written.
#include <cmath>
#include <cstdint>

#include "host/numeric.h"
#include "settings/settings.h"

namespace {

// The largest side ScaleImageSize lets through: the largest size a Setup
// block may hold.
constexpr double kLargestExtent = kSettingsMaxInches;

}  // namespace

void settings_choose_size(SetupBlock *block, const SettingsPicture &picture,
                          SettingsDisplayQuery display, const void *context, double size[2]) {
    SettingsDisplay shown = {};
    bool asked = false;
    auto ask = [&]() {
        if (!asked) shown = display(context);
        asked = true;
    };

    // A picture that brings its own resolution keeps its own size; one
    // sized by the display takes the display's.
    if (block->sizeMode == TOLVA_SIZE_GIVEN && picture.dpi != 0) {
        block->width = picture.width;
        block->height = picture.height;
    } else if (block->sizeMode == TOLVA_SIZE_DISPLAY) {
        ask();
        if (shown.dpi != 0) {
            block->width = shown.width;
            block->height = shown.height;
        }
    }

    if (block->resolutionMode == TOLVA_RESOLUTION_GIVEN && picture.dpi != 0) {
        block->xResolution = static_cast<int16_t>(picture.dpi);
        block->yResolution = static_cast<int16_t>(picture.dpi);
    } else if (block->resolutionMode == TOLVA_RESOLUTION_DISPLAY) {
        ask();
        if (shown.dpi != 0) {
            block->xResolution = static_cast<int16_t>(shown.dpi);
            block->yResolution = static_cast<int16_t>(shown.dpi);
        }
    }

    size[0] = block->width;
    size[1] = block->height;
    if (block->sizeMode != TOLVA_SIZE_GIVEN || picture.dpi == 0)
        (void)RasterAdjustAspect(size, picture.shapeWidth, picture.shapeHeight);
}

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

    // input: display dpi, (unused), the picture's dpi, its width and height
    // in pixels, the display's width and height in pixels.
    const int32_t givenDpi = input[2];
    SettingsPicture picture = {0.0, 0.0, givenDpi, static_cast<double>(input[3]),
                               static_cast<double>(input[4])};
    if (givenDpi != 0) {
        picture.width = static_cast<double>(input[3]) / givenDpi;
        picture.height = static_cast<double>(input[4]) / givenDpi;
    }
    auto display = [](const void *context) {
        const auto *in = static_cast<const int32_t *>(context);
        SettingsDisplay d = {0.0, 0.0, in[0]};
        if (in[0] != 0) {
            d.width = static_cast<double>(in[5]) / in[0];
            d.height = static_cast<double>(in[6]) / in[0];
        }
        return d;
    };
    double size[2];
    settings_choose_size(block, picture, display, input, size);

    output[0] = host_trunc_i32(std::ceil(block->xResolution * size[0]));
    output[1] = host_trunc_i32(std::ceil(block->yResolution * size[1]));
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

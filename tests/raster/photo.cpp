// Loads the test photograph with stb_image into a 24-bit bitmap handle.
#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_JPEG
#include <stb/stb_image.h>

#include <cstring>

#include "raster_oracle.h"

namespace rasteroracle {

HGLOBAL load_photo(int32_t *width, int32_t *height, int32_t cropWidth, int32_t cropHeight) {
    int w = 0, h = 0, channels = 0;
    unsigned char *rgb = stbi_load(photo_path().c_str(), &w, &h, &channels, 3);
    if (rgb == nullptr) return 0;
    int32_t outW = cropWidth > 0 && cropWidth < w ? cropWidth : w;
    int32_t outH = cropHeight > 0 && cropHeight < h ? cropHeight : h;
    int32_t left = (w - outW) / 2, top = (h - outH) / 2;
    HGLOBAL bits = rlGetMemory(1, static_cast<int32_t>(rlCalcNewSize(outW, outH, 24)));
    auto *data = static_cast<uint8_t *>(rlLockMemory(bits));
    int32_t row = rlBytesPerLine(outW, 24);
    for (int32_t y = 0; y < outH; ++y) {
        std::memcpy(data + static_cast<size_t>(y) * row,
                    rgb + (static_cast<size_t>(y + top) * w + left) * 3, static_cast<size_t>(outW) * 3);
    }
    stbi_image_free(rgb);
    *width = outW;
    *height = outH;
    return bits;
}

}  // namespace rasteroracle

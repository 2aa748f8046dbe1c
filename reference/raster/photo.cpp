// Reads the photograph with stb_image and lays it out as a bitmap.
#include "raster/photo.h"

#include <cstdlib>
#include <cstring>
#include <string>

#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_JPEG
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#include <stb/stb_image.h>
#pragma GCC diagnostic pop

HGLOBAL load_photo(const char *path, int32_t *width, int32_t *height) {
    int w = 0, h = 0, channels = 0;
    unsigned char *pixels = stbi_load(path, &w, &h, &channels, 3);
    if (pixels == nullptr) return 0;
    int32_t line = rlBytesPerLine(w, 24);
    HGLOBAL bitmap = GlobalAlloc(66, rlCalcNewSize(w, h, 24));
    auto *data = static_cast<uint8_t *>(GlobalLock(bitmap));
    for (int y = 0; y < h; ++y) {
        std::memcpy(data + static_cast<size_t>(y) * line, pixels + static_cast<size_t>(y) * w * 3,
                    static_cast<size_t>(w) * 3);
    }
    stbi_image_free(pixels);
    *width = w;
    *height = h;
    return bitmap;
}

HGLOBAL load_test_photo(int32_t *width, int32_t *height) {
    const char *dir = std::getenv("TOLVA_TEST_DATA");
    std::string path = dir != nullptr ? dir : TOLVA_SOURCE_TESTS "/data";
    path += "/photo.jpg";
    return load_photo(path.c_str(), width, height);
}

const Photo &shared_test_photo() {
    static const Photo photo = [] {
        Photo p{0, 0, 0};
        p.bits = load_test_photo(&p.width, &p.height);
        return p;
    }();
    return photo;
}

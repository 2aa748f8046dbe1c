// Any bytes through the command's picture reader, with a small pixel budget
// so that a declared size cannot make the run slow, and both with and without
// turning the picture upright. A picture that is read must be as large as its
// record says, and flattening its transparency must keep it so.
#include <cstdint>
#include <cstring>

#include "picture.h"
#include "transparency.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const uint8_t kMatte[3] = {255, 255, 255};
    TolvaReadSettings settings = {1u << 20, static_cast<int32_t>(size & 1)};
    TolvaImage image;
    char error[512];
    if (tolva_read_picture(data, size, &settings, &image, error, sizeof error) != TOLVA_IMAGE_OK) {
        if (error[0] == '\0' || strchr(error, '\n') != nullptr) __builtin_trap();
        return 0;
    }
    if (image.width < 1 || image.height < 1 ||
        static_cast<uint64_t>(image.width) * static_cast<uint64_t>(image.height) >
            settings.maxPixels)
        __builtin_trap();
    // Touch every byte of the rows, so that ASan sees a short buffer.
    volatile uint8_t sum = 0;
    for (size_t i = 0; i < static_cast<size_t>(image.stride) * static_cast<size_t>(image.height);
         ++i)
        sum = static_cast<uint8_t>(sum + image.pixels[i]);
    TolvaTransparency t;
    if (tolva_flatten(&image, kMatte, &t, error, sizeof error) == TOLVA_IMAGE_OK) {
        if (image.bits != 8 && image.bits != 24) __builtin_trap();
        tolva_fill_transparent(&image, &t, kMatte);
    }
    tolva_free_transparency(&t);
    tolva_free_image(&image);
    return 0;
}

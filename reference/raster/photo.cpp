// Reads the photograph with libjpeg and lays it out as a bitmap.
#include "raster/photo.h"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <jpeglib.h>

namespace {

struct JpegError {
    jpeg_error_mgr manager;
    std::jmp_buf escape;
};

// libjpeg's default ends the process; a bad file here is only a missing photo.
void on_error(j_common_ptr cinfo) {
    std::longjmp(reinterpret_cast<JpegError *>(cinfo->err)->escape, 1);
}

void on_message(j_common_ptr, int) {}

// Decodes into `out`, which the caller owns, so that nothing with a destructor
// lives in the frames a libjpeg error jumps over.
bool decode(std::FILE *file, RgbPixels *out) {
    jpeg_decompress_struct cinfo;
    JpegError error;
    cinfo.err = jpeg_std_error(&error.manager);
    error.manager.error_exit = on_error;
    error.manager.emit_message = on_message;
    if (setjmp(error.escape)) {
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    jpeg_create_decompress(&cinfo);
    jpeg_stdio_src(&cinfo, file);
    jpeg_read_header(&cinfo, TRUE);
    if (cinfo.num_components != 1 && cinfo.num_components != 3) {
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    cinfo.out_color_space = JCS_RGB;
    jpeg_start_decompress(&cinfo);
    out->width = static_cast<int32_t>(cinfo.output_width);
    out->height = static_cast<int32_t>(cinfo.output_height);
    const size_t line = static_cast<size_t>(out->width) * 3;
    out->rgb.resize(line * static_cast<size_t>(out->height));
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = out->rgb.data() + line * cinfo.output_scanline;
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return true;
}

}  // namespace

RgbPixels read_jpeg_rgb(const char *path) {
    RgbPixels pixels;
    std::FILE *file = std::fopen(path, "rb");
    if (file == nullptr) return pixels;
    if (!decode(file, &pixels)) pixels = RgbPixels();
    std::fclose(file);
    return pixels;
}

HGLOBAL load_photo(const char *path, int32_t *width, int32_t *height) {
    RgbPixels pixels = read_jpeg_rgb(path);
    if (pixels.width == 0) return 0;
    const int32_t w = pixels.width, h = pixels.height;
    int32_t line = rlBytesPerLine(w, 24);
    HGLOBAL bitmap = GlobalAlloc(66, rlCalcNewSize(w, h, 24));
    auto *data = static_cast<uint8_t *>(GlobalLock(bitmap));
    for (int y = 0; y < h; ++y) {
        std::memcpy(data + static_cast<size_t>(y) * line,
                    pixels.rgb.data() + static_cast<size_t>(y) * w * 3, static_cast<size_t>(w) * 3);
    }
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

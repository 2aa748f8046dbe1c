// giflib's reading of a GIF of one image, for every test that checks what the
// writer made: the image's indices top row first and the global palette.
#ifndef TOLVA_TESTS_OUTPUT_GIF_DECODE_H
#define TOLVA_TESTS_OUTPUT_GIF_DECODE_H

#include <gif_lib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace gif_decode {

struct Gif {
    bool ok = false;  // giflib read it all
    bool interlaced = false;
    int width = 0, height = 0, background = 0, transparent = -1;
    std::vector<uint8_t> indices, palette;  // palette: red, green, blue of each entry
};

inline Gif decode(const std::vector<uint8_t> &bytes) {
    Gif gif;
    int error = 0, fd = memfd_create("gif", 0);
    if (write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
        close(fd);
        return gif;
    }
    lseek(fd, 0, SEEK_SET);
    GifFileType *file = DGifOpenFileHandle(fd, &error);  // closes fd
    if (file == nullptr) return gif;
    if (DGifSlurp(file) == GIF_OK && file->ImageCount == 1 && file->SColorMap != nullptr) {
        const SavedImage &image = file->SavedImages[0];
        gif.ok = true;
        gif.interlaced = image.ImageDesc.Interlace;
        gif.width = image.ImageDesc.Width;
        gif.height = image.ImageDesc.Height;
        gif.background = file->SBackGroundColor;
        gif.indices.assign(image.RasterBits, image.RasterBits + gif.width * gif.height);
        for (int i = 0; i < file->SColorMap->ColorCount; ++i) {
            const GifColorType &c = file->SColorMap->Colors[i];
            gif.palette.insert(gif.palette.end(), {c.Red, c.Green, c.Blue});
        }
        GraphicsControlBlock gcb;
        if (DGifSavedExtensionToGCB(file, 0, &gcb) == GIF_OK)
            gif.transparent = gcb.TransparentColor;
    }
    DGifCloseFile(file, &error);
    return gif;
}

inline std::vector<uint8_t> read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline Gif decode_file(const std::string &path) { return decode(read_file(path)); }

}  // namespace gif_decode

#endif

// giflib's reading of a GIF of one image, for every test that checks what the
// writer made: the image's indices top row first and the global palette.
#ifndef TOLVA_TESTS_OUTPUT_GIF_DECODE_H
#define TOLVA_TESTS_OUTPUT_GIF_DECODE_H

#include <gif_lib.h>

#include <algorithm>
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
    struct Source {
        const std::vector<uint8_t> &bytes;
        size_t at;
    } source{bytes, 0};
    auto read = [](GifFileType *file, GifByteType *to, int n) {
        auto *s = static_cast<Source *>(file->UserData);
        size_t count = std::min(static_cast<size_t>(n), s->bytes.size() - s->at);
        std::copy_n(s->bytes.begin() + static_cast<long>(s->at), count, to);
        s->at += count;
        return static_cast<int>(count);
    };
    Gif gif;
    int error = 0;
    GifFileType *file = DGifOpen(&source, read, &error);
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

// Writes one small valid file of each format and depth the picture reader
// takes into the folder given, as the seeds of its fuzz corpus:
//   picture_seeds fuzz/corpus/picture_fuzz
#include <cstdio>
#include <string>

#include "cli/picture_files.h"

using pictures::Bytes;
using pictures::Raster;

static Raster Gradient(int width, int height, int channels, uint32_t maxval) {
    Raster r{width, height, channels, maxval, {}};
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < channels; ++c)
                r.samples.push_back(uint16_t((x * 37 + y * 91 + c * 53) % (maxval + 1)));
    return r;
}

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: picture_seeds FOLDER\n");
        return 2;
    }
    const std::string dir = argv[1];
    Bytes palette;
    for (int i = 0; i < 16; ++i)
        palette.insert(palette.end(), {uint8_t(i * 16), uint8_t(255 - i * 8), uint8_t(i * 5)});
    const struct {
        const char *name;
        Bytes bytes;
    } seeds[] = {
        {"png-grey1", pictures::Png(Gradient(9, 5, 1, 1), PNG_COLOR_TYPE_GRAY, 1)},
        {"png-palette4-trns",
         pictures::Png(Gradient(7, 6, 1, 15), PNG_COLOR_TYPE_PALETTE, 4, palette, {0, 128})},
        {"png-rgba16-exif",
         pictures::Png(Gradient(6, 4, 4, 65535), PNG_COLOR_TYPE_RGBA, 16, {}, {}, 6)},
        {"png-grey-alpha-interlaced",
         pictures::Png(Gradient(10, 9, 2, 255), PNG_COLOR_TYPE_GRAY_ALPHA, 8, {}, {}, 0, true)},
        {"jpeg-rgb-exif", pictures::Jpeg(Gradient(16, 8, 3, 255), 90, 6)},
        {"jpeg-grey-progressive", pictures::Jpeg(Gradient(9, 9, 1, 255), 80, 0, true)},
        {"jpeg-cmyk", pictures::Jpeg(Gradient(8, 8, 4, 255))},
        {"gif-interlaced-transparent", pictures::Gif(Gradient(11, 10, 1, 15), palette, 3, true)},
        {"webp-rgba", pictures::Webp(Gradient(6, 5, 4, 255))},
        {"webp-rgb", pictures::Webp(Gradient(5, 4, 3, 255))},
        {"tiff-rgb16", pictures::Tiff(Gradient(6, 5, 3, 65535), 16, PHOTOMETRIC_RGB)},
        {"tiff-palette", pictures::Tiff(Gradient(6, 5, 1, 15), 8, PHOTOMETRIC_PALETTE, palette)},
        {"tiff-rgba", pictures::Tiff(Gradient(5, 5, 4, 255), 8, PHOTOMETRIC_RGB, {}, true)},
        {"pbm-plain", pictures::Netpbm(Gradient(9, 3, 1, 1), PBM_FORMAT, true)},
        {"pgm-16", pictures::Netpbm(Gradient(5, 4, 1, 65535), RPGM_FORMAT)},
        {"ppm", pictures::Netpbm(Gradient(4, 3, 3, 255), RPPM_FORMAT)},
        {"pam-rgba", pictures::Netpbm(Gradient(4, 4, 4, 255), PAM_FORMAT, false, "RGB_ALPHA")},
    };
    for (const auto &seed : seeds) {
        std::string path = dir + "/" + seed.name;
        FILE *f = std::fopen(path.c_str(), "wb");
        if (f == nullptr || seed.bytes.empty() ||
            std::fwrite(seed.bytes.data(), 1, seed.bytes.size(), f) != seed.bytes.size()) {
            std::fprintf(stderr, "cannot write %s\n", path.c_str());
            return 1;
        }
        std::fclose(f);
    }
    return 0;
}

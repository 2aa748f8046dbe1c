// Picture files of every format the command reads, made with each format's
// own library. Samples are given top row first, `channels` per pixel, each
// 0..maxval.
#ifndef TOLVA_TESTS_PICTURE_FILES_H
#define TOLVA_TESTS_PICTURE_FILES_H

#include <stdio.h>

#include <gif_lib.h>
#include <jpeglib.h>
#include <pam.h>
#include <png.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <tiffio.h>
#include <unistd.h>
#include <webp/encode.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace pictures {

using Bytes = std::vector<uint8_t>;

struct Raster {
    int width = 0, height = 0, channels = 3;
    uint32_t maxval = 255;
    std::vector<uint16_t> samples;  // top row first
    uint16_t at(int x, int y, int c) const {
        return samples[(size_t(y) * width + x) * channels + c];
    }
};

// Row y's samples as bytes, one each or two in native order when `bits` is 16.
inline Bytes PackRow(const Raster &r, int y, int bits) {
    size_t n = size_t(r.width) * r.channels;
    Bytes row(n * (bits == 16 ? 2 : 1));
    for (size_t i = 0; i < n; ++i) {
        uint16_t v = r.samples[y * n + i];
        if (bits == 16)
            memcpy(&row[2 * i], &v, 2);
        else
            row[i] = uint8_t(v);
    }
    return row;
}

// A TIFF header with one IFD holding only the orientation tag: the EXIF
// block as PNG's eXIf chunk carries it (a JPEG puts "Exif\0\0" in front).
inline Bytes ExifOrientation(int orientation) {
    return {'M',  'M',  0, 42, 0, 0, 0, 8, 0, 1,
            0x01, 0x12, 0, 3,  0, 0, 0, 1, 0, uint8_t(orientation),
            0,    0,    0, 0,  0, 0};
}

// colourType is a PNG_COLOR_TYPE_*; for a palette picture the samples are
// indices and `palette` / `opacity` its PLTE and tRNS.
inline Bytes Png(const Raster &r, int colourType, int bitDepth, const Bytes &palette = {},
                 const Bytes &opacity = {}, int orientation = 0) {
    Bytes out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return {};
    }
    png_set_write_fn(
        png, &out,
        [](png_structp p, png_bytep data, size_t n) {
            auto *o = static_cast<Bytes *>(png_get_io_ptr(p));
            o->insert(o->end(), data, data + n);
        },
        nullptr);
    png_set_IHDR(png, info, r.width, r.height, bitDepth, colourType, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    // png_color is three bytes, red, green and blue: the palette's own layout.
    if (!palette.empty())
        png_set_PLTE(png, info, reinterpret_cast<png_const_colorp>(palette.data()),
                     int(palette.size() / 3));
    if (!opacity.empty()) png_set_tRNS(png, info, opacity.data(), int(opacity.size()), nullptr);
    Bytes exif = ExifOrientation(orientation);
    if (orientation != 0) png_set_eXIf_1(png, info, png_uint_32(exif.size()), exif.data());
    png_write_info(png, info);
    if (bitDepth == 16) png_set_swap(png);  // rows below are native 16-bit
    if (bitDepth < 8) png_set_packing(png);
    for (int y = 0; y < r.height; ++y) png_write_row(png, PackRow(r, y, bitDepth).data());
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return out;
}

// 1 (grey), 3 (RGB) or 4 (CMYK, stored inverted as Adobe's encoders do) components.
inline Bytes Jpeg(const Raster &r, int quality = 95, int orientation = 0,
                  bool progressive = false) {
    jpeg_compress_struct c;
    jpeg_error_mgr err;
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    unsigned char *buffer = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&c, &buffer, &size);
    c.image_width = r.width;
    c.image_height = r.height;
    c.input_components = r.channels;
    c.in_color_space = r.channels == 1 ? JCS_GRAYSCALE : r.channels == 3 ? JCS_RGB : JCS_CMYK;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, quality, TRUE);
    if (progressive) jpeg_simple_progression(&c);
    jpeg_start_compress(&c, TRUE);
    if (orientation != 0) {
        Bytes app1 = {'E', 'x', 'i', 'f', 0, 0};
        Bytes tiff = ExifOrientation(orientation);
        app1.insert(app1.end(), tiff.begin(), tiff.end());
        jpeg_write_marker(&c, JPEG_APP0 + 1, app1.data(), unsigned(app1.size()));
    }
    while (c.next_scanline < c.image_height) {
        Bytes row = PackRow(r, int(c.next_scanline), 8);
        JSAMPROW p = row.data();
        jpeg_write_scanlines(&c, &p, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    Bytes out(buffer, buffer + size);
    free(buffer);
    return out;
}

// Samples are indices into `palette` (2^n entries).
inline Bytes Gif(const Raster &r, const Bytes &palette, int transparent = -1,
                 bool interlaced = false) {
    Bytes out;
    int error = 0;
    GifFileType *gif = EGifOpen(
        &out,
        [](GifFileType *g, const GifByteType *data, int n) {
            auto *o = static_cast<Bytes *>(g->UserData);
            o->insert(o->end(), data, data + n);
            return n;
        },
        &error);
    int count = int(palette.size() / 3);
    ColorMapObject *map = GifMakeMapObject(count, nullptr);
    for (int i = 0; i < count; ++i)
        map->Colors[i] = {palette[3 * i], palette[3 * i + 1], palette[3 * i + 2]};
    EGifSetGifVersion(gif, true);
    EGifPutScreenDesc(gif, r.width, r.height, 8, 0, map);
    if (transparent >= 0) {
        GraphicsControlBlock gcb{};
        gcb.TransparentColor = transparent;
        GifByteType ext[4];
        size_t n = EGifGCBToExtension(&gcb, ext);
        EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, int(n), ext);
    }
    EGifPutImageDesc(gif, 0, 0, r.width, r.height, interlaced, nullptr);
    // Interlaced rows go in four passes; a plain picture is one pass of every row.
    const int start[4] = {0, 4, 2, 1}, step[4] = {8, 8, 4, 2};
    Bytes line(r.width);
    for (int p = 0; p < (interlaced ? 4 : 1); ++p)
        for (int y = interlaced ? start[p] : 0; y < r.height; y += interlaced ? step[p] : 1) {
            for (int x = 0; x < r.width; ++x) line[x] = uint8_t(r.at(x, y, 0));
            EGifPutLine(gif, line.data(), r.width);
        }
    EGifCloseFile(gif, &error);
    GifFreeMapObject(map);
    return out;
}

// Lossless, so that the pixels come back exactly; 3 or 4 channels.
inline Bytes Webp(const Raster &r) {
    Bytes pixels(r.samples.begin(), r.samples.end());
    uint8_t *encoded = nullptr;
    size_t size =
        r.channels == 4
            ? WebPEncodeLosslessRGBA(pixels.data(), r.width, r.height, r.width * 4, &encoded)
            : WebPEncodeLosslessRGB(pixels.data(), r.width, r.height, r.width * 3, &encoded);
    Bytes out(encoded, encoded + size);
    WebPFree(encoded);
    return out;
}

// 8 or 16 bits a sample; photometric MINISBLACK or RGB; `pages` copies.
inline Bytes Tiff(const Raster &r, int bits, int photometric, bool unassociatedAlpha = false,
                  int orientation = 1, int pages = 1) {
    int fd = memfd_create("tiff", 0);
    TIFF *t = TIFFFdOpen(dup(fd), "memory", "w");
    for (int page = 0; page < pages; ++page) {
        if (page > 0) TIFFWriteDirectory(t);
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, uint32_t(r.width));
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, uint32_t(r.height));
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, uint16_t(r.channels));
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, uint16_t(bits));
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC, uint16_t(photometric));
        TIFFSetField(t, TIFFTAG_PLANARCONFIG, uint16_t(PLANARCONFIG_CONTIG));
        TIFFSetField(t, TIFFTAG_COMPRESSION, uint16_t(COMPRESSION_ADOBE_DEFLATE));
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, uint32_t(4));
        if (orientation != 1) TIFFSetField(t, TIFFTAG_ORIENTATION, uint16_t(orientation));
        if (unassociatedAlpha) {
            uint16_t extra = EXTRASAMPLE_UNASSALPHA;
            TIFFSetField(t, TIFFTAG_EXTRASAMPLES, uint16_t(1), &extra);
        }
        for (int y = 0; y < r.height; ++y) {
            Bytes row = PackRow(r, y, bits);
            TIFFWriteScanline(t, row.data(), uint32_t(y), 0);
        }
    }
    TIFFClose(t);
    Bytes out(size_t(lseek(fd, 0, SEEK_END)));
    if (pread(fd, out.data(), out.size(), 0) != ssize_t(out.size())) out.clear();
    close(fd);
    return out;
}

// format: PBM_FORMAT, RPGM_FORMAT, ..., PAM_FORMAT; tupleType for PAM.
inline Bytes Netpbm(const Raster &r, int format, const char *tupleType = "") {
    [[maybe_unused]] static const bool initialised = (pm_init("tolva-test", 0), true);
    char *buffer = nullptr;
    size_t size = 0;
    FILE *f = open_memstream(&buffer, &size);
    struct pam pam;
    memset(&pam, 0, sizeof pam);
    pam.size = sizeof pam;
    pam.len = offsetof(struct pam, tuple_type) + sizeof pam.tuple_type;
    pam.file = f;
    pam.format = format;
    pam.width = r.width;
    pam.height = r.height;
    pam.depth = unsigned(r.channels);
    pam.maxval = r.maxval;
    snprintf(pam.tuple_type, sizeof pam.tuple_type, "%s", tupleType);
    pnm_writepaminit(&pam);
    tuple *row = pnm_allocpamrow(&pam);
    for (int y = 0; y < r.height; ++y) {
        for (int x = 0; x < r.width; ++x)
            for (int c = 0; c < r.channels; ++c) row[x][c] = r.at(x, y, c);
        pnm_writepamrow(&pam, row);
    }
    pnm_freepamrow(row);
    fclose(f);
    Bytes out(buffer, buffer + size);
    free(buffer);
    return out;
}

// Four quadrants (top left, top right, bottom left, bottom right), each one
// colour given as 8-bit RGB and written at `maxval`.
inline const uint8_t kQuadrant[4][3] = {
    {250, 20, 30}, {10, 200, 40}, {30, 60, 220}, {240, 240, 235}};
inline const uint8_t kGreyQuadrant[4] = {0, 85, 170, 255};

inline Raster Quadrants(int width, int height, int channels, uint32_t maxval, bool grey) {
    Raster r{width, height, channels, maxval, {}};
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            int q = (y >= height / 2) * 2 + (x >= width / 2);
            for (int c = 0; c < channels; ++c) {
                bool alpha = (channels == 2 && c == 1) || (channels == 4 && c == 3);
                uint32_t v8 = alpha ? 255 : grey ? kGreyQuadrant[q] : kQuadrant[q][c];
                r.samples.push_back(uint16_t((v8 * maxval + 127) / 255));
            }
        }
    return r;
}

}  // namespace pictures

#endif

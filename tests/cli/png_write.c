/* png_write.c - libpng writer for the test pictures (C, because libpng
 * reports errors with longjmp). */
#include "png_write.h"

#include <png.h>
#include <stdio.h>

int test_write_png(const char *path, uint32_t width, uint32_t height, int colourType,
                   int bitDepth, const uint8_t *rows, size_t rowBytes, const uint8_t *palette,
                   int colours, int interlace)
{
    FILE *file = fopen(path, "wb");
    if (file == NULL) {
        return -1;
    }
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, NULL, NULL, NULL);
    png_infop info = png ? png_create_info_struct(png) : NULL;
    if (info == NULL || setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        fclose(file);
        return -1;
    }
    png_init_io(png, file);
    png_set_IHDR(png, info, width, height, bitDepth, colourType,
                 interlace ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    if (colourType == PNG_COLOR_TYPE_PALETTE) {
        png_color entries[256];
        for (int i = 0; i < colours; ++i) {
            entries[i].red = palette[3 * i];
            entries[i].green = palette[3 * i + 1];
            entries[i].blue = palette[3 * i + 2];
        }
        png_set_PLTE(png, info, entries, colours);
    }
    png_write_info(png, info);
    if (bitDepth == 16) {
        png_set_swap(png); /* the caller's 16-bit samples are native (little-endian) */
    }
    int passes = png_set_interlace_handling(png);
    for (int pass = 0; pass < passes; ++pass) {
        for (uint32_t y = 0; y < height; ++y) {
            png_write_row(png, rows + rowBytes * y);
        }
    }
    png_write_end(png, NULL);
    png_destroy_write_struct(&png, &info);
    return fclose(file) == 0 ? 0 : -1;
}

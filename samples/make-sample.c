/*
 * make-sample.c - draws samples/sunset.png, the picture the README converts:
 * a sky gradient, a sun with a soft halo, two rows of hills and their
 * reflection in a lake. Regenerate it with
 *     cc -O2 -o make-sample samples/make-sample.c -lpng -lm && ./make-sample samples/sunset.png
 */
#include <math.h>
#include <png.h>
#include <stdio.h>
#include <stdlib.h>

enum { kWidth = 320, kHeight = 200, kHorizon = 140 };

static double clamp01(double v) { return v < 0 ? 0 : v > 1 ? 1 : v; }

static void sky(double y, double rgb[3])
{
    double t = y / kHorizon; /* 0 at the top, 1 at the horizon */
    rgb[0] = 0.15 + 0.85 * t;
    rgb[1] = 0.10 + 0.45 * t * t;
    rgb[2] = 0.45 - 0.25 * t;
}

static int hill(double x, double base, double height, double wave)
{
    return (int)(base - height * (0.6 + 0.4 * sin(x / wave) * cos(x / (wave * 2.7))));
}

static void scene(int x, int y, double rgb[3])
{
    int far = hill(x, kHorizon, 28, 23.0), near = hill(x + 90, kHorizon + 4, 18, 13.0);
    double sx = 200, sy = 105, sr = 22;
    double d = hypot(x - sx, y - sy);
    sky(y, rgb);
    double glow = clamp01(1.0 - (d - sr) / 60.0) * 0.6;
    rgb[0] += glow, rgb[1] += glow * 0.7, rgb[2] += glow * 0.2;
    if (d < sr) {
        rgb[0] = 1.0, rgb[1] = 0.85 - 0.3 * (y - sy + sr) / (2 * sr), rgb[2] = 0.35;
    }
    if (y >= far) {
        double shade = 0.25 + 0.1 * sin(x / 7.0);
        rgb[0] = 0.35 * shade + 0.2, rgb[1] = 0.2 * shade + 0.1, rgb[2] = 0.45 * shade + 0.2;
    }
    if (y >= near) {
        rgb[0] = 0.12, rgb[1] = 0.22 + 0.05 * sin(x / 3.0), rgb[2] = 0.15;
    }
}

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: make-sample OUTPUT.png\n");
        return 2;
    }
    static png_byte rows[kHeight][kWidth * 3];
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            double rgb[3];
            if (y < kHorizon + 4) {
                scene(x, y, rgb);
            } else { /* the lake mirrors the sky, darker and rippled */
                int mirror = 2 * (kHorizon + 4) - y + (int)(2.0 * sin(y * 1.7 + x / 9.0));
                scene(x, mirror < 0 ? 0 : mirror, rgb);
                for (int c = 0; c < 3; ++c) rgb[c] *= 0.6;
                rgb[2] += 0.08;
            }
            for (int c = 0; c < 3; ++c) rows[y][3 * x + c] = (png_byte)(255.0 * clamp01(rgb[c]) + 0.5);
        }
    }
    FILE *file = fopen(argv[1], "wb");
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, NULL, NULL, NULL);
    png_infop info = png ? png_create_info_struct(png) : NULL;
    if (file == NULL || info == NULL || setjmp(png_jmpbuf(png))) {
        fprintf(stderr, "make-sample: cannot write %s\n", argv[1]);
        return 1;
    }
    png_init_io(png, file);
    png_set_IHDR(png, info, kWidth, kHeight, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(png, 9);
    png_write_info(png, info);
    for (int y = 0; y < kHeight; ++y) png_write_row(png, rows[y]);
    png_write_end(png, NULL);
    png_destroy_write_struct(&png, &info);
    return fclose(file) == 0 ? 0 : 1;
}

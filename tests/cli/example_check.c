/* example_check.c - pictures for the example host and a giflib check of
 * what it wrote.
 *   example_check make FILE.ppm W H COLOURS     a picture of COLOURS colours
 *   example_check compare FILE.gif W H COLOURS  exit 0 when the GIF holds that
 *                                               picture's pixels, top row first
 *                                               (only its size for an odd height
 *                                               or more than 256 colours) */
#include <gif_lib.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void colour(int x, int y, int colours, unsigned char rgb[3]) {
    int k = (x * 7 + y * 13) % colours;
    rgb[0] = (unsigned char)(k * 37);
    rgb[1] = (unsigned char)(k * 91);
    rgb[2] = (unsigned char)(255 - k / 16);
}

static int make(const char *path, int width, int height, int colours) {
    FILE *file = fopen(path, "wb");
    if (file == NULL) return 1;
    fprintf(file, "P6\n%d %d\n255\n", width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            unsigned char rgb[3];
            colour(x, y, colours, rgb);
            fwrite(rgb, 1, 3, file);
        }
    return fclose(file) != 0;
}

static int compare(const char *path, int width, int height, int colours) {
    int error = 0;
    GifFileType *gif = DGifOpenFileName(path, &error);
    if (gif == NULL || DGifSlurp(gif) != GIF_OK || gif->ImageCount != 1 || gif->SColorMap == NULL)
        return fprintf(stderr, "%s: giflib cannot decode it\n", path), 1;
    const GifImageDesc *image = &gif->SavedImages[0].ImageDesc;
    int bad = image->Width != width || image->Height != height + (height & 1);
    if (bad)
        fprintf(stderr, "%s: %d x %d, the picture is %d x %d\n", path, image->Width, image->Height,
                width, height);
    /* The filter reduces a picture of more than 256 colours and stretches an
     * odd one by a row: of those only the size is checked. */
    for (int y = 0; !bad && height % 2 == 0 && colours <= 256 && y < height; ++y)
        for (int x = 0; !bad && x < width; ++x) {
            const GifColorType *c =
                &gif->SColorMap->Colors[gif->SavedImages[0].RasterBits[y * width + x]];
            unsigned char want[3];
            colour(x, y, colours, want);
            bad = c->Red != want[0] || c->Green != want[1] || c->Blue != want[2];
            if (bad) fprintf(stderr, "%s: pixel %d,%d differs\n", path, x, y);
        }
    DGifCloseFile(gif, &error);
    return bad;
}

int main(int argc, char **argv) {
    if (argc == 6 && strcmp(argv[1], "make") == 0)
        return make(argv[2], atoi(argv[3]), atoi(argv[4]), atoi(argv[5]));
    if (argc == 6 && strcmp(argv[1], "compare") == 0)
        return compare(argv[2], atoi(argv[3]), atoi(argv[4]), atoi(argv[5]));
    fprintf(stderr, "usage: example_check make|compare FILE W H COLOURS\n");
    return 2;
}

/* example_check.c - pictures for the example host and a giflib check of
 * what it wrote.
 *   example_check make FILE.ppm W H COLOURS   a picture of at most COLOURS colours
 *   example_check compare FILE.ppm FILE.gif   exit 0 when the GIF holds exactly
 *                                             the picture's pixels, top row first
 *                                             (its size only for an odd height
 *                                             or more than 256 colours) */
#include <gif_lib.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int make(const char *path, int width, int height, int colours) {
    FILE *file = fopen(path, "wb");
    if (file == NULL) return 1;
    fprintf(file, "P6\n%d %d\n255\n", width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            int k = (x * 7 + y * 13) % colours;
            unsigned char rgb[3] = {(unsigned char)(k * 37), (unsigned char)(k * 91),
                                    (unsigned char)(255 - k)};
            fwrite(rgb, 1, 3, file);
        }
    return fclose(file) != 0;
}

static int compare(const char *ppm, const char *gifPath) {
    int width = 0, height = 0, maxval = 0, error = 0;
    FILE *file = fopen(ppm, "rb");
    if (file == NULL || fscanf(file, "P6 %d %d %d", &width, &height, &maxval) != 3 ||
        fgetc(file) == EOF)
        return fprintf(stderr, "%s: not a PPM\n", ppm), 1;
    unsigned char *rgb = malloc((size_t)width * (size_t)height * 3);
    size_t got = fread(rgb, 3, (size_t)width * (size_t)height, file);
    fclose(file);
    GifFileType *gif = DGifOpenFileName(gifPath, &error);
    if (gif == NULL || DGifSlurp(gif) != GIF_OK || gif->ImageCount != 1 || gif->SColorMap == NULL)
        return fprintf(stderr, "%s: giflib cannot decode it\n", gifPath), 1;
    const GifImageDesc *image = &gif->SavedImages[0].ImageDesc;
    int bad = got != (size_t)width * (size_t)height || image->Width != width ||
              image->Height != height + (height & 1);
    if (bad)
        fprintf(stderr, "%s: %d x %d, the picture is %d x %d\n", gifPath, image->Width,
                image->Height, width, height);
    /* A picture of more than 256 colours is reduced, and an odd one is
     * stretched by one row: of those only the size is checked. */
    unsigned char *seen = calloc(1u << 21, 1);
    int colours = 0;
    for (size_t i = 0; i < got; ++i) {
        unsigned key = (unsigned)rgb[3 * i] << 16 | (unsigned)rgb[3 * i + 1] << 8 | rgb[3 * i + 2];
        if (!(seen[key >> 3] & (1u << (key & 7)))) ++colours;
        seen[key >> 3] |= (unsigned char)(1u << (key & 7));
    }
    free(seen);
    for (int y = 0; !bad && height % 2 == 0 && colours <= 256 && y < height; ++y)
        for (int x = 0; !bad && x < width; ++x) {
            int index = gif->SavedImages[0].RasterBits[y * width + x];
            const GifColorType *c = &gif->SColorMap->Colors[index];
            const unsigned char *want = rgb + 3 * ((size_t)y * (size_t)width + (size_t)x);
            bad = c->Red != want[0] || c->Green != want[1] || c->Blue != want[2];
            if (bad) fprintf(stderr, "%s: pixel %d,%d differs\n", gifPath, x, y);
        }
    DGifCloseFile(gif, &error);
    free(rgb);
    return bad;
}

int main(int argc, char **argv) {
    if (argc == 6 && strcmp(argv[1], "make") == 0)
        return make(argv[2], atoi(argv[3]), atoi(argv[4]), atoi(argv[5]));
    if (argc == 4 && strcmp(argv[1], "compare") == 0) return compare(argv[2], argv[3]);
    fprintf(stderr, "usage: example_check make PPM W H COLOURS | compare PPM GIF\n");
    return 2;
}

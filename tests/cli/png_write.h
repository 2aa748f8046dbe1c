/* png_write.h - writes the test pictures with libpng's own writer. */
#ifndef TOLVA_TESTS_CLI_PNG_WRITE_H
#define TOLVA_TESTS_CLI_PNG_WRITE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Writes `rows` (top row first, `rowBytes` apart, packed as libpng expects
 * for the colour type and depth) to `path`. `palette` holds `colours` RGB
 * triples for palette pictures. Returns 0, or -1.
 */
int test_write_png(const char *path, uint32_t width, uint32_t height, int colourType,
                   int bitDepth, const uint8_t *rows, size_t rowBytes, const uint8_t *palette,
                   int colours, int interlace);

#ifdef __cplusplus
}
#endif

#endif

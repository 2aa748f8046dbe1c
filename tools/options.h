/*
 * options.h - the command line of the tolva command, parsed into one record.
 *
 * Parsing only checks syntax and the combinations of options; the ranges the
 * filter accepts (sizes, resolutions) are the filter's to decide, through its
 * setup escape. The record borrows its strings from argv.
 */
#ifndef TOLVA_TOOLS_OPTIONS_H
#define TOLVA_TOOLS_OPTIONS_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { TOLVA_RUN_EXPORT = 0, TOLVA_RUN_HELP = 1, TOLVA_RUN_VERSION = 2 };

typedef struct TolvaOptions {
    int32_t action;              /* TOLVA_RUN_* */
    const char *input;           /* picture file, "-" for standard input */
    const char *output;          /* GIF file, "-" for standard output */
    const char *library;         /* --library; NULL: found beside the command */
    const char *profile;         /* --profile; NULL: the filter's own profile */
    const char *section;         /* --section; NULL: the profile's default */
    double width;                /* --size in inches; 0 when not given */
    double height;
    int32_t dpi;                 /* --dpi; 0 when not given */
    int32_t actualSize;          /* --actual-size: one GIF pixel per picture pixel */
    int32_t interlace;
    int32_t transparent;         /* --transparent given */
    uint8_t transparentColour[3];
    int32_t background;          /* --background given */
    uint8_t backgroundColour[3];
    int32_t matte;               /* --matte given */
    uint8_t matteColour[3];      /* under partly transparent pixels; see tolva_matte_colour */
    uint64_t maxPixels;          /* --max-pixels; 0 = the reader's default */
    int32_t keepOrientation;     /* --no-orient */
    int32_t colourClass;         /* --colour-mode as the filter's class 101..105; 0 = profile's */
    int32_t bands;               /* --bands; 0 = chosen from the picture size */
    int32_t quiet;
    int32_t cancelAt;            /* testing aid: answer stop from the Nth status call; 0 = never */
} TolvaOptions;

/*
 * Parses argv[1..argc-1]. Returns 0 when the record is usable, or 2 (a usage
 * error) with a one-line description in `error`.
 */
int tolva_parse_options(int argc, char *const *argv, TolvaOptions *options, char *error,
                        size_t errorSize);

/* What partly transparent pixels are blended over: --matte, else
 * --background, else white. */
void tolva_matte_colour(const TolvaOptions *options, uint8_t rgb[3]);

/* The text printed by --help. */
extern const char tolva_usage_text[];

#ifdef __cplusplus
}
#endif

#endif

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
#include <stdio.h>

#include "sizing.h"

#ifdef __cplusplus
extern "C" {
#endif

enum { TOLVA_RUN_EXPORT = 0, TOLVA_RUN_HELP = 1, TOLVA_RUN_VERSION = 2 };

/* The most conversions a batch runs at once. */
#define TOLVA_MAX_JOBS 256

typedef struct TolvaOptions {
    int32_t action;        /* TOLVA_RUN_* */
    const char *input;     /* picture file, "-" for standard input */
    const char *output;    /* GIF file, "-" for standard output; NULL in a batch */
    char *const *inputs;   /* every input file (argv's own entries) */
    int32_t inputCount;    /* 1 unless a batch */
    const char *outputDir; /* -O: a batch writes DIR/NAME.gif for each input */
    int32_t jobs;          /* --jobs; 0 = the number of cores */
    int32_t noClobber;     /* -n: never replace an existing file */
    int32_t recursive;     /* -r: folders' subfolders too, their layout kept in DIR */
    int32_t verbose;
    const char *library; /* --library; NULL: found beside the command */
    const char *profile; /* --profile; NULL: the filter's own profile */
    const char *section; /* --section; NULL: the section the profile names */
    double width;        /* --size in inches; 0 when not given */
    double height;
    int32_t dpi;         /* --dpi; 0 when not given */
    int32_t actualSize;  /* --actual-size: one GIF pixel per picture pixel */
    int32_t pixelWidth;  /* --width in pixels; 0 when not given */
    int32_t pixelHeight; /* --height in pixels; 0 when not given */
    int32_t smooth;      /* --smooth: resample to the pixel size first */
    int32_t interlace;
    int32_t transparent; /* --transparent given */
    uint8_t transparentColour[3];
    int32_t background; /* --background given */
    uint8_t backgroundColour[3];
    int32_t matte;           /* --matte given */
    uint8_t matteColour[3];  /* under partly transparent pixels; see tolva_matte_colour */
    uint64_t maxPixels;      /* --max-pixels; 0 = the reader's default */
    int32_t keepOrientation; /* --no-orient */
    int32_t colourClass;     /* --colour-mode as the filter's class 101..105; 0 = profile's */
    int32_t bands;           /* --bands; 0 = chosen from the picture size */
    int32_t quiet;
    int32_t cancelAt; /* testing aid: answer stop from the Nth status call; 0 = never */
    /* Not parsed: set for each picture once its size is known, from
     * --width and --height. Road 0 leaves the sizing to the fields above. */
    TolvaPixelPlan plan;
} TolvaOptions;

/*
 * Parses argv[1..argc-1] (getopt_long: options and file names may come in
 * any order, and argv is permuted). Returns 0 when the record is usable, or 2
 * (a usage error) with a one-line description in `error`.
 */
int tolva_parse_options(int argc, char **argv, TolvaOptions *options, char *error,
                        size_t errorSize);

/* Prints the --help text, made from the same table the parser reads. */
void tolva_print_usage(FILE *out);

/* What partly transparent pixels are blended over: --matte, else
 * --background, else white. */
void tolva_matte_colour(const TolvaOptions *options, uint8_t rgb[3]);

#ifdef __cplusplus
}
#endif

#endif

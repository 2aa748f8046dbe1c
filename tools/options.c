/*
 * options.c - parses the tolva command line with getopt_long.
 *
 * One table describes every option: getopt_long's own table and the --help
 * text are both made from it, so an option cannot be parsed without being
 * documented or the other way round. Options and file names may come in any
 * order, "--" ends the options, and a lone "-" is a file name (standard
 * input or output). Every refusal is a usage error with a one-line reason;
 * nothing here prints but tolva_print_usage.
 */
#define _GNU_SOURCE /* getopt_long */
#include "options.h"

#include "sizing.h"

#include <errno.h>
#include <getopt.h>
#include <limits.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

enum OptionId {
    OPT_SIZE = 256,
    OPT_DPI,
    OPT_WIDTH,
    OPT_HEIGHT,
    OPT_SMOOTH,
    OPT_ACTUAL,
    OPT_INTERLACE,
    OPT_TRANSPARENT,
    OPT_BACKGROUND,
    OPT_MATTE,
    OPT_MAX_PIXELS,
    OPT_NO_ORIENT,
    OPT_COLOUR,
    OPT_PROFILE,
    OPT_SECTION,
    OPT_BANDS,
    OPT_LIBRARY,
    OPT_OUTPUT_DIR,
    OPT_JOBS,
    OPT_NO_CLOBBER,
    OPT_RECURSIVE,
    OPT_VERBOSE,
    OPT_QUIET,
    OPT_HELP,
    OPT_VERSION,
    OPT_CANCEL_AT
};

typedef struct OptionInfo {
    const char *name; /* long name; NULL makes the entry a heading of --help */
    char shortName;   /* 0: long only */
    int takesValue;
    int id;            /* OPT_* */
    const char *value; /* the value's name in --help */
    const char *help;  /* NULL: left out of --help; '\n' starts a continuation line */
} OptionInfo;

static const OptionInfo kOptions[] = {
    {NULL, 0, 0, 0, NULL,
     "Size (without these, the picture's own; with only --profile, the profile's):"},
    {"width", 0, 1, OPT_WIDTH, "PIXELS", "GIF width in pixels (alone: keeps the proportions)"},
    {"height", 0, 1, OPT_HEIGHT, "PIXELS", "GIF height in pixels (alone: keeps the proportions)"},
    {"smooth", 0, 0, OPT_SMOOTH, NULL,
     "with --width/--height, resample smoothly (area\n"
     "averaging) instead of the filter's pixel picking"},
    {"size", 's', 1, OPT_SIZE, "WxH", "fit the picture into W by H inches (0.03125 to 22)"},
    {"dpi", 'd', 1, OPT_DPI, "N", "dots per inch of the output (32 to 400)"},
    {"actual-size", 'a', 0, OPT_ACTUAL, NULL, "one GIF pixel per picture pixel (the default)"},
    {NULL, 0, 0, 0, NULL,
     "The filter gives every GIF an even number of rows: an odd height gains one."},
    {NULL, 0, 0, 0, NULL, ""},
    {NULL, 0, 0, 0, NULL, "Picture:"},
    {"interlace", 'i', 0, OPT_INTERLACE, NULL, "write an interlaced GIF"},
    {"transparent", 't', 1, OPT_TRANSPARENT, "RRGGBB",
     "make the colour nearest to RRGGBB transparent\n"
     "(pictures without transparent pixels of their own)"},
    {"background", 'b', 1, OPT_BACKGROUND, "RRGGBB",
     "set the background colour to the nearest entry"},
    {"matte", 'm', 1, OPT_MATTE, "RRGGBB",
     "blend partly transparent pixels over this colour\n"
     "(default: the background colour, else white)"},
    {"no-orient", 0, 0, OPT_NO_ORIENT, NULL, "keep the stored orientation (ignore EXIF)"},
    {"max-pixels", 0, 1, OPT_MAX_PIXELS, "N",
     "refuse pictures of more than N pixels\n(default 268435456, i.e. 16384x16384)"},
    {"colour-mode", 'c', 1, OPT_COLOUR, "MODE",
     "normal, invert, invert-grey, grey or\ninvert-luminance"},
    {"color-mode", 0, 1, OPT_COLOUR, "MODE", NULL},
    {NULL, 0, 0, 0, NULL, ""},
    {NULL, 0, 0, 0, NULL, "Files:"},
    {"output-dir", 'O', 1, OPT_OUTPUT_DIR, "DIR", "write each INPUT as DIR/NAME.gif"},
    {"jobs", 'j', 1, OPT_JOBS, "N", "with -O, N conversions at once (default: cores)"},
    {"recursive", 'r', 0, OPT_RECURSIVE, NULL,
     "with -O, the pictures in subfolders too, each\nwritten to the same subfolder of DIR"},
    {"no-clobber", 'n', 0, OPT_NO_CLOBBER, NULL, "never replace an existing file"},
    {NULL, 0, 0, 0, NULL, ""},
    {NULL, 0, 0, 0, NULL, "Filter:"},
    {"profile", 'p', 1, OPT_PROFILE, "FILE", "read the filter's settings from FILE (man tolva)"},
    {"section", 0, 1, OPT_SECTION, "NAME",
     "profile section that holds the settings (default:\n"
     "the one FILE names as ~Mode in its [TOLVA] section)"},
    {"bands", 0, 1, OPT_BANDS, "N", "send the picture to the filter in N bands"},
    {"library", 0, 1, OPT_LIBRARY, "PATH", "load the filter from PATH instead of beside tolva"},
    {NULL, 0, 0, 0, NULL, ""},
    {"verbose", 'v', 0, OPT_VERBOSE, NULL, "say what was read, written and used, and the time"},
    {"quiet", 'q', 0, OPT_QUIET, NULL, "no progress bar"},
    {"help", 'h', 0, OPT_HELP, NULL, "show this help and exit"},
    {"version", 'V', 0, OPT_VERSION, NULL, "show the command and filter versions and exit"},
    /* Testing aid: the status function answers stop from its Nth call on, so
     * that a cancel can be tested without timing. */
    {"cancel-at", 0, 1, OPT_CANCEL_AT, "N", NULL},
};

enum { kOptionCount = sizeof kOptions / sizeof kOptions[0] };

static const char kUsageHead[] =
    "Usage: tolva [OPTION]... INPUT OUTPUT\n"
    "  or:  tolva [OPTION]... INPUT... -O DIR\n"
    "Convert a PNG, JPEG, GIF, WebP, TIFF or netpbm (PBM, PGM, PPM, PAM) picture\n"
    "to a GIF file through the libtolva export filter. BMP pictures are not read.\n"
    "INPUT or OUTPUT may be '-' for standard input or output.\n"
    "OUTPUT may be a symbolic link (its target is replaced), a device or a pipe\n"
    "(written directly); it is never the input itself.\n"
    "With -O, an INPUT may be a folder: the pictures in it are converted.\n"
    "\n";

static const char kUsageTail[] =
    "\n"
    "Exit status: 0 success, 1 error (in a batch: any file failed), 2 usage error,\n"
    "128+N stopped by signal N (130 for Ctrl-C).\n";

/* The help column: option names to the left, their text from here on. */
enum { kHelpColumn = 28 };

void tolva_print_usage(FILE *out)
{
    fputs(kUsageHead, out);
    for (int i = 0; i < kOptionCount; ++i) {
        const OptionInfo *option = &kOptions[i];
        if (option->name == NULL) {
            fprintf(out, "%s\n", option->help);
            continue;
        }
        if (option->help == NULL) {
            continue;
        }
        char left[64];
        int used = snprintf(left, sizeof left, "  %c%c%s--%s%s%s", option->shortName ? '-' : ' ',
                            option->shortName ? option->shortName : ' ',
                            option->shortName ? ", " : "  ", option->name,
                            option->takesValue ? "=" : "", option->takesValue ? option->value : "");
        fprintf(out, "%s%*s", left, used < kHelpColumn ? kHelpColumn - used : 1, "");
        for (const char *text = option->help; *text != '\0'; ++text) {
            fputc(*text, out);
            if (*text == '\n') {
                fprintf(out, "%*s", kHelpColumn, "");
            }
        }
        fputc('\n', out);
    }
    fputs(kUsageTail, out);
}

/* The filter's colour classes 101..105 become its colour modes 103..107. */
static const struct {
    const char *name;
    int32_t colourClass;
} kColourModes[] = {
    {"normal", 101},           {"invert", 102},      {"invert-grey", 103}, {"grey", 104},
    {"invert-luminance", 105}, {"invert-gray", 103}, {"gray", 104},
};

static int fail(char *error, size_t size, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vsnprintf(error, size, format, args);
    va_end(args);
    return 2;
}

static int parse_positive(const char *text, int32_t *out)
{
    char *end = NULL;
    errno = 0;
    long value = strtol(text, &end, 10);
    if (end == text || *end != '\0' || errno != 0 || value < 1 || value > INT32_MAX) {
        return -1;
    }
    *out = (int32_t)value;
    return 0;
}

static int parse_inches(const char *text, char **end, double *out)
{
    errno = 0;
    double value = strtod(text, end);
    if (*end == text || errno != 0 || !(value > 0.0) || value > 1e6) {
        return -1;
    }
    *out = value;
    return 0;
}

static int parse_size(const char *text, double *width, double *height)
{
    char *end = NULL;
    if (parse_inches(text, &end, width) != 0 || (*end != 'x' && *end != 'X')) {
        return -1;
    }
    const char *rest = end + 1;
    if (parse_inches(rest, &end, height) != 0 || *end != '\0') {
        return -1;
    }
    return 0;
}

static int hex_digit(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

static int parse_colour(const char *text, uint8_t rgb[3])
{
    if (text[0] == '#') {
        ++text;
    }
    if (strlen(text) != 6) {
        return -1;
    }
    for (int i = 0; i < 3; ++i) {
        int high = hex_digit(text[2 * i]);
        int low = hex_digit(text[2 * i + 1]);
        if (high < 0 || low < 0) {
            return -1;
        }
        rgb[i] = (uint8_t)(high * 16 + low);
    }
    return 0;
}

static int apply(TolvaOptions *o, int id, const char *value, char *error, size_t size)
{
    switch (id) {
    case OPT_SIZE:
        if (parse_size(value, &o->width, &o->height) != 0) {
            return fail(error, size, "invalid size '%s' (expected WxH in inches, e.g. 4x3)", value);
        }
        return 0;
    case OPT_DPI:
        if (parse_positive(value, &o->dpi) != 0) {
            return fail(error, size, "invalid resolution '%s' (expected dots per inch)", value);
        }
        return 0;
    case OPT_ACTUAL:
        o->actualSize = 1;
        return 0;
    case OPT_WIDTH:
    case OPT_HEIGHT: {
        int32_t *side = id == OPT_WIDTH ? &o->pixelWidth : &o->pixelHeight;
        if (parse_positive(value, side) != 0 || *side > TOLVA_MAX_GIF_SIDE) {
            return fail(error, size, "invalid %s '%s' (1 to %d pixels)",
                        id == OPT_WIDTH ? "width" : "height", value, TOLVA_MAX_GIF_SIDE);
        }
        return 0;
    }
    case OPT_SMOOTH:
        o->smooth = 1;
        return 0;
    case OPT_INTERLACE:
        o->interlace = 1;
        return 0;
    case OPT_TRANSPARENT:
        if (parse_colour(value, o->transparentColour) != 0) {
            return fail(error, size, "invalid colour '%s' (expected RRGGBB)", value);
        }
        o->transparent = 1;
        return 0;
    case OPT_BACKGROUND:
        if (parse_colour(value, o->backgroundColour) != 0) {
            return fail(error, size, "invalid colour '%s' (expected RRGGBB)", value);
        }
        o->background = 1;
        return 0;
    case OPT_MATTE:
        if (parse_colour(value, o->matteColour) != 0) {
            return fail(error, size, "invalid colour '%s' (expected RRGGBB)", value);
        }
        o->matte = 1;
        return 0;
    case OPT_MAX_PIXELS: {
        char *end = NULL;
        errno = 0;
        unsigned long long pixels = strtoull(value, &end, 10);
        if (end == value || *end != '\0' || errno != 0 || pixels == 0 || value[0] == '-') {
            return fail(error, size, "invalid pixel count '%s'", value);
        }
        o->maxPixels = pixels;
        return 0;
    }
    case OPT_NO_ORIENT:
        o->keepOrientation = 1;
        return 0;
    case OPT_COLOUR:
        for (size_t i = 0; i < sizeof kColourModes / sizeof kColourModes[0]; ++i) {
            if (strcmp(value, kColourModes[i].name) == 0) {
                o->colourClass = kColourModes[i].colourClass;
                return 0;
            }
        }
        return fail(error, size,
                    "invalid colour mode '%s' (expected normal, invert, invert-grey, grey or "
                    "invert-luminance)",
                    value);
    case OPT_PROFILE:
        o->profile = value;
        return 0;
    case OPT_SECTION:
        o->section = value;
        return 0;
    case OPT_BANDS:
        if (parse_positive(value, &o->bands) != 0) {
            return fail(error, size, "invalid band count '%s'", value);
        }
        return 0;
    case OPT_LIBRARY:
        o->library = value;
        return 0;
    case OPT_OUTPUT_DIR:
        o->outputDir = value;
        return 0;
    case OPT_JOBS:
        if (parse_positive(value, &o->jobs) != 0 || o->jobs > TOLVA_MAX_JOBS) {
            return fail(error, size, "invalid job count '%s' (1 to %d)", value, TOLVA_MAX_JOBS);
        }
        return 0;
    case OPT_RECURSIVE:
        o->recursive = 1;
        return 0;
    case OPT_NO_CLOBBER:
        o->noClobber = 1;
        return 0;
    case OPT_VERBOSE:
        o->verbose = 1;
        return 0;
    case OPT_QUIET:
        o->quiet = 1;
        return 0;
    case OPT_HELP:
        o->action = TOLVA_RUN_HELP;
        return 0;
    case OPT_VERSION:
        if (o->action != TOLVA_RUN_HELP) {
            o->action = TOLVA_RUN_VERSION;
        }
        return 0;
    case OPT_CANCEL_AT:
        if (parse_positive(value, &o->cancelAt) != 0) {
            return fail(error, size, "invalid call number '%s'", value);
        }
        return 0;
    }
    return fail(error, size, "internal: unknown option");
}

static const OptionInfo *find_option(int id)
{
    for (int i = 0; i < kOptionCount; ++i) {
        if (kOptions[i].name != NULL &&
            (kOptions[i].id == id || (kOptions[i].shortName != 0 && kOptions[i].shortName == id))) {
            return &kOptions[i];
        }
    }
    return NULL;
}

/* getopt_long's tables: a short option returns its letter, a long-only one
 * its OPT_* value. The leading ':' makes a missing value come back as ':'. */
static void build_tables(struct option *longs, char *shorts)
{
    size_t n = 0, s = 0;
    shorts[s++] = ':';
    for (int i = 0; i < kOptionCount; ++i) {
        const OptionInfo *option = &kOptions[i];
        if (option->name == NULL) {
            continue;
        }
        longs[n].name = option->name;
        longs[n].has_arg = option->takesValue ? required_argument : no_argument;
        longs[n].flag = NULL;
        longs[n].val = option->shortName ? option->shortName : option->id;
        ++n;
        if (option->shortName) {
            shorts[s++] = option->shortName;
            if (option->takesValue) {
                shorts[s++] = ':';
            }
        }
    }
    memset(&longs[n], 0, sizeof longs[n]);
    shorts[s] = '\0';
}

/* The message for getopt_long's '?' or ':' about argv[optind - 1]. */
static int refuse_option(int answer, char **argv, char *error, size_t size)
{
    const char *arg = optind > 0 ? argv[optind - 1] : "";
    int isLong = arg[0] == '-' && arg[1] == '-';
    const OptionInfo *option = optopt != 0 ? find_option(optopt) : NULL;
    if (answer == ':') {
        if (isLong && option != NULL) {
            return fail(error, size, "option '--%s' needs a value", option->name);
        }
        return fail(error, size, "option '-%c' needs a value", optopt);
    }
    if (isLong && option != NULL) {
        return fail(error, size, "option '--%s' takes no value", option->name);
    }
    if (isLong) {
        size_t length = strcspn(arg, "=");
        return fail(error, size, "unknown or ambiguous option '%.*s'", (int)length, arg);
    }
    return fail(error, size, "unknown option '-%c'", optopt);
}

static int check_files(TolvaOptions *o, char **files, int count, char *error, size_t size)
{
    if (o->outputDir != NULL) {
        if (count == 0) {
            return fail(error, size, "missing input files (-O converts INPUT... into DIR)");
        }
        if (o->outputDir[0] == '\0') {
            return fail(error, size, "empty output directory name");
        }
        for (int i = 0; i < count; ++i) {
            if (strcmp(files[i], "-") == 0) {
                return fail(error, size, "standard input cannot be one of several inputs");
            }
        }
        o->inputs = files;
        o->inputCount = count;
        o->input = files[0];
        return 0;
    }
    if (count < 2) {
        return fail(error, size,
                    count == 0 ? "missing input and output files" : "missing output file");
    }
    if (count > 2) {
        return fail(error, size, "too many file names ('%s'); use -O DIR for several inputs",
                    files[2]);
    }
    if (o->jobs != 0) {
        return fail(error, size, "--jobs needs -O DIR (it runs several inputs at once)");
    }
    if (o->recursive) {
        return fail(error, size, "--recursive needs -O DIR (it converts folders into DIR)");
    }
    o->inputs = files;
    o->inputCount = 1;
    o->input = files[0];
    o->output = files[1];
    return 0;
}

int tolva_parse_options(int argc, char **argv, TolvaOptions *o, char *error, size_t errorSize)
{
    memset(o, 0, sizeof *o);
    error[0] = '\0';
    struct option longs[kOptionCount + 1];
    char shorts[2 * kOptionCount + 2];
    build_tables(longs, shorts);
    opterr = 0;
    optind = 0; /* 0, not 1: a parse begins afresh, as the tests parse many times */
    int answer;
    while ((answer = getopt_long(argc, argv, shorts, longs, NULL)) != -1) {
        if (answer == '?' || answer == ':') {
            return refuse_option(answer, argv, error, errorSize);
        }
        const OptionInfo *option = find_option(answer);
        int r = option != NULL ? apply(o, option->id, optarg, error, errorSize)
                               : fail(error, errorSize, "internal: unknown option");
        if (r != 0) {
            return r;
        }
    }
    if (o->action != TOLVA_RUN_EXPORT) {
        return 0;
    }
    int r = check_files(o, argv + optind, argc - optind, error, errorSize);
    if (r != 0) {
        return r;
    }
    int inches = o->width > 0.0 || o->dpi > 0;
    int pixels = o->pixelWidth > 0 || o->pixelHeight > 0;
    if (o->actualSize + inches + pixels > 1) {
        return fail(error, errorSize,
                    "choose one way to size: --width/--height, --size/--dpi or --actual-size");
    }
    if (o->smooth && !pixels) {
        return fail(error, errorSize, "--smooth needs --width or --height");
    }
    if (o->section != NULL && o->profile == NULL) {
        return fail(error, errorSize, "--section needs --profile (the section of which profile?)");
    }
    if (o->section != NULL && o->section[0] == '\0') {
        return fail(error, errorSize, "empty section name");
    }
    if (o->profile != NULL && o->profile[0] == '\0') {
        return fail(error, errorSize, "empty profile name");
    }
    /* The Setup block keeps both names in 144-byte fields. */
    if (o->profile != NULL && strlen(o->profile) >= 144) {
        return fail(error, errorSize, "profile name longer than 143 characters");
    }
    if (o->section != NULL && strlen(o->section) >= 144) {
        return fail(error, errorSize, "section name longer than 143 characters");
    }
    return 0;
}

void tolva_matte_colour(const TolvaOptions *o, uint8_t rgb[3])
{
    static const uint8_t kWhite[3] = {255, 255, 255};
    memcpy(rgb, o->matte ? o->matteColour : o->background ? o->backgroundColour : kWhite, 3);
}

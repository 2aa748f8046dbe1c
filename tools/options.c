/*
 * options.c - parses the tolva command line.
 *
 * Long options take their value as "--name=value" or as the next argument;
 * short ones as "-xvalue" or the next argument, and flags may be bundled
 * ("-iq"). "--" ends the options, and a lone "-" is a file name (standard
 * input or output). Every refusal is a usage error with a one-line reason;
 * nothing here prints.
 */
#include "options.h"

#include <errno.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

const char tolva_usage_text[] =
    "Usage: tolva [OPTION]... INPUT OUTPUT\n"
    "Convert a PNG, JPEG, GIF, WebP, TIFF or netpbm (PBM, PGM, PPM, PAM) picture\n"
    "to a GIF file through the libtolva export filter. BMP pictures are not read.\n"
    "INPUT or OUTPUT may be '-' for standard input or output.\n"
    "\n"
    "Size (without these, the size and resolution of the filter's profile are used):\n"
    "  -s, --size=WxH          fit the picture into W by H inches (0.03125 to 22)\n"
    "  -d, --dpi=N             dots per inch of the output (32 to 400)\n"
    "  -a, --actual-size       one GIF pixel for each picture pixel\n"
    "\n"
    "Picture:\n"
    "  -i, --interlace         write an interlaced GIF\n"
    "  -t, --transparent=RRGGBB  make the colour nearest to RRGGBB transparent\n"
    "                          (pictures without transparent pixels of their own)\n"
    "  -b, --background=RRGGBB   set the background colour to the nearest entry\n"
    "  -m, --matte=RRGGBB      blend partly transparent pixels over this colour\n"
    "                          (default: the background colour, else white)\n"
    "      --no-orient         keep the stored orientation (ignore EXIF)\n"
    "      --max-pixels=N      refuse pictures of more than N pixels\n"
    "                          (default 268435456, i.e. 16384x16384)\n"
    "  -c, --colour-mode=MODE  normal, invert, invert-grey, grey or invert-luminance\n"
    "\n"
    "Filter:\n"
    "  -p, --profile=FILE      read the filter's settings from FILE\n"
    "      --section=NAME      profile section that holds the settings\n"
    "      --bands=N           send the picture to the filter in N bands\n"
    "      --library=PATH      load the filter from PATH instead of beside tolva\n"
    "\n"
    "  -q, --quiet             no progress bar\n"
    "  -h, --help              show this help and exit\n"
    "  -V, --version           show the command and filter versions and exit\n"
    "\n"
    "Exit status: 0 success, 1 error, 2 usage error, 130 cancelled.\n";

enum OptionId {
    OPT_SIZE, OPT_DPI, OPT_ACTUAL, OPT_INTERLACE, OPT_TRANSPARENT, OPT_BACKGROUND,
    OPT_COLOUR, OPT_PROFILE, OPT_SECTION, OPT_BANDS, OPT_LIBRARY, OPT_QUIET, OPT_HELP,
    OPT_VERSION, OPT_CANCEL_AT, OPT_MATTE, OPT_MAX_PIXELS, OPT_NO_ORIENT
};

typedef struct OptionInfo {
    const char *name;   /* long name */
    char shortName;     /* 0: long only */
    int takesValue;
    enum OptionId id;
} OptionInfo;

static const OptionInfo kOptions[] = {
    {"size", 's', 1, OPT_SIZE},
    {"dpi", 'd', 1, OPT_DPI},
    {"actual-size", 'a', 0, OPT_ACTUAL},
    {"interlace", 'i', 0, OPT_INTERLACE},
    {"transparent", 't', 1, OPT_TRANSPARENT},
    {"background", 'b', 1, OPT_BACKGROUND},
    {"matte", 'm', 1, OPT_MATTE},
    {"max-pixels", 0, 1, OPT_MAX_PIXELS},
    {"no-orient", 0, 0, OPT_NO_ORIENT},
    {"colour-mode", 'c', 1, OPT_COLOUR},
    {"color-mode", 0, 1, OPT_COLOUR},
    {"profile", 'p', 1, OPT_PROFILE},
    {"section", 0, 1, OPT_SECTION},
    {"bands", 0, 1, OPT_BANDS},
    {"library", 0, 1, OPT_LIBRARY},
    {"quiet", 'q', 0, OPT_QUIET},
    {"help", 'h', 0, OPT_HELP},
    {"version", 'V', 0, OPT_VERSION},
    /* Testing aid, left out of --help: the status function answers stop from
     * its Nth call on, so that a cancel can be tested without timing. */
    {"cancel-at", 0, 1, OPT_CANCEL_AT},
};

/* The filter's colour classes 101..105 become its colour modes 103..107. */
static const struct {
    const char *name;
    int32_t colourClass;
} kColourModes[] = {
    {"normal", 101}, {"invert", 102}, {"invert-grey", 103}, {"grey", 104},
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

static int apply(TolvaOptions *o, const OptionInfo *option, const char *value, char *error,
                 size_t size)
{
    switch (option->id) {
    case OPT_SIZE:
        if (parse_size(value, &o->width, &o->height) != 0) {
            return fail(error, size, "invalid size '%s' (expected WxH in inches, e.g. 4x3)",
                        value);
        }
        return 0;
    case OPT_DPI:
        if (parse_positive(value, &o->dpi) != 0) {
            return fail(error, size, "invalid resolution '%s' (expected dots per inch)", value);
        }
        return 0;
    case OPT_ACTUAL: o->actualSize = 1; return 0;
    case OPT_INTERLACE: o->interlace = 1; return 0;
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
    case OPT_NO_ORIENT: o->keepOrientation = 1; return 0;
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
    case OPT_PROFILE: o->profile = value; return 0;
    case OPT_SECTION: o->section = value; return 0;
    case OPT_BANDS:
        if (parse_positive(value, &o->bands) != 0) {
            return fail(error, size, "invalid band count '%s'", value);
        }
        return 0;
    case OPT_LIBRARY: o->library = value; return 0;
    case OPT_QUIET: o->quiet = 1; return 0;
    case OPT_HELP: o->action = TOLVA_RUN_HELP; return 0;
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

static const OptionInfo *find_long(const char *name, size_t length)
{
    for (size_t i = 0; i < sizeof kOptions / sizeof kOptions[0]; ++i) {
        if (strlen(kOptions[i].name) == length && strncmp(kOptions[i].name, name, length) == 0) {
            return &kOptions[i];
        }
    }
    return NULL;
}

static const OptionInfo *find_short(char c)
{
    for (size_t i = 0; i < sizeof kOptions / sizeof kOptions[0]; ++i) {
        if (kOptions[i].shortName == c) {
            return &kOptions[i];
        }
    }
    return NULL;
}

/* Parses argv[*index] (a long option) and the value after it if needed. */
static int parse_long(int argc, char *const *argv, int *index, TolvaOptions *o, char *error,
                      size_t size)
{
    const char *arg = argv[*index] + 2;
    const char *equals = strchr(arg, '=');
    size_t length = equals ? (size_t)(equals - arg) : strlen(arg);
    const OptionInfo *option = find_long(arg, length);
    if (option == NULL) {
        return fail(error, size, "unknown option '--%.*s'", (int)length, arg);
    }
    const char *value = NULL;
    if (option->takesValue) {
        if (equals != NULL) {
            value = equals + 1;
        } else if (*index + 1 < argc) {
            value = argv[++*index];
        } else {
            return fail(error, size, "option '--%s' needs a value", option->name);
        }
    } else if (equals != NULL) {
        return fail(error, size, "option '--%s' takes no value", option->name);
    }
    return apply(o, option, value, error, size);
}

/* Parses a bundle of short options such as "-iq" or "-s4x3". */
static int parse_short(int argc, char *const *argv, int *index, TolvaOptions *o, char *error,
                       size_t size)
{
    const char *arg = argv[*index];
    for (size_t k = 1; arg[k] != '\0'; ++k) {
        const OptionInfo *option = find_short(arg[k]);
        if (option == NULL) {
            return fail(error, size, "unknown option '-%c'", arg[k]);
        }
        if (!option->takesValue) {
            int r = apply(o, option, NULL, error, size);
            if (r != 0) {
                return r;
            }
            continue;
        }
        const char *value = NULL;
        if (arg[k + 1] != '\0') {
            value = arg + k + 1;
        } else if (*index + 1 < argc) {
            value = argv[++*index];
        } else {
            return fail(error, size, "option '-%c' needs a value", arg[k]);
        }
        return apply(o, option, value, error, size);
    }
    return 0;
}

int tolva_parse_options(int argc, char *const *argv, TolvaOptions *o, char *error,
                        size_t errorSize)
{
    memset(o, 0, sizeof *o);
    error[0] = '\0';
    const char *files[2] = {NULL, NULL};
    int fileCount = 0;
    int optionsEnded = 0;
    for (int i = 1; i < argc; ++i) {
        const char *arg = argv[i];
        int r = 0;
        if (!optionsEnded && strcmp(arg, "--") == 0) {
            optionsEnded = 1;
        } else if (!optionsEnded && arg[0] == '-' && arg[1] == '-') {
            r = parse_long(argc, argv, &i, o, error, errorSize);
        } else if (!optionsEnded && arg[0] == '-' && arg[1] != '\0') {
            r = parse_short(argc, argv, &i, o, error, errorSize);
        } else if (fileCount < 2) {
            files[fileCount++] = arg;
        } else {
            return fail(error, errorSize, "too many file names ('%s')", arg);
        }
        if (r != 0) {
            return r;
        }
    }
    if (o->action != TOLVA_RUN_EXPORT) {
        return 0;
    }
    if (fileCount < 2) {
        return fail(error, errorSize, fileCount == 0 ? "missing input and output files"
                                                     : "missing output file");
    }
    o->input = files[0];
    o->output = files[1];
    if (o->actualSize && (o->width > 0.0 || o->dpi > 0)) {
        return fail(error, errorSize, "--actual-size cannot be combined with --size or --dpi");
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

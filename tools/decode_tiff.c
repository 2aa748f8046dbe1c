/*
 * decode_tiff.c - the first directory of a TIFF. libtiff's RGBA reader knows
 * every photometric interpretation, depth and compression the library
 * supports, but it cuts 16-bit samples to their high byte; 16-bit grey and
 * RGB strips, the common case of scanners and raw converters, are read here
 * by scanline instead so that they round like every other format. The
 * orientation tag is handed on, like an EXIF one, and the rows are read as
 * stored: libtiff would apply the mirrors but not the quarter turns.
 */
#include <dlfcn.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <tiffio.h>

#include "decode.h"

/*
 * libtiff is loaded on the first TIFF, not with the command: it brings a
 * C++ runtime and half a dozen codec libraries, about a millisecond of
 * loading that every run paid before it knew what its picture was.
 */
static struct {
    int tried;
    int loaded;
    char failure[160];
    TIFFOpenOptions *(*optionsAlloc)(void);
    void (*optionsFree)(TIFFOpenOptions *);
    void (*optionsSetErrorHandler)(TIFFOpenOptions *, TIFFErrorHandlerExtR, void *);
    void (*optionsSetWarningHandler)(TIFFOpenOptions *, TIFFErrorHandlerExtR, void *);
    TIFF *(*clientOpen)(const char *, const char *, thandle_t, TIFFReadWriteProc, TIFFReadWriteProc,
                        TIFFSeekProc, TIFFCloseProc, TIFFSizeProc, TIFFMapFileProc,
                        TIFFUnmapFileProc, TIFFOpenOptions *);
    void (*close)(TIFF *);
    int (*getField)(TIFF *, uint32_t, ...);
    int (*getFieldDefaulted)(TIFF *, uint32_t, ...);
    int (*setField)(TIFF *, uint32_t, ...);
    int (*isTiled)(TIFF *);
    int (*rgbaImageOK)(TIFF *, char[1024]);
    int (*readRGBAImageOriented)(TIFF *, uint32_t, uint32_t, uint32_t *, int, int);
    int (*readScanline)(TIFF *, void *, uint32_t, uint16_t);
    tmsize_t (*scanlineSize)(TIFF *);
    int (*readDirectory)(TIFF *);
    void *(*malloc)(tmsize_t);
    void (*free)(void *);
} tiff_lib;

static int load_libtiff(void)
{
    if (tiff_lib.tried) {
        return tiff_lib.loaded;
    }
    tiff_lib.tried = 1;
    void *h = dlopen(TOLVA_TIFF_SONAME, RTLD_NOW | RTLD_LOCAL);
    if (h == NULL) {
        snprintf(tiff_lib.failure, sizeof tiff_lib.failure, "%s could not be loaded",
                 TOLVA_TIFF_SONAME);
        return 0;
    }
    /* Object pointers from dlsym become function pointers through memcpy,
     * which ISO C allows where a cast would not be. */
    struct {
        const char *name;
        void *slot;
        size_t size;
    } const symbols[] = {
#define TIFF_SYMBOL(name, field) {name, &tiff_lib.field, sizeof tiff_lib.field}
        TIFF_SYMBOL("TIFFOpenOptionsAlloc", optionsAlloc),
        TIFF_SYMBOL("TIFFOpenOptionsFree", optionsFree),
        TIFF_SYMBOL("TIFFOpenOptionsSetErrorHandlerExtR", optionsSetErrorHandler),
        TIFF_SYMBOL("TIFFOpenOptionsSetWarningHandlerExtR", optionsSetWarningHandler),
        TIFF_SYMBOL("TIFFClientOpenExt", clientOpen),
        TIFF_SYMBOL("TIFFClose", close),
        TIFF_SYMBOL("TIFFGetField", getField),
        TIFF_SYMBOL("TIFFGetFieldDefaulted", getFieldDefaulted),
        TIFF_SYMBOL("TIFFSetField", setField),
        TIFF_SYMBOL("TIFFIsTiled", isTiled),
        TIFF_SYMBOL("TIFFRGBAImageOK", rgbaImageOK),
        TIFF_SYMBOL("TIFFReadRGBAImageOriented", readRGBAImageOriented),
        TIFF_SYMBOL("TIFFReadScanline", readScanline),
        TIFF_SYMBOL("TIFFScanlineSize", scanlineSize),
        TIFF_SYMBOL("TIFFReadDirectory", readDirectory),
        TIFF_SYMBOL("_TIFFmalloc", malloc),
        TIFF_SYMBOL("_TIFFfree", free),
#undef TIFF_SYMBOL
    };
    for (size_t i = 0; i < sizeof symbols / sizeof symbols[0]; ++i) {
        void *address = dlsym(h, symbols[i].name);
        if (address == NULL) {
            snprintf(tiff_lib.failure, sizeof tiff_lib.failure, "%s has no %s", TOLVA_TIFF_SONAME,
                     symbols[i].name);
            dlclose(h);
            return 0;
        }
        memcpy(symbols[i].slot, &address, symbols[i].size);
    }
    tiff_lib.loaded = 1;
    return 1;
}

typedef struct TiffSource {
    const TolvaDecodeJob *job;
    toff_t position;
    char message[200];
} TiffSource;

static tmsize_t read_memory(thandle_t handle, void *out, tmsize_t count)
{
    TiffSource *source = (TiffSource *)handle;
    size_t left = source->position < source->job->size ? source->job->size - source->position : 0;
    size_t n = count < 0 ? 0 : (size_t)count;
    if (n > left) {
        n = left;
    }
    memcpy(out, source->job->data + source->position, n);
    source->position += n;
    return (tmsize_t)n;
}

static tmsize_t refuse_write(thandle_t handle, void *data, tmsize_t count)
{
    (void)handle;
    (void)data;
    (void)count;
    return 0;
}

static toff_t seek_memory(thandle_t handle, toff_t offset, int whence)
{
    TiffSource *source = (TiffSource *)handle;
    toff_t base = whence == SEEK_CUR   ? source->position
                  : whence == SEEK_END ? source->job->size
                                       : 0;
    source->position = base + offset;
    return source->position;
}

static int close_memory(thandle_t handle)
{
    (void)handle;
    return 0;
}

static toff_t size_of_memory(thandle_t handle) { return ((TiffSource *)handle)->job->size; }

static int on_error(TIFF *tiff, void *user, const char *module, const char *format, va_list args)
{
    (void)tiff;
    (void)module;
    TiffSource *source = (TiffSource *)user;
    if (source->message[0] == '\0') {
        vsnprintf(source->message, sizeof source->message, format, args);
    }
    return 1;
}

static int on_warning(TIFF *tiff, void *user, const char *module, const char *format, va_list args)
{
    (void)tiff;
    (void)user;
    (void)module;
    (void)format;
    (void)args;
    return 1;
}

/* libtiff packs A, B, G, R into a word and premultiplies colour by alpha. */
static void unpack_pixels(TolvaImage *image)
{
    size_t count = (size_t)image->width * (size_t)image->height;
    uint8_t *p = image->pixels;
    for (size_t i = 0; i < count; ++i, p += 4) {
        uint32_t word;
        memcpy(&word, p, 4);
        uint32_t a = TIFFGetA(word);
        uint32_t rgb[3] = {TIFFGetR(word), TIFFGetG(word), TIFFGetB(word)};
        for (int c = 0; c < 3; ++c) {
            if (a != 0 && a != 255) {
                rgb[c] = (rgb[c] * 255u + a / 2u) / a;
            }
            p[c] = (uint8_t)(rgb[c] > 255 ? 255 : rgb[c]);
        }
        p[3] = (uint8_t)a;
    }
}

/* Straight colour from colour premultiplied by alpha, both 0..maxval. */
static uint32_t unpremultiply(uint32_t value, uint32_t alpha, uint32_t maxval)
{
    if (alpha == 0 || alpha >= maxval) {
        return value;
    }
    uint64_t straight = ((uint64_t)value * maxval + alpha / 2u) / alpha;
    return straight > maxval ? maxval : (uint32_t)straight;
}

/* Whether the directory is 16-bit grey or RGB (with at most one alpha
 * sample) in strips of interleaved samples, which read_16bit takes. */
static int is_16bit_strips(TIFF *tiff, uint16_t *photometric, uint16_t *samples, int *alpha,
                           int *associated)
{
    uint16_t bits = 0, planar = PLANARCONFIG_CONTIG, extraCount = 0, format = SAMPLEFORMAT_UINT;
    uint16_t *extra = NULL;
    tiff_lib.getFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &bits);
    tiff_lib.getFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &planar);
    tiff_lib.getFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, samples);
    tiff_lib.getFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &format);
    tiff_lib.getFieldDefaulted(tiff, TIFFTAG_EXTRASAMPLES, &extraCount, &extra);
    if (bits != 16 || planar != PLANARCONFIG_CONTIG || format != SAMPLEFORMAT_UINT ||
        tiff_lib.isTiled(tiff) || !tiff_lib.getField(tiff, TIFFTAG_PHOTOMETRIC, photometric)) {
        return 0;
    }
    int colours =
        *photometric == PHOTOMETRIC_RGB                                                      ? 3
        : (*photometric == PHOTOMETRIC_MINISBLACK || *photometric == PHOTOMETRIC_MINISWHITE) ? 1
                                                                                             : 0;
    if (colours == 0 || extraCount > 1 || *samples != colours + extraCount) {
        return 0;
    }
    *alpha = extraCount == 1;
    *associated = *alpha && extra != NULL && extra[0] == EXTRASAMPLE_ASSOCALPHA;
    return 1;
}

static TolvaImageResult read_16bit(TIFF *tiff, TolvaDecodeJob *job, TiffSource *source,
                                   uint16_t photometric, uint16_t samples, int alpha,
                                   int associated)
{
    TolvaImage *image = job->image;
    tmsize_t lineSize = tiff_lib.scanlineSize(tiff);
    if (lineSize < (tmsize_t)image->width * samples * 2) {
        return tolva_corrupt(job, "TIFF", "scanline shorter than its pixels");
    }
    uint16_t *line = tiff_lib.malloc(lineSize);
    if (line == NULL) {
        snprintf(job->error, job->errorSize, "not enough memory to read the TIFF file");
        return TOLVA_IMAGE_NO_MEMORY;
    }
    int grey = photometric != PHOTOMETRIC_RGB;
    TolvaImageResult result = TOLVA_IMAGE_OK;
    for (int32_t y = 0; y < image->height && result == TOLVA_IMAGE_OK; ++y) {
        if (tiff_lib.readScanline(tiff, line, (uint32_t)y, 0) < 0) {
            result = tolva_corrupt(job, "TIFF", source->message);
            break;
        }
        uint8_t *out = tolva_image_row(image, y);
        size_t step = (size_t)image->bits / 8;
        for (int32_t x = 0; x < image->width; ++x, out += step) {
            const uint16_t *in = line + (size_t)x * samples;
            uint32_t a = alpha ? in[samples - 1] : 65535u;
            for (int c = 0; c < 3; ++c) {
                uint32_t v = in[grey ? 0 : c];
                if (associated) {
                    v = unpremultiply(v, a, 65535u);
                }
                if (photometric == PHOTOMETRIC_MINISWHITE) {
                    v = 65535u - v;
                }
                out[c] = tolva_scale_sample(v, 65535u);
            }
            if (alpha) {
                out[3] = tolva_scale_sample(a, 65535u);
            }
        }
    }
    tiff_lib.free(line);
    return result;
}

/* Whether a whole image follows the one read: a later directory that holds
 * only a reduced copy (a thumbnail) does not count. A file's chain of
 * directories may be long or looped, so only so many are looked at. */
static int another_image_follows(TIFF *tiff)
{
    for (int k = 0; k < 64 && tiff_lib.readDirectory(tiff) == 1; ++k) {
        uint32_t kind = 0;
        tiff_lib.getFieldDefaulted(tiff, TIFFTAG_SUBFILETYPE, &kind);
        if ((kind & FILETYPE_REDUCEDIMAGE) == 0) {
            return 1;
        }
    }
    return 0;
}

TolvaImageResult tolva_decode_tiff(TolvaDecodeJob *job)
{
    if (!load_libtiff()) {
        snprintf(job->error, job->errorSize, "cannot read TIFF files: %s", tiff_lib.failure);
        return TOLVA_IMAGE_UNSUPPORTED;
    }
    TiffSource source = {job, 0, ""};
    TIFFOpenOptions *options = tiff_lib.optionsAlloc();
    if (options == NULL) {
        snprintf(job->error, job->errorSize, "not enough memory to read the TIFF file");
        return TOLVA_IMAGE_NO_MEMORY;
    }
    tiff_lib.optionsSetErrorHandler(options, on_error, &source);
    tiff_lib.optionsSetWarningHandler(options, on_warning, &source);
    TIFF *tiff =
        tiff_lib.clientOpen("input", "rm", (thandle_t)&source, read_memory, refuse_write,
                            seek_memory, close_memory, size_of_memory, NULL, NULL, options);
    tiff_lib.optionsFree(options);
    if (tiff == NULL) {
        return tolva_corrupt(job, "TIFF", source.message);
    }
    uint32_t width = 0, height = 0;
    tiff_lib.getField(tiff, TIFFTAG_IMAGEWIDTH, &width);
    tiff_lib.getField(tiff, TIFFTAG_IMAGELENGTH, &height);
    TolvaImageResult result = tolva_check_size(job, width, height);
    char reason[1024] = "";
    if (result == TOLVA_IMAGE_OK && !tiff_lib.rgbaImageOK(tiff, reason)) {
        result = tolva_corrupt(job, "TIFF", source.message[0] != '\0' ? source.message : reason);
    }
    uint16_t photometric = 0, samples = 0;
    int alpha = 0, associated = 0;
    int wide = result == TOLVA_IMAGE_OK &&
               is_16bit_strips(tiff, &photometric, &samples, &alpha, &associated);
    if (result == TOLVA_IMAGE_OK) {
        int16_t bits = wide && !alpha ? 24 : 32;
        result = tolva_allocate_image(job->image, width, height, bits, job->error, job->errorSize);
    }
    uint16_t orientation = ORIENTATION_TOPLEFT;
    tiff_lib.getFieldDefaulted(tiff, TIFFTAG_ORIENTATION, &orientation);
    if (result == TOLVA_IMAGE_OK) {
        /* The rows as stored; turning them is the orientation's job. */
        tiff_lib.setField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
        job->image->orientation = orientation >= 1 && orientation <= 8 ? orientation : 1;
        if (wide) {
            result = read_16bit(tiff, job, &source, photometric, samples, alpha, associated);
        } else if (tiff_lib.readRGBAImageOriented(tiff, width, height,
                                                  (uint32_t *)(void *)job->image->pixels,
                                                  ORIENTATION_BOTLEFT, 1)) {
            /* Bottom-left first is the order the picture keeps its rows in. */
            unpack_pixels(job->image);
        } else {
            result = tolva_corrupt(job, "TIFF", source.message);
        }
    }
    if (result == TOLVA_IMAGE_OK) {
        job->image->moreImages = another_image_follows(tiff);
    }
    tiff_lib.close(tiff);
    return result;
}

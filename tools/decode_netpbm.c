/*
 * decode_netpbm.c - PBM, PGM, PPM and PAM (plain and raw, any maxval up to
 * 65535) through libnetpbm. Its PAM interface reads every header; the rows of
 * the three older formats then come through their own row readers, which
 * unpack a whole row to plain integers (PBM: packed bits) in one call, far
 * cheaper than the tuples the PAM reader builds. Only the first picture of a
 * stream is read.
 *
 * libnetpbm ends the process on bad input unless it has a jump buffer: every
 * call into it runs under one, and its messages are collected rather than
 * printed.
 */
#include <setjmp.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <pam.h>
#include <pbm.h>
#include <pgm.h>
#include <ppm.h>

#include "decode.h"

static char netpbm_message[200];

static void on_error(const char *message)
{
    if (netpbm_message[0] == '\0') {
        snprintf(netpbm_message, sizeof netpbm_message, "%s", message);
    }
}

static void on_message(const char *message) { (void)message; }

static int16_t depth_bits(const struct pam *pam)
{
    int alpha = strstr(pam->tuple_type, "_ALPHA") != NULL;
    switch (pam->depth) {
    case 1:
        return 24;
    case 2:
        return alpha ? 32 : 0;
    case 3:
        return 24;
    case 4:
        return alpha ? 32 : 0;
    default:
        return 0;
    }
}

/* Every sample value a picture can hold, scaled to 8 bits once: the rows
 * then take a table look-up a sample instead of a division. */
struct sample_scale {
    uint32_t maxval;
    uint8_t to8[65536];
};

static struct sample_scale *make_scale(uint32_t maxval)
{
    struct sample_scale *scale = malloc(sizeof *scale);
    if (scale == NULL) {
        return NULL;
    }
    scale->maxval = maxval;
    for (uint32_t v = 0; v <= maxval && v < 65536u; ++v) {
        scale->to8[v] = tolva_scale_sample(v, maxval);
    }
    return scale;
}

static uint8_t scaled(const struct sample_scale *scale, sample value)
{
    return value >= scale->maxval ? 255 : scale->to8[value];
}

/* PAM: the only format with alpha or a tuple type, so the only one read as
 * tuples. */
static void convert_tuples(const struct pam *pam, const struct sample_scale *scale, tuple *row,
                           uint8_t *out)
{
    int grey = pam->depth <= 2;
    int alpha = pam->depth == 2 || pam->depth == 4;
    int step = alpha ? 4 : 3;
    for (int x = 0; x < pam->width; ++x, out += step) {
        const sample *t = row[x];
        out[0] = scaled(scale, t[0]);
        out[1] = grey ? out[0] : scaled(scale, t[1]);
        out[2] = grey ? out[0] : scaled(scale, t[2]);
        if (alpha) {
            out[3] = scaled(scale, t[grey ? 1 : 3]);
        }
    }
}

/* A raw file's samples of maxval 255 are its bytes, already in range: the
 * common photograph takes this loop, which the compiler vectorises. */
static void narrow_pixels(const pixel *row, int width, uint8_t *out)
{
    for (int x = 0; x < width; ++x, out += 3) {
        out[0] = (uint8_t)row[x].r;
        out[1] = (uint8_t)row[x].g;
        out[2] = (uint8_t)row[x].b;
    }
}

static void scale_pixels(const pixel *row, int width, const struct sample_scale *scale,
                         uint8_t *out)
{
    for (int x = 0; x < width; ++x, out += 3) {
        out[0] = scaled(scale, row[x].r);
        out[1] = scaled(scale, row[x].g);
        out[2] = scaled(scale, row[x].b);
    }
}

static void scale_greys(const gray *row, int width, const struct sample_scale *scale, uint8_t *out)
{
    for (int x = 0; x < width; ++x, out += 3) {
        uint8_t v = scaled(scale, row[x]);
        out[0] = v;
        out[1] = v;
        out[2] = v;
    }
}

/* A set bit is black. */
static void expand_bits(const unsigned char *packed, int width, uint8_t *out)
{
    for (int x = 0; x < width; ++x, out += 3) {
        uint8_t v = (packed[x >> 3] >> (7 - (x & 7))) & 1u ? 0 : 255;
        out[0] = v;
        out[1] = v;
        out[2] = v;
    }
}

/* What one picture's rows are read into: exactly one of these is in use.
 * Volatile, as they are freed after a jump out of libnetpbm. */
struct netpbm_rows {
    tuple *volatile tuples;
    pixel *volatile pixels;
    gray *volatile greys;
    unsigned char *volatile bits;
};

static int allocate_rows(const struct pam *pam, struct netpbm_rows *rows)
{
    switch (PAM_FORMAT_TYPE(pam->format)) {
    case PPM_TYPE:
        rows->pixels = ppm_allocrow(pam->width);
        return rows->pixels != NULL;
    case PGM_TYPE:
        rows->greys = pgm_allocrow(pam->width);
        return rows->greys != NULL;
    case PBM_TYPE:
        rows->bits = pbm_allocrow_packed((unsigned)pam->width);
        return rows->bits != NULL;
    default:
        rows->tuples = pnm_allocpamrow(pam);
        return rows->tuples != NULL;
    }
}

static void free_rows(struct netpbm_rows *rows)
{
    if (rows->tuples != NULL) {
        pnm_freepamrow(rows->tuples);
    }
    if (rows->pixels != NULL) {
        ppm_freerow(rows->pixels);
    }
    if (rows->greys != NULL) {
        pgm_freerow(rows->greys);
    }
    if (rows->bits != NULL) {
        pbm_freerow_packed(rows->bits);
    }
    rows->tuples = NULL;
    rows->pixels = NULL;
    rows->greys = NULL;
    rows->bits = NULL;
}

/* One row from the top, read by the cheapest reader for its format and
 * written straight into the picture. */
static void read_row(struct pam *pam, const struct sample_scale *scale,
                     const struct netpbm_rows *rows, uint8_t *out)
{
    if (rows->pixels != NULL) {
        ppm_readppmrow(pam->file, rows->pixels, pam->width, (pixval)pam->maxval, pam->format);
        if (pam->maxval == 255 && pam->format == RPPM_FORMAT) {
            narrow_pixels(rows->pixels, pam->width, out);
        } else {
            scale_pixels(rows->pixels, pam->width, scale, out);
        }
    } else if (rows->greys != NULL) {
        pgm_readpgmrow(pam->file, rows->greys, pam->width, (gray)pam->maxval, pam->format);
        scale_greys(rows->greys, pam->width, scale, out);
    } else if (rows->bits != NULL) {
        pbm_readpbmrow_packed(pam->file, rows->bits, pam->width, pam->format);
        expand_bits(rows->bits, pam->width, out);
    } else {
        pnm_readpamrow(pam, rows->tuples);
        convert_tuples(pam, scale, rows->tuples, out);
    }
}

TolvaImageResult tolva_decode_netpbm(TolvaDecodeJob *job)
{
    static int initialised = 0;
    if (!initialised) {
        pm_init("tolva", 0);
        pm_setusererrormsgfn(on_error);
        pm_setusermessagefn(on_message);
        initialised = 1;
    }
    FILE *file = fmemopen((void *)job->data, job->size, "rb");
    if (file == NULL) {
        snprintf(job->error, job->errorSize, "not enough memory to read the netpbm file");
        return TOLVA_IMAGE_NO_MEMORY;
    }
    netpbm_message[0] = '\0';
    struct pam pam;
    struct netpbm_rows rows = {NULL, NULL, NULL, NULL};
    struct sample_scale *volatile scale = NULL;
    jmp_buf escape;
    jmp_buf *previous = NULL;
    pm_setjmpbufsave(&escape, &previous);
    if (setjmp(escape)) {
        pm_setjmpbuf(previous);
        free_rows(&rows);
        free(scale);
        fclose(file);
        return tolva_corrupt(job, "netpbm", netpbm_message);
    }
    /* PAM_STRUCT_SIZE reaches the member through a null pointer. */
    pnm_readpaminit(file, &pam, (int)(offsetof(struct pam, tuple_type) + sizeof pam.tuple_type));
    TolvaImageResult result = tolva_check_size(job, (uint64_t)(pam.width < 0 ? 0 : pam.width),
                                               (uint64_t)(pam.height < 0 ? 0 : pam.height));
    int16_t bits = depth_bits(&pam);
    if (result == TOLVA_IMAGE_OK && bits == 0) {
        char detail[300];
        snprintf(detail, sizeof detail, "%u samples a pixel of type '%.200s' are not a picture",
                 pam.depth, pam.tuple_type);
        result = tolva_corrupt(job, "netpbm", detail);
    }
    if (result == TOLVA_IMAGE_OK) {
        result = tolva_allocate_image(job->image, (uint32_t)pam.width, (uint32_t)pam.height, bits,
                                      job->error, job->errorSize);
    }
    if (result == TOLVA_IMAGE_OK) {
        scale = make_scale((uint32_t)pam.maxval);
        if (scale == NULL) {
            snprintf(job->error, job->errorSize, "not enough memory to read the netpbm file");
            result = TOLVA_IMAGE_NO_MEMORY;
        }
    }
    if (result == TOLVA_IMAGE_OK && !allocate_rows(&pam, &rows)) {
        snprintf(job->error, job->errorSize, "not enough memory to read the netpbm file");
        result = TOLVA_IMAGE_NO_MEMORY;
    }
    if (result == TOLVA_IMAGE_OK) {
        for (int32_t y = 0; y < job->image->height; ++y) {
            read_row(&pam, scale, &rows, tolva_image_row(job->image, y));
        }
    }
    free_rows(&rows);
    free(scale);
    pm_setjmpbuf(previous);
    fclose(file);
    return result;
}

/*
 * decode_netpbm.c - PBM, PGM, PPM and PAM (plain and raw, any maxval up to
 * 65535) through libnetpbm's PAM interface, which presents all of them as
 * rows of tuples. Only the first picture of a stream is read.
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

static void convert_row(const struct pam *pam, const struct sample_scale *scale, tuple *row,
                        uint8_t *out)
{
    int grey = pam->depth <= 2;
    int alpha = pam->depth == 2 || pam->depth == 4;
    if (!grey && !alpha) {
        for (int x = 0; x < pam->width; ++x, out += 3) {
            const sample *t = row[x];
            out[0] = scaled(scale, t[0]);
            out[1] = scaled(scale, t[1]);
            out[2] = scaled(scale, t[2]);
        }
        return;
    }
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
    tuple *volatile row = NULL;
    struct sample_scale *volatile scale = NULL;
    jmp_buf escape;
    jmp_buf *previous = NULL;
    pm_setjmpbufsave(&escape, &previous);
    if (setjmp(escape)) {
        pm_setjmpbuf(previous);
        if (row != NULL) {
            pnm_freepamrow(row);
        }
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
    if (result == TOLVA_IMAGE_OK) {
        row = pnm_allocpamrow(&pam);
        for (int32_t y = 0; y < job->image->height; ++y) {
            pnm_readpamrow(&pam, row);
            convert_row(&pam, scale, row, tolva_image_row(job->image, y));
        }
        pnm_freepamrow(row);
    }
    free(scale);
    pm_setjmpbuf(previous);
    fclose(file);
    return result;
}

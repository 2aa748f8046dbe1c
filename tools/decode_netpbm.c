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
    case 1: return 24;
    case 2: return alpha ? 32 : 0;
    case 3: return 24;
    case 4: return alpha ? 32 : 0;
    default: return 0;
    }
}

static void convert_row(const struct pam *pam, tuple *row, uint8_t *out)
{
    uint32_t maxval = (uint32_t)pam->maxval;
    int grey = pam->depth <= 2;
    int alpha = pam->depth == 2 || pam->depth == 4;
    int step = alpha ? 4 : 3;
    for (int x = 0; x < pam->width; ++x, out += step) {
        const sample *t = row[x];
        out[0] = tolva_scale_sample((uint32_t)t[0], maxval);
        out[1] = grey ? out[0] : tolva_scale_sample((uint32_t)t[1], maxval);
        out[2] = grey ? out[0] : tolva_scale_sample((uint32_t)t[2], maxval);
        if (alpha) {
            out[3] = tolva_scale_sample((uint32_t)t[grey ? 1 : 3], maxval);
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
    jmp_buf escape;
    jmp_buf *previous = NULL;
    pm_setjmpbufsave(&escape, &previous);
    if (setjmp(escape)) {
        pm_setjmpbuf(previous);
        if (row != NULL) {
            pnm_freepamrow(row);
        }
        fclose(file);
        return tolva_corrupt(job, "netpbm", netpbm_message);
    }
    /* PAM_STRUCT_SIZE reaches the member through a null pointer. */
    pnm_readpaminit(file, &pam, (int)(offsetof(struct pam, tuple_type) + sizeof pam.tuple_type));
    TolvaImageResult result =
        tolva_check_size(job, (uint64_t)(pam.width < 0 ? 0 : pam.width),
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
        row = pnm_allocpamrow(&pam);
        for (int32_t y = 0; y < job->image->height; ++y) {
            pnm_readpamrow(&pam, row);
            convert_row(&pam, row, tolva_image_row(job->image, y));
        }
        pnm_freepamrow(row);
    }
    pm_setjmpbuf(previous);
    fclose(file);
    return result;
}

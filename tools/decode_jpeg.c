/*
 * decode_jpeg.c - JPEG through libjpeg-turbo, into RGB rows.
 *
 * CMYK and YCCK pictures are converted to RGB here rather than sent to the
 * filter as CMYK cells: the device's cell arrays carry no colour model, so a
 * 32-bit band would be read as RGB plus a spare byte, and 24-bit bands are
 * the ones the filter reduces with median cut.
 */
#include <setjmp.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <jerror.h>
#include <jpeglib.h>

#include "decode.h"

/* A progressive file may hold any number of scans, each a pass over the
 * whole picture; real encoders write about ten. */
#define MAX_SCANS 500

typedef struct JpegError {
    struct jpeg_error_mgr manager;
    jmp_buf escape;
    int endedEarly;
    char message[JMSG_LENGTH_MAX];
} JpegError;

static void on_error(j_common_ptr cinfo)
{
    JpegError *error = (JpegError *)cinfo->err;
    if (error->message[0] == '\0') {
        (*cinfo->err->format_message)(cinfo, error->message);
    }
    longjmp(error->escape, 1);
}

static void on_message(j_common_ptr cinfo, int level)
{
    /* Warnings are counted (the end of the file is looked at below); trace
     * messages are dropped. */
    if (level < 0) {
        cinfo->err->num_warnings++;
        if (cinfo->err->msg_code == JWRN_JPEG_EOF) {
            ((JpegError *)cinfo->err)->endedEarly = 1;
        }
    }
}

static void on_progress(j_common_ptr cinfo)
{
    j_decompress_ptr decompress = (j_decompress_ptr)cinfo;
    struct jpeg_progress_mgr *p = cinfo->progress;
    if (p->total_passes > 0 && p->pass_limit > 0) {
        tolva_reading_progress(
            (uint64_t)p->completed_passes * (uint64_t)p->pass_limit + (uint64_t)p->pass_counter,
            (uint64_t)p->total_passes * (uint64_t)p->pass_limit);
    }
    if (decompress->input_scan_number > MAX_SCANS) {
        JpegError *error = (JpegError *)cinfo->err;
        snprintf(error->message, sizeof error->message, "more than %d scans", MAX_SCANS);
        longjmp(error->escape, 1);
    }
}

static uint8_t multiply(unsigned a, unsigned b) { return (uint8_t)((a * b + 127u) / 255u); }

/* Adobe's encoders store CMYK inverted (0 is full ink); others do not. */
static void cmyk_to_rgb(const uint8_t *in, uint8_t *out, int32_t width, int inverted)
{
    for (int32_t x = 0; x < width; ++x, in += 4, out += 3) {
        unsigned c = in[0], m = in[1], y = in[2], k = in[3];
        if (!inverted) {
            c = 255u - c, m = 255u - m, y = 255u - y, k = 255u - k;
        }
        out[0] = multiply(c, k);
        out[1] = multiply(m, k);
        out[2] = multiply(y, k);
    }
}

static void take_orientation(j_decompress_ptr cinfo, TolvaImage *image)
{
    for (jpeg_saved_marker_ptr m = cinfo->marker_list; m != NULL; m = m->next) {
        if (m->marker == JPEG_APP0 + 1 && m->data_length > 6 &&
            memcmp(m->data, "Exif\0\0", 6) == 0) {
            image->orientation = tolva_exif_orientation(m->data, m->data_length);
            return;
        }
    }
}

TolvaImageResult tolva_decode_jpeg(TolvaDecodeJob *job)
{
    struct jpeg_decompress_struct cinfo;
    JpegError error;
    struct jpeg_progress_mgr progress;
    memset(&error, 0, sizeof error);
    cinfo.err = jpeg_std_error(&error.manager);
    error.manager.error_exit = on_error;
    error.manager.emit_message = on_message;
    uint8_t *volatile cmyk = NULL;
    if (setjmp(error.escape)) {
        free(cmyk);
        jpeg_destroy_decompress(&cinfo);
        return tolva_corrupt(job, "JPEG", error.message);
    }
    jpeg_create_decompress(&cinfo);
    progress.progress_monitor = on_progress;
    cinfo.progress = &progress;
    jpeg_mem_src(&cinfo, job->data, (unsigned long)job->size);
    jpeg_save_markers(&cinfo, JPEG_APP0 + 1, 0xffff);
    (void)jpeg_read_header(&cinfo, TRUE);
    TolvaImageResult result = tolva_check_size(job, cinfo.image_width, cinfo.image_height);
    if (result != TOLVA_IMAGE_OK) {
        jpeg_destroy_decompress(&cinfo);
        return result;
    }
    int isCmyk = cinfo.jpeg_color_space == JCS_CMYK || cinfo.jpeg_color_space == JCS_YCCK;
    cinfo.out_color_space = isCmyk ? JCS_CMYK : JCS_RGB;
    take_orientation(&cinfo, job->image);
    jpeg_start_decompress(&cinfo);
    TolvaImage *image = job->image;
    result = tolva_allocate_image(image, cinfo.output_width, cinfo.output_height, 24, job->error,
                                  job->errorSize);
    if (result == TOLVA_IMAGE_OK && isCmyk) {
        cmyk = (uint8_t *)malloc((size_t)cinfo.output_width * 4);
        if (cmyk == NULL) {
            snprintf(job->error, job->errorSize, "not enough memory to read the JPEG file");
            result = TOLVA_IMAGE_NO_MEMORY;
        }
    }
    if (result != TOLVA_IMAGE_OK) {
        jpeg_destroy_decompress(&cinfo);
        return result;
    }
    while (cinfo.output_scanline < cinfo.output_height) {
        uint8_t *row = tolva_image_row(image, (int32_t)cinfo.output_scanline);
        JSAMPROW target = cmyk != NULL ? cmyk : row;
        if (jpeg_read_scanlines(&cinfo, &target, 1) != 1) {
            break;
        }
        if (cmyk != NULL) {
            cmyk_to_rgb(cmyk, row, image->width, cinfo.saw_Adobe_marker);
        }
    }
    /* libjpeg fills a file that stops early with grey and only warns. */
    if (error.endedEarly) {
        snprintf(error.message, sizeof error.message, "the file ends early");
        longjmp(error.escape, 1);
    }
    free(cmyk);
    jpeg_destroy_decompress(&cinfo);
    return TOLVA_IMAGE_OK;
}

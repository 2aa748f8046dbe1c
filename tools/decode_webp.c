/*
 * decode_webp.c - WebP through libwebp: the first frame (the whole picture of
 * a still file) as RGB, or RGB with alpha when the file has any; the EXIF
 * chunk gives the orientation.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <webp/decode.h>
#include <webp/demux.h>

#include "decode.h"

static const char *status_text(VP8StatusCode status)
{
    switch (status) {
    case VP8_STATUS_OUT_OF_MEMORY:
        return "out of memory";
    case VP8_STATUS_INVALID_PARAM:
        return "invalid parameter";
    case VP8_STATUS_BITSTREAM_ERROR:
        return "bad bitstream";
    case VP8_STATUS_UNSUPPORTED_FEATURE:
        return "unsupported feature";
    case VP8_STATUS_NOT_ENOUGH_DATA:
        return "the file ends early";
    default:
        return "unreadable";
    }
}

/* libwebp writes rows top first; the picture keeps them bottom first. */
static void turn_rows_over(TolvaImage *image)
{
    for (int32_t top = 0, bottom = image->height - 1; top < bottom; ++top, --bottom) {
        uint8_t *a = image->pixels + (size_t)image->stride * (size_t)top;
        uint8_t *b = image->pixels + (size_t)image->stride * (size_t)bottom;
        for (uint32_t i = 0; i < image->stride; ++i) {
            uint8_t t = a[i];
            a[i] = b[i];
            b[i] = t;
        }
    }
}

static TolvaImageResult decode_frame(TolvaDecodeJob *job, const uint8_t *data, size_t size)
{
    WebPBitstreamFeatures features;
    VP8StatusCode status = WebPGetFeatures(data, size, &features);
    if (status != VP8_STATUS_OK) {
        return tolva_corrupt(job, "WebP", status_text(status));
    }
    TolvaImageResult result =
        tolva_check_size(job, (uint64_t)(features.width < 0 ? 0 : features.width),
                         (uint64_t)(features.height < 0 ? 0 : features.height));
    if (result != TOLVA_IMAGE_OK) {
        return result;
    }
    TolvaImage *image = job->image;
    int16_t bits = features.has_alpha ? 32 : 24;
    result = tolva_allocate_image(image, (uint32_t)features.width, (uint32_t)features.height, bits,
                                  job->error, job->errorSize);
    if (result != TOLVA_IMAGE_OK) {
        return result;
    }
    size_t bytes = (size_t)image->stride * (size_t)image->height;
    uint8_t *done = bits == 32
                        ? WebPDecodeRGBAInto(data, size, image->pixels, bytes, (int)image->stride)
                        : WebPDecodeRGBInto(data, size, image->pixels, bytes, (int)image->stride);
    if (done == NULL) {
        return tolva_corrupt(job, "WebP", "bad bitstream");
    }
    turn_rows_over(image);
    return TOLVA_IMAGE_OK;
}

TolvaImageResult tolva_decode_webp(TolvaDecodeJob *job)
{
    WebPData whole = {job->data, job->size};
    WebPDemuxer *demux = WebPDemux(&whole);
    if (demux == NULL) {
        return tolva_corrupt(job, "WebP", "bad container");
    }
    WebPIterator frame;
    TolvaImageResult result;
    if (WebPDemuxGetFrame(demux, 1, &frame)) {
        result = decode_frame(job, frame.fragment.bytes, frame.fragment.size);
        WebPDemuxReleaseIterator(&frame);
    } else {
        result = tolva_corrupt(job, "WebP", "no frame in it");
    }
    if (result == TOLVA_IMAGE_OK) {
        job->image->moreImages = WebPDemuxGetI(demux, WEBP_FF_FRAME_COUNT) > 1;
    }
    WebPChunkIterator chunk;
    if (result == TOLVA_IMAGE_OK && WebPDemuxGetChunk(demux, "EXIF", 1, &chunk)) {
        job->image->orientation = tolva_exif_orientation(chunk.chunk.bytes, chunk.chunk.size);
        WebPDemuxReleaseChunkIterator(&chunk);
    }
    WebPDemuxDelete(demux);
    return result;
}

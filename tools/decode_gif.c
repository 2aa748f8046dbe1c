/*
 * decode_gif.c - the first image of a GIF through giflib, as palette
 * indices; the graphic control extension before it gives the transparent
 * entry. The picture is that image's own rectangle; whether more images
 * follow is noted.
 */
#include <gif_lib.h>
#include <stdio.h>
#include <string.h>

#include "decode.h"

typedef struct GifSource {
    const TolvaDecodeJob *job;
    size_t position;
} GifSource;

static int read_memory(GifFileType *gif, GifByteType *out, int count)
{
    GifSource *source = (GifSource *)gif->UserData;
    size_t left = source->job->size - source->position;
    size_t n = count < 0 ? 0 : (size_t)count;
    if (n > left) {
        n = left;
    }
    memcpy(out, source->job->data + source->position, n);
    source->position += n;
    return (int)n;
}

static TolvaImageResult fail(const TolvaDecodeJob *job, GifFileType *gif, int code)
{
    int ignored = 0;
    if (gif != NULL) {
        code = gif->Error != 0 ? gif->Error : code;
        DGifCloseFile(gif, &ignored);
    }
    const char *text = GifErrorString(code);
    return tolva_corrupt(job, "GIF", text != NULL ? text : "no image in it");
}

/* Rows of an interlaced image arrive in four passes. */
static int32_t stored_row_to_picture_row(int32_t k, int32_t height, int interlaced)
{
    if (!interlaced) {
        return k;
    }
    static const int32_t kStart[4] = {0, 4, 2, 1}, kStep[4] = {8, 8, 4, 2};
    for (int pass = 0; pass < 4; ++pass) {
        int32_t rows =
            height > kStart[pass] ? (height - kStart[pass] + kStep[pass] - 1) / kStep[pass] : 0;
        if (k < rows) {
            return kStart[pass] + k * kStep[pass];
        }
        k -= rows;
    }
    return 0;
}

/* Whether another image follows, past any extensions; what cannot be read
 * past the first image is no concern of its picture. */
static int another_image_follows(GifFileType *gif)
{
    for (;;) {
        GifRecordType type = UNDEFINED_RECORD_TYPE;
        if (DGifGetRecordType(gif, &type) != GIF_OK || type != EXTENSION_RECORD_TYPE) {
            return type == IMAGE_DESC_RECORD_TYPE;
        }
        int function = 0;
        GifByteType *block = NULL;
        if (DGifGetExtension(gif, &function, &block) != GIF_OK) {
            return 0;
        }
        while (block != NULL) {
            if (DGifGetExtensionNext(gif, &block) != GIF_OK) {
                return 0;
            }
        }
    }
}

static TolvaImageResult read_image(TolvaDecodeJob *job, GifFileType *gif, int transparent)
{
    TolvaImage *image = job->image;
    if (DGifGetImageDesc(gif) != GIF_OK) {
        return fail(job, gif, D_GIF_ERR_READ_FAILED);
    }
    const GifImageDesc *desc = &gif->Image;
    TolvaImageResult result = tolva_check_size(job, (uint64_t)(desc->Width < 0 ? 0 : desc->Width),
                                               (uint64_t)(desc->Height < 0 ? 0 : desc->Height));
    const ColorMapObject *map = desc->ColorMap != NULL ? desc->ColorMap : gif->SColorMap;
    if (result == TOLVA_IMAGE_OK && (map == NULL || map->ColorCount < 1 || map->ColorCount > 256)) {
        result = tolva_corrupt(job, "GIF", "no colour table");
    }
    if (result == TOLVA_IMAGE_OK) {
        result = tolva_allocate_image(image, (uint32_t)desc->Width, (uint32_t)desc->Height, 8,
                                      job->error, job->errorSize);
    }
    if (result != TOLVA_IMAGE_OK) {
        int ignored = 0;
        DGifCloseFile(gif, &ignored);
        return result;
    }
    image->colours = map->ColorCount;
    for (int i = 0; i < map->ColorCount; ++i) {
        image->palette[3 * i] = map->Colors[i].Red;
        image->palette[3 * i + 1] = map->Colors[i].Green;
        image->palette[3 * i + 2] = map->Colors[i].Blue;
    }
    if (transparent >= 0 && transparent < 256) {
        image->alpha[transparent] = 0;
    }
    for (int32_t k = 0; k < image->height; ++k) {
        int32_t y = stored_row_to_picture_row(k, image->height, desc->Interlace);
        if (DGifGetLine(gif, tolva_image_row(image, y), image->width) != GIF_OK) {
            return fail(job, gif, D_GIF_ERR_READ_FAILED);
        }
    }
    image->moreImages = another_image_follows(gif);
    int ignored = 0;
    DGifCloseFile(gif, &ignored);
    return TOLVA_IMAGE_OK;
}

TolvaImageResult tolva_decode_gif(TolvaDecodeJob *job)
{
    GifSource source = {job, 0};
    int code = 0;
    GifFileType *gif = DGifOpen(&source, read_memory, &code);
    if (gif == NULL) {
        return fail(job, NULL, code);
    }
    int transparent = -1;
    for (;;) {
        GifRecordType type = UNDEFINED_RECORD_TYPE;
        if (DGifGetRecordType(gif, &type) != GIF_OK) {
            return fail(job, gif, D_GIF_ERR_READ_FAILED);
        }
        if (type == IMAGE_DESC_RECORD_TYPE) {
            return read_image(job, gif, transparent);
        }
        if (type != EXTENSION_RECORD_TYPE) {
            return fail(job, gif, D_GIF_ERR_NO_IMAG_DSCR);
        }
        int function = 0;
        GifByteType *block = NULL;
        if (DGifGetExtension(gif, &function, &block) != GIF_OK) {
            return fail(job, gif, D_GIF_ERR_READ_FAILED);
        }
        if (function == GRAPHICS_EXT_FUNC_CODE && block != NULL) {
            GraphicsControlBlock control;
            if (DGifExtensionToGCB(block[0], block + 1, &control) == GIF_OK) {
                transparent = control.TransparentColor;
            }
        }
        while (block != NULL) {
            if (DGifGetExtensionNext(gif, &block) != GIF_OK) {
                return fail(job, gif, D_GIF_ERR_READ_FAILED);
            }
        }
    }
}

/*
 * exif.c - the orientation tag of an EXIF block, read with libexif.
 */
#include <stdlib.h>
#include <string.h>

#include <libexif/exif-data.h>

#include "decode.h"

int32_t tolva_exif_orientation(const uint8_t *exif, size_t size)
{
    static const uint8_t kHeader[6] = {'E', 'x', 'i', 'f', 0, 0};
    if (exif == NULL || size < 8 || size > 0xfffff) {
        return 1;
    }
    /* libexif wants the block as a JPEG carries it; PNG and WebP files may
     * hold it without the leading "Exif\0\0". */
    uint8_t *copy = NULL;
    if (memcmp(exif, kHeader, sizeof kHeader) != 0) {
        copy = (uint8_t *)malloc(size + sizeof kHeader);
        if (copy == NULL) {
            return 1;
        }
        memcpy(copy, kHeader, sizeof kHeader);
        memcpy(copy + sizeof kHeader, exif, size);
        exif = copy;
        size += sizeof kHeader;
    }
    int32_t orientation = 1;
    ExifData *data = exif_data_new_from_data(exif, (unsigned int)size);
    if (data != NULL) {
        ExifEntry *entry = exif_data_get_entry(data, EXIF_TAG_ORIENTATION);
        if (entry != NULL && entry->format == EXIF_FORMAT_SHORT && entry->components == 1 &&
            entry->data != NULL && entry->size >= 2) {
            int value = exif_get_short(entry->data, exif_data_get_byte_order(data));
            if (value >= 1 && value <= 8) {
                orientation = value;
            }
        }
        exif_data_unref(data);
    }
    free(copy);
    return orientation;
}

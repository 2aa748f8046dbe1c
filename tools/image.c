/*
 * image.c - the picture record every decoder fills, and reading a whole
 * input file into memory.
 */
/* MAP_POPULATE and MADV_POPULATE_WRITE */
#define _DEFAULT_SOURCE

#include "image.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

/*
 * A picture's memory is written whole soon after it is taken: its pages are
 * entered in one go rather than at a fault each (an older kernel refuses the
 * advice, and the pages then fault as usual). Not beyond 128 MB: a file that
 * declares a large picture and then holds little of it should not cost more
 * than the rows it has.
 */
static void populate(void *start, size_t size)
{
#ifdef MADV_POPULATE_WRITE
    if (size > ((size_t)128 << 20)) {
        return;
    }
    const uintptr_t page = 4096;
    uintptr_t first = ((uintptr_t)start + page - 1) & ~(page - 1);
    uintptr_t end = ((uintptr_t)start + size) & ~(page - 1);
    if (end > first) {
        (void)madvise((void *)first, end - first, MADV_POPULATE_WRITE);
    }
#else
    (void)start;
    (void)size;
#endif
}

TolvaImageResult tolva_allocate_image(TolvaImage *image, uint32_t width, uint32_t height,
                                      int16_t bits, char *error, size_t errorSize)
{
    uint32_t stride = (uint32_t)((((uint64_t)width * (uint32_t)bits + 7u) / 8u + 3u) & ~3u);
    image->pixels = (uint8_t *)calloc(height, stride);
    if (image->pixels == NULL) {
        snprintf(error, errorSize, "not enough memory for a %ux%u picture", (unsigned)width,
                 (unsigned)height);
        return TOLVA_IMAGE_NO_MEMORY;
    }
    populate(image->pixels, (size_t)height * stride);
    image->width = (int32_t)width;
    image->height = (int32_t)height;
    image->bits = bits;
    image->stride = stride;
    return TOLVA_IMAGE_OK;
}

uint8_t *tolva_image_row(const TolvaImage *image, int32_t rowFromTop)
{
    return image->pixels + (size_t)image->stride * (size_t)(image->height - 1 - rowFromTop);
}

void tolva_free_image(TolvaImage *image)
{
    free(image->pixels);
    memset(image, 0, sizeof *image);
    memset(image->alpha, 255, sizeof image->alpha);
    image->orientation = 1;
}

int tolva_read_file(const char *path, uint8_t **data, size_t *size)
{
    *data = NULL;
    *size = 0;
    int fromStdin = strcmp(path, "-") == 0;
    FILE *file = fromStdin ? stdin : fopen(path, "rb");
    if (file == NULL) {
        return errno;
    }
    size_t capacity = 0, used = 0;
    uint8_t *buffer = NULL;
    int failure = 0;
    for (;;) {
        if (used == capacity) {
            size_t grown = capacity ? capacity * 2 : 65536;
            uint8_t *bigger = (uint8_t *)realloc(buffer, grown);
            if (bigger == NULL) {
                failure = ENOMEM;
                break;
            }
            buffer = bigger;
            capacity = grown;
        }
        size_t got = fread(buffer + used, 1, capacity - used, file);
        used += got;
        if (got == 0) {
            if (ferror(file)) {
                failure = errno ? errno : EIO;
            }
            break;
        }
    }
    if (!fromStdin) {
        fclose(file);
    }
    if (failure != 0) {
        free(buffer);
        return failure;
    }
    *data = buffer;
    *size = used;
    return 0;
}

int tolva_load_file(const char *path, TolvaFileBytes *file)
{
    memset(file, 0, sizeof *file);
    if (strcmp(path, "-") != 0) {
        int fd = open(path, O_RDONLY | O_CLOEXEC);
        if (fd < 0) {
            return errno;
        }
        struct stat about;
        void *mapping = MAP_FAILED;
        if (fstat(fd, &about) == 0 && S_ISREG(about.st_mode) && about.st_size > 0 &&
            (uint64_t)about.st_size <= (uint64_t)SIZE_MAX) {
            int flags = MAP_PRIVATE;
#ifdef MAP_POPULATE
            /* The whole file is read once, front to back: its pages are
             * entered in one go rather than at a fault each. */
            flags |= MAP_POPULATE;
#endif
            mapping = mmap(NULL, (size_t)about.st_size, PROT_READ, flags, fd, 0);
        }
        close(fd);
        if (mapping != MAP_FAILED) {
            file->data = (const uint8_t *)mapping;
            file->size = (size_t)about.st_size;
            file->mapping = mapping;
            file->mappedSize = (size_t)about.st_size;
            return 0;
        }
    }
    uint8_t *data = NULL;
    int failure = tolva_read_file(path, &data, &file->size);
    file->data = data;
    return failure;
}

void tolva_release_file(TolvaFileBytes *file)
{
    if (file->mapping != NULL) {
        munmap(file->mapping, file->mappedSize);
    } else {
        free((void *)file->data);
    }
    memset(file, 0, sizeof *file);
}

/*
 * folder.c - the inputs of a batch, with each folder among them standing for
 * the pictures in it.
 *
 * A folder is looked into one level deep only, and what it holds is judged by
 * content, as a single input is: a file is a picture when its first bytes say
 * so, whatever its name. Files that are not are left out quietly, since
 * folders of pictures commonly hold notes, thumbnails' databases and the like;
 * a folder that yields nothing at all is reported, since that is most likely a
 * wrong path.
 */
#define _DEFAULT_SOURCE /* scandir, alphasort */
#include "folder.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "picture.h"

/* Enough of a file's start for every signature the reader knows. */
enum { kSignatureBytes = 16 };

int tolva_is_folder(const char *path)
{
    struct stat info;
    return strcmp(path, "-") != 0 && stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

/* A regular file whose first bytes name a format the reader takes. Only
 * regular files are opened, so a FIFO in the folder cannot hold the listing
 * up. */
static int is_picture_file(const char *path)
{
    struct stat info;
    if (stat(path, &info) != 0 || !S_ISREG(info.st_mode)) {
        return 0;
    }
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return 0;
    }
    uint8_t start[kSignatureBytes];
    ssize_t n = read(fd, start, sizeof start);
    close(fd);
    return n > 0 && tolva_picture_format(start, (size_t)n) != NULL;
}

static char *joined(const char *folder, const char *name)
{
    size_t length = strlen(folder);
    const char *slash = length > 0 && folder[length - 1] == '/' ? "" : "/";
    size_t size = length + strlen(slash) + strlen(name) + 1;
    char *path = malloc(size);
    if (path != NULL) {
        snprintf(path, size, "%s%s%s", folder, slash, name);
    }
    return path;
}

typedef struct List {
    char **items;
    int count;
    int capacity;
} List;

/* Takes `item` (NULL from a failed allocation is passed on as failure). */
static int append(List *list, char *item)
{
    if (item == NULL) {
        return -1;
    }
    if (list->count == list->capacity) {
        int capacity = list->capacity > 0 ? list->capacity * 2 : 16;
        char **items = realloc(list->items, (size_t)capacity * sizeof *items);
        if (items == NULL) {
            free(item);
            return -1;
        }
        list->items = items;
        list->capacity = capacity;
    }
    list->items[list->count++] = item;
    return 0;
}

/* Appends the pictures in `folder`; -1 only when memory runs out. */
static int append_folder(List *list, const char *folder, int *failed)
{
    struct dirent **entries = NULL;
    int n = scandir(folder, &entries, NULL, alphasort);
    if (n < 0) {
        fprintf(stderr, "tolva: %s: cannot list the folder (%s)\n", folder, strerror(errno));
        ++*failed;
        return 0;
    }
    int found = 0;
    int status = 0;
    for (int i = 0; i < n; ++i) {
        if (status == 0 && entries[i]->d_name[0] != '.') {
            char *path = joined(folder, entries[i]->d_name);
            if (path != NULL && !is_picture_file(path)) {
                free(path);
            } else if (append(list, path) != 0) {
                status = -1;
            } else {
                ++found;
            }
        }
        free(entries[i]);
    }
    free(entries);
    if (status == 0 && found == 0) {
        fprintf(stderr, "tolva: %s: holds no picture the command reads (%s)\n", folder,
                tolva_picture_formats);
        ++*failed;
    }
    return status;
}

char **tolva_expand_inputs(char *const *inputs, int inputCount, int *count, int *failed)
{
    List list = {NULL, 0, 0};
    *failed = 0;
    for (int i = 0; i < inputCount; ++i) {
        int status = tolva_is_folder(inputs[i]) ? append_folder(&list, inputs[i], failed)
                                                : append(&list, strdup(inputs[i]));
        if (status != 0) {
            tolva_free_inputs(list.items, list.count);
            return NULL;
        }
    }
    /* An empty list is still a list, not a failure to make one. */
    if (list.items == NULL) {
        list.items = malloc(sizeof *list.items);
        if (list.items == NULL) {
            return NULL;
        }
    }
    *count = list.count;
    return list.items;
}

void tolva_free_inputs(char **inputs, int count)
{
    for (int i = 0; i < count; ++i) {
        free(inputs[i]);
    }
    free(inputs);
}

/*
 * folder.c - the inputs of a batch, with each folder among them standing for
 * the pictures in it.
 *
 * A folder is looked into one level deep unless the batch is recursive, and
 * what it holds is judged by content, as a single input is: a file is a
 * picture when its first bytes say so, whatever its name. Files that are not
 * are left out quietly, since folders of pictures commonly hold notes,
 * thumbnails' databases and the like; a folder that yields nothing at all is
 * reported, since that is most likely a wrong path.
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

/* A regular file whose first bytes name a format the reader takes, or that
 * cannot be opened to tell: its conversion then says why it cannot be read,
 * rather than a picture being left out without a word. Only regular files
 * are opened, so a FIFO in the folder cannot hold the listing up. */
static int is_picture_file(const char *path)
{
    struct stat info;
    if (stat(path, &info) != 0 || !S_ISREG(info.st_mode)) {
        return 0;
    }
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return 1;
    }
    uint8_t start[kSignatureBytes];
    ssize_t n = read(fd, start, sizeof start);
    close(fd);
    return n > 0 && tolva_picture_format(start, (size_t)n) != NULL;
}

/* folder/name, or name alone when folder is empty. */
static char *joined(const char *folder, const char *name)
{
    size_t length = strlen(folder);
    const char *slash = length == 0 || folder[length - 1] == '/' ? "" : "/";
    size_t size = length + strlen(slash) + strlen(name) + 1;
    char *path = malloc(size);
    if (path != NULL) {
        snprintf(path, size, "%s%s%s", folder, slash, name);
    }
    return path;
}

typedef struct List {
    TolvaInputs inputs;
    int capacity;
    /* The batch's output folder, never looked into: its GIFs are pictures
     * too, and a second run would convert the first one's output. */
    dev_t outputDevice;
    ino_t outputInode;
    int outputKnown;
} List;

static int grow(List *list)
{
    int capacity = list->capacity > 0 ? list->capacity * 2 : 16;
    char **paths = realloc(list->inputs.paths, (size_t)capacity * sizeof *paths);
    if (paths == NULL) {
        return -1;
    }
    list->inputs.paths = paths;
    char **names = realloc(list->inputs.names, (size_t)capacity * sizeof *names);
    if (names == NULL) {
        return -1;
    }
    list->inputs.names = names;
    list->capacity = capacity;
    return 0;
}

/* Takes `path` and `name`; a NULL among them, from a failed allocation, is
 * failure. */
static int append(List *list, char *path, char *name)
{
    TolvaInputs *in = &list->inputs;
    if (path == NULL || name == NULL || (in->count == list->capacity && grow(list) != 0)) {
        free(path);
        free(name);
        return -1;
    }
    in->paths[in->count] = path;
    in->names[in->count] = name;
    in->count += 1;
    return 0;
}

static int append_folder(List *list, const char *folder, const char *below, int recursive,
                         int *found, int *failed);

/* Appends the entry `name` of `folder` when it is a picture, or its pictures
 * when it is a subfolder to look into. Returns -1 only when memory runs out. */
static int append_entry(List *list, const char *folder, const char *below, const char *name,
                        int recursive, int *found, int *failed)
{
    char *path = joined(folder, name);
    if (path == NULL) {
        return -1;
    }
    int status = 0;
    struct stat info;
    if (recursive && lstat(path, &info) == 0 && S_ISDIR(info.st_mode)) {
        if (list->outputKnown && info.st_dev == list->outputDevice &&
            info.st_ino == list->outputInode) {
            free(path);
            return 0;
        }
        char *deeper = joined(below, name);
        status = deeper != NULL ? append_folder(list, path, deeper, recursive, found, failed) : -1;
        free(deeper);
        free(path);
    } else if (!is_picture_file(path)) {
        free(path);
    } else {
        status = append(list, path, joined(below, name));
        *found += status == 0;
    }
    return status;
}

/* Appends the pictures in `folder`, named `below`/NAME, and counts them in
 * *found. Returns -1 only when memory runs out. */
static int append_folder(List *list, const char *folder, const char *below, int recursive,
                         int *found, int *failed)
{
    struct dirent **entries = NULL;
    int n = scandir(folder, &entries, NULL, alphasort);
    if (n < 0) {
        fprintf(stderr, "tolva: %s: cannot list the folder (%s)\n", folder, strerror(errno));
        ++*failed;
        return 0;
    }
    int status = 0;
    for (int i = 0; i < n; ++i) {
        const char *name = entries[i]->d_name;
        if (status == 0 && name[0] != '.') {
            status = append_entry(list, folder, below, name, recursive, found, failed);
        }
        free(entries[i]);
    }
    free(entries);
    return status;
}

static char *file_name(const char *path)
{
    const char *slash = strrchr(path, '/');
    return strdup(slash != NULL ? slash + 1 : path);
}

int tolva_expand_inputs(char *const *inputs, int inputCount, int recursive, const char *outputDir,
                        TolvaInputs *list, int *failed)
{
    List made = {{NULL, NULL, 0}, 0, 0, 0, 0};
    struct stat output;
    if (stat(outputDir, &output) == 0) {
        made.outputDevice = output.st_dev;
        made.outputInode = output.st_ino;
        made.outputKnown = 1;
    }
    *failed = 0;
    int status = 0;
    for (int i = 0; i < inputCount && status == 0; ++i) {
        if (!tolva_is_folder(inputs[i])) {
            status = append(&made, strdup(inputs[i]), file_name(inputs[i]));
            continue;
        }
        int found = 0;
        status = append_folder(&made, inputs[i], "", recursive, &found, failed);
        /* A folder that yields nothing is most likely a wrong path. */
        if (status == 0 && found == 0) {
            fprintf(stderr, "tolva: %s: holds no picture the command reads (%s)\n", inputs[i],
                    tolva_picture_formats);
            ++*failed;
        }
    }
    *list = made.inputs;
    if (status != 0) {
        tolva_free_inputs(list);
    }
    return status;
}

void tolva_free_inputs(TolvaInputs *list)
{
    for (int i = 0; i < list->count; ++i) {
        free(list->paths[i]);
        free(list->names[i]);
    }
    free(list->paths);
    free(list->names);
    list->paths = NULL;
    list->names = NULL;
    list->count = 0;
}

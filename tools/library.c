/*
 * library.c - opens the filter and binds its entries by name.
 *
 * The filter is looked for beside the command (the build tree), then in the
 * installed layout's library directory, then on the loader's path; its own
 * file name goes into szDLLName, because the filter names its profile
 * (libtolva.ini) after it.
 */
#define _GNU_SOURCE /* dladdr */
#include "library.h"

#include <dlfcn.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#ifndef TOLVA_SOVERSION
#define TOLVA_SOVERSION "2"
#endif
#ifndef TOLVA_LIBDIR_FROM_BINDIR
#define TOLVA_LIBDIR_FROM_BINDIR "../lib"
#endif

#define TOLVA_LIBRARY_NAME "libtolva.so." TOLVA_SOVERSION

static const void *find_row(const TolvaNameEntry *rows, int16_t count, const char *name)
{
    for (int16_t i = 0; i < count; ++i) {
        if (rows[i].name != NULL && strcmp(rows[i].name, name) == 0) {
            return rows[i].target;
        }
    }
    return NULL;
}

static int bind_entries(TolvaFilter *f, char *error, size_t errorSize)
{
    void (*loadPointers)(intptr_t *) = (void (*)(intptr_t *))dlsym(f->module, "fltLoadPointers");
    if (loadPointers == NULL) {
        snprintf(error, errorSize, "not a tolva filter (it exports no fltLoadPointers)");
        return -1;
    }
    intptr_t record[3] = {0, 0, 0};
    loadPointers(record);
    int16_t count = 0;
    memcpy(&count, &record[1], sizeof count);
    const TolvaNameEntry *rows = (const TolvaNameEntry *)record[2];
    if (rows == NULL || count < 1 || count > 64) {
        snprintf(error, errorSize, "the filter's name table is empty");
        return -1;
    }
    static const char *const kNeeded[] = {"CreateSetup",         "DestroySetup",    "EscapeSetup",
                                          "ZUNGetFilterVersion", "RASTER_dd_entry", "szDLLName"};
    const void *found[sizeof kNeeded / sizeof kNeeded[0]];
    for (size_t i = 0; i < sizeof kNeeded / sizeof kNeeded[0]; ++i) {
        found[i] = find_row(rows, count, kNeeded[i]);
        if (found[i] == NULL) {
            snprintf(error, errorSize, "the filter's name table lacks %s", kNeeded[i]);
            return -1;
        }
    }
    f->createSetup = (TolvaCreateSetupFn)found[0];
    f->destroySetup = (TolvaDestroySetupFn)found[1];
    f->escapeSetup = (TolvaEscapeSetupFn)found[2];
    f->filterVersion = (TolvaVersionFn)found[3];
    f->rasterEntry = (TolvaEntryFn)found[4];
    f->dllName = (char *)found[5];
    /* The Setup block's own fields are reached the way every host reaches a
     * handle's memory. */
    f->globalLock = (TolvaLockFn)dlsym(f->module, "GlobalLock");
    f->globalUnlock = (TolvaUnlockFn)dlsym(f->module, "GlobalUnlock");
    if (f->globalLock == NULL || f->globalUnlock == NULL) {
        snprintf(error, errorSize, "the filter exports no GlobalLock");
        return -1;
    }
    /* The blocks this command builds are those of major version 2. */
    uint32_t version = 0;
    (void)f->rasterEntry(TOLVA_ENTRY_VERSION, &version, NULL); /* always 0 */
    if (version >> 24 != TOLVA_FILTER_VERSION >> 24) {
        snprintf(error, errorSize, "the filter's version %u.%u.%u is not one this command drives",
                 (unsigned)(version >> 24), (unsigned)((version >> 16) & 0xff),
                 (unsigned)(version & 0xffff));
        return -1;
    }
    return 0;
}

/* The module's own file name goes into szDLLName: the filter names its
 * profile (libtolva.ini) after it. */
static void record_own_path(TolvaFilter *f, const char *loaded)
{
    Dl_info info;
    const char *name = loaded;
    if (dladdr((void *)f->createSetup, &info) != 0 && info.dli_fname != NULL) {
        name = info.dli_fname;
    }
    char resolved[PATH_MAX];
    if (realpath(name, resolved) != NULL && strlen(resolved) < sizeof f->path) {
        name = resolved;
    }
    snprintf(f->path, sizeof f->path, "%s", name);
    memset(f->dllName, 0, 260);
    memcpy(f->dllName, f->path, strlen(f->path));
}

static int open_module(const char *path, TolvaFilter *f, char *error, size_t errorSize)
{
    f->module = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (f->module == NULL) {
        const char *reason = dlerror();
        snprintf(error, errorSize, "cannot load the filter (%s)", reason ? reason : "unknown");
        return -1;
    }
    if (bind_entries(f, error, errorSize) != 0) {
        dlclose(f->module);
        f->module = NULL;
        return -1;
    }
    record_own_path(f, path);
    return 0;
}

int tolva_filter_load(const char *path, const char *self, TolvaFilter *f, char *tried,
                      size_t triedSize, char *error, size_t errorSize)
{
    memset(f, 0, sizeof *f);
    if (path != NULL) {
        /* A name without a slash is a file here, not a search of the
         * loader's path. */
        snprintf(tried, triedSize, "%s%s", strchr(path, '/') ? "" : "./", path);
        return open_module(tried, f, error, errorSize);
    }
    char directory[PATH_MAX] = ".";
    if (self != NULL) {
        snprintf(directory, sizeof directory, "%s", self);
        char *slash = strrchr(directory, '/');
        if (slash != NULL) {
            *slash = '\0';
        } else {
            snprintf(directory, sizeof directory, ".");
        }
    }
    /* Beside the command (the build tree), then the installed layout. */
    const char *const kPlaces[] = {"", "/" TOLVA_LIBDIR_FROM_BINDIR};
    for (size_t i = 0; i < sizeof kPlaces / sizeof kPlaces[0]; ++i) {
        snprintf(tried, triedSize, "%s%s/%s", directory, kPlaces[i], TOLVA_LIBRARY_NAME);
        if (access(tried, F_OK) == 0) {
            return open_module(tried, f, error, errorSize);
        }
    }
    snprintf(tried, triedSize, "%s", TOLVA_LIBRARY_NAME);
    if (open_module(TOLVA_LIBRARY_NAME, f, error, errorSize) != 0) {
        snprintf(error, errorSize,
                 "cannot find the filter beside the command or on the library path "
                 "(use --library PATH)");
        return -1;
    }
    return 0;
}

void tolva_filter_unload(TolvaFilter *f)
{
    if (f->module != NULL) {
        dlclose(f->module);
    }
    memset(f, 0, sizeof *f);
}

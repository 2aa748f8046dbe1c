/*
 * library.h - the filter as a loaded library: a shared object opened at run
 * time, whose entries are found through its exported name table, the way a
 * host finds them.
 *
 * Nothing calls into the library except through the pointers that the name
 * table (or dlsym, for the memory handle calls) hands out.
 */
#ifndef TOLVA_TOOLS_LIBRARY_H
#define TOLVA_TOOLS_LIBRARY_H

#include <stddef.h>
#include <stdint.h>

#include <tolva/tolva.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef HGLOBAL (*TolvaCreateSetupFn)(intptr_t, const char *, const char *, intptr_t);
typedef int32_t (*TolvaDestroySetupFn)(HGLOBAL);
typedef int32_t (*TolvaEscapeSetupFn)(HGLOBAL, int32_t, int32_t, void *, void *, int32_t);
typedef uint32_t (*TolvaVersionFn)(void);
typedef int32_t (*TolvaEntryFn)(int16_t, void *, void *);
typedef int32_t (*TolvaEntry32Fn)(intptr_t, int16_t, void *);
typedef void *(*TolvaLockFn)(HGLOBAL);
typedef int32_t (*TolvaUnlockFn)(HGLOBAL);

typedef struct TolvaFilter {
    void *module;   /* dlopen handle */
    char path[260]; /* the file loaded, as written into szDLLName */
    TolvaCreateSetupFn createSetup;
    TolvaDestroySetupFn destroySetup;
    TolvaEscapeSetupFn escapeSetup;
    TolvaVersionFn filterVersion;
    TolvaEntryFn rasterEntry;
    char *dllName; /* the filter's szDLLName buffer (260 bytes) */
    TolvaLockFn globalLock;
    TolvaUnlockFn globalUnlock;
} TolvaFilter;

/*
 * Loads the filter from `path`, or when it is NULL from beside the command
 * (`self` is the command's own file), then from the install layout's library
 * directory, then from the loader's search path. Returns 0, or -1 with the
 * reason in `error`; `tried` receives the last path tried.
 */
int tolva_filter_load(const char *path, const char *self, TolvaFilter *filter, char *tried,
                      size_t triedSize, char *error, size_t errorSize);
void tolva_filter_unload(TolvaFilter *filter);

#ifdef __cplusplus
}
#endif

#endif

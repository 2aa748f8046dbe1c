/*
 * filter.h - one export driven through the filter's host protocol: the Setup
 * block set up through the setup escape and its own fields, then the opcode
 * conversation with the device, into a file or into memory.
 */
#ifndef TOLVA_TOOLS_FILTER_H
#define TOLVA_TOOLS_FILTER_H

#include <stddef.h>
#include <stdint.h>

#include <tolva/tolva.h>

#include "image.h"
#include "library.h"
#include "options.h"
#include "progress.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The profile file and section the filter takes its settings from for these
 * options (it may name its own section, or find no profile at all): copies
 * them into `profile` and `section`, empty when none. Returns 0, or -1 when
 * the filter could not create its settings block.
 */
int tolva_filter_settings_used(const TolvaFilter *filter, const TolvaOptions *options,
                               char *profile, size_t profileSize, char *section,
                               size_t sectionSize);

/* Why an export stopped, when it was not the filter's own code. */
enum {
    TOLVA_EXPORT_REFUSED = -2,    /* the setup escape refused a setting; see error */
    TOLVA_EXPORT_INCOMPLETE = -3, /* the filter reported success but wrote no whole GIF */
    TOLVA_EXPORT_NO_SETTINGS = -4 /* the profile section holds no settings; see error */
};

/*
 * Runs one whole export of `image` into the file `outputPath` (at most 143
 * characters: the filter keeps the name in a 144-byte field). Returns 0, a
 * filter code (21, 22, 27, 300, 303, 901) or a TOLVA_EXPORT_* value with a
 * description in `error`. On 901 the filter has deleted the file.
 */
int32_t tolva_export(const TolvaFilter *filter, const TolvaImage *image,
                     const TolvaOptions *options, const char *outputPath, TolvaProgress *progress,
                     char *error, size_t errorSize);

/* A GIF the filter wrote into memory. */
typedef struct TolvaMemoryFile {
    uint8_t *data; /* malloc'ed; size bytes are the file */
    size_t size;
    size_t capacity;
    size_t position; /* where the filter's next read or write goes */
} TolvaMemoryFile;

/*
 * As tolva_export, but the filter writes through a host I/O procedure into
 * `file` (zero-filled before the first use; release it with
 * tolva_memory_file_free).
 */
int32_t tolva_export_to_memory(const TolvaFilter *filter, const TolvaImage *image,
                               const TolvaOptions *options, TolvaMemoryFile *file,
                               TolvaProgress *progress, char *error, size_t errorSize);
void tolva_memory_file_free(TolvaMemoryFile *file);

/*
 * How many cell arrays the picture is sent in: `requested` (capped at the
 * height), or when it is 0 enough for about 256 KiB of pixels each. Band k
 * covers the rows from k * height / count up to (k + 1) * height / count,
 * counted from the bottom.
 */
int32_t tolva_band_count(const TolvaImage *image, int32_t requested);

#ifdef __cplusplus
}
#endif

#endif

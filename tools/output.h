/*
 * output.h - where the filter writes, and how the result reaches the user's
 * output name.
 *
 * Invariant: a regular file is only ever replaced by a rename of a complete
 * file made in its own directory (a symbolic link is followed, and its
 * target is what gets replaced); a device, FIFO, socket or standard output
 * is written directly, once the GIF is complete, and never renamed over; a
 * failed or stopped export leaves the output as it was (or absent) and
 * leaves no temporary file behind.
 */
#ifndef TOLVA_TOOLS_OUTPUT_H
#define TOLVA_TOOLS_OUTPUT_H

#include <limits.h>
#include <stddef.h>
#include <sys/stat.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct TolvaOutput {
    const char *target;       /* the user's output name; "-" is standard output */
    char filterPath[144];     /* temporary file the filter writes (its field is 144 bytes) */
    char finalPath[PATH_MAX]; /* temporary file beside the real file, renamed at the end */
    char realPath[PATH_MAX];  /* the file replaced: the target with its links followed */
    int separate;             /* filterPath is elsewhere and is copied to finalPath */
    int direct;               /* descriptor written directly at the end; -1 for a file */
    int noClobber;            /* an existing file is never replaced */
} TolvaOutput;

/*
 * Decides how the output reaches `target` and makes the temporary files
 * with mkstemp: beside the real file, and in TMPDIR (or /tmp) when that
 * directory's name is too long for the filter or the output is written
 * directly. A directory, a block device and the input itself (`input`, when
 * not NULL, is what stat says of it) are refused before anything is written;
 * with `noClobber` so is an existing regular file. Returns 0, or -1 with the
 * reason in `error` and the path it is about in `about` (the target, or the
 * temporary directory).
 */
int tolva_output_begin(TolvaOutput *output, const char *target, int noClobber,
                       const struct stat *input, char *error, size_t errorSize, const char **about);

/*
 * Moves the finished file into place, or copies it to the descriptor.
 * Returns 0, or an errno value (EEXIST: a file appeared that --no-clobber
 * keeps; EINTR: a stop signal came); the temporary files are gone either
 * way.
 */
int tolva_output_commit(TolvaOutput *output);

/* Removes the temporary files (the filter may already have removed one). */
void tolva_output_discard(TolvaOutput *output);

/*
 * Makes the fatal signals of a crash (an abort inside the filter when its
 * memory runs out, a segmentation fault) remove the temporary files of the
 * output begun last before the process ends.
 */
void tolva_output_guard_signals(void);

#ifdef __cplusplus
}
#endif

#endif

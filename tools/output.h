/*
 * output.h - where the filter writes, and how the result reaches the user's
 * output name.
 *
 * Invariant: the user's output file is only ever replaced by a rename of a
 * complete file made in the same directory; a failed or cancelled export
 * leaves it as it was (or absent) and leaves no temporary file behind.
 */
#ifndef TOLVA_TOOLS_OUTPUT_H
#define TOLVA_TOOLS_OUTPUT_H

#include <limits.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct TolvaOutput {
    const char *target;          /* the user's output name; "-" is standard output */
    char filterPath[144];        /* temporary file the filter writes (its field is 144 bytes) */
    char finalPath[PATH_MAX];    /* temporary file beside the target, renamed at the end */
    int separate;                /* filterPath is elsewhere and is copied to finalPath */
} TolvaOutput;

/*
 * Makes the temporary files with mkstemp: beside the target, and in TMPDIR
 * (or /tmp) when the target's directory name is too long for the filter or
 * the target is standard output. Returns 0, or an errno value.
 */
int tolva_output_begin(TolvaOutput *output, const char *target);

/* Moves the finished file into place (or copies it to standard output).
 * Returns 0, or an errno value; the temporary files are gone either way. */
int tolva_output_commit(TolvaOutput *output);

/* Removes the temporary files (the filter may already have removed one). */
void tolva_output_discard(TolvaOutput *output);

/*
 * Makes fatal signals (an abort inside the filter when its memory runs out,
 * a crash, SIGTERM, SIGHUP) remove the temporary files of the output begun
 * last before the process ends.
 */
void tolva_output_guard_signals(void);

/* Removes those temporary files; safe inside a signal handler. */
void tolva_output_remove_temporaries(void);

#ifdef __cplusplus
}
#endif

#endif

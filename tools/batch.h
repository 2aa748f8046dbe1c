/*
 * batch.h - many inputs at once: `tolva INPUT... -O DIR`.
 *
 * The filter drives one device per process (its device state is process
 * wide), so conversions that run at once run in separate processes. Each
 * child converts one file and exits with that file's status; the parent
 * keeps --jobs of them going, prints each child's messages whole (a child's
 * standard error is a pipe to the parent), draws one progress line for the
 * batch, and passes a stop signal on to the children.
 */
#ifndef TOLVA_TOOLS_BATCH_H
#define TOLVA_TOOLS_BATCH_H

#include <stddef.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Converts input `index` into `output`, printing its own messages to
 * standard error; returns the exit status for that file. */
typedef int (*TolvaConvertFn)(void *context, int index, const char *output);

typedef struct TolvaBatch {
    char *const *inputs;
    char *const *names; /* each input's place below `directory`, as in tolva_batch_output_name */
    int count;
    const char *directory; /* where the GIFs go */
    int jobs;              /* conversions at once, at least 1 */
    FILE *terminal;        /* where the batch's progress line goes; NULL: none */
    TolvaConvertFn convert;
    void *context;
} TolvaBatch;

/*
 * The output file for `name`, a file name or a path below `directory`: the
 * same with the last extension of its last part replaced by ".gif"
 * ("b.photo.jpg" -> "DIR/b.photo.gif", "2019/a.png" -> "DIR/2019/a.gif").
 * Returns 0, or -1 when it does not fit in `size`.
 */
int tolva_batch_output_name(const char *directory, const char *name, char *output, size_t size);

/*
 * Runs the batch. Returns 0 when every file was written, 1 when any failed
 * (each failure has had its one-line message), or 128 + the signal when a
 * stop signal ended it.
 */
int tolva_run_batch(const TolvaBatch *batch);

#ifdef __cplusplus
}
#endif

#endif

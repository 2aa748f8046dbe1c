/*
 * progress.h - the host side of the filter's status callback: a progress bar
 * on a terminal, and the stop answer for the stop signals.
 *
 * Invariant: once a stop has been asked for (a stop signal, or the testing
 * aid's call count), every later status call answers stop, so that the
 * filter's closing query deletes the output file as well.
 */
#ifndef TOLVA_TOOLS_PROGRESS_H
#define TOLVA_TOOLS_PROGRESS_H

#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct TolvaProgress {
    FILE *terminal;       /* where the bar is drawn; NULL draws nothing */
    const char *label;    /* shown in front of the bar */
    int32_t readPermille; /* how much of the picture has been read and decoded */
    int32_t bandsSent;
    int32_t bandCount;
    int32_t filterPercent; /* last percentage the filter reported */
    int32_t drawn;         /* last permille drawn, -1 before the first */
    const char *stage;     /* the stage named by the last drawing */
    int32_t calls;         /* status calls received */
    int32_t cancelAt;      /* answer stop from this call on; 0 = never */
    int32_t stop;          /* sticky stop answer */
} TolvaProgress;

void tolva_progress_init(TolvaProgress *progress, FILE *terminal, const char *label,
                         int32_t cancelAt);
/* Records how much of the picture has been read and decoded (0..1000). */
void tolva_progress_reading(TolvaProgress *progress, int32_t permille);
/* Records that `sent` of `count` bands have reached the filter. */
void tolva_progress_bands(TolvaProgress *progress, int32_t sent, int32_t count);
/* Non-zero once a stop was asked for (checked between bands). */
int tolva_progress_stopping(TolvaProgress *progress);
/* Ends the bar's line (if one was drawn). */
void tolva_progress_finish(TolvaProgress *progress);

/*
 * The status function handed to the filter; the context is the
 * TolvaProgress. A plain query (a = b = 0) carries a percentage in d.
 */
int32_t tolva_status_function(intptr_t context, intptr_t a, intptr_t b, intptr_t c, intptr_t d,
                              intptr_t e, intptr_t f);

#ifdef __cplusplus
}
#endif

#endif

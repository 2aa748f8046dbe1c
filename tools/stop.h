/*
 * stop.h - the signals that stop the command: INT, TERM, HUP and QUIT.
 *
 * Their handler only records the signal. The conversion then ends the way a
 * host's cancel does: the status function answers stop, the filter deletes
 * its output and its spool, the command removes its own temporary file and
 * exits with 128 + the signal. Only SIGKILL can leave files behind.
 */
#ifndef TOLVA_TOOLS_STOP_H
#define TOLVA_TOOLS_STOP_H

#include <signal.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The first stop signal received; 0 while none has come. */
extern volatile sig_atomic_t tolva_stop_signal;

/*
 * Installs the handler for the stop signals, without SA_RESTART so that a
 * blocked open or write returns EINTR, and ignores SIGPIPE and SIGXFSZ: a
 * closed pipe or a file-size limit makes the write fail, and the failure is
 * reported like any other.
 */
void tolva_catch_stops(void);

/* The exit status for a stop by tolva_stop_signal. */
int tolva_stop_status(void);

#ifdef __cplusplus
}
#endif

#endif

/*
 * stop.c - records the stop signals for the status function and the copy
 * loops to act on; nothing else may happen inside the handler.
 */
#include "stop.h"

#include <string.h>

volatile sig_atomic_t tolva_stop_signal = 0;

/* The first signal decides the exit status; later ones change nothing. */
static void on_stop(int signal)
{
    if (!tolva_stop_signal) {
        tolva_stop_signal = signal;
    }
}

void tolva_catch_stops(void)
{
    static const int kStops[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = on_stop;
    sigemptyset(&action.sa_mask);
    for (size_t i = 0; i < sizeof kStops / sizeof kStops[0]; ++i) {
        sigaction(kStops[i], &action, NULL);
    }
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, NULL);
    sigaction(SIGXFSZ, &action, NULL);
}

int tolva_stop_status(void) { return 128 + (int)tolva_stop_signal; }

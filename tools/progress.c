/*
 * progress.c - progress bar and stop answers for the filter's status calls.
 *
 * The bar moves through three stages, named at its end: reading the picture,
 * handing its bands to the filter, and the filter's own work, with the
 * percentages it reports. The signal handler only sets a flag; everything
 * else happens on the status calls and between bands (stop.c).
 */
#include "progress.h"

#include <string.h>

#include "stop.h"

void tolva_progress_init(TolvaProgress *p, FILE *terminal, const char *label, int32_t cancelAt)
{
    memset(p, 0, sizeof *p);
    p->terminal = terminal;
    p->label = label;
    p->drawn = -1;
    p->cancelAt = cancelAt;
}

/* The share of the bar each stage fills, in permille: reading and decoding
 * the picture, handing its bands to the filter, and the filter's own work
 * up to the written GIF. */
enum { kReadShare = 400, kBandShare = 100, kFilterShare = 500 };

static void draw(TolvaProgress *p)
{
    if (p->terminal == NULL) {
        return;
    }
    int32_t permille = kReadShare * p->readPermille / 1000;
    const char *stage = "reading";
    if (p->bandCount > 0) {
        permille = kReadShare + kBandShare * p->bandsSent / p->bandCount;
        stage = "sending";
    }
    int32_t percent = p->filterPercent < 0 ? 0 : p->filterPercent > 100 ? 100 : p->filterPercent;
    if (p->bandCount > 0 && p->bandsSent == p->bandCount) {
        permille += kFilterShare * percent / 100;
        stage = percent == 100 ? "done" : "writing";
    }
    if (permille == p->drawn && stage == p->stage) {
        return;
    }
    p->drawn = permille;
    p->stage = stage;
    enum { kWidth = 30 };
    char bar[kWidth + 1];
    int32_t filled = permille * kWidth / 1000;
    for (int32_t i = 0; i < kWidth; ++i) {
        bar[i] = i < filled ? '#' : '.';
    }
    bar[kWidth] = '\0';
    fprintf(p->terminal, "\r%s [%s] %3d%% %-7s", p->label, bar, (int)(permille / 10), stage);
    fflush(p->terminal);
}

void tolva_progress_reading(TolvaProgress *p, int32_t permille)
{
    p->readPermille = permille < 0 ? 0 : permille > 1000 ? 1000 : permille;
    draw(p);
}

void tolva_progress_bands(TolvaProgress *p, int32_t sent, int32_t count)
{
    p->bandsSent = sent;
    p->bandCount = count;
    draw(p);
}

int tolva_progress_stopping(TolvaProgress *p)
{
    if (tolva_stop_signal) {
        p->stop = 1;
    }
    return p->stop;
}

void tolva_progress_finish(TolvaProgress *p)
{
    if (p->terminal != NULL && p->drawn >= 0) {
        fputc('\n', p->terminal);
        fflush(p->terminal);
        p->drawn = -1;
    }
}

int32_t tolva_status_function(intptr_t context, intptr_t a, intptr_t b, intptr_t c, intptr_t d,
                              intptr_t e, intptr_t f)
{
    (void)c;
    (void)e;
    (void)f;
    TolvaProgress *p = (TolvaProgress *)context;
    p->calls += 1;
    if (p->cancelAt > 0 && p->calls >= p->cancelAt) {
        p->stop = 1;
    }
    /* a = 0, b = 0 is a progress report or a plain "go on?" query; the init
     * report (b = -2) and the detail request (a = 2) carry no percentage. */
    if (a == 0 && b == 0 && d > 0 && d <= 100) {
        p->filterPercent = (int32_t)d;
        draw(p);
    }
    return tolva_progress_stopping(p) ? 1 : 0;
}

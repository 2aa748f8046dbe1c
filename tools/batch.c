/*
 * batch.c - runs one child process per input, --jobs at a time.
 *
 * The parent never loads a picture or drives the filter itself; it only
 * forks, waits and reports. Two inputs that would give the same output name
 * (a/x.png and b/x.jpg) are not both written: the later one fails with a
 * message, so that no GIF of the batch silently replaces another.
 */
#include "batch.h"

#include <errno.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "stop.h"

int tolva_batch_output_name(const char *directory, const char *input, char *name, size_t size)
{
    const char *base = strrchr(input, '/');
    base = base != NULL ? base + 1 : input;
    const char *dot = strrchr(base, '.');
    size_t length = (dot != NULL && dot != base) ? (size_t)(dot - base) : strlen(base);
    int written = snprintf(name, size, "%s%s%.*s.gif", directory,
                           directory[strlen(directory) - 1] == '/' ? "" : "/", (int)length, base);
    return (written < 0 || (size_t)written >= size) ? -1 : 0;
}

typedef struct Job {
    pid_t pid; /* 0: the slot is free */
    int pipe;  /* read end of the child's standard error */
    int index;
} Job;

typedef struct Batch {
    const TolvaBatch *request;
    Job *jobs;
    int running;
    int finished;
    int failed;
    int drawn;     /* the progress line is on the terminal */
    int forwarded; /* the stop signal has been passed on */
} Batch;

static void put(const char *text, size_t length)
{
    while (length > 0) {
        ssize_t n = write(STDERR_FILENO, text, length);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return;
        }
        text += n;
        length -= (size_t)n;
    }
}

static void clear_line(Batch *b)
{
    if (b->drawn) {
        fprintf(b->request->terminal, "\r%*s\r", 60, "");
        fflush(b->request->terminal);
        b->drawn = 0;
    }
}

static void draw(Batch *b)
{
    FILE *terminal = b->request->terminal;
    if (terminal == NULL) {
        return;
    }
    enum { kWidth = 30 };
    char bar[kWidth + 1];
    int filled = b->finished * kWidth / b->request->count;
    for (int i = 0; i < kWidth; ++i) {
        bar[i] = i < filled ? '#' : '.';
    }
    bar[kWidth] = '\0';
    fprintf(terminal, "\rtolva: %d/%d files [%s] %3d%%", b->finished, b->request->count, bar,
            b->finished * 100 / b->request->count);
    fflush(terminal);
    b->drawn = 1;
}

/* A message of the parent's own, about one input. */
static void say(Batch *b, const char *file, const char *what)
{
    clear_line(b);
    char line[PATH_MAX + 256];
    int n = snprintf(line, sizeof line, "tolva: %s: %s\n", file, what);
    put(line, n < 0 ? 0 : (size_t)n < sizeof line ? (size_t)n : sizeof line - 1);
}

static void forward_stop(Batch *b)
{
    if (!tolva_stop_signal || b->forwarded) {
        return;
    }
    b->forwarded = 1;
    for (int i = 0; i < b->request->jobs; ++i) {
        if (b->jobs[i].pid > 0) {
            kill(b->jobs[i].pid, tolva_stop_signal);
        }
    }
}

/* Starts input `index` in a free slot; 0, or -1 when it could not start. */
static int launch(Batch *b, int index, const char *output)
{
    Job *job = NULL;
    for (int i = 0; i < b->request->jobs && job == NULL; ++i) {
        job = b->jobs[i].pid == 0 ? &b->jobs[i] : NULL;
    }
    int ends[2];
    if (job == NULL || pipe(ends) != 0) {
        return -1;
    }
    fflush(NULL); /* nothing buffered may be written twice */
    pid_t pid = fork();
    if (pid < 0) {
        close(ends[0]);
        close(ends[1]);
        return -1;
    }
    if (pid == 0) {
        close(ends[0]);
        dup2(ends[1], STDERR_FILENO);
        close(ends[1]);
        int status = b->request->convert(b->request->context, index, output);
        fflush(NULL);
        exit(status);
    }
    close(ends[1]);
    job->pid = pid;
    job->pipe = ends[0];
    job->index = index;
    b->running += 1;
    return 0;
}

/* Passes a finished child's messages on and counts its result. */
static void collect(Batch *b, Job *job, int status)
{
    char text[4096];
    ssize_t n;
    int cleared = 0;
    while ((n = read(job->pipe, text, sizeof text)) != 0) {
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            break;
        }
        if (!cleared) {
            clear_line(b);
            cleared = 1;
        }
        put(text, (size_t)n);
    }
    close(job->pipe);
    if (WIFSIGNALED(status)) {
        char what[64];
        snprintf(what, sizeof what, "the conversion ended by signal %d", WTERMSIG(status));
        say(b, b->request->inputs[job->index], what);
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        b->failed += 1;
    }
    b->finished += 1;
    b->running -= 1;
    job->pid = 0;
    draw(b);
}

static void wait_for_one(Batch *b)
{
    int status = 0;
    pid_t pid = waitpid(-1, &status, 0);
    forward_stop(b);
    if (pid <= 0) {
        return; /* EINTR: a signal came; the loop looks again */
    }
    for (int i = 0; i < b->request->jobs; ++i) {
        if (b->jobs[i].pid == pid) {
            collect(b, &b->jobs[i], status);
            return;
        }
    }
}

/* Whether an earlier input of the batch has the same output name. */
static int taken(const TolvaBatch *request, int index, const char *output)
{
    char other[PATH_MAX];
    for (int i = 0; i < index; ++i) {
        if (tolva_batch_output_name(request->directory, request->inputs[i], other, sizeof other) ==
                0 &&
            strcmp(other, output) == 0) {
            return 1;
        }
    }
    return 0;
}

int tolva_run_batch(const TolvaBatch *request)
{
    Batch b;
    memset(&b, 0, sizeof b);
    b.request = request;
    b.jobs = calloc((size_t)request->jobs, sizeof *b.jobs);
    if (b.jobs == NULL) {
        say(&b, request->directory, "out of memory");
        return 1;
    }
    draw(&b);
    int next = 0;
    while ((next < request->count && !tolva_stop_signal) || b.running > 0) {
        while (b.running < request->jobs && next < request->count && !tolva_stop_signal) {
            int index = next++;
            char output[PATH_MAX];
            const char *problem = NULL;
            if (tolva_batch_output_name(request->directory, request->inputs[index], output,
                                        sizeof output) != 0) {
                problem = "the output name is too long";
            } else if (taken(request, index, output)) {
                problem = "has the output name of an earlier input; not converted";
            } else if (launch(&b, index, output) != 0) {
                problem = "cannot start a process for it";
            }
            if (problem != NULL) {
                say(&b, request->inputs[index], problem);
                b.failed += 1;
                b.finished += 1;
                draw(&b);
            }
        }
        if (b.running > 0) {
            wait_for_one(&b);
        }
    }
    if (b.drawn) {
        fputc('\n', request->terminal); /* the finished line stays */
    }
    free(b.jobs);
    if (tolva_stop_signal) {
        return tolva_stop_status();
    }
    return b.failed > 0 ? 1 : 0;
}

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
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "stop.h"

int tolva_batch_output_name(const char *directory, const char *name, char *output, size_t size)
{
    const char *base = strrchr(name, '/');
    base = base != NULL ? base + 1 : name;
    const char *dot = strrchr(base, '.');
    size_t length = (dot != NULL && dot != base) ? (size_t)(dot - name) : strlen(name);
    int written = snprintf(output, size, "%s%s%.*s.gif", directory,
                           directory[strlen(directory) - 1] == '/' ? "" : "/", (int)length, name);
    return (written < 0 || (size_t)written >= size) ? -1 : 0;
}

/* Makes the folders between `directory`, which exists, and the file
 * `output` inside it, as far as they are missing. 0, or -1 with a message. */
static int make_folders(const char *directory, const char *output)
{
    char path[PATH_MAX];
    snprintf(path, sizeof path, "%s", output);
    size_t start = strlen(directory);
    for (char *slash = strchr(path + start + 1, '/'); slash != NULL;
         slash = strchr(slash + 1, '/')) {
        *slash = '\0';
        if (mkdir(path, 0777) != 0 && errno != EEXIST) {
            fprintf(stderr, "tolva: %s: cannot make the folder (%s)\n", path, strerror(errno));
            return -1;
        }
        *slash = '/';
    }
    return 0;
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
        int status = make_folders(b->request->directory, output) == 0
                         ? b->request->convert(b->request->context, index, output)
                         : 1;
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

typedef struct Output {
    char *name; /* NULL: too long */
    int index;
    int taken; /* an earlier input has the same output name */
} Output;

static void free_outputs(Output *outputs, int count)
{
    for (int i = 0; i < count; ++i) {
        free(outputs[i].name);
    }
    free(outputs);
}

static int by_name_then_index(const void *a, const void *b)
{
    const Output *x = a, *y = b;
    int order = x->name == NULL || y->name == NULL ? (x->name != NULL) - (y->name != NULL)
                                                   : strcmp(x->name, y->name);
    return order != 0 ? order : (x->index > y->index) - (x->index < y->index);
}

/* Every input's output name, with those that an earlier input already has
 * marked; found by sorting, so that a batch of a whole photo library does
 * not compare every pair. NULL when memory runs out. */
static Output *output_names(const TolvaBatch *request)
{
    Output *outputs = calloc((size_t)request->count, sizeof *outputs);
    if (outputs == NULL) {
        return NULL;
    }
    char name[PATH_MAX];
    for (int i = 0; i < request->count; ++i) {
        outputs[i].index = i;
        if (tolva_batch_output_name(request->directory, request->names[i], name, sizeof name) ==
            0) {
            outputs[i].name = strdup(name);
            if (outputs[i].name == NULL) {
                free_outputs(outputs, i);
                return NULL;
            }
        }
    }
    Output *sorted = malloc((size_t)request->count * sizeof *sorted);
    if (sorted == NULL) {
        free_outputs(outputs, request->count);
        return NULL;
    }
    memcpy(sorted, outputs, (size_t)request->count * sizeof *sorted);
    qsort(sorted, (size_t)request->count, sizeof *sorted, by_name_then_index);
    for (int k = 1; k < request->count; ++k) {
        if (sorted[k].name != NULL && sorted[k - 1].name != NULL &&
            strcmp(sorted[k].name, sorted[k - 1].name) == 0) {
            outputs[sorted[k].index].taken = 1;
        }
    }
    free(sorted);
    return outputs;
}

int tolva_run_batch(const TolvaBatch *request)
{
    Batch b;
    memset(&b, 0, sizeof b);
    b.request = request;
    b.jobs = calloc((size_t)request->jobs, sizeof *b.jobs);
    Output *outputs = b.jobs != NULL ? output_names(request) : NULL;
    if (outputs == NULL) {
        free(b.jobs);
        say(&b, request->directory, "out of memory");
        return 1;
    }
    draw(&b);
    int next = 0;
    while ((next < request->count && !tolva_stop_signal) || b.running > 0) {
        while (b.running < request->jobs && next < request->count && !tolva_stop_signal) {
            int index = next++;
            const char *problem = NULL;
            if (outputs[index].name == NULL) {
                problem = "the output name is too long";
            } else if (outputs[index].taken) {
                problem = "has the output name of an earlier input; not converted";
            } else if (launch(&b, index, outputs[index].name) != 0) {
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
    free_outputs(outputs, request->count);
    if (tolva_stop_signal) {
        return tolva_stop_status();
    }
    return b.failed > 0 ? 1 : 0;
}

/*
 * output.c - temporary output files and their atomic move into place.
 *
 * The filter writes to a file name of at most 143 characters and deletes it
 * itself when the user cancels. The command therefore gives it a fresh
 * mkstemp file, beside the target when the name fits so that the final
 * rename stays within one file system, and in the temporary directory when it
 * does not (the file is then copied beside the target before the rename).
 */
#include "output.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

/* Copies of the temporary names for the signal handlers, which may only
 * call unlink. `gArmed` is set while they name live files. */
static char gTemporaries[2][PATH_MAX];
static volatile sig_atomic_t gArmed = 0;

static void arm(const TolvaOutput *o)
{
    gArmed = 0;
    snprintf(gTemporaries[0], sizeof gTemporaries[0], "%s", o->filterPath);
    snprintf(gTemporaries[1], sizeof gTemporaries[1], "%s", o->finalPath);
    gArmed = 1;
}

void tolva_output_remove_temporaries(void)
{
    if (gArmed) {
        gArmed = 0;
        for (int i = 0; i < 2; ++i) {
            if (gTemporaries[i][0] != '\0') {
                (void)unlink(gTemporaries[i]);
            }
        }
    }
}

static void on_fatal_signal(int signal)
{
    tolva_output_remove_temporaries();
    /* The handler was reset on entry: the signal now has its default effect. */
    raise(signal);
}

void tolva_output_guard_signals(void)
{
    static const int kSignals[] = {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTERM, SIGHUP,
                                   SIGQUIT};
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = on_fatal_signal;
    action.sa_flags = SA_RESETHAND | SA_NODEFER;
    sigemptyset(&action.sa_mask);
    for (size_t i = 0; i < sizeof kSignals / sizeof kSignals[0]; ++i) {
        sigaction(kSignals[i], &action, NULL);
    }
}

static int make_temporary(char *path, size_t size, const char *directory)
{
    int written = snprintf(path, size, "%s/.tolva-XXXXXX", directory);
    if (written < 0 || (size_t)written >= size) {
        path[0] = '\0';
        return ENAMETOOLONG;
    }
    int fd = mkstemp(path);
    if (fd < 0) {
        int failure = errno;
        path[0] = '\0';
        return failure;
    }
    close(fd);
    return 0;
}

static const char *temporary_directory(void)
{
    const char *directory = getenv("TMPDIR");
    if (directory == NULL || directory[0] == '\0' || strlen(directory) > 100) {
        directory = "/tmp";
    }
    return directory;
}

int tolva_output_begin(TolvaOutput *o, const char *target)
{
    memset(o, 0, sizeof *o);
    o->target = target;
    if (strcmp(target, "-") == 0) {
        o->separate = 1;
        int failure = make_temporary(o->filterPath, sizeof o->filterPath, temporary_directory());
        if (failure == 0) {
            arm(o);
        }
        return failure;
    }
    struct stat info;
    if (stat(target, &info) == 0 && S_ISDIR(info.st_mode)) {
        return EISDIR;
    }
    char directory[PATH_MAX];
    snprintf(directory, sizeof directory, "%s", target);
    char *slash = strrchr(directory, '/');
    if (slash == NULL) {
        snprintf(directory, sizeof directory, ".");
    } else if (slash == directory) {
        directory[1] = '\0';
    } else {
        *slash = '\0';
    }
    int failure = make_temporary(o->finalPath, sizeof o->finalPath, directory);
    if (failure != 0) {
        return failure;
    }
    if (strlen(o->finalPath) < sizeof o->filterPath) {
        memcpy(o->filterPath, o->finalPath, strlen(o->finalPath) + 1);
        arm(o);
        return 0;
    }
    o->separate = 1;
    failure = make_temporary(o->filterPath, sizeof o->filterPath, temporary_directory());
    if (failure != 0) {
        tolva_output_discard(o);
        return failure;
    }
    arm(o);
    return 0;
}

static int copy_file(const char *from, FILE *to)
{
    FILE *in = fopen(from, "rb");
    if (in == NULL) {
        return errno;
    }
    char buffer[65536];
    int failure = 0;
    size_t got;
    while ((got = fread(buffer, 1, sizeof buffer, in)) > 0) {
        if (fwrite(buffer, 1, got, to) != got) {
            failure = errno ? errno : EIO;
            break;
        }
    }
    if (failure == 0 && ferror(in)) {
        failure = errno ? errno : EIO;
    }
    fclose(in);
    if (failure == 0 && fflush(to) != 0) {
        failure = errno ? errno : EIO;
    }
    return failure;
}

/* The mode the file would have had if the user's program had created it:
 * an existing target's own, or 0666 less the umask. */
static mode_t final_mode(const char *target)
{
    struct stat info;
    if (stat(target, &info) == 0) {
        return info.st_mode & 07777;
    }
    mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

int tolva_output_commit(TolvaOutput *o)
{
    int failure = 0;
    if (strcmp(o->target, "-") == 0) {
        failure = copy_file(o->filterPath, stdout);
        tolva_output_discard(o);
        return failure;
    }
    if (o->separate) {
        FILE *out = fopen(o->finalPath, "wb");
        if (out == NULL) {
            failure = errno;
        } else {
            failure = copy_file(o->filterPath, out);
            if (fclose(out) != 0 && failure == 0) {
                failure = errno;
            }
        }
    }
    if (failure == 0 && chmod(o->finalPath, final_mode(o->target)) != 0) {
        failure = errno;
    }
    if (failure == 0 && rename(o->finalPath, o->target) != 0) {
        failure = errno;
    }
    if (failure == 0) {
        o->finalPath[0] = '\0';
        if (!o->separate) {
            o->filterPath[0] = '\0';
        }
    }
    tolva_output_discard(o);
    return failure;
}

void tolva_output_discard(TolvaOutput *o)
{
    gArmed = 0;
    if (o->filterPath[0] != '\0') {
        (void)unlink(o->filterPath); /* the filter deletes it itself on a cancel */
        o->filterPath[0] = '\0';
    }
    if (o->finalPath[0] != '\0') {
        (void)unlink(o->finalPath);
        o->finalPath[0] = '\0';
    }
}

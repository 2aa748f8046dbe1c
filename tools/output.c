/*
 * output.c - temporary output files, and the one safe way to each kind of
 * output.
 *
 * The filter writes to a file name of at most 143 characters and deletes it
 * itself when the user cancels, so it is never given the user's own name: it
 * gets a fresh mkstemp file. For a regular file that temporary lies beside
 * the real file (the target with its symbolic links followed) so that the
 * final rename stays within one file system; when that name is too long for
 * the filter it lies in the temporary directory and is copied beside the
 * real file first. A device, FIFO, socket or standard output cannot be
 * renamed over (that would replace /dev/null, or leave a pipe's reader
 * waiting): it is opened before the conversion, so that a refusal comes
 * first, and the finished GIF is copied into it.
 */
#define _GNU_SOURCE /* renameat2 */
#include "output.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "stop.h"

/* Copies of the temporary names for the crash handler, which may only call
 * unlink. `gArmed` is set while they name live files. */
static char gTemporaries[2][PATH_MAX];
static volatile sig_atomic_t gArmed = 0;

static void arm(const TolvaOutput *o)
{
    gArmed = 0;
    snprintf(gTemporaries[0], sizeof gTemporaries[0], "%s", o->filterPath);
    snprintf(gTemporaries[1], sizeof gTemporaries[1], "%s", o->finalPath);
    gArmed = 1;
}

static void on_crash(int signal)
{
    if (gArmed) {
        gArmed = 0;
        for (int i = 0; i < 2; ++i) {
            if (gTemporaries[i][0] != '\0') {
                (void)unlink(gTemporaries[i]);
            }
        }
    }
    /* The handler was reset on entry: the signal now has its default effect. */
    raise(signal);
}

void tolva_output_guard_signals(void)
{
    static const int kSignals[] = {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL};
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = on_crash;
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

static int fail(char *error, size_t size, const char *what, int failure)
{
    snprintf(error, size, "%s (%s)", what, strerror(failure));
    return -1;
}

/* The descriptor number N of a path /proc/PID/fd/N naming this process. */
static int own_descriptor(const char *path)
{
    char prefix[64];
    snprintf(prefix, sizeof prefix, "/proc/%ld/fd/", (long)getpid());
    size_t length = strlen(prefix);
    if (strncmp(path, prefix, length) != 0 || path[length] == '\0') {
        return -1;
    }
    char *end = NULL;
    long fd = strtol(path + length, &end, 10);
    return (*end == '\0' && fd >= 0 && fd < INT_MAX) ? (int)fd : -1;
}

/*
 * Follows `target` through its symbolic links, link by link, so that a link
 * to a file not yet there is followed too. The result is the real path (its
 * directory resolved) and whether it exists; a link into /proc/self/fd (as
 * /dev/stdout is) gives the descriptor it names in `fd`. Returns 0 or errno.
 */
static int follow_links(const char *target, char *real, size_t realSize, struct stat *info,
                        int *exists, int *fd)
{
    char path[PATH_MAX];
    snprintf(path, sizeof path, "%s", target);
    *fd = -1;
    for (int hop = 0; hop < 40; ++hop) {
        char directory[PATH_MAX];
        snprintf(directory, sizeof directory, "%s", path);
        char *slash = strrchr(directory, '/');
        const char *base = path;
        if (slash == NULL) {
            snprintf(directory, sizeof directory, ".");
        } else {
            base = path + (slash - directory) + 1;
            if (slash == directory) {
                directory[1] = '\0';
            } else {
                *slash = '\0';
            }
        }
        if (base[0] == '\0' || strcmp(base, ".") == 0 || strcmp(base, "..") == 0) {
            return EISDIR;
        }
        char resolved[PATH_MAX];
        if (realpath(directory, resolved) == NULL) {
            return errno;
        }
        int written =
            snprintf(real, realSize, "%s/%s", strcmp(resolved, "/") == 0 ? "" : resolved, base);
        if (written < 0 || (size_t)written >= realSize) {
            return ENAMETOOLONG;
        }
        *fd = own_descriptor(real);
        if (*fd >= 0) {
            *exists = 1;
            return fstat(*fd, info) == 0 ? 0 : errno;
        }
        if (lstat(real, info) != 0) {
            *exists = 0;
            return errno == ENOENT ? 0 : errno;
        }
        *exists = 1;
        if (!S_ISLNK(info->st_mode)) {
            return 0;
        }
        char link[PATH_MAX];
        ssize_t length = readlink(real, link, sizeof link - 1);
        if (length < 0) {
            return errno;
        }
        link[length] = '\0';
        if (link[0] == '/') {
            snprintf(path, sizeof path, "%s", link);
        } else {
            written = snprintf(path, sizeof path, "%s/%s", resolved, link);
            if (written < 0 || (size_t)written >= sizeof path) {
                return ENAMETOOLONG;
            }
        }
    }
    return ELOOP;
}

static int connect_socket(const char *path)
{
    struct sockaddr_un address;
    memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    if (strlen(path) >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(address.sun_path, path, strlen(path) + 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && connect(fd, (struct sockaddr *)&address, sizeof address) != 0) {
        int failure = errno;
        close(fd);
        errno = failure;
        return -1;
    }
    return fd;
}

/* Opens an existing device, FIFO, socket or descriptor for direct writing. */
static int open_direct(TolvaOutput *o, const struct stat *info, int fd, char *error,
                       size_t errorSize, const char **about)
{
    if (fd >= 0) {
        o->direct = fcntl(fd, F_DUPFD_CLOEXEC, 3);
    } else if (S_ISSOCK(info->st_mode)) {
        o->direct = connect_socket(o->realPath);
    } else {
        o->direct = open(o->realPath, O_WRONLY | O_NOCTTY | O_CLOEXEC);
    }
    if (o->direct < 0) {
        return fail(error, errorSize, "cannot open the output", errno);
    }
    int failure = make_temporary(o->filterPath, sizeof o->filterPath, temporary_directory());
    if (failure != 0) {
        close(o->direct);
        o->direct = -1;
        *about = temporary_directory();
        return fail(error, errorSize, "cannot create a temporary file", failure);
    }
    o->separate = 1;
    arm(o);
    return 0;
}

static int same_file(const struct stat *a, const struct stat *b)
{
    return a != NULL && a->st_dev == b->st_dev && a->st_ino == b->st_ino;
}

int tolva_output_begin(TolvaOutput *o, const char *target, int noClobber, const struct stat *input,
                       char *error, size_t errorSize, const char **about)
{
    memset(o, 0, sizeof *o);
    o->target = target;
    o->direct = -1;
    o->noClobber = noClobber;
    *about = target;
    struct stat info;
    int exists = 0, fd = -1;
    if (strcmp(target, "-") == 0) {
        fd = STDOUT_FILENO;
        exists = fstat(fd, &info) == 0;
        if (!exists) {
            return fail(error, errorSize, "cannot write to standard output", errno);
        }
    } else {
        int failure = follow_links(target, o->realPath, sizeof o->realPath, &info, &exists, &fd);
        if (failure != 0) {
            return fail(error, errorSize, "cannot create the output file", failure);
        }
    }
    if (exists && same_file(input, &info)) {
        snprintf(error, errorSize, "is the input file; not overwritten");
        return -1;
    }
    if (exists && S_ISDIR(info.st_mode)) {
        return fail(error, errorSize, "cannot create the output file", EISDIR);
    }
    if (exists && S_ISBLK(info.st_mode)) {
        snprintf(error, errorSize, "is a block device; a GIF is not written to one");
        return -1;
    }
    if (fd >= 0 || (exists && !S_ISREG(info.st_mode))) {
        return open_direct(o, &info, fd, error, errorSize, about);
    }
    if (exists && noClobber) {
        snprintf(error, errorSize, "already exists; not replaced (--no-clobber)");
        return -1;
    }
    char directory[PATH_MAX];
    snprintf(directory, sizeof directory, "%s", o->realPath);
    char *slash = strrchr(directory, '/');
    if (slash == directory) {
        directory[1] = '\0';
    } else {
        *slash = '\0'; /* follow_links always gives a directory */
    }
    int failure = make_temporary(o->finalPath, sizeof o->finalPath, directory);
    if (failure != 0) {
        return fail(error, errorSize, "cannot create the output file", failure);
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
        *about = temporary_directory();
        return fail(error, errorSize, "cannot create a temporary file", failure);
    }
    arm(o);
    return 0;
}

/* Copies the file `from` into `to` with plain writes, so that every failure
 * (ENOSPC on /dev/full, EPIPE, EFBIG over a file-size limit) is seen, and a
 * stop signal ends a write that a slow reader holds up. */
static int copy_file(const char *from, int to)
{
    int in = open(from, O_RDONLY | O_CLOEXEC);
    if (in < 0) {
        return errno;
    }
    char buffer[65536];
    int failure = 0;
    for (;;) {
        ssize_t got = read(in, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR && !tolva_stop_signal) {
            continue;
        }
        if (got <= 0) {
            failure = got < 0 ? errno : 0;
            break;
        }
        for (ssize_t done = 0; done < got && failure == 0;) {
            if (tolva_stop_signal) {
                failure = EINTR;
                break;
            }
            ssize_t put = write(to, buffer + done, (size_t)(got - done));
            if (put > 0) {
                done += put;
            } else if (put < 0 && errno != EINTR) {
                failure = errno;
            }
        }
        if (failure != 0) {
            break;
        }
    }
    close(in);
    return failure;
}

/* The mode the file would have had if the user's program had created it:
 * an existing target's own, or 0666 less the umask. */
static mode_t final_mode(const char *path)
{
    struct stat info;
    if (stat(path, &info) == 0) {
        return info.st_mode & 07777;
    }
    mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

/* Moves the temporary into place; with --no-clobber only where no file is. */
static int move_into_place(const TolvaOutput *o)
{
    if (!o->noClobber) {
        return rename(o->finalPath, o->realPath) == 0 ? 0 : errno;
    }
    if (renameat2(AT_FDCWD, o->finalPath, AT_FDCWD, o->realPath, RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return errno;
    }
    /* A file system without the no-replace rename: link refuses an
     * existing name too. */
    if (link(o->finalPath, o->realPath) != 0) {
        return errno;
    }
    (void)unlink(o->finalPath);
    return 0;
}

int tolva_output_commit(TolvaOutput *o)
{
    int failure = 0;
    if (o->direct >= 0) {
        failure = copy_file(o->filterPath, o->direct);
        if (close(o->direct) != 0 && failure == 0 && errno != EINTR) {
            failure = errno;
        }
        o->direct = -1;
        tolva_output_discard(o);
        return failure;
    }
    if (o->separate) {
        int out = open(o->finalPath, O_WRONLY | O_TRUNC | O_CLOEXEC);
        if (out < 0) {
            failure = errno;
        } else {
            failure = copy_file(o->filterPath, out);
            if (close(out) != 0 && failure == 0) {
                failure = errno;
            }
        }
    }
    if (failure == 0 && chmod(o->finalPath, final_mode(o->realPath)) != 0) {
        failure = errno;
    }
    /* A stop that came after the filter finished still wins, as long as the
     * old file has not been replaced yet. */
    if (failure == 0 && tolva_stop_signal) {
        failure = EINTR;
    }
    if (failure == 0) {
        failure = move_into_place(o);
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
    if (o->direct >= 0) {
        close(o->direct);
        o->direct = -1;
    }
    if (o->filterPath[0] != '\0') {
        (void)unlink(o->filterPath); /* the filter deletes it itself on a cancel */
        o->filterPath[0] = '\0';
    }
    if (o->finalPath[0] != '\0') {
        (void)unlink(o->finalPath);
        o->finalPath[0] = '\0';
    }
}

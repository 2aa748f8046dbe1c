/*
 * tolva.c - the tolva command: converts pictures to GIF files by driving
 * the libtolva export filter the way a host application does.
 *
 * Every failure ends in exactly one line on standard error that names the
 * file concerned, and leaves the output as it was: status 1 for an error, 2
 * for a usage error, 128 + N for a stop by signal N (130 for Ctrl-C).
 */
#include <errno.h>
#include <limits.h>
#include <setjmp.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "batch.h"
#include "filter.h"
#include "folder.h"
#include "image.h"
#include "messages.h"
#include "options.h"
#include "output.h"
#include "picture.h"
#include "progress.h"
#include "resample.h"
#include "sizing.h"
#include "stop.h"
#include "transparency.h"

#ifndef TOLVA_VERSION_STRING
#define TOLVA_VERSION_STRING "2.0.5"
#endif

enum { EXIT_USAGE = 2, EXIT_CANCELLED = 130 };

/* One write per message, so that messages of processes sharing standard
 * error never interleave within a line. */
static int report(int status, const char *file, const char *format, ...)
{
    char line[2048];
    int used = snprintf(line, sizeof line, "tolva: %s%s", file != NULL ? file : "",
                        file != NULL ? ": " : "");
    va_list args;
    va_start(args, format);
    if (used >= 0 && (size_t)used < sizeof line) {
        used += vsnprintf(line + used, sizeof line - (size_t)used, format, args);
    }
    va_end(args);
    if (used < 0 || (size_t)used >= sizeof line - 1) {
        used = (int)sizeof line - 2;
    }
    line[used++] = '\n';
    ssize_t ignored = write(STDERR_FILENO, line, (size_t)used);
    (void)ignored; /* nowhere left to report a failure to report */
    return status;
}

static const char *display_name(const char *path, const char *stream)
{
    return strcmp(path, "-") == 0 ? stream : path;
}

static void own_path(char *path, size_t size, const char *argv0)
{
    ssize_t length = readlink("/proc/self/exe", path, size - 1);
    if (length > 0) {
        path[length] = '\0';
    } else {
        snprintf(path, size, "%s", argv0);
    }
}

/* The command's own version comes first, so that it is shown even when the
 * filter cannot be loaded. */
static int show_version(const TolvaOptions *o, const char *self)
{
    printf("tolva %s\n", TOLVA_VERSION_STRING);
    fflush(stdout);
    TolvaFilter filter;
    char tried[PATH_MAX], error[512];
    if (tolva_filter_load(o->library, self, &filter, tried, sizeof tried, error, sizeof error)) {
        return report(EXIT_FAILURE, tried, "%s", error);
    }
    uint32_t version = filter.filterVersion();
    printf("filter version %u.%u.%u (%s)\n", (unsigned)(version >> 24),
           (unsigned)((version >> 16) & 0xff), (unsigned)(version & 0xffff), filter.path);
    tolva_filter_unload(&filter);
    return EXIT_SUCCESS;
}

/* The filter looks for a named profile in INIDIR first and then as given,
 * and silently falls back to its defaults; a user who names one wants it. */
static int profile_readable(const char *profile)
{
    const char *directory = getenv("INIDIR");
    if (directory != NULL && directory[0] != '\0' && profile[0] != '/') {
        char path[PATH_MAX];
        snprintf(path, sizeof path, "%s/%s", directory, profile);
        if (access(path, R_OK) == 0) {
            return 1;
        }
    }
    return access(profile, R_OK) == 0;
}

static void watch_reading(void *context, int32_t permille)
{
    tolva_progress_reading((TolvaProgress *)context, permille);
}

/*
 * A mapped input that another program shortens while it is read faults with
 * SIGBUS on the pages that are gone; the read is abandoned and reported like
 * any other bad input, so that the temporary output is removed as usual.
 */
static sigjmp_buf g_input_shrank;

static void on_input_shrank(int signal)
{
    (void)signal;
    siglongjmp(g_input_shrank, 1);
}

static int load_picture(const TolvaOptions *o, const char *input, TolvaImage *image,
                        TolvaProgress *progress, const char **format)
{
    const char *name = display_name(input, "standard input");
    TolvaFileBytes file;
    tolva_progress_reading(progress, 0);
    int failure = tolva_load_file(input, &file);
    if (failure != 0) {
        tolva_release_file(&file);
        tolva_progress_finish(progress);
        return report(EXIT_FAILURE, name, "cannot read the picture (%s)", strerror(failure));
    }
    char error[512];
    TolvaReadSettings settings = {o->maxPixels, o->keepOrientation};
    *format = tolva_picture_format(file.data, file.size);
    struct sigaction bus;
    struct sigaction previous;
    memset(&bus, 0, sizeof bus);
    bus.sa_handler = on_input_shrank;
    sigemptyset(&bus.sa_mask);
    sigaction(SIGBUS, &bus, &previous);
    if (sigsetjmp(g_input_shrank, 1) != 0) {
        sigaction(SIGBUS, &previous, NULL);
        tolva_watch_reading(NULL, NULL);
        tolva_release_file(&file);
        tolva_progress_finish(progress);
        return report(EXIT_FAILURE, name, "the file changed while it was read");
    }
    tolva_watch_reading(watch_reading, progress);
    TolvaImageResult result =
        tolva_read_picture(file.data, file.size, &settings, image, error, sizeof error);
    tolva_watch_reading(NULL, NULL);
    sigaction(SIGBUS, &previous, NULL);
    tolva_release_file(&file);
    if (result != TOLVA_IMAGE_OK) {
        tolva_progress_finish(progress);
        return report(EXIT_FAILURE, name, "%s", error);
    }
    tolva_progress_reading(progress, 1000);
    return EXIT_SUCCESS;
}

/* Transparency becomes the GIF's one transparent colour, and partly
 * transparent pixels are blended over the matte. */
static int flatten_picture(const TolvaOptions *o, TolvaImage *image, TolvaTransparency *t,
                           const char *name)
{
    char error[512];
    uint8_t matte[3];
    tolva_matte_colour(o, matte);
    if (tolva_flatten(image, matte, t, error, sizeof error) != TOLVA_IMAGE_OK) {
        return report(EXIT_FAILURE, name, "%s", error);
    }
    return EXIT_SUCCESS;
}

static int stopped(const char *name)
{
    return report(tolva_stop_status(), name, "%s", tolva_filter_message(TOLVA_ERR_STOPPED));
}

static int export_failure(int32_t result, const char *name, const char *error)
{
    if (result == TOLVA_ERR_STOPPED) {
        return tolva_stop_signal ? stopped(name)
                                 : report(EXIT_CANCELLED, name, "%s", tolva_filter_message(result));
    }
    if (result == TOLVA_EXPORT_REFUSED) {
        return report(EXIT_USAGE, NULL, "%s", error);
    }
    if (result == TOLVA_EXPORT_NO_SETTINGS) {
        return report(EXIT_FAILURE, NULL, "%s", error);
    }
    if (result == TOLVA_EXPORT_INCOMPLETE || (result > 0 && error[0] != '\0')) {
        return report(EXIT_FAILURE, name, "%s", error);
    }
    return report(EXIT_FAILURE, name, "%s (filter error %d)", tolva_filter_message(result),
                  (int)result);
}

/*
 * Whether the GIF at `path`, written with the key transparent, marks exactly
 * the transparent pixels: the mask goes through the same filter settings (so
 * the same scaling) into memory, and the two GIFs are compared pixel by pixel.
 */
static int32_t transparency_holds(const TolvaOptions *o, const TolvaFilter *filter,
                                  const TolvaTransparency *t, const char *path, int *holds,
                                  char *error, size_t errorSize)
{
    *holds = 0;
    TolvaOptions plain = *o;
    plain.transparent = plain.background = plain.interlace = 0;
    TolvaProgress silent;
    tolva_progress_init(&silent, NULL, "", 0);
    TolvaMemoryFile mask = {NULL, 0, 0, 0};
    int32_t result =
        tolva_export_to_memory(filter, &t->mask, &plain, &mask, &silent, error, errorSize);
    uint8_t *written = NULL;
    size_t size = 0;
    if (result == 0 && tolva_read_file(path, &written, &size) == 0) {
        *holds = tolva_transparency_holds(written, size, mask.data, mask.size);
    }
    free(written);
    tolva_memory_file_free(&mask);
    return result;
}

/* What -v says of the GIF, read before the file goes to its place. */
typedef struct GifFacts {
    int width, height;
    long long bytes;
} GifFacts;

static void gif_facts(const char *path, GifFacts *facts)
{
    uint8_t head[10] = {0};
    FILE *file = fopen(path, "rb");
    if (file != NULL) {
        if (fread(head, 1, sizeof head, file) == sizeof head && fseek(file, 0, SEEK_END) == 0) {
            facts->width = head[6] | head[7] << 8;
            facts->height = head[8] | head[9] << 8;
            facts->bytes = ftell(file);
        }
        fclose(file);
    }
}

static int export_picture(const TolvaOptions *o, const TolvaFilter *filter, TolvaImage *image,
                          const TolvaTransparency *t, TolvaOutput *output, const char *name,
                          TolvaProgress *progress, GifFacts *facts)
{
    TolvaOptions settings = *o;
    if (t->active) {
        settings.transparent = 1;
        memcpy(settings.transparentColour, t->key, 3);
    }
    char error[512];
    int32_t result =
        tolva_export(filter, image, &settings, output->filterPath, progress, error, sizeof error);
    int holds = 1;
    if (result == 0 && t->active) {
        result = transparency_holds(o, filter, t, output->filterPath, &holds, error, sizeof error);
    }
    if (result == 0 && !holds) {
        uint8_t matte[3];
        tolva_matte_colour(o, matte);
        tolva_fill_transparent(image, t, matte);
        settings.transparent = 0;
        tolva_progress_init(progress, progress->terminal, name, o->cancelAt);
        tolva_progress_reading(progress, 1000); /* the picture is read already */
        result = tolva_export(filter, image, &settings, output->filterPath, progress, error,
                              sizeof error);
    }
    if (result != 0) {
        tolva_output_discard(output);
        return export_failure(result, name, error);
    }
    if (o->verbose) {
        gif_facts(output->filterPath, facts);
    }
    int failure = tolva_output_commit(output);
    if (failure == EINTR && tolva_stop_signal) {
        return stopped(name);
    }
    if (failure == EEXIST && o->noClobber) {
        return report(EXIT_FAILURE, name, "%s", "already exists; not replaced (--no-clobber)");
    }
    if (failure != 0) {
        return report(EXIT_FAILURE, name, "cannot write the output file (%s)", strerror(failure));
    }
    if (!holds) {
        report(EXIT_SUCCESS, name, "%s",
               "written without transparency: the GIF's one transparent colour would also "
               "have covered opaque pixels");
    }
    return EXIT_SUCCESS;
}

/*
 * The sizing for this picture. Without size options the GIF has the
 * picture's own pixels, unless a profile was named: its size then applies.
 * A pixel size is planned through the filter's own sizing, or with --smooth
 * made by resampling first and then taken one to one.
 */
static int size_picture(TolvaOptions *o, TolvaImage *image, const char *name)
{
    if (o->pixelWidth == 0 && o->pixelHeight == 0) {
        if (o->width == 0.0 && o->dpi == 0 && o->profile == NULL) {
            o->actualSize = 1;
        }
        return EXIT_SUCCESS;
    }
    char error[512];
    if (o->smooth) {
        int32_t width = o->pixelWidth > 0 ? o->pixelWidth
                                          : tolva_proportional_side(image->width, image->height, 0,
                                                                    o->pixelHeight);
        int32_t height = o->pixelHeight > 0 ? o->pixelHeight
                                            : tolva_proportional_side(image->width, image->height,
                                                                      o->pixelWidth, 0);
        /* The resampled picture is handed over one to one, within the
         * sides the filter's picture record carries. */
        if (width > TOLVA_IMAGE_MAX_SIDE || height > TOLVA_IMAGE_MAX_SIDE) {
            return report(EXIT_FAILURE, name, "--smooth makes at most %d pixels a side",
                          TOLVA_IMAGE_MAX_SIDE);
        }
        if (tolva_resample(image, width, height, error, sizeof error) != 0) {
            return report(EXIT_FAILURE, name, "%s", error);
        }
        o->actualSize = 1;
        return EXIT_SUCCESS;
    }
    if (tolva_plan_pixels(image->width, image->height, o->pixelWidth, o->pixelHeight, &o->plan) !=
        0) {
        char width[16] = "any width", height[16] = "any height";
        if (o->pixelWidth > 0) snprintf(width, sizeof width, "%d", (int)o->pixelWidth);
        if (o->pixelHeight > 0) snprintf(height, sizeof height, "%d", (int)o->pixelHeight);
        return report(EXIT_FAILURE, name,
                      "the filter cannot make %s x %s pixels of this %dx%d picture "
                      "(try --smooth)",
                      width, height, (int)image->width, (int)image->height);
    }
    return EXIT_SUCCESS;
}

static void say_written(const TolvaOptions *o, const TolvaFilter *filter, const char *name,
                        const GifFacts *facts, const struct timespec *start)
{
    char profile[160], section[160], used[400];
    if (tolva_filter_settings_used(filter, o, profile, sizeof profile, section, sizeof section) !=
            0 ||
        profile[0] == '\0') {
        snprintf(used, sizeof used, "the filter's built-in settings");
    } else {
        snprintf(used, sizeof used, "profile %s, section [%s]", profile, section);
    }
    struct timespec end;
    clock_gettime(CLOCK_MONOTONIC, &end);
    double seconds = (double)(end.tv_sec - start->tv_sec) + (end.tv_nsec - start->tv_nsec) / 1e9;
    report(EXIT_SUCCESS, name, "GIF of %dx%d pixels, %lld bytes; %s; %.2f s", facts->width,
           facts->height, facts->bytes, used, seconds);
}

/* What the output must never be: the input itself. NULL when the input
 * cannot be looked at (reading it then says why). */
static const struct stat *input_identity(const char *input, struct stat *info)
{
    int known = strcmp(input, "-") == 0 ? fstat(STDIN_FILENO, info) == 0 : stat(input, info) == 0;
    return known ? info : NULL;
}

/* One whole conversion: the output is checked and prepared before the
 * picture is read, so that a refusal costs nothing and writes nothing. */
static int convert(const TolvaOptions *o, const TolvaFilter *filter, const char *input,
                   const char *output)
{
    const char *name = display_name(output, "standard output");
    struct stat inputInfo;
    const struct stat *identity = input_identity(input, &inputInfo);
    TolvaOutput out;
    char error[512];
    const char *about = NULL;
    if (tolva_output_begin(&out, output, o->noClobber, identity, error, sizeof error, &about) !=
        0) {
        if (tolva_stop_signal) {
            return stopped(name); /* a FIFO's open waits for its reader */
        }
        return report(EXIT_FAILURE, display_name(about, "standard output"), "%s", error);
    }
    TolvaProgress progress;
    FILE *terminal = (!o->quiet && isatty(STDERR_FILENO)) ? stderr : NULL;
    tolva_progress_init(&progress, terminal, name, o->cancelAt);
    struct timespec start;
    clock_gettime(CLOCK_MONOTONIC, &start);
    TolvaImage image;
    const char *format = NULL;
    int status = load_picture(o, input, &image, &progress, &format);
    if (status != EXIT_SUCCESS) {
        tolva_output_discard(&out);
        return status;
    }
    const int32_t moreImages = image.moreImages;
    /* Resampling comes before flattening, so that a partly covered edge is
     * blended once, at the final size. */
    TolvaOptions sized = *o;
    TolvaTransparency transparency;
    memset(&transparency, 0, sizeof transparency);
    const char *inputName = display_name(input, "standard input");
    if (o->verbose) {
        tolva_progress_finish(&progress); /* the bar goes on below the line */
        report(EXIT_SUCCESS, inputName, "%s, %dx%d pixels", format != NULL ? format : "?",
               (int)image.width, (int)image.height);
    }
    status = size_picture(&sized, &image, inputName);
    if (status == EXIT_SUCCESS) {
        status = flatten_picture(&sized, &image, &transparency, inputName);
    }
    if (status != EXIT_SUCCESS) {
        tolva_progress_finish(&progress);
        tolva_output_discard(&out);
    } else if (tolva_stop_signal) {
        tolva_output_discard(&out);
        tolva_progress_finish(&progress);
        status = stopped(name);
    } else {
        GifFacts facts = {0, 0, 0};
        status =
            export_picture(&sized, filter, &image, &transparency, &out, name, &progress, &facts);
        if (status == EXIT_SUCCESS && o->verbose) {
            say_written(o, filter, name, &facts, &start);
        }
        if (status == EXIT_SUCCESS && moreImages) {
            report(EXIT_SUCCESS, inputName, "%s",
                   "holds more than one image (frames or pages); only the first was converted");
        }
    }
    tolva_free_image(&image);
    tolva_free_transparency(&transparency);
    return status;
}

typedef struct BatchContext {
    const TolvaOptions *options;
    const TolvaFilter *filter;
    char *const *inputs; /* the pictures, folders opened */
} BatchContext;

static int convert_in_batch(void *context, int index, const char *output)
{
    const BatchContext *c = (const BatchContext *)context;
    TolvaOptions o = *c->options;
    o.quiet = 1; /* the batch draws the only progress line */
    return convert(&o, c->filter, c->inputs[index], output);
}

static long core_count(void)
{
    long cores = sysconf(_SC_NPROCESSORS_ONLN);
    return cores < 1 ? 1 : cores > TOLVA_MAX_JOBS ? TOLVA_MAX_JOBS : cores;
}

static int run_batch(const TolvaOptions *o, const TolvaFilter *filter, const TolvaInputs *inputs)
{
    struct stat info;
    /* A folder that is not there yet is made, as mkdir would: its parent must
     * exist, so a mistyped path is still reported. */
    if (stat(o->outputDir, &info) != 0 &&
        (errno != ENOENT || mkdir(o->outputDir, 0777) != 0 || stat(o->outputDir, &info) != 0)) {
        return report(EXIT_FAILURE, o->outputDir, "cannot use the output directory (%s)",
                      strerror(errno));
    }
    if (!S_ISDIR(info.st_mode)) {
        return report(EXIT_FAILURE, o->outputDir, "%s", "is not a directory");
    }
    BatchContext context = {o, filter, inputs->paths};
    int jobs = o->jobs > 0 ? o->jobs : (int)core_count();
    TolvaBatch batch = {inputs->paths,
                        inputs->names,
                        inputs->count,
                        o->outputDir,
                        jobs < inputs->count ? jobs : inputs->count,
                        (!o->quiet && isatty(STDERR_FILENO)) ? stderr : NULL,
                        convert_in_batch,
                        &context};
    return tolva_run_batch(&batch);
}

int main(int argc, char **argv)
{
    TolvaOptions o;
    char error[512];
    if (tolva_parse_options(argc, argv, &o, error, sizeof error) != 0) {
        fprintf(stderr, "tolva: %s\nTry 'tolva --help' for more information.\n", error);
        return EXIT_USAGE;
    }
    if (o.action == TOLVA_RUN_HELP) {
        tolva_print_usage(stdout);
        return EXIT_SUCCESS;
    }
    char self[PATH_MAX];
    own_path(self, sizeof self, argv[0]);
    if (o.action == TOLVA_RUN_VERSION) {
        return show_version(&o, self);
    }
    if (o.output != NULL && strcmp(o.output, "-") == 0 && isatty(STDOUT_FILENO)) {
        return report(EXIT_USAGE, "standard output", "%s",
                      "is a terminal; a GIF is not written to one (redirect it)");
    }
    if (o.outputDir == NULL && tolva_is_folder(o.input)) {
        return report(EXIT_FAILURE, o.input, "%s",
                      "is a folder; give -O DIR to convert the pictures in it");
    }
    if (o.profile != NULL && !profile_readable(o.profile)) {
        return report(EXIT_FAILURE, o.profile, "cannot read the profile (%s)", strerror(errno));
    }
    tolva_catch_stops();
    tolva_output_guard_signals();

    TolvaFilter filter;
    char tried[PATH_MAX];
    if (tolva_filter_load(o.library, self, &filter, tried, sizeof tried, error, sizeof error)) {
        return report(EXIT_FAILURE, tried, "%s", error);
    }
    int status = EXIT_SUCCESS;
    if (o.outputDir == NULL) {
        status = convert(&o, &filter, o.input, o.output);
    } else {
        TolvaInputs inputs;
        int failed = 0;
        if (tolva_expand_inputs(o.inputs, o.inputCount, o.recursive, o.outputDir, &inputs,
                                &failed) != 0) {
            status = report(EXIT_FAILURE, NULL, "%s", "out of memory listing the inputs");
        } else {
            status = inputs.count > 0 ? run_batch(&o, &filter, &inputs) : EXIT_FAILURE;
            /* A folder without pictures fails the batch as a failed file does. */
            if (failed > 0 && status == EXIT_SUCCESS) {
                status = EXIT_FAILURE;
            }
            tolva_free_inputs(&inputs);
        }
    }
    tolva_filter_unload(&filter);
    return status;
}

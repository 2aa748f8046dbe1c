/*
 * tolva.c - the tolva command: converts a picture to a GIF file by driving
 * the libtolva export filter the way a host application does.
 *
 * Every failure ends in exactly one line on standard error that names the
 * file concerned, and leaves the output as it was: status 1 for an error, 2
 * for a usage error, 130 for a cancel.
 */
#include <errno.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "filter.h"
#include "image.h"
#include "messages.h"
#include "options.h"
#include "output.h"
#include "picture.h"
#include "progress.h"
#include "transparency.h"

#ifndef TOLVA_VERSION_STRING
#define TOLVA_VERSION_STRING "2.0.5"
#endif

enum { EXIT_USAGE = 2, EXIT_CANCELLED = 130 };

static int report(int status, const char *file, const char *format, const char *detail)
{
    fprintf(stderr, "tolva: ");
    if (file != NULL) {
        fprintf(stderr, "%s: ", file);
    }
    fprintf(stderr, format, detail);
    fputc('\n', stderr);
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

static int show_version(const TolvaOptions *o, const char *self)
{
    TolvaFilter filter;
    char tried[PATH_MAX], error[512];
    if (tolva_filter_load(o->library, self, &filter, tried, sizeof tried, error, sizeof error)) {
        return report(EXIT_FAILURE, tried, "%s", error);
    }
    uint32_t version = filter.filterVersion();
    printf("tolva %s\nfilter version %u.%u.%u (%s)\n", TOLVA_VERSION_STRING,
           (unsigned)(version >> 24), (unsigned)((version >> 16) & 0xff),
           (unsigned)(version & 0xffff), filter.path);
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

static int load_picture(const TolvaOptions *o, TolvaImage *image, TolvaTransparency *t)
{
    const char *name = display_name(o->input, "standard input");
    uint8_t *data = NULL;
    size_t size = 0;
    int failure = tolva_read_file(o->input, &data, &size);
    if (failure != 0) {
        return report(EXIT_FAILURE, name, "cannot read the picture (%s)", strerror(failure));
    }
    char error[512];
    TolvaReadSettings settings = {o->maxPixels, o->keepOrientation};
    TolvaImageResult result = tolva_read_picture(data, size, &settings, image, error, sizeof error);
    free(data);
    if (result == TOLVA_IMAGE_OK) {
        uint8_t matte[3];
        tolva_matte_colour(o, matte);
        result = tolva_flatten(image, matte, t, error, sizeof error);
        if (result != TOLVA_IMAGE_OK) {
            tolva_free_image(image);
        }
    }
    if (result != TOLVA_IMAGE_OK) {
        return report(EXIT_FAILURE, name, "%s", error);
    }
    return EXIT_SUCCESS;
}

static int export_failure(int32_t result, const char *name, const char *error)
{
    if (result == TOLVA_ERR_STOPPED) {
        return report(EXIT_CANCELLED, name, "%s", tolva_filter_message(result));
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
    char text[600];
    snprintf(text, sizeof text, "%s (filter error %d)", tolva_filter_message(result), (int)result);
    return report(EXIT_FAILURE, name, "%s", text);
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
    int32_t result = tolva_export_to_memory(filter, &t->mask, &plain, &mask, &silent, error,
                                            errorSize);
    uint8_t *written = NULL;
    size_t size = 0;
    if (result == 0 && tolva_read_file(path, &written, &size) == 0) {
        *holds = tolva_transparency_holds(written, size, mask.data, mask.size);
    }
    free(written);
    tolva_memory_file_free(&mask);
    return result;
}

static int export_picture(const TolvaOptions *o, const TolvaFilter *filter, TolvaImage *image,
                          const TolvaTransparency *t)
{
    const char *name = display_name(o->output, "standard output");
    TolvaOptions settings = *o;
    if (t->active) {
        settings.transparent = 1;
        memcpy(settings.transparentColour, t->key, 3);
    }
    TolvaOutput output;
    int failure = tolva_output_begin(&output, o->output);
    if (failure != 0) {
        return report(EXIT_FAILURE, name, "cannot create the output file (%s)",
                      strerror(failure));
    }
    TolvaProgress progress;
    FILE *terminal = (!o->quiet && isatty(STDERR_FILENO)) ? stderr : NULL;
    tolva_progress_init(&progress, terminal, name, o->cancelAt);
    char error[512];
    int32_t result = tolva_export(filter, image, &settings, output.filterPath, &progress, error,
                                  sizeof error);
    int holds = 1;
    if (result == 0 && t->active) {
        result = transparency_holds(o, filter, t, output.filterPath, &holds, error, sizeof error);
    }
    if (result == 0 && !holds) {
        uint8_t matte[3];
        tolva_matte_colour(o, matte);
        tolva_fill_transparent(image, t, matte);
        settings.transparent = 0;
        tolva_progress_init(&progress, terminal, name, o->cancelAt);
        result = tolva_export(filter, image, &settings, output.filterPath, &progress, error,
                              sizeof error);
    }
    if (result != 0) {
        tolva_output_discard(&output);
        return export_failure(result, name, error);
    }
    failure = tolva_output_commit(&output);
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

int main(int argc, char **argv)
{
    TolvaOptions o;
    char error[512];
    if (tolva_parse_options(argc, argv, &o, error, sizeof error) != 0) {
        fprintf(stderr, "tolva: %s\nTry 'tolva --help' for more information.\n", error);
        return EXIT_USAGE;
    }
    if (o.action == TOLVA_RUN_HELP) {
        fputs(tolva_usage_text, stdout);
        return EXIT_SUCCESS;
    }
    char self[PATH_MAX];
    own_path(self, sizeof self, argv[0]);
    if (o.action == TOLVA_RUN_VERSION) {
        return show_version(&o, self);
    }
    if (strcmp(o.output, "-") == 0 && isatty(STDOUT_FILENO)) {
        return report(EXIT_USAGE, NULL, "%s",
                      "refusing to write a GIF to a terminal (redirect standard output)");
    }
    if (o.profile != NULL && !profile_readable(o.profile)) {
        return report(EXIT_FAILURE, o.profile, "cannot read the profile (%s)", strerror(errno));
    }
    tolva_catch_interrupt();
    tolva_output_guard_signals();
    /* A closed pipe must end in a message and a clean-up, not a silent death. */
    signal(SIGPIPE, SIG_IGN);

    TolvaImage image;
    TolvaTransparency transparency;
    int status = load_picture(&o, &image, &transparency);
    if (status != EXIT_SUCCESS) {
        return status;
    }
    TolvaFilter filter;
    char tried[PATH_MAX];
    if (tolva_filter_load(o.library, self, &filter, tried, sizeof tried, error, sizeof error)) {
        tolva_free_image(&image);
        tolva_free_transparency(&transparency);
        return report(EXIT_FAILURE, tried, "%s", error);
    }
    if (tolva_interrupted) {
        status = report(EXIT_CANCELLED, display_name(o.output, "standard output"), "%s",
                        tolva_filter_message(TOLVA_ERR_STOPPED));
    } else {
        status = export_picture(&o, &filter, &image, &transparency);
    }
    tolva_filter_unload(&filter);
    tolva_free_image(&image);
    tolva_free_transparency(&transparency);
    return status;
}

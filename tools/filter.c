/*
 * filter.c - drives one export through the filter's opcodes.
 *
 * The order of the conversation is the device's: create the Setup block and
 * set it up (escape codes for the dialog's settings, the block's own fields
 * for the rest), init, open, begin picture, device window, viewport scaling
 * mode, begin body, colour table, drawing primitive -5, the cell arrays,
 * primitive -6, end picture, close, term. The cell arrays go bottom band
 * first, each band's rows bottom row first, in the device's downward
 * direction: that fills the picture bitmap row 0 upward, which is the
 * bottom-row-first order the GIF writer reads. Keep the corners' y values
 * rising with the window's, or the device switches to its upward direction,
 * which drops a row.
 */
#include "filter.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int tolva_filter_settings_used(const TolvaFilter *f, const TolvaOptions *o, char *profile,
                               size_t profileSize, char *section, size_t sectionSize)
{
    profile[0] = section[0] = '\0';
    HGLOBAL setup = f->createSetup(0, o->profile, o->section, 0);
    if (setup == 0) {
        return -1;
    }
    const SetupBlock *block = (const SetupBlock *)f->globalLock(setup);
    if (block != NULL) {
        snprintf(profile, profileSize, "%.*s", (int)sizeof block->profilePath, block->profilePath);
        snprintf(section, sectionSize, "%.*s", (int)sizeof block->sectionName, block->sectionName);
        (void)f->globalUnlock(setup); /* always 0 */
    }
    (void)f->destroySetup(setup); /* 1 only for a handle that does not lock */
    return 0;
}

int32_t tolva_band_count(const TolvaImage *image, int32_t requested)
{
    int32_t count = requested;
    if (count <= 0) {
        int64_t rowsPerBand = (int64_t)(256 * 1024) / image->stride;
        if (rowsPerBand < 1) {
            rowsPerBand = 1;
        }
        count = (int32_t)((image->height + rowsPerBand - 1) / rowsPerBand);
    }
    return count > image->height ? image->height : count;
}

/* ----------------------------------------------------- opcode blocks -- */

/* An opcode parameter block: byte positions as the device defines them. */
typedef union Block {
    uint8_t bytes[1024];
    double alignment;
} Block;

static void put32(Block *b, size_t at, int32_t value) { memcpy(b->bytes + at, &value, 4); }
static void put16(Block *b, size_t at, int16_t value) { memcpy(b->bytes + at, &value, 2); }
static void put_double(Block *b, size_t at, double value) { memcpy(b->bytes + at, &value, 8); }
static void put_pointer(Block *b, size_t at, const void *p) { memcpy(b->bytes + at, &p, sizeof p); }

static void start_block(Block *b, int32_t opcode)
{
    memset(b, 0, sizeof *b);
    put32(b, TOLVA_BLOCK_OPCODE, opcode);
}

typedef struct Device {
    TolvaEntry32Fn entry;
    int32_t firstError;
} Device;

static int32_t send(Device *d, Block *b)
{
    int32_t r = d->entry(0, TOLVA_ENTRY_CALL, b);
    if (r != 0 && d->firstError == 0) {
        d->firstError = r;
    }
    return r;
}

static int32_t send_opcode(Device *d, int32_t opcode)
{
    Block b;
    start_block(&b, opcode);
    return send(d, &b);
}

/* Everything between begin picture and begin body. */
static int32_t send_picture_settings(Device *d, const TolvaImage *image, const TolvaOptions *o)
{
    Block b;
    start_block(&b, TOLVA_OP_DEVICE_WINDOW);
    put_double(&b, TOLVA_WINDOW_X2, (double)(image->width - 1));
    put_double(&b, TOLVA_WINDOW_Y2, (double)(image->height - 1));
    if (send(d, &b) != 0) {
        return d->firstError;
    }
    /* The resolution handed over here is what turns the picture's pixels
     * into inches for the picture's own size; without one the filter fits
     * the picture into the profile's box. One to one it cancels out, and
     * TOLVA_ACTUAL_SIZE_DPI, a power of two, keeps width / R * R exact. */
    int32_t resolution = o->plan.road == TOLVA_PLAN_OWN_SIZE ? o->plan.resolution
                         : o->actualSize                     ? TOLVA_ACTUAL_SIZE_DPI
                                                             : 0;
    start_block(&b, TOLVA_OP_VIEWPORT_SCALING);
    if (resolution != 0) {
        put16(&b, TOLVA_SCALING_MODE, TOLVA_SCALING_METRIC);
        put_double(&b, TOLVA_SCALING_UNIT, TOLVA_MM_PER_INCH / resolution);
    }
    return send(d, &b);
}

static int32_t send_colour_table(Device *d, const TolvaImage *image)
{
    if (image->bits != 8) {
        return 0;
    }
    Block b;
    start_block(&b, TOLVA_OP_COLOUR_TABLE);
    put32(&b, TOLVA_COLOURS_LENGTH, TOLVA_COLOURS_LENGTH_OF(image->colours));
    put32(&b, TOLVA_COLOURS_FIRST, 0);
    memcpy(b.bytes + TOLVA_COLOURS_RGB, image->palette, (size_t)(3 * image->colours));
    return send(d, &b);
}

static int32_t send_primitive_open(Device *d, const TolvaImage *image)
{
    Block b;
    start_block(&b, TOLVA_OP_PRIMITIVE);
    enum { POINTS = 2 }; /* the picture's corners, as the device expects them */
    const size_t data = TOLVA_PRIMITIVE_DATA(POINTS);
    put32(&b, TOLVA_PRIMITIVE_ID, TOLVA_PRIMITIVE_OPEN);
    put32(&b, TOLVA_PRIMITIVE_POINTS, POINTS);
    put_double(&b, TOLVA_PRIMITIVE_POINT(1), (double)(image->width - 1));
    put_double(&b, TOLVA_PRIMITIVE_POINT(1) + 8, (double)(image->height - 1));
    put32(&b, TOLVA_PRIMITIVE_DATA_LENGTH(POINTS), TOLVA_PICTURE_DATA_SIZE);
    put32(&b, data + TOLVA_PICTURE_WIDTH, image->width);
    put32(&b, data + TOLVA_PICTURE_HEIGHT, image->height);
    put32(&b, data + TOLVA_PICTURE_BITS, image->bits);
    put16(&b, data + TOLVA_PICTURE_CELL_FLAG, 0);
    return send(d, &b);
}

static int32_t send_primitive_close(Device *d)
{
    Block b;
    start_block(&b, TOLVA_OP_PRIMITIVE);
    put32(&b, TOLVA_PRIMITIVE_ID, TOLVA_PRIMITIVE_CLOSE);
    return send(d, &b);
}

/* One band: picture rows `first` to `last - 1`, counted from the bottom. */
static int32_t send_cell_array(Device *d, const TolvaImage *image, int32_t first, int32_t last)
{
    Block b;
    start_block(&b, TOLVA_OP_CELL_ARRAY);
    put_double(&b, TOLVA_CELLS_FIRST_Y, (double)first);
    put_double(&b, TOLVA_CELLS_SECOND_X, (double)(image->width - 1));
    put_double(&b, TOLVA_CELLS_SECOND_Y, (double)(last - 1));
    put32(&b, TOLVA_CELLS_PER_ROW, image->width);
    put32(&b, TOLVA_CELLS_ROWS, last - first);
    put32(&b, TOLVA_CELLS_BITS, -image->bits); /* negative: the data is at the address below */
    put_pointer(&b, TOLVA_CELLS_DATA, image->pixels + (size_t)image->stride * (size_t)first);
    return send(d, &b);
}

static int32_t send_picture(Device *d, const TolvaImage *image, const TolvaOptions *o,
                            TolvaProgress *progress)
{
    if (send_opcode(d, TOLVA_OP_BEGIN_PICTURE) != 0 || send_picture_settings(d, image, o) != 0 ||
        send_opcode(d, TOLVA_OP_BEGIN_BODY) != 0 || send_colour_table(d, image) != 0 ||
        send_primitive_open(d, image) != 0) {
        return d->firstError;
    }
    int32_t count = tolva_band_count(image, o->bands);
    tolva_progress_bands(progress, 0, count);
    for (int32_t k = 0; k < count && !tolva_progress_stopping(progress); ++k) {
        int32_t first = (int32_t)((int64_t)k * image->height / count);
        int32_t last = (int32_t)((int64_t)(k + 1) * image->height / count);
        if (send_cell_array(d, image, first, last) != 0) {
            break;
        }
        tolva_progress_bands(progress, k + 1, count);
    }
    /* A picture once opened is always closed, even after a stop or a failed
     * band: closing is what releases the filter's picture bitmap. After a
     * stop the filter gives up at its first progress report. */
    if (send_primitive_close(d) != 0) {
        return d->firstError;
    }
    return send_opcode(d, TOLVA_OP_END_PICTURE);
}

/* ----------------------------------------------------- memory output -- */

/*
 * The filter's streams hand every operation to a host I/O procedure named in
 * the Setup block; this one keeps the file in a growing buffer. The open call
 * receives the TolvaMemoryFile (the status record's device word) and returns
 * it as the stream's instance.
 */
static intptr_t memory_procedure(intptr_t instance, int32_t operation, intptr_t a, intptr_t b)
{
    TolvaMemoryFile *file = (TolvaMemoryFile *)instance;
    if (file == NULL) {
        return 0;
    }
    switch (operation) {
    case 1: /* open */
        file->size = file->position = 0;
        return instance;
    case 2: { /* read */
        size_t n = b < 0 ? 0 : (size_t)b;
        size_t left = file->position < file->size ? file->size - file->position : 0;
        n = n < left ? n : left;
        memcpy((void *)a, file->data + file->position, n);
        file->position += n;
        return (intptr_t)n;
    }
    case 3: { /* write */
        size_t n = b < 0 ? 0 : (size_t)b;
        if (file->position + n > file->capacity) {
            size_t capacity = file->capacity ? file->capacity : 65536;
            while (capacity < file->position + n) {
                capacity *= 2;
            }
            uint8_t *bigger = (uint8_t *)realloc(file->data, capacity);
            if (bigger == NULL) {
                return -1;
            }
            memset(bigger + file->capacity, 0, capacity - file->capacity);
            file->data = bigger;
            file->capacity = capacity;
        }
        memcpy(file->data + file->position, (const void *)a, n);
        file->position += n;
        file->size = file->position > file->size ? file->position : file->size;
        return (intptr_t)n;
    }
    case 4: { /* seek: a holds the address of a 32-bit offset */
        int32_t offset = 0;
        memcpy(&offset, (const void *)a, sizeof offset);
        int64_t base = b == SEEK_CUR   ? (int64_t)file->position
                       : b == SEEK_END ? (int64_t)file->size
                                       : 0;
        if (base + offset < 0) {
            return -1;
        }
        file->position = (size_t)(base + offset);
        return (intptr_t)file->position;
    }
    case 5: /* close, or close and delete */
        if (b == 512) {
            file->size = 0;
        }
        return 0;
    default:
        return 0;
    }
}

void tolva_memory_file_free(TolvaMemoryFile *file)
{
    free(file->data);
    memset(file, 0, sizeof *file);
}

/* ------------------------------------------------------------ setup -- */

static int32_t refuse(char *error, size_t size, const char *what)
{
    snprintf(error, size, "the filter refused %s", what);
    return TOLVA_EXPORT_REFUSED;
}

/*
 * A profile section without a "Driver" key leaves the Setup block zero-filled
 * rather than at the defaults, and a zero size or resolution cannot make a
 * picture; so does a colour mode outside 103..107, which the filter never
 * repairs. The colour class query is how a host notices: it refuses both.
 * Without --section the section is the one the profile names itself.
 */
static int32_t check_profile(const TolvaFilter *f, HGLOBAL setup, char *error, size_t errorSize)
{
    int32_t colourClass = 0;
    if (f->escapeSetup(setup, TOLVA_ESCAPE_QUERY_COLOUR_CLASS, 4, NULL, &colourClass, 0) ==
        TOLVA_ESCAPE_DONE) {
        return 0;
    }
    const SetupBlock *block = (const SetupBlock *)f->globalLock(setup);
    if (block != NULL && block->sectionName[0] == '\0') {
        snprintf(error, errorSize,
                 "%.143s: names no section of settings (use --section, or "
                 "name one as ~Mode in its [TOLVA] section)",
                 block->profilePath);
    } else if (block != NULL) {
        snprintf(error, errorSize,
                 "%.143s: section [%.143s] holds no settings for the filter "
                 "(no Driver key, or a Color Mode outside 103..107)",
                 block->profilePath, block->sectionName);
    }
    if (block != NULL) {
        (void)f->globalUnlock(setup); /* always 0 */
    }
    return TOLVA_EXPORT_NO_SETTINGS;
}

static int32_t set_size(const TolvaFilter *f, HGLOBAL setup, double width, double height,
                        char *error, size_t errorSize)
{
    if (f->escapeSetup(setup, TOLVA_ESCAPE_WIDTH, 8, &width, NULL, 0) != TOLVA_ESCAPE_DONE ||
        f->escapeSetup(setup, TOLVA_ESCAPE_HEIGHT, 8, &height, NULL, 0) != TOLVA_ESCAPE_DONE) {
        return refuse(error, errorSize, "the size (it takes 0.03125 to 22 inches a side)");
    }
    return 0;
}

static int32_t set_resolution(const TolvaFilter *f, HGLOBAL setup, int32_t x, int32_t y,
                              char *error, size_t errorSize)
{
    if (f->escapeSetup(setup, TOLVA_ESCAPE_X_RESOLUTION, 4, &x, NULL, 0) != TOLVA_ESCAPE_DONE ||
        f->escapeSetup(setup, TOLVA_ESCAPE_Y_RESOLUTION, 4, &y, NULL, 0) != TOLVA_ESCAPE_DONE) {
        return refuse(error, errorSize, "the resolution (it takes 32 to 400 dots per inch)");
    }
    return 0;
}

/*
 * The size and resolution settings. A pixel size on the picture's own road
 * takes the block's own resolutions (308) for the handed-over picture (602);
 * on the fitted road it is a box in inches, like --size and --dpi, fitted
 * without a handed-over resolution.
 */
static int32_t configure_size(const TolvaFilter *f, HGLOBAL setup, const TolvaOptions *o,
                              char *error, size_t errorSize)
{
    const TolvaPixelPlan *plan = &o->plan;
    double width = plan->road == TOLVA_PLAN_FITTED ? plan->width : o->width;
    double height = plan->road == TOLVA_PLAN_FITTED ? plan->height : o->height;
    int32_t x = plan->road != 0 ? plan->xResolution : o->dpi;
    int32_t y = plan->road != 0 ? plan->yResolution : o->dpi;
    int32_t result = 0;
    if (width > 0.0) {
        result = set_size(f, setup, width, height, error, errorSize);
    }
    if (result == 0 && x > 0) {
        result = set_resolution(f, setup, x, y, error, errorSize);
    }
    if (result != 0) {
        return result;
    }
    /* A size or resolution given here must not be replaced by the display's. */
    int32_t resolutionMode = plan->road == TOLVA_PLAN_OWN_SIZE ? TOLVA_ESCAPE_SELECT_OWN
                             : (x > 0 || o->actualSize)        ? TOLVA_ESCAPE_SELECT_GIVEN
                                                               : -1;
    if (resolutionMode >= 0) {
        (void)f->escapeSetup(setup, TOLVA_ESCAPE_RESOLUTION_MODE, resolutionMode, NULL, NULL, 0);
    }
    if (width > 0.0 || o->actualSize || plan->road != 0) {
        (void)f->escapeSetup(setup, TOLVA_ESCAPE_SIZE_MODE, TOLVA_ESCAPE_SELECT_GIVEN, NULL, NULL,
                             0);
    }
    return 0;
}

static int32_t configure_setup(const TolvaFilter *f, HGLOBAL setup, const TolvaOptions *o,
                               intptr_t *status, TolvaMemoryFile *memory, char *error,
                               size_t errorSize)
{
    if (check_profile(f, setup, error, errorSize) != 0) {
        return TOLVA_EXPORT_NO_SETTINGS;
    }
    if (o->colourClass != 0) {
        int32_t colourClass = o->colourClass;
        if (f->escapeSetup(setup, TOLVA_ESCAPE_COLOUR_CLASS, 4, &colourClass, NULL, 0) !=
            TOLVA_ESCAPE_DONE) {
            return refuse(error, errorSize, "the colour mode");
        }
    }
    int32_t result = configure_size(f, setup, o, error, errorSize);
    if (result != 0) {
        return result;
    }
    SetupBlock *block = (SetupBlock *)f->globalLock(setup);
    if (block == NULL) {
        snprintf(error, errorSize, "the filter's settings cannot be reached");
        return TOLVA_ERR_NO_SETUP;
    }
    if (o->interlace) {
        block->interlace = TOLVA_INTERLACE_ON;
    }
    if (o->transparent) {
        block->transparency = TOLVA_TRANSPARENCY_ON;
        memcpy(block->transparentColour, o->transparentColour, 3);
    }
    if (o->background) {
        block->backgroundChoice = TOLVA_BACKGROUND_ON;
        memcpy(block->backgroundColour, o->backgroundColour, 3);
    }
    if (memory != NULL) {
        block->outputDevice = (intptr_t)memory_procedure;
        status[TOLVA_STATUS_DEVICE] = (intptr_t)memory;
    }
    block->statusRecord = status;
    (void)f->globalUnlock(setup); /* always 0 */
    return 0;
}

/* The filter does not pass every writer failure up; a GIF is whole when it
 * starts with its signature and ends with its trailer. */
static int gif_is_complete(const char *path)
{
    FILE *file = fopen(path, "rb");
    if (file == NULL) {
        return 0;
    }
    char head[6] = {0};
    int trailer = EOF;
    int ok = fread(head, 1, 6, file) == 6 && memcmp(head, "GIF89a", 6) == 0 &&
             fseek(file, -1, SEEK_END) == 0 && (trailer = fgetc(file)) == 0x3b;
    fclose(file);
    return ok;
}

static int memory_gif_is_complete(const TolvaMemoryFile *file)
{
    return file->size >= 7 && memcmp(file->data, "GIF89a", 6) == 0 &&
           file->data[file->size - 1] == 0x3b;
}

static int32_t run_device(const TolvaFilter *f, HGLOBAL setup, const TolvaImage *image,
                          const TolvaOptions *o, const char *outputPath, TolvaMemoryFile *memory,
                          intptr_t *status, TolvaProgress *progress, char *error, size_t errorSize)
{
    void *address = NULL;
    (void)f->rasterEntry(TOLVA_ENTRY_ADDRESS, &address, NULL); /* always 0 */
    if (address == NULL) {
        snprintf(error, errorSize, "the filter has no device entry");
        return TOLVA_ERR_MEMORY;
    }
    Device device = {(TolvaEntry32Fn)address, 0};
    int32_t capabilities[64];
    memset(capabilities, 0, sizeof capabilities);
    intptr_t init[TOLVA_INIT_WORDS];
    memset(init, 0, sizeof init);
    init[TOLVA_INIT_FILE_NAME] = (intptr_t)outputPath;
    init[TOLVA_INIT_REPLY_SIZE] = 4096;
    init[TOLVA_INIT_SETUP] = (intptr_t)setup;
    init[TOLVA_INIT_STATUS_RECORD] = (intptr_t)status;
    init[TOLVA_INIT_CAPABILITIES] = (intptr_t)capabilities;
    int32_t result = device.entry(0, TOLVA_ENTRY_INIT, init);
    if (result != 0) {
        return result;
    }
    if (send_opcode(&device, TOLVA_OP_OPEN_DEVICE) == 0) {
        (void)send_picture(&device, image, o, progress);
    }
    /* Closing asks the status function once more; after a stop it answers
     * stop again and the filter deletes the file. */
    (void)send_opcode(&device, TOLVA_OP_CLOSE_DEVICE);
    (void)device.entry(0, TOLVA_ENTRY_TERM, NULL); /* always 0 */
    tolva_progress_finish(progress);
    if (tolva_progress_stopping(progress)) {
        return TOLVA_ERR_STOPPED;
    }
    if (device.firstError != 0) {
        return device.firstError;
    }
    if (memory != NULL ? !memory_gif_is_complete(memory) : !gif_is_complete(outputPath)) {
        snprintf(error, errorSize, "the filter did not write a whole GIF file");
        return TOLVA_EXPORT_INCOMPLETE;
    }
    return 0;
}

static int32_t export_to(const TolvaFilter *f, const TolvaImage *image, const TolvaOptions *o,
                         const char *outputPath, TolvaMemoryFile *memory, TolvaProgress *progress,
                         char *error, size_t errorSize)
{
    error[0] = '\0';
    if (strlen(outputPath) >= 144) {
        snprintf(error, errorSize, "the output path is too long for the filter");
        return TOLVA_EXPORT_REFUSED;
    }
    HGLOBAL setup = f->createSetup(0, o->profile, o->section, 0);
    if (setup == 0) {
        snprintf(error, errorSize, "the filter could not create its settings block");
        return TOLVA_ERR_MEMORY;
    }
    intptr_t status[TOLVA_STATUS_WORDS];
    memset(status, 0, sizeof status);
    status[TOLVA_STATUS_CONTEXT] = (intptr_t)progress;
    status[TOLVA_STATUS_FUNCTION] = (intptr_t)tolva_status_function;
    int32_t result = configure_setup(f, setup, o, status, memory, error, errorSize);
    if (result == 0) {
        result =
            run_device(f, setup, image, o, outputPath, memory, status, progress, error, errorSize);
    }
    (void)f->destroySetup(setup); /* 1 only for a handle that does not lock */
    return result;
}

int32_t tolva_export(const TolvaFilter *f, const TolvaImage *image, const TolvaOptions *o,
                     const char *outputPath, TolvaProgress *progress, char *error, size_t errorSize)
{
    return export_to(f, image, o, outputPath, NULL, progress, error, errorSize);
}

int32_t tolva_export_to_memory(const TolvaFilter *f, const TolvaImage *image, const TolvaOptions *o,
                               TolvaMemoryFile *file, TolvaProgress *progress, char *error,
                               size_t errorSize)
{
    /* The name only reaches the procedure, which does not use it. */
    return export_to(f, image, o, "memory", file, progress, error, errorSize);
}

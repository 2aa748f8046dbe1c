/*
 * export_host.c - a small host of libtolva: it exports a PPM picture to a
 * GIF file, one GIF pixel per picture pixel, by driving the filter as a
 * graphics device through its opcodes. Everything it uses is in
 * <tolva/tolva.h>.
 *
 *   export_host [-c] INPUT.ppm OUTPUT.gif
 *
 * Progress goes to standard error. Ctrl-C cancels (so does -c, at the first
 * progress report); the filter then deletes the unfinished file.
 *
 * Build:  cc export_host.c $(pkg-config --cflags --libs tolva)
 */
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <tolva/tolva.h>

typedef int32_t (*Entry32)(intptr_t, int16_t, void *);

/* The picture as the device takes it: rows bottom row first, each padded to
 * 4 bytes; 8-bit indices into `palette` when it has at most 256 colours,
 * else 24-bit red, green, blue. */
typedef struct Picture {
    int32_t width, height, bits, stride, colours;
    uint8_t palette[768];
    uint8_t *rows;
} Picture;

static volatile sig_atomic_t cancelled = 0;
static int cancelAtFirstReport = 0;

static void on_interrupt(int signal) { (void)signal, cancelled = 1; }

/* The status function. A progress report is a plain call (a and b 0) with
 * the percentage in d. Any non-zero answer to a plain call is followed by the
 * detail request (a 2, b 61), and only when that one says stop too does the
 * filter stop; so the answer is simply "cancelled or not", every time. */
static int32_t status(intptr_t context, intptr_t a, intptr_t b, intptr_t c, intptr_t d, intptr_t e,
                      intptr_t f)
{
    (void)c, (void)e, (void)f;
    if (a == 0 && b == 0 && d > 0) {
        fprintf(stderr, "%s: %d%%\n", (const char *)context, (int)d);
        if (cancelAtFirstReport) cancelled = 1;
    }
    return cancelled ? 1 : 0;
}

static int find_colour(Picture *p, const uint8_t *rgb)
{
    for (int i = 0; i < p->colours; ++i)
        if (memcmp(p->palette + 3 * i, rgb, 3) == 0) return i;
    if (p->colours == 256) return -1;
    memcpy(p->palette + 3 * p->colours, rgb, 3);
    return p->colours++;
}

/* Reads a binary PPM (P6, maxval 255) into the device's layout. */
static int read_ppm(const char *path, Picture *p)
{
    int maxval = 0;
    FILE *file = fopen(path, "rb");
    if (file == NULL || fscanf(file, "P6 %d %d %d", &p->width, &p->height, &maxval) != 3 ||
        maxval != 255 || fgetc(file) == EOF || p->width < 1 || p->height < 1 ||
        p->width > TOLVA_PICTURE_MAX_EXTENT || p->height > TOLVA_PICTURE_MAX_EXTENT) {
        if (file != NULL) fclose(file);
        return -1;
    }
    size_t count = (size_t)p->width * (size_t)p->height;
    uint8_t *rgb = malloc(3 * count);
    int ok = rgb != NULL && fread(rgb, 3, count, file) == count;
    fclose(file);
    int indexed = ok;
    p->colours = 0;
    for (size_t i = 0; indexed && i < count; ++i) indexed = find_colour(p, rgb + 3 * i) >= 0;
    p->bits = indexed ? 8 : 24;
    p->stride = TOLVA_CELLS_ROW_BYTES(p->width, p->bits);
    p->rows = ok ? calloc((size_t)p->stride, (size_t)p->height) : NULL;
    for (int32_t y = 0; p->rows != NULL && y < p->height; ++y) {
        /* PPM rows run top down; the device's run bottom up. */
        const uint8_t *in = rgb + 3 * (size_t)p->width * (size_t)(p->height - 1 - y);
        uint8_t *out = p->rows + (size_t)p->stride * (size_t)y;
        for (int32_t x = 0; x < p->width; ++x)
            if (p->bits == 8)
                out[x] = (uint8_t)find_colour(p, in + 3 * x);
            else
                memcpy(out + 3 * x, in + 3 * x, 3);
    }
    free(rgb);
    return p->rows != NULL ? 0 : -1;
}

/* Opcode blocks: fields at byte offsets, written with memcpy. */
static uint8_t block[TOLVA_COLOURS_RGB + 768];
static void start(int32_t opcode) { memset(block, 0, sizeof block), memcpy(block, &opcode, 4); }
static void put32(size_t at, int32_t v) { memcpy(block + at, &v, 4); }
static void put16(size_t at, int16_t v) { memcpy(block + at, &v, 2); }
static void putd(size_t at, double v) { memcpy(block + at, &v, 8); }

static Entry32 entry;
static int32_t firstError = 0;
static int32_t send(void)
{
    int32_t r = entry(0, TOLVA_ENTRY_CALL, block);
    if (firstError == 0) firstError = r;
    return r;
}
static int32_t send_opcode(int32_t opcode) { return start(opcode), send(); }

static void send_picture(const Picture *p)
{
    send_opcode(TOLVA_OP_BEGIN_PICTURE);
    start(TOLVA_OP_DEVICE_WINDOW); /* x and y rise together: rows run downward */
    putd(TOLVA_WINDOW_X2, p->width - 1), putd(TOLVA_WINDOW_Y2, p->height - 1), send();
    start(TOLVA_OP_VIEWPORT_SCALING); /* the resolution that cancels out: 1:1 */
    put16(TOLVA_SCALING_MODE, TOLVA_SCALING_METRIC);
    putd(TOLVA_SCALING_UNIT, TOLVA_MM_PER_INCH / TOLVA_ACTUAL_SIZE_DPI), send();
    send_opcode(TOLVA_OP_BEGIN_BODY);
    if (p->bits == 8) {
        start(TOLVA_OP_COLOUR_TABLE);
        put32(TOLVA_COLOURS_LENGTH, TOLVA_COLOURS_LENGTH_OF(p->colours));
        memcpy(block + TOLVA_COLOURS_RGB, p->palette, 3 * (size_t)p->colours), send();
    }
    start(TOLVA_OP_PRIMITIVE); /* -5 with no points: the picture's data follows */
    put32(TOLVA_PRIMITIVE_ID, TOLVA_PRIMITIVE_OPEN);
    put32(TOLVA_PRIMITIVE_DATA_LENGTH(0), TOLVA_PICTURE_DATA_SIZE);
    put32(TOLVA_PRIMITIVE_DATA(0) + TOLVA_PICTURE_WIDTH, p->width);
    put32(TOLVA_PRIMITIVE_DATA(0) + TOLVA_PICTURE_HEIGHT, p->height);
    put32(TOLVA_PRIMITIVE_DATA(0) + TOLVA_PICTURE_BITS, p->bits), send();
    /* Bands of 64 rows, the bottom band first; the rows stay in our memory. */
    for (int32_t first = 0; first < p->height && !cancelled; first += 64) {
        int32_t rows = p->height - first < 64 ? p->height - first : 64;
        const uint8_t *data = p->rows + (size_t)p->stride * (size_t)first;
        start(TOLVA_OP_CELL_ARRAY);
        putd(TOLVA_CELLS_FIRST_Y, first), putd(TOLVA_CELLS_SECOND_Y, first + rows - 1);
        put32(TOLVA_CELLS_PER_ROW, p->width), put32(TOLVA_CELLS_ROWS, rows);
        put32(TOLVA_CELLS_BITS, -p->bits); /* negative: the address follows */
        memcpy(block + TOLVA_CELLS_DATA, &data, sizeof data), send();
    }
    start(TOLVA_OP_PRIMITIVE); /* -6 writes the GIF, reporting progress */
    put32(TOLVA_PRIMITIVE_ID, TOLVA_PRIMITIVE_CLOSE), send();
    send_opcode(TOLVA_OP_END_PICTURE);
}

int main(int argc, char **argv)
{
    cancelAtFirstReport = argc == 4 && strcmp(argv[1], "-c") == 0;
    Picture picture;
    if (argc != 3 + cancelAtFirstReport)
        return fprintf(stderr, "usage: %s [-c] IN.ppm OUT.gif\n", argv[0]), 2;
    const char *input = argv[1 + cancelAtFirstReport], *output = argv[2 + cancelAtFirstReport];
    if (strlen(output) > 143 || read_ppm(input, &picture) != 0)
        return fprintf(stderr, "%s: cannot read the picture, or the name is too long\n", input), 1;
    signal(SIGINT, on_interrupt);

    HGLOBAL setup = CreateSetup(0, "", "", 0); /* the profile libtolva.ini, or the defaults */
    /* The picture's own size and resolution, whatever the profile says. */
    (void)xEscapeSetup(setup, TOLVA_ESCAPE_RESOLUTION_MODE, TOLVA_ESCAPE_SELECT_GIVEN, 0, 0, 0);
    (void)xEscapeSetup(setup, TOLVA_ESCAPE_SIZE_MODE, TOLVA_ESCAPE_SELECT_GIVEN, 0, 0, 0);
    intptr_t record[TOLVA_STATUS_WORDS] = {0};
    record[TOLVA_STATUS_CONTEXT] = (intptr_t)argv[0];
    record[TOLVA_STATUS_FUNCTION] = (intptr_t)status;
    SetupBlock *settings = (SetupBlock *)GlobalLock(setup);
    settings->statusRecord = record; /* without it a picture's progress is never heard */

    int32_t capabilities[TOLVA_CAPABILITY_SLOTS];
    intptr_t init[TOLVA_INIT_WORDS] = {0};
    init[TOLVA_INIT_FILE_NAME] = (intptr_t)output;
    init[TOLVA_INIT_REPLY_SIZE] = 256;
    init[TOLVA_INIT_SETUP] = (intptr_t)setup;
    init[TOLVA_INIT_STATUS_RECORD] = (intptr_t)record;
    init[TOLVA_INIT_CAPABILITIES] = (intptr_t)capabilities;
    (void)RASTER_dd_entry(TOLVA_ENTRY_ADDRESS, &entry, NULL);
    int32_t result = entry(0, TOLVA_ENTRY_INIT, init);
    if (result == 0) {
        if (send_opcode(TOLVA_OP_OPEN_DEVICE) == 0) send_picture(&picture);
        /* Closing asks once more; a cancelled export answers stop, and the
         * close returns 901 with the file deleted. */
        int32_t closed = send_opcode(TOLVA_OP_CLOSE_DEVICE);
        result = closed != 0 ? closed : firstError;
        (void)entry(0, TOLVA_ENTRY_TERM, NULL);
    }
    (void)DestroySetup(setup);
    free(picture.rows);
    if (result == TOLVA_ERR_STOPPED) return fprintf(stderr, "%s: cancelled\n", output), 130;
    if (result != 0) return fprintf(stderr, "%s: the filter answered %d\n", output, (int)result), 1;
    return 0;
}

// The setup escape: the host's dialog reads and changes single settings of a
// Setup block by code, and may write a change through to the profile.
//
// Results: 1 done, -1 refused (and then nothing is stored or saved), 0 for a
// code that is not handled. The width is saved with the format ".3%g" and the
// height with "%.3g": hosts have always read the width back through that
// text (6.67 is saved as .36.67 and loads as 0.36), so the two stay unlike.
#include <cstdio>
#include <cstring>

#include "host/busy.h"
#include "settings/settings.h"

namespace {

constexpr int32_t kDone = 1;
constexpr int32_t kRefused = -1;
constexpr int32_t kNotHandled = 0;

constexpr int32_t kFirstClass = 101;
constexpr int32_t kLastClass = 105;
constexpr int32_t kClassToMode = TOLVA_COLOUR_NORMAL - kFirstClass;

struct EscapeCall {
    int32_t selector;
    const void *input;
    void *output;
    char text[64];  // the value as it is saved to the profile
};

using EscapeRun = int32_t (*)(SetupBlock *block, EscapeCall *call);

// One row per handled code: the size the call must pass (0: not checked),
// what a wrong size answers, and the key a change is saved under (-1: none).
struct EscapeRow {
    int32_t code;
    int32_t size;
    int32_t wrongSize;
    EscapeRun run;
    int32_t key;
};

int32_t load_int(const void *p) {
    int32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

double load_double(const void *p) {
    double v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

void store_pair(void *out, const void *first, const void *second, size_t size) {
    auto *bytes = static_cast<unsigned char *>(out);
    std::memcpy(bytes, first, size);
    std::memcpy(bytes + size, second, size);
}

bool dpi_allowed(int32_t v) { return v >= 32 && v <= 400; }
bool inches_allowed(double v) { return v >= 0.03125 && v <= 22.0; }

int32_t set_colour_class(SetupBlock *block, EscapeCall *call) {
    if (call->input == nullptr) return kRefused;
    int32_t colourClass = load_int(call->input);
    if (colourClass < kFirstClass || colourClass > kLastClass) return kRefused;
    block->colourMode = colourClass + kClassToMode;
    std::snprintf(call->text, sizeof call->text, "%d", block->colourMode);
    return kDone;
}

int32_t set_dpi(int16_t *field, EscapeCall *call) {
    if (call->input == nullptr) return kRefused;
    int32_t dpi = load_int(call->input);
    if (!dpi_allowed(dpi)) return kRefused;
    *field = static_cast<int16_t>(dpi);
    std::snprintf(call->text, sizeof call->text, "%d", dpi);
    return kDone;
}

int32_t set_x_dpi(SetupBlock *block, EscapeCall *call) { return set_dpi(&block->xResolution, call); }
int32_t set_y_dpi(SetupBlock *block, EscapeCall *call) { return set_dpi(&block->yResolution, call); }

int32_t set_inches(double *field, const char *format, EscapeCall *call) {
    if (call->input == nullptr) return kRefused;
    double inches = load_double(call->input);
    if (!inches_allowed(inches)) return kRefused;
    *field = inches;
    std::snprintf(call->text, sizeof call->text, format, inches);
    return kDone;
}

// The width's format puts ".3" in front of the number; see the file comment.
int32_t set_width(SetupBlock *block, EscapeCall *call) {
    return set_inches(&block->width, ".3%g", call);
}

int32_t set_height(SetupBlock *block, EscapeCall *call) {
    return set_inches(&block->height, "%.3g", call);
}

int32_t query_resolution(SetupBlock *block, EscapeCall *call) {
    if (call->output == nullptr) return kRefused;
    int32_t x = 0;
    int32_t y = 0;
    if (block->resolutionMode != TOLVA_RESOLUTION_GIVEN) {
        x = block->xResolution;
        y = block->yResolution;
    }
    store_pair(call->output, &x, &y, sizeof x);
    return kDone;
}

int32_t query_size(SetupBlock *block, EscapeCall *call) {
    if (call->output == nullptr) return kRefused;
    double w = 0.0;
    double h = 0.0;
    if (block->sizeMode != TOLVA_SIZE_GIVEN) {
        w = block->width;
        h = block->height;
    }
    store_pair(call->output, &w, &h, sizeof w);
    return kDone;
}

// Selectors 0 to 3 pick one of four consecutive modes; any other selector
// leaves the mode as it was and still counts as done.
int32_t select_mode(int32_t *field, int32_t first, int32_t selector) {
    if (selector >= 0 && selector <= 3) *field = first + selector;
    return kDone;
}

int32_t set_resolution_mode(SetupBlock *block, EscapeCall *call) {
    return select_mode(&block->resolutionMode, TOLVA_RESOLUTION_DISPLAY, call->selector);
}

int32_t set_size_mode(SetupBlock *block, EscapeCall *call) {
    return select_mode(&block->sizeMode, TOLVA_SIZE_DISPLAY, call->selector);
}

int32_t query_colour_class(SetupBlock *block, EscapeCall *call) {
    int32_t mode = block->colourMode;
    if (mode < TOLVA_COLOUR_NORMAL || mode > TOLVA_COLOUR_INVERT_LUMINANCE) return kRefused;
    if (call->output == nullptr) return kRefused;
    int32_t colourClass = mode - kClassToMode;
    std::memcpy(call->output, &colourClass, sizeof colourClass);
    return kDone;
}

// The host's pointer itself becomes the output-device word (it is later the
// I/O procedure of the output stream), not what it points at.
int32_t set_output_device(SetupBlock *block, EscapeCall *call) {
    block->outputDevice = reinterpret_cast<intptr_t>(call->input);
    return kDone;
}

const EscapeRow kEscapes[] = {
    {TOLVA_ESCAPE_COLOUR_CLASS, 4, kRefused, set_colour_class, 11},
    {TOLVA_ESCAPE_X_RESOLUTION, 4, kRefused, set_x_dpi, 19},
    {TOLVA_ESCAPE_Y_RESOLUTION, 4, kRefused, set_y_dpi, 20},
    {TOLVA_ESCAPE_WIDTH, 8, kRefused, set_width, 21},
    {TOLVA_ESCAPE_HEIGHT, 8, kRefused, set_height, 22},
    {TOLVA_ESCAPE_QUERY_RESOLUTION, 0, 0, query_resolution, -1},
    {TOLVA_ESCAPE_QUERY_SIZE, 0, 0, query_size, -1},
    {TOLVA_ESCAPE_RESOLUTION_MODE, 0, 0, set_resolution_mode, -1},
    {TOLVA_ESCAPE_SIZE_MODE, 0, 0, set_size_mode, -1},
    {TOLVA_ESCAPE_QUERY_COLOUR_CLASS, 4, kDone, query_colour_class, -1},
    {TOLVA_ESCAPE_OUTPUT_DEVICE, 4, kRefused, set_output_device, -1},
};

const EscapeRow *find_escape(int32_t code) {
    for (const EscapeRow &row : kEscapes)
        if (row.code == code) return &row;
    return nullptr;
}

// Writes a changed setting through to the block's profile. A failed write is
// not reported: the change in the block stands either way.
void save_setting(const SetupBlock *block, int32_t key, const char *text) {
    char name[32] = {};
    LoadString(0, key, name, sizeof name - 1);
    (void)WritePrivateProfileString(block->sectionName, name, text, block->profilePath);
}

}  // namespace

extern "C" {

int32_t xEscapeSetup(HGLOBAL setup, int32_t code, int32_t sizeOrSelector, void *input,
                     void *output, int32_t save) {
    tolva_host::CallGuard guard;
    if (!guard.entered()) return TOLVA_ERR_BUSY;
    if (setup == 0) return kRefused;
    auto *block = static_cast<SetupBlock *>(GlobalLock(setup));
    if (block == nullptr) return kRefused;
    int32_t result = kNotHandled;
    if (code == TOLVA_ESCAPE_RASTER_INFO) {
        GetRasterInfo(setup, static_cast<const int32_t *>(input), static_cast<int32_t *>(output));
        result = kDone;
    } else if (const EscapeRow *row = find_escape(code)) {
        EscapeCall call = {sizeOrSelector, input, output, {}};
        if (row->size != 0 && sizeOrSelector != row->size)
            result = row->wrongSize;
        else
            result = row->run(block, &call);
        if (result == kDone && save != 0 && row->key >= 0) save_setting(block, row->key, call.text);
    }
    GlobalUnlock(setup);
    return result;
}

}  // extern "C"

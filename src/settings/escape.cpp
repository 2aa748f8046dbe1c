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
#include "host/unaligned.h"
#include "settings/settings.h"

namespace {

constexpr int32_t kFirstClass = TOLVA_COLOUR_NORMAL - TOLVA_COLOUR_CLASS_OFFSET;
constexpr int32_t kLastClass = TOLVA_COLOUR_INVERT_LUMINANCE - TOLVA_COLOUR_CLASS_OFFSET;
constexpr int32_t kClassToMode = TOLVA_COLOUR_CLASS_OFFSET;

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

template <typename T>
void store_pair(void *out, T first, T second) {
    host_store(out, 0, first);
    host_store(out, sizeof first, second);
}

int32_t set_colour_class(SetupBlock *block, EscapeCall *call) {
    if (call->input == nullptr) return TOLVA_ESCAPE_REFUSED;
    int32_t colourClass = host_load<int32_t>(call->input);
    if (colourClass < kFirstClass || colourClass > kLastClass) return TOLVA_ESCAPE_REFUSED;
    block->colourMode = colourClass + kClassToMode;
    std::snprintf(call->text, sizeof call->text, "%d", block->colourMode);
    return TOLVA_ESCAPE_DONE;
}

int32_t set_dpi(int16_t *field, EscapeCall *call) {
    if (call->input == nullptr) return TOLVA_ESCAPE_REFUSED;
    int32_t dpi = host_load<int32_t>(call->input);
    if (!settings_dpi_allowed(dpi)) return TOLVA_ESCAPE_REFUSED;
    *field = static_cast<int16_t>(dpi);
    std::snprintf(call->text, sizeof call->text, "%d", dpi);
    return TOLVA_ESCAPE_DONE;
}

int32_t set_x_dpi(SetupBlock *block, EscapeCall *call) {
    return set_dpi(&block->xResolution, call);
}
int32_t set_y_dpi(SetupBlock *block, EscapeCall *call) {
    return set_dpi(&block->yResolution, call);
}

int32_t set_inches(double *field, const char *format, EscapeCall *call) {
    if (call->input == nullptr) return TOLVA_ESCAPE_REFUSED;
    double inches = host_load<double>(call->input);
    if (!settings_inches_allowed(inches)) return TOLVA_ESCAPE_REFUSED;
    *field = inches;
    std::snprintf(call->text, sizeof call->text, format, inches);
    return TOLVA_ESCAPE_DONE;
}

// The width's format puts ".3" in front of the number; see the file comment.
int32_t set_width(SetupBlock *block, EscapeCall *call) {
    return set_inches(&block->width, ".3%g", call);
}

int32_t set_height(SetupBlock *block, EscapeCall *call) {
    return set_inches(&block->height, "%.3g", call);
}

int32_t query_resolution(SetupBlock *block, EscapeCall *call) {
    if (call->output == nullptr) return TOLVA_ESCAPE_REFUSED;
    int32_t x = 0;
    int32_t y = 0;
    if (block->resolutionMode != TOLVA_RESOLUTION_GIVEN) {
        x = block->xResolution;
        y = block->yResolution;
    }
    store_pair(call->output, x, y);
    return TOLVA_ESCAPE_DONE;
}

int32_t query_size(SetupBlock *block, EscapeCall *call) {
    if (call->output == nullptr) return TOLVA_ESCAPE_REFUSED;
    double w = 0.0;
    double h = 0.0;
    if (block->sizeMode != TOLVA_SIZE_GIVEN) {
        w = block->width;
        h = block->height;
    }
    store_pair(call->output, w, h);
    return TOLVA_ESCAPE_DONE;
}

// Selectors 0 to 3 pick one of four consecutive modes; any other selector
// leaves the mode as it was and still counts as done.
int32_t select_mode(int32_t *field, int32_t first, int32_t selector) {
    if (selector >= 0 && selector <= 3) *field = first + selector;
    return TOLVA_ESCAPE_DONE;
}

int32_t set_resolution_mode(SetupBlock *block, EscapeCall *call) {
    return select_mode(&block->resolutionMode, TOLVA_RESOLUTION_DISPLAY, call->selector);
}

int32_t set_size_mode(SetupBlock *block, EscapeCall *call) {
    return select_mode(&block->sizeMode, TOLVA_SIZE_DISPLAY, call->selector);
}

int32_t query_colour_class(SetupBlock *block, EscapeCall *call) {
    int32_t mode = block->colourMode;
    if (mode < TOLVA_COLOUR_NORMAL || mode > TOLVA_COLOUR_INVERT_LUMINANCE)
        return TOLVA_ESCAPE_REFUSED;
    if (call->output == nullptr) return TOLVA_ESCAPE_REFUSED;
    int32_t colourClass = mode - kClassToMode;
    host_store(call->output, 0, colourClass);
    return TOLVA_ESCAPE_DONE;
}

// The host's pointer itself becomes the output-device word (it is later the
// I/O procedure of the output stream), not what it points at.
int32_t set_output_device(SetupBlock *block, EscapeCall *call) {
    block->outputDevice = reinterpret_cast<intptr_t>(call->input);
    return TOLVA_ESCAPE_DONE;
}

const EscapeRow kEscapes[] = {
    {TOLVA_ESCAPE_COLOUR_CLASS, 4, TOLVA_ESCAPE_REFUSED, set_colour_class, kKeyColourMode},
    {TOLVA_ESCAPE_X_RESOLUTION, 4, TOLVA_ESCAPE_REFUSED, set_x_dpi, kKeyXResolution},
    {TOLVA_ESCAPE_Y_RESOLUTION, 4, TOLVA_ESCAPE_REFUSED, set_y_dpi, kKeyYResolution},
    {TOLVA_ESCAPE_WIDTH, 8, TOLVA_ESCAPE_REFUSED, set_width, kKeyWidth},
    {TOLVA_ESCAPE_HEIGHT, 8, TOLVA_ESCAPE_REFUSED, set_height, kKeyHeight},
    {TOLVA_ESCAPE_QUERY_RESOLUTION, 0, 0, query_resolution, -1},
    {TOLVA_ESCAPE_QUERY_SIZE, 0, 0, query_size, -1},
    {TOLVA_ESCAPE_RESOLUTION_MODE, 0, 0, set_resolution_mode, -1},
    {TOLVA_ESCAPE_SIZE_MODE, 0, 0, set_size_mode, -1},
    {TOLVA_ESCAPE_QUERY_COLOUR_CLASS, 4, TOLVA_ESCAPE_DONE, query_colour_class, -1},
    {TOLVA_ESCAPE_OUTPUT_DEVICE, 4, TOLVA_ESCAPE_REFUSED, set_output_device, -1},
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

int32_t xEscapeSetup(HGLOBAL setup, int32_t code, int32_t sizeOrSelector, void *input, void *output,
                     int32_t save) {
    HostCallGuard guard;
    if (!guard.entered()) return TOLVA_ERR_BUSY;
    if (setup == 0) return TOLVA_ESCAPE_REFUSED;
    auto *block = static_cast<SetupBlock *>(GlobalLock(setup));
    if (block == nullptr) return TOLVA_ESCAPE_REFUSED;
    int32_t result = TOLVA_ESCAPE_NOT_HANDLED;
    if (code == TOLVA_ESCAPE_RASTER_INFO) {
        GetRasterInfo(setup, static_cast<const int32_t *>(input), static_cast<int32_t *>(output));
        result = TOLVA_ESCAPE_DONE;
    } else if (const EscapeRow *row = find_escape(code)) {
        EscapeCall call = {sizeOrSelector, input, output, {}};
        if (row->size != 0 && sizeOrSelector != row->size)
            result = row->wrongSize;
        else
            result = row->run(block, &call);
        if (result == TOLVA_ESCAPE_DONE && save != 0 && row->key >= 0)
            save_setting(block, row->key, call.text);
    }
    GlobalUnlock(setup);
    return result;
}

}  // extern "C"

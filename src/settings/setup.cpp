// The Setup block's life outside the profile: defaults, the limit repair,
// the host's edit value and destruction.
//
// The defaults deliberately leave the line mode alone (it only ever comes
// from the profile), and LimitCheck reports only its last repair: a host
// reading the result learns that something was out of range, not what.
#include <cstdio>
#include <cstring>

#include "host/busy.h"
#include "settings/settings.h"

namespace {

constexpr int16_t kDefaultDpi = 96;
constexpr int16_t kMinDpi = 32;
constexpr int16_t kMaxDpi = 400;
constexpr double kDefaultWidth = 6.67;
constexpr double kDefaultHeight = 5.0;
constexpr double kMinInches = 0.03125;
constexpr double kMaxInches = 22.0;
constexpr size_t kDriverNameText = 13;

// The reserved field's second 32-bit word holds the host's EditSetup value.
constexpr size_t kEditValueAt = 4;

bool dpi_out_of_range(int16_t dpi) { return dpi < kMinDpi || dpi > kMaxDpi; }

// Written as "not inside", so that a NaN read from the profile is repaired too.
bool inches_out_of_range(double inches) {
    return !(inches >= kMinInches && inches <= kMaxInches);
}

}  // namespace

void settings_copy_text(char *field, size_t size, const char *text) {
    if (size == 0) return;
    size_t n = text == nullptr ? 0 : std::strlen(text);
    if (n >= size) n = size - 1;
    std::memmove(field, text, n);
    field[n] = '\0';
}

SetupBlock *settings_current(void) { return lpRaster != nullptr ? lpRaster : lpSetup; }

extern "C" {

int32_t UseDefaultSettings(SetupBlock *block) {
    if (block == nullptr) return 0;
    block->sectionName[0] = '\0';
    block->profilePath[0] = '\0';
    block->thirdName[0] = '\0';
    // The driver name is the module name in upper case with ".1" appended;
    // a copy is upper-cased so that szFilter itself changes only in CreateSetup.
    // The name is cut so that the whole stays within the 13 bytes of text
    // that the profile's "Driver" value may hold.
    char name[kDriverNameText - 2];
    settings_copy_text(name, sizeof name, szFilter);
    strupr(name);
    std::snprintf(block->driverName, sizeof block->driverName, "%s.1", name);
    std::memset(block->reserved, 0, sizeof block->reserved);
    block->colourMode = TOLVA_COLOUR_NORMAL;
    block->secondMode = 0;
    block->sizeMode = TOLVA_SIZE_GIVEN;
    block->resolutionMode = TOLVA_RESOLUTION_GIVEN;
    block->xResolution = kDefaultDpi;
    block->yResolution = kDefaultDpi;
    block->width = kDefaultWidth;
    block->height = kDefaultHeight;
    return 0;
}

int32_t LimitCheck(void) {
    SetupBlock *block = settings_current();
    if (block == nullptr) return 0;
    int32_t result = 0;
    if (dpi_out_of_range(block->xResolution)) {
        block->xResolution = kDefaultDpi;
        result = TOLVA_LIMIT_RESOLUTION;
    }
    if (dpi_out_of_range(block->yResolution)) {
        block->yResolution = kDefaultDpi;
        result = TOLVA_LIMIT_RESOLUTION;
    }
    if (inches_out_of_range(block->width)) {
        block->width = kDefaultWidth;
        result = TOLVA_LIMIT_SIZE;
    }
    if (inches_out_of_range(block->height)) {
        block->height = kDefaultHeight;
        result = TOLVA_LIMIT_SIZE;
    }
    return result;
}

int32_t EditSetup(HGLOBAL setup, int32_t value) {
    tolva_host::CallGuard guard;
    if (!guard.entered()) return TOLVA_ERR_BUSY;
    auto *block = static_cast<SetupBlock *>(GlobalLock(setup));
    if (block == nullptr) return -1;
    std::memcpy(block->reserved + kEditValueAt, &value, sizeof value);
    GlobalUnlock(setup);
    return 0;
}

int32_t DestroySetup(HGLOBAL setup) {
    tolva_host::CallGuard guard;
    if (!guard.entered()) return TOLVA_ERR_BUSY;
    auto *block = static_cast<SetupBlock *>(GlobalLock(setup));
    if (block == nullptr) return 1;
    GlobalUnlock(setup);
    GlobalFree(setup);
    lpRaster = nullptr;
    if (hRaster == setup) hRaster = 0;
    // The raster device may still hold this block (a host that destroys it
    // before term, or after term, which leaves nothing to release): the
    // functions that fall back on lpSetup must not find it there.
    if (lpSetup == block) lpSetup = nullptr;
    return 0;
}

int32_t SaveProfile(void) { return 1; }

int32_t LoadProfileList(int32_t, int32_t, int16_t) { return 0; }

}  // extern "C"

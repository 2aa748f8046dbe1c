// The Setup block's life outside the profile: defaults, the limit repair,
// the host's edit value and destruction.
//
// The defaults deliberately leave the line mode alone (it only ever comes
// from the profile), and LimitCheck reports only its last repair: a host
// reading the result learns that something was out of range, not what.
#include <cstdio>
#include <cstring>

#include "host/busy.h"
#include "host/unaligned.h"
#include "settings/settings.h"

namespace {

// The reserved field's second 32-bit word holds the host's EditSetup value.
constexpr size_t kEditValueAt = 4;

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
    char name[kSettingsDriverNameText - 2];
    settings_copy_text(name, sizeof name, szFilter);
    strupr(name);
    std::snprintf(block->driverName, sizeof block->driverName, "%s.1", name);
    std::memset(block->reserved, 0, sizeof block->reserved);
    block->colourMode = TOLVA_COLOUR_NORMAL;
    block->secondMode = 0;
    block->sizeMode = TOLVA_SIZE_GIVEN;
    block->resolutionMode = TOLVA_RESOLUTION_GIVEN;
    block->xResolution = kSettingsDefaultDpi;
    block->yResolution = kSettingsDefaultDpi;
    block->width = kSettingsDefaultWidth;
    block->height = kSettingsDefaultHeight;
    return 0;
}

int32_t LimitCheck(void) {
    SetupBlock *block = settings_current();
    if (block == nullptr) return 0;
    int32_t result = 0;
    if (!settings_dpi_allowed(block->xResolution)) {
        block->xResolution = kSettingsDefaultDpi;
        result = TOLVA_LIMIT_RESOLUTION;
    }
    if (!settings_dpi_allowed(block->yResolution)) {
        block->yResolution = kSettingsDefaultDpi;
        result = TOLVA_LIMIT_RESOLUTION;
    }
    if (!settings_inches_allowed(block->width)) {
        block->width = kSettingsDefaultWidth;
        result = TOLVA_LIMIT_SIZE;
    }
    if (!settings_inches_allowed(block->height)) {
        block->height = kSettingsDefaultHeight;
        result = TOLVA_LIMIT_SIZE;
    }
    return result;
}

int32_t EditSetup(HGLOBAL setup, int32_t value) {
    HostCallGuard guard;
    if (!guard.entered()) return TOLVA_ERR_BUSY;
    auto *block = static_cast<SetupBlock *>(GlobalLock(setup));
    if (block == nullptr) return -1;
    host_store(block->reserved, kEditValueAt, value);
    GlobalUnlock(setup);
    return 0;
}

int32_t DestroySetup(HGLOBAL setup) {
    HostCallGuard guard;
    if (!guard.entered()) return TOLVA_ERR_BUSY;
    auto *block = static_cast<SetupBlock *>(GlobalLock(setup));
    if (block == nullptr) return 1;
    if (settings_leaving != nullptr) settings_leaving(block);
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

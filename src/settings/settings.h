// Internal helpers shared by the settings files.
#ifndef TOLVA_SETTINGS_SETTINGS_H
#define TOLVA_SETTINGS_SETTINGS_H

#include <stddef.h>

#include "tolva/host.h"
#include "tolva/profile.h"
#include "tolva/settings.h"
#include "tolva/stream.h"

// Limits and defaults of the Setup block's size and resolution. The profile
// loader, the limit repair and the setup escape all hold a value to these.
constexpr int16_t kSettingsDefaultDpi = 96;
constexpr int16_t kSettingsMinDpi = 32;
constexpr int16_t kSettingsMaxDpi = 400;
constexpr double kSettingsDefaultWidth = 6.67;  // inches
constexpr double kSettingsDefaultHeight = 5.0;  // inches
// The same defaults as the profile reader's default texts: a short value in
// the profile is read over them and keeps their tail.
constexpr const char *kSettingsDefaultWidthText = "6.67";
constexpr const char *kSettingsDefaultHeightText = "5.0";
constexpr double kSettingsMinInches = 0.03125;
constexpr double kSettingsMaxInches = 22.0;
// The profile's "Driver" value: 12 characters and the terminator.
constexpr int32_t kSettingsDriverNameText = 13;

inline bool settings_dpi_allowed(int32_t dpi) {
    return dpi >= kSettingsMinDpi && dpi <= kSettingsMaxDpi;
}
// Written as "inside", so that NaN is never allowed.
inline bool settings_inches_allowed(double inches) {
    return inches >= kSettingsMinInches && inches <= kSettingsMaxInches;
}

// String table identifiers of the profile keys (see LoadString).
enum SettingsKey : int32_t {
    kKeyMode = 1,
    kKeyDriver = 4,
    kKeyColourMode = 11,
    kKeyResolutionMode = 18,
    kKeyXResolution = 19,
    kKeyYResolution = 20,
    kKeyWidth = 21,
    kKeyHeight = 22,
    kKeySizeMode = 24,
    kKeyLineMode = 34,
};

// Copies text into a fixed field of `size` bytes, cutting it so that the
// field always ends in a terminator. The Setup block's names are 144 bytes
// and a longer name from a host must not spill into the next field.
void settings_copy_text(char *field, size_t size, const char *text);

// The Setup block that the settings functions without a handle work on: the
// one being created (lpRaster), or the one the raster driver locked
// (lpSetup) when no other is current. Null when there is none.
SetupBlock *settings_current(void);

// Called by DestroySetup before it frees a block, when set: the raster
// driver sets it at init, so that an output it keeps in the block's fields
// can move out first. Settings alone (and their tests) need no driver.
extern void (*settings_leaving)(SetupBlock *block);

// What a picture brings to the size and resolution rules.
struct SettingsPicture {
    double width;  // its size in inches at its own resolution
    double height;
    int32_t dpi;        // its own resolution; 0 when it has none
    double shapeWidth;  // its aspect, in any unit
    double shapeHeight;
};

// The display a picture may be sized by: its size in inches and resolution,
// asked for only when a mode needs it.
struct SettingsDisplay {
    double width;
    double height;
    int32_t dpi;  // 0: no display, and the block keeps its own values
};
using SettingsDisplayQuery = SettingsDisplay (*)(const void *context);

// The size and resolution rules of both the format query and the dialog's
// raster information: the block's modes take the picture's own size and
// resolution, the display's, or the block's own; a size that is not the
// picture's own becomes a box the picture's shape is fitted into. Stores the
// chosen values in the block and returns the size in inches in size[2].
void settings_choose_size(SetupBlock *block, const SettingsPicture &picture,
                          SettingsDisplayQuery display, const void *context, double size[2]);

#endif

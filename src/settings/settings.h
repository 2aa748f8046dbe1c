// Internal helpers shared by the settings files.
#ifndef TOLVA_SETTINGS_SETTINGS_H
#define TOLVA_SETTINGS_SETTINGS_H

#include <stddef.h>

#include "tolva/host.h"
#include "tolva/profile.h"
#include "tolva/stream.h"
#include "tolva/settings.h"

// Copies text into a fixed field of `size` bytes, cutting it so that the
// field always ends in a terminator. The Setup block's names are 144 bytes
// and a longer name from a host must not spill into the next field.
void settings_copy_text(char *field, size_t size, const char *text);

// The Setup block that the settings functions without a handle work on: the
// one being created (lpRaster), or the one the raster driver locked
// (lpSetup) when no other is current. Null when there is none.
SetupBlock *settings_current(void);

#endif

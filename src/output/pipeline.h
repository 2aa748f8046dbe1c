// Internal helpers of the picture pipeline (format query, the two output
// roads, the offscreen hooks and the export callback).
//
// Sizes travel as doubles between the settings and the writer; every
// conversion to a pixel count goes through these helpers so that NaN,
// negative and out-of-range values become bounded integers instead of
// undefined behaviour (host_trunc_i32 where a signed value is wanted).
#ifndef TOLVA_OUTPUT_PIPELINE_H
#define TOLVA_OUTPUT_PIPELINE_H

#include <stdint.h>

#include "tolva/host.h"
#include "tolva/output.h"
#include "tolva/raster.h"
#include "tolva/settings.h"
#include "tolva/stream.h"

#include "output/device.h"

#include "host/numeric.h"

// The depth every GIF of this filter is written with.
constexpr int16_t kOutputDepth = 8;

// A double turned into an unsigned pixel count, kept within what the
// writer's signed 32-bit counts can carry (and one below, so that rounding
// up to an even height cannot overflow). Negative values and NaN give 0.
inline uint32_t output_to_pixels(double value) {
    if (!(value > 0.0)) return 0;
    if (value >= 2147483646.0) return 2147483646u;
    return static_cast<uint32_t>(value);
}

// Replaces the bitmap being worked on by `fresh` and frees the intermediate
// one it supersedes. `made` is the last bitmap this code allocated (0 while
// the caller's bitmap is still current); the caller's bitmap is never freed.
inline void output_replace_bitmap(HGLOBAL &made, HGLOBAL &current, HGLOBAL fresh) {
    if (made != 0) (void)GlobalFree(made);
    made = fresh;
    current = fresh;
}

// The picture bitmap that the export callback may overwrite with its
// converted band: the driver's own picture, freed right after the export; 0
// for none. A host's bitmap is never written over.
void output_lend_picture(HGLOBAL bitmap);

#endif

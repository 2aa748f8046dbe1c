// Row plans of the scaling functions: which source pixel each destination
// pixel of a row takes. Shared by the scaling entries and their tests.
//
// Invariant: a plan is built by the same arithmetic as the per-pixel sampling
// loops and applying it is byte-identical to running those loops.
#ifndef TOLVA_RASTER_SCALE_H
#define TOLVA_RASTER_SCALE_H

#include <stdint.h>

#include "tolva/host.h"
#include "tolva/raster.h"

struct ScalePlan {
    HGLOBAL handle;   // the block holding source[]
    int32_t *source;  // per destination pixel: source pixel, or -1 to leave it
    int32_t dstWidth;
    int16_t bitsPerPixel;
    bool fromRight;  // replication writes right to left
};

// Builds the plan of one row: replication (StretchX) or sampling (ShrinkX).
// 0, or -1 for sizes below 1 (the plan is then empty; free it all the same).
int32_t rl_scale_plan_make(ScalePlan *plan, int16_t bitsPerPixel, int32_t srcWidth,
                           int32_t dstWidth, bool replicate);
void rl_scale_plan_free(ScalePlan *plan);
// Scales row `row` of src into row `row` of dst (rows of the given lengths).
void rl_scale_plan_apply(const ScalePlan *plan, const uint8_t *src, int32_t srcBytesPerLine,
                         uint8_t *dst, int32_t dstBytesPerLine, int32_t row);

#endif

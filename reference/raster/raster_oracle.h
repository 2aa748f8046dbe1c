// Depth conversion and median-cut reduction written literally: one
// rlGetPixel/rlSetPixel call per pixel through a colour map, a histogram
// counted pixel by pixel, and the median-cut loop driven through the exported
// box steps. The library runs both row by row with an exact nearest-colour
// search structure; the tests compare every output byte with these, and the
// benchmarks time the two side by side.
#ifndef TOLVA_REFERENCE_RASTER_ORACLE_H
#define TOLVA_REFERENCE_RASTER_ORACLE_H

#include <stdint.h>

#include "tolva/host.h"
#include "tolva/raster.h"

namespace rasteroracle {

// The nearest entry, by the definition: greys (channels within 4 of each
// other) look only at entries with three equal channels, other colours only
// at the rest; the unweighted squared distance; the first of equal distances;
// 0 when the query's class has no entry.
int16_t nearest_index(int16_t red, int16_t green, int16_t blue, const uint8_t *table,
                      int16_t count);

// rlConvertBitmapDepth as one rlSetPixel(rlGetPixel()) call per pixel, with
// a map of the two tables built here (nearest_index for each source entry),
// or nearest_index for each pixel of a direct-colour source. Tables must hold
// their full 2^srcBits and dstCount entries.
HGLOBAL convert(HGLOBAL bits, int32_t width, int32_t height, int16_t srcBits, int16_t dstBits,
                HGLOBAL srcTable, HGLOBAL dstTable, int16_t dstCount);

// HeapSort as written out step by step: AdjustHeap exchanges the root with
// the chosen child one level at a time, the build bounded by n.
void heap_sort(RlColorEntry *list, int32_t axis, int32_t n);

// rlReduceColorTable with the histogram counted one rlGetPixel call at a
// time, then the median-cut loop over the exported box steps, sorting with
// heap_sort.
HGLOBAL reduce(HGLOBAL bits, int32_t width, int32_t height, int16_t *count);

// 24 -> 8 as rlChangeColorResolution does it: a median-cut table of 256
// entries, then the literal conversion against it.
HGLOBAL to_eight_bits(HGLOBAL bits, int32_t width, int32_t height, HGLOBAL *table);

}  // namespace rasteroracle

#endif

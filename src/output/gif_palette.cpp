// The palette entry for the transparent and the background colour.
//
// The raster library's nearest-colour search decides, so that a colour finds
// the same entry here as in the picture: grey and coloured entries are kept
// apart (a transparent white never takes over a pale yellow that happens to
// be nearer) and ties go to the lowest index. At least 16 entries are
// searched, the smallest palette the host's dialogs offer.
#include "tolva/output.h"
#include "tolva/raster.h"

namespace {

constexpr int32_t kMinimumEntries = 16;
// Entry counts of the raster library are 16-bit.
constexpr int32_t kMostEntries = 32767;

}  // namespace

extern "C" {

int16_t get_nearest_rgb_index(uint8_t red, uint8_t green, uint8_t blue, const uint8_t *palette,
                              int32_t count) {
    int32_t entries = count < kMinimumEntries ? kMinimumEntries : count;
    if (entries > kMostEntries) entries = kMostEntries;
    return rlNearestRGBIndex(red, green, blue, palette, static_cast<int16_t>(entries));
}

}  // extern "C"

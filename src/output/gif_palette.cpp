// The palette entry for the transparent and the background colour.
//
// Grey and coloured entries are kept apart: a grey target only ever matches
// a grey entry and a coloured target a coloured one, so that a transparent
// white never takes over a pale yellow that happens to be nearer. At least 16
// entries are searched, the smallest palette the host's dialogs offer.
#include <cstdlib>

#include "tolva/output.h"

namespace {

constexpr int32_t kMinimumEntries = 16;
// Components this close count as equal when classing the target as grey.
constexpr int kGreyTolerance = 4;

}  // namespace

extern "C" {

int16_t get_nearest_rgb_index(uint8_t red, uint8_t green, uint8_t blue, const uint8_t *palette,
                              int32_t count) {
    int32_t entries = count < kMinimumEntries ? kMinimumEntries : count;
    bool grey_target = std::abs(red - green) <= kGreyTolerance &&
                       std::abs(green - blue) <= kGreyTolerance &&
                       std::abs(red - blue) <= kGreyTolerance;
    uint32_t best = 0x7FFFFFFF;
    int32_t best_index = 0;
    for (int32_t i = 0; i < entries; ++i) {
        const uint8_t *e = palette + 3 * i;
        bool grey_entry = e[0] == e[1] && e[1] == e[2];
        if (grey_entry != grey_target) continue;
        int32_t dr = static_cast<int16_t>(e[0] - red);
        int32_t dg = static_cast<int16_t>(e[1] - green);
        int32_t db = static_cast<int16_t>(e[2] - blue);
        uint32_t distance = static_cast<uint32_t>(db * db) + static_cast<uint32_t>(dg * dg) +
                            static_cast<uint32_t>(dr * dr);
        if (distance < best) {
            best = distance;
            best_index = i;
            if (distance == 0) break;
        }
    }
    return static_cast<int16_t>(best_index);
}

}  // extern "C"

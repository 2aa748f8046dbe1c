// rev_rgb: the row filter behind the colour modes (invert, invert greys only,
// grey, inverted grey), applied in place to 24-bit pixels of a row or to the
// triples of a colour table.
//
// Invariant: every mode maps a channel to 0..255 by integer arithmetic on the
// pixel alone, so a row can be filtered in any order and twice gives a
// predictable result (modes 1 and 2 are their own inverse on exact greys).
#include "tolva/host.h"
#include "tolva/raster.h"

namespace {

// Luminance with the weights 3:6:1, truncated; at most 255 for 8-bit input.
uint8_t luminance(const uint8_t *p) {
    int32_t sum = 3 * p[0] + 6 * p[1] + p[2];
    return static_cast<uint8_t>(sum / 10);
}

}  // namespace

extern "C" {

void rev_rgb(int32_t width, uint8_t *row, int32_t mode) {
    if (row == nullptr || width <= 0 || mode < 1 || mode > 4) return;
    uint8_t *p = row;
    for (int32_t x = 0; x < width; ++x, p += 3) {
        switch (mode) {
        case 1:
            p[0] = static_cast<uint8_t>(255 - p[0]);
            p[1] = static_cast<uint8_t>(255 - p[1]);
            p[2] = static_cast<uint8_t>(255 - p[2]);
            break;
        case 2:
            // Only near greys invert, so that a dark background turns light
            // while coloured lines keep their hue.
            if (feqi(p[0], p[1], 10) != 0 && feqi(p[1], p[2], 10) != 0 &&
                feqi(p[0], p[2], 10) != 0) {
                p[0] = static_cast<uint8_t>(255 - p[0]);
                p[1] = static_cast<uint8_t>(255 - p[1]);
                p[2] = static_cast<uint8_t>(255 - p[2]);
            }
            break;
        case 3: {
            uint8_t l = luminance(p);
            p[0] = p[1] = p[2] = l;
            break;
        }
        default: {
            auto l = static_cast<uint8_t>(255 - luminance(p));
            p[0] = p[1] = p[2] = l;
            break;
        }
        }
    }
}

}  // extern "C"

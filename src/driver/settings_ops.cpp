// Device settings and queries: the handlers that store the device window,
// viewport, background, resolution and colour table in EMData, and copy the
// window and viewport back into the reply buffer.
//
// Every setting starts at byte TOLVA_BLOCK_SETTINGS of the opcode block. Several setting
// opcodes are accepted and ignored; they stay distinct handlers so that the
// host's support query counts them as supported.
#include <math.h>
#include <string.h>

#include "driver/driver.h"

extern "C" {

void *ds_dvwn(void *block) {
    if (lpEMData == nullptr) return block;
    for (int i = 0; i < 6; ++i)
        lpEMData->deviceWindow[i] = host_load_f64(block, TOLVA_WINDOW_X1 + 8 * i);
    return block;
}

void *ds_bgc(void *block) {
    if (lpEMData == nullptr) return block;
    memcpy(lpEMData->backgroundColour, static_cast<const uint8_t *>(block) + TOLVA_BACKGROUND_RGB,
           3);
    return block;
}

void *ds_dvvp(void *block) {
    EMData *em = lpEMData;
    if (em == nullptr) return block;
    // Only x and y of the two corners; the z slots stay as they are.
    em->deviceViewport[0] = host_load_f64(block, TOLVA_VIEWPORT_X1);
    em->deviceViewport[1] = host_load_f64(block, TOLVA_VIEWPORT_Y1);
    em->deviceViewport[3] = host_load_f64(block, TOLVA_VIEWPORT_X2);
    em->deviceViewport[4] = host_load_f64(block, TOLVA_VIEWPORT_Y2);
    return block;
}

void *ds_vpsm(void *block) {
    EMData *em = lpEMData;
    if (em == nullptr) return block;
    int16_t mode = host_load_i16(block, TOLVA_SCALING_MODE);
    double unit = host_load_f64(block, TOLVA_SCALING_UNIT);
    if (mode < 0 || mode > 2 || (em->deviceState & 128) != 0) return block;
    if (mode == TOLVA_SCALING_METRIC && unit != 0.0) {
        // The unit is a millimetre size; dots per inch, rounded to nearest.
        em->resolution = host_trunc_i32(TOLVA_MM_PER_INCH / unit + 0.5);
    } else {
        em->resolution = 0;
    }
    return block;
}

void *dq_dvwn(void *block) {
    if (lpEMData != nullptr) mov2buf(lpEMData->deviceWindow, sizeof lpEMData->deviceWindow);
    return block;
}

void *dq_dvvp(void *block) {
    EMData *em = lpEMData;
    if (em == nullptr) return block;
    // The host reads the corners in this order; the third and sixth values
    // are never written and keep whatever the reply area held.
    mov2buf(&em->deviceViewport[0], 8);
    mov2buf(&em->deviceViewport[4], 8);
    driver_reply_skip(8);
    mov2buf(&em->deviceViewport[1], 8);
    mov2buf(&em->deviceViewport[3], 8);
    driver_reply_skip(8);
    return block;
}

void *ds_ct(void *block) {
    EMData *em = lpEMData;
    if (em == nullptr) return block;
    uint32_t length = host_load_u32(block, TOLVA_COLOURS_LENGTH);
    uint32_t first = host_load_u32(block, TOLVA_COLOURS_FIRST);
    uint8_t *colours = static_cast<uint8_t *>(block) + TOLVA_COLOURS_RGB;
    // A length below 2 would count billions of colours past the host's
    // block; it carries none.
    uint32_t n = length >= 2 ? (length - 2) / 3 : 0;
    // The host sees its own block converted too; the table keeps what fits.
    rev_rgb(static_cast<int32_t>(n), colours, em->colourConversionMode);
    if (first >= 256) return block;  // past the table: nothing fits
    uint32_t count = n < 256 - first ? n : 256 - first;
    memcpy(em->colourTable + 3 * first, colours, 3 * size_t{count});
    return block;
}

// Accepted and ignored.
void *ds_axc(void *block) { return block; }
void *ds_tran(void *block) { return block; }
void *ds_clpr(void *block) { return block; }
void *ds_clip(void *block) { return block; }
void *ds_dm(void *block) { return block; }
void *ds_fl(void *block) { return block; }

}  // extern "C"

// The output pipeline's one path up to the driver above it.
//
// The writer and the pipeline run inside driver calls and report back the
// way the protocol asks: errors onto the driver's error stack, progress
// through the host's status function. They read the raster device's output
// stream, device window, colour table and status record, and change none of
// them (but for the one case the view's colour table notes). Everything they
// use of the driver is here; no other file of this folder includes the
// driver's header.
#ifndef TOLVA_OUTPUT_DEVICE_H
#define TOLVA_OUTPUT_DEVICE_H

#include <stdint.h>

#include "tolva/driver.h"
#include "tolva/tolva.h"

// What the pipeline reads of the raster device.
struct OutputDevice {
    HGLOBAL stream;        // the output stream the GIF goes to
    const double *window;  // the device window: x1, y1, z1, x2, y2, z2
    // 256 red, green, blue entries. Only a bitmap that brings no table of
    // its own hands this one to the writer, which may place the transparent
    // colour in it.
    uint8_t *colourTable;
    const intptr_t *statusRecord;  // the host's status record, may be null
};

// The raster device's view; false when the driver is not initialised.
inline bool output_device(OutputDevice *device) {
    EMData *em = lpEMData;
    if (em == nullptr) return false;
    *device = {em->outputStream, em->deviceWindow, em->colourTable, em->statusRecord};
    return true;
}

// Records an error on the driver's error stack.
inline void output_push_error(int32_t code) { push_er(code); }

// Reports `percent` through the status record's function (words 1 and 2);
// true when the host answered "stop".
inline bool output_report_progress(const intptr_t *statusRecord, int32_t percent) {
    if (statusRecord == nullptr) return false;
    auto function = reinterpret_cast<StatusFunction>(statusRecord[TOLVA_STATUS_FUNCTION]);
    return CallGetSet_Status(function, statusRecord[TOLVA_STATUS_CONTEXT], 0, 0, 0, percent, 0,
                             0) != 0;
}

// Reports `percent` through the Setup block's status record: 901 when the
// host says stop, else 0.
inline int32_t output_update_status(int32_t percent) { return UpdateStatus(percent); }

#endif

// Weak stand-ins for functions and data that other parts of the library
// define. They let the shared object (linked with --no-undefined) and the
// driver's tests link while those parts are still being written; a real
// definition anywhere in the link replaces the stand-in. This file goes away
// once every part has landed.
#include "driver/driver.h"

#define TOLVA_WEAK __attribute__((weak))

extern "C" {

// Settings.
TOLVA_WEAK HGLOBAL CreateSetup(intptr_t, const char *, const char *, intptr_t) { return 0; }

// Streams.
TOLVA_WEAK HGLOBAL zunOpen(const char *, intptr_t *, uint32_t) { return 0; }
TOLVA_WEAK int32_t zunClose(HGLOBAL) { return -1; }
TOLVA_WEAK int32_t zunCloseandDelete(HGLOBAL, const char *) { return -1; }

// Raster.
TOLVA_WEAK void rev_rgb(int32_t, uint8_t *, int32_t) {}

// Output.
TOLVA_WEAK void RasterWriteCellData(HGLOBAL, int32_t, int32_t, int32_t, int16_t, int32_t) {}
TOLVA_WEAK int32_t OutputPicture(HGLOBAL, void *, OffscreenCallback) { return 0; }
TOLVA_WEAK int32_t ExportCellData(const char *, void *, void *, intptr_t *) { return 0; }
TOLVA_WEAK intptr_t DrawExportCellData(int32_t, void *, intptr_t, intptr_t) { return 0; }
TOLVA_WEAK intptr_t DrawPlatformMetafile(int32_t, void *, intptr_t, intptr_t) { return 0; }
TOLVA_WEAK intptr_t InitPlatformMetafileFilter(intptr_t a, intptr_t, intptr_t *, intptr_t *d,
                                               HGLOBAL *e, intptr_t *f, intptr_t *g) {
    *d = 0;
    *e = 0;
    *f = 0;
    *g = 0;
    return a;
}
TOLVA_WEAK int32_t TermPlatformMetafileFilter(intptr_t) { return 0; }
TOLVA_WEAK intptr_t GetMetaFileHandle(intptr_t, intptr_t) { return 0; }
TOLVA_WEAK int32_t DeleteMetaFileHandle(intptr_t) { return 0; }

}  // extern "C"

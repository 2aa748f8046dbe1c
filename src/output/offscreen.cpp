// The platform offscreen hooks through which OutputPicture obtains a picture,
// and the platform metafile hooks, which are stubs on this platform.
//
// OutputPicture never draws: it asks a callback (operation 0 query, 1 init,
// 2 terminate, 3 draw) for the picture's size, a band height and a colour
// table, then for one bitmap per band. The offscreen record built here lives
// from InitPlatformOffscreen to TermPlatformOffscreen and is what every later
// call hands the callback. Every hook tolerates a null record or callback, so
// that a failed init leads straight to error 27 instead of a crash.
//
// There is no platform metafile here: the metafile hooks hand back nothing,
// and DrawPlatformMetafile offers no band, so the export variant's close
// writes no image.
#include <string.h>

#include "output/pipeline.h"

namespace {

// What DrawPlatformMetafile answers to the query, handed on to the writer.
constexpr int16_t kMetafileQueryValue = 4;

// The page bounds in the metafile descriptor that the export variant's close
// hands over: {left, top, right, bottom}, y growing upward.
constexpr int kLeft = TOLVA_METAFILE_BOUNDS;
constexpr int kTop = TOLVA_METAFILE_BOUNDS + 1;
constexpr int kRight = TOLVA_METAFILE_BOUNDS + 2;
constexpr int kBottom = TOLVA_METAFILE_BOUNDS + 3;

}  // namespace

extern "C" {

void QueryPlatformOffscreen(TolvaOffscreenQuery *query, void *hostContext,
                            OffscreenCallback callback) {
    if (callback == nullptr) return;
    (void)callback(TOLVA_OFFSCREEN_QUERY, hostContext, reinterpret_cast<intptr_t>(query), 0);
}

TolvaOffscreen *InitPlatformOffscreen(int32_t width, int32_t *bandRows, int16_t depth,
                                      int16_t colourCount, uint8_t *colourTable, void *hostContext,
                                      OffscreenCallback callback, uint8_t flag) {
    auto *record = static_cast<TolvaOffscreen *>(zunPtrGlobalAlloc(sizeof(TolvaOffscreen)));
    if (record == nullptr || callback == nullptr || bandRows == nullptr) {
        if (bandRows != nullptr) *bandRows = 0;
        return record;
    }
    record->hostContext = hostContext;
    record->callback = callback;
    record->colourCount = colourCount;
    record->colourTable = colourTable;
    record->width = width;
    record->bandRows = *bandRows;
    record->depth = depth;
    record->privateBlock = 0;
    record->flag = flag;
    intptr_t information[5] = {width, *bandRows, depth, colourCount,
                               reinterpret_cast<intptr_t>(colourTable)};
    intptr_t answer =
        callback(TOLVA_OFFSCREEN_INIT, record, reinterpret_cast<intptr_t>(information), 0);
    // A band height beyond 32 bits is no band the writer could take.
    *bandRows = answer > 0 && answer <= INT32_MAX ? static_cast<int32_t>(answer) : 0;
    return record;
}

HGLOBAL DrawPlatformOffscreen(TolvaOffscreen *record, int32_t lowerRow, int32_t upperRow) {
    if (record == nullptr || record->callback == nullptr) return 0;
    return static_cast<HGLOBAL>(record->callback(TOLVA_OFFSCREEN_DRAW, record, lowerRow, upperRow));
}

void TermPlatformOffscreen(TolvaOffscreen *record) {
    if (record == nullptr) return;
    if (record->callback != nullptr)
        (void)record->callback(TOLVA_OFFSCREEN_TERMINATE, record, 0, 0);
    (void)zunPtrGlobalFree(record);
}

intptr_t InitPlatformMetafileFilter(intptr_t a, intptr_t b, intptr_t *statusRecord,
                                    intptr_t *metafile, HGLOBAL *setup, intptr_t *metafileAux,
                                    intptr_t *callback) {
    (void)b;
    (void)statusRecord;
    if (metafile != nullptr) *metafile = 0;
    if (setup != nullptr) *setup = 0;
    if (metafileAux != nullptr) *metafileAux = 0;
    if (callback != nullptr) *callback = 0;
    return a;
}

int32_t TermPlatformMetafileFilter(intptr_t a) {
    (void)a;
    return 0;
}

intptr_t GetMetaFileHandle(intptr_t a, intptr_t b) {
    (void)a;
    (void)b;
    return 0;
}

int32_t DeleteMetaFileHandle(intptr_t a) {
    (void)a;
    return 0;
}

intptr_t DrawPlatformMetafile(int32_t operation, void *record, intptr_t arg1, intptr_t arg2) {
    (void)arg2;
    switch (operation) {
    case TOLVA_OFFSCREEN_QUERY: {
        const auto *bounds = static_cast<const intptr_t *>(record);
        auto *query = reinterpret_cast<TolvaOffscreenQuery *>(arg1);
        if (bounds == nullptr || query == nullptr) return 0;
        double width = static_cast<double>(bounds[kRight]) - static_cast<double>(bounds[kLeft]);
        double height = static_cast<double>(bounds[kTop]) - static_cast<double>(bounds[kBottom]);
        query->resolution = static_cast<int32_t>(bounds[TOLVA_METAFILE_RESOLUTION]);
        if (query->resolution != 0) {
            width /= query->resolution;
            height /= query->resolution;
        }
        query->width = width;
        query->height = height;
        query->value = kMetafileQueryValue;
        return 0;
    }
    case TOLVA_OFFSCREEN_INIT:
        return 0;  // no band: nothing can be rendered on this platform
    case TOLVA_OFFSCREEN_TERMINATE:
        return record == nullptr ? 1 : 0;
    default:
        return 0;
    }
}

}  // extern "C"

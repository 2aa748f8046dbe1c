// The cell bitmap output pipeline: from a picture to the one GIF image of the
// output stream.
//
// Two roads lead here. RasterWriteCellData takes a whole bitmap (a cell array
// sent outside a picture bracket), converts and scales it in one piece and
// writes it as a single band. OutputPicture asks an offscreen callback for
// the picture band by band and writes each band as it comes. Both size the
// picture with QueryCellFormat and always write 8 bits per pixel.
//
// Invariant: every intermediate bitmap and table made here is freed here; the
// caller's bitmap is never freed (although the writer may use its memory as
// scratch, and the colour-model conversions rewrite it in place).
#include <math.h>
#include <string.h>

#include "output/pipeline.h"
#include "settings/settings.h"

namespace {

constexpr int32_t kProgressStep = 20;
constexpr int32_t kProgressBeforeWriting = 50;
constexpr uint32_t kDeviceTableBytes = 768;
constexpr int32_t kModelCMYK = 2;
constexpr int32_t kModelAlpha = 3;

// Progress of RasterWriteCellData, reported straight through the device's
// status record.
struct Progress {
    const intptr_t *record;
    int32_t percent;
};

// One step of the preparation done; true when the host answered "stop".
bool advance(Progress &progress) {
    progress.percent += kProgressStep;
    return output_report_progress(progress.record, progress.percent);
}

// The writer reads `rows` rows of `width` 8-bit pixels, each row padded to 4
// bytes. A bitmap that was left at its own width (heights equal, widths not)
// may be narrower than that; the writer then gets a zero-padded copy of the
// block's bytes instead of reading past its end. Returns the band to write.
HGLOBAL band_within_bounds(HGLOBAL &made, HGLOBAL current, int32_t width, int32_t rows) {
    if (current == 0 || width <= 0 || rows <= 0) return current;
    uint64_t needed =
        static_cast<uint64_t>(rlBytesPerLine(width, kOutputDepth)) * static_cast<uint64_t>(rows);
    uint32_t have = GlobalSize(current);
    if (needed <= have || needed > UINT32_MAX) return current;
    HGLOBAL padded = GlobalAlloc(TOLVA_GMEM_FLAGS, static_cast<uint32_t>(needed));
    auto *to = static_cast<uint8_t *>(GlobalLock(padded));
    const auto *from = static_cast<const uint8_t *>(GlobalLock(current));
    if (to != nullptr && from != nullptr) memcpy(to, from, have);
    (void)GlobalUnlock(current);
    (void)GlobalUnlock(padded);
    output_replace_bitmap(made, current, padded);
    return current;
}

// The picture RasterWriteCellData writes: its size as the format query
// decides it. Only the heights decide whether to scale; the width follows.
struct CellTarget {
    double width;  // pixels
    double height;
    int32_t outWidth;  // the same, truncated
    int32_t outHeight;
    int16_t depth;         // always kOutputDepth
    int32_t sourceHeight;  // the bitmap's own height
};

// The target size in inches when the device gave a resolution (the device
// window's extent in whole units over that resolution), else the bitmap's own
// pixels, whose aspect alone then counts; then the format query's pixels.
CellTarget cell_target(const OutputDevice &device, int32_t width, int32_t height, int32_t scale) {
    CellTarget t = {
        static_cast<double>(width), static_cast<double>(height), 0, 0, kOutputDepth, height};
    if (scale != 0) {
        const double *window = device.window;
        t.width = (fabs(trunc(window[3]) - trunc(window[0])) + 1.0) / scale;
        t.height = (fabs(trunc(window[4]) - trunc(window[1])) + 1.0) / scale;
    }
    int32_t resolution = scale;
    (void)QueryCellFormat(&t.width, &t.height, &t.depth, &resolution, nullptr, nullptr);
    t.outWidth = host_trunc_i32(t.width);
    t.outHeight = host_trunc_i32(t.height);
    return t;
}

// The bitmap on its way to the writer: the caller's at first, then each
// step's result. Only what is made here is freed here.
struct CellWork {
    HGLOBAL current;
    HGLOBAL made;  // the latest bitmap made here, 0 while it is the caller's
    int32_t width;
    int32_t height;
    int16_t depth;
    HGLOBAL deviceTable;  // a copy of the device's colour table, for bitmaps below 24 bits
    HGLOBAL madeTable;    // the table the depth change made
};

// Shrinks or stretches the bitmap to the target (the two raster entries
// are one function under two names).
using ScaleBitmap = HGLOBAL (*)(HGLOBAL bits, int16_t bitsPerPixel, int32_t srcWidth,
                                int32_t srcHeight, int32_t dstWidth, int32_t dstHeight);
void scale_to_target(CellWork &work, const CellTarget &target, ScaleBitmap scale) {
    output_replace_bitmap(work.made, work.current,
                          scale(work.current, work.depth, work.width, work.height, target.outWidth,
                                target.outHeight));
    work.width = target.outWidth;
    work.height = target.outHeight;
}

// CMYK and alpha bitmaps become RGB in place when the depth is to come down.
// Both conversions leave three bytes a pixel packed without row padding,
// which the depth change still reads as padded 24-bit rows.
void to_rgb(CellWork &work, const CellTarget &target, int32_t colourModel) {
    if ((colourModel != kModelCMYK && colourModel != kModelAlpha) || target.depth >= work.depth)
        return;
    if (colourModel == kModelAlpha)
        rlALPHAtoRGB(work.current, work.width, work.height);
    else
        rlCMYKtoRGB(work.current, work.width, work.height);
    work.depth = 24;
}

void change_depth(CellWork &work, const CellTarget &target) {
    HGLOBAL table = work.deviceTable;
    HGLOBAL converted = rlChangeColorResolution(work.current, work.width, work.height, work.depth,
                                                target.depth, &table);
    work.madeTable = table;
    output_replace_bitmap(work.made, work.current, converted);
    work.depth = target.depth;
}

// Shrinks, converts the colour model, changes the depth and stretches, as
// far as each is needed, reporting a step after each but the colour model,
// and at least kProgressBeforeWriting before the writing. False when the
// host asked to stop.
bool prepare_bitmap(CellWork &work, const CellTarget &target, const OutputDevice &device,
                    int32_t colourModel, Progress &progress) {
    if (target.height < target.sourceHeight) {
        scale_to_target(work, target, rlShrinkBitmap);
        if (advance(progress)) return false;
    }
    if (work.depth < 24) {
        work.deviceTable = GlobalAlloc(TOLVA_GMEM_FLAGS, kDeviceTableBytes);
        auto *table = static_cast<uint8_t *>(GlobalLock(work.deviceTable));
        if (table != nullptr) memcpy(table, device.colourTable, kDeviceTableBytes);
    }
    to_rgb(work, target, colourModel);
    if (work.depth != target.depth) {
        change_depth(work, target);
        if (advance(progress)) return false;
    }
    if (target.height > target.sourceHeight) {
        scale_to_target(work, target, rlStretchBitmap);
        if (advance(progress)) return false;
    }
    if (progress.percent < kProgressBeforeWriting) {
        progress.percent = kProgressBeforeWriting;
        if (output_report_progress(progress.record, progress.percent)) return false;
    }
    return true;
}

// Writes the prepared bitmap as the one image of the device's stream.
void write_bitmap(CellWork &work, const CellTarget &target, const OutputDevice &device) {
    // The table the writer gets must hold 256 entries; a made table that
    // came back shorter is widened with zero entries.
    HGLOBAL tableHandle = work.madeTable != 0 ? work.madeTable : work.deviceTable;
    if (tableHandle != 0 && GlobalSize(tableHandle) < kDeviceTableBytes) {
        HGLOBAL wide = GlobalReAlloc(tableHandle, kDeviceTableBytes, TOLVA_GMEM_FLAGS);
        if (tableHandle == work.madeTable)
            work.madeTable = wide;
        else
            work.deviceTable = wide;
        tableHandle = wide;
    }
    // Without a table of its own the writer gets the device's table itself,
    // which a transparent colour then changes.
    uint8_t *palette = device.colourTable;
    if (tableHandle != 0) palette = static_cast<uint8_t *>(GlobalLock(tableHandle));
    HGLOBAL band = band_within_bounds(work.made, work.current, target.outWidth, target.outHeight);
    HGLOBAL state = 0;
    // The writer's results are not passed on: the host learns of a failed
    // write from the error stack and from closing the stream.
    (void)BeginCellBitmap(device.stream, target.outWidth, target.outHeight, target.depth, palette,
                          &state);
    (void)WriteCellBits(device.stream, band, target.outWidth, target.outHeight, target.depth, 0,
                        state);
    (void)EndCellBitmap(device.stream, state);
}

}  // namespace

extern "C" {

int32_t QueryCellFormat(double *width, double *height, int16_t *bitsPerPixel, int32_t *resolution,
                        void *unused1, void *unused2) {
    (void)unused1;
    (void)unused2;
    SetupBlock *block = settings_current();
    if (block == nullptr || width == nullptr || height == nullptr || resolution == nullptr) {
        if (bitsPerPixel != nullptr) *bitsPerPixel = kOutputDepth;
        return TOLVA_ERR_NO_SETUP;
    }
    const SettingsPicture picture = {*width, *height, *resolution, *width, *height};
    auto display = [](const void *) {
        SettingsDisplay d = {};
        int16_t xDpi = 0;
        int16_t yDpi = 0;
        (void)GetDisplayInfo(&d.width, &d.height, &xDpi, &yDpi);
        d.dpi = xDpi;
        return d;
    };
    double size[2];
    settings_choose_size(block, picture, display, nullptr, size);

    if (block->xResolution != 0) {
        *width = size[0] * block->xResolution;
        *height = size[1] * block->yResolution;
        *resolution = block->xResolution;
    }
    if (bitsPerPixel != nullptr) *bitsPerPixel = kOutputDepth;
    return TOLVA_OK;
}

void RasterWriteCellData(HGLOBAL bitmap, int32_t width, int32_t height, int32_t scale,
                         int16_t bitsPerPixel, int32_t colourModel) {
    OutputDevice device;
    if (!output_device(&device)) return;
    Progress progress = {device.statusRecord, 0};
    const CellTarget target = cell_target(device, width, height, scale);
    CellWork work = {bitmap, 0, width, height, bitsPerPixel, 0, 0};
    if (prepare_bitmap(work, target, device, colourModel, progress))
        write_bitmap(work, target, device);
    if (work.madeTable != 0) (void)GlobalFree(work.madeTable);
    if (work.deviceTable != 0) (void)GlobalFree(work.deviceTable);
    if (work.made != 0) (void)GlobalFree(work.made);
}

int32_t OutputPicture(HGLOBAL stream, void *hostContext, OffscreenCallback callback) {
    HGLOBAL queryHandle = GlobalAlloc(TOLVA_GMEM_FLAGS, sizeof(TolvaOffscreenQuery));
    auto *query = static_cast<TolvaOffscreenQuery *>(GlobalLock(queryHandle));
    if (query == nullptr) return TOLVA_ERR_NO_PICTURE;
    QueryPlatformOffscreen(query, hostContext, callback);

    double width = query->width;
    double height = query->height;
    int32_t resolution = query->resolution;
    int16_t depth = kOutputDepth;
    (void)QueryCellFormat(&width, &height, &depth, &resolution, nullptr, nullptr);
    int16_t colours = 0;
    uint8_t *table = nullptr;
    if (depth <= 8) {
        colours = static_cast<int16_t>(1 << depth);
        table = static_cast<uint8_t *>(
            GlobalLock(GlobalAlloc(TOLVA_GMEM_FLAGS, static_cast<uint32_t>(colours) * 3)));
    }

    const int32_t outWidth = static_cast<int32_t>(output_to_pixels(width));
    uint32_t evenHeight = output_to_pixels(height);
    evenHeight += evenHeight & 1u;
    const int32_t outHeight = static_cast<int32_t>(evenHeight);

    int32_t bandRows = outHeight;
    TolvaOffscreen *record =
        InitPlatformOffscreen(outWidth, &bandRows, depth, colours, table, hostContext, callback, 0);
    // The callback may have grown the table; the record holds the live one.
    if (record != nullptr) table = record->colourTable;
    // The writer reads 2^depth entries, and at least 16 when it places a
    // transparent or background colour. A table the callback made shorter
    // (a locked global block, as the one it replaced) is widened with black
    // entries rather than read past its end.
    if (table != nullptr) {
        const uint32_t needed = static_cast<uint32_t>(colours < 16 ? 16 : colours) * 3u;
        if (GlobalSize(GlobalHandle(table)) < needed) {
            table = static_cast<uint8_t *>(zunPtrGlobalReAlloc(table, needed, TOLVA_GMEM_FLAGS));
            if (record != nullptr) record->colourTable = table;
        }
    }

    int32_t result = TOLVA_OK;
    if (bandRows <= 0) {
        result = TOLVA_ERR_NO_PICTURE;
    } else {
        const int64_t bands = (outHeight + static_cast<int64_t>(bandRows) - 1) / bandRows;
        HGLOBAL state = 0;
        // Always -1: the writer takes the top band first and the rows of
        // each band bottom row first.
        (void)BeginCellBitmap(stream, outWidth, outHeight, depth, table, &state);
        for (int64_t k = 0; k < bands && result == TOLVA_OK; ++k) {
            int64_t upper = outHeight - k * bandRows;
            int64_t lower = upper - bandRows;
            if (lower < 0) lower = 0;
            HGLOBAL band = DrawPlatformOffscreen(record, static_cast<int32_t>(lower),
                                                 static_cast<int32_t>(upper));
            result = WriteCellBits(stream, band, outWidth, static_cast<int32_t>(upper - lower),
                                   depth, query->value, state);
            if (result == TOLVA_OK)
                result = output_update_status(static_cast<int32_t>((k + 1) * 100 / bands));
        }
        if (result == TOLVA_OK) {
            (void)EndCellBitmap(stream, state);  // a failed trailer shows when the stream closes
        } else {
            // The image stays without its trailer. Ending it on no stream
            // releases the writer's state and any spool (and its temporary
            // file) without writing a byte to the output.
            (void)EndCellBitmap(0, state);
        }
    }

    (void)GlobalFree(queryHandle);
    TermPlatformOffscreen(record);
    if (table != nullptr) (void)GlobalFree(GlobalHandle(table));
    return result;
}

}  // extern "C"

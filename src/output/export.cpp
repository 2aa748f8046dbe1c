// The direct export road: ExportCellData writes a bitmap that the host hands
// over whole, and DrawExportCellData is the offscreen callback that serves
// that bitmap (and the picture that the -6 drawing primitive collected) to
// OutputPicture.
//
// The callback's host context is a TolvaPicture: the bitmap, its palette and
// depth are found there in every operation. The whole picture is one band.
// Invariant: the callback's private block owns the last band it made and a
// private copy of the colour table, and only terminate frees them; the
// source bitmap and palette stay the host's.
#include <string.h>

#include "host/busy.h"
#include "output/pipeline.h"
#include "raster/raster.h"
#include "stream/sinks.h"

namespace {

constexpr int kSettingsWord = 2;  // of the host argument block
constexpr int kHostValueWord = 6;
constexpr int kBandRowsWord = 1;          // of the init information
constexpr int16_t kExportQueryValue = 1;  // handed on to the writer

// The callback's private block: two words.
struct ExportPrivate {
    HGLOBAL lastBand;  // the band bitmap made by the latest draw
    HGLOBAL table;     // private copy of the colour table the bands use
};

// See output_lend_picture.
HGLOBAL g_lent_picture = 0;

const TolvaPicture *source_of(const TolvaOffscreen *record) {
    return static_cast<const TolvaPicture *>(record->hostContext);
}

// Puts `entries` colours from `from` (at most `available` bytes of it) into
// the record's table, growing it when it is too small, and into a new
// private copy.
void adopt_table(TolvaOffscreen *record, ExportPrivate *own, const uint8_t *from,
                 uint32_t available, int32_t entries) {
    const uint32_t bytes = static_cast<uint32_t>(entries) * 3u;
    if (entries > record->colourCount)
        record->colourTable =
            static_cast<uint8_t *>(zunPtrGlobalReAlloc(record->colourTable, bytes, 0x42));
    record->colourCount = static_cast<int16_t>(entries);
    const uint32_t copied = available < bytes ? available : bytes;
    if (record->colourTable != nullptr && from != nullptr)
        memcpy(record->colourTable, from, copied);
    own->table = GlobalAlloc(TOLVA_GMEM_FLAGS, bytes);
    auto *copy = static_cast<uint8_t *>(GlobalLock(own->table));
    if (copy != nullptr && from != nullptr) memcpy(copy, from, copied);
}

intptr_t query(const TolvaPicture *picture, TolvaOffscreenQuery *query) {
    if (picture == nullptr || query == nullptr) return 0;
    query->width = picture->widthValue;
    query->height = picture->heightValue;
    query->resolution = picture->resolution;
    if (query->resolution != 0) {
        query->width /= query->resolution;
        query->height /= query->resolution;
    }
    query->value = kExportQueryValue;
    return 0;
}

intptr_t init(TolvaOffscreen *record, const intptr_t *information) {
    const TolvaPicture *source = source_of(record);
    HGLOBAL privateHandle = GlobalAlloc(TOLVA_GMEM_FLAGS, sizeof(ExportPrivate));
    auto *own = static_cast<ExportPrivate *>(GlobalLock(privateHandle));
    if (own == nullptr || source == nullptr || information == nullptr) {
        if (privateHandle != 0) (void)GlobalFree(privateHandle);
        output_push_error(TOLVA_ERR_STREAM);
        return 0;
    }
    record->privateBlock = privateHandle;
    const int16_t from = source->depth;
    const int16_t to = record->depth;

    if (to >= from) {
        // A palette picture keeps its own palette.
        if (from > 0 && source->palette != 0 && record->colourTable != nullptr &&
            record->colourCount >= 1) {
            const auto *palette = static_cast<const uint8_t *>(GlobalLock(source->palette));
            adopt_table(record, own, palette, GlobalSize(source->palette), 1 << from);
        }
    } else if (to > 0 && to <= 8) {
        // Fewer colours than the source has: median cut for true colour
        // into 8 bits, else the dithering's own table.
        HGLOBAL table = 0;
        int16_t count = static_cast<int16_t>(1 << to);
        if (from == 24 && to > 7)
            table = rlReduceColorTable(source->bitmap, source->width, source->height, &count);
        else
            (void)rlDitherGetCT(source->bitmap, source->width, source->height, from, to,
                                source->palette, &table, &count);
        if (table != 0) {
            adopt_table(record, own, static_cast<const uint8_t *>(GlobalLock(table)),
                        GlobalSize(table), 1 << to);
            (void)GlobalFree(table);
        }
    }
    // The whole picture is one band of the rows asked for.
    return information[kBandRowsWord];
}

intptr_t draw(TolvaOffscreen *record) {
    const TolvaPicture *source = source_of(record);
    auto *own = static_cast<ExportPrivate *>(GlobalLock(record->privateBlock));
    if (source == nullptr || own == nullptr) return 0;
    const int32_t sourceWidth = source->width;
    const int32_t sourceHeight = source->height;
    const int32_t width = record->width;
    const int32_t rows = record->bandRows;
    const int16_t from = source->depth;
    const int16_t to = record->depth;

    HGLOBAL current = source->bitmap;
    HGLOBAL made = 0;
    bool changed = false;
    int32_t currentWidth = sourceWidth;
    int32_t currentHeight = sourceHeight;
    if (!(width >= sourceWidth && rows >= sourceHeight)) {
        output_replace_bitmap(
            made, current, rlShrinkBitmap(current, from, sourceWidth, sourceHeight, width, rows));
        currentWidth = width;
        currentHeight = rows;
        changed = true;
    }
    if (from != to) {
        // A true-colour bitmap that is ours, or lent, takes its indices in
        // its own block: no second picture-sized block.
        bool over =
            from == 24 && to == 8 && current != 0 && (current == made || current == g_lent_picture);
        HGLOBAL converted =
            to < 8 && to < from ? rlDitherGivenCT(current, currentWidth, currentHeight, from, to,
                                                  source->palette, own->table, record->colourCount)
            : over ? rl_convert_over_source(current, currentWidth, currentHeight, own->table,
                                            record->colourCount)
                   : rlConvertBitmapDepth(current, currentWidth, currentHeight, from, to,
                                          source->palette, own->table, record->colourCount);
        if (current == g_lent_picture) g_lent_picture = 0;  // its colours are gone
        if (converted != current) output_replace_bitmap(made, current, converted);
        changed = true;
    }
    // A bitmap that the shrink already brought to the target size is left
    // as it is: stretching it to its own size would copy it unchanged.
    if ((width > sourceWidth || rows > sourceHeight) &&
        (currentWidth != width || currentHeight != rows)) {
        output_replace_bitmap(
            made, current, rlStretchBitmap(current, to, currentWidth, currentHeight, width, rows));
        changed = true;
    }

    if (own->lastBand != 0) (void)GlobalFree(own->lastBand);
    own->lastBand = made;
    // A failed step leaves no band (0) rather than the unconverted source;
    // the current bitmap is the last one made, or the lent picture itself
    // converted where it lies.
    return static_cast<intptr_t>(changed ? current : source->bitmap);
}

intptr_t terminate(TolvaOffscreen *record) {
    auto *own = static_cast<ExportPrivate *>(GlobalLock(record->privateBlock));
    if (own != nullptr) {
        if (own->lastBand != 0) (void)GlobalFree(own->lastBand);
        if (own->table != 0) (void)GlobalFree(own->table);
        (void)GlobalFree(record->privateBlock);
    }
    record->privateBlock = 0;
    return 1;
}

}  // namespace

void output_lend_picture(HGLOBAL bitmap) { g_lent_picture = bitmap; }

extern "C" {

intptr_t DrawExportCellData(int32_t operation, void *record, intptr_t arg1, intptr_t arg2) {
    (void)arg2;
    if (record == nullptr) return 0;
    switch (operation) {
    case TOLVA_OFFSCREEN_QUERY:
        return query(static_cast<const TolvaPicture *>(record),
                     reinterpret_cast<TolvaOffscreenQuery *>(arg1));
    case TOLVA_OFFSCREEN_INIT:
        return init(static_cast<TolvaOffscreen *>(record),
                    reinterpret_cast<const intptr_t *>(arg1));
    case TOLVA_OFFSCREEN_TERMINATE:
        return terminate(static_cast<TolvaOffscreen *>(record));
    case TOLVA_OFFSCREEN_DRAW:
        return draw(static_cast<TolvaOffscreen *>(record));
    default:
        return 0;
    }
}

int32_t ExportCellData(const char *fileName, void *pictureInformation, void *cellDescriptor,
                       intptr_t *hostArguments) {
    HostCallGuard guard;
    if (!guard.entered()) return TOLVA_ERR_BUSY;
    if (hostArguments == nullptr) return TOLVA_ERR_NO_SETUP;
    HGLOBAL setup = static_cast<HGLOBAL>(hostArguments[kSettingsWord]);
    auto *block = static_cast<SetupBlock *>(GlobalLock(setup));
    if (block == nullptr) return TOLVA_ERR_NO_SETUP;
    hRaster = setup;
    lpRaster = block;
    block->hostArgument = hostArguments[kHostValueWord];
    auto *picture = static_cast<TolvaPicture *>(pictureInformation);
    const auto *cell = static_cast<const TolvaPicture *>(cellDescriptor);
    if (picture == nullptr || cell == nullptr) return TOLVA_ERR_MEMORY;

    HGLOBAL stream = 0;
    bool inMemory = false;
    if (block->outputDevice != 0) {
        stream = stream_open_procedure(fileName, block->outputDevice, block->statusRecord);
    } else if (fileName != nullptr && fileName[0] != '\0') {
        stream = stream_open_file(fileName);
    } else {
        // A block left by an earlier export is the host's; it is not freed.
        stream = stream_open_memory(&block->exportMemoryBlock, &block->exportMemoryData);
        if (stream == 0) {
            if (block->exportMemoryBlock != 0) (void)GlobalFree(block->exportMemoryBlock);
            block->exportMemoryBlock = 0;
            block->exportMemoryData = nullptr;
            return TOLVA_ERR_STREAM;
        }
        inMemory = true;
    }
    if (stream == 0) return TOLVA_ERR_STREAM;

    SetDisplayInfo(cell->width, cell->height, cell->resolution, cell->resolution);
    *picture = *cell;
    picture->widthValue = cell->width;
    picture->heightValue = cell->height;
    picture->resolution = cell->resolution;
    // The export reports its failures on the error stack; the host's answer
    // is only whether a stream could be had.
    (void)OutputPicture(stream, picture, DrawExportCellData);
    (void)zunClose(stream);
    // The memory stream moves the block as it grows and keeps only the data
    // address up to date; the handle follows it here.
    if (inMemory) block->exportMemoryBlock = GlobalHandle(block->exportMemoryData);
    return TOLVA_OK;
}

}  // extern "C"

// Cell arrays and the drawing primitive: how the host's pixel rows become a
// picture.
//
// Primitive -5 opens a picture bitmap; cell arrays then fill it row by row,
// downward from row 0 or upward from the top, and primitive -6 hands it to
// OutputPicture. Rows are copied only where they land inside the bitmap,
// and no more than the picture has left: a block with more loses the rest.
// A cell array outside that bracket is written on its own through
// RasterWriteCellData, in a bitmap of its own size, but its rows are still
// counted against the height and row position of the last picture opened:
// before any picture none are copied, and the image is written blank (every
// index 0); after one, only as many as that picture had left.
//
// A picture wider or taller than the picture record can say (32767) is
// refused at -5 and again at -6 with 300: nothing is collected or written,
// and the device deletes its output file when it closes.
#include <stdint.h>
#include <string.h>

#include "driver/driver.h"
#include "host/memory.h"
#include "output/pipeline.h"

namespace {

// The host's bits per cell: -32768 means 1; other negative values count by
// their magnitude.
int32_t cell_bits(int32_t bits) {
    if (bits == TOLVA_CELLS_ONE_BIT) return 1;
    if (bits == INT32_MIN) return INT32_MAX;
    return bits < 0 ? -bits : bits;
}

// The pixel width of a row from the device window's x extent, capped.
int64_t row_width(const EMData *em, int64_t cap) {
    int64_t x1 = host_trunc_i32(em->deviceWindow[0]);
    int64_t x2 = host_trunc_i32(em->deviceWindow[3]);
    int64_t width = (x2 > x1 ? x2 - x1 : x1 - x2) + 1;
    return width < cap ? width : cap;
}

// Bytes of a row, padded to a multiple of 4.
int64_t row_bytes(int64_t width, int64_t bits) {
    return ((width * bits + 7) / 8 + 3) & ~int64_t{3};
}

// A zero-filled block for `rows` rows, or 0 when the size has no 32-bit
// count (the allocation the host could never have had).
HGLOBAL bitmap_for(int64_t bytes, int64_t rows) {
    if (bytes < 0 || rows < 0) return 0;
    uint64_t size = static_cast<uint64_t>(bytes) * static_cast<uint64_t>(rows);
    if (size > UINT32_MAX) return 0;
    return GlobalAlloc(TOLVA_GMEM_FLAGS, static_cast<uint32_t>(size));
}

// Rows of a cell array run bottom-up when the corners and the device window
// disagree about the direction of y.
bool runs_upward(const EMData *em, const void *block) {
    double y1 = host_load_f64(block, TOLVA_CELLS_FIRST_Y);
    double y2 = host_load_f64(block, TOLVA_CELLS_SECOND_Y);
    double w1 = em->deviceWindow[1];
    double w2 = em->deviceWindow[4];
    return (y2 < y1 && w2 > w1) || (y2 > y1 && w2 < w1);
}

bool too_large(const EMData *em) {
    return em->pictureWidth > TOLVA_PICTURE_MAX_EXTENT ||
           em->pictureHeight > TOLVA_PICTURE_MAX_EXTENT;
}

void open_picture(EMData *em, const uint8_t *data) {
    uint8_t head[TOLVA_PICTURE_DATA_SIZE];
    memcpy(head, data, sizeof head);
    em->cellFlag = host_load_i16(head, TOLVA_PICTURE_CELL_FLAG);
    em->accumulating = 1;
    int32_t bits = cell_bits(host_load_i32(head, TOLVA_PICTURE_BITS));
    int64_t width = row_width(em, host_load_i32(head, TOLVA_PICTURE_WIDTH));
    int64_t bytes = row_bytes(width, bits);
    int32_t height = host_load_i32(head, TOLVA_PICTURE_HEIGHT);
    em->pictureWidth = static_cast<int32_t>(width);
    em->pictureHeight = height;
    em->pictureDepth = bits;
    em->currentRow = 0;
    // An earlier picture that was never closed gives way to this one.
    if (em->pictureBitmap != 0) (void)GlobalFree(em->pictureBitmap);
    em->pictureBitmap = 0;
    if (too_large(em)) {
        // Its cell arrays then find no bitmap and push 300 each.
        push_er(TOLVA_ERR_MEMORY);
        driver_discard_output();
        return;
    }
    em->pictureBitmap = bitmap_for(bytes, height);
}

void close_picture(EMData *em) {
    em->accumulating = 0;
    if (too_large(em)) {
        push_er(TOLVA_ERR_MEMORY);
        return;
    }
    HGLOBAL palette = 0;
    if (em->pictureDepth < 24) {
        int32_t depth = em->pictureDepth > 0 ? em->pictureDepth : 0;
        uint32_t size = (uint32_t{1} << depth) * 3;
        palette = GlobalAlloc(TOLVA_GMEM_FLAGS, size);
        if (palette == 0) {
            push_er(TOLVA_ERR_MEMORY);
            return;
        }
        // Depths above 8 ask for more entries than the device has; the
        // rest of the palette stays zero.
        uint32_t copied = size < sizeof em->colourTable ? size : sizeof em->colourTable;
        memcpy(GlobalLock(palette), em->colourTable, copied);
    }
    TolvaPicture picture;
    picture.depth = static_cast<int16_t>(em->pictureDepth);
    picture.width = static_cast<int16_t>(em->pictureWidth);
    picture.height = static_cast<int16_t>(em->pictureHeight);
    picture.resolution = static_cast<int16_t>(em->resolution);
    picture.widthValue = static_cast<double>(static_cast<uint32_t>(em->pictureWidth));
    picture.heightValue = static_cast<double>(static_cast<uint32_t>(em->pictureHeight));
    picture.palette = palette;
    picture.bitmap = em->pictureBitmap;
    // Failures of the output are pushed by the output itself. The picture
    // is freed right after, so its band may be converted where it lies.
    output_lend_picture(em->pictureBitmap);
    (void)OutputPicture(em->outputStream, &picture, DrawExportCellData);
    output_lend_picture(0);
    if (palette != 0) (void)GlobalFree(palette);
    if (em->pictureBitmap != 0) (void)GlobalFree(em->pictureBitmap);
    em->pictureBitmap = 0;
}

}  // namespace

extern "C" {

void *d_gdp(void *block) {
    EMData *em = lpEMData;
    if (em == nullptr) return block;
    int32_t id = host_load_i32(block, TOLVA_PRIMITIVE_ID);
    if (id == TOLVA_PRIMITIVE_OPEN) {
        int64_t points = host_load_u32(block, TOLVA_PRIMITIVE_POINTS);
        open_picture(em, static_cast<const uint8_t *>(block) + TOLVA_PRIMITIVE_DATA(points));
    } else if (id == TOLVA_PRIMITIVE_CLOSE) {
        close_picture(em);
    }
    return block;
}

void *d_ca(void *block) {
    EMData *em = lpEMData;
    if (em == nullptr) return block;
    const uint8_t *data = static_cast<const uint8_t *>(block) + TOLVA_CELLS_DATA;
    int32_t declared = host_load_i32(block, TOLVA_CELLS_BITS);
    if (declared < 0) {
        // The cells live elsewhere; their address sits unaligned at byte 102.
        memcpy(&data, static_cast<const uint8_t *>(block) + TOLVA_CELLS_DATA,
               sizeof(const uint8_t *));
    }
    int32_t bits = cell_bits(declared);
    uint32_t cells = host_load_u32(block, TOLVA_CELLS_PER_ROW);
    uint32_t rows = host_load_u32(block, TOLVA_CELLS_ROWS);

    int64_t width = row_width(em, cells);
    int64_t bytes = row_bytes(width, bits);
    double stride = static_cast<double>(bytes);
    // Narrow 24-bit rows skip the rest of each full source row.
    if (bits == 24 && width < cells) stride += static_cast<double>(row_bytes(cells, 24) - bytes);

    HGLOBAL bitmap = em->accumulating != 0 ? em->pictureBitmap : bitmap_for(bytes, rows);

    bool upward = runs_upward(em, block);
    int64_t count;
    if (upward) {
        if (em->currentRow == 0) em->currentRow = em->pictureHeight - 1;
        count = static_cast<int32_t>(rows) < em->currentRow ? static_cast<int32_t>(rows)
                                                            : em->currentRow;
    } else {
        uint32_t left =
            static_cast<uint32_t>(em->pictureHeight) - static_cast<uint32_t>(em->currentRow);
        count = rows < left ? rows : left;
    }

    if (bitmap == 0) {
        push_er(TOLVA_ERR_MEMORY);
        return block;
    }
    uint8_t *pixels = static_cast<uint8_t *>(GlobalLock(bitmap));
    int64_t capacity = bytes > 0 ? GlobalSize(bitmap) / bytes : 0;
    if (count > 0) {
        // The rows land next to one another: their pages are entered in one
        // go rather than at a fault each.
        int64_t low = upward ? em->currentRow - count : em->currentRow;
        int64_t high = low + count;
        low = low > 0 ? low : 0;
        high = high < capacity ? high : capacity;
        if (high > low)
            host_populate(pixels + low * bytes, static_cast<size_t>((high - low) * bytes));
    }
    double i = 0.0;
    for (int64_t k = 0; k < count; ++k, i += 1.0) {
        int64_t target = upward ? em->currentRow - 1 : em->currentRow;
        em->currentRow += upward ? -1 : 1;
        // Rows that would land outside the bitmap (a host-set row or a
        // picture larger than its block) are dropped.
        if (target < 0 || target >= capacity) continue;
        uint8_t *row = pixels + target * bytes;
        memcpy(row, data + static_cast<size_t>(stride * i), static_cast<size_t>(bytes));
        if (bits == 24 && em->colourConversionMode != 0)
            rev_rgb(static_cast<int32_t>(width), row, em->colourConversionMode);
    }

    if (em->accumulating != 0) return block;
    RasterWriteCellData(bitmap, static_cast<int32_t>(width), static_cast<int32_t>(rows),
                        em->resolution, static_cast<int16_t>(bits), bits == 24 ? 1 : 0);
    (void)GlobalFree(bitmap);
    return block;
}

}  // extern "C"

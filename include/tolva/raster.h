/*
 * tolva/raster.h - the rl raster library: bitmaps, pixel access, nearest colour,
 * median cut, dithering, depth conversion, scaling and their tables.
 *
 * Exported from libtolva for programs that call these parts directly; a host
 * that only drives the filter needs tolva/tolva.h alone.
 */
#ifndef TOLVA_RASTER_H
#define TOLVA_RASTER_H

#include <tolva/tolva.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------ */
/* Raster imaging library                                                     */
/* ------------------------------------------------------------------------ */

/*
 * Bitmaps are argument groups {pixel data, width, height, bits per pixel}.
 * Depths 1, 4, 8 (indexed), 24 (R, G, B) and 32 (R, G, B, fourth byte); rows
 * padded to 4 bytes; 1- and 4-bit pixels packed from the most significant
 * bits. Colour tables are handles of packed R, G, B triples with a separate
 * 16-bit entry count. A packed colour value is R<<24 | G<<16 | B<<8 | fourth.
 * Bitmaps, tables and maps returned by the rl functions belong to the caller,
 * who frees them with rlFreeNewData (or GlobalFree).
 */

/** A zeroed movable block of elementSize * count bytes (flags 0x42). */
TOLVA_API HGLOBAL rlGetMemory(int16_t elementSize, int32_t count);
/** The data address of a handle; null for handle 0. */
TOLVA_API void *rlLockMemory(HGLOBAL h);
/** 0 for handle 0, else GlobalUnlock's result (0). */
TOLVA_API int32_t rlUnlockMemory(HGLOBAL h);
/** Frees a block: 1 when it freed one, 0 (doing nothing) for handle 0. */
TOLVA_API int32_t rlFreeNewData(HGLOBAL h);
/** The handle owning a locked data address (GlobalHandle); 0 for null. */
TOLVA_API HGLOBAL rlPointertoHandle(const void *pointer);
/** Frees a colour map made by rlBuildColormap (0 allowed); always 0. */
TOLVA_API int32_t rlFreeColormap(HGLOBAL map);

/** Bytes of one row, padded to a multiple of 4: rlBytesPerLine(33, 1) is 8. */
TOLVA_API int32_t rlBytesPerLine(int32_t width, int16_t bitsPerPixel);
/** Bytes of a whole bitmap: rlBytesPerLine(width, bits) * height. */
TOLVA_API uint32_t rlCalcNewSize(int32_t width, int32_t height, int16_t bitsPerPixel);
/**
 * The value of pixel (x, y) of locked data: the index at 1, 4 and 8 bits, the
 * packed colour at 24 and 32 bits, 0 at any other depth. No bounds checks.
 */
TOLVA_API uint32_t rlGetPixel(const uint8_t *data, int32_t bytesPerLine, int32_t x, int32_t y,
                              int16_t bitsPerPixel);
/**
 * Writes pixel (x, y). The value stored is map[value] when map is given;
 * else, at depths below 24 with a table, the index of the table entry nearest
 * the packed colour value; else value itself. At 24 and 32 bits with a table
 * and a map, the colour is the table entry map[value] (an entry outside
 * tableCount, or a missing map, writes the value's own colour bytes); at 32
 * bits the fourth byte is 0 with a table, else the value's low byte. Other
 * depths write nothing. With _debug_color_res above 3 prints "(x,y): " to
 * standard error. Always 0; no bounds checks.
 */
TOLVA_API int32_t rlSetPixel(uint8_t *data, int32_t bytesPerLine, int32_t x, int32_t y,
                             int16_t bitsPerPixel, uint32_t value, const uint32_t *map,
                             const uint8_t *table, int16_t tableCount);
/**
 * The index of the table entry nearest (red, green, blue) by squared
 * distance, lowest index on ties. A query whose channels lie within 4 of each
 * other matches only entries with three equal channels, any other query only
 * the other entries; 0 when the query's class has no entry (or table is null).
 */
TOLVA_API int16_t rlNearestRGBIndex(int16_t red, int16_t green, int16_t blue,
                                    const uint8_t *table, int16_t count);
/**
 * A new colour map (unlocked handle) of 2^srcBits uint32 entries telling what
 * each source index becomes: the packed colour when dstBits is 24, else the
 * nearest index of dstTable (dstCount entries). When srcBits <= dstBits and
 * dstTable is null, the source table is the destination. 0 for a source deeper
 * than 16 bits (direct colour needs no map). A missing table leaves the map
 * zeroed. The caller frees it with rlFreeColormap.
 */
TOLVA_API HGLOBAL rlBuildColormap(const uint8_t *srcTable, int16_t srcBits,
                                  const uint8_t *dstTable, int16_t dstBits, int16_t dstCount);
/**
 * A median-cut colour table of at most *count colours for a 24-bit bitmap:
 * a new table handle of *count triples (the caller frees it), the number of
 * entries produced stored back through count (fewer when the picture has
 * fewer distinct 15-bit colours). A bitmap handle of 0 leaves the table
 * zeroed and *count unchanged; a count of 0 or less gives an empty table.
 */
TOLVA_API HGLOBAL rlReduceColorTable(HGLOBAL bits, int32_t width, int32_t height,
                                     int16_t *count);
/**
 * rlDitherBitmap: a new bitmap of dstBits bits per pixel made by error
 * diffusion from a 24-bit copy of the source (taken with no colour table, so
 * an indexed source dithers as black). The table used: *table when the depth
 * has fewer than 3 entries or *table is a non-zero handle (at 2^dstBits
 * entries); else, below 3 entries with *table 0, a new copy of MonoTable (8
 * entries; 1-bit pixels take the low bit of the chosen index); else a new
 * table of 2^dstBits entries: a median-cut reduction of the picture to
 * 2^dstBits - 8 colours, the 8 must_have_colors, black for the rest. The
 * table's handle is stored through table (may be null); the caller owns it and
 * the returned bitmap, and frees both. The source is left unchanged.
 */
TOLVA_API HGLOBAL rlDitherBitmap(HGLOBAL bits, int32_t width, int32_t height, int16_t srcBits,
                                 int16_t dstBits, HGLOBAL srcTable, HGLOBAL *table);
/**
 * rlDitherGetCT: only the table choice of rlDitherBitmap (a caller's table is
 * kept only below 3 entries); stores the table through table and its entry
 * count through count (8 for MonoTable, else 2^dstBits). Always 0. The caller
 * frees a new table.
 */
TOLVA_API int32_t rlDitherGetCT(HGLOBAL bits, int32_t width, int32_t height, int16_t srcBits,
                                int16_t dstBits, HGLOBAL srcTable, HGLOBAL *table,
                                int16_t *count);
/**
 * rlDitherGivenCT: dithers against the caller's table of count entries (the
 * caller keeps it) and returns the new bitmap of dstBits bits per pixel, which
 * the caller frees. A count beyond the entries the table's block holds is cut
 * to them.
 */
TOLVA_API HGLOBAL rlDitherGivenCT(HGLOBAL bits, int32_t width, int32_t height, int16_t srcBits,
                                  int16_t dstBits, HGLOBAL srcTable, HGLOBAL table,
                                  int16_t count);
/**
 * rev_rgb: filters `width` R, G, B triples in place. Mode 1 inverts every
 * channel (255 - c); 2 inverts only near greys (channels pairwise within 10);
 * 3 sets all channels to L = (3r + 6g + b) / 10; 4 to 255 - L; other modes do
 * nothing.
 */
TOLVA_API void rev_rgb(int32_t width, uint8_t *row, int32_t mode);
/**
 * _rlDitherOneLine: diffuses one 24-bit row in place, left to right, against
 * a table of count entries: each pixel but the last becomes its nearest entry
 * (rlNearestRGBIndex) and passes (7e)/16 to the right and, when next is not
 * null, (7e)/16 - e/8 below, (7e)/16 - 2(e/8) below-left and (7e)/16 - 3(e/8)
 * below-right (integer divisions, sums clamped to 0..255). The last pixel
 * repeats the previous pixel's entry; a one-pixel row takes entry 0. A null
 * table, a count below 1 or a width below 1 leaves the rows unchanged.
 */
TOLVA_API void _rlDitherOneLine(uint8_t *current, uint8_t *next, const uint8_t *table,
                                int32_t width, int16_t count);
/**
 * A new bitmap of depth dstBits made from the source bitmap, which is left
 * alone. *table is the source's colour table handle on entry (0 for none) and
 * receives the new table made for the result, or 0 when none was made: a
 * median-cut table when a 24-bit picture goes down to 8 bits (or, for other
 * reductions to 5-7 bits, a median cut of the source table), a dithering
 * table when the result has fewer than 8 bits and fewer than the source. The
 * caller frees the new bitmap and the new table; the source table is not
 * freed. Reductions below 8 bits dither (rlDitherBitmap), all others convert
 * (rlConvertBitmapDepth).
 */
TOLVA_API HGLOBAL rlChangeColorResolution(HGLOBAL bits, int32_t width, int32_t height,
                                          int16_t srcBits, int16_t dstBits, HGLOBAL *table);
/**
 * A new zeroed bitmap of rlCalcNewSize(width, height, dstBits) bytes with
 * every pixel converted as rlSetPixel(rlGetPixel(...)) with the colour map of
 * the two tables (table handles may be 0; dstCount entries in dstTable):
 * indexed to indexed through the nearest-colour map, indexed to 24/32 bits
 * writes the source table's colours, 24/32 bits to indexed the nearest entry
 * of dstTable, 24 to 24 copies. The source is not changed or freed; the
 * caller frees the result. Rows past the end of the source block, and table
 * entries past the end of a table block, are not read (missing source entries
 * count as black).
 */
TOLVA_API HGLOBAL rlConvertBitmapDepth(HGLOBAL bits, int32_t width, int32_t height,
                                       int16_t srcBits, int16_t dstBits, HGLOBAL srcTable,
                                       HGLOBAL dstTable, int16_t dstCount);
/** In place: every 32-bit pixel's R, G, B become 255 minus themselves, K becomes 0. */
TOLVA_API void rlRGB4toCMYK(HGLOBAL bits, int32_t width, int32_t height);
/**
 * In place: 32-bit CMYK pixels become 3-byte RGB pixels (255 - max(C, K) ...)
 * packed from the start of the block with no row padding (width * 3 bytes a
 * row).
 */
TOLVA_API void rlCMYKtoRGB(HGLOBAL bits, int32_t width, int32_t height);
/** In place: 32-bit RGBA pixels become packed 3-byte RGB (alpha dropped, no row padding). */
TOLVA_API void rlALPHAtoRGB(HGLOBAL bits, int32_t width, int32_t height);
/**
 * rlShrinkBitmap and rlStretchBitmap (the same function): a new zeroed bitmap
 * of dstWidth x dstHeight at the same depth, drawn from the source by point
 * sampling and pixel replication (Stretch when dstHeight > srcHeight, else
 * Shrink). Returns the new handle (unlocked; the caller frees it), undrawn when
 * the source handle is 0 or its block is smaller than its rows; 0 for negative
 * sizes. The source is not freed. Zero sizes give an empty, undrawn result.
 */
TOLVA_API HGLOBAL rlShrinkBitmap(HGLOBAL bits, int16_t bitsPerPixel, int32_t srcWidth,
                                 int32_t srcHeight, int32_t dstWidth, int32_t dstHeight);
TOLVA_API HGLOBAL rlStretchBitmap(HGLOBAL bits, int16_t bitsPerPixel, int32_t srcWidth,
                                  int32_t srcHeight, int32_t dstWidth, int32_t dstHeight);
/**
 * rlFlipBitmap: mirrors the bitmap in place, vertically (rows exchanged from
 * the outside in) and/or horizontally, where pixel x is exchanged with pixel
 * width - x (pixel 0 with the position just after the row). Bytes past the end
 * of the block read as 0 and are not written. Returns bits; a handle that does
 * not lock, or whose block is smaller than its rows, comes back unflipped.
 */
TOLVA_API HGLOBAL rlFlipBitmap(HGLOBAL bits, int16_t bitsPerPixel, int32_t width,
                               int32_t height, int16_t horizontal, int16_t vertical);

/** The filter's built-in 256-colour table (768 bytes of red, green, blue). */
TOLVA_API extern const uint8_t ZUNLColorTable[768];
/* Median-cut colour reduction, step by step. Colour keys are 15-bit values
 * r5<<10 | g5<<5 | b5 (the top 5 bits of each channel). */

/** The reduction context made by InitColorLib (one movable block). */
typedef struct RlColorContext {
    HGLOBAL histogram;      /* 32768 saturating uint16_t counters, made on first use */
    HGLOBAL boxes;          /* N RlColorBox records */
    HGLOBAL status;         /* N uint16_t: 0xFFFF free, 0xFFFE final, else the slot itself */
    uint16_t distinct;      /* keys with a non-zero counter */
    uint16_t boxCount;      /* live boxes */
    uint16_t currentBox;    /* slot being split */
    uint16_t currentFirst;  /* its first list index */
    uint16_t currentLast;   /* its last list index */
    uint16_t median;        /* where it was split */
} RlColorContext;

/** One colour of the key list: a key and its (saturated) pixel count. */
typedef struct RlColorEntry {
    uint16_t key;
    uint16_t count;
} RlColorEntry;

/** A box of the key list; extents and means in 5-bit units. */
typedef struct RlColorBox {
    uint16_t first;   /* first list index */
    uint16_t last;    /* last list index, inclusive */
    uint32_t pixels;  /* sum of the counts */
    uint8_t redMin, redMax, greenMin, greenMax, blueMin, blueMax;
    uint8_t axis;     /* 0 red, 1 green, 2 blue: the longest extent, ties to red then green */
    uint8_t meanRed, meanGreen, meanBlue;  /* count-weighted, truncated */
} RlColorBox;

/** A new zeroed reduction context; free it with TermColorLib. */
TOLVA_API HGLOBAL InitColorLib(void);
/** Frees a context and its arrays: 0, or -1 when it will not lock; 0 for handle 0. */
TOLVA_API int32_t TermColorLib(HGLOBAL context);
/**
 * Counts the 24-bit rows at pixels (rows (width * 3 + 3) & ~3 bytes apart)
 * into the context's histogram. With flags bit 0 it then writes at most *count
 * triples to table and stores the number written through count; without it,
 * *count becomes 0 and the histogram keeps accumulating. Flags bit 1 keeps
 * the histogram afterwards. 0, or -1 for a missing context, pixels or count.
 */
TOLVA_API int32_t direct_indexed(const uint8_t *pixels, int32_t width, int32_t height,
                                 int16_t *count, int32_t flags, uint8_t *table, HGLOBAL context);
/** Recomputes a box (extents, pixel sum, axis, means) from list[first..last]. */
TOLVA_API void getCRectData(RlColorBox *box, const RlColorEntry *list, int32_t first,
                            int32_t last);
/** Sorts n entries ascending by one channel; the build also involves list[n]. */
TOLVA_API void HeapSort(RlColorEntry *list, int32_t axis, int32_t n);
/** Sifts list[root] down a max-heap whose last index is last. */
TOLVA_API void AdjustHeap(RlColorEntry *list, int32_t axis, int32_t root, int32_t last);
/** Exchanges two list entries. */
TOLVA_API void clrswap(RlColorEntry *a, RlColorEntry *b);
/** The list index at which a sorted box is cut (reads list[box->last + 1]). */
TOLVA_API int32_t find_median(const RlColorEntry *list, const RlColorBox *box);
/** Replaces the box in slot by its two halves in the lowest free slots; returns 1. */
TOLVA_API int32_t split(RlColorBox *boxes, int32_t slot, int32_t median, uint16_t *boxCount,
                        uint16_t *status, const RlColorEntry *list, int32_t n);
/** The splittable slot with the most pixels (the first on ties), 0 when none has any. */
TOLVA_API int32_t GetMaxHistSum(const RlColorBox *boxes, const uint16_t *status, int32_t n);

/**
 * Shrink: scales locked bitmap data into a locked destination of dstWidth x
 * dstHeight; destination row k takes source row trunc(k * srcHeight /
 * dstHeight) with that position kept in 16 bits (past row 32767 it wraps; a
 * wrapped position before row 0 leaves its destination row as it was). Rows
 * are scaled by StretchX when dstWidth > srcWidth, else by ShrinkX. Always 0;
 * sizes below 1 or null data draw nothing.
 */
TOLVA_API int32_t Shrink(const uint8_t *src, uint8_t *dst, int16_t bitsPerPixel, int32_t srcWidth,
                         int32_t srcHeight, int32_t dstWidth, int32_t dstHeight);
/**
 * Stretch: replicates rows from the bottom up, source row sy filling
 * trunc((srcHeight - sy) * r) - trunc((srcHeight - sy - 1) * r) rows, r =
 * dstHeight / srcHeight; rows are scaled as in Shrink. Always 0.
 */
TOLVA_API int32_t Stretch(const uint8_t *src, uint8_t *dst, int16_t bitsPerPixel,
                          int32_t srcWidth, int32_t srcHeight, int32_t dstWidth,
                          int32_t dstHeight);
/**
 * ShrinkX: point-samples `rows` consecutive rows: destination pixel k takes
 * source pixel trunc(k * srcWidth / dstWidth), the last one the last source
 * pixel. Always 0.
 */
TOLVA_API int32_t ShrinkX(const uint8_t *srcRow, uint8_t *dstRow, int16_t bitsPerPixel,
                          int32_t srcWidth, int32_t rows, int32_t dstWidth);
/**
 * StretchX: replicates pixels from the right, source pixel sx filling the next
 * trunc((srcWidth - sx) * r) - trunc((srcWidth - sx - 1) * r) positions
 * leftward, r = dstWidth / srcWidth, with 16-bit counters (at most 32767 rows,
 * and a source counter that starts negative for rows above 32768 pixels draws
 * nothing). Destination pixels no source reaches are left as they were.
 * Always 0.
 */
TOLVA_API int32_t StretchX(const uint8_t *srcRow, uint8_t *dstRow, int16_t bitsPerPixel,
                           int32_t srcWidth, int32_t rows, int32_t dstWidth);

/** The 8 greys of 1-bit dithering: 0, 255, 64, 128, 160, 192, 208, 224 (R, G, B triples). */
TOLVA_API extern const uint8_t MonoTable[24];
/** White, yellow, magenta, cyan, red, green, blue, black: appended to every reduced table. */
TOLVA_API extern const uint8_t must_have_colors[24];
/** Clamp table: BOUNDARY_CHK[128 + v] is v clamped to 0..255, for v in -128..383. */
TOLVA_API extern const uint8_t BOUNDARY_CHK[512];

#ifdef __cplusplus
}
#endif

#endif /* TOLVA_RASTER_H */

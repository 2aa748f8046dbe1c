/*
 * tolva/output.h - the picture output: the pipeline, the offscreen hooks, the GIF
 * writer and its spool, the LZW encoder.
 *
 * Exported from libtolva for programs that call these parts directly; a host
 * that only drives the filter needs tolva/tolva.h alone.
 */
#ifndef TOLVA_OUTPUT_H
#define TOLVA_OUTPUT_H

#include <tolva/tolva.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The offscreen callback: operation 0 query, 1 init, 2 terminate, 3 draw. */
#define TOLVA_OFFSCREEN_QUERY 0
#define TOLVA_OFFSCREEN_INIT 1
#define TOLVA_OFFSCREEN_TERMINATE 2
#define TOLVA_OFFSCREEN_DRAW 3
typedef intptr_t (*OffscreenCallback)(int32_t operation, void *record, intptr_t arg1,
                                      intptr_t arg2);

/** The query record filled by the offscreen callback's operation 0. */
typedef struct TolvaOffscreenQuery {
    double width;
    double height;
    int32_t resolution;
    int16_t value;        /* handed on to WriteCellBits */
} TolvaOffscreenQuery;

/** The offscreen record built by InitPlatformOffscreen. */
typedef struct TolvaOffscreen {
    void *hostContext;          /* what the host passed to OutputPicture */
    OffscreenCallback callback;
    int16_t colourCount;        /* entries in colourTable */
    uint8_t *colourTable;       /* the table BeginCellBitmap writes */
    int32_t width;              /* output width in pixels */
    int32_t bandRows;           /* requested band height */
    int16_t depth;              /* output bits per pixel */
    HGLOBAL privateBlock;       /* the export callback's own block */
    uint8_t flag;
} TolvaOffscreen;

TOLVA_API int32_t QueryCellFormat(double *width, double *height, int16_t *bitsPerPixel,
                                  int32_t *resolution, void *unused1, void *unused2);
TOLVA_API void RasterWriteCellData(HGLOBAL bitmap, int32_t width, int32_t height, int32_t scale,
                                   int16_t bitsPerPixel, int32_t colourModel);
TOLVA_API int32_t OutputPicture(HGLOBAL stream, void *hostContext, OffscreenCallback callback);
/*
 * The GIF writer. One image per file: BeginCellBitmap once, WriteCellBits once
 * per band (top band first) until the bands' rows add up to the height,
 * EndCellBitmap once, all on the same output stream, which must be writable,
 * seekable and readable (a segment steps back over the byte the previous one
 * left unfinished). The settings come from lpRaster: interlace 715,
 * transparency 719 with transparentColour, background 728 with
 * backgroundColour; a null lpRaster means none of them.
 */

/**
 * BeginCellBitmap: writes the GIF89a header, the global colour table (2^bits
 * entries from `palette`, none for 24 bits), a graphic control extension, the
 * image descriptor and the code-size byte 8, and creates the per-image state,
 * whose handle goes to *state (left unchanged if the state cannot be had).
 * With transparency set, the palette entry nearest to the transparent colour
 * is overwritten with it, in the caller's array, before the table is written,
 * and its index goes into the graphic control extension; with a background
 * colour set, the index of its nearest entry becomes the background index.
 * Both searches are get_nearest_rgb_index over the caller's array with the
 * table's entry count N (2^bits, or 0 at 24 bits), which always covers at
 * least 16 entries: with either colour set, `palette` must hold max(N, 16)
 * entries (48 bytes at least, also at 24 bits), and the index found, and the
 * entry overwritten, may lie past the N entries written. When interlacing,
 * opens the spool (see GifOpenSpoolFile). Always returns -1, also when a
 * header write failed: write failures show up later.
 */
TOLVA_API int32_t BeginCellBitmap(HGLOBAL stream, int32_t width, int32_t height,
                                  int16_t bitsPerPixel, uint8_t *palette, HGLOBAL *state);
/**
 * WriteCellBits: one band of `rows` rows of ceil(width * bits / 8) bytes each,
 * padded to 4 bytes, stored bottom row first in the movable block `band`.
 * Compresses them as one LZW segment (or appends them to the spool when an
 * interlaced image comes in several bands). The band's block serves as the
 * encoder's work buffer (a band smaller than 264 bytes gets a buffer of its
 * own): its contents are lost. Returns 0; 300 when `band` is 0 or the rows'
 * copy cannot be allocated; 303 when the terminator or a parked byte could
 * not be written to the stream. Rows past the end of the band's block are
 * taken as zeros rather than read.
 */
TOLVA_API int32_t WriteCellBits(HGLOBAL stream, HGLOBAL band, int32_t width, int32_t rows,
                                int16_t bitsPerPixel, int16_t unused, HGLOBAL state);
/**
 * EndCellBitmap: compresses a spooled interlaced image in interlace order,
 * deletes the spool, writes the trailer 0x3B and frees the state (the handle
 * is invalid afterwards). Returns 0, or 303 when the trailer could not be
 * written; nothing else is reported.
 */
TOLVA_API int32_t EndCellBitmap(HGLOBAL stream, HGLOBAL state);
/**
 * get_nearest_rgb_index: the palette entry nearest to (red, green, blue),
 * searching max(count, 16) entries, so `palette` must hold at least 16 entries
 * of red, green, blue. A grey target (components within 4 of each other) is
 * matched only against grey entries (three equal components), any other
 * target only against coloured entries; distance is the sum of squared
 * differences, the lowest index wins ties. 0 when every entry was skipped.
 */
TOLVA_API int16_t get_nearest_rgb_index(uint8_t red, uint8_t green, uint8_t blue,
                                        const uint8_t *palette, int32_t count);
/**
 * CompressAndWrite: one LZW segment of `count` 8-bit pixels onto the stream.
 * `work` is the caller's work buffer of at least 264 bytes; `first` starts the
 * code stream with a clear code; `last` ends it with the end code and the
 * 0x00 terminator; otherwise the unfinished byte is written bare and *carry
 * (0 before the first segment) holds its bit count for the next segment.
 * Returns 0, or 303 when the terminator or the bare byte could not be written
 * (failed sub-block writes are not reported).
 */
TOLVA_API int32_t CompressAndWrite(HGLOBAL stream, const uint8_t *pixels, uint8_t *work,
                                   int32_t count, int32_t first, int32_t last, uint32_t *carry);
/**
 * LZWCompression: the encoder of CompressAndWrite without the terminator and
 * the bare byte. Returns the number of bytes of its closing flush, which is
 * the index in `work` of the unfinished byte.
 */
TOLVA_API int32_t LZWCompression(HGLOBAL stream, const uint8_t *pixels, uint8_t *work,
                                 int32_t count, int32_t first, int32_t last, uint32_t *carry);
/**
 * LZWPutCode: ORs the `width`-bit code into `work` at bit *bitPosition, least
 * significant bit first, clears the two bytes after the four it may touch,
 * and advances *bitPosition by `width`.
 */
TOLVA_API void LZWPutCode(uint8_t *work, uint32_t *bitPosition, uint32_t code, int16_t width);
/**
 * LZWWriteSubBlocks: writes n bytes as data sub-blocks of at most 254 bytes.
 * Returns 0, or 303 at the first write that failed (the rest is not written).
 */
TOLVA_API int32_t LZWWriteSubBlocks(HGLOBAL stream, const uint8_t *bytes, uint32_t n);

/**
 * The per-image state of the GIF writer, in a movable zero-filled block
 * created by BeginCellBitmap and freed by EndCellBitmap. The block is
 * TOLVA_CELL_BITMAP_STATE_SIZE bytes, or the struct's size where pointers are
 * wider than 32 bits.
 */
typedef struct CellBitmapState {
    uint32_t calls;          /* WriteCellBits calls so far; 0 marks the first band */
    int32_t height;          /* rows of the image */
    int32_t rowsToCome;      /* rows not yet handed over; < 1 marks the last band */
    uint32_t bytesPerRow;    /* ceil(width * bits / 8) */
    uint32_t carry;          /* LZW bit carry between segments, 0..7 */
    void *spoolData;         /* current address of the memory spool's block */
    HGLOBAL spoolBlock;      /* the memory spool's block as first allocated; 0 if none */
    char spoolName[256];     /* the spool file's name; empty for a memory spool */
    HGLOBAL spoolStream;     /* the open spool; 0 when none */
} CellBitmapState;

#define TOLVA_CELL_BITMAP_STATE_SIZE 288
TOLVA_STATIC_ASSERT(offsetof(CellBitmapState, carry) == 16, "CellBitmapState.carry");
TOLVA_STATIC_ASSERT(offsetof(CellBitmapState, spoolName) + 256 <= offsetof(CellBitmapState, spoolStream),
                    "CellBitmapState.spoolName holds 256 characters");

/**
 * GifOpenSpoolFile: opens the spool of an interlaced image of `pixels`
 * pixels: a temporary file in /tmp (its name kept in state->spoolName) for
 * more than 349999 pixels, else a memory stream over a block that
 * state->spoolBlock and state->spoolData keep. Returns the stream, or 0 after
 * pushing 303 (stream not opened) or 21 (block not allocated) on the error
 * stack.
 */
TOLVA_API HGLOBAL GifOpenSpoolFile(CellBitmapState *state, uint32_t pixels);
/** GifWriteSpoolFile: zunWrite of n bytes onto the spool; zunWrite's result. */
TOLVA_API int32_t GifWriteSpoolFile(HGLOBAL spool, const uint8_t *bytes, int32_t n);
/**
 * GifCloseSpoolFile: closes state->spoolStream and deletes its file (a memory
 * spool's block stays, for EndCellBitmap to free). zunCloseandDelete's result.
 */
TOLVA_API int32_t GifCloseSpoolFile(CellBitmapState *state);
/**
 * GifInterlaceandWrite: reads the spooled image back in the four interlace
 * passes and compresses it as segments of up to 65536 bytes. Returns the
 * result of the last CompressAndWrite (0 when nothing was compressed).
 */
TOLVA_API int32_t GifInterlaceandWrite(CellBitmapState *state, HGLOBAL stream);

/*
 * The output pipeline (declared above):
 *
 * QueryCellFormat(width, height, bitsPerPixel, resolution, -, -): *width and
 * *height give the picture's size (inches when *resolution is non-zero on
 * entry, else any unit: only their ratio counts) and receive the output size
 * in pixels; *resolution receives the horizontal resolution used. The current
 * Setup block's size and resolution choices decide (602/309: the picture's
 * own; 600/307: the display's), and its saved size and resolutions are
 * updated on the way. *bitsPerPixel is always 8. Returns 0, or
 * TOLVA_ERR_NO_SETUP (nothing changed) when there is no Setup block.
 *
 * RasterWriteCellData(bitmap, width, height, scale, bitsPerPixel, model):
 * writes the whole GIF of one bitmap (rows bottom-up, padded to 4 bytes;
 * model 1 RGB, 2 CMYK, 3 RGB with alpha) on lpEMData's output stream. With a
 * non-zero scale (dots per inch) the target is the device window's extent at
 * that resolution, else the bitmap's own size. Reports progress 20, 40, 60
 * and at least 50 through the device's status record; a "stop" answer ends it
 * before anything is written. CMYK and alpha bitmaps are rewritten in place.
 * The caller keeps and frees the bitmap (its memory may be used as scratch).
 * No result: failures are not passed on.
 *
 * OutputPicture(stream, hostContext, callback): asks the offscreen callback
 * for the picture (query, init, one draw per band, terminate) and writes it
 * as one GIF image, top band first, at the size QueryCellFormat decides and
 * an even height. Progress per band goes through UpdateStatus. Returns 0;
 * TOLVA_ERR_NO_PICTURE when the callback offers no band (nothing written);
 * 300 or 303 from the writer, or TOLVA_ERR_STOPPED, which end the image
 * without its trailer.
 */

/* Platform offscreen hooks: how OutputPicture talks to its callback. */

/** QueryPlatformOffscreen: callback(0, hostContext, query, 0). */
TOLVA_API void QueryPlatformOffscreen(TolvaOffscreenQuery *query, void *hostContext,
                                      OffscreenCallback callback);
/**
 * InitPlatformOffscreen: builds the offscreen record and calls
 * callback(1, record, information, 0), information being five intptr_t words
 * {width, band rows, depth, colour count, colour table}. *bandRows is the
 * band height asked for and receives the callback's answer (0 when there is
 * no record, no callback or no usable answer). The callback may replace the
 * record's colour table and count. Returns the record (null when it could
 * not be allocated); TermPlatformOffscreen frees it.
 */
TOLVA_API TolvaOffscreen *InitPlatformOffscreen(int32_t width, int32_t *bandRows, int16_t depth,
                                                int16_t colourCount, uint8_t *colourTable,
                                                void *hostContext, OffscreenCallback callback,
                                                uint8_t flag);
/** DrawPlatformOffscreen: the bitmap of rows lowerRow..upperRow, from callback(3, ...); 0 when none. */
TOLVA_API HGLOBAL DrawPlatformOffscreen(TolvaOffscreen *record, int32_t lowerRow, int32_t upperRow);
/** TermPlatformOffscreen: callback(2, record, 0, 0), then frees the record; null does nothing. */
TOLVA_API void TermPlatformOffscreen(TolvaOffscreen *record);

/*
 * The filter's own offscreen callbacks. DrawExportCellData serves the bitmap
 * of a TolvaPicture host context as one band: query answers its size (in
 * inches when it has a resolution) and the value 1; init sets the record's
 * colour table (the picture's palette, or a median-cut or dithering table
 * for deeper pictures) and answers the band rows asked for, or 0 with 303
 * pushed when its private block cannot be had; draw shrinks, changes the
 * depth and stretches the bitmap to the record's size and returns it (the
 * source bitmap itself when nothing had to change); terminate frees what it
 * made and answers 1. DrawPlatformMetafile offers no band on this platform:
 * its query reads the metafile descriptor's page bounds and answers 4, init
 * answers 0.
 */
TOLVA_API intptr_t DrawExportCellData(int32_t operation, void *record, intptr_t arg1,
                                      intptr_t arg2);
TOLVA_API intptr_t DrawPlatformMetafile(int32_t operation, void *record, intptr_t arg1,
                                        intptr_t arg2);

/*
 * Platform metafile hooks: stubs, as this platform has no metafiles.
 * InitPlatformMetafileFilter zeroes the words its last four arguments point
 * at (each may be null) and returns a; the others return 0.
 */
TOLVA_API intptr_t InitPlatformMetafileFilter(intptr_t a, intptr_t b, intptr_t *statusRecord,
                                              intptr_t *metafile, HGLOBAL *setup,
                                              intptr_t *metafileAux, intptr_t *callback);
TOLVA_API int32_t TermPlatformMetafileFilter(intptr_t a);
TOLVA_API intptr_t GetMetaFileHandle(intptr_t a, intptr_t b);
TOLVA_API int32_t DeleteMetaFileHandle(intptr_t a);

#ifdef __cplusplus
}
#endif

#endif /* TOLVA_OUTPUT_H */

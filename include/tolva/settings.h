/*
 * tolva/settings.h - the settings internals behind the Setup block: profile
 * loading, limits, raster geometry, display information, the string table.
 *
 * Exported from libtolva for programs that call these parts directly; a host
 * that only drives the filter needs tolva/tolva.h alone.
 */
#ifndef TOLVA_SETTINGS_H
#define TOLVA_SETTINGS_H

#include <tolva/tolva.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Results of LimitCheck: the last value it had to repair. */
#define TOLVA_LIMIT_RESOLUTION (-62) /* a resolution was outside 32..400 and is now 96 */
#define TOLVA_LIMIT_SIZE (-63)       /* a width or height was outside 0.03125..22.0 inches */

/**
 * GetRasterInfo: makes the block current (lpRaster), applies the size and
 * resolution choices to the picture described by input[7] (display dpi,
 * unused, given dpi, width and height in dots at the given dpi, display width
 * and height in pixels), which may change the block's saved size and
 * resolutions, and writes {pixel width, pixel height, 8} to output[3].
 * Nothing is written when there is no block or a pointer is null.
 */
TOLVA_API void GetRasterInfo(HGLOBAL setup, const int32_t *input, int32_t *output);
/**
 * RasterAdjustAspect: fits a picture of width x height (any unit) into the
 * box of the current Setup block's saved size at its resolutions, keeping
 * the picture's aspect; sizeOut receives the fitted width and height in
 * inches. Always 0.
 */
TOLVA_API int32_t RasterAdjustAspect(double sizeOut[2], double width, double height);
/** ScaleImageSize: caps the larger extent at 22 inches keeping the aspect; always 0. */
TOLVA_API int32_t ScaleImageSize(double *width, double *height);
/** UseDefaultSettings: writes the defaults (the line mode is left alone); always 0. */
TOLVA_API int32_t UseDefaultSettings(SetupBlock *block);
/**
 * LoadProfile: reads the settings of lpRaster's section from its profile
 * path. Returns 0 when the section has no "Driver" value (the block then
 * keeps what it had), else 1 after LimitCheck.
 */
TOLVA_API int32_t LoadProfile(intptr_t unused);
/** LimitCheck: repairs lpRaster's out-of-range values; 0 or TOLVA_LIMIT_*. */
TOLVA_API int32_t LimitCheck(void);
/**
 * LoadString: copies the text of a gStringTable identifier (compared in its
 * low 16 bits), or "Not Defined" for an unknown one, into buffer: the text
 * and its terminator when size exceeds its length, else exactly size bytes
 * without terminator. Returns the text's length, 0 for an unknown identifier.
 */
TOLVA_API int32_t LoadString(intptr_t module, int32_t identifier, char *buffer, int32_t size);
/** SaveProfile: does nothing; always 1. */
TOLVA_API int32_t SaveProfile(void);
/**
 * BackupProfile: moves the profile path into thirdName and puts a fresh
 * temporary file name in its place; always 1.
 */
TOLVA_API int32_t BackupProfile(SetupBlock *block);
/** LoadProfileList: does nothing on this platform; always 0. */
TOLVA_API int32_t LoadProfileList(int32_t first, int32_t second, int16_t value);

/** SetDisplayInfo: the host's display size in pixels and resolution; zeros keep the defaults. */
TOLVA_API void SetDisplayInfo(double width, double height, int16_t xDpi, int16_t yDpi);
/** SetPrinterInfo: the same for the printer. */
TOLVA_API void SetPrinterInfo(double width, double height, int16_t xDpi, int16_t yDpi);
/**
 * GetDisplayInfo: the display's width and height in inches and its
 * resolution, into the non-null outputs. From the environment variable
 * DISPLAYINFO ("width?height?xdpi?ydpi", one separator character of any kind;
 * a missing number is 0) when it is set and not empty, else from the values
 * set by SetDisplayInfo, each zero one replaced by the built-in 1280 x 1078
 * pixels at 96 x 96 dpi. Always 0.
 */
TOLVA_API int32_t GetDisplayInfo(double *width, double *height, int16_t *xDpi, int16_t *yDpi);
/** GetPrinterInfo: the values of SetPrinterInfo (zeros before it) into the non-null outputs; always 0. */
TOLVA_API int32_t GetPrinterInfo(double *width, double *height, int16_t *xDpi, int16_t *yDpi);
/** GetDisplayColorInfo: always 0. */
TOLVA_API int32_t GetDisplayColorInfo(intptr_t unused);
/** moveptr: advances *text past a run of decimal digits and one more character unless at the end. */
TOLVA_API void moveptr(const char **text);

/** One row of the string table: an identifier and its text. */
typedef struct TolvaStringRow {
    int16_t id;
    const char *text;
} TolvaStringRow;

#define TOLVA_STRING_ROWS 23
/** The key names of the profile; the last row (-1, "Not Defined") is the fallback. */
TOLVA_API extern const TolvaStringRow gStringTable[TOLVA_STRING_ROWS];

#ifdef __cplusplus
}
#endif

#endif /* TOLVA_SETTINGS_H */

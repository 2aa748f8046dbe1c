/*
 * tolva.h - the public interface of libtolva, a GIF export filter.
 *
 * A host loads libtolva.so at run time, finds its entries by name (or through
 * the name table that fltLoadPointers hands out), creates a Setup block with
 * CreateSetup, initialises the driver through RASTER_dd_entry32 (function 0),
 * sends opcodes (function 2) and terminates it (function -1). The picture
 * arrives as cell arrays and leaves as a GIF89a file.
 *
 * Layout rules every host relies on:
 *  - Values inside host blocks are in native byte order. Bytes in files follow
 *    the stream's data format (little-endian by default, which is what GIF needs).
 *  - A memory handle or stream handle is an HGLOBAL, an unsigned integer as wide
 *    as a pointer; 0 means none.
 *  - Blocks described by word index (the init blocks, the host status record,
 *    the ExportCellData argument block, the stream descriptor, the
 *    fltLoadPointers record) are arrays of intptr_t: word k sits at byte
 *    k * sizeof(intptr_t).
 *  - Opcode parameter blocks keep their byte positions: 32-bit words at 4-byte
 *    positions, doubles at their byte offsets; the one address among them (the
 *    cell array's data address at byte 102) is pointer-sized and unaligned.
 *  - Records the host can see (EMData, SetupBlock, CommonBlock, the picture
 *    descriptor) are declared below with natural C alignment.
 *
 * This header declares what a host uses. The rest of what the library
 * exports is declared by one header per part, each of which includes this
 * one: tolva/host.h (memory handles, string helpers), tolva/profile.h
 * (profile files), tolva/stream.h (streams), tolva/raster.h (the rl raster
 * library), tolva/settings.h (settings internals), tolva/output.h (the
 * picture pipeline and GIF writer) and tolva/driver.h (the driver's
 * internals and opcode handlers). Everything they declare with TOLVA_API has
 * C linkage and is exported from the shared object; nothing else is.
 */
#ifndef TOLVA_TOLVA_H
#define TOLVA_TOLVA_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__) || defined(__clang__)
#define TOLVA_API __attribute__((visibility("default")))
#else
#define TOLVA_API
#endif

#ifdef __cplusplus
#define TOLVA_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
extern "C" {
#else
#define TOLVA_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif


/** A movable memory handle or a stream handle; 0 means none. */
typedef uintptr_t HGLOBAL;

/** The filter's version as answered by every version query: 2.0.5. */
#define TOLVA_FILTER_VERSION 0x02000005u

/* Result and error codes of the host protocol. */
#define TOLVA_OK 0
#define TOLVA_ERR_WORK_BUFFER 21   /* a work buffer could not be allocated */
#define TOLVA_ERR_NO_SETUP 22      /* the settings block handed to init is missing */
#define TOLVA_ERR_NO_PICTURE 27    /* no picture could be obtained */
#define TOLVA_ERR_MEMORY 300       /* memory could not be allocated, or the export could not run */
#define TOLVA_ERR_STREAM 303       /* an output stream could not be opened, written or closed */
#define TOLVA_ERR_STOPPED 901      /* the host's status function asked to stop */

/* Device states (one bit each, so that a dispatch mask can name several). */
#define TOLVA_STATE_INITIALISED 1
#define TOLVA_STATE_OPEN 2
#define TOLVA_STATE_PICTURE 4
#define TOLVA_STATE_BODY 8
#define TOLVA_STATE_ENDED 16

/** The host's status function: (context, a, b, c, d, e, f); 0 means go on. */
typedef int32_t (*StatusFunction)(intptr_t context, intptr_t a, intptr_t b, intptr_t c,
                                  intptr_t d, intptr_t e, intptr_t f);

/** A host I/O procedure behind a stream (see zunOpen). */
typedef intptr_t (*StreamIOProc)(intptr_t instance, int32_t operation, intptr_t a, intptr_t b);

/* Memory handles the filter hands to a host (the Setup block, a memory
 * output block): the rest of the handle functions are in tolva/host.h. */
/** GlobalLock: the block's data address; 0 for handle 0. No lock count. */
TOLVA_API void *GlobalLock(HGLOBAL h);
/** GlobalUnlock: does nothing; always 0. */
TOLVA_API int32_t GlobalUnlock(HGLOBAL h);
/** GlobalFree: releases the block; always 0. */
TOLVA_API int32_t GlobalFree(HGLOBAL h);

/**
 * Debug level of the raster library, 0 at load; only the host changes it.
 * Non-zero prints progress and tables, 1 and 2 add one "." per scan line,
 * above 3 rlSetPixel prints every pixel's coordinates.
 */
TOLVA_API extern int16_t _debug_color_res;

/* ------------------------------------------------------------------------ */
/* Settings: the Setup block                                                  */
/* ------------------------------------------------------------------------ */

/* Choices stored in the Setup block. */
#define TOLVA_COLOUR_NORMAL 103
#define TOLVA_COLOUR_INVERT 104
#define TOLVA_COLOUR_INVERT_GREY 105
#define TOLVA_COLOUR_GREY 106
#define TOLVA_COLOUR_INVERT_LUMINANCE 107
#define TOLVA_SIZE_DISPLAY 600   /* size taken from the display */
#define TOLVA_SIZE_GIVEN 602     /* size given by the picture */
#define TOLVA_RESOLUTION_DISPLAY 307
#define TOLVA_RESOLUTION_GIVEN 309
#define TOLVA_INTERLACE_ON 715
#define TOLVA_TRANSPARENCY_ON 719
#define TOLVA_BACKGROUND_ON 728

/**
 * The Setup block: the filter's settings for one use, 2128 bytes, created by
 * CreateSetup and owned by the host. Text fields are zero-terminated.
 */
typedef struct SetupBlock {
    char hostArea[144];          /* the host's own; not used by the filter */
    char sectionName[144];       /* profile section holding the settings */
    char profilePath[144];       /* profile file name, then its full path */
    char thirdName[144];         /* saved profile path while a backup is in use */
    char driverName[16];         /* value of the "Driver" key (13 bytes used) */
    uint8_t reserved[12];        /* EditSetup stores its int32_t value at bytes 4-7 */
    int32_t colourMode;          /* 103..107 */
    int32_t secondMode;          /* zeroed by the defaults */
    intptr_t outputDevice;       /* non-zero: a host I/O procedure receives the output */
    uint8_t backgroundColour[3]; /* red, green, blue; used when backgroundChoice is 728 */
    int32_t lineMode;            /* "Line Mode" key, 119 by default */
    int32_t sizeMode;            /* 600..603 */
    int32_t resolutionMode;      /* 307..310 */
    int16_t xResolution;         /* dots per inch, 32..400 */
    int16_t yResolution;         /* dots per inch, 32..400 */
    double width;                /* picture width in inches, 0.03125..22.0 */
    double height;               /* picture height in inches, 0.03125..22.0 */
    int32_t interlace;           /* 715: write the GIF interlaced */
    int32_t transparency;        /* 719: transparentColour is transparent */
    uint8_t transparentColour[3];
    int32_t backgroundChoice;    /* 728: backgroundColour sets the background index */
    /* Fields of the export variant (initdvr, termdvr, ExportCellData). */
    int32_t exportWord;          /* the word the property callback's code 5 points at */
    char fileName[144];          /* output file name of the export variant */
    intptr_t *statusRecord;      /* the host status record; progress goes through it */
    HGLOBAL outputStream;        /* stream of the export variant */
    intptr_t statusValue;        /* word 4 of the host status record */
    intptr_t hookResult;         /* what the platform metafile hook returned */
    intptr_t metafile;           /* metafile word (0 on this platform) */
    intptr_t metafileAux;        /* second metafile word (0 on this platform) */
    double pageCoordinates[4];   /* page bounds handed to the metafile road */
    int32_t pageResolution;      /* resolution of the page bounds */
    HGLOBAL exportMemoryBlock;   /* 1-byte work block of an export memory stream */
    void *exportMemoryData;      /* its locked address, followed by the memory stream */
    intptr_t hostArgument;       /* the seventh word of ExportCellData's argument block */
} SetupBlock;

#define TOLVA_SETUP_BLOCK_SIZE 2128
#define TOLVA_SETUP_NAME_SIZE 144 /* bytes of each of the three names, terminator included */
TOLVA_STATIC_ASSERT(sizeof(SetupBlock) <= TOLVA_SETUP_BLOCK_SIZE, "SetupBlock fits its 2128 bytes");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, sectionName) == 144, "SetupBlock.sectionName");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, profilePath) == 288, "SetupBlock.profilePath");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, thirdName) == 432, "SetupBlock.thirdName");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, driverName) == 576, "SetupBlock.driverName");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, reserved) == 592, "SetupBlock.reserved");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, colourMode) == 604, "SetupBlock.colourMode");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, outputDevice) % sizeof(intptr_t) == 0,
                    "SetupBlock.outputDevice is a naturally aligned pointer-sized word");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, width) % 8 == 0, "SetupBlock.width is aligned");

/* Codes of xEscapeSetup. */
#define TOLVA_ESCAPE_COLOUR_CLASS 1         /* int32 colour class 101..105 in; size 4 */
#define TOLVA_ESCAPE_X_RESOLUTION 11        /* int32 dots per inch 32..400 in; size 4 */
#define TOLVA_ESCAPE_Y_RESOLUTION 12        /* the same for Y */
#define TOLVA_ESCAPE_WIDTH 13               /* double inches 0.03125..22.0 in; size 8 */
#define TOLVA_ESCAPE_HEIGHT 14              /* the same for the height */
#define TOLVA_ESCAPE_QUERY_RESOLUTION 16    /* two int32 out: X, Y, or 0, 0 in mode 309 */
#define TOLVA_ESCAPE_QUERY_SIZE 17          /* two doubles out: width, height, or 0, 0 in mode 602 */
#define TOLVA_ESCAPE_RESOLUTION_MODE 18     /* selector 0..3 gives mode 307..310 */
#define TOLVA_ESCAPE_SIZE_MODE 19           /* selector 0..3 gives mode 600..603 */
#define TOLVA_ESCAPE_RASTER_INFO 56         /* GetRasterInfo(setup, input, output) */
#define TOLVA_ESCAPE_QUERY_COLOUR_CLASS 57  /* int32 colour class out; size 4 */
#define TOLVA_ESCAPE_OUTPUT_DEVICE 81       /* the input pointer itself becomes outputDevice; size 4 */

/**
 * CreateSetup: a new zero-filled Setup block, locked into lpRaster (and its
 * handle in hRaster), filled from the profile. The profile is profileName
 * when that is non-empty, else the module file named in export_szDLLName up
 * to its first "." with ".ini" appended, looked for through
 * GetProfileDirectory. When no profile is found the block gets the defaults
 * (UseDefaultSettings) and an empty profile path; otherwise the section is
 * sectionName, or when that is empty the "~Mode" key of the section "TOLVA",
 * and LoadProfile reads it. Upper-cases the text szFilter points at.
 * Returns the handle, which the host frees with DestroySetup, or 0.
 */
TOLVA_API HGLOBAL CreateSetup(intptr_t unused1, const char *profileName, const char *sectionName,
                              intptr_t unused2);
/** EditSetup: stores value in the reserved field's second word; 0, or -1 when the handle does not lock. */
TOLVA_API int32_t EditSetup(HGLOBAL setup, int32_t value);
/** DestroySetup: frees the block and clears lpRaster; 0, or 1 when the handle does not lock. */
TOLVA_API int32_t DestroySetup(HGLOBAL setup);
/**
 * xEscapeSetup: reads or changes one setting (TOLVA_ESCAPE_*). For the codes
 * that take a size, sizeOrSelector must be that size; codes 18 and 19 take a
 * selector. With save non-zero a change of codes 1, 11, 12, 13, 14 is written
 * at once to the block's profile section and path. Returns 1 when done, -1
 * when refused (handle 0, wrong size, value out of range, a needed pointer
 * null; nothing is stored or saved), 0 for a code that is not handled. Code
 * 57 with a wrong size returns 1 and writes nothing. A failed profile write
 * is not reported.
 */
TOLVA_API int32_t xEscapeSetup(HGLOBAL setup, int32_t code, int32_t sizeOrSelector, void *input,
                               void *output, int32_t save);
/**
 * Picture descriptor: what the -6 drawing primitive hands to OutputPicture,
 * and both the cell bitmap descriptor and the picture information of
 * ExportCellData.
 */
typedef struct TolvaPicture {
    int16_t depth;        /* bits per pixel */
    int16_t width;        /* pixels */
    int16_t height;       /* rows */
    int16_t resolution;   /* dots per inch, 0 when not given */
    double widthValue;    /* width as a double (pixels, or inches after a query) */
    double heightValue;   /* height as a double */
    HGLOBAL palette;      /* colour table of 2^depth RGB triples; 0 for 24 bits and more */
    HGLOBAL bitmap;       /* rows bottom-up, padded to 4 bytes */
} TolvaPicture;

/*
 * ExportCellData(fileName, pictureInformation, cellDescriptor, arguments):
 * writes the bitmap described by the TolvaPicture cellDescriptor as a GIF.
 * arguments[2] is the Setup block handle (it becomes lpRaster/hRaster),
 * arguments[6] is kept in its hostArgument. The output goes to the Setup
 * block's output device when one is set, else to fileName when it is not
 * empty, else to a memory stream whose block the Setup block's
 * exportMemoryBlock/exportMemoryData hold afterwards (the GIF followed by
 * one 0xFF byte; the host frees the block with GlobalFree). The descriptor is
 * copied into *pictureInformation (which may be the same record); the source
 * bitmap may be used as scratch and stays the host's. Also sets the display
 * information to the picture's size and resolution. Returns 0 (also when the
 * export itself failed: see the error stack), TOLVA_ERR_STREAM when no stream
 * could be opened, TOLVA_ERR_NO_SETUP when arguments is null or its handle
 * does not lock, TOLVA_ERR_MEMORY when a descriptor is null.
 */
TOLVA_API int32_t ExportCellData(const char *fileName, void *pictureInformation,
                                 void *cellDescriptor, intptr_t *hostArguments);

/* ------------------------------------------------------------------------ */
/* Driver                                                                    */
/* ------------------------------------------------------------------------ */

/** One error record of the error stack, as it is copied into the reply buffer. */
typedef struct TolvaErrorRecord {
    int32_t opcode;
    int16_t code;
    int16_t padding;
} TolvaErrorRecord;

/**
 * EMData: the raster device's state, 1224 bytes, allocated at init and freed
 * at term. Exported through lpEMData so that a host can read the error stack
 * and set its capacity and current opcode.
 */
typedef struct EMData {
    HGLOBAL outputStream;           /* opened by the open-device opcode */
    HGLOBAL pictureBitmap;          /* rows of the picture being collected */
    int32_t accumulating;           /* 1 between drawing primitives -5 and -6 */
    int32_t currentRow;             /* next picture row to fill */
    uint8_t colourTable[768];       /* 256 red, green, blue entries */
    uint8_t backgroundColour[3];
    int32_t lastErrorOpcode;
    int16_t result;                 /* error code of the current call */
    int32_t errorCapacity;          /* stays 0 unless the host sets it (at most 10) */
    int32_t errorCount;
    int32_t lostErrors;             /* pushes that overwrote the top entry */
    TolvaErrorRecord firstError;    /* directly in front of errors[0] */
    TolvaErrorRecord errors[10];
    double deviceWindow[6];         /* x1, y1, z1, x2, y2, z2 */
    double deviceViewport[6];       /* slots 0, 1, 3, 4 used */
    int32_t deviceState;            /* TOLVA_STATE_* */
    int32_t currentOpcode;          /* stamped on pushed errors; the host may set it */
    uint32_t replyPosition;         /* bytes already written into the reply buffer */
    uint32_t replySize;
    HGLOBAL replyHandle;
    uint8_t *replyBuffer;
    char fileName[144];             /* empty: the output goes to a memory stream */
    int32_t pictureWidth;
    int32_t pictureHeight;
    int32_t pictureDepth;
    intptr_t *statusRecord;         /* the host status record, may be null */
    int32_t colourConversionMode;   /* 0..4, from the Setup block's colour mode */
    HGLOBAL setup;                  /* the Setup block handle from the init block */
    int32_t resolution;             /* dots per inch from the viewport scaling mode */
    int16_t cellFlag;
} EMData;

#define TOLVA_EMDATA_SIZE 1224
TOLVA_STATIC_ASSERT(sizeof(EMData) <= TOLVA_EMDATA_SIZE, "EMData fits its 1224 bytes");
TOLVA_STATIC_ASSERT(offsetof(EMData, errors) ==
                        offsetof(EMData, firstError) + sizeof(TolvaErrorRecord),
                    "the first error record lies directly in front of the entries");
#if UINTPTR_MAX == 0xFFFFFFFFFFFFFFFFu
/* Where a 64-bit host finds the fields it reads and writes. */
TOLVA_STATIC_ASSERT(offsetof(EMData, result) == 800, "EMData.result");
TOLVA_STATIC_ASSERT(offsetof(EMData, errorCapacity) == 804, "EMData.errorCapacity");
TOLVA_STATIC_ASSERT(offsetof(EMData, firstError) == 816, "EMData.firstError");
TOLVA_STATIC_ASSERT(offsetof(EMData, deviceWindow) == 904, "EMData.deviceWindow");
TOLVA_STATIC_ASSERT(offsetof(EMData, deviceState) == 1000, "EMData.deviceState");
TOLVA_STATIC_ASSERT(offsetof(EMData, currentOpcode) == 1004, "EMData.currentOpcode");
TOLVA_STATIC_ASSERT(offsetof(EMData, replyPosition) == 1008, "EMData.replyPosition");
TOLVA_STATIC_ASSERT(offsetof(EMData, replyBuffer) == 1024, "EMData.replyBuffer");
TOLVA_STATIC_ASSERT(offsetof(EMData, fileName) == 1032, "EMData.fileName");
TOLVA_STATIC_ASSERT(offsetof(EMData, statusRecord) == 1192, "EMData.statusRecord");
TOLVA_STATIC_ASSERT(offsetof(EMData, cellFlag) == 1220, "EMData.cellFlag");
#endif

/**
 * The Common block of the export variant: the host's; the filter only reads
 * and writes these four fields through lpCommon, and does nothing while
 * lpCommon is null.
 */
typedef struct CommonBlock {
    int32_t deviceState;
    int16_t result;
    intptr_t *statusRecord;
    int32_t statusValue;
} CommonBlock;

/* Words of the raster variant's init parameter block (intptr_t each). */
#define TOLVA_INIT_FILE_NAME 3
#define TOLVA_INIT_REPLY_SIZE 9
#define TOLVA_INIT_REPLY_BUFFER 10
#define TOLVA_INIT_SETUP 13
#define TOLVA_INIT_STATUS_RECORD 14
#define TOLVA_INIT_CAPABILITIES 15
#define TOLVA_INIT_WORDS 16

/* Words of the host status record (intptr_t each). */
#define TOLVA_STATUS_CONTEXT 1
#define TOLVA_STATUS_FUNCTION 2
#define TOLVA_STATUS_WORDS 13

/*
 * Entry protocol. RASTER_dd_entry and dd_entry: function -2 writes the 4-byte
 * version TOLVA_FILTER_VERSION to out, -3 writes the address of the matching
 * 32-bit entry (pointer-sized) to out; anything else does nothing. Both
 * always return 0.
 *
 * RASTER_dd_entry32 (raster device) and dd_entry32 (export filter), by func:
 *   0  init: RASTER_initdvr / initdvr with block (the init parameter block).
 *      Skipped (result 0) when the host set hCommon and the raster device
 *      is not in state -1 / the Common block is not in state 1.
 *   2  call: block is an opcode parameter block. The result word is zeroed,
 *      and while the device state is above 0 the opcode's handler runs
 *      (getfunc); the result is the result word, that is the last error
 *      pushed during the call, or 0. Before init nothing runs and the result
 *      is 0; dd_entry32 does nothing and returns 0 while lpCommon is null.
 *  -1  term: RASTER_termdvr() / termdvr(0).
 *  -2  writes the 4-byte version at block and returns 4.
 *  other codes (1 included) return 0.
 */
TOLVA_API int32_t RASTER_dd_entry(int16_t func, void *out, void *arg);
TOLVA_API int32_t dd_entry(int16_t func, void *out, void *arg);
TOLVA_API int32_t RASTER_dd_entry32(intptr_t unused, int16_t func, void *block);
TOLVA_API int32_t dd_entry32(intptr_t unused, int16_t func, void *block);
/** ZUNGetFilterVersion: 0x02000005, the version every query answers. */
TOLVA_API uint32_t ZUNGetFilterVersion(void);
/**
 * fltLoadPointers: stores the address of the filter's name table (9
 * TolvaNameEntry rows) in record[2] and the 16-bit row count 9 in the first
 * two bytes of record[1]; the rest of the record is left alone.
 */
TOLVA_API void fltLoadPointers(intptr_t *record);
/*
 * Exported data. FilterVersion 1 and FilterID 19 identify the filter;
 * szFilter points at the module name; export_szDLLName (the name table's
 * "szDLLName") is the host's to fill. hDLLModule, hAppAnchorBlock, hCommon
 * and lpCommon (a CommonBlock) are set only by the host. hEMData/lpEMData
 * hold EMData from init to term; lpSetup is the Setup block as the raster
 * device's init locked it, hRaster/lpRaster the settings block of the
 * export filter and of the setup functions. GDPSupport[1..7] answer
 * InqGDPSupport; the filter never writes them.
 */
TOLVA_API extern uint16_t FilterVersion;
TOLVA_API extern uint16_t FilterID;
TOLVA_API extern char *szFilter;
TOLVA_API extern char export_szDLLName[260];
TOLVA_API extern uintptr_t hDLLModule;
TOLVA_API extern uintptr_t hAppAnchorBlock;
TOLVA_API extern HGLOBAL hCommon;
TOLVA_API extern HGLOBAL hSetup;
TOLVA_API extern HGLOBAL hRaster;
TOLVA_API extern HGLOBAL hEMData;
TOLVA_API extern void *lpCommon;
TOLVA_API extern SetupBlock *lpSetup;
TOLVA_API extern SetupBlock *lpRaster;
TOLVA_API extern EMData *lpEMData;
TOLVA_API extern int32_t GDPSupport[8];

/**
 * One row of the exported name table that fltLoadPointers hands out: the
 * exported name, its ordinal (1001..1010, 1007 absent) and the address of the
 * function or data object. The table is the filter's own, read-only memory.
 */
typedef struct TolvaNameEntry {
    const char *name;
    int16_t ordinal;
    const void *target;
} TolvaNameEntry;

#define TOLVA_NAME_TABLE_ROWS 9

/* Words of the export variant's init parameter block (intptr_t each). */
#define TOLVA_EXPORT_INIT_HOOK_A 1      /* handed to InitPlatformMetafileFilter */
#define TOLVA_EXPORT_INIT_FILE_NAME 3   /* output file name; cleared by init */
#define TOLVA_EXPORT_INIT_HOOK_B 5      /* handed to InitPlatformMetafileFilter */
#define TOLVA_EXPORT_INIT_SETUP 13      /* in: the settings handle; out: hSetup */
#define TOLVA_EXPORT_INIT_STATUS_RECORD 14

/* Further words of the host status record used by the export variant. */
#define TOLVA_STATUS_VALUE 4         /* kept in the settings block at init */
#define TOLVA_STATUS_PICTURE 7       /* words 7..11 go into the metafile descriptor */
#define TOLVA_STATUS_DEVICE 12       /* first descriptor word of an output-device stream */

#ifdef __cplusplus
}
#endif

#endif /* TOLVA_TOLVA_H */

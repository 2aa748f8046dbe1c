/*
 * tolva.h - what a host application includes to drive libtolva, a GIF
 * export filter.
 *
 * The conversation, in order (examples/export_host.c does all of it):
 *  1. Load the library, or link it, and fill export_szDLLName (the name
 *     table's "szDLLName") with the library's own path: the filter looks for
 *     its profile, libtolva.ini, under that name.
 *  2. CreateSetup gives the Setup block. Change settings with xEscapeSetup
 *     (the name table's "EscapeSetup") and set interlace, transparency,
 *     background and the status record in the block's fields directly
 *     (GlobalLock gives its address).
 *  3. RASTER_dd_entry(TOLVA_ENTRY_ADDRESS, &entry32, NULL) gives the device
 *     entry; call entry32(0, TOLVA_ENTRY_INIT, init) with the init block
 *     (TOLVA_INIT_* words).
 *  4. Send opcodes with entry32(0, TOLVA_ENTRY_CALL, block): open device,
 *     begin picture, device window, viewport scaling mode, begin body,
 *     colour table, primitive -5, the cell arrays bottom band first,
 *     primitive -6 (which writes the GIF), end picture, close device. The
 *     byte tables of every block are under "Opcodes" below; each call
 *     returns the last code pushed during it, or 0.
 *  5. entry32(0, TOLVA_ENTRY_TERM, NULL), then DestroySetup.
 *
 * One device per process, one call at a time: the filter keeps the device's
 * state in the process-wide exported globals (lpEMData, lpSetup, lpRaster,
 * lpCommon), so a process drives one device, and only one thread may be
 * inside the library at any moment. Exports from several threads must take
 * turns, each from init to term.
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
/*
 * Another call is still inside the library. The filter drives one device per
 * process, one call at a time: its state lives in the process-wide exported
 * globals. A call of a host entry (RASTER_dd_entry32 and dd_entry32 with
 * functions 0, 2 and -1, CreateSetup, EditSetup, DestroySetup, xEscapeSetup,
 * ExportCellData) made while another call of one of them has not returned is
 * refused with this code, changes nothing and pushes nothing; the running
 * call goes on undisturbed. Nothing waits, so a status function or offscreen
 * callback that calls one of these entries back on its own thread is refused
 * the same way instead of deadlocking. Version and entry-address queries
 * (functions -2 and -3, RASTER_dd_entry, dd_entry) touch no state and are
 * answered at any time. Calls that follow one another may come from any
 * thread. Functions not listed here are not guarded: call them only while no
 * host entry is running.
 */
#define TOLVA_ERR_BUSY 902

/* Function codes of the entries (RASTER_dd_entry, RASTER_dd_entry32 and the
 * export variant's dd_entry, dd_entry32). */
#define TOLVA_ENTRY_INIT 0       /* entry32: init with the init block */
#define TOLVA_ENTRY_CALL 2       /* entry32: one opcode parameter block */
#define TOLVA_ENTRY_TERM (-1)    /* entry32: term */
#define TOLVA_ENTRY_VERSION (-2) /* both: the 4-byte version TOLVA_FILTER_VERSION */
#define TOLVA_ENTRY_ADDRESS (-3) /* dd_entry forms: the address of the entry32 form */

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

/*
 * Colour modes come in two numberings. The Setup block's colourMode holds
 * 103..107; the setup escape's codes 1 and 57 speak in colour classes
 * 101..105 (class = mode - 2). Init turns the mode into the conversion
 * applied to every 24-bit row and colour-table entry the host sends, which
 * it also reports in capability slot 47 (0..4):
 *
 *   mode  class  slot 47  conversion
 *   103   101    0        none
 *   104   102    1        every channel inverted (255 - c)
 *   105   103    2        near greys (channels within 10) inverted
 *   106   104    3        grey: L = (3r + 6g + b) / 10 in every channel
 *   107   105    4        inverted grey: 255 - L
 */
#define TOLVA_COLOUR_NORMAL 103
#define TOLVA_COLOUR_INVERT 104
#define TOLVA_COLOUR_INVERT_GREY 105
#define TOLVA_COLOUR_GREY 106
#define TOLVA_COLOUR_INVERT_LUMINANCE 107
#define TOLVA_COLOUR_CLASS_OFFSET 2

/*
 * Size modes (sizeMode) decide the GIF's extent in inches, resolution modes
 * (resolutionMode) its dots per inch; pixels = inches x dots per inch:
 *   600  the display's size (GetDisplayInfo) as a box the picture is fitted into
 *   601, 603  the block's own width and height as that box
 *   602  the picture's own size: its pixels at the resolution the viewport
 *        scaling mode gave (without one, fitted into the block's box)
 *   307  the display's resolution
 *   308, 310  the block's own xResolution and yResolution
 *   309  the resolution the viewport scaling mode gave (without one, the
 *        block's own)
 * The setup escape's codes 18 and 19 take a selector 0..3 for 307..310 and
 * 600..603. The defaults (no profile) are 602 and 309.
 */
#define TOLVA_SIZE_DISPLAY 600   /* size taken from the display */
#define TOLVA_SIZE_GIVEN 602     /* size given by the picture */
#define TOLVA_RESOLUTION_DISPLAY 307
#define TOLVA_RESOLUTION_GIVEN 309
#define TOLVA_ESCAPE_SELECT_DISPLAY 0  /* selector of 307 and 600 */
#define TOLVA_ESCAPE_SELECT_GIVEN 2    /* selector of 309 and 602 */
#define TOLVA_ESCAPE_SELECT_OWN 1      /* selector of 308 (the block's own) and 601 */

/* Switches the host sets in the Setup block; any other value is off. */
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
    intptr_t *statusRecord;      /* the host status record: set it for picture progress */
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
#if UINTPTR_MAX == 0xFFFFFFFFFFFFFFFFu
/* Where a 64-bit host finds the fields it sets. */
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, outputDevice) == 616, "SetupBlock.outputDevice");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, backgroundColour) == 624, "SetupBlock.backgroundColour");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, sizeMode) == 632, "SetupBlock.sizeMode");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, resolutionMode) == 636, "SetupBlock.resolutionMode");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, xResolution) == 640, "SetupBlock.xResolution");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, yResolution) == 642, "SetupBlock.yResolution");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, width) == 648, "SetupBlock.width");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, height) == 656, "SetupBlock.height");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, interlace) == 664, "SetupBlock.interlace");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, transparency) == 668, "SetupBlock.transparency");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, transparentColour) == 672, "SetupBlock.transparentColour");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, backgroundChoice) == 676, "SetupBlock.backgroundChoice");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, statusRecord) == 832, "SetupBlock.statusRecord");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, exportMemoryBlock) == 920, "SetupBlock.exportMemoryBlock");
TOLVA_STATIC_ASSERT(offsetof(SetupBlock, exportMemoryData) == 928, "SetupBlock.exportMemoryData");
#endif

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

/* Answers of xEscapeSetup. */
#define TOLVA_ESCAPE_DONE 1
#define TOLVA_ESCAPE_REFUSED (-1)
#define TOLVA_ESCAPE_NOT_HANDLED 0

/**
 * CreateSetup: a new zero-filled Setup block, locked into lpRaster (and its
 * handle in hRaster), filled from the profile. The profile is profileName
 * when that is non-empty, else the module file named in export_szDLLName up
 * to its first "." with ".ini" appended, looked for through
 * GetProfileDirectory. When no profile is found the block gets the defaults
 * (UseDefaultSettings) and an empty profile path; otherwise the section is
 * sectionName, or when that is empty the "~Mode" key of the section "TOLVA",
 * and LoadProfile reads it. Upper-cases the text szFilter points at.
 * Returns the handle, which the host frees with DestroySetup, or 0 (also
 * when refused because another call is running: see TOLVA_ERR_BUSY).
 */
TOLVA_API HGLOBAL CreateSetup(intptr_t unused1, const char *profileName, const char *sectionName,
                              intptr_t unused2);
/** EditSetup: stores value in the reserved field's second word; 0, or -1 when the handle does not lock. */
TOLVA_API int32_t EditSetup(HGLOBAL setup, int32_t value);
/**
 * DestroySetup: frees the block and clears lpRaster, and lpSetup when the
 * raster device still holds this block; 0, or 1 when the handle does not lock.
 */
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

TOLVA_STATIC_ASSERT(offsetof(TolvaPicture, widthValue) == 8, "TolvaPicture.widthValue");
TOLVA_STATIC_ASSERT(offsetof(TolvaPicture, palette) == 24, "TolvaPicture.palette");
TOLVA_STATIC_ASSERT(offsetof(TolvaPicture, bitmap) == 24 + sizeof(HGLOBAL), "TolvaPicture.bitmap");

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

TOLVA_STATIC_ASSERT(sizeof(TolvaErrorRecord) == 8, "an error record takes 8 bytes of a reply");
TOLVA_STATIC_ASSERT(offsetof(TolvaErrorRecord, code) == 4, "TolvaErrorRecord.code");

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
TOLVA_STATIC_ASSERT(offsetof(EMData, errorCount) == 808, "EMData.errorCount");
TOLVA_STATIC_ASSERT(offsetof(EMData, lostErrors) == 812, "EMData.lostErrors");
TOLVA_STATIC_ASSERT(offsetof(EMData, errors) == 824, "EMData.errors");
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

TOLVA_STATIC_ASSERT(offsetof(CommonBlock, result) == 4, "CommonBlock.result");
TOLVA_STATIC_ASSERT(offsetof(CommonBlock, statusRecord) == 8, "CommonBlock.statusRecord");
TOLVA_STATIC_ASSERT(offsetof(CommonBlock, statusValue) == 8 + sizeof(intptr_t),
                    "CommonBlock.statusValue");

/*
 * The raster device's init block: TOLVA_INIT_WORDS intptr_t words, zero the
 * ones not listed. Init allocates EMData (lpEMData) and the reply buffer,
 * locks the Setup block into lpSetup (the host keeps owning it), copies the
 * file name, sends the status function its init report, fills the
 * capability array and puts the device in state 1. It returns 0, or 300
 * when no memory could be had. A second init without term takes a fresh
 * EMData block and leaves the first one behind.
 *
 *   word  direction  meaning
 *   3     in         output file name (const char *), at most 143 characters
 *                    (a longer one is refused with 303); "" writes into a
 *                    memory block (see exportMemoryBlock)
 *   9     in         size of the reply buffer in bytes
 *   10    out        the reply buffer's address (uint8_t *)
 *   13    in         the Setup block's handle, from CreateSetup
 *   14    in         the host status record (intptr_t *), or 0
 *   15    in         the capability array (int32_t *), see below
 */
#define TOLVA_INIT_FILE_NAME 3
#define TOLVA_INIT_REPLY_SIZE 9
#define TOLVA_INIT_REPLY_BUFFER 10
#define TOLVA_INIT_SETUP 13
#define TOLVA_INIT_STATUS_RECORD 14
#define TOLVA_INIT_CAPABILITIES 15
#define TOLVA_INIT_WORDS 16

/*
 * The capability array is the host's array of int32_t, at least
 * TOLVA_CAPABILITY_SLOTS long (init writes slots 0..59). Init writes
 *   slot 0: 100;
 *   -1 to slots 1-4, 9-18, 23-29, 32, 33, 36, 37, 41, 45, 57 and 59;
 *   0 to slots 5, 19-22, 31, 34, 35, 40, 44, 55, 56 and 58;
 *   1 to slots 38 and 39;
 *   slot 47: the colour conversion 0..4 of the Setup block's colour mode.
 * Slots 6-8, 30, 42, 43, 46 and 48-54 keep what the host put there.
 */
#define TOLVA_CAPABILITY_SLOTS 60
#define TOLVA_CAPABILITY_COLOUR_CONVERSION 47

/*
 * The host status record: TOLVA_STATUS_WORDS intptr_t words, zero the ones
 * not used. Word 1 is the context handed back to the function, word 2 the
 * StatusFunction. Give its address twice: in the init block (word 14), for
 * the init report, the whole-bitmap road and the question at close; and in
 * the Setup block's statusRecord field, for the progress of a picture
 * written by primitive -6. Without the second, a picture's progress never
 * reaches the host and a stop is only heard at close.
 *
 * The conversation, each call fn(context, a, b, c, d, e, f):
 *  - init: (context, 0, -2, 100, 0, 0, 0) once, when both the function and
 *    the context are non-zero. The answer is ignored.
 *  - progress: (context, 0, 0, 0, percent, 0, 0). Primitive -6 reports after
 *    each band it writes (a host's picture is one band, so 100); a cell
 *    array sent outside primitives -5/-6 reports 20, 40 (for each conversion
 *    it needs) and at least 50 before it writes.
 *  - the question at close (and at term of an open device):
 *    (context, 0, 0, 0, 0, 0, 0).
 * 0 means go on. Any other answer to a call whose a and b are both 0 is
 * followed at once by the detail request (context, 2, 61, 0, 0, 0, address
 * of ten zeroed int32_t), and only a non-zero answer to that one is a stop:
 * a stop takes two non-zero answers. After a stop during progress the
 * filter writes no more of the picture (the file has no trailer yet) and
 * the call that was running still returns 0; the host then closes the
 * device, answers the question at close with stop again (twice), and the
 * close call returns 901 (TOLVA_ERR_STOPPED) with the output file deleted.
 * Answering 0 at close keeps the unfinished file.
 */
#define TOLVA_STATUS_CONTEXT 1
#define TOLVA_STATUS_FUNCTION 2
#define TOLVA_STATUS_WORDS 13
#define TOLVA_STATUS_INIT_REPORT (-2)  /* b of the init report */
#define TOLVA_STATUS_DETAIL 2          /* a of the detail request */
#define TOLVA_STATUS_DETAIL_CODE 61    /* b of the detail request */
#define TOLVA_STATUS_DETAIL_WORDS 10

/* ------------------------------------------------------------------------ */
/* Opcodes                                                                   */
/* ------------------------------------------------------------------------ */

/*
 * An opcode parameter block is host memory handed to
 * entry32(0, TOLVA_ENTRY_CALL, block): the opcode as an int32_t at byte 0,
 * fields at fixed byte offsets in native byte order (int32_t, int16_t,
 * doubles), unaligned where the offset says so: write them with memcpy.
 * Make each block at least as long as its last field and zero what is not
 * listed. An opcode sent in a state that does not take it does nothing and
 * returns 0.
 *
 * Replies are appended to the reply buffer (init word 10) at
 * lpEMData->replyPosition, which only grows; a reply that does not fit is
 * cut. Set replyPosition to 0 before a query to find its reply at the
 * start of the buffer.
 *
 * opcode  name                 states  what it does
 * 0x001   OPEN_DEVICE          1       opens the output; state 2; 300, 303
 * 0x003   BEGIN_PICTURE        2, 16   state 4
 * 0x206   DEVICE_WINDOW        4       the picture's coordinate window
 * 0x207   BACKGROUND           4       kept only (the GIF's background is the
 *                                      Setup block's)
 * 0x208   DEVICE_VIEWPORT      4       kept only, answered by QUERY_VIEWPORT
 * 0x209   VIEWPORT_SCALING     4       the picture's resolution
 * 0x004   BEGIN_BODY           4       state 8
 * 0x522   COLOUR_TABLE         8       entries of the device's colour table
 * 0x40a   PRIMITIVE            8       -5 opens a picture, -6 writes it
 * 0x409   CELL_ARRAY           8       a band of pixel rows
 * 0x005   END_PICTURE          8       state 16
 * 0x002   CLOSE_DEVICE         2..16   closes the output; state 1; 303, 901
 * 0x2ff   QUERY_WINDOW         2..16   replies the window
 * 0x2fd   QUERY_VIEWPORT       2..16   replies the viewport
 * 0xf02   POP_ERRORS           1..16   replies error records
 * 0xf03   CLEAR_ERRORS         1..16   empties the error stack
 * 0x303..0x306 and 0x906 are taken in state 8 and do nothing.
 */
#define TOLVA_OP_OPEN_DEVICE 0x001
#define TOLVA_OP_CLOSE_DEVICE 0x002
#define TOLVA_OP_BEGIN_PICTURE 0x003
#define TOLVA_OP_BEGIN_BODY 0x004
#define TOLVA_OP_END_PICTURE 0x005
#define TOLVA_OP_DEVICE_WINDOW 0x206
#define TOLVA_OP_BACKGROUND 0x207
#define TOLVA_OP_DEVICE_VIEWPORT 0x208
#define TOLVA_OP_VIEWPORT_SCALING 0x209
#define TOLVA_OP_QUERY_VIEWPORT 0x2fd
#define TOLVA_OP_QUERY_WINDOW 0x2ff
#define TOLVA_OP_CELL_ARRAY 0x409
#define TOLVA_OP_PRIMITIVE 0x40a
#define TOLVA_OP_COLOUR_TABLE 0x522
#define TOLVA_OP_POP_ERRORS 0xf02
#define TOLVA_OP_CLEAR_ERRORS 0xf03

/** Every block: the opcode, int32_t. */
#define TOLVA_BLOCK_OPCODE 0
/** Where the settings of every setting opcode start. */
#define TOLVA_BLOCK_SETTINGS 16

/*
 * OPEN_DEVICE, CLOSE_DEVICE, BEGIN_PICTURE, BEGIN_BODY, END_PICTURE and
 * CLEAR_ERRORS read nothing but the opcode and reply nothing. OPEN_DEVICE
 * also empties the error stack.
 *
 * DEVICE_WINDOW (0x206), no reply:
 *   byte  width  meaning                          unit
 *   16    8      x1, double                       device units (pixels)
 *   24    8      y1, double                       device units (rows)
 *   32    8      z1, double (kept only)
 *   40    8      x2, double                       device units (pixels)
 *   48    8      y2, double                       device units (rows)
 *   56    8      z2, double (kept only)
 * A picture row is |trunc(x2) - trunc(x1)| + 1 pixels wide. Whether y2 is
 * above or below y1 decides with the cell arrays' corners which way rows
 * run (see CELL_ARRAY). For W x H pixels send {0, 0, 0, W - 1, H - 1, 0}.
 */
#define TOLVA_WINDOW_X1 16
#define TOLVA_WINDOW_Y1 24
#define TOLVA_WINDOW_Z1 32
#define TOLVA_WINDOW_X2 40
#define TOLVA_WINDOW_Y2 48
#define TOLVA_WINDOW_Z2 56
#define TOLVA_WINDOW_SIZE 48   /* six doubles, also the QUERY_WINDOW reply */

/*
 * BACKGROUND (0x207), no reply:
 *   16    3      red, green, blue                 0..255 each
 */
#define TOLVA_BACKGROUND_RGB 16

/*
 * DEVICE_VIEWPORT (0x208), no reply:
 *   16    8      x1, double                       device units
 *   24    8      y1, double
 *   40    8      x2, double
 *   48    8      y2, double
 * Bytes 32 and 56 (z) are not read.
 */
#define TOLVA_VIEWPORT_X1 16
#define TOLVA_VIEWPORT_Y1 24
#define TOLVA_VIEWPORT_X2 40
#define TOLVA_VIEWPORT_Y2 48

/*
 * VIEWPORT_SCALING (0x209), no reply:
 *   16    2      mode, int16_t: 0, 1 or 2 (others are ignored)
 *   24    8      unit, double                     millimetres per device unit
 * Mode 1 with a non-zero unit gives the picture the resolution
 * trunc(25.4 / unit + 0.5) dots per inch; modes 0 and 2 and a zero unit
 * give none (0). Resolution mode 309 and size mode 602 then turn the
 * picture's pixels into inches at that resolution and back: see the 1:1
 * recipe below.
 */
#define TOLVA_SCALING_MODE 16
#define TOLVA_SCALING_UNIT 24
#define TOLVA_SCALING_METRIC 1   /* the mode whose unit sets the resolution */
#define TOLVA_MM_PER_INCH 25.4

/*
 * COLOUR_TABLE (0x522), no reply:
 *   4     4      length L, uint32_t: 3 x N + 2    bytes
 *   16    4      first entry s, uint32_t: 0..255
 *   20    3N     N triples red, green, blue       0..255 each
 * Sets entries s .. min(s + N, 256) - 1 of the device's 256-entry colour
 * table; entries never set are black. With a colour mode other than 103 the
 * triples are converted first, in the host's block too. A picture of depth
 * 1, 4 or 8 uses the table's first 2, 16 or 256 entries as its palette.
 */
#define TOLVA_COLOURS_LENGTH 4
#define TOLVA_COLOURS_FIRST 16
#define TOLVA_COLOURS_RGB 20
#define TOLVA_COLOURS_LENGTH_OF(n) (3 * (n) + 2)

/*
 * PRIMITIVE (0x40a), no reply:
 *   16    4      identifier, int32_t: -5 opens a picture, -6 writes and
 *                closes it; others do nothing
 *   20    4      number of points n, uint32_t (0 is usual)
 *   24    24n    n points of three doubles (not read)
 *   24+24n 4     data length, int32_t: 28 for -5 (not read)
 *   28+24n 28    data of -5, offsets from its start:
 *                  +0   4  width, int32_t: the most pixels of a row   pixels
 *                  +4   4  height, int32_t: the picture's rows       rows
 *                  +8   4  bits per pixel, int32_t: 1, 4, 8, 24 or 32
 *                          (-32768 means 1; other negatives count by
 *                          their magnitude)
 *                  +14  2  cell flag, int16_t (kept only)
 * -5 takes a bitmap for the picture (a row is the window's width, capped at
 * the data's width); the cell arrays that follow fill it. -6 converts and
 * scales it by the Setup block, writes the whole GIF and frees the bitmap;
 * it needs the colour table for depths below 24 (300 when its palette
 * cannot be had). Width and height must fit the picture record: at most
 * 32767 each; a larger picture makes -5 and -6 push 300, nothing is written
 * and closing the device deletes the output file. A -5 that follows a -5
 * without its -6 drops the first picture.
 */
#define TOLVA_PRIMITIVE_ID 16
#define TOLVA_PRIMITIVE_POINTS 20
#define TOLVA_PRIMITIVE_POINT_SIZE 24
#define TOLVA_PRIMITIVE_POINT(k) (24 + TOLVA_PRIMITIVE_POINT_SIZE * (k)) /* its x; y at +8, z at +16 */
#define TOLVA_PRIMITIVE_DATA_LENGTH(points) TOLVA_PRIMITIVE_POINT(points)
#define TOLVA_PRIMITIVE_DATA(points) (28 + TOLVA_PRIMITIVE_POINT_SIZE * (points))
#define TOLVA_PRIMITIVE_OPEN (-5)
#define TOLVA_PRIMITIVE_CLOSE (-6)
#define TOLVA_PICTURE_WIDTH 0
#define TOLVA_PICTURE_HEIGHT 4
#define TOLVA_PICTURE_BITS 8
#define TOLVA_PICTURE_CELL_FLAG 14
#define TOLVA_PICTURE_DATA_SIZE 28
#define TOLVA_PICTURE_MAX_EXTENT 32767

/*
 * CELL_ARRAY (0x409), no reply:
 *   16    8      first corner x, double (not read)
 *   24    8      first corner y, double           device units
 *   40    8      second corner x, double (not read)
 *   48    8      second corner y, double          device units
 *   64    24     third corner (not read)
 *   88    4      cells per row of the data, uint32_t               pixels
 *   92    4      rows in this block, uint32_t                      rows
 *   96    4      bits per cell, int32_t: 1, 4, 8, 24 or 32 with the
 *                rows inline from byte 102; the same negated (-32768 for
 *                1 bit) with their address at byte 102
 *   102   ...    the rows, or their address (a pointer, unaligned)
 *
 * Pixel layout of the rows: 1-, 4- and 8-bit cells are colour-table
 * indices packed from the most significant bit of each byte; a 24-bit cell
 * is three bytes red, green, blue in that order; a 32-bit cell is red,
 * green, blue and a fourth byte that is ignored. Each row is padded to a
 * multiple of 4 bytes: ((cells x bits + 7) / 8 + 3) & ~3 bytes from one row
 * to the next.
 *
 * Row order: the rows run "downward" when the second corner's y and the
 * window's y2 lie on the same side of the first corner's y and the
 * window's y1 (for example y2 > y1 in both). Downward rows fill the
 * picture from its bottom row up: the first row of the first cell array is
 * the GIF's bottom row. So send the picture bottom band first, each band's
 * rows bottom row first. (Rows that run the other way land one row off and
 * leave a row unfilled: do not use them.) Rows
 * beyond the picture's height are dropped. Outside primitives -5/-6 a cell
 * array is written at once as a GIF of its own.
 */
#define TOLVA_CELLS_FIRST_X 16
#define TOLVA_CELLS_FIRST_Y 24
#define TOLVA_CELLS_SECOND_X 40
#define TOLVA_CELLS_SECOND_Y 48
#define TOLVA_CELLS_PER_ROW 88
#define TOLVA_CELLS_ROWS 92
#define TOLVA_CELLS_BITS 96
#define TOLVA_CELLS_DATA 102
#define TOLVA_CELLS_ONE_BIT (-32768)
#define TOLVA_CELLS_ROW_BYTES(cells, bits) ((((cells) * (bits) + 7) / 8 + 3) & ~3)

/*
 * QUERY_WINDOW (0x2ff), reply of 48 bytes: the window's six doubles in the
 * order of DEVICE_WINDOW.
 * QUERY_VIEWPORT (0x2fd), reply of 48 bytes, doubles:
 *   0 x1, 8 y2, 16 (not written), 24 y1, 32 x2, 40 (not written)
 * The two unwritten values keep whatever the reply buffer held.
 */
#define TOLVA_REPLY_VIEWPORT_X1 0
#define TOLVA_REPLY_VIEWPORT_Y2 8
#define TOLVA_REPLY_VIEWPORT_Y1 24
#define TOLVA_REPLY_VIEWPORT_X2 32
#define TOLVA_REPLY_VIEWPORT_SIZE 48

/*
 * POP_ERRORS (0xf02):
 *   16    4      records wanted, int32_t
 * Reply: 4 bytes, int32_t n = min(wanted, errorCount), then n
 * TolvaErrorRecords of 8 bytes, newest first (popped off the stack).
 * The stack keeps records only when the host has set
 * lpEMData->errorCapacity (1..10) after init; with the capacity left at 0
 * lpEMData->firstError holds the latest error and nothing pops. Each call's
 * own result is the latest code in any case.
 */
#define TOLVA_POP_WANTED 16
#define TOLVA_REPLY_POP_COUNT 0
#define TOLVA_REPLY_POP_RECORDS 4
#define TOLVA_ERROR_STACK_SIZE 10

/*
 * A 1:1 export (one GIF pixel per picture pixel) of W x H pixels:
 *  - Setup block: resolution mode 309 and size mode 602 (xEscapeSetup codes
 *    TOLVA_ESCAPE_RESOLUTION_MODE and TOLVA_ESCAPE_SIZE_MODE with selector
 *    TOLVA_ESCAPE_SELECT_GIVEN; the defaults without a profile).
 *  - DEVICE_WINDOW {0, 0, 0, W - 1, H - 1, 0}.
 *  - VIEWPORT_SCALING mode 1 with the unit 25.4 / R for a resolution R; a
 *    power of two such as 64 keeps W / R x R exact in floating point.
 *  - PRIMITIVE -5 with width W, height H and the bits per pixel, the cell
 *    arrays downward (corners y 0 and rows - 1), PRIMITIVE -6.
 * The GIF is W pixels wide and H rows high, H rounded up to an even number
 * (an odd picture is stretched by one row).
 */
#define TOLVA_ACTUAL_SIZE_DPI 64

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

/*
 * tolva/driver.h - the driver internals: init and term steps, dispatch, the error
 * stack and reply buffer, status calls and the opcode handlers.
 *
 * Exported from libtolva for programs that call these parts directly; a host
 * that only drives the filter needs tolva/tolva.h alone.
 */
#ifndef TOLVA_DRIVER_H
#define TOLVA_DRIVER_H

#include <tolva/tolva.h>

#ifdef __cplusplus
extern "C" {
#endif

/** An opcode handler: takes the opcode parameter block and returns it. */
typedef void *(*OpcodeHandler)(void *block);


/**
 * RASTER_initdvr: allocates EMData (lpEMData) and a reply buffer of
 * block[TOLVA_INIT_REPLY_SIZE] bytes, whose address it stores in
 * block[TOLVA_INIT_REPLY_BUFFER]; locks the Setup block handle
 * block[TOLVA_INIT_SETUP] into lpSetup (the host keeps owning it); copies
 * the file name (one of 144 bytes or more is cut to 143, and d_opdv then
 * refuses to open it); reports (context, 0, -2, 100, 0, 0, 0)
 * once to the status function of the record block[TOLVA_INIT_STATUS_RECORD]
 * when it has both a function and a context; fills the host's capability
 * array block[TOLVA_INIT_CAPABILITIES] (slot 47: the colour conversion mode
 * 0..4 from the Setup block's colour mode 103..107); sets the device state
 * to 1. Returns 0, or 300 when no EMData block could be had (also when the
 * host set hCommon, which keeps AllocGlobal from taking one). A second init
 * takes a fresh EMData block without releasing the first.
 */
TOLVA_API int32_t RASTER_initdvr(intptr_t *block);
/**
 * RASTER_termdvr: closes a device that is not in state 1 (as the close
 * opcode would), frees a picture bitmap left open, the memory output block
 * (see d_opdv), the reply buffer and EMData; lpEMData and lpSetup are null
 * afterwards (the Setup block itself stays the host's). Always 0.
 */
TOLVA_API int32_t RASTER_termdvr(void);
/**
 * initdvr (export filter): locks the settings handle
 * block[TOLVA_EXPORT_INIT_SETUP] into lpRaster/hRaster, keeps the status
 * record block[TOLVA_EXPORT_INIT_STATUS_RECORD] and the file name
 * block[TOLVA_EXPORT_INIT_FILE_NAME] in it, and opens the output stream
 * (SetupBlock.outputStream) on the output device, the named file, or a
 * memory stream whose block SetupBlock.exportMemoryBlock/exportMemoryData
 * hold (the host's to free). Then clears the host's file name and stores
 * hSetup (0 here) into block[TOLVA_EXPORT_INIT_SETUP]. Returns 0; 22 when the
 * settings handle is 0 or does not lock; 21 when the memory block could not
 * be had; 303 when the named file or memory stream could not be opened, or
 * (without an output device) the name does not fit SetupBlock.fileName.
 */
TOLVA_API int32_t initdvr(intptr_t *block);
/**
 * termdvr (export filter): renders the platform metafile into the output
 * stream and closes the stream. There are no metafiles on this platform, so
 * the result is 300 (after the stream is closed); 303 when closing failed.
 */
TOLVA_API int32_t termdvr(int32_t unused);
/** AllocGlobal: takes the 1224-byte EMData block unless hCommon is set; always 0. */
TOLVA_API int32_t AllocGlobal(void);
/** FreeGlobal: frees EMData when there is one and zeroes hEMData/lpEMData; always 0. */
TOLVA_API int32_t FreeGlobal(void);
/** LockGlobal, UnlockGlobal: nothing to do on this platform; always 0. */
TOLVA_API int32_t LockGlobal(HGLOBAL h);
TOLVA_API int32_t UnlockGlobal(HGLOBAL h);
/** AltFontsAvailable: 0, there are no alternative fonts. */
TOLVA_API int32_t AltFontsAvailable(void);
/** esc_mode: brackets each opcode call of the export filter; does nothing here. */
TOLVA_API void esc_mode(int32_t flag);
/**
 * getfunc: the handler for an opcode in the raster device's current state:
 * the row's handler when its state mask shares a bit with the state, else
 * (also for unknown opcodes, and while there is no EMData) d_noop.
 */
TOLVA_API OpcodeHandler getfunc(int32_t opcode);
/**
 * InquireSupport: 2 when the low 16 bits of opcode (sign-extended) would run
 * a handler other than d_noop in the current state, else 0; opcode 0x40a
 * answers InqGDPSupport(arg) and 0x52b answers 0.
 */
TOLVA_API int32_t InquireSupport(int32_t opcode, int32_t arg);
/** InqGDPSupport: GDPSupport[-id] for id -7..-1, else 0. */
TOLVA_API int32_t InqGDPSupport(int32_t id);
/**
 * push_er: records an error code (kept as 16 bits) on the error stack and in
 * the result word. A code equal to the top entry's (same current opcode) is
 * recorded once; with the stack full (count >= capacity; the capacity is the
 * host's and stays 0 unless it sets one, at most 10) the top entry is
 * overwritten and the lost-error count grows, so with capacity 0 the first
 * error record always holds the latest error. Does nothing without EMData.
 */
TOLVA_API void push_er(int32_t code);
/**
 * mov2buf: appends length bytes to the reply buffer at the reply position,
 * cut to the room that is left; the position is never rewound, so a full
 * buffer takes nothing more, without error.
 */
TOLVA_API void mov2buf(const void *address, uint32_t length);
/** d_reset: called by the begin-picture opcode with (0, 4); does nothing here. */
TOLVA_API void d_reset(int32_t a, int32_t b);
/**
 * CallGetSet_Status: fn(context, a, b, c, d, e, f), or 0 when fn is null.
 * When the answer is non-zero and a and b are both 0 (a plain query), the
 * function is called again as fn(context, 2, 61, 0, 0, 0, address of ten
 * zeroed int32_t), and that second answer is returned.
 */
TOLVA_API int32_t CallGetSet_Status(StatusFunction fn, intptr_t context, intptr_t a, intptr_t b,
                                    intptr_t c, intptr_t d, intptr_t e, intptr_t f);
/**
 * RASTER_escape: asks the raster device's status function whether to stop:
 * 901 (also pushed) when it says so, else 0 (also without EMData, status
 * record or function).
 */
TOLVA_API int32_t RASTER_escape(void);
/**
 * escape: the same for the export filter, through the Common block's status
 * record, passing its status value as d; 0 while lpCommon is null.
 */
TOLVA_API int32_t escape(void);
/**
 * UpdateStatus: reports progress `value` (as d) through lpRaster's status
 * record; 901 when the host says stop, else 0 (also without a record or
 * function). Pushes nothing.
 */
TOLVA_API int32_t UpdateStatus(int32_t value);

/*
 * Opcode handlers: each takes the opcode parameter block, returns it, and
 * reports only through the error stack and the reply buffer. With the
 * opcode, the device states in which the dispatch table runs it:
 *   d_opdv   0x001 (1)  opens the output stream: with the Setup block's
 *            outputDevice set, through that host I/O procedure (the
 *            status record's word TOLVA_STATUS_DEVICE as its context; a
 *            failed open is not reported); else the EMData file name (303
 *            when it cannot be opened, or when the name handed to init did
 *            not fit the field: no file is made then); else a memory stream whose block
 *            the Setup block's exportMemoryBlock/exportMemoryData hold once
 *            the device is closed (the GIF and one 0xFF byte). The filter
 *            frees that block at the next such open and at term; a host that
 *            keeps it clears both fields and frees it with GlobalFree.
 *            Clears the error stack. State 2.
 *   d_cldv   0x002 (2, 4, 8, 16)  state 1; closes the stream (303 when that
 *            fails), or, when RASTER_escape says stop (901), closes it and
 *            deletes the named file.
 *   d_begp   0x003 (2, 16)  state 4.   d_begpb 0x004 (4)  state 8.
 *   d_endp   0x005 (8)  state 16.
 *   ds_dvwn  0x206 (4)  device window = the six doubles at bytes 16..63.
 *   ds_bgc   0x207 (4)  background = bytes 16..18.
 *   ds_dvvp  0x208 (4)  viewport slots 0, 1, 3, 4 = the doubles at 16, 24, 40, 48.
 *   ds_vpsm  0x209 (4)  mode int16 at 16 (0..2), unit double at 24: mode 1
 *            with a unit gives resolution trunc(25.4 / unit + 0.5), else 0.
 *   dq_dvwn  0x2ff (2..16)  replies the window (48 bytes).
 *   dq_dvvp  0x2fd (2..16)  replies viewport slots 0, 4, -, 1, 3, - (the
 *            "-" values are skipped, not written).
 *   ds_ct    0x522 (8)  length at 4, first index at 16, RGB triples from 20:
 *            converts the triples in place (rev_rgb) and stores what fits
 *            below entry 256.
 *   d_ca     0x409 (8)  a cell array: into the open picture, or written on
 *            its own through RasterWriteCellData (300: no bitmap).
 *   d_gdp    0x40a (8)  primitive -5 opens a picture bitmap (freeing one
 *            left open), -6 writes it through OutputPicture and frees it
 *            (300: no palette). A picture wider or taller than 32767 pixels
 *            does not fit the picture record: -5 and -6 push 300, nothing
 *            is written, and d_cldv deletes the named output file.
 *   d_popes  0xf02 (1..16)  replies min(requested at 16, count) and that
 *            many records, newest first.
 *   d_empes  0xf03 (1..16)  zeroes the count, lost count, last opcode and
 *            result word.
 *   dq_es    (no opcode)  replies the count, the first error record and the
 *            lost count.
 *   ds_axc, ds_tran, ds_clpr, ds_clip (0x303..0x306), ds_dm (0x906), ds_fl
 *   (no opcode) and d_noop do nothing.
 */
TOLVA_API void *d_noop(void *block);
TOLVA_API void *d_opdv(void *block);
TOLVA_API void *d_cldv(void *block);
TOLVA_API void *d_begp(void *block);
TOLVA_API void *d_begpb(void *block);
TOLVA_API void *d_endp(void *block);
TOLVA_API void *d_ca(void *block);
TOLVA_API void *d_gdp(void *block);
TOLVA_API void *d_popes(void *block);
TOLVA_API void *d_empes(void *block);
TOLVA_API void *dq_es(void *block);
TOLVA_API void *ds_dvwn(void *block);
TOLVA_API void *ds_bgc(void *block);
TOLVA_API void *ds_dvvp(void *block);
TOLVA_API void *ds_vpsm(void *block);
TOLVA_API void *dq_dvwn(void *block);
TOLVA_API void *dq_dvvp(void *block);
TOLVA_API void *ds_axc(void *block);
TOLVA_API void *ds_tran(void *block);
TOLVA_API void *ds_clpr(void *block);
TOLVA_API void *ds_clip(void *block);
TOLVA_API void *ds_ct(void *block);
TOLVA_API void *ds_dm(void *block);
TOLVA_API void *ds_fl(void *block);

/*
 * The metafile descriptor that termdvr hands to OutputPicture with
 * DrawPlatformMetafile: TOLVA_METAFILE_WORDS intptr_t words. Word 0 is the
 * metafile handle, words 1..4 the page bounds (left, top, right, bottom, as
 * whole numbers), word 5 the resolution, words 6..10 words 7..11 of the host
 * status record and word 11 the settings block's metafile word.
 */
#define TOLVA_METAFILE_HANDLE 0
#define TOLVA_METAFILE_BOUNDS 1
#define TOLVA_METAFILE_RESOLUTION 5
#define TOLVA_METAFILE_STATUS 6
#define TOLVA_METAFILE_WORD 11
#define TOLVA_METAFILE_WORDS 20

/*
 * The property callback that InitPlatformMetafileFilter may hand back in its
 * last argument (never on this platform): (settings handle, code, 4, address
 * of a 32-bit value, 0, 0).
 */
typedef int32_t (*TolvaPropertyCallback)(intptr_t setup, int32_t code, int32_t size,
                                         void *value, intptr_t unused1, intptr_t unused2);

#ifdef __cplusplus
}
#endif

#endif /* TOLVA_DRIVER_H */

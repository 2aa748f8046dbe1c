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
 * Everything declared here has C linkage and is exported from the shared
 * object; nothing else is.
 */
#ifndef TOLVA_TOLVA_H
#define TOLVA_TOLVA_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

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

/* ------------------------------------------------------------------------ */
/* Common types and result codes                                             */
/* ------------------------------------------------------------------------ */

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

/* Allocation flags used throughout: movable and zero-initialised. */
#define TOLVA_GMEM_FLAGS 66

/* Device states (one bit each, so that a dispatch mask can name several). */
#define TOLVA_STATE_INITIALISED 1
#define TOLVA_STATE_OPEN 2
#define TOLVA_STATE_PICTURE 4
#define TOLVA_STATE_BODY 8
#define TOLVA_STATE_ENDED 16

/** The host's status function: (context, a, b, c, d, e, f); 0 means go on. */
typedef int32_t (*StatusFunction)(intptr_t context, intptr_t a, intptr_t b, intptr_t c,
                                  intptr_t d, intptr_t e, intptr_t f);

/** An opcode handler: takes the opcode parameter block and returns it. */
typedef void *(*OpcodeHandler)(void *block);

/** The offscreen callback: operation 0 query, 1 init, 2 terminate, 3 draw. */
typedef intptr_t (*OffscreenCallback)(int32_t operation, void *record, intptr_t arg1,
                                      intptr_t arg2);

/** A host I/O procedure behind a stream (see zunOpen). */
typedef intptr_t (*StreamIOProc)(intptr_t instance, int32_t operation, intptr_t a, intptr_t b);

/* ------------------------------------------------------------------------ */
/* Host services: memory handles                                             */
/* ------------------------------------------------------------------------ */

/**
 * GlobalAlloc: a zero-filled block of `size` bytes whose data starts on an
 * 8-byte boundary behind a small header; the handle is the header's address.
 * The flags are stored, never interpreted. When the system allocator fails the
 * process prints a line to standard output and aborts: 0 is never returned.
 */
TOLVA_API HGLOBAL GlobalAlloc(uint32_t flags, uint32_t size);
/** GlobalLock: the block's data address; 0 for handle 0. No lock count. */
TOLVA_API void *GlobalLock(HGLOBAL h);
/** GlobalUnlock: does nothing; always 0. */
TOLVA_API int32_t GlobalUnlock(HGLOBAL h);
/** GlobalFree: releases the block; always 0. */
TOLVA_API int32_t GlobalFree(HGLOBAL h);
/**
 * GlobalReAlloc: a new block with the old data (up to the smaller size); the
 * old block is freed even when the new allocation fails (the result is then 0).
 */
TOLVA_API HGLOBAL GlobalReAlloc(HGLOBAL h, uint32_t size, uint32_t flags);
/** GlobalHandle: the handle of a locked data address; 0 for 0. */
TOLVA_API HGLOBAL GlobalHandle(const void *address);
/** GlobalSize: the size asked for at allocation. */
TOLVA_API uint32_t GlobalSize(HGLOBAL h);
/** GlobalPointerToHandle: a bare header describing memory the caller keeps. */
TOLVA_API HGLOBAL GlobalPointerToHandle(void *address, uint32_t size);
/** GlobalCompact: the argument, or 65536 for 0. */
TOLVA_API uint32_t GlobalCompact(uint32_t bytes);

/* ------------------------------------------------------------------------ */
/* Host services: string and numeric helpers                                  */
/* ------------------------------------------------------------------------ */

TOLVA_API char *strupr(char *s);
TOLVA_API char *strlower(char *s);
TOLVA_API char *strlwr(char *s);
/** Case-insensitive comparison; the sign is reversed (positive when a sorts first). */
TOLVA_API int32_t stricmp(const char *a, const char *b);
/** Compares exactly n bytes, past terminators too; reversed sign like stricmp. */
TOLVA_API int32_t strnicmp(const char *a, const char *b, int32_t n);
TOLVA_API char *s_getpath(char *destination, const char *path);
TOLVA_API char *s_getname(char *destination, const char *path);
/** x when x > 0.0, else -x (so 0.0 gives -0.0). */
TOLVA_API double dabs(double x);
/** 1 when |a - b| <= tolerance (unsigned comparison), else 0. */
TOLVA_API int32_t feqi(int32_t a, int32_t b, int32_t tolerance);
/** Rounds half away from zero. */
TOLVA_API int32_t roundd(double x);

/* ------------------------------------------------------------------------ */
/* Host services: profile (INI) files                                         */
/* ------------------------------------------------------------------------ */

/*
 * Profile files are lines of "[section]" headers, "key=value" lines and ";"
 * comments, with any line end. Lines are read in pieces of at most 256
 * characters; a last line without a line end is never seen, and a rewrite
 * drops it. Section and key names match without regard to case.
 */

/**
 * GetPrivateProfileString: with a key, copies the key's value (one pair of
 * surrounding double quotes removed) over the start of buffer, at most size
 * characters and without a terminator, after buffer has been zero-filled and
 * given the default (cut to size); returns the number of characters copied,
 * or the default's length when the key is not found or the file does not
 * open. Without a key, lists the section's key names, each followed by a
 * zero byte and one more zero after the last, and returns the default's
 * length plus the names' lengths (see the overflow rule of the format). A
 * null or empty section or a null default returns 0 and leaves buffer alone.
 * The key is compared with the text before "=" as it stands, spaces
 * included. Nothing is written outside buffer's size bytes.
 */
TOLVA_API int32_t GetPrivateProfileString(const char *section, const char *key, const char *def,
                                          char *buffer, int32_t size, const char *file);
/**
 * GetPrivateProfileInt: the value as "0x" hexadecimal (wrapping at 32 bits)
 * or as leading decimal digits (no sign); def when the value is empty or
 * missing; 0 when it does not parse.
 */
TOLVA_API int32_t GetPrivateProfileInt(const char *section, const char *key, int32_t def,
                                       const char *file);
/**
 * WritePrivateProfileString: sets key=value in the section (appending the
 * section at the end of the file when it is not there), or with value null
 * deletes the key (and the section's header when nothing else is left in
 * it), or with key null deletes the section. The file is found as INIopen
 * finds it and rewritten whole, keeping its line end; the new file replaces
 * the old one by a rename, so on failure the old file is unchanged. Returns
 * 1 when the file was rewritten, 0 when nothing was changed (null section or
 * file, a path of 260 characters or more, no temporary file, a failed
 * write).
 */
TOLVA_API int32_t WritePrivateProfileString(const char *section, const char *key,
                                            const char *value, const char *file);
/** GetProfileString, GetProfileInt, WriteProfileString: the same on "ZUN.INI". */
TOLVA_API int32_t GetProfileString(const char *section, const char *key, const char *def,
                                   char *buffer, int32_t size);
TOLVA_API int32_t GetProfileInt(const char *section, const char *key, int32_t def);
TOLVA_API int32_t WriteProfileString(const char *section, const char *key, const char *value);

/**
 * INIopen: opens name with zunOpen(name, NULL, mode), and when that fails
 * INIDIR "/" name (INIDIR's own trailing "/" is not doubled). When
 * nameBufferSize is non-zero the path that opened is copied into name, at
 * most nameBufferSize bytes (without terminator when it does not fit).
 * Returns the stream, which INIclose closes, or 0.
 */
TOLVA_API HGLOBAL INIopen(char *name, int32_t nameBufferSize, uint32_t mode);
/** INIclose: closes a non-null stream; zunClose's result, 0 for 0. */
TOLVA_API int32_t INIclose(HGLOBAL stream);
/**
 * GetProfileDirectory: finds a profile for reading, looking in INIDIR first
 * (when it is set, not empty and under 144 characters) and then as named.
 * An empty name becomes module's base name with ".ini". name is a buffer of
 * TOLVA_PROFILE_NAME_SIZE (144) bytes and receives the path that opened; a
 * path that would not fit is not used. Returns 0 when found, 1 when not.
 */
TOLVA_API int32_t GetProfileDirectory(char *name, const char *module);
#define TOLVA_PROFILE_NAME_SIZE 144
/**
 * CleanProfileLine: in place, removes CR, LF, double quotes (a doubled one
 * leaves one; keep bit 0x4 keeps them all) and "[" "]" (keep bit 0x1 keeps
 * them), cuts the text at its first ";" and strips spaces at both ends.
 * Returns text.
 */
TOLVA_API char *CleanProfileLine(char *text, int32_t keep);
/** CutProfileComment: ends text at its first ";". Returns text. */
TOLVA_API char *CutProfileComment(char *text);
/**
 * TrimProfileChar: strips ch at both ends, moving the rest to the start; for
 * the double quote at most one at each end, for any other character all of
 * them. Returns text.
 */
TOLVA_API char *TrimProfileChar(char *text, int32_t ch);
/** ParseProfileNumber: the integer syntax of GetPrivateProfileInt; 0 when text does not parse. */
TOLVA_API int32_t ParseProfileNumber(const char *text);

/* ------------------------------------------------------------------------ */
/* Streams                                                                   */
/* ------------------------------------------------------------------------ */

/*
 * A stream handle is a memory handle holding the stream's record; 0 means no
 * stream. Positions and counts are signed 32-bit. Results: 0 (or a count) for
 * success, -1 for failure; a failure also sets the stream's sticky error flag,
 * after which a write that meets a full buffer returns 0.
 *
 * Stream descriptor: six intptr_t words handed to zunOpen (zero them first):
 *   [0] memory streams: address of the caller's variable that holds the
 *       locked address of its block (a GlobalAlloc block); the variable is
 *       rewritten whenever the block grows. Procedure streams: the context
 *       passed to the procedure's open.
 *   [1] memory streams: bytes in the block (0 for a new one); rewritten with
 *       the data length when the block is opened for reading.
 *   [2] memory streams: growth step in bytes (4096 is usual).
 *   [3] mode TOLVA_STREAM_WRAP: an open FILE * to use (the caller keeps it).
 *   [4] a StreamIOProc that serves every operation, or 0.
 *   [5] mode TOLVA_STREAM_WRAP with a procedure: its instance value.
 */
#define TOLVA_STREAM_DESCRIPTOR_WORDS 6

/* Open modes (zunOpen's third argument). Low byte 0 reads ("r"). */
#define TOLVA_STREAM_WRITE 0x0001u   /* "w+"; also allows seeking past the end */
#define TOLVA_STREAM_UPDATE 0x0002u  /* "r+"; wins over TOLVA_STREAM_WRITE */
#define TOLVA_STREAM_DELETE 0x0200u  /* no stream: delete the named file */
#define TOLVA_STREAM_CREATE 0x1000u  /* "w+" whatever the low byte; memory streams start empty */
#define TOLVA_STREAM_EXISTS 0x4000u  /* no stream: does the named file exist? */
#define TOLVA_STREAM_WRAP 0xFFFFFFFFu /* wrap descriptor[3] (FILE *) or descriptor[4..5] */
/* What every writer of this library uses: write + create. */
#define TOLVA_STREAM_OUTPUT 0x1001u

/** Size of the buffer of a file stream. */
#define TOLVA_STREAM_BUFFER_SIZE 12288
/** Longest name ZUNGetTempFileName writes, terminator included. */
#define TOLVA_TEMP_NAME_SIZE 260

/**
 * zunOpen: opens a stream on a named file ("stdin" and "stdout" name the
 * process's standard streams), on a memory block (null or empty name plus a
 * descriptor), through a host procedure (descriptor[4]; if its open returns 0
 * the stream still calls it, with instance 0), or wraps what the descriptor
 * gives (mode TOLVA_STREAM_WRAP). Returns the handle, or 0 when the record or
 * buffer cannot be had, the file cannot be opened, or there is neither name nor
 * descriptor. Memory blocks opened for reading lose their trailing zero bytes
 * and then one more byte (the 0xFF end mark that zunClose appends).
 * Mode TOLVA_STREAM_EXISTS returns a non-zero value when the file opens for
 * reading, (HGLOBAL)-1 when not; TOLVA_STREAM_DELETE returns 1 when the file
 * was removed, 0 when not (with a procedure: what the procedure returns).
 * The stream is released by zunClose or zunCloseandDelete.
 */
TOLVA_API HGLOBAL zunOpen(const char *name, intptr_t *descriptor, uint32_t mode);
/**
 * zunClose: writes back the buffer, appends the 0xFF end mark to memory
 * streams opened for writing or update, closes the file unless it was
 * borrowed, and frees the record and buffer (never the caller's block).
 * 0, or -1 for a null handle, a failed write-back, end mark or close; a
 * procedure stream returns its procedure's answer.
 */
TOLVA_API int32_t zunClose(HGLOBAL s);
/** zunCloseandDelete: closes, then deletes the named file. 0; -1 for a null handle. */
TOLVA_API int32_t zunCloseandDelete(HGLOBAL s, const char *name);
/** zunRead: bytes read (0 at the end and for a null handle), -1 on error. */
TOLVA_API int32_t zunRead(HGLOBAL s, void *buffer, int32_t count);
/** zunWrite: bytes written (0 for a null handle), -1 on error. */
TOLVA_API int32_t zunWrite(HGLOBAL s, const void *buffer, int32_t count);
/**
 * zunSeek: origin 0 from the start, 1 from the current position, 2 from the
 * end; (s, 0, 1) tells without moving anything. The new position, or -1 for a
 * null handle, a target before the start, or past the end of a stream opened
 * for reading only.
 */
TOLVA_API int32_t zunSeek(HGLOBAL s, int32_t offset, int32_t origin);
/** zunCopy: copies a file in 4096-byte steps; bytes written minus bytes read (0 is success). */
TOLVA_API int32_t zunCopy(const char *source, const char *destination);
/**
 * ZUNGetTempFileName: creates a new empty file under /tmp and writes its name
 * (at most 260 bytes with the terminator) into buffer. The first three
 * arguments are ignored. 1, or 0 when no file could be created. The caller
 * deletes the file.
 */
TOLVA_API int32_t ZUNGetTempFileName(int32_t drive, const char *prefix, uint32_t unique,
                                     char *buffer);

/*
 * Typed arrays. Readers read count elements in one go and convert them in
 * place: count, or 0 when fewer bytes arrived (the buffer then holds them
 * unconverted). Writers convert each element into scratch space and write it:
 * count, or the first failing write's result (0 or -1). Byte order follows
 * zunSetDataFormat: 1 big-endian, anything else little-endian; with float
 * format 1 floats are 16.16 fixed point in the file (the writer puts the
 * fraction's two bytes then the integer's, each most significant first).
 * Doubles written big-endian come out as bytes 4 5 6 7 3 2 1 0 of the value
 * (0 most significant), which the reader does not undo: files written that
 * way are meant for the hosts that expect it.
 */
TOLVA_API int32_t zunReadChar(HGLOBAL s, void *buffer, int32_t count);
TOLVA_API int32_t zunReadShort(HGLOBAL s, void *buffer, int32_t count);
TOLVA_API int32_t zunReadLong(HGLOBAL s, void *buffer, int32_t count);
TOLVA_API int32_t zunReadFloat(HGLOBAL s, void *buffer, int32_t count);
TOLVA_API int32_t zunReadDouble(HGLOBAL s, void *buffer, int32_t count);
TOLVA_API int32_t zunWriteChar(HGLOBAL s, const void *buffer, int32_t count);
TOLVA_API int32_t zunWriteShort(HGLOBAL s, const void *buffer, int32_t count);
TOLVA_API int32_t zunWriteLong(HGLOBAL s, const void *buffer, int32_t count);
TOLVA_API int32_t zunWriteFloat(HGLOBAL s, const void *buffer, int32_t count);
TOLVA_API int32_t zunWriteDouble(HGLOBAL s, const void *buffer, int32_t count);
/**
 * zunReadStruct / zunWriteStruct: records described by a format of items
 * "<count><letter>": C bytes, S 16-bit, L 32-bit, F float, D double; "{...}"
 * nested structure; "(a|b|)" union; "[...]" advances memory without
 * transfer. Memory follows natural alignment (an item starts at the next
 * multiple of its element size, a structure at that of its widest member),
 * counted from the buffer's start, and the records lie end to end, each
 * padded to GetPadWidth(format); the file is packed. The number of records, or the last transfer's result (0 or -1)
 * when one failed; an unknown letter makes a record count as 0 (the count is
 * set to -1 before the record's increment).
 *
 * Unions differ between the two. The reader aligns to the union, skips
 * GetUnionSize's bytes and transfers nothing, like a C union. The writer
 * takes "(" and ")" as errors (each sets the count to -1) and "|" as
 * nothing, and none of the three moves the layout: it writes every member of
 * every alternative, one after another, as if the format had no "(", "|" or
 * ")". So the writer reads exactly the element
 * bytes of that flattened layout and nothing past it: for 1C(1L|) byte 0 and
 * bytes 4..7 (the byte, then the 32-bit value; 1 record returns 0); for
 * (1S|1D|) bytes 0..1 and 8..15, 16 bytes a record, where a C union of the
 * two takes 8. Hand the writer a record laid out that way, never a C union.
 */
TOLVA_API int32_t zunReadStruct(HGLOBAL s, const char *format, void *buffer, int32_t records);
TOLVA_API int32_t zunWriteStruct(HGLOBAL s, const char *format, const void *buffer,
                                 int32_t records);
/** zunSetDataFormat: 0; -1 for a null handle. */
TOLVA_API int32_t zunSetDataFormat(HGLOBAL s, int16_t dataFormat, int16_t floatFormat);
/** zunGetDataFormat: 0; -1 for a null handle. */
TOLVA_API int32_t zunGetDataFormat(HGLOBAL s, int16_t *dataFormat, int16_t *floatFormat);
/** GetPadWidth: alignment (1, 2, 4 or 8) of the structure, union or format at position. */
TOLVA_API int32_t GetPadWidth(const char *position);
/**
 * GetUnionSize: position points at "("; stores the union's size (the largest
 * alternative that is followed by "|", not rounded) and returns the position
 * of the closing ")" or of the terminator.
 */
TOLVA_API const char *GetUnionSize(const char *position, int32_t *size);
/**
 * zunReadLine: one line (any of CR, LF, CR LF ends it) into buffer of size
 * bytes, zero-terminated unless exactly size characters were stored (the rest
 * of the line comes with the next call). The number of characters, or -1 when
 * the data ended first (the text read is still in buffer).
 */
TOLVA_API int32_t zunReadLine(HGLOBAL s, char *buffer, int32_t size);
/** zunWriteLine: writes text and the stream's line end; the text's write count, or the failing line-end write's result. */
TOLVA_API int32_t zunWriteLine(HGLOBAL s, const char *text, int32_t length);
/** zunSetLineFormat: 1 CR, 2 LF (the default of file and memory streams), else CR LF. 0; -1 for a null handle. */
TOLVA_API int32_t zunSetLineFormat(HGLOBAL s, int16_t format);
/** zunGetLineFormat: the line end found in the data from the current position: 0 CR LF, 1 CR, 2 LF, -1 none. Leaves the stream at offset 0. */
TOLVA_API int32_t zunGetLineFormat(HGLOBAL s);

/** FillZunIOBuf: loads the buffer from the file; bytes loaded (0 at the end and for memory streams), -1 on error. */
TOLVA_API int32_t FillZunIOBuf(HGLOBAL s);
/** FlushZunIO: writes back a dirty buffer (bytes written, 0 if clean) or grows a memory block (1); -1 on error. */
TOLVA_API int32_t FlushZunIO(HGLOBAL s);
/** unxSeek: fseek then ftell; the new position, or -1 when the seek fails. */
TOLVA_API int32_t unxSeek(FILE *file, int32_t offset, int32_t origin);
/** docRead: reads from the compound-document sub-stream; bytes read. */
TOLVA_API int32_t docRead(HGLOBAL s, void *buffer, int32_t count);
/** docSeek: origins 0, 1 and 2 (2 measures docSize - offset); clamped to 0..size; -1 for other origins. */
TOLVA_API int32_t docSeek(HGLOBAL s, int32_t offset, int32_t origin);
/** zunNativeToLE: stores the n low-order bytes of value, least significant first. */
TOLVA_API void zunNativeToLE(void *destination, uint32_t value, int32_t n);
/** zunNativeToBE: stores the n low-order bytes of value, most significant first. */
TOLVA_API void zunNativeToBE(void *destination, uint32_t value, int32_t n);
/** zunPtrGlobalAlloc: a locked zero-filled block of size bytes; null for size 0. Free with zunPtrGlobalFree. */
TOLVA_API void *zunPtrGlobalAlloc(uint32_t size);
/** zunPtrGlobalHandle: the handle of an address from zunPtrGlobalAlloc. */
TOLVA_API HGLOBAL zunPtrGlobalHandle(const void *pointer);
/** zunPtrGlobalFree: frees the block; 0 (also for null). */
TOLVA_API HGLOBAL zunPtrGlobalFree(void *pointer);
/** zunPtrGlobalReAlloc: the new locked address (old block freed); null for size 0 (block freed). */
TOLVA_API void *zunPtrGlobalReAlloc(void *pointer, uint32_t size, uint32_t flags);

/* Results of zunOpenDocumentStream. */
#define TOLVA_DOC_BAD_STREAM (-1)    /* null handle or path, or a procedure stream */
#define TOLVA_DOC_NOT_COMPOUND (-2)  /* no 512-byte-sector compound document header */
#define TOLVA_DOC_CORRUPT (-3)       /* a table, chain or directory is out of range or loops */
#define TOLVA_DOC_NOT_FOUND (-4)     /* no stream of that name */

/**
 * zunOpenDocumentStream: puts a file or memory stream that holds a compound
 * document (Compound File Binary Format, version 3: 512-byte sectors) into
 * document mode on the sub-stream named by path ("Name" or "Storage/Name",
 * UTF-8, compared without regard to ASCII case). From then on zunRead and
 * zunSeek serve the sub-stream from its position 0. Reads the header, the
 * allocation table (through the header's and the extension DIFAT entries),
 * the mini-sector table and the directory, and checks that every chain the
 * sub-stream needs stays inside the file and does not loop. 0, or one of the
 * TOLVA_DOC_* codes; on failure the stream is left in its previous mode. The
 * tables belong to the stream and go with zunClose or the next successful
 * call. Intermediate reads go through the stream, so its position moves.
 */
TOLVA_API int32_t zunOpenDocumentStream(HGLOBAL s, const char *path);

/* [stream: further declarations] */

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
/**
 * Debug level of the raster library, 0 at load; only the host changes it.
 * Non-zero prints progress and tables, 1 and 2 add one "." per scan line,
 * above 3 rlSetPixel prints every pixel's coordinates.
 */
TOLVA_API extern int16_t _debug_color_res;

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

/* [raster: further declarations] */

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
#define TOLVA_SETUP_NAME_SIZE TOLVA_PROFILE_NAME_SIZE /* bytes of each of the three names, terminator included */
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

/* Results of LimitCheck: the last value it had to repair. */
#define TOLVA_LIMIT_RESOLUTION (-62) /* a resolution was outside 32..400 and is now 96 */
#define TOLVA_LIMIT_SIZE (-63)       /* a width or height was outside 0.03125..22.0 inches */

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
 * GetRasterInfo: makes the block current (lpRaster), applies the size and
 * resolution choices to the picture described by input[7] (display dpi,
 * unused, given dpi, width and height in dots at the given dpi, display width
 * and height in pixels), which may change the block's saved size and
 * resolutions, and writes {pixel width, pixel height, 8} to output[3].
 * Nothing is written when there is no block or a pointer is null.
 */
TOLVA_API void GetRasterInfo(HGLOBAL setup, const int32_t *input, int32_t *output);
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

/* [settings: further declarations] */

/* ------------------------------------------------------------------------ */
/* Picture output and GIF encoding                                            */
/* ------------------------------------------------------------------------ */

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
TOLVA_API int32_t RasterAdjustAspect(double sizeOut[2], double width, double height);
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
TOLVA_API int32_t ExportCellData(const char *fileName, void *pictureInformation,
                                 void *cellDescriptor, intptr_t *hostArguments);

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
 *
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

/* [output: further declarations] */

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
/** ZUNGetFilterVersion: 0x02000005, the version every query answers. */
TOLVA_API uint32_t ZUNGetFilterVersion(void);
/**
 * fltLoadPointers: stores the address of the filter's name table (9
 * TolvaNameEntry rows) in record[2] and the 16-bit row count 9 in the first
 * two bytes of record[1]; the rest of the record is left alone.
 */
TOLVA_API void fltLoadPointers(intptr_t *record);
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
 *            not fit the field: no file is made then); else a memory
 *            stream whose block the Setup block's
 *            exportMemoryBlock/exportMemoryData hold once the device is
 *            closed (the GIF and one 0xFF byte). The filter
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

/* [driver: further declarations] */

#ifdef __cplusplus
}
#endif

#endif /* TOLVA_TOLVA_H */

/*
 * tolva/stream.h - streams over files, memory and host procedures, typed and
 * structured I/O, line I/O and compound documents.
 *
 * Exported from libtolva for programs that call these parts directly; a host
 * that only drives the filter needs tolva/tolva.h alone.
 */
#ifndef TOLVA_STREAM_H
#define TOLVA_STREAM_H

#include <stdio.h>

#include <tolva/tolva.h>

#ifdef __cplusplus
extern "C" {
#endif

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
 * padded to GetPadWidth(format); the file is packed. The number of records,
 * or the last transfer's result (0 or -1) when one failed; an unknown letter
 * makes a record count as 0 (the count is set to -1 before the record's
 * increment).
 *
 * Unions differ between the two. The reader aligns to the union, skips
 * GetUnionSize's bytes and transfers nothing, like a C union. The writer
 * takes "(" and ")" as errors (each sets the count to -1) and "|" as
 * nothing, and none of the three moves the layout: it writes every member of
 * every alternative, one after another, as if the format had no "(", "|" or
 * ")". So the writer reads exactly the element bytes of that flattened
 * layout and nothing past it: for 1C(1L|) byte 0 and bytes 4..7 (the byte,
 * then the 32-bit value; 1 record returns 0); for (1S|1D|) bytes 0..1 and
 * 8..15, 16 bytes a record, where a C union of the two takes 8. Hand the
 * writer a record laid out that way, never a C union.
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

#ifdef __cplusplus
}
#endif

#endif /* TOLVA_STREAM_H */

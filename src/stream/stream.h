// Internal view of a stream: the record behind every stream handle and the
// buffer primitives that the typed, line and document layers share.
//
// The invariant every function here keeps: for a file stream the valid bytes
// of the buffer are buffer[0..lastValid], they mirror the file from offset
// bufferStart, and cursor never exceeds lastSlot + 1 when a byte is stored;
// for a memory stream lastSlot + 1 never exceeds the caller's block size.
#ifndef TOLVA_STREAM_STREAM_H
#define TOLVA_STREAM_STREAM_H

#include <stdint.h>
#include <stdio.h>

#include "tolva/host.h"
#include "tolva/stream.h"

// Compound documents (version 3): 512-byte sectors after a header of one
// sector, 64-byte mini-sectors, and streams below 4096 bytes kept in the
// mini-stream. The opener and the reader walk the same chains with these.
constexpr uint32_t kDocSector = 512;
constexpr uint32_t kDocMiniSector = 64;
constexpr uint32_t kDocMiniCutoff = 4096;

// Operations of a host I/O procedure.
enum StreamProcOperation : int32_t {
    kProcOpen = 1,
    kProcRead = 2,
    kProcWrite = 3,
    kProcSeek = 4,
    kProcClose = 5,
    kProcExists = 6,
    kProcDelete = 7,
};

// Descriptor words (zero-based; the host counts them from 1).
enum StreamDescriptorWord {
    kDescBlockRef = 0,
    kDescSize = 1,
    kDescGrowBy = 2,
    kDescFile = 3,
    kDescProc = 4,
    kDescInstance = 5,
};

// One per open stream, in a zero-filled movable block. Fields follow the
// layout the host documentation gives, widened where a pointer lives.
struct StreamRecord {
    FILE *file;            // null for memory and procedure streams
    HGLOBAL bufferHandle;  // file: the TOLVA_STREAM_BUFFER_SIZE buffer; memory: the caller's block
    void **blockPointerRef;      // memory: the caller's variable holding the block's address
    int32_t cursor;              // next byte to read or write in the buffer
    int32_t lastValid;           // last valid byte in the buffer, -1 when empty
    int32_t lastSlot;            // last usable byte of the buffer
    int32_t bufferStart;         // file offset of buffer byte 0
    int32_t nextFill;            // file offset of the next fill; -1 marks a memory stream
    int32_t dirty;               // 1 when the buffer holds bytes not yet in the file
    int32_t growBy;              // memory: bytes added at each growth
    int32_t size;                // file: its length; memory: lastValid at open
    StreamIOProc ioProc;         // the host's procedure, or null
    intptr_t ioInstance;         // first argument of ioProc
    uint32_t mode;               // flags given to zunOpen
    int32_t borrowedFile;        // 1: the FILE belongs to the caller (mode -1)
    int32_t error;               // 0, or -1 once anything failed (sticky)
    uint16_t dataFormat;         // 1: big-endian file data
    uint16_t floatFormat;        // 1: floats are 16.16 fixed point in the file
    uint16_t lineFormat;         // 1 CR, 2 LF, else CR LF
    int32_t namedFile;           // 1 when opened by name
    uint32_t docPosition;        // position inside the document sub-stream
    int32_t docMode;             // 1: reads and seeks serve the sub-stream
    HGLOBAL docSectorTable;      // u32 next-sector links
    HGLOBAL docMiniSectorTable;  // u32 next-mini-sector links
    uint32_t docMiniStreamStart;
    uint32_t docStartSector;
    uint32_t docSize;
    uint8_t *bufferData;   // locked address of bufferHandle, kept in step with it
    int32_t ownFile;       // 1: a file this stream opened and nobody else moves
    int64_t filePosition;  // own files: where the FILE stands, -1 when not known
};

inline StreamRecord *stream_lock(HGLOBAL s) { return static_cast<StreamRecord *>(GlobalLock(s)); }
inline bool stream_is_memory(const StreamRecord *r) { return r->nextFill == -1; }

// The buffer primitives over a locked record (the exported FillZunIOBuf and
// FlushZunIO are these over a handle).
int32_t stream_fill(StreamRecord *r);
int32_t stream_flush(StreamRecord *r);
// Re-measures a file stream's length without moving it.
void stream_measure(StreamRecord *r);
// Direct transfers: bulk reads and writes that bypass the buffer for the
// whole windows in their middle, leaving the file, the caller's bytes and the
// record exactly as window-by-window buffering would. On by default; the
// tests switch them off to compare against the plain buffered algorithm.
void stream_use_direct_io(bool on);
// Writes one byte when there is room for it; false when the general road
// (growth, flush, procedure) is needed.
inline bool stream_put_byte(StreamRecord *r, uint8_t byte) {
    // Fields are read into locals first: the byte store could otherwise
    // alias them and force reloads.
    int32_t at = r->cursor;
    int32_t valid = r->lastValid;
    if (r->ioProc != nullptr || at < 0 || at > r->lastSlot) return false;
    r->bufferData[at] = byte;
    r->lastValid = valid < at ? at : valid;
    r->cursor = at + 1;
    r->dirty = 1;
    return true;
}
// An n-byte unsigned value stored in file bytes, most significant byte first
// or last; written as bytes against the value, so that nothing depends on the
// machine's own byte order.
inline uint64_t stream_load_bytes(const uint8_t *p, int n, bool msbFirst) {
    uint64_t v = 0;
    for (int i = 0; i < n; ++i) v = (v << 8) | p[msbFirst ? i : n - 1 - i];
    return v;
}

inline void stream_store_bytes(uint8_t *p, uint64_t v, int n, bool msbFirst) {
    for (int i = 0; i < n; ++i) p[msbFirst ? n - 1 - i : i] = static_cast<uint8_t>(v >> (8 * i));
}

// Releases what the record holds apart from the caller's memory block.
void stream_release_tables(StreamRecord *r);

#endif

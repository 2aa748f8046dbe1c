// Opening and closing streams: named files, memory blocks, host procedures
// and wrapped standard I/O streams all end up as one StreamRecord.
//
// The invariant: a record that zunOpen hands out is complete for its kind (a
// file stream has its buffer, a memory stream a block that holds lastSlot + 1
// bytes), and zunClose/zunCloseandDelete always free it, whatever fails.
#include <stdio.h>
#include <string.h>

#include "stream/stream.h"

namespace {

intptr_t call_proc(StreamIOProc proc, intptr_t instance, int32_t operation, const void *a,
                   intptr_t b) {
    return proc(instance, operation, reinterpret_cast<intptr_t>(a), b);
}

StreamIOProc descriptor_proc(const intptr_t *d) {
    if (d == nullptr || d[kDescProc] == 0) return nullptr;
    return reinterpret_cast<StreamIOProc>(d[kDescProc]);
}

const char *stdio_mode(uint32_t mode) {
    if (mode & TOLVA_STREAM_CREATE) return "w+";
    if (mode & TOLVA_STREAM_UPDATE) return "r+";
    if (mode & TOLVA_STREAM_WRITE) return "w+";
    return "r";
}

void free_record(HGLOBAL h) {
    GlobalUnlock(h);
    GlobalFree(h);
}

// How far an opener got: the record is complete, it still needs the file
// buffer, or nothing could be opened (the caller frees the record).
enum Opened { kOpenedReady, kOpenedNeedsBuffer, kOpenedFailed };

// Modes that ask about a named file instead of opening a stream; a
// procedure, when the descriptor names one, answers for the file.
HGLOBAL probe_file(const char *name, StreamIOProc proc) {
    if (proc != nullptr) return static_cast<HGLOBAL>(call_proc(proc, 0, kProcExists, name, 0));
    FILE *probe = name != nullptr ? fopen(name, "r") : nullptr;
    if (probe == nullptr) return static_cast<HGLOBAL>(-1);
    fclose(probe);
    return 1;
}

HGLOBAL delete_file(const char *name, StreamIOProc proc) {
    if (proc != nullptr) return static_cast<HGLOBAL>(call_proc(proc, 0, kProcDelete, name, 0));
    return name != nullptr && remove(name) == 0 ? 1 : 0;
}

// The caller's procedure, or its FILE, which stays the caller's.
Opened open_wrapped(StreamRecord *r, const intptr_t *d, StreamIOProc proc) {
    r->borrowedFile = 1;
    if (proc != nullptr) {
        r->ioProc = proc;
        r->ioInstance = d[kDescInstance];
        return kOpenedReady;
    }
    // Without a FILE there is nothing to wrap.
    if (d == nullptr || d[kDescFile] == -1 || d[kDescFile] == 0) return kOpenedFailed;
    r->file = reinterpret_cast<FILE *>(d[kDescFile]);
    return kOpenedNeedsBuffer;
}

// True when the host's procedure took the stream. One that declines (answers
// instance 0) still serves the stream's transfers, and the file or block is
// opened as well.
bool open_by_procedure(StreamRecord *r, const intptr_t *d, StreamIOProc proc, const char *name,
                       uint32_t mode) {
    r->ioProc = proc;
    intptr_t instance =
        call_proc(proc, d[kDescBlockRef], kProcOpen, name, static_cast<intptr_t>(mode));
    if (instance == 0) return false;
    r->ioInstance = instance;
    return true;
}

// A memory stream over the caller's block. Reading drops the zero slack left
// by growth and then the 0xFF end mark that closing a written block appends.
void attach_memory(StreamRecord *r, intptr_t *d, uint32_t mode) {
    void **ref = reinterpret_cast<void **>(d[kDescBlockRef]);
    void *block = ref != nullptr ? *ref : nullptr;
    r->bufferHandle = GlobalHandle(block);
    r->bufferData = static_cast<uint8_t *>(block);
    r->blockPointerRef = ref;
    // The caller's size word cannot promise more than the block holds.
    int64_t held = r->bufferHandle != 0 ? int64_t{GlobalSize(r->bufferHandle)} : 0;
    int64_t size = d[kDescSize];
    if (size > held) size = held;
    if (size < 0) size = 0;
    if (mode & TOLVA_STREAM_CREATE) {
        r->lastValid = -1;
    } else {
        while (size != 0 && r->bufferData[size - 1] == 0) --size;
        --size;
        d[kDescSize] = static_cast<intptr_t>(size);
        r->lastValid = static_cast<int32_t>(size - 1);
    }
    // After the end mark is dropped from an empty block the last slot is -2:
    // the first growth then gives growBy - 1 bytes, as the hosts expect.
    r->lastSlot = static_cast<int32_t>(size - 1);
    r->growBy = static_cast<int32_t>(d[kDescGrowBy]);
    r->cursor = 0;
    r->bufferStart = 0;
    r->nextFill = -1;
    r->file = nullptr;
    r->error = 0;
    r->lineFormat = 2;
}

// Without a name the stream is the caller's memory block.
Opened open_memory(StreamRecord *r, intptr_t *d, uint32_t mode) {
    if (d == nullptr) return kOpenedFailed;
    attach_memory(r, d, mode);
    if (r->ioProc == nullptr) r->size = r->lastValid;
    return kOpenedReady;
}

// "stdin" and "stdout" name the process's standard streams.
Opened open_named_file(StreamRecord *r, const char *name, uint32_t mode) {
    r->namedFile = 1;
    if (strcmp(name, "stdin") == 0) {
        r->file = stdin;
    } else if (strcmp(name, "stdout") == 0) {
        r->file = stdout;
    } else {
        r->file = fopen(name, stdio_mode(mode));
        // The stream's own buffer is the only one needed; stdio's would
        // only copy every byte a second time.
        if (r->file != nullptr) {
            setvbuf(r->file, nullptr, _IONBF, 0);
            r->ownFile = 1;
            r->filePosition = 0;
        }
    }
    return r->file == nullptr ? kOpenedFailed : kOpenedNeedsBuffer;
}

// The buffer of a file stream; false when it cannot be had.
bool attach_buffer(StreamRecord *r) {
    r->bufferHandle = GlobalAlloc(TOLVA_GMEM_FLAGS, TOLVA_STREAM_BUFFER_SIZE);
    if (r->bufferHandle == 0) return false;
    r->bufferData = static_cast<uint8_t *>(GlobalLock(r->bufferHandle));
    r->cursor = 0;
    r->lastValid = -1;
    r->lastSlot = TOLVA_STREAM_BUFFER_SIZE - 1;
    r->bufferStart = 0;
    r->nextFill = 0;
    r->dirty = 0;
    r->error = 0;
    r->lineFormat = 2;
    if (!r->ownFile) r->filePosition = -1;
    return true;
}

// Frees the record and what it holds of its own (not the caller's block, nor
// a borrowed FILE); closes an own file and answers the close's result.
int32_t release(HGLOBAL s, StreamRecord *r) {
    int32_t result = 0;
    if (r->file != nullptr && !r->borrowedFile && fclose(r->file) != 0) result = -1;
    if (r->file != nullptr && r->bufferHandle != 0) GlobalFree(r->bufferHandle);
    stream_release_tables(r);
    free_record(s);
    return result;
}

}  // namespace

void stream_release_tables(StreamRecord *r) {
    if (r->docSectorTable != 0) GlobalFree(r->docSectorTable);
    if (r->docMiniSectorTable != 0) GlobalFree(r->docMiniSectorTable);
    r->docSectorTable = 0;
    r->docMiniSectorTable = 0;
    r->docMode = 0;
}

extern "C" {

HGLOBAL zunOpen(const char *name, intptr_t *descriptor, uint32_t mode) {
    StreamIOProc proc = descriptor_proc(descriptor);
    if (mode == TOLVA_STREAM_EXISTS) return probe_file(name, proc);
    if (mode == TOLVA_STREAM_DELETE) return delete_file(name, proc);

    HGLOBAL s = GlobalAlloc(TOLVA_GMEM_FLAGS, sizeof(StreamRecord));
    if (s == 0) return 0;
    StreamRecord *r = stream_lock(s);
    r->mode = mode;
    Opened opened;
    if (mode == TOLVA_STREAM_WRAP)
        opened = open_wrapped(r, descriptor, proc);
    else if (proc != nullptr && open_by_procedure(r, descriptor, proc, name, mode))
        opened = kOpenedReady;
    else if (name == nullptr || name[0] == '\0')
        opened = open_memory(r, descriptor, mode);
    else
        opened = open_named_file(r, name, mode);

    if (opened == kOpenedNeedsBuffer && !attach_buffer(r)) {
        if (!r->borrowedFile) fclose(r->file);
        opened = kOpenedFailed;
    }
    if (opened == kOpenedFailed) {
        free_record(s);
        return 0;
    }
    if (opened == kOpenedNeedsBuffer && r->ioProc == nullptr) stream_measure(r);
    return s;
}

int32_t zunClose(HGLOBAL s) {
    if (s == 0) return -1;
    StreamRecord *r = stream_lock(s);
    if (r->ioProc != nullptr) {
        int32_t answer = static_cast<int32_t>(r->ioProc(r->ioInstance, kProcClose, 0, 0));
        release(s, r);
        return answer;
    }
    r->docMode = 0;
    int32_t result = 0;
    if (stream_is_memory(r)) {
        // The end mark lets a later open for reading find where the data
        // stops inside the zero-filled growth slack.
        if (r->mode & (TOLVA_STREAM_WRITE | TOLVA_STREAM_UPDATE)) {
            static const uint8_t kEndMark = 0xFF;
            zunSeek(s, 0, SEEK_END);
            if (zunWrite(s, &kEndMark, 1) != 1) result = -1;
        }
        stream_release_tables(r);
        free_record(s);
        return result;
    }
    if (r->dirty && stream_flush(r) == -1) result = -1;
    if (release(s, r) != 0) result = -1;
    return result;
}

int32_t zunCloseandDelete(HGLOBAL s, const char *name) {
    if (s == 0) return -1;
    StreamRecord *r = stream_lock(s);
    if (r->ioProc != nullptr) {
        // The procedure deletes what it closes.
        (void)r->ioProc(r->ioInstance, kProcClose, 0, TOLVA_STREAM_DELETE);
        release(s, r);
        return 0;
    }
    (void)zunClose(s);  // the file goes anyway, so a failed close changes nothing
    (void)zunOpen(name, nullptr, TOLVA_STREAM_DELETE);
    return 0;
}

}  // extern "C"

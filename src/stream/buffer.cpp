// Reading, writing and seeking through a stream's one buffer.
//
// A file stream mirrors one window of the file in its 12288-byte buffer; a
// memory stream's buffer is the caller's block itself and never refills. The
// window is written back whole (bytes 0..lastValid, read bytes included) when
// it is dirty and has to move. Every store stays below lastSlot + 1, which is
// never more than the block holds.
#include <errno.h>
#include <stdint.h>
#include <string.h>

#include "stream/stream.h"

namespace {

bool proc_stream(const StreamRecord *r) { return r->ioProc != nullptr; }

bool g_direct_io = true;

// Puts the file at `at` for a transfer. An own file that already stands there
// (and has not met its end, which stdio keeps sticky) needs no seek. On a pipe
// ("stdin", "stdout") the seek is refused and the transfer simply goes on
// where the last one stopped.
bool position_file(StreamRecord *r, int32_t at) {
    if (g_direct_io && r->ownFile && r->filePosition == at && !feof(r->file)) return true;
    if (fseek(r->file, at, SEEK_SET) == 0) {
        r->filePosition = at;
        return true;
    }
    r->filePosition = -1;
    return errno == ESPIPE;
}

// The FILE moved by `n` bytes of a transfer.
void advance_file(StreamRecord *r, size_t n) {
    if (r->filePosition >= 0) r->filePosition += static_cast<int64_t>(n);
}

// After bytes [at, at + n) reached the file: the length as a fresh
// measurement would find it. A file only this stream moves cannot have
// changed behind it, so its length follows from the write alone.
void note_written(StreamRecord *r, int32_t at, int32_t n) {
    if (g_direct_io && r->ownFile) {
        if (int64_t{at} + n > r->size) r->size = at + n;
        return;
    }
    stream_measure(r);
}

// Reads whole windows straight into the caller's memory: `want` bytes from
// nextFill. Leaves the record as the last of those fills would have, or as a
// fill at the end of the file when fewer arrived. Result as stream_fill's.
int32_t read_direct(StreamRecord *r, uint8_t *out, int32_t want) {
    if (!position_file(r, r->nextFill)) {
        r->error = -1;
        return -1;
    }
    size_t got = fread(out, 1, static_cast<size_t>(want), r->file);
    advance_file(r, got);
    if (got < static_cast<size_t>(want) && ferror(r->file)) {
        clearerr(r->file);
        r->error = -1;
        return -1;
    }
    auto n = static_cast<int32_t>(got);
    if (n < want) {
        r->cursor = 0;
        r->lastValid = -1;
        r->lastSlot = TOLVA_STREAM_BUFFER_SIZE - 1;
        r->bufferStart = r->nextFill + n;
        r->nextFill = r->bufferStart;
    } else {
        r->nextFill += n;
    }
    return n;
}

// Writes whole windows straight from the caller's memory at bufferStart,
// as the flushes of those windows would have.
int32_t write_direct(StreamRecord *r, const uint8_t *in, int32_t want) {
    if (!position_file(r, r->bufferStart)) {
        r->error = -1;
        return -1;
    }
    size_t wrote = fwrite(in, 1, static_cast<size_t>(want), r->file);
    advance_file(r, wrote);
    if (wrote != static_cast<size_t>(want) || fflush(r->file) != 0) {
        // As buffering would stand after the flush that failed: the windows
        // before it written, the failed one in the buffer, still dirty.
        size_t done = wrote / TOLVA_STREAM_BUFFER_SIZE * TOLVA_STREAM_BUFFER_SIZE;
        if (done == static_cast<size_t>(want)) done -= TOLVA_STREAM_BUFFER_SIZE;
        r->bufferStart += static_cast<int32_t>(done);
        r->nextFill = r->bufferStart;
        memcpy(r->bufferData, in + done, TOLVA_STREAM_BUFFER_SIZE);
        r->cursor = TOLVA_STREAM_BUFFER_SIZE;
        r->lastValid = TOLVA_STREAM_BUFFER_SIZE - 1;
        r->dirty = 1;
        r->error = -1;
        stream_measure(r);
        return -1;
    }
    int32_t at = r->bufferStart;
    r->bufferStart += want;
    r->nextFill = r->bufferStart;
    note_written(r, at, want);
    return want;
}

// Whole windows of `left` bytes that buffering would move through the file
// before the last window: a read that ends exactly on a window boundary, and
// a write that does, keep their last window in the buffer.
int32_t whole_windows(int32_t left) {
    return (left - 1) / TOLVA_STREAM_BUFFER_SIZE * TOLVA_STREAM_BUFFER_SIZE;
}

// The memory block is grown to `bytes` bytes and the caller's variable
// follows it. The old block goes even when the new one cannot be had, so on
// failure the stream is left with nothing to store into.
int32_t grow_block(StreamRecord *r, int64_t bytes) {
    if (bytes <= 0 || bytes > INT32_MAX) return -1;
    HGLOBAL fresh = GlobalReAlloc(r->bufferHandle, static_cast<uint32_t>(bytes), TOLVA_GMEM_FLAGS);
    r->bufferHandle = fresh;
    r->bufferData = static_cast<uint8_t *>(GlobalLock(fresh));
    if (r->blockPointerRef != nullptr) *r->blockPointerRef = r->bufferData;
    if (fresh == 0) {
        r->lastSlot = -1;
        r->lastValid = -1;
        r->cursor = 0;
        return -1;
    }
    return 0;
}

}  // namespace

void stream_measure(StreamRecord *r) {
    if (r->file == nullptr) return;
    long here = ftell(r->file);
    r->filePosition = -1;
    if (fseek(r->file, 0, SEEK_END) != 0) return;
    long end = ftell(r->file);
    if (here >= 0 && fseek(r->file, here, SEEK_SET) == 0 && r->ownFile) r->filePosition = here;
    r->size = end > INT32_MAX ? INT32_MAX : static_cast<int32_t>(end);
}

int32_t stream_flush(StreamRecord *r) {
    if (stream_is_memory(r)) {
        // A memory block grows by growBy; without a positive step it could
        // never make room, so the growth counts as failed.
        if (r->growBy <= 0) return -1;
        int64_t bytes = int64_t{r->lastSlot} + r->growBy + 1;
        if (grow_block(r, bytes) != 0) return -1;
        r->lastSlot += r->growBy;
        r->dirty = 0;
        return 1;
    }
    if (!r->dirty) return 0;
    if (r->file == nullptr || !position_file(r, r->bufferStart)) {
        r->error = -1;
        return -1;
    }
    size_t want = static_cast<size_t>(r->lastValid + 1);
    size_t wrote = fwrite(r->bufferData, 1, want, r->file);
    advance_file(r, wrote);
    // The file is flushed here so that a full disk shows up at this write and
    // not only at close.
    if (wrote != want || fflush(r->file) != 0) {
        r->error = -1;
        stream_measure(r);
        return -1;
    }
    int32_t at = r->bufferStart;
    r->cursor = 0;
    r->lastValid = -1;
    r->lastSlot = TOLVA_STREAM_BUFFER_SIZE - 1;
    r->bufferStart += static_cast<int32_t>(wrote);
    r->nextFill = r->bufferStart;
    r->dirty = 0;
    note_written(r, at, static_cast<int32_t>(wrote));
    return static_cast<int32_t>(wrote);
}

int32_t stream_fill(StreamRecord *r) {
    if (stream_is_memory(r) || r->file == nullptr) return 0;
    if (r->dirty && stream_flush(r) == -1) r->error = -1;
    if (!position_file(r, r->nextFill)) {
        r->error = -1;
        return -1;
    }
    size_t got = fread(r->bufferData, 1, TOLVA_STREAM_BUFFER_SIZE, r->file);
    advance_file(r, got);
    if (got == 0 && ferror(r->file)) {
        clearerr(r->file);
        r->error = -1;
        return -1;
    }
    int32_t count = static_cast<int32_t>(got);
    r->cursor = 0;
    r->lastValid = count - 1;
    r->lastSlot = TOLVA_STREAM_BUFFER_SIZE - 1;
    r->bufferStart = r->nextFill;
    r->nextFill += count;
    return count;
}

void stream_use_direct_io(bool on) { g_direct_io = on; }

extern "C" {

int32_t FillZunIOBuf(HGLOBAL s) {
    if (s == 0) return -1;
    return stream_fill(stream_lock(s));
}

int32_t FlushZunIO(HGLOBAL s) {
    if (s == 0) return -1;
    return stream_flush(stream_lock(s));
}

int32_t unxSeek(FILE *file, int32_t offset, int32_t origin) {
    if (file == nullptr || fseek(file, offset, origin) != 0) return -1;
    long at = ftell(file);
    return at > INT32_MAX ? -1 : static_cast<int32_t>(at);
}

int32_t zunRead(HGLOBAL s, void *buffer, int32_t count) {
    if (s == 0) return 0;
    StreamRecord *r = stream_lock(s);
    if (proc_stream(r)) {
        return static_cast<int32_t>(
            r->ioProc(r->ioInstance, kProcRead, reinterpret_cast<intptr_t>(buffer), count));
    }
    if (r->docMode) return docRead(s, buffer, count);
    auto *out = static_cast<uint8_t *>(buffer);
    int32_t done = 0;
    while (done < count) {
        if (r->cursor <= r->lastValid && r->cursor >= 0) {
            int32_t piece = r->lastValid - r->cursor + 1;
            if (piece > count - done) piece = count - done;
            memcpy(out + done, r->bufferData + r->cursor, static_cast<size_t>(piece));
            r->cursor += piece;
            done += piece;
            continue;
        }
        if (stream_is_memory(r)) break;
        int32_t bulk = whole_windows(count - done);
        if (g_direct_io && bulk > 0 && !r->dirty && r->file != nullptr) {
            int32_t got = read_direct(r, out + done, bulk);
            if (got < 0) return -1;
            done += got;
            if (got < bulk) break;
            continue;
        }
        int32_t loaded = stream_fill(r);
        if (loaded == 0) break;
        if (loaded < 0) {
            r->error = -1;
            return -1;
        }
    }
    return done;
}

int32_t zunWrite(HGLOBAL s, const void *buffer, int32_t count) {
    if (s == 0) return 0;
    StreamRecord *r = stream_lock(s);
    if (proc_stream(r)) {
        return static_cast<int32_t>(
            r->ioProc(r->ioInstance, kProcWrite, reinterpret_cast<intptr_t>(buffer), count));
    }
    const auto *in = static_cast<const uint8_t *>(buffer);
    if (count == 1 && stream_put_byte(r, in[0])) return 1;
    int32_t done = 0;
    while (done < count) {
        int32_t bulk = whole_windows(count - done);
        if (g_direct_io && bulk > 0 && r->file != nullptr && !stream_is_memory(r) &&
            r->cursor == 0 && r->lastValid == -1 && !r->dirty && r->error == 0) {
            if (write_direct(r, in + done, bulk) < 0) return -1;
            done += bulk;
            continue;
        }
        if (r->cursor > r->lastSlot) {
            // Once a failure is on record a full buffer takes nothing more;
            // the bytes already placed by this call are not counted.
            if (r->error == -1) return 0;
            if (stream_flush(r) == -1) {
                r->error = -1;
                return -1;
            }
            // A window that was only read needs no write-back but still has
            // to move on, or the next byte would land past the buffer.
            if (!stream_is_memory(r) && r->cursor > r->lastSlot) {
                r->bufferStart += r->cursor;
                r->nextFill = r->bufferStart;
                r->cursor = 0;
                r->lastValid = -1;
            }
            continue;
        }
        int32_t piece = r->lastSlot - r->cursor + 1;
        if (piece > count - done) piece = count - done;
        memcpy(r->bufferData + r->cursor, in + done, static_cast<size_t>(piece));
        r->cursor += piece;
        if (r->lastValid < r->cursor - 1) r->lastValid = r->cursor - 1;
        r->dirty = 1;
        done += piece;
    }
    return done;
}

int32_t zunSeek(HGLOBAL s, int32_t offset, int32_t origin) {
    if (s == 0) return -1;
    StreamRecord *r = stream_lock(s);
    if (proc_stream(r)) {
        int32_t where = offset;
        return static_cast<int32_t>(
            r->ioProc(r->ioInstance, kProcSeek, reinterpret_cast<intptr_t>(&where), origin));
    }
    if (r->docMode) return docSeek(s, offset, origin);
    int64_t here = int64_t{r->bufferStart} + r->cursor;
    if (origin == SEEK_CUR && offset == 0) return static_cast<int32_t>(here);
    int64_t target = offset;
    if (origin == SEEK_CUR) {
        origin = SEEK_SET;
        target += here;
    }
    if (origin == SEEK_SET) {
        bool mayExtend = (r->mode & (TOLVA_STREAM_WRITE | TOLVA_STREAM_UPDATE)) != 0;
        if (target < 0 || target > INT32_MAX || (target > r->size && !mayExtend)) {
            r->error = -1;
            return -1;
        }
        if (target >= r->bufferStart && target <= int64_t{r->bufferStart} + r->lastValid) {
            r->cursor = static_cast<int32_t>(target - r->bufferStart);
            return static_cast<int32_t>(target);
        }
    }
    if (stream_is_memory(r)) {
        if (origin == SEEK_SET) {
            if (target > r->lastSlot) {
                if (grow_block(r, target + r->growBy + 1) != 0) return -1;
                r->lastSlot = static_cast<int32_t>(target) + r->growBy;
                r->dirty = 0;
            }
            r->cursor = static_cast<int32_t>(target);
            return r->cursor;
        }
        if (origin == SEEK_END) {
            // Before the block's start there is nothing to point at.
            int64_t at = int64_t{r->lastValid} + 1 + offset;
            if (at < 0 || at > INT32_MAX) {
                r->error = -1;
                return -1;
            }
            r->cursor = static_cast<int32_t>(at);
            return r->cursor;
        }
        r->error = -1;
        return -1;
    }
    if (r->dirty && stream_flush(r) == -1) r->error = -1;
    int32_t at = unxSeek(r->file, static_cast<int32_t>(target), origin);
    if (r->ownFile) r->filePosition = at;
    if (at == -1) {
        r->error = -1;
        return -1;
    }
    r->nextFill = at;
    if (stream_fill(r) == -1) {
        r->error = -1;
        return -1;
    }
    return at;
}

}  // extern "C"

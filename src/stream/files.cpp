// Whole-file helpers (copy, temporary names) and the pointer-style wrappers
// over memory handles that older callers use.
//
// Temporary names come from mkstemp, so the file exists by the time its name
// is handed out and no other process can take the name in between.
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "stream/stream.h"

namespace {
constexpr int32_t kCopyStep = 4096;
}  // namespace

extern "C" {

int32_t zunCopy(const char *source, const char *destination) {
    // The opens are not checked: a missing source reads as empty.
    HGLOBAL in = zunOpen(source, nullptr, 0);
    HGLOBAL out = zunOpen(destination, nullptr, TOLVA_STREAM_OUTPUT);
    uint8_t chunk[kCopyStep];
    int64_t readTotal = 0;
    int64_t writeTotal = 0;
    for (;;) {
        int32_t got = zunRead(in, chunk, kCopyStep);
        if (got < 1) break;
        readTotal += got;
        writeTotal += zunWrite(out, chunk, got);
    }
    (void)zunClose(in);  // the difference of the counts is the answer
    (void)zunClose(out);
    return static_cast<int32_t>(writeTotal - readTotal);
}

int32_t ZUNGetTempFileName(int32_t, const char *, uint32_t, char *buffer) {
    if (buffer == nullptr) return 0;
    char name[] = "/tmp/zunXXXXXX";
    int fd = mkstemp(name);
    if (fd < 0) return 0;
    close(fd);
    static_assert(sizeof name <= TOLVA_TEMP_NAME_SIZE, "the name fits the caller's buffer");
    memcpy(buffer, name, sizeof name);
    return 1;
}

void *zunPtrGlobalAlloc(uint32_t size) {
    if (size == 0) return nullptr;
    HGLOBAL h = GlobalAlloc(TOLVA_GMEM_FLAGS, size);
    return h != 0 ? GlobalLock(h) : nullptr;
}

HGLOBAL zunPtrGlobalHandle(const void *pointer) { return GlobalHandle(pointer); }

HGLOBAL zunPtrGlobalFree(void *pointer) {
    if (pointer == nullptr) return 0;
    HGLOBAL h = GlobalHandle(pointer);
    // A block still locked after the unlock stays; its handle says which.
    if (GlobalUnlock(h) != 0) return h;
    return static_cast<HGLOBAL>(GlobalFree(h));
}

void *zunPtrGlobalReAlloc(void *pointer, uint32_t size, uint32_t flags) {
    if (pointer == nullptr) return zunPtrGlobalAlloc(size);
    HGLOBAL h = GlobalHandle(pointer);
    if (GlobalUnlock(h) != 0) return nullptr;
    if (size == 0) {
        GlobalFree(h);
        return nullptr;
    }
    HGLOBAL fresh = GlobalReAlloc(h, size, flags);
    return fresh != 0 ? GlobalLock(fresh) : nullptr;
}

}  // extern "C"

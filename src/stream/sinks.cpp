// Opening the output streams of sinks.h.
#include "stream/sinks.h"

#include "stream/stream.h"

HGLOBAL stream_open_procedure(const char *name, intptr_t procedure, const intptr_t *statusRecord) {
    intptr_t device = statusRecord != nullptr ? statusRecord[TOLVA_STATUS_DEVICE] : 0;
    intptr_t descriptor[TOLVA_STREAM_DESCRIPTOR_WORDS] = {device, 0, 0, 0, procedure, 0};
    return zunOpen(name, descriptor, TOLVA_STREAM_OUTPUT);
}

HGLOBAL stream_open_file(const char *name) { return zunOpen(name, nullptr, TOLVA_STREAM_OUTPUT); }

HGLOBAL stream_open_memory(HGLOBAL *block, void **data) {
    *block = GlobalAlloc(TOLVA_GMEM_FLAGS, 1);
    void *locked = GlobalLock(*block);
    if (locked == nullptr) {
        *block = 0;
        return 0;
    }
    *data = locked;
    intptr_t descriptor[TOLVA_STREAM_DESCRIPTOR_WORDS] = {
        reinterpret_cast<intptr_t>(data), 0, kStreamMemoryGrowth, 0, 0, 0};
    return zunOpen(nullptr, descriptor, TOLVA_STREAM_OUTPUT);
}

void stream_move_memory_ref(HGLOBAL stream, void **from, void **to) {
    StreamRecord *r = stream != 0 ? stream_lock(stream) : nullptr;
    if (r == nullptr) return;
    if (stream_is_memory(r) && r->blockPointerRef == from) {
        *to = *from;
        r->blockPointerRef = to;
    }
    GlobalUnlock(stream);
}

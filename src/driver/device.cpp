// Device open and close and the picture brackets: the handlers that move the
// device state through 1 -> 2 -> 4 -> 8 -> 16 and back to 1, and own the
// output stream.
//
// The state moves whatever happens to the stream: a failed open or close is
// reported through the error stack, never by refusing the transition.
#include "driver/driver.h"
#include "stream/sinks.h"

namespace {

// Without a Setup block the memory output has no host-visible home.
void *g_memory_fallback = nullptr;

// The device's own memory-stream block, noted when the device closes, so
// that only that block is released later: the same Setup block fields also
// carry ExportCellData's output, and a host may take the block or put
// another one there.
bool g_memory_open = false;
void *g_memory_closed = nullptr;

bool g_file_name_fits = true;
bool g_discard_output = false;

// The variable that holds the locked address of the memory-stream block.
// The stream keeps its address and rewrites it whenever the block grows, so
// it must outlive the stream: it is the Setup block's, where the host finds
// its picture once the device is closed.
void **memory_output_ref() {
    return lpSetup != nullptr ? &lpSetup->exportMemoryData : &g_memory_fallback;
}

}  // namespace

void driver_release_memory_output(void) {
    void **ref = memory_output_ref();
    void *closed = g_memory_closed;
    g_memory_closed = nullptr;
    if (closed == nullptr || *ref != closed) return;  // the host took it
    (void)GlobalFree(GlobalHandle(closed));
    *ref = nullptr;
    if (lpSetup != nullptr) lpSetup->exportMemoryBlock = 0;
}

void driver_setup_leaving(SetupBlock *block) {
    if (block == nullptr || block != lpSetup) return;
    if (lpEMData != nullptr && g_memory_open) {
        stream_move_memory_ref(lpEMData->outputStream, &block->exportMemoryData,
                               &g_memory_fallback);
    } else if (g_memory_closed != nullptr && block->exportMemoryData == g_memory_closed) {
        g_memory_fallback = g_memory_closed;
    }
}

void driver_note_file_name_fits(bool fits) { g_file_name_fits = fits; }

void driver_discard_output(void) { g_discard_output = true; }

extern "C" {

void *d_opdv(void *block) {
    EMData *em = lpEMData;
    if (em == nullptr) return block;
    (void)d_empes(block);
    em->deviceState = TOLVA_STATE_OPEN;
    g_discard_output = false;

    if (lpSetup != nullptr && lpSetup->outputDevice != 0) {
        // The host's I/O procedure reports its own failures: a null stream
        // on this path is not an error of ours.
        em->outputStream =
            stream_open_procedure(em->fileName, lpSetup->outputDevice, em->statusRecord);
        return block;
    }
    if (!g_file_name_fits) {
        // Only the start of the host's name is in the field; a file under
        // that name would be one the host never asked for.
        em->outputStream = 0;
        push_er(TOLVA_ERR_STREAM);
        return block;
    }
    if (em->fileName[0] != '\0') {
        em->outputStream = stream_open_file(em->fileName);
        if (em->outputStream == 0) push_er(TOLVA_ERR_STREAM);
        return block;
    }
    // No name: the picture goes into a memory block that the stream grows.
    // The block of an earlier device goes now, unless the host took it.
    driver_release_memory_output();
    HGLOBAL work = 0;
    em->outputStream = stream_open_memory(&work, memory_output_ref());
    if (work == 0) {
        push_er(TOLVA_ERR_MEMORY);
        return block;
    }
    g_memory_open = true;
    if (lpSetup != nullptr) lpSetup->exportMemoryBlock = work;
    if (em->outputStream == 0) push_er(TOLVA_ERR_STREAM);
    return block;
}

void *d_cldv(void *block) {
    EMData *em = lpEMData;
    if (em == nullptr) return block;
    em->deviceState = TOLVA_STATE_INITIALISED;
    // Only a file this device opened itself is ever deleted for a refusal.
    const bool ownFile = em->outputStream != 0 && em->fileName[0] != '\0' &&
                         (lpSetup == nullptr || lpSetup->outputDevice == 0);
    if (RASTER_escape() != 0) {
        // The host asked to stop (901 is already pushed): no output survives.
        (void)zunCloseandDelete(em->outputStream, em->fileName);
    } else if (g_discard_output && ownFile) {
        // A refused picture (its code is already pushed) leaves no file.
        (void)zunCloseandDelete(em->outputStream, em->fileName);
    } else if (zunClose(em->outputStream) != 0) {
        push_er(TOLVA_ERR_STREAM);
    }
    em->outputStream = 0;
    g_discard_output = false;
    // A memory stream moves its block as it grows and keeps only the data
    // address up to date; the handle follows it here.
    if (g_memory_open) {
        g_memory_open = false;
        g_memory_closed = *memory_output_ref();
        if (lpSetup != nullptr) lpSetup->exportMemoryBlock = GlobalHandle(g_memory_closed);
    }
    return block;
}

void *d_begp(void *block) {
    if (lpEMData == nullptr) return block;
    lpEMData->deviceState = TOLVA_STATE_PICTURE;
    d_reset(0, 4);
    return block;
}

void *d_begpb(void *block) {
    if (lpEMData != nullptr) lpEMData->deviceState = TOLVA_STATE_BODY;
    return block;
}

void *d_endp(void *block) {
    if (lpEMData != nullptr) lpEMData->deviceState = TOLVA_STATE_ENDED;
    return block;
}

}  // extern "C"

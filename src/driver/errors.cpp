// The error stack and the reply buffer.
//
// Handlers never return errors: they push codes here, and the host pops them
// with its own opcodes. Replies go through mov2buf, which only ever appends;
// once the reply buffer is full, further replies are cut to nothing.
//
// The stack's capacity and current opcode belong to the host: the filter
// never writes them, so with the zero fill the capacity is 0 and every push
// overwrites entry -1, the first error record. That keeps the latest error
// in the first record and counts every push as lost, which hosts rely on.
#include <string.h>

#include "driver/driver.h"

TolvaErrorRecord *driver_error_entry(EMData *em, int32_t index) {
    if (index == -1) return &em->firstError;
    if (index < 0 || index >= 10) return nullptr;
    return &em->errors[index];
}

namespace {

// The number of bytes of `length` that still fit behind the reply position.
uint32_t reply_room(const EMData *em, uint32_t length) {
    uint32_t position = em->replyPosition;
    if (uint64_t{position} + length <= em->replySize) return length;
    // A position already past the end (a host rewriting it) leaves no room.
    return position < em->replySize ? em->replySize - position : 0;
}

}  // namespace

void driver_reply_skip(uint32_t length) {
    EMData *em = lpEMData;
    if (em == nullptr || em->replyBuffer == nullptr) return;
    em->replyPosition += reply_room(em, length);
}

extern "C" {

void push_er(int32_t code) {
    EMData *em = lpEMData;
    if (em == nullptr) return;  // the export road may push before any init
    int16_t code16 = static_cast<int16_t>(code);
    int32_t opcode = em->currentOpcode;

    if (em->errorCount != 0) {
        const TolvaErrorRecord *top = driver_error_entry(em, em->errorCount - 1);
        if (top != nullptr && top->opcode == opcode && top->code == code16) return;
    }
    if (em->errorCount == 0) {
        em->firstError.opcode = opcode;
        em->firstError.code = code16;
    }
    TolvaErrorRecord *slot;
    if (em->errorCount >= em->errorCapacity) {
        slot = driver_error_entry(em, em->errorCapacity - 1);
        em->lostErrors += 1;
    } else {
        slot = driver_error_entry(em, em->errorCount);
        em->errorCount += 1;
    }
    // A capacity the host set outside 0..10 names no record: the push is
    // counted but not stored, rather than written over the device window.
    if (slot != nullptr) {
        slot->opcode = opcode;
        slot->code = code16;
    }
    em->lastErrorOpcode = opcode;
    em->result = code16;
}

void mov2buf(const void *address, uint32_t length) {
    EMData *em = lpEMData;
    if (em == nullptr || em->replyBuffer == nullptr) return;
    length = reply_room(em, length);
    if (length != 0) memcpy(em->replyBuffer + em->replyPosition, address, length);
    em->replyPosition += length;
}

void *d_popes(void *block) {
    EMData *em = lpEMData;
    if (em == nullptr) return block;
    int32_t n = host_load_i32(block, TOLVA_POP_WANTED);
    if (em->errorCount < n) n = em->errorCount;
    mov2buf(&n, 4);
    for (int32_t i = 0; i < n; ++i) {
        em->errorCount -= 1;
        const TolvaErrorRecord *entry = driver_error_entry(em, em->errorCount);
        TolvaErrorRecord none = {0, 0, 0};
        mov2buf(entry != nullptr ? entry : &none, sizeof(TolvaErrorRecord));
    }
    return block;
}

void *d_empes(void *block) {
    EMData *em = lpEMData;
    if (em == nullptr) return block;
    em->errorCount = 0;
    em->lostErrors = 0;
    em->lastErrorOpcode = 0;
    em->result = 0;
    return block;
}

void *dq_es(void *block) {
    EMData *em = lpEMData;
    if (em == nullptr) return block;
    mov2buf(&em->errorCount, 4);
    mov2buf(&em->firstError, sizeof(TolvaErrorRecord));
    mov2buf(&em->lostErrors, 4);
    return block;
}

}  // extern "C"

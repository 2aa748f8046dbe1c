// The four entry functions of the two driver variants.
//
// The host first calls RASTER_dd_entry or dd_entry (function -3) for the
// address of the matching 32-bit entry, and drives everything else through
// that: 0 init, 2 an opcode, -1 term, -2 the version. Opcode calls before
// init (state 0 or below) run nothing. The two init guards differ on
// purpose: the raster variant skips init for a device in state -1, the
// export variant for a Common block in state 1.
//
// Init, opcode calls and term work on the process-wide state, so each holds
// the busy mark while it runs and is refused with TOLVA_ERR_BUSY when another
// call holds it. The version and entry-address answers are constants and
// need no mark.
#include <string.h>

#include "driver/driver.h"
#include "host/busy.h"

namespace {

enum : int16_t {
    kInit = TOLVA_ENTRY_INIT,
    kReserved = 1,
    kCall = TOLVA_ENTRY_CALL,
    kTerm = TOLVA_ENTRY_TERM,
    kVersion = TOLVA_ENTRY_VERSION,
    kEntry32 = TOLVA_ENTRY_ADDRESS,
};

void write_version(void *out) {
    uint32_t version = ZUNGetFilterVersion();
    memcpy(out, &version, sizeof version);
}

int32_t dd_entry_common(int16_t func, void *out, const void *entry32) {
    if (out == nullptr) return 0;
    if (func == kVersion) {
        write_version(out);
    } else if (func == kEntry32) {
        memcpy(out, &entry32, sizeof entry32);
    }
    return 0;
}

CommonBlock *common_block() { return static_cast<CommonBlock *>(lpCommon); }

bool touches_state(int16_t func) { return func == kInit || func == kCall || func == kTerm; }

// What both 32-bit entries answer for the codes that touch no state.
int32_t stateless_answer(int16_t func, void *block) {
    if (func != kVersion || block == nullptr) return 0;
    write_version(block);
    return 4;
}

}  // namespace

extern "C" {

int32_t RASTER_dd_entry(int16_t func, void *out, void *) {
    return dd_entry_common(func, out, reinterpret_cast<const void *>(&RASTER_dd_entry32));
}

int32_t dd_entry(int16_t func, void *out, void *) {
    return dd_entry_common(func, out, reinterpret_cast<const void *>(&dd_entry32));
}

int32_t RASTER_dd_entry32(intptr_t, int16_t func, void *block) {
    if (!touches_state(func)) return stateless_answer(func, block);
    HostCallGuard guard;
    if (!guard.entered()) return TOLVA_ERR_BUSY;
    EMData *em = lpEMData;
    switch (func) {
    case kInit:
        if (hCommon != 0 && em != nullptr && em->deviceState != -1) return 0;
        return RASTER_initdvr(static_cast<intptr_t *>(block));
    case kCall: {
        if (em == nullptr) return 0;
        em->result = 0;
        if (em->deviceState <= 0) return 0;
        OpcodeHandler handler = getfunc(host_load_i32(block, 0));
        (void)handler(block);  // handlers return their block, never a result
        return em->result;
    }
    case kTerm:
        if (em != nullptr) em->result = 0;
        return RASTER_termdvr();
    default:
        return 0;
    }
}

int32_t dd_entry32(intptr_t, int16_t func, void *block) {
    if (!touches_state(func)) return stateless_answer(func, block);
    HostCallGuard guard;
    if (!guard.entered()) return TOLVA_ERR_BUSY;
    CommonBlock *common = common_block();
    switch (func) {
    case kInit:
        if (hCommon != 0 && common != nullptr && common->deviceState != 1) return 0;
        return initdvr(static_cast<intptr_t *>(block));
    case kCall: {
        if (common == nullptr) return 0;
        common->result = 0;
        if (common->deviceState > 0) {
            OpcodeHandler handler = getfunc(host_load_i32(block, 0));
            esc_mode(1);
            (void)handler(block);  // handlers return their block, never a result
            esc_mode(0);
        }
        return common->result;
    }
    case kTerm:
        if (common != nullptr) common->result = 0;
        return termdvr(0);
    default:
        return 0;
    }
}

}  // extern "C"

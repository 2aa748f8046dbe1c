// The opcode dispatch table: which handler runs an opcode, and in which
// device states it may run.
//
// The device state is checked here, once, before any handler is called: a
// row runs only when its mask shares a bit with the current state, and an
// unknown or refused opcode runs d_noop, which is not an error. The rows that
// lead to d_noop make those opcodes known to the host without any effect.
// Row order matters only for the linear scan; opcodes are unique.
#include "driver/driver.h"

namespace {

struct DispatchRow {
    int32_t opcode;
    OpcodeHandler handler;
    int32_t mask;
};

const DispatchRow kDispatch[] = {
    {TOLVA_OP_OPEN_DEVICE, d_opdv, 0x1},
    {TOLVA_OP_CLOSE_DEVICE, d_cldv, 0x7e},
    {TOLVA_OP_BEGIN_PICTURE, d_begp, 0x12},
    {TOLVA_OP_BEGIN_BODY, d_begpb, 0x4},
    {TOLVA_OP_END_PICTURE, d_endp, 0x8},
    {0x8, d_noop, 0x8008},
    {0x9, d_noop, 0x8020},
    {0x30a, d_noop, 0x8020},
    {0xff, d_noop, 0x1},
    {0x10d, d_noop, 0x2},
    {0x10e, d_noop, 0x2},
    {TOLVA_OP_DEVICE_WINDOW, ds_dvwn, 0x84},
    {TOLVA_OP_BACKGROUND, ds_bgc, 0x84},
    {TOLVA_OP_DEVICE_VIEWPORT, ds_dvvp, 0x4},
    {TOLVA_OP_VIEWPORT_SCALING, ds_vpsm, 0x84},
    {TOLVA_OP_QUERY_WINDOW, dq_dvwn, 0x7e},
    {0x2fe, d_noop, 0x6c},
    {TOLVA_OP_QUERY_VIEWPORT, dq_dvvp, 0x7e},
    {0x303, ds_axc, 0x8088},
    {0x304, ds_tran, 0x8088},
    {0x305, ds_clpr, 0x8088},
    {0x306, ds_clip, 0x8088},
    {0x401, d_noop, 0x8128},
    {0x402, d_noop, 0x8128},
    {0x403, d_noop, 0x8108},
    {0x404, d_noop, 0x8108},
    {0x405, d_noop, 0x8108},
    {0x406, d_noop, 0x8148},
    {0x407, d_noop, 0x8128},
    {TOLVA_OP_CELL_ARRAY, d_ca, 0x8008},
    {TOLVA_OP_PRIMITIVE, d_gdp, 0x8128},
    {0x40b, d_noop, 0x8128},
    {0x40c, d_noop, 0x8128},
    {0x40d, d_noop, 0x8128},
    {0x40e, d_noop, 0x8128},
    {0x40f, d_noop, 0x8128},
    {0x410, d_noop, 0x8128},
    {0x411, d_noop, 0x8128},
    {0x412, d_noop, 0x8128},
    {0x413, d_noop, 0x8128},
    {0x502, d_noop, 0x8088},
    {0x503, d_noop, 0x8088},
    {0x504, d_noop, 0x8088},
    {0x506, d_noop, 0x8088},
    {0x507, d_noop, 0x8088},
    {0x508, d_noop, 0x8088},
    {0x50a, d_noop, 0x80c8},
    {0x513, d_noop, 0x80c8},
    {0x50b, d_noop, 0x80c8},
    {0x50c, d_noop, 0x80c8},
    {0x50d, d_noop, 0x80c8},
    {0x50e, d_noop, 0x80c8},
    {0x50f, d_noop, 0x80c8},
    {0x510, d_noop, 0x8088},
    {0x511, d_noop, 0x8088},
    {0x512, d_noop, 0x8088},
    {0x516, d_noop, 0x8088},
    {0x517, d_noop, 0x8088},
    {0x518, d_noop, 0x8088},
    {0x519, d_noop, 0x8088},
    {0x51b, d_noop, 0x8088},
    {0x51c, d_noop, 0x8088},
    {0x51d, d_noop, 0x8088},
    {0x51e, d_noop, 0x8088},
    {0x51f, d_noop, 0x8088},
    {0x520, d_noop, 0x8088},
    {0x52b, d_noop, 0x8088},
    {TOLVA_OP_COLOUR_TABLE, ds_ct, 0x8088},
    {0x601, d_noop, 0x8fff},
    {0x906, ds_dm, 0x8008},
    // The error-status query dq_es exists, but this opcode has always led
    // to d_noop; hosts pop errors with TOLVA_OP_POP_ERRORS instead.
    {0xf01, d_noop, 0x7f},
    {TOLVA_OP_POP_ERRORS, d_popes, 0x7f},
    {TOLVA_OP_CLEAR_ERRORS, d_empes, 0x7f},
    {0x6fc, d_noop, 0x8},
};

static_assert(sizeof kDispatch / sizeof kDispatch[0] == 74, "the dispatch table has 74 rows");

// Both driver variants route through the raster device's state; with no
// EMData block there is no state and nothing runs.
int32_t device_state() { return lpEMData != nullptr ? lpEMData->deviceState : 0; }

}  // namespace

extern "C" {

void *d_noop(void *block) { return block; }

OpcodeHandler getfunc(int32_t opcode) {
    for (const DispatchRow &row : kDispatch) {
        if (row.opcode != opcode) continue;
        if ((row.mask & device_state()) == 0) return d_noop;
        return row.handler;
    }
    return d_noop;
}

int32_t InquireSupport(int32_t opcode, int32_t arg) {
    if (opcode == TOLVA_OP_PRIMITIVE) return InqGDPSupport(arg);
    if (opcode == 0x52b) return 0;
    // The table is searched by the low 16 bits, sign-extended, as the host
    // sends them.
    OpcodeHandler handler = getfunc(static_cast<int16_t>(opcode));
    return handler != d_noop ? 2 : 0;
}

int32_t InqGDPSupport(int32_t id) {
    if (id >= 0 || id < -7) return 0;
    return GDPSupport[-id];
}

}  // extern "C"

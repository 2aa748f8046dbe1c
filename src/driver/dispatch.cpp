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

// The device states (one bit each, so that a mask can name several), and
// bits that masks carry although the device never enters such a state: they
// are kept so that a state word a host writes itself meets the same rows.
constexpr int32_t kInit = TOLVA_STATE_INITIALISED;
constexpr int32_t kOpen = TOLVA_STATE_OPEN;
constexpr int32_t kPicture = TOLVA_STATE_PICTURE;
constexpr int32_t kBody = TOLVA_STATE_BODY;
constexpr int32_t kEnded = TOLVA_STATE_ENDED;
constexpr int32_t kNever20 = 0x20;
constexpr int32_t kNever40 = 0x40;
constexpr int32_t kNever80 = 0x80;
constexpr int32_t kNever100 = 0x100;
constexpr int32_t kNeverE00 = 0xe00;
constexpr int32_t kNever8000 = 0x8000;
constexpr int32_t kEveryBit = kInit | kOpen | kPicture | kBody | kEnded | kNever20 | kNever40 |
                              kNever80 | kNever100 | kNeverE00 | kNever8000;

// One row a line, in columns.
// clang-format off
const DispatchRow kDispatch[] = {
    // opcode                    handler   states in which the row runs
    {TOLVA_OP_OPEN_DEVICE,        d_opdv,   kInit},
    {TOLVA_OP_CLOSE_DEVICE,       d_cldv,   kOpen | kPicture | kBody | kEnded | kNever20 | kNever40},
    {TOLVA_OP_BEGIN_PICTURE,      d_begp,   kOpen | kEnded},
    {TOLVA_OP_BEGIN_BODY,         d_begpb,  kPicture},
    {TOLVA_OP_END_PICTURE,        d_endp,   kBody},
    {0x8,                         d_noop,   kBody | kNever8000},
    {0x9,                         d_noop,   kNever20 | kNever8000},
    {0x30a,                       d_noop,   kNever20 | kNever8000},
    {0xff,                        d_noop,   kInit},
    {0x10d,                       d_noop,   kOpen},
    {0x10e,                       d_noop,   kOpen},
    {TOLVA_OP_DEVICE_WINDOW,      ds_dvwn,  kPicture | kNever80},
    {TOLVA_OP_BACKGROUND,         ds_bgc,   kPicture | kNever80},
    {TOLVA_OP_DEVICE_VIEWPORT,    ds_dvvp,  kPicture},
    {TOLVA_OP_VIEWPORT_SCALING,   ds_vpsm,  kPicture | kNever80},
    {TOLVA_OP_QUERY_WINDOW,       dq_dvwn,  kOpen | kPicture | kBody | kEnded | kNever20 | kNever40},
    {0x2fe,                       d_noop,   kPicture | kBody | kNever20 | kNever40},
    {TOLVA_OP_QUERY_VIEWPORT,     dq_dvvp,  kOpen | kPicture | kBody | kEnded | kNever20 | kNever40},
    {0x303,                       ds_axc,   kBody | kNever80 | kNever8000},
    {0x304,                       ds_tran,  kBody | kNever80 | kNever8000},
    {0x305,                       ds_clpr,  kBody | kNever80 | kNever8000},
    {0x306,                       ds_clip,  kBody | kNever80 | kNever8000},
    {0x401,                       d_noop,   kBody | kNever20 | kNever100 | kNever8000},
    {0x402,                       d_noop,   kBody | kNever20 | kNever100 | kNever8000},
    {0x403,                       d_noop,   kBody | kNever100 | kNever8000},
    {0x404,                       d_noop,   kBody | kNever100 | kNever8000},
    {0x405,                       d_noop,   kBody | kNever100 | kNever8000},
    {0x406,                       d_noop,   kBody | kNever40 | kNever100 | kNever8000},
    {0x407,                       d_noop,   kBody | kNever20 | kNever100 | kNever8000},
    {TOLVA_OP_CELL_ARRAY,         d_ca,     kBody | kNever8000},
    {TOLVA_OP_PRIMITIVE,          d_gdp,    kBody | kNever20 | kNever100 | kNever8000},
    {0x40b,                       d_noop,   kBody | kNever20 | kNever100 | kNever8000},
    {0x40c,                       d_noop,   kBody | kNever20 | kNever100 | kNever8000},
    {0x40d,                       d_noop,   kBody | kNever20 | kNever100 | kNever8000},
    {0x40e,                       d_noop,   kBody | kNever20 | kNever100 | kNever8000},
    {0x40f,                       d_noop,   kBody | kNever20 | kNever100 | kNever8000},
    {0x410,                       d_noop,   kBody | kNever20 | kNever100 | kNever8000},
    {0x411,                       d_noop,   kBody | kNever20 | kNever100 | kNever8000},
    {0x412,                       d_noop,   kBody | kNever20 | kNever100 | kNever8000},
    {0x413,                       d_noop,   kBody | kNever20 | kNever100 | kNever8000},
    {0x502,                       d_noop,   kBody | kNever80 | kNever8000},
    {0x503,                       d_noop,   kBody | kNever80 | kNever8000},
    {0x504,                       d_noop,   kBody | kNever80 | kNever8000},
    {0x506,                       d_noop,   kBody | kNever80 | kNever8000},
    {0x507,                       d_noop,   kBody | kNever80 | kNever8000},
    {0x508,                       d_noop,   kBody | kNever80 | kNever8000},
    {0x50a,                       d_noop,   kBody | kNever40 | kNever80 | kNever8000},
    {0x513,                       d_noop,   kBody | kNever40 | kNever80 | kNever8000},
    {0x50b,                       d_noop,   kBody | kNever40 | kNever80 | kNever8000},
    {0x50c,                       d_noop,   kBody | kNever40 | kNever80 | kNever8000},
    {0x50d,                       d_noop,   kBody | kNever40 | kNever80 | kNever8000},
    {0x50e,                       d_noop,   kBody | kNever40 | kNever80 | kNever8000},
    {0x50f,                       d_noop,   kBody | kNever40 | kNever80 | kNever8000},
    {0x510,                       d_noop,   kBody | kNever80 | kNever8000},
    {0x511,                       d_noop,   kBody | kNever80 | kNever8000},
    {0x512,                       d_noop,   kBody | kNever80 | kNever8000},
    {0x516,                       d_noop,   kBody | kNever80 | kNever8000},
    {0x517,                       d_noop,   kBody | kNever80 | kNever8000},
    {0x518,                       d_noop,   kBody | kNever80 | kNever8000},
    {0x519,                       d_noop,   kBody | kNever80 | kNever8000},
    {0x51b,                       d_noop,   kBody | kNever80 | kNever8000},
    {0x51c,                       d_noop,   kBody | kNever80 | kNever8000},
    {0x51d,                       d_noop,   kBody | kNever80 | kNever8000},
    {0x51e,                       d_noop,   kBody | kNever80 | kNever8000},
    {0x51f,                       d_noop,   kBody | kNever80 | kNever8000},
    {0x520,                       d_noop,   kBody | kNever80 | kNever8000},
    {0x52b,                       d_noop,   kBody | kNever80 | kNever8000},
    {TOLVA_OP_COLOUR_TABLE,       ds_ct,    kBody | kNever80 | kNever8000},
    {0x601,                       d_noop,   kEveryBit},
    {0x906,                       ds_dm,    kBody | kNever8000},
    // The error-status query dq_es exists, but this opcode has always led
    // to d_noop; hosts pop errors with TOLVA_OP_POP_ERRORS instead.
    {0xf01,                       d_noop,   kInit | kOpen | kPicture | kBody | kEnded | kNever20 | kNever40},
    {TOLVA_OP_POP_ERRORS,         d_popes,  kInit | kOpen | kPicture | kBody | kEnded | kNever20 | kNever40},
    {TOLVA_OP_CLEAR_ERRORS,       d_empes,  kInit | kOpen | kPicture | kBody | kEnded | kNever20 | kNever40},
    {0x6fc,                       d_noop,   kBody},
};
// clang-format on

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

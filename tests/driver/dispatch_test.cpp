// Opcode routing: every row of the dispatch table against every device
// state, through getfunc, InquireSupport and the entry itself.
#include "host_fixture.h"

namespace {

// The rows that run a handler: {opcode, the states it runs in, the handler}.
// Every other opcode, known to the table or not, runs d_noop in any state.
struct Row {
    int32_t opcode, mask;
    OpcodeHandler handler;
};
const Row kRows[] = {{TOLVA_OP_OPEN_DEVICE, 0x1, d_opdv},
                     {TOLVA_OP_CLOSE_DEVICE, 0x7e, d_cldv},
                     {TOLVA_OP_BEGIN_PICTURE, 0x12, d_begp},
                     {TOLVA_OP_BEGIN_BODY, 0x4, d_begpb},
                     {TOLVA_OP_END_PICTURE, 0x8, d_endp},
                     {TOLVA_OP_DEVICE_WINDOW, 0x84, ds_dvwn},
                     {TOLVA_OP_BACKGROUND, 0x84, ds_bgc},
                     {TOLVA_OP_DEVICE_VIEWPORT, 0x4, ds_dvvp},
                     {TOLVA_OP_VIEWPORT_SCALING, 0x84, ds_vpsm},
                     {TOLVA_OP_QUERY_VIEWPORT, 0x7e, dq_dvvp},
                     {TOLVA_OP_QUERY_WINDOW, 0x7e, dq_dvwn},
                     {0x303, 0x8088, ds_axc},
                     {0x304, 0x8088, ds_tran},
                     {0x305, 0x8088, ds_clpr},
                     {0x306, 0x8088, ds_clip},
                     {TOLVA_OP_CELL_ARRAY, 0x8008, d_ca},
                     {TOLVA_OP_PRIMITIVE, 0x8128, d_gdp},
                     {TOLVA_OP_COLOUR_TABLE, 0x8088, ds_ct},
                     {0x906, 0x8008, ds_dm},
                     {TOLVA_OP_POP_ERRORS, 0x7f, d_popes},
                     {TOLVA_OP_CLEAR_ERRORS, 0x7f, d_empes}};

using Dispatch = DriverTest;

// A refused opcode runs nothing through the entry: EMData stays byte for byte.
TEST_F(Dispatch, EveryRowRunsExactlyInTheStatesOfItsMask) {
    ASSERT_EQ(start(), 0);
    for (int32_t state : {1, 2, 4, 8, 16, 32, 64, 128, 256, 0x8000, 0x7fff}) {
        lpEMData->deviceState = state;
        for (const Row &r : kRows) {
            bool runs = (r.mask & state) != 0;
            EXPECT_EQ(getfunc(r.opcode), runs ? r.handler : d_noop) << r.opcode << " in " << state;
            // The support query looks at the low 16 bits only.
            EXPECT_EQ(InquireSupport(r.opcode + 0x70000, 0), runs ? 2 : 0) << r.opcode;
            if (runs) continue;
            std::vector<uint8_t> before((uint8_t *)lpEMData, (uint8_t *)(lpEMData + 1));
            EXPECT_EQ(call(Op(r.opcode).i32(4, 50).i32(16, 3).f64(24, 0.5)), 0);
            EXPECT_EQ(0, memcmp(before.data(), lpEMData, sizeof(EMData))) << r.opcode << " ran";
        }
        // Rows without a handler, and opcodes with no row (all 32 bits count here).
        for (int32_t unknown : {0x0, 0x7, 0x8, 0x10e, 0x402, 0x601, 0x600, 0xf01, 0xf04, 0x10f02})
            EXPECT_EQ(getfunc(unknown), d_noop) << unknown;
    }
    GDPSupport[7] = 6;  // primitives ask the host's own table
    EXPECT_EQ(InquireSupport(TOLVA_OP_PRIMITIVE, -7) + InqGDPSupport(-8) + InqGDPSupport(0), 6);
    GDPSupport[7] = 0;
}

}  // namespace

// The error stack and the reply buffer, as a host sees them: errors pushed
// by the filter, popped and emptied through opcodes, read back as replies;
// the host's stop request, which becomes error 901; and opcode routing.
#include "host_fixture.h"

namespace {

using ErrorStack = DriverTest;
using Stack = std::array<int32_t, 5>;

// result, errorCount, lostErrors, lastErrorOpcode, the first record's code.
Stack stack() {
    const EMData &em = *lpEMData;
    return {em.result, em.errorCount, em.lostErrors, em.lastErrorOpcode, em.firstError.code};
}

TEST_F(ErrorStack, AHostSetCapacityMakesATrueStack) {
    ASSERT_EQ(start(), 0);
    lpEMData->errorCapacity = 2;
    lpEMData->currentOpcode = 7;
    for (int32_t code : {300, 303, 21, 21}) push_er(code);  // the repeat is recorded once
    EXPECT_EQ(stack(), (Stack{21, 2, 1, 7, 300}));
    call(Op(TOLVA_OP_POP_ERRORS).i32(TOLVA_POP_WANTED, 5));
    Op want(2);  // the count, then the records newest first
    const size_t second = TOLVA_REPLY_POP_RECORDS + sizeof(TolvaErrorRecord);
    want.i32(TOLVA_REPLY_POP_RECORDS, 7).i16(TOLVA_REPLY_POP_RECORDS + 4, 21);
    want.i32(second, 7).i16(second + 4, 300);
    ASSERT_EQ(lpEMData->replyPosition, 20u);
    EXPECT_EQ(0, memcmp(lpEMData->replyBuffer, want.bytes, 20));
    push_er(303);
    EXPECT_EQ(call(TOLVA_OP_CLEAR_ERRORS), 0);
    EXPECT_EQ(stack(), (Stack{0, 0, 0, 0, 303})) << "the records keep their bytes";
    // Capacities outside the records are counted, never stored past them.
    lpEMData->errorCapacity = 40;
    for (int16_t code = 1; code <= 30; ++code) push_er(code);
    lpEMData->errorCapacity = -3;
    push_er(99);
    EXPECT_EQ(stack(), (Stack{99, 30, 1, 7, 1}));
    EXPECT_EQ(lpEMData->deviceWindow[0], 0.0) << "the records end before the window";
}

TEST_F(ErrorStack, RepliesAreAppendedAndCutAtTheReplySize) {
    ASSERT_EQ(start(6), 0);
    lpEMData->currentOpcode = 0x01020304;
    push_er(300);
    dq_es(nullptr);
    mov2buf("x", 1);
    ASSERT_EQ(lpEMData->replyPosition, 6u) << "a full buffer takes nothing, silently";
    EXPECT_EQ(0, memcmp(lpEMData->replyBuffer, "\0\0\0\0\x04\x03", 6)) << "count, half a record";
    lpEMData->replyPosition = 100;  // a host that moved it past the end
    mov2buf("x", 1);
    EXPECT_EQ(lpEMData->replyPosition, 100u);
}

// With the capacity at 0, every push overwrites the first record: the host
// finds the latest error there and counts every push as lost.
TEST_F(ErrorStack, CapacityZeroKeepsTheLatestErrorAndAStopPushes901) {
    g_answers = {5, 8, 5, 0, 5, 0, 1, 1};
    EXPECT_EQ(CallGetSet_Status(host_status, 3, 0, 0, 0, 40, 0, 0), 8) << "the detail counts";
    EXPECT_EQ(CallGetSet_Status(host_status, 3, 0, -2, 100, 0, 0, 0), 5);
    EXPECT_EQ(CallGetSet_Status(host_status, 3, 1, 0, 0, 0, 0, 0), 0);
    EXPECT_EQ(g_calls[1], (Call{3, 2, 61, 0, 0, 0, 1})) << "a detail request, its words zeroed";
    ASSERT_EQ(start(), 0);
    EXPECT_EQ(RASTER_escape(), 0) << "no status record";
    lpEMData->statusRecord = status;
    EXPECT_EQ(RASTER_escape(), 0) << "the detail answer 0 means go on";
    EXPECT_EQ(RASTER_escape(), 901);
    EXPECT_EQ(g_calls.size(), 8u) << "only the plain queries asked for a detail";
    lpEMData->currentOpcode = 7;
    for (int32_t code : {303, 303, 300}) push_er(code);
    EXPECT_EQ(stack(), (Stack{300, 0, 4, 7, 300})) << "every push is lost, the repeat too";
    EXPECT_EQ(call(Op(TOLVA_OP_POP_ERRORS).i32(TOLVA_POP_WANTED, 5)), 0)
        << "the result word is zeroed before each call";
    EXPECT_EQ(lpEMData->replyPosition, 4u) << "nothing to pop: the count 0 alone";
}

// Opcode routing: the dispatch table's masks against every device state,
// through getfunc, InquireSupport and the entry itself.

// One row for each set of states a handler runs in: {opcode, the states, the
// handler}; the other rows with a handler repeat one of these masks. Every
// opcode without a handler, known to the table or not, runs d_noop.
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
                     {TOLVA_OP_DEVICE_VIEWPORT, 0x4, ds_dvvp},
                     {TOLVA_OP_QUERY_VIEWPORT, 0x7e, dq_dvvp},
                     {0x303, 0x8088, ds_axc},
                     {TOLVA_OP_CELL_ARRAY, 0x8008, d_ca},
                     {TOLVA_OP_PRIMITIVE, 0x8128, d_gdp},
                     {TOLVA_OP_POP_ERRORS, 0x7f, d_popes}};

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

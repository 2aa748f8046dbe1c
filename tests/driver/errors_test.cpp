// The error stack and the reply buffer, as a host sees them: errors pushed
// by the filter, popped and emptied through opcodes, read back as replies;
// and the host's stop request, which becomes error 901.
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

}  // namespace

// The error stack and the reply buffer, as a host sees them: errors pushed
// by the filter, popped and emptied through opcodes, read back as replies.
#include "host_fixture.h"

namespace {

using ErrorStack = DriverTest;

int16_t code_at(const uint8_t *at) {
    int16_t v;
    memcpy(&v, at, 2);
    return v;
}

TEST_F(ErrorStack, CapacityZeroKeepsTheLatestErrorInTheFirstRecord) {
    ASSERT_EQ(start(), 0);
    for (int32_t code : {303, 303, 300}) push_er(code);
    EXPECT_EQ(lpEMData->result, 300);
    EXPECT_EQ(lpEMData->lostErrors, 3);
    EXPECT_EQ(lpEMData->errorCount, 0);
    EXPECT_EQ(lpEMData->firstError.opcode, 0);
    EXPECT_EQ(lpEMData->firstError.code, 300);
    EXPECT_EQ(lpEMData->errors[0].code, 0);
    Op pop(0xf02);
    EXPECT_EQ(call(pop.i32(16, 5)), 0) << "the result word is zeroed before each call";
    ASSERT_EQ(lpEMData->replyPosition, 4u) << "nothing to pop: the count 0 alone";
    EXPECT_EQ(reply_i32(0), 0);
}

TEST_F(ErrorStack, AHostSetCapacityMakesATrueStack) {
    ASSERT_EQ(start(), 0);
    lpEMData->errorCapacity = 2;
    lpEMData->currentOpcode = 7;
    for (int32_t code : {300, 303, 21, 21}) push_er(code);  // the repeat is recorded once
    EXPECT_EQ(lpEMData->errorCount, 2);
    EXPECT_EQ(lpEMData->lostErrors, 1);
    EXPECT_EQ(lpEMData->lastErrorOpcode, 7);
    Op pop(0xf02);
    call(pop.i32(16, 5));
    ASSERT_EQ(lpEMData->replyPosition, 20u);
    EXPECT_EQ(reply_i32(0), 2);
    EXPECT_EQ(reply_i32(4), 7);
    EXPECT_EQ(code_at(lpEMData->replyBuffer + 8), 21) << "newest first";
    EXPECT_EQ(code_at(lpEMData->replyBuffer + 16), 300);
    EXPECT_EQ(lpEMData->errorCount, 0);

    push_er(303);
    EXPECT_EQ(call(0xf03), 0) << "emptying is allowed from state 1 on";
    EXPECT_EQ(lpEMData->errorCount + lpEMData->lostErrors + lpEMData->lastErrorOpcode, 0);
    EXPECT_EQ(lpEMData->errors[0].code, 303) << "the records keep their bytes";
}

TEST_F(ErrorStack, ACapacityBeyondTheEntriesWritesNothingOutsideThem) {
    ASSERT_EQ(start(), 0);
    lpEMData->errorCapacity = 40;
    lpEMData->deviceWindow[0] = 1.5;
    for (int16_t code = 1; code <= 30; ++code) push_er(code);
    EXPECT_EQ(lpEMData->errorCount, 30);
    EXPECT_EQ(lpEMData->deviceWindow[0], 1.5);
    lpEMData->errorCapacity = -3;
    push_er(99);
    EXPECT_EQ(lpEMData->result, 99);
}

TEST_F(ErrorStack, RepliesAreAppendedAndCutAtTheReplySize) {
    ASSERT_EQ(start(6), 0);
    lpEMData->currentOpcode = 0x01020304;
    push_er(300);
    dq_es(nullptr);
    ASSERT_EQ(reply().size(), 6u) << "the count and 2 bytes of the first record";
    EXPECT_EQ(reply_i32(0), 0);
    EXPECT_EQ(code_at(lpEMData->replyBuffer + 4), 0x0304);
    dq_es(nullptr);
    mov2buf("x", 1);
    EXPECT_EQ(lpEMData->replyPosition, 6u) << "a full buffer takes nothing, silently";
    lpEMData->replyPosition = 100;  // a host that moved it past the end
    mov2buf("x", 1);
    EXPECT_EQ(lpEMData->replyPosition, 100u);
    RASTER_dd_entry32(0, -1, nullptr);
    push_er(303);  // the export road may push with no device at all
    mov2buf("x", 1);
}

}  // namespace

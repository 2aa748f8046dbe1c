// The error stack and the reply buffer, driven the way a host drives them:
// errors are pushed by the filter, popped and emptied through opcodes, and
// read back from the reply buffer.
#include "host_fixture.h"

namespace {

struct Record {
    int32_t opcode;
    int16_t code;
};

Record record_at(const std::vector<uint8_t> &bytes, size_t at) {
    Record r;
    memcpy(&r.opcode, bytes.data() + at, 4);
    memcpy(&r.code, bytes.data() + at + 4, 2);
    return r;
}

int32_t word_at(const std::vector<uint8_t> &bytes, size_t at) {
    int32_t v;
    memcpy(&v, bytes.data() + at, 4);
    return v;
}

using ErrorStack = DriverTest;

TEST_F(ErrorStack, CapacityZeroKeepsTheLatestErrorInTheFirstRecord) {
    ASSERT_EQ(start(), 0);
    push_er(303);
    push_er(303);
    push_er(300);
    EXPECT_EQ(lpEMData->result, 300);
    EXPECT_EQ(lpEMData->lostErrors, 3);
    EXPECT_EQ(lpEMData->errorCount, 0);
    EXPECT_EQ(lpEMData->firstError.opcode, 0);
    EXPECT_EQ(lpEMData->firstError.code, 300);
    EXPECT_EQ(lpEMData->errors[0].code, 0) << "entry 0 is never reached with capacity 0";

    Op pop(0xf02);
    pop.i32(16, 5);
    EXPECT_EQ(call(pop), 0) << "the entry zeroes the result word before each call";
    std::vector<uint8_t> r = reply();
    ASSERT_EQ(r.size(), 4u);
    EXPECT_EQ(word_at(r, 0), 0);
}

TEST_F(ErrorStack, HostSetCapacityMakesATrueStack) {
    ASSERT_EQ(start(), 0);
    lpEMData->errorCapacity = 2;
    lpEMData->currentOpcode = 7;
    push_er(300);
    push_er(303);
    push_er(21);
    EXPECT_EQ(lpEMData->errorCount, 2);
    EXPECT_EQ(lpEMData->lostErrors, 1);
    push_er(21);  // same as the top entry: recorded once
    EXPECT_EQ(lpEMData->lostErrors, 1);
    EXPECT_EQ(lpEMData->lastErrorOpcode, 7);
    EXPECT_EQ(lpEMData->firstError.code, 300);

    Op pop(0xf02);
    pop.i32(16, 5);
    call(pop);
    std::vector<uint8_t> r = reply();
    ASSERT_EQ(r.size(), 4u + 2 * 8u);
    EXPECT_EQ(word_at(r, 0), 2);
    EXPECT_EQ(record_at(r, 4).opcode, 7);  // newest first
    EXPECT_EQ(record_at(r, 4).code, 21);
    EXPECT_EQ(record_at(r, 12).code, 300);
    EXPECT_EQ(lpEMData->errorCount, 0);
}

TEST_F(ErrorStack, PopTakesNoMoreThanRequested) {
    ASSERT_EQ(start(), 0);
    lpEMData->errorCapacity = 10;
    for (int16_t code = 1; code <= 4; ++code) push_er(code);
    Op pop(0xf02);
    pop.i32(16, 1);
    call(pop);
    std::vector<uint8_t> r = reply();
    ASSERT_EQ(r.size(), 12u);
    EXPECT_EQ(word_at(r, 0), 1);
    EXPECT_EQ(record_at(r, 4).code, 4);
    EXPECT_EQ(lpEMData->errorCount, 3);
}

TEST_F(ErrorStack, CapacityBeyondTheEntriesNeverWritesPastThem) {
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

TEST_F(ErrorStack, EmptyClearsCountsButKeepsTheRecords) {
    ASSERT_EQ(start(), 0);
    lpEMData->errorCapacity = 3;
    lpEMData->currentOpcode = 9;
    push_er(303);
    push_er(300);
    Op empty(0xf03);
    EXPECT_EQ(call(empty), 0) << "allowed in state 1, before any device is open";
    EXPECT_EQ(lpEMData->errorCount, 0);
    EXPECT_EQ(lpEMData->lostErrors, 0);
    EXPECT_EQ(lpEMData->lastErrorOpcode, 0);
    EXPECT_EQ(lpEMData->errors[1].code, 300);
    EXPECT_EQ(lpEMData->firstError.code, 303);
}

TEST_F(ErrorStack, StatusReplyIsCutAtTheReplySize) {
    ASSERT_EQ(start(6), 0);
    lpEMData->currentOpcode = 0x01020304;
    push_er(300);
    dq_es(nullptr);
    std::vector<uint8_t> r = reply();
    ASSERT_EQ(r.size(), 6u);
    EXPECT_EQ(word_at(r, 0), 0);
    int16_t low;
    memcpy(&low, r.data() + 4, 2);
    EXPECT_EQ(low, 0x0304);
    dq_es(nullptr);  // full: cut to nothing, without error
    EXPECT_EQ(lpEMData->replyPosition, 6u);
    EXPECT_EQ(lpEMData->result, 300);
}

TEST_F(ErrorStack, RepliesOfSuccessiveCallsFollowOneAnother) {
    ASSERT_EQ(start(64), 0);
    const char first[] = "abc", second[] = "defgh";
    mov2buf(first, 3);
    mov2buf(second, 5);
    std::vector<uint8_t> r = reply();
    EXPECT_EQ(std::string(r.begin(), r.end()), "abcdefgh");
    lpEMData->replyPosition = 100;  // a host that moved it past the end
    mov2buf(first, 3);
    EXPECT_EQ(lpEMData->replyPosition, 100u);
}

TEST(ErrorStackWithoutDevice, PushesAndRepliesAreIgnored) {
    ASSERT_EQ(lpEMData, nullptr);
    push_er(303);
    mov2buf("x", 1);
    EXPECT_EQ(lpEMData, nullptr);
}

}  // namespace

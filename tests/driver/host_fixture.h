// A small host for the driver tests: it builds the init block, a Setup
// block, a status record and opcode blocks the way a real host does, and
// drives the library through its 32-bit entry.
#ifndef TOLVA_TESTS_DRIVER_HOST_FIXTURE_H
#define TOLVA_TESTS_DRIVER_HOST_FIXTURE_H

#include <gtest/gtest.h>
#include <string.h>

#include <array>
#include <vector>

#include "tolva/driver.h"
#include "tolva/host.h"
#include "tolva/output.h"
#include "tolva/settings.h"
#include "tolva/stream.h"

// The host's status function records each call {context, a, b, c, d, e, f}
// and answers from g_answers in order, then 0. For a detail request (2, 61)
// it records f as 1 when the ten words it points to came zeroed.
using Call = std::array<intptr_t, 7>;
inline std::vector<Call> g_calls;
inline std::vector<int32_t> g_answers;
inline int32_t host_status(intptr_t context, intptr_t a, intptr_t b, intptr_t c, intptr_t d,
                           intptr_t e, intptr_t f) {
    static const int32_t zeros[10] = {};
    if (a == 2 && b == 61) f = f != 0 && memcmp(zeros, reinterpret_cast<void *>(f), 40) == 0;
    g_calls.push_back({context, a, b, c, d, e, f});
    return g_calls.size() <= g_answers.size() ? g_answers[g_calls.size() - 1] : 0;
}

// An opcode block, written at byte positions.
struct Op {
    alignas(8) uint8_t bytes[1024] = {};
    explicit Op(int32_t opcode) { i32(TOLVA_BLOCK_OPCODE, opcode); }
    Op &i32(size_t at, int32_t v) { return raw(at, &v, 4); }
    Op &i16(size_t at, int16_t v) { return raw(at, &v, 2); }
    Op &f64(size_t at, double v) { return raw(at, &v, 8); }
    Op &raw(size_t at, const void *p, size_t n) {
        memcpy(bytes + at, p, n);
        return *this;
    }
};

inline int32_t call(Op &op) { return RASTER_dd_entry32(0, TOLVA_ENTRY_CALL, op.bytes); }
inline int32_t call(Op &&op) { return call(op); }
inline int32_t call(int32_t opcode) { return call(Op(opcode)); }

// A host with a zeroed Setup block, a status record (context 77) and room
// for 64 capabilities, which hold 12345 until init fills them.
class DriverTest : public ::testing::Test {
protected:
    HGLOBAL setup = GlobalAlloc(TOLVA_GMEM_FLAGS, TOLVA_SETUP_BLOCK_SIZE);
    SetupBlock *settings = static_cast<SetupBlock *>(GlobalLock(setup));
    intptr_t status[TOLVA_STATUS_WORDS] = {0, 77, reinterpret_cast<intptr_t>(&host_status)};
    std::vector<int32_t> caps = std::vector<int32_t>(64, 12345);
    intptr_t init[TOLVA_INIT_WORDS] = {};

    DriverTest() {
        g_calls.clear();
        g_answers.clear();
    }
    void TearDown() override {
        RASTER_dd_entry32(0, -1, nullptr);
        EXPECT_EQ(lpEMData, nullptr);
        EXPECT_EQ(settings->exportMemoryData, nullptr) << "term releases the memory output";
        GlobalFree(setup);
    }
    // Initialises the raster device, with the status record when asked; with
    // no file name set the output goes to memory.
    int32_t start(uint32_t replySize = 256, bool withStatus = false) {
        init[TOLVA_INIT_REPLY_SIZE] = replySize;
        init[TOLVA_INIT_SETUP] = static_cast<intptr_t>(setup);
        init[TOLVA_INIT_STATUS_RECORD] = withStatus ? reinterpret_cast<intptr_t>(status) : 0;
        init[TOLVA_INIT_CAPABILITIES] = reinterpret_cast<intptr_t>(caps.data());
        return RASTER_dd_entry32(0, 0, init);
    }
    // Initialises and walks the device forward: open, begin, body, end.
    void reach(int32_t state) {
        ASSERT_EQ(start(), 0);
        for (int32_t opcode : {TOLVA_OP_OPEN_DEVICE, TOLVA_OP_BEGIN_PICTURE, TOLVA_OP_BEGIN_BODY,
                               TOLVA_OP_END_PICTURE})
            if (lpEMData->deviceState != state) call(opcode);
        ASSERT_EQ(lpEMData->deviceState, state);
    }
};

#endif

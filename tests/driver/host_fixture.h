// A small host for the driver tests: it builds the init block, a Setup
// block, a status record and opcode blocks the way a real host does, and
// drives the library through its 32-bit entry.
#ifndef TOLVA_TESTS_DRIVER_HOST_FIXTURE_H
#define TOLVA_TESTS_DRIVER_HOST_FIXTURE_H

#include <gtest/gtest.h>
#include <string.h>

#include <vector>

#include "tolva/tolva.h"

// Calls of the host's status function, and its answers in order (then 0).
struct StatusCall {
    intptr_t context, a, b, c, d, e, f;
    bool detailZeroed;  // a detail request found its ten words zeroed
};
extern std::vector<StatusCall> g_calls;
extern std::vector<int32_t> g_answers;
int32_t host_status(intptr_t context, intptr_t a, intptr_t b, intptr_t c, intptr_t d, intptr_t e,
                    intptr_t f);

// A byte-positioned opcode block.
struct Op {
    alignas(8) uint8_t bytes[1024] = {};
    explicit Op(int32_t opcode) { i32(0, opcode); }
    Op &i32(size_t at, int32_t v) { return raw(at, &v, 4); }
    Op &i16(size_t at, int16_t v) { return raw(at, &v, 2); }
    Op &f64(size_t at, double v) { return raw(at, &v, 8); }
    Op &raw(size_t at, const void *p, size_t n) {
        memcpy(bytes + at, p, n);
        return *this;
    }
};

class DriverTest : public ::testing::Test {
protected:
    intptr_t init[TOLVA_INIT_WORDS] = {};
    intptr_t status[TOLVA_STATUS_WORDS] = {};
    int32_t caps[64];
    char fileName[144] = "";
    HGLOBAL setup = 0;

    void SetUp() override;
    void TearDown() override;
    // Initialises through RASTER_dd_entry32; the status record is given only
    // when asked for.
    int32_t start(uint32_t replySize = 256, int32_t colourMode = TOLVA_COLOUR_NORMAL,
                  bool withStatus = false);
    static int32_t call(Op &op) { return RASTER_dd_entry32(0, 2, op.bytes); }
    static int32_t call(int32_t opcode) {
        Op op(opcode);
        return call(op);
    }
    void reach(int32_t state);  // walks the states forward through the opcodes
    std::vector<uint8_t> reply() const;
    int32_t reply_i32(size_t at) const;
};

#endif

#include "host_fixture.h"

std::vector<StatusCall> g_calls;
std::vector<int32_t> g_answers;

int32_t host_status(intptr_t context, intptr_t a, intptr_t b, intptr_t c, intptr_t d, intptr_t e,
                    intptr_t f) {
    bool zeroed = a == 2 && b == 61 && f != 0;
    for (int i = 0; zeroed && i < 10; ++i) zeroed = reinterpret_cast<const int32_t *>(f)[i] == 0;
    g_calls.push_back({context, a, b, c, d, e, f, zeroed});
    return g_calls.size() <= g_answers.size() ? g_answers[g_calls.size() - 1] : 0;
}

void DriverTest::SetUp() {
    g_calls.clear();
    g_answers.clear();
    for (int32_t &c : caps) c = 12345;
}

void DriverTest::TearDown() {
    if (lpEMData != nullptr) RASTER_dd_entry32(0, -1, nullptr);
    EXPECT_EQ(lpEMData, nullptr);
    if (setup != 0) {
        EXPECT_EQ(static_cast<SetupBlock *>(GlobalLock(setup))->exportMemoryData, nullptr)
            << "term releases the memory output";
        GlobalFree(setup);
    }
    lpSetup = nullptr;
}

int32_t DriverTest::start(uint32_t replySize, int32_t colourMode, bool withStatus) {
    setup = GlobalAlloc(TOLVA_GMEM_FLAGS, TOLVA_SETUP_BLOCK_SIZE);
    static_cast<SetupBlock *>(GlobalLock(setup))->colourMode = colourMode;
    status[TOLVA_STATUS_CONTEXT] = 77;
    status[TOLVA_STATUS_FUNCTION] = reinterpret_cast<intptr_t>(&host_status);
    init[TOLVA_INIT_FILE_NAME] = reinterpret_cast<intptr_t>(fileName);
    init[TOLVA_INIT_REPLY_SIZE] = replySize;
    init[TOLVA_INIT_SETUP] = static_cast<intptr_t>(setup);
    init[TOLVA_INIT_STATUS_RECORD] = withStatus ? reinterpret_cast<intptr_t>(status) : 0;
    init[TOLVA_INIT_CAPABILITIES] = reinterpret_cast<intptr_t>(caps);
    return RASTER_dd_entry32(0, 0, init);
}

void DriverTest::reach(int32_t state) {
    // {state, the opcode that leaves it}: open, begin, body, end.
    static const int32_t path[][2] = {{1, 0x1}, {2, 0x3}, {4, 0x4}, {8, 0x5}};
    for (const auto &step : path)
        if (lpEMData->deviceState != state && lpEMData->deviceState == step[0]) call(step[1]);
    ASSERT_EQ(lpEMData->deviceState, state);
}

std::vector<uint8_t> DriverTest::reply() const {
    return std::vector<uint8_t>(lpEMData->replyBuffer,
                                lpEMData->replyBuffer + lpEMData->replyPosition);
}

int32_t DriverTest::reply_i32(size_t at) const {
    int32_t v;
    memcpy(&v, lpEMData->replyBuffer + at, 4);
    return v;
}

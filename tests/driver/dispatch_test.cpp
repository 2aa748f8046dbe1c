// Opcode routing: every row of the dispatch table against every device
// state, through getfunc and InquireSupport, and through the entry itself.
#include "host_fixture.h"

namespace {

struct Row {
    int32_t opcode;
    OpcodeHandler handler;
    int32_t mask;
};

// The host protocol's routing, group by group.
std::vector<Row> rows() {
    std::vector<Row> r = {
        {0x1, d_opdv, 0x1},       {0x2, d_cldv, 0x7e},      {0x3, d_begp, 0x12},
        {0x4, d_begpb, 0x4},      {0x5, d_endp, 0x8},       {0x8, d_noop, 0x8008},
        {0x9, d_noop, 0x8020},    {0x30a, d_noop, 0x8020},  {0xff, d_noop, 0x1},
        {0x10d, d_noop, 0x2},     {0x10e, d_noop, 0x2},     {0x206, ds_dvwn, 0x84},
        {0x207, ds_bgc, 0x84},    {0x208, ds_dvvp, 0x4},    {0x209, ds_vpsm, 0x84},
        {0x2ff, dq_dvwn, 0x7e},   {0x2fe, d_noop, 0x6c},    {0x2fd, dq_dvvp, 0x7e},
        {0x303, ds_axc, 0x8088},  {0x304, ds_tran, 0x8088}, {0x305, ds_clpr, 0x8088},
        {0x306, ds_clip, 0x8088}, {0x401, d_noop, 0x8128},  {0x402, d_noop, 0x8128},
        {0x403, d_noop, 0x8108},  {0x404, d_noop, 0x8108},  {0x405, d_noop, 0x8108},
        {0x406, d_noop, 0x8148},  {0x407, d_noop, 0x8128},  {0x409, d_ca, 0x8008},
        {0x40a, d_gdp, 0x8128},   {0x522, ds_ct, 0x8088},   {0x601, d_noop, 0x8fff},
        {0x906, ds_dm, 0x8008},   {0xf01, d_noop, 0x7f},    {0xf02, d_popes, 0x7f},
        {0xf03, d_empes, 0x7f},   {0x6fc, d_noop, 0x8}};
    for (int32_t op = 0x40b; op <= 0x413; ++op) r.push_back({op, d_noop, 0x8128});
    for (int32_t op : {0x502, 0x503, 0x504, 0x506, 0x507, 0x508, 0x510, 0x511, 0x512, 0x516,
                       0x517, 0x518, 0x519, 0x51b, 0x51c, 0x51d, 0x51e, 0x51f, 0x520, 0x52b})
        r.push_back({op, d_noop, 0x8088});
    for (int32_t op : {0x50a, 0x513, 0x50b, 0x50c, 0x50d, 0x50e, 0x50f})
        r.push_back({op, d_noop, 0x80c8});
    return r;
}

const int32_t kStates[] = {1, 2, 4, 8, 16, 32, 64, 128, 256, 32768, 0x7fff};

using Dispatch = DriverTest;

TEST_F(Dispatch, EveryRowRunsExactlyInTheStatesOfItsMask) {
    ASSERT_EQ(start(), 0);
    ASSERT_EQ(rows().size(), 74u);
    for (int32_t state : kStates) {
        lpEMData->deviceState = state;
        for (const Row &row : rows()) {
            OpcodeHandler want = (row.mask & state) != 0 ? row.handler : d_noop;
            EXPECT_EQ(getfunc(row.opcode), want) << std::hex << row.opcode << " in " << state;
            if (row.opcode == 0x40a || row.opcode == 0x52b) continue;
            EXPECT_EQ(InquireSupport(row.opcode + 0x70000, 0), want != d_noop ? 2 : 0)
                << "only the low 16 bits count: " << std::hex << row.opcode;
        }
    }
    lpEMData->deviceState = 1;
}

TEST_F(Dispatch, RefusedAndUnknownOpcodesLeaveTheDeviceUntouched) {
    ASSERT_EQ(start(), 0);
    std::vector<Row> all = rows();
    for (int32_t unknown : {0x0, 0x7, 0x600, 0xf04, 0x10001}) all.push_back({unknown, d_noop, 0});
    for (int32_t state : kStates) {
        lpEMData->deviceState = state;
        for (const Row &row : all) {
            if ((row.mask & state) != 0 && row.handler != d_noop) continue;
            std::vector<uint8_t> before((uint8_t *)lpEMData, (uint8_t *)lpEMData + sizeof(EMData));
            Op op(row.opcode);
            EXPECT_EQ(call(op.i32(4, 50).i32(16, 3).f64(24, 0.5)), 0);
            EXPECT_EQ(0, memcmp(before.data(), lpEMData, sizeof(EMData)))
                << std::hex << row.opcode << " ran in state " << state;
        }
    }
    lpEMData->deviceState = 1;
}

TEST_F(Dispatch, StatesFollowTheHostsOrder) {
    ASSERT_EQ(start(), 0);
    const int32_t steps[][2] = {{0x2, 1}, {0x1, 2}, {0x1, 2}, {0x4, 2}, {0x3, 4}, {0x3, 4},
                                {0x4, 8}, {0x5, 16}, {0x3, 4}, {0x4, 8}, {0x2, 1}};
    for (const auto &step : steps) {
        call(step[0]);
        EXPECT_EQ(lpEMData->deviceState, step[1]) << "after opcode " << step[0];
        EXPECT_EQ(InquireSupport(0x409, 0), step[1] == 8 ? 2 : 0);
    }
}

TEST_F(Dispatch, PrimitiveSupportComesFromTheHostsTable) {
    GDPSupport[1] = 5;
    GDPSupport[7] = 6;
    EXPECT_EQ(InquireSupport(0x40a, -1), 5);
    EXPECT_EQ(InqGDPSupport(-7), 6);
    EXPECT_EQ(InqGDPSupport(-8) + InqGDPSupport(0) + InquireSupport(0x52b, 0), 0);
    EXPECT_EQ(getfunc(0x10f02), d_noop) << "getfunc compares all 32 bits";
    GDPSupport[1] = GDPSupport[7] = 0;
}

// Random opcodes in random order, with fields a host could send: nothing
// may crash or touch memory outside its block (the sanitizer build watches).
TEST_F(Dispatch, RandomOpcodeSequencesStayInsideTheirBlocks) {
    ASSERT_EQ(start(64), 0);
    std::vector<Row> all = rows();
    uint32_t seed = 12345;
    auto next = [&seed](uint32_t n) {
        seed = seed * 1103515245u + 12345u;
        return (seed >> 8) % n;
    };
    bool pictureOpen = false;
    for (int i = 0; i < 3000; ++i) {
        // Half the calls lean towards the picture body and its drawing.
        const int32_t drawing[] = {0x1, 0x3, 0x4, 0x206, 0x522, 0x409, 0x409, 0x40a, 0x40a};
        Op op(next(2) == 0 ? drawing[next(9)] : all[next(static_cast<uint32_t>(all.size()))].opcode);
        for (size_t at = 4; at < 100; at += 4) op.i32(at, static_cast<int32_t>(next(40)) - 8);
        for (size_t at = 16; at < 64; at += 8) op.f64(at, static_cast<double>(next(60)) - 20.0);
        const int32_t bits[] = {1, 4, 8, 24, 32, -32768};
        op.i32(88, static_cast<int32_t>(next(16))).i32(92, static_cast<int32_t>(next(8)));
        op.i32(96, bits[next(6)]).i32(16, static_cast<int32_t>(next(300)));
        static const uint8_t elsewhere[512] = {};
        const uint8_t *address = elsewhere;  // where 1-bit cells are held
        op.raw(102, &address, sizeof address);
        if (op.bytes[0] == 0x0a && op.bytes[1] == 0x04) {  // a primitive: -5 or -6
            bool opening = next(2) == 0 && !pictureOpen;
            op.i32(16, opening ? -5 : -6).i32(20, 0).i32(28, static_cast<int32_t>(next(20)));
            op.i32(32, static_cast<int32_t>(next(12))).i32(36, bits[next(6)]);
            if (lpEMData->deviceState == 8) pictureOpen = opening;
        }
        call(op);
        if (lpEMData->deviceState != 8 && pictureOpen && lpEMData->pictureBitmap != 0) {
            GlobalFree(lpEMData->pictureBitmap);  // a picture the host never closed
            lpEMData->pictureBitmap = 0;
            pictureOpen = false;
        }
    }
}

}  // namespace

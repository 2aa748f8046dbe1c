// The device handlers: the outputs when the host's Setup block or procedure
// fails them, the settings and queries between the picture brackets, and
// cell arrays collected into the picture bitmap between primitives -5 and -6.
#include <tuple>

#include "host_fixture.h"

namespace {

using Device = DriverTest;

// The memory, file and host-procedure roads, and a stop at close, are run
// whole by the pipeline's export tests.

// A host may destroy its Setup block while the device still writes into a
// memory block named by its fields, or before taking the finished block: the
// stream must not write into the freed block, and the block must still be
// released at term (leak detection sees it otherwise).
TEST_F(Device, ASetupBlockDestroyedUnderTheMemoryOutputTakesNothingWithIt) {
    for (bool whileOpen : {true, false}) {
        ASSERT_EQ(start(), 0);
        call(TOLVA_OP_OPEN_DEVICE);
        zunWrite(lpEMData->outputStream, "abc", 3);
        if (!whileOpen) call(TOLVA_OP_CLOSE_DEVICE);
        ASSERT_EQ(DestroySetup(setup), 0);
        setup = GlobalAlloc(TOLVA_GMEM_FLAGS, TOLVA_SETUP_BLOCK_SIZE);  // for the next round
        settings = static_cast<SetupBlock *>(GlobalLock(setup));
        if (whileOpen) {
            std::vector<uint8_t> more(12000, 7);  // three growths of the block
            EXPECT_EQ(zunWrite(lpEMData->outputStream, more.data(), 12000), 12000)
                << "the stream grows its block elsewhere";
            call(TOLVA_OP_CLOSE_DEVICE);
        }
        RASTER_dd_entry32(0, -1, nullptr);
    }
}

using Io = std::array<intptr_t, 3>;  // instance, operation, b
std::vector<Io> g_io;

intptr_t host_io(intptr_t instance, int32_t operation, intptr_t, intptr_t b) {
    g_io.push_back({instance, operation, b});
    return operation == 1 && g_io.size() == 1 ? 0x55 : 0;
}

TEST_F(Device, AnOutputDeviceReceivesTheStreamAndAnswersForItsFailures) {
    init[TOLVA_INIT_FILE_NAME] = reinterpret_cast<intptr_t>("picture.gif");
    settings->outputDevice = reinterpret_cast<intptr_t>(&host_io);
    status[TOLVA_STATUS_DEVICE] = 0x3210;  // the instance for the host's procedure
    ASSERT_EQ(start(64, true), 0);
    call(TOLVA_OP_OPEN_DEVICE);
    call(TOLVA_OP_CLOSE_DEVICE);
    strcpy(lpEMData->fileName, "/nonexistent-tolva-dir/out.gif");
    call(TOLVA_OP_OPEN_DEVICE);  // declined: the stream then tries the file, and fails
    EXPECT_EQ(g_io, (std::vector<Io>{{0x3210, 1, 4097}, {0x55, 5, 0}, {0x3210, 1, 4097}}));
    EXPECT_EQ(lpEMData->lostErrors, 0) << "the host's procedure reports its own failures";
}

// {mode, millimetres a unit, state, dots per inch}; 128 in the state freezes the mode.
const std::tuple<int16_t, double, int32_t, int32_t> kScaling[] = {
    {1, 0.254, 4, 100}, {1, 0.0, 4, 0},  {1, 0.1, 4, 254}, {3, 1.0, 4, 254}, {0, 0.5, 4, 0},
    {1, 0.5, 4, 51},    {1, 0.6, 4, 42}, {2, 0.5, 4, 0},   {-1, 0.1, 4, 0},  {1, 0.254, 132, 0}};

TEST_F(Device, ViewportSettingsGiveTheResolutionAndComeBackInTheHostsOrder) {
    reach(4);
    for (const auto &[mode, unit, state, want] : kScaling) {
        lpEMData->deviceState = state;
        call(Op(TOLVA_OP_VIEWPORT_SCALING)
                 .i16(TOLVA_SCALING_MODE, mode)
                 .f64(TOLVA_SCALING_UNIT, unit));
        EXPECT_EQ(lpEMData->resolution, want) << mode << " " << unit << ": rounded to nearest";
    }
    const double window[6] = {1.5, -2.25, 3.0, 640.0, 480.125, -0.0};
    call(Op(TOLVA_OP_DEVICE_WINDOW).raw(TOLVA_WINDOW_X1, window, sizeof window));
    const double viewport[6] = {10, 11, 12, 13, 14, 15};
    call(Op(TOLVA_OP_DEVICE_VIEWPORT).raw(16, viewport, sizeof viewport));
    memset(lpEMData->replyBuffer, 0xab, 256);
    call(TOLVA_OP_QUERY_WINDOW);
    call(TOLVA_OP_QUERY_VIEWPORT);
    Op want(0);  // the window, then x1, y2, -, y1, x2, -: the unset values keep the reply's bytes
    const size_t vp = TOLVA_WINDOW_SIZE;
    memset(want.raw(0, window, TOLVA_WINDOW_SIZE).bytes + vp, 0xab, TOLVA_REPLY_VIEWPORT_SIZE);
    want.f64(vp + TOLVA_REPLY_VIEWPORT_X1, 10).f64(vp + TOLVA_REPLY_VIEWPORT_Y2, 14);
    want.f64(vp + TOLVA_REPLY_VIEWPORT_Y1, 11).f64(vp + TOLVA_REPLY_VIEWPORT_X2, 13);
    ASSERT_EQ(lpEMData->replyPosition, 96u);
    EXPECT_EQ(0, memcmp(lpEMData->replyBuffer, want.bytes, 96));
}

TEST_F(Device, ColourTablesStopAtTheLastEntryAndFollowTheColourMode) {
    settings->colourMode = TOLVA_COLOUR_INVERT;
    reach(8);
    const size_t end = offsetof(EMData, colourTable) + 768;
    std::vector<uint8_t> rest((uint8_t *)lpEMData + end, (uint8_t *)(lpEMData + 1));
    Op ct(TOLVA_OP_COLOUR_TABLE);
    for (int i = 0; i < 30; ++i) ct.bytes[TOLVA_COLOURS_RGB + i] = static_cast<uint8_t>(i + 1);
    call(ct.i32(TOLVA_COLOURS_LENGTH, TOLVA_COLOURS_LENGTH_OF(10)).i32(TOLVA_COLOURS_FIRST, 250));
    EXPECT_EQ(ct.bytes[TOLVA_COLOURS_RGB + 29], 225) << "the host's copy is converted too";
    EXPECT_EQ(0, memcmp(lpEMData->colourTable + 750, ct.bytes + TOLVA_COLOURS_RGB, 18));
    call(Op(TOLVA_OP_COLOUR_TABLE)
             .i32(TOLVA_COLOURS_LENGTH, 14)
             .i32(TOLVA_COLOURS_FIRST, 300));  // entries past the table
    // Lengths below 2 carry no colours at all.
    for (int32_t length : {0, 1}) call(Op(TOLVA_OP_COLOUR_TABLE).i32(TOLVA_COLOURS_LENGTH, length));
    EXPECT_EQ(0, memcmp((uint8_t *)lpEMData + end, rest.data(), rest.size())) << "nothing past it";
}

// Primitive -5, with one (ignored) point in front of its data, and -6.
int32_t open_picture(int32_t maxWidth, int32_t height, int32_t bits) {
    Op gdp(TOLVA_OP_PRIMITIVE);
    const size_t data = TOLVA_PRIMITIVE_DATA(1);
    gdp.i32(TOLVA_PRIMITIVE_ID, TOLVA_PRIMITIVE_OPEN).i32(TOLVA_PRIMITIVE_POINTS, 1);
    gdp.f64(TOLVA_PRIMITIVE_POINT(0), 99.0)
        .i32(TOLVA_PRIMITIVE_DATA_LENGTH(1), TOLVA_PICTURE_DATA_SIZE);
    gdp.i32(data + TOLVA_PICTURE_WIDTH, maxWidth).i32(data + TOLVA_PICTURE_HEIGHT, height);
    return call(gdp.i32(data + TOLVA_PICTURE_BITS, bits));
}
// One row of 4 cells, 8 bits, inline; the corner at `higher` lies at y 1.
Op cells(size_t higher) {
    Op op(TOLVA_OP_CELL_ARRAY);
    op.f64(higher, 1.0).i32(TOLVA_CELLS_PER_ROW, 4).i32(TOLVA_CELLS_ROWS, 1);
    return op.i32(TOLVA_CELLS_BITS, 8);
}
void close_picture() {
    call(Op(TOLVA_OP_PRIMITIVE).i32(TOLVA_PRIMITIVE_ID, TOLVA_PRIMITIVE_CLOSE));
}
TEST_F(Device, PictureRowsFollowTheTruncatedWindowAndFillUpwardFromAboveTheBottom) {
    reach(8);
    lpEMData->deviceWindow[0] = 2.9;  // trunc gives 2 and -5: 8 pixels
    lpEMData->deviceWindow[3] = -5.7;
    lpEMData->deviceWindow[4] = 100.0;
    // {maximum width, bits, width, depth, bitmap size with rows padded to 4 bytes}
    const int32_t cases[][5] = {
        {100, 8, 8, 8, 16}, {5, TOLVA_CELLS_ONE_BIT, 5, 1, 8}, {7, -24, 7, 24, 48}};
    for (const auto &c : cases) {
        ASSERT_EQ(open_picture(c[0], 2, c[1]), 0);
        EXPECT_EQ(lpEMData->pictureWidth, c[2]);
        EXPECT_EQ(lpEMData->pictureDepth, c[3]);
        EXPECT_EQ(GlobalSize(lpEMData->pictureBitmap), static_cast<uint32_t>(c[4]));
        close_picture();
    }
    ASSERT_EQ(open_picture(4, 4, 8), 0);
    const auto *bitmap = static_cast<const uint8_t *>(GlobalLock(lpEMData->pictureBitmap));
    // Single rows of 4 cells, 8 bits, inline; the second corner below the first: upward.
    for (uint8_t value = 1; value <= 4; ++value)
        call(cells(TOLVA_CELLS_FIRST_Y).raw(TOLVA_CELLS_DATA, &value, 1));
    const uint8_t want[4] = {3, 2, 4, 0};  // the fourth row lands again at row 2
    for (int row = 0; row < 4; ++row) EXPECT_EQ(bitmap[4 * row], want[row]) << "row " << row;
    close_picture();
    ASSERT_EQ(open_picture(4, -1, 8), 0) << "a bitmap that cannot be had is noticed later";
    EXPECT_EQ(call(cells(TOLVA_CELLS_SECOND_Y)), 300);
}

}  // namespace

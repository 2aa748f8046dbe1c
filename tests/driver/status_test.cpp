// The host's status function: the stop detail request, and how a stop
// becomes error 901 in each variant.
#include "host_fixture.h"

namespace {

using Status = DriverTest;

TEST_F(Status, OnlyAStopAnswerToAPlainQueryAsksForTheDetail) {
    g_answers = {5, 8, 5, 0};
    EXPECT_EQ(CallGetSet_Status(host_status, 3, 0, 0, 0, 40, 0, 0), 8);
    ASSERT_EQ(g_calls.size(), 2u);
    const StatusCall &detail = g_calls[1];
    EXPECT_EQ(detail.context, 3);
    EXPECT_EQ(detail.a, 2);
    EXPECT_EQ(detail.b, 61);
    EXPECT_EQ(detail.c + detail.d + detail.e, 0);
    EXPECT_TRUE(detail.detailZeroed);
    EXPECT_EQ(CallGetSet_Status(host_status, 3, 0, -2, 100, 0, 0, 0), 5);
    EXPECT_EQ(CallGetSet_Status(host_status, 3, 1, 0, 0, 0, 0, 0), 0);
    EXPECT_EQ(g_calls.size(), 4u);
    EXPECT_EQ(CallGetSet_Status(nullptr, 3, 0, 0, 0, 0, 0, 0), 0);
}

TEST_F(Status, RasterEscapePushes901ForAConfirmedStopOnly) {
    EXPECT_EQ(RASTER_escape(), 0) << "no device";
    ASSERT_EQ(start(16, 103, false), 0);
    EXPECT_EQ(RASTER_escape(), 0) << "no status record";
    lpEMData->statusRecord = status;
    g_answers = {5, 0, 1, 1};
    EXPECT_EQ(RASTER_escape(), 0) << "the detail answer 0 means go on";
    EXPECT_EQ(lpEMData->lostErrors, 0);
    EXPECT_EQ(RASTER_escape(), 901);
    EXPECT_EQ(lpEMData->result, 901);
    EXPECT_EQ(lpEMData->firstError.code, 901);
    EXPECT_EQ(g_calls[2].context, 77);
}

TEST_F(Status, TheExportVariantAsksThroughItsOwnBlocks) {
    status[TOLVA_STATUS_CONTEXT] = 12;
    status[TOLVA_STATUS_FUNCTION] = reinterpret_cast<intptr_t>(&host_status);
    EXPECT_EQ(escape(), 0) << "no Common block";
    CommonBlock common = {};
    common.statusRecord = status;
    common.statusValue = 66;
    lpCommon = &common;
    g_answers = {1, 1, 0, 3, 3};
    EXPECT_EQ(escape(), 901);
    EXPECT_EQ(g_calls[0].d, 66);
    lpCommon = nullptr;

    SetupBlock raster = {};
    lpRaster = &raster;
    EXPECT_EQ(UpdateStatus(20), 0) << "no record";
    raster.statusRecord = status;
    ASSERT_EQ(start(16), 0);
    EXPECT_EQ(UpdateStatus(20), 0);
    EXPECT_EQ(UpdateStatus(40), 901);
    EXPECT_EQ(g_calls[2].d, 20);
    EXPECT_EQ(g_calls[3].d, 40);
    EXPECT_EQ(lpEMData->lostErrors + lpEMData->result, 0) << "UpdateStatus pushes nothing";
    lpRaster = nullptr;
}

}  // namespace

// The host's status function: the stop detail request, and how a stop
// becomes error 901 in each variant.
#include "host_fixture.h"

namespace {

using Status = DriverTest;

TEST_F(Status, AStopAnswerToAQueryAsksForTheDetail) {
    g_status_answers = {5, 8};
    EXPECT_EQ(CallGetSet_Status(recording_status, 3, 0, 0, 0, 40, 0, 0), 8);
    ASSERT_EQ(g_status_calls.size(), 2u);
    EXPECT_EQ(g_status_calls[0].d, 40);
    const StatusCall &detail = g_status_calls[1];
    EXPECT_EQ(detail.context, 3);
    EXPECT_EQ(detail.a, 2);
    EXPECT_EQ(detail.b, 61);
    EXPECT_EQ(detail.c + detail.d + detail.e, 0);
    EXPECT_TRUE(detail.detailZeroed);
}

TEST_F(Status, OnlyAPlainQueryAsksForTheDetail) {
    g_status_answers = {5};
    EXPECT_EQ(CallGetSet_Status(recording_status, 3, 0, -2, 100, 0, 0, 0), 5);
    EXPECT_EQ(CallGetSet_Status(recording_status, 3, 1, 0, 0, 0, 0, 0), 0);
    EXPECT_EQ(g_status_calls.size(), 2u);
    EXPECT_EQ(CallGetSet_Status(nullptr, 3, 0, 0, 0, 0, 0, 0), 0);
}

TEST_F(Status, RasterEscapePushes901OnlyForAFinalStop) {
    ASSERT_EQ(start(16, 103, true), 0);
    g_status_calls.clear();
    g_status_answers = {5, 0};
    EXPECT_EQ(RASTER_escape(), 0) << "the detail answer 0 means go on";
    EXPECT_EQ(lpEMData->lostErrors, 0);
    g_status_calls.clear();
    g_status_answers = {1, 1};
    EXPECT_EQ(RASTER_escape(), 901);
    EXPECT_EQ(lpEMData->result, 901);
    EXPECT_EQ(lpEMData->firstError.code, 901);
    EXPECT_EQ(g_status_calls[0].context, 77);
}

TEST_F(Status, RasterEscapeWithoutARecordGoesOn) {
    EXPECT_EQ(RASTER_escape(), 0);
    ASSERT_EQ(start(16), 0);
    EXPECT_EQ(RASTER_escape(), 0);
    EXPECT_EQ(lpEMData->lostErrors, 0);
}

TEST_F(Status, EscapeReadsTheCommonBlock) {
    EXPECT_EQ(escape(), 0) << "no Common block: nothing to ask";
    status[TOLVA_STATUS_CONTEXT] = 12;
    status[TOLVA_STATUS_FUNCTION] = reinterpret_cast<intptr_t>(&recording_status);
    CommonBlock common = {};
    common.statusRecord = status;
    common.statusValue = 66;
    lpCommon = &common;
    g_status_answers = {1, 1};
    EXPECT_EQ(escape(), 901);
    EXPECT_EQ(g_status_calls[0].context, 12);
    EXPECT_EQ(g_status_calls[0].d, 66);
    lpCommon = nullptr;
}

TEST_F(Status, UpdateStatusReportsButPushesNothing) {
    SetupBlock raster = {};
    lpRaster = &raster;
    EXPECT_EQ(UpdateStatus(20), 0);
    status[TOLVA_STATUS_CONTEXT] = 12;
    raster.statusRecord = status;
    EXPECT_EQ(UpdateStatus(20), 0) << "no function: go on";
    status[TOLVA_STATUS_FUNCTION] = reinterpret_cast<intptr_t>(&recording_status);
    ASSERT_EQ(start(16), 0);
    g_status_answers = {0, 3, 3};
    EXPECT_EQ(UpdateStatus(20), 0);
    EXPECT_EQ(UpdateStatus(40), 901);
    EXPECT_EQ(g_status_calls[0].d, 20);
    EXPECT_EQ(g_status_calls[1].d, 40);
    EXPECT_EQ(lpEMData->lostErrors, 0);
    EXPECT_EQ(lpEMData->result, 0);
    lpRaster = nullptr;
}

}  // namespace

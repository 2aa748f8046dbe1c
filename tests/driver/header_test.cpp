// The public header compiles as C and as C++ and describes the same records
// in both; the EMData fields sit where a 64-bit host expects them.
#include <gtest/gtest.h>

#include "tolva/tolva.h"

extern "C" size_t tolva_c_layout(int which);

TEST(Header, CAndCxxAgreeOnEveryRecord) {
    const size_t cxx[] = {sizeof(EMData),
                          offsetof(EMData, firstError),
                          offsetof(EMData, deviceWindow),
                          offsetof(EMData, replyBuffer),
                          offsetof(EMData, statusRecord),
                          offsetof(EMData, cellFlag),
                          sizeof(SetupBlock),
                          offsetof(SetupBlock, outputDevice),
                          sizeof(TolvaNameEntry),
                          sizeof(CommonBlock),
                          sizeof(TolvaPicture)};
    for (int i = 0; i < 11; ++i) EXPECT_EQ(tolva_c_layout(i), cxx[i]) << "record " << i;
}

TEST(Header, EMDataKeepsItsFieldOrderInsideItsBlock) {
    EXPECT_LE(sizeof(EMData), 1224u);
    EXPECT_EQ(offsetof(EMData, colourTable), 2 * sizeof(HGLOBAL) + 8);
    EXPECT_EQ(offsetof(EMData, errors), offsetof(EMData, firstError) + 8);
    EXPECT_EQ(offsetof(EMData, deviceViewport), offsetof(EMData, deviceWindow) + 48);
    EXPECT_LT(offsetof(EMData, replyHandle), offsetof(EMData, fileName));
    EXPECT_EQ(offsetof(EMData, replyBuffer) % sizeof(void *), 0u);
    EXPECT_EQ(sizeof(TolvaErrorRecord), 8u);
}

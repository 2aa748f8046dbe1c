// The public header describes the same records to C and to C++ hosts.
#include <gtest/gtest.h>

#include "tolva/tolva.h"

extern "C" const size_t tolva_c_sizes[5];

TEST(Header, CAndCxxAgreeOnEveryRecord) {
    const size_t cxx[5] = {sizeof(EMData), sizeof(SetupBlock), sizeof(CommonBlock),
                           sizeof(TolvaNameEntry), sizeof(TolvaPicture)};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(tolva_c_sizes[i], cxx[i]) << "record " << i;
}

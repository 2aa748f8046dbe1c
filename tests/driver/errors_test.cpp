#include <gtest/gtest.h>
#include "tolva/tolva.h"
TEST(Placeholder, Builds) { EXPECT_EQ(ZUNGetFilterVersion(), 0x02000005u); }

// Display and printer information: DISPLAYINFO parsing, the host's values and
// the defaults they fall back to.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "tolva/tolva.h"

namespace {

struct Display : ::testing::Test {
    void SetUp() override {
        unsetenv("DISPLAYINFO");
        SetDisplayInfo(0.0, 0.0, 0, 0);
    }
    void TearDown() override { SetUp(); }

    double w = -1, h = -1;
    int16_t x = -1, y = -1;
    void get() { EXPECT_EQ(GetDisplayInfo(&w, &h, &x, &y), 0); }
};

TEST_F(Display, DefaultsAreA1280By1078ScreenAt96Dpi) {
    get();
    EXPECT_DOUBLE_EQ(w, 1280.0 / 96);
    EXPECT_DOUBLE_EQ(h, 1078.0 / 96);
    EXPECT_EQ(x, 96);
    EXPECT_EQ(y, 96);
}

TEST_F(Display, HostValuesReplaceOnlyTheNonZeroDefaults) {
    SetDisplayInfo(0.0, 768.0, 72, 0);
    get();
    EXPECT_DOUBLE_EQ(w, 1280.0 / 72);
    EXPECT_DOUBLE_EQ(h, 768.0 / 96);
    EXPECT_EQ(x, 72);
    EXPECT_EQ(y, 96);
}

TEST_F(Display, VariableOverridesTheHostCompletely) {
    SetDisplayInfo(2000.0, 1000.0, 200, 200);
    setenv("DISPLAYINFO", "1024,768,72,72", 1);
    get();
    EXPECT_DOUBLE_EQ(w, 1024.0 / 72);
    EXPECT_DOUBLE_EQ(h, 768.0 / 72);
    EXPECT_EQ(x, 72);
    EXPECT_EQ(y, 72);

    setenv("DISPLAYINFO", "1600x1200x120x120", 1);
    get();
    EXPECT_DOUBLE_EQ(w, 1600.0 / 120);
    EXPECT_EQ(y, 120);

    // A width alone: the rest read as 0 and the quotients are infinite.
    setenv("DISPLAYINFO", "1024", 1);
    get();
    EXPECT_TRUE(std::isinf(w));
    EXPECT_TRUE(std::isnan(h));  // 0 / 0
    EXPECT_EQ(x, 0);
    EXPECT_EQ(y, 0);
}

TEST_F(Display, NonsenseAndEmptyVariables) {
    setenv("DISPLAYINFO", "", 1);  // empty counts as unset
    get();
    EXPECT_EQ(x, 96);

    // Two separators in a row: the second one is read as a missing number.
    setenv("DISPLAYINFO", "800,,96,96", 1);
    get();
    EXPECT_DOUBLE_EQ(w, 800.0 / 96);
    EXPECT_EQ(h, 0.0);
    EXPECT_EQ(x, 96);
    EXPECT_EQ(y, 96);

    setenv("DISPLAYINFO", "wide", 1);
    get();
    EXPECT_EQ(x, 0);

    // A resolution beyond 16 bits divides with its full value and is handed
    // out narrowed.
    setenv("DISPLAYINFO", "65632x100x65632x96", 1);
    get();
    EXPECT_DOUBLE_EQ(w, 65632.0 / 65632.0);
    EXPECT_EQ(x, 96);

    EXPECT_EQ(GetDisplayInfo(nullptr, nullptr, nullptr, nullptr), 0);
}

TEST(Moveptr, SkipsDigitsAndOneSeparatorButNotTheEnd) {
    const char *text = "123x45";
    moveptr(&text);
    EXPECT_STREQ(text, "45");
    moveptr(&text);
    EXPECT_STREQ(text, "");
    moveptr(&text);
    EXPECT_STREQ(text, "");
    text = "-7";  // no digits: only the one character is skipped
    moveptr(&text);
    EXPECT_STREQ(text, "7");
}

TEST(Printer, ZeroUntilSetThenCopiedUnchanged) {
    double w = -1, h = -1;
    int16_t x = -1, y = -1;
    EXPECT_EQ(GetPrinterInfo(&w, &h, &x, &y), 0);
    EXPECT_EQ(w, 0.0);
    EXPECT_EQ(h, 0.0);
    EXPECT_EQ(x, 0);
    EXPECT_EQ(y, 0);
    SetPrinterInfo(5100.0, 6600.0, 600, 0);
    GetPrinterInfo(&w, &h, &x, &y);
    EXPECT_EQ(w, 5100.0);
    EXPECT_EQ(x, 600);
    EXPECT_EQ(y, 0);
    EXPECT_EQ(GetPrinterInfo(nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(GetDisplayColorInfo(7), 0);
}

}  // namespace

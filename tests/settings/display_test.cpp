// Display and printer information: DISPLAYINFO parsing, the host's values
// and the defaults they fall back to.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "tolva/tolva.h"

namespace {

struct Display : ::testing::Test {
    double w = -1, h = -1;
    int16_t x = -1, y = -1;
    void SetUp() override {
        unsetenv("DISPLAYINFO");
        SetDisplayInfo(0.0, 0.0, 0, 0);
    }
    void TearDown() override { SetUp(); }
    void get(const char *variable) {
        if (variable != nullptr) setenv("DISPLAYINFO", variable, 1);
        EXPECT_EQ(GetDisplayInfo(&w, &h, &x, &y), 0);
    }
};

TEST_F(Display, HostValuesReplaceOnlyTheNonZeroDefaults) {
    get(nullptr);
    EXPECT_DOUBLE_EQ(w, 1280.0 / 96);
    EXPECT_DOUBLE_EQ(h, 1078.0 / 96);
    EXPECT_EQ(x + y, 192);
    SetDisplayInfo(0.0, 768.0, 72, 0);
    get("");  // empty counts as unset
    EXPECT_DOUBLE_EQ(w, 1280.0 / 72);
    EXPECT_DOUBLE_EQ(h, 768.0 / 96);
    EXPECT_EQ(y, 96);
}

TEST_F(Display, TheVariableOverridesTheHostCompletely) {
    SetDisplayInfo(2000.0, 1000.0, 200, 200);
    get("1024,768,72,72");
    EXPECT_DOUBLE_EQ(w, 1024.0 / 72);
    EXPECT_DOUBLE_EQ(h, 768.0 / 72);
    EXPECT_EQ(x + y, 144);
    get("1024");  // the rest read as 0: infinite and undefined quotients
    EXPECT_TRUE(std::isinf(w));
    EXPECT_TRUE(std::isnan(h));
    EXPECT_EQ(x + y, 0);
    get("800,,96,97");  // the second separator is read as a missing number
    EXPECT_EQ(h, 0.0);
    EXPECT_EQ(y, 97);
    get("wide");
    EXPECT_EQ(x, 0);
    // A resolution beyond 16 bits divides with its full value and is
    // handed out narrowed.
    get("65632x100x65632x96");
    EXPECT_DOUBLE_EQ(w, 1.0);
    EXPECT_EQ(x, 96);
    EXPECT_EQ(GetDisplayInfo(nullptr, nullptr, nullptr, nullptr), 0);
}

TEST(Moveptr, SkipsDigitsAndOneSeparatorButNotTheEnd) {
    const char *text = "123x45";
    moveptr(&text);
    EXPECT_STREQ(text, "45");
    moveptr(&text);
    moveptr(&text);
    EXPECT_STREQ(text, "");
    text = "-7";
    moveptr(&text);
    EXPECT_STREQ(text, "7");
}

TEST(Printer, ZeroUntilSetThenCopiedUnchanged) {
    double w = -1, h = -1;
    int16_t x = -1, y = -1;
    EXPECT_EQ(GetPrinterInfo(&w, &h, &x, &y), 0);
    EXPECT_EQ(w + h + x + y, 0.0);
    SetPrinterInfo(5100.0, 0.0, 600, 0);  // no defaults stand in for zeros
    GetPrinterInfo(&w, &h, &x, &y);
    EXPECT_EQ(w, 5100.0);
    EXPECT_EQ(h, 0.0);
    EXPECT_EQ(x, 600);
    EXPECT_EQ(GetDisplayColorInfo(7), 0);
}

}  // namespace

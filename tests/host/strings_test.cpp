// String and numeric helpers: the reversed comparison sign and the edge values.
#include <gtest/gtest.h>

#include <cmath>

#include "tolva/tolva.h"

namespace {

TEST(Strings, ComparisonSignIsReversed) {
    EXPECT_EQ(stricmp("abc", "ABD"), 1);
    EXPECT_EQ(stricmp("abc", "ABC"), 0);
    EXPECT_EQ(stricmp("abc", "ab"), -'C');
    EXPECT_EQ(strnicmp("abcX", "ABCY", 3), 0);
    EXPECT_EQ(strnicmp("abcX", "ABCY", 4), 1);
    EXPECT_EQ(strnicmp("a", "b", 0), 0);
    // Equal strings shorter than n are compared past their terminators.
    const char a[] = {'a', '\0', 'x'};
    const char b[] = {'A', '\0', 'y'};
    EXPECT_EQ(strnicmp(a, b, 3), 1);
}

TEST(Strings, CaseMappingInPlace) {
    char s[] = "Tolva.ini";
    EXPECT_EQ(strupr(s), s);
    EXPECT_STREQ(s, "TOLVA.INI");
    EXPECT_STREQ(strlwr(s), "tolva.ini");
}

TEST(Strings, PathSplitting) {
    char d[64];
    EXPECT_STREQ(s_getpath(d, "/a/b/c.gif"), "/a/b/");
    EXPECT_STREQ(s_getname(d, "/a/b/c.gif"), "c");
    EXPECT_STREQ(s_getname(d, "C:name.ext"), "name");
    EXPECT_STREQ(s_getname(d, "a.b.c"), "a.b");
    EXPECT_STREQ(s_getname(d, "dir\\x/y.z"), "x/y");  // a backslash is looked for first
    EXPECT_STREQ(s_getpath(d, "C:name"), "");
    EXPECT_STREQ(s_getpath(d, "a\\b/c"), "a\\");
}

TEST(Numeric, AbsFlipsTheSignOfZeroAndNaN) {
    EXPECT_TRUE(std::signbit(dabs(0.0)));
    EXPECT_FALSE(std::signbit(dabs(-0.0)));
    EXPECT_EQ(dabs(-2.5), 2.5);
    EXPECT_TRUE(std::signbit(dabs(std::nan(""))));
}

TEST(Numeric, ToleranceIsInclusiveAndUnsigned) {
    EXPECT_EQ(feqi(10, 13, 3), 1);
    EXPECT_EQ(feqi(10, 14, 3), 0);
    EXPECT_EQ(feqi(5, 5, 0), 1);
    EXPECT_EQ(feqi(0, -1, 0), 0);
    EXPECT_EQ(feqi(0, 100, -1), 1);  // a negative tolerance is a huge unsigned bound
}

TEST(Numeric, RoundsHalfAwayFromZero) {
    EXPECT_EQ(roundd(2.5), 3);
    EXPECT_EQ(roundd(-2.5), -3);
    EXPECT_EQ(roundd(0.49), 0);
    EXPECT_EQ(roundd(0.0), 0);
    EXPECT_EQ(roundd(-0.5), -1);
    EXPECT_EQ(roundd(0.5), 1);
}

}  // namespace

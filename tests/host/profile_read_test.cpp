// Profile reading: line normalisation, lookups and enumeration over files
// written by hand with every line end, integers, and bad input.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "profile_fixture.h"
#include "tolva/tolva.h"

namespace {

std::string with_ends(const std::string &text, const std::string &end) {
    std::string out;
    for (char c : text) {
        if (c == '\n')
            out += end;
        else
            out += c;
    }
    return out;
}

std::string lookup(const char *section, const char *key, const char *def, const char *file,
                   int32_t *count = nullptr, int32_t size = 64) {
    char buffer[80];
    std::memset(buffer, '#', sizeof buffer);
    int32_t n = GetPrivateProfileString(section, key, def, buffer, size, file);
    if (count != nullptr) *count = n;
    EXPECT_EQ(buffer[size], '#') << "wrote past the buffer";
    return std::string(buffer, strnlen(buffer, static_cast<size_t>(size)));
}

TEST(ProfileLine, NormalisationRemovesCutsAndTrims) {
    char a[] = "  [Colors] ; the colours\r\n";
    EXPECT_STREQ(CleanProfileLine(a, 0), "Colors");
    char b[] = "  [Colors] ; the colours\r\n";
    EXPECT_STREQ(CleanProfileLine(b, 1), "[Colors]");
    char c[] = "Name=\"say \"\"hi\"\"\" ";
    EXPECT_STREQ(CleanProfileLine(c, 0), "Name=say \"hi\"");
    char d[] = "Name=\"say \"\"hi\"\"\" ";
    EXPECT_STREQ(CleanProfileLine(d, 5), "Name=\"say \"\"hi\"\"\"");
    char e[] = "Path=\"a;b\"";  // a ";" cuts even inside quotes
    EXPECT_STREQ(CleanProfileLine(e, 5), "Path=\"a");
    char f[] = "   ";
    EXPECT_STREQ(CleanProfileLine(f, 0), "");
}

TEST(ProfileLine, TrimmingQuotesTakesOneFromEachEnd) {
    char a[] = "\"\"x\"\"";
    EXPECT_STREQ(TrimProfileChar(a, '"'), "\"x\"");
    char b[] = "xxaxx";
    EXPECT_STREQ(TrimProfileChar(b, 'x'), "a");
    char c[] = "\"";
    EXPECT_STREQ(TrimProfileChar(c, '"'), "");
    char d[] = "ab;cd;";
    EXPECT_STREQ(CutProfileComment(d), "ab");
}

TEST(ProfileLine, NumbersAreHexOrLeadingDecimalDigits) {
    EXPECT_EQ(ParseProfileNumber("0x10"), 16);
    EXPECT_EQ(ParseProfileNumber("0X1f"), 31);
    EXPECT_EQ(ParseProfileNumber("0x1fz9"), 31);
    EXPECT_EQ(ParseProfileNumber("0x"), 0);
    EXPECT_EQ(ParseProfileNumber("0xFFFFFFFF"), -1);
    EXPECT_EQ(ParseProfileNumber("0x123456789"), 0x23456789);  // wraps at 32 bits
    EXPECT_EQ(ParseProfileNumber("010"), 10);
    EXPECT_EQ(ParseProfileNumber("12abc"), 12);
    EXPECT_EQ(ParseProfileNumber("-5"), 0);
    EXPECT_EQ(ParseProfileNumber("+5"), 0);
    EXPECT_EQ(ParseProfileNumber(" 5"), 0);
    EXPECT_EQ(ParseProfileNumber(""), 0);
    EXPECT_EQ(ParseProfileNumber("99999999999"), INT32_MAX);
}

const char kColors[] =
    "; settings written by hand\n"
    "[Colors]\n"
    "Depth = 8\n"
    "Mode=fast\n"
    "\n"
    "; a comment line\n"
    "Quoted=\"a b\"\n"
    "Semi=a;b\n"
    "Short=xy\n"
    "[Other]\n"
    "Mode=slow\n"
    "\n";  // with CR line ends a CR as the last byte hides its line

TEST(ProfileRead, LookupsBehaveTheSameWithEveryLineEnd) {
    for (const char *end : {"\n", "\r\n", "\r"}) {
        SCOPED_TRACE(testing::PrintToString(std::string(end)));
        ScratchDir dir;
        dir.put("a.ini", with_ends(kColors, end));
        int32_t n = 0;
        EXPECT_EQ(lookup("colors", "MODE", "dflt", "a.ini", &n), "fast");
        EXPECT_EQ(n, 4);
        // Keys are not trimmed around "=": "Depth " never matches "Depth".
        EXPECT_EQ(lookup("Colors", "Depth", "dflt", "a.ini", &n), "dflt");
        EXPECT_EQ(n, 4);
        EXPECT_EQ(lookup("Colors", "Depth ", "", "a.ini"), " 8");
        EXPECT_EQ(lookup("Colors", "Quoted", "", "a.ini"), "a b");
        EXPECT_EQ(lookup("Colors", "Semi", "", "a.ini"), "a");
        // The value is copied over the default without a terminator.
        EXPECT_EQ(lookup("Colors", "Short", "abcdef", "a.ini", &n), "xycdef");
        EXPECT_EQ(n, 2);
        EXPECT_EQ(lookup("[Other]", "Mode", "", "a.ini"), "slow");
        EXPECT_EQ(lookup("Missing", "Mode", "d", "a.ini"), "d");
        EXPECT_EQ(GetPrivateProfileInt("Colors", "Depth ", 3, "a.ini"), 0);  // " 8" has no leading digit
        EXPECT_EQ(GetPrivateProfileInt("Colors", "Mode", 3, "a.ini"), 0);
        EXPECT_EQ(GetPrivateProfileInt("Colors", "Nothing", 3, "a.ini"), 3);
    }
}

TEST(ProfileRead, IntegersFromTheFile) {
    ScratchDir dir;
    dir.put("n.ini", "[N]\nhex=0x10\noct=010\nneg=-3\nempty=\nbig=0x1FFFFFFFF\n");
    EXPECT_EQ(GetPrivateProfileInt("N", "hex", 7, "n.ini"), 16);
    EXPECT_EQ(GetPrivateProfileInt("N", "oct", 7, "n.ini"), 10);
    EXPECT_EQ(GetPrivateProfileInt("N", "neg", 7, "n.ini"), 0);
    EXPECT_EQ(GetPrivateProfileInt("N", "empty", 7, "n.ini"), 7);
    EXPECT_EQ(GetPrivateProfileInt("N", "big", 7, "n.ini"), -1);
    EXPECT_EQ(GetPrivateProfileInt("N", "hex", 7, "absent.ini"), 7);
}

TEST(ProfileRead, EnumerationListsKeysAndKeepsItsOverflowRule) {
    ScratchDir dir;
    dir.put("e.ini", "[S]\nA=1\nBB=2\nCCC=3\n[T]\nX=0\n[S]\nDD=4\n");
    char buffer[24];
    std::memset(buffer, '#', sizeof buffer);
    // 16 bytes hold all of the first section and the repeated one.
    EXPECT_EQ(GetPrivateProfileString("S", nullptr, "", buffer, 16, "e.ini"), 8);
    EXPECT_EQ(std::memcmp(buffer, "A\0BB\0CCC\0DD\0\0\0\0\0#", 17), 0);

    // The count starts from the default's length.
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(GetPrivateProfileString("S", nullptr, "xyz", buffer, 16, "e.ini"), 11);

    // CCC does not fit in 6 bytes: one of its bytes goes in, the last two
    // bytes are cleared, the count becomes size - 1, and the rest of that
    // section is skipped; DD of the repeated section adds 1 + 2.
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(GetPrivateProfileString("S", nullptr, "", buffer, 6, "e.ini"), 8);
    EXPECT_EQ(std::memcmp(buffer, "A\0BB\0\0#", 7), 0);

    // A one-byte buffer: A overflows it (count 0), the rest of the section
    // is skipped, and DD makes the count 1 and then adds 1 + 2.
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(GetPrivateProfileString("S", nullptr, "", buffer, 1, "e.ini"), 4);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(buffer[1], '#');
}

TEST(ProfileRead, SectionBoundariesAndTheLastLine) {
    ScratchDir dir;
    // A repeat right behind the matching section is consumed as its end.
    dir.put("r.ini", "[S]\nA=1\n[S]\nB=2\n");
    EXPECT_EQ(lookup("S", "B", "", "r.ini"), "");
    // One section in between, and the repeat is found.
    dir.put("r.ini", "[S]\nA=1\n[T]\n[S]\nB=2\n");
    EXPECT_EQ(lookup("S", "B", "", "r.ini"), "2");
    // A last line without a line end is never seen, nor one whose CR is the
    // file's last byte.
    dir.put("l.ini", "[S]\nA=1\nB=2");
    EXPECT_EQ(lookup("S", "A", "", "l.ini"), "1");
    EXPECT_EQ(lookup("S", "B", "", "l.ini"), "");
    dir.put("l.ini", "[S]\r\nA=1\r");
    EXPECT_EQ(lookup("S", "A", "", "l.ini"), "");
}

TEST(ProfileRead, LongLinesComeInPiecesOf256) {
    ScratchDir dir;
    std::string value(298, 'v');
    // The piece after the first 256 characters starts with "[": it ends the
    // section, so the key behind it is not found.
    std::string tail = std::string(252, 'p') + "[X]";
    dir.put("long.ini", "[S]\nK=" + value + "\nPad=" + tail + "\nAfter=1\n");
    char buffer[400];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(GetPrivateProfileString("S", "K", "", buffer, 300, "long.ini"), 254);
    EXPECT_EQ(std::string(buffer, 254), std::string(254, 'v'));
    EXPECT_EQ(buffer[254], '\0');
    EXPECT_EQ(lookup("S", "After", "none", "long.ini"), "none");

    // Over-long section and key names are compared, not copied.
    std::string name(1000, 's');
    EXPECT_EQ(lookup(name.c_str(), name.c_str(), "d", "long.ini"), "d");
}

TEST(ProfileRead, BadCallsAndBadFiles) {
    ScratchDir dir;
    char buffer[8];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(GetPrivateProfileString(nullptr, "k", "d", buffer, 8, "x.ini"), 0);
    EXPECT_EQ(GetPrivateProfileString("", "k", "d", buffer, 8, "x.ini"), 0);
    EXPECT_EQ(GetPrivateProfileString("s", "k", nullptr, buffer, 8, "x.ini"), 0);
    EXPECT_EQ(buffer[0], '#');
    // A default longer than the buffer is cut to it; the count is its length.
    int32_t n = 0;
    EXPECT_EQ(lookup("s", "k", "abcdefghij", "x.ini", &n, 4), "abcd");
    EXPECT_EQ(n, 10);
    EXPECT_EQ(GetPrivateProfileString("s", "k", "abc", nullptr, 8, "x.ini"), 0);
    EXPECT_EQ(GetPrivateProfileString("s", "k", "abc", buffer, 8, nullptr), 3);
    dir.put("empty.ini", "");
    EXPECT_EQ(lookup("s", "k", "d", "empty.ini"), "d");
    dir.mkdir("adir");
    EXPECT_EQ(lookup("s", "k", "d", "adir"), "d");

    // Binary garbage: nothing found, nothing written past the buffer.
    std::mt19937 random(4);
    for (int round = 0; round < 40; ++round) {
        std::string junk(1 + random() % 3000, '\0');
        for (char &c : junk) c = static_cast<char>(random() % 4 == 0 ? "[=;\n"[random() % 4] : random());
        dir.put("junk.ini", "[S]\n" + junk + "\n");
        char big[80];
        std::memset(big, '#', sizeof big);
        int32_t count = GetPrivateProfileString("S", nullptr, "", big, 40, "junk.ini");
        EXPECT_EQ(big[40], '#');
        EXPECT_GE(count, 0);
        lookup("S", "k", "", "junk.ini");
        GetPrivateProfileInt("S", "", 0, "junk.ini");
    }
}

TEST(ProfileRead, DefaultProfileIsZunIni) {
    ScratchDir dir;
    dir.put("ZUN.INI", "[Z]\nk=42\n");
    char buffer[8] = {};
    EXPECT_EQ(GetProfileString("Z", "k", "", buffer, 8), 2);
    EXPECT_STREQ(buffer, "42");
    EXPECT_EQ(GetProfileInt("Z", "k", 0), 42);
}

TEST(ProfileFind, InitOpenLooksHereFirstAndProfileDirectoryInInidirFirst) {
    ScratchDir dir;
    dir.mkdir("conf");
    dir.put("conf/p.ini", "[S]\nwhere=inidir\n");
    for (std::string inidir : {dir.at("conf"), dir.at("conf") + "/"}) {
        SCOPED_TRACE(inidir);
        EnvVar env("INIDIR", inidir.c_str());
        unlink("p.ini");
        char name[144] = "p.ini";
        HGLOBAL s = INIopen(name, sizeof name, 0);
        ASSERT_NE(s, 0u);
        EXPECT_EQ(std::string(name), dir.at("conf") + "/p.ini");  // no doubled "/"
        EXPECT_EQ(INIclose(s), 0);
        EXPECT_EQ(lookup("S", "where", "", "p.ini"), "inidir");

        dir.put("p.ini", "[S]\nwhere=here\n");
        std::strcpy(name, "p.ini");
        s = INIopen(name, sizeof name, 0);
        EXPECT_STREQ(name, "p.ini");
        INIclose(s);
        EXPECT_EQ(lookup("S", "where", "", "p.ini"), "here");

        std::strcpy(name, "p.ini");
        EXPECT_EQ(GetProfileDirectory(name, nullptr), 0);
        EXPECT_EQ(std::string(name), dir.at("conf") + "/p.ini");
    }
    EXPECT_EQ(INIclose(0), 0);
}

TEST(ProfileFind, ProfileDirectoryFallsBackAndNamesFromTheModule) {
    ScratchDir dir;
    EnvVar env("INIDIR", nullptr);
    dir.put("libfoo.ini", "");
    char name[144] = "";
    EXPECT_EQ(GetProfileDirectory(name, "/usr/lib/libfoo.so"), 0);
    EXPECT_STREQ(name, "libfoo.ini");
    std::strcpy(name, "");
    EXPECT_EQ(GetProfileDirectory(name, "/usr/lib/libfoo.so.2"), 1);  // libfoo.so.ini
    EXPECT_STREQ(name, "libfoo.so.ini");
    std::strcpy(name, "absent.ini");
    EXPECT_EQ(GetProfileDirectory(name, "libfoo.so"), 1);
    EXPECT_STREQ(name, "absent.ini");

    // An INIDIR of 144 characters or more is not used; the current
    // directory still is.
    std::string longdir(150, 'd');
    EnvVar longenv("INIDIR", longdir.c_str());
    std::strcpy(name, "libfoo.ini");
    EXPECT_EQ(GetProfileDirectory(name, nullptr), 0);
    EXPECT_STREQ(name, "libfoo.ini");
}

}  // namespace

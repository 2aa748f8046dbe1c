// Profile reading: normalisation, lookups and enumeration over hand-written
// files with every line end, integers, finding the file, and bad input.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "profile_fixture.h"
#include "tolva/tolva.h"

namespace {

// GetPrivateProfileString into a guarded buffer; the text up to size bytes.
std::string lookup(const char *section, const char *key, const char *def, const char *file,
                   int32_t *count = nullptr, int32_t size = 64) {
    char buffer[80];
    std::memset(buffer, '#', sizeof buffer);
    int32_t n = GetPrivateProfileString(section, key, def, buffer, size, file);
    if (count != nullptr) *count = n;
    EXPECT_EQ(buffer[size], '#') << "wrote past the buffer";
    return std::string(buffer, strnlen(buffer, static_cast<size_t>(size)));
}

TEST(ProfileLine, NormalisationTrimmingAndNumbers) {
    char a[] = "  [Colors] ; the colours\r\n";
    EXPECT_STREQ(CleanProfileLine(a, 0), "Colors");
    char b[] = "Name=\"say \"\"hi\"\"\" ";
    EXPECT_STREQ(CleanProfileLine(b, 0), "Name=say \"hi\"");  // a doubled quote leaves one
    char c[] = "[Name]=\"say \"\"hi\"\"\"";
    EXPECT_STREQ(CleanProfileLine(c, 5), "[Name]=\"say \"\"hi\"\"\"");
    char d[] = "Path=\"a;b\"";  // a ";" cuts even inside quotes
    EXPECT_STREQ(CleanProfileLine(d, 5), "Path=\"a");
    char e[] = "\"\"x\"\"";
    EXPECT_STREQ(TrimProfileChar(e, '"'), "\"x\"");  // one quote off each end
    char f[] = "xxaxx";
    EXPECT_STREQ(TrimProfileChar(f, 'x'), "a");

    const std::pair<const char *, int32_t> numbers[] = {
        {"0x10", 16}, {"0X1fz9", 31}, {"0x", 0}, {"0xFFFFFFFF", -1},
        {"0x123456789", 0x23456789}, {"010", 10}, {"12abc", 12}, {"-5", 0},
        {" 5", 0}, {"", 0}, {"99999999999", INT32_MAX}};
    for (const auto &[text, value] : numbers) EXPECT_EQ(ParseProfileNumber(text), value) << text;
}

TEST(ProfileRead, LookupsBehaveTheSameWithEveryLineEnd) {
    const std::string text =
        "; written by hand\n[Colors]\nDepth = 8\nMode=fast\n\n; comment\n"
        "Quoted=\"a b\"\nSemi=a;b\nShort=xy\nhex=0x10\nneg=-3\nempty=\n[Other]\nMode=slow\n\n";
    for (std::string end : {"\n", "\r\n", "\r"}) {
        SCOPED_TRACE(testing::PrintToString(end));
        ScratchDir dir;
        std::string file;
        for (char ch : text) file += ch == '\n' ? end : std::string(1, ch);
        dir.put("a.ini", file);
        int32_t n = 0;
        EXPECT_EQ(lookup("colors", "MODE", "dflt", "a.ini", &n), "fast");
        EXPECT_EQ(n, 4);
        // Keys are not trimmed around "=": "Depth " is the key, " 8" the value.
        EXPECT_EQ(lookup("Colors", "Depth", "dflt", "a.ini"), "dflt");
        EXPECT_EQ(lookup("Colors", "Depth ", "", "a.ini"), " 8");
        EXPECT_EQ(lookup("Colors", "Quoted", "", "a.ini"), "a b");
        EXPECT_EQ(lookup("Colors", "Semi", "", "a.ini"), "a");
        // The value goes over the default without a terminator.
        EXPECT_EQ(lookup("Colors", "Short", "abcdef", "a.ini", &n), "xycdef");
        EXPECT_EQ(n, 2);
        EXPECT_EQ(lookup("[Other]", "Mode", "", "a.ini"), "slow");
        EXPECT_EQ(GetPrivateProfileInt("Colors", "hex", 7, "a.ini"), 16);
        EXPECT_EQ(GetPrivateProfileInt("Colors", "neg", 7, "a.ini"), 0);
        EXPECT_EQ(GetPrivateProfileInt("Colors", "Depth ", 7, "a.ini"), 0);  // " 8"
        EXPECT_EQ(GetPrivateProfileInt("Colors", "empty", 7, "a.ini"), 7);
        EXPECT_EQ(GetPrivateProfileInt("Colors", "none", 7, "a.ini"), 7);
    }
}

TEST(ProfileRead, EnumerationAndItsOverflowRule) {
    ScratchDir dir;
    dir.put("e.ini", "[S]\nA=1\nBB=2\nCCC=3\n[T]\nX=0\n[S]\nDD=4\n");
    char buffer[24];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(GetPrivateProfileString("S", nullptr, "", buffer, 16, "e.ini"), 8);
    EXPECT_EQ(std::memcmp(buffer, "A\0BB\0CCC\0DD\0\0\0\0\0#", 17), 0);
    EXPECT_EQ(GetPrivateProfileString("S", nullptr, "xyz", buffer, 16, "e.ini"), 11);
    // CCC overflows 6 bytes: one byte of it goes in, the last two bytes are
    // cleared, the count becomes 5 and the rest of the section is skipped;
    // DD in the repeated section then adds 1 + 2.
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(GetPrivateProfileString("S", nullptr, "", buffer, 6, "e.ini"), 8);
    EXPECT_EQ(std::memcmp(buffer, "A\0BB\0\0#", 7), 0);
    // One byte: A overflows with the count at 0, which becomes 1 before DD.
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(GetPrivateProfileString("S", nullptr, "", buffer, 1, "e.ini"), 4);
    EXPECT_EQ(std::memcmp(buffer, "\0#", 2), 0);
}

TEST(ProfileRead, SectionEndsLastLinesAndLongLines) {
    ScratchDir dir;
    // A repeat right behind the matching section is consumed as its end; a
    // later one is found.
    dir.put("r.ini", "[S]\nA=1\n[S]\nB=2\n");
    EXPECT_EQ(lookup("S", "B", "", "r.ini"), "");
    dir.put("r.ini", "[S]\nA=1\n[T]\n[S]\nB=2\n");
    EXPECT_EQ(lookup("S", "B", "", "r.ini"), "2");
    // A last line without a line end is never seen, nor one whose CR is the
    // file's last byte.
    dir.put("l.ini", "[S]\nA=1\nB=2");
    EXPECT_EQ(lookup("S", "A", "", "l.ini") + lookup("S", "B", "", "l.ini"), "1");
    dir.put("l.ini", "[S]\r\nA=1\r");
    EXPECT_EQ(lookup("S", "A", "", "l.ini"), "");

    // Lines come in pieces of 256 characters. The piece "[X]" after the
    // first 256 characters of Pad ends the section.
    dir.put("long.ini", "[S]\nK=" + std::string(298, 'v') + "\nPad=" + std::string(252, 'p') +
                            "[X]\nAfter=1\n");
    char buffer[400];
    EXPECT_EQ(GetPrivateProfileString("S", "K", "", buffer, 300, "long.ini"), 254);
    EXPECT_EQ(std::string(buffer), std::string(254, 'v'));
    EXPECT_EQ(lookup("S", "After", "", "long.ini"), "");
    std::string huge(1000, 's');
    EXPECT_EQ(lookup(huge.c_str(), huge.c_str(), "d", "long.ini"), "d");
}

TEST(ProfileRead, BadCallsAndBadFilesGiveTheDefaults) {
    ScratchDir dir;
    char buffer[8];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(GetPrivateProfileString(nullptr, "k", "d", buffer, 8, "x.ini"), 0);
    EXPECT_EQ(GetPrivateProfileString("", "k", "d", buffer, 8, "x.ini"), 0);
    EXPECT_EQ(GetPrivateProfileString("s", "k", nullptr, buffer, 8, "x.ini"), 0);
    EXPECT_EQ(buffer[0], '#');
    int32_t n = 0;
    EXPECT_EQ(lookup("s", "k", "abcdefghij", "x.ini", &n, 4), "abcd");  // cut to the buffer
    EXPECT_EQ(n, 10);
    EXPECT_EQ(GetPrivateProfileString("s", "k", "abc", buffer, 8, nullptr), 3);
    dir.put("empty.ini", "");
    dir.mkdir("adir");
    EXPECT_EQ(lookup("s", "k", "d", "empty.ini") + lookup("s", "k", "d", "adir"), "dd");

    std::mt19937 random(4);
    for (int round = 0; round < 40; ++round) {
        std::string junk(1 + random() % 3000, '\0');
        for (char &c : junk)
            c = static_cast<char>(random() % 4 == 0 ? "[=;\n"[random() % 4] : random());
        dir.put("junk.ini", "[S]\n" + junk + "\n");
        char list[48];
        std::memset(list, '#', sizeof list);
        EXPECT_GE(GetPrivateProfileString("S", nullptr, "", list, 40, "junk.ini"), 0);
        EXPECT_EQ(list[40], '#');
        lookup("S", "k", "", "junk.ini");
    }
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
        EXPECT_NE(s, 0u);
        EXPECT_EQ(INIclose(s), 0);
        EXPECT_EQ(std::string(name), dir.at("conf") + "/p.ini");  // no doubled "/"
        EXPECT_EQ(lookup("S", "where", "", "p.ini"), "inidir");

        dir.put("p.ini", "[S]\nwhere=here\n");
        EXPECT_EQ(lookup("S", "where", "", "p.ini"), "here");
        std::strcpy(name, "p.ini");
        EXPECT_EQ(GetProfileDirectory(name, nullptr), 0);
        EXPECT_EQ(std::string(name), dir.at("conf") + "/p.ini");
    }
    // An INIDIR of 144 characters or more is passed over.
    EnvVar longdir("INIDIR", std::string(150, 'd').c_str());
    char name[144] = "p.ini";
    EXPECT_EQ(GetProfileDirectory(name, nullptr), 0);
    EXPECT_STREQ(name, "p.ini");
}

TEST(ProfileFind, AnEmptyNameComesFromTheModule) {
    ScratchDir dir;
    EnvVar env("INIDIR", nullptr);
    dir.put("libfoo.ini", "");
    char name[144] = "";
    EXPECT_EQ(GetProfileDirectory(name, "/usr/lib/libfoo.so"), 0);
    EXPECT_STREQ(name, "libfoo.ini");
    name[0] = '\0';  // the base name loses only its last extension
    EXPECT_EQ(GetProfileDirectory(name, "/usr/lib/libfoo.so.2"), 1);
    EXPECT_STREQ(name, "libfoo.so.ini");
    dir.put("ZUN.INI", "[Z]\nk=42\n");
    EXPECT_EQ(GetProfileInt("Z", "k", 0), 42);
}

}  // namespace

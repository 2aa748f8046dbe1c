// Profile files written by hand, with every line end, read back through
// lookups, enumeration and integers, found through INIDIR, and rewrites that
// fail without touching the old file or leaving a temporary.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "profile_fixture.h"
#include "tolva/host.h"
#include "tolva/profile.h"
#include "tolva/stream.h"

namespace {

using namespace std::string_literals;

const std::string kColours =
    "; written by hand\n[Colors] ; the colours\nDepth = 8\nMode=fast\n\n; comment\n"
    "Say=\"say \"\"hi\"\"\"\nSemi=\"a;b\"\nShort=xy\nhex=0x10\nempty=\n\n";
const std::string kKeys = "[S]\nA=1\nBB=2\nCCC=3\n[T]\nX=0\n[S]\nDD=4\n\n";
// Lines are read in pieces of 256 characters; the piece "[X]" after the first
// 256 characters of Pad ends the section.
const std::string kLong =
    "[S]\nK=" + std::string(298, 'v') + "\nPad=" + std::string(252, 'p') + "[X]\nAfter=1\n";
const std::string kHuge(1000, 's');

struct Lookup {
    std::string file;  // each "\n" becomes LF, CR LF and CR in turn, unless the text has a CR
    const char *section, *key, *def;
    int32_t size;
    std::string bytes;  // the start of the buffer afterwards; '#' is a byte left untouched
    int32_t count;
};

// Which lines exist and how keys compare are also checked, against a plain
// reader, by the profile write fuzz target.
const Lookup kLookups[] = {
    {kColours, "colors", "MODE", "dflt", 64, "fast\0"s, 4},
    // Keys are not trimmed around "=": "Depth " is the key, " 8" the value.
    {kColours, "Colors", "Depth ", "", 64, " 8\0"s, 2},
    // Doubled quotes stay doubled in values, and one quote comes off each end.
    {kColours, "Colors", "Say", "", 64, "say \"\"hi\"\"\0"s, 10},
    {kColours, "Colors", "Semi", "", 64, "a\0"s, 1},              // a ";" cuts even inside quotes
    {kColours, "Colors", "Short", "abcdef", 64, "xycdef\0"s, 2},  // no terminator after xy
    {kKeys, "S", nullptr, "", 16, "A\0BB\0CCC\0DD\0\0\0\0\0#"s, 8},
    // CCC overflows 6 bytes: one byte of it goes in, the last two bytes are
    // cleared, the count becomes 5 and the rest of the section is skipped;
    // DD in the repeated section then adds 1 + 2.
    {kKeys, "S", nullptr, "", 6, "A\0BB\0\0#"s, 8},
    {kKeys, "S", nullptr, "", 1, "\0#"s, 4},  // A overflows at 0, which becomes 1 before DD
    {kLong, "S", "K", "", 300, std::string(254, 'v') + '\0', 254},
    {kLong, "S", "After", "", 64, "\0"s, 0},
    // A repeat right behind the matching section is consumed as its end; a
    // later one is found.
    {"[S]\nA=1\n[S]\nB=2\n", "S", "B", "", 64, "\0"s, 0},
    {"[S]\nA=1\n[T]\n[S]\nB=2\n\n", "S", "B", "", 64, "2\0"s, 1},
    {kLong, kHuge.c_str(), kHuge.c_str(), "d", 64, "d\0"s, 1},
    {"", "S", "k", "abcdefghij", 4, "abcd#", 10},  // the default is cut to the buffer
    {"[S]\nk=v\n", nullptr, "k", "d", 8, "#", 0},
    {"[S]\nk=v\n", "", "k", "d", 8, "#", 0},
    {"[S]\nk=v\n", "S", "k", nullptr, 8, "#", 0},
};

TEST(ProfileRead, HandWrittenFilesWithEveryLineEnd) {
    ScratchDir dir;
    for (const Lookup &c : kLookups) {
        for (std::string end : {"\n", "\r\n", "\r"}) {
            if (end != "\n" && c.file.find('\r') != std::string::npos) continue;
            std::string text;
            for (char ch : c.file) text += ch == '\n' ? end : std::string(1, ch);
            SCOPED_TRACE(testing::PrintToString(text.substr(0, 60)));
            dir.put("t.ini", text);
            char buffer[400];
            std::memset(buffer, '#', sizeof buffer);
            EXPECT_EQ(GetPrivateProfileString(c.section, c.key, c.def, buffer, c.size, "t.ini"),
                      c.count);
            EXPECT_EQ(std::string(buffer, c.bytes.size()), c.bytes);
            EXPECT_EQ(buffer[c.size], '#') << "wrote past the buffer";
        }
    }
    dir.put("t.ini", kColours);
    EXPECT_EQ(GetPrivateProfileInt("Colors", "hex", 7, "t.ini"), 16);
    EXPECT_EQ(GetPrivateProfileInt("Colors", "empty", 7, "t.ini"), 7);  // nothing to parse
    const std::pair<std::string, int32_t> numbers[] = {
        {"0X1fz9", 31}, {"0xFFFFFFFF", -1}, {"0x123456789", 0x23456789},
        {"010", 10},    {"-5", 0},          {"99999999999", INT32_MAX}};
    for (const auto &[text, value] : numbers) EXPECT_EQ(ParseProfileNumber(text.c_str()), value);
    // Arbitrary bytes in the buffer's bounds are the profile fuzz target's.
    char small[8];
    EXPECT_EQ(GetPrivateProfileString("s", "k", "abc", small, 8, "/"), 3);  // not a file
}

TEST(ProfileFind, InitOpenLooksHereFirstAndProfileDirectoryInInidirFirst) {
    ScratchDir dir;
    fs::create_directory("conf");
    for (std::string inidir : {dir.at("conf"), dir.at("conf") + "/"}) {
        setenv("INIDIR", inidir.c_str(), 1);
        unlink("p.ini");
        dir.put("conf/p.ini", "[S]\nwhere=1\n");
        char name[144] = "p.ini";
        EXPECT_EQ(INIclose(INIopen(name, sizeof name, 0)), 0);
        EXPECT_EQ(std::string(name), dir.at("conf/p.ini"));  // no doubled "/"
        // The file found there is rewritten in place and keeps its mode.
        fs::permissions("conf/p.ini", fs::perms(0640));
        EXPECT_EQ(WritePrivateProfileString("S", "where", "2", "p.ini"), 1);
        EXPECT_EQ(GetPrivateProfileInt("S", "where", 0, "p.ini"), 2);
        EXPECT_EQ(fs::status("conf/p.ini").permissions(), fs::perms(0640));
        EXPECT_EQ(dir.list("conf"), std::set<std::string>{"p.ini"});
        dir.put("p.ini", "[S]\nwhere=3\n");
        EXPECT_EQ(GetPrivateProfileInt("S", "where", 0, "p.ini"), 3);
        std::strcpy(name, "p.ini");
        EXPECT_EQ(GetProfileDirectory(name, nullptr), 0);
        EXPECT_EQ(std::string(name), dir.at("conf/p.ini"));
    }
    setenv("INIDIR", std::string(150, 'd').c_str(), 1);  // 144 or more: passed over
    char name[144] = "";  // an empty name comes from the module, less its last extension
    EXPECT_EQ(GetProfileDirectory(name, "/usr/lib/p.so.2"), 1);
    EXPECT_STREQ(name, "p.so.ini");
    unsetenv("INIDIR");
}

// What a rewrite writes is checked against a model by the profile write fuzz
// target; these are the rules its inputs do not reach.
TEST(ProfileWrite, KeysCompareTrimmedAndAMissingOneGoesLastInItsSection) {
    ScratchDir dir;
    dir.put("w.ini", "[A]\nx = 1\n; end of A\n[B]\nk=1\n");
    EXPECT_EQ(WritePrivateProfileString("A", "z", "3", "w.ini"), 1);
    EXPECT_EQ(WritePrivateProfileString("A", "x", "9", "w.ini"), 1);
    EXPECT_EQ(dir.get("w.ini"), "[A]\nx=9\n; end of A\nz=3\n[B]\nk=1\n");
    EXPECT_EQ(WriteProfileString("S", "k", "v"), 1);  // no name: a new ZUN.INI, LF
    EXPECT_EQ(dir.get("ZUN.INI"), "\n[S]\nk=v\n");
}

TEST(ProfileWrite, FailedRewritesKeepTheOldFileAndLeaveNoTemporary) {
    ScratchDir dir;
    // No temporary can be made beside the file (as in a read-only folder,
    // which root could still write into).
    EXPECT_EQ(WritePrivateProfileString("S", "k", "2", "/proc/version"), 0);
    EXPECT_EQ(WritePrivateProfileString("S", "k", "v", nullptr), 0);
    fs::create_directory("p.ini");  // the rename over a directory fails
    EXPECT_EQ(WritePrivateProfileString("S", "k", "2", "p.ini"), 0);
    // A copy that fails half way: files may not grow past 4096 bytes.
    std::string big = "[S]\n";
    for (int i = 0; i < 400; ++i) big += "key" + std::to_string(i) + "=value\n";
    dir.put("big.ini", big);
    rlimit old_limit;
    getrlimit(RLIMIT_FSIZE, &old_limit);
    const rlimit small = {4096, old_limit.rlim_max};
    signal(SIGXFSZ, SIG_IGN);  // a failed write, not a killed process
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    int32_t result = WritePrivateProfileString("S", "key1", "changed", "big.ini");
    setrlimit(RLIMIT_FSIZE, &old_limit);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(dir.get("big.ini"), big);
    EXPECT_EQ(dir.list(), (std::set<std::string>{"big.ini", "p.ini"}));
}

}  // namespace

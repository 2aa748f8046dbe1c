// Profile writing: the exact text of rewritten files, line ends kept, and
// rewrites that fail without touching the old file or leaving a temporary.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "profile_fixture.h"
#include "tolva/tolva.h"

namespace {

std::string value_of(const char *section, const char *key, const char *file) {
    char buffer[64] = {};
    GetPrivateProfileString(section, key, "", buffer, 63, file);
    return buffer;
}

TEST(ProfileWrite, SetAppendsThenReplacesAndDeleteRemoves) {
    ScratchDir dir;
    dir.put("w.ini", "[A]\nx = 1\n\n; end of A\n[B]\nk=1\n; note\n[C]\nc=3\nlost=4");
    // The line without a line end is dropped; a new section goes at the end.
    EXPECT_EQ(WritePrivateProfileString("New", "key", "v1", "w.ini"), 1);
    EXPECT_EQ(dir.get("w.ini"), "[A]\nx = 1\n\n; end of A\n[B]\nk=1\n; note\n[C]\nc=3\n\n[New]\nkey=v1\n");
    EXPECT_EQ(WritePrivateProfileString("new", "KEY", "v2", "w.ini"), 1);
    // A missing key goes last in its section; the writer trims the keys it
    // compares, unlike the reader.
    EXPECT_EQ(WritePrivateProfileString("A", "z", "3", "w.ini"), 1);
    EXPECT_EQ(WritePrivateProfileString("A", "x", "9", "w.ini"), 1);
    EXPECT_EQ(dir.get("w.ini"), "[A]\nx=9\n\n; end of A\nz=3\n[B]\nk=1\n; note\n[C]\nc=3\n\n[New]\nKEY=v2\n");
    EXPECT_EQ(value_of("A", "x", "w.ini") + value_of("new", "key", "w.ini"), "9v2");

    // Deleting a section's only key removes its header; a comment keeps it.
    EXPECT_EQ(WritePrivateProfileString("New", "key", nullptr, "w.ini"), 1);
    EXPECT_EQ(WritePrivateProfileString("B", "k", nullptr, "w.ini"), 1);
    EXPECT_EQ(WritePrivateProfileString("A", nullptr, nullptr, "w.ini"), 1);
    EXPECT_EQ(dir.get("w.ini"), "[B]\n; note\n[C]\nc=3\n\n");
    // Deleting what is not there adds nothing.
    EXPECT_EQ(WritePrivateProfileString("Z", "k", nullptr, "w.ini"), 1);
    EXPECT_EQ(dir.get("w.ini"), "[B]\n; note\n[C]\nc=3\n\n");
    EXPECT_EQ(dir.list(), std::set<std::string>{"w.ini"});

    // The repeat right behind a section ends it and is copied untouched.
    dir.put("r.ini", "[S]\na=1\n[S]\na=2\n");
    EXPECT_EQ(WritePrivateProfileString("S", "c", "3", "r.ini"), 1);
    EXPECT_EQ(dir.get("r.ini"), "[S]\na=1\nc=3\n[S]\na=2\n");
}

TEST(ProfileWrite, LineEndsOfTheOldFileAreKeptForEveryLine) {
    ScratchDir dir;
    for (std::string e : {"\r\n", "\r", "\n"}) {
        dir.put("e.ini", "[S]" + e + "a=1\nb=2\r\n");
        EXPECT_EQ(WritePrivateProfileString("S", "b", "3", "e.ini"), 1);
        EXPECT_EQ(dir.get("e.ini"), "[S]" + e + "a=1" + e + "b=3" + e);
        // With CR ends the file's last byte is a CR, which hides the last line.
        EXPECT_EQ(value_of("S", "b", "e.ini"), e == "\r" ? "" : "3");
    }
    EXPECT_EQ(WriteProfileString("S", "k", "v"), 1);  // a new file: LF
    EXPECT_EQ(dir.get("ZUN.INI"), "\n[S]\nk=v\n");
    dir.put("flat.ini", "[S]");  // no line end to keep: CR LF
    EXPECT_EQ(WritePrivateProfileString("T", "k", "v", "flat.ini"), 1);
    EXPECT_EQ(dir.get("flat.ini"), "\r\n[T]\r\nk=v\r\n");
}

TEST(ProfileWrite, TheFileFoundThroughInidirIsRewrittenInPlaceWithItsMode) {
    ScratchDir dir;
    dir.mkdir("conf");
    dir.put("conf/i.ini", "[S]\nk=1\n");
    chmod(dir.at("conf/i.ini").c_str(), 0640);
    EnvVar env("INIDIR", dir.at("conf").c_str());
    EXPECT_EQ(WritePrivateProfileString("S", "k", "2", "i.ini"), 1);
    EXPECT_EQ(dir.get("conf/i.ini"), "[S]\nk=2\n");
    EXPECT_EQ(dir.list(), std::set<std::string>{"conf"});
    EXPECT_EQ(dir.list("conf"), std::set<std::string>{"i.ini"});
    struct stat st;
    ASSERT_EQ(stat(dir.at("conf/i.ini").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
}

TEST(ProfileWrite, FailedRewritesKeepTheOldFileAndLeaveNoTemporary) {
    ScratchDir dir;
    EXPECT_EQ(WritePrivateProfileString("S", "k", "2", "nowhere/p.ini"), 0);
    EXPECT_EQ(WritePrivateProfileString("S", "k", "2", "/proc/version"), 0);
    dir.mkdir("p.ini");  // the rename over a directory fails
    EXPECT_EQ(WritePrivateProfileString("S", "k", "2", "p.ini"), 0);
    EXPECT_EQ(dir.list(), std::set<std::string>{"p.ini"});

    const std::string original = "[S]\nk=1\n";
    dir.mkdir("ro");
    dir.put("ro/p.ini", original);
    chmod(dir.at("ro").c_str(), 0555);
    if (geteuid() != 0) {  // root writes into read-only directories anyway
        EXPECT_EQ(WritePrivateProfileString("S", "k", "2", "ro/p.ini"), 0);
        EXPECT_EQ(dir.get("ro/p.ini"), original);
        EXPECT_EQ(dir.list("ro"), std::set<std::string>{"p.ini"});
    }
    chmod(dir.at("ro").c_str(), 0755);

    // A write that fails half way: files may not grow past 4096 bytes.
    std::string big = "[S]\n";
    for (int i = 0; i < 400; ++i) big += "key" + std::to_string(i) + "=value\n";
    dir.put("big.ini", big);
    struct rlimit old_limit, small;
    getrlimit(RLIMIT_FSIZE, &old_limit);
    small = old_limit;
    small.rlim_cur = 4096;
    void (*old_handler)(int) = signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    int32_t result = WritePrivateProfileString("S", "key1", "changed", "big.ini");
    setrlimit(RLIMIT_FSIZE, &old_limit);
    signal(SIGXFSZ, old_handler);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(dir.get("big.ini"), big);
    EXPECT_EQ(dir.list(), (std::set<std::string>{"big.ini", "p.ini", "ro"}));

    EXPECT_EQ(WritePrivateProfileString("S", "k", "v", std::string(300, 'n').c_str()), 0);
    EXPECT_EQ(WritePrivateProfileString(nullptr, "k", "v", "x.ini"), 0);
    EXPECT_EQ(WritePrivateProfileString("S", "k", "v", nullptr), 0);
}

}  // namespace

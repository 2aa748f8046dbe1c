// Profile writing: the exact text of rewritten files, line ends kept, the
// round trip through the readers, and rewrites that fail without harm.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "profile_fixture.h"
#include "tolva/tolva.h"

namespace {

std::string read_value(const char *section, const char *key, const char *file) {
    char buffer[300] = {};
    GetPrivateProfileString(section, key, "", buffer, 299, file);
    return buffer;
}

TEST(ProfileWrite, SettingAKeyAppendsTheSectionThenReplacesInPlace) {
    ScratchDir dir;
    dir.put("w.ini", "[A]\nx=1\n");
    EXPECT_EQ(WritePrivateProfileString("New Section", "key", "v1", "w.ini"), 1);
    EXPECT_EQ(dir.get("w.ini"), "[A]\nx=1\n\n[New Section]\nkey=v1\n");
    EXPECT_EQ(WritePrivateProfileString("new section", "KEY", "v2", "w.ini"), 1);
    EXPECT_EQ(dir.get("w.ini"), "[A]\nx=1\n\n[New Section]\nKEY=v2\n");
    EXPECT_EQ(read_value("New Section", "key", "w.ini"), "v2");

    // A missing key goes last in its section, after blank and comment lines.
    dir.put("w.ini", "[A]\nx = 1\n\n; end of A\n[B]\ny=2\n");
    EXPECT_EQ(WritePrivateProfileString("A", "z", "3", "w.ini"), 1);
    EXPECT_EQ(dir.get("w.ini"), "[A]\nx = 1\n\n; end of A\nz=3\n[B]\ny=2\n");
    // The writer trims the key it compares, unlike the reader.
    EXPECT_EQ(WritePrivateProfileString("A", "x", "9", "w.ini"), 1);
    EXPECT_EQ(dir.get("w.ini"), "[A]\nx=9\n\n; end of A\nz=3\n[B]\ny=2\n");
    EXPECT_EQ(read_value("A", "x", "w.ini"), "9");
    EXPECT_EQ(dir.list(), std::set<std::string>{"w.ini"});  // no temporary file left
}

TEST(ProfileWrite, DeletingKeysAndSections) {
    ScratchDir dir;
    dir.put("d.ini", "[A]\nonly=1\n[B]\nk=1\n; note\nm=2\n[C]\nc=3\n");
    EXPECT_EQ(WritePrivateProfileString("A", "only", nullptr, "d.ini"), 1);
    EXPECT_EQ(dir.get("d.ini"), "[B]\nk=1\n; note\nm=2\n[C]\nc=3\n");  // A lost its header
    EXPECT_EQ(WritePrivateProfileString("B", "k", nullptr, "d.ini"), 1);
    EXPECT_EQ(dir.get("d.ini"), "[B]\n; note\nm=2\n[C]\nc=3\n");
    EXPECT_EQ(WritePrivateProfileString("B", nullptr, nullptr, "d.ini"), 1);
    EXPECT_EQ(dir.get("d.ini"), "[C]\nc=3\n");
    // Deleting what is not there changes nothing and adds nothing.
    EXPECT_EQ(WritePrivateProfileString("Z", "k", nullptr, "d.ini"), 1);
    EXPECT_EQ(WritePrivateProfileString("Z", nullptr, nullptr, "d.ini"), 1);
    EXPECT_EQ(dir.get("d.ini"), "[C]\nc=3\n");
}

TEST(ProfileWrite, LineEndsOfTheOldFileAreKeptForEveryLine) {
    for (const char *end : {"\r\n", "\r", "\n"}) {
        SCOPED_TRACE(testing::PrintToString(std::string(end)));
        ScratchDir dir;
        std::string e = end;
        // Mixed input: every line comes out with the first line's end.
        dir.put("e.ini", "[S]" + e + "a=1\nb=2\r\n");
        EXPECT_EQ(WritePrivateProfileString("S", "b", "3", "e.ini"), 1);
        EXPECT_EQ(dir.get("e.ini"), "[S]" + e + "a=1" + e + "b=3" + e);
        EXPECT_EQ(read_value("S", "a", "e.ini"), "1");
        // With CR line ends the file's last byte is a CR, which hides the
        // last line from the reader.
        EXPECT_EQ(read_value("S", "b", "e.ini"), e == "\r" ? "" : "3");
    }
}

TEST(ProfileWrite, NewAndLineEndlessFiles) {
    ScratchDir dir;
    EXPECT_EQ(WritePrivateProfileString("S", "k", "v", "new.ini"), 1);
    EXPECT_EQ(dir.get("new.ini"), "\n[S]\nk=v\n");
    // A file without any line end has none to keep: lines then end in CR LF,
    // and its one line is dropped.
    dir.put("flat.ini", "[S]");
    EXPECT_EQ(WritePrivateProfileString("T", "k", "v", "flat.ini"), 1);
    EXPECT_EQ(dir.get("flat.ini"), "\r\n[T]\r\nk=v\r\n");
    // A key on a last line without a line end is not found and the rewrite
    // drops it.
    dir.put("last.ini", "[S]\nkeep=1\nlost=2");
    EXPECT_EQ(read_value("S", "lost", "last.ini"), "");
    EXPECT_EQ(WritePrivateProfileString("S", "other", "3", "last.ini"), 1);
    EXPECT_EQ(dir.get("last.ini"), "[S]\nkeep=1\nother=3\n");
}

TEST(ProfileWrite, RepeatedSectionsAndTheHeaderRightBehind) {
    ScratchDir dir;
    // The repeat right behind the section ends it and is copied untouched.
    dir.put("r.ini", "[S]\na=1\n[S]\nb=2\n");
    EXPECT_EQ(WritePrivateProfileString("S", "c", "3", "r.ini"), 1);
    EXPECT_EQ(dir.get("r.ini"), "[S]\na=1\nc=3\n[S]\nb=2\n");
    // A later repeat is rewritten too.
    dir.put("r.ini", "[S]\na=1\n[T]\n[S]\na=2\n");
    EXPECT_EQ(WritePrivateProfileString("S", "a", "9", "r.ini"), 1);
    EXPECT_EQ(dir.get("r.ini"), "[S]\na=9\n[T]\n[S]\na=9\n");
}

TEST(ProfileWrite, FoundThroughInidirAndModeKept) {
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
    const std::string original = "[S]\nk=1\n";

    // No directory to write in.
    EXPECT_EQ(WritePrivateProfileString("S", "k", "2", "nowhere/p.ini"), 0);
    EXPECT_EQ(dir.list(), std::set<std::string>{});

    // The old "file" is a directory: the rename over it fails.
    dir.mkdir("p.ini");
    EXPECT_EQ(WritePrivateProfileString("S", "k", "2", "p.ini"), 0);
    EXPECT_EQ(dir.list(), std::set<std::string>{"p.ini"});

    // A directory that cannot be written to (root writes anyway).
    dir.mkdir("ro");
    dir.put("ro/p.ini", original);
    chmod(dir.at("ro").c_str(), 0555);
    if (geteuid() != 0) {
        EXPECT_EQ(WritePrivateProfileString("S", "k", "2", "ro/p.ini"), 0);
        EXPECT_EQ(dir.get("ro/p.ini"), original);
        EXPECT_EQ(dir.list("ro"), std::set<std::string>{"p.ini"});
    }
    chmod(dir.at("ro").c_str(), 0755);

    // /proc takes no new files.
    EXPECT_EQ(WritePrivateProfileString("S", "k", "2", "/proc/version"), 0);

    // A write that fails half way: the new file may not grow past 4096 bytes.
    std::string big = "[S]\n";
    for (int i = 0; i < 400; ++i) big += "key" + std::to_string(i) + "=value\n";
    dir.put("big.ini", big);
    struct rlimit old_limit;
    getrlimit(RLIMIT_FSIZE, &old_limit);
    struct rlimit small = old_limit;
    small.rlim_cur = 4096;
    void (*old_handler)(int) = signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    int32_t result = WritePrivateProfileString("S", "key1", "changed", "big.ini");
    setrlimit(RLIMIT_FSIZE, &old_limit);
    signal(SIGXFSZ, old_handler);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(dir.get("big.ini"), big);
    EXPECT_EQ(dir.list(), (std::set<std::string>{"big.ini", "p.ini", "ro"}));

    // Names the path buffer cannot hold are refused.
    std::string longname(300, 'n');
    EXPECT_EQ(WritePrivateProfileString("S", "k", "v", longname.c_str()), 0);
    EXPECT_EQ(WritePrivateProfileString(nullptr, "k", "v", "x.ini"), 0);
    EXPECT_EQ(WritePrivateProfileString("S", "k", "v", nullptr), 0);
}

TEST(ProfileWrite, ZunIniVariant) {
    ScratchDir dir;
    EXPECT_EQ(WriteProfileString("Z", "k", "v"), 1);
    EXPECT_EQ(dir.get("ZUN.INI"), "\n[Z]\nk=v\n");
}

}  // namespace

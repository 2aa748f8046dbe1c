// Line I/O: every line end on input, the stream's own on output, detection.
#include <gtest/gtest.h>

#include <string.h>

#include "stream_fixture.h"

namespace {

HGLOBAL open_with(TempFile &tmp, const std::string &text) {
    tmp.put(std::vector<uint8_t>(text.begin(), text.end()));
    return zunOpen(tmp.c_str(), nullptr, 0);
}

TEST(LineIO, ReadsAnyLineEnd) {
    TempFile tmp;
    HGLOBAL s = open_with(tmp, "ab\r\ncd\ref\n\nxyz");
    char line[16];
    for (const char *want : {"ab", "cd", "ef"}) {
        EXPECT_EQ(zunReadLine(s, line, 16), 2);
        EXPECT_STREQ(line, want);
    }
    EXPECT_EQ(zunReadLine(s, line, 16), 0);
    EXPECT_STREQ(line, "");
    EXPECT_EQ(zunReadLine(s, line, 16), -1);  // no line end after the last line
    EXPECT_STREQ(line, "xyz");
    zunClose(s);
}

TEST(LineIO, AFullBufferLeavesTheRestForTheNextCall) {
    TempFile tmp;
    HGLOBAL s = open_with(tmp, "abcdef\nq\r");
    char line[6];
    memset(line, '#', sizeof line);
    EXPECT_EQ(zunReadLine(s, line, 4), 4);
    EXPECT_EQ(memcmp(line, "abcd##", 6), 0);  // no terminator written
    EXPECT_EQ(zunReadLine(s, line, 4), 2);
    EXPECT_STREQ(line, "ef");
    EXPECT_EQ(zunReadLine(s, line, 4), -1);  // the CR is the last byte
    EXPECT_STREQ(line, "q");
    zunClose(s);
}

TEST(LineIO, WritesTheStreamsLineEndAndDetectsAFilesOne) {
    TempFile tmp;
    HGLOBAL s = zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_OUTPUT);
    EXPECT_EQ(zunWriteLine(s, "a", 1), 1);  // LF by default
    zunSetLineFormat(s, 1);
    EXPECT_EQ(zunWriteLine(s, "bc", 2), 2);
    zunSetLineFormat(s, 0);
    EXPECT_EQ(zunWriteLine(s, "d", 1), 1);
    zunClose(s);
    EXPECT_EQ(tmp.contents(), (std::vector<uint8_t>{'a', 10, 'b', 'c', 13, 'd', 13, 10}));

    struct Case {
        const char *text;
        int32_t format;
    } cases[] = {{"key=1\r\nx\n", 0}, {"key\rx\n", 1}, {"key\nx\r\n", 2}, {"no end", -1}, {"end\r", 1}};
    for (const Case &c : cases) {
        HGLOBAL in = open_with(tmp, c.text);
        char skip[2];
        zunRead(in, skip, 2);
        EXPECT_EQ(zunGetLineFormat(in), c.format) << c.text;
        EXPECT_EQ(zunSeek(in, 0, 1), 0);  // rewound whatever was found
        zunClose(in);
    }
}

}  // namespace

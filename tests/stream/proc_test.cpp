// Procedure streams, wrapped streams, the no-stream modes, copying and the
// document seek.
#include <gtest/gtest.h>

#include <string.h>

#include <string>

#include "stream/stream.h"
#include "stream_fixture.h"

namespace {

// A host file system of one in-memory file that records every call as
// "instance:operation:b".
struct HostFile {
    std::vector<uint8_t> data;
    int32_t position = 0;
    std::vector<std::string> calls;
    intptr_t openAnswer = 77;
} *g_host;

intptr_t host_proc(intptr_t instance, int32_t op, intptr_t a, intptr_t b) {
    HostFile &h = *g_host;
    h.calls.push_back(std::to_string(instance) + ":" + std::to_string(op) + ":" +
                      std::to_string(op >= 4 ? b : 0));
    auto *p = reinterpret_cast<uint8_t *>(a);
    switch (op) {
    case 1: return h.openAnswer;
    case 2: {
        auto n = std::min<intptr_t>(b, static_cast<intptr_t>(h.data.size()) - h.position);
        memcpy(p, h.data.data() + h.position, static_cast<size_t>(n));
        h.position += static_cast<int32_t>(n);
        return n;
    }
    case 3:
        h.data.insert(h.data.begin() + h.position, p, p + b);
        h.position += static_cast<int32_t>(b);
        return b;
    case 4: return h.position = *reinterpret_cast<int32_t *>(a);
    default: return op * 11;
    }
}

struct ProcStream : ::testing::Test {
    HostFile host;
    intptr_t d[TOLVA_STREAM_DESCRIPTOR_WORDS] = {1234, 0, 0, 0, reinterpret_cast<intptr_t>(&host_proc)};
    void SetUp() override { g_host = &host; }
};

TEST_F(ProcStream, EveryOperationGoesToTheProcedure) {
    HGLOBAL s = zunOpen("name", d, TOLVA_STREAM_OUTPUT);
    ASSERT_NE(s, 0u);
    EXPECT_EQ(zunWriteLine(s, "hi", 2), 2);  // procedure streams keep line format 0: CR LF
    EXPECT_EQ(zunSeek(s, 1, 0), 1);
    char got[4] = {};
    EXPECT_EQ(zunRead(s, got, 3), 3);
    EXPECT_STREQ(got, "i\r\n");
    EXPECT_EQ(zunClose(s), 55);
    EXPECT_EQ(host.calls, (std::vector<std::string>{"1234:1:0", "77:3:0", "77:3:0", "77:3:0", "77:4:0",
                                                    "77:2:0", "77:5:0"}));
}

TEST_F(ProcStream, ADeclinedOpenStillCallsTheProcedureWithInstanceZero) {
    host.openAnswer = 0;
    TempFile tmp;
    HGLOBAL s = zunOpen(tmp.c_str(), d, TOLVA_STREAM_OUTPUT);
    ASSERT_NE(s, 0u);
    EXPECT_EQ(zunWrite(s, "abc", 3), 3);
    EXPECT_EQ(zunCloseandDelete(s, tmp.c_str()), 0);
    EXPECT_EQ(host.calls, (std::vector<std::string>{"1234:1:0", "0:3:0", "0:5:512"}));
    EXPECT_EQ(tmp.contents().size(), 0u);  // opened as well, never written
}

TEST_F(ProcStream, WrapModeAndTheNoStreamModes) {
    d[5] = 55;
    HGLOBAL s = zunOpen(nullptr, d, TOLVA_STREAM_WRAP);  // no open call
    EXPECT_EQ(zunWrite(s, "x", 1), 1);
    zunClose(s);
    EXPECT_EQ(zunOpen("f", d, TOLVA_STREAM_EXISTS), 66u);
    EXPECT_EQ(zunOpen("f", d, TOLVA_STREAM_DELETE), 77u);
    EXPECT_EQ(host.calls, (std::vector<std::string>{"55:3:0", "55:5:0", "0:6:0", "0:7:0"}));
}

TEST(WrappedFile, TheCallersFileStaysOpen) {
    FILE *f = tmpfile();
    intptr_t d[TOLVA_STREAM_DESCRIPTOR_WORDS] = {0, 0, 0, reinterpret_cast<intptr_t>(f)};
    HGLOBAL s = zunOpen(nullptr, d, TOLVA_STREAM_WRAP);
    EXPECT_EQ(zunWrite(s, "wrapped", 7), 7);
    EXPECT_EQ(zunClose(s), 0);
    rewind(f);
    char got[8] = {};
    EXPECT_EQ(fread(got, 1, 7, f), 7u);
    EXPECT_STREQ(got, "wrapped");
    fclose(f);
    d[3] = -1;
    EXPECT_EQ(zunOpen(nullptr, d, TOLVA_STREAM_WRAP), 0u);
}

TEST(NamedStreams, StdinMayBeAPipe) {
    EXPECT_EXIT(
        {
            FILE *pipe = popen("printf 'in\\nmore'", "r");
            if (pipe == nullptr || dup2(fileno(pipe), 0) < 0) _exit(2);
            HGLOBAL s = zunOpen("stdin", nullptr, 0);
            char line[8];
            int32_t n = zunReadLine(s, line, 8);
            _exit(n == 2 && strcmp(line, "in") == 0 && zunReadLine(s, line, 8) == -1 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(NoStreamModes, ExistsDeleteAndCopyOnFiles) {
    TempFile from, to;
    auto data = pattern(10000);
    from.put(data);
    EXPECT_EQ(zunCopy(from.c_str(), to.c_str()), 0);
    EXPECT_EQ(to.contents(), data);
    EXPECT_NE(zunOpen(to.c_str(), nullptr, TOLVA_STREAM_EXISTS), static_cast<HGLOBAL>(-1));
    EXPECT_EQ(zunOpen(to.c_str(), nullptr, TOLVA_STREAM_DELETE), 1u);
    EXPECT_EQ(zunOpen(to.c_str(), nullptr, TOLVA_STREAM_EXISTS), static_cast<HGLOBAL>(-1));
    EXPECT_EQ(zunOpen(to.c_str(), nullptr, TOLVA_STREAM_DELETE), 0u);
    // A missing source copies nothing and still reports 0.
    EXPECT_EQ(zunCopy("/nonexistent/source", to.c_str()), 0);
    EXPECT_EQ(to.contents().size(), 0u);
}

TEST(DocumentSeek, ClampsToTheSubStream) {
    TempFile tmp;
    HGLOBAL s = zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_OUTPUT);
    StreamRecord *r = stream_lock(s);
    r->docSize = 100;
    r->docMode = 1;
    EXPECT_EQ(zunSeek(s, -5, 0), 0);
    EXPECT_EQ(zunSeek(s, 110, 0), 100);
    EXPECT_EQ(zunSeek(s, 30, 2), 70);  // from the end: size minus the offset
    EXPECT_EQ(zunSeek(s, -10, 1), 60);
    EXPECT_EQ(zunSeek(s, 0, 7), -1);
    EXPECT_EQ(r->docPosition, 60u);
    EXPECT_EQ(zunClose(s), 0);
}

}  // namespace

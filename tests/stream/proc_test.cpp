// Procedure streams, wrapped streams, the no-stream modes and the helpers
// around files and memory.
#include <gtest/gtest.h>

#include <string.h>

#include <string>

#include "stream/stream.h"
#include "stream_fixture.h"

namespace {

// A host file system of one in-memory file; records every call.
struct HostFile {
    std::vector<uint8_t> data;
    int32_t position = 0;
    std::vector<std::string> calls;
    intptr_t openAnswer = 77;
};
HostFile *g_host = nullptr;

intptr_t host_proc(intptr_t instance, int32_t op, intptr_t a, intptr_t b) {
    HostFile &h = *g_host;
    h.calls.push_back(std::to_string(instance) + ":" + std::to_string(op) + ":" +
                      std::to_string(op == 4 || op == 5 ? b : 0));
    switch (op) {
    case 1: return h.openAnswer;
    case 2: {
        int32_t n = static_cast<int32_t>(b);
        int32_t left = static_cast<int32_t>(h.data.size()) - h.position;
        if (n > left) n = left;
        memcpy(reinterpret_cast<void *>(a), h.data.data() + h.position, static_cast<size_t>(n));
        h.position += n;
        return n;
    }
    case 3: {
        auto *p = reinterpret_cast<const uint8_t *>(a);
        h.data.insert(h.data.begin() + h.position, p, p + b);
        h.position += static_cast<int32_t>(b);
        return b;
    }
    case 4: h.position = *reinterpret_cast<int32_t *>(a); return h.position;
    case 5: return 5;
    case 6: return 66;
    case 7: return 99;
    }
    return -1;
}

struct ProcFixture : ::testing::Test {
    HostFile host;
    intptr_t d[TOLVA_STREAM_DESCRIPTOR_WORDS] = {};
    void SetUp() override {
        g_host = &host;
        d[0] = 1234;
        d[4] = reinterpret_cast<intptr_t>(&host_proc);
    }
};

TEST_F(ProcFixture, EveryOperationGoesToTheProcedure) {
    HGLOBAL s = zunOpen("name", d, TOLVA_STREAM_OUTPUT);
    ASSERT_NE(s, 0u);
    EXPECT_EQ(zunWriteLine(s, "hi", 2), 2);  // procedure streams keep line format 0: CR LF
    EXPECT_EQ(zunSeek(s, 1, 0), 1);
    char got[4] = {};
    EXPECT_EQ(zunRead(s, got, 3), 3);
    EXPECT_STREQ(got, "i\r\n");
    EXPECT_EQ(zunClose(s), 5);
    EXPECT_EQ(host.calls.front(), "1234:1:0");  // open gets the context word
    EXPECT_EQ(host.calls[1], "77:3:0");
    EXPECT_EQ(host.calls.back(), "77:5:0");
    EXPECT_EQ(host.data, (std::vector<uint8_t>{'h', 'i', 13, 10}));
}

TEST_F(ProcFixture, ADeclinedOpenStillCallsTheProcedureWithInstanceZero) {
    host.openAnswer = 0;
    TempFile tmp;
    HGLOBAL s = zunOpen(tmp.c_str(), d, TOLVA_STREAM_OUTPUT);
    ASSERT_NE(s, 0u);
    EXPECT_EQ(zunWrite(s, "abc", 3), 3);
    EXPECT_EQ(zunCloseandDelete(s, tmp.c_str()), 0);
    EXPECT_EQ(host.calls[1], "0:3:0");
    EXPECT_EQ(host.calls.back(), "0:5:512");
    EXPECT_EQ(tmp.contents().size(), 0u);  // the file was opened but never written
}

TEST_F(ProcFixture, WrapModeTakesTheInstanceWithoutOpening) {
    d[5] = 55;
    HGLOBAL s = zunOpen(nullptr, d, TOLVA_STREAM_WRAP);
    ASSERT_NE(s, 0u);
    EXPECT_EQ(zunWrite(s, "x", 1), 1);
    zunClose(s);
    EXPECT_EQ(host.calls.front(), "55:3:0");
}

TEST_F(ProcFixture, ExistsAndDeleteAskTheProcedure) {
    EXPECT_EQ(zunOpen("f", d, TOLVA_STREAM_EXISTS), 66u);
    EXPECT_EQ(zunOpen("f", d, TOLVA_STREAM_DELETE), 99u);
    EXPECT_EQ(host.calls, (std::vector<std::string>{"0:6:0", "0:7:0"}));
}

TEST(WrappedFile, TheCallersFileStaysOpen) {
    FILE *f = tmpfile();
    ASSERT_NE(f, nullptr);
    intptr_t d[TOLVA_STREAM_DESCRIPTOR_WORDS] = {};
    d[3] = reinterpret_cast<intptr_t>(f);
    HGLOBAL s = zunOpen(nullptr, d, TOLVA_STREAM_WRAP);
    ASSERT_NE(s, 0u);
    EXPECT_EQ(zunWrite(s, "wrapped", 7), 7);
    EXPECT_EQ(zunClose(s), 0);
    rewind(f);  // still usable: zunClose did not close it
    char got[8] = {};
    EXPECT_EQ(fread(got, 1, 7, f), 7u);
    EXPECT_STREQ(got, "wrapped");
    fclose(f);
    d[3] = -1;
    EXPECT_EQ(zunOpen(nullptr, d, TOLVA_STREAM_WRAP), 0u);
    EXPECT_EQ(zunOpen(nullptr, nullptr, TOLVA_STREAM_WRAP), 0u);
}

TEST(NamedStreams, StdinIsTheProcessInput) {
    TempFile tmp;
    tmp.put({'i', 'n', '\n'});
    EXPECT_EXIT(
        {
            if (freopen(tmp.c_str(), "r", stdin) == nullptr) _exit(2);
            HGLOBAL s = zunOpen("stdin", nullptr, 0);
            char line[8];
            int32_t n = zunReadLine(s, line, 8);
            zunClose(s);
            _exit(n == 2 && strcmp(line, "in") == 0 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(NoStreamModes, ExistsAndDeleteOnFiles) {
    TempFile tmp;
    EXPECT_NE(zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_EXISTS), 0u);
    EXPECT_NE(zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_EXISTS), static_cast<HGLOBAL>(-1));
    EXPECT_EQ(zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_DELETE), 1u);
    EXPECT_EQ(zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_EXISTS), static_cast<HGLOBAL>(-1));
    EXPECT_EQ(zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_DELETE), 0u);
}

TEST(Copy, CopiesWholeFilesInSteps) {
    TempFile from, to;
    auto data = pattern(10000);
    from.put(data);
    EXPECT_EQ(zunCopy(from.c_str(), to.c_str()), 0);
    EXPECT_EQ(to.contents(), data);
    // A missing source copies nothing and still reports 0.
    EXPECT_EQ(zunCopy("/nonexistent/source", to.c_str()), 0);
    EXPECT_EQ(to.contents().size(), 0u);
}

TEST(Helpers, UnxSeekAndPointerBlocks) {
    FILE *f = tmpfile();
    fputs("0123456789", f);
    EXPECT_EQ(unxSeek(f, 3, 0), 3);
    EXPECT_EQ(unxSeek(f, -2, 2), 8);
    EXPECT_EQ(unxSeek(f, -20, 1), -1);
    EXPECT_EQ(unxSeek(nullptr, 0, 0), -1);
    fclose(f);

    EXPECT_EQ(zunPtrGlobalAlloc(0), nullptr);
    auto *p = static_cast<uint8_t *>(zunPtrGlobalAlloc(10));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(GlobalSize(zunPtrGlobalHandle(p)), 10u);
    memcpy(p, "abcdefghij", 10);
    p = static_cast<uint8_t *>(zunPtrGlobalReAlloc(p, 20, TOLVA_GMEM_FLAGS));
    EXPECT_EQ(memcmp(p, "abcdefghij\0\0", 12), 0);
    EXPECT_EQ(zunPtrGlobalReAlloc(p, 0, 0), nullptr);  // freed
    p = static_cast<uint8_t *>(zunPtrGlobalReAlloc(nullptr, 4, 0));
    EXPECT_EQ(zunPtrGlobalFree(p), 0u);
    EXPECT_EQ(zunPtrGlobalFree(nullptr), 0u);
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

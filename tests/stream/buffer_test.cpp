// File and memory streams: the buffer's fill and flush rules, growth of
// memory blocks, the end mark, seeks and the failure results.
#include <gtest/gtest.h>

#include <string.h>

#include "stream_fixture.h"

namespace {

std::vector<uint8_t> read_back(HGLOBAL s, size_t n) {
    std::vector<uint8_t> got(n + 16);
    int32_t r = zunRead(s, got.data(), static_cast<int32_t>(got.size()));
    got.resize(r < 0 ? 0 : static_cast<size_t>(r));
    return got;
}

TEST(FileStream, RoundTripsAcrossBufferBoundaries) {
    for (size_t n : {0u, 1u, 12287u, 12288u, 12289u, 3u * 12288u + 5u}) {
        TempFile tmp;
        auto data = pattern(n, static_cast<uint32_t>(n));
        HGLOBAL s = zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_OUTPUT);
        ASSERT_NE(s, 0u);
        EXPECT_EQ(zunWrite(s, data.data(), static_cast<int32_t>(n)), static_cast<int32_t>(n));
        ASSERT_EQ(zunClose(s), 0);
        EXPECT_EQ(tmp.contents(), data) << n;

        s = zunOpen(tmp.c_str(), nullptr, 0);
        ASSERT_NE(s, 0u);
        EXPECT_EQ(read_back(s, n), data) << n;
        uint8_t byte;
        EXPECT_EQ(zunRead(s, &byte, 1), 0);  // past the end
        EXPECT_EQ(zunClose(s), 0);
    }
}

TEST(FileStream, FlushesWhenTheByteAfterAFullBufferArrives) {
    TempFile tmp;
    auto data = pattern(12289);
    HGLOBAL s = zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_OUTPUT);
    EXPECT_EQ(zunWrite(s, data.data(), 12288), 12288);
    EXPECT_EQ(tmp.contents().size(), 0u);  // a full buffer stays in memory
    EXPECT_EQ(zunSeek(s, 0, 1), 12288);
    EXPECT_EQ(zunWrite(s, data.data() + 12288, 1), 1);
    EXPECT_EQ(tmp.contents().size(), 12288u);  // one flush of the whole buffer
    EXPECT_EQ(zunSeek(s, 0, 1), 12289);
    EXPECT_EQ(zunClose(s), 0);
    EXPECT_EQ(tmp.contents(), data);
}

TEST(FileStream, SeeksInsideAndOutsideTheBuffer) {
    TempFile tmp;
    auto data = pattern(30000);
    HGLOBAL s = zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_OUTPUT);
    ASSERT_EQ(zunWrite(s, data.data(), 30000), 30000);
    // Inside the current window (bytes 24576..29999): served from the buffer.
    EXPECT_EQ(zunSeek(s, 25000, 0), 25000);
    uint8_t got[300];
    EXPECT_EQ(zunRead(s, got, 100), 100);
    EXPECT_EQ(memcmp(got, data.data() + 25000, 100), 0);
    // Back into the flushed part, across a window boundary.
    EXPECT_EQ(zunSeek(s, 12200, 0), 12200);
    EXPECT_EQ(zunRead(s, got, 200), 200);
    EXPECT_EQ(memcmp(got, data.data() + 12200, 200), 0);
    // Overwrite there, then read past it within the same window.
    EXPECT_EQ(zunSeek(s, -100, 1), 12300);
    const uint8_t patch[4] = {1, 2, 3, 4};
    EXPECT_EQ(zunWrite(s, patch, 4), 4);
    EXPECT_EQ(zunRead(s, got, 4), 4);
    EXPECT_EQ(memcmp(got, data.data() + 12304, 4), 0);
    EXPECT_EQ(zunSeek(s, -2, 2), 29998);
    EXPECT_EQ(zunRead(s, got, 10), 2);
    EXPECT_EQ(zunClose(s), 0);
    memcpy(data.data() + 12300, patch, 4);
    EXPECT_EQ(tmp.contents(), data);
}

TEST(FileStream, ReadAfterWriteInTheSameBuffer) {
    TempFile tmp;
    HGLOBAL s = zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_OUTPUT);
    EXPECT_EQ(zunWrite(s, "hello world", 11), 11);
    EXPECT_EQ(zunSeek(s, 6, 0), 6);
    char got[16] = {};
    EXPECT_EQ(zunRead(s, got, 16), 5);
    EXPECT_STREQ(got, "world");
    EXPECT_EQ(zunClose(s), 0);
}

TEST(FileStream, WritesAfterReadingAWholeWindowLandInPlace) {
    TempFile tmp;
    auto data = pattern(20000);
    tmp.put(data);
    HGLOBAL s = zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_UPDATE);
    std::vector<uint8_t> got(12288);
    ASSERT_EQ(zunRead(s, got.data(), 12288), 12288);
    EXPECT_EQ(zunWrite(s, "XY", 2), 2);
    EXPECT_EQ(zunClose(s), 0);
    data[12288] = 'X';
    data[12289] = 'Y';
    EXPECT_EQ(tmp.contents(), data);
}

TEST(FileStream, SeekLimitsDependOnTheMode) {
    TempFile tmp;
    tmp.put(pattern(100));
    HGLOBAL s = zunOpen(tmp.c_str(), nullptr, 0);
    EXPECT_EQ(zunSeek(s, 100, 0), 100);
    EXPECT_EQ(zunSeek(s, 101, 0), -1);
    EXPECT_EQ(zunSeek(s, -1, 0), -1);
    EXPECT_EQ(zunSeek(s, -200, 1), -1);
    EXPECT_EQ(zunClose(s), 0);

    s = zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_UPDATE);
    EXPECT_EQ(zunSeek(s, 150, 0), 150);
    EXPECT_EQ(zunWrite(s, "z", 1), 1);
    EXPECT_EQ(zunClose(s), 0);
    auto bytes = tmp.contents();
    ASSERT_EQ(bytes.size(), 151u);
    EXPECT_EQ(bytes[120], 0);
    EXPECT_EQ(bytes[150], 'z');
}

TEST(FileStream, FailuresAreResultsNotCrashes) {
    EXPECT_EQ(zunOpen("/nonexistent/dir/file", nullptr, 0), 0u);
    EXPECT_EQ(zunOpen(nullptr, nullptr, 0), 0u);
    EXPECT_EQ(zunOpen("", nullptr, TOLVA_STREAM_OUTPUT), 0u);
    uint8_t b[4];
    EXPECT_EQ(zunRead(0, b, 4), 0);
    EXPECT_EQ(zunWrite(0, b, 4), 0);
    EXPECT_EQ(zunSeek(0, 0, 0), -1);
    EXPECT_EQ(zunClose(0), -1);
    EXPECT_EQ(zunCloseandDelete(0, "x"), -1);
}

TEST(FileStream, AFullDiskFailsTheFlushAndThenStaysFailed) {
    HGLOBAL s = zunOpen("/dev/full", nullptr, TOLVA_STREAM_WRITE);
    ASSERT_NE(s, 0u);
    auto data = pattern(12289);
    EXPECT_EQ(zunWrite(s, data.data(), 12288), 12288);
    EXPECT_EQ(zunWrite(s, data.data(), 1), -1);
    // The error is sticky: a write that meets the full buffer now takes nothing.
    EXPECT_EQ(zunWrite(s, data.data(), 1), 0);
    EXPECT_EQ(zunClose(s), -1);
}

TEST(FileStream, CloseAndDeleteRemovesTheFile) {
    TempFile tmp;
    HGLOBAL s = zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_OUTPUT);
    EXPECT_EQ(zunWrite(s, "abc", 3), 3);
    EXPECT_EQ(zunCloseandDelete(s, tmp.c_str()), 0);
    EXPECT_EQ(access(tmp.c_str(), F_OK), -1);
    EXPECT_EQ(zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_EXISTS), static_cast<HGLOBAL>(-1));
}

TEST(MemoryStream, GrowsAndTheCallersPointerFollows) {
    MemoryBlock m;
    void *first = m.data;
    HGLOBAL s = m.open(TOLVA_STREAM_OUTPUT);
    ASSERT_NE(s, 0u);
    auto data = pattern(10000);
    EXPECT_EQ(zunWrite(s, data.data(), 10000), 10000);
    EXPECT_NE(m.data, first);
    EXPECT_EQ(GlobalSize(GlobalHandle(m.data)), 12288u);  // three steps of 4096
    EXPECT_EQ(memcmp(m.data, data.data(), 10000), 0);
    EXPECT_EQ(zunClose(s), 0);
    EXPECT_EQ(m.bytes()[10000], 0xFF);  // the end mark

    s = m.reopen();
    ASSERT_NE(s, 0u);
    EXPECT_EQ(m.descriptor[1], 10000);
    EXPECT_EQ(read_back(s, 10000), data);
    EXPECT_EQ(zunClose(s), 0);
}

TEST(MemoryStream, OpenForReadingDropsSlackAndTheEndMark) {
    MemoryBlock m;
    HGLOBAL h = GlobalReAlloc(GlobalHandle(m.data), 8, TOLVA_GMEM_FLAGS);
    m.data = GlobalLock(h);
    memcpy(m.data, "ab\xFF", 3);
    HGLOBAL s = m.reopen();
    EXPECT_EQ(m.descriptor[1], 2);
    char got[8] = {};
    EXPECT_EQ(zunRead(s, got, 8), 2);
    EXPECT_STREQ(got, "ab");
    // The size field is lastValid: seeking to the data's end is refused.
    EXPECT_EQ(zunSeek(s, 1, 0), 1);
    EXPECT_EQ(zunSeek(s, 2, 0), -1);
    EXPECT_EQ(zunClose(s), 0);
}

TEST(MemoryStream, SeekPastTheBlockGrowsIt) {
    MemoryBlock m;
    HGLOBAL s = m.open(TOLVA_STREAM_OUTPUT);
    EXPECT_EQ(zunSeek(s, 5000, 0), 5000);
    EXPECT_EQ(GlobalSize(GlobalHandle(m.data)), 5000u + 4096u + 1u);
    EXPECT_EQ(zunWrite(s, "q", 1), 1);
    EXPECT_EQ(zunSeek(s, 0, 2), 5001);
    EXPECT_EQ(zunSeek(s, -6000, 2), -1);
    EXPECT_EQ(zunClose(s), 0);
    EXPECT_EQ(m.bytes()[5000], 'q');
    EXPECT_EQ(m.bytes()[5001], 0xFF);
}

TEST(MemoryStream, AFailedSeekMakesTheNextFullBufferWriteTakeNothing) {
    MemoryBlock m;
    HGLOBAL s = m.open(TOLVA_STREAM_OUTPUT);
    EXPECT_EQ(zunSeek(s, -1, 0), -1);
    EXPECT_EQ(zunWrite(s, "a", 1), 0);  // a new block is full from the start
    EXPECT_EQ(zunClose(s), -1);         // nor does the end mark go in
    EXPECT_EQ(GlobalSize(GlobalHandle(m.data)), 1u);
}

TEST(TempName, CreatesTheFileUnderTmp) {
    char a[TOLVA_TEMP_NAME_SIZE], b[TOLVA_TEMP_NAME_SIZE];
    ASSERT_EQ(ZUNGetTempFileName(0, "x", 7, a), 1);
    ASSERT_EQ(ZUNGetTempFileName(0, "x", 7, b), 1);
    EXPECT_EQ(strncmp(a, "/tmp/", 5), 0);
    EXPECT_STRNE(a, b);
    EXPECT_EQ(access(a, F_OK), 0);
    unlink(a);
    unlink(b);
    EXPECT_EQ(ZUNGetTempFileName(0, nullptr, 0, nullptr), 0);
}

}  // namespace
